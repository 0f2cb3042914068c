#include "output/AdaptiveVolume.h"

#include <gtest/gtest.h>

#include "support/TestSupport.h"

namespace
{

CAdaptiveVolumeDlg* OpenPanel(CAdaptiveVolumeDSPPlugin& plugin)
{
    uint64_t out = 0;
    EXPECT_EQ(plugin.Command(DSPCMD_OPEN_PANEL, nullptr, &out), -1);
    return plugin.GetPanel();
}

}  // namespace

TEST(AdaptiveVolume, PanelSelectsTheModeTheHostHolds)
{
    const int32_t modes[] = {1, 2, 3, 0, 4, -1};
    const int32_t selected[] = {0, 1, 2, -1, -1, -1};
    for (size_t i = 0; i < std::size(modes); ++i)
    {
        qvtest::TestPlayer player;
        player.mode = modes[i];
        qvtest::CountingHost host(&player);
        CAdaptiveVolumeDSPPlugin plugin(&host, 0);
        CAdaptiveVolumeDlg* panel = OpenPanel(plugin);
        ASSERT_NE(panel, nullptr);
        EXPECT_EQ(panel->GetSelected(), selected[i]) << "mode " << modes[i];
        EXPECT_EQ(player.modeReads, 1);
        EXPECT_EQ(player.modeWrites, 0);
        EXPECT_EQ(host.changedCalls, 0);
    }
}

TEST(AdaptiveVolume, ClickWritesTheModeAndNotifiesTheHost)
{
    qvtest::TestPlayer player;
    player.mode = 1;
    qvtest::CountingHost host(&player);
    CAdaptiveVolumeDSPPlugin plugin(&host, 5);
    CAdaptiveVolumeDlg* panel = OpenPanel(plugin);
    ASSERT_NE(panel, nullptr);

    panel->Click(2);
    EXPECT_EQ(player.mode, 3);
    EXPECT_EQ(panel->GetSelected(), 2);
    EXPECT_EQ(panel->GetSelectedValue(), 3);
    EXPECT_EQ(host.changedCalls, 1);
    EXPECT_EQ(host.changedFalseCalls, 0);

    panel->Click(1);
    EXPECT_EQ(player.mode, 2);
    EXPECT_EQ(player.modeWrites, 2);
    EXPECT_EQ(host.changedCalls, 2);

    // Clicks outside the group reach nothing.
    panel->Click(3);
    panel->Click(-1);
    EXPECT_EQ(player.modeWrites, 2);
    EXPECT_EQ(panel->GetSelected(), 1);

    // A second open reuses the panel; closing drops it.
    EXPECT_EQ(OpenPanel(plugin), panel);
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.GetPanel(), nullptr);
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
}

TEST(AdaptiveVolume, WithoutPlayerOrLevelControlNothingIsSelectedAndClicksDoNothing)
{
    qvtest::TestPlayer playerWithoutControl(false);
    qvtest::CountingHost hostWithoutPlayer;
    qvtest::CountingHost hostWithoutControl(&playerWithoutControl);
    for (qvtest::CountingHost* host : {&hostWithoutPlayer, &hostWithoutControl})
    {
        CAdaptiveVolumeDSPPlugin plugin(host, 0);
        CAdaptiveVolumeDlg* panel = OpenPanel(plugin);
        ASSERT_NE(panel, nullptr);
        EXPECT_EQ(panel->GetSelected(), -1);
        EXPECT_EQ(panel->GetSelectedValue(), 0);
        panel->Click(0);
        EXPECT_EQ(host->changedCalls, 0);
    }
    EXPECT_EQ(playerWithoutControl.modeWrites, 0);
    // A plug-in the module made for itself has no host at all.
    CAdaptiveVolumeDSPPlugin orphan(nullptr, DSP_ZONE_GLOBAL);
    CAdaptiveVolumeDlg* panel = OpenPanel(orphan);
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->GetSelected(), -1);
    panel->Click(1);
}

TEST(AdaptiveVolume, PanelTextsAreTranslated)
{
    qvtest::ScopedTestTools scoped;
    CAdaptiveVolumeDSPPlugin plugin(nullptr, 0);
    CAdaptiveVolumeDlg* panel = OpenPanel(plugin);
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->GetHeading().ToUTF8(), "[t]Adaptive Volume adjusts playback volume to enhance "
                                            "the listening experience for various "
                                            "situations.");
    EXPECT_EQ(panel->GetLabel(0).ToUTF8(), "[t]Peak Level Normalize");
    EXPECT_EQ(panel->GetLabel(1).ToUTF8(), "[t]Night Mode");
    EXPECT_EQ(panel->GetLabel(2).ToUTF8(), "[t]Small Speaker Mode");
    EXPECT_EQ(panel->GetDescription(2).ToUTF8(),
              "[t]Maximizes the volume for smaller, less powerful speakers.");
    EXPECT_EQ(panel->GetDescription(0).ToUTF8(),
              "[t]Boosts low volume content, while preserving dynamic range.  Uses the peak level "
              "from Audio "
              "Analysis when available.  Works intelligently with Volume Leveling.");
    EXPECT_EQ(panel->GetLabel(3).ToUTF8(), "");
}
