#include "effects/SoundAnalyzerDraw.h"

#include <algorithm>
#include <cmath>

#include "effects/AnalyzerPlugin.h"

const uint32_t CSoundAnalyzerDraw::TRACE_COLOURS[TRACE_COLOUR_COUNT] = {
    0xFF8000, 0x0080FF, 0xFFFF00, 0x808000, 0x00FFFF,
    0x11D40B, 0xFF00FF, 0x008080, 0x800080, 0x80FF00,
};

const int32_t CSoundAnalyzerDraw::GRID_FREQUENCIES[GRID_FREQUENCY_COUNT] = {
    10,   20,   30,    40,    50,    60,    70,    80,    90,    100,   200,   300,
    400,  600,  700,   800,   900,   1000,  2000,  3000,  4000,  5000,  6000,  7000,
    8000, 9000, 10000, 20000, 30000, 40000, 50000, 60000, 70000, 80000, 90000, 100000,
};

CSoundAnalyzerDraw::~CSoundAnalyzerDraw() = default;

void CSoundAnalyzerDraw::SetRange(double minimumHz, double maximumHz, int32_t fftSize)
{
    if (Valid && minimumHz == MinimumFrequency && maximumHz == MaximumFrequency &&
        fftSize == FftSize)
        return;
    MinimumFrequency = minimumHz;
    MaximumFrequency = maximumHz;
    FftSize = fftSize;
    Valid = true;
    if (!(maximumHz - minimumHz > MINIMUM_WIDTH_HZ) || minimumHz < LOWEST_HZ ||
        maximumHz > HIGHEST_HZ)
    {
        Valid = false;
        LogMinimum = 0.0;
        LogMaximum = 0.0;
    }
    else
    {
        LogMinimum = std::log10(minimumHz);
        LogMaximum = std::log10(maximumHz);
    }
    ColumnsValid = false;
    Background.reset();
}

void CSoundAnalyzerDraw::SetRectangle(const CAnalyzerRect& rectangle)
{
    if (rectangle == Rectangle)
        return;
    // The grid's rows are absolute, so a move redraws it as well as a new size.
    Background.reset();
    Rectangle = rectangle;
}

const QVNumberArray<double>& CSoundAnalyzerDraw::GetColumnFrequencies()
{
    const int32_t width = std::max(Rectangle.Width(), 0);
    if (ColumnsValid && ColumnFrequencies.GetCount() == width)
        return ColumnFrequencies;
    ColumnFrequencies.SetCount(width);
    const double span = LogMaximum - LogMinimum;
    for (int32_t x = 0; x < width; ++x)
        ColumnFrequencies[x] = std::pow(10.0, static_cast<double>(x) / width * span + LogMinimum);
    ColumnsValid = true;
    return ColumnFrequencies;
}

double CSoundAnalyzerDraw::Integrate(const QVNumberArray<double>& spectrum, double a, double b)
{
    const int32_t last = spectrum.GetCount() - 1;
    a = std::max(a, 0.0);
    b = std::min(b, static_cast<double>(last));
    if (!(a < b))
        return 0.0;
    const double* s = spectrum.GetData();
    // The spectrum as a straight line between neighbouring bins; within one
    // interval the width times the value at the middle is that line's exact area.
    auto at = [s, last](double x)
    {
        const int32_t i = std::min(static_cast<int32_t>(x), last - 1);
        return s[i] + (x - i) * (s[i + 1] - s[i]);
    };
    const double firstWhole = std::ceil(a);
    const double lastWhole = std::floor(b);
    if (firstWhole > lastWhole)
        return (b - a) * at((a + b) * 0.5);
    double sum = 0.0;
    if (a < firstWhole)
        sum += (firstWhole - a) * at((a + firstWhole) * 0.5);
    for (int32_t k = static_cast<int32_t>(firstWhole); k < static_cast<int32_t>(lastWhole); ++k)
        sum += (s[k] + s[k + 1]) * 0.5;
    if (lastWhole < b)
        sum += (b - lastWhole) * at((lastWhole + b) * 0.5);
    return sum;
}

double CSoundAnalyzerDraw::TopLevel(int32_t fftSize)
{
    return 20.0 * std::log10(fftSize / 4.0);
}

int32_t CSoundAnalyzerDraw::LevelRow(double decibels, double topDb, int32_t bottom, int32_t top)
{
    const double n = (decibels - SCALE_FLOOR_DB) / (topDb - SCALE_FLOOR_DB);
    if (!(n > 0.0))
        return bottom;
    return static_cast<int32_t>(std::lround(bottom + (top - bottom) * n));
}

