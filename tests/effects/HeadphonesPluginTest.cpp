#include "effects/HeadphonesPlugin.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

#include "support/AllocationCounter.h"
#include "support/BlockRunner.h"
#include "support/FileStoreTools.h"
#include "support/Signals.h"
#include "support/Sinks.h"
#include "support/TestHost.h"

namespace
{

// The filter's own form rounds differently from the textbook biquad here.
constexpr double kTolerance = 1e-10;

// The crossfeed written out from its formula, with its own low-pass from the
// bilinear transform of the analog Butterworth section (pre-warped cut-off):
// low = H(x); delayed = low D frames earlier, or the oldest held frame while
// the stream is younger; out = (s * delayed_other + low) / (s + 1) + (p x - low).
// `blocks` gives the block sizes, since the start of a stream depends on them.
std::vector<double> Reference(const std::vector<double>& input, double rate, double strength,
                              double delayMS, double cutoff, const std::vector<int64_t>& blocks)
{
    const double k = std::tan(std::numbers::pi * cutoff / rate);
    const double q = 0.7071067811865476;
    const double norm = 1.0 / (1.0 + k / q + k * k);
    const double b0 = k * k * norm, b1 = 2.0 * b0, b2 = b0;
    const double a1 = 2.0 * (k * k - 1.0) * norm, a2 = (1.0 - k / q + k * k) * norm;
    const int64_t frames = static_cast<int64_t>(input.size() / 2);
    std::vector<double> low(input.size());
    for (int c = 0; c < 2; ++c)
    {
        double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
        for (int64_t f = 0; f < frames; ++f)
        {
            double x = input[2 * f + c];
            double y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
            x2 = x1, x1 = x, y2 = y1, y1 = y;
            low[2 * f + c] = y;
        }
    }
    // 16-byte frames: bytes of the delay rounded, then whole frames.
    const auto delayFrames =
        static_cast<int64_t>(std::trunc(rate * 16.0 * delayMS / 1000.0 + 0.5)) * 8 / 128;
    const double p = std::pow(10.0, -0.15);
    std::vector<double> out(input.size());
    int64_t start = 0;
    for (size_t b = 0; start < frames; b = (b + 1) % blocks.size())
    {
        const int64_t count = std::min(blocks[b], frames - start);
        const int64_t held = start + count;  // the two-second ring is never full here
        int64_t first = held - delayFrames - count;
        if (first < 1)
            first = 0;
        for (int64_t f = 0; f < count; ++f)
            for (int c = 0; c < 2; ++c)
            {
                const size_t i = static_cast<size_t>(2 * (start + f) + c);
                const double other = low[static_cast<size_t>(2 * (first + f) + (1 - c))];
                out[i] = (strength * other + low[i]) / (strength + 1.0) + (p * input[i] - low[i]);
            }
        start += count;
    }
    return out;
}

std::unique_ptr<CHeadphonesDSPPlugin> MakePlugin(double rate, int row)
{
    auto plugin = std::make_unique<CHeadphonesDSPPlugin>(nullptr, QVZONE_GLOBAL);
    CAudioFormat format;
    format.Set(64, static_cast<uint32_t>(rate), 2);
    EXPECT_EQ(plugin->SetFormat(format), 0);
    const CHeadphonesDSPPluginSettings& preset = *CHeadphonesDSPPlugin::GetPresets()[row];
    plugin->SetParameters(preset.strength, preset.delayMS, preset.cutoffFrequency, true, false);
    return plugin;
}

void ExpectNear(const std::vector<double>& actual, const std::vector<double>& expected)
{
    ASSERT_EQ(actual.size(), expected.size());
    double worst = 0.0;
    for (size_t i = 0; i < actual.size(); ++i)
        worst = std::max(worst, std::fabs(actual[i] - expected[i]));
    EXPECT_LT(worst, kTolerance);
}

}  // namespace

