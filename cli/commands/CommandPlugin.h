// The one plug-in that a command works on, made on a host of its own in the
// zone that --zone names. Commands make it in their action, so only once the
// whole command line has been accepted.
#pragma once

#include <string>

#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"
#include "frame/PluginFactory.h"

template <class Plugin>
class CommandPlugin
{
public:
    // `title` names the plug-in in the error of a build that lacks it.
    CommandPlugin(const CliContext& context, int32_t index, const char* title)
    {
        plugin.reset(CreateDSPPlugin(index, &host, context.zone, false));
        typed = dynamic_cast<Plugin*>(plugin.get());
        if (typed == nullptr)
            throw CliError(CLI_EXIT_FAILED, std::string(title) + " is not part of this build");
    }
    CommandPlugin(const CommandPlugin&) = delete;
    CommandPlugin& operator=(const CommandPlugin&) = delete;

    Plugin& operator*() const { return *typed; }
    Plugin* operator->() const { return typed; }

private:
    CliHost host;
    PluginPointer plugin;  // made on `host`, so destroyed before it
    Plugin* typed = nullptr;
};
