// qvdsp effects, run as a user runs it, against a settings file of its own.
#include "TestFiles.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

class EffectsCommandTest : public clitest::CommandFixture
{
protected:
    EffectsCommandTest() : CommandFixture("effects") {}

    static std::string Show(const std::string& environment, const std::string& amount,
                            const std::string& subwoofer, const std::string& surround)
    {
        char text[512];
        std::snprintf(text, sizeof(text), "%-18s %s\n%-18s %s\n%-18s %s\n%-18s %s\n", "Environment",
                      environment.c_str(), "Amount", amount.c_str(), "Virtual Subwoofer",
                      subwoofer.c_str(), "Surround Field", surround.c_str());
        return text;
    }
};

TEST_F(EffectsCommandTest, ShowsTheDefaultsAndWritesNothingWhenLooking)
{
    EXPECT_EQ(Ok({"show"}), Show("Concert Hall", "4", "8\" Subwoofer", "Medium enhancement"));
    const std::string list = Ok({"list", "--zone", "2"});
    EXPECT_NE(list.find("Environment\n  0  (none)\n* 1  Concert Hall\n  2  Arena\n"),
              std::string::npos)
        << list;
    EXPECT_NE(list.find("Virtual Subwoofer\n  0  (none)\n  1  6\" Subwoofer\n* 2  8\" Subwoofer\n"),
              std::string::npos)
        << list;
    EXPECT_NE(list.find("  4  Maximum enhancement\n"), std::string::npos) << list;
    EXPECT_FALSE(std::filesystem::exists(settings));
    EXPECT_FALSE(std::filesystem::exists(scratch / "wrong.json"));
}

TEST_F(EffectsCommandTest, ChangesGoToTheirZoneByNameIndexOrSize)
{
    EXPECT_EQ(Ok({"environment", "living room", "--zone", "3"}),
              Show("Living Room", "4", "8\" Subwoofer", "Medium enhancement"));
    EXPECT_EQ(Ok({"amount", "6.5", "--zone", "3"}),  // the panel rounds halves up
              Show("Living Room", "7", "8\" Subwoofer", "Medium enhancement"));
    for (const char* size : {"15", "15\"", "15\" Subwoofer", "5"})
        EXPECT_EQ(Ok({"subwoofer", size, "--zone", "3"}),
                  Show("Living Room", "7", "15\" Subwoofer", "Medium enhancement"))
            << size;
    EXPECT_EQ(Ok({"surround", "Maximum", "--zone", "3"}),
              Show("Living Room", "7", "15\" Subwoofer", "Maximum enhancement"));
    EXPECT_EQ(Ok({"environment", "2", "--zone", "3"}),
              Show("Arena", "7", "15\" Subwoofer", "Maximum enhancement"));
    // Zone 0 is untouched; zone 3 keeps its words for the next command.
    EXPECT_EQ(Ok({"show"}), Show("Concert Hall", "4", "8\" Subwoofer", "Medium enhancement"));
    EXPECT_EQ(Ok({"show", "--zone", "3"}),
              Show("Arena", "7", "15\" Subwoofer", "Maximum enhancement"));

    // The stored blob: five little-endian words under the zone's key.
    RunResult raw = clitest::RunQvdsp(
        {"settings", "get", "Zones/3/Effects", "Settings", "--settings", settings.string()},
        scratch);
    EXPECT_EQ(raw.out, "0200000007000000050000000100000004000000\n") << raw.err;

    // "off": all three to "(none)", the amount shown as not applying.
    EXPECT_EQ(Ok({"off", "--zone", "3"}), Show("(none)", "n/a", "(none)", "(none)"));
    Refused({"amount", "5", "--zone", "3"}, "no environment");
    EXPECT_EQ(Ok({"environment", "Jazz Club", "--zone", "3"}),
              Show("Jazz Club", "7", "(none)", "(none)"));
}

