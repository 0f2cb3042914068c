// qvdsp analyze: what the Analyzer would show of a file at a given moment.
#include "cli/commands/AnalyzerReport.h"
#include "cli/commands/Commands.h"
#include "cli/host/PluginChain.h"
#include "cli/host/ReplacingFile.h"
#include "cli/host/SoundFile.h"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <optional>
#include <string>

namespace
{

constexpr int32_t kTablePoints = 24;

struct AnalyzeOptions
{
    std::string input;
    std::optional<double> at;
    std::string svg;
    std::string size = "800x400";
    bool json = false;
    bool highResolution = false;
    std::optional<std::string> minimum;
    std::optional<std::string> maximum;
};

void RunAnalyze(const CliContext& context, const AnalyzeOptions& options)
{
    const AnalyzerPictureSize size = ParsePictureSize(options.size);
    CliHost host;
    AnalyzerSession session(host, context.zone);
    session.Configure(options.highResolution, options.minimum, options.maximum);
    CAnalyzerDlg& panel = session.Panel();
    if (!panel.GetDraw().IsValid())
        std::cerr << "qvdsp: the range " << panel.GetMinimumText().ToUTF8() << " to "
                  << panel.GetMaximumText().ToUTF8()
                  << " Hz cannot be plotted (it must be more than 20 Hz wide, within 1 Hz "
                     "to 100 kHz); the plot shows an empty grid\n";
    session.Run(options.input, options.at, size);

    if (options.json)
        std::cout << AnalyzerJson(panel, session.EndSeconds());
    else
    {
        std::cout << PlainLevelLine(panel.GetLevelLine()) << "\n\n";
        std::cout << TraceTable(panel, kTablePoints);
    }
    if (!options.svg.empty())
    {
        WriteReplacingFile(options.svg, AnalyzerSvg(panel, size));
        std::cerr << "qvdsp: wrote " << Quoted(options.svg) << '\n';
    }
}

}  // namespace

void AddAnalyzeCommand(CLI::App& app, CliContext& context)
{
    CLI::App* command = app.add_subcommand(
        "analyze", "Show what the Analyzer shows of a file: levels, traces, its picture as SVG");
    auto options = std::make_shared<AnalyzeOptions>();
    command->add_option("INPUT", options->input, "Audio file to analyse")->required();
    command->add_option("--at", options->at,
                        "Seconds of audio pushed before the last frame (default: the whole file)");
    command->add_option("--svg", options->svg, "Draw the analyzer's picture into this SVG file");
    command->add_option("--size", options->size, "Picture size WIDTHxHEIGHT in pixels")
        ->capture_default_str();
    command->add_flag("--json", options->json,
                      "Print the frame (format, levels, spectra) and the trace points as JSON");
    command->add_flag("--high-resolution", options->highResolution, "16384 points instead of 4096");
    command->add_option("--min", options->minimum,
                        "Lowest frequency of the plot, as the panel takes it (\"40\", \"1,5K\"); "
                        "default from the settings");
    command->add_option("--max", options->maximum,
                        "Highest frequency of the plot; default from the settings");
    AddSharedOptions(*command, context);
    SetCommandAction(*command, context, [&context, options] { RunAnalyze(context, *options); });
}
