// The drawing's numbers: the range rules, column frequencies, the band
// integral against a fine numeric one, trace rows worked out by hand, the
// colour table, the grid of the default range at 800 pixels, the level line.
#include "effects/SoundAnalyzerDraw.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "effects/AnalyzerPlugin.h"

namespace
{

QVNumberArray<double> Spectrum(std::initializer_list<double> values)
{
    QVNumberArray<double> spectrum;
    for (double value : values)
        spectrum.Add(value);
    return spectrum;
}

// A frame of `channels` flat spectra of N/2 bins, one constant per channel.
void FlatFrame(CAnalyzerFrame& frame, uint32_t sampleRate, const std::vector<double>& values,
               int32_t n)
{
    frame.Format.Set(64, sampleRate, static_cast<uint16_t>(values.size()));
    frame.ChannelSpectra.RemoveAll();
    for (double value : values)
    {
        auto* spectrum = new QVNumberArray<double>();
        spectrum->SetCount(n / 2);
        for (double& bin : *spectrum)
            bin = value;
        frame.ChannelSpectra.Add(spectrum);
    }
}

}  // namespace

TEST(SoundAnalyzerDraw, RangeRules)
{
    CSoundAnalyzerDraw draw;
    EXPECT_EQ(draw.GetMinimumFrequency(), 40.0);
    EXPECT_EQ(draw.GetMaximumFrequency(), 18000.0);
    draw.SetRange(40.0, 18000.0, 4096);
    EXPECT_TRUE(draw.IsValid());
    EXPECT_DOUBLE_EQ(draw.GetLogMinimum(), std::log10(40.0));
    EXPECT_DOUBLE_EQ(draw.GetLogMaximum(), std::log10(18000.0));

    struct Case
    {
        double minimum, maximum;
        bool valid;
    };
    for (const Case& c : {Case{40, 60, false}, Case{40, 60.5, true}, Case{0.5, 1000, false},
                          Case{1, 1000, true}, Case{20, 100000, true}, Case{20, 100001, false},
                          Case{1000, 40, false}, Case{NAN, 1000, false}})
    {
        draw.SetRange(c.minimum, c.maximum, 4096);
        EXPECT_EQ(draw.IsValid(), c.valid) << c.minimum << " to " << c.maximum;
        if (!c.valid)
        {
            EXPECT_EQ(draw.GetLogMinimum(), 0.0);
            EXPECT_EQ(draw.GetLogMaximum(), 0.0);
        }
    }
    // An invalid range draws nothing: no grid and no traces.
    draw.SetRange(40, 60, 4096);
    draw.SetRectangle({0, 0, 800, 400});
    EXPECT_TRUE(draw.GetGrid().ticks.empty());
    EXPECT_TRUE(draw.GetGrid().lines.empty());
    CAnalyzerFrame frame;
    FlatFrame(frame, 44100, {1.0}, 4096);
    EXPECT_TRUE(draw.ComputeTraces(frame).empty());
}

TEST(SoundAnalyzerDraw, ColumnFrequenciesAreLogSpacedAndCached)
{
    CSoundAnalyzerDraw draw;
    draw.SetRange(10, 10000, 4096);
    draw.SetRectangle({5, 5, 9, 100});
    const QVNumberArray<double>& columns = draw.GetColumnFrequencies();
    ASSERT_EQ(columns.GetCount(), 4);
    // 10^(x/4 * 3 + 1): the right edge itself is not a column.
    EXPECT_DOUBLE_EQ(columns[0], 10.0);
    EXPECT_NEAR(columns[1], 56.234132519, 1e-8);
    EXPECT_NEAR(columns[2], 316.227766017, 1e-8);
    EXPECT_NEAR(columns[3], 1778.279410039, 1e-8);
    // A new range or width makes them anew.
    draw.SetRange(100, 1000, 4096);
    EXPECT_DOUBLE_EQ(draw.GetColumnFrequencies()[0], 100.0);
    draw.SetRectangle({0, 0, 2, 100});
    ASSERT_EQ(draw.GetColumnFrequencies().GetCount(), 2);
    EXPECT_NEAR(draw.GetColumnFrequencies()[1], std::sqrt(10.0) * 100.0, 1e-9);
}

