// The numbers of the Analyzer's picture, without a window: the logarithmic
// frequency axis, the power of each pixel column's band, the trace points,
// the colour table, the grid and the level line. A painter (a panel, or the
// SVG writer of qvdsp) only draws what this hands out.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/QVArray.h"
#include "core/QVString.h"

struct CAnalyzerFrame;

// A rectangle of pixels; right and bottom lie just outside it.
struct CAnalyzerRect
{
    int32_t left = 0;
    int32_t top = 0;
    int32_t right = 0;
    int32_t bottom = 0;

    int32_t Width() const { return right - left; }
    int32_t Height() const { return bottom - top; }
    bool operator==(const CAnalyzerRect&) const = default;
};

// One vertical line of the grid, with its label where there is room for it.
struct CAnalyzerGridTick
{
    int32_t frequencyHz = 0;
    int32_t column = 0;  // from the plot's left edge
    QVString label;
    bool labelDrawn = false;
    int32_t labelLeft = 0;  // from the plot's left edge
    int32_t labelWidth = 0;
};

// One horizontal line of the grid, every 3 dB on the traces' scale.
struct CAnalyzerGridLine
{
    int32_t decibels = 0;
    int32_t row = 0;  // absolute, like the plot's rows
};

struct CAnalyzerGrid
{
    std::vector<CAnalyzerGridTick> ticks;
    std::vector<CAnalyzerGridLine> lines;
};

// One trace: its number (0 the sum of all channels, t the channel t - 1),
// its colour and one row per pixel column of the plot.
struct CAnalyzerTrace
{
    int32_t index = 0;
    uint32_t colour = 0;  // 0xRRGGBB
    std::vector<double> decibels;
    std::vector<int32_t> rows;
};

class CSoundAnalyzerDraw
{
public:
    static constexpr double INITIAL_MINIMUM_HZ = 40.0;
    static constexpr double INITIAL_MAXIMUM_HZ = 18000.0;
    static constexpr double MINIMUM_WIDTH_HZ = 20.0;
    static constexpr double LOWEST_HZ = 1.0;
    static constexpr double HIGHEST_HZ = 100000.0;
    // A band reaches 5 % either side of its column's frequency.
    static constexpr double BAND_LOW = 0.95;
    static constexpr double BAND_HIGH = 1.05;
    // The scale starts 2 dB above 0 dB, so that the noise floor lies on the bottom row.
    static constexpr double SCALE_FLOOR_DB = 2.0;
    static constexpr int32_t GRID_STEP_DB = 3;
    static constexpr int32_t GRID_HIGHEST_DB = 117;
    static constexpr int32_t TRACE_COLOUR_COUNT = 10;
    static const uint32_t TRACE_COLOURS[TRACE_COLOUR_COUNT];
    static constexpr int32_t GRID_FREQUENCY_COUNT = 36;
    // 500 Hz is missing on purpose: users know the grid this way.
    static const int32_t GRID_FREQUENCIES[GRID_FREQUENCY_COUNT];
    // The labels are measured as a fixed-pitch font of this advance would
    // draw them; a painter uses a font of that pitch.
    static constexpr int32_t LABEL_CHARACTER_WIDTH = 7;

    CSoundAnalyzerDraw() = default;
    virtual ~CSoundAnalyzerDraw();

    // The frequency range (Hz) and N. Nothing happens when the drawing is
    // valid and all three are unchanged. A range not wider than 20 Hz, or
    // reaching below 1 Hz or above 100 kHz, makes the drawing invalid.
    void SetRange(double minimumHz, double maximumHz, int32_t fftSize);
    // The plot area; a new size drops the column frequencies and the grid.
    void SetRectangle(const CAnalyzerRect& rectangle);

    bool IsValid() const { return Valid; }
    double GetMinimumFrequency() const { return MinimumFrequency; }
    double GetMaximumFrequency() const { return MaximumFrequency; }
    double GetLogMinimum() const { return LogMinimum; }
    double GetLogMaximum() const { return LogMaximum; }
    int32_t GetFftSize() const { return FftSize; }
    const CAnalyzerRect& GetRectangle() const { return Rectangle; }
    // The rows of 0 dB plus the floor and of the top level.
    int32_t GetBottomRow() const { return Rectangle.bottom - 1; }
    int32_t GetTopRow() const { return Rectangle.top; }

    // The frequency of each pixel column of the plot, lowest on the left.
    const QVNumberArray<double>& GetColumnFrequencies();

    // The integral from bin a to bin b of the spectrum taken as a line that
    // runs straight from bin to bin; a and b are clamped to the bins.
    static double Integrate(const QVNumberArray<double>& spectrum, double a, double b);
    // The level at the plot's top, 20 log10(N / 4): a full-scale sine on a bin.
    static double TopLevel(int32_t fftSize);
    // The row of a level in dB on a scale whose top level is `topDb`.
    static int32_t LevelRow(double decibels, double topDb, int32_t bottom, int32_t top);

    // Trace 0 (the sum) and then one trace per channel, drawn in that order.
    // Empty while the drawing is invalid or the plot has no columns.
    std::vector<CAnalyzerTrace> ComputeTraces(const CAnalyzerFrame& frame);

    // Ticks and lines of the grid for the current range and rectangle, kept
    // until one of them changes.
    const CAnalyzerGrid& GetGrid();

    // "%dK" from 1000 Hz on, else "%d".
    static QVString TickLabel(int32_t frequencyHz);
    // Six hexadecimal digits of a colour of the table.
    static QVString ColourText(int32_t entry);
    // The line under the plot in its markup: the overall level and each
    // channel's, each in its trace's colour.
    static QVString LevelLine(const CAnalyzerFrame& frame);

    int32_t LabelGap = 8;

private:
    void BuildGrid();

    bool Valid = false;
    double MinimumFrequency = INITIAL_MINIMUM_HZ;
    double MaximumFrequency = INITIAL_MAXIMUM_HZ;
    double LogMinimum = 0.0;
    double LogMaximum = 0.0;
    int32_t FftSize = 0;
    bool ColumnsValid = false;
    QVNumberArray<double> ColumnFrequencies;
    CAnalyzerRect Rectangle;
    // Channels x columns: each channel's band power per column of the last trace.
    QVNumberArray<double> BandPower;
    // What a window would keep as an image of the grid.
    std::unique_ptr<CAnalyzerGrid> Background;
};