TEST(HeadphonesPlugin, PresetTableAndStoredKeys)
{
    const auto& presets = CHeadphonesDSPPlugin::GetPresets();
    ASSERT_EQ(presets.GetCount(), 6);
    EXPECT_EQ(presets[0]->name.ToUTF8(), "(none)");
    EXPECT_EQ(presets[3]->name.ToUTF8(), "Standard (increased spatialization)");
    EXPECT_EQ(presets[5]->strength, 0.75);
    EXPECT_EQ(presets[5]->delayMS, 0.52);
    EXPECT_EQ(presets[5]->cutoffFrequency, 850.0);
    EXPECT_EQ(CHeadphonesDSPPlugin::FindPreset(0.3, 0.26, 700.0), 1);
    EXPECT_EQ(CHeadphonesDSPPlugin::FindPreset(0.3, 0.26, 701.0), -1);

    qvtest::ScopedFileStore store;
    {
        // Defaults are row 0: off. An old flat key gives the starting values.
        CHeadphonesDSPPlugin fresh(nullptr, 0);
        EXPECT_EQ(fresh.GetStrength(), 0.0);
        EXPECT_EQ(fresh.GetCutoffFrequency(), 700.0);
        auto legacy = store.Key(u"Plugins\\DSP\\QM DSP");
        legacy->WriteString(u"Headphones - Crossfeed (Stregth)", u"0,3");
        legacy->WriteString(u"Headphones - Crossfeed (Delay MS)", u"0.26");
        CHeadphonesDSPPlugin older(nullptr, 0);
        EXPECT_EQ(older.GetStrength(), 0.3);
        EXPECT_EQ(older.GetDelayMS(), 0.26);
    }
    // The panel stores a choice only for a plug-in with a zone, under the
    // names as users' stores spell them.
    qvtest::CountingHost host;
    CHeadphonesDSPPlugin zoned(&host, 2);
    zoned.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    ASSERT_NE(zoned.GetPanel(), nullptr);
    EXPECT_EQ(zoned.GetPanel()->GetSelection(), 0);  // the defaults are "(none)"
    zoned.GetPanel()->Select(4);
    EXPECT_EQ(host.changedCalls, 1);
    EXPECT_EQ(store.Read(u"Zones\\2\\Headphones", u"Crossfeed (Stregth)"), "0.75");
    EXPECT_EQ(store.Read(u"Zones\\2\\Headphones", u"Crossfeed (Delay MS)"), "0.26");
    EXPECT_EQ(store.Read(u"Zones\\2\\Headphones", u"Crossfeed (Cutoff Frequency)"), "850");
    zoned.GetPanel()->Select(4);  // the same numbers again: no change
    EXPECT_EQ(host.changedCalls, 1);

    CHeadphonesDSPPlugin global(&host, QVZONE_GLOBAL);
    global.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    global.GetPanel()->Select(2);
    EXPECT_EQ(global.GetStrength(), 0.5);
    EXPECT_EQ(store.Read(u"Zones\\Global\\Headphones", u"Crossfeed (Stregth)"), "<none>");
}

TEST(HeadphonesPlugin, PanelShowsStandardWhenNoPresetMatches)
{
    qvtest::ScopedFileStore store;
    CHeadphonesDSPPlugin plugin(nullptr, QVZONE_GLOBAL);
    plugin.SetParameters(0.4, 0.3, 650.0, false, false);
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    EXPECT_EQ(plugin.GetPanel()->GetSelection(), 2);
    EXPECT_EQ(plugin.GetStrength(), 0.4);  // showing a row does not choose it
    EXPECT_EQ(plugin.GetPanel()->GetItems().size(), 6u);
    EXPECT_EQ(plugin.GetPanel()->GetHeading().ToUTF8(), "Crossfeed");
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.GetPanel(), nullptr);
}

TEST(HeadphonesPlugin, EveryPresetFollowsItsFormula)
{
    qvtest::ScopedFileStore store;
    for (double rate : {44100.0, 48000.0})
    {
        const std::vector<double> input = qvtest::Noise(6000, 2, 7, 0.8);
        for (int row = 1; row < 6; ++row)
        {
            SCOPED_TRACE(testing::Message() << "row " << row << " at " << rate);
            const CHeadphonesDSPPluginSettings& preset = *CHeadphonesDSPPlugin::GetPresets()[row];
            for (const std::vector<int32_t>& pattern :
                 {std::vector<int32_t>{6000}, {1}, {31, 127, 5}, {512}})
            {
                auto plugin = MakePlugin(rate, row);
                std::vector<double> output = qvtest::RunInBlockPattern(*plugin, input, 2, pattern);
                std::vector<int64_t> blocks(pattern.begin(), pattern.end());
                ExpectNear(output, Reference(input, rate, preset.strength, preset.delayMS,
                                             preset.cutoffFrequency, blocks));
            }
        }
    }
}

TEST(HeadphonesPlugin, DelayInFramesAndBlockSizeIndependenceOnceTheHistoryHoldsIt)
{
    qvtest::ScopedFileStore store;
    auto plugin = MakePlugin(44100.0, 2);
    EXPECT_EQ(plugin->GetDelayFrames(), 11);  // 183.956 bytes, truncated 183, x 8 / 128
    EXPECT_EQ(MakePlugin(44100.0, 3)->GetDelayFrames(), 22);
    EXPECT_EQ(MakePlugin(48000.0, 5)->GetDelayFrames(), 24);

    // The first blocks depend on their size; after a first block that holds
    // the delay, any split gives the same sound.
    const std::vector<double> input = qvtest::Noise(4000, 2, 11, 0.5);
    auto whole = MakePlugin(44100.0, 5);
    auto split = MakePlugin(44100.0, 5);
    std::vector<double> a = qvtest::RunInBlockPattern(*whole, input, 2, {100, 3900});
    std::vector<double> b = qvtest::RunInBlockPattern(*split, input, 2, {100, 1, 7, 333, 64});
    ExpectNear(a, b);
    auto small = MakePlugin(44100.0, 5);
    std::vector<double> c = qvtest::RunInBlockPattern(*small, input, 2, {5, 3995});
    EXPECT_GT(std::fabs(c[2 * 30] - a[2 * 30]) + std::fabs(c[2 * 31 + 1] - a[2 * 31 + 1]), 1e-6);
}

