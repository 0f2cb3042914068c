// qvdsp settings, run as a user runs it.
#include <gtest/gtest.h>

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