TEST(SoundAnalyzerDraw, BandIntegralOfTheLineThroughTheBins)
{
    const QVNumberArray<double> s = Spectrum({0, 2, 4, 2});
    // By hand: 0.5 to 1 is 0.5 * 1.5; 1 to 2 a trapezoid of 3; 2 to 2.5 is 0.5 * 3.5.
    EXPECT_DOUBLE_EQ(CSoundAnalyzerDraw::Integrate(s, 0.5, 2.5), 0.75 + 3.0 + 1.75);
    EXPECT_DOUBLE_EQ(CSoundAnalyzerDraw::Integrate(s, 1.25, 1.75), 1.5);
    EXPECT_DOUBLE_EQ(CSoundAnalyzerDraw::Integrate(s, 1.0, 3.0), 3.0 + 3.0);
    // Clamped to the bins: the whole spectrum is 1 + 3 + 3.
    EXPECT_DOUBLE_EQ(CSoundAnalyzerDraw::Integrate(s, -4.0, 10.0), 7.0);
    EXPECT_EQ(CSoundAnalyzerDraw::Integrate(s, 2.0, 2.0), 0.0);
    EXPECT_EQ(CSoundAnalyzerDraw::Integrate(s, 2.5, 1.0), 0.0);
    // A band above the last bin gives nothing.
    EXPECT_EQ(CSoundAnalyzerDraw::Integrate(s, 3.2, 3.8), 0.0);
    EXPECT_EQ(CSoundAnalyzerDraw::Integrate(QVNumberArray<double>(), 0.0, 1.0), 0.0);
    EXPECT_EQ(CSoundAnalyzerDraw::Integrate(Spectrum({5}), 0.0, 1.0), 0.0);

    // Against a midpoint sum of the interpolated line in fine steps.
    std::mt19937 random(7);
    std::uniform_real_distribution<double> value(0.0, 100.0), place(-2.0, 70.0);
    QVNumberArray<double> noise;
    for (int32_t k = 0; k < 64; ++k)
        noise.Add(value(random));
    for (int32_t trial = 0; trial < 50; ++trial)
    {
        double a = place(random), b = place(random);
        const double lo = std::max(a, 0.0), hi = std::min(b, 63.0);
        double reference = 0.0;
        if (lo < hi)
        {
            const int32_t steps = 200000;
            const double h = (hi - lo) / steps;
            for (int32_t i = 0; i < steps; ++i)
            {
                const double x = lo + (i + 0.5) * h;
                const int32_t k = std::min(static_cast<int32_t>(x), 62);
                reference += h * (noise[k] + (x - k) * (noise[k + 1] - noise[k]));
            }
        }
        EXPECT_NEAR(CSoundAnalyzerDraw::Integrate(noise, a, b), reference, 1e-6 * 100 * 64)
            << a << " to " << b;
    }
}

