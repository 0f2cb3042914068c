// qvdsp room: looks at and edits the speakers of Room Correction the way its
// panel would, shows what the engine makes of a stream, takes sound level
// meter readings, and renders a speaker's calibration noise to a file. Every
// argument is checked before the plug-in is made, so a refused command
// writes nothing.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands/CommandPlugin.h"
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"
#include "cli/host/SoundFile.h"
#include "frame/PluginFactory.h"
#include "host/SettingsFile.h"
#include "room/ChannelsDSPPlugin.h"
#include "room/ChannelsDlg.h"
#include "room/ChannelsLevelsPopupWnd.h"

namespace
{

using Speaker = CChannelDSP;

// Short names on the command line, by speaker number; any case.
constexpr const char* SPEAKER_NAMES[Speaker::SPEAKER_COUNT] = {"L",  "R",  "C",  "SW",
                                                               "SL", "SR", "RL", "RR"};
constexpr const char* ROUTING_NAMES[] = {"remove", "move", "copy"};
constexpr int32_t MAX_RATE = 768000;
constexpr double MAX_TONE_SECONDS = 3600.0;

struct RoomOptions
{
    std::string speaker;
    std::vector<std::string> assignments;
    std::vector<std::string> readings;
    std::string output;
    int channels = 2;
    int rate = 48000;
    double seconds = 10.0;
    double levelDb = 0.0;
    bool json = false;
    bool metric = false;
};

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string SpeakerList()
{
    std::string list = "0 to 7 or";
    for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
        list += std::string(speaker ? ", " : " ") + SPEAKER_NAMES[speaker];
    return list + " (LFE for SW)";
}

// A speaker by number, by its short name here, or by its name in the
// channel-name table, short or long.
int32_t ParseSpeaker(const std::string& text)
{
    const std::string name = Lower(text);
    if (name.size() == 1 && name[0] >= '0' && name[0] <= '7')
        return name[0] - '0';
    if (name == "lfe")
        return Speaker::SUBWOOFER;
    for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
    {
        const int32_t code = speaker + CAudioFormat::Left;
        if (name == Lower(SPEAKER_NAMES[speaker]) ||
            name == Lower(CAudioFormat::GetChannelName(code, true).ToUTF8()) ||
            name == Lower(CAudioFormat::GetChannelName(code, false).ToUTF8()))
            return speaker;
    }
    throw CliError(CLI_EXIT_USAGE, "no speaker '" + text + "'; speakers: " + SpeakerList());
}

std::string Number(double value, const char* format)
{
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

double Db(double gain)
{
    return gain > 0.0 ? 20.0 * std::log10(gain) : -INFINITY;
}

std::string DbText(double gain)
{
    return gain > 0.0 ? Number(Db(gain), "%+.2f dB") : "-inf dB";
}

std::string RoutingName(int32_t routing)
{
    if (routing >= 0 && routing < 3)
        return ROUTING_NAMES[routing];
    return "unknown (" + std::to_string(routing) + ")";
}

// ---------------------------------------------------------------------------
// set: each KEY=VALUE checked against what the panel's controls accept.

struct SpeakerEdit
{
    std::optional<double> level;
    std::optional<double> distance;  // in the unit below
    bool distanceInMetres = false;
    std::optional<bool> reversePolarity;
    std::optional<int32_t> frequencyItem;
    std::optional<int32_t> highPassSlopeItem;
    std::optional<int32_t> lowPassSlopeItem;
    std::optional<int32_t> routingItem;
};

std::string ListValues(const CChannelsDlg::ListItem* items, int32_t count)
{
    std::string values;
    for (int32_t item = 0; item < count; ++item)
        values += (item ? ", " : "") + std::to_string(items[item].value);
    return values;
}

int32_t CheckedListItem(const std::string& key, const std::string& value,
                        const CChannelsDlg::ListItem* items, int32_t count)
{
    std::string digits = Lower(value);
    if (key == "crossover" && (digits == "none" || digits == "off"))
        digits = "0";
    if (digits.size() > 2 && digits.substr(digits.size() - 2) == "hz")
        digits.erase(digits.size() - 2);
    for (int32_t item = 0; item < count; ++item)
        if (digits == std::to_string(items[item].value))
            return item;
    throw CliError(CLI_EXIT_USAGE, key + " '" + value + "' is not one of " +
                                       ListValues(items, count) +
                                       (key == "crossover" ? " (0: no crossover)" : ""));
}

void CheckRange(const std::string& what, double value, double low, double high,
                const std::string& unit)
{
    if (value < low || value > high)
        throw CliError(CLI_EXIT_USAGE, what + " " + Number(value, "%g") + " " + unit +
                                           " is outside " + Number(low, "%g") + " to " +
                                           Number(high, "%g") + " " + unit);
}

SpeakerEdit ParseAssignments(const std::vector<std::string>& assignments)
{
    using Dlg = CChannelsDlg;
    static const std::string keys =
        "level, distance, polarity, crossover, hp-slope, lp-slope, routing";
    SpeakerEdit edit;
    for (const std::string& assignment : assignments)
    {
        const size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0)
            throw CliError(CLI_EXIT_USAGE, "'" + assignment + "' is not KEY=VALUE; keys: " + keys);
        const std::string key = Lower(assignment.substr(0, equals));
        const std::string value = assignment.substr(equals + 1);
        if (key == "level")
        {
            const auto level = ParseDecimal(value);
            if (!level)
                throw CliError(CLI_EXIT_USAGE, "level '" + value + "' is not a number of dB");
            CheckRange("level", *level, Dlg::LEVEL_MIN_DB, Dlg::LEVEL_MAX_DB, "dB");
            edit.level = *level;
        }
        else if (key == "distance")
        {
            std::string number = Lower(value);
            bool metres = false;
            if (number.size() > 2 && number.substr(number.size() - 2) == "ft")
                number.erase(number.size() - 2);
            else if (number.size() > 1 && number.back() == 'm')
            {
                number.pop_back();
                metres = true;
            }
            const auto distance = ParseDecimal(number);
            if (!distance)
                throw CliError(CLI_EXIT_USAGE, "distance '" + value +
                                                   "' is not a number of feet (or of metres "
                                                   "ending in \"m\")");
            CheckRange("distance", *distance, Dlg::DISTANCE_MIN, Dlg::DISTANCE_MAX,
                       metres ? "m" : "ft");
            edit.distance = *distance;
            edit.distanceInMetres = metres;
        }
        else if (key == "polarity")
        {
            const std::string polarity = Lower(value);
            if (polarity != "normal" && polarity != "reverse")
                throw CliError(CLI_EXIT_USAGE,
                               "polarity '" + value + "' is not one of normal, reverse");
            edit.reversePolarity = polarity == "reverse";
        }
        else if (key == "crossover")
            edit.frequencyItem =
                CheckedListItem(key, value, Dlg::FREQUENCY_LIST, Dlg::FREQUENCY_COUNT);
        else if (key == "hp-slope")
            edit.highPassSlopeItem =
                CheckedListItem(key, value, Dlg::HIGHPASS_SLOPE_LIST, Dlg::SLOPE_COUNT);
        else if (key == "lp-slope")
            edit.lowPassSlopeItem =
                CheckedListItem(key, value, Dlg::LOWPASS_SLOPE_LIST, Dlg::SLOPE_COUNT);
        else if (key == "routing")
        {
            const std::string routing = Lower(value);
            int32_t item = -1;
            for (int32_t i = 0; i < Dlg::ROUTING_COUNT; ++i)
                if (routing == ROUTING_NAMES[i])
                    item = Dlg::RoutingItemOf(i);
            if (item < 0)
                throw CliError(CLI_EXIT_USAGE,
                               "routing '" + value + "' is not one of remove, move, copy");
            edit.routingItem = item;
        }
        else
            throw CliError(CLI_EXIT_USAGE, "no key '" + key + "'; keys: " + keys);
    }
    return edit;
}

// ---------------------------------------------------------------------------
// The plug-in of the zone, made only once every argument has been accepted.

class RoomSession
{
public:
    explicit RoomSession(const CliContext& context, bool metric = false)
        : room(context, DSPPLUGIN_ROOM_CORRECTION, "Room Correction")
    {
        room->SetMetric(metric);
    }
    CChannelsDSPPlugin& Plugin() { return *room; }
    CChannelsDSP& Channels() { return room->GetChannels(); }
    CChannelDSP& Speaker(int32_t number) { return Channels().Speaker(number); }

