// qvdsp tempo and qvdsp headphones, and files processed at other tempos, run
// through the real binary.
#include "TestFiles.h"

#include <sndfile.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>

using clitest::RunQvdsp;
using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

class TempoCommandTest : public testing::Test
{
protected:
    void SetUp() override { setenv("QVDSP_SETTINGS", settings().c_str(), 1); }

    std::filesystem::path settings() const { return scratch / "settings.json"; }
    RunResult Run(const std::vector<std::string>& arguments)
    {
        return RunQvdsp(arguments, scratch);
    }

    ScratchFolder scratch;
};

bool Contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

// Largest magnitude in frames [from, to) of an interleaved stereo signal.
double PeakIn(const std::vector<double>& samples, int64_t from, int64_t to)
{
    double peak = 0.0;
    for (int64_t i = std::max<int64_t>(0, 2 * from);
         i < std::min<int64_t>(static_cast<int64_t>(samples.size()), 2 * to); ++i)
        peak = std::max(peak, std::fabs(samples[static_cast<size_t>(i)]));
    return peak;
}

}  // namespace

TEST_F(TempoCommandTest, SetShowAndResetAsFactorsOrControlValues)
{
    RunResult result = Run({"tempo", "set", "--tempo", "1.25"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, "Tempo     1.2500x     +0.25")) << result.out;
    EXPECT_TRUE(Contains(result.out, "stretcher")) << result.out;

    result = Run({"tempo", "set", "--pitch-control", "-1", "--rate", "2"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    result = Run({"tempo", "show"});
    EXPECT_TRUE(Contains(result.out, "Tempo     1.2500x")) << result.out;
    EXPECT_TRUE(Contains(result.out, "Pitch     0.5000x     -1.00")) << result.out;
    EXPECT_TRUE(Contains(result.out, "Rate      2.0000x     +1.00")) << result.out;

    // Another zone has its own values.
    result = Run({"tempo", "show", "--zone", "5"});
    EXPECT_TRUE(Contains(result.out, "Tempo     1.0000x     +0.00")) << result.out;
    EXPECT_TRUE(Contains(result.out, "passes untouched")) << result.out;

    result = Run({"tempo", "reset"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, "Rate      1.0000x")) << result.out;
}

TEST_F(TempoCommandTest, ValuesOutsideThePanelsRangesAreRefusedAndNothingIsWritten)
{
    const std::vector<std::vector<std::string>> refused = {
        {"tempo", "set", "--tempo", "4.5"},
        {"tempo", "set", "--tempo", "0.2"},
        {"tempo", "set", "--pitch", "3.01"},
        {"tempo", "set", "--rate-control", "-3.5"},
        {"tempo", "set", "--pitch-control", "2.5"},
        {"tempo", "set", "--tempo", "nan"},
        {"tempo", "set", "--tempo", "1.1", "--tempo-control", "0.1"},
        {"tempo", "set"},
        {"tempo", "set", "--tempo", "fast"},
        {"headphones", "preset", "loud", "--zone", "1"},
        {"headphones", "preset", "6", "--zone", "1"},
        {"headphones", "preset", "standard", "--zone", "-10000"},
    };
    for (const auto& arguments : refused)
    {
        RunResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments.back() << ": " << result.err;
        EXPECT_FALSE(result.err.empty());
        EXPECT_FALSE(std::filesystem::exists(settings())) << arguments.back();
    }
    // The edges of the ranges are accepted.
    EXPECT_EQ(Run({"tempo", "set", "--tempo", "4", "--pitch-control", "-2"}).exitCode, 0);
    EXPECT_TRUE(Contains(Run({"tempo", "show"}).out, "Pitch     0.3333x     -2.00"));
}

TEST_F(TempoCommandTest, HeadphonesPresetsAreChosenByNameOrIndexPerZone)
{
    RunResult result = Run({"headphones", "presets", "--zone", "1"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, "* 0  (none)")) << result.out;
    EXPECT_TRUE(Contains(result.out, "  5  Pronounced (increased spatialization)")) << result.out;

    result = Run({"headphones", "preset", "STANDARD (increased spatialization)", "--zone", "1"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(Contains(result.out, "Standard (increased spatialization)")) << result.out;
    EXPECT_TRUE(Contains(result.out, "Delay     0.52 ms")) << result.out;
    result = Run({"headphones", "presets", "--zone", "1"});
    EXPECT_TRUE(Contains(result.out, "* 3  Standard (increased")) << result.out;
    EXPECT_TRUE(Contains(result.out, "  0  (none)")) << result.out;

    result = Run({"headphones", "preset", "4", "--zone", "2"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(Contains(Run({"headphones", "show", "--zone", "2"}).out, "Preset    Pronounced\n"));
    EXPECT_TRUE(Contains(Run({"headphones", "show", "--zone", "1"}).out, "Strength  0.5\n"));
    // The stored names are those users' stores already hold.
    const std::string stored = clitest::ReadBytes(settings());
    EXPECT_TRUE(Contains(stored, "Crossfeed (Stregth)")) << stored;
    EXPECT_TRUE(Contains(stored, "Crossfeed (Cutoff Frequency)")) << stored;
}

TEST_F(TempoCommandTest, ProcessKeepsEveryPartOfTheInputAtOtherSpeeds)
{
    // Silence with a click 50 ms before the end, so that losing the stretcher's
    // last frames loses the click.
    const int rate = 44100;
    const int64_t frames = 2 * rate;
    const int64_t click = frames - rate / 20;
    std::vector<double> input(static_cast<size_t>(2 * frames), 0.0);
    for (int64_t f = click; f < click + 40; ++f)
        input[static_cast<size_t>(2 * f)] = input[static_cast<size_t>(2 * f + 1)] = 0.9;
    const std::filesystem::path in = scratch / "in.wav";
    clitest::WriteWithLibsndfile(in, SF_FORMAT_WAV | SF_FORMAT_DOUBLE, rate, 2, input);

    struct Case
    {
        std::vector<std::string> set;
        double speed;
    };
    for (const Case& c : {Case{{"--tempo", "0.8", "--pitch", "1.5", "--rate", "2"}, 1.6},
                          Case{{"--tempo", "0.8"}, 0.8}, Case{{"--tempo", "1.25"}, 1.25},
                          Case{{"--pitch", "1.5"}, 1.0}})
    {
        SCOPED_TRACE(testing::Message() << "speed " << c.speed);
        ASSERT_EQ(Run({"tempo", "reset"}).exitCode, 0);
        std::vector<std::string> set = {"tempo", "set"};
        set.insert(set.end(), c.set.begin(), c.set.end());
        ASSERT_EQ(Run(set).exitCode, 0);
        const std::filesystem::path out = scratch / "out.wav";
        RunResult result = Run(
            {"process", "--chain", "tempo & pitch", "--block", "1000", in.string(), out.string()});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const auto expected = static_cast<int64_t>(std::llround(frames / c.speed));
        EXPECT_TRUE(Contains(result.out, std::to_string(frames) + " frames in, " +
                                             std::to_string(expected) + " frames out"))
            << result.out;
        const std::vector<double> output = clitest::ReadDoubles(out);
        ASSERT_EQ(static_cast<int64_t>(output.size()), 2 * expected);
        // The click is where its time puts it, and nowhere else. The stretcher
        // splices its output at the best match within a seek window, so a
        // click may move by up to about 25 ms.
        const auto at = static_cast<int64_t>(click / c.speed);
        EXPECT_GT(PeakIn(output, at - 1500, at + 1500), 0.3);
        EXPECT_LT(PeakIn(output, 0, at - 3000), 0.01);

        // Raw, the chain's frames as a player gets them: the stretcher's own
        // lead and the frames it still holds at the end are not there.
        result = Run({"process", "--raw", "--chain", "tempo & pitch", in.string(), out.string()});
        ASSERT_EQ(result.exitCode, 0) << result.err;
        const int64_t raw = static_cast<int64_t>(clitest::ReadDoubles(out).size()) / 2;
        EXPECT_LT(raw, expected);
        EXPECT_GT(raw, expected - rate / 2);
    }
}
