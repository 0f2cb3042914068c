// qvdsp settings, run as a user runs it.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "TestFiles.h"

namespace
{

using Outcome = clitest::RunResult;

class SettingsCommandTest : public testing::Test
{
protected:
    // Runs "qvdsp settings ..." with the test's file given by --settings.
    Outcome Settings(std::vector<std::string> arguments, bool withFile = true)
    {
        arguments.insert(arguments.begin(), "settings");
        if (withFile)
        {
            arguments.push_back("--settings");
            arguments.push_back(file.string());
        }
        return clitest::RunQvdsp(arguments, scratch);
    }

    clitest::ScratchFolder scratch;
    std::filesystem::path file = scratch / "conf" / "settings.json";
};

}  // namespace

TEST_F(SettingsCommandTest, SetGetListDelete)
{
    EXPECT_EQ(Settings({"set", "Zones/Global/Tempo & Pitch", "Tempo", "1,25"}).exitCode, 0);
    EXPECT_EQ(Settings({"set", "Zones\\Global\\Tempo & Pitch", "Enabled", "1", "--int"}).exitCode,
              0);
    EXPECT_EQ(
        Settings({"set", "Zones/Global/Tempo & Pitch", "Word", "0xFFFFFFFF", "--int"}).exitCode, 0);
    EXPECT_EQ(Settings({"set", "Zones/1/Effects", "Settings", "01 00 00 00 ff", "--hex"}).exitCode,
              0);
    EXPECT_EQ(Settings({"set", "Plugins/DSP", "Registered", "1", "--system"}).exitCode, 0);

    EXPECT_EQ(Settings({"get", "Zones/Global/Tempo & Pitch", "Tempo"}).out, "1,25\n");
    EXPECT_EQ(Settings({"get", "Zones/Global/Tempo & Pitch", "Word"}).out, "-1\n");
    EXPECT_EQ(Settings({"get", "Zones/1/Effects", "Settings"}).out, "01000000ff\n");
    EXPECT_EQ(Settings({"get", "Plugins/DSP", "Registered", "--system"}).out, "1\n");
    const Outcome missing = Settings({"get", "Plugins/DSP", "Registered"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_EQ(missing.err, "qvdsp: no value 'Registered' in key 'Plugins\\DSP'\n");

    EXPECT_EQ(Settings({"list"}).out, "key\tZones\n");
    EXPECT_EQ(Settings({"list", "Zones"}).out, "key\t1\nkey\tGlobal\n");
    EXPECT_EQ(Settings({"list", "Zones/Global/Tempo & Pitch"}).out,
              "int\tEnabled\t1\nstring\tTempo\t1,25\nint\tWord\t-1\n");

    EXPECT_EQ(Settings({"delete", "Zones/Global/Tempo & Pitch", "Word"}).exitCode, 0);
    EXPECT_EQ(Settings({"delete", "Zones/Global/Tempo & Pitch", "Word"}).exitCode, 1);
    EXPECT_EQ(Settings({"delete", "Zones/1"}).exitCode, 0);
    EXPECT_EQ(Settings({"list", "Zones"}).out, "key\tGlobal\n");
    EXPECT_EQ(Settings({"delete", "Zones/1"}).exitCode, 1);
}

TEST_F(SettingsCommandTest, PathAndZoneReads)
{
    EXPECT_EQ(Settings({"path"}).out, file.string() + "\n");
    // A zone's value in a flat key is stored under its zone value name.
    EXPECT_EQ(Settings({"set", "Plugins/DSP/QM DSP", "Headphones - Level (Zone 2)", "3", "--int"})
                  .exitCode,
              0);
    EXPECT_EQ(Settings({"get", "Plugins/DSP/QM DSP", "Headphones - Level", "--zone", "2"}).out,
              "3\n");
}

TEST_F(SettingsCommandTest, BadUsageAndBrokenFiles)
{
    EXPECT_EQ(Settings({"set", "K", "N", "12x", "--int"}).exitCode, 2);
    EXPECT_EQ(Settings({"set", "K", "N", "abc", "--hex"}).exitCode, 2);
    EXPECT_EQ(Settings({"set", "K", "N", "1", "--int", "--hex"}).exitCode, 2);
    EXPECT_EQ(Settings({"get", "K"}).exitCode, 2);
    EXPECT_FALSE(std::filesystem::exists(file));

    std::filesystem::create_directories(file.parent_path());
    const std::string broken = "{\"user\": {\"K\": {\"N\": 1}";
    std::ofstream(file) << broken;
    const Outcome write = Settings({"set", "K", "N", "2", "--int"});
    EXPECT_EQ(write.exitCode, 1);
    EXPECT_NE(write.err.find(file.string()), std::string::npos) << write.err;
    EXPECT_EQ(Settings({"list", "K"}).exitCode, 1);
    EXPECT_EQ(Settings({"delete", "K"}).exitCode, 1);
    EXPECT_EQ(clitest::ReadBytes(file), broken);
}

TEST_F(SettingsCommandTest, EveryValueOfTheFileIsShownWithItsJsonType)
{
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file) << R"({"user": {"K": {"a int": 7, "b float": 1.5, "c true": true,
        "d null": null, "e list": [1, "x"], "f object": {"y": 2}, "g wide": 5000000000,
        "h text": "bell\u0007", "i bytes": {"binary": "0aff"}}}})";
    EXPECT_EQ(Settings({"list", "K"}).out, "int\ta int\t7\n"
                                           "float\tb float\t1.5\n"
                                           "boolean\tc true\ttrue\n"
                                           "null\td null\tnull\n"
                                           "array\te list\t[1,\"x\"]\n"
                                           "object\tf object\t{\"y\":2}\n"
                                           "integer\tg wide\t5000000000\n"
                                           "string\th text\tbell\\x07\n"
                                           "binary\ti bytes\t0aff\n");
    EXPECT_EQ(Settings({"get", "K", "b float"}).out, "1.5\n");
    EXPECT_EQ(Settings({"get", "K", "c true"}).out, "true\n");
    EXPECT_EQ(Settings({"get", "K", "d null"}).out, "null\n");
    EXPECT_EQ(Settings({"get", "K", "none"}).exitCode, 1);
}

TEST_F(SettingsCommandTest, FailedWritesNameTheFileAndTheReason)
{
    // A folder that cannot be made: its parent is a file.
    std::ofstream(scratch / "plain") << "x";
    const std::filesystem::path inside = scratch / "plain" / "settings.json";
    Outcome result = clitest::RunQvdsp(
        {"settings", "set", "K", "N", "1", "--settings", inside.string()}, scratch);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err,
              "qvdsp: cannot create the folder of " + inside.string() + ": Not a directory\n");

    // A file nested deeper than the store can write is broken: reads name it,
    // writes leave it as it is and leave nothing beside it.
    std::filesystem::create_directories(file.parent_path());
    const std::string deep =
        "{\"user\": {\"K\": {\"N\": " + std::string(100000, '[') + std::string(100000, ']') + "}}}";
    std::ofstream(file) << deep;
    result = Settings({"set", "K", "M", "1"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find(file.string() + " nests values deeper than"), std::string::npos)
        << result.err;
    EXPECT_EQ(Settings({"list", "K"}).exitCode, 1);
    EXPECT_EQ(clitest::ReadBytes(file), deep);
    std::vector<std::string> left;
    for (const auto& entry : std::filesystem::directory_iterator(file.parent_path()))
        left.push_back(entry.path().filename().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, std::vector<std::string>{"settings.json"});
}
