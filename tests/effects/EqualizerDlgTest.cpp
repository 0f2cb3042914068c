// The panel model: the slider rules in both directions, "Custom" when a slider
// moves under a named preset, the sorted preset list, and the "Manage" menu.
#include "effects/EqualizerDlg.h"

#include <gtest/gtest.h>

#include <cmath>

#include "EqualizerTestSupport.h"
#include "effects/EqualizerPlugin.h"

using namespace eqtest;

namespace
{
std::vector<std::string> Names(const QVStringArray& names)
{
    std::vector<std::string> result;
    for (const QVString& name : names)
        result.push_back(name.ToUTF8());
    return result;
}
}  // namespace

TEST(EqualizerDlg, SliderRules)
{
    EXPECT_EQ(CEqualizerDlg::CharacterFromSlider(-12.0), u'n');
    EXPECT_EQ(CEqualizerDlg::CharacterFromSlider(0.0), u'O');
    EXPECT_EQ(CEqualizerDlg::CharacterFromSlider(12.0), u'0');
    // (0.5 + 12) x 62 / 24 = 32.29 -> 32 -> character 62 - 32 + 48 = 'N'.
    EXPECT_EQ(CEqualizerDlg::CharacterFromSlider(0.5), u'N');
    // (-11 + 12) x 62 / 24 = 2.58 -> 3 -> 'k' (107).
    EXPECT_EQ(CEqualizerDlg::CharacterFromSlider(-11.0), u'k');
    // Beyond the range: clamped to the ends.
    EXPECT_EQ(CEqualizerDlg::CharacterFromSlider(40.0), u'0');
    EXPECT_EQ(CEqualizerDlg::CharacterFromSlider(-40.0), u'n');

    EXPECT_EQ(CEqualizerDlg::SliderFromCharacter(u'O'), 0.0);
    EXPECT_EQ(CEqualizerDlg::SliderFromCharacter(u'0'), 12.0);
    EXPECT_EQ(CEqualizerDlg::SliderFromCharacter(u'n'), -12.0);
    // 'C': v = 19, 144/31 = 4.645 dB, shown as 4.5.
    EXPECT_EQ(CEqualizerDlg::SliderFromCharacter(u'C'), 4.5);
    // Code 0 (a short setting) would be +30.6 dB: clamped.
    EXPECT_EQ(CEqualizerDlg::SliderFromCharacter(u'\0'), 12.0);
    // Every character shows within a quarter dB of its gain, on the 0.5 grid,
    // and the slider position written back lands within one character.
    for (char16_t c = u'0'; c <= u'n'; ++c)
    {
        const double shown = CEqualizerDlg::SliderFromCharacter(c);
        EXPECT_NEAR(shown, CEqualizerEngine::GainFromValue(c - 48), 0.25 + 1e-12)
            << static_cast<int>(c);
        EXPECT_EQ(std::fmod(shown * 2.0, 1.0), 0.0);
        EXPECT_LE(std::abs(CEqualizerDlg::CharacterFromSlider(shown) - c), 1)
            << static_cast<int>(c);
    }
}

TEST(EqualizerDlg, LabelsAndTexts)
{
    ScopedStore store;
    CEqualizerDSPPlugin plugin(nullptr, 1);
    CEqualizerDlg panel(plugin);
    panel.Open();
    EXPECT_EQ(panel.GetSliderLabel(0).ToUTF8(), "Pre\r\nAmp");
    EXPECT_EQ(panel.GetSliderLabel(1).ToUTF8(), "31.3\r\nHz");
    EXPECT_EQ(panel.GetSliderLabel(11).ToUTF8(), "1\r\nkHz");
    EXPECT_EQ(panel.GetSliderLabel(20).ToUTF8(), "20\r\nkHz");
    EXPECT_EQ(panel.GetSliderText(3).ToUTF8(), "0.0\r\ndB");
    panel.MoveSlider(3, -7.5);
    EXPECT_EQ(panel.GetSliderText(3).ToUTF8(), "-7.5\r\ndB");
    EXPECT_EQ(panel.GetPresetText().ToUTF8(), "Custom");
    EXPECT_EQ(panel.GetDeleteQuestion(QVString(u"Rock")).ToUTF8(),
              "Are you sure you want to delete 'Rock'?");
}

