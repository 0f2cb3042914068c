#include "cli/host/SoundFile.h"

#include "TestFiles.h"
#include "cli/commands/Commands.h"

#include <sndfile.h>

#include <gtest/gtest.h>

#include <fstream>

using clitest::ScratchFolder;

namespace
{

int ErrorCodeOf(const std::function<void()>& action, std::string* message = nullptr)
{
    try
    {
        action();
    }
    catch (const CliError& error)
    {
        if (message)
            *message = error.what();
        return error.ExitCode();
    }
    return CLI_EXIT_DONE;
}

SoundFileLayout Stereo(int format, int rate = 44100)
{
    return {format, rate, 2};
}

}  // namespace

TEST(SoundFileTest, ContainerComesFromTheExtensionInAnyCase)
{
    const std::pair<const char*, int> containers[] = {
        {"a/b.wav", SF_FORMAT_WAV}, {"B.WAV", SF_FORMAT_WAV},   {"x.flac", SF_FORMAT_FLAC},
        {"x.aif", SF_FORMAT_AIFF},  {"x.aiff", SF_FORMAT_AIFF}, {"x.caf", SF_FORMAT_CAF},
        {"x.w64", SF_FORMAT_W64},   {"x.rf64", SF_FORMAT_RF64}, {"x.ogg", SF_FORMAT_OGG},
        {"x.OGA", SF_FORMAT_OGG},   {"x.opus", SF_FORMAT_OGG},  {"x.mp3", SF_FORMAT_MPEG}};
    for (const auto& [path, container] : containers)
        EXPECT_EQ(ContainerForPath(path), container) << path;
    // Every extension the library lists names a container that has it.
    int count = 0;
    sf_command(nullptr, SFC_GET_FORMAT_MAJOR_COUNT, &count, sizeof(count));
    for (int i = 0; i < count; ++i)
    {
        SF_FORMAT_INFO listed{};
        listed.format = i;
        sf_command(nullptr, SFC_GET_FORMAT_MAJOR, &listed, sizeof(listed));
        const std::string extension = listed.extension;
        SF_FORMAT_INFO found{};
        found.format = ContainerForPath("x." + extension);
        ASSERT_EQ(sf_command(nullptr, SFC_GET_FORMAT_INFO, &found, sizeof(found)), 0) << extension;
        EXPECT_EQ(std::string(found.extension), extension);
    }
    std::string message;
    EXPECT_EQ(ErrorCodeOf([] { ContainerForPath("x.xyz"); }, &message), CLI_EXIT_USAGE);
    EXPECT_NE(message.find("'x.xyz'"), std::string::npos) << message;
    EXPECT_EQ(ErrorCodeOf([] { ContainerForPath("noextension"); }), CLI_EXIT_USAGE);
}

