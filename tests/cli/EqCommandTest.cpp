// qvdsp eq, run as a user runs it, against a settings file of its own.
#include "ParallelRuns.h"
#include "TestFiles.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include <sys/inotify.h>
#include <unistd.h>

using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

const std::string FLAT = "OOOOOOOOOOOOOOOOOOOOO";
const std::string ROCK = "OCCKKUUYYUUNNKKCCCCCC";

class EqCommandTest : public clitest::CommandFixture
{
protected:
    EqCommandTest() : CommandFixture("eq") {}

    // The text after `label` on the line of `show` that starts with it.
    static std::string Field(const std::string& show, const std::string& label)
    {
        std::istringstream lines(show);
        for (std::string line; std::getline(lines, line);)
        {
            if (line.rfind(label, 0) == 0)
                return line.substr(line.find_first_not_of(' ', label.size()));
        }
        ADD_FAILURE() << "no line '" << label << "' in\n" << show;
        return {};
    }

    std::string Setting(const std::string& zone = "0")
    {
        return Field(Ok({"show", "--zone", zone}), "Setting");
    }
    std::string Preset(const std::string& zone = "0")
    {
        return Field(Ok({"show", "--zone", zone}), "Preset");
    }
};

TEST_F(EqCommandTest, SetThenShowGivesTheSettingAndItsGainsPerZone)
{
    EXPECT_EQ(Setting(), FLAT);
    Ok({"presets"});
    EXPECT_FALSE(std::filesystem::exists(settings));  // looking writes nothing
    // Preamp +12, then -12, flat, one step either side of flat, and the rest of the range.
    const std::string setting = "0nONPABCDEFGHIJKLMcba";
    const std::string shown = Ok({"set", setting, "--zone", "3"});
    EXPECT_EQ(Field(shown, "Setting"), setting);
    EXPECT_EQ(Field(shown, "Preset"), "Custom");
    // gain = (1 - (code - 48) / 31) x 12 dB, worked out by hand.
    EXPECT_EQ(Field(shown, "Preamp"), "+12.00 dB");
    EXPECT_EQ(Field(shown, "31.25 Hz"), "-12.00 dB");
    EXPECT_EQ(Field(shown, "48 Hz"), "+0.00 dB");
    EXPECT_EQ(Field(shown, "62.5 Hz"), "+0.39 dB");
    EXPECT_EQ(Field(shown, "90 Hz"), "-0.39 dB");
    EXPECT_EQ(Field(shown, "125 Hz"), "+5.42 dB");
    EXPECT_EQ(Field(shown, "1.5 kHz"), "+2.71 dB");
    EXPECT_EQ(Field(shown, "12 kHz"), "-7.74 dB");
    EXPECT_EQ(Field(shown, "20 kHz"), "-6.97 dB");
    EXPECT_EQ(Setting("3"), setting);
    EXPECT_EQ(Setting("0"), FLAT);  // the current setting belongs to its zone

    // The older 11-character form: the preamp, then each band character doubled.
    EXPECT_EQ(Field(Ok({"set", "OCKUYUNKCCC"}), "Setting"), ROCK);
    EXPECT_EQ(Setting(), ROCK);
    EXPECT_EQ(Setting("3"), setting);
}

TEST_F(EqCommandTest, SlidersWriteTheCharacterOfTheirGainAndDropThePreset)
{
    EXPECT_EQ(Field(Ok({"preset", "Rock"}), "Preset"), "Rock");
    // raw = (dB + 12) x 62 / 24, halves away from zero; character = 62 - raw + "0".
    const struct
    {
        std::vector<std::string> command;
        size_t at;
        char character;
        const char* label;
        const char* shown;
    } moves[] = {
        {{"band", "10", "0"}, 10, 'O', "750 Hz", "+0.00 dB"},  // Rock has "U" there
        {{"band", "1", "-12"}, 1, 'n', "31.25 Hz", "-12.00 dB"},
        {{"band", "20", "12"}, 20, '0', "20 kHz", "+12.00 dB"},
        {{"preamp", "+12"}, 0, '0', "Preamp", "+12.00 dB"},
        {{"band", "5", "6"}, 5, '?', "125 Hz", "+6.19 dB"},    // raw 46.5 -> 47
        {{"band", "6", "-6"}, 6, '^', "175 Hz", "-5.81 dB"},   // raw 15.5 -> 16
        {{"band", "7", "4,5"}, 7, 'C', "250 Hz", "+4.65 dB"},  // raw 42.625 -> 43
    };
    std::string expected = ROCK;
    for (const auto& move : moves)
    {
        const std::string shown = Ok(move.command);
        expected[move.at] = move.character;
        EXPECT_EQ(Field(shown, "Setting"), expected) << move.command[1];
        EXPECT_EQ(Field(shown, "Preset"), "Custom") << move.command[1];
        EXPECT_EQ(Field(shown, move.label), move.shown) << move.command[1];
    }
    EXPECT_EQ(expected, "0nCKK?^CYUONNKKCCCCC0");
    EXPECT_EQ(Setting(), expected);
    EXPECT_EQ(Preset(), "Custom");
}

