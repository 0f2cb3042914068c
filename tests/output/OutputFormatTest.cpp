#include "output/OutputFormatPlugin.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "frame/PluginFactory.h"
#include "support/FileStoreTools.h"
#include "support/TestSupport.h"

namespace
{

constexpr const char16_t* kRecord = u"Zones\\Global\\Audio Settings";

std::vector<std::string> Texts(const COutputFormatChoice& choice)
{
    std::vector<std::string> texts;
    for (const COutputFormatChoice::Entry& entry : choice.entries)
        texts.push_back(entry.text.ToUTF8());
    return texts;
}

std::vector<int32_t> Values(const COutputFormatChoice& choice)
{
    std::vector<int32_t> values;
    for (const COutputFormatChoice::Entry& entry : choice.entries)
        values.push_back(entry.value);
    return values;
}

QM_PLAYER_CORE_SETTINGS Record(int32_t channels, int32_t layout = 0)
{
    QM_PLAYER_CORE_SETTINGS s;
    s.outputChannels = channels;
    s.outputChannelLayout = layout;
    return s;
}

// A plug-in of the global zone with its panel open, over a store of its own.
struct OpenPanel
{
    explicit OpenPanel(qvtest::CountingHost* host = nullptr) : plugin(host, QVZONE_GLOBAL)
    {
        EXPECT_EQ(plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);
        panel = plugin.GetPanel();
    }
    COutputFormatDlg::Controls& C() { return panel->GetControls(); }
    COutputFormatDSPPlugin plugin;
    COutputFormatDlg* panel = nullptr;
};

}  // namespace

TEST(OutputFormat, DerivedSubwooferAndCenter)
{
    struct Case
    {
        int32_t channels, layout;
        bool subwoofer, center;
    };
    const Case cases[] = {
        {0, 0, false, false}, {1, 0, false, false}, {2, 0, false, false}, {3, 0, true, false},
        {4, 0, false, false}, {4, 15, true, true},  {6, 0, true, true},   {8, 0, true, true},
        {10, 0, true, true},  {32, 0, true, true},  {2, 8, true, false},  {2, 4, false, true},
        {7, 0, false, false}, {6, 3, false, false},
    };
    for (const Case& c : cases)
    {
        const QM_PLAYER_CORE_SETTINGS s = Record(c.channels, c.layout);
        EXPECT_EQ(COutputFormatDlg::HasSubwoofer(s), c.subwoofer) << c.channels << "/" << c.layout;
        EXPECT_EQ(COutputFormatDlg::HasCenter(s), c.center) << c.channels << "/" << c.layout;
    }
}

TEST(OutputFormat, ChannelEntriesByEncoding)
{
    COutputFormatDlg::Controls c;
    QM_PLAYER_CORE_SETTINGS s = Record(0);
    EXPECT_FALSE(COutputFormatDlg::BuildControls(s, c));
    EXPECT_EQ(Texts(c.channels),
              (std::vector<std::string>{
                  "Source number of channels", "1 channel (mono)", "2 channels (stereo)",
                  "2.1 channels", "3.1 channels", "4 channels", "5.1 channels", "7.1 channels",
                  "10 channels", "12 channels", "14 channels", "16 channels", "18 channels",
                  "20 channels", "22 channels", "24 channels", "32 channels"}));
    EXPECT_EQ(c.channels.entries[4].value, 4 | (15 << 16));
    EXPECT_EQ(c.channels.entries[5].value, 4);
    EXPECT_EQ(c.channels.selected, 0);
    EXPECT_EQ(c.encoding.entries.size(), 9u);
    EXPECT_EQ(c.encoding.GetSelectedText().ToUTF8(), "None");

    s = Record(6);
    s.outputEncoding = 1;
    EXPECT_FALSE(COutputFormatDlg::BuildControls(s, c));
    EXPECT_EQ(Texts(c.channels),
              (std::vector<std::string>{"3.1 channels", "4 channels", "5.1 channels"}));
    EXPECT_EQ(c.channels.selected, 2);
    EXPECT_EQ(c.encoding.GetSelectedText().ToUTF8(),
              "Dolby Digital (requires external Dolby Digital decoder)");

    // Dolby Digital has no stereo: the first entry, 3.1, takes its place.
    s = Record(2);
    s.outputEncoding = 1;
    EXPECT_TRUE(COutputFormatDlg::BuildControls(s, c));
    EXPECT_EQ(s.outputChannels, 4);
    EXPECT_EQ(s.outputChannelLayout, 15);

    for (int32_t encoding = 2; encoding <= 8; ++encoding)
    {
        s = Record(2);
        s.outputEncoding = encoding;
        EXPECT_FALSE(COutputFormatDlg::BuildControls(s, c));
        EXPECT_EQ(Texts(c.channels), std::vector<std::string>{"2 channels (stereo)"});
        EXPECT_FALSE(c.sampleRates.enabled);
        EXPECT_FALSE(c.extraChannels.enabled);
    }
}