TEST(SoundFileTest, OutputEncodingFollowsFormatOrInput)
{
    const SoundFileLayout pcm16 = Stereo(SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const std::tuple<const char*, SampleFormat, int> choices[] = {
        {"o.wav", SampleFormat::Same, SF_FORMAT_WAV | SF_FORMAT_PCM_16},
        {"o.flac", SampleFormat::Same, SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"o.wav", SampleFormat::Pcm24, SF_FORMAT_WAV | SF_FORMAT_PCM_24},
        {"o.wav", SampleFormat::Pcm32, SF_FORMAT_WAV | SF_FORMAT_PCM_32},
        {"o.aiff", SampleFormat::Float, SF_FORMAT_AIFF | SF_FORMAT_FLOAT},
        {"o.wav", SampleFormat::Double, SF_FORMAT_WAV | SF_FORMAT_DOUBLE}};
    for (const auto& [path, sampleFormat, format] : choices)
        EXPECT_EQ(ChooseOutputFormat(path, sampleFormat, pcm16), format) << path;

    // A float input into a container without float: the nearest lossless-enough
    // encoding, with a note saying so.
    std::string note;
    EXPECT_EQ(ChooseOutputFormat("o.flac", SampleFormat::Same,
                                 Stereo(SF_FORMAT_WAV | SF_FORMAT_FLOAT), &note),
              SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    EXPECT_NE(note.find("FLAC"), std::string::npos) << note;
    EXPECT_NE(note.find("writing Signed 24 bit PCM"), std::string::npos) << note;

    // Ogg files hold Vorbis, or Opus when so named; a decoded MP3 goes into
    // another container as plain samples, into its own as MP3 again.
    EXPECT_EQ(ChooseOutputFormat("o.ogg", SampleFormat::Same, pcm16, &note),
              SF_FORMAT_OGG | SF_FORMAT_VORBIS);
    EXPECT_NE(note.find("writing Vorbis"), std::string::npos) << note;
    EXPECT_EQ(ChooseOutputFormat("o.opus", SampleFormat::Same, Stereo(pcm16.format, 48000)),
              SF_FORMAT_OGG | SF_FORMAT_OPUS);
    const SoundFileLayout mp3 = Stereo(SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III);
    EXPECT_EQ(ChooseOutputFormat("o.wav", SampleFormat::Same, mp3, &note),
              SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    EXPECT_NE(note.find("writing 32 bit float"), std::string::npos) << note;
    EXPECT_EQ(ChooseOutputFormat("o.mp3", SampleFormat::Same, mp3),
              SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III);

    // Asked for explicitly, an encoding the container lacks is bad usage.
    std::string message;
    EXPECT_EQ(
        ErrorCodeOf([&] { ChooseOutputFormat("o.flac", SampleFormat::Double, pcm16); }, &message),
        CLI_EXIT_USAGE);
    EXPECT_NE(message.find("double"), std::string::npos) << message;
}

TEST(SoundFileTest, ReaderNamesTheFileAndTheReason)
{
    ScratchFolder folder;
    std::string message;
    EXPECT_EQ(ErrorCodeOf([&] { SoundFileReader reader(folder / "missing.wav"); }, &message),
              CLI_EXIT_FAILED);
    EXPECT_NE(message.find("missing.wav"), std::string::npos) << message;
    EXPECT_NE(message.find("No such file"), std::string::npos) << message;

    std::ofstream(folder / "text.wav") << "this is not audio";
    EXPECT_EQ(ErrorCodeOf([&] { SoundFileReader reader(folder / "text.wav"); }, &message),
              CLI_EXIT_FAILED);
    EXPECT_NE(message.find("text.wav"), std::string::npos) << message;

    EXPECT_EQ(ErrorCodeOf([&] { SoundFileReader reader(folder.Path()); }, &message),
              CLI_EXIT_FAILED);
    EXPECT_NE(message.find("folder"), std::string::npos) << message;
}

TEST(SoundFileTest, WriterTouchesTheTargetOnlyWhenComplete)
{
    ScratchFolder folder;
    std::filesystem::path target = folder / "out.wav";
    std::ofstream(target) << "earlier content";
    std::vector<double> samples = clitest::TestSignal(1000, 2, 0.5, 7);
    {
        AtomicSoundFileWriter writer(target, Stereo(SF_FORMAT_WAV | SF_FORMAT_DOUBLE), 1000);
        writer.Write(samples.data(), 1000);
        EXPECT_EQ(clitest::ReadBytes(target), "earlier content");
        EXPECT_EQ(writer.TemporaryPath().parent_path(), folder.Path());
        // Destroyed without Commit: the target keeps its content, nothing else stays.
    }
    EXPECT_EQ(clitest::ReadBytes(target), "earlier content");
    EXPECT_EQ(folder.Entries(), std::vector<std::string>{"out.wav"});

    {
        AtomicSoundFileWriter writer(target, Stereo(SF_FORMAT_WAV | SF_FORMAT_DOUBLE), 1000);
        writer.Write(samples.data(), 600);
        writer.Write(samples.data() + 1200, 400);
        writer.Commit();
        EXPECT_EQ(writer.FramesWritten(), 1000);
    }
    EXPECT_TRUE(clitest::ReadDoubles(target) == samples);
    EXPECT_EQ(folder.Entries(), std::vector<std::string>{"out.wav"});
}

TEST(SoundFileTest, WavOfUnknownLengthIsStillAPlainRiffWaveWhenSmall)
{
    // Without a length to go by, the file starts as RF64 in case it grows past
    // 4 GiB, and turns into a RIFF/WAVE file when it does not.
    ScratchFolder folder;
    std::vector<double> samples = clitest::TestSignal(500, 2, 0.5, 9);
    clitest::WriteWithLibsndfile(folder / "reference.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 44100,
                                 2, samples);
    for (int64_t expected : {int64_t{0}, int64_t{500}, int64_t{1} << 40})
    {
        const std::filesystem::path target = folder / ("out" + std::to_string(expected) + ".wav");
        AtomicSoundFileWriter writer(target, Stereo(SF_FORMAT_WAV | SF_FORMAT_PCM_24), expected);
        writer.Write(samples.data(), 500);
        writer.Commit();
        const std::string bytes = clitest::ReadBytes(target);
        EXPECT_EQ(bytes.substr(0, 4), "RIFF") << expected;
        EXPECT_EQ(bytes.substr(8, 4), "WAVE") << expected;
        EXPECT_EQ(clitest::ReadInts(target), clitest::ReadInts(folder / "reference.wav"));
    }
    int format = 0;
    clitest::ReadDoubles(folder / "out500.wav", &format);
    EXPECT_EQ(format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);

    // Asked for by name, RF64 stays RF64 however small.
    AtomicSoundFileWriter writer(folder / "out.rf64", Stereo(SF_FORMAT_RF64 | SF_FORMAT_PCM_24), 0);
    writer.Write(samples.data(), 500);
    writer.Commit();
    EXPECT_EQ(clitest::ReadBytes(folder / "out.rf64").substr(0, 4), "RF64");
}

TEST(SoundFileTest, WriterRefusesFoldersItCannotWriteTo)
{
    ScratchFolder folder;
    std::ofstream(folder / "plain") << "a file, not a folder";
    std::filesystem::create_directory(folder / "sub.wav");
    const std::pair<const char*, const char*> refusals[] = {{"missing/out.wav", "missing/out.wav"},
                                                            {"plain/out.wav", "plain/out.wav"},
                                                            {"sub.wav", "folder"}};
    for (const auto& [name, mentions] : refusals)
    {
        std::string message;
        const auto write = [&, name = name] {
            AtomicSoundFileWriter writer(folder / name, Stereo(SF_FORMAT_WAV | SF_FORMAT_PCM_16),
                                         0);
        };
        EXPECT_EQ(ErrorCodeOf(write, &message), CLI_EXIT_FAILED) << name;
        EXPECT_NE(message.find(mentions), std::string::npos) << message;
    }
    EXPECT_EQ(folder.Entries(), (std::vector<std::string>{"plain", "sub.wav"}));
}

TEST(SoundFileTest, IntegerSamplesSurviveARoundTripAndClipInsteadOfWrapping)
{
    ScratchFolder folder;
    // Every 16-bit value once, through doubles and back.
    std::vector<double> ramp;
    for (int value = -32768; value <= 32767; ++value)
        ramp.push_back(value / 32768.0);
    clitest::WriteWithLibsndfile(folder / "ramp.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1,
                                 ramp);
    std::vector<double> read;
    {
        SoundFileReader reader(folder / "ramp.wav");
        ASSERT_EQ(reader.Frames(), 65536);
        read.resize(70000);
        EXPECT_EQ(reader.Read(read.data(), 70000), 65536);
        read.resize(65536);
        double more[2];
        EXPECT_EQ(reader.Read(more, 2), 0);
    }
    EXPECT_TRUE(read == ramp);
    {
        AtomicSoundFileWriter writer(folder / "copy.wav",
                                     {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1}, 65536);
        writer.Write(read.data(), 65536);
        writer.Commit();
    }
    EXPECT_TRUE(clitest::ReadBytes(folder / "copy.wav") == clitest::ReadBytes(folder / "ramp.wav"));

    const double beyond[] = {1.5, -1.5, 1.0};
    {
        AtomicSoundFileWriter writer(folder / "loud.wav",
                                     {SF_FORMAT_WAV | SF_FORMAT_PCM_16, 8000, 1}, 3);
        writer.Write(beyond, 3);
        writer.Commit();
    }
    std::vector<int32_t> loud = clitest::ReadInts(folder / "loud.wav");
    EXPECT_EQ(loud, (std::vector<int32_t>{32767 << 16, -32768 * 65536, 32767 << 16}));
}

TEST(SoundFileTest, SameFileIsFoundThroughOtherPaths)
{
    ScratchFolder folder;
    std::ofstream(folder / "in.wav") << "x";
    std::filesystem::create_directory(folder / "sub");
    std::filesystem::create_symlink(folder / "in.wav", folder / "link.wav");
    std::filesystem::create_hard_link(folder / "in.wav", folder / "hard.wav");
    EXPECT_TRUE(IsSameFile(folder / "in.wav", folder / "sub" / ".." / "in.wav"));
    EXPECT_TRUE(IsSameFile(folder / "in.wav", folder / "link.wav"));
    EXPECT_TRUE(IsSameFile(folder / "in.wav", folder / "hard.wav"));
    EXPECT_FALSE(IsSameFile(folder / "in.wav", folder / "other.wav"));
    EXPECT_FALSE(IsSameFile(folder / "in.wav", folder / "sub"));
}
