#include "output/OutputFormatDlg.h"

#include <algorithm>

#include "frame/IQVTools.h"
#include "output/OutputFormatPlugin.h"

namespace
{

struct ValueText
{
    int32_t value;
    const char16_t* text;
};

const ValueText kEncodings[] = {
    {0, u"None"},
    {1, u"Dolby Digital (requires external Dolby Digital decoder)"},
    {2, u"DSD in DoP format (requires DSD capable DAC)"},
    {3, u"2xDSD in DoP format (requires DSD capable DAC)"},
    {4, u"4xDSD in DoP format (requires DSD capable DAC)"},
    {5, u"1xDSD in native format (requires ASIO and 1xDSD capable DAC)"},
    {6, u"2xDSD in native format (requires ASIO and 2xDSD capable DAC)"},
    {7, u"4xDSD in native format (requires ASIO and 4xDSD capable DAC)"},
    {8, u"8xDSD in native format (requires ASIO and 8xDSD capable DAC)"},
};

constexpr int32_t kEncodingNone = 0;
constexpr int32_t kEncodingDolbyDigital = 1;
constexpr int32_t kEncodingLastDSD = 8;

// One entry of the channel list: the encodings that offer it, its text (a
// format with the count where it has "%d") and its pair.
struct ChannelEntry
{
    bool withNone;
    bool withDolby;
    bool withDSD;
    const char16_t* text;
    int32_t channels;
    int32_t layout;
};

const ChannelEntry kChannelEntries[] = {
    {true, false, false, u"Source number of channels", 0, 0},
    {true, false, false, u"1 channel (mono)", 1, 0},
    {true, false, true, u"2 channels (stereo)", 2, 0},
    {true, false, false, u"2.1 channels", 3, 0},
    {true, true, false, u"3.1 channels", 4, PLAYER_CORE_LAYOUT_3_1},
    {true, true, false, u"%d channels", 4, 0},
    {true, true, false, u"5.1 channels", 6, 0},
    {true, false, false, u"7.1 channels", 8, 0},
    {true, false, false, u"%d channels", 10, 0},
    {true, false, false, u"%d channels", 12, 0},
    {true, false, false, u"%d channels", 14, 0},
    {true, false, false, u"%d channels", 16, 0},
    {true, false, false, u"%d channels", 18, 0},
    {true, false, false, u"%d channels", 20, 0},
    {true, false, false, u"%d channels", 22, 0},
    {true, false, false, u"%d channels", 24, 0},
    {true, false, false, u"%d channels", 32, 0},
};

const int32_t kPaddingCounts[] = {2, 3, 4, 6, 8, 10, 12, 14, 16};

constexpr int32_t kCenterMinDb = -12;
constexpr int32_t kCenterMaxDb = 12;
constexpr int32_t kSubwooferMinHz = 20;
constexpr int32_t kSubwooferMaxHz = 300;
constexpr int32_t kSubwooferStepHz = 5;

bool OffersChannels(const ChannelEntry& entry, int32_t encoding)
{
    if (encoding == kEncodingNone)
        return entry.withNone;
    if (encoding == kEncodingDolbyDigital)
        return entry.withDolby;
    return encoding > kEncodingDolbyDigital && encoding <= kEncodingLastDSD && entry.withDSD;
}

void Add(COutputFormatChoice& choice, const QVString& text, int32_t value)
{
    choice.entries.push_back({text, value});
}

void Select(COutputFormatChoice& choice, int32_t value)
{
    choice.selected = choice.FindValue(value);
}

// Thousands grouped with ",", as the rate list shows them.
QVString GroupedNumber(int32_t value)
{
    QVString digits = QVString::FromInt(value);
    QVString result;
    const int32_t length = digits.GetLength();
    for (int32_t i = 0; i < length; ++i)
    {
        if (i > 0 && (length - i) % 3 == 0 && digits[i - 1] != u'-')
            result += u',';
        result += digits[i];
    }
    return result;
}

}  // namespace

int32_t COutputFormatChoice::FindValue(int32_t value) const
{
    for (size_t i = 0; i < entries.size(); ++i)
        if (entries[i].value == value)
            return static_cast<int32_t>(i);
    return -1;
}

int32_t COutputFormatChoice::GetValue(int32_t fallback) const
{
    if (selected < 0 || selected >= static_cast<int32_t>(entries.size()))
        return fallback;
    return entries[static_cast<size_t>(selected)].value;
}