TEST(OutputFormat, StereoOnlyEncodingReplacesSixChannelsAndSaves)
{
    qvtest::ScopedFileStore store;
    store.Key(kRecord)->WriteInt(u"Output Encoding", 2);
    store.Key(kRecord)->WriteInt(u"Output Channels", 6);
    OpenPanel p;
    ASSERT_NE(p.panel, nullptr);
    EXPECT_EQ(Texts(p.C().channels), std::vector<std::string>{"2 channels (stereo)"});
    EXPECT_EQ(p.C().channels.selected, 0);
    EXPECT_EQ(p.plugin.settings.outputChannels, 2);
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Output Channels", -1, 0), 2);
    EXPECT_NE(store.Read(kRecord, u"Last Change Time"), "<none>");
    // Showing the record is no change of a control.
    EXPECT_EQ(p.panel->GetApplyCount(), 0);
}

TEST(OutputFormat, MixingEntriesAndFallback)
{
    COutputFormatDlg::Controls c;
    QM_PLAYER_CORE_SETTINGS s = Record(2);
    s.surroundMode = SURROUND_CLONE_SIDES;
    COutputFormatDlg::BuildControls(s, c);
    EXPECT_EQ(Texts(c.mixing), (std::vector<std::string>{"No upmixing or downmixing", "QVSS"}));
    EXPECT_EQ(Values(c.mixing), (std::vector<int32_t>{2, 1}));
    EXPECT_EQ(c.mixing.selected, 0);

    s = Record(4);
    s.surroundMode = SURROUND_CLONE_SIDES;
    COutputFormatDlg::BuildControls(s, c);
    EXPECT_EQ(Texts(c.mixing),
              (std::vector<std::string>{"No upmixing or downmixing",
                                        "Clone side channels to rear speakers", "QVSS"}));
    EXPECT_EQ(c.mixing.selected, 1);

    EXPECT_EQ(Texts(c.extraChannels),
              (std::vector<std::string>{"None", "1 channel", "2 channels", "3 channels",
                                        "4 channels", "6 channels", "8 channels", "10 channels",
                                        "12 channels", "14 channels", "16 channels"}));
}

