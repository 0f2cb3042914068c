// The plug-in as the host sees it: its place in the factory, its answers,
// formats it cannot serve, the host's test level, a flush that keeps the
// delay lines, and block-size independence.
#include "room/ChannelsDSPPlugin.h"

#include <gtest/gtest.h>

#include <memory>

#include "RoomTestSupport.h"
#include "frame/PluginFactory.h"

using roomtest::MakeFormat;

namespace
{

class ChannelsDSPPluginTest : public testing::Test
{
protected:
    qvtest::ScopedFileStore store;
    qvtest::CountingHost host;
};

}  // namespace

TEST_F(ChannelsDSPPluginTest, FactoryIndexSixAndItsAnswers)
{
    std::unique_ptr<IQVDSP> plugin(GetDSPPlugin(6, &host, 0));
    ASSERT_NE(plugin, nullptr);
    auto* room = dynamic_cast<CChannelsDSPPlugin*>(plugin.get());
    ASSERT_NE(room, nullptr);
    EXPECT_EQ(room->GetName().ToUTF8(), "Room Correction");
    EXPECT_EQ(plugin->Command(DSPCMD_QUERY_FLAG, nullptr, nullptr), 1);
    EXPECT_EQ(plugin->Command(DSPCMD_RELOAD, nullptr, nullptr), -1);
    EXPECT_EQ(plugin->Command(DSPCMD_DESCRIBE, nullptr, nullptr), -1);
    EXPECT_EQ(plugin->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);
    EXPECT_NE(room->GetPanel(), nullptr);
    EXPECT_EQ(plugin->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(room->GetPanel(), nullptr);
    // Destroyed with its panel open: the panel goes first.
    plugin->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
}

TEST_F(ChannelsDSPPluginTest, FormatsItCannotServePassUnchanged)
{
    CChannelsDSPPlugin plugin(&host, 0);
    plugin.GetChannels().Speaker(0).levelDB = -6.0;
    for (uint16_t channels : {3, 5, 7})
    {
        EXPECT_EQ(plugin.SetFormat(MakeFormat(channels)), -1) << channels;
        const std::vector<double> in = qvtest::Noise(300, channels, 3);
        EXPECT_EQ(qvtest::RunInBlocks(plugin, in, channels, 128), in);
    }
    EXPECT_EQ(plugin.SetFormat(MakeFormat(4)), 0);
    const std::vector<double> in = qvtest::Noise(300, 4, 3);
    const std::vector<double> out = qvtest::RunInBlocks(plugin, in, 4, 128);
    EXPECT_NEAR(out[0], in[0] * std::pow(10.0, -6.0 / 20.0), 1e-15);
    EXPECT_EQ(out[1], in[1]);
}

TEST_F(ChannelsDSPPluginTest, ToneFollowsTheHostsTestLevel)
{
    CChannelsDSPPlugin plugin(&host, 0);
    plugin.GetChannels().Speaker(1).tone = true;
    ASSERT_EQ(plugin.SetFormat(MakeFormat(2)), 0);
    CCalibrationNoise reference(48000.0, false, -23.0);
    reference.seed = plugin.GetChannels().Speaker(1).noise->seed;

    qvtest::CollectingSink sink(2);
    sink.testLevel = 0.25;
    const std::vector<double> in = qvtest::Noise(1000, 2, 4);
    qvtest::RunInBlocks(plugin, in, 2, 100, sink);
    EXPECT_EQ(sink.testLevelCalls, 10);  // once a block
    ASSERT_EQ(sink.samples.size(), in.size());
    for (size_t f = 0; f < 1000; ++f)
    {
        ASSERT_EQ(sink.samples[2 * f], 0.0);  // Left is silenced while Right sounds
        ASSERT_NEAR(sink.samples[2 * f + 1], 0.25 * reference.Next(), 1e-15) << f;
    }
}

TEST_F(ChannelsDSPPluginTest, FlushKeepsTheDelayLinesAndSplitsChangeNothing)
{
    const auto configure = [](CChannelsDSPPlugin& plugin)
    {
        CChannelsDSP& channels = plugin.GetChannels();
        channels.Speaker(0).distanceFeet = 14.0;
        channels.Speaker(1).distanceFeet = 9.0;
        channels.Speaker(0).levelDB = 2.5;
        roomtest::SetCrossover(channels.Speaker(1), 60, CChannelDSP::ROUTING_REMOVE, 24);
        channels.Speaker(1).reversePolarity = true;
        plugin.SetFormat(MakeFormat(2, 44100));
    };
    const std::vector<double> in = qvtest::Noise(5000, 2, 8, 0.7);

    CChannelsDSPPlugin whole(&host, 0);
    configure(whole);
    const std::vector<double> reference = qvtest::RunInBlocks(whole, in, 2, 5000);
    EXPECT_EQ(whole.GetChannels().Speaker(1).GetDelayFrames(), 197);  // 5 ft: 4.4785 ms

    CChannelsDSPPlugin split(&host, 0);
    configure(split);
    EXPECT_EQ(qvtest::RunInBlockPattern(split, in, 2, {1, 31, 127}), reference);

    // A flush between blocks prepares the speakers again but clears nothing.
    CChannelsDSPPlugin flushed(&host, 0);
    configure(flushed);
    std::vector<double> first(in.begin(), in.begin() + 2 * 2500);
    std::vector<double> second(in.begin() + 2 * 2500, in.end());
    std::vector<double> out = qvtest::RunInBlocks(flushed, first, 2, 2500);
    EXPECT_EQ(flushed.Flush(), 0);
    const std::vector<double> rest = qvtest::RunInBlocks(flushed, second, 2, 2500);
    out.insert(out.end(), rest.begin(), rest.end());
    EXPECT_EQ(out, reference);
}
