// Room Correction at 48 kHz: 7.1 with every main speaker crossed over at
// 80 Hz, bass moved to the subwoofer and distances set (the heaviest use),
// and stereo with nothing set, which should cost little more than the pass
// through the delay rings.
#include <benchmark/benchmark.h>

#include "PluginBlocks.h"

#include <cstdint>
#include <vector>

#include "frame/IQVTools.h"
#include "room/ChannelsDSPPlugin.h"

namespace
{
constexpr int32_t kSampleRate = 48000;

void RunRoom(benchmark::State& state, int32_t channels, bool configured)
{
    const int32_t frames = static_cast<int32_t>(state.range(0));
    // Without tools the plug-in reads no store and starts at its defaults.
    IQVTools* previous = GetQVTools();
    SetQVTools(nullptr);
    CChannelsDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    if (configured)
    {
        for (int32_t number = 0; number < CChannelDSP::SPEAKER_COUNT; ++number)
        {
            CChannelDSP& speaker = plugin.GetChannels().Speaker(number);
            speaker.distanceFeet = 7.0 + 1.5 * number;
            speaker.levelDB = -0.5 * number;
            if (number == CChannelDSP::SUBWOOFER)
                continue;
            speaker.highPassFrequency = 80;
            speaker.removedBassRouting = CChannelDSP::ROUTING_MOVE;
        }
    }
    plugin.SetFormat(CAudioFormat(64, kSampleRate, static_cast<uint16_t>(channels)));

    const double framesDone =
        RunPluginBlocks(state, plugin, NoiseBlock(frames, channels), frames, kSampleRate);
    SetQVTools(previous);
    state.counters["ns/sample"] = benchmark::Counter(
        framesDone * channels, benchmark::Counter::kIsRate | benchmark::Counter::kInvert,
        benchmark::Counter::OneK::kIs1000);
}

void BM_RoomCorrection71Crossover48k(benchmark::State& state)
{
    RunRoom(state, 8, true);
}

void BM_RoomCorrectionStereoDefaults48k(benchmark::State& state)
{
    RunRoom(state, 2, false);
}

BENCHMARK(BM_RoomCorrection71Crossover48k)->Arg(512)->Arg(4096);
BENCHMARK(BM_RoomCorrectionStereoDefaults48k)->Arg(512)->Arg(4096);
}  // namespace
