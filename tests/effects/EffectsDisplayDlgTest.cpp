// The panel model: its texts through the translator, the one road every
// control takes (word, save, configure, notify), and the amount control's
// rounding and "n/a".
#include "effects/EffectsDisplayDlg.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <fstream>

#include "effects/EffectsPlugin.h"
#include "support/FileStoreTools.h"
#include "support/TestSupport.h"

namespace
{

using Dlg = CEffectsDisplayDlg;

std::vector<std::string> Utf8(const std::vector<QVString>& texts)
{
    std::vector<std::string> result;
    for (const QVString& text : texts)
        result.push_back(text.ToUTF8());
    return result;
}

// The five words as the store holds them for zone 1, or empty.
std::vector<int32_t> StoredWords(qvtest::ScopedFileStore& store)
{
    QVDllBuffer buffer;
    if (!store.Key(u"Zones\\1\\Effects")->ReadBinary(u"Settings", &buffer, 0) ||
        buffer.GetSize() != 20)
        return {};
    std::vector<int32_t> words(5);
    std::memcpy(words.data(), buffer.GetData(), 20);
    return words;
}

}  // namespace

TEST(EffectsDisplayDlg, TextsAndListsGoThroughTheTranslator)
{
    CEffectsDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    Dlg& panel = *plugin.GetPanel();
    EXPECT_EQ(Utf8(panel.GetChoices(Dlg::GROUP_ENVIRONMENT)),
              (std::vector<std::string>{"(none)", "Concert Hall", "Arena", "Jazz Club",
                                        "Recording Studio", "Living Room"}));
    EXPECT_EQ(Utf8(panel.GetChoices(Dlg::GROUP_SUBWOOFER)),
              (std::vector<std::string>{"(none)", "6\" Subwoofer", "8\" Subwoofer",
                                        "10\" Subwoofer", "12\" Subwoofer", "15\" Subwoofer"}));
    EXPECT_EQ(Utf8(panel.GetChoices(Dlg::GROUP_SURROUND)),
              (std::vector<std::string>{"(none)", "Subtle enhancement", "Medium enhancement",
                                        "Pronounced enhancement", "Maximum enhancement"}));
    EXPECT_EQ(panel.GetHeading(Dlg::GROUP_SUBWOOFER).ToUTF8(), "Virtual Subwoofer");
    EXPECT_EQ(panel.GetHelpText(Dlg::GROUP_SUBWOOFER).ToUTF8(),
              "Simulates the addition of an extra subwoofer, enhancing low frequency response "
              "and 'thump'.");
    qvtest::ScopedTestTools tools;
    EXPECT_EQ(panel.GetHeading(Dlg::GROUP_ENVIRONMENT).ToUTF8(), "[t]Environment");
    EXPECT_EQ(panel.GetHelpText(Dlg::GROUP_SURROUND).ToUTF8(),
              "[t]Simulates a wider, more immersive sound stage.");
    EXPECT_EQ(panel.GetChoices(Dlg::GROUP_ENVIRONMENT)[5].ToUTF8(), "[t]Living Room");
    panel.Select(Dlg::GROUP_ENVIRONMENT, 0);
    EXPECT_EQ(panel.GetAmountText().ToUTF8(), "[t]n/a");
}

