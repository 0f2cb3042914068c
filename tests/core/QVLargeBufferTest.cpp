#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <unistd.h>

#include "core/QVLargeBuffer.h"

namespace
{

// Bytes of address space the process holds.
int64_t AddressSpace()
{
    std::ifstream statm("/proc/self/statm");
    int64_t pages = 0;
    statm >> pages;
    return pages * sysconf(_SC_PAGESIZE);
}

void UseEverySize()
{
    for (const size_t bytes : {size_t{1}, size_t{4095}, size_t{1} << 20, (size_t{2} << 20) - 2048,
                               (size_t{2} << 20) + 1, size_t{5} << 20})
    {
        QVLargeBuffer buffer(bytes);
        EXPECT_EQ(buffer.Bytes(), bytes);
        auto* data = buffer.As<uint8_t>();
        EXPECT_EQ(reinterpret_cast<uintptr_t>(data) % 64, 0u) << bytes;
        for (size_t i = 0; i < bytes; ++i)
            data[i] = static_cast<uint8_t>(i * 7);
        size_t wrong = 0;
        for (size_t i = 0; i < bytes; ++i)
            wrong += data[i] != static_cast<uint8_t>(i * 7);
        EXPECT_EQ(wrong, 0u) << bytes;
    }
}

}  // namespace

// Every byte asked for is there, aligned for vector loads, and the pages
// trimmed off around the region (and the region itself) go back to the system.
TEST(QVLargeBufferTest, WholeLengthIsUsableAlignedAndGivenBack)
{
    // Ten rounds of six buffers: a region or a trimmed piece left behind would
    // hold on to at least 60 MiB more; the test's own allocations take little.
    UseEverySize();
    const int64_t before = AddressSpace();
    for (int round = 0; round < 10; ++round)
        UseEverySize();
    EXPECT_LT(AddressSpace() - before, int64_t{16} << 20);
    QVLargeBuffer empty(0);
    EXPECT_EQ(empty.Bytes(), 0u);
}
