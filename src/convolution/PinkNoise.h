// The pink noise with which the engine measures a filter's level: five
// first-order contributions refreshed at rates a factor of about four apart,
// from a 32-bit linear congruential generator. Its exact sequence is part of
// the figure a user sees, so every constant here is fixed.
#pragma once

#include <cstdint>

class CPinkNoise
{
public:
    double Next();

private:
    // One value in [0, 1] from two steps of the generator, 15 bits each.
    double Draw();

    uint32_t state = 1;
    double contributions[5] = {};
};
