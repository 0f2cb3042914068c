// The panel and the meter popup, driven as a user would: metric distances in
// single precision, list fallbacks, the exclusive test toggles, the enable
// states, the stored selection, and levels from meter readings.
#include "room/ChannelsDlg.h"

#include <gtest/gtest.h>

#include "RoomTestSupport.h"
#include "core/QVPropertyMap.h"
#include "room/ChannelsDSPPlugin.h"
#include "room/ChannelsLevelsPopupWnd.h"

namespace
{

class ChannelsDlgTest : public testing::Test
{
protected:
    // A plug-in with its panel open, metric or not.
    CChannelsDlg& OpenPanel(bool metric = false)
    {
        plugin.SetMetric(metric);
        plugin.SetFormat(roomtest::MakeFormat(6));
        EXPECT_EQ(plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);
        return *plugin.GetPanel();
    }
    CChannelDSP& Speaker(int32_t number) { return plugin.GetChannels().Speaker(number); }
    int32_t StoredInt(const char16_t* name)
    {
        return store.Key(u"Zones\\0\\Room Correction")->ReadInt(name, -1, 0);
    }

    qvtest::ScopedFileStore store;
    qvtest::CountingHost host;
    CChannelsDSPPlugin plugin{&host, 0};
};

}  // namespace

TEST_F(ChannelsDlgTest, MetricDistancesAreConvertedInSinglePrecision)
{
    Speaker(0).distanceFeet = 10.0;
    CChannelsDlg& panel = OpenPanel(true);
    ASSERT_EQ(panel.GetSelectedChannel(), 0);
    EXPECT_EQ(panel.GetDistanceText().ToUTF8(), "3.05 m");
    EXPECT_EQ(panel.GetControls().distance, static_cast<double>(10.0f * 0.3048f));

    panel.SetDistance(3.05);
    // 3.05f / 0.3048f = 10.00656 in single precision.
    EXPECT_EQ(Speaker(0).distanceFeet, static_cast<double>(3.05f / 0.3048f));
    EXPECT_NEAR(Speaker(0).distanceFeet, 10.00656, 5e-6);
    EXPECT_EQ(store.Read(u"Zones\\0\\Room Correction", u"Channel 0 - Distance (ft)"),
              QVPropertyMap::FormatDouble(static_cast<double>(3.05f / 0.3048f)).ToUTF8());

    // The range is 0 to 100 in either unit: 100 m is 328 ft.
    panel.SetDistance(150.0);
    EXPECT_EQ(panel.GetControls().distance, 100.0);
    EXPECT_NEAR(Speaker(0).distanceFeet, 328.084, 1e-3);
    EXPECT_EQ(panel.GetDistanceText().ToUTF8(), "100.00 m");
}

TEST_F(ChannelsDlgTest, FeetLevelsAndListFallbacks)
{
    // Values that the controls cannot show: a level beyond the range, a
    // crossover that is not in the list, slopes that are not either.
    Speaker(1).levelDB = 25.0;
    Speaker(1).distanceFeet = 12.34;
    Speaker(1).highPassFrequency = 85;
    Speaker(1).highPassSlope = 30;
    Speaker(1).lowPassSlope = 30;
    Speaker(1).removedBassRouting = 7;
    CChannelsDlg& panel = OpenPanel();
    panel.Select(1);
    const CChannelsDlg::Controls& controls = panel.GetControls();
    EXPECT_EQ(panel.GetLevelText().ToUTF8(), "20.0 dB");
    EXPECT_EQ(panel.GetDistanceText().ToUTF8(), "12.3 ft");
    EXPECT_EQ(controls.distance, 12.34);  // feet pass as they are
    EXPECT_EQ(QVString(CChannelsDlg::FREQUENCY_LIST[controls.frequencyItem].text).ToUTF8(),
              "No crossover (play all frequencies)");
    EXPECT_EQ(CChannelsDlg::HIGHPASS_SLOPE_LIST[controls.highPassSlopeItem].value, 12);
    EXPECT_EQ(CChannelsDlg::LOWPASS_SLOPE_LIST[controls.lowPassSlopeItem].value, 48);
    EXPECT_EQ(CChannelsDlg::ROUTING_LIST[controls.routingItem].value, 0);
    // Selecting alone writes nothing of the speaker shown.
    EXPECT_EQ(Speaker(1).highPassFrequency, 85);

    // The next apply writes what the controls hold.
    panel.SetReversePolarity(true);
    EXPECT_EQ(Speaker(1).highPassFrequency, 0);
    EXPECT_EQ(Speaker(1).levelDB, 20.0);
    EXPECT_EQ(Speaker(1).highPassSlope, 12);
    EXPECT_EQ(Speaker(1).lowPassSlope, 48);
    EXPECT_EQ(Speaker(1).removedBassRouting, 0);
    EXPECT_TRUE(Speaker(1).reversePolarity);
    EXPECT_EQ(StoredInt(u"Channel 1 - High-pass Frequency"), 0);
    EXPECT_EQ(StoredInt(u"Channel 1 - Reverse Polarity"), 1);

    // Every change reaches the engine at once and tells the host.
    const int32_t before = host.changedCalls;
    panel.SetFrequencyItem(CChannelsDlg::FrequencyItemOf(80));
    panel.SetRoutingItem(CChannelsDlg::RoutingItemOf(CChannelDSP::ROUTING_MOVE));
    EXPECT_EQ(host.changedCalls, before + 2);
    EXPECT_TRUE(Speaker(1).bassToSubwoofer);
    EXPECT_EQ(plugin.GetChannels().bassChannels, 1);
}

