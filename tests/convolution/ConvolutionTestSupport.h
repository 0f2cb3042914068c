// Helpers of the convolution tests: a folder of impulse files written by
// libsndfile, engines loaded in a settings store of their own, and the
// direct time-domain convolution that the fast engine must match.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "convolution/AudioConvolution.h"
#include "support/FileStoreTools.h"

namespace convtest
{

inline CAudioFormat MakeFormat(uint16_t channels, uint32_t rate = 48000)
{
    return CAudioFormat(64, rate, channels);
}

// A folder of its own per test, removed at the end.
class TempFolder
{
public:
    TempFolder()
    {
        static int counter = 0;
        path = std::filesystem::temp_directory_path() /
               ("qvdsp-conv-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
        std::filesystem::remove_all(path);
        std::filesystem::create_directories(path);
    }
    ~TempFolder() { std::filesystem::remove_all(path); }
    std::string File(const std::string& name) const { return (path / name).string(); }

    std::filesystem::path path;
};

// Interleaved samples of `channels` channels, written as WAV of the subtype
// (64-bit float unless told).
inline void WriteWav(const std::string& name, const std::vector<double>& samples, int channels,
                     int rate, int subtype = SF_FORMAT_DOUBLE)
{
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = SF_FORMAT_WAV | subtype;
    SNDFILE* file = sf_open(name.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    sf_writef_double(file, samples.data(), static_cast<sf_count_t>(samples.size() / channels));
    sf_close(file);
}

inline void WriteText(const std::string& name, const std::string& text)
{
    std::ofstream(name, std::ios::binary) << text;
}

// Values in [-amplitude, amplitude) from a fixed seed.
inline std::vector<double> Noise(size_t count, uint32_t seed, double amplitude = 1.0)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> value(-amplitude, amplitude);
    std::vector<double> samples(count);
    for (double& sample : samples)
        sample = value(generator);
    return samples;
}

// A decaying impulse of `taps` taps.
inline std::vector<double> DecayingImpulse(int taps, uint32_t seed)
{
    std::vector<double> impulse = Noise(static_cast<size_t>(taps), seed, 0.5);
    for (int i = 0; i < taps; ++i)
        impulse[i] *= std::exp(-4.0 * i / taps);
    return impulse;
}

// Channel `channel` of interleaved samples.
inline std::vector<double> ChannelOf(const std::vector<double>& samples, int channels, int channel)
{
    std::vector<double> out;
    for (size_t i = channel; i < samples.size(); i += channels)
        out.push_back(samples[i]);
    return out;
}

inline std::vector<double> Interleave(const std::vector<std::vector<double>>& channels)
{
    std::vector<double> out;
    for (size_t f = 0; f < channels[0].size(); ++f)
        for (const auto& channel : channels)
            out.push_back(channel[f]);
    return out;
}

// What the engine computes from a stream that starts after a reset, with
// hops of `half` frames: the first window's first half reaches the output
// only through the partitions older than the hop in which a frame is due (the
// window before it never existed), so output frame t sums the taps below the
// start of t's hop. The impulse is delayed by `delay` frames.
inline std::vector<double> WindowedConvolution(const std::vector<double>& x,
                                               const std::vector<double>& h, size_t half,
                                               size_t delay = 0)
{
    std::vector<double> y(x.size(), 0.0);
    for (size_t t = 0; t < x.size(); ++t)
    {
        const size_t limit = std::min(t / half * half, h.size() + delay);
        double sum = 0.0;
        for (size_t j = delay; j < limit && j <= t; ++j)
            sum += h[j - delay] * x[t - j];
        y[t] = sum;
    }
    return y;
}

// Everything the engine emits for the input, fed in calls of `chunk` frames.
inline std::vector<double> RunEngine(CAudioConvolution& engine, const std::vector<double>& input,
                                     int channels, int chunk)
{
    std::vector<double> out;
    const int frames = static_cast<int>(input.size() / channels);
    for (int done = 0; done < frames; done += chunk)
    {
        const int take = std::min(chunk, frames - done);
        engine.Process(input.data() + static_cast<size_t>(done) * channels, take);
        const double* produced = engine.GetOutput();
        out.insert(out.end(), produced,
                   produced + static_cast<size_t>(engine.GetOutputFrames()) * channels);
    }
    return out;
}

// An engine in a store of its own, loaded with a filter for a format, without
// normalisation unless asked, and reset so that its windows start empty.
struct LoadedEngine
{
    LoadedEngine(const std::string& filter, const CAudioFormat& format, bool small = true,
                 int32_t volumeMode = 1)
        : engine(0)
    {
        engine.volumeMode = volumeMode;
        engine.SetSmallFilters(small);  // saved, since every load reads it again
        engine.filterName = QVString::FromUTF8(filter);
        engine.Load(&format, true);
        engine.Reset();
    }
    qvtest::ScopedFileStore store;
    CAudioConvolution engine;
};

}  // namespace convtest
