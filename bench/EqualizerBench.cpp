// The 20-band Equalizer over 48 kHz stereo: all twenty bands active, and the
// flat setting beside it, which should cost no more than the loop over bands.
#include <benchmark/benchmark.h>

#include "PluginBlocks.h"

#include <cstdint>
#include <vector>

#include "effects/EqualizerPlugin.h"
#include "frame/IQVTools.h"

namespace
{
constexpr int32_t kSampleRate = 48000;
constexpr int32_t kChannels = 2;
// Every band moved (Rock), and no band moved.
constexpr const char16_t* kAllBands = u"OCCKKUUYYUUNNKKCCCCCC";

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

    const double framesDone =
        RunPluginBlocks(state, plugin, NoiseBlock(frames, kChannels), frames, kSampleRate);
    SetQVTools(previous);
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