TEST_F(EqCommandTest, PresetsAreSharedByAllZonesAndCanBeSavedDeletedAndReset)
{
    const std::string defaults = "  Blues                    OMMMMNNQQUUYYUUQQKKEE\n"
                                 "  Classical                OOOOOOOOOOOOOZZZZZZ^^\n"
                                 "  Country                  OMMOORRUUTTOOJJGGCCBB\n"
                                 "  Flat                     OOOOOOOOOOOOOOOOOOOOO\n"
                                 "  Hip-Hop                  OIIFFCCFFKKTTUUUUTTUU\n"
                                 "  Live                     OYYQQNNIIIIIIKKMMMMNN\n"
                                 "  Rock                     OCCKKUUYYUUNNKKCCCCCC\n";
    EXPECT_EQ(Ok({"presets"}), defaults);
    // Any case selects it; the current one is starred.
    EXPECT_EQ(Field(Ok({"preset", "hIP-hOP", "--zone", "2"}), "Setting"), "OIIFFCCFFKKTTUUUUTTUU");
    EXPECT_EQ(Preset("2"), "Hip-Hop");
    EXPECT_NE(Ok({"presets", "--zone", "2"}).find("* Hip-Hop "), std::string::npos);

    // Saved in zone 2, seen and chosen in zone 5.
    const std::string mine = "0123456789abcdefghijn";
    Ok({"set", mine, "--zone", "2"});
    Ok({"save-preset", "Mine", "--zone", "2"});
    EXPECT_EQ(Preset("2"), "Mine");
    EXPECT_NE(Ok({"presets", "--zone", "5"}).find("  Mine                     " + mine + "\n"),
              std::string::npos);
    EXPECT_EQ(Field(Ok({"preset", "mine", "--zone", "5"}), "Setting"), mine);
    EXPECT_EQ(Preset("5"), "Mine");
    EXPECT_EQ(Setting("0"), FLAT);

    // Saving under a known name in another case replaces that preset.
    Ok({"set", ROCK, "--zone", "5"});
    Ok({"save-preset", "MINE", "--zone", "5"});
    const std::string listed = Ok({"presets"});
    EXPECT_NE(listed.find("  MINE                     " + ROCK + "\n"), std::string::npos)
        << listed;
    EXPECT_EQ(listed.find("Mine"), std::string::npos) << listed;

    // Deleting the current preset keeps its setting, now without a name.
    Ok({"preset", "Rock", "--zone", "5"});
    Ok({"delete-preset", "ROCK", "--zone", "5"});
    EXPECT_EQ(Ok({"presets"}).find("Rock"), std::string::npos);
    EXPECT_EQ(Setting("5"), ROCK);
    EXPECT_EQ(Preset("5"), "Custom");
    EXPECT_EQ(Run({"preset", "Rock"}).exitCode, 2);

    EXPECT_EQ(Ok({"reset-presets", "--zone", "7"}), defaults);
    EXPECT_EQ(Ok({"presets", "--zone", "2"}), defaults);
    EXPECT_EQ(Setting("2"), mine);  // current settings are not presets
    EXPECT_FALSE(std::filesystem::exists(scratch / "wrong.json"));
}