QVString COutputFormatChoice::GetSelectedText() const
{
    if (selected < 0 || selected >= static_cast<int32_t>(entries.size()))
        return QVString();
    return entries[static_cast<size_t>(selected)].text;
}

const int32_t COutputFormatSampleRateList::kOfferedRates[kOfferedRateCount] = {
    44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000, 705600, 768000};

QVString COutputFormatSampleRateList::GetColumnTitle(int32_t column)
{
    return QVTranslated(column == 0 ? u"Input" : u"Output");
}

QVString COutputFormatSampleRateList::GetInputText(int32_t row)
{
    static const char16_t* const kRows[PLAYER_CORE_RATE_CLASSES] = {
        u"Less than 44,100 Hz", u"44,100 Hz",  u"48,000 Hz",  u"88,200 Hz",
        u"96,000 Hz",           u"176,400 Hz", u"192,000 Hz", u"352,800 Hz",
        u"384,000 Hz",          u"705,600 Hz", u"768,000 Hz", u"Greater than 768,000 Hz"};
    if (row < 0 || row >= PLAYER_CORE_RATE_CLASSES)
        return QVString();
    return QVTranslated(kRows[row]);
}

QVString COutputFormatSampleRateList::GetOutputText(int32_t rate)
{
    if (rate == 0)
        return QVTranslated(u"No change");
    return GroupedNumber(rate) + u" Hz";
}

std::vector<int32_t> COutputFormatSampleRateList::GetOfferedValues()
{
    std::vector<int32_t> values{0};
    values.insert(values.end(), std::begin(kOfferedRates), std::end(kOfferedRates));
    return values;
}

QVString COutputFormatSampleRateList::GetSetAllText(int32_t rate)
{
    return QVTranslated(u"Set all to ") + GetOutputText(rate);
}

COutputFormatDlg::COutputFormatDlg(COutputFormatDSPPlugin* owner) : plugin(owner) {}

QM_PLAYER_CORE_SETTINGS_PLAYBACK& COutputFormatDlg::GetSettings()
{
    return plugin->settings;
}

void COutputFormatDlg::Open()
{
    Refresh();
}

std::vector<QVString> COutputFormatDlg::GetTexts()
{
    static const char16_t* const kTexts[] = {
        u"Advanced settings like multi-channel output or high sample rates require a sound card "
        u"capable of these modes.",
        u"Sound can be output in any format.  For example, you can listen to an audio CD in 5.1 "
        u"surround at 32-bit / 192 kHz.",
        u"Output Encoding",
        u"You can optionally encode the output for use with a decoder built into your receiver or "
        u"DAC.",
        u"Sample rate",
        u"Sample rate is the frequency of playback.  The program uses an audiophile grade "
        u"resampler.\r\n\r\n",
        u"No changes are made if the same sample rate is selected as the input.  Requires stop of "
        u"playback for changes to take effect.",
        u"Click in the output column to select a sample rate for each input sample rate.  "
        u"Right-click to set all at once.",
        u"Channels",
        u"Channels is the number of speakers used for playback.\r\n\r\n",
        u"No changes are made if the same number of channels is selected as the input.  Requires "
        u"stop of playback for changes to take effect",
        u"Channels:",
        u"Extra Channels:",
        u"Mixing:",
        u"QVSS mixing provides high-quality upmixing (stereo to 5.1, 5.1 to 7.1, etc.) and "
        u"downmixing (5.1 to stereo, 7.1 to 4.0, etc.).\r\n",
        u"Center:",
        u"Subwoofer",
        u"Subwoofer settings control how the subwoofer and LFE channel is handled.  The settings "
        u"are only meaningful if you have a subwoofer",
        u"Please use the bass management features of 'Room Correction' if you wish to redirect "
        u"bass to the subwoofer.",
        u"When source has no subwoofer (Stereo, etc.) and 'Channels' selection includes a "
        u"subwoofer, or subwoofer is being downmixed:",
    };
    std::vector<QVString> texts;
    for (const char16_t* text : kTexts)
        texts.push_back(QVTranslated(text));
    return texts;
}

