// qvdsp output: shows the player core record of a zone and the Output Format
// panel as its model has it, and changes the panel's controls the way a user
// would, each change going through the panel's Apply. Every change of a `set`
// is first tried on a copy of the record, so that a refused one writes nothing.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "cli/commands/CommandPlugin.h"
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"
#include "frame/PluginFactory.h"
#include "host/SettingsFile.h"
#include "output/OutputFormatPlugin.h"

namespace
{

using Controls = COutputFormatDlg::Controls;

enum class EControl
{
    Encoding,
    Channels,
    ExtraChannels,
    Mixing,
    Center,
    TwoPointOne,
    PhantomCenter,
    PseudoSurround,
    Subwoofer,
    Bassfirm,
    Rate,
    Rates,
};

struct KeyName
{
    const char* key;
    EControl control;
};

const KeyName kKeys[] = {
    {"encoding", EControl::Encoding},
    {"channels", EControl::Channels},
    {"extra-channels", EControl::ExtraChannels},
    {"mixing", EControl::Mixing},
    {"center", EControl::Center},
    {"two-point-one", EControl::TwoPointOne},
    {"phantom-center", EControl::PhantomCenter},
    {"pseudo-surround", EControl::PseudoSurround},
    {"subwoofer", EControl::Subwoofer},
    {"bassfirm", EControl::Bassfirm},
    {"rate", EControl::Rate},
    {"rates", EControl::Rates},
};

struct Assignment
{
    EControl control;
    std::string key;
    std::string value;
};

// A change resolved against the controls as they are at that moment.
struct Change
{
    EControl control;
    int32_t entry = -1;  // choices
    bool checked = false;
    int32_t row = -1;  // a single rate; -1 for all rows
    int32_t rate = 0;
};

std::string Lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

// Whole decimal numbers only, with an optional sign and the given suffix
// (such as "hz") dropped; thousands separators "," are allowed.
bool ParseNumber(std::string text, int32_t& value, const char* suffix = "")
{
    text = Lower(text);
    const std::string end = suffix;
    if (!end.empty() && text.size() > end.size() &&
        text.compare(text.size() - end.size(), end.size(), end) == 0)
        text.erase(text.size() - end.size());
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    std::string digits;
    for (size_t i = 0; i < text.size(); ++i)
    {
        const char c = text[i];
        if ((c == '+' || c == '-') && i == 0)
            digits += c;
        else if (std::isdigit(static_cast<unsigned char>(c)))
            digits += c;
        else if (c != ',')
            return false;
    }
    if (digits.empty() || digits == "+" || digits == "-" || digits.size() > 10)
        return false;
    const long long parsed = std::stoll(digits);
    if (parsed < INT32_MIN || parsed > INT32_MAX)
        return false;
    value = static_cast<int32_t>(parsed);
    return true;
}

std::string OfferedList(const COutputFormatChoice& choice)
{
    std::string list;
    for (const COutputFormatChoice::Entry& entry : choice.entries)
        list += (list.empty() ? "" : "; ") + entry.text.ToUTF8();
    return list;
}

std::string OfferedRates()
{
    std::string list;
    for (int32_t rate : COutputFormatSampleRateList::GetOfferedValues())
        list += (list.empty() ? "" : "; ") +
                (rate == 0 ? std::string("0 (No change)") : std::to_string(rate));
    return list;
}

// A value the key's own words give, or the entry text itself.
bool ValueByWords(EControl control, const std::string& text, int32_t& value)
{
    struct Word
    {
        EControl control;
        const char* word;
        int32_t value;
    };
    static const Word kWords[] = {
        {EControl::Encoding, "none", 0},
        {EControl::Encoding, "dolby-digital", 1},
        {EControl::Encoding, "dop", 2},
        {EControl::Encoding, "2xdop", 3},
        {EControl::Encoding, "4xdop", 4},
        {EControl::Encoding, "1xnative", 5},
        {EControl::Encoding, "2xnative", 6},
        {EControl::Encoding, "4xnative", 7},
        {EControl::Encoding, "8xnative", 8},
        {EControl::Channels, "source", 0},
        {EControl::Channels, "mono", 1},
        {EControl::Channels, "stereo", 2},
        {EControl::Channels, "2.1", 3},
        {EControl::Channels, "3.1", COutputFormatDlg::PackChannels(4, PLAYER_CORE_LAYOUT_3_1)},
        {EControl::Channels, "5.1", 6},
        {EControl::Channels, "7.1", 8},
        {EControl::ExtraChannels, "none", 0},
        {EControl::Mixing, "none", SURROUND_NONE},
        {EControl::Mixing, "clone", SURROUND_CLONE_SIDES},
        {EControl::Mixing, "qvss", SURROUND_MIXING},
        {EControl::Subwoofer, "silent", -1},
        {EControl::Subwoofer, "all", 0},
    };
    const std::string lower = Lower(text);
    for (const Word& word : kWords)
    {
        if (word.control == control && lower == word.word)
        {
            value = word.value;
            return true;
        }
    }
    switch (control)
    {
    case EControl::Center: return ParseNumber(text, value, "db");
    case EControl::Subwoofer: return ParseNumber(text, value, "hz");
    case EControl::Mixing:
    case EControl::Encoding:
    case EControl::ExtraChannels: return ParseNumber(text, value);
    case EControl::Channels:
        // A plain count, without a layout.
        return ParseNumber(text, value) && value >= 0 && value < 0x10000;
    default: return false;
    }
}

const COutputFormatChoice& ChoiceOf(const Controls& c, EControl control)
{
    switch (control)
    {
    case EControl::Encoding: return c.encoding;
    case EControl::Channels: return c.channels;
    case EControl::ExtraChannels: return c.extraChannels;
    case EControl::Mixing: return c.mixing;
    case EControl::Center: return c.center;
    default: return c.subwoofer;
    }
}

const COutputFormatCheck& CheckOf(const Controls& c, EControl control)
{
    switch (control)
    {
    case EControl::TwoPointOne: return c.twoPointOne;
    case EControl::PhantomCenter: return c.phantomCenter;
    case EControl::PseudoSurround: return c.pseudoSurround;
    default: return c.bassfirm;
    }
}

bool IsCheck(EControl control)
{
    return control == EControl::TwoPointOne || control == EControl::PhantomCenter ||
           control == EControl::PseudoSurround || control == EControl::Bassfirm;
}

int32_t ParseRate(const std::string& key, const std::string& text)
{
    int32_t rate = 0;
    const std::string lower = Lower(text);
    if (lower == "none" || lower == "no-change" || lower == "no change")
        return 0;
    if (!ParseNumber(text, rate, "hz"))
        throw CliError(CLI_EXIT_USAGE,
                       key + ": '" + text + "' is not a rate; it offers " + OfferedRates());
    for (int32_t offered : COutputFormatSampleRateList::GetOfferedValues())
        if (offered == rate)
            return rate;
    throw CliError(CLI_EXIT_USAGE,
                   key + ": " + text + " is not offered; it offers " + OfferedRates());
}

int32_t ParseInputRow(const std::string& text)
{
    const std::string lower = Lower(text);
    if (lower == "below" || lower == "<44100")
        return 0;
    if (lower == "above" || lower == ">768000")
        return PLAYER_CORE_RATE_CLASSES - 1;
    int32_t rate = 0;
    if (ParseNumber(text, rate, "hz"))
        for (int32_t row = 1; row + 1 < PLAYER_CORE_RATE_CLASSES; ++row)
            if (PLAYER_CORE_CLASS_RATES[row] == rate)
                return row;
    throw CliError(CLI_EXIT_USAGE, "rate: no input rate '" + text +
                                       "'; inputs are below, 44100, 48000, 88200, 96000, "
                                       "176400, 192000, 352800, 384000, 705600, 768000, above");
}

Change Resolve(const Controls& c, const Assignment& a)
{
    Change change;
    change.control = a.control;
    if (a.control == EControl::Rate || a.control == EControl::Rates)
    {
        if (!c.sampleRates.enabled)
            throw CliError(CLI_EXIT_USAGE, a.key + ": the sample rate list is disabled while "
                                                   "an output encoding is chosen");
        if (a.control == EControl::Rate)
        {
            const size_t equals = a.value.find('=');
            if (equals == std::string::npos)
                throw CliError(CLI_EXIT_USAGE,
                               "rate: expected INPUT=OUTPUT, not '" + a.value + "'");
            change.row = ParseInputRow(a.value.substr(0, equals));
            change.rate = ParseRate(a.key, a.value.substr(equals + 1));
        }
        else
        {
            change.rate = ParseRate(a.key, a.value);
        }
        return change;
    }
    if (IsCheck(a.control))
    {
        const std::string v = Lower(a.value);
        if (v == "on" || v == "true" || v == "yes" || v == "1")
            change.checked = true;
        else if (v == "off" || v == "false" || v == "no" || v == "0")
            change.checked = false;
        else
            throw CliError(CLI_EXIT_USAGE, a.key + ": '" + a.value + "' is not on or off");
        if (!CheckOf(c, a.control).enabled)
            throw CliError(CLI_EXIT_USAGE, a.key + " (\"" + CheckOf(c, a.control).text.ToUTF8() +
                                               "\") is disabled with the current settings");
        return change;
    }

    const COutputFormatChoice& choice = ChoiceOf(c, a.control);
    for (size_t i = 0; i < choice.entries.size() && change.entry < 0; ++i)
        if (QVString::FromUTF8(a.value).CompareNoCase(choice.entries[i].text) == 0)
            change.entry = static_cast<int32_t>(i);
    int32_t value = 0;
    if (change.entry < 0 && ValueByWords(a.control, a.value, value))
        change.entry = choice.FindValue(value);
    if (change.entry < 0)
        throw CliError(CLI_EXIT_USAGE, a.key + ": '" + a.value +
                                           "' is not offered with the current settings; it "
                                           "offers: " +
                                           OfferedList(choice));
    if (!choice.enabled)
        throw CliError(CLI_EXIT_USAGE, a.key + " is disabled with the current settings");
    return change;
}

// The change on a model of the controls only, as Apply would take it.
void ApplyToCopy(Controls& c, const Change& change)
{
    switch (change.control)
    {
    case EControl::Rate: c.sampleRates.rates[change.row] = change.rate; break;
    case EControl::Rates:
        for (int32_t& rate : c.sampleRates.rates)
            rate = change.rate;
        break;
    case EControl::TwoPointOne: c.twoPointOne.checked = change.checked; break;
    case EControl::PhantomCenter: c.phantomCenter.checked = change.checked; break;
    case EControl::PseudoSurround: c.pseudoSurround.checked = change.checked; break;
    case EControl::Bassfirm: c.bassfirm.checked = change.checked; break;
    default: const_cast<COutputFormatChoice&>(ChoiceOf(c, change.control)).selected = change.entry;
    }
}

// The same change made on the panel, which applies and saves it.
void ApplyToPanel(COutputFormatDlg& panel, const Change& change)
{
    Controls& c = panel.GetControls();
    switch (change.control)
    {
    case EControl::Rate: panel.SetRate(change.row, change.rate); break;
    case EControl::Rates: panel.SetAllRates(change.rate); break;
    case EControl::TwoPointOne: panel.SetChecked(c.twoPointOne, change.checked); break;
    case EControl::PhantomCenter: panel.SetChecked(c.phantomCenter, change.checked); break;
    case EControl::PseudoSurround: panel.SetChecked(c.pseudoSurround, change.checked); break;
    case EControl::Bassfirm: panel.SetChecked(c.bassfirm, change.checked); break;
    default:
        panel.SelectEntry(const_cast<COutputFormatChoice&>(ChoiceOf(c, change.control)),
                          change.entry);
    }
}

std::vector<Assignment> ParseAssignments(const std::vector<std::string>& words)
{
    std::vector<Assignment> assignments;
    for (size_t i = 0; i < words.size(); ++i)
    {
        std::string key = words[i];
        std::string value;
        const size_t equals = key.find('=');
        if (equals != std::string::npos)
        {
            value = key.substr(equals + 1);
            key = key.substr(0, equals);
        }
        else if ((key == "rate" || key == "rates") && i + 1 < words.size())
        {
            value = words[++i];
        }
        else
        {
            throw CliError(CLI_EXIT_USAGE, "expected KEY=VALUE, not '" + words[i] + "'");
        }
        const KeyName* found = nullptr;
        for (const KeyName& name : kKeys)
            if (key == name.key)
                found = &name;
        if (found == nullptr)
        {
            std::string known;
            for (const KeyName& name : kKeys)
                known += (known.empty() ? "" : ", ") + std::string(name.key);
            throw CliError(CLI_EXIT_USAGE, "unknown key '" + key + "'; keys are " + known);
        }
        assignments.push_back({found->control, key, value});
    }
    return assignments;
}

class OutputSession
{
public:
    explicit OutputSession(const CliContext& context)
        : output(context, DSPPLUGIN_OUTPUT_FORMAT, "Output Format")
    {
    }
    COutputFormatDSPPlugin& Plugin() { return *output; }
    COutputFormatDlg& OpenPanel()
    {
        output->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
        return *output->GetPanel();
    }

private:
    CommandPlugin<COutputFormatDSPPlugin> output;
};

void PrintValue(const char* name, const std::string& value)
{
    std::printf("    %-42s %s\n", name, value.c_str());
}

void PrintValue(const char* name, int32_t value)
{
    PrintValue(name, std::to_string(value));
}

void PrintRecord(const QM_PLAYER_CORE_SETTINGS& s)
{
    std::string table;
    for (int32_t rate : s.sampleRateTable)
        table += (table.empty() ? "" : " ") + std::to_string(rate);
    std::printf("Record, zone %d\n", s.zone);
    std::printf("  [1] Output format\n");
    PrintValue("Output Channels", s.outputChannels);
    PrintValue("Output Channel Layout", s.outputChannelLayout);
    PrintValue("Output Padding Channels", s.outputPaddingChannels);
    PrintValue("Output Sample Rate Settings", table);
    PrintValue("Output Sample Rate Common Rate", s.commonRate);
    PrintValue("Allow Custom Output Format", s.allowCustomOutputFormat);
    PrintValue("Output Surround Mode", s.surroundMode);
    PrintValue("Output Surround Two Point One Mixing", s.twoPointOneMixing);
    PrintValue("Output Surround Phantom Center", s.phantomCenter);
    PrintValue("Output Surround Subwoofer Cutoff", s.subwooferCutoff);
    PrintValue("Output Surround Subwoofer Cutoff Downmix", s.subwooferCutoffDownmix);
    PrintValue("Output Surround Subwoofer Impact Filter", s.subwooferImpactFilter);
    PrintValue("Output Encoding", s.outputEncoding);
    PrintValue("Output Pseudo Surround Detection", s.pseudoSurroundDetection);
    PrintValue("Center Level", s.centerLevel);
    PrintValue("Use SoX For Resampling", s.resampler == 2);
    std::printf("  [2] Output plug-in\n");
    PrintValue("Output Plugin Path", s.GetOutputPluginPath().ToUTF8());
    PrintValue("Output Plugin Index", s.outputPluginIndex);
    std::printf("  [4] Transitions\n");
    PrintValue("Between Tracks Mode", s.betweenTracksMode);
    PrintValue("Between Tracks MS", s.betweenTracksMS);
    PrintValue("Seek Mode", s.seekMode);
    PrintValue("Stop Mode", s.stopMode);
    PrintValue("Pause Mode", s.pauseMode);
    PrintValue("Between Tracks Mode (alternate)", s.betweenTracksModeAlternate);
    PrintValue("Between Tracks MS (alternate)", s.betweenTracksMSAlternate);
    PrintValue("Seek Mode (alternate)", s.seekModeAlternate);
    PrintValue("Stop Mode (alternate)", s.stopModeAlternate);
    PrintValue("Pause Mode (alternate)", s.pauseModeAlternate);
    PrintValue("Forward Jump Seconds", s.forwardJumpSeconds);
    PrintValue("Backward Jump Seconds", s.backwardJumpSeconds);
    std::printf("  [8] Buffering\n");
    PrintValue("Startup Gap MS", s.startupGapMS);
    PrintValue("Secondary Buffer Minimum MS", s.secondaryBufferMinimumMS);
    PrintValue("Trim Silence", s.trimSilence);
    PrintValue("Gapless Sequential Album Tracks", s.gaplessSequentialAlbumTracks);
    PrintValue("Auto Configure Mode", s.autoConfigureMode);
    PrintValue(
        "Bitstream Formats",
        QM_PLAYER_CORE_SETTINGS_PLAYBACK::FormatBitstreamFormats(s.bitstreamFormats).ToUTF8());
    PrintValue("Bitstream DSD Max Rate", s.bitstreamDSDMaxRate);
    PrintValue("Live Latency MS", s.liveLatencyMS);
    PrintValue("Stop After Long Pause", s.stopAfterLongPause);
    PrintValue("Gapless On Manual Transitions", s.gaplessOnManualTransitions);
    std::printf("  [16] Zone synchronisation\n");
    PrintValue("Zone Sync Audio Output Latency MS", s.zoneSyncAudioOutputLatencyMS);
    PrintValue("Zone Sync Manual Latency Adjustment MS", s.zoneSyncManualLatencyAdjustmentMS);
}

const char* EnabledText(bool enabled)
{
    return enabled ? "enabled" : "disabled";
}

void PrintChoice(const char* key, const COutputFormatChoice& choice)
{
    const QVString selected = choice.GetSelectedText();
    std::printf("  %-16s %s [%s]\n", key, selected.IsEmpty() ? "(none)" : selected.ToUTF8().c_str(),
                EnabledText(choice.enabled));
    std::printf("      offers: %s\n", OfferedList(choice).c_str());
}

void PrintCheck(const char* key, const COutputFormatCheck& check)
{
    std::printf("  %-16s %s [%s] %s\n", key, check.checked ? "on" : "off",
                EnabledText(check.enabled), check.text.ToUTF8().c_str());
}

void PrintPanel(const Controls& c)
{
    std::printf("Panel\n");
    PrintChoice("encoding", c.encoding);
    std::printf("  %-16s [%s]\n", "rates", EnabledText(c.sampleRates.enabled));
    for (int32_t row = 0; row < PLAYER_CORE_RATE_CLASSES; ++row)
        std::printf(
            "      %-24s %s\n", COutputFormatSampleRateList::GetInputText(row).ToUTF8().c_str(),
            COutputFormatSampleRateList::GetOutputText(c.sampleRates.rates[row]).ToUTF8().c_str());
    std::string offered;
    for (int32_t rate : COutputFormatSampleRateList::GetOfferedValues())
        offered += (offered.empty() ? "" : "; ") +
                   COutputFormatSampleRateList::GetOutputText(rate).ToUTF8();
    std::printf("      offers: %s\n", offered.c_str());
    PrintChoice("channels", c.channels);
    PrintChoice("extra-channels", c.extraChannels);
    PrintChoice("mixing", c.mixing);
    PrintChoice("center", c.center);
    PrintCheck("two-point-one", c.twoPointOne);
    PrintCheck("phantom-center", c.phantomCenter);
    PrintCheck("pseudo-surround", c.pseudoSurround);
    PrintChoice("subwoofer", c.subwoofer);
    PrintCheck("bassfirm", c.bassfirm);
}

void Show(OutputSession& session)
{
    COutputFormatDlg& panel = session.OpenPanel();
    PrintRecord(session.Plugin().settings);
    PrintPanel(panel.GetControls());
}

// Fields of the output format section that the panel changes.
bool SameFormat(const QM_PLAYER_CORE_SETTINGS& a, const QM_PLAYER_CORE_SETTINGS& b)
{
    return a.outputEncoding == b.outputEncoding && a.outputChannels == b.outputChannels &&
           a.outputChannelLayout == b.outputChannelLayout &&
           a.outputPaddingChannels == b.outputPaddingChannels && a.surroundMode == b.surroundMode &&
           a.centerLevel == b.centerLevel && a.twoPointOneMixing == b.twoPointOneMixing &&
           a.phantomCenter == b.phantomCenter &&
           a.pseudoSurroundDetection == b.pseudoSurroundDetection &&
           a.subwooferCutoff == b.subwooferCutoff &&
           a.subwooferCutoffDownmix == b.subwooferCutoffDownmix &&
           a.subwooferImpactFilter == b.subwooferImpactFilter &&
           std::equal(std::begin(a.sampleRateTable), std::end(a.sampleRateTable),
                      std::begin(b.sampleRateTable));
}

void Set(const CliContext& context, const std::vector<std::string>& words)
{
    const std::vector<Assignment> assignments = ParseAssignments(words);
    OutputSession session(context);

    // First on a copy: every change must be one the panel offers at that point.
    QM_PLAYER_CORE_SETTINGS trial = session.Plugin().settings;
    for (const Assignment& assignment : assignments)
    {
        Controls controls;
        COutputFormatDlg::BuildControls(trial, controls);
        ApplyToCopy(controls, Resolve(controls, assignment));
        COutputFormatDlg::TakeControls(controls, trial);
        COutputFormatDlg::BuildControls(trial, controls);
    }

    COutputFormatDlg& panel = session.OpenPanel();
    for (const Assignment& assignment : assignments)
        ApplyToPanel(panel, Resolve(panel.GetControls(), assignment));

    // The panel cannot tell of a store that refused its write; reading back can.
    const QM_PLAYER_CORE_SETTINGS_PLAYBACK stored(context.zone);
    if (!SameFormat(stored, trial))
        throw CliError(CLI_EXIT_FAILED,
                       "cannot write the output settings to " + CSettingsFile::DefaultPath());
    PrintRecord(session.Plugin().settings);
    PrintPanel(panel.GetControls());
}

}  // namespace

