#include <gtest/gtest.h>

#include "ConvolutionTestSupport.h"
#include "convolution/ConvolutionDlg.h"
#include "convolution/ConvolutionPlugin.h"
#include "support/TestSupport.h"

using namespace convtest;

namespace
{

// A plug-in in a store of its own whose filter is already chosen.
struct PluginWithFilter
{
    PluginWithFilter(const std::string& filter, bool normalize = false) : plugin(&host, 0)
    {
        CAudioConvolution& engine = plugin.GetConvolution();
        engine.SetSmallFilters(true);
        engine.SetVolumeMode(normalize ? 0 : 1);
        engine.SetFilter(QVString::FromUTF8(filter));
    }
    qvtest::ScopedFileStore store;
    qvtest::CountingHost host;
    CConvolutionDSPPlugin plugin;
};

std::string Describe(CConvolutionDSPPlugin& plugin)
{
    qvtest::RecordingStatusList status;
    EXPECT_EQ(plugin.Command(DSPCMD_DESCRIBE, static_cast<IStatusList*>(&status), nullptr), 0);
    return status.lines.empty() ? std::string() : status.lines[0];
}

}  // namespace

// Blocks go into the engine and come out in its blocks, from its own buffer;
// a call that completes none hands nothing on.
TEST(ConvolutionPlugin, HandsOnTheEngineBlocksOrNothing)
{
    TempFolder folder;
    WriteWav(folder.File("h.wav"), DecayingImpulse(300, 1), 1, 48000);
    PluginWithFilter fixture(folder.File("h.wav"));
    CConvolutionDSPPlugin& plugin = fixture.plugin;
    ASSERT_EQ(plugin.SetFormat(MakeFormat(2)), 0);
    ASSERT_EQ(plugin.Flush(), 0);
    std::vector<double> input = Noise(2 * 1500, 3);
    qvtest::CollectingSink sink(2);
    for (int done = 0; done < 1500; done += 500)
        plugin.Process(input.data() + 2 * done, 500, &sink);
    // 1024 frames fill the first window; 1500 complete one block of 512.
    EXPECT_EQ(sink.blockFrames, (std::vector<int32_t>{512}));
    EXPECT_EQ(sink.pointers[0], plugin.GetConvolution().GetOutput());
    // The window holds 1500 - 1024 frames after the half it kept.
    EXPECT_EQ(plugin.Command(DSPCMD_GET_LATENCY, nullptr, nullptr),
              plugin.GetConvolution().latencyPeak - 512 + 512 + 476);
}

// A plug-in without a filter passes every block on as it came.
TEST(ConvolutionPlugin, NotValidPassesBlocksThrough)
{
    TempFolder folder;
    PluginWithFilter fixture(folder.File("missing.wav"));
    CConvolutionDSPPlugin& plugin = fixture.plugin;
    EXPECT_EQ(plugin.SetFormat(MakeFormat(2)), 0);
    EXPECT_FALSE(plugin.GetConvolution().IsValid());
    std::vector<double> block = Noise(2 * 100, 1);
    const std::vector<double> copy = block;
    qvtest::CollectingSink sink(2);
    plugin.Process(block.data(), 100, &sink);
    EXPECT_EQ(sink.pointers, (std::vector<const double*>{block.data()}));
    EXPECT_EQ(sink.samples, copy);
    EXPECT_EQ(plugin.Command(DSPCMD_GET_LATENCY, nullptr, nullptr), 0);
}

// Only a change of state resets the engine; the command answers -1 either way.
TEST(ConvolutionPlugin, SetStateResetsOnChangeOnly)
{
    TempFolder folder;
    WriteWav(folder.File("h.wav"), DecayingImpulse(300, 1), 1, 48000);
    PluginWithFilter fixture(folder.File("h.wav"));
    CConvolutionDSPPlugin& plugin = fixture.plugin;
    plugin.SetFormat(MakeFormat(1));
    plugin.Flush();
    std::vector<double> input = Noise(700, 2);
    qvtest::CollectingSink sink(1);
    plugin.Process(input.data(), 700, &sink);
    bool state = false;
    EXPECT_EQ(plugin.Command(DSPCMD_SET_STATE, &state, nullptr), -1);
    EXPECT_EQ(plugin.GetConvolution().fillPosition, 700);  // no change, no reset
    state = true;
    EXPECT_EQ(plugin.Command(DSPCMD_SET_STATE, &state, nullptr), -1);
    EXPECT_EQ(plugin.GetConvolution().fillPosition, 0);
    EXPECT_TRUE(plugin.IsActive());
}

