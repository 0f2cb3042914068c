// The operations every plug-in shares, checked on each plug-in of this build.
#include "frame/QVDSPBase.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include <memory>
#include <vector>

#include "frame/PluginFactory.h"
#include "support/TestSupport.h"

namespace
{

std::vector<std::unique_ptr<IQVDSP>> AllPlugins(IQVDSPHost* host)
{
    std::vector<std::unique_ptr<IQVDSP>> plugins;
    for (int32_t index = 0; index < DSPPLUGIN_COUNT; ++index)
        if (IQVDSP* plugin = CreateDSPPlugin(index, host, DSP_ZONE_GLOBAL, true))
            plugins.emplace_back(plugin);
    return plugins;
}

}  // namespace

TEST(QVDSPBase, GetInfoKinds)
{
    for (auto& plugin : AllPlugins(nullptr))
    {
        char16_t text[DSPINFO_TEXT_CAPACITY];
        ASSERT_EQ(plugin->GetInfo(DSPINFO_INTERFACE_VERSION, text), 0);
        EXPECT_EQ(qvtest::ToUtf8(text), "1");
        for (int32_t kind : {-1, 1, 3, 4, 1000})
        {
            text[0] = u'x';
            text[1] = u'\0';
            EXPECT_EQ(plugin->GetInfo(kind, text), -1) << kind;
            EXPECT_EQ(qvtest::ToUtf8(text), "x") << "an unknown kind leaves the text alone";
        }
    }
}

TEST(QVDSPBase, TransientIsOneWay)
{
    for (auto& plugin : AllPlugins(nullptr))
    {
        auto* base = dynamic_cast<QVDSPBase*>(plugin.get());
        ASSERT_NE(base, nullptr);
        EXPECT_EQ(plugin->SetOption(0), -1);
        EXPECT_EQ(plugin->SetOption(4), -1);
        EXPECT_FALSE(base->transient);
        EXPECT_EQ(plugin->SetOption(DSPOPT_TRANSIENT), 0);
        EXPECT_TRUE(base->transient);
        EXPECT_EQ(plugin->SetOption(0), -1);
        EXPECT_EQ(plugin->SetOption(DSPOPT_TRANSIENT), 0);
        EXPECT_TRUE(base->transient);
    }
}

// The command kinds, beyond 2 and 5, that each plug-in of this build answers
// with 0. Opening a panel gives -1 everywhere, since no window toolkit exists.
static std::vector<int32_t> KindsAnsweredWithZero(int32_t index)
{
    switch (index)
    {
    case DSPPLUGIN_OUTPUT_FORMAT: return {DSPCMD_SET_STATE, DSPCMD_RELOAD, DSPCMD_DESCRIBE};
    case DSPPLUGIN_VOLUME_LEVELING:
    case DSPPLUGIN_ADAPTIVE_VOLUME:
    case DSPPLUGIN_TUBE_AMPLIFIER: return {DSPCMD_SET_STATE, DSPCMD_DESCRIBE};
    case DSPPLUGIN_TEMPO_PITCH:
        // DSPCMD_GET_LATENCY: nothing held while the stretcher does not exist.
        return {DSPCMD_TEMPO, DSPCMD_GET_LATENCY, DSPCMD_DESCRIBE, DSPCMD_RELOAD_TEMPO};
    case DSPPLUGIN_ANALYZER:
    case DSPPLUGIN_HEADPHONES:
    case DSPPLUGIN_PARAMETRIC_EQUALIZER:
    case DSPPLUGIN_PARAMETRIC_EQUALIZER_2: return {DSPCMD_DESCRIBE};
    // Its latency is 0 while no filter is loaded.
    case DSPPLUGIN_CONVOLUTION: return {DSPCMD_GET_LATENCY, DSPCMD_DESCRIBE};
    default: return {};  // the Equalizer: its reload answers -1 too
    }
}

// The class constant of DSPCMD_QUERY_FLAG: 0 for the two plug-ins that
// change the timing of the sound they hand on, 1 everywhere else.
static int64_t QueryFlagOf(int32_t index)
{
    return index == DSPPLUGIN_TEMPO_PITCH || index == DSPPLUGIN_HEADPHONES ? 0 : 1;
}

