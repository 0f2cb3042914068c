// qvdsp tempo: looks at and changes the Tempo & Pitch settings of a zone, as
// factors or as the panel's control values. Every value is checked against
// the panel's ranges before the plug-in is made, so a refused command writes
// nothing.
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "cli/commands/CommandPlugin.h"
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"
#include "effects/TempoPitchPlugin.h"
#include "frame/PluginFactory.h"
#include "host/SettingsFile.h"

namespace
{

using Dlg = CTempoPitchDlg;

class TempoSession
{
public:
    explicit TempoSession(const CliContext& context)
        : tempo(context, DSPPLUGIN_TEMPO_PITCH, "the Tempo & Pitch plug-in")
    {
    }
    CTempoPitchDSPPlugin& Plugin() { return *tempo; }
    void CheckSaved()
    {
        if (!tempo->LastSaveSucceeded())
            throw CliError(CLI_EXIT_FAILED, "cannot write the Tempo & Pitch settings to " +
                                                CSettingsFile::DefaultPath());
    }

private:
    CommandPlugin<CTempoPitchDSPPlugin> tempo;
};

// One row's value as given: a factor or a control value, or nothing.
struct RowValue
{
    std::optional<double> factor;
    std::optional<double> control;
};

struct TempoOptions
{
    RowValue rows[Dlg::ROW_COUNT];
};

std::string Lower(std::string text)
{
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%g", value);
    return text;
}

// The factor a row is to take, or nothing if the row is not given. Throws a
// usage error for both forms at once or a value outside the panel's range.
std::optional<double> CheckedFactor(int32_t row, const RowValue& given)
{
    const Dlg::Control& control = Dlg::CONTROLS[row];
    const std::string name = Lower(QVString(control.heading).ToUTF8());
    if (given.factor && given.control)
        throw CliError(CLI_EXIT_USAGE, "give --" + name + " or --" + name + "-control, not both");
    const double lowest = Dlg::ControlToFactor(control.minimum);
    const double highest = Dlg::ControlToFactor(control.maximum);
    if (given.factor)
    {
        const double factor = *given.factor;
        if (!(factor >= lowest && factor <= highest))
            throw CliError(CLI_EXIT_USAGE, "--" + name + " " + Number(factor) +
                                               " is outside the panel's range, " + Number(lowest) +
                                               " to " + Number(highest));
        return factor;
    }
    if (given.control)
    {
        const double value = *given.control;
        if (!(value >= control.minimum && value <= control.maximum))
            throw CliError(CLI_EXIT_USAGE, "--" + name + "-control " + Number(value) +
                                               " is outside the panel's range, " +
                                               Number(control.minimum) + " to " +
                                               Number(control.maximum));
        return Dlg::ControlToFactor(value);
    }
    return std::nullopt;
}

void Show(CTempoPitchDSPPlugin& plugin)
{
    const double factors[Dlg::ROW_COUNT] = {plugin.GetTempo(), plugin.GetPitch(), plugin.GetRate()};
    std::printf("%-6s %10s %9s\n", "", "factor", "control");
    for (int32_t row = 0; row < Dlg::ROW_COUNT; ++row)
        std::printf("%-6s %9.4fx %+9.2f\n", QVString(Dlg::CONTROLS[row].heading).ToUTF8().c_str(),
                    factors[row], Dlg::FactorToControl(factors[row]));
    const bool neutral = std::fabs(factors[0] - 1.0) <= CTempoPitchDSPPlugin::NEUTRAL_TOLERANCE &&
                         std::fabs(factors[1] - 1.0) <= CTempoPitchDSPPlugin::NEUTRAL_TOLERANCE &&
                         std::fabs(factors[2] - 1.0) <= CTempoPitchDSPPlugin::NEUTRAL_TOLERANCE;
    std::printf("%s\n", neutral ? "Within 1% of neutral: the audio passes untouched"
                                : "The audio runs through the stretcher");
}

void AddRowOptions(CLI::App& command, TempoOptions& options)
{
    for (int32_t row = 0; row < Dlg::ROW_COUNT; ++row)
    {
        const Dlg::Control& control = Dlg::CONTROLS[row];
        const std::string name = Lower(QVString(control.heading).ToUTF8());
        const std::string range = Number(Dlg::ControlToFactor(control.minimum)) + " to " +
                                  Number(Dlg::ControlToFactor(control.maximum));
        command.add_option("--" + name, options.rows[row].factor,
                           "The " + name + " as a factor, " + range + " (1 is unchanged)");
        command.add_option("--" + name + "-control", options.rows[row].control,
                           "The " + name + " as the panel's control value, " +
                               Number(control.minimum) + " to " + Number(control.maximum));
    }
}

}  // namespace

void AddTempoCommand(CLI::App& app, CliContext& context)
{
    CLI::App* tempo =
        app.add_subcommand("tempo", "Show and change the Tempo & Pitch settings of a zone");
    tempo->require_subcommand(1);

    CLI::App* show = AddSubcommandWithSharedOptions(
        *tempo, context, "show", "Show tempo, pitch and rate as factors and control values");
    SetCommandAction(*show, context,
                     [&context]
                     {
                         TempoSession session(context);
                         Show(session.Plugin());
                     });

    CLI::App* set = AddSubcommandWithSharedOptions(
        *tempo, context, "set", "Change tempo, pitch or rate; the others stay as they are");
    auto options = std::make_shared<TempoOptions>();
    AddRowOptions(*set, *options);
    SetCommandAction(*set, context,
                     [&context, options]
                     {
                         std::optional<double> wanted[Dlg::ROW_COUNT];
                         bool any = false;
                         for (int32_t row = 0; row < Dlg::ROW_COUNT; ++row)
                         {
                             wanted[row] = CheckedFactor(row, options->rows[row]);
                             any = any || wanted[row].has_value();
                         }
                         if (!any)
                             throw CliError(CLI_EXIT_USAGE,
                                            "set needs at least one of --tempo, --pitch, --rate "
                                            "or their -control forms");
                         TempoSession session(context);
                         CTempoPitchDSPPlugin& plugin = session.Plugin();
                         plugin.SetParameters(wanted[0].value_or(plugin.GetTempo()),
                                              wanted[1].value_or(plugin.GetPitch()),
                                              wanted[2].value_or(plugin.GetRate()), false, false);
                         session.CheckSaved();
                         Show(plugin);
                     });

    CLI::App* reset = AddSubcommandWithSharedOptions(*tempo, context, "reset",
                                                     "Set tempo, pitch and rate back to 1");
    SetCommandAction(*reset, context,
                     [&context]
                     {
                         TempoSession session(context);
                         session.Plugin().SetParameters(1.0, 1.0, 1.0, true, false);
                         session.CheckSaved();
                         Show(session.Plugin());
                     });
}
