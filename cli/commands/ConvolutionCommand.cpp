// qvdsp convolution: shows and edits the settings of Convolution the way its
// panel would, and checks a filter: what paths an engine builds from it at a
// format, and every block or file that gave none, with its line and reason.
#include <CLI/CLI.hpp>
#include <sndfile.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cli/commands/CommandPlugin.h"
#include "cli/commands/Commands.h"
#include "cli/commands/DemoChain.h"
#include "cli/host/FileProcessor.h"
#include "cli/host/PluginChain.h"
#include "convolution/ConvolutionDlg.h"
#include "convolution/ConvolutionPlugin.h"
#include "frame/PluginFactory.h"

namespace
{

constexpr int32_t MAX_RATE = 768000;

struct ConvolutionOptions
{
    std::string filter;
    std::string state;  // on or off
    int channels = 2;
    int rate = 48000;
};

CAudioFormat StreamFormat(const ConvolutionOptions& options)
{
    if (options.channels < 1 || options.channels > CAudioFormat::MAX_CHANNELS)
        throw CliError(CLI_EXIT_USAGE, "--channels " + std::to_string(options.channels) +
                                           " is outside 1 to " +
                                           std::to_string(CAudioFormat::MAX_CHANNELS));
    if (options.rate < 1 || options.rate > MAX_RATE)
        throw CliError(CLI_EXIT_USAGE, "--rate " + std::to_string(options.rate) +
                                           " is outside 1 to " + std::to_string(MAX_RATE) + " Hz");
    CAudioFormat format;
    format.Set(64, static_cast<uint32_t>(options.rate), static_cast<uint16_t>(options.channels));
    return format;
}

bool ParseSwitch(const std::string& text, const char* what)
{
    if (text == "on")
        return true;
    if (text == "off")
        return false;
    throw CliError(CLI_EXIT_USAGE, std::string(what) + " takes on or off, not '" + text + "'");
}

const char* OnOff(bool on)
{
    return on ? "on" : "off";
}

std::string Utf8(const QVString& text)
{
    return text.ToUTF8();
}

// The panel's texts end lines with "\r\n"; a terminal wants "\n" and an indent.
std::string Indented(const QVString& text, const std::string& indent)
{
    std::string out;
    for (char c : text.ToUTF8())
    {
        if (c == '\r')
            continue;
        out += c;
        if (c == '\n')
            out += indent;
    }
    return out;
}

// A stored filter is loaded later from any folder: keep it absolute.
QVString AbsoluteFilter(const std::string& name)
{
    if (name.empty())
        return QVString();
    std::error_code error;
    const std::filesystem::path path = std::filesystem::absolute(name, error);
    return QVString::FromUTF8(error ? name : path.string());
}

// In words, why the filter cannot serve, or empty when it can be read.
std::string FilterProblem(const QVString& filter)
{
    if (filter.IsEmpty())
        return "no filter is chosen";
    const std::string name = Utf8(filter);
    switch (CheckReadable(name))
    {
    case FileAccess::Missing:
    case FileAccess::Folder: return "the filter file \"" + name + "\" does not exist";
    case FileAccess::Unreadable: return "the filter file \"" + name + "\" cannot be read";
    case FileAccess::Readable: break;
    }
    return std::string();
}

void PrintNotes(const CAudioConvolution& engine)
{
    for (const CAudioConvolution::CLoadNote& note : engine.GetLoadNotes())
    {
        const std::string where = note.line > 0 ? "line " + std::to_string(note.line) : "file";
        std::printf("  %-9s %s\n", where.c_str(), Utf8(note.text).c_str());
    }
}

class ConvolutionSession
{
public:
    explicit ConvolutionSession(const CliContext& context)
        : convolution(context, DSPPLUGIN_CONVOLUTION, "Convolution")
    {
    }
    CConvolutionDSPPlugin& Plugin() { return *convolution; }
    CAudioConvolution& Engine() { return convolution->GetConvolution(); }

private:
    CommandPlugin<CConvolutionDSPPlugin> convolution;
};

void PrintLatency(const CAudioConvolution& engine)
{
    const int32_t latency = engine.GetLatency();
    const double milliseconds = latency * 1000.0 / engine.format.sampleRate;
    std::printf("%-18s %d frames (%.2f ms)\n", "Latency:", latency, milliseconds);
}

void Show(const CliContext& context, const ConvolutionOptions& options)
{
    const CAudioFormat format = StreamFormat(options);
    ConvolutionSession session(context);
    CAudioConvolution& engine = session.Engine();
    session.Plugin().SetFormat(format);
    // Reset as a host does at the start of a stream, so that the latency is
    // that of the first block.
    session.Plugin().Flush();
    const QVString filter = engine.GetFilter(false);
    std::printf("%-18s %s\n", "Filter:", filter.IsEmpty() ? "(none)" : Utf8(filter).c_str());
    std::printf("%-18s %s (at %d Hz, %d channels)\n", "Effective filter:",
                engine.GetFilter(true).IsEmpty() ? "(none)" : Utf8(engine.GetFilter(true)).c_str(),
                options.rate, options.channels);
    std::printf("%-18s %s\n", "Normalize volume:", OnOff(engine.GetVolumeMode() == 0));
    std::printf("%-18s %s\n", "Small filters:", OnOff(engine.GetSmallFilters()));
    std::printf("%-18s %s\n", "Auto-match:", OnOff(engine.GetAutoMatchFilter()));
    const QVStringArray& choices = engine.GetPathChoices();
    std::printf("%-18s %d\n", "Recent choices:", choices.GetCount());
    for (int32_t i = 0; i < choices.GetCount(); ++i)
        std::printf("  %2d. %s\n", i + 1, Utf8(choices[i]).c_str());
    CConvolutionDlg panel(session.Plugin());
    panel.Open();
    std::printf("%-18s %s\n",
                "Status:", Indented(panel.GetStatusText(), std::string(19, ' ')).c_str());
    PrintLatency(engine);
    const std::string problem = FilterProblem(engine.GetFilter(true));
    if (!problem.empty())
        std::printf("%-18s %s\n", "Problem:", problem.c_str());
    else if (!engine.IsValid())
        PrintNotes(engine);
}

void Set(const CliContext& context, const ConvolutionOptions& options)
{
    const QVString filter = AbsoluteFilter(options.filter);
    ConvolutionSession session(context);
    CAudioConvolution& engine = session.Engine();
    // As the panel's field does when its timer fires.
    engine.AddPathChoice(filter);
    engine.SetFilter(filter);
    std::printf("Filter: %s\n", filter.IsEmpty() ? "(none)" : Utf8(filter).c_str());
    const std::string problem = FilterProblem(filter);
    if (!problem.empty())
        std::fprintf(stderr, "qvdsp: warning: %s; Convolution will not be valid\n",
                     problem.c_str());
}

void SetSwitch(const CliContext& context, const ConvolutionOptions& options, const char* what)
{
    const bool on = ParseSwitch(options.state, what);
    ConvolutionSession session(context);
    CAudioConvolution& engine = session.Engine();
    const std::string name = what;
    if (name == "normalize")
        engine.SetVolumeMode(on ? 0 : 1);
    else if (name == "small")
        engine.SetSmallFilters(on);
    else
        engine.SetAutoMatchFilter(on);
    std::printf("%s: %s\n", what, OnOff(on));
}

void Choices(const CliContext& context)
{
    ConvolutionSession session(context);
    const QVStringArray& choices = session.Engine().GetPathChoices();
    if (choices.IsEmpty())
        std::printf("No recent filters.\n");
    for (int32_t i = 0; i < choices.GetCount(); ++i)
        std::printf("%2d. %s\n", i + 1, Utf8(choices[i]).c_str());
}

void Reset(const CliContext& context)
{
    ConvolutionSession session(context);
    session.Engine().ClearPathChoices();
    std::printf("Recent filters cleared; no filter is chosen.\n");
}

std::string InputsText(const CAudioConvolution::CPath& path)
{
    std::string text;
    for (const CAudioConvolution::CPath::CInputLine& line : path.lines)
    {
        char item[48];
        std::snprintf(item, sizeof item, "%s%d x %g", text.empty() ? "" : ", ", line.channel,
                      line.gain);
        text += item;
    }
    return text;
}

void Check(const CliContext& context, const ConvolutionOptions& options)
{
    const CAudioFormat format = StreamFormat(options);
    const QVString filter = AbsoluteFilter(options.filter);
    const std::string problem = FilterProblem(filter);
    if (!problem.empty())
        throw CliError(CLI_EXIT_FAILED, problem);
    // An engine of its own, so that the stored filter stays as it is; the
    // plug-in only brings the tools (and with them the sound converter).
    ConvolutionSession session(context);
    CAudioConvolution engine(context.zone);
    engine.filterName = filter;
    engine.Load(&format, true);
    engine.Reset();
    std::printf("Filter %s at %d Hz, %d channels: window %d frames, %d paths, %d partitions\n",
                Utf8(engine.GetFilter(true)).c_str(), options.rate, options.channels,
                engine.fftSize, engine.paths.GetCount(), engine.partitionCount);
    if (engine.paths.GetCount() > 0)
    {
        std::printf("%-6s %-22s %-30s %-7s %-8s %-10s %s\n", "Output", "Inputs (channel x gain)",
                    "File", "Channel", "Delay", "Partitions", "Peak");
        for (const CAudioConvolution::CPath* path : engine.paths)
        {
            const std::string file =
                std::filesystem::path(Utf8(path->fileName)).filename().string();
            std::printf("%-6d %-22s %-30s %-7d %-8d %-10d %d\n", path->outputChannel,
                        InputsText(*path).c_str(), file.c_str(), path->fileChannel,
                        path->delayFrames, path->GetPartitions(), path->peakPosition);
        }
    }
    if (!engine.GetLoadNotes().empty())
    {
        std::printf("Skipped or failed:\n");
        PrintNotes(engine);
    }
    PrintLatency(engine);
    if (!engine.IsValid())
        throw CliError(CLI_EXIT_FAILED, "the filter leaves Convolution not valid");
    std::printf("Valid.\n");
}

void AddStreamOptions(CLI::App& command, ConvolutionOptions& o)
{
    command.add_option("--channels", o.channels, "Channels of the stream, 1 to 64")
        ->capture_default_str();
    command.add_option("--rate", o.rate, "Sample rate of the stream in Hz")->capture_default_str();
}

// The demo's room: the direct sound, three early reflections off walls a
// few metres away (their sign flips with each), and a diffuse tail that dies
// away by 60 dB in a quarter second. Each channel gets reflections at its own
// distances and a tail of its own noise.
constexpr int32_t DEMO_IMPULSE_RATE = 48000;
constexpr double DEMO_IMPULSE_SECONDS = 0.3;
constexpr double DEMO_DECAY_SECONDS = 0.25;  // to -60 dB
constexpr double DEMO_TAIL_START_SECONDS = 0.012;
constexpr double DEMO_TAIL_LEVEL = 0.08;

std::vector<double> SynthesizeDemoRoomImpulse()
{
    const auto frames = static_cast<int32_t>(DEMO_IMPULSE_RATE * DEMO_IMPULSE_SECONDS);
    const struct
    {
        double delayMs;
        double gain;
    } reflections[2][3] = {{{3.1, 0.45}, {5.7, -0.3}, {9.2, 0.2}},
                           {{3.6, 0.42}, {6.4, -0.28}, {8.3, 0.22}}};
    std::vector<double> impulse(static_cast<size_t>(frames) * 2, 0.0);
    uint32_t noise = 22222;
    const double decayPerFrame = std::log(1000.0) / (DEMO_DECAY_SECONDS * DEMO_IMPULSE_RATE);
    const auto tailStart = static_cast<int32_t>(DEMO_TAIL_START_SECONDS * DEMO_IMPULSE_RATE);
    for (int32_t channel = 0; channel < 2; ++channel)
    {
        impulse[channel] = 1.0;
        for (const auto& reflection : reflections[channel])
        {
            const auto frame =
                static_cast<size_t>(reflection.delayMs * DEMO_IMPULSE_RATE / 1000.0 + 0.5);
            impulse[frame * 2 + channel] += reflection.gain;
        }
        for (int32_t frame = tailStart; frame < frames; ++frame)
        {
            noise = noise * 1664525u + 1013904223u;
            const double white = static_cast<double>(noise >> 8) / 8388608.0 - 1.0;
            impulse[static_cast<size_t>(frame) * 2 + channel] +=
                DEMO_TAIL_LEVEL * white * std::exp(-decayPerFrame * (frame - tailStart));
        }
    }
    return impulse;
}

}  // namespace

