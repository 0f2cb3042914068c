// qvdsp eq: looks at and edits the 20-band Equalizer of a zone the way its
// panel would: sliders through the panel's rounding rules, presets through its
// "Manage" menu. Every argument is checked before the plug-in is made, so a
// refused command writes nothing.
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "cli/commands/CommandPlugin.h"
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"
#include "effects/EqualizerDlg.h"
#include "effects/EqualizerPlugin.h"
#include "frame/PluginFactory.h"
#include "host/SettingsFile.h"

namespace
{
struct EqOptions
{
    std::string setting;
    std::string name;
    std::string gain;
    int band = 0;
};

class EqSession
{
public:
    explicit EqSession(const CliContext& context)
        : equalizer(context, DSPPLUGIN_EQUALIZER, "the Equalizer")
    {
        equalizer->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    }
    CEqualizerDSPPlugin& Plugin() { return *equalizer; }
    CEqualizerPresets& Presets() { return equalizer->GetPresets(); }
    CEqualizerDlg& Panel() { return *equalizer->GetPanel(); }
    // The stored spelling of a preset the user named in any case.
    QVString RequirePreset(const std::string& name)
    {
        const QVString stored = Presets().FindPresetName(QVString::FromUTF8(name));
        if (stored.IsEmpty())
        {
            std::string known;
            for (const QVString& each : Presets().GetSortedNames())
                known += (known.empty() ? "" : ", ") + each.ToUTF8();
            throw CliError(CLI_EXIT_USAGE, "no preset named '" + name + "'; presets: " + known);
        }
        return stored;
    }
    // The panel saves by itself after its "Manage" operations but cannot tell
    // of a store that refused the write; saving once more here does.
    void Save()
    {
        if (!Presets().Save())
            throw CliError(CLI_EXIT_FAILED, SettingsWriteProblem());
    }

private:
    CommandPlugin<CEqualizerDSPPlugin> equalizer;
};

// A setting of 21 characters, or the older 11, each from "0" to "n".
QVString CheckedSetting(const std::string& text)
{
    const QVString setting = CEqualizerEngine::ExpandLegacySetting(QVString::FromUTF8(text));
    if (setting.GetLength() != CEqualizerEngine::SETTING_LENGTH)
        throw CliError(CLI_EXIT_USAGE,
                       "a setting has 21 characters (preamp and 20 bands) or 11 (preamp and 10 "
                       "bands), not " +
                           std::to_string(QVString::FromUTF8(text).GetLength()));
    if (!CEqualizerEngine::IsWellFormedSetting(setting))
        throw CliError(CLI_EXIT_USAGE,
                       "'" + text + "' holds a character outside \"0\" (+12 dB) to \"n\" (-12 dB)");
    return setting;
}

double CheckedGain(const std::string& text)
{
    const std::optional<double> gain = ParseDecimal(text);
    if (!gain)
        throw CliError(CLI_EXIT_USAGE, "'" + text + "' is not a number of dB");
    if (*gain < CEqualizerDlg::SLIDER_MIN_DB || *gain > CEqualizerDlg::SLIDER_MAX_DB)
        throw CliError(CLI_EXIT_USAGE,
                       "gain " + text + " dB is outside the sliders' -12 to +12 dB");
    return *gain;
}

std::string FrequencyText(double hz)
{
    char text[32];
    if (hz >= 1000.0)
        std::snprintf(text, sizeof(text), "%g kHz", hz / 1000.0);
    else
        std::snprintf(text, sizeof(text), "%g Hz", hz);
    return text;
}

void Show(EqSession& session)
{
    CEqualizerPresets& presets = session.Presets();
    const CEqualizerEngine& engine = session.Plugin().GetEngine();
    std::printf("Setting  %s\n", presets.settings.ToUTF8().c_str());
    std::printf("Preset   %s\n", session.Panel().GetPresetText().ToUTF8().c_str());
    std::printf("%-9s %+7.2f dB\n", "Preamp", engine.GetPreampGain());
    for (int32_t band = 0; band < CEqualizerEngine::BAND_COUNT; ++band)
        std::printf("%-9s %+7.2f dB\n",
                    FrequencyText(CEqualizerEngine::BAND_FREQUENCIES[band]).c_str(),
                    engine.GetBandGain(band));
}

void ListPresets(EqSession& session)
{
    CEqualizerPresets& presets = session.Presets();
    for (const QVString& name : presets.GetSortedNames())
    {
        const bool current = name.CompareNoCase(presets.preset) == 0;
        std::printf("%c %-24s %s\n", current ? '*' : ' ', name.ToUTF8().c_str(),
                    presets.FindPreset(name)->ToUTF8().c_str());
    }
}

}  // namespace

