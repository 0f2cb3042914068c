// qvdsp output and qvdsp register, run as a user runs them, against settings
// files of their own.
#include "TestFiles.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>

using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

class OutputCommandTest : public clitest::CommandFixture
{
protected:
    OutputCommandTest() : CommandFixture("", false) {}

    // The line of `text` that starts with `label` after its indent, without the indent.
    static std::string Line(const std::string& text, const std::string& label)
    {
        std::istringstream lines(text);
        for (std::string line; std::getline(lines, line);)
        {
            const size_t start = line.find_first_not_of(' ');
            if (start != std::string::npos && line.compare(start, label.size(), label) == 0)
                return line.substr(start);
        }
        ADD_FAILURE() << "no line '" << label << "' in\n" << text;
        return {};
    }

    nlohmann::json Record(const std::string& zone = "0")
    {
        std::ifstream file(settings);
        nlohmann::json document = nlohmann::json::parse(file);
        return document["user"]["Zones\\" + zone + "\\Audio Settings"];
    }
};

}  // namespace

TEST_F(OutputCommandTest, ShowGivesTheRecordAndEveryControl)
{
    const std::string shown = Ok({"output", "show", "--zone", "-10000"});
    EXPECT_FALSE(std::filesystem::exists(settings));  // looking writes nothing
    EXPECT_EQ(Line(shown, "Record"), "Record, zone -10000");
    EXPECT_EQ(Line(shown, "Between Tracks MS"), "Between Tracks MS                          4000");
    EXPECT_EQ(Line(shown, "Bitstream Formats"), "Bitstream Formats                          6");
    EXPECT_EQ(Line(shown, "encoding"), "encoding         None [enabled]");
    EXPECT_EQ(Line(shown, "channels"), "channels         Source number of channels [enabled]");
    EXPECT_EQ(Line(shown, "mixing"), "mixing           QVSS [enabled]");
    EXPECT_EQ(Line(shown, "center"), "center           0 dB [enabled]");
    EXPECT_EQ(Line(shown, "pseudo-surround"),
              "pseudo-surround  on [disabled] Detect stereo sources in surround (pseudo-surround)");
    EXPECT_EQ(Line(shown, "Less than 44,100 Hz"), "Less than 44,100 Hz      No change");
    EXPECT_EQ(Line(shown, "subwoofer"),
              "subwoofer        QVSS Subwoofer (120 Hz low-pass) [enabled]");
    EXPECT_NE(shown.find("offers: No upmixing or downmixing; QVSS\n"), std::string::npos);
}

TEST_F(OutputCommandTest, SetGoesThroughThePanelInTheOrderGiven)
{
    // 5.1 first, so that cloning the sides to the rear is on offer.
    std::string shown = Ok(
        {"output", "set", "channels=5.1", "mixing=clone", "rate", "44100=96000", "subwoofer=80hz"});
    nlohmann::json record = Record();
    EXPECT_EQ(record["Output Channels"], 6);
    EXPECT_EQ(record["Output Surround Mode"], 0);
    EXPECT_EQ(record["Output Surround Subwoofer Cutoff"], 80);
    EXPECT_EQ(record["Output Surround Subwoofer Cutoff Downmix"], 120);
    EXPECT_EQ(record["Output Sample Rate Settings"],
              "(1:1)(1:0)(5:96000)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)");
    EXPECT_EQ(Line(shown, "channels"), "channels         5.1 channels [enabled]");
    EXPECT_EQ(Line(shown, "44,100 Hz"), "44,100 Hz                96,000 Hz");
    EXPECT_EQ(Line(shown, "center"), "center           0 dB [disabled]");

    // Counts and entry texts name channels too; zones keep their own record.
    Ok({"output", "set", "channels=2", "--zone", "3"});
    EXPECT_EQ(Record("3")["Output Channels"], 2);
    Ok({"output", "set", "channels=7.1 channels", "rates", "48000", "bassfirm=off"});
    record = Record();
    EXPECT_EQ(record["Output Channels"], 8);
    EXPECT_EQ(record["Output Surround Subwoofer Impact Filter"], 0);
    EXPECT_EQ(record["Output Sample Rate Settings"],
              "(1:1)(5:48000)(5:48000)(5:48000)(5:48000)(5:48000)(5:48000)(5:48000)(5:48000)"
              "(5:48000)(5:48000)(5:48000)(5:48000)");
}

