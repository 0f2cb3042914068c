// The Effects plug-in with all three effects on ("Concert Hall" at 4, 8"
// subwoofer, medium surround field) at 48 kHz in 2, 6 and 8 channels: the
// reverb models per pair dominate, one to four of them.
#include <benchmark/benchmark.h>

#include "PluginBlocks.h"

#include <cstdint>
#include <vector>

#include "effects/EffectsPlugin.h"
#include "frame/IQVTools.h"

namespace
{
constexpr int32_t kSampleRate = 48000;
constexpr int32_t kFrames = 4096;

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

        const double framesDone =
            RunPluginBlocks(state, plugin, NoiseBlock(kFrames, channels), kFrames, kSampleRate);
        state.counters["ns/frame"] = benchmark::Counter(
            framesDone, benchmark::Counter::kIsRate | benchmark::Counter::kInvert,
            benchmark::Counter::OneK::kIs1000);
    }
    SetQVTools(previous);
}

BENCHMARK(BM_EffectsAllOn48k)->Arg(2)->Arg(6)->Arg(8);
}  // namespace
