// qvdsp analyze, run as a user runs it: the level line and table of a known
// signal, --at, the JSON record, the SVG parsed back as XML, the settings'
// range, an invalid range, and the refusals that write nothing.
#include "TestFiles.h"

#include "core/QVString.h"
#include "core/QVXml.h"

#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

using clitest::RunResult;

namespace
{

class AnalyzeCommandTest : public testing::Test
{
protected:
    void SetUp() override { setenv("QVDSP_SETTINGS", (scratch / "settings.json").c_str(), 1); }

    RunResult Run(const std::vector<std::string>& arguments)
    {
        std::vector<std::string> full{"analyze"};
        full.insert(full.end(), arguments.begin(), arguments.end());
        return clitest::RunQvdsp(full, scratch);
    }

    // Stereo at 44.1 kHz: a sine of `amplitude` on the left for `toneFrames`,
    // then silence; the right channel silent throughout.
    std::string WriteTone(const std::string& name, int toneFrames, int frames,
                          double amplitude = 0.5, double frequency = 1000.0)
    {
        std::vector<double> samples(static_cast<size_t>(frames) * 2, 0.0);
        for (int f = 0; f < toneFrames; ++f)
            samples[2 * static_cast<size_t>(f)] =
                amplitude * std::sin(2.0 * std::numbers::pi * frequency * f / 44100.0);
        clitest::WriteWithLibsndfile(scratch / name, SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 44100, 2,
                                     samples);
        return (scratch / name).string();
    }

    clitest::ScratchFolder scratch;
};

// The elements of a parsed document with this name, depth first.
std::vector<QVXml::Handle> Elements(const QVXml& xml, QVXml::Handle from, std::u16string_view name)
{
    std::vector<QVXml::Handle> found;
    for (QVXml::Handle child = xml.GetFirstChild(from); child; child = xml.GetNextSibling(child))
    {
        if (xml.NameIs(child, name))
            found.push_back(child);
        for (QVXml::Handle inner : Elements(xml, child, name))
            found.push_back(inner);
    }
    return found;
}

std::string Attribute(const QVXml& xml, QVXml::Handle element, std::u16string_view name)
{
    QVString value;
    return xml.GetAttribute(element, name, value) ? value.ToUTF8() : "<none>";
}

}  // namespace

TEST_F(AnalyzeCommandTest, LevelLineAndTableOfAKnownTone)
{
    // 848.5 Hz is the 13th of the table's 24 frequencies, 40 * 450^(12/24).
    const std::string input = WriteTone("tone.wav", 44100, 44100, 0.5, 848.5);
    const RunResult result = Run({input});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    // A sine of 0.5 has an RMS of -9.03 dB; after 55 frames the glide is all but done.
    // The overall level is that of both channels together: 3 dB lower.
    const std::vector<std::string> lines = [&]
    {
        std::vector<std::string> split;
        std::istringstream stream(result.out);
        for (std::string line; std::getline(stream, line);)
            split.push_back(line);
        return split;
    }();
    ASSERT_GE(lines.size(), 26u) << result.out;
    EXPECT_EQ(lines[0], "Volume RMS: -12.0 dB  Left: -9.0 dB   Right: 0.0 dB");
    EXPECT_THAT(lines[2], testing::MatchesRegex("Hz +Sum +Left +Right +\\(dB\\)"));
    // Rows at 24 log-spaced frequencies from 40 Hz; the tone's row stands out.
    EXPECT_THAT(lines[3], testing::StartsWith("40 "));
    double loudest = -1.0, loudestHz = 0.0;
    for (size_t i = 3; i < 27 && i < lines.size(); ++i)
    {
        double hz, sum, left, right;
        ASSERT_EQ(std::sscanf(lines[i].c_str(), "%lf %lf %lf %lf", &hz, &sum, &left, &right), 4)
            << lines[i];
        EXPECT_EQ(right, 0.0);
        EXPECT_EQ(sum, left);
        if (left > loudest)
            loudest = left, loudestHz = hz;
    }
    EXPECT_NEAR(loudestHz, 848.5, 1.0);
    // The tone's power |A N / 2|^2 is 60.2 dB; its band holds nearly all of it.
    EXPECT_NEAR(loudest, 60.2, 1.0);
}

