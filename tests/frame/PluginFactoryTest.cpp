#include "frame/PluginFactory.h"

#include <gtest/gtest.h>

#include <cstring>

#include <climits>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "effects/TubeAmplifier.h"
#include "frame/IQVTools.h"
#include "frame/QVDSPBase.h"
#include "frame/Registration.h"
#include "host/BuiltinTools.h"
#include "output/AdaptiveVolume.h"
#include "output/VolumeLeveling.h"
#include "support/TestSupport.h"

namespace
{

std::unique_ptr<IQVDSP> Make(int32_t index, bool unlisted, IQVDSPHost* host = nullptr,
                             int32_t zone = DSP_ZONE_GLOBAL)
{
    return std::unique_ptr<IQVDSP>(CreateDSPPlugin(index, host, zone, unlisted));
}

std::string NameOf(IQVDSP& plugin)
{
    char16_t text[DSPINFO_TEXT_CAPACITY];
    EXPECT_EQ(plugin.GetInfo(DSPINFO_NAME, text), 0);
    return qvtest::ToUtf8(text);
}

// Every plug-in this build has, made the way the module makes them.
std::vector<std::unique_ptr<IQVDSP>> AllPlugins(IQVDSPHost* host, int32_t zone)
{
    std::vector<std::unique_ptr<IQVDSP>> plugins;
    for (int32_t index = 0; index < DSPPLUGIN_COUNT; ++index)
        if (auto plugin = Make(index, true, host, zone))
            plugins.push_back(std::move(plugin));
    return plugins;
}

}  // namespace

// Each later plug-in extends these lists with its index.
TEST(PluginFactory, IndicesThatExistInThisBuild)
{
    std::vector<int32_t> listed, unlisted;
    for (int32_t index :
         {INT_MIN, -10000, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 100, INT_MAX})
    {
        if (std::unique_ptr<IQVDSP>(GetDSPPlugin(index, nullptr, DSP_ZONE_GLOBAL)))
            listed.push_back(index);
        if (Make(index, true))
            unlisted.push_back(index);
        // The export is the listed road of the factory.
        EXPECT_EQ(Make(index, false) != nullptr,
                  std::unique_ptr<IQVDSP>(GetDSPPlugin(index, nullptr, 0)) != nullptr);
    }
    EXPECT_EQ(listed, (std::vector<int32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
    EXPECT_EQ(unlisted, (std::vector<int32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST(PluginFactory, ClassesAndDisplayNamesFollowTheTable)
{
    auto leveling = Make(DSPPLUGIN_VOLUME_LEVELING, false);
    auto adaptive = Make(DSPPLUGIN_ADAPTIVE_VOLUME, false);
    auto tube = Make(DSPPLUGIN_TUBE_AMPLIFIER, true);
    ASSERT_TRUE(leveling && adaptive && tube);
    EXPECT_NE(dynamic_cast<CVolumeLevelingDSPPlugin*>(leveling.get()), nullptr);
    EXPECT_NE(dynamic_cast<CAdaptiveVolumeDSPPlugin*>(adaptive.get()), nullptr);
    EXPECT_NE(dynamic_cast<CTubeAmplifierDSPPlugin*>(tube.get()), nullptr);
    EXPECT_EQ(NameOf(*leveling), "Volume Leveling");
    EXPECT_EQ(NameOf(*adaptive), "Adaptive Volume");
    EXPECT_EQ(NameOf(*tube), "Tube Amplifier");
    // Display names are not translated: they name store keys.
    qvtest::ScopedTestTools scoped;
    EXPECT_EQ(NameOf(*tube), "Tube Amplifier");
}

TEST(PluginFactory, PluginsKeepHostAndZoneAndStartWithTheDefaultFormat)
{
    qvtest::CountingHost host;
    for (int32_t zone : {DSP_ZONE_GLOBAL, 0, 3})
    {
        for (auto& plugin : AllPlugins(&host, zone))
        {
            auto* base = dynamic_cast<QVDSPBase*>(plugin.get());
            ASSERT_NE(base, nullptr);
            EXPECT_EQ(base->host, &host);
            EXPECT_EQ(base->zone, zone);
            EXPECT_FALSE(base->transient);
        }
    }
    const CAudioFormat defaultFormat;
    auto check = [&](const CAudioFormat& format)
    {
        EXPECT_EQ(std::memcmp(&format, &defaultFormat, sizeof(CAudioFormat)), 0);
        EXPECT_EQ(format.bitsPerSample, 16);
        EXPECT_EQ(format.sampleRate, 44100u);
        EXPECT_EQ(format.channels, 2);
    };
    check(CTubeAmplifierDSPPlugin(nullptr, 0).format);
    check(CAdaptiveVolumeDSPPlugin(nullptr, 0).format);
    check(CVolumeLevelingDSPPlugin(nullptr, 0).format);
}

TEST(PluginFactory, MakingAPluginInstallsToolsWhenThereAreNone)
{
    IQVTools* previous = GetQVTools();
    SetQVTools(nullptr);
    auto plugin = Make(DSPPLUGIN_VOLUME_LEVELING, false);
    EXPECT_EQ(GetQVTools(), &GetBuiltinTools());
    // Tools that are there are kept.
    {
        qvtest::ScopedTestTools scoped;
        Make(DSPPLUGIN_ADAPTIVE_VOLUME, false);
        EXPECT_EQ(GetQVTools(), &scoped.tools);
    }
    SetQVTools(previous);
}

TEST(PluginFactory, RegistrationWalksTheTable)
{
    const std::vector<DSPRegistration> registrations = CollectDSPRegistrations();
    std::vector<std::tuple<int32_t, std::string, bool>> seen;
    for (const DSPRegistration& registration : registrations)
        seen.emplace_back(registration.index, registration.name.ToUTF8(), registration.unlisted);
    const std::vector<std::tuple<int32_t, std::string, bool>> expected{
        {0, "Equalizer", false},
        {1, "Effects", false},
        {2, "Volume Leveling", false},
        {3, "Output Format", false},
        {4, "Tempo & Pitch", false},
        {5, "Headphones", false},
        {6, "Room Correction", false},
        {7, "Analyzer", false},
        {8, "Parametric Equalizer", false},
        {9, "Convolution", false},
        {10, "Parametric Equalizer 2", false},
        {11, "Adaptive Volume", false},
        {12, "Tube Amplifier", true}};
    EXPECT_EQ(seen, expected);
}
