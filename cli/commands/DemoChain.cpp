#include "cli/commands/DemoChain.h"

#include "cli/commands/Commands.h"
#include "parametric/ParametricEqualizerPlugin.h"

#include <initializer_list>
#include <utility>

// The Equalizer's hook, in cli/EqCommand.cpp: selects one of its default presets.
void SelectEqualizerDemoPreset(IQVDSP& plugin, CliHost& host);
// The Effects hook, in cli/EffectsCommand.cpp: a room to hear.
void SelectEffectsDemoSetting(IQVDSP& plugin, CliHost& host);
// Convolution's hook, in cli/ConvolutionCommand.cpp: a small room of its own making.
void ConfigureConvolutionDemo(IQVDSP& plugin, CliHost& host);
// Room Correction's hook, in cli/RoomCommand.cpp: two speakers at different distances and levels.
void ConfigureRoomCorrectionDemo(IQVDSP& plugin, CliHost& host);
// The Headphones hook, in cli/HeadphonesCommand.cpp: the "Standard" crossfeed.
void SelectHeadphonesDemoSetting(IQVDSP& plugin, CliHost& host);

namespace
{

std::unique_ptr<CParametricFilter>
DemoFilter(int32_t type, std::initializer_list<std::pair<const char16_t*, double>> values)
{
    std::unique_ptr<CParametricFilter> filter(CreateParametricFilter(type));
    // From the filter's own keys, so that those not named keep a new filter's values.
    QVPropertyMap map;
    filter->Serialize(false, map);
    for (const auto& [key, value] : values)
        map.SetDouble(key, value);
    filter->Serialize(true, map);
    return filter;
}

// What a room correction typically starts with: headroom, rumble off, a room
// mode cut and a little air on top; each one plainly audible in the demo's noise.
void ConfigureParametricEqualizer(IQVDSP& plugin, CliHost&)
{
    auto* equalizer = dynamic_cast<CParametricEqualizerDSPPlugin*>(&plugin);
    if (equalizer == nullptr)
        return;
    CParametricFilterList& list = equalizer->GetFilterList();
    while (list.GetCount() > 0)
        list.Remove(0);
    // Headroom first: the shelf below, the room's reflections after it and
    // the speakers' trims add up to peaks well above the input's, and the demo
    // must play on any sound card without clipping. Convolution's normalisation
    // takes 6 dB more, so that 5 dB here leave the loudest sample about 2 dB
    // below full scale.
    list.Insert(0, DemoFilter(PARAMETRIC_VOLUME, {{u"Gain", -5}}));
    list.Insert(1, DemoFilter(PARAMETRIC_HIGHPASS, {{u"Frequency", 40}, {u"Q", 0.7071}}));
    list.Insert(2, DemoFilter(PARAMETRIC_PEAK, {{u"Frequency", 120}, {u"Gain", -6}, {u"Q", 2}}));
    list.Insert(
        3, DemoFilter(PARAMETRIC_HIGHSHELF, {{u"Frequency", 6000}, {u"Gain", 3}, {u"Q", 0.7}}));
    list.Save();
}

// In the order a player runs them: effects first, then the stages that the
// player carries out itself and the module only keeps settings for.
constexpr DemoStage DEMO_STAGES[] = {
    {"Equalizer", SelectEqualizerDemoPreset},
    {"Effects", SelectEffectsDemoSetting},
    {"Tube Amplifier", nullptr},
    {"Parametric Equalizer", ConfigureParametricEqualizer},
    {"Convolution", ConfigureConvolutionDemo},
    {"Room Correction", ConfigureRoomCorrectionDemo},
    {"Headphones", SelectHeadphonesDemoSetting},
    {"Volume Leveling", nullptr},
    {"Adaptive Volume", nullptr},
};

std::filesystem::path& DemoFolder()
{
    static std::filesystem::path folder;
    return folder;
}

}  // namespace

void SetDemoFolder(const std::filesystem::path& folder)
{
    DemoFolder() = folder;
}

const std::filesystem::path& GetDemoFolder()
{
    return DemoFolder();
}

std::span<const DemoStage> DemoStages()
{
    return DEMO_STAGES;
}

std::vector<std::string> BuildDemoChain(PluginChain& chain, CliHost& host, int32_t zone)
{
    std::vector<PluginEntry> catalog = ListPlugins(host, zone, true);
    std::vector<std::string> missing;
    for (const DemoStage& stage : DemoStages())
    {
        std::vector<PluginEntry> entry;
        try
        {
            entry = ResolveChain(stage.name, catalog);
        }
        catch (const CliError&)
        {
            missing.push_back(stage.name);
            continue;
        }
        BuildChain(chain, entry, host, zone, PluginUse::Editing);
        if (stage.configure)
            stage.configure(chain.Plugin(chain.Size() - 1), host);
    }
    return missing;
}