TEST_F(EqCommandTest, BadInputIsRefusedAndWritesNothing)
{
    const struct
    {
        std::vector<std::string> command;
        const char* mentions;
    } refusals[] = {
        {{"set", "OOOOOOOOOOOOOOOOOOOO"}, "21 characters"},
        {{"set", "OOOOOOOOOOOOOOOOOOOOOO"}, "not 22"},
        {{"set", ""}, "not 0"},
        {{"set", "OOOOOOOOOOOOOOOOOOOOo"}, "outside"},         // "o" is one past "n"
        {{"set", "/OOOOOOOOOOOOOOOOOOOO"}, "outside"},         // "/" is one before "0"
        {{"set", "OOOOOOOOOOOOOOOOOOOO\xc3\xa9"}, "outside"},  // 21 characters, not 21 bytes
        {{"set", "OOOOOOOOOO~"}, "outside"},                   // the older form too
        {{"preset", "Jazz"}, "no preset named 'Jazz'"},
        {{"delete-preset", "Jazz"}, "no preset named 'Jazz'"},
        {{"save-preset", "  "}, "name"},
        {{"band", "0", "3"}, "no band 0"},
        {{"band", "21", "3"}, "no band 21"},
        {{"band", "3", "12.5"}, "outside"},
        {{"preamp", "-13"}, "outside"},
        {{"band", "x", "3"}, "x"},
        {{"band", "3", "loud"}, "'loud' is not a number"},
        {{"band", "3", "3dB"}, "'3dB' is not a number"},
        {{"preamp", "nan"}, "'nan' is not a number"},
        {{"preamp", ""}, "is not a number"},
        {{"set"}, "SETTING"},
    };
    auto refuseAll = [&](const char* when)
    {
        SCOPED_TRACE(when);
        for (const auto& refusal : refusals)
            Refused(refusal.command, refusal.mentions);
    };

    refuseAll("no file");
    EXPECT_EQ(scratch.Entries(), std::vector<std::string>{});

    Ok({"preset", "Live"});
    const std::string before = clitest::ReadBytes(settings);
    const std::vector<std::string> entries = scratch.Entries();
    refuseAll("with a file");
    EXPECT_EQ(clitest::ReadBytes(settings), before);
    EXPECT_EQ(scratch.Entries(), entries);
}

TEST_F(EqCommandTest, AFileThatCannotBeReadIsLeftAsItIsAndEveryChangeFails)
{
    const std::string broken = "{\"user\": {\"Zones\\\\0\\\\Equalizer\": {";
    std::ofstream(settings) << broken;
    EXPECT_EQ(Setting(), FLAT);  // reads fall back
    for (const std::vector<std::string>& command : {std::vector<std::string>{"set", ROCK},
                                                    {"band", "3", "2"},
                                                    {"preamp", "1"},
                                                    {"preset", "Rock"},
                                                    {"save-preset", "Mine"},
                                                    {"delete-preset", "Rock"},
                                                    {"reset-presets"}})
    {
        const RunResult result = Run(command);
        EXPECT_EQ(result.exitCode, 1) << command[0];
        EXPECT_NE(result.err.find(settings.string()), std::string::npos)
            << command[0] << ": " << result.err;
    }
    EXPECT_EQ(clitest::ReadBytes(settings), broken);
}

constexpr int kBands = 20;

std::vector<std::string> BandCommand(int band, const std::filesystem::path& settings)
{
    // A gain on the sliders' grid that differs from band to band.
    const double gain = (band % 2 == 0 ? 1 : -1) * 0.5 * band;
    return {"eq",         "band",           std::to_string(band), std::to_string(gain),
            "--settings", settings.string()};
}

TEST_F(EqCommandTest, ParallelBandsAndPresetEditsKeepEveryChange)
{
    // The reference: the same twenty bands moved one after another.
    const std::filesystem::path sequential = scratch / "sequential.json";
    for (int band = 1; band <= kBands; ++band)
        ASSERT_EQ(clitest::WaitQvdsp(clitest::StartQvdsp(BandCommand(band, sequential))), 0);
    std::vector<std::vector<std::string>> commands;
    for (int band = 1; band <= kBands; ++band)
        commands.push_back(BandCommand(band, settings));
    for (int result : clitest::RunQvdspInParallel(commands))
        EXPECT_EQ(result, 0);
    const std::string expected =
        Field(clitest::RunQvdsp({"eq", "show", "--settings", sequential.string()}, scratch).out,
              "Setting");
    EXPECT_EQ(Setting(), expected);
    EXPECT_NE(expected, FLAT);

    // New presets beside the deletion of an old one: all of them stay new,
    // and the deleted one stays deleted.
    commands.clear();
    for (int i = 1; i <= 8; ++i)
        commands.push_back(
            {"eq", "save-preset", "Mine " + std::to_string(i), "--settings", settings.string()});
    commands.push_back({"eq", "delete-preset", "Rock", "--settings", settings.string()});
    for (int result : clitest::RunQvdspInParallel(commands))
        EXPECT_EQ(result, 0);
    const std::string presets = Ok({"presets"});
    for (int i = 1; i <= 8; ++i)
        EXPECT_NE(presets.find("Mine " + std::to_string(i) + " "), std::string::npos) << presets;
    EXPECT_EQ(presets.find("Rock"), std::string::npos) << presets;
    EXPECT_NE(presets.find("Hip-Hop"), std::string::npos) << presets;
}