TEST(OutputFormat, CenterTextsAndEnableRule)
{
    COutputFormatDlg::Controls c;
    QM_PLAYER_CORE_SETTINGS s = Record(2);
    s.centerLevel = 3;
    COutputFormatDlg::BuildControls(s, c);
    ASSERT_EQ(c.center.entries.size(), 25u);
    EXPECT_EQ(c.center.entries.front().text.ToUTF8(), "-12 dB");
    EXPECT_EQ(c.center.entries[11].text.ToUTF8(), "-1 dB");
    EXPECT_EQ(c.center.entries[12].text.ToUTF8(), "0 dB");
    EXPECT_EQ(c.center.entries[13].text.ToUTF8(), "+1 dB");
    EXPECT_EQ(c.center.entries.back().text.ToUTF8(), "+12 dB");
    EXPECT_EQ(c.center.GetSelectedText().ToUTF8(), "+3 dB");
    EXPECT_TRUE(c.center.enabled);

    struct Case
    {
        int32_t channels, layout, encoding, mode;
        bool enabled;
    };
    const Case cases[] = {
        {2, 0, 0, 1, true},  {6, 0, 0, 1, false}, {4, 15, 0, 1, false}, {2, 0, 1, 1, false},
        {2, 0, 0, 2, false}, {4, 0, 0, 0, false}, {3, 0, 0, 1, true},   {0, 0, 0, 1, true},
    };
    for (const Case& k : cases)
    {
        s = Record(k.channels, k.layout);
        s.outputEncoding = k.encoding;
        s.surroundMode = k.mode;
        COutputFormatDlg::BuildControls(s, c);
        EXPECT_EQ(c.center.enabled, k.enabled)
            << k.channels << "/" << k.layout << " enc " << k.encoding << " mode " << k.mode;
    }
}

TEST(OutputFormat, CheckBoxesSubwooferAndBassfirmRules)
{
    COutputFormatDlg::Controls c;
    QM_PLAYER_CORE_SETTINGS s = Record(2);
    s.subwooferCutoff = 60;
    s.subwooferCutoffDownmix = 120;
    COutputFormatDlg::BuildControls(s, c);
    EXPECT_FALSE(c.twoPointOne.enabled);
    EXPECT_FALSE(c.phantomCenter.enabled);
    EXPECT_TRUE(c.pseudoSurround.enabled);
    EXPECT_FALSE(c.bassfirm.enabled);
    ASSERT_EQ(c.subwoofer.entries.size(), 2u + 57u);  // 20 to 300 Hz in steps of 5
    EXPECT_EQ(c.subwoofer.entries[0].text.ToUTF8(), "Silent (don't use subwoofer in downmix)");
    EXPECT_EQ(c.subwoofer.entries[1].text.ToUTF8(), "Downmix all frequencies (not recommended)");
    EXPECT_EQ(c.subwoofer.entries[2].text.ToUTF8(), "QVSS Subwoofer (20 Hz low-pass)");
    EXPECT_EQ(c.subwoofer.entries.back().text.ToUTF8(), "QVSS Subwoofer (300 Hz low-pass)");
    EXPECT_EQ(c.subwoofer.GetValue(0), 120);  // no subwoofer: the downmix cutoff

    s = Record(6);
    s.subwooferCutoff = 60;
    COutputFormatDlg::BuildControls(s, c);
    EXPECT_TRUE(c.twoPointOne.enabled);
    EXPECT_TRUE(c.phantomCenter.enabled);
    EXPECT_TRUE(c.bassfirm.enabled);
    EXPECT_EQ(c.subwoofer.entries[0].text.ToUTF8(),
              "Silent (use Room Correction to redirect bass to subwoofer)");
    EXPECT_EQ(c.subwoofer.entries[1].text.ToUTF8(),
              "Send all frequencies to subwoofer (external low-pass filter recommended)");
    EXPECT_EQ(c.subwoofer.GetValue(0), 60);

    // Bassfirm needs a low-pass; "No upmixing" disables everything that mixes.
    s.subwooferCutoff = 0;
    COutputFormatDlg::BuildControls(s, c);
    EXPECT_FALSE(c.bassfirm.enabled);
    s.subwooferCutoff = 80;
    s.surroundMode = SURROUND_NONE;
    COutputFormatDlg::BuildControls(s, c);
    EXPECT_FALSE(c.twoPointOne.enabled || c.phantomCenter.enabled || c.pseudoSurround.enabled ||
                 c.subwoofer.enabled || c.bassfirm.enabled);
    // Source channels: no pseudo-surround detection.
    s = Record(0);
    COutputFormatDlg::BuildControls(s, c);
    EXPECT_FALSE(c.pseudoSurround.enabled);
}

