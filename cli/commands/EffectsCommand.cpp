// qvdsp effects: looks at and changes the Effects plug-in of a zone the way
// its panel would. Every argument is checked before the plug-in is made, and
// the plug-in never saves on its own here, so a refused command writes nothing
// and a change is written once, by the panel's own save.
#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "cli/commands/CommandPlugin.h"
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"
#include "effects/EffectsDisplayDlg.h"
#include "effects/EffectsPlugin.h"
#include "frame/PluginFactory.h"
#include "host/SettingsFile.h"

namespace
{

using Dlg = CEffectsDisplayDlg;

constexpr int32_t SUBWOOFER_SIZES[CEffectsEngine::SUBWOOFER_COUNT] = {0, 6, 8, 10, 12, 15};

struct EffectsOptions
{
    std::string choice;
    std::string amount;
};

class EffectsSession
{
public:
    explicit EffectsSession(const CliContext& context)
        : effects(context, DSPPLUGIN_EFFECTS, "the Effects plug-in")
    {
        effects->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    }
    ~EffectsSession()
    {
        // The plug-in saves when destroyed; here only the panel's changes are
        // written, so a look or a failed change leaves the store as it was.
        effects->SetOption(DSPOPT_TRANSIENT);
    }
    EffectsSession(const EffectsSession&) = delete;
    EffectsSession& operator=(const EffectsSession&) = delete;

    Dlg& Panel() { return *effects->GetPanel(); }