void AddOutputCommand(CLI::App& app, CliContext& context)
{
    CLI::App* output =
        app.add_subcommand("output", "Show and change the output settings of a zone as the "
                                     "Output Format panel does");
    output->require_subcommand(1);

    CLI::App* show = AddSubcommandWithSharedOptions(
        *output, context, "show",
        "Print the record by section and every control of the panel: its choice, its entries, "
        "whether it is enabled");
    SetSettingsCommandAction(*show, context,
                             [&context]
                             {
                                 OutputSession session(context);
                                 Show(session);
                             });

    auto words = std::make_shared<std::vector<std::string>>();
    CLI::App* set = output->add_subcommand(
        "set", "Change controls, in the order given: KEY=VALUE with the keys encoding, channels, "
               "extra-channels, mixing, center, two-point-one, phantom-center, pseudo-surround, "
               "subwoofer, bassfirm; 'rate INPUT=OUTPUT' for one input rate, 'rates OUTPUT' for "
               "all. A choice the panel does not offer at that point is refused and nothing is "
               "written.");
    set->add_option("CHANGES", *words,
                    "KEY=VALUE ... (values: an entry's text, or a number or "
                    "word such as 5.1, stereo, qvss, on, 80)")
        ->required();
    AddSharedOptions(*set, context);
    SetSettingsCommandAction(*set, context, [&context, words] { Set(context, *words); });
}
