// The 20-band Equalizer over 48 kHz stereo: all twenty bands active, and the
// flat setting beside it, which should cost no more than the loop over bands.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "effects/EqualizerPlugin.h"
#include "frame/IQVTools.h"

namespace
{
constexpr int32_t kSampleRate = 48000;
constexpr int32_t kChannels = 2;
// Every band moved (Rock), and no band moved.
constexpr const char16_t* kAllBands = u"OCCKKUUYYUUNNKKCCCCCC";

class DiscardingSink : public IQVDSPSink
{
public:
    void Output(double* samples, int32_t) override { benchmark::DoNotOptimize(samples); }
};

void RunEqualizer(benchmark::State& state, const char16_t* setting)
{
    const int32_t frames = static_cast<int32_t>(state.range(0));
    // Without tools the plug-in reads no store and starts flat.
    IQVTools* previous = GetQVTools();
    SetQVTools(nullptr);
    CEqualizerDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    plugin.SetOption(DSPOPT_TRANSIENT);
    plugin.SetFormat(CAudioFormat(64, kSampleRate, kChannels));
    plugin.GetPresets().settings = QVString(setting);
    plugin.GetEngine().ApplySetting(plugin.GetPresets().settings);

    std::mt19937_64 generator(1);
    std::vector<double> source(static_cast<size_t>(frames) * kChannels);
    for (double& sample : source)
        sample = static_cast<double>(generator() >> 11) * 0x1.0p-53 - 0.5;
    std::vector<double> block = source;
    DiscardingSink sink;

    for (auto _ : state)
    {
        // A fresh copy each time keeps the level steady; the copy is small
        // beside twenty bands.
        block = source;
        plugin.Process(block.data(), frames, &sink);
        benchmark::ClobberMemory();
    }
    SetQVTools(previous);
    const double framesDone = static_cast<double>(state.iterations()) * frames;
    state.counters["x realtime"] =
        benchmark::Counter(framesDone / kSampleRate, benchmark::Counter::kIsRate);
    state.counters["ns/band-sample"] = benchmark::Counter(
        framesDone * kChannels * 20, benchmark::Counter::kIsRate | benchmark::Counter::kInvert,
        benchmark::Counter::OneK::kIs1000);
}

void BM_EqualizerAllBandsStereo48k(benchmark::State& state)
{
    RunEqualizer(state, kAllBands);
}

void BM_EqualizerFlatStereo48k(benchmark::State& state)
{
    RunEqualizer(state, u"OOOOOOOOOOOOOOOOOOOOO");
}

BENCHMARK(BM_EqualizerAllBandsStereo48k)->Arg(512)->Arg(4096)->Arg(65536);
BENCHMARK(BM_EqualizerFlatStereo48k)->Arg(512)->Arg(4096)->Arg(65536);
}  // namespace
