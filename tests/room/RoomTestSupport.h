// Helpers of the Room Correction tests: formats, speakers set up in a store
// of their own, the transform of a response at one frequency, and the
// analytic Butterworth magnitudes that the crossovers have to meet.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "room/ChannelsDSP.h"
#include "support/FileStoreTools.h"
#include "support/TestSupport.h"

namespace roomtest
{

// The layout the host passes: 64-bit float samples, the default channel table.
inline CAudioFormat MakeFormat(uint16_t channels, uint32_t rate = 48000)
{
    return CAudioFormat(64, rate, channels);
}

// A speaker's settings for a test: a crossover with bass routing and slopes.
inline void SetCrossover(CChannelDSP& speaker, int32_t frequencyHz, int32_t routing,
                         int32_t highPassSlope = 12, int32_t lowPassSlope = 48)
{
    speaker.highPassFrequency = frequencyHz;
    speaker.removedBassRouting = routing;
    speaker.highPassSlope = highPassSlope;
    speaker.lowPassSlope = lowPassSlope;
}

// Runs a block through the engine and returns it.
inline std::vector<double> RunBlock(CChannelsDSP& engine, std::vector<double> block,
                                    int32_t channels, double toneGain = 1.0)
{
    engine.ProcessBlock(block.data(), static_cast<int32_t>(block.size() / channels), toneGain);
    return block;
}

// sum x[n] e^(-j 2 pi f n / rate): the response at f of an impulse response.
inline std::complex<double> ResponseAt(const std::vector<double>& impulse, double frequencyHz,
                                       double rate)
{
    std::complex<double> sum = 0.0;
    const double step = -2.0 * std::numbers::pi * frequencyHz / rate;
    for (size_t n = 0; n < impulse.size(); ++n)
        sum += impulse[n] * std::polar(1.0, step * static_cast<double>(n));
    return sum;
}

// Butterworth magnitudes of order n after the bilinear transform with the
// cut-off pre-warped: |H|^2 = 1 / (1 + (tan(w/2) / tan(wc/2))^(2n)).
inline double ButterworthLowPass(int32_t order, double frequencyHz, double cutoffHz, double rate)
{
    const double ratio = std::tan(std::numbers::pi * frequencyHz / rate) /
                         std::tan(std::numbers::pi * cutoffHz / rate);
    return 1.0 / std::sqrt(1.0 + std::pow(ratio, 2.0 * order));
}

inline double ButterworthHighPass(int32_t order, double frequencyHz, double cutoffHz, double rate)
{
    const double ratio = std::tan(std::numbers::pi * cutoffHz / rate) /
                         std::tan(std::numbers::pi * frequencyHz / rate);
    return 1.0 / std::sqrt(1.0 + std::pow(ratio, 2.0 * order));
}

}  // namespace roomtest