TEST_F(AnalyzeCommandTest, AtSecondsAndTheJsonRecord)
{
    // A tone for the first half second, then silence.
    const std::string input = WriteTone("half.wav", 22050, 44100);
    RunResult during = Run({input, "--at", "0.5", "--json"});
    ASSERT_EQ(during.exitCode, 0) << during.err;
    const nlohmann::json frame = nlohmann::json::parse(during.out);
    EXPECT_EQ(frame["seconds"], 0.5);
    EXPECT_EQ(frame["fftSize"], 4096);
    EXPECT_EQ(frame["format"]["channels"], 2);
    EXPECT_EQ(frame["format"]["sampleRate"], 44100);
    EXPECT_EQ(frame["format"]["channelNames"], nlohmann::json({"Left", "Right"}));
    ASSERT_EQ(frame["levels"].size(), 3u);
    // Frames fall every 735 frames of audio; the first at the 6th (4410 >= 4096), and
    // the 30th is the last: 25 steps of the 1/8 glide from 0.0 dB towards -9.03 dB.
    EXPECT_NEAR(frame["levels"][1].get<double>(),
                20.0 * std::log10(0.5 / std::sqrt(2.0)) * (1.0 - std::pow(0.875, 25)), 0.02);
    ASSERT_EQ(frame["spectra"].size(), 2u);
    EXPECT_EQ(frame["spectra"][0].size(), 2048u);
    ASSERT_EQ(frame["traces"].size(), 3u);
    EXPECT_EQ(frame["traces"][0]["colour"], "#FF8000");
    EXPECT_EQ(frame["traces"][1]["name"], "Left");
    EXPECT_EQ(frame["traces"][2]["points"].size(), 784u);  // the plot of an 800-pixel picture

    // At the end, after half a second of silence, the level has glided most of the
    // way up to 0.0 dB: 26 frames see only silence, and the 5 before them a tone
    // partly cut (a lower level than the whole tone's).
    RunResult after = Run({input, "--json"});
    ASSERT_EQ(after.exitCode, 0) << after.err;
    const double level = nlohmann::json::parse(after.out)["levels"][1].get<double>();
    EXPECT_GT(level, -30.0 * std::pow(0.875, 26));
    EXPECT_LT(level, -8.71 * std::pow(0.875, 31));

    // High resolution: 16384 points.
    RunResult high = Run({input, "--high-resolution", "--json"});
    ASSERT_EQ(high.exitCode, 0) << high.err;
    EXPECT_EQ(nlohmann::json::parse(high.out)["spectra"][0].size(), 8192u);
}

