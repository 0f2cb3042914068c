// The Analyzer as qvdsp drives it: a file run through the plug-in in blocks
// as a player would, with frames pulled at a display's pace, and what a
// display would show of the last one, as text, JSON or an SVG picture.
#pragma once

#include "cli/host/PluginChain.h"
#include "effects/AnalyzerDlg.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

// Frames a display computes per second of audio.
inline constexpr int32_t ANALYZER_FRAMES_PER_SECOND = 60;

struct AnalyzerPictureSize
{
    int32_t width = 800;
    int32_t height = 400;
};

// "WxH", each 100 to 10000 pixels; throws CliError (usage) otherwise.
AnalyzerPictureSize ParsePictureSize(const std::string& text);

class AnalyzerSession
{
public:
    // The plug-in is made as a command that only shows things makes it: it
    // reads the zone's settings and writes none.
    AnalyzerSession(CliHost& host, int32_t zone);
    ~AnalyzerSession();
    AnalyzerSession(const AnalyzerSession&) = delete;
    AnalyzerSession& operator=(const AnalyzerSession&) = delete;

    // Field texts as the panel takes them ("1,5K"); unset keeps the settings'.
    void Configure(bool highResolution, const std::optional<std::string>& minimum,
                   const std::optional<std::string>& maximum);

    // Pushes `input` up to `atSeconds` (the whole file when unset) and pulls
    // a frame at each 1/60 s of audio, the last one at the end point, painted
    // for a picture of `size`. Throws CliError for a file that cannot be read
    // or analysed, naming it and the reason.
    void Run(const std::filesystem::path& input, std::optional<double> atSeconds,
             const AnalyzerPictureSize& size);

    CAnalyzerDlg& Panel() { return *panel; }
    CAnalyzerDSPPlugin& Plugin() { return *plugin; }
    // Seconds of audio pushed before the last frame.
    double EndSeconds() const { return endSeconds; }

private:
    PluginPointer owner;
    CAnalyzerDSPPlugin* plugin = nullptr;
    CAnalyzerDlg* panel = nullptr;
    double endSeconds = 0.0;
};

// The plot's rectangle inside a picture: room for the labels and the level line below.
CAnalyzerRect PlotRectangle(const AnalyzerPictureSize& size);

// The level line without its markup: "Volume RMS: -12.3 dB  Left: ...".
std::string PlainLevelLine(const QVString& markup);
// The traces at `points` log-spaced frequencies of the panel's range: a
// header line, then per frequency its Hz and the dB of every trace.
std::string TraceTable(CAnalyzerDlg& panel, int32_t points);
// The frame record (format, levels, every channel's spectrum) and the trace
// points of the last paint.
std::string AnalyzerJson(CAnalyzerDlg& panel, double seconds);
// The analyzer's own picture of the last paint: a dark background, the grid
// with its labels, one polyline per trace and the level line under it.
std::string AnalyzerSvg(CAnalyzerDlg& panel, const AnalyzerPictureSize& size);
