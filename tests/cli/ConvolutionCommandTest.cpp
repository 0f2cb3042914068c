// qvdsp convolution, run as a user runs it, against a settings file of its own.
#include "TestFiles.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>

using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

class ConvolutionCommandTest : public testing::Test
{
protected:
    void SetUp() override
    {
        // Anything that ignores --settings would land here, and the test would see it.
        setenv("QVDSP_SETTINGS", (scratch / "wrong.json").c_str(), 1);
    }

    RunResult Conv(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "conv");
        arguments.insert(arguments.end(), {"--settings", settings.string()});
        return clitest::RunQvdsp(arguments, scratch);
    }

    std::string Ok(const std::vector<std::string>& arguments)
    {
        RunResult result = Conv(arguments);
        EXPECT_EQ(result.exitCode, 0) << arguments[0] << ": " << result.err;
        return result.out;
    }

    std::string Impulse(const std::string& name, int rate = 48000)
    {
        std::vector<double> samples(2 * 600, 0.0);
        samples[2 * 100] = 0.8;       // left: a peak at 100
        samples[2 * 250 + 1] = -0.9;  // right: a peak at 250
        clitest::WriteWithLibsndfile(scratch / name, SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, 2,
                                     samples);
        return (scratch / name).string();
    }

    ScratchFolder scratch;
    std::filesystem::path settings = scratch / "settings.json";
};

// set, the switches and the recent choices, all seen by show.
TEST_F(ConvolutionCommandTest, SetAndSwitchesAreShown)
{
    const std::string filter = Impulse("room.wav");
    EXPECT_NE(Ok({"set", filter}).find(filter), std::string::npos);
    Ok({"normalize", "off"});
    Ok({"small", "on"});
    Ok({"auto-match", "off"});
    const std::string out = Ok({"show", "--channels", "2"});
    EXPECT_NE(out.find("Filter:            " + filter), std::string::npos) << out;
    EXPECT_NE(out.find("Normalize volume:  off"), std::string::npos) << out;
    EXPECT_NE(out.find("Small filters:     on"), std::string::npos) << out;
    EXPECT_NE(out.find("Auto-match:        off"), std::string::npos) << out;
    EXPECT_NE(out.find("Recent choices:    1\n   1. " + filter), std::string::npos) << out;
    EXPECT_NE(out.find("Processing: 2 paths"), std::string::npos) << out;
    // Small filters: N = 1024 at any rate; peak 100 - 512 after a reset.
    EXPECT_NE(out.find("Latency:           -412 frames"), std::string::npos) << out;

    EXPECT_EQ(Ok({"choices"}), " 1. " + filter + "\n");
    Ok({"reset"});
    EXPECT_EQ(Ok({"choices"}), "No recent filters.\n");
    EXPECT_NE(Ok({"show"}).find("Not valid"), std::string::npos);
}

// check lists each path and exits 1 for a filter that leaves the engine not
// valid, naming the line and the reason.
TEST_F(ConvolutionCommandTest, CheckListsPathsAndProblems)
{
    Impulse("room.wav");
    std::ofstream(scratch / "room.cfg") << "48000 2 2 0\n0 0\n0 1\nroom.wav\n0\n0.5 1.25\n0\n"
                                           "room.wav\n1\n1\n1\nroom.wav\n0\n0\n4\n";
    const std::string out = Ok({"check", (scratch / "room.cfg").string()});
    EXPECT_NE(out.find("2 paths"), std::string::npos) << out;
    EXPECT_NE(out.find("0 x 0.5, 1 x 0.25"), std::string::npos) << out;
    // Output 1 is delayed by 1 ms = 48 frames; its peak follows.
    EXPECT_NE(out.find("48       1          298"), std::string::npos) << out;
    EXPECT_NE(out.find("line 12   skipped: the stream has no output channel 4"), std::string::npos)
        << out;

    std::ofstream(scratch / "bad.cfg") << "\n\n\nnone.wav\n0\n0\n0\n";
    RunResult bad = Conv({"check", (scratch / "bad.cfg").string()});
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.out.find("line 4"), std::string::npos) << bad.out;
    EXPECT_NE(bad.err.find("not valid"), std::string::npos) << bad.err;

    RunResult missing = Conv({"check", (scratch / "nothing.wav").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("does not exist"), std::string::npos) << missing.err;
}

TEST_F(ConvolutionCommandTest, BadUsageIsRefused)
{
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"normalize", "maybe"}, {"show", "--rate", "0"}, {"check"}, {"frobnicate"}})
    {
        RunResult result = Conv(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments[0];
    }
    EXPECT_FALSE(std::filesystem::exists(settings));
    RunResult missing = Conv({"set", (scratch / "gone.wav").string()});
    EXPECT_EQ(missing.exitCode, 0);
    EXPECT_NE(missing.err.find("does not exist"), std::string::npos) << missing.err;
}

// The demo runs Convolution with a room impulse of its own making, and its
// output fits a sound card: no sample beyond full scale, as its level table says.
TEST_F(ConvolutionCommandTest, DemoRunsItsOwnRoomAndStaysBelowFullScale)
{
    const std::filesystem::path folder = scratch / "demo";
    RunResult result = clitest::RunQvdsp({"demo", "--out", folder.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("-> Convolution ->"), std::string::npos) << result.out;
    EXPECT_EQ(result.err.find("not valid"), std::string::npos) << result.err;
    EXPECT_NE(clitest::ReadBytes(folder / "demo-settings.json").find(folder / "demo-room.wav"),
              std::string::npos);

    // The room: the direct sound first, then a tail that dies away.
    int rate = 0;
    int channels = 0;
    const std::vector<double> room =
        clitest::ReadDoubles(folder / "demo-room.wav", nullptr, &rate, &channels);
    ASSERT_EQ(channels, 2);
    const auto energy = [&](double fromSeconds, double toSeconds)
    {
        double sum = 0.0;
        for (auto i = static_cast<size_t>(fromSeconds * rate) * 2;
             i < static_cast<size_t>(toSeconds * rate) * 2 && i < room.size(); ++i)
            sum += room[i] * room[i];
        return sum;
    };
    EXPECT_EQ(room[0], 1.0);
    EXPECT_EQ(room[1], 1.0);
    EXPECT_GT(energy(0.02, 0.07), 1000 * energy(0.2, 0.25));

    EXPECT_NE(result.out.find("no sample exceeds full scale"), std::string::npos) << result.out;
    double peak = 0.0;
    for (double sample : clitest::ReadDoubles(folder / "demo-out.wav"))
        peak = std::max(peak, std::fabs(sample));
    EXPECT_GT(peak, 0.1);
    EXPECT_LE(peak, 1.0);
}

}  // namespace
