#include "cli/DemoChain.h"

#include "cli/Commands.h"

// The Equalizer's hook, in cli/EqCommand.cpp: selects one of its default presets.
void SelectEqualizerDemoPreset(IQVDSP& plugin, CliHost& host);

namespace {

// In the order a player runs them: effects first, then the stages that the
// player carries out itself and the module only keeps settings for.
constexpr DemoStage DEMO_STAGES[] = {
    {"Equalizer", SelectEqualizerDemoPreset},
    {"Tube Amplifier", nullptr},
    {"Volume Leveling", nullptr},
    {"Adaptive Volume", nullptr},
};

}  // namespace

std::span<const DemoStage> DemoStages() { return DEMO_STAGES; }

std::vector<std::string> BuildDemoChain(PluginChain& chain, CliHost& host, int32_t zone) {
  std::vector<PluginEntry> catalog = ListPlugins(host, zone, true);
  std::vector<std::string> missing;
  for (const DemoStage& stage : DemoStages()) {
    std::vector<PluginEntry> entry;
    try {
      entry = ResolveChain(stage.name, catalog);
    } catch (const CliError&) {
      missing.push_back(stage.name);
      continue;
    }
    BuildChain(chain, entry, host, zone, PluginUse::Editing);
    if (stage.configure) stage.configure(chain.Plugin(chain.Size() - 1), host);
  }
  return missing;
}