TEST_F(EffectsCommandTest, BadNamesAndValuesAreRefusedAndNothingIsWritten)
{
    Ok({"environment", "Arena", "--zone", "1"});
    const std::string before = clitest::ReadBytes(settings);
    const struct
    {
        std::vector<std::string> arguments;
        const char* message;
    } cases[] = {
        {{"environment", "Cathedral"}, "Concert Hall, 2 Arena"},
        {{"environment", "6"}, "5 Living Room"},
        {{"environment", "-1"}, "choose one of"},
        {{"subwoofer", "9"}, "(or the size: 6, 8, 10, 12, 15)"},
        {{"surround", "huge"}, "Pronounced enhancement"},
        {{"amount", "11"}, "outside 1 to 10"},
        {{"amount", "0.4"}, "outside 1 to 10"},
        {{"amount", "loud"}, "not a number"},
        {{"amount", "nan"}, "not a number"},
        {{"environment", "Arena", "--zone", "-10000"}, "global branch"},
        {{"off", "--zone", "-10000"}, "global branch"},
    };
    for (const auto& refused : cases)
    {
        std::vector<std::string> arguments = refused.arguments;
        if (arguments.size() == 2)
            arguments.insert(arguments.end(), {"--zone", "1"});
        Refused(arguments, refused.message);
    }
    EXPECT_EQ(Run({"environment"}).exitCode, 2);
    EXPECT_EQ(Run({"reverb", "Arena"}).exitCode, 2);
    EXPECT_EQ(clitest::ReadBytes(settings), before);
    EXPECT_EQ(Ok({"show", "--zone", "1"}),
              Show("Arena", "4", "8\" Subwoofer", "Medium enhancement"));
}

TEST_F(EffectsCommandTest, AnUnreadableSettingsFileIsKeptAndTheChangeFails)
{
    {
        std::ofstream broken(settings);
        broken << "{ \"half\": ";
    }
    // Looking still works, from the defaults.
    EXPECT_EQ(Ok({"show", "--zone", "1"}),
              Show("Concert Hall", "4", "8\" Subwoofer", "Medium enhancement"));
    RunResult result = Run({"environment", "Arena", "--zone", "1"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find(settings.string()), std::string::npos) << result.err;
    EXPECT_EQ(clitest::ReadBytes(settings), "{ \"half\": ");
}

TEST_F(EffectsCommandTest, EverySubcommandAnswersHelp)
{
    for (const char* command :
         {"show", "list", "environment", "amount", "subwoofer", "surround", "off"})
    {
        RunResult result = clitest::RunQvdsp({"effects", command, "--help"}, scratch);
        EXPECT_EQ(result.exitCode, 0) << command;
        EXPECT_NE(result.out.find("--zone"), std::string::npos) << command;
        EXPECT_NE(result.out.find("--settings"), std::string::npos) << command;
    }
}

TEST_F(EffectsCommandTest, ProcessRunsTheZonesEffects)
{
    // Mono at 48 kHz: the reverb of a click shows up 1116 frames later.
    const std::filesystem::path in = scratch / "click.wav";
    std::vector<double> click(48000, 0.0);
    click[0] = 0.5;
    clitest::WriteWithLibsndfile(in, 0x010006 /* WAV, float */, 48000, 1, click);
    Ok({"off", "--zone", "4"});
    Ok({"environment", "Concert Hall", "--zone", "4"});
    RunResult result = clitest::RunQvdsp({"process", "--chain", "Effects", "--zone", "4",
                                          "--settings", settings.string(), "--quiet", in.string(),
                                          (scratch / "out.wav").string()},
                                         scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::vector<double> out = clitest::ReadDoubles(scratch / "out.wav");
    ASSERT_EQ(out.size(), click.size());
    // Dry: (0.7 - 0.1) x 2 = 1.2, in single precision in the file.
    EXPECT_NEAR(out[0], 0.6, 1e-6);
    for (size_t n = 1; n < 1116; ++n)
        ASSERT_EQ(out[n], 0.0) << n;
    // The first left comb's echo, mixed to mono: (0.33 + -0.03) / 2 x 2 x 0.5 x 0.015.
    EXPECT_NEAR(out[1116], 0.3 / 2.0 * 0.015, 1e-7);
}
}  // namespace