TEST(QVDSPBase, CommandAnswersFollowThePluginTable)
{
    qvtest::CountingHost host;
    for (int32_t index = 0; index < DSPPLUGIN_COUNT; ++index)
    {
        std::unique_ptr<IQVDSP> plugin(CreateDSPPlugin(index, &host, DSP_ZONE_GLOBAL, true));
        if (!plugin)
            continue;
        const std::vector<int32_t> zeroKinds = KindsAnsweredWithZero(index);
        qvtest::RecordingStatusList status;
        for (int32_t kind = -1; kind <= 12; ++kind)
        {
            int64_t expected = -1;
            if (kind == DSPCMD_CLOSE_PANEL ||
                std::find(zeroKinds.begin(), zeroKinds.end(), kind) != zeroKinds.end())
                expected = 0;
            if (kind == DSPCMD_QUERY_FLAG)
                expected = QueryFlagOf(index);
            void* arg = kind == DSPCMD_DESCRIBE
                            ? static_cast<void*>(static_cast<IStatusList*>(&status))
                            : nullptr;
            uint64_t out = 0;
            EXPECT_EQ(plugin->Command(kind, arg, &out), expected)
                << "plug-in " << index << ", kind " << kind;
        }
        // Fresh plug-ins have nothing active to describe, and a command is no
        // change; Convolution tells its performance figure even when idle.
        EXPECT_EQ(status.lines.empty(), index != DSPPLUGIN_CONVOLUTION) << "plug-in " << index;
        EXPECT_EQ(host.changedCalls, 0) << "plug-in " << index;
    }
}

TEST(QVDSPBase, EmptyBlocksArePassedOnWithTheirCount)
{
    for (auto& plugin : AllPlugins(nullptr))
    {
        ASSERT_EQ(plugin->SetFormat(CAudioFormat(64, 48000, 2)), 0);
        double sample[2] = {0.25, -0.25};
        qvtest::CollectingSink sink(2);
        EXPECT_EQ(plugin->Process(sample, 0, &sink), 0);
        EXPECT_EQ(plugin->Process(sample, -3, &sink), 0);
        EXPECT_EQ(sink.blockFrames, (std::vector<int32_t>{0, -3}));
        EXPECT_EQ(sink.pointers[0], sample);
        EXPECT_EQ(sample[0], 0.25);
        EXPECT_EQ(sample[1], -0.25);
        EXPECT_EQ(plugin->Flush(), 0);
    }
}

TEST(QVDSPBase, AChainOfPluginsRunsInOrder)
{
    qvtest::CountingHost host;
    std::unique_ptr<IQVDSP> tube(CreateDSPPlugin(12, &host, DSP_ZONE_GLOBAL, true));
    std::unique_ptr<IQVDSP> adaptive(GetDSPPlugin(11, &host, DSP_ZONE_GLOBAL));
    std::unique_ptr<IQVDSP> leveling(GetDSPPlugin(2, &host, DSP_ZONE_GLOBAL));
    const CAudioFormat format(64, 44100, 2);
    for (IQVDSP* plugin : {tube.get(), adaptive.get(), leveling.get()})
        ASSERT_EQ(plugin->SetFormat(format), 0);

    qvtest::CollectingSink end(2);
    qvtest::PluginSink toLeveling(leveling.get(), &end);
    qvtest::PluginSink toAdaptive(adaptive.get(), &toLeveling);
    const std::vector<double> input = qvtest::Noise(1000, 2, 7);
    qvtest::CollectingSink afterTube(2);
    qvtest::RunInBlocks(*tube, input, 2, 100, afterTube);

    // The same again through the chain: the pass-through stages change nothing.
    std::unique_ptr<IQVDSP> tube2(CreateDSPPlugin(12, &host, DSP_ZONE_GLOBAL, true));
    tube2->SetFormat(format);
    qvtest::RunInBlocks(*tube2, input, 2, 100, toAdaptive);
    EXPECT_EQ(end.samples, afterTube.samples);
    EXPECT_EQ(end.outputCalls, 10);
}