TEST_F(OutputCommandTest, ChoicesTheEncodingDoesNotOfferAreRefusedAndNothingIsWritten)
{
    Ok({"output", "set", "encoding=dop"});
    const std::string before = clitest::ReadBytes(settings);
    EXPECT_EQ(Record()["Output Encoding"], 2);

    Refused({"output", "set", "channels=5.1"},
            "channels: '5.1' is not offered with the current settings; it offers: 2 channels "
            "(stereo)");
    // Each change is checked against the panel as the earlier ones left it:
    // Dolby Digital offers no stereo, so the whole command is refused.
    Refused({"output", "set", "encoding=0", "encoding=dolby-digital", "channels=stereo"},
            "offers: 3.1 channels; 4 channels; 5.1 channels");
    // The rate list is closed while an encoding is chosen.
    Refused({"output", "set", "rates", "48000"}, "disabled");
    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{"output", "set", "volume=3"},
          std::vector<std::string>{"output", "set", "encoding=0", "rate", "44100=12345"},
          std::vector<std::string>{"output", "set", "encoding=0", "rate", "12345=44100"},
          std::vector<std::string>{"output", "set", "encoding=0", "center=+13"},
          std::vector<std::string>{"output", "set", "encoding=0", "bassfirm=maybe"},
          std::vector<std::string>{"output", "set", "channels"}})
    {
        RunResult result = Run(bad);
        EXPECT_EQ(result.exitCode, 2) << bad.back() << ": " << result.err;
        EXPECT_EQ(result.out, "") << bad.back();
    }
    EXPECT_EQ(clitest::ReadBytes(settings), before);

    // A choice that is there after the earlier change is taken.
    Ok({"output", "set", "encoding=dolby-digital", "channels=5.1"});
    EXPECT_EQ(Record()["Output Channels"], 6);
}

TEST_F(OutputCommandTest, RegisterListsWhatTheModuleWrote)
{
    {
        std::ofstream file(settings);
        file << R"({"system": {"Plugins\\DSP\\Speakers": {"Index": 6},
                               "Plugins\\DSP\\Tube Amplifier": {"Index": 12}},
                    "user": {}})";
    }
    const std::string out = Ok({"register"});
    EXPECT_NE(out.find("Plugins\\DSP\\Output Format\n"), std::string::npos) << out;
    EXPECT_NE(out.find("  Company = \"Quovan\"\n"), std::string::npos) << out;
    EXPECT_NE(out.find("  Index = 3\n"), std::string::npos) << out;
    EXPECT_NE(out.find("  Description = \"Output Format (part of Quovan main DSP plug-ins)\"\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("  Output Format = \"installed\"\n"), std::string::npos) << out;
    EXPECT_NE(out.find("removed Plugins\\DSP\\Speakers\n"), std::string::npos) << out;
    EXPECT_NE(out.find("removed Plugins\\DSP\\Tube Amplifier\n"), std::string::npos) << out;

    std::ifstream file(settings);
    const nlohmann::json document = nlohmann::json::parse(file);
    EXPECT_FALSE(document["system"].contains("Plugins\\DSP\\Speakers"));
    EXPECT_EQ(document["system"]["Plugins\\DSP\\Adaptive Volume"]["Index"], 11);
    EXPECT_FALSE(std::filesystem::exists(scratch / "wrong.json"));

    RunResult result = Run({"register", "--module", (scratch / "libnothing.so").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("cannot load"), std::string::npos) << result.err;

    // A file that is not a settings document is left alone.
    {
        std::ofstream broken(settings);
        broken << "{ not json";
    }
    result = Run({"register"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find(settings.string()), std::string::npos) << result.err;
    EXPECT_EQ(clitest::ReadBytes(settings), "{ not json");
}
