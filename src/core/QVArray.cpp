#include "core/QVArray.h"

#include <climits>

namespace
{

// Automatic growth steps: few reallocations for small arrays, bounded waste
// for large ones.
constexpr int32_t GROWTH_STEPS[] = {4, 64, 256, 1024, 4096, 16384, 65536};
constexpr int32_t GROWTH_BEYOND_STEPS = 65537;

}  // namespace

int32_t QVArrayBase::NextCapacity(int32_t count, int32_t needed, int32_t growBy)
{
    if (needed < 0 || needed > INT32_MAX - GROWTH_BEYOND_STEPS)
        throw std::bad_alloc();
    if (growBy > 0)
    {
        const int64_t rounded = (static_cast<int64_t>(needed) + growBy - 1) / growBy * growBy;
        if (rounded > INT32_MAX)
            throw std::bad_alloc();
        return static_cast<int32_t>(rounded);
    }
    for (int32_t step : GROWTH_STEPS)
        if (step >= needed)
            return step;
    // Past the last step: room for the elements asked for and 65536 more
    // (count + 65537 when one element is added).
    return needed - 1 + GROWTH_BEYOND_STEPS;
}
