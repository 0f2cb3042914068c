#include "cli/commands/AnalyzerReport.h"

#include "cli/commands/Commands.h"
#include "cli/host/CliError.h"
#include "cli/host/SoundFile.h"
#include "frame/PluginFactory.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <vector>

namespace
{

constexpr int32_t kBlockFrames = 4096;
constexpr int32_t kMinimumPicture = 100, kMaximumPicture = 10000;
// Below the plot: a row of labels, then the level line.
constexpr int32_t kMargin = 8, kBelowPlot = 44;

class DiscardingSink final : public IQVDSPSink
{
public:
    void Output(double*, int32_t) override {}
};

std::string Colour(uint32_t rgb)
{
    char text[8];
    std::snprintf(text, sizeof text, "#%06X", rgb & 0xFFFFFFu);
    return text;
}

std::string TraceName(const CAudioFormat& format, int32_t trace)
{
    if (trace == 0)
        return "Sum";
    return CAudioFormat::GetChannelName(format.channelTable[trace - 1].position, true).ToUTF8();
}

// The level line's markup in runs of text, each with its colour or none.
struct MarkupRun
{
    std::string colour;  // six hexadecimal digits, or empty
    std::string text;
};

std::vector<MarkupRun> SplitMarkup(const std::string& markup)
{
    static const std::string open = "<font color=\"", close = "</font>";
    std::vector<MarkupRun> runs;
    size_t at = 0;
    while (at < markup.size())
    {
        const size_t tag = markup.find(open, at);
        if (tag != at)
        {
            const size_t end = tag == std::string::npos ? markup.size() : tag;
            runs.push_back({"", markup.substr(at, end - at)});
            at = end;
            continue;
        }
        const size_t quote = markup.find("\">", tag + open.size());
        const size_t finish = quote == std::string::npos ? quote : markup.find(close, quote);
        if (finish == std::string::npos)
        {
            runs.push_back({"", markup.substr(at)});
            break;
        }
        runs.push_back({markup.substr(tag + open.size(), quote - tag - open.size()),
                        markup.substr(quote + 2, finish - quote - 2)});
        at = finish + close.size();
    }
    return runs;
}

std::string Pixel(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

}  // namespace

AnalyzerPictureSize ParsePictureSize(const std::string& text)
{
    AnalyzerPictureSize size;
    char separator = 0;
    char rest = 0;
    if (std::sscanf(text.c_str(), "%d%c%d%c", &size.width, &separator, &size.height, &rest) != 3 ||
        (separator != 'x' && separator != 'X') || size.width < kMinimumPicture ||
        size.width > kMaximumPicture || size.height < kMinimumPicture ||
        size.height > kMaximumPicture)
        throw CliError(CLI_EXIT_USAGE, "--size wants WIDTHxHEIGHT, each " +
                                           std::to_string(kMinimumPicture) + " to " +
                                           std::to_string(kMaximumPicture) + " pixels, not '" +
                                           text + "'");
    return size;
}

CAnalyzerRect PlotRectangle(const AnalyzerPictureSize& size)
{
    return {kMargin, kMargin, size.width - kMargin, size.height - kBelowPlot};
}

AnalyzerSession::AnalyzerSession(CliHost& host, int32_t zone)
{
    PluginEntry entry;
    entry.index = DSPPLUGIN_ANALYZER;
    entry.name = "Analyzer";
    owner = CreatePlugin(entry, host, zone, PluginUse::ReadOnly);
    plugin = dynamic_cast<CAnalyzerDSPPlugin*>(owner.get());
    if (plugin == nullptr)
        throw CliError(CLI_EXIT_FAILED, "this build has no Analyzer");
    plugin->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    panel = plugin->GetPanel();
}

AnalyzerSession::~AnalyzerSession() = default;

void AnalyzerSession::Configure(bool highResolution, const std::optional<std::string>& minimum,
                                const std::optional<std::string>& maximum)
{
    if (highResolution)
        panel->SetHighResolution(true);
    if (minimum)
        panel->SetMinimumText(QVString::FromUTF8(*minimum));
    if (maximum)
        panel->SetMaximumText(QVString::FromUTF8(*maximum));
}

void AnalyzerSession::Run(const std::filesystem::path& input, std::optional<double> atSeconds,
                          const AnalyzerPictureSize& size)
{
    if (atSeconds && !(*atSeconds >= 0.0 && std::isfinite(*atSeconds)))
        throw CliError(CLI_EXIT_USAGE, "--at wants a number of seconds from 0 on");
    SoundFileReader reader(input);
    const SoundFileLayout& layout = reader.Layout();
    if (layout.channels < 1 || layout.channels > CAudioFormat::MAX_CHANNELS)
        throw CliError(CLI_EXIT_FAILED, "cannot analyse " + Quoted(input) + ": it has " +
                                            std::to_string(layout.channels) + " channels");
    CAudioFormat format;
    format.Set(64, static_cast<uint32_t>(layout.sampleRate),
               static_cast<uint16_t>(layout.channels));
    plugin->SetFormat(format);

    const int64_t rate = layout.sampleRate;
    const int64_t total = reader.Frames();
    int64_t end = total > 0 ? total : INT64_MAX;
    if (atSeconds)
    {
        const double wanted = std::round(*atSeconds * static_cast<double>(rate));
        end = wanted >= 9.0e18 ? INT64_MAX : static_cast<int64_t>(wanted);
        if (total > 0 && end > total)
        {
            std::cerr << "qvdsp: " << Quoted(input) << " ends at "
                      << static_cast<double>(total) / rate << " s; analysing up to there\n";
            end = total;
        }
    }

    // The display's frames fall at whole frames of audio, k * rate / 60; the
    // blocks stop at each of them, so that each frame sees the ring exactly
    // as it stands at its moment.
    DiscardingSink sink;
    std::vector<double> block(static_cast<size_t>(kBlockFrames) * layout.channels);
    int64_t pushed = 0;
    bool fileEnded = false;
    for (int64_t k = 1; pushed < end && !fileEnded; ++k)
    {
        const int64_t tick = k * rate / ANALYZER_FRAMES_PER_SECOND;
        const int64_t target = std::min(tick, end);
        while (pushed < target)
        {
            const int64_t count = std::min<int64_t>(kBlockFrames, target - pushed);
            const int64_t got = reader.Read(block.data(), count);
            if (got == 0)
            {
                fileEnded = true;
                break;
            }
            plugin->Process(block.data(), static_cast<int32_t>(got), &sink);
            pushed += got;
        }
        // The paint at the end point stands in for a frame due there.
        if (pushed == tick && pushed < end)
            panel->PullFrame();
    }
    if (atSeconds && fileEnded && total <= 0)
        std::cerr << "qvdsp: " << Quoted(input) << " ends at " << static_cast<double>(pushed) / rate
                  << " s; analysing up to there\n";
    endSeconds = static_cast<double>(pushed) / static_cast<double>(rate);
    panel->Paint(PlotRectangle(size));
    if (!panel->HasFrame())
        throw CliError(CLI_EXIT_FAILED, "cannot analyse " + Quoted(input) + ": it gives " +
                                            std::to_string(pushed) + " frames up to " +
                                            Pixel(endSeconds) + " s, and the analyzer needs " +
                                            std::to_string(plugin->GetFftSize()) + " for a frame");
}

std::string PlainLevelLine(const QVString& markup)
{
    std::string line;
    for (const MarkupRun& run : SplitMarkup(markup.ToUTF8()))
        line += run.text;
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    return line;
}

std::string TraceTable(CAnalyzerDlg& panel, int32_t points)
{
    CSoundAnalyzerDraw& shown = panel.GetDraw();
    if (!shown.IsValid())
        return "(no traces: the range cannot be plotted)\n";
    // The same range at `points` columns gives the table's frequencies.
    CSoundAnalyzerDraw table;
    table.SetRange(shown.GetMinimumFrequency(), shown.GetMaximumFrequency(), shown.GetFftSize());
    table.SetRectangle({0, 0, points, 100});
    const CAnalyzerFrame& frame = panel.GetFrame();
    const std::vector<CAnalyzerTrace> traces = table.ComputeTraces(frame);
    std::string text = "Hz     ";
    char cell[32];
    for (const CAnalyzerTrace& trace : traces)
    {
        std::snprintf(cell, sizeof cell, " %9s", TraceName(frame.Format, trace.index).c_str());
        text += cell;
    }
    text += "    (dB)\n";
    const QVNumberArray<double>& columns = table.GetColumnFrequencies();
    for (int32_t x = 0; x < points; ++x)
    {
        std::snprintf(cell, sizeof cell, "%-7.0f", columns[x]);
        text += cell;
        for (const CAnalyzerTrace& trace : traces)
        {
            std::snprintf(cell, sizeof cell, " %9.1f", trace.decibels[static_cast<size_t>(x)]);
            text += cell;
        }
        text += '\n';
    }
    return text;
}

std::string AnalyzerJson(CAnalyzerDlg& panel, double seconds)
{
    using nlohmann::json;
    const CAnalyzerFrame& frame = panel.GetFrame();
    CSoundAnalyzerDraw& draw = panel.GetDraw();
    json names = json::array();
    for (int32_t c = 0; c < frame.Format.channels; ++c)
        names.push_back(
            CAudioFormat::GetChannelName(frame.Format.channelTable[c].position, false).ToUTF8());
    json levels = json::array();
    for (double level : frame.Levels)
        levels.push_back(level);
    json spectra = json::array();
    for (const QVNumberArray<double>* spectrum : frame.ChannelSpectra)
        spectra.push_back(std::vector<double>(spectrum->begin(), spectrum->end()));
    json traces = json::array();
    for (const CAnalyzerTrace& trace : panel.GetTraces())
    {
        json points = json::array();
        for (size_t x = 0; x < trace.rows.size(); ++x)
            points.push_back({draw.GetRectangle().left + static_cast<int32_t>(x), trace.rows[x]});
        traces.push_back({{"index", trace.index},
                          {"name", TraceName(frame.Format, trace.index)},
                          {"colour", Colour(trace.colour)},
                          {"points", points}});
    }
    const CAnalyzerRect& plot = draw.GetRectangle();
    json document = {
        {"seconds", seconds},
        {"fftSize", draw.GetFftSize()},
        {"format",
         {{"sampleRate", frame.Format.sampleRate},
          {"channels", frame.Format.channels},
          {"bitsPerSample", frame.Format.bitsPerSample},
          {"channelNames", names}}},
        {"levels", levels},
        {"levelLine", panel.GetLevelLine().ToUTF8()},
        {"spectra", spectra},
        {"range",
         {{"minimumHz", draw.GetMinimumFrequency()},
          {"maximumHz", draw.GetMaximumFrequency()},
          {"valid", draw.IsValid()}}},
        {"plot",
         {{"left", plot.left}, {"top", plot.top}, {"right", plot.right}, {"bottom", plot.bottom}}},
        {"traces", traces},
    };
    return document.dump(1) + "\n";
}

std::string AnalyzerSvg(CAnalyzerDlg& panel, const AnalyzerPictureSize& size)
{
    CSoundAnalyzerDraw& draw = panel.GetDraw();
    const CAnalyzerRect& plot = draw.GetRectangle();
    const std::string w = std::to_string(size.width), h = std::to_string(size.height);
    std::string svg = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    // A fixed-pitch font whose advance is the labels' measure (0.6 em of 11.7 px).
    svg += "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"" + w +
           "\" height=\"" + h + "\" viewBox=\"0 0 " + w + " " + h +
           "\" font-family=\"DejaVu Sans Mono, monospace\">\n";
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"#14181d\"/>\n";
    svg += "<defs><clipPath id=\"plot\"><rect x=\"" + std::to_string(plot.left) + "\" y=\"" +
           std::to_string(plot.top) + "\" width=\"" + std::to_string(plot.Width()) +
           "\" height=\"" + std::to_string(plot.Height()) + "\"/></clipPath></defs>\n";
    svg += "<rect class=\"plot\" x=\"" + std::to_string(plot.left) + "\" y=\"" +
           std::to_string(plot.top) + "\" width=\"" + std::to_string(plot.Width()) +
           "\" height=\"" + std::to_string(plot.Height()) +
           "\" fill=\"#05070a\" stroke=\"#39424d\"/>\n";

    // Lines run through pixel centres, hence the half pixel.
    const CAnalyzerGrid& grid = draw.GetGrid();
    svg += "<g class=\"grid\" stroke=\"#2a323c\" stroke-width=\"1\">\n";
    for (const CAnalyzerGridTick& tick : grid.ticks)
    {
        const std::string x = Pixel(plot.left + tick.column + 0.5);
        svg += "<line x1=\"" + x + "\" y1=\"" + std::to_string(plot.top) + "\" x2=\"" + x +
               "\" y2=\"" + std::to_string(plot.bottom) + "\"/>\n";
    }
    for (const CAnalyzerGridLine& line : grid.lines)
    {
        const std::string y = Pixel(line.row + 0.5);
        svg += "<line x1=\"" + std::to_string(plot.left) + "\" y1=\"" + y + "\" x2=\"" +
               std::to_string(plot.right) + "\" y2=\"" + y + "\"/>\n";
    }
    svg += "</g>\n";
    svg += "<g class=\"labels\" fill=\"#8d9aa8\" font-size=\"11.7\">\n";
    for (const CAnalyzerGridTick& tick : grid.ticks)
        if (tick.labelDrawn)
            svg += "<text x=\"" + std::to_string(plot.left + tick.labelLeft) + "\" y=\"" +
                   std::to_string(plot.bottom + 14) + "\">" + tick.label.ToUTF8() + "</text>\n";
    svg += "</g>\n";

    const CAnalyzerFrame& frame = panel.GetFrame();
    svg += "<g class=\"traces\" clip-path=\"url(#plot)\" fill=\"none\" stroke-width=\"1\">\n";
    for (const CAnalyzerTrace& trace : panel.GetTraces())
    {
        svg += "<polyline data-trace=\"" + std::to_string(trace.index) + "\" data-name=\"" +
               EscapeMarkup(TraceName(frame.Format, trace.index)) + "\" stroke=\"" +
               Colour(trace.colour) + "\" points=\"";
        for (size_t x = 0; x < trace.rows.size(); ++x)
            svg += (x ? " " : "") + Pixel(plot.left + static_cast<double>(x) + 0.5) + "," +
                   Pixel(trace.rows[x] + 0.5);
        svg += "\"/>\n";
    }
    svg += "</g>\n";

    svg += "<text class=\"levels\" x=\"" + std::to_string(plot.left) + "\" y=\"" +
           std::to_string(size.height - 12) +
           "\" font-size=\"12\" xml:space=\"preserve\" fill=\"#c8d0d8\">";
    for (const MarkupRun& run : SplitMarkup(panel.GetLevelLine().ToUTF8()))
    {
        if (run.colour.empty())
            svg += EscapeMarkup(run.text);
        else
            svg += "<tspan fill=\"#" + EscapeMarkup(run.colour) + "\">" + EscapeMarkup(run.text) +
                   "</tspan>";
    }
    svg += "</text>\n</svg>\n";
    return svg;
}
