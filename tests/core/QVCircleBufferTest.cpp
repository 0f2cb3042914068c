#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <thread>
#include <vector>

#include "core/QVCircleBuffer.h"

TEST(QVCircleBufferTest, OneByteStaysEmpty)
{
    QVMemoryCircleBuffer ring(8);
    EXPECT_EQ(ring.GetCapacity(), 8u);
    EXPECT_EQ(ring.GetUsed(), 0u);
    EXPECT_EQ(ring.GetFree(), 7u);
    const uint8_t data[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    EXPECT_FALSE(ring.Write(data, 8));  // all or nothing
    EXPECT_EQ(ring.GetUsed(), 0u);
    EXPECT_TRUE(ring.Write(data, 7));
    EXPECT_EQ(ring.GetFree(), 0u);
    EXPECT_FALSE(ring.Write(data, 1));
    EXPECT_EQ(ring.Skip(5), 5u);
    EXPECT_EQ(ring.GetUsed(), 2u);
    EXPECT_EQ(ring.GetFree(), 5u);
}

TEST(QVCircleBufferTest, AcquireSplitsAtTheEndAndReadLooksWithoutConsuming)
{
    QVMemoryCircleBuffer ring(10);
    const uint8_t first[6] = {10, 11, 12, 13, 14, 15};
    ASSERT_TRUE(ring.Write(first, 6));
    ring.Skip(6);  // both positions now at 6
    uint8_t *a, *b;
    uint32_t aSize, bSize;
    ASSERT_TRUE(ring.Acquire(7, a, aSize, b, bSize));
    EXPECT_EQ(aSize, 4u);  // bytes 6..9 of the storage
    EXPECT_EQ(bSize, 3u);  // then 0..2
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(b + 6, a);
    for (uint32_t i = 0; i < aSize; ++i)
        a[i] = static_cast<uint8_t>(20 + i);
    for (uint32_t i = 0; i < bSize; ++i)
        b[i] = static_cast<uint8_t>(24 + i);
    ring.Commit(7);
    EXPECT_EQ(ring.GetUsed(), 7u);

    uint8_t out[7] = {};
    ASSERT_TRUE(ring.Read(out, 7));
    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(out[i], 20 + i);
    EXPECT_EQ(ring.GetUsed(), 7u);  // a look consumes nothing
    uint8_t tail[3] = {};
    ASSERT_TRUE(ring.Read(tail, 3, 3));  // from an offset behind the read position, across the wrap
    EXPECT_EQ(tail[0], 23);
    EXPECT_EQ(tail[2], 25);
    EXPECT_FALSE(ring.Read(tail, 3, 5));
    EXPECT_TRUE(ring.Read(tail, 0, 7));

    EXPECT_FALSE(ring.Acquire(3, a, aSize, b, bSize));  // only 2 free
    EXPECT_EQ(a, nullptr);
    EXPECT_EQ(ring.Skip(100), 7u);
    EXPECT_EQ(ring.GetUsed(), 0u);
}

TEST(QVCircleBufferTest, LockLetsTwoWritersShareTheRing)
{
    EXPECT_TRUE(QVCircleBuffer(64, true).HasLock());
    EXPECT_FALSE(QVCircleBuffer(64, false).HasLock());

    // Two writers, one reader: each 4-byte record must arrive whole and each
    // writer's records in order, which needs the lock from Acquire to Commit.
    QVCircleBuffer ring(64, true);
    constexpr int RECORDS = 5000;
    std::atomic<bool> stop{false};  // a failed check must not leave the writers blocked
    auto writer = [&ring, &stop](uint8_t id)
    {
        for (int sequence = 0; sequence < RECORDS && !stop.load();)
        {
            const uint8_t record[4] = {id, static_cast<uint8_t>(sequence),
                                       static_cast<uint8_t>(sequence >> 8), id};
            uint8_t *a, *b;
            uint32_t aSize, bSize;
            if (!ring.Acquire(4, a, aSize, b, bSize))
            {
                std::this_thread::yield();
                continue;
            }
            std::memcpy(a, record, aSize);
            std::this_thread::yield();  // widen the window another writer would race into
            if (bSize > 0)
                std::memcpy(b, record + aSize, bSize);
            ring.Commit(4);
            ++sequence;
        }
    };
    std::thread first(writer, 1), second(writer, 2);
    int next[3] = {0, 0, 0};
    bool whole = true;
    for (int received = 0; received < 2 * RECORDS && whole;)
    {
        uint8_t record[4];
        if (!ring.Read(record, 4))
        {
            std::this_thread::yield();
            continue;
        }
        ring.Skip(4);
        ++received;
        const int id = record[0];
        whole = (id == 1 || id == 2) && record[3] == id &&
                ((record[1] | record[2] << 8) == (next[id] & 0xFFFF));
        if (whole)
            ++next[id];
    }
    stop = true;
    first.join();
    second.join();
    EXPECT_TRUE(whole);
    EXPECT_EQ(next[1], RECORDS);
    EXPECT_EQ(next[2], RECORDS);
}

TEST(QVCircleBufferTest, OneWriterAndOneReaderNeedNoLock)
{
    // An odd capacity so that wraps fall at every position.
    QVMemoryCircleBuffer ring(1021);
    constexpr uint64_t TOTAL = 4'000'000;
    std::thread writer(
        [&ring]
        {
            std::mt19937 random(1);
            uint64_t sent = 0;
            uint8_t chunk[300];
            while (sent < TOTAL)
            {
                const uint32_t size =
                    static_cast<uint32_t>(std::min<uint64_t>(1 + random() % 300, TOTAL - sent));
                for (uint32_t i = 0; i < size; ++i)
                    chunk[i] = static_cast<uint8_t>((sent + i) % 251);
                if (ring.Write(chunk, size))
                    sent += size;
                else
                    std::this_thread::yield();
            }
        });
    std::mt19937 random(2);
    uint64_t received = 0;
    bool inOrder = true;
    uint8_t chunk[400];
    while (received < TOTAL && inOrder)
    {
        const uint32_t available = ring.GetUsed();
        if (available == 0)
        {
            std::this_thread::yield();
            continue;
        }
        const uint32_t size = std::min<uint32_t>(available, 1 + random() % 400);
        const uint32_t offset = size > 1 ? random() % size : 0;
        // A look from an offset first, then the whole piece; only then dropped.
        ASSERT_TRUE(ring.Read(chunk, size - offset, offset));
        inOrder = chunk[0] == static_cast<uint8_t>((received + offset) % 251);
        ASSERT_TRUE(ring.Read(chunk, size));
        for (uint32_t i = 0; i < size && inOrder; ++i)
            inOrder = chunk[i] == static_cast<uint8_t>((received + i) % 251);
        ASSERT_EQ(ring.Skip(size), size);
        received += size;
    }
    writer.join();
    EXPECT_TRUE(inOrder) << "at byte " << received;
    EXPECT_EQ(received, TOTAL);
    EXPECT_EQ(ring.GetUsed(), 0u);
}
