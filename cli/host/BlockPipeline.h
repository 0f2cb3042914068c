// Reading and writing overlap with the chain: the input is decoded on a thread
// of its own a few blocks ahead, and what the chain emits is encoded and
// written on another. Blocks travel through bounded queues, so memory stays
// fixed and a slow disk holds the chain back instead of piling up blocks.
// Both threads run a step below normal priority: they need a fraction of the
// chain's time, and where the three share a core the chain, which bounds the
// run, goes first.
#pragma once

#include "core/QVLargeBuffer.h"
#include "core/QVThread.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <mutex>
#include <vector>

struct SampleBlock
{
    // Interleaved, room for the queue's block size; undefined until filled,
    // since only frames put in are taken out.
    double* samples = nullptr;
    int64_t frames = 0;
    bool last = false;  // nothing follows in the stream
};

// Frames handed to the chain, to change in place until the next call.
struct FrameSpan
{
    double* samples = nullptr;
    int64_t frames = 0;
    explicit operator bool() const { return frames > 0; }
};

// Whole blocks of `blockFrames` that fill about a megabyte: the threads hand
// over a few hundred times a file instead of once per block, since every
// hand-over costs a wake-up of the other side.
int64_t ChunkFrames(int64_t blockFrames, int32_t channels);

// A fixed set of blocks shuttled between one producer and one consumer thread.
// Closing wakes every waiter; from then on both Take calls answer null.
class BlockQueue
{
public:
    BlockQueue(int32_t blocks, size_t samplesPerBlock);

    SampleBlock* TakeEmpty();
    void PutFull(SampleBlock* block);
    SampleBlock* TakeFull();
    void PutEmpty(SampleBlock* block);
    void Close();

private:
    SampleBlock* Take(std::deque<SampleBlock*>& from);
    void Put(std::deque<SampleBlock*>& to, SampleBlock* block);
    bool Ready(const std::deque<SampleBlock*>& blocks) const;

    const size_t batch;  // blocks a sleeping side waits for
    std::mutex lock;
    std::condition_variable changed;
    QVLargeBuffer memory;
    std::vector<SampleBlock> storage;
    std::deque<SampleBlock*> empty;
    std::deque<SampleBlock*> full;
    bool closed = false;
    bool endQueued = false;  // the stream's last block is among the full ones
};

// Reads the input ahead of the chain, a chunk of whole blocks at a time. Every
// block but the last holds exactly blockFrames frames, so the chain sees the
// same blocks as when it read the file itself.
class ReadAhead final : private QVThread
{
public:
    // Fills up to `frames` frames and answers how many; 0 at the end. May throw.
    using Source = std::function<int64_t(double* samples, int64_t frames)>;

    static constexpr int32_t DEFAULT_DEPTH = 4;

    // Chunks of `chunkFrames` (a multiple of blockFrames; 0: ChunkFrames) are
    // read ahead, `depth` of them at most.
    ReadAhead(Source source, int64_t blockFrames, int32_t channels, int32_t depth = DEFAULT_DEPTH,
              int64_t chunkFrames = 0);
    ~ReadAhead() override;

    // The next block; empty at the end. Rethrows what the source threw once
    // the frames read before the failure are handed out.
    FrameSpan Next();

private:
    void Run() override;
    // The thread uses the source and the queue, which die with this object: it
    // must never be left running past it.
    bool CanBeKilled() const override { return false; }

    void FillChunk(SampleBlock& chunk);

    Source source;
    int64_t blockFrames;
    int64_t chunkFrames;
    int32_t channels;
    BlockQueue queue;
    SampleBlock* current = nullptr;
    int64_t handedOut = 0;     // frames of `current` already given to the chain
    std::exception_ptr error;  // written before its chunk is queued
};

// Writes the chain's output behind it, in the order it was emitted, in pieces
// of `pieceFrames` (the last one shorter).
class WriteBehind final : private QVThread
{
public:
    using Destination = std::function<void(const double* samples, int64_t frames)>;

    static constexpr int32_t DEFAULT_DEPTH = 4;

    WriteBehind(Destination destination, int64_t pieceFrames, int32_t channels,
                int32_t depth = DEFAULT_DEPTH);
    // Without Finish, whatever is still queued is dropped.
    ~WriteBehind() override;

    // Copies the frames into the queue, waiting for room. Rethrows an error of
    // an earlier write; later output is then dropped.
    void Write(const double* samples, int64_t frames);
    // Waits until everything queued is written; rethrows a write error.
    void Finish();

private:
    void Run() override;
    bool CanBeKilled() const override { return false; }
    void RaiseError() const;

    Destination destination;
    int64_t pieceFrames;
    int32_t channels;
    BlockQueue queue;
    SampleBlock* filling = nullptr;  // the piece being gathered, not yet queued
    std::exception_ptr error;
    std::atomic<bool> failed{false};
    bool finished = false;
};