TEST(SoundAnalyzerDraw, TopLevelAndTraceRows)
{
    EXPECT_NEAR(CSoundAnalyzerDraw::TopLevel(4096), 60.2059991328, 1e-9);
    EXPECT_NEAR(CSoundAnalyzerDraw::TopLevel(16384), 72.2471989, 1e-6);

    CSoundAnalyzerDraw draw;
    draw.SetRange(100, 30000, 4096);
    draw.SetRectangle({10, 20, 410, 220});  // rows 219 (bottom) up to 20 (top)
    CAnalyzerFrame frame;
    // Two channels with flat power 4 and 12 per bin, 44100 Hz.
    FlatFrame(frame, 44100, {4.0, 12.0}, 4096);
    const std::vector<CAnalyzerTrace> traces = draw.ComputeTraces(frame);
    ASSERT_EQ(traces.size(), 3u);
    const double binWidth = 22050.0 / 2048.0;
    const double top = 20.0 * std::log10(1024.0);
    const QVNumberArray<double>& columns = draw.GetColumnFrequencies();
    for (int32_t x : {0, 57, 200, 301})
    {
        const double f = columns[x];
        // A flat line: the band's power is its width in bins, 0.1 f / B, times the level.
        const double width = 0.1 * f / binWidth;
        const double powers[3] = {16.0 * width, 4.0 * width, 12.0 * width};
        for (int32_t t = 0; t < 3; ++t)
        {
            const double db = 10.0 * std::log10(powers[t]);
            EXPECT_NEAR(traces[t].decibels[x], db, 1e-9) << t << " " << x;
            const double n = (db - 2.0) / (top - 2.0);
            const int32_t row =
                n > 0 ? static_cast<int32_t>(std::lround(219 + (20 - 219) * n)) : 219;
            EXPECT_EQ(traces[t].rows[x], row) << t << " " << x;
        }
    }
    // Columns whose band lies above bin 2047 (from about 23.2 kHz) sit on the bottom row.
    const int32_t last = 399;
    ASSERT_GT(columns[last] * 0.95 / binWidth, 2047.0);
    for (const CAnalyzerTrace& trace : traces)
    {
        EXPECT_EQ(trace.decibels[last], 0.0);
        EXPECT_EQ(trace.rows[last], 219);
    }
    // Rows scale so that the top level lands on the top row, and above it beyond.
    EXPECT_EQ(CSoundAnalyzerDraw::LevelRow(top, top, 219, 20), 20);
    EXPECT_EQ(CSoundAnalyzerDraw::LevelRow(2.0, top, 219, 20), 219);
    EXPECT_EQ(CSoundAnalyzerDraw::LevelRow(-30.0, top, 219, 20), 219);
    EXPECT_LT(CSoundAnalyzerDraw::LevelRow(top + 10, top, 219, 20), 20);
}

TEST(SoundAnalyzerDraw, TraceColoursFollowTheTable)
{
    const char* expected[10] = {"FF8000", "0080FF", "FFFF00", "808000", "00FFFF",
                                "11D40B", "FF00FF", "008080", "800080", "80FF00"};
    for (int32_t entry = 0; entry < 10; ++entry)
        EXPECT_EQ(CSoundAnalyzerDraw::ColourText(entry).ToUTF8(), expected[entry]);
    EXPECT_EQ(CSoundAnalyzerDraw::TRACE_COLOURS[5], 0x11D40Bu);  // 17, 212, 11

    // Twelve channels: traces 10, 11 and 12 take entries 0, 1 and 2 again.
    CSoundAnalyzerDraw draw;
    draw.SetRange(40, 18000, 4096);
    draw.SetRectangle({0, 0, 50, 50});
    CAnalyzerFrame frame;
    FlatFrame(frame, 48000, std::vector<double>(12, 1.0), 4096);
    const std::vector<CAnalyzerTrace> traces = draw.ComputeTraces(frame);
    ASSERT_EQ(traces.size(), 13u);
    for (int32_t t = 0; t < 13; ++t)
    {
        EXPECT_EQ(traces[t].index, t);
        EXPECT_EQ(traces[t].colour, CSoundAnalyzerDraw::TRACE_COLOURS[t % 10]);
    }
}

