#include "cli/host/BlockPipeline.h"

#include <algorithm>
#include <stdexcept>

BlockQueue::BlockQueue(int32_t blocks, size_t samplesPerBlock)
    : storage(static_cast<size_t>(std::max(blocks, 1)))
{
    for (SampleBlock& block : storage)
    {
        block.samples.resize(samplesPerBlock);
        empty.push_back(&block);
    }
}

SampleBlock* BlockQueue::Take(std::deque<SampleBlock*>& from)
{
    std::unique_lock<std::mutex> guard(lock);
    changed.wait(guard, [&] { return closed || !from.empty(); });
    if (closed)
        return nullptr;
    SampleBlock* block = from.front();
    from.pop_front();
    return block;
}

void BlockQueue::Put(std::deque<SampleBlock*>& to, SampleBlock* block)
{
    {
        std::lock_guard<std::mutex> guard(lock);
        to.push_back(block);
    }
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

ReadAhead::ReadAhead(Source source, int64_t blockFrames, int32_t channels, int32_t depth)
    : source(std::move(source)), blockFrames(blockFrames),
      queue(depth, static_cast<size_t>(blockFrames) * static_cast<size_t>(channels))
{
    if (!StartThread())
        throw std::runtime_error("no thread could be started to read the input");
}

ReadAhead::~ReadAhead()
{
    queue.Close();
    Stop(-2);
}

void ReadAhead::Run()
{
    while (!IsStopping())
    {
        SampleBlock* block = queue.TakeEmpty();
        if (block == nullptr)
            return;
        try
        {
            block->frames = source(block->samples.data(), blockFrames);
        }
        catch (...)
        {
            error = std::current_exception();
            block->frames = 0;
        }
        const bool end = block->frames == 0;
        queue.PutFull(block);
        if (end)
            return;
    }
}

SampleBlock* ReadAhead::Next()
{
    if (current != nullptr)
    {
        if (current->frames == 0)
            return nullptr;  // asked again after the end
        queue.PutEmpty(current);
    }
    current = queue.TakeFull();
    if (current == nullptr || current->frames > 0)
        return current;
    if (error)
        std::rethrow_exception(error);
    return nullptr;
}

WriteBehind::WriteBehind(Destination destination, int64_t blockFrames, int32_t channels,
                         int32_t depth)
    : destination(std::move(destination)), blockFrames(blockFrames), channels(channels),
      queue(depth, static_cast<size_t>(blockFrames) * static_cast<size_t>(channels))
{
    if (!StartThread())
        throw std::runtime_error("no thread could be started to write the output");
}

WriteBehind::~WriteBehind()
{
    queue.Close();
    Stop(-2);
}

void WriteBehind::Run()
{
    while (SampleBlock* block = queue.TakeFull())
    {
        const bool end = block->frames == 0;
        if (!end && !failed.load(std::memory_order_acquire))
        {
            try
            {
                destination(block->samples.data(), block->frames);
            }
            catch (...)
            {
                error = std::current_exception();
                failed.store(true, std::memory_order_release);
            }
        }
        queue.PutEmpty(block);
        if (end)
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
    // The chain may emit more than a block at once; the pieces are written in
    // order, which gives the file the same bytes as one write.
    while (frames > 0)
    {
        SampleBlock* block = queue.TakeEmpty();
        if (block == nullptr)
            return;
        const int64_t piece = std::min(frames, blockFrames);
        std::copy_n(samples, piece * channels, block->samples.data());
        block->frames = piece;
        queue.PutFull(block);
        samples += piece * channels;
        frames -= piece;
    }
}

void WriteBehind::Finish()
{
    if (!finished)
    {
        finished = true;
        if (SampleBlock* end = queue.TakeEmpty())
        {
            end->frames = 0;
            queue.PutFull(end);
        }
        Wait();
    }
    RaiseError();
}
