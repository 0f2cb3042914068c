// qvdsp headphones: looks at and chooses the crossfeed preset of a zone the
// way the Headphones panel does. The argument is checked before the plug-in
// is made, so a refused command writes nothing.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "cli/commands/CommandPlugin.h"
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"
#include "effects/HeadphonesPlugin.h"
#include "frame/PluginFactory.h"
#include "host/SettingsFile.h"

namespace
{

class HeadphonesSession
{
public:
    explicit HeadphonesSession(const CliContext& context)
        : headphones(context, DSPPLUGIN_HEADPHONES, "the Headphones plug-in")
    {
        headphones->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    }

    CHeadphonesDSPPlugin& Plugin() { return *headphones; }
    CHeadphonesDlg& Panel() { return *headphones->GetPanel(); }

private:
    CommandPlugin<CHeadphonesDSPPlugin> headphones;
};

std::string Lower(std::string text)
{
    for (char& c : text)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return text;
}

std::string PresetName(int32_t row)
{
    return CHeadphonesDSPPlugin::GetPresets()[row]->name.ToUTF8();
}

// A preset by its name in any case, or by its index.
int32_t CheckedPreset(const std::string& given)
{
    const int32_t count = CHeadphonesDSPPlugin::GetPresets().GetCount();
    for (int32_t row = 0; row < count; ++row)
        if (Lower(given) == Lower(PresetName(row)))
            return row;
    if (given.size() == 1 && given[0] >= '0' && given[0] < '0' + count)
        return given[0] - '0';
    std::string known;
    for (int32_t row = 0; row < count; ++row)
        known += (row == 0 ? "" : ", ") + std::to_string(row) + " " + PresetName(row);
    throw CliError(CLI_EXIT_USAGE, "no Headphones preset '" + given + "'; choose one of: " + known);
}

void Show(CHeadphonesDSPPlugin& plugin)
{
    const int32_t row = CHeadphonesDSPPlugin::FindPreset(plugin.GetStrength(), plugin.GetDelayMS(),
                                                         plugin.GetCutoffFrequency());
    std::printf("%-9s %s\n", "Preset", row >= 0 ? PresetName(row).c_str() : "(none of the six)");
    std::printf("%-9s %g\n", "Strength", plugin.GetStrength());
    std::printf("%-9s %g ms\n", "Delay", plugin.GetDelayMS());
    std::printf("%-9s %g Hz\n", "Cutoff", plugin.GetCutoffFrequency());
}

void ListPresets(CHeadphonesDSPPlugin& plugin)
{
    const int32_t current = CHeadphonesDSPPlugin::FindPreset(
        plugin.GetStrength(), plugin.GetDelayMS(), plugin.GetCutoffFrequency());
    const auto& presets = CHeadphonesDSPPlugin::GetPresets();
    for (int32_t row = 0; row < presets.GetCount(); ++row)
    {
        const CHeadphonesDSPPluginSettings& preset = *presets[row];
        std::printf("%c %d  %-38s strength %-4g delay %-4g ms  cutoff %g Hz\n",
                    row == current ? '*' : ' ', row, preset.name.ToUTF8().c_str(), preset.strength,
                    preset.delayMS, preset.cutoffFrequency);
    }
}

}  // namespace

void AddHeadphonesCommand(CLI::App& app, CliContext& context)
{
    CLI::App* headphones =
        app.add_subcommand("headphones", "Show and choose the Headphones crossfeed preset");
    headphones->require_subcommand(1);

    CLI::App* show = AddSubcommandWithSharedOptions(*headphones, context, "show",
                                                    "Show the preset and its three numbers");
    SetCommandAction(*show, context,
                     [&context]
                     {
                         HeadphonesSession session(context);
                         Show(session.Plugin());
                     });

    CLI::App* presets = AddSubcommandWithSharedOptions(
        *headphones, context, "presets", "List the six presets; * marks the zone's one");
    SetCommandAction(*presets, context,
                     [&context]
                     {
                         HeadphonesSession session(context);
                         ListPresets(session.Plugin());
                     });

    CLI::App* preset = AddSubcommandWithSharedOptions(*headphones, context, "preset",
                                                      "Choose a preset for the zone");
    auto name = std::make_shared<std::string>();
    preset
        ->add_option("NAME|INDEX", *name,
                     "A name of 'presets' in any case (\"standard\") or its index (0 to 5)")
        ->required();
    SetCommandAction(*preset, context,
                     [&context, name]
                     {
                         const int32_t row = CheckedPreset(*name);
                         // The panel stores a choice only for a plug-in with a zone.
                         if (context.zone == DSP_ZONE_GLOBAL)
                             throw CliError(CLI_EXIT_USAGE,
                                            "the global branch (zone -10000) keeps no Headphones "
                                            "preset; name a player zone with --zone");
                         HeadphonesSession session(context);
                         session.Panel().Select(row);
                         if (!session.Plugin().LastSaveSucceeded())
                             throw CliError(CLI_EXIT_FAILED,
                                            "cannot write the Headphones settings to " +
                                                CSettingsFile::DefaultPath());
                         Show(session.Plugin());
                     });
}

void SelectHeadphonesDemoSetting(IQVDSP& plugin, CliHost&)
{
    // "Standard", chosen through the panel as a user would.
    auto* headphones = dynamic_cast<CHeadphonesDSPPlugin*>(&plugin);
    if (headphones == nullptr)
        return;
    headphones->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    headphones->GetPanel()->Select(2);
    headphones->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr);
}
