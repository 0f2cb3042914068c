// The real qvdsp binary, run as a user runs it.
#include "TestFiles.h"
#include "cli/host/LatencyAlignment.h"
#include "cli/host/PluginChain.h"
#include "support/Sinks.h"

#include "qvdsp/AudioFormat.h"

#include <nlohmann/json.hpp>

#include <sndfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <limits>
#include <sstream>

using clitest::RunQvdsp;
using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

class QvdspCommandTest : public testing::Test
{
protected:
    void SetUp() override
    {
        // Plug-ins read settings when they are made: keep the tests off the user's store.
        setenv("QVDSP_SETTINGS", (scratch / "settings.json").c_str(), 1);
    }

    RunResult Run(const std::vector<std::string>& arguments)
    {
        return RunQvdsp(arguments, scratch);
    }

    // A 64-bit float WAV of test noise, stereo at 44.1 kHz.
    std::filesystem::path WriteInput(const std::string& name, int frames = 20000)
    {
        input = clitest::TestSignal(frames, 2, 1.1, 3);
        clitest::WriteWithLibsndfile(scratch / name, SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 44100, 2,
                                     input);
        return scratch / name;
    }

    // After a refused run: the named files as they were, nothing else left over.
    void ExpectOnlyEntries(const std::vector<std::string>& names)
    {
        std::vector<std::string> entries = scratch.Entries();
        std::erase(entries, "settings.json");
        EXPECT_EQ(entries, names);
    }

    ScratchFolder scratch;
    std::vector<double> input;
};

}  // namespace

