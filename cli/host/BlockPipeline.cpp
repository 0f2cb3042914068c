#include "cli/host/BlockPipeline.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

BlockQueue::BlockQueue(int32_t blocks, size_t samplesPerBlock)
    : batch(static_cast<size_t>(std::max(blocks / 2, 1))),
      memory(static_cast<size_t>(std::max(blocks, 1)) * samplesPerBlock * sizeof(double)),
      storage(static_cast<size_t>(std::max(blocks, 1)))
{
    double* next = memory.As<double>();
    for (SampleBlock& block : storage)
    {
        block.samples = next;
        next += samplesPerBlock;
        empty.push_back(&block);
    }
}

// A side that finds nothing to take sleeps until half the queue is there (or
// the stream's end), and the other side wakes it only then: every wake-up
// costs both threads a system call, and waking for each block made them trade
// places block by block. With half each way neither can wait on the other.
SampleBlock* BlockQueue::Take(std::deque<SampleBlock*>& from)
{
    std::unique_lock<std::mutex> guard(lock);
    if (from.empty())
        changed.wait(guard, [&] { return closed || Ready(from); });
    if (closed)
        return nullptr;
    SampleBlock* block = from.front();
    from.pop_front();
    return block;
}

bool BlockQueue::Ready(const std::deque<SampleBlock*>& blocks) const
{
    return blocks.size() >= batch || (&blocks == &full && endQueued && !blocks.empty());
}

void BlockQueue::Put(std::deque<SampleBlock*>& to, SampleBlock* block)
{
    bool wake = false;
    {
        std::lock_guard<std::mutex> guard(lock);
        to.push_back(block);
        if (&to == &full && block->last)
            endQueued = true;
        wake = Ready(to);
    }
    if (wake)
        changed.notify_all();
}

SampleBlock* BlockQueue::TakeEmpty()
{
    return Take(empty);
}

void BlockQueue::PutFull(SampleBlock* block)
{
    Put(full, block);
}

SampleBlock* BlockQueue::TakeFull()
{
    return Take(full);
}

void BlockQueue::PutEmpty(SampleBlock* block)
{
    Put(empty, block);
}

void BlockQueue::Close()
{
    {
        std::lock_guard<std::mutex> guard(lock);
        closed = true;
    }
    changed.notify_all();
}

int64_t ChunkFrames(int64_t blockFrames, int32_t channels)
{
    constexpr int64_t chunkBytes = int64_t{1} << 20;
    const int64_t blockBytes = blockFrames * channels * static_cast<int64_t>(sizeof(double));
    return blockFrames * std::max<int64_t>(1, chunkBytes / std::max<int64_t>(blockBytes, 1));
}

ReadAhead::ReadAhead(Source source, int64_t blockFrames, int32_t channels, int32_t depth,
                     int64_t chunkFrames)
    : source(std::move(source)), blockFrames(blockFrames),
      chunkFrames(chunkFrames > 0 ? chunkFrames : ChunkFrames(blockFrames, channels)),
      channels(channels),
      queue(depth, static_cast<size_t>(this->chunkFrames) * static_cast<size_t>(channels))
{
    if (!StartThread(PRIORITY_BELOW_NORMAL))
        throw std::runtime_error("no thread could be started to read the input");
}

ReadAhead::~ReadAhead()
{
    queue.Close();
    Stop(-2);
}

void ReadAhead::FillChunk(SampleBlock& chunk)
{
    chunk.frames = 0;
    chunk.last = false;
    try
    {
        while (chunk.frames < chunkFrames)
        {
            const int64_t got =
                source(chunk.samples + chunk.frames * channels, chunkFrames - chunk.frames);
            if (got <= 0)
            {
                chunk.last = true;
                return;
            }
            chunk.frames += got;
        }
    }
    catch (...)
    {
        error = std::current_exception();
        chunk.last = true;
    }
}

void ReadAhead::Run()
{
    while (!IsStopping())
    {
        SampleBlock* chunk = queue.TakeEmpty();
        if (chunk == nullptr)
            return;
        FillChunk(*chunk);
        const bool last = chunk->last;
        queue.PutFull(chunk);
        if (last)
            return;
    }
}

FrameSpan ReadAhead::Next()
{
    while (true)
    {
        if (current != nullptr)
        {
            if (handedOut < current->frames)
            {
                const int64_t frames = std::min(blockFrames, current->frames - handedOut);
                FrameSpan block{current->samples + handedOut * channels, frames};
                handedOut += frames;
                return block;
            }
            if (current->last)
            {
                if (error)
                    std::rethrow_exception(std::exchange(error, nullptr));
                return {};
            }
            queue.PutEmpty(current);
        }
        current = queue.TakeFull();
        handedOut = 0;
        if (current == nullptr)
            return {};
    }
}

WriteBehind::WriteBehind(Destination destination, int64_t pieceFrames, int32_t channels,
                         int32_t depth)
    : destination(std::move(destination)), pieceFrames(pieceFrames), channels(channels),
      queue(depth, static_cast<size_t>(pieceFrames) * static_cast<size_t>(channels))
{
    if (!StartThread(PRIORITY_BELOW_NORMAL))
        throw std::runtime_error("no thread could be started to write the output");
}

WriteBehind::~WriteBehind()
{
    queue.Close();
    Stop(-2);
}

void WriteBehind::Run()
{
    while (SampleBlock* piece = queue.TakeFull())
    {
        const bool last = piece->last;
        if (piece->frames > 0 && !failed.load(std::memory_order_acquire))
        {
            try
            {
                destination(piece->samples, piece->frames);
            }
            catch (...)
            {
                error = std::current_exception();
                failed.store(true, std::memory_order_release);
            }
        }
        queue.PutEmpty(piece);
        if (last)
            return;
    }
}

void WriteBehind::RaiseError() const
{
    if (failed.load(std::memory_order_acquire))
        std::rethrow_exception(error);
}

void WriteBehind::Write(const double* samples, int64_t frames)
{
    RaiseError();
    // However the chain cuts its output, the pieces are gathered whole and
    // written in order, which gives the file the same bytes as one write.
    while (frames > 0)
    {
        if (filling == nullptr)
        {
            filling = queue.TakeEmpty();
            if (filling == nullptr)
                return;
            filling->frames = 0;
            filling->last = false;
        }
        const int64_t room = pieceFrames - filling->frames;
        const int64_t taken = std::min(frames, room);
        std::copy_n(samples, taken * channels, filling->samples + filling->frames * channels);
        filling->frames += taken;
        samples += taken * channels;
        frames -= taken;
        if (filling->frames == pieceFrames)
            queue.PutFull(std::exchange(filling, nullptr));
    }
}

void WriteBehind::Finish()
{
    if (!finished)
    {
        finished = true;
        // What is gathered goes out as the last piece, or an empty one marks the end.
        if (filling == nullptr && (filling = queue.TakeEmpty()) != nullptr)
            filling->frames = 0;
        if (filling != nullptr)
        {
            filling->last = true;
            queue.PutFull(std::exchange(filling, nullptr));
        }
        Wait();
    }
    RaiseError();
}
