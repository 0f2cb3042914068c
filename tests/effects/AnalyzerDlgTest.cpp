// The panel model: the frequency fields' text rules, the range in its two
// places of the store, the check box, and a paint that pulls a frame.
#include "effects/AnalyzerDlg.h"

#include <gtest/gtest.h>

#include "AnalyzerTestSupport.h"
#include "support/FileStoreTools.h"
#include "support/TestSupport.h"

namespace
{

constexpr const char16_t* ZONE_KEY = u"Zones\\4\\Analyzer";

}  // namespace

TEST(AnalyzerDlg, FrequencyFieldTexts)
{
    EXPECT_EQ(CAnalyzerDlg::FrequencyText(40).ToUTF8(), "40");
    EXPECT_EQ(CAnalyzerDlg::FrequencyText(999.7).ToUTF8(), "999");
    EXPECT_EQ(CAnalyzerDlg::FrequencyText(1000).ToUTF8(), "1.0K");
    EXPECT_EQ(CAnalyzerDlg::FrequencyText(1550).ToUTF8(), "1.6K");
    EXPECT_EQ(CAnalyzerDlg::FrequencyText(18000).ToUTF8(), "18.0K");

    struct Case
    {
        const char16_t* text;
        double hz;
    };
    for (const Case& c : {Case{u"40", 40}, Case{u"12.5", 12.5}, Case{u"12,5", 12.5},
                          Case{u"1,5K", 1500}, Case{u"18.0K", 18000}, Case{u"K2", 2000},
                          Case{u"2 K", 2000}, Case{u"", 0}, Case{u"abc", 0}})
        EXPECT_DOUBLE_EQ(CAnalyzerDlg::ParseFrequency(QVString(c.text)), c.hz)
            << QVString(c.text).ToUTF8();
}

TEST(AnalyzerDlg, RangeComesFromTheStoreAndEditsAreSavedTruncated)
{
    qvtest::ScopedFileStore store;
    // The older key gives the defaults; the zone key wins where it has a value.
    auto legacy = store.Key(CAnalyzerDlg::RANGE_LEGACY_KEY);
    legacy->WriteInt(QVZoneValueName(*legacy, u"Minimum Frequency", 4).c_str(), 25);
    legacy->WriteInt(QVZoneValueName(*legacy, u"Maximum Frequency", 4).c_str(), 12000);
    store.Key(ZONE_KEY)->WriteInt(u"Maximum Frequency", 16000);
    CAnalyzerDSPPlugin plugin(nullptr, 4);
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    CAnalyzerDlg* panel = plugin.GetPanel();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->GetMinimumText().ToUTF8(), "25");
    EXPECT_EQ(panel->GetMaximumText().ToUTF8(), "16.0K");
    EXPECT_EQ(panel->GetDraw().GetMinimumFrequency(), 25.0);
    EXPECT_EQ(panel->GetDraw().GetMaximumFrequency(), 16000.0);
    EXPECT_EQ(panel->GetDraw().GetFftSize(), 4096);
    // Filling in its own fields saved nothing.
    EXPECT_EQ(store.Key(ZONE_KEY)->GetValueType(u"Minimum Frequency"), SETTINGS_TYPE_NONE);

    panel->SetMinimumText(QVString(u"62,9"));
    EXPECT_EQ(panel->GetDraw().GetMinimumFrequency(), 62.9);
    EXPECT_EQ(store.Key(ZONE_KEY)->ReadInt(u"Minimum Frequency", -1, 0), 62);
    EXPECT_EQ(store.Key(ZONE_KEY)->ReadInt(u"Maximum Frequency", -1, 0), 16000);
    panel->SetMaximumText(QVString(u"1.25K"));
    EXPECT_EQ(store.Key(ZONE_KEY)->ReadInt(u"Maximum Frequency", -1, 0), 1250);
    EXPECT_TRUE(panel->GetDraw().IsValid());
    // A range the rules refuse is still saved as typed; the plot goes blank.
    panel->SetMaximumText(QVString(u"80"));
    EXPECT_FALSE(panel->GetDraw().IsValid());
    EXPECT_EQ(store.Key(ZONE_KEY)->ReadInt(u"Maximum Frequency", -1, 0), 80);

    // The check box switches N in the plug-in and in the plot, and is saved.
    panel->SetHighResolution(true);
    EXPECT_EQ(plugin.GetFftSize(), 16384);
    EXPECT_EQ(panel->GetDraw().GetFftSize(), 16384);
    EXPECT_EQ(store.Key(ZONE_KEY)->ReadInt(u"High Resolution", -1, 0), 1);

    // A new panel reads what was saved.
    plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr);
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    EXPECT_EQ(plugin.GetPanel()->GetMinimumText().ToUTF8(), "62");
    EXPECT_TRUE(plugin.GetPanel()->GetHighResolution());
}

TEST(AnalyzerDlg, PaintPullsAFrameAndDrawsItsTraces)
{
    qvtest::ScopedFileStore store;
    CAnalyzerDSPPlugin plugin(nullptr, 4);
    plugin.SetFormat(CAudioFormat(64, 44100, 2));
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    CAnalyzerDlg& panel = *plugin.GetPanel();
    const CAnalyzerRect plot{0, 0, 300, 150};
    EXPECT_FALSE(panel.Paint(plot));
    EXPECT_TRUE(panel.GetTraces().empty()) << "no traces before the first frame";
    EXPECT_EQ(panel.GetLevelLine().ToUTF8(), "<font color=\"FF8000\">Volume RMS: 0.0 dB</font>  "
                                             "<font color=\"0080FF\">Left: 0.0 dB   </font>"
                                             "<font color=\"FFFF00\">Right: 0.0 dB   </font>");

    // A 1 kHz-ish tone on the centre of bin 93 in the left channel only.
    const double frequency = analyzertest::BinFrequency(93, 4096, 44100.0);
    std::vector<double> signal(4096 * 2, 0.0);
    const std::vector<double> sine = qvtest::Sine(4096, 1, frequency, 44100.0, 0.5);
    for (int32_t f = 0; f < 4096; ++f)
        signal[2 * f] = sine[f];
    qvtest::CollectingSink sink(2);
    qvtest::RunInBlocks(plugin, signal, 2, 1024, sink);
    EXPECT_TRUE(panel.Paint(plot));
    ASSERT_EQ(panel.GetTraces().size(), 3u);
    // The highest point of the left trace lies at the tone's column, and the
    // sum over both channels equals it where the right channel is silent.
    const CAnalyzerTrace& sum = panel.GetTraces()[0];
    const CAnalyzerTrace& left = panel.GetTraces()[1];
    const CAnalyzerTrace& right = panel.GetTraces()[2];
    const size_t highest = std::min_element(left.rows.begin(), left.rows.end()) - left.rows.begin();
    const double columnHz = panel.GetDraw().GetColumnFrequencies()[static_cast<int32_t>(highest)];
    EXPECT_NEAR(columnHz, frequency, frequency * 0.06);
    EXPECT_EQ(sum.rows, left.rows);
    for (int32_t row : right.rows)
        EXPECT_EQ(row, 149);
    EXPECT_NE(panel.GetLevelLine().ToUTF8().find("Right: 0.0 dB"), std::string::npos);
    EXPECT_EQ(panel.GetLevelLine().ToUTF8().find("Left: 0.0 dB"), std::string::npos);
}