TEST_F(QvdspCommandTest, EmptyChainCopiesEverySampleBitForBit)
{
    std::filesystem::path in = WriteInput("in.wav");
    for (const std::vector<std::string>& chain : {std::vector<std::string>{}, {"--chain", ""}})
    {
        std::vector<std::string> arguments = {"process", "--block", "333"};
        arguments.insert(arguments.end(), chain.begin(), chain.end());
        arguments.insert(arguments.end(), {in.string(), (scratch / "out.wav").string()});
        RunResult result = Run(arguments);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        int format = 0;
        std::vector<double> output = clitest::ReadDoubles(scratch / "out.wav", &format);
        EXPECT_EQ(format, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
        ASSERT_EQ(output.size(), input.size());
        EXPECT_EQ(std::memcmp(output.data(), input.data(), input.size() * sizeof(double)), 0);
        EXPECT_NE(result.out.find("20000 frames in, 20000 frames out"), std::string::npos)
            << result.out;
        EXPECT_EQ(result.err, "");  // not a terminal: no progress
    }
}

TEST_F(QvdspCommandTest, FormatsConvertAsLibsndfileDoes)
{
    std::filesystem::path in = WriteInput("in.wav");
    const std::pair<const char*, int> formats[] = {{"pcm16", SF_FORMAT_PCM_16},
                                                   {"pcm24", SF_FORMAT_PCM_24},
                                                   {"PCM32", SF_FORMAT_PCM_32},
                                                   {"float", SF_FORMAT_FLOAT},
                                                   {"double", SF_FORMAT_DOUBLE}};
    for (const auto& [name, encoding] : formats)
    {
        std::filesystem::path out = scratch / (std::string(name) + ".wav");
        std::filesystem::path reference = scratch / (std::string(name) + "-reference.wav");
        RunResult result = Run({"process", "--quiet", "--format", name, in.string(), out.string()});
        ASSERT_EQ(result.exitCode, 0) << name << ": " << result.err;
        clitest::WriteWithLibsndfile(reference, SF_FORMAT_WAV | encoding, 44100, 2, input);
        int format = 0;
        std::vector<double> converted = clitest::ReadDoubles(out, &format);
        EXPECT_EQ(format, SF_FORMAT_WAV | encoding) << name;
        EXPECT_TRUE(converted == clitest::ReadDoubles(reference)) << name;
        EXPECT_TRUE(clitest::ReadInts(out) == clitest::ReadInts(reference)) << name;
    }

    // A 16-bit input stays 16-bit by default, sample for sample.
    RunResult result =
        Run({"process", (scratch / "pcm16.wav").string(), (scratch / "again.aiff").string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    int format = 0;
    clitest::ReadDoubles(scratch / "again.aiff", &format);
    EXPECT_EQ(format, SF_FORMAT_AIFF | SF_FORMAT_PCM_16);
    EXPECT_TRUE(clitest::ReadInts(scratch / "again.aiff") ==
                clitest::ReadInts(scratch / "pcm16.wav"));
}

TEST_F(QvdspCommandTest, ChainRunsThePluginsItNames)
{
    std::filesystem::path in = WriteInput("in.wav", 5000);
    // The Tube Amplifier's curve, by name in any case and by index, between two
    // plug-ins that pass the audio on.
    for (const char* chain : {"tube amplifier", "Volume Leveling, 12 ,adaptive VOLUME"})
    {
        RunResult result = Run({"process", "--chain", chain, "--block", "64", in.string(),
                                (scratch / "out.wav").string()});
        ASSERT_EQ(result.exitCode, 0) << chain << ": " << result.err;
        std::vector<double> output = clitest::ReadDoubles(scratch / "out.wav");
        ASSERT_EQ(output.size(), input.size());
        for (size_t i = 0; i < input.size(); ++i)
        {
            double x = input[i];
            ASSERT_EQ(output[i], (1 - x * x / 3) * (x * 3 * 0.5)) << chain << " at " << i;
        }
    }
}

TEST_F(QvdspCommandTest, BadRunsSayWhyAndLeaveNoFileBehind)
{
    std::filesystem::path in = WriteInput("in.wav", 100);
    std::ofstream(scratch / "plain") << "x";
    std::filesystem::create_directory(scratch / "sub");
    std::ofstream(scratch / "kept.wav") << "earlier";
    std::string before = clitest::ReadBytes(in);
    // More channels than a format record holds.
    clitest::WriteWithLibsndfile(scratch / "wide.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 65,
                                 std::vector<double>(65 * 10, 0.0));

    struct Case
    {
        std::vector<std::string> arguments;
        int exitCode;
        std::string mentions;
    };
    std::string dir = scratch.Path().string();
    const Case cases[] = {
        {{"process", dir + "/missing.wav", dir + "/out.wav"}, 1, "missing.wav"},
        {{"process", "--chain", "Tube Amplifier", dir + "/wide.wav", dir + "/out.wav"},
         1,
         "65 channels"},
        {{"process", in.string(), dir + "/nofolder/out.wav"}, 1, "nofolder/out.wav"},
        {{"process", in.string(), dir + "/plain/out.wav"}, 1, "plain/out.wav"},
        {{"process", "--chain", "Tube Amplifier,Flanger", in.string(), dir + "/kept.wav"},
         2,
         "'Flanger'"},
        {{"process", in.string(), in.string()}, 2, "same file"},
        {{"process", in.string(), dir + "/./sub/../in.wav"}, 2, "same file"},
        {{"process", in.string(), dir + "/out.xyz"}, 2, "out.xyz"},
        {{"process", "--format", "double", in.string(), dir + "/out.flac"}, 2, "double"},
        {{"process", "--format", "pcm8", in.string(), dir + "/out.wav"}, 2, "pcm8"},
        {{"process", "--block", "0", in.string(), dir + "/out.wav"}, 2, "--block"},
        {{"process", in.string()}, 2, "OUTPUT"},
        {{"describe", "--chain", "nothing"}, 2, "'nothing'"},
        {{"frobnicate"}, 2, "frobnicate"},
        {{}, 2, "subcommand"},
    };
    for (const Case& c : cases)
    {
        RunResult result = Run(c.arguments);
        std::string call =
            c.arguments.empty() ? "(none)" : c.arguments[0] + " ... " + c.arguments.back();
        EXPECT_EQ(result.exitCode, c.exitCode) << call << ": " << result.err;
        EXPECT_NE(result.err.find(c.mentions), std::string::npos) << call << ": " << result.err;
        EXPECT_EQ(result.out, "") << call;
    }
    ExpectOnlyEntries({"in.wav", "kept.wav", "plain", "sub", "wide.wav"});
    EXPECT_EQ(clitest::ReadBytes(scratch / "kept.wav"), "earlier");
    EXPECT_TRUE(clitest::ReadBytes(in) == before);

    // A link to the input is the input too.
    std::filesystem::create_symlink(in, scratch / "link.wav");
    RunResult result = Run({"process", in.string(), (scratch / "link.wav").string()});
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(clitest::ReadBytes(in) == before);
}

TEST_F(QvdspCommandTest, ListGivesIndexTabNameInIndexOrder)
{
    RunResult result = Run({"list"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    std::istringstream lines(result.out);
    std::string line;
    int previous = -1;
    std::vector<std::string> names;
    while (std::getline(lines, line))
    {
        ASSERT_THAT(line, testing::MatchesRegex("[0-9]+\t[^\t]+")) << line;
        int index = std::stoi(line);
        EXPECT_GT(index, previous);
        previous = index;
        names.push_back(line);
    }
    // The plug-ins of the module today; the unlisted Tube Amplifier is not among them.
    EXPECT_NE(std::find(names.begin(), names.end(), "2\tVolume Leveling"), names.end())
        << result.out;
    EXPECT_NE(std::find(names.begin(), names.end(), "11\tAdaptive Volume"), names.end())
        << result.out;
    EXPECT_EQ(result.out.find("Tube Amplifier"), std::string::npos);
}

TEST_F(QvdspCommandTest, HelpAndVersionEndWell)
{
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{"--help"},
                                                      {"list", "--help"},
                                                      {"process", "--help"},
                                                      {"describe", "--help"},
                                                      {"demo", "--help"}})
    {
        RunResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 0) << arguments[0];
        EXPECT_NE(result.out.find("Usage"), std::string::npos) << result.out;
    }
    RunResult result = Run({"process", "--help"});
    for (const char* option :
         {"--chain", "--zone", "--settings", "--block", "--format", "--quiet", "INPUT", "OUTPUT"})
        EXPECT_NE(result.out.find(option), std::string::npos) << option;
    result = Run({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.out, testing::MatchesRegex("qvdsp [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(QvdspCommandTest, DescribeListsEachPluginOfTheChain)
{
    RunResult result =
        Run({"describe", "--chain", "Adaptive Volume,tube amplifier", "--zone", "3"});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    // Neither plug-in has elements to describe; each stands under its own name.
    EXPECT_EQ(result.out, "Adaptive Volume\nTube Amplifier\n");
}

TEST_F(QvdspCommandTest, DemoWritesItsFilesSetsUpEveryPluginOfItsChainAndShowsTheLevels)
{
    std::filesystem::path folder = scratch / "demo";
    RunResult result = Run({"demo", "--out", folder.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (const char* name : {"demo-in.wav", "demo-out.wav"})
    {
        int format = 0;
        int rate = 0;
        int channels = 0;
        std::vector<double> samples =
            clitest::ReadDoubles(folder / name, &format, &rate, &channels);
        EXPECT_EQ(rate, 48000) << name;
        EXPECT_EQ(channels, 2) << name;
        EXPECT_EQ(samples.size(), 960000u) << name;
    }
    const std::string level = " +-?[0-9]+\\.[0-9]{2} dBFS";
    EXPECT_THAT(result.out, testing::ContainsRegex("Chain: [^\n]*Tube Amplifier"));
    EXPECT_THAT(result.out, testing::ContainsRegex("Chain: [^\n]*Parametric Equalizer"));
    EXPECT_THAT(result.out, testing::ContainsRegex("Chain: [^\n]*Room Correction"));
    EXPECT_THAT(result.out, testing::HasSubstr("Chain: Equalizer -> Effects -> "));
    EXPECT_THAT(result.out, testing::HasSubstr("-> Convolution ->"));
    EXPECT_EQ(result.err.find("not valid"), std::string::npos) << result.err;
    EXPECT_THAT(result.out,
                testing::ContainsRegex("\n  Left" + level + level + level + level + "\n"));
    EXPECT_THAT(result.out,
                testing::ContainsRegex("\n  Right" + level + level + level + level + "\n"));
    EXPECT_NE(result.out.find("480000 frames in, 480000 frames out"), std::string::npos)
        << result.out;

    // The plug-ins' settings are kept in the demo folder, not in the user's.
    EXPECT_FALSE(std::filesystem::exists(scratch / "settings.json"));
    const std::string demoSettings = (folder / "demo-settings.json").string();
    const std::string stored = clitest::ReadBytes(demoSettings);
    EXPECT_NE(stored.find("Parametric Equalizer"), std::string::npos);
    EXPECT_NE(stored.find("<Item Name=\\\"Frequency\\\">120</Item>"), std::string::npos) << stored;
    EXPECT_NE(stored.find(folder / "demo-room.wav"), std::string::npos);
    // Effects: "Living Room" (5) at 3.
    RunResult shown = Run({"effects", "show", "--settings", demoSettings});
    EXPECT_EQ(shown.out,
              "Environment        Living Room\nAmount             3\n"
              "Virtual Subwoofer  8\" Subwoofer\nSurround Field     Medium enhancement\n")
        << shown.err;
    // Room correction: two speakers at different distances, set through the panel.
    shown = Run({"room", "show", "--json", "--settings", demoSettings});
    ASSERT_EQ(shown.exitCode, 0) << shown.err;
    const nlohmann::json speakers = nlohmann::json::parse(shown.out)["speakers"];
    EXPECT_EQ(speakers[0]["distanceFeet"], 12.0);
    EXPECT_EQ(speakers[0]["levelDb"], -1.5);
    EXPECT_EQ(speakers[1]["distanceFeet"], 9.0);
    EXPECT_EQ(speakers[1]["crossoverHz"], 40);

    // Convolution's room: the direct sound first, then a tail that dies away;
    // the output fits a sound card, no sample beyond full scale, as the level
    // table says.
    int rate = 0;
    int channels = 0;
    const std::vector<double> room =
        clitest::ReadDoubles(folder / "demo-room.wav", nullptr, &rate, &channels);
    ASSERT_EQ(channels, 2);
    const auto energy = [&](double fromSeconds, double toSeconds)
    {
        double sum = 0.0;
        for (auto i = static_cast<size_t>(fromSeconds * rate) * 2;
             i < static_cast<size_t>(toSeconds * rate) * 2 && i < room.size(); ++i)
            sum += room[i] * room[i];
        return sum;
    };
    EXPECT_EQ(room[0], 1.0);
    EXPECT_EQ(room[1], 1.0);
    EXPECT_GT(energy(0.02, 0.07), 1000 * energy(0.2, 0.25));
    EXPECT_NE(result.out.find("no sample exceeds full scale"), std::string::npos) << result.out;
    double peak = 0.0;
    for (double sample : clitest::ReadDoubles(folder / "demo-out.wav"))
        peak = std::max(peak, std::fabs(sample));
    EXPECT_GT(peak, 0.1);
    EXPECT_LE(peak, 1.0);

    // The Analyzer's picture of the output, named at the end.
    const std::string spectrum = clitest::ReadBytes(folder / "demo-spectrum.svg");
    EXPECT_NE(spectrum.find("<polyline data-trace=\"2\""), std::string::npos);
    EXPECT_THAT(result.out, testing::EndsWith("demo-spectrum.svg\n"));
}

TEST_F(QvdspCommandTest, NonFiniteInputSamplesBecomeSilenceBeforeTheChain)
{
    // NaN and infinities in a float file would run on through every filter's
    // history; as zeros they cost one sample each. The reference is the same
    // file with zeros written there in the first place.
    const int frames = 3000;
    std::vector<double> poisoned = clitest::TestSignal(frames, 2, 0.5, 8);
    std::vector<double> zeroed = poisoned;
    const size_t spots[] = {200, 201, 1001, 4000};
    const double bad[] = {std::nan(""), std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity(), std::nan("")};
    for (size_t i = 0; i < std::size(spots); ++i)
    {
        poisoned[spots[i]] = bad[i];
        zeroed[spots[i]] = 0.0;
    }
    clitest::WriteWithLibsndfile(scratch / "poisoned.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000,
                                 2, poisoned);
    clitest::WriteWithLibsndfile(scratch / "zeroed.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, 2,
                                 zeroed);
    const std::string settings = (scratch / "settings.json").string();
    ASSERT_EQ(Run({"peq", "add", "peak", "Frequency=1000", "Gain=6", "Q=1", "--settings", settings})
                  .exitCode,
              0);
    ASSERT_EQ(Run({"eq", "set", "OCCKKUUYYUUNNKKCCCCCC", "--settings", settings}).exitCode, 0);

    for (const char* chain : {"Parametric Equalizer", "Equalizer", ""})
    {
        RunResult result =
            Run({"process", "--chain", chain, "--settings", settings,
                 (scratch / "poisoned.wav").string(), (scratch / "cleaned.wav").string()});
        ASSERT_EQ(result.exitCode, 0) << chain << ": " << result.err;
        EXPECT_NE(result.err.find("'" + (scratch / "poisoned.wav").string() + "' holds 4 samples"),
                  std::string::npos)
            << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        result = Run({"process", "--chain", chain, "--settings", settings,
                      (scratch / "zeroed.wav").string(), (scratch / "reference.wav").string()});
        ASSERT_EQ(result.exitCode, 0) << chain << ": " << result.err;
        EXPECT_EQ(result.err, "");
        const std::vector<double> cleaned = clitest::ReadDoubles(scratch / "cleaned.wav");
        const std::vector<double> reference = clitest::ReadDoubles(scratch / "reference.wav");
        ASSERT_EQ(cleaned.size(), zeroed.size()) << chain;
        EXPECT_TRUE(
            std::all_of(cleaned.begin(), cleaned.end(), [](double x) { return std::isfinite(x); }))
            << chain;
        EXPECT_TRUE(cleaned == reference) << chain;
        if (*chain != '\0')
        {
            EXPECT_FALSE(cleaned == clitest::ReadDoubles(scratch / "zeroed.wav"))
                << chain << " did nothing";
        }
    }
}

TEST_F(QvdspCommandTest, APlainCopyTakesAnyChannelCount)
{
    // Only plug-ins are bound to 64 channels; a copy or conversion is not.
    const int channels = 65;
    std::vector<double> wide = clitest::TestSignal(300, channels, 0.9, 4);
    clitest::WriteWithLibsndfile(scratch / "wide.wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 44100,
                                 channels, wide);
    RunResult result =
        Run({"process", (scratch / "wide.wav").string(), (scratch / "copy.w64").string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    int read = 0;
    EXPECT_TRUE(clitest::ReadDoubles(scratch / "copy.w64", nullptr, nullptr, &read) == wide);
    EXPECT_EQ(read, channels);
}

TEST_F(QvdspCommandTest, OggOpusAndMp3OutputsHoldTheirCodecs)
{
    // A 440 Hz tone at -10 dBFS: each lossy codec must keep its level.
    const int rate = 48000;
    const int frames = rate;
    std::vector<double> tone(2 * frames);
    for (int n = 0; n < frames; ++n)
        tone[2 * n] = tone[2 * n + 1] = 0.316 * std::sin(2 * M_PI * 440.0 * n / rate);
    clitest::WriteWithLibsndfile(scratch / "tone.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, rate, 2,
                                 tone);
    const auto rms = [](const std::vector<double>& samples)
    {
        double sum = 0.0;
        for (double x : samples)
            sum += x * x;
        return std::sqrt(sum / static_cast<double>(samples.size()));
    };
    const std::pair<const char*, int> outputs[] = {
        {"out.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"out.oga", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"out.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {"out.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III},
    };
    for (const auto& [name, expected] : outputs)
    {
        RunResult result =
            Run({"process", (scratch / "tone.wav").string(), (scratch / name).string()});
        ASSERT_EQ(result.exitCode, 0) << name << ": " << result.err;
        int format = 0;
        const std::vector<double> decoded = clitest::ReadDoubles(scratch / name, &format);
        EXPECT_EQ(format, expected) << name;
        EXPECT_NEAR(static_cast<double>(decoded.size()), static_cast<double>(tone.size()),
                    0.1 * static_cast<double>(tone.size()))
            << name;
        EXPECT_NEAR(20 * std::log10(rms(decoded) / rms(tone)), 0.0, 0.5) << name;
    }

    // MP3 back into a WAV: plain float samples, and a note that says so.
    RunResult result =
        Run({"process", (scratch / "out.mp3").string(), (scratch / "back.wav").string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("writing 32 bit float"), std::string::npos) << result.err;
    int format = 0;
    EXPECT_EQ(clitest::ReadDoubles(scratch / "back.wav", &format),
              clitest::ReadDoubles(scratch / "out.mp3"));
    EXPECT_EQ(format, SF_FORMAT_WAV | SF_FORMAT_FLOAT);

    // A 24-bit FLAC from a float file: the note names the encoding written.
    clitest::WriteWithLibsndfile(scratch / "float.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, rate, 2,
                                 tone);
    result = Run({"process", (scratch / "float.wav").string(), (scratch / "out.flac").string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.err.find("writing Signed 24 bit PCM"), std::string::npos) << result.err;
}

TEST_F(QvdspCommandTest, LongRunWavOutputBeyondFourGibibytesIsReadableInFull)
{
    // A sparse 8-bit input of 2^29 + 2^20 frames becomes 64-bit output of just
    // over 4 GiB: too big for a WAV header, so it has to come out as RF64.
    const int64_t frames = (int64_t{1} << 29) + (int64_t{1} << 20);
    const std::filesystem::path in = scratch / "sparse.wav";
    std::ofstream(in, std::ios::binary)
        << clitest::PcmWavHeader(1, 8000, 8, static_cast<uint32_t>(frames));
    std::filesystem::resize_file(in, 44 + frames);
    {
        // Unsigned 8-bit samples at the very end: 0, +0.5, -0.5, -1.0.
        std::fstream tail(in, std::ios::binary | std::ios::in | std::ios::out);
        tail.seekp(44 + frames - 4);
        tail << "\x80\xC0\x40" << '\0';
    }
    const std::filesystem::path out = scratch / "big.wav";
    RunResult result = Run({"process", "--quiet", "--format", "double", in.string(), out.string()});
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_GT(std::filesystem::file_size(out), uint64_t{1} << 32);
    {
        std::ifstream head(out, std::ios::binary);
        char magic[4] = {};
        head.read(magic, 4);
        EXPECT_EQ(std::string(magic, 4), "RF64");
    }
    SF_INFO info{};
    SNDFILE* file = sf_open(out.c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    EXPECT_EQ(info.frames, frames);
    EXPECT_EQ(info.format, SF_FORMAT_RF64 | SF_FORMAT_DOUBLE);
    double last[5] = {};
    EXPECT_EQ(sf_seek(file, frames - 5, SEEK_SET), frames - 5);
    EXPECT_EQ(sf_readf_double(file, last, 5), 5);
    sf_close(file);
    EXPECT_EQ(std::vector<double>(last, last + 5),
              (std::vector<double>{-1.0, 0.0, 0.5, -0.5, -1.0}));
    std::filesystem::remove(out);
    std::filesystem::remove(in);
}
namespace
{

// The chain run in this process, block by block on one thread, with what the
// file holds: the reference for the binary, which reads and writes on threads
// of its own.
std::vector<double> RunChainInProcess(const std::string& chainText, const std::vector<double>& in,
                                      int32_t channels, int32_t rate, int32_t blockFrames, bool raw)
{
    CliHost host;
    PluginChain chain;
    BuildChain(chain, ResolveChain(chainText, ListPlugins(host, 0, true)), host, 0,
               PluginUse::ReadOnly);
    qvtest::CollectingSink sink;
    CAudioFormat format;
    format.Set(64, static_cast<uint32_t>(rate), static_cast<uint16_t>(channels));
    chain.SetFormat(format);
    const int64_t frames = static_cast<int64_t>(in.size()) / channels;
    std::vector<double> block(static_cast<size_t>(blockFrames) * channels);
    LatencyAlignment alignment(chain, sink, channels, rate, blockFrames);
    chain.SetOutput(&sink);
    if (!raw)
        alignment.Begin(frames);
    for (int64_t start = 0; start < frames; start += blockFrames)
    {
        const int32_t count = static_cast<int32_t>(std::min<int64_t>(blockFrames, frames - start));
        std::copy_n(in.begin() + start * channels, count * channels, block.begin());
        if (raw)
            chain.Push(block.data(), count);
        else
            alignment.Push(block.data(), count);
    }
    if (!raw)
        alignment.Finish();
    chain.SetOutput(nullptr);
    return sink.samples;
}

}  // namespace

TEST_F(QvdspCommandTest, ThreadedReadingAndWritingChangeNoSampleForAnyBlockSize)
{
    // Plug-ins whose output depends on where blocks begin (the crossfeed's
    // start of stream, the adaptive level's block-wise gain), so a block cut
    // anywhere else by the reading thread would show.
    const std::string chain = "Headphones,Adaptive Volume,Tube Amplifier";
    std::filesystem::path in = WriteInput("in.wav", 30011);
    for (int32_t blockFrames : {1, 333, 4096, 65536})
    {
        for (bool raw : {true, false})
        {
            std::vector<std::string> arguments = {"process", "--chain", chain, "--block",
                                                  std::to_string(blockFrames)};
            if (raw)
                arguments.push_back("--raw");
            arguments.push_back(in.string());
            arguments.push_back((scratch / "out.wav").string());
            RunResult result = Run(arguments);
            ASSERT_EQ(result.exitCode, 0) << result.err;
            const std::vector<double> expected =
                RunChainInProcess(chain, input, 2, 44100, blockFrames, raw);
            const std::vector<double> output = clitest::ReadDoubles(scratch / "out.wav");
            ASSERT_EQ(output.size(), expected.size()) << "block " << blockFrames;
            for (size_t i = 0; i < output.size(); ++i)
                ASSERT_EQ(output[i], expected[i]) << "block " << blockFrames << " at " << i;
        }
    }
}
