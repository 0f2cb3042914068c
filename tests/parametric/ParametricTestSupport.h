// Helpers of the parametric tests: formats, filters from the factory, the
// frequency response of a filter measured from its impulse response, and
// tools whose settings keys live in a temporary JSON file.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "parametric/ParametricFilter.h"
#include "support/FileStoreTools.h"
#include "support/TestSupport.h"

namespace ptest
{
// The layout the host passes: 64-bit float samples.
inline CAudioFormat MakeFormat(uint16_t channels, uint32_t rate = 48000)
{
    return CAudioFormat(64, rate, channels);
}

template <typename T = CParametricFilter>
std::unique_ptr<T> Make(int32_t type)
{
    return std::unique_ptr<T>(static_cast<T*>(CreateParametricFilter(type)));
}

inline std::string Utf8(const QVString& text)
{
    return text.ToUTF8();
}

inline std::string Describe(CParametricFilter& filter)
{
    return filter.GetDescription().ToUTF8();
}

// Runs the filter over a block of one channel of `format`, all others zero.
inline std::vector<double> ImpulseResponse(CParametricFilter& filter, const CAudioFormat& format,
                                           int32_t channel, int32_t frames)
{
    std::vector<double> block(static_cast<size_t>(frames) * format.channels, 0.0);
    block[static_cast<size_t>(channel)] = 1.0;
    UserChannelBuffer users;
    filter.Process(block.data(), frames, &format, &users);
    std::vector<double> response(static_cast<size_t>(frames));
    for (int32_t k = 0; k < frames; ++k)
        response[static_cast<size_t>(k)] =
            block[static_cast<size_t>(k) * format.channels + channel];
    return response;
}

// The transform of an impulse response at one frequency.
inline std::complex<double> ResponseAt(const std::vector<double>& impulse, double frequency,
                                       double rate)
{
    std::complex<double> sum = 0.0;
    const double w = 2.0 * M_PI * frequency / rate;
    for (size_t n = 0; n < impulse.size(); ++n)
        sum += impulse[n] * std::polar(1.0, -w * static_cast<double>(n));
    return sum;
}

inline double Db(double magnitude)
{
    return 20.0 * std::log10(magnitude);
}

// Settings in a JSON file of the test's own.
using StoreTools = qvtest::FileStoreTools;
using ScopedStore = qvtest::ScopedFileStore;
}  // namespace ptest
