// The plug-ins that `qvdsp demo` runs, in chain order. A plug-in joins the demo
// with one line in DemoChain.cpp: its display name and, when it has settings
// worth hearing, a hook that sets them on the freshly built plug-in (through
// its panel model, as a user would). The demo's store is a file of its own, so
// hooks may save freely.
#pragma once

#include "cli/host/PluginChain.h"

#include <filesystem>
#include <span>

struct DemoStage
{
    const char* name;
    // Null for a plug-in that is shown at its defaults.
    void (*configure)(IQVDSP& plugin, CliHost& host);
};

std::span<const DemoStage> DemoStages();

// The folder of the demo's files, where hooks may write what their plug-in
// loads (Convolution's impulse). Set by the demo before it builds the chain.
void SetDemoFolder(const std::filesystem::path& folder);
const std::filesystem::path& GetDemoFolder();

// Builds the demo chain from the table, skipping names the module does not
// build (yet); answers the skipped names.
std::vector<std::string> BuildDemoChain(PluginChain& chain, CliHost& host, int32_t zone);
