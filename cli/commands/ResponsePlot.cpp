// The SVG drawing of a measured response: plain SVG 1.1 that any browser shows.
#include "cli/commands/PeqResponse.h"

#include "cli/commands/Commands.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace
{

constexpr double kWidth = 860, kHeight = 480;
constexpr double kLeft = 70, kRight = 130, kTop = 30, kBottom = 60;
constexpr double kPlotWidth = kWidth - kLeft - kRight, kPlotHeight = kHeight - kTop - kBottom;
// Channels often share a curve: a dash pattern per trace keeps each one visible.
const char* const kDashes[] = {"none", "10,5", "3,4", "12,4,3,4"};
const char* const kColours[] = {"#1f77b4", "#d62728", "#2ca02c", "#ff7f0e", "#9467bd",
                                "#8c564b", "#e377c2", "#17becf", "#7f7f7f", "#bcbd22"};

std::string Number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.1f", value);
    return text;
}

struct Axes
{
    double lowHz, highHz, lowDb, highDb;
    double X(double hz) const
    {
        return kLeft + kPlotWidth * std::log(hz / lowHz) / std::log(highHz / lowHz);
    }
    double Y(double db) const
    {
        const double clamped = std::clamp(db, lowDb, highDb);
        return kTop + kPlotHeight * (highDb - clamped) / (highDb - lowDb);
    }
};

// Whole multiples of 6 dB around everything measured, at least -12 to +12.
Axes ChooseAxes(const MagnitudeResponse& response)
{
    double low = -12, high = 12;
    for (const ChannelResponse& channel : response.channels)
        for (double db : channel.decibels)
        {
            low = std::min(low, std::max(db, -120.0));
            high = std::max(high, std::min(db, 60.0));
        }
    return {response.frequencies.front(), response.frequencies.back(), 6 * std::floor(low / 6),
            6 * std::ceil(high / 6)};
}

std::string FrequencyLabel(double hz)
{
    return hz >= 1000 ? std::to_string(static_cast<int>(hz / 1000)) + "k"
                      : std::to_string(static_cast<int>(hz));
}

void AddGrid(std::string& svg, const Axes& axes)
{
    svg += "<g stroke=\"#ddd\" stroke-width=\"1\" font-size=\"12\" fill=\"#333\">\n";
    for (double decade = 10; decade <= 10000; decade *= 10)
        for (double step : {1.0, 2.0, 5.0})
        {
            const double hz = decade * step;
            if (hz < axes.lowHz * 0.999 || hz > axes.highHz * 1.001)
                continue;
            const std::string x = Number(axes.X(hz));
            svg += "<line x1=\"" + x + "\" y1=\"" + Number(kTop) + "\" x2=\"" + x + "\" y2=\"" +
                   Number(kTop + kPlotHeight) + "\"/>\n";
            svg += "<text stroke=\"none\" text-anchor=\"middle\" x=\"" + x + "\" y=\"" +
                   Number(kTop + kPlotHeight + 18) + "\">" + FrequencyLabel(hz) + "</text>\n";
        }
    const double step = axes.highDb - axes.lowDb > 48 ? 12 : 6;
    for (double db = axes.lowDb; db <= axes.highDb + 1e-9; db += step)
    {
        const std::string y = Number(axes.Y(db));
        svg += "<line x1=\"" + Number(kLeft) + "\" y1=\"" + y + "\" x2=\"" +
               Number(kLeft + kPlotWidth) + "\" y2=\"" + y + "\"" +
               (db == 0 ? " stroke=\"#999\"" : "") + "/>\n";
        svg += "<text stroke=\"none\" text-anchor=\"end\" x=\"" + Number(kLeft - 8) + "\" y=\"" +
               Number(axes.Y(db) + 4) + "\">" + std::to_string(static_cast<int>(db)) + "</text>\n";
    }
    svg += "</g>\n";
    svg += "<rect x=\"" + Number(kLeft) + "\" y=\"" + Number(kTop) + "\" width=\"" +
           Number(kPlotWidth) + "\" height=\"" + Number(kPlotHeight) +
           "\" fill=\"none\" stroke=\"#333\"/>\n";
    svg += "<text x=\"" + Number(kLeft + kPlotWidth / 2) + "\" y=\"" + Number(kHeight - 15) +
           "\" text-anchor=\"middle\" font-size=\"14\">Frequency (Hz)</text>\n";
    svg += "<text transform=\"translate(20," + Number(kTop + kPlotHeight / 2) +
           ") rotate(-90)\" text-anchor=\"middle\" font-size=\"14\">Gain (dB)</text>\n";
}

void AddTraces(std::string& svg, const MagnitudeResponse& response, const Axes& axes)
{
    for (size_t c = 0; c < response.channels.size(); ++c)
    {
        const ChannelResponse& channel = response.channels[c];
        const char* colour = kColours[c % std::size(kColours)];
        svg += "<polyline class=\"trace\" data-channel=\"" + EscapeMarkup(channel.name) +
               "\" fill=\"none\" stroke=\"" + colour + "\" stroke-width=\"2\" stroke-dasharray=\"" +
               kDashes[c % std::size(kDashes)] + "\" points=\"";
        for (size_t i = 0; i < response.frequencies.size(); ++i)
            svg += (i ? " " : "") + Number(axes.X(response.frequencies[i])) + "," +
                   Number(axes.Y(channel.decibels[i]));
        svg += "\"/>\n";
        const double y = kTop + 10 + 22 * static_cast<double>(c);
        const double x = kLeft + kPlotWidth + 15;
        svg += "<line x1=\"" + Number(x) + "\" y1=\"" + Number(y) + "\" x2=\"" + Number(x + 25) +
               "\" y2=\"" + Number(y) + "\" stroke=\"" + colour +
               "\" stroke-width=\"3\" stroke-dasharray=\"" + kDashes[c % std::size(kDashes)] +
               "\"/>\n";
        svg += "<text x=\"" + Number(x + 32) + "\" y=\"" + Number(y + 4) + "\" font-size=\"13\">" +
               EscapeMarkup(channel.name) + "</text>\n";
    }
}

}  // namespace

std::string ResponseSvg(const MagnitudeResponse& response)
{
    std::string svg = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
    svg += "<svg xmlns=\"http://www.w3.org/2000/svg\" version=\"1.1\" width=\"" + Number(kWidth) +
           "\" height=\"" + Number(kHeight) + "\" viewBox=\"0 0 " + Number(kWidth) + " " +
           Number(kHeight) + "\" font-family=\"sans-serif\">\n";
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    if (!response.frequencies.empty())
    {
        const Axes axes = ChooseAxes(response);
        AddGrid(svg, axes);
        AddTraces(svg, response, axes);
    }
    svg += "</svg>\n";
    return svg;
}