bool COutputFormatDlg::HasSubwoofer(const QM_PLAYER_CORE_SETTINGS& s)
{
    if ((s.outputChannelLayout & PLAYER_CORE_LAYOUT_SUBWOOFER) != 0)
        return true;
    return s.outputChannelLayout == 0 &&
           (s.outputChannels == 3 || s.outputChannels == 6 || s.outputChannels >= 8);
}

bool COutputFormatDlg::HasCenter(const QM_PLAYER_CORE_SETTINGS& s)
{
    if ((s.outputChannelLayout & PLAYER_CORE_LAYOUT_CENTER) != 0)
        return true;
    return s.outputChannelLayout == 0 && (s.outputChannels == 6 || s.outputChannels >= 8);
}

bool COutputFormatDlg::BuildControls(QM_PLAYER_CORE_SETTINGS& s, Controls& c)
{
    c = Controls();
    const int32_t encoding = s.outputEncoding;
    const bool plain = encoding == kEncodingNone;

    for (const ValueText& entry : kEncodings)
        Add(c.encoding, QVTranslated(entry.text), entry.value);
    Select(c.encoding, encoding);

    std::copy(std::begin(s.sampleRateTable), std::end(s.sampleRateTable), c.sampleRates.rates);
    c.sampleRates.enabled = plain;

    // Dolby Digital lists 3.1 first; the table's order already has it so.
    for (const ChannelEntry& entry : kChannelEntries)
        if (OffersChannels(entry, encoding))
            Add(c.channels, QVString::Format(QVTranslated(entry.text).c_str(), entry.channels),
                PackChannels(entry.channels, entry.layout));
    Select(c.channels, PackChannels(s.outputChannels, s.outputChannelLayout));
    bool channelsReplaced = false;
    if (c.channels.selected < 0 && !c.channels.entries.empty())
    {
        c.channels.selected = 0;
        s.outputChannels = ChannelsOf(c.channels.entries[0].value);
        s.outputChannelLayout = LayoutOf(c.channels.entries[0].value);
        channelsReplaced = true;
    }
    // Derived after the fallback, so that the rest of the panel matches it.
    const bool hasSubwoofer = HasSubwoofer(s);
    const bool hasCenter = HasCenter(s);
    const bool mixes = s.surroundMode != SURROUND_NONE;

    Add(c.extraChannels, QVTranslated(u"None"), 0);
    Add(c.extraChannels, QVTranslated(u"1 channel"), 1);
    for (int32_t count : kPaddingCounts)
        Add(c.extraChannels, QVString::Format(QVTranslated(u"%d channels").c_str(), count), count);
    Select(c.extraChannels, s.outputPaddingChannels);
    c.extraChannels.enabled = plain;

    Add(c.mixing, QVTranslated(u"No upmixing or downmixing"), SURROUND_NONE);
    if (s.outputChannels >= 4)
        Add(c.mixing, QVTranslated(u"Clone side channels to rear speakers"), SURROUND_CLONE_SIDES);
    Add(c.mixing, QVTranslated(u"QVSS"), SURROUND_MIXING);
    Select(c.mixing, s.surroundMode);
    if (c.mixing.selected < 0)
        c.mixing.selected = 0;

    for (int32_t db = kCenterMinDb; db <= kCenterMaxDb; ++db)
        Add(c.center, QVString::Format(u"%s%d dB", db > 0 ? u"+" : u"", db), db);
    Select(c.center, s.centerLevel);
    c.center.enabled = !hasCenter && plain && s.surroundMode == SURROUND_MIXING;

    c.twoPointOne = {QVTranslated(u"For stereo sources, only mix to 2.1"), s.twoPointOneMixing,
                     hasSubwoofer && mixes};
    c.phantomCenter = {QVTranslated(u"Move center to front L/R"), s.phantomCenter,
                       hasCenter && mixes};
    c.pseudoSurround = {QVTranslated(u"Detect stereo sources in surround (pseudo-surround)"),
                        s.pseudoSurroundDetection, s.outputChannels != 0 && mixes};

    if (hasSubwoofer)
    {
        Add(c.subwoofer,
            QVTranslated(u"Silent (use Room Correction to redirect bass to subwoofer)"), -1);
        Add(c.subwoofer,
            QVTranslated(
                u"Send all frequencies to subwoofer (external low-pass filter recommended)"),
            0);
    }
    else
    {
        Add(c.subwoofer, QVTranslated(u"Silent (don't use subwoofer in downmix)"), -1);
        Add(c.subwoofer, QVTranslated(u"Downmix all frequencies (not recommended)"), 0);
    }
    const QVString lowPass = QVTranslated(u"QVSS Subwoofer (%d Hz low-pass)");
    for (int32_t hz = kSubwooferMinHz; hz <= kSubwooferMaxHz; hz += kSubwooferStepHz)
        Add(c.subwoofer, QVString::Format(lowPass.c_str(), hz), hz);
    Select(c.subwoofer, hasSubwoofer ? s.subwooferCutoff : s.subwooferCutoffDownmix);
    c.subwoofer.enabled = mixes;

    c.bassfirm = {QVTranslated(u"Bassfirm"), s.subwooferImpactFilter,
                  hasSubwoofer && mixes && s.subwooferCutoff >= 1};
    return channelsReplaced;
}

