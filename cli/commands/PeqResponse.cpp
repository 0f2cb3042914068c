#include "cli/commands/PeqResponse.h"

#include "cli/commands/Commands.h"
#include "core/QVString.h"
#include "parametric/ParametricFilter.h"
#include "qvdsp/AudioFormat.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstdio>
#include <memory>

namespace
{

// Long enough for the longest delay a list is likely to hold and for the tails
// of filters at 20 Hz; a power of two keeps the transform quick.
int32_t ImpulseLength(int32_t sampleRate)
{
    int32_t length = 1 << 14;
    while (length < 2 * sampleRate)
        length *= 2;
    return length;
}

// Samples the plug-in may run through for one table: every channel's impulse
// runs through all channels for twice the impulse's length. About a gigasample
// keeps the slowest list within seconds; 32 channels reach 192 kHz under it.
constexpr int64_t kMaxSampleSteps = int64_t{1} << 30;

// Keeps what the first `frames` frames of the output hold on one channel, and
// whether any other sample differs from silence.
class CollectingSink final : public IQVDSPSink
{
public:
    CollectingSink(int32_t channelCount, int32_t watched, int32_t frames)
        : channels(channelCount), channel(watched), data(static_cast<size_t>(frames), 0.0)
    {
    }
    void Output(double* samples, int32_t frames) override
    {
        for (int32_t frame = 0; frame < frames; ++frame, ++received)
        {
            if (received >= static_cast<int64_t>(data.size()))
                continue;
            const double* row = samples + static_cast<size_t>(frame) * channels;
            data[static_cast<size_t>(received)] = row[channel];
            for (int32_t other = 0; other < channels && !othersTouched; ++other)
                othersTouched = other != channel && row[other] != 0.0;
        }
    }
    int32_t channels;
    int32_t channel;
    std::vector<double> data;
    int64_t received = 0;
    bool othersTouched = false;
};

// The plug-in's output on channel `input`, `length` frames, for an impulse
// on that channel; changed tells whether the plug-in changed the impulse on
// any channel.
std::vector<double> RunImpulse(IQVDSP& plugin, int32_t channelCount, int32_t input, int32_t length,
                               bool& changed)
{
    constexpr int32_t blockFrames = 4096;
    CollectingSink sink(channelCount, input, length);
    std::vector<double> block(static_cast<size_t>(blockFrames) * channelCount);
    // Twice the length, so that plug-ins that hold samples back still deliver enough.
    for (int32_t done = 0; done < 2 * length; done += blockFrames)
    {
        std::fill(block.begin(), block.end(), 0.0);
        if (done == 0)
            block[input] = 1.0;
        plugin.Process(block.data(), blockFrames, &sink);
    }
    changed = sink.othersTouched || sink.data[0] != 1.0 ||
              std::any_of(sink.data.begin() + 1, sink.data.end(), [](double x) { return x != 0; });
    return sink.data;
}

struct FftwPlan
{
    explicit FftwPlan(int32_t length)
        : in(fftw_alloc_real(length)), out(fftw_alloc_complex(length / 2 + 1)),
          plan(fftw_plan_dft_r2c_1d(length, in, out, FFTW_ESTIMATE))
    {
    }
    ~FftwPlan()
    {
        fftw_destroy_plan(plan);
        fftw_free(out);
        fftw_free(in);
    }
    FftwPlan(const FftwPlan&) = delete;
    FftwPlan& operator=(const FftwPlan&) = delete;
    double* in;
    fftw_complex* out;
    fftw_plan plan;
};

double BinDecibels(const fftw_complex& bin)
{
    const double magnitude = std::hypot(bin[0], bin[1]);
    return 20.0 * std::log10(std::max(magnitude, 1e-15));
}

// Between bins the level is interpolated in dB; the bins lie 1.5 Hz apart or closer.
double DecibelsAt(const FftwPlan& fft, int32_t length, int32_t sampleRate, double frequency)
{
    const double position = frequency * length / sampleRate;
    const int32_t below = static_cast<int32_t>(std::floor(position));
    const double fraction = position - below;
    const double low = BinDecibels(fft.out[below]);
    if (fraction == 0.0 || below + 1 > length / 2)
        return low;
    return low + fraction * (BinDecibels(fft.out[below + 1]) - low);
}

std::vector<double> LogSpacedFrequencies(int32_t sampleRate, int32_t points)
{
    const double low = 20.0;
    const double high = std::min(20000.0, 0.49 * sampleRate);
    std::vector<double> frequencies;
    for (int32_t i = 0; i < points; ++i)
    {
        const double share = points == 1 ? 0.0 : static_cast<double>(i) / (points - 1);
        frequencies.push_back(low * std::pow(high / low, share));
    }
    return frequencies;
}

}  // namespace

MagnitudeResponse MeasureResponse(IQVDSP& plugin, int32_t sampleRate, int32_t channelCount,
                                  int32_t points)
{
    MagnitudeResponse response;
    response.sampleRate = sampleRate;
    response.frequencies = LogSpacedFrequencies(sampleRate, points);
    CAudioFormat format;
    format.Set(64, static_cast<uint32_t>(sampleRate), static_cast<uint16_t>(channelCount));
    if (plugin.SetFormat(format) != 0)
        throw CliError(CLI_EXIT_FAILED, "the plug-in does not run at " +
                                            std::to_string(sampleRate) + " Hz with " +
                                            std::to_string(channelCount) + " channels");
    const int32_t length = ImpulseLength(sampleRate);
    const int64_t steps = int64_t{2} * length * channelCount * channelCount;
    if (steps > kMaxSampleSteps)
        throw CliError(
            CLI_EXIT_USAGE,
            std::to_string(channelCount) + " channels at " + std::to_string(sampleRate) +
                " Hz would run " + std::to_string(steps) + " samples through the list, more than " +
                std::to_string(kMaxSampleSteps) + "; use fewer channels or a lower rate");
    FftwPlan fft(length);
    for (int32_t channel = 0; channel < channelCount; ++channel)
    {
        // The run of zeros after each impulse leaves the filters quiet again for the next channel.
        bool changed = false;
        const std::vector<double> output =
            RunImpulse(plugin, channelCount, channel, length, changed);
        if (!changed)
            continue;
        std::copy(output.begin(), output.end(), fft.in);
        fftw_execute(fft.plan);
        ChannelResponse traced;
        traced.channelId = format.channelTable[channel].position;
        traced.name = ShortChannelName(traced.channelId).ToUTF8();
        for (double frequency : response.frequencies)
            traced.decibels.push_back(DecibelsAt(fft, length, sampleRate, frequency));
        response.channels.push_back(std::move(traced));
    }
    return response;
}

std::string ResponseTable(const MagnitudeResponse& response)
{
    std::string table = "       Hz";
    char cell[64];
    for (const ChannelResponse& channel : response.channels)
    {
        std::snprintf(cell, sizeof cell, " %9s", (channel.name + " dB").c_str());
        table += cell;
    }
    table += '\n';
    for (size_t i = 0; i < response.frequencies.size(); ++i)
    {
        std::snprintf(cell, sizeof cell, "%9.1f", response.frequencies[i]);
        table += cell;
        for (const ChannelResponse& channel : response.channels)
        {
            std::snprintf(cell, sizeof cell, " %9.2f", channel.decibels[i]);
            table += cell;
        }
        table += '\n';
    }
    return table;
}
