// qvdsp room, run as a user runs it, against a settings file of its own.
#include "TestFiles.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sndfile.h>

#include <cmath>
#include <cstdlib>

using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

class RoomCommandTest : public clitest::CommandFixture
{
protected:
    RoomCommandTest() : CommandFixture("room") {}

    nlohmann::json Show(std::vector<std::string> arguments = {})
    {
        arguments.insert(arguments.begin(), {"show", "--json"});
        return nlohmann::json::parse(Ok(arguments));
    }
};

}  // namespace

TEST_F(RoomCommandTest, SetThenShowGivesDelaysAndGainsOfTheStream)
{
    nlohmann::json shown = Show();
    EXPECT_FALSE(std::filesystem::exists(settings));  // looking writes nothing
    ASSERT_EQ(shown["speakers"].size(), 8u);
    EXPECT_EQ(shown["speakers"][3]["name"], "SW");
    EXPECT_EQ(shown["speakers"][0]["lowPassSlope"], 48);
    EXPECT_EQ(shown["stream"]["masterGain"], 1.0);

    // The worked pair: 10 and 8 ft at 44,100 Hz.
    Ok({"set", "left", "distance=10"});
    Ok({"set", "R", "distance=8ft", "level=-1,5", "polarity=reverse"});
    shown = Show({"--rate", "44100"});
    const nlohmann::json& right = shown["stream"]["speakers"][1];
    EXPECT_EQ(right["name"], "R");
    EXPECT_EQ(right["delayFrames"], 79);
    EXPECT_NEAR(right["delayMs"].get<double>(), 79 * 1000.0 / 44100.0, 1e-12);
    EXPECT_NEAR(right["gain"].get<double>(), 0.8 * std::pow(10.0, -1.5 / 20.0), 1e-12);
    EXPECT_EQ(shown["stream"]["speakers"][0]["delayFrames"], 0);
    EXPECT_EQ(shown["speakers"][1]["polarity"], "reverse");
    EXPECT_EQ(shown["speakers"][1]["levelDb"], -1.5);

    // The table says the same in text; --metric adds metres.
    const std::string table = Ok({"show", "--rate", "44100", "--metric"});
    EXPECT_NE(table.find("1 R      -1.50 dB   8.00 ft (2.44 m)"), std::string::npos) << table;
    EXPECT_NE(table.find("1        R        79       1.791 ms"), std::string::npos) << table;

    // Metres end in "m" and pass the panel's single-precision conversion.
    Ok({"set", "0", "distance=3.05m"});
    EXPECT_NEAR(Show()["speakers"][0]["distanceFeet"].get<double>(), 10.00656, 5e-6);

    // 5.1 with Left's bass moved to the subwoofer; other zones untouched.
    Ok({"set", "L", "crossover=80", "routing=move", "hp-slope=24"});
    shown = Show({"--channels", "6"});
    EXPECT_EQ(shown["stream"]["bassChannels"], 1);
    EXPECT_TRUE(shown["stream"]["speakers"][0]["sendsBass"].get<bool>());
    EXPECT_FALSE(shown["stream"]["speakers"][1]["sendsBass"].get<bool>());
    EXPECT_NEAR(shown["stream"]["bassGain"].get<double>(), std::pow(10.0, -0.5), 1e-12);
    EXPECT_EQ(shown["speakers"][0]["highPassSlope"], 24);
    EXPECT_EQ(Show({"--zone", "2"})["speakers"][0]["crossoverHz"], 0);

    // A count the engine cannot serve is said as such.
    EXPECT_FALSE(Show({"--channels", "5"})["stream"]["served"].get<bool>());

    Ok({"reset", "all"});
    shown = Show();
    EXPECT_EQ(shown["speakers"][0]["distanceFeet"], 0.0);
    EXPECT_EQ(shown["speakers"][1]["polarity"], "normal");
    EXPECT_EQ(shown["speakers"][0]["crossoverHz"], 0);
}

TEST_F(RoomCommandTest, ValuesThePanelDoesNotAcceptAreRefused)
{
    Ok({"set", "L", "level=3"});
    Refused({"set", "L", "level=25"}, "-20 to 20 dB");
    Refused({"set", "L", "distance=120"}, "0 to 100 ft");
    Refused({"set", "L", "distance=101m"}, "0 to 100 m");
    Refused({"set", "L", "crossover=85"}, "30, 35, 40");
    Refused({"set", "L", "hp-slope=6"}, "12, 24, 36, 48");
    Refused({"set", "L", "routing=send"}, "remove, move, copy");
    Refused({"set", "L", "polarity=upside"}, "normal, reverse");
    Refused({"set", "L", "volume=3"}, "no key 'volume'");
    Refused({"set", "L", "level"}, "is not KEY=VALUE");
    Refused({"set", "X", "level=1"}, "no speaker 'X'");
    // One bad value among good ones writes none of them.
    Refused({"set", "L", "level=1", "crossover=85"}, "85");
    EXPECT_EQ(Show()["speakers"][0]["levelDb"], 3.0);
    Refused({"set", "9", "level=1"}, "no speaker '9'");
    Refused({"show", "--channels", "0"}, "--channels 0");
}

