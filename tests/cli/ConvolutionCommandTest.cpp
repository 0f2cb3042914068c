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

class ConvolutionCommandTest : public clitest::CommandFixture
{
protected:
    ConvolutionCommandTest() : CommandFixture("conv", false) {}

    std::string Impulse(const std::string& name, int rate = 48000)
    {
        std::vector<double> samples(2 * 600, 0.0);
        samples[2 * 100] = 0.8;       // left: a peak at 100
        samples[2 * 250 + 1] = -0.9;  // right: a peak at 250
        clitest::WriteWithLibsndfile(scratch / name, SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, 2,
                                     samples);
        return (scratch / name).string();
    }
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
    RunResult bad = Run({"check", (scratch / "bad.cfg").string()});
    EXPECT_EQ(bad.exitCode, 1);
    EXPECT_NE(bad.out.find("line 4"), std::string::npos) << bad.out;
    EXPECT_NE(bad.err.find("not valid"), std::string::npos) << bad.err;

    RunResult missing = Run({"check", (scratch / "nothing.wav").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.err.find("does not exist"), std::string::npos) << missing.err;
}

TEST_F(ConvolutionCommandTest, BadUsageIsRefused)
{
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"normalize", "maybe"}, {"show", "--rate", "0"}, {"check"}, {"frobnicate"}})
    {
        RunResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments[0];
    }
    EXPECT_FALSE(std::filesystem::exists(settings));
    RunResult missing = Run({"set", (scratch / "gone.wav").string()});
    EXPECT_EQ(missing.exitCode, 0);
    EXPECT_NE(missing.err.find("does not exist"), std::string::npos) << missing.err;
}

}  // namespace