    // The panel saves as it applies but cannot tell of a store that refused
    // the write; saving once more here does.
    void Save(int32_t speaker)
    {
        std::lock_guard<std::recursive_mutex> guard(Channels().lock);
        if (!Speaker(speaker).SaveSettings())
            throw CliError(CLI_EXIT_FAILED, "cannot write Room Correction's settings to " +
                                                CSettingsFile::DefaultPath());
    }

private:
    CommandPlugin<CChannelsDSPPlugin> room;
};

// ---------------------------------------------------------------------------
// show

CAudioFormat StreamFormat(int channels, int rate)
{
    CAudioFormat format;
    format.Set(64, static_cast<uint32_t>(rate), static_cast<uint16_t>(channels));
    return format;
}

void CheckStream(int channels, int rate)
{
    if (channels < 1 || channels > CAudioFormat::MAX_CHANNELS)
        throw CliError(CLI_EXIT_USAGE, "--channels " + std::to_string(channels) +
                                           " is outside 1 to " +
                                           std::to_string(CAudioFormat::MAX_CHANNELS));
    if (rate < 1 || rate > MAX_RATE)
        throw CliError(CLI_EXIT_USAGE, "--rate " + std::to_string(rate) + " is outside 1 to " +
                                           std::to_string(MAX_RATE) + " Hz");
}

std::string DistanceText(double feet, bool metric)
{
    std::string text = Number(feet, "%.2f ft");
    if (metric)
        text += " (" + Number(CChannelsDlg::MetresFromFeet(feet), "%.2f m") + ")";
    return text;
}

void PrintSpeakerHeader()
{
    std::printf("%-8s %-10s %-22s %-9s %-10s %-9s %-9s %s\n", "Speaker", "Level", "Distance",
                "Polarity", "Crossover", "HP slope", "LP slope", "Routing");
}

void PrintSpeaker(const CChannelDSP& speaker, bool metric)
{
    const std::string name = std::to_string(speaker.channel) + " " + SPEAKER_NAMES[speaker.channel];
    const std::string crossover = speaker.highPassFrequency >= 1
                                      ? std::to_string(speaker.highPassFrequency) + " Hz"
                                      : std::string("none");
    std::printf("%-8s %-10s %-22s %-9s %-10s %-9s %-9s %s\n", name.c_str(),
                Number(speaker.levelDB, "%+.2f dB").c_str(),
                DistanceText(speaker.distanceFeet, metric).c_str(),
                speaker.reversePolarity ? "reverse" : "normal", crossover.c_str(),
                (std::to_string(speaker.highPassSlope) + " dB").c_str(),
                (std::to_string(speaker.lowPassSlope) + " dB").c_str(),
                RoutingName(speaker.removedBassRouting).c_str());
}

nlohmann::json SpeakerJson(const CChannelDSP& speaker)
{
    return {
        {"number", speaker.channel},
        {"name", SPEAKER_NAMES[speaker.channel]},
        {"levelDb", speaker.levelDB},
        {"distanceFeet", speaker.distanceFeet},
        {"distanceMetres", CChannelsDlg::MetresFromFeet(speaker.distanceFeet)},
        {"polarity", speaker.reversePolarity ? "reverse" : "normal"},
        {"crossoverHz", speaker.highPassFrequency},
        {"highPassSlope", speaker.highPassSlope},
        {"lowPassSlope", speaker.lowPassSlope},
        {"routing", RoutingName(speaker.removedBassRouting)},
    };
}

// What the engine makes of a stream of this format, as the stream's channels.
nlohmann::json StreamJson(CChannelsDSP& channels, const CAudioFormat& format)
{
    nlohmann::json stream = {{"channels", format.channels},
                             {"sampleRate", format.sampleRate},
                             {"served", channels.valid}};
    if (!channels.valid)
        return stream;
    nlohmann::json list = nlohmann::json::array();
    for (int32_t i = 0; i < channels.activeChannels.GetCount(); ++i)
    {
        const CChannelDSP* speaker = channels.activeChannels[i];
        if (speaker == nullptr)
        {
            list.push_back({{"index", i}, {"speaker", nullptr}});
            continue;
        }
        const double gain = channels.masterGain * speaker->gain;
        list.push_back({
            {"index", i},
            {"speaker", speaker->channel},
            {"name", SPEAKER_NAMES[speaker->channel]},
            {"delayFrames", speaker->GetDelayFrames()},
            {"delayMs", speaker->GetDelayFrames() * 1000.0 / format.sampleRate},
            {"gain", gain},
            {"gainDb", Db(gain)},
            {"sendsBass", speaker->bassToSubwoofer},
        });
    }
    stream["speakers"] = list;
    stream["bassChannels"] = channels.bassChannels;
    stream["bassGain"] = channels.bassGain;
    stream["masterGain"] = channels.masterGain;
    return stream;
}

void PrintStream(const nlohmann::json& stream)
{
    std::printf("\nStream: %d channels at %d Hz\n", stream["channels"].get<int>(),
                stream["sampleRate"].get<int>());
    if (!stream["served"].get<bool>())
    {
        std::printf("Room Correction cannot serve %d channels: the audio passes unchanged\n",
                    stream["channels"].get<int>());
        return;
    }
    std::printf("%-8s %-8s %-8s %-9s %-8s %-10s %s\n", "Channel", "Speaker", "Frames", "Delay",
                "Gain", "Gain (dB)", "Sends bass");
    for (const nlohmann::json& entry : stream["speakers"])
    {
        if (entry["speaker"].is_null())
        {
            std::printf("%-8d %-8s passes untouched\n", entry["index"].get<int>(), "-");
            continue;
        }
        const double gain = entry["gain"].get<double>();
        std::printf("%-8d %-8s %-8d %-9s %-8s %-10s %s\n", entry["index"].get<int>(),
                    entry["name"].get<std::string>().c_str(), entry["delayFrames"].get<int>(),
                    Number(entry["delayMs"].get<double>(), "%.3f ms").c_str(),
                    Number(gain, "%.4f").c_str(), DbText(gain).c_str(),
                    entry["sendsBass"].get<bool>() ? "yes" : "no");
    }
    const double bassGain = stream["bassGain"].get<double>();
    const double masterGain = stream["masterGain"].get<double>();
    std::printf("bassChannels  %d\n", stream["bassChannels"].get<int>());
    std::printf("bassGain      %.4f (%s)\n", bassGain, DbText(bassGain).c_str());
    std::printf("masterGain    %.4f (%s)\n", masterGain, DbText(masterGain).c_str());
}

void Show(const CliContext& context, const RoomOptions& options)
{
    CheckStream(options.channels, options.rate);
    RoomSession session(context);
    const CAudioFormat format = StreamFormat(options.channels, options.rate);
    session.Plugin().SetFormat(format);
    const nlohmann::json stream = StreamJson(session.Channels(), format);
    if (options.json)
    {
        nlohmann::json speakers = nlohmann::json::array();
        for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
            speakers.push_back(SpeakerJson(session.Speaker(speaker)));
        const nlohmann::json document = {
            {"zone", context.zone}, {"speakers", speakers}, {"stream", stream}};
        std::cout << document.dump(2) << '\n';
        return;
    }
    PrintSpeakerHeader();
    for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
        PrintSpeaker(session.Speaker(speaker), options.metric);
    PrintStream(stream);
}

// ---------------------------------------------------------------------------
// set, levels, reset

void Set(const CliContext& context, const RoomOptions& options)
{
    const int32_t number = ParseSpeaker(options.speaker);
    const SpeakerEdit edit = ParseAssignments(options.assignments);
    // Metres go through the panel's metric conversion, in single precision.
    RoomSession session(context, edit.distance && edit.distanceInMetres);
    {
        // A panel opened straight on this speaker, so that no other is applied.
        CChannelsDlg panel(session.Plugin());
        panel.Select(number);
        if (edit.level)
            panel.SetLevel(*edit.level);
        if (edit.distance)
            panel.SetDistance(*edit.distance);
        if (edit.reversePolarity)
            panel.SetReversePolarity(*edit.reversePolarity);
        if (edit.frequencyItem)
            panel.SetFrequencyItem(*edit.frequencyItem);
        if (edit.highPassSlopeItem)
            panel.SetHighPassSlopeItem(*edit.highPassSlopeItem);
        if (edit.routingItem)
            panel.SetRoutingItem(*edit.routingItem);
        if (edit.lowPassSlopeItem)
            panel.SetLowPassSlopeItem(*edit.lowPassSlopeItem);
        panel.Close();
    }
    session.Save(number);
    PrintSpeakerHeader();
    PrintSpeaker(session.Speaker(number), options.metric);
}

void Levels(const CliContext& context, const RoomOptions& options)
{
    if (options.readings.size() != Speaker::SPEAKER_COUNT)
        throw CliError(CLI_EXIT_USAGE, "levels takes 8 readings (L R C SW SL SR RL RR), not " +
                                           std::to_string(options.readings.size()));
    std::vector<QVString> fields;
    for (size_t i = 0; i < options.readings.size(); ++i)
    {
        const std::string& reading = options.readings[i];
        if (reading == "-")
        {
            fields.emplace_back();
            continue;
        }
        if (!ParseDecimal(reading))
            throw CliError(CLI_EXIT_USAGE, "reading '" + reading + "' of " + SPEAKER_NAMES[i] +
                                               " is not a number of dB (or \"-\" for none)");
        fields.push_back(QVString::FromUTF8(reading));
    }

    RoomSession session(context);
    CChannelsDlg panel(session.Plugin());
    CChannelsLevelsPopupWnd& popup = panel.OpenLevelsPopup();
    for (int32_t row = 0; row < Speaker::SPEAKER_COUNT; ++row)
        popup.SetField(row, fields[static_cast<size_t>(row)]);
    if (!panel.AcceptLevelsPopup())
        throw CliError(CLI_EXIT_USAGE, popup.GetMessageText().ToUTF8());
    // As a user would click through every speaker: each is applied, with the
    // level control's range, and saved.
    for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
        panel.Select(speaker);
    panel.Close();
    PrintSpeakerHeader();
    for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
    {
        session.Save(speaker);
        PrintSpeaker(session.Speaker(speaker), options.metric);
    }
}

void Reset(const CliContext& context, const RoomOptions& options)
{
    std::vector<int32_t> speakers;
    if (Lower(options.speaker) == "all")
        for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
            speakers.push_back(speaker);
    else
        speakers.push_back(ParseSpeaker(options.speaker));
    RoomSession session(context);
    PrintSpeakerHeader();
    for (int32_t speaker : speakers)
    {
        {
            std::lock_guard<std::recursive_mutex> guard(session.Channels().lock);
            session.Speaker(speaker).ResetSettings();
        }
        session.Save(speaker);
        PrintSpeaker(session.Speaker(speaker), options.metric);
    }
}

// ---------------------------------------------------------------------------
// tone

// The end of the chain: writes the file and answers the host's test level.
class ToneSink final : public IQVDSPSink
{
public:
    ToneSink(AtomicSoundFileWriter& writer, double testLevel, int channels)
        : writer(writer), testLevel(testLevel), channels(channels)
    {
    }
    void Output(double* samples, int32_t frames) override
    {
        writer.Write(samples, frames);
        for (int64_t i = 0; i < int64_t{frames} * channels; ++i)
            sumOfSquares += samples[i] * samples[i];
    }
    double GetTestLevel() override { return testLevel; }
    double sumOfSquares = 0.0;

private:
    AtomicSoundFileWriter& writer;
    double testLevel;
    int channels;
};

void Tone(const CliContext& context, const RoomOptions& options)
{
    const int32_t number = ParseSpeaker(options.speaker);
    CheckStream(options.channels, options.rate);
    if (!(options.seconds > 0.0 && options.seconds <= MAX_TONE_SECONDS))
        throw CliError(CLI_EXIT_USAGE,
                       "--seconds " + Number(options.seconds, "%g") + " is outside 0 to 3600");
    if (!(options.levelDb >= -120.0 && options.levelDb <= 20.0))
        throw CliError(CLI_EXIT_USAGE,
                       "--level " + Number(options.levelDb, "%g") + " dB is outside -120 to 20 dB");
    const std::filesystem::path output = options.output;
    std::string note;
    const SoundFileLayout layout{
        ChooseOutputFormat(output, SampleFormat::Same,
                           {SF_FORMAT_WAV | SF_FORMAT_PCM_24, options.rate, options.channels},
                           &note),
        options.rate, options.channels};

    RoomSession session(context);
    const CAudioFormat format = StreamFormat(options.channels, options.rate);
    {
        // Tone on, this speaker only: the panel's exclusive rule, without
        // the save that an apply makes.
        std::lock_guard<std::recursive_mutex> guard(session.Channels().lock);
        for (int32_t speaker = 0; speaker < Speaker::SPEAKER_COUNT; ++speaker)
        {
            CChannelDSP& each = session.Speaker(speaker);
            each.mute = each.solo = false;
            each.tone = speaker == number;
        }
    }
    if (session.Plugin().SetFormat(format) != 0)
        throw CliError(CLI_EXIT_USAGE, "Room Correction cannot serve " +
                                           std::to_string(options.channels) + " channels");
    const CChannelsDSP& channels = session.Channels();
    const int32_t served = channels.activeChannels.Find(&session.Speaker(number));
    if (served < 0)
        throw CliError(CLI_EXIT_USAGE,
                       std::string("speaker ") + SPEAKER_NAMES[number] + " serves no channel of " +
                           std::to_string(options.channels) +
                           " channels, so its tone would be silence (the subwoofer needs 6 or "
                           "more, the surround speakers 4, the rear speakers 8)");
    if (!note.empty())
        std::cerr << "qvdsp: " << note << '\n';

    const int64_t total = static_cast<int64_t>(std::llround(options.seconds * options.rate));
    constexpr int32_t BLOCK_FRAMES = 4096;
    std::vector<double> block(static_cast<size_t>(BLOCK_FRAMES) * options.channels);
    AtomicSoundFileWriter writer(output, layout, total);
    ToneSink sink(writer, std::pow(10.0, options.levelDb / 20.0), options.channels);
    for (int64_t done = 0; done < total;)
    {
        const int32_t frames = static_cast<int32_t>(std::min<int64_t>(BLOCK_FRAMES, total - done));
        std::fill(block.begin(), block.end(), 0.0);  // silence in
        session.Plugin().Process(block.data(), frames, &sink);
        done += frames;
    }
    writer.Commit();
    const double rms = std::sqrt(sink.sumOfSquares / static_cast<double>(total));
    std::printf("Wrote %s: %s of the %s calibration noise on channel %d of %d at %d Hz, "
                "RMS %s of full scale\n",
                Quoted(output).c_str(), Number(options.seconds, "%g s").c_str(),
                CAudioFormat::GetChannelName(number + CAudioFormat::Left, false).ToUTF8().c_str(),
                served, options.channels, options.rate, DbText(rms).c_str());
}

void AddStreamOptions(CLI::App& command, RoomOptions& o)
{
    command.add_option("--channels", o.channels, "Channels of the stream, 1 to 64")
        ->capture_default_str();
    command.add_option("--rate", o.rate, "Sample rate of the stream in Hz")->capture_default_str();
}

void AddMetricFlag(CLI::App& command, RoomOptions& o)
{
    command.add_flag("--metric", o.metric, "Show distances in metres as well");
}

}  // namespace

