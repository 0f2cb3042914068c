// Tempo & Pitch over 48 kHz stereo: tempo 1.25 (time stretching alone) and
// pitch 1.5 (stretching and resampling), in the block sizes hosts push.
#include <benchmark/benchmark.h>

#include "PluginBlocks.h"
#include "effects/TempoPitchPlugin.h"

namespace
{

constexpr int32_t kSampleRate = 48000;
constexpr int32_t kChannels = 2;

void RunTempo(benchmark::State& state, double tempo, double pitch)
{
    const auto frames = static_cast<int32_t>(state.range(0));
    CTempoPitchDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    plugin.SetOption(DSPOPT_TRANSIENT);
    plugin.SetFormat(CAudioFormat(64, kSampleRate, kChannels));
    plugin.SetParameters(tempo, pitch, 1.0, true, false);
    RunPluginBlocks(state, plugin, NoiseBlock(frames, kChannels), frames, kSampleRate);
}

void BM_TempoStretch125Stereo48k(benchmark::State& state)
{
    RunTempo(state, 1.25, 1.0);
}

void BM_PitchShift150Stereo48k(benchmark::State& state)
{
    RunTempo(state, 1.0, 1.5);
}

BENCHMARK(BM_TempoStretch125Stereo48k)->Arg(512)->Arg(4096)->Arg(65536);
BENCHMARK(BM_PitchShift150Stereo48k)->Arg(512)->Arg(4096)->Arg(65536);

}  // namespace
