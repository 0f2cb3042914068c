// Byte rings for one writer and one reader. The writer fills the space that
// Acquire hands out and publishes it with Commit; the reader looks at the
// oldest bytes (from any offset) without consuming them and drops bytes by
// moving ReadPosition itself. One byte always stays empty, so equal
// positions mean empty. Positions are atomic: a writer thread and a reader
// thread need no lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

class QVCircleBufferBase
{
public:
    virtual bool Acquire(uint32_t bytes, uint8_t*& first, uint32_t& firstSize, uint8_t*& second,
                         uint32_t& secondSize);
    virtual void Commit(uint32_t bytes);
    virtual ~QVCircleBufferBase() = default;

    uint32_t GetCapacity() const { return Capacity; }
    // Bytes written and not yet dropped by the reader.
    uint32_t GetUsed() const;
    // Bytes that can be written now: Capacity - used - 1.
    uint32_t GetFree() const;

    // Writer: all of `data` or nothing.
    bool Write(const void* data, uint32_t size);
    // Reader: copies `size` bytes starting `offset` bytes behind ReadPosition;
    // nothing is consumed. False (and nothing copied) when they aren't there.
    bool Read(void* target, uint32_t size, uint32_t offset = 0) const;
    // Reader: drops up to `bytes` of the oldest bytes; returns how many.
    uint32_t Skip(uint32_t bytes);
    // Neither side may run during a reset.
    void Reset();

protected:
    QVCircleBufferBase(uint8_t* storage, uint32_t capacity) : Capacity(capacity), Storage(storage)
    {
    }
    void SetStorage(uint8_t* storage, uint32_t capacity);

    uint32_t Capacity;
    std::atomic<uint32_t> ReadPosition{0};
    std::atomic<uint32_t> WritePosition{0};
    uint8_t* Storage;
};

// The plain ring over its own memory, with no lock.
class QVMemoryCircleBuffer : public QVCircleBufferBase
{
public:
    // Holds up to `capacity` - 1 bytes.
    explicit QVMemoryCircleBuffer(uint32_t capacity);

private:
    std::unique_ptr<uint8_t[]> m_memory;
};

// The ring with an optional lock that Acquire takes and Commit releases, for
// more than one writer.
class QVCircleBuffer : public QVMemoryCircleBuffer
{
public:
    QVCircleBuffer(uint32_t capacity, bool withLock);
    bool Acquire(uint32_t bytes, uint8_t*& first, uint32_t& firstSize, uint8_t*& second,
                 uint32_t& secondSize) override;
    void Commit(uint32_t bytes) override;
    bool HasLock() const { return m_lock != nullptr; }

private:
    std::unique_ptr<std::recursive_mutex> m_lock;
};