TEST(EffectsDisplayDlg, EveryControlSavesConfiguresAndNotifiesOnlyOnAChange)
{
    qvtest::ScopedFileStore store;
    qvtest::CountingHost host;
    CEffectsDSPPlugin plugin(&host, 1);
    plugin.SetFormat(CAudioFormat(64, 48000, 2));
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    Dlg& panel = *plugin.GetPanel();
    CEffectsEngine& engine = plugin.GetEngine();
    EXPECT_EQ(panel.GetSelection(Dlg::GROUP_ENVIRONMENT), 1);
    EXPECT_EQ(panel.GetSelection(Dlg::GROUP_SUBWOOFER), 2);
    EXPECT_EQ(panel.GetSelection(Dlg::GROUP_SURROUND), 2);
    EXPECT_EQ(panel.GetAmountText().ToUTF8(), "4");

    // The same entry again does nothing at all.
    EXPECT_FALSE(panel.Select(Dlg::GROUP_ENVIRONMENT, 1));
    EXPECT_EQ(host.changedCalls, 0);
    EXPECT_EQ(StoredWords(store), std::vector<int32_t>{});

    engine.bassEnvelope.fastLevel = 0.5f;  // Configure starts the envelope anew
    EXPECT_TRUE(panel.Select(Dlg::GROUP_ENVIRONMENT, 2));
    EXPECT_EQ(host.changedCalls, 1);
    EXPECT_EQ(StoredWords(store), (std::vector<int32_t>{2, 4, 2, 1, 2}));
    EXPECT_EQ(engine.reverbs[2].roomSize, 0.9519999891519546);
    EXPECT_EQ(engine.bassEnvelope.fastLevel, 0.0f);
    EXPECT_TRUE(panel.LastSaveSucceeded());

    EXPECT_TRUE(panel.Select(Dlg::GROUP_SUBWOOFER, 5));
    EXPECT_NEAR(engine.subwooferGain, 3.98107171, 1e-8);
    EXPECT_TRUE(panel.Select(Dlg::GROUP_SURROUND, 4));
    EXPECT_EQ(engine.surroundWidth, 1.5);
    EXPECT_EQ(host.changedCalls, 3);
    EXPECT_EQ(StoredWords(store), (std::vector<int32_t>{2, 4, 5, 1, 4}));

    // Entries the lists lack are refused.
    for (int32_t index : {-1, 6, 100})
        EXPECT_FALSE(panel.Select(Dlg::GROUP_ENVIRONMENT, index)) << index;
    EXPECT_FALSE(panel.Select(Dlg::GROUP_SURROUND, 5));
    EXPECT_EQ(host.changedCalls, 3);

    // The amount: rounded to the nearest whole number within 1 to 10.
    EXPECT_TRUE(panel.SetAmount(6.6));
    EXPECT_EQ(panel.GetAmount(), 7);
    EXPECT_NEAR(engine.reverbs[0].wet, 7 * 0.025 * 3.0, 1e-15);
    EXPECT_FALSE(panel.SetAmount(7.4));
    EXPECT_TRUE(panel.SetAmount(7.5));
    EXPECT_EQ(panel.GetAmount(), 8);
    EXPECT_TRUE(panel.SetAmount(42.0));
    EXPECT_EQ(panel.GetAmount(), 10);
    EXPECT_TRUE(panel.SetAmount(-3.0));
    EXPECT_EQ(panel.GetAmount(), 1);
    EXPECT_FALSE(panel.SetAmount(std::nan("")));
    EXPECT_EQ(StoredWords(store), (std::vector<int32_t>{2, 1, 5, 1, 4}));

    // Without an environment the amount does not apply and shows "n/a".
    EXPECT_TRUE(panel.Select(Dlg::GROUP_ENVIRONMENT, 0));
    EXPECT_FALSE(panel.IsAmountEnabled());
    EXPECT_EQ(panel.GetAmountText().ToUTF8(), "n/a");
    const int32_t calls = host.changedCalls;
    EXPECT_FALSE(panel.SetAmount(5.0));
    EXPECT_EQ(panel.GetAmount(), 1);
    EXPECT_EQ(host.changedCalls, calls);

    // A transient plug-in changes and notifies but writes nothing.
    plugin.SetOption(DSPOPT_TRANSIENT);
    EXPECT_TRUE(panel.Select(Dlg::GROUP_ENVIRONMENT, 3));
    EXPECT_TRUE(panel.LastSaveSucceeded());
    EXPECT_EQ(engine.reverbs[0].roomSize, 0.7839999884366989);
    EXPECT_EQ(StoredWords(store), (std::vector<int32_t>{0, 1, 5, 1, 4}));
}

TEST(EffectsDisplayDlg, AStoreThatRefusesTheWriteIsReported)
{
    qvtest::ScopedFileStore store;
    {
        std::ofstream broken(store.tools.path);
        broken << "[";
    }
    CEffectsDSPPlugin plugin(nullptr, 1);
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    EXPECT_TRUE(plugin.GetPanel()->Select(Dlg::GROUP_SUBWOOFER, 0));
    EXPECT_FALSE(plugin.GetPanel()->LastSaveSucceeded());
    // The change itself stands: the sound follows the panel.
    EXPECT_EQ(plugin.GetEngine().subwooferGain, 0.0);
    plugin.SetOption(DSPOPT_TRANSIENT);
}
