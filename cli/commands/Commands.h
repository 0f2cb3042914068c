// The commands of qvdsp. Each command lives in its own source file and adds
// itself to the command line through one Add...Command function, so that a new
// command is one new file plus one line in main.cpp.
#pragma once

#include "cli/host/CliError.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

namespace CLI
{
class App;
}

// What all commands share: the options that decide which settings the plug-ins
// see, and the action of the command that the command line chose. Parsing only
// records; nothing runs until the whole command line has been accepted.
struct CliContext
{
    // Zone of every plug-in the command creates; -10000 is the global branch.
    int32_t zone = 0;
    // --settings FILE; empty keeps QVDSP_SETTINGS or the default path.
    std::string settingsFile;
    std::function<void()> action;

    // Makes the settings file the one the store opens. Called once, before any
    // plug-in is created.
    void ApplySharedOptions() const;
    // Applies the shared options and runs the chosen command.
    int Run() const;
};

// Adds --zone N and --settings FILE to a command that creates plug-ins.
void AddSharedOptions(CLI::App& command, CliContext& context);
// A subcommand of `parent` that creates plug-ins, with those options.
CLI::App* AddSubcommandWithSharedOptions(CLI::App& parent, CliContext& context,
                                         const std::string& name, const std::string& description);
// The command's action runs after parsing, only if this command was chosen.
void SetCommandAction(CLI::App& command, CliContext& context, std::function<void()> action);
// The same for a command that edits settings: everything it reads and writes
// in the settings file is one update, made under the file's lock from the
// first read to the one write at the end, so that commands running side by
// side never lose each other's changes. A command that fails writes nothing.
void SetSettingsCommandAction(CLI::App& command, CliContext& context, std::function<void()> action);

// Plain decimal numbers only: an optional sign, digits with at most one "."
// or ",", and for non-integers an exponent.
bool IsDecimalText(const std::string& text, bool integer);
// A number as the panels' edit fields take it: "." or "," as the decimal
// mark, the whole text, finite; nothing when the text is no such number.
std::optional<double> ParseDecimal(std::string text);

// Text from a user's file fit to echo on a terminal: control characters
// and bytes that are not UTF-8 become escapes such as \x1b.
std::string EscapeControls(const std::string& text);

// Text placed in SVG or XML, in an element or a quoted attribute.
std::string EscapeMarkup(const std::string& text);

// The whole of a user's file, at most limit bytes; a CliError naming the file
// and the reason otherwise (a folder, a missing file, one that is too large).
std::string ReadUserFile(const std::string& path, size_t limit);

// Why the settings store refused the last write: the file and the reason.
std::string SettingsWriteProblem();

void AddListCommand(CLI::App& app, CliContext& context);
void AddProcessCommand(CLI::App& app, CliContext& context);
void AddDescribeCommand(CLI::App& app, CliContext& context);
void AddDemoCommand(CLI::App& app, CliContext& context);
void AddPeqCommand(CLI::App& app, CliContext& context);
void AddSettingsCommand(CLI::App& app, CliContext& context);
void AddEqCommand(CLI::App& app, CliContext& context);
void AddEffectsCommand(CLI::App& app, CliContext& context);
void AddRoomCommand(CLI::App& app, CliContext& context);
void AddOutputCommand(CLI::App& app, CliContext& context);
void AddRegisterCommand(CLI::App& app, CliContext& context);
void AddAnalyzeCommand(CLI::App& app, CliContext& context);
void AddInfoCommand(CLI::App& app, CliContext& context);
void AddHeadphonesCommand(CLI::App& app, CliContext& context);
void AddTempoCommand(CLI::App& app, CliContext& context);
void AddTagCommand(CLI::App& app, CliContext& context);
void AddConvolutionCommand(CLI::App& app, CliContext& context);