    // Reports a change the store did not take.
    void CheckSaved()
    {
        if (!Panel().LastSaveSucceeded())
            throw CliError(CLI_EXIT_FAILED,
                           "cannot write the Effects settings to " + CSettingsFile::DefaultPath());
    }

private:
    CommandPlugin<CEffectsDSPPlugin> effects;
};

std::string Lower(std::string text)
{
    for (char& c : text)
    {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

std::string Trimmed(const std::string& text)
{
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// The names of a group's list, untranslated: they are what the user types.
std::vector<std::string> ChoiceNames(Dlg::EGroup group)
{
    std::vector<std::string> names;
    switch (group)
    {
    case Dlg::GROUP_ENVIRONMENT:
        for (const EffectsEnvironment& entry : CEffectsEngine::ENVIRONMENTS)
            names.push_back(QVString(entry.name).ToUTF8());
        break;
    case Dlg::GROUP_SUBWOOFER:
        for (const EffectsSubwoofer& entry : CEffectsEngine::SUBWOOFERS)
            names.push_back(QVString(entry.name).ToUTF8());
        break;
    default:
        for (const EffectsSurround& entry : CEffectsEngine::SURROUNDS)
            names.push_back(QVString(entry.name).ToUTF8());
        break;
    }
    return names;
}

const char* GroupWord(Dlg::EGroup group)
{
    switch (group)
    {
    case Dlg::GROUP_ENVIRONMENT: return "environment";
    case Dlg::GROUP_SUBWOOFER: return "subwoofer";
    default: return "surround field";
    }
}

// A whole non-negative decimal number, or -1.
int32_t WholeNumber(const std::string& text)
{
    if (text.empty() || text.size() > 6 ||
        text.find_first_not_of("0123456789") != std::string::npos)
        return -1;
    return std::stoi(text);
}

// An entry of the group's list by index, by name in any case, or "none";
// for the subwoofer also by its size in inches, with or without the mark.
int32_t CheckedChoice(Dlg::EGroup group, const std::string& given)
{
    const std::vector<std::string> names = ChoiceNames(group);
    const std::string text = Lower(Trimmed(given));
    const auto count = static_cast<int32_t>(names.size());
    if (text == "none" || text == "off")
        return 0;
    for (int32_t index = 0; index < count; ++index)
    {
        if (text == Lower(names[index]))
            return index;
    }
    if (group == Dlg::GROUP_SUBWOOFER)
    {
        std::string size = text;
        for (const char* suffix : {" subwoofer", "\"", " inch", " in", "in"})
        {
            const std::string tail(suffix);
            if (size.size() > tail.size() &&
                size.compare(size.size() - tail.size(), tail.size(), tail) == 0)
                size.erase(size.size() - tail.size());
        }
        const int32_t inches = WholeNumber(Trimmed(size));
        for (int32_t index = 1; index < count; ++index)
        {
            if (inches == SUBWOOFER_SIZES[index])
                return index;
        }
    }
    if (group == Dlg::GROUP_SURROUND)
    {
        // The first word is enough: "subtle", "medium", "pronounced", "maximum".
        for (int32_t index = 1; index < count; ++index)
        {
            const std::string name = Lower(names[index]);
            if (text == name.substr(0, name.find(' ')))
                return index;
        }
    }
    const int32_t index = WholeNumber(text);
    if (index >= 0 && index < count)
        return index;

    std::string known;
    for (int32_t i = 0; i < count; ++i)
        known += (i == 0 ? "" : ", ") + std::to_string(i) + " " + names[i];
    throw CliError(CLI_EXIT_USAGE,
                   "no " + std::string(GroupWord(group)) + " '" + given +
                       "'; choose one of: " + known +
                       (group == Dlg::GROUP_SUBWOOFER ? " (or the size: 6, 8, 10, 12, 15)" : ""));
}

double CheckedAmount(const std::string& text)
{
    const std::optional<double> amount = ParseDecimal(Trimmed(text));
    if (!amount)
        throw CliError(CLI_EXIT_USAGE, "'" + text + "' is not a number; the amount is 1 to 10");
    if (*amount < Dlg::MIN_AMOUNT || *amount > Dlg::MAX_AMOUNT)
        throw CliError(CLI_EXIT_USAGE, "amount " + text + " is outside 1 to 10");
    return *amount;
}

void CheckZoneKeepsSettings(const CliContext& context)
{
    if (context.zone == DSP_ZONE_GLOBAL)
        throw CliError(CLI_EXIT_USAGE, "the global branch (zone -10000) keeps no Effects "
                                       "settings; name a player zone with --zone");
}

std::string SelectionText(Dlg& panel, Dlg::EGroup group)
{
    const int32_t word = panel.GetSelection(group);
    const std::vector<QVString> choices = panel.GetChoices(group);
    if (word < 0 || word >= static_cast<int32_t>(choices.size()))
        return "unknown (" + std::to_string(word) + ")";
    return choices[static_cast<size_t>(word)].ToUTF8();
}

void Show(Dlg& panel)
{
    const auto line = [](const QVString& label, const std::string& value)
    { std::printf("%-18s %s\n", label.ToUTF8().c_str(), value.c_str()); };
    line(panel.GetHeading(Dlg::GROUP_ENVIRONMENT), SelectionText(panel, Dlg::GROUP_ENVIRONMENT));
    line(QVString(u"Amount"), panel.GetAmountText().ToUTF8());
    line(panel.GetHeading(Dlg::GROUP_SUBWOOFER), SelectionText(panel, Dlg::GROUP_SUBWOOFER));
    line(panel.GetHeading(Dlg::GROUP_SURROUND), SelectionText(panel, Dlg::GROUP_SURROUND));
}

void List(Dlg& panel)
{
    for (Dlg::EGroup group : {Dlg::GROUP_ENVIRONMENT, Dlg::GROUP_SUBWOOFER, Dlg::GROUP_SURROUND})
    {
        std::printf("%s\n", panel.GetHeading(group).ToUTF8().c_str());
        const std::vector<QVString> choices = panel.GetChoices(group);
        for (size_t index = 0; index < choices.size(); ++index)
        {
            const bool current = panel.GetSelection(group) == static_cast<int32_t>(index);
            std::printf("%c %zu  %s\n", current ? '*' : ' ', index,
                        choices[index].ToUTF8().c_str());
        }
    }
}

// A subcommand that picks an entry of one list.
void AddChoiceCommand(CLI::App& effects, CliContext& context,
                      const std::shared_ptr<EffectsOptions>& options, const char* name,
                      const char* description, const char* argumentHelp, Dlg::EGroup group)
{
    CLI::App* command = AddSubcommandWithSharedOptions(effects, context, name, description);
    command->add_option("NAME|INDEX", options->choice, argumentHelp)->required();
    SetSettingsCommandAction(*command, context,
                             [&context, options, group]
                             {
                                 const int32_t index = CheckedChoice(group, options->choice);
                                 CheckZoneKeepsSettings(context);
                                 EffectsSession session(context);
                                 session.Panel().Select(group, index);
                                 session.CheckSaved();
                                 Show(session.Panel());
                             });
}

}  // namespace

void AddEffectsCommand(CLI::App& app, CliContext& context)
{
    CLI::App* effects = app.add_subcommand(
        "effects", "Show and change the Effects plug-in: reverb environment, virtual subwoofer "
                   "and surround field");
    effects->require_subcommand(1);
    auto options = std::make_shared<EffectsOptions>();

    CLI::App* show = AddSubcommandWithSharedOptions(
        *effects, context, "show", "Show the environment, the amount, the subwoofer and the field");
    SetSettingsCommandAction(*show, context,
                             [&context]
                             {
                                 EffectsSession session(context);
                                 Show(session.Panel());
                             });

    CLI::App* list = AddSubcommandWithSharedOptions(
        *effects, context, "list", "List the three tables; * marks the zone's choice");
    SetSettingsCommandAction(*list, context,
                             [&context]
                             {
                                 EffectsSession session(context);
                                 List(session.Panel());
                             });

    AddChoiceCommand(*effects, context, options, "environment", "Choose the reverb's room",
                     "A name of 'list' in any case (\"Concert Hall\"), its index, or none",
                     Dlg::GROUP_ENVIRONMENT);
    AddChoiceCommand(*effects, context, options, "subwoofer", "Choose the virtual subwoofer",
                     "A name of 'list' (\"8\\\" Subwoofer\"), the size in inches (8), its "
                     "index, or none",
                     Dlg::GROUP_SUBWOOFER);
    AddChoiceCommand(*effects, context, options, "surround", "Choose the surround field",
                     "A name of 'list' (\"Medium enhancement\"), its first word, its index, "
                     "or none",
                     Dlg::GROUP_SURROUND);

    CLI::App* amount =
        AddSubcommandWithSharedOptions(*effects, context, "amount", "Set how much reverb is heard");
    amount
        ->add_option("AMOUNT", options->amount,
                     "1 to 10, rounded to a whole number as the panel's control does")
        ->required();
    SetSettingsCommandAction(
        *amount, context,
        [&context, options]
        {
            const double value = CheckedAmount(options->amount);
            CheckZoneKeepsSettings(context);
            EffectsSession session(context);
            if (!session.Panel().IsAmountEnabled())
                throw CliError(CLI_EXIT_USAGE, "the amount applies to a reverb, and the zone has "
                                               "no environment; choose one first");
            session.Panel().SetAmount(value);
            session.CheckSaved();
            Show(session.Panel());
        });

    CLI::App* off = AddSubcommandWithSharedOptions(
        *effects, context, "off", "Set the environment, subwoofer and field to (none)");
    SetSettingsCommandAction(
        *off, context,
        [&context]
        {
            CheckZoneKeepsSettings(context);
            EffectsSession session(context);
            for (Dlg::EGroup group :
                 {Dlg::GROUP_ENVIRONMENT, Dlg::GROUP_SUBWOOFER, Dlg::GROUP_SURROUND})
            {
                session.Panel().Select(group, 0);
                session.CheckSaved();
            }
            Show(session.Panel());
        });
}

void SelectEffectsDemoSetting(IQVDSP& plugin, CliHost&)
{
    // A small room, a touch of reverb: clearly there, not drowning the demo.
    auto* effects = dynamic_cast<CEffectsDSPPlugin*>(&plugin);
    if (effects == nullptr)
        return;
    effects->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    effects->GetPanel()->Select(Dlg::GROUP_ENVIRONMENT, 5);  // "Living Room"
    effects->GetPanel()->SetAmount(3.0);
    effects->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr);
}