TEST(OutputFormat, SampleRateListTexts)
{
    EXPECT_EQ(COutputFormatSampleRateList::GetColumnTitle(0).ToUTF8(), "Input");
    EXPECT_EQ(COutputFormatSampleRateList::GetColumnTitle(1).ToUTF8(), "Output");
    EXPECT_EQ(COutputFormatSampleRateList::GetInputText(0).ToUTF8(), "Less than 44,100 Hz");
    EXPECT_EQ(COutputFormatSampleRateList::GetInputText(6).ToUTF8(), "192,000 Hz");
    EXPECT_EQ(COutputFormatSampleRateList::GetInputText(11).ToUTF8(), "Greater than 768,000 Hz");
    EXPECT_EQ(COutputFormatSampleRateList::GetOutputText(0).ToUTF8(), "No change");
    EXPECT_EQ(COutputFormatSampleRateList::GetOutputText(44100).ToUTF8(), "44,100 Hz");
    EXPECT_EQ(COutputFormatSampleRateList::GetOutputText(768000).ToUTF8(), "768,000 Hz");
    EXPECT_EQ(COutputFormatSampleRateList::GetOutputText(1234567).ToUTF8(), "1,234,567 Hz");
    EXPECT_EQ(COutputFormatSampleRateList::GetOutputText(500).ToUTF8(), "500 Hz");
    EXPECT_EQ(COutputFormatSampleRateList::GetSetAllText(96000).ToUTF8(), "Set all to 96,000 Hz");
    EXPECT_EQ(COutputFormatSampleRateList::GetOfferedValues(),
              (std::vector<int32_t>{0, 44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000,
                                    705600, 768000}));
    // Every visible text goes through the translator.
    qvtest::ScopedTestTools tools;
    EXPECT_EQ(COutputFormatSampleRateList::GetOutputText(0).ToUTF8(), "[t]No change");
    EXPECT_EQ(COutputFormatDlg::GetTexts().size(), 20u);
    EXPECT_EQ(COutputFormatDlg::GetTexts()[2].ToUTF8(), "[t]Output Encoding");
}

TEST(OutputFormat, ApplyTakesControlsAgainstTheRecordBeforeTheChange)
{
    qvtest::ScopedFileStore store;
    store.Key(kRecord)->WriteInt(u"Output Channels", 2);
    store.Key(kRecord)->WriteInt(u"Center Level", -3);
    qvtest::CountingHost host;
    OpenPanel p(&host);
    EXPECT_EQ(p.C().center.GetSelectedText().ToUTF8(), "-3 dB");

    // To 5.1: the centre level stays, since there was no centre before.
    p.panel->SelectEntry(p.C().channels, p.C().channels.FindValue(6));
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Output Channels", -1, 0), 6);
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Center Level", 99, 0), -3);
    EXPECT_EQ(host.changedCalls, 1);
    EXPECT_EQ(p.panel->GetApplyCount(), 1);
    EXPECT_FALSE(p.C().center.enabled);

    // The next change finds a centre: the level goes to 0.
    p.panel->SetChecked(p.C().pseudoSurround, false);
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Center Level", 99, 0), 0);
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Output Pseudo Surround Detection", 99, 0), 0);
    EXPECT_EQ(host.changedCalls, 2);

    // What another program changed meanwhile stays.
    store.Key(kRecord)->WriteInt(u"Use SoX For Resampling", 1);
    store.Key(kRecord)->WriteInt(u"Allow Custom Output Format", 1);
    p.panel->SetRate(4, 48000);
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Use SoX For Resampling", 99, 0), 1);
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Allow Custom Output Format", 99, 0), 1);
    EXPECT_EQ(store.Read(kRecord, u"Output Sample Rate Settings"),
              "(1:1)(1:0)(1:0)(1:0)(1:0)(5:48000)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)");
    p.panel->SetAllRates(96000);
    EXPECT_EQ(p.plugin.settings.sampleRateTable[0], 96000);
    EXPECT_EQ(p.plugin.settings.sampleRateTable[11], 96000);
}