TEST(EqualizerDlg, MovingASliderUnderAPresetShowsCustomAndWritesTheSetting)
{
    ScopedStore store;
    qvtest::CountingHost host;
    CEqualizerDSPPlugin plugin(&host, 1);
    CEqualizerDlg panel(plugin);
    panel.Open();
    panel.ChoosePreset(QVString(u"Rock"));
    EXPECT_EQ(panel.GetPresetText().ToUTF8(), "Rock");
    EXPECT_EQ(panel.GetSliderValue(1), 4.5);
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Preset"), "Rock");
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Settings"), "OCCKKUUYYUUNNKKCCCCCC");

    const int32_t notified = host.changedCalls;
    panel.MoveSlider(0, 12.0);
    EXPECT_EQ(plugin.GetPresets().settings.ToUTF8(), "0CCKKUUYYUUNNKKCCCCCC");
    EXPECT_TRUE(plugin.GetPresets().preset.IsEmpty());
    EXPECT_EQ(panel.GetPresetText().ToUTF8(), "Custom");
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Settings"), "0CCKKUUYYUUNNKKCCCCCC");
    EXPECT_DOUBLE_EQ(plugin.GetEngine().GetPreampGain(), 12.0);  // heard at once
    EXPECT_EQ(host.changedCalls, notified + 1);

    panel.MoveSlider(20, 0.0);
    panel.MoveSlider(10, -12.0);
    EXPECT_EQ(plugin.GetPresets().settings.ToUTF8(), "0CCKKUUYYUnNNKKCCCCCO");
    // The Rock preset itself is untouched.
    EXPECT_EQ(plugin.GetPresets().FindPreset(QVString(u"Rock"))->ToUTF8(), "OCCKKUUYYUUNNKKCCCCCC");
}

TEST(EqualizerDlg, ManageSaveDeleteAndReset)
{
    ScopedStore store;
    CEqualizerDSPPlugin plugin(nullptr, 1);
    CEqualizerDlg panel(plugin);
    panel.Open();
    EXPECT_EQ(Names(panel.GetPresetNames()),
              (std::vector<std::string>{"Blues", "Classical", "Country", "Flat", "Hip-Hop", "Live",
                                        "Rock"}));

    panel.MoveSlider(5, 6.0);
    EXPECT_FALSE(panel.SavePresetAs(QVString(u"Mine"), false));  // cancelled
    EXPECT_FALSE(panel.SavePresetAs(QVString(u"  "), true));     // no name
    EXPECT_TRUE(panel.SavePresetAs(QVString(u"Mine"), true));
    EXPECT_EQ(panel.GetPresetText().ToUTF8(), "Mine");
    EXPECT_EQ(store.Read(PRESETS_KEY, u"Mine"), plugin.GetPresets().settings.ToUTF8());
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Preset"), "Mine");
    EXPECT_EQ(panel.GetPresetNames().GetCount(), 8);

    // Saving under an existing name in another case replaces that preset.
    panel.MoveSlider(6, -6.0);
    EXPECT_TRUE(panel.SavePresetAs(QVString(u"rock"), true));
    EXPECT_EQ(panel.GetPresetNames().GetCount(), 8);
    EXPECT_EQ(store.Read(PRESETS_KEY, u"Rock"), "<none>");
    EXPECT_EQ(store.Read(PRESETS_KEY, u"rock"), plugin.GetPresets().settings.ToUTF8());

    EXPECT_FALSE(panel.DeletePreset(QVString(u"Mine"), false));
    EXPECT_TRUE(panel.DeletePreset(QVString(u"Mine"), true));
    EXPECT_FALSE(panel.DeletePreset(QVString(u"Mine"), true));  // already gone
    EXPECT_EQ(store.Read(PRESETS_KEY, u"Mine"), "<none>");
    // Deleting the current preset leaves its setting, now "Custom".
    EXPECT_TRUE(panel.DeletePreset(QVString(u"ROCK"), true));
    EXPECT_EQ(panel.GetPresetText().ToUTF8(), "Custom");
    EXPECT_EQ(panel.GetPresetNames().GetCount(), 6);

    EXPECT_FALSE(panel.ResetAllPresets(false));
    EXPECT_TRUE(panel.ResetAllPresets(true));
    EXPECT_EQ(panel.GetPresetNames().GetCount(), 7);
    EXPECT_EQ(store.Read(PRESETS_KEY, u"Rock"), "OCCKKUUYYUUNNKKCCCCCC");
    EXPECT_EQ(QVListValueNames(*store.Key(PRESETS_KEY)).size(), 7u);
}