void COutputFormatDlg::TakeControls(const Controls& c, QM_PLAYER_CORE_SETTINGS& s)
{
    // The centre and subwoofer rules look at the record as it was before.
    const bool hasSubwoofer = HasSubwoofer(s);
    const bool hasCenter = HasCenter(s);

    s.outputEncoding = c.encoding.GetValue(s.outputEncoding);
    const int32_t packed =
        c.channels.GetValue(PackChannels(s.outputChannels, s.outputChannelLayout));
    s.outputChannels = ChannelsOf(packed);
    s.outputChannelLayout = LayoutOf(packed);
    s.outputPaddingChannels = c.extraChannels.GetValue(s.outputPaddingChannels);
    s.surroundMode = c.mixing.GetValue(s.surroundMode);

    if (!hasCenter && s.surroundMode == SURROUND_MIXING)
        s.centerLevel = c.center.GetValue(s.centerLevel);
    else
        s.centerLevel = 0;

    s.twoPointOneMixing = c.twoPointOne.checked;
    s.phantomCenter = c.phantomCenter.checked;
    s.pseudoSurroundDetection = c.pseudoSurround.checked;
    if (hasSubwoofer)
        s.subwooferCutoff = c.subwoofer.GetValue(s.subwooferCutoff);
    else
        s.subwooferCutoffDownmix = c.subwoofer.GetValue(s.subwooferCutoffDownmix);
    s.subwooferImpactFilter = c.bassfirm.checked;

    std::copy(std::begin(c.sampleRates.rates), std::end(c.sampleRates.rates), s.sampleRateTable);
}

void COutputFormatDlg::Refresh()
{
    // Setting the controls raises their change events; they must not apply.
    refreshing = true;
    ++refreshCount;
    QM_PLAYER_CORE_SETTINGS_PLAYBACK& settings = GetSettings();
    settings.Load(-10000);
    const bool channelsReplaced = BuildControls(settings, controls);
    if (channelsReplaced)
        settings.Save(PLAYER_CORE_SECTION_FORMAT);
    refreshing = false;
}

void COutputFormatDlg::Apply()
{
    ++applyCount;
    QM_PLAYER_CORE_SETTINGS_PLAYBACK& settings = GetSettings();
    // Others may have changed the record meanwhile; their values stay.
    settings.Load(-10000);
    TakeControls(controls, settings);
    settings.Save(PLAYER_CORE_SECTION_FORMAT);
    if (plugin->host != nullptr)
        plugin->host->NotifyChanged(true);
    Refresh();
}

void COutputFormatDlg::ControlChanged()
{
    if (!refreshing)
        Apply();
}

void COutputFormatDlg::SelectEntry(COutputFormatChoice& choice, int32_t index)
{
    if (index < 0 || index >= static_cast<int32_t>(choice.entries.size()))
        return;
    choice.selected = index;
    ControlChanged();
}

void COutputFormatDlg::SetChecked(COutputFormatCheck& check, bool checked)
{
    check.checked = checked;
    ControlChanged();
}

void COutputFormatDlg::SetRate(int32_t row, int32_t rate)
{
    if (row < 0 || row >= PLAYER_CORE_RATE_CLASSES)
        return;
    controls.sampleRates.rates[row] = rate;
    ControlChanged();
}

void COutputFormatDlg::SetAllRates(int32_t rate)
{
    std::fill(std::begin(controls.sampleRates.rates), std::end(controls.sampleRates.rates), rate);
    ControlChanged();
}