TEST_F(RoomCommandTest, LevelsFromMeterReadings)
{
    Ok({"set", "R", "level=1"});
    // Right missing: the popup's refusal, nothing written.
    Refused({"levels", "85", "0", "86", "-", "-", "-", "-", "-"},
            "Please enter a decibel meter reading for at least the left and right speakers.");
    Refused({"levels", "85", "83"}, "8 readings");
    Refused({"levels", "85", "loud", "-", "-", "-", "-", "-", "-"}, "'loud' of R");

    Ok({"levels", "85", "83,5", "86", "-", "0", "-", "-", "60"});
    const nlohmann::json shown = Show();
    EXPECT_EQ(shown["speakers"][0]["levelDb"], 0.0);
    EXPECT_DOUBLE_EQ(shown["speakers"][1]["levelDb"].get<double>(), 1.0 + 1.5);
    EXPECT_DOUBLE_EQ(shown["speakers"][2]["levelDb"].get<double>(), -1.0);
    EXPECT_EQ(shown["speakers"][4]["levelDb"], 0.0);
    // 25 dB quieter than Left is beyond the level control: saved at its end.
    EXPECT_EQ(shown["speakers"][7]["levelDb"], 20.0);
}

TEST_F(RoomCommandTest, ToneRendersTheSpeakersNoiseAtTheTestLevel)
{
    const std::filesystem::path full = scratch / "left.wav";
    const std::filesystem::path half = scratch / "left-6.flac";
    Ok({"tone", "L", full.string(), "--seconds", "2"});
    Ok({"tone", "l", half.string(), "--seconds", "2", "--level", "-6"});
    int format = 0, rate = 0, channels = 0;
    const std::vector<double> a = clitest::ReadDoubles(full, &format, &rate, &channels);
    EXPECT_EQ(format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    EXPECT_EQ(rate, 48000);
    ASSERT_EQ(channels, 2);
    ASSERT_EQ(a.size(), 2u * 96000);
    const std::vector<double> b = clitest::ReadDoubles(half);
    ASSERT_EQ(b.size(), a.size());
    double leftA = 0, leftB = 0, right = 0;
    for (size_t f = 0; f < 96000; ++f)
    {
        leftA += a[2 * f] * a[2 * f];
        leftB += b[2 * f] * b[2 * f];
        right += a[2 * f + 1] * a[2 * f + 1] + b[2 * f + 1] * b[2 * f + 1];
    }
    EXPECT_EQ(right, 0.0);
    // Two renderings are two seeds of one noise: the levels differ by the
    // test level within the scatter of two seconds of noise.
    EXPECT_NEAR(10.0 * std::log10(leftB / leftA), -6.0, 0.5);
    EXPECT_NE(a[2 * 1000], b[2 * 1000] * 2.0);

    // The subwoofer serves no channel of stereo: refused, no file.
    Refused({"tone", "SW", (scratch / "sub.wav").string()}, "serves no channel");
    EXPECT_FALSE(std::filesystem::exists(scratch / "sub.wav"));
    Ok({"tone", "lfe", (scratch / "sub.wav").string(), "--channels", "6", "--seconds", "0.5"});
    const std::vector<double> sub = clitest::ReadDoubles(scratch / "sub.wav");
    double others = 0.0, own = 0.0;
    for (size_t i = 0; i < sub.size(); ++i)
        (i % 6 == 3 ? own : others) += sub[i] * sub[i];
    EXPECT_GT(own, 0.0);
    EXPECT_EQ(others, 0.0);
    Refused({"tone", "L", (scratch / "odd.wav").string(), "--channels", "3"}, "cannot serve 3");
    Refused({"tone", "L", (scratch / "long.wav").string(), "--seconds", "0"}, "--seconds 0");
    EXPECT_FALSE(std::filesystem::exists(scratch / "odd.wav"));
    // Nothing of the tone is kept in the settings.
    EXPECT_FALSE(std::filesystem::exists(settings));
}
