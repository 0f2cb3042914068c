#include "support/AllocationCounter.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace
{

thread_local int64_t t_allocations = 0;
thread_local bool t_counting = false;

void* Allocate(std::size_t size)
{
    if (t_counting)
        ++t_allocations;
    if (size == 0)
        size = 1;
    void* memory = std::malloc(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void* AllocateAligned(std::size_t size, std::align_val_t alignment)
{
    if (t_counting)
        ++t_allocations;
    if (size == 0)
        size = 1;
    void* memory = nullptr;
    const std::size_t align = std::max(static_cast<std::size_t>(alignment), sizeof(void*));
    if (posix_memalign(&memory, align, size) != 0)
        throw std::bad_alloc();
    return memory;
}

}  // namespace

namespace qvtest
{

ScopedAllocationCount::ScopedAllocationCount() : start(t_allocations), wasCounting(t_counting)
{
    t_counting = true;
}

ScopedAllocationCount::~ScopedAllocationCount()
{
    t_counting = wasCounting;
}

int64_t ScopedAllocationCount::Allocations() const
{
    return t_allocations - start;
}

}  // namespace qvtest

void* operator new(std::size_t size)
{
    return Allocate(size);
}
void* operator new[](std::size_t size)
{
    return Allocate(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try
    {
        return Allocate(size);
    }
    catch (...)
    {
        return nullptr;
    }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept
{
    return operator new(size, tag);
}
void* operator new(std::size_t size, std::align_val_t alignment)
{
    return AllocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment)
{
    return AllocateAligned(size, alignment);
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::align_val_t) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, std::size_t, std::align_val_t) noexcept
{
    std::free(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept
{
    std::free(memory);
}
