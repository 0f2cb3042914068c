#include "cli/host/LatencyAlignment.h"

#include "cli/host/PluginChain.h"
#include "support/Sinks.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <sstream>

namespace
{

// A stage that works like a windowed convolver with a unit impulse: it
// delays by `delay` frames and hands frames on only in whole windows, so that
// the last ones come out only when more input follows. Its latency is the
// delay: output frame n + delay is input frame n. A flush drops what it holds.
class WindowedDelay final : public IQVDSP
{
public:
    WindowedDelay(int32_t window, int32_t delay) : window(window), delay(delay) {}

    int32_t Process(double* samples, int32_t frames, IQVDSPSink* sink) override
    {
        pending.insert(pending.end(), samples, samples + static_cast<size_t>(frames) * channels);
        size_t windowSamples = static_cast<size_t>(window) * channels;
        size_t ready = pending.size() >= DelaySamples() ? pending.size() - DelaySamples() : 0;
        ready -= ready % windowSamples;
        if (ready == 0)
            return 0;
        out.assign(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(ready));
        pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(ready));
        sink->Output(out.data(), static_cast<int32_t>(ready / channels));
        return 0;
    }
    int32_t Flush() override
    {
        pending.assign(DelaySamples(), 0.0);
        return 0;
    }
    int32_t SetFormat(const CAudioFormat& format) override
    {
        channels = format.channels;
        pending.assign(DelaySamples(), 0.0);
        return 0;
    }
    int32_t GetInfo(int32_t, char16_t*) override { return -1; }
    int32_t SetOption(int32_t) override { return -1; }
    int64_t Command(int32_t kind, void*, uint64_t*) override
    {
        return kind == DSPCMD_GET_LATENCY ? delay : -1;
    }

private:
    size_t DelaySamples() const { return static_cast<size_t>(delay) * channels; }

    int32_t window;
    int32_t delay;
    int32_t channels = 2;
    std::deque<double> pending;
    std::vector<double> out;
};

// A stage that keeps everything it gets.
class Swallower final : public IQVDSP
{
public:
    int32_t Process(double*, int32_t, IQVDSPSink*) override { return 0; }
    int32_t Flush() override { return 0; }
    int32_t SetFormat(const CAudioFormat&) override { return 0; }
    int32_t GetInfo(int32_t, char16_t*) override { return -1; }
    int32_t SetOption(int32_t) override { return -1; }
    int64_t Command(int32_t, void*, uint64_t*) override { return -1; }
};

std::vector<double> Ramp(int64_t frames, int32_t channels)
{
    std::vector<double> signal(static_cast<size_t>(frames) * channels);
    for (size_t i = 0; i < signal.size(); ++i)
        signal[i] = 1.0 + static_cast<double>(i);
    return signal;
}

struct AlignedRun
{
    std::vector<double> output;
    std::vector<int32_t> blocks;
};

// Runs `signal` through `chain` in blocks as qvdsp process does.
AlignedRun RunAligned(PluginChain& chain, const std::vector<double>& signal, int32_t channels,
                      int32_t blockFrames, int64_t announcedFrames)
{
    CAudioFormat format;
    format.Set(64, 44100, static_cast<uint16_t>(channels));
    chain.SetFormat(format);
    qvtest::CollectingSink sink(channels);
    LatencyAlignment alignment(chain, sink, channels, 44100, blockFrames);
    alignment.Begin(announcedFrames);
    std::vector<double> block;
    const int64_t frames = static_cast<int64_t>(signal.size()) / channels;
    for (int64_t start = 0; start < frames; start += blockFrames)
    {
        int64_t count = std::min<int64_t>(blockFrames, frames - start);
        block.assign(signal.begin() + start * channels,
                     signal.begin() + (start + count) * channels);
        alignment.Push(block.data(), static_cast<int32_t>(count));
    }
    alignment.Finish();
    chain.SetOutput(nullptr);
    return {sink.samples, sink.blockFrames};
}

}  // namespace

TEST(LatencyAlignmentTest, LengthsAtASpeedAreRounded)
{
    EXPECT_EQ(AlignedLength(1000, 1.0), 1000);
    EXPECT_EQ(AlignedLength(1000, 1.25), 800);
    EXPECT_EQ(AlignedLength(1001, 2.0), 501);  // 500.5 rounds away from zero
    EXPECT_EQ(AlignedLength(999, 2.0), 500);   // 499.5
    EXPECT_EQ(AlignedLength(1000, 0.8), 1250);
    EXPECT_EQ(AlignedLength(0, 0.5), 0);
}

