// The plug-in: factory index 1, commands, the channel counts it serves and
// the pass-through of the others, independence of block sizes, the player's
// switch read from the store, and no allocation after construction.
#include "effects/EffectsPlugin.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "frame/SettingsKey.h"
#include "host/SettingsStore.h"

#include "EffectsTestSupport.h"
#include "effects/EffectsDisplayDlg.h"
#include "frame/IQVTools.h"
#include "frame/PluginFactory.h"
#include "support/AllocationCounter.h"
#include "support/FileStoreTools.h"

TEST(EffectsPlugin, FactoryIndexOneAndCommands)
{
    qvtest::ScopedFileStore store;
    std::unique_ptr<IQVDSP> plugin(CreateDSPPlugin(DSPPLUGIN_EFFECTS, nullptr, 2, false));
    ASSERT_NE(plugin, nullptr);
    auto* effects = dynamic_cast<CEffectsDSPPlugin*>(plugin.get());
    ASSERT_NE(effects, nullptr);
    EXPECT_EQ(effects->GetName().ToUTF8(), "Effects");
    EXPECT_EQ(effects->zone, 2);
    EXPECT_EQ(plugin->Flush(), 0);
    EXPECT_EQ(plugin->Command(DSPCMD_QUERY_FLAG, nullptr, nullptr), 1);
    for (int32_t kind : {int32_t{DSPCMD_SET_STATE}, int32_t{DSPCMD_RELOAD},
                         int32_t{DSPCMD_DESCRIBE}, int32_t{DSPCMD_GET_LATENCY}, 0})
        EXPECT_EQ(plugin->Command(kind, nullptr, nullptr), -1) << kind;

    EXPECT_EQ(plugin->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(plugin->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);  // no window here
    CEffectsDisplayDlg* panel = effects->GetPanel();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(plugin->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);
    EXPECT_EQ(effects->GetPanel(), panel);
    EXPECT_EQ(plugin->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(effects->GetPanel(), nullptr);

    // Made with the default format and ready for it.
    EXPECT_EQ(effects->format.sampleRate, 44100u);
    EXPECT_TRUE(effects->valid);
    EXPECT_EQ(effects->GetEngine().bassEnvelope.fastRate, 1.0f / 88.0f);
}

TEST(EffectsPlugin, ServesOneTwoFourSixAndEightChannelsAndPassesOthers)
{
    for (int32_t channels = 0; channels <= 10; ++channels)
    {
        auto plugin = fxtest::MakePlugin({1, 4, 2, 2}, 1);
        const bool served =
            channels == 1 || channels == 2 || channels == 4 || channels == 6 || channels == 8;
        EXPECT_EQ(plugin->SetFormat(CAudioFormat(64, 48000, static_cast<uint16_t>(channels))),
                  served ? 0 : -1)
            << channels;
        EXPECT_EQ(plugin->valid, served);
        const int32_t width = std::max(channels, 1);
        std::vector<double> block = qvtest::Noise(300, width, 2, 0.5);
        const std::vector<double> input = block;
        qvtest::CollectingSink sink(width);
        EXPECT_EQ(plugin->Process(block.data(), 300, &sink), 0);
        ASSERT_EQ(sink.outputCalls, 1);
        EXPECT_EQ(sink.pointers[0], block.data());
        EXPECT_EQ(sink.blockFrames[0], 300);
        if (served)
        {
            EXPECT_NE(block, input) << channels;
        }
        else
        {
            EXPECT_EQ(block, input) << channels;
        }
    }
    // A zero-frame block is handed on as it came.
    auto plugin = fxtest::MakePlugin({1, 4, 2, 2}, 2);
    qvtest::CollectingSink sink(2);
    double sample = 0.25;
    EXPECT_EQ(plugin->Process(&sample, 0, &sink), 0);
    EXPECT_EQ(sink.outputCalls, 1);
    EXPECT_EQ(sink.blockFrames[0], 0);
}

TEST(EffectsPlugin, WholeRunsDoNotDependOnBlockSizes)
{
    for (int32_t channels : {1, 2, 6, 8})
    {
        const std::vector<double> input = qvtest::Noise(5000, channels, 13, 0.6);
        auto run = [&](const std::vector<int32_t>& pattern)
        {
            auto plugin = fxtest::MakePlugin({2, 7, 5, 3}, channels, 48000);
            return qvtest::RunInBlockPattern(*plugin, input, channels, pattern);
        };
        const std::vector<double> whole = run({5000});
        EXPECT_EQ(run({1}), whole) << channels;
        EXPECT_EQ(run({31, 127, 2}), whole) << channels;
    }
}

TEST(EffectsPlugin, ReadsThePlayersSwitchAtEveryConfigure)
{
    qvtest::ScopedFileStore store;
    CEffectsDSPPlugin plugin(nullptr, 5);
    plugin.SetOption(DSPOPT_TRANSIENT);
    EXPECT_FALSE(plugin.GetEngine().effectsOn);
    // Stored per zone in the old flat key, under the zone's name for it.
    store.Key(u"Plugins\\DSP\\QM DSP")
        ->WriteInt(QVSettingsZoneValueName(u"Effects - On", 5).c_str(), 1);
    plugin.SetFormat(CAudioFormat(64, 48000, 2));
    EXPECT_TRUE(plugin.GetEngine().effectsOn);
    store.Key(u"Plugins\\DSP\\QM DSP")
        ->WriteInt(QVSettingsZoneValueName(u"Effects - On", 5).c_str(), 0);
    plugin.SetFormat(CAudioFormat(64, 48000, 2));
    EXPECT_FALSE(plugin.GetEngine().effectsOn);

    // No zone reads zone 0's value.
    CEffectsDSPPlugin global(nullptr, DSP_ZONE_GLOBAL);
    store.Key(u"Plugins\\DSP\\QM DSP")->WriteInt(u"Effects - On", 1);
    global.SetFormat(CAudioFormat(64, 48000, 2));
    EXPECT_TRUE(global.GetEngine().effectsOn);
}

TEST(EffectsPlugin, NothingIsAllocatedAfterConstruction)
{
    // All delay lines are inside the engine, which the plug-in makes once.
    EXPECT_GT(sizeof(CEffectsEngine), 800000u);
    EXPECT_LT(sizeof(CEffectsEngine), 900000u);

    auto plugin = fxtest::MakePlugin({1, 4, 2, 2}, 2);
    struct NullSink : IQVDSPSink
    {
        void Output(double*, int32_t) override {}
    } sink;
    std::vector<double> block = qvtest::Noise(8192, 8, 3, 0.5);
    {
        // The counter sees an allocation, so that a zero below means something.
        qvtest::ScopedAllocationCount probe;
        int* volatile allocated = new int(1);
        delete allocated;
        ASSERT_EQ(probe.Allocations(), 1);
    }
    // Reading the player's switch is the store's business and allocates there;
    // without a store the format changes show the engine's own behaviour.
    IQVTools* previous = GetQVTools();
    SetQVTools(nullptr);
    qvtest::ScopedAllocationCount count;
    for (int32_t channels : {2, 1, 4, 6, 8, 3, 2})
    {
        for (uint32_t rate : {44100u, 96000u})
        {
            plugin->SetFormat(CAudioFormat(64, rate, static_cast<uint16_t>(channels)));
            for (int32_t frames : {1, 31, 4096, 8192 * 8 / std::max(channels, 1)})
                plugin->Process(block.data(), frames, &sink);
            plugin->Flush();
        }
    }
    plugin->GetSettings().values.environment = 3;
    plugin->GetEngine().Configure();
    plugin->Process(block.data(), 1000, &sink);
    EXPECT_EQ(count.Allocations(), 0);
    SetQVTools(previous);
}
