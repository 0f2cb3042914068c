// Counts the allocations of the current thread through operator new while a
// ScopedAllocationCount lives, to show that a steady-state block allocates
// nothing. Linking this file replaces the global operator new and delete of
// the test program with counting forms over malloc and free.
#pragma once

#include <cstdint>

namespace qvtest
{

class ScopedAllocationCount
{
public:
    ScopedAllocationCount();
    ~ScopedAllocationCount();
    ScopedAllocationCount(const ScopedAllocationCount&) = delete;
    ScopedAllocationCount& operator=(const ScopedAllocationCount&) = delete;

    // Allocations by this thread since construction.
    int64_t Allocations() const;

private:
    int64_t start;
    bool wasCounting;
};

}  // namespace qvtest
