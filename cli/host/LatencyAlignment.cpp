#include "cli/host/LatencyAlignment.h"

#include "cli/host/PluginChain.h"
#include "effects/TempoPitchPlugin.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

int64_t StageLatency(IQVDSP& plugin)
{
    int64_t latency = plugin.Command(DSPCMD_GET_LATENCY, nullptr, nullptr);
    return latency == -1 ? 0 : latency;
}

double StageSpeed(IQVDSP& plugin)
{
    auto* tempoPitch = dynamic_cast<CTempoPitchDSPPlugin*>(&plugin);
    const double speed = tempoPitch ? tempoPitch->GetSpeedFactor() : 1.0;
    return std::isfinite(speed) && speed > 0.0 ? speed : 1.0;
}

double ChainSpeed(PluginChain& chain)
{
    double speed = 1.0;
    for (size_t stage = 0; stage < chain.Size(); ++stage)
        speed *= StageSpeed(chain.Plugin(stage));
    return speed;
}

int64_t ChainLatency(PluginChain& chain)
{
    int64_t latency = 0;
    for (size_t stage = 0; stage < chain.Size(); ++stage)
        latency += StageLatency(chain.Plugin(stage));
    return latency;
}

int64_t AlignedLength(int64_t inputFrames, double speed)
{
    return static_cast<int64_t>(std::llround(static_cast<double>(inputFrames) / speed));
}

LatencyAlignment::LatencyAlignment(PluginChain& chain, IQVDSPSink& output, int32_t channels,
                                   int32_t sampleRate, int32_t blockFrames)
    : chain(chain), output(output), channels(channels), sampleRate(sampleRate),
      blockFrames(blockFrames), silence(static_cast<size_t>(blockFrames) * channels)
{
}

void LatencyAlignment::Begin(int64_t expectedInputFrames)
{
    chain.SetOutput(this);
    for (size_t stage = 0; stage < chain.Size(); ++stage)
        chain.Plugin(stage).Flush();
    latency = ChainLatency(chain);
    speed = ChainSpeed(chain);
    // A second of silence covers every window below the longest one; the
    // longest one needs a whole window beyond what the latency takes up.
    leadIn = std::max<int64_t>(sampleRate, LONGEST_WINDOW_FRAMES + std::llabs(latency));
    toDrop = FramesToDrop();
    toPass = expectedInputFrames > 0 ? AlignedLength(expectedInputFrames, speed) : -1;
    PushSilence(leadIn);
}

int64_t LatencyAlignment::FramesToDrop() const
{
    // The lead-in comes out at the chain's speed, then the latency.
    return AlignedLength(leadIn, speed) + latency;
}

void LatencyAlignment::Push(double* samples, int32_t frames)
{
    framesIn += frames;
    chain.Push(samples, frames);
}

void LatencyAlignment::Finish()
{
    toPass = std::max<int64_t>(0, AlignedLength(framesIn, speed) - passed);
    // What a stage still holds comes out within a lead-in's worth of
    // silence; a chain that keeps back more than that is cut off there.
    int64_t drainLimit = leadIn + std::llabs(latency);
    for (int64_t drained = 0; toPass > 0 && drained < drainLimit; drained += blockFrames)
        PushSilence(blockFrames);
    if (toPass > 0)
    {
        // Only a chain that swallows audio gets here: the length is kept.
        std::fill(silence.begin(), silence.end(), 0.0);
        while (toPass > 0)
        {
            auto frames = static_cast<int32_t>(std::min<int64_t>(toPass, blockFrames));
            output.Output(silence.data(), frames);
            toPass -= frames;
            passed += frames;
        }
    }
}

void LatencyAlignment::PushSilence(int64_t frames)
{
    while (frames > 0)
    {
        auto count = static_cast<int32_t>(std::min<int64_t>(frames, blockFrames));
        // Plug-ins work in place, so the silence is laid anew for each block.
        std::fill(silence.begin(), silence.end(), 0.0);
        chain.Push(silence.data(), count);
        frames -= count;
    }
}

void LatencyAlignment::Output(double* samples, int32_t frames)
{
    if (frames <= 0)
        return;
    int32_t skipped = static_cast<int32_t>(std::min<int64_t>(toDrop, frames));
    toDrop -= skipped;
    int32_t kept = frames - skipped;
    if (toPass >= 0)
        kept = static_cast<int32_t>(std::min<int64_t>(kept, toPass));
    if (kept <= 0)
        return;
    output.Output(samples + static_cast<size_t>(skipped) * channels, kept);
    passed += kept;
    if (toPass >= 0)
        toPass -= kept;
}
