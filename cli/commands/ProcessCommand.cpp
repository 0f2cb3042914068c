// qvdsp process: one audio file through a chain of plug-ins into another.
#include "cli/commands/Commands.h"
#include "cli/host/FileProcessor.h"
#include "cli/host/PluginChain.h"
#include "frame/SettingsTransaction.h"

#include <CLI/CLI.hpp>

#include <iostream>

namespace
{

struct ProcessOptions
{
    std::string chain;
    std::string format = "same";
    bool quiet = false;
    ProcessRequest request;
};

void RunProcess(const CliContext& context, const ProcessOptions& options)
{
    CliHost host;
    PluginChain chain;
    {
        // Every plug-in of the catalogue and of the chain reads its settings
        // as it is made: one read of the settings file serves them all.
        CSettingsTransaction reading;
        std::vector<PluginEntry> entries =
            ResolveChain(options.chain, ListPlugins(host, context.zone, true));
        BuildChain(chain, entries, host, context.zone, PluginUse::ReadOnly);
    }
    // A player passes the audio of a stage that cannot work without a word;
    // a file processor tells once, before the audio, since a whole file is at stake.
    chain.SetNotices(&std::cerr);

    ProcessRequest request = options.request;
    request.format = SampleFormatNames().at(options.format);
    request.showProgress = !options.quiet && StandardErrorIsTerminal();
    std::cout << FormatSummary(ProcessFile(request, chain)) << '\n';
}

}  // namespace

void AddProcessCommand(CLI::App& app, CliContext& context)
{
    CLI::App* command =
        app.add_subcommand("process", "Run an audio file through a chain of plug-ins");
    auto options = std::make_shared<ProcessOptions>();
    command->add_option(
        "--chain", options->chain,
        "Comma-separated plug-in names (any case) or indices, in chain order; empty copies");
    AddSharedOptions(*command, context);
    command->add_option("--block", options->request.blockFrames, "Frames per block")
        ->check(CLI::Range(1, 1 << 20))
        ->capture_default_str();
    std::vector<std::string> formatNames;
    for (const auto& [name, value] : SampleFormatNames())
        formatNames.push_back(name);
    command->add_option("--format", options->format, "Sample format of OUTPUT (same: as INPUT)")
        ->transform(CLI::IsMember(formatNames, CLI::ignore_case))
        ->capture_default_str();
    command->add_flag("--quiet", options->quiet, "No progress display");
    command->add_flag("--raw", options->request.raw,
                      "Only the file's frames through the chain, and all it emits, as a player "
                      "plays them: no flush, no latency compensation, no drain, no cut");
    command
        ->add_option("INPUT", options->request.input,
                     "Audio file to read (any format libsndfile reads)")
        ->required();
    command
        ->add_option(
            "OUTPUT", options->request.output,
            "Audio file to write; its extension names the container (.wav, .flac, .aiff, ...)")
        ->required();
    SetCommandAction(*command, context, [&context, options] { RunProcess(context, *options); });
}
