#include "core/QVCircleBuffer.h"

#include <algorithm>
#include <cstring>

void QVCircleBufferBase::SetStorage(uint8_t* storage, uint32_t capacity)
{
    Storage = storage;
    Capacity = capacity;
    Reset();
}

uint32_t QVCircleBufferBase::GetUsed() const
{
    const int64_t used = static_cast<int64_t>(WritePosition.load(std::memory_order_acquire)) -
                         static_cast<int64_t>(ReadPosition.load(std::memory_order_acquire));
    return static_cast<uint32_t>(used < 0 ? used + Capacity : used);
}

uint32_t QVCircleBufferBase::GetFree() const
{
    return Capacity == 0 ? 0 : Capacity - GetUsed() - 1;
}

// The one or two pieces of Storage from WritePosition on, split at the end of
// the storage. False when fewer than `bytes` are free.
bool QVCircleBufferBase::Acquire(uint32_t bytes, uint8_t*& first, uint32_t& firstSize,
                                 uint8_t*& second, uint32_t& secondSize)
{
    first = second = nullptr;
    firstSize = secondSize = 0;
    if (bytes > GetFree())
        return false;
    const uint32_t write = WritePosition.load(std::memory_order_relaxed);
    const uint32_t toEnd = Capacity - write;
    first = Storage + write;
    firstSize = std::min(bytes, toEnd);
    if (bytes > toEnd)
    {
        second = Storage;
        secondSize = bytes - toEnd;
    }
    return true;
}

void QVCircleBufferBase::Commit(uint32_t bytes)
{
    if (Capacity == 0)
        return;
    const uint32_t write = WritePosition.load(std::memory_order_relaxed);
    // Release: the bytes written before are visible to the reader that sees the new position.
    WritePosition.store(static_cast<uint32_t>((static_cast<uint64_t>(write) + bytes) % Capacity),
                        std::memory_order_release);
}

bool QVCircleBufferBase::Write(const void* data, uint32_t size)
{
    uint8_t *first, *second;
    uint32_t firstSize, secondSize;
    if (!Acquire(size, first, firstSize, second, secondSize))
        return false;
    const auto* bytes = static_cast<const uint8_t*>(data);
    if (firstSize > 0)
        std::memcpy(first, bytes, firstSize);
    if (secondSize > 0)
        std::memcpy(second, bytes + firstSize, secondSize);
    Commit(size);
    return true;
}

bool QVCircleBufferBase::Read(void* target, uint32_t size, uint32_t offset) const
{
    const uint64_t wanted = static_cast<uint64_t>(offset) + size;
    if (wanted > GetUsed())
        return false;
    if (size == 0)
        return true;
    const uint32_t start = static_cast<uint32_t>(
        (static_cast<uint64_t>(ReadPosition.load(std::memory_order_relaxed)) + offset) % Capacity);
    const uint32_t firstSize = std::min(size, Capacity - start);
    auto* out = static_cast<uint8_t*>(target);
    std::memcpy(out, Storage + start, firstSize);
    if (size > firstSize)
        std::memcpy(out + firstSize, Storage, size - firstSize);
    return true;
}

uint32_t QVCircleBufferBase::Skip(uint32_t bytes)
{
    const uint32_t dropped = std::min(bytes, GetUsed());
    if (dropped == 0)
        return 0;
    const uint32_t read = ReadPosition.load(std::memory_order_relaxed);
    // Release: the writer may reuse the space only after the reader is done with it.
    ReadPosition.store(static_cast<uint32_t>((static_cast<uint64_t>(read) + dropped) % Capacity),
                       std::memory_order_release);
    return dropped;
}

void QVCircleBufferBase::Reset()
{
    ReadPosition.store(0, std::memory_order_relaxed);
    WritePosition.store(0, std::memory_order_relaxed);
}

// A byte is only read after it was written, so the storage starts
// uninitialised: a large ring maps its pages only as the writer reaches them.
QVMemoryCircleBuffer::QVMemoryCircleBuffer(uint32_t capacity)
    : QVCircleBufferBase(nullptr, 0), m_memory(capacity > 0 ? new uint8_t[capacity] : nullptr)
{
    SetStorage(m_memory.get(), capacity);
}

QVCircleBuffer::QVCircleBuffer(uint32_t capacity, bool withLock)
    : QVMemoryCircleBuffer(capacity),
      m_lock(withLock ? std::make_unique<std::recursive_mutex>() : nullptr)
{
}

// The lock spans Acquire to Commit, so it can't be a scoped object here: a
// failed Acquire gives it back at once, a successful one hands it to Commit.
bool QVCircleBuffer::Acquire(uint32_t bytes, uint8_t*& first, uint32_t& firstSize, uint8_t*& second,
                             uint32_t& secondSize)
{
    if (m_lock)
        m_lock->lock();
    const bool acquired =
        QVMemoryCircleBuffer::Acquire(bytes, first, firstSize, second, secondSize);
    if (!acquired && m_lock)
        m_lock->unlock();
    return acquired;
}

void QVCircleBuffer::Commit(uint32_t bytes)
{
    QVMemoryCircleBuffer::Commit(bytes);
    if (m_lock)
        m_lock->unlock();
}