TEST(LatencyAlignmentTest, DelayedAndWindowedChainsGiveTheInputBackFrameForFrame)
{
    struct Case
    {
        int32_t window;
        int32_t delay;
        int32_t channels;
        int32_t blockFrames;
        int64_t frames;
        bool announced;
    };
    const Case cases[] = {
        {1, 0, 2, 333, 5000, true},          // no latency at all
        {1, 17, 2, 333, 5000, true},         // a plain delay
        {1, 17, 1, 1, 300, false},           // one frame at a time, length unknown
        {512, 0, 2, 100, 20000, true},       // a window that holds back a block
        {4096, 300, 3, 4096, 10007, false},  // window and delay, odd length
        {65536, 0, 2, 4096, 70000, true},    // the longest window there is
        {256, 3, 2, 1000, 10, true},         // a file shorter than the window
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::Message() << "window " << c.window << ", delay " << c.delay
                                        << ", block " << c.blockFrames);
        PluginChain chain;
        chain.Append(PluginPointer(new WindowedDelay(c.window, c.delay)), "Windowed");
        std::vector<double> signal = Ramp(c.frames, c.channels);
        AlignedRun run =
            RunAligned(chain, signal, c.channels, c.blockFrames, c.announced ? c.frames : 0);
        EXPECT_EQ(run.output, signal);
    }
}

TEST(LatencyAlignmentTest, LatenciesOfSeveralStagesAddUp)
{
    PluginChain chain;
    chain.Append(PluginPointer(new WindowedDelay(128, 5)), "First");
    chain.Append(PluginPointer(new WindowedDelay(1, 40)), "Second");
    chain.Append(PluginPointer(new WindowedDelay(1000, 0)), "Third");
    CAudioFormat format;
    format.Set(64, 44100, 2);
    chain.SetFormat(format);
    EXPECT_EQ(ChainLatency(chain), 5 + 40 + 0);

    std::vector<double> signal = Ramp(9000, 2);
    EXPECT_EQ(RunAligned(chain, signal, 2, 777, 9000).output, signal);
}

TEST(LatencyAlignmentTest, StateLeftFromAnEarlierRunIsFlushedFirst)
{
    PluginChain chain;
    chain.Append(PluginPointer(new WindowedDelay(1, 25)), "Delay");
    CAudioFormat format;
    format.Set(64, 44100, 1);
    chain.SetFormat(format);
    qvtest::CollectingSink ignored(1);
    chain.SetOutput(&ignored);
    std::vector<double> earlier(100, 9.0);
    chain.Push(earlier.data(), 100);

    std::vector<double> signal = Ramp(1000, 1);
    qvtest::CollectingSink sink(1);
    LatencyAlignment alignment(chain, sink, 1, 44100, 64);
    alignment.Begin(1000);
    EXPECT_EQ(alignment.LeadInFrames(), 65536 + 25);  // a second is less than the window
    alignment.Push(signal.data(), 1000);
    alignment.Finish();
    EXPECT_EQ(sink.samples, signal);
}

TEST(LatencyAlignmentTest, AChainThatKeepsEverythingStillGivesTheLength)
{
    PluginChain chain;
    chain.Append(PluginPointer(new Swallower), "Swallower");
    std::vector<double> signal = Ramp(5000, 2);
    AlignedRun run = RunAligned(chain, signal, 2, 4096, 5000);
    EXPECT_EQ(run.output, std::vector<double>(signal.size(), 0.0));
}

TEST(LatencyAlignmentTest, DescriptionShowsLatenciesInFramesAndMilliseconds)
{
    PluginChain chain;
    chain.Append(PluginPointer(new WindowedDelay(1, 441)), "Delay");
    chain.Append(PluginPointer(new Swallower), "Quiet");
    CAudioFormat format;
    format.Set(64, 44100, 2);
    chain.SetFormat(format);
    std::ostringstream text;
    PrintDescription(chain, text);
    EXPECT_EQ(text.str(), "Delay\n  latency 441 frames, 10.00 ms\nQuiet\n");
}
