// The Analyzer's two sides: the audio thread's block copy into the ring
// (beside a plain memcpy of the same bytes), and the display's frame at 4096
// and 16384 points, with and without the traces of an 800-pixel plot.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "effects/AnalyzerPlugin.h"
#include "effects/SoundAnalyzerDraw.h"

namespace
{

constexpr int32_t kSampleRate = 48000;
constexpr int32_t kChannels = 2;

class DiscardingSink : public IQVDSPSink
{
public:
    void Output(double* samples, int32_t) override { benchmark::DoNotOptimize(samples); }
};

std::vector<double> Noise(size_t count)
{
    std::mt19937_64 generator(1);
    std::vector<double> samples(count);
    for (double& sample : samples)
        sample = static_cast<double>(generator() >> 11) * 0x1.0p-53 - 0.5;
    return samples;
}

void BM_AnalyzerProcessBlock(benchmark::State& state)
{
    const int32_t frames = static_cast<int32_t>(state.range(0));
    CAnalyzerDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    const CAudioFormat format(64, kSampleRate, kChannels);
    plugin.SetFormat(format);
    std::vector<double> block = Noise(static_cast<size_t>(frames) * kChannels);
    const uint32_t bytes = static_cast<uint32_t>(block.size() * sizeof(double));
    DiscardingSink sink;
    for (auto _ : state)
    {
        // Every block is stored: an empty ring is put in before it would fill.
        if (plugin.GetRingCapacity() - plugin.GetRingUsed() <= bytes)
        {
            state.PauseTiming();
            plugin.SetFormat(format);
            state.ResumeTiming();
        }
        plugin.Process(block.data(), frames, &sink);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * bytes);
}
BENCHMARK(BM_AnalyzerProcessBlock)->Arg(64)->Arg(512)->Arg(4096);

// The floor the block copy is compared with.
void BM_AnalyzerMemcpyBaseline(benchmark::State& state)
{
    const size_t count = static_cast<size_t>(state.range(0)) * kChannels;
    std::vector<double> block = Noise(count);
    std::vector<double> target(count * 64);
    size_t slot = 0;
    for (auto _ : state)
    {
        std::memcpy(target.data() + slot * count, block.data(), count * sizeof(double));
        slot = (slot + 1) % 64;
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * count * sizeof(double)));
}
BENCHMARK(BM_AnalyzerMemcpyBaseline)->Arg(64)->Arg(512)->Arg(4096);

void PrepareFrame(CAnalyzerDSPPlugin& plugin, bool high)
{
    plugin.SetFormat(CAudioFormat(64, kSampleRate, kChannels));
    plugin.SetHighResolution(high);
    const int32_t n = plugin.GetFftSize();
    std::vector<double> block = Noise(static_cast<size_t>(n) * kChannels);
    DiscardingSink sink;
    plugin.Process(block.data(), n, &sink);
}

// One repaint's analysis with no new audio: the same N frames again.
void BM_AnalyzerUpdateFrame(benchmark::State& state)
{
    CAnalyzerDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    plugin.SetOption(DSPOPT_TRANSIENT);
    PrepareFrame(plugin, state.range(0) == CAnalyzerDSPPlugin::FFT_SIZE_HIGH);
    CAnalyzerFrame frame;
    for (auto _ : state)
        benchmark::DoNotOptimize(plugin.UpdateFrame(frame));
}
BENCHMARK(BM_AnalyzerUpdateFrame)->Arg(4096)->Arg(16384)->Unit(benchmark::kMicrosecond);

// The frame and the traces of an 800 x 400 plot: what one paint computes.
void BM_AnalyzerFrameAndTraces(benchmark::State& state)
{
    CAnalyzerDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    plugin.SetOption(DSPOPT_TRANSIENT);
    PrepareFrame(plugin, state.range(0) == CAnalyzerDSPPlugin::FFT_SIZE_HIGH);
    CSoundAnalyzerDraw draw;
    draw.SetRange(40.0, 18000.0, plugin.GetFftSize());
    draw.SetRectangle({0, 0, 800, 400});
    CAnalyzerFrame frame;
    for (auto _ : state)
    {
        plugin.UpdateFrame(frame);
        benchmark::DoNotOptimize(draw.ComputeTraces(frame));
    }
}
BENCHMARK(BM_AnalyzerFrameAndTraces)->Arg(4096)->Arg(16384)->Unit(benchmark::kMicrosecond);

}  // namespace
