// The real qvdsp binary, run as a user runs it.
#include "TestFiles.h"
#include "cli/host/LatencyAlignment.h"
#include "cli/host/PluginChain.h"
#include "support/Sinks.h"

#include "qvdsp/AudioFormat.h"

#include <sndfile.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
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
        {{"process", dir + "/wide.wav", dir + "/out.wav"}, 1, "65 channels"},
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

TEST_F(QvdspCommandTest, DemoWritesBothFilesAndShowsTheLevels)
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
    // The equalizer's list is kept in the demo folder.
    const std::string demoSettings = clitest::ReadBytes(folder / "demo-settings.json");
    EXPECT_NE(demoSettings.find("Parametric Equalizer"), std::string::npos);
    EXPECT_NE(demoSettings.find("<Item Name=\\\"Frequency\\\">120</Item>"), std::string::npos)
        << demoSettings;
    EXPECT_THAT(result.out,
                testing::ContainsRegex("\n  Left" + level + level + level + level + "\n"));
    EXPECT_THAT(result.out,
                testing::ContainsRegex("\n  Right" + level + level + level + level + "\n"));
    EXPECT_NE(result.out.find("480000 frames in, 480000 frames out"), std::string::npos)
        << result.out;
    // The Analyzer's picture of the output, named at the end.
    const std::string spectrum = clitest::ReadBytes(folder / "demo-spectrum.svg");
    EXPECT_NE(spectrum.find("<polyline data-trace=\"2\""), std::string::npos);
    EXPECT_THAT(result.out, testing::EndsWith("demo-spectrum.svg\n"));
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