void AddEqCommand(CLI::App& app, CliContext& context)
{
    CLI::App* eq = app.add_subcommand("eq", "Show and edit the 20-band Equalizer and its presets");
    eq->require_subcommand(1);
    auto options = std::make_shared<EqOptions>();
    EqOptions& o = *options;

    CLI::App* show = AddSubcommandWithSharedOptions(
        *eq, context, "show", "Show the setting, the preset and every gain in dB");
    SetSettingsCommandAction(*show, context,
                             [&context]
                             {
                                 EqSession session(context);
                                 Show(session);
                             });

    CLI::App* set = AddSubcommandWithSharedOptions(*eq, context, "set",
                                                   "Set all gains at once by a setting text");
    set->add_option("SETTING", o.setting,
                    "21 characters (or the older 11) from \"0\" (+12 dB) over \"O\" (0 dB) "
                    "to \"n\" (-12 dB), preamp first")
        ->required();
    SetSettingsCommandAction(*set, context,
                             [&context, options]
                             {
                                 const QVString setting = CheckedSetting(options->setting);
                                 EqSession session(context);
                                 session.Presets().settings = setting;
                                 session.Presets().preset = QVString();
                                 session.Presets().SelectPreset(QVString());
                                 session.Save();
                                 session.Panel().Refresh();
                                 Show(session);
                             });

    CLI::App* band = AddSubcommandWithSharedOptions(
        *eq, context, "band", "Move the slider of band N (1 = 31.25 Hz ... 20 = 20 kHz)");
    band->add_option("N", o.band, "Band number, 1 to 20")->required();
    band->add_option("DB", o.gain, "Gain in dB, -12 to 12, on the sliders' 0.5 dB grid")
        ->required();
    SetSettingsCommandAction(
        *band, context,
        [&context, options]
        {
            if (options->band < 1 || options->band > CEqualizerEngine::BAND_COUNT)
                throw CliError(CLI_EXIT_USAGE,
                               "no band " + std::to_string(options->band) + "; bands are 1 to 20");
            const double gain = CheckedGain(options->gain);
            EqSession session(context);
            session.Panel().MoveSlider(options->band, gain);
            session.Save();
            Show(session);
        });

    CLI::App* preamp =
        AddSubcommandWithSharedOptions(*eq, context, "preamp", "Move the preamp's slider");
    preamp->add_option("DB", o.gain, "Gain in dB, -12 to 12")->required();
    SetSettingsCommandAction(*preamp, context,
                             [&context, options]
                             {
                                 const double gain = CheckedGain(options->gain);
                                 EqSession session(context);
                                 session.Panel().MoveSlider(0, gain);
                                 session.Save();
                                 Show(session);
                             });

    CLI::App* preset = AddSubcommandWithSharedOptions(*eq, context, "preset",
                                                      "Select a preset by name (any case)");
    preset->add_option("NAME", o.name, "Preset name")->required();
    SetSettingsCommandAction(*preset, context,
                             [&context, options]
                             {
                                 EqSession session(context);
                                 session.Panel().ChoosePreset(session.RequirePreset(options->name));
                                 session.Save();
                                 Show(session);
                             });

    CLI::App* presets = AddSubcommandWithSharedOptions(*eq, context, "presets",
                                                       "List the presets (shared by all zones)");
    SetSettingsCommandAction(*presets, context,
                             [&context]
                             {
                                 EqSession session(context);
                                 ListPresets(session);
                             });

    CLI::App* savePreset = AddSubcommandWithSharedOptions(
        *eq, context, "save-preset", "Save the current setting as a preset and select it");
    savePreset
        ->add_option("NAME", o.name, "Preset name; an existing preset of that name is replaced")
        ->required();
    SetSettingsCommandAction(*savePreset, context,
                             [&context, options]
                             {
                                 QVString name = QVString::FromUTF8(options->name);
                                 if (name.Trim().IsEmpty())
                                     throw CliError(CLI_EXIT_USAGE, "a preset needs a name");
                                 EqSession session(context);
                                 session.Panel().SavePresetAs(name, true);
                                 session.Save();
                                 ListPresets(session);
                             });

    CLI::App* deletePreset =
        AddSubcommandWithSharedOptions(*eq, context, "delete-preset", "Delete a preset");
    deletePreset->add_option("NAME", o.name, "Preset name (any case)")->required();
    SetSettingsCommandAction(*deletePreset, context,
                             [&context, options]
                             {
                                 EqSession session(context);
                                 session.Panel().DeletePreset(session.RequirePreset(options->name),
                                                              true);
                                 session.Save();
                                 ListPresets(session);
                             });

    CLI::App* reset = AddSubcommandWithSharedOptions(*eq, context, "reset-presets",
                                                     "Replace all presets by the default ones");
    SetSettingsCommandAction(*reset, context,
                             [&context]
                             {
                                 EqSession session(context);
                                 session.Panel().ResetAllPresets(true);
                                 session.Save();
                                 ListPresets(session);
                             });
}

void SelectEqualizerDemoPreset(IQVDSP& plugin, CliHost&)
{
    // Through the panel, as a user would pick it; the demo's store is its own.
    auto* equalizer = dynamic_cast<CEqualizerDSPPlugin*>(&plugin);
    if (equalizer == nullptr)
        return;
    equalizer->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    equalizer->GetPanel()->ChoosePreset(QVString(u"Rock"));
    equalizer->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr);
}
