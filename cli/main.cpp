// qvdsp, the command-line host of the Quovan DSP plug-ins.
#include "cli/commands/Commands.h"

#include <CLI/CLI.hpp>

#include <iostream>

int main(int argc, char** argv)
{
    CLI::App app{"Runs audio files through the Quovan DSP plug-ins.", "qvdsp"};
    app.set_version_flag("--version", "qvdsp " QVDSP_VERSION);
    app.require_subcommand(1);
    CliContext context;

    AddListCommand(app, context);
    AddProcessCommand(app, context);
    AddDescribeCommand(app, context);
    AddDemoCommand(app, context);
    AddPeqCommand(app, context);
    AddSettingsCommand(app, context);
    AddEqCommand(app, context);
    AddEffectsCommand(app, context);
    AddRoomCommand(app, context);
    AddOutputCommand(app, context);
    AddRegisterCommand(app, context);
    AddAnalyzeCommand(app, context);
    AddInfoCommand(app, context);
    AddHeadphonesCommand(app, context);
    AddTempoCommand(app, context);
    AddTagCommand(app, context);
    AddConvolutionCommand(app, context);

    // Without this, a mistyped command reads as a missing one.
    if (argc > 1 && argv[1][0] != '-')
    {
        try
        {
            app.get_subcommand(argv[1]);
        }
        catch (const CLI::OptionNotFound&)
        {
            std::cerr << "qvdsp: unknown command '" << argv[1]
                      << "'\nRun with --help for more information.\n";
            return CLI_EXIT_USAGE;
        }
    }
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& error)
    {
        // Help and version end well; everything else is bad usage.
        return app.exit(error) == 0 ? CLI_EXIT_DONE : CLI_EXIT_USAGE;
    }
    return context.Run();
}