TEST_F(AnalyzeCommandTest, SvgIsWellFormedWithOnePolylinePerTrace)
{
    const std::string input = WriteTone("tone.wav", 44100, 44100);
    const std::string svgPath = (scratch / "plot.svg").string();
    RunResult result = Run({input, "--svg", svgPath, "--size", "640x300"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    QVXml xml;
    ASSERT_TRUE(xml.Parse(QVString::FromUTF8(clitest::ReadBytes(svgPath))))
        << xml.GetError().ToUTF8();
    const QVXml::Handle root = xml.GetRoot();
    ASSERT_TRUE(xml.NameIs(root, u"svg"));
    EXPECT_EQ(Attribute(xml, root, u"width"), "640");
    EXPECT_EQ(Attribute(xml, root, u"height"), "300");
    const std::vector<QVXml::Handle> polylines = Elements(xml, root, u"polyline");
    ASSERT_EQ(polylines.size(), 3u);
    const char* colours[] = {"#FF8000", "#0080FF", "#FFFF00"};
    for (size_t t = 0; t < 3; ++t)
    {
        EXPECT_EQ(Attribute(xml, polylines[t], u"stroke"), colours[t]);
        // One point per column of the 624-pixel plot.
        const std::string points = Attribute(xml, polylines[t], u"points");
        EXPECT_EQ(std::count(points.begin(), points.end(), ','), 624);
    }
    // The grid's labels, without 500, and the level line in its colours.
    std::vector<std::string> labels;
    for (QVXml::Handle text : Elements(xml, root, u"text"))
        labels.push_back(xml.GetText(text).ToUTF8());
    // At 624 pixels "100" and "1K" give way to their left neighbours' labels.
    EXPECT_THAT(labels, testing::Contains("200"));
    EXPECT_THAT(labels, testing::Contains("2K"));
    EXPECT_THAT(labels, testing::Not(testing::Contains("500")));
    EXPECT_THAT(labels, testing::Not(testing::Contains("1K")));
    EXPECT_THAT(labels, testing::Contains(testing::StartsWith(
                            "Volume RMS: -12.0 dB  Left: -9.0 dB   Right: 0.0 dB")));
    EXPECT_EQ(Elements(xml, root, u"tspan").size(), 3u);
    // Written through a temporary file that is gone again.
    std::vector<std::string> entries = scratch.Entries();
    std::erase(entries, "settings.json.lock");
    EXPECT_EQ(entries, (std::vector<std::string>{"plot.svg", "tone.wav"}));
}

TEST_F(AnalyzeCommandTest, RangeFromTheSettingsAndAnInvalidRange)
{
    const std::string input = WriteTone("tone.wav", 10000, 10000);
    RunResult set = clitest::RunQvdsp(
        {"settings", "set", "Zones/3/Analyzer", "Minimum Frequency", "100", "--int"}, scratch);
    ASSERT_EQ(set.exitCode, 0) << set.err;
    RunResult zone3 = Run({input, "--zone", "3", "--json"});
    ASSERT_EQ(zone3.exitCode, 0) << zone3.err;
    EXPECT_EQ(nlohmann::json::parse(zone3.out)["range"]["minimumHz"], 100.0);
    // The panel's text rules on the command line; nothing is saved.
    RunResult typed = Run({input, "--zone", "3", "--min", "1,5K", "--max", "12.5K", "--json"});
    const nlohmann::json range = nlohmann::json::parse(typed.out)["range"];
    EXPECT_EQ(range["minimumHz"], 1500.0);
    EXPECT_EQ(range["maximumHz"], 12500.0);
    EXPECT_EQ(
        nlohmann::json::parse(Run({input, "--zone", "3", "--json"}).out)["range"]["minimumHz"],
        100.0);

    // 40 to 60 Hz is not wider than 20 Hz: said so, and an empty grid is drawn.
    const std::string svgPath = (scratch / "empty.svg").string();
    RunResult invalid = Run({input, "--min", "40", "--max", "60", "--svg", svgPath});
    ASSERT_EQ(invalid.exitCode, 0) << invalid.err;
    EXPECT_THAT(invalid.err, testing::HasSubstr("40 to 60 Hz cannot be plotted"));
    QVXml xml;
    ASSERT_TRUE(xml.Parse(QVString::FromUTF8(clitest::ReadBytes(svgPath))));
    EXPECT_TRUE(Elements(xml, xml.GetRoot(), u"polyline").empty());
    EXPECT_TRUE(Elements(xml, xml.GetRoot(), u"line").empty());
    EXPECT_EQ(Elements(xml, xml.GetRoot(), u"rect").size(), 3u);  // background, clip, plot
}

TEST_F(AnalyzeCommandTest, RefusalsNameTheProblemAndWriteNothing)
{
    const std::string shortInput = WriteTone("short.wav", 4000, 4000);
    const std::string input = WriteTone("tone.wav", 5000, 5000);
    const std::string svg = (scratch / "out.svg").string();
    struct Case
    {
        std::vector<std::string> arguments;
        int exitCode;
        std::string message;
    };
    const std::vector<Case> cases{
        {{(scratch / "missing.wav").string(), "--svg", svg}, 1, "missing.wav"},
        {{shortInput, "--svg", svg}, 1, "needs 4096"},
        {{input, "--high-resolution", "--svg", svg}, 1, "needs 16384"},
        {{input, "--size", "50x400", "--svg", svg}, 2, "--size"},
        {{input, "--size", "800by400", "--svg", svg}, 2, "--size"},
        {{input, "--at", "-1", "--svg", svg}, 2, "--at"},
        {{input, "--svg", (scratch / "no" / "such" / "out.svg").string()}, 1, "out.svg"},
        {{input, "--bogus"}, 2, "--bogus"},
        {{}, 2, "INPUT"},
    };
    for (const Case& c : cases)
    {
        RunResult result = Run(c.arguments);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.message << "\n" << result.err;
        EXPECT_THAT(result.err, testing::HasSubstr(c.message));
    }
    std::vector<std::string> entries = scratch.Entries();
    EXPECT_EQ(std::count(entries.begin(), entries.end(), "out.svg"), 0);
    // Beyond the end of the file: said, and analysed up to the end.
    RunResult beyond = Run({input, "--at", "9"});
    EXPECT_EQ(beyond.exitCode, 0) << beyond.err;
    EXPECT_THAT(beyond.err, testing::HasSubstr("ends at"));
}
