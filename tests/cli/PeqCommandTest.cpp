// qvdsp peq, run as a user runs it, against a settings file of its own.
#include "ParallelRuns.h"
#include "TestFiles.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <sstream>

using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

class PeqCommandTest : public clitest::CommandFixture
{
protected:
    PeqCommandTest() : CommandFixture("peq", false) {}

    std::string List() { return Ok({"list"}); }
};

// Tags nest and close, attribute values are quoted, the text has one root.
bool IsWellFormedXml(const std::string& text, int* elements)
{
    std::vector<std::string> open;
    *elements = 0;
    bool hadRoot = false;
    for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1))
    {
        const size_t end = text.find('>', at);
        if (end == std::string::npos)
            return false;
        const std::string tag = text.substr(at + 1, end - at - 1);
        if (tag.empty() || tag.front() == '?')
            continue;
        if (std::count(tag.begin(), tag.end(), '"') % 2 != 0)
            return false;
        if (tag.front() == '/')
        {
            if (open.empty() || open.back() != tag.substr(1))
                return false;
            open.pop_back();
            continue;
        }
        if (open.empty() && hadRoot)
            return false;
        hadRoot = true;
        ++*elements;
        if (tag.back() != '/')
            open.push_back(tag.substr(0, tag.find_first_of(" \n")));
    }
    return hadRoot && open.empty();
}