// The demo's hook for Convolution: it writes the room into the demo folder
// and chooses it as the panel's field would, with normalisation on.
void ConfigureConvolutionDemo(IQVDSP& plugin, CliHost&)
{
    auto* convolution = dynamic_cast<CConvolutionDSPPlugin*>(&plugin);
    if (convolution == nullptr || GetDemoFolder().empty())
        return;
    const std::filesystem::path name = std::filesystem::absolute(GetDemoFolder() / "demo-room.wav");
    const std::vector<double> impulse = SynthesizeDemoRoomImpulse();
    const SoundFileLayout layout{SF_FORMAT_WAV | SF_FORMAT_DOUBLE, DEMO_IMPULSE_RATE, 2};
    WriteSoundFile(name, layout, impulse.data(), static_cast<int64_t>(impulse.size() / 2));
    CAudioConvolution& engine = convolution->GetConvolution();
    engine.AddPathChoice(QVString::FromUTF8(name.string()));
    engine.SetFilter(QVString::FromUTF8(name.string()));
}

void AddConvolutionCommand(CLI::App& app, CliContext& context)
{
    CLI::App* conv = app.add_subcommand("convolution", "Show, edit and check Convolution's filter");
    conv->alias("conv");
    conv->require_subcommand(1);
    auto options = std::make_shared<ConvolutionOptions>();
    ConvolutionOptions& o = *options;

    CLI::App* show =
        AddSubcommandWithSharedOptions(*conv, context, "show",
                                       "The settings, and the status and latency after a load at a "
                                       "format");
    AddStreamOptions(*show, o);
    SetCommandAction(*show, context, [&context, options] { Show(context, *options); });

    CLI::App* set = AddSubcommandWithSharedOptions(
        *conv, context, "set", "Choose the filter, as the panel's field does (\"\" for none)");
    set->add_option("FILTER", o.filter,
                    "Impulse audio file or convolver configuration (.txt, .cfg)")
        ->required();
    SetCommandAction(*set, context, [&context, options] { Set(context, *options); });

    const struct
    {
        const char* name;
        const char* description;
    } switches[] = {
        {"normalize", "Normalize the filter's volume (recommended)"},
        {"small", "Use small filters to reduce latency"},
        {"auto-match", "Switch the filter by the input format (recommended)"},
    };
    for (const auto& entry : switches)
    {
        CLI::App* command =
            AddSubcommandWithSharedOptions(*conv, context, entry.name, entry.description);
        command->add_option("STATE", o.state, "on or off")->required();
        const char* name = entry.name;
        SetCommandAction(*command, context,
                         [&context, options, name] { SetSwitch(context, *options, name); });
    }

    CLI::App* choices = AddSubcommandWithSharedOptions(*conv, context, "choices",
                                                       "The recent filters, newest first");
    SetCommandAction(*choices, context, [&context] { Choices(context); });

    CLI::App* reset = AddSubcommandWithSharedOptions(
        *conv, context, "reset", "Clear the recent filters and the chosen filter");
    SetCommandAction(*reset, context, [&context] { Reset(context); });

    CLI::App* check = AddSubcommandWithSharedOptions(
        *conv, context, "check", "Load a filter at a format and list its paths and problems");
    check->add_option("FILTER", o.filter, "Impulse audio file or convolver configuration")
        ->required();
    AddStreamOptions(*check, o);
    SetCommandAction(*check, context, [&context, options] { Check(context, *options); });
}
