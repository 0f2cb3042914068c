#include "support/Signals.h"

#include <cmath>
#include <numbers>
#include <random>

namespace qvtest
{

namespace
{
size_t SampleCount(int32_t frames, int32_t channels)
{
    return frames > 0 && channels > 0 ? static_cast<size_t>(frames) * static_cast<size_t>(channels)
                                      : 0;
}
}  // namespace

std::vector<double> Silence(int32_t frames, int32_t channels)
{
    return std::vector<double>(SampleCount(frames, channels), 0.0);
}

std::vector<double> Impulse(int32_t frames, int32_t channels, int32_t position, double amplitude)
{
    std::vector<double> signal = Silence(frames, channels);
    if (position >= 0 && position < frames)
        for (int32_t c = 0; c < channels; ++c)
            signal[static_cast<size_t>(position) * channels + c] = amplitude;
    return signal;
}

std::vector<double> Sine(int32_t frames, int32_t channels, double frequencyHz, double sampleRate,
                         double amplitude, double phase)
{
    std::vector<double> signal = Silence(frames, channels);
    const double step = 2.0 * std::numbers::pi * frequencyHz / sampleRate;
    for (int32_t f = 0; f < frames; ++f)
    {
        const double value = amplitude * std::sin(step * f + phase);
        for (int32_t c = 0; c < channels; ++c)
            signal[static_cast<size_t>(f) * channels + c] = value;
    }
    return signal;
}

std::vector<double> Noise(int32_t frames, int32_t channels, uint64_t seed, double amplitude)
{
    // mt19937_64's sequence is fixed by the standard; the mapping to [-1, 1) is
    // done here rather than by a distribution, whose algorithm is not.
    std::mt19937_64 generator(seed);
    std::vector<double> signal(SampleCount(frames, channels));
    for (double& sample : signal)
    {
        const double unit = static_cast<double>(generator() >> 11) * 0x1.0p-53;  // [0, 1)
        sample = amplitude * (2.0 * unit - 1.0);
    }
    return signal;
}

std::vector<double> ChannelOf(const std::vector<double>& signal, int32_t channels, int32_t channel)
{
    std::vector<double> result;
    if (channels <= 0)
        return result;
    result.reserve(signal.size() / channels);
    for (size_t i = static_cast<size_t>(channel); i < signal.size(); i += channels)
        result.push_back(signal[i]);
    return result;
}

double Rms(const std::vector<double>& samples)
{
    if (samples.empty())
        return 0.0;
    double sum = 0.0;
    for (double s : samples)
        sum += s * s;
    return std::sqrt(sum / static_cast<double>(samples.size()));
}

double Peak(const std::vector<double>& samples)
{
    double peak = 0.0;
    for (double s : samples)
        peak = std::max(peak, std::fabs(s));
    return peak;
}

}  // namespace qvtest