TEST(SoundAnalyzerDraw, GridOfTheDefaultRangeAt800Pixels)
{
    CSoundAnalyzerDraw draw;
    draw.SetRange(40, 18000, 4096);
    draw.SetRectangle({0, 0, 800, 400});
    const CAnalyzerGrid& grid = draw.GetGrid();
    // Worked out by hand from round(798 * log10(f / 40) / log10(450)), with
    // labels 7 pixels a character, centred, 8 pixels apart and inside the plot.
    struct Tick
    {
        int32_t hz, column;
        const char* label;
        bool drawn;
    };
    const Tick expected[] = {
        {40, 0, "40", false},    {50, 29, "50", true},     {60, 53, "60", true},
        {70, 73, "70", false},   {80, 91, "80", true},     {90, 106, "90", false},
        {100, 120, "100", true}, {200, 210, "200", true},  {300, 263, "300", true},
        {400, 301, "400", true}, {600, 354, "600", true},  {700, 374, "700", false},
        {800, 391, "800", true}, {900, 407, "900", false}, {1000, 420, "1K", true},
        {2000, 511, "2K", true}, {3000, 564, "3K", true},  {4000, 602, "4K", true},
        {5000, 631, "5K", true}, {6000, 654, "6K", true},  {7000, 675, "7K", false},
        {8000, 692, "8K", true}, {9000, 707, "9K", false}, {10000, 721, "10K", true},
    };
    ASSERT_EQ(grid.ticks.size(), std::size(expected));
    for (size_t i = 0; i < std::size(expected); ++i)
    {
        EXPECT_EQ(grid.ticks[i].frequencyHz, expected[i].hz);
        EXPECT_EQ(grid.ticks[i].column, expected[i].column) << expected[i].hz;
        EXPECT_EQ(grid.ticks[i].label.ToUTF8(), expected[i].label);
        EXPECT_EQ(grid.ticks[i].labelDrawn, expected[i].drawn) << expected[i].hz;
        EXPECT_NE(grid.ticks[i].frequencyHz, 500);
    }
    // 20 kHz lies beyond the plot; 500 Hz is not on the list at all.
    EXPECT_EQ(grid.ticks[9].labelLeft, 301 - 10);
    EXPECT_EQ(grid.ticks[9].labelWidth, 21);

    // 3 dB lines from 3 to 60 dB: row 399 - 399 * (d - 2) / (60.206 - 2).
    ASSERT_EQ(grid.lines.size(), 20u);
    EXPECT_EQ(grid.lines.front().decibels, 3);
    EXPECT_EQ(grid.lines.front().row, 392);
    EXPECT_EQ(grid.lines[1].row, 372);
    EXPECT_EQ(grid.lines[9].decibels, 30);
    EXPECT_EQ(grid.lines[9].row, 207);
    EXPECT_EQ(grid.lines.back().decibels, 60);
    EXPECT_EQ(grid.lines.back().row, 1);
    // At 16384 points the scale reaches 72.2 dB: lines up to 72 dB.
    draw.SetRange(40, 18000, 16384);
    EXPECT_EQ(draw.GetGrid().lines.back().decibels, 72);
    EXPECT_EQ(draw.GetGrid().lines.size(), 24u);
}

TEST(SoundAnalyzerDraw, LevelLineMarkupOfAFivePointOneStream)
{
    CAnalyzerFrame frame;
    frame.Format.Set(64, 48000, 6);
    for (double level : {-12.34, -10.0, -11.06, -20.5, -30.0, 0.0})
        frame.Levels.Add(level);  // the last channel's entry is missing
    EXPECT_EQ(CSoundAnalyzerDraw::LevelLine(frame).ToUTF8(),
              "<font color=\"FF8000\">Volume RMS: -12.3 dB</font>  "
              "<font color=\"0080FF\">Left: -10.0 dB   </font>"
              "<font color=\"FFFF00\">Right: -11.1 dB   </font>"
              "<font color=\"808000\">Center: -20.5 dB   </font>"
              "<font color=\"00FFFF\">Subwoofer: -30.0 dB   </font>"
              "<font color=\"11D40B\">Surround Left: 0.0 dB   </font>"
              "<font color=\"FF00FF\">Surround Right: 0.0 dB   </font>");
    // Without channels the trailing blanks of the line are cut.
    CAnalyzerFrame empty;
    empty.Format.channels = 0;
    EXPECT_EQ(CSoundAnalyzerDraw::LevelLine(empty).ToUTF8(),
              "<font color=\"FF8000\">Volume RMS: 0.0 dB</font>");
}
