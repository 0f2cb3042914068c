// qvdsp describe: the status lines of each plug-in of a chain, under its name.
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>

void AddDescribeCommand(CLI::App& app, CliContext& context)
{
    CLI::App* command =
        app.add_subcommand("describe", "Show what each plug-in of a chain is set to do");
    struct Options
    {
        std::string chain;
        uint32_t rate = 48000;
        uint16_t channels = 2;
    };
    auto options = std::make_shared<Options>();
    command->add_option("--chain", options->chain,
                        "Comma-separated plug-in names or indices (default: every listed one)");
    command->add_option("--rate", options->rate, "Sample rate of the stream described, in Hz")
        ->check(CLI::Range(1000u, 768000u))
        ->capture_default_str();
    command->add_option("--channels", options->channels, "Channels of the stream described")
        ->check(CLI::Range(1, static_cast<int>(CAudioFormat::MAX_CHANNELS)))
        ->capture_default_str();
    AddSharedOptions(*command, context);
    SetCommandAction(*command, context,
                     [&context, options]
                     {
                         CliHost host;
                         std::vector<PluginEntry> catalog = ListPlugins(host, context.zone, true);
                         std::vector<PluginEntry> entries;
                         if (options->chain.empty())
                         {
                             for (const PluginEntry& entry : catalog)
                                 if (entry.listed)
                                     entries.push_back(entry);
                         }
                         else
                         {
                             entries = ResolveChain(options->chain, catalog);
                         }
                         PluginChain chain;
                         BuildChain(chain, entries, host, context.zone, PluginUse::ReadOnly);
                         // Latencies and what is active depend on the stream's format.
                         CAudioFormat format;
                         format.Set(64, options->rate, options->channels);
                         chain.SetFormat(format);
                         PrintDescription(chain, std::cout);
                     });
}