TEST(ConvolutionPlugin, DescribeTellsThePerformanceThroughTheTranslator)
{
    qvtest::ScopedTestTools tools;
    CConvolutionDSPPlugin plugin(nullptr, 0);
    plugin.GetConvolution().useSSE = true;
    plugin.GetConvolution().performance = 41.2651;
    EXPECT_EQ(Describe(plugin), "[t]Convolution 41.27X [t]real-time[t] (using SSE)");
    plugin.GetConvolution().useSSE = false;
    EXPECT_EQ(Describe(plugin), "[t]Convolution 41.27X [t]real-time");
}

// The filter field applies a typed name once typing has paused for a second;
// the status repaints every second.
TEST(ConvolutionDlg, TypedFilterWaitsForTheTimerAndBecomesTheFirstChoice)
{
    TempFolder folder;
    WriteWav(folder.File("h.wav"), Interleave({DecayingImpulse(300, 1), DecayingImpulse(300, 2)}),
             2, 48000);
    PluginWithFilter fixture("");
    CConvolutionDSPPlugin& plugin = fixture.plugin;
    plugin.SetFormat(MakeFormat(2));
    ASSERT_EQ(plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);
    CConvolutionDlg& panel = *plugin.GetPanel();
    EXPECT_EQ(panel.GetStatusText().ToUTF8(), "Not valid");

    const std::string name = folder.File("h.wav");
    panel.EditFilter(QVString::FromUTF8(name.substr(0, 5)), 0);
    panel.EditFilter(QVString::FromUTF8(name), 600);
    panel.AdvanceClock(1500);
    EXPECT_TRUE(panel.IsFilterTimerArmed());  // re-armed at 600, due at 1600
    EXPECT_FALSE(plugin.GetConvolution().IsValid());
    panel.AdvanceClock(1600);
    EXPECT_FALSE(panel.IsFilterTimerArmed());
    EXPECT_TRUE(plugin.GetConvolution().IsValid());
    EXPECT_EQ(panel.GetFilterList().GetCount(), 1);
    EXPECT_EQ(panel.GetFilterList()[0].ToUTF8(), name);
    EXPECT_EQ(fixture.host.changedCalls, 1);

    panel.AdvanceClock(3600);
    // Armed at the first tick, 1500: it fired at 2500 and 3500.
    EXPECT_EQ(panel.GetStatusRepaints(), 2);
    const std::string status = panel.GetStatusText().ToUTF8();
    EXPECT_EQ(status.rfind("Processing: 2 paths\r\nPerformance: 0.0X real-time", 0), 0u) << status;
    EXPECT_NE(status.find("\r\nFilter: " + name), std::string::npos);

    panel.ClickReset();
    EXPECT_EQ(panel.GetFilterList().GetCount(), 0);
    EXPECT_EQ(panel.GetFilterText().ToUTF8(), "");
    EXPECT_FALSE(plugin.GetConvolution().IsValid());
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.GetPanel(), nullptr);
}

// Settings are saved as they change and read by the next engine of the zone.
TEST(ConvolutionDlg, ChangesAreSavedAndChoicesKeepTheTenNewest)
{
    qvtest::ScopedFileStore store;
    {
        CConvolutionDSPPlugin plugin(nullptr, 3);
        plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
        CConvolutionDlg& panel = *plugin.GetPanel();
        EXPECT_TRUE(panel.IsNormalizeChecked());
        panel.ClickNormalize(false);
        panel.ClickSmallFilters(true);
        panel.ClickAutoMatch(false);
        for (int i = 0; i < 12; ++i)
            plugin.GetConvolution().AddPathChoice(QVString::FromInt(i));
        // A name chosen again moves to the head instead of appearing twice.
        plugin.GetConvolution().AddPathChoice(QVString(u"5"));
    }
    EXPECT_EQ(store.Read(u"Zones\\3\\Convolution", u"Convolution - Path Choices"),
              "5|11|10|9|8|7|6|4|3|2");
    CAudioConvolution engine(3);
    EXPECT_EQ(engine.GetVolumeMode(), 1);
    EXPECT_TRUE(engine.GetSmallFilters());
    EXPECT_FALSE(engine.GetAutoMatchFilter());
    EXPECT_EQ(engine.GetPathChoices().GetCount(), 10);
    EXPECT_EQ(engine.GetPathChoices()[1].ToUTF8(), "11");
}