TEST(HeadphonesPlugin, OffPassesTheSameBufferAtFullLevel)
{
    qvtest::ScopedFileStore store;
    auto plugin = MakePlugin(44100.0, 0);
    std::vector<double> block = qvtest::Noise(300, 2, 3, 0.9);
    const std::vector<double> original = block;
    qvtest::CollectingSink sink(2);
    plugin->Process(block.data(), 300, &sink);
    ASSERT_EQ(sink.pointers.size(), 1u);
    EXPECT_EQ(sink.pointers[0], block.data());
    EXPECT_EQ(sink.samples, original);
    qvtest::RecordingStatusList status;
    plugin->Command(DSPCMD_DESCRIBE, static_cast<IStatusList*>(&status), nullptr);
    EXPECT_TRUE(status.lines.empty());

    // On, the output is a buffer of its own, and the input holds the input
    // lowered by 3 dB, as the mix leaves it.
    auto on = MakePlugin(44100.0, 1);
    block = original;
    sink.Clear();
    on->Process(block.data(), 300, &sink);
    EXPECT_NE(sink.pointers[0], block.data());
    EXPECT_EQ(block[17], CHeadphonesDSPPlugin::INPUT_SCALE * original[17]);
    on->Command(DSPCMD_DESCRIBE, static_cast<IStatusList*>(&status), nullptr);
    EXPECT_EQ(status.lines, std::vector<std::string>{"Headphones"});
}

TEST(HeadphonesPlugin, FormatsFlushAndEmptyBlocks)
{
    qvtest::ScopedFileStore store;
    auto plugin = MakePlugin(44100.0, 2);
    for (uint16_t channels : {1, 3, 6})
    {
        CAudioFormat format;
        format.Set(64, 44100, channels);
        EXPECT_EQ(plugin->SetFormat(format), -1);
        std::vector<double> block = qvtest::Noise(64, channels, 5, 0.5);
        const std::vector<double> original = block;
        qvtest::CollectingSink sink(channels);
        plugin->Process(block.data(), 64, &sink);
        EXPECT_EQ(sink.samples, original);
        qvtest::RecordingStatusList status;
        plugin->Command(DSPCMD_DESCRIBE, static_cast<IStatusList*>(&status), nullptr);
        EXPECT_TRUE(status.lines.empty());
    }
    // A new format, and a flush, start from silence: the output equals that
    // of a fresh plug-in.
    const std::vector<double> input = qvtest::Noise(2000, 2, 9, 0.5);
    auto fresh = MakePlugin(48000.0, 2);
    std::vector<double> expected = qvtest::RunInBlocks(*fresh, input, 2, 256);
    CAudioFormat format;
    format.Set(64, 48000, 2);
    EXPECT_EQ(plugin->SetFormat(format), 0);
    ExpectNear(qvtest::RunInBlocks(*plugin, input, 2, 256), expected);
    plugin->Flush();
    ExpectNear(qvtest::RunInBlocks(*plugin, input, 2, 256), expected);

    qvtest::CollectingSink sink(2);
    double unused = 0.0;
    plugin->Process(&unused, 0, &sink);
    EXPECT_EQ(sink.outputCalls, 1);
    EXPECT_EQ(sink.blockFrames, std::vector<int32_t>{0});
}

TEST(HeadphonesPlugin, SteadyBlocksAllocateNothingAndLongBlocksStayWhole)
{
    qvtest::ScopedFileStore store;
    auto plugin = MakePlugin(44100.0, 4);
    std::vector<double> block = qvtest::Noise(4096, 2, 2, 0.5);
    qvtest::FrameCountingSink sink;
    plugin->Process(block.data(), 4096, &sink);
    {
        qvtest::ScopedAllocationCount count;
        plugin->Process(block.data(), 4096, &sink);
        plugin->Process(block.data(), 17, &sink);
        EXPECT_EQ(count.Allocations(), 0);
    }
    EXPECT_EQ(sink.frames, 4096 + 4096 + 17);
    // A block of five seconds, more than the history holds, comes out whole,
    // and from its second part on it is what shorter blocks give.
    const std::vector<double> input = qvtest::Noise(5 * 44100, 2, 4, 0.5);
    auto longBlock = MakePlugin(44100.0, 4);
    auto shortBlocks = MakePlugin(44100.0, 4);
    std::vector<double> a = qvtest::RunInBlocks(*longBlock, input, 2, 5 * 44100);
    std::vector<double> b = qvtest::RunInBlocks(*shortBlocks, input, 2, 1000);
    ASSERT_EQ(a.size(), input.size());
    std::vector<double> tailA(a.begin() + 2 * 100000, a.end());
    std::vector<double> tailB(b.begin() + 2 * 100000, b.end());
    ExpectNear(tailA, tailB);
}
