// Headphones crossfeed over 48 kHz stereo on "Standard", in the block sizes
// hosts commonly push.
#include <benchmark/benchmark.h>

#include "PluginBlocks.h"
#include "effects/HeadphonesPlugin.h"

namespace
{

constexpr int32_t kSampleRate = 48000;
constexpr int32_t kChannels = 2;
constexpr int32_t kStandardPreset = 2;

void BM_HeadphonesStandardStereo48k(benchmark::State& state)
{
    const auto frames = static_cast<int32_t>(state.range(0));
    CHeadphonesDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    plugin.SetOption(DSPOPT_TRANSIENT);
    plugin.SetFormat(CAudioFormat(64, kSampleRate, kChannels));
    const CHeadphonesDSPPluginSettings& preset =
        *CHeadphonesDSPPlugin::GetPresets()[kStandardPreset];
    plugin.SetParameters(preset.strength, preset.delayMS, preset.cutoffFrequency, true, false);
    RunPluginBlocks(state, plugin, NoiseBlock(frames, kChannels), frames, kSampleRate);
}

BENCHMARK(BM_HeadphonesStandardStereo48k)->Arg(64)->Arg(512)->Arg(4096)->Arg(65536);

}  // namespace
