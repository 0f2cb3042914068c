// qvdsp list: the plug-ins that the module's export builds, one per line.
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"

#include <CLI/CLI.hpp>

#include <iostream>

void AddListCommand(CLI::App& app, CliContext& context)
{
    CLI::App* command = AddSubcommandWithSharedOptions(
        app, context, "list", "List the plug-ins as INDEX<TAB>NAME, in index order");
    SetCommandAction(*command, context,
                     [&context]
                     {
                         CliHost host;
                         for (const PluginEntry& entry : ListPlugins(host, context.zone, false))
                             std::cout << entry.index << '\t' << entry.name << '\n';
                     });
}