TEST_F(ChannelsDlgTest, TestTogglesExcludeEachOther)
{
    CChannelsDlg& panel = OpenPanel();
    panel.Select(0);
    panel.SetSolo(true);
    EXPECT_TRUE(Speaker(0).solo);

    // Tone pressed on Right: Left's solo goes, Right's tone is the only one.
    panel.Select(1);
    panel.SetMute(true);
    panel.SetTone(true);
    EXPECT_FALSE(Speaker(0).solo);
    EXPECT_TRUE(Speaker(1).tone);
    EXPECT_FALSE(Speaker(1).mute);
    EXPECT_FALSE(panel.GetControls().mute);
    EXPECT_FALSE(panel.GetControls().solo);
    EXPECT_NE(Speaker(1).noise, nullptr);

    // Mute on the toned speaker turns its tone off but touches no other
    // speaker, so several mutes combine.
    panel.SetMute(true);
    EXPECT_FALSE(Speaker(1).tone);
    EXPECT_TRUE(Speaker(1).mute);
    panel.Select(2);
    panel.SetMute(true);
    EXPECT_TRUE(Speaker(1).mute);
    EXPECT_TRUE(Speaker(2).mute);
    // Solo clears every other speaker's test functions.
    panel.Select(4);
    panel.SetSolo(true);
    EXPECT_FALSE(Speaker(1).mute);
    EXPECT_FALSE(Speaker(2).mute);
    EXPECT_TRUE(Speaker(4).solo);
    // None of it is stored.
    EXPECT_EQ(store.Read(u"Zones\\0\\Room Correction", u"Channel 4 - Solo"), "<none>");
}

TEST_F(ChannelsDlgTest, EnableStatesFollowTheCrossoverAndTheSubwoofer)
{
    roomtest::SetCrossover(Speaker(3), 80, CChannelDSP::ROUTING_MOVE);
    CChannelsDlg& panel = OpenPanel();
    panel.Select(0);
    auto states = [&panel]
    {
        const CChannelsDlg::EnableStates& s = panel.GetEnableStates();
        return std::vector<bool>{s.frequency, s.highPassSlope, s.routing, s.lowPassSlope};
    };
    EXPECT_EQ(states(), (std::vector<bool>{true, false, false, false}));
    panel.SetFrequencyItem(CChannelsDlg::FrequencyItemOf(120));
    EXPECT_EQ(states(), (std::vector<bool>{true, true, true, false}));
    panel.SetRoutingItem(CChannelsDlg::RoutingItemOf(CChannelDSP::ROUTING_COPY));
    EXPECT_EQ(states(), (std::vector<bool>{true, true, true, true}));

    // The subwoofer greys the whole group; its stored values stay.
    panel.Select(3);
    EXPECT_EQ(states(), (std::vector<bool>{false, false, false, false}));
    panel.SetLevel(-2.0);
    EXPECT_EQ(Speaker(3).highPassFrequency, 80);
    EXPECT_EQ(StoredInt(u"Channel 3 - Removed Bass Routing"), 1);
}

