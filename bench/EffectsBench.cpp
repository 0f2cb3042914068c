// The Effects plug-in with all three effects on ("Concert Hall" at 4, 8"
// subwoofer, medium surround field) at 48 kHz in 2, 6 and 8 channels: the
// reverb models per pair dominate, one to four of them.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "effects/EffectsPlugin.h"
#include "frame/IQVTools.h"

namespace
{
constexpr int32_t kSampleRate = 48000;
constexpr int32_t kFrames = 4096;

class DiscardingSink : public IQVDSPSink
{
public:
    void Output(double* samples, int32_t) override { benchmark::DoNotOptimize(samples); }
};

void BM_EffectsAllOn48k(benchmark::State& state)
{
    const auto channels = static_cast<int32_t>(state.range(0));
    // Without tools the plug-in reads no store; its zone keeps it from saving.
    IQVTools* previous = GetQVTools();
    SetQVTools(nullptr);
    {
        CEffectsDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
        plugin.GetSettings().values = {1, 4, 2, 1, 2};
        plugin.SetFormat(CAudioFormat(64, kSampleRate, static_cast<uint16_t>(channels)));

        std::mt19937_64 generator(1);
        std::vector<double> source(static_cast<size_t>(kFrames) * channels);
        for (double& sample : source)
            sample = static_cast<double>(generator() >> 11) * 0x1.0p-53 - 0.5;
        std::vector<double> block = source;
        DiscardingSink sink;
        for (auto _ : state)
        {
            // A fresh copy each time keeps the level steady and far from
            // denormal numbers; it is small beside the reverb.
            block = source;
            plugin.Process(block.data(), kFrames, &sink);
            benchmark::ClobberMemory();
        }
        const double framesDone = static_cast<double>(state.iterations()) * kFrames;
        state.counters["x realtime"] =
            benchmark::Counter(framesDone / kSampleRate, benchmark::Counter::kIsRate);
        state.counters["ns/frame"] = benchmark::Counter(
            framesDone, benchmark::Counter::kIsRate | benchmark::Counter::kInvert,
            benchmark::Counter::OneK::kIs1000);
    }
    SetQVTools(previous);
}

BENCHMARK(BM_EffectsAllOn48k)->Arg(2)->Arg(6)->Arg(8);
}  // namespace
