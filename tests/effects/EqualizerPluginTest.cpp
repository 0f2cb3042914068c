// The plug-in: factory index 0, commands, SetFormat, the block going to the
// sink unchanged in place, block-size independence of whole runs, and no
// allocation in a steady-state block.
#include "effects/EqualizerPlugin.h"

#include <gtest/gtest.h>

#include "EqualizerTestSupport.h"
#include "effects/EqualizerDlg.h"
#include "frame/PluginFactory.h"
#include "support/AllocationCounter.h"

using namespace eqtest;

TEST(EqualizerPlugin, FactoryIndexZeroAndCommands)
{
    ScopedStore store;
    std::unique_ptr<IQVDSP> plugin(CreateDSPPlugin(DSPPLUGIN_EQUALIZER, nullptr, 1, false));
    ASSERT_NE(plugin, nullptr);
    auto* equalizer = dynamic_cast<CEqualizerDSPPlugin*>(plugin.get());
    ASSERT_NE(equalizer, nullptr);
    EXPECT_EQ(equalizer->GetName().ToUTF8(), "Equalizer");
    EXPECT_EQ(plugin->Flush(), 0);
    EXPECT_EQ(plugin->Command(DSPCMD_QUERY_FLAG, nullptr, nullptr), 1);
    EXPECT_EQ(plugin->Command(DSPCMD_DESCRIBE, nullptr, nullptr), -1);
    EXPECT_EQ(plugin->Command(DSPCMD_SET_STATE, nullptr, nullptr), -1);

    // No window toolkit: the panel model is made, but there is no window.
    EXPECT_EQ(plugin->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);
    ASSERT_NE(equalizer->GetPanel(), nullptr);
    EXPECT_EQ(equalizer->GetPanel()->GetSliderValue(0), 0.0);

    // The host changed the store: RELOAD reads it and refreshes the sliders.
    store.Write(CURRENT_KEY, u"Settings", u"0OOOOOOOOOOOOOOOOOOOn");
    store.Write(CURRENT_KEY, u"Preset", u"Mine");
    EXPECT_EQ(plugin->Command(DSPCMD_RELOAD, nullptr, nullptr), -1);
    EXPECT_EQ(equalizer->GetPresets().settings.ToUTF8(), "0OOOOOOOOOOOOOOOOOOOn");
    EXPECT_DOUBLE_EQ(equalizer->GetEngine().GetPreampGain(), 12.0);
    EXPECT_EQ(equalizer->GetPanel()->GetSliderValue(0), 12.0);
    EXPECT_EQ(equalizer->GetPanel()->GetSliderValue(20), -12.0);
    EXPECT_EQ(equalizer->GetPanel()->GetPresetText().ToUTF8(), "Mine");

    EXPECT_EQ(plugin->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(equalizer->GetPanel(), nullptr);
    EXPECT_EQ(plugin->Command(DSPCMD_RELOAD, nullptr, nullptr), -1);  // also without a panel
}

TEST(EqualizerPlugin, SetFormatTakesTheRateAndBlocksGoOnInPlace)
{
    ScopedStore store;
    store.Write(CURRENT_KEY, u"Settings", u"OCCKKUUYYUUNNKKCCCCCC");
    CEqualizerDSPPlugin plugin(nullptr, 1);
    EXPECT_EQ(plugin.GetEngine().sampleRate, 44100);
    EXPECT_EQ(plugin.SetFormat(CAudioFormat(64, 96000, 2)), 0);
    EXPECT_EQ(plugin.GetEngine().sampleRate, 96000);
    EXPECT_EQ(plugin.GetFormat().sampleRate, 96000u);

    qvtest::CollectingSink sink(2);
    std::vector<double> block = qvtest::Noise(300, 2, 9);
    const std::vector<double> input = block;
    EXPECT_EQ(plugin.Process(block.data(), 300, &sink), 0);
    ASSERT_EQ(sink.outputCalls, 1);
    EXPECT_EQ(sink.pointers[0], block.data());
    EXPECT_EQ(sink.blockFrames[0], 300);
    EXPECT_NE(block, input);  // Rock changes the sound
}

TEST(EqualizerPlugin, WholeRunsDoNotDependOnBlockSizes)
{
    ScopedStore store;
    store.Write(CURRENT_KEY, u"Settings", u"E0nOa7ZOI3kOQOOOfO00O");
    const std::vector<double> input = qvtest::Noise(6000, 6, 4, 0.5);
    auto run = [&](const std::vector<int32_t>& pattern)
    {
        CEqualizerDSPPlugin plugin(nullptr, 1);
        plugin.SetFormat(CAudioFormat(64, 48000, 6));
        return qvtest::RunInBlockPattern(plugin, input, 6, pattern);
    };
    const std::vector<double> whole = run({6000});
    EXPECT_EQ(run({1}), whole);
    EXPECT_EQ(run({31, 127, 1, 4096}), whole);
}

TEST(EqualizerPlugin, SteadyStateBlockAllocatesNothing)
{
    ScopedStore store;
    store.Write(CURRENT_KEY, u"Settings", u"E0nOa7ZOI3kOQOOOfO00O");
    CEqualizerDSPPlugin plugin(nullptr, 1);
    plugin.SetFormat(CAudioFormat(64, 48000, 2));
    qvtest::CollectingSink sink(2);
    std::vector<double> block = qvtest::Noise(1024, 2, 2);
    // The first block makes each band's per-channel filters.
    plugin.Process(block.data(), 1024, &sink);
    sink.Clear();
    qvtest::FrameCountingSink quiet;
    qvtest::ScopedAllocationCount count;
    for (int i = 0; i < 4; ++i)
        plugin.Process(block.data(), 1024, &quiet);
    EXPECT_EQ(count.Allocations(), 0);
}
