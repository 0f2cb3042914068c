// What the Analyzer's tests share: a plain DFT in double precision as the
// reference of the float transform, and a plug-in fed to a given point.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <numbers>
#include <vector>

#include "effects/AnalyzerPlugin.h"

namespace analyzertest
{

// |X_k|^2 for k = 0 .. n/2 - 1 of one channel of the last n frames, straight
// from the definition, with a table of twiddles so that large n stay quick.
inline std::vector<double> DftPower(const std::vector<double>& interleaved, int32_t channels,
                                    int32_t channel, int32_t n)
{
    const size_t first = interleaved.size() / channels - static_cast<size_t>(n);
    std::vector<double> cosines(static_cast<size_t>(n)), sines(static_cast<size_t>(n));
    for (int32_t m = 0; m < n; ++m)
    {
        cosines[static_cast<size_t>(m)] = std::cos(2.0 * std::numbers::pi * m / n);
        sines[static_cast<size_t>(m)] = std::sin(2.0 * std::numbers::pi * m / n);
    }
    std::vector<double> power(static_cast<size_t>(n / 2));
    for (int32_t k = 0; k < n / 2; ++k)
    {
        double re = 0.0, im = 0.0;
        for (int32_t t = 0; t < n; ++t)
        {
            const double x = interleaved[(first + t) * channels + channel];
            const size_t m = static_cast<size_t>((static_cast<int64_t>(k) * t) % n);
            re += x * cosines[m];
            im -= x * sines[m];
        }
        power[static_cast<size_t>(k)] = re * re + im * im;
    }
    return power;
}

// Mean square of one channel (or of all, channel -1) of the last n frames.
inline double MeanSquare(const std::vector<double>& interleaved, int32_t channels, int32_t channel,
                         int32_t n)
{
    const size_t first = interleaved.size() / channels - static_cast<size_t>(n);
    double sum = 0.0;
    int64_t count = 0;
    for (size_t f = first; f < first + n; ++f)
        for (int32_t c = 0; c < channels; ++c)
            if (channel < 0 || c == channel)
            {
                const double x = interleaved[f * channels + c];
                sum += x * x;
                ++count;
            }
    return sum / static_cast<double>(count);
}

inline double Decibels(double meanSquare)
{
    return meanSquare > 0.0 ? 20.0 * std::log10(std::sqrt(meanSquare)) : 0.0;
}

// A sine that completes exactly `bin` cycles in n samples: it lands on the
// centre of that bin of an n-point transform.
inline double BinFrequency(int32_t bin, int32_t n, double sampleRate)
{
    return bin * sampleRate / n;
}

}  // namespace analyzertest
