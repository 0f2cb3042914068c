// Tube Amplifier over 48 kHz stereo, in the block sizes hosts commonly push.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <random>
#include <vector>

#include "effects/TubeAmplifier.h"

namespace
{

constexpr int32_t kSampleRate = 48000;
constexpr int32_t kChannels = 2;

class DiscardingSink : public IQVDSPSink
{
public:
    void Output(double* samples, int32_t frames) override { benchmark::DoNotOptimize(samples); }
};

void BM_TubeAmplifierStereo48k(benchmark::State& state)
{
    const int32_t frames = static_cast<int32_t>(state.range(0));
    CTubeAmplifierDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    plugin.SetFormat(CAudioFormat(64, kSampleRate, kChannels));

    std::mt19937_64 generator(1);
    std::vector<double> block(static_cast<size_t>(frames) * kChannels);
    for (double& sample : block)
        sample = static_cast<double>(generator() >> 11) * 0x1.0p-53 - 0.5;
    DiscardingSink sink;

    // The block is shaped in place again and again; the curve keeps values in
    // [-1, 1] and away from denormals, so every pass costs the same.
    for (auto _ : state)
    {
        plugin.Process(block.data(), frames, &sink);
        benchmark::ClobberMemory();
    }
    const double framesDone = static_cast<double>(state.iterations()) * frames;
    state.counters["samples/s"] =
        benchmark::Counter(framesDone * kChannels, benchmark::Counter::kIsRate);
    state.counters["x realtime"] =
        benchmark::Counter(framesDone / kSampleRate, benchmark::Counter::kIsRate);
}

BENCHMARK(BM_TubeAmplifierStereo48k)->Arg(64)->Arg(512)->Arg(4096)->Arg(65536);

}  // namespace