TEST_F(PeqCommandTest, EditsSurviveInTheSettingsFileAndRoundTripThroughExport)
{
    EXPECT_EQ(List(), "(no filters)\n");
    RunResult result = Run({"add", "peak", "Frequency=1000", "Gain=-3", "Q=2", "Channels=L;R"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, "  1  [x]  -3.0 dB at 1000 Hz (Left,Right)\n");
    ASSERT_EQ(Run({"add", "2", "Frequency=30", "--at", "1"}).exitCode, 0);
    ASSERT_EQ(Run({"add", "lowshelf", "Frequency=100", "Gain=4,5", "Channels=U1"}).exitCode, 0);
    EXPECT_EQ(List(), "  1  [x]  High-pass at 30 Hz (Left,Right)\n"
                      "  2  [x]  -3.0 dB at 1000 Hz (Left,Right)\n"
                      "  3  [x]  Low-shelf +4.5 dB at 100 Hz (U1)\n");

    ASSERT_EQ(Run({"set", "2", "Gain=-6", "Channels=Right"}).exitCode, 0);
    ASSERT_EQ(Run({"disable", "1"}).exitCode, 0);
    ASSERT_EQ(Run({"move", "1", "3"}).exitCode, 0);
    ASSERT_EQ(Run({"remove", "1"}).exitCode, 0);
    const std::string edited = "  1  [x]  Low-shelf +4.5 dB at 100 Hz (U1)\n"
                               "  2  [ ]  High-pass at 30 Hz (Left,Right)\n";
    EXPECT_EQ(List(), edited);
    EXPECT_NE(clitest::ReadBytes(settings).find("Parametric Equalizer"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(scratch / "wrong.json"));

    // Export, clear, import: the same list and, exported again, the same text.
    std::filesystem::path exported = scratch / "list.txt";
    ASSERT_EQ(Run({"export", exported.string()}).exitCode, 0);
    const std::string text = clitest::ReadBytes(exported);
    EXPECT_EQ(text.rfind("(1:1)(1:2)(", 0), 0u) << text;
    ASSERT_EQ(Run({"clear"}).exitCode, 0);
    EXPECT_EQ(List(), "(no filters)\n");
    ASSERT_EQ(Run({"import", exported.string()}).exitCode, 0);
    EXPECT_EQ(List(), edited);
    ASSERT_EQ(Run({"enable", "2"}).exitCode, 0);
    ASSERT_EQ(Run({"disable", "2"}).exitCode, 0);
    ASSERT_EQ(Run({"export", (scratch / "again.txt").string()}).exitCode, 0);
    EXPECT_EQ(clitest::ReadBytes(scratch / "again.txt"), text);

    // The second instance keeps a list of its own.
    result = Run({"list", "--instance", "2"});
    EXPECT_EQ(result.out, "(no filters)\n");
}

TEST_F(PeqCommandTest, RefusedEditsSayWhatIsAcceptedAndWriteNothing)
{
    ASSERT_EQ(Run({"add", "peak", "Frequency=1000"}).exitCode, 0);
    std::ofstream(scratch / "junk.txt") << "not a list";
    const struct
    {
        std::vector<std::string> arguments;
        std::string mentions;
        int exitCode = 2;
    } cases[] = {
        {{"set", "1", "Bogus=1"}, "keys: Enabled, Gain, Frequency, Slope, Q, Channels"},
        {{"set", "1", "Gain=-3", "Frequency"},
         "keys: Enabled, Gain, Frequency, Slope, Q, Channels"},
        {{"set", "1", "Gain=-3", "Q=wide"}, "value of Q must be a number, not 'wide'"},
        {{"add", "peak", "Channels=L;Middle"}, "bad channel 'Middle'"},
        {{"add", "volume", "Type=3"}, "keys: Enabled, Gain, Channels"},
        {{"add", "flanger"}, "lowpass, lowshelf, mix, ms-decode"},
        {{"add", "22"}, "use an id from 1 to 21"},
        {{"set", "2", "Gain=1"}, "no filter 2; the list has 1"},
        {{"move", "0", "1"}, "no filter 0"},
        {{"list", "--instance", "3"}, "--instance"},
        {{"import", (scratch / "junk.txt").string()}, "holds no filter list", 1},
        {{"import", (scratch / "absent.txt").string()}, "absent.txt", 1},
    };
    for (const auto& c : cases)
        Refused(c.arguments, c.mentions, c.exitCode);
    EXPECT_EQ(List(), "  1  [x]  +0.0 dB at 1000 Hz (Left,Right)\n");
}

TEST_F(PeqCommandTest, ImportApoAppendsWhatItCanMapAndNamesTheRest)
{
    ASSERT_EQ(Run({"add", "highpass", "Frequency=25"}).exitCode, 0);
    std::ofstream(scratch / "nothing.txt") << "Device: Speakers\nFilter 1: ON BP Fc 100 Hz\n";
    const std::string before = clitest::ReadBytes(settings);
    RunResult result = Run({"import-apo", (scratch / "nothing.txt").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("nothing.txt:2: not imported: Filter 1: ON BP Fc 100 Hz"),
              std::string::npos)
        << result.err;
    EXPECT_NE(result.err.find("holds no filter"), std::string::npos) << result.err;
    EXPECT_EQ(clitest::ReadBytes(settings), before);

    std::ofstream(scratch / "eq.txt")
        << "Preamp: -4 dB\nFilter 1: OFF PK Fc 100 Hz Gain -3 dB Q 2\nFilter 2: ON XX\n";
    result = Run({"import-apo", (scratch / "eq.txt").string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("eq.txt:3: not imported: Filter 2: ON XX"), std::string::npos)
        << result.err;
    EXPECT_EQ(List(), "  1  [x]  High-pass at 25 Hz (Left,Right)\n"
                      "  2  [x]  -4.0 dB (Left,Right,Center,Sub,SL,SR,RL,RR)\n"
                      "  3  [ ]  -3.0 dB at 100 Hz (Left,Right,Center,Sub,SL,SR,RL,RR)\n");
}

TEST_F(PeqCommandTest, ResponseMeasuresThePluginPerChannelAndDrawsIt)
{
    RunResult result = Run({"response"});
    EXPECT_EQ(result.out, "The list changes no channel of a 2-channel stream.\n");
    // Four points fall on 20, 200, 2000 and 20000 Hz.
    ASSERT_EQ(Run({"add", "peak", "Frequency=2000", "Gain=-6", "Q=1.4", "Channels=R"}).exitCode, 0);
    ASSERT_EQ(Run({"add", "highshelf", "Frequency=200", "Gain=9", "Q=0.7", "Channels=C"}).exitCode,
              0);
    std::filesystem::path svg = scratch / "response.svg";
    result = Run({"response", "--points", "4", "--rate", "44100", "--svg", svg.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::istringstream lines(result.out);
    std::string header;
    std::getline(lines, header);
    EXPECT_EQ(header, "       Hz  Right dB");  // the centre channel isn't in a stereo stream
    const double expected[][2] = {{20, 0}, {200, 0}, {2000, -6}, {20000, 0}};
    for (const auto& [hz, db] : expected)
    {
        double frequency = 0, level = 99;
        lines >> frequency >> level;
        EXPECT_NEAR(frequency, hz, 0.05);
        EXPECT_NEAR(level, db, hz == 2000 ? 0.01 : 0.2) << hz << " Hz";
    }

    // Six channels: the shelf shows on C, +9 dB at 20 kHz, well above its corner.
    result = Run({"response", "--points", "4", "--channels", "6", "--svg", svg.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out.substr(0, result.out.find('\n')), "       Hz  Right dB Center dB");
    EXPECT_NEAR(std::atof(result.out.substr(result.out.rfind(' ')).c_str()), 9.0, 0.1)
        << result.out;

    const std::string drawing = clitest::ReadBytes(svg);
    int elements = 0;
    EXPECT_TRUE(IsWellFormedXml(drawing, &elements)) << drawing;
    EXPECT_GT(elements, 20);
    EXPECT_NE(drawing.find("<svg xmlns=\"http://www.w3.org/2000/svg\""), std::string::npos);
    EXPECT_NE(drawing.find("data-channel=\"Right\""), std::string::npos);
    EXPECT_NE(drawing.find("data-channel=\"Center\""), std::string::npos);
    EXPECT_NE(drawing.find(">Frequency (Hz)<"), std::string::npos);
    EXPECT_NE(drawing.find(">Gain (dB)<"), std::string::npos);
    EXPECT_NE(drawing.find(">2k<"), std::string::npos);
    size_t traces = 0;
    for (size_t at = drawing.find("class=\"trace\""); at != std::string::npos;
         at = drawing.find("class=\"trace\"", at + 1))
        ++traces;
    EXPECT_EQ(traces, 2u);
}

TEST_F(PeqCommandTest, ParallelAddsKeepEveryFilter)
{
    constexpr int kWriters = 20;
    std::vector<std::vector<std::string>> commands;
    for (int i = 0; i < kWriters; ++i)
        commands.push_back({"peq", "add", "peak", "Frequency=" + std::to_string(100 + i),
                            "--settings", settings.string()});
    for (int result : clitest::RunQvdspInParallel(commands))
        EXPECT_EQ(result, 0);
    const std::string list = List();
    EXPECT_EQ(std::count(list.begin(), list.end(), '\n'), kWriters) << list;
    for (int i = 0; i < kWriters; ++i)
        EXPECT_NE(list.find("at " + std::to_string(100 + i) + " Hz"), std::string::npos) << i;
}

TEST_F(PeqCommandTest, HostileValuesAreRefusedWithTheirRangeAndTheFileStaysAsItWas)
{
    ASSERT_EQ(Run({"add", "peak", "Frequency=1000"}).exitCode, 0);
    const std::string before = clitest::ReadBytes(settings);
    std::ofstream(scratch / "loud.txt") << "Preamp: 400 dB\n";
    std::ofstream(scratch / "huge.txt") << "Filter 1: ON PK Fc 100 Hz Gain 1000000 dB Q 1\n";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"add", "highpass", "Frequency=nan"}, "value of Frequency must be a number"},
        {{"add", "linkwitz-riley", "Frequency=inf"}, "value of Frequency must be a number"},
        {{"add", "peak", "Frequency=1e400"}, "value of Frequency must be a number"},
        {{"add", "peak", "Frequency=0x3E8"}, "value of Frequency must be a number, not '0x3E8'"},
        {{"add", "peak", "Frequency=1e308"}, "Frequency 1e+308 is outside 0.01 to 10000000 Hz"},
        {{"add", "peak", "Frequency=-5"}, "Frequency -5 is outside 0.01 to 10000000 Hz"},
        {{"add", "peak", "Q=-1"}, "Q -1 is outside 0.01 to 10000"},
        {{"add", "volume", "Gain=1e300"}, "Gain 1e+300 is outside -120 to 120 dB"},
        {{"add", "linkwitz-transform", "Fz=0", "Qz=0", "Fp=0", "Qp=0"}, "Fz 0 is outside"},
        {{"add", "bitdepth", "Bits=-1"}, "Bits -1 is none of"},
        {{"add", "delay", "Delay=100000000"}, "Delay 100000000 is outside 0 to 30000 ms"},
        {{"add", "lowpass", "Slope=7"}, "Slope 7 is none of 6, 12, 24, 36, 48"},
        {{"add", "peak", "Channels="}, "Channels needs at least one channel"},
        {{"set", "1", "Gain=nan"}, "value of Gain must be a number"},
        {{"set", "1", "Gain=-121"}, "Gain -121 is outside -120 to 120 dB"},
        {{"import-apo", (scratch / "loud.txt").string()}, "loud.txt:1: Gain 400 is outside"},
        {{"import-apo", (scratch / "huge.txt").string()}, "huge.txt:1: Gain 1000000 is outside"},
    };
    for (const auto& [arguments, mentions] : cases)
        Refused(arguments, mentions);
    // A list text holding such a value is refused whole: the exported list
    // with its frequency turned negative (the same length keeps the text's
    // length fields right).
    ASSERT_EQ(Run({"export", (scratch / "list.txt").string()}).exitCode, 0);
    std::string text = clitest::ReadBytes(scratch / "list.txt");
    const size_t frequency = text.find(">1000<");
    ASSERT_NE(frequency, std::string::npos) << text;
    text.replace(frequency + 1, 4, "-500");
    std::ofstream(scratch / "list.txt", std::ios::trunc) << text;
    RunResult result = Run({"import", (scratch / "list.txt").string()});
    EXPECT_EQ(result.exitCode, 2) << result.err;
    EXPECT_EQ(clitest::ReadBytes(settings), before);
}

TEST_F(PeqCommandTest, PositionsOutsideTheListAreRefusedWithoutOverflow)
{
    for (const char* frequency : {"Frequency=100", "Frequency=200", "Frequency=300"})
        ASSERT_EQ(Run({"add", "peak", frequency}).exitCode, 0);
    const std::vector<std::string> refused[] = {
        {"set", "--", "-2147483648", "Gain=1"},
        {"remove", "--", "-2147483648"},
        {"disable", "2147483647"},
        {"enable", "4"},
        {"move", "3", "-5"},
        {"move", "3", "4"},
        {"move", "--", "-2147483648", "1"},
        {"add", "peak", "--at", "5"},
    };
    for (const std::vector<std::string>& arguments : refused)
        Refused(arguments, "");
    ASSERT_EQ(Run({"move", "3", "1"}).exitCode, 0);
    ASSERT_EQ(Run({"add", "peak", "Frequency=400", "--at", "5"}).exitCode, 2);
    ASSERT_EQ(Run({"add", "peak", "Frequency=1000.9", "Gain=2", "--at", "4"}).exitCode, 0);
    EXPECT_EQ(List(), "  1  [x]  +0.0 dB at 300 Hz (Left,Right)\n"
                      "  2  [x]  +0.0 dB at 100 Hz (Left,Right)\n"
                      "  3  [x]  +0.0 dB at 200 Hz (Left,Right)\n"
                      "  4  [x]  +2.0 dB at 1000 Hz (Left,Right)\n");
}

TEST_F(PeqCommandTest, UnreadableImportsNameTheFileAndTheReason)
{
    const std::filesystem::path folder = scratch / "folder";
    std::filesystem::create_directory(folder);
    RunResult result = Run({"import", folder.string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "qvdsp: cannot read " + folder.string() + ": Is a directory\n");
    result = Run({"import-apo", "/nonexistent/eq.txt"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "qvdsp: cannot read /nonexistent/eq.txt: No such file or directory\n");

    // Bytes of the user's file reach the terminal with control characters escaped.
    std::ofstream(scratch / "odd.txt") << "Preamp: -1 dB\nFilter 1: \x1b[2J\x07 ON\n";
    result = Run({"import-apo", (scratch / "odd.txt").string()});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("not imported: Filter 1: \\x1b[2J\\x07 ON"), std::string::npos)
        << result.err;
    EXPECT_EQ(result.err.find('\x1b'), std::string::npos);
}

TEST_F(PeqCommandTest, ResponseRefusesWorkBeyondItsBound)
{
    ASSERT_EQ(Run({"add", "peak", "Frequency=1000", "Gain=3"}).exitCode, 0);
    RunResult result = Run({"response", "--channels", "32", "--rate", "768000"});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_NE(result.err.find("use fewer channels or a lower rate"), std::string::npos)
        << result.err;
    EXPECT_EQ(result.out, "");
}

}  // namespace