std::vector<CAnalyzerTrace> CSoundAnalyzerDraw::ComputeTraces(const CAnalyzerFrame& frame)
{
    std::vector<CAnalyzerTrace> traces;
    const int32_t width = Rectangle.Width();
    if (!Valid || width <= 0 || FftSize <= 0)
        return traces;
    const QVNumberArray<double>& columns = GetColumnFrequencies();
    const int32_t channels = frame.ChannelSpectra.GetCount();
    const double topDb = TopLevel(FftSize);
    const double binWidth = (frame.Format.sampleRate * 0.5) / (FftSize / 2);
    BandPower.SetCount(channels * width);

    traces.resize(static_cast<size_t>(channels) + 1);
    for (int32_t t = 0; t <= channels; ++t)
    {
        CAnalyzerTrace& trace = traces[static_cast<size_t>(t)];
        trace.index = t;
        trace.colour = TRACE_COLOURS[t % TRACE_COLOUR_COUNT];
        trace.decibels.resize(static_cast<size_t>(width));
        trace.rows.resize(static_cast<size_t>(width));
        for (int32_t x = 0; x < width; ++x)
        {
            double power = 0.0;
            if (t == 0)
            {
                const double f = columns[x];
                for (int32_t c = 0; c < channels; ++c)
                {
                    double& band = BandPower[c * width + x];
                    band = Integrate(*frame.ChannelSpectra[c], BAND_LOW * f / binWidth,
                                     BAND_HIGH * f / binWidth);
                    power += band;
                }
            }
            else
            {
                power = BandPower[(t - 1) * width + x];
            }
            const double magnitude = power > 0.0 ? std::sqrt(power) : 0.0;
            const double decibels = magnitude > 0.0 ? 20.0 * std::log10(magnitude) : 0.0;
            trace.decibels[static_cast<size_t>(x)] = decibels;
            trace.rows[static_cast<size_t>(x)] =
                LevelRow(decibels, topDb, GetBottomRow(), GetTopRow());
        }
    }
    return traces;
}

QVString CSoundAnalyzerDraw::TickLabel(int32_t frequencyHz)
{
    if (frequencyHz >= 1000)
        return QVString::Format(u"%dK", frequencyHz / 1000);
    return QVString::Format(u"%d", frequencyHz);
}

const CAnalyzerGrid& CSoundAnalyzerDraw::GetGrid()
{
    if (!Background)
        BuildGrid();
    return *Background;
}

void CSoundAnalyzerDraw::BuildGrid()
{
    Background = std::make_unique<CAnalyzerGrid>();
    const int32_t width = Rectangle.Width();
    if (!Valid || width <= 0)
        return;
    const double span = LogMaximum - LogMinimum;
    // A label may start where the previous one ended plus the gap, and must
    // end within the plot.
    int32_t labelsFreeFrom = 0;
    for (int32_t frequency : GRID_FREQUENCIES)
    {
        const int32_t column = static_cast<int32_t>(
            std::lround((width - 2) * (std::log10(frequency) - LogMinimum) / span));
        if (column < 0 || column >= width)
            continue;
        CAnalyzerGridTick tick;
        tick.frequencyHz = frequency;
        tick.column = column;
        tick.label = TickLabel(frequency);
        tick.labelWidth = tick.label.GetLength() * LABEL_CHARACTER_WIDTH;
        tick.labelLeft = column - tick.labelWidth / 2;
        if (tick.labelLeft >= labelsFreeFrom && tick.labelLeft + tick.labelWidth <= width)
        {
            tick.labelDrawn = true;
            labelsFreeFrom = tick.labelLeft + tick.labelWidth + LabelGap;
        }
        Background->ticks.push_back(tick);
    }
    const double topDb = TopLevel(FftSize);
    const int32_t bottom = GetBottomRow();
    const int32_t top = GetTopRow();
    for (int32_t d = 0; d <= GRID_HIGHEST_DB; d += GRID_STEP_DB)
    {
        const double n = (d - SCALE_FLOOR_DB) / (topDb - SCALE_FLOOR_DB);
        if (n < 0.0 || n > 1.0)
            continue;
        Background->lines.push_back(
            {d, static_cast<int32_t>(std::lround(bottom + (top - bottom) * n))});
    }
}

QVString CSoundAnalyzerDraw::ColourText(int32_t entry)
{
    return QVString::Format(u"%06X",
                            static_cast<int32_t>(TRACE_COLOURS[entry % TRACE_COLOUR_COUNT]));
}

QVString CSoundAnalyzerDraw::LevelLine(const CAnalyzerFrame& frame)
{
    auto level = [&frame](int32_t entry)
    {
        const double value = entry < frame.Levels.GetCount() ? frame.Levels[entry] : 0.0;
        return QVString::Format(u"%.1f dB", value);
    };
    QVString line =
        QVString::Format(u"<font color=\"%s\">Volume RMS: %s</font>  ", ColourText(0), level(0));
    for (int32_t c = 1; c <= frame.Format.channels; ++c)
    {
        const QVString name =
            CAudioFormat::GetChannelName(frame.Format.channelTable[c - 1].position, false);
        line = line + QVString::Format(u"<font color=\"%s\">%s: %s   </font>", ColourText(c), name,
                                       level(c));
    }
    line.TrimRight(u" ");
    return line;
}