TEST(OutputFormat, SubwooferChoiceGoesToTheCutoffOfTheLayout)
{
    qvtest::ScopedFileStore store;
    store.Key(kRecord)->WriteInt(u"Output Channels", 2);
    OpenPanel p;
    p.panel->SelectEntry(p.C().subwoofer, p.C().subwoofer.FindValue(80));
    EXPECT_EQ(p.plugin.settings.subwooferCutoffDownmix, 80);
    EXPECT_EQ(p.plugin.settings.subwooferCutoff, 60);

    p.panel->SelectEntry(p.C().channels, p.C().channels.FindValue(3));  // 2.1
    p.panel->SelectEntry(p.C().subwoofer, p.C().subwoofer.FindValue(-1));
    EXPECT_EQ(p.plugin.settings.subwooferCutoff, -1);
    EXPECT_EQ(p.plugin.settings.subwooferCutoffDownmix, 80);
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Output Surround Subwoofer Cutoff", 0, 0), -1);
    EXPECT_FALSE(p.C().bassfirm.enabled);

    // Encoding: stereo only, and mixing to none keeps the check boxes' values.
    p.panel->SelectEntry(p.C().encoding, p.C().encoding.FindValue(3));
    EXPECT_EQ(p.plugin.settings.outputEncoding, 3);
    EXPECT_EQ(p.plugin.settings.outputChannels, 2);
    EXPECT_EQ(store.Key(kRecord)->ReadInt(u"Output Channels", -1, 0), 2);
}

TEST(OutputFormat, PluginCommandsAndPassThrough)
{
    qvtest::ScopedFileStore store;
    qvtest::CountingHost host;
    std::unique_ptr<IQVDSP> made(CreateDSPPlugin(DSPPLUGIN_OUTPUT_FORMAT, &host, 0, false));
    ASSERT_NE(made, nullptr);
    char16_t name[DSPINFO_TEXT_CAPACITY];
    ASSERT_EQ(made->GetInfo(DSPINFO_NAME, name), 0);
    EXPECT_EQ(QVString(name).ToUTF8(), "Output Format");
    auto& plugin = dynamic_cast<COutputFormatDSPPlugin&>(*made);
    EXPECT_EQ(plugin.settings.zone, 0);

    EXPECT_EQ(plugin.Command(DSPCMD_SET_STATE, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.Command(DSPCMD_DESCRIBE, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.Command(DSPCMD_QUERY_FLAG, nullptr, nullptr), 1);
    EXPECT_EQ(plugin.Command(DSPCMD_GET_LATENCY, nullptr, nullptr), -1);

    // Reload without a panel reads the record; with one, the panel shows it.
    store.Key(u"Zones\\0\\Audio Settings")->WriteInt(u"Output Channels", 8);
    EXPECT_EQ(plugin.Command(DSPCMD_RELOAD, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.settings.outputChannels, 8);
    EXPECT_EQ(plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);
    ASSERT_NE(plugin.GetPanel(), nullptr);
    const int32_t refreshes = plugin.GetPanel()->GetRefreshCount();
    store.Key(u"Zones\\0\\Audio Settings")->WriteInt(u"Output Channels", 6);
    EXPECT_EQ(plugin.Command(DSPCMD_RELOAD, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.GetPanel()->GetRefreshCount(), refreshes + 1);
    EXPECT_EQ(plugin.GetPanel()->GetControls().channels.GetSelectedText().ToUTF8(), "5.1 channels");
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.GetPanel(), nullptr);

    // Blocks pass unchanged, with their frame count.
    ASSERT_EQ(plugin.SetFormat(CAudioFormat(64, 96000, 6)), 0);
    const std::vector<double> signal = qvtest::Sine(300, 6, 440.0, 96000.0, 0.7);
    std::vector<double> block = signal;
    qvtest::CollectingSink sink(6);
    EXPECT_EQ(plugin.Process(block.data(), 300, &sink), 0);
    EXPECT_EQ(sink.totalFrames, 300);
    EXPECT_EQ(block, signal);
    EXPECT_EQ(host.changedCalls, 0);
}
