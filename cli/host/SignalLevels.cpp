#include "cli/host/SignalLevels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

SignalLevels::SignalLevels(int channels) : sumOfSquares(channels, 0.0), peaks(channels, 0.0) {}

void SignalLevels::Add(const double* samples, int64_t count)
{
    const int channels = Channels();
    for (int64_t frame = 0; frame < count; ++frame)
    {
        for (int channel = 0; channel < channels; ++channel)
        {
            double sample = samples[frame * channels + channel];
            sumOfSquares[channel] += sample * sample;
            peaks[channel] = std::max(peaks[channel], std::fabs(sample));
        }
    }
    frames += count;
}

double SignalLevels::Rms(int channel) const
{
    return frames > 0 ? std::sqrt(sumOfSquares[channel] / static_cast<double>(frames)) : 0.0;
}

std::string FormatDbfs(double linear)
{
    if (!(linear > 0.0))
        return "-inf dBFS";
    char text[32];
    std::snprintf(text, sizeof(text), "%.2f dBFS", 20.0 * std::log10(linear));
    return text;
}
