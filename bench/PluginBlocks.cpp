#include "PluginBlocks.h"

#include <random>

std::vector<double> NoiseBlock(int32_t frames, int32_t channels)
{
    std::mt19937_64 generator(1);
    std::vector<double> block(static_cast<size_t>(frames) * channels);
    for (double& sample : block)
        sample = static_cast<double>(generator() >> 11) * 0x1.0p-53 - 0.5;
    return block;
}

double RunPluginBlocks(benchmark::State& state, IQVDSP& plugin, const std::vector<double>& source,
                       int32_t frames, int32_t sampleRate)
{
    std::vector<double> block = source;
    DiscardingSink sink;
    for (auto _ : state)
    {
        block = source;
        plugin.Process(block.data(), frames, &sink);
        benchmark::ClobberMemory();
    }
    const double framesDone = static_cast<double>(state.iterations()) * frames;
    state.counters["x realtime"] =
        benchmark::Counter(framesDone / sampleRate, benchmark::Counter::kIsRate);
    return framesDone;
}
