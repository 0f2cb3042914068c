// The calibration tone of Room Correction: pink noise limited to the band in
// which a sound level meter reads a speaker (500 Hz to 2 kHz, or 25 to 150 Hz
// for the subwoofer), at a level that reads the same on every speaker.
#pragma once

#include <cstdint>

#include "filters/IIRFilter.h"

class CCalibrationNoise
{
public:
    static constexpr int32_t STAGE_COUNT = 5;

    // `levelDb` is the wanted meter reading relative to full scale.
    CCalibrationNoise(double sampleRate, bool subwoofer, double levelDb);

    // The next seed of the process: every tone starts from another one, so
    // two speakers sounding one after another never play the same noise.
    static uint32_t NextSeed();
    // Makes the next NextSeed start again from the clock; for tests.
    static void ResetSeedCounter();

    // One sample of the pink noise before the band filters.
    double NextUnfiltered() noexcept;
    // One sample through both band filters.
    double Next() noexcept { return highPass.Process(lowPass.Process(NextUnfiltered())); }

    uint32_t seed;
    double stages[STAGE_COUNT] = {};
    double scale;
    CIIRFilter lowPass;
    CIIRFilter highPass;

private:
    // A uniform number in [0, 1] of 30 bits, from two steps of the generator.
    double NextUniform() noexcept;
};
