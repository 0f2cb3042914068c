// qvdsp info, run as a user runs it, on files written by libsndfile.
#include "TestFiles.h"

#include <sndfile.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <fstream>

using clitest::RunQvdsp;
using clitest::RunResult;
using clitest::ScratchFolder;

TEST(InfoCommand, ShowsFormatChunksAndSamples)
{
    ScratchFolder scratch;
    // Values that 16 bits hold exactly, so the shown samples are known.
    const std::vector<double> samples = {0.5, -0.25, -1.0, 0.75, 0.0, 1.0 / 32768};
    const auto wav = scratch / "tone.wav";
    clitest::WriteWithLibsndfile(wav, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, samples);
    const auto caf = scratch / "tone.caf";
    clitest::WriteWithLibsndfile(caf, SF_FORMAT_CAF | SF_FORMAT_PCM_S8, 8000, 1, {0.5, -0.5});

    RunResult result =
        RunQvdsp({"info", "--json", "--samples", "1:5", wav.string(), caf.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const nlohmann::json all = nlohmann::json::parse(result.out);
    ASSERT_EQ(all.size(), 2u);
    const nlohmann::json& first = all[0];
    const nlohmann::json expected = {
        {"file", wav.string()}, {"reader", "CWAVInfo"}, {"formatTag", 1},
        {"channels", 2},        {"sampleRate", 44100},  {"bitsPerSample", 16},
        {"validBits", 16},      {"blockAlign", 4},      {"bytesPerSecond", 176400},
        {"frames", 3},          {"durationMs", 0},      {"dataStart", 44},
        {"dataSize", 12}};
    for (const auto& [key, value] : expected.items())
        EXPECT_EQ(first[key], value) << key;
    ASSERT_EQ(first["chunks"].size(), 2u);
    EXPECT_EQ(first["chunks"][0]["id"], "fmt ");
    EXPECT_EQ(first["chunks"][0]["position"], 12);
    EXPECT_EQ(first["chunks"][1]["id"], "data");
    EXPECT_EQ(first["chunks"][1]["size"], 12);
    EXPECT_TRUE(first["info"].is_object());
    // Frames 1 and 2: the range is cut to what the file holds.
    EXPECT_EQ(first["samplesStart"], 1);
    EXPECT_EQ(first["samples"], nlohmann::json({{-1.0, 0.75}, {0.0, 1.0 / 32768}}));
    // CAF's 8-bit samples are signed.
    EXPECT_EQ(all[1]["reader"], "CCafInfo");
    EXPECT_EQ(all[1]["samples"], nlohmann::json({{-0.5}}));

    result = RunQvdsp({"info", "--samples", "0:1", wav.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("reader:           CWAVInfo"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("data size:        12 (12 bytes)"), std::string::npos);
    EXPECT_NE(result.out.find("    0\t0.5\t-0.25\n"), std::string::npos) << result.out;
}

TEST(InfoCommand, FilesThatDoNotOpenAndBadUsage)
{
    ScratchFolder scratch;
    const auto good = scratch / "good.au";
    clitest::WriteWithLibsndfile(good, SF_FORMAT_AU | SF_FORMAT_ULAW, 8000, 1, {0.5, -0.5});
    const auto text = scratch / "text.wav";
    std::ofstream(text) << "not audio at all";
    const auto missing = scratch / "missing.wav";

    RunResult result = RunQvdsp(
        {"info", "--samples", "0:2", text.string(), good.string(), missing.string()}, scratch);
    EXPECT_EQ(result.exitCode, 1);
    // One line per failed file, in order; the good file is still shown.
    EXPECT_EQ(result.err, "qvdsp: " + text.string() +
                              ": not a file that CWAVInfo reads (no format or no sample data "
                              "found)\nqvdsp: " +
                              missing.string() + ": No such file or directory\n");
    EXPECT_NE(result.out.find("reader:           CAUInfo"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("format tag:       7 (mu-law)"), std::string::npos);
    EXPECT_NE(result.out.find("samples: not shown, the encoding is not integer or float PCM"),
              std::string::npos);

    result = RunQvdsp({"info", "--json", missing.string()}, scratch);
    EXPECT_EQ(result.exitCode, 1);
    const nlohmann::json all = nlohmann::json::parse(result.out);
    EXPECT_EQ(all[0]["error"], "No such file or directory");

    for (const std::vector<std::string>& bad : {std::vector<std::string>{"info"},
                                                {"info", "--samples", "5", good.string()},
                                                {"info", "--samples", "-1:2", good.string()},
                                                {"info", "--bogus", good.string()}})
    {
        result = RunQvdsp(bad, scratch);
        EXPECT_EQ(result.exitCode, 2) << result.err;
    }
    result = RunQvdsp({"info", "--help"}, scratch);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("--samples"), std::string::npos);
}
