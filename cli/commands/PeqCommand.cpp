// qvdsp peq: edits the filter list of a Parametric Equalizer instance the way
// its panel would, through the factory, the filters' property keys and the
// list text in the settings store.
#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "cli/commands/ApoImport.h"
#include "cli/commands/Commands.h"
#include "cli/commands/PeqResponse.h"
#include "cli/host/ReplacingFile.h"
#include "frame/PluginFactory.h"
#include "host/SettingsFile.h"
#include "parametric/FilterPanel.h"
#include "parametric/ParametricEqualizerPlugin.h"

namespace
{
struct PeqOptions
{
    int instance = 1;
    std::string type;
    std::vector<std::string> assignments;
    int at = 0;  // 1-based; 0 appends
    int index = 0;
    int target = 0;
    std::string file;
    int rate = 48000;
    int points = 31;
    int channels = 2;
    std::string svg;
};

const std::map<std::string, int32_t>& TypeNames()
{
    static const std::map<std::string, int32_t> names = {
        {"lowpass", 1},   {"highpass", 2},     {"peak", 3},       {"volume", 4},
        {"mute", 5},      {"mix", 6},          {"delay", 7},      {"linkwitz-transform", 8},
        {"limiter", 9},   {"lowshelf", 10},    {"highshelf", 11}, {"order", 12},
        {"bitdepth", 13}, {"sub-limiter", 14}, {"polarity", 15},  {"linkwitz-riley", 16},
        {"allpass", 17},  {"ms-encode", 18},   {"ms-decode", 19}, {"divider", 20},
        {"biquad", 21},
    };
    return names;
}

std::string ShortTypeName(int32_t type)
{
    for (const auto& [name, id] : TypeNames())
    {
        if (id == type)
            return name;
    }
    return std::string();
}

std::string Lower(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

int32_t ParseType(const std::string& text)
{
    char* end = nullptr;
    const long id = std::strtol(text.c_str(), &end, 10);
    if (!text.empty() && *end == 0 && id >= PARAMETRIC_FIRST_TYPE && id <= PARAMETRIC_LAST_TYPE)
        return static_cast<int32_t>(id);
    const auto found = TypeNames().find(Lower(text));
    if (found != TypeNames().end())
        return found->second;
    std::string accepted;
    for (const auto& [name, value] : TypeNames())
        accepted += (accepted.empty() ? "" : ", ") + name;
    throw CliError(CLI_EXIT_USAGE, "unknown filter type '" + text +
                                       "'; use an id from 1 to 21 or one of: " + accepted);
}

// A channel id from a number or a short name ("L", "Left", "Sub", "U1", "#9").
bool ParseChannel(const std::string& text, int32_t& id)
{
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (!text.empty() && *end == 0)
    {
        id = static_cast<int32_t>(number);
        return number >= 0 && number <= CAudioFormat::LastNumbered;
    }
    static const std::map<std::string, int32_t> aliases = {
        {"l", 2}, {"r", 3}, {"c", 4}, {"lfe", 5}};
    const std::string lower = Lower(text);
    if (const auto alias = aliases.find(lower); alias != aliases.end())
    {
        id = alias->second;
        return true;
    }
    for (int32_t candidate = CAudioFormat::Mono; candidate <= CAudioFormat::LastNumbered;
         ++candidate)
    {
        if (Lower(CAudioFormat::GetChannelName(candidate, true).ToUTF8()) == lower ||
            Lower(CAudioFormat::GetChannelName(candidate, false).ToUTF8()) == lower)
        {
            id = candidate;
            return true;
        }
    }
    return false;
}

std::string ChannelListValue(const std::string& key, const std::string& value)
{
    const char separator = key == "Order" ? ',' : ';';
    // An empty list would silently switch the filter off for every channel.
    if (value.empty())
        throw CliError(CLI_EXIT_USAGE,
                       key + " needs at least one channel, such as " + key + "=L;R");
    std::string result;
    std::string part;
    std::stringstream stream(value);
    while (std::getline(stream, part, value.find(';') != std::string::npos ? ';' : ','))
    {
        int32_t id = 0;
        if (!ParseChannel(part, id))
            throw CliError(CLI_EXIT_USAGE,
                           "bad channel '" + part + "' in " + key +
                               "; use ids or short names such as L;R;C;Sub;SL;SR;RL;RR;U1;U2;#9");
        result += (result.empty() ? "" : std::string(1, separator)) + std::to_string(id);
    }
    return result;
}

bool IsNumber(const std::string& text, bool integer)
{
    if (!IsDecimalText(text, integer))
        return false;
    std::string normalised = text;
    for (char& c : normalised)
    {
        if (c == ',')
            c = '.';
    }
    char* end = nullptr;
    errno = 0;
    if (integer)
    {
        const long value = std::strtol(normalised.c_str(), &end, 10);
        return errno == 0 && value >= INT32_MIN && value <= INT32_MAX;
    }
    const double value = std::strtod(normalised.c_str(), &end);
    return errno == 0 && std::isfinite(value);
}

// Refuses a filter that holds a value its panel could not have set.
void RequireValuesInRange(CParametricFilter& filter, const std::string& where)
{
    const QVString problem = FindValueOutsidePanel(filter);
    if (!problem.IsEmpty())
        throw CliError(CLI_EXIT_USAGE, where + problem.ToUTF8() + "; nothing changed");
}

// Sets KEY=VALUE pairs on a filter through its own property keys: only keys
// the filter saves are accepted, and every value is checked before any is set.
void ApplyAssignments(CParametricFilter& filter, const std::vector<std::string>& assignments)
{
    QVPropertyMap map;
    filter.Serialize(false, map);
    static const std::vector<std::string> integerKeys = {
        "Enabled", "Source", "Destination", "Mode", "PreventClipping", "Bits", "Dither"};
    static const std::vector<std::string> textKeys = {"Text", "Filename"};
    for (const std::string& assignment : assignments)
    {
        const size_t equals = assignment.find('=');
        const std::string key = assignment.substr(0, equals);
        if (equals == std::string::npos || key == "Type" || key == "Version" ||
            !map.Exists(QVString::FromUTF8(key)))
        {
            QVString names;
            map.Describe(names, QVString(), QVString(u","));
            std::string accepted;
            std::stringstream lines(names.ToUTF8());
            for (std::string line; std::getline(lines, line, ',');)
            {
                line = line.substr(line.find_first_not_of("\r\n"));
                const std::string name = line.substr(0, line.find(':'));
                if (!name.empty() && name != "Type" && name != "Version")
                    accepted += (accepted.empty() ? "" : ", ") + name;
            }
            throw CliError(CLI_EXIT_USAGE,
                           "'" + assignment +
                               "' is not KEY=VALUE with a key of this filter; keys: " + accepted);
        }
        std::string value = assignment.substr(equals + 1);
        const bool isInteger =
            std::find(integerKeys.begin(), integerKeys.end(), key) != integerKeys.end();
        const bool isText = std::find(textKeys.begin(), textKeys.end(), key) != textKeys.end();
        if (key == "Channels" || key == "Order")
            value = ChannelListValue(key, value);
        else if ((key == "Source" || key == "Destination") && !IsNumber(value, true))
        {
            int32_t id = 0;
            if (!ParseChannel(value, id))
                throw CliError(CLI_EXIT_USAGE, "bad channel '" + value + "' for " + key);
            value = std::to_string(id);
        }
        else if (!isText && !IsNumber(value, isInteger))
            throw CliError(CLI_EXIT_USAGE, "value of " + key + " must be " +
                                               (isInteger ? "an integer" : "a number") + ", not '" +
                                               value + "'");
        map.SetString(QVString::FromUTF8(key), QVString::FromUTF8(value));
    }
    filter.Serialize(true, map);
}

class PeqSession
{
public:
    PeqSession(const CliContext& context, int instance)
    {
        if (instance != 1 && instance != 2)
            throw CliError(CLI_EXIT_USAGE, "--instance must be 1 or 2");
        plugin.reset(CreateDSPPlugin(instance == 1 ? DSPPLUGIN_PARAMETRIC_EQUALIZER
                                                   : DSPPLUGIN_PARAMETRIC_EQUALIZER_2,
                                     nullptr, context.zone, false));
        equalizer = dynamic_cast<CParametricEqualizerDSPPlugin*>(plugin.get());
        if (equalizer == nullptr)
            throw CliError(CLI_EXIT_FAILED, "the Parametric Equalizer is not part of this build");
    }
    CParametricFilterList& List() { return equalizer->GetFilterList(); }
    IQVDSP& Plugin() { return *plugin; }
    CParametricFilter& At(int index)
    {
        RequirePosition(index, List().GetCount(), "no filter ");
        return *List().GetAt(index - 1);
    }
    // A position from 1 to last, checked before any arithmetic on it.
    void RequirePosition(int position, int32_t last, const char* what)
    {
        if (position < 1 || position > last)
            throw CliError(CLI_EXIT_USAGE, what + std::to_string(position) + "; the list has " +
                                               std::to_string(List().GetCount()) +
                                               " (numbered from 1)");
    }
    void Save()
    {
        if (!List().Save())
            throw CliError(CLI_EXIT_FAILED, SettingsWriteProblem());
    }

private:
    std::unique_ptr<IQVDSP> plugin;
    CParametricEqualizerDSPPlugin* equalizer = nullptr;
};

void PrintList(PeqSession& session)
{
    const int32_t count = session.List().GetCount();
    for (int32_t i = 0; i < count; ++i)
    {
        CParametricFilter* filter = session.List().GetAt(i);
        std::printf("%3d  [%c]  %s\n", i + 1, filter->IsEnabled() ? 'x' : ' ',
                    filter->GetDescription().ToUTF8().c_str());
    }
    if (count == 0)
        std::printf("(no filters)\n");
}

// A list or an EQ text of a few thousand filters is a few megabytes at most.
constexpr size_t kMaxImportBytes = size_t{64} << 20;

QVString ReadListFile(const std::string& path)
{
    const std::string bytes = ReadUserFile(path, kMaxImportBytes);
    QVString text = QVDecodeText(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    text.Trim();
    return text;
}

CLI::App* AddPeqSubcommand(CLI::App& peq, CliContext& context, PeqOptions& options,
                           const char* name, const char* description)
{
    CLI::App* command = peq.add_subcommand(name, description);
    command
        ->add_option("--instance", options.instance,
                     "1: Parametric Equalizer, 2: Parametric Equalizer 2")
        ->check(CLI::IsMember({1, 2}))
        ->capture_default_str();
    AddSharedOptions(*command, context);
    return command;
}
}  // namespace

void AddPeqCommand(CLI::App& app, CliContext& context)
{
    CLI::App* peq = app.add_subcommand("peq", "Edit the filter list of the Parametric Equalizer");
    peq->require_subcommand(1);
    auto options = std::make_shared<PeqOptions>();
    PeqOptions& o = *options;

    CLI::App* types =
        peq->add_subcommand("types", "List the filter types: id, short name and menu text");
    SetCommandAction(*types, context,
                     []
                     {
                         for (int32_t type = PARAMETRIC_FIRST_TYPE; type <= PARAMETRIC_LAST_TYPE;
                              ++type)
                             std::printf("%2d  %-19s %s\n", type, ShortTypeName(type).c_str(),
                                         GetParametricFilterName(type).ToUTF8().c_str());
                     });

    CLI::App* list =
        AddPeqSubcommand(*peq, context, o, "list", "Show the list: index, enabled, description");
    SetSettingsCommandAction(*list, context,
                             [&context, options]
                             {
                                 PeqSession session(context, options->instance);
                                 PrintList(session);
                             });

    CLI::App* add =
        AddPeqSubcommand(*peq, context, o, "add", "Add a filter, with KEY=VALUE property settings");
    add->add_option("TYPE", o.type, "Type id or short name (see 'qvdsp peq types')")->required();
    add->add_option("SETTINGS", o.assignments,
                    "KEY=VALUE, e.g. Frequency=80 Gain=-3 Q=1.4 Channels=L;R");
    add->add_option("--at", o.at, "Position, from 1 (default: the end)")
        ->check(CLI::PositiveNumber);
    SetSettingsCommandAction(*add, context,
                             [&context, options]
                             {
                                 PeqSession session(context, options->instance);
                                 std::unique_ptr<CParametricFilter> filter(
                                     CreateParametricFilter(ParseType(options->type)));
                                 ApplyAssignments(*filter, options->assignments);
                                 RequireValuesInRange(*filter, "");
                                 const int32_t count = session.List().GetCount();
                                 if (options->at > 0)
                                     session.RequirePosition(options->at, count + 1,
                                                             "no position ");
                                 const int32_t row = options->at > 0 ? options->at - 1 : count;
                                 session.List().Insert(row, std::move(filter));
                                 session.Save();
                                 PrintList(session);
                             });

    CLI::App* set = AddPeqSubcommand(*peq, context, o, "set", "Change properties of filter N");
    set->add_option("N", o.index, "Filter number, from 1")->required();
    set->add_option("SETTINGS", o.assignments, "KEY=VALUE ...")->required();
    SetSettingsCommandAction(*set, context,
                             [&context, options]
                             {
                                 PeqSession session(context, options->instance);
                                 // Through the text form, as a copy of a filter is made: the edited
                                 // filter replaces the old one only when every value was accepted.
                                 CParametricFilter& old = session.At(options->index);
                                 std::unique_ptr<CParametricFilter> edited(
                                     CreateParametricFilter(old.GetType()));
                                 edited->LoadFromText(old.SaveToText());
                                 ApplyAssignments(*edited, options->assignments);
                                 RequireValuesInRange(*edited, "");
                                 session.List().Remove(options->index - 1);
                                 session.List().Insert(options->index - 1, std::move(edited));
                                 session.Save();
                                 PrintList(session);
                             });

    CLI::App* remove = AddPeqSubcommand(*peq, context, o, "remove", "Remove filter N");
    remove->add_option("N", o.index, "Filter number, from 1")->required();
    SetSettingsCommandAction(*remove, context,
                             [&context, options]
                             {
                                 PeqSession session(context, options->instance);
                                 session.At(options->index);
                                 session.List().Remove(options->index - 1);
                                 session.Save();
                                 PrintList(session);
                             });

    CLI::App* move = AddPeqSubcommand(*peq, context, o, "move", "Move filter N to position M");
    move->add_option("N", o.index, "Filter number, from 1")->required();
    move->add_option("M", o.target, "New position, from 1 to the length of the list")->required();
    SetSettingsCommandAction(*move, context,
                             [&context, options]
                             {
                                 PeqSession session(context, options->instance);
                                 session.At(options->index);
                                 session.RequirePosition(options->target, session.List().GetCount(),
                                                         "no position ");
                                 session.List().Move(options->index - 1, options->target - 1);
                                 session.Save();
                                 PrintList(session);
                             });

    for (const bool enable : {true, false})
    {
        CLI::App* toggle = AddPeqSubcommand(*peq, context, o, enable ? "enable" : "disable",
                                            enable ? "Enable filter N" : "Disable filter N");
        toggle->add_option("N", o.index, "Filter number, from 1")->required();
        SetSettingsCommandAction(*toggle, context,
                                 [&context, options, enable]
                                 {
                                     PeqSession session(context, options->instance);
                                     session.At(options->index).SetEnabled(enable);
                                     session.Save();
                                     PrintList(session);
                                 });
    }

    CLI::App* clear = AddPeqSubcommand(*peq, context, o, "clear", "Remove every filter");
    SetSettingsCommandAction(*clear, context,
                             [&context, options]
                             {
                                 PeqSession session(context, options->instance);
                                 while (session.List().GetCount() > 0)
                                     session.List().Remove(0);
                                 session.Save();
                             });

    CLI::App* exportList =
        AddPeqSubcommand(*peq, context, o, "export", "Write the list text to FILE");
    exportList->add_option("FILE", o.file, "File to write")->required();
    SetSettingsCommandAction(*exportList, context,
                             [&context, options]
                             {
                                 PeqSession session(context, options->instance);
                                 WriteReplacingFile(options->file,
                                                    session.List().SaveText().ToUTF8());
                             });

    CLI::App* response = AddPeqSubcommand(*peq, context, o, "response",
                                          "Magnitude response of the list, per channel it changes");
    response->add_option("--rate", o.rate, "Sample rate, Hz")
        ->check(CLI::Range(8000, 768000))
        ->capture_default_str();
    response
        ->add_option("--points", o.points,
                     "Frequencies in the table, log-spaced from 20 Hz to 20 kHz")
        ->check(CLI::Range(2, 2000))
        ->capture_default_str();
    response->add_option("--channels", o.channels, "Channels of the measured stream")
        ->check(CLI::Range(1, 32))
        ->capture_default_str();
    response->add_option("--svg", o.svg, "Also draw the response into this SVG file");
    SetCommandAction(*response, context,
                     [&context, options]
                     {
                         PeqSession session(context, options->instance);
                         // Measuring runs audio through the plug-in: nothing of that may reach the
                         // store.
                         session.Plugin().SetOption(DSPOPT_TRANSIENT);
                         const MagnitudeResponse measured = MeasureResponse(
                             session.Plugin(), options->rate, options->channels, options->points);
                         if (measured.channels.empty())
                             std::printf("The list changes no channel of a %d-channel stream.\n",
                                         options->channels);
                         else
                             std::fputs(ResponseTable(measured).c_str(), stdout);
                         if (!options->svg.empty())
                             WriteReplacingFile(options->svg, ResponseSvg(measured));
                     });

    CLI::App* importApo = AddPeqSubcommand(
        *peq, context, o, "import-apo",
        "Append the filters of a parametric EQ text (Preamp:, Filter N: ON PK ...)");
    importApo->add_option("FILE", o.file, "Text file")->required();
    SetSettingsCommandAction(
        *importApo, context,
        [&context, options]
        {
            const std::string bytes = ReadUserFile(options->file, kMaxImportBytes);
            const std::string text =
                QVDecodeText(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()).ToUTF8();
            const ApoImport imported = ParseApoText(text);
            for (const ApoLineProblem& problem : imported.unmapped)
                std::fprintf(stderr, "qvdsp: %s:%d: not imported: %s\n", options->file.c_str(),
                             problem.line, EscapeControls(problem.text).c_str());
            if (imported.filters.empty())
                throw CliError(CLI_EXIT_FAILED,
                               options->file +
                                   " holds no filter that can be imported; nothing changed");
            std::vector<std::unique_ptr<CParametricFilter>> made;
            for (const ImportedFilter& filter : imported.filters)
            {
                made.push_back(MakeImportedFilter(filter));
                RequireValuesInRange(*made.back(),
                                     options->file + ":" + std::to_string(filter.line) + ": ");
            }
            PeqSession session(context, options->instance);
            for (std::unique_ptr<CParametricFilter>& filter : made)
                session.List().Insert(session.List().GetCount(), std::move(filter));
            session.Save();
            PrintList(session);
        });

    CLI::App* importList =
        AddPeqSubcommand(*peq, context, o, "import", "Replace the list by the list text in FILE");
    importList->add_option("FILE", o.file, "File written by 'qvdsp peq export'")->required();
    SetSettingsCommandAction(
        *importList, context,
        [&context, options]
        {
            const QVString text = ReadListFile(options->file);
            ParametricFilterArray filters;
            LoadParametricFilterList(text, filters);
            // A text that isn't a list leaves the current list alone.
            if (filters.empty() && !text.StartsWith(u"(1:1)(1:0)"))
                throw CliError(CLI_EXIT_FAILED, options->file + " holds no filter list text");
            for (size_t i = 0; i < filters.size(); ++i)
                RequireValuesInRange(*filters[i],
                                     options->file + ": filter " + std::to_string(i + 1) + ": ");
            PeqSession session(context, options->instance);
            session.List().LoadText(text);
            session.Save();
            PrintList(session);
        });
}
