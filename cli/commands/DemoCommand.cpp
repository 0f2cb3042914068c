// qvdsp demo: the embedded default. Synthesises a test signal, runs it through
// the demo chain and shows what the chain did to it.
#include "cli/commands/AnalyzerReport.h"
#include "cli/commands/Commands.h"
#include "cli/commands/DemoChain.h"
#include "cli/commands/DemoSignal.h"
#include "cli/host/FileProcessor.h"
#include "cli/host/ReplacingFile.h"
#include "cli/host/SignalLevels.h"

#include "core/QVString.h"

#include <CLI/CLI.hpp>
#include <sndfile.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <vector>

namespace
{

std::filesystem::path SystemTemporaryFolder()
{
    const char* base = std::getenv("TMPDIR");
    std::filesystem::path root = base && *base ? base : "/tmp";
    return root / "Quovan" / "Temp";
}

std::filesystem::path MakeDemoFolder(const std::string& requested)
{
    std::error_code error;
    if (!requested.empty())
    {
        std::filesystem::create_directories(requested, error);
        if (error)
            throw CliError(CLI_EXIT_FAILED, "cannot create the folder " + Quoted(requested) + ": " +
                                                error.message());
        return requested;
    }
    std::filesystem::path parent = SystemTemporaryFolder();
    std::filesystem::create_directories(parent, error);
    if (error)
        throw CliError(CLI_EXIT_FAILED,
                       "cannot create the folder " + Quoted(parent) + ": " + error.message());
    std::string pattern = (parent / "demo-XXXXXX").string();
    if (!mkdtemp(pattern.data()))
        throw CliError(CLI_EXIT_FAILED,
                       "cannot create a folder in " + Quoted(parent) + ": " + std::strerror(errno));
    return pattern;
}

SignalLevels MeasureFile(const std::filesystem::path& path)
{
    SoundFileReader reader(path);
    SignalLevels levels(reader.Layout().channels);
    std::vector<double> block(4096 * static_cast<size_t>(reader.Layout().channels));
    while (int64_t frames = reader.Read(block.data(), 4096))
        levels.Add(block.data(), frames);
    return levels;
}

std::string ChannelName(const CAudioFormat& format, int channel)
{
    return CAudioFormat::GetChannelName(format.channelTable[channel].position, false).ToUTF8();
}

void PrintLevels(const SignalLevels& before, const SignalLevels& after, const CAudioFormat& format)
{
    std::printf("Levels      %-14s %-14s %-14s %s\n", "RMS before", "peak before", "RMS after",
                "peak after");
    for (int channel = 0; channel < before.Channels(); ++channel)
    {
        std::printf(
            "  %-9s %-14s %-14s %-14s %s\n", ChannelName(format, channel).c_str(),
            FormatDbfs(before.Rms(channel)).c_str(), FormatDbfs(before.Peak(channel)).c_str(),
            FormatDbfs(after.Rms(channel)).c_str(), FormatDbfs(after.Peak(channel)).c_str());
    }
    double peak = 0.0;
    for (int channel = 0; channel < after.Channels(); ++channel)
        peak = std::max(peak, after.Peak(channel));
    std::printf("  %-9s %s: %s\n", "Output", FormatDbfs(peak).c_str(),
                peak <= 1.0 ? "no sample exceeds full scale" : "CLIPS: samples exceed full scale");
}

void PrintChain(PluginChain& chain)
{
    std::cout << "Chain:";
    for (size_t stage = 0; stage < chain.Size(); ++stage)
        std::cout << (stage ? " -> " : " ") << chain.Name(stage);
    std::cout << (chain.Size() ? "\n" : " (empty)\n");
}

void RunDemo(const CliContext& context, const std::string& requestedFolder)
{
    using Plan = DemoSignalPlan;
    std::filesystem::path folder = MakeDemoFolder(requestedFolder);
    // The demo's plug-ins keep their settings apart from the user's, so that the
    // demo sounds the same everywhere and changes nothing the user set.
    setenv("QVDSP_SETTINGS", (std::filesystem::absolute(folder) / "demo-settings.json").c_str(), 1);

    std::vector<double> signal = SynthesizeDemoSignal();
    SignalLevels before(Plan::CHANNELS);
    before.Add(signal.data(), Plan::TotalFrames());
    SoundFileLayout layout{SF_FORMAT_WAV | SF_FORMAT_FLOAT, Plan::SAMPLE_RATE, Plan::CHANNELS};
    ProcessRequest request;
    request.input = folder / "demo-in.wav";
    request.output = folder / "demo-out.wav";
    WriteSoundFile(request.input, layout, signal.data(), Plan::TotalFrames());

    CliHost host;
    PluginChain chain;
    SetDemoFolder(folder);
    chain.SetNotices(&std::cerr);
    for (const std::string& name : BuildDemoChain(chain, host, context.zone))
        std::cerr << "qvdsp: the demo leaves out " << name << ", which this build does not have\n";

    std::cout
        << "Signal: " << Plan::TotalFrames() / Plan::SAMPLE_RATE << " s stereo at "
        << Plan::SAMPLE_RATE
        << " Hz: log sweep 20 Hz to 20 kHz, pink noise, tones at 100 Hz, 1 kHz and 440/660 Hz\n";
    PrintChain(chain);
    std::string summary = FormatSummary(ProcessFile(request, chain));
    std::cout << "Describe:\n";
    PrintDescription(chain, std::cout, "  ");
    CAudioFormat format;
    format.Set(64, Plan::SAMPLE_RATE, Plan::CHANNELS);
    PrintLevels(before, MeasureFile(request.output), format);
    std::cout << summary << '\n';

    // What the Analyzer shows at the end of the output, as a player would show it.
    const std::filesystem::path spectrum = folder / "demo-spectrum.svg";
    const AnalyzerPictureSize size;
    AnalyzerSession analyzer(host, context.zone);
    analyzer.Run(request.output, std::nullopt, size);
    WriteReplacingFile(spectrum, AnalyzerSvg(analyzer.Panel(), size));
    std::cout << "Analyzer at the end: " << PlainLevelLine(analyzer.Panel().GetLevelLine()) << '\n';

    std::cout << "Wrote " << request.input.string() << ",\n      " << request.output.string()
              << "\n  and " << spectrum.string() << '\n';
}

}  // namespace

void AddDemoCommand(CLI::App& app, CliContext& context)
{
    CLI::App* command =
        app.add_subcommand("demo", "Synthesise a test signal, run it through the demo chain, write "
                                   "demo-in.wav, demo-out.wav and the Analyzer's "
                                   "demo-spectrum.svg");
    auto folder = std::make_shared<std::string>();
    command->add_option("--out", *folder,
                        "Folder for the files (default: a new folder under $TMPDIR/Quovan/Temp)");
    SetCommandAction(*command, context, [&context, folder] { RunDemo(context, *folder); });
}