TEST_F(ChannelsDlgTest, SpeakerButtonsAndTheStoredSelection)
{
    // The old flat key's value, under the panel's prefix, gives the default.
    store.Key(u"Plugins\\DSP\\QM DSP")->WriteInt(u"Channels - Selected Channel", 4);
    CChannelsDlg& panel = OpenPanel();
    EXPECT_EQ(panel.GetSelectedChannel(), 4);
    for (int32_t speaker = 0; speaker < 8; ++speaker)
        EXPECT_EQ(panel.IsSpeakerButtonOn(speaker), speaker == 4);
    EXPECT_EQ(panel.GetSpeakerButtonText(3).ToUTF8(), "Sub");
    EXPECT_EQ(panel.GetSpeakerButtonTooltip(3).ToUTF8(), "Subwoofer");
    EXPECT_EQ(panel.GetSpeakerButtonText(0).ToUTF8(), "Left");

    panel.PressSpeakerButton(2);
    EXPECT_EQ(StoredInt(u"Selected Channel"), 2);
    EXPECT_EQ(store.Key(u"Plugins\\DSP\\QM DSP")->ReadInt(u"Channels - Selected Channel", -1, 0),
              -1);

    // A number that is no speaker selects none.
    panel.Select(-1);
    EXPECT_EQ(panel.GetSelectedChannel(), -1);
    for (int32_t speaker = 0; speaker < 8; ++speaker)
        EXPECT_FALSE(panel.IsSpeakerButtonOn(speaker));

    // A stored selection that is no speaker opens with none.
    plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr);
    store.Key(u"Zones\\0\\Room Correction")->WriteInt(u"Selected Channel", 9);
    EXPECT_EQ(OpenPanel().GetSelectedChannel(), -1);
}

TEST_F(ChannelsDlgTest, LevelsFromMeterReadings)
{
    Speaker(0).levelDB = -1.0;
    Speaker(1).levelDB = 1.0;
    Speaker(2).levelDB = 3.0;
    Speaker(7).levelDB = 5.0;
    CChannelsDlg& panel = OpenPanel();
    panel.Select(1);
    CChannelsLevelsPopupWnd& popup = panel.OpenLevelsPopup();
    EXPECT_EQ(&panel.OpenLevelsPopup(), &popup);  // raised, not made again
    EXPECT_EQ(panel.GetLevelsPopupRaiseCount(), 1);
    EXPECT_EQ(popup.GetTitle().ToUTF8(), "Set Levels From Decibel Meter");
    EXPECT_EQ(popup.GetRowLabel(3).ToUTF8(), "Sub");
    EXPECT_EQ(popup.GetRowLabel(6).ToUTF8(), "RL");
    EXPECT_EQ(popup.GetFocusRow(), 0);

    // Right missing: refused, nothing changes, the popup stays.
    popup.SetField(0, QVString(u"85"));
    popup.SetField(1, QVString(u"0"));
    EXPECT_FALSE(panel.AcceptLevelsPopup());
    EXPECT_EQ(popup.GetMessageCaption().ToUTF8(), "Information");
    EXPECT_EQ(popup.GetMessageText().ToUTF8(),
              "Please enter a decibel meter reading for at least the left and right speakers.");
    EXPECT_EQ(Speaker(1).levelDB, 1.0);
    ASSERT_EQ(panel.GetLevelsPopup(), &popup);

    // Louder reads are turned down, earlier trims relative to Left count in,
    // and a speaker without a reading goes back to 0 dB.
    popup.SetField(1, QVString(u"83,5"));
    popup.SetField(2, QVString(u"86"));
    popup.SetField(7, QVString(u"84.25"));
    EXPECT_TRUE(panel.AcceptLevelsPopup());
    EXPECT_EQ(panel.GetLevelsPopup(), nullptr);
    EXPECT_EQ(Speaker(0).levelDB, 0.0);
    EXPECT_DOUBLE_EQ(Speaker(1).levelDB, (1.0 + 1.0) + (85.0 - 83.5));
    EXPECT_DOUBLE_EQ(Speaker(2).levelDB, (3.0 + 1.0) + (85.0 - 86.0));
    EXPECT_DOUBLE_EQ(Speaker(7).levelDB, (5.0 + 1.0) + (85.0 - 84.25));
    EXPECT_EQ(Speaker(3).levelDB, 0.0);
    // The selected speaker is shown again with its new level, which the old
    // control did not overwrite.
    EXPECT_EQ(panel.GetSelectedChannel(), 1);
    EXPECT_DOUBLE_EQ(panel.GetControls().level, 3.5);
    EXPECT_DOUBLE_EQ(Speaker(1).levelDB, 3.5);
}