TEST_F(EqCommandTest, WritersKilledAtAnyMomentNeverLoseAPreset)
{
    const std::string defaults = Ok({"presets"});
    // How long one command takes here, so that the kills spread over its life.
    const auto started = std::chrono::steady_clock::now();
    ASSERT_EQ(clitest::WaitQvdsp(clitest::StartQvdsp(BandCommand(1, settings))), 0);
    const auto lifetime = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - started);
    std::mt19937 random(1125);
    std::uniform_int_distribution<int64_t> moment(0, lifetime.count());
    // A writer killed outright may leave its hidden file behind (nothing runs
    // after SIGKILL); one that is asked to end must clean up after itself.
    const auto hiddenFiles = [&]
    {
        size_t count = 0;
        for (const std::string& entry : scratch.Entries())
        {
            if (entry != "settings.json")
            {
                EXPECT_EQ(entry.rfind("settings.json.", 0), 0u) << entry;
                ++count;
            }
        }
        return count;
    };
    for (int round = 0; round < 30; ++round)
    {
        const size_t hiddenBefore = hiddenFiles();
        const int signal = round % 2 == 0 ? SIGKILL : SIGTERM;
        const pid_t writer = clitest::StartQvdsp(BandCommand(1 + round % kBands, settings));
        std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
        ::kill(writer, signal);
        clitest::WaitQvdsp(writer);
        ASSERT_EQ(Ok({"presets"}), defaults) << "round " << round;
        if (signal == SIGTERM)
            EXPECT_EQ(hiddenFiles(), hiddenBefore) << "round " << round;
    }
}

TEST_F(EqCommandTest, AStoredSettingOutsideTheScaleIsBrokenAndReadsFlat)
{
    for (const std::string& stored :
         {std::string("O") + std::string(20, '!'), std::string(21, 'O').replace(3, 1, "\x20"),
          std::string("\xef\xbf\xbf") + std::string(20, 'O')})
    {
        ASSERT_EQ(clitest::RunQvdsp({"settings", "set", "Zones/0/Equalizer", "Settings", stored,
                                     "--settings", settings.string()},
                                    scratch)
                      .exitCode,
                  0);
        const std::string show = Ok({"show"});
        EXPECT_EQ(Field(show, "Setting"), FLAT) << stored;
        EXPECT_EQ(Field(show, "Preamp"), "+0.00 dB") << stored;
    }
}

// Opens and replacements of the settings file while one command runs.
std::map<std::string, int> FileEvents(const std::filesystem::path& folder,
                                      const std::function<void()>& run)
{
    const int watch = ::inotify_init1(IN_NONBLOCK);
    ::inotify_add_watch(watch, folder.c_str(), IN_OPEN | IN_MOVED_TO);
    run();
    std::map<std::string, int> events;
    alignas(inotify_event) char buffer[65536];
    for (ssize_t got; (got = ::read(watch, buffer, sizeof buffer)) > 0;)
    {
        for (ssize_t at = 0; at < got;)
        {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            if (event->len > 0 && std::string(event->name) == "settings.json")
                ++events[(event->mask & IN_OPEN) != 0 ? "opened" : "replaced"];
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    ::close(watch);
    return events;
}

TEST_F(EqCommandTest, ABandIsOneReadAndOneWriteOfTheSettingsFile)
{
    Ok({"save-preset", "Mine"});
    const auto events = FileEvents(scratch.Path(), [&] { Ok({"band", "4", "-3"}); });
    EXPECT_EQ(events, (std::map<std::string, int>{{"opened", 1}, {"replaced", 1}}));
}

}  // namespace