void AddRoomCommand(CLI::App& app, CliContext& context)
{
    CLI::App* room =
        app.add_subcommand("room", "Show and edit the speakers of Room Correction, calibrate them");
    room->require_subcommand(1);
    auto options = std::make_shared<RoomOptions>();
    RoomOptions& o = *options;
    const std::string speakerHelp = "Speaker: " + SpeakerList();

    CLI::App* show = AddSubcommandWithSharedOptions(
        *room, context, "show",
        "The eight speakers, then what the engine makes of a stream of --channels at --rate");
    AddStreamOptions(*show, o);
    AddMetricFlag(*show, o);
    show->add_flag("--json", o.json, "The same as JSON");
    SetSettingsCommandAction(*show, context, [&context, options] { Show(context, *options); });

    CLI::App* set = AddSubcommandWithSharedOptions(
        *room, context, "set",
        "Set a speaker's values as its panel would: level=DB "
        "distance=FEET|METRESm polarity=normal|reverse "
        "crossover=HZ hp-slope=N lp-slope=N routing=remove|move|copy");
    set->add_option("SPEAKER", o.speaker, speakerHelp)->required();
    set->add_option("SETTINGS", o.assignments,
                    "KEY=VALUE ...: level -20 to 20 dB; distance 0 to 100 ft, or m when it ends "
                    "in \"m\"; crossover 0 or 30 ... 250 Hz of the panel's list; slopes 12, 24, "
                    "36, 48")
        ->required();
    AddMetricFlag(*set, o);
    SetSettingsCommandAction(*set, context, [&context, options] { Set(context, *options); });

    CLI::App* levels = AddSubcommandWithSharedOptions(
        *room, context, "levels",
        "Set every speaker's level from sound level meter readings of its calibration tone");
    levels
        ->add_option("READINGS", o.readings,
                     "L R C SW SL SR RL RR: readings in dB; 0 or \"-\" for a speaker without one "
                     "(Left and Right are needed)")
        ->required();
    AddMetricFlag(*levels, o);
    SetSettingsCommandAction(*levels, context, [&context, options] { Levels(context, *options); });

    CLI::App* tone = AddSubcommandWithSharedOptions(
        *room, context, "tone",
        "Render a speaker's calibration noise through the plug-in (silence in) to an audio file");
    tone->add_option("SPEAKER", o.speaker, speakerHelp)->required();
    tone->add_option("OUTPUT", o.output, "Audio file; its extension names the container")
        ->required();
    tone->add_option("--seconds", o.seconds, "Length, up to 3600")->capture_default_str();
    AddStreamOptions(*tone, o);
    tone->add_option("--level", o.levelDb,
                     "Test level in dB that the host asks for (the sink's GetTestLevel)")
        ->capture_default_str();
    SetCommandAction(*tone, context, [&context, options] { Tone(context, *options); });

    CLI::App* reset = AddSubcommandWithSharedOptions(
        *room, context, "reset", "Put a speaker, or all, back to the stored defaults");
    reset->add_option("SPEAKER", o.speaker, speakerHelp + ", or all")->required();
    AddMetricFlag(*reset, o);
    SetSettingsCommandAction(*reset, context, [&context, options] { Reset(context, *options); });
}

void ConfigureRoomCorrectionDemo(IQVDSP& plugin, CliHost&)
{
    // Through the panel, as a user would set it; the demo's store is its own.
    // Left stands 3 ft farther than Right and is trimmed by 1.5 dB: Right
    // waits 2.7 ms, plays at 9/12 of its level, and loses the rumble below
    // 40 Hz that a small speaker cannot play.
    auto* room = dynamic_cast<CChannelsDSPPlugin*>(&plugin);
    if (room == nullptr)
        return;
    CChannelsDlg panel(*room);
    panel.Select(Speaker::LEFT);
    panel.SetDistance(12.0);
    panel.SetLevel(-1.5);
    panel.Select(Speaker::RIGHT);
    panel.SetDistance(9.0);
    panel.SetFrequencyItem(CChannelsDlg::FrequencyItemOf(40));
    panel.Close();
}
