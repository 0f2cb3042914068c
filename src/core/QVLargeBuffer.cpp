#include "core/QVLargeBuffer.h"

#include <sys/mman.h>

#include <cstdint>
#include <new>

namespace
{

constexpr size_t HUGE_PAGE_BYTES = size_t{2} << 20;

// The data starts half a small page into the region. At the region's start it
// would share the low twelve address bits with the blocks that malloc hands
// out (a page plus 16 bytes), and the processor then holds a load from one
// back behind a store to the other at the same offset: a loop that reads a
// frame of one and writes the frame before it to the other ran at half speed.
constexpr size_t DATA_OFFSET = 2048;

size_t RoundUp(size_t value, size_t step)
{
    return (value + step - 1) / step * step;
}

}  // namespace

QVLargeBuffer::QVLargeBuffer(size_t bytes) : bytes(bytes)
{
    if (bytes == 0)
        return;
    // Huge pages need a region that starts on their boundary: map one page
    // more than needed and give back what lies before and after it.
    const size_t wanted = RoundUp(DATA_OFFSET + bytes, HUGE_PAGE_BYTES);
    const size_t reserved = wanted + HUGE_PAGE_BYTES;
    void* start =
        mmap(nullptr, reserved, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start == MAP_FAILED)
        throw std::bad_alloc();
    const auto first = reinterpret_cast<uintptr_t>(start);
    const uintptr_t aligned = RoundUp(first, HUGE_PAGE_BYTES);
    if (aligned > first)
        munmap(start, aligned - first);
    const uintptr_t end = first + reserved;
    if (end > aligned + wanted)
        munmap(reinterpret_cast<void*>(aligned + wanted), end - (aligned + wanted));
    region = reinterpret_cast<void*>(aligned);
    mapped = wanted;
    data = static_cast<char*>(region) + DATA_OFFSET;
    // Advice only: without it (or without huge pages) the memory works the same.
    madvise(region, mapped, MADV_HUGEPAGE);
}

QVLargeBuffer::~QVLargeBuffer()
{
    if (region != nullptr)
        munmap(region, mapped);
}
