// Makes a file come out of a chain the way it went in: frame n of the output
// belongs to frame n of the input, and nothing that the input produced is
// lost at either end.
//
// A player lives with a chain's latency and with the audio that a stage keeps
// back when the stream stops; a file processor must not. So the file is
// treated as a new stream: every plug-in is flushed, the chain's latency L is
// asked for, Z frames of silence go in first (enough to fill any stage's
// first window), and the first Z + L frames that come out are dropped. After
// the last frame of the file, silence goes in until everything has come out,
// and the output is cut to the length the input's audio takes at the chain's
// speed.
#pragma once

#include "qvdsp/IQVDSP.h"

#include <cstdint>
#include <vector>

class PluginChain;

// What one plug-in adds: DSPCMD_GET_LATENCY in frames, 0 where the plug-in
// does not answer it (-1 is the interface's "not supported").
int64_t StageLatency(IQVDSP& plugin);
// 1, or tempo x rate for a Tempo & Pitch stage that is not bypassed.
double StageSpeed(IQVDSP& plugin);

// The factor by which the chain shortens time: 1 for chains that keep the
// frame count, tempo x rate where a running Tempo & Pitch stage changes it.
double ChainSpeed(PluginChain& chain);

// The summed DSPCMD_GET_LATENCY of the chain's plug-ins, in frames.
int64_t ChainLatency(PluginChain& chain);

// Output frames that `inputFrames` of audio take at `speed`, rounded.
int64_t AlignedLength(int64_t inputFrames, double speed);

// Sits between the chain and the real output. Use: Begin after SetFormat,
// Push for each block of the file, Finish at its end. The chain's output must
// be this object from Begin to Finish.
class LatencyAlignment final : public IQVDSPSink
{
public:
    // A convolver's first window reaches this many frames; the lead-in is at
    // least one such window more than the latency.
    static constexpr int64_t LONGEST_WINDOW_FRAMES = 65536;

    LatencyAlignment(PluginChain& chain, IQVDSPSink& output, int32_t channels, int32_t sampleRate,
                     int32_t blockFrames);

    // Flushes every plug-in, reads the latency and feeds the lead-in silence.
    // `expectedInputFrames` is the file's length if known (else 0 or less);
    // with it, nothing beyond the aligned length is ever handed on.
    void Begin(int64_t expectedInputFrames);
    // One block of the file; the chain may change the samples.
    void Push(double* samples, int32_t frames);
    // Drains the chain with silence and completes the aligned length.
    void Finish();

    int64_t Latency() const { return latency; }
    double Speed() const { return speed; }
    int64_t LeadInFrames() const { return leadIn; }

    void Output(double* samples, int32_t frames) override;
    double GetTestLevel() override { return output.GetTestLevel(); }

private:
    void PushSilence(int64_t frames);
    int64_t FramesToDrop() const;

    PluginChain& chain;
    IQVDSPSink& output;
    int32_t channels;
    int32_t sampleRate;
    int32_t blockFrames;
    std::vector<double> silence;

    int64_t latency = 0;
    double speed = 1.0;
    int64_t leadIn = 0;
    int64_t framesIn = 0;
    int64_t toDrop = 0;
    // Frames still to be handed on; negative while the length is not known.
    int64_t toPass = -1;
    int64_t passed = 0;
};
