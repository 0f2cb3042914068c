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
    auto chainText = std::make_shared<std::string>();
    command->add_option("--chain", *chainText,
                        "Comma-separated plug-in names or indices (default: every listed one)");
    AddSharedOptions(*command, context);
    SetCommandAction(*command, context,
                     [&context, chainText]
                     {
                         CliHost host;
                         std::vector<PluginEntry> catalog = ListPlugins(host, context.zone, true);
                         std::vector<PluginEntry> entries;
                         if (chainText->empty())
                         {
                             for (const PluginEntry& entry : catalog)
                                 if (entry.listed)
                                     entries.push_back(entry);
                         }
                         else
                         {
                             entries = ResolveChain(*chainText, catalog);
                         }
                         PluginChain chain;
                         BuildChain(chain, entries, host, context.zone, PluginUse::ReadOnly);
                         PrintDescription(chain, std::cout);
                     });
}
