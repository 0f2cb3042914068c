// The Parametric Equalizer alone: ten peaking filters on stereo, every kind of
// filter once, and an empty list, on 48 kHz blocks of 4096 frames.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <memory>
#include <random>
#include <vector>

#include "frame/SettingsKey.h"
#include "parametric/EqualizingFilters.h"
#include "parametric/ParametricEqualizerPlugin.h"
#include "parametric/RoutingFilters.h"

namespace
{
constexpr int32_t BLOCK_FRAMES = 4096;

class NullSink : public IQVDSPSink
{
public:
    void Output(double*, int32_t) override {}
};

QVString TenPeaks()
{
    ParametricFilterArray filters;
    const double frequencies[10] = {31, 63, 125, 250, 500, 1000, 2000, 4000, 8000, 16000};
    for (int32_t i = 0; i < 10; ++i)
    {
        auto peak = std::make_unique<CParametricIIRFilter>(PARAMETRIC_PEAK);
        peak->frequency = frequencies[i];
        peak->gain = (i % 2 == 0) ? -3.0 : 2.5;
        peak->q = 1.4;
        filters.push_back(std::move(peak));
    }
    return SaveParametricFilterList(filters);
}

QVString EveryKind()
{
    ParametricFilterArray filters;
    for (int32_t type = PARAMETRIC_FIRST_TYPE; type <= PARAMETRIC_LAST_TYPE; ++type)
    {
        if (type == PARAMETRIC_CUSTOM_BIQUAD)
            continue;  // needs a file
        filters.emplace_back(CreateParametricFilter(type));
    }
    static_cast<CParametricIIRFilter*>(filters[2].get())->gain = 3;
    static_cast<CParametricVolumeFilter*>(filters[3].get())->gain = -1;
    static_cast<CParametricDelayFilter*>(filters[6].get())->delay = 2;
    return SaveParametricFilterList(filters);
}

void RunList(benchmark::State& state, const QVString& listText)
{
    CParametricEqualizerDSPPlugin plugin(nullptr, QVZONE_GLOBAL, 0);
    plugin.GetFilterList().LoadText(listText);
    plugin.SetFormat(CAudioFormat(64, 48000, 2));
    std::vector<double> block(static_cast<size_t>(BLOCK_FRAMES) * 2);
    std::mt19937_64 random(1);
    std::uniform_real_distribution<double> uniform(-0.5, 0.5);
    for (double& sample : block)
        sample = uniform(random);
    // Each pass starts from the same noise (a copy costs about 1 % of a pass):
    // filtering one block over and over would let boosted bands grow without end.
    const std::vector<double> source = block;
    NullSink sink;
    for (auto _ : state)
    {
        std::copy(source.begin(), source.end(), block.begin());
        plugin.Process(block.data(), BLOCK_FRAMES, &sink);
        benchmark::DoNotOptimize(block.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * BLOCK_FRAMES);
    state.counters["x realtime"] =
        benchmark::Counter(static_cast<double>(state.iterations()) * BLOCK_FRAMES / 48000.0,
                           benchmark::Counter::kIsRate);
}

void BM_ParametricTenPeaksStereo(benchmark::State& state)
{
    RunList(state, TenPeaks());
}

void BM_ParametricEveryKindStereo(benchmark::State& state)
{
    RunList(state, EveryKind());
}

void BM_ParametricEmptyList(benchmark::State& state)
{
    RunList(state, QVString());
}
}  // namespace

BENCHMARK(BM_ParametricTenPeaksStereo);
BENCHMARK(BM_ParametricEveryKindStereo);
BENCHMARK(BM_ParametricEmptyList);
