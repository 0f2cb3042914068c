#include "cli/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <new>

void CliContext::ApplySharedOptions() const
{
    if (settingsFile.empty())
        return;
    // The store reads its path from the environment when it is first opened. An
    // absolute path keeps pointing at the same file whatever changes the folder.
    std::error_code error;
    std::filesystem::path path = std::filesystem::absolute(settingsFile, error);
    if (error)
        path = settingsFile;
    setenv("QVDSP_SETTINGS", path.c_str(), 1);
}

int CliContext::Run() const
{
    try
    {
        ApplySharedOptions();
        if (action)
            action();
        return CLI_EXIT_DONE;
    }
    catch (const CliError& error)
    {
        std::cerr << "qvdsp: " << error.what() << '\n';
        return error.ExitCode();
    }
    catch (const std::bad_alloc&)
    {
        std::cerr << "qvdsp: out of memory\n";
        return CLI_EXIT_FAILED;
    }
    catch (const std::exception& error)
    {
        std::cerr << "qvdsp: " << error.what() << '\n';
        return CLI_EXIT_FAILED;
    }
}

void AddSharedOptions(CLI::App& command, CliContext& context)
{
    command
        .add_option("--zone", context.zone,
                    "Player zone of the plug-ins' settings (-10000: the global branch)")
        ->capture_default_str();
    command.add_option(
        "--settings", context.settingsFile,
        "Settings file (default: $QVDSP_SETTINGS, else $XDG_CONFIG_HOME/quovan/dsp-settings.json)");
}

void SetCommandAction(CLI::App& command, CliContext& context, std::function<void()> action)
{
    command.callback([&context, action = std::move(action)] { context.action = action; });
}
