#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "ConvolutionTestSupport.h"
#include "core/QVFileSystem.h"

using namespace convtest;

namespace
{

constexpr double kTolerance = 1e-9;

// The output of a loaded engine for the input, cut like the engine cuts it:
// from stream frame N/2 on, whole blocks only.
std::vector<double> Cut(const std::vector<std::vector<double>>& channels, int32_t fftSize)
{
    const size_t half = fftSize / 2;
    const size_t blocks = (channels[0].size() - fftSize) / half + 1;
    std::vector<std::vector<double>> cut;
    for (const auto& channel : channels)
        cut.emplace_back(channel.begin() + half, channel.begin() + half + blocks * half);
    return Interleave(cut);
}

std::vector<double> Mix(const std::vector<double>& a, double gainA, const std::vector<double>& b,
                        double gainB)
{
    std::vector<double> y(a.size());
    for (size_t n = 0; n < a.size(); ++n)
        y[n] = gainA * a[n] + gainB * b[n];
    return y;
}

void ExpectClose(const std::vector<double>& actual, const std::vector<double>& expected)
{
    ASSERT_EQ(actual.size(), expected.size());
    for (size_t i = 0; i < actual.size(); ++i)
        ASSERT_NEAR(actual[i], expected[i], kTolerance) << "sample " << i;
}

// The names of converter output files left in the temporary folder.
std::vector<std::string> LeftoverConverterFiles()
{
    std::vector<std::string> names;
    const std::string temp = QVFileSystem::GetTempPath().ToUTF8();
    for (const auto& entry : std::filesystem::directory_iterator(temp))
        if (entry.path().filename().string().rfind("Convolution", 0) == 0)
            names.push_back(entry.path().string());
    return names;
}

// Tools that count the conversions they are asked for.
class CountingTools : public qvtest::FileStoreTools
{
public:
    IQVSoundConverter* CreateSoundConverter() override
    {
        ++conversions;
        return qvtest::FileStoreTools::CreateSoundConverter();
    }
    int conversions = 0;
};

}  // namespace

// The swap of the stereo example: output 0 is input 1 through left.wav,
// output 1 is input 0 through right.wav, delayed by 2.5 ms = 120 frames.
TEST(ConvolutionFilters, ConfigurationRoutesDelaysAndFiltersChannels)
{
    TempFolder folder;
    const std::vector<double> left = DecayingImpulse(700, 1);
    const std::vector<double> right = DecayingImpulse(1300, 2);
    WriteWav(folder.File("left.wav"), left, 1, 48000);
    WriteWav(folder.File("right.wav"), right, 1, 48000);
    WriteText(folder.File("swap.cfg"),
              "48000 2 2 0\r\n0 0\r\n0 "
              "2.5\r\nleft.wav\r\n0\r\n1.0\r\n0\r\nright.wav\r\n0\r\n0.0\r\n1\r\n");
    LoadedEngine loaded(folder.File("swap.cfg"), MakeFormat(2));
    CAudioConvolution& engine = loaded.engine;
    ASSERT_TRUE(engine.IsValid());
    ASSERT_EQ(engine.paths.GetCount(), 2);
    EXPECT_EQ(engine.paths[1]->delayFrames, 120);
    EXPECT_FALSE(engine.paths[0]->mixing);
    EXPECT_EQ(engine.partitionCount, 3);  // 1300 + 120 taps in hops of 512

    const std::vector<double> input = Noise(2 * 4000, 3);
    const auto x0 = ChannelOf(input, 2, 0);
    const auto x1 = ChannelOf(input, 2, 1);
    ExpectClose(RunEngine(engine, input, 2, 257),
                Cut({WindowedConvolution(x1, left, 512), WindowedConvolution(x0, right, 512, 120)},
                    engine.fftSize));
    EXPECT_TRUE(LeftoverConverterFiles().empty());
}

// Two paths that end in output 0 add up there, block after block, whichever
// comes first; output 1 has no path and passes through aligned.
TEST(ConvolutionFilters, PathsIntoOneOutputAddUp)
{
    TempFolder folder;
    const std::vector<double> a = DecayingImpulse(300, 11);
    const std::vector<double> b = DecayingImpulse(1500, 12);
    WriteWav(folder.File("a.wav"), a, 1, 48000);
    WriteWav(folder.File("b.wav"), b, 1, 48000);
    WriteText(folder.File("sum.cfg"),
              "48000 2 2 0\n0 0\n0 0\na.wav\n0\n0.0\n0\nb.wav\n0\n1.0\n0\n");
    LoadedEngine loaded(folder.File("sum.cfg"), MakeFormat(2));
    CAudioConvolution& engine = loaded.engine;
    ASSERT_TRUE(engine.IsValid());
    ASSERT_EQ(engine.paths.GetCount(), 2);
    EXPECT_EQ(engine.paths[0]->GetPartitions(), 1);
    EXPECT_EQ(engine.paths[1]->GetPartitions(), 3);

    const std::vector<double> input = Noise(2 * 5000, 13);
    const auto x0 = ChannelOf(input, 2, 0);
    const auto x1 = ChannelOf(input, 2, 1);
    const std::vector<double> expected =
        Cut({Mix(WindowedConvolution(x0, a, 512), 1.0, WindowedConvolution(x1, b, 512), 1.0), x1},
            engine.fftSize);
    for (int chunk : {1, 333, 5000})
    {
        engine.Reset();
        ExpectClose(RunEngine(engine, input, 2, chunk), expected);
    }
}

// Lines of different gains mix in the frequency domain; one common gain is
// folded into the filter instead.
TEST(ConvolutionFilters, InputLinesMixWithTheirGainsOrFoldACommonGain)
{
    TempFolder folder;
    const std::vector<double> h = DecayingImpulse(900, 5);
    WriteWav(folder.File("h.wav"), h, 1, 48000);
    WriteText(folder.File("mix.txt"), "x\ny\n0 0\nh.wav\n0\n0.5 1.25\n0\nh.wav\n0\n0.5 1.5\n1\n");
    LoadedEngine loaded(folder.File("mix.txt"), MakeFormat(2));
    CAudioConvolution& engine = loaded.engine;
    ASSERT_TRUE(engine.IsValid());
    ASSERT_EQ(engine.paths.GetCount(), 2);
    const auto& mixed = engine.paths[0]->lines;
    ASSERT_EQ(mixed.size(), 2u);
    EXPECT_EQ(mixed[0].gain, 0.5);
    EXPECT_EQ(mixed[1].gain, 0.25);
    const auto& folded = engine.paths[1]->lines;
    ASSERT_EQ(folded.size(), 2u);
    EXPECT_EQ(folded[0].gain, 1.0);
    EXPECT_EQ(folded[1].gain, 1.0);

    const std::vector<double> input = Noise(2 * 3000, 8);
    const auto x0 = ChannelOf(input, 2, 0);
    const auto x1 = ChannelOf(input, 2, 1);
    ExpectClose(RunEngine(engine, input, 2, 1000),
                Cut({WindowedConvolution(Mix(x0, 0.5, x1, 0.25), h, 512),
                     WindowedConvolution(Mix(x0, 0.5, x1, 0.5), h, 512)},
                    engine.fftSize));
}

// The first character of a token is never part of its gain.
TEST(ConvolutionFilters, InputTokensReadChannelAndGainByTheFirstCharacterRule)
{
    TempFolder folder;
    WriteWav(folder.File("h.wav"), DecayingImpulse(50, 5), 1, 48000);
    WriteText(folder.File("tokens.cfg"), "\n\n\nh.wav\n0\n12.5  1 0.0 -1 40.5 3.75\n0\n");
    LoadedEngine loaded(folder.File("tokens.cfg"), MakeFormat(16));
    ASSERT_TRUE(loaded.engine.IsValid());
    ASSERT_EQ(loaded.engine.paths.GetCount(), 1);
    const auto& lines = loaded.engine.paths[0]->lines;
    // 12.5, the empty token, 1, 0.0 and 3.75; -1 and 40 are not channels.
    ASSERT_EQ(lines.size(), 5u);
    const int32_t channels[] = {12, 0, 1, 0, 3};
    const double gains[] = {2.5, 1.0, 1.0, 1.0, 0.75};
    for (size_t i = 0; i < lines.size(); ++i)
    {
        EXPECT_EQ(lines[i].channel, channels[i]) << i;
        EXPECT_EQ(lines[i].gain, gains[i]) << i;
    }
}

// Files are found beside the configuration when named without a folder or
// by a folder that no longer holds them; one file of several blocks is read
// once; blocks for outputs the stream lacks are skipped without an error.
TEST(ConvolutionFilters, FilesResolveBesideTheConfigurationAndAreReadOnce)
{
    TempFolder folder;
    WriteWav(folder.File("room.wav"),
             Interleave({DecayingImpulse(300, 1), DecayingImpulse(300, 2)}), 2, 48000);
    std::string text = "48000 6 6 0\n0 0\n0 0 0 0 0 0\n";
    const std::string names[] = {
        "room.wav", "/gone/away/room.wav", "C:\\Filters\\room.wav", "room.wav", "room.wav",
        "room.wav"};
    for (int output = 0; output < 6; ++output)
        text += names[output] + "\n" + std::to_string(output % 2) + "\n" +
                std::to_string(output % 2) + "\n" + std::to_string(output) + "\n";
    WriteText(folder.File("six.cfg"), text);

    CountingTools tools;
    IQVTools* previous = GetQVTools();
    SetQVTools(&tools);
    {
        CAudioConvolution engine(0);
        engine.filterName = QVString::FromUTF8(folder.File("six.cfg"));
        engine.volumeMode = 1;
        const CAudioFormat stereo = MakeFormat(2);
        EXPECT_TRUE(engine.Load(&stereo, true));
        EXPECT_EQ(engine.paths.GetCount(), 2);
        // The stale folders resolve to the same file as the plain name.
        EXPECT_EQ(tools.conversions, 1);
        EXPECT_EQ(engine.GetLoadNotes().size(), 4u);
        for (const auto& note : engine.GetLoadNotes())
            EXPECT_NE(note.text.ToUTF8().find("no output channel"), std::string::npos);
    }
    SetQVTools(previous);
}

// A single missing file makes the filter not valid, whatever the others do;
// an impossible channel number only skips its block.
TEST(ConvolutionFilters, MissingFileInvalidatesTheFilter)
{
    TempFolder folder;
    WriteWav(folder.File("h.wav"), DecayingImpulse(50, 5), 1, 48000);
    WriteText(folder.File("bad.cfg"),
              "\n\n\nmissing.wav\n0\n0\n0\nh.wav\n0\n0\n1\nh.wav\n7\n0\n0\n");
    LoadedEngine loaded(folder.File("bad.cfg"), MakeFormat(2));
    EXPECT_FALSE(loaded.engine.IsValid());
    EXPECT_EQ(loaded.engine.paths.GetCount(), 1);
    ASSERT_EQ(loaded.engine.GetLoadNotes().size(), 2u);
    EXPECT_EQ(loaded.engine.GetLoadNotes()[0].line, 4);
    EXPECT_EQ(loaded.engine.GetLoadNotes()[1].line, 12);

    LoadedEngine empty("", MakeFormat(2));
    EXPECT_FALSE(empty.engine.IsValid());
    LoadedEngine none(folder.File("nothing.wav"), MakeFormat(2));
    EXPECT_FALSE(none.engine.IsValid());
    EXPECT_EQ(none.engine.GetLatency(), 0);
    // Too short to hold a block: loads, with no paths and no error.
    WriteText(folder.File("short.cfg"), "a\nb\n0 0\nh.wav\n0\n0");
    LoadedEngine shortConfig(folder.File("short.cfg"), MakeFormat(2));
    EXPECT_TRUE(shortConfig.engine.IsValid());
    EXPECT_EQ(shortConfig.engine.paths.GetCount(), 0);
}

// A path may span 2^23 frames, delay included. A delay that goes beyond,
// also one too large for any integer or not a number at all, skips its block
// with a note; a file that is longer fails the load. Neither may take the
// memory such a path would need.
TEST(ConvolutionFilters, PathsLongerThanTheLimitAreRefusedBeforeTheyAreBuilt)
{
    TempFolder folder;
    WriteWav(folder.File("h.wav"), DecayingImpulse(1000, 5), 1, 48000);
    // 8388608 - 1000 frames at 48 kHz are 174741.8 ms.
    for (const char* delay : {"174741", "174742", "1e300", "-1e300"})
    {
        SCOPED_TRACE(delay);
        WriteText(folder.File("late.cfg"),
                  std::string("\n\n0 ") + delay + "\nh.wav\n0\n0\n0\nh.wav\n0\n0\n1\n");
        LoadedEngine loaded(folder.File("late.cfg"), MakeFormat(2));
        EXPECT_TRUE(loaded.engine.IsValid());
        const bool fits = std::string(delay) == "174741" || std::string(delay) == "-1e300";
        ASSERT_EQ(loaded.engine.paths.GetCount(), fits ? 2 : 1);
        if (fits)
        {
            EXPECT_EQ(loaded.engine.paths[1]->delayFrames, delay[0] == '-' ? 0 : 8387568);
            continue;
        }
        ASSERT_EQ(loaded.engine.GetLoadNotes().size(), 1u);
        EXPECT_EQ(loaded.engine.GetLoadNotes()[0].line, 8);
        EXPECT_EQ(loaded.engine.GetLoadNotes()[0].text.ToUTF8(),
                  std::string("skipped: the delay of output channel 1, ") + delay +
                      " ms, makes the path longer than 8388608 frames");
    }

    const std::string tooLong = folder.File("long.wav");
    WriteWav(tooLong, std::vector<double>(CAudioConvolution::MAX_IMPULSE_FRAMES + 1, 0.25), 1,
             48000, SF_FORMAT_PCM_16);
    LoadedEngine refused(tooLong, MakeFormat(2));
    EXPECT_FALSE(refused.engine.IsValid());
    EXPECT_EQ(refused.engine.paths.GetCount(), 0);
    ASSERT_EQ(refused.engine.GetLoadNotes().size(), 2u);
    EXPECT_EQ(refused.engine.GetLoadNotes()[0].text.ToUTF8(),
              "\"" + tooLong +
                  "\" has 8388609 frames at 48000 Hz, more than the 8388608 an "
                  "impulse may have");
    EXPECT_TRUE(LeftoverConverterFiles().empty());
}

// An impulse at twice the stream's rate arrives resampled, with gain 2 to
// keep its sum: a box of 0.001 over 960 frames at 96 kHz passes DC at 0.96.
TEST(ConvolutionFilters, ImpulseAtAnotherRateIsResampledWithItsRateRatioAsGain)
{
    TempFolder folder;
    WriteWav(folder.File("box96.wav"), std::vector<double>(960, 0.001), 1, 96000);
    LoadedEngine loaded(folder.File("box96.wav"), MakeFormat(1));
    ASSERT_TRUE(loaded.engine.IsValid());
    const std::vector<double> ones(8192, 1.0);
    const std::vector<double> out = RunEngine(loaded.engine, ones, 1, 8192);
    ASSERT_GT(out.size(), 2000u);
    EXPECT_NEAR(out[2000], 0.96, 0.005);
}

// Trailing silence is not filtered; the peak counts the delay.
TEST(ConvolutionFilters, TrailingZerosAreDroppedAndThePeakIncludesTheDelay)
{
    TempFolder folder;
    std::vector<double> h(3000, 0.0);
    h[10] = -0.9;  // larger magnitude than the later 0.5
    h[400] = 0.5;
    h[599] = 0.1;
    WriteWav(folder.File("h.wav"), h, 1, 48000);
    WriteText(folder.File("d.cfg"), "\n\n10\nh.wav\n0\n0\n0\n");
    LoadedEngine loaded(folder.File("d.cfg"), MakeFormat(1));
    ASSERT_EQ(loaded.engine.paths.GetCount(), 1);
    // 600 taps + 480 frames of delay = 1080 frames: three runs of 512.
    EXPECT_EQ(loaded.engine.paths[0]->GetPartitions(), 3);
    EXPECT_EQ(loaded.engine.paths[0]->peakPosition, 490);
    EXPECT_EQ(loaded.engine.latencyPeak, 490);
}

// Auto-matching tries the channel spellings, then the rates, in table order;
// it leaves names of another form alone.
TEST(ConvolutionFilters, AutoMatchTriesTheTablesInOrder)
{
    TempFolder folder;
    const std::string chosen = folder.File("room5.1_48.cfg");
    const auto match = [](const std::string& name, uint32_t rate, int32_t channels) {
        return CAudioConvolution::MatchFilterName(QVString::FromUTF8(name), rate, channels)
            .ToUTF8();
    };
    WriteText(chosen, "");
    EXPECT_EQ(match(chosen, 44100, 2), chosen);  // nothing for stereo yet
    WriteText(folder.File("room2_441.cfg"), "");
    EXPECT_EQ(match(chosen, 44100, 2), folder.File("room2_441.cfg"));
    WriteText(folder.File("room2.0_441.cfg"), "");
    EXPECT_EQ(match(chosen, 44100, 2), folder.File("room2.0_441.cfg"));
    EXPECT_EQ(match(folder.File("room2.0_441.cfg"), 48000, 6), chosen);
    EXPECT_EQ(match(chosen, 22050, 2), chosen);  // no rate text: nothing tried
    // Mono has no channel text: the name's own is the only candidate.
    WriteText(folder.File("room5.1_441.cfg"), "");
    EXPECT_EQ(match(chosen, 44100, 1), folder.File("room5.1_441.cfg"));
    WriteText(folder.File("room2_1764.cfg"), "");
    EXPECT_EQ(match(chosen, 176400, 2), folder.File("room2_1764.cfg"));
    for (const char* other : {"room.cfg", "room2.0_441.wav", "room2.0_441.txt"})
        EXPECT_EQ(match(folder.File(other), 44100, 2), folder.File(other));
}

// The expression ignores case, the extension test that follows does not: a
// name in capitals stays an audio file, which no converter reads.
TEST(ConvolutionFilters, UpperCaseConfigurationNameIsReadAsAudio)
{
    TempFolder folder;
    WriteWav(folder.File("h.wav"), DecayingImpulse(50, 5), 1, 44100);
    WriteText(folder.File("ROOM2.0_441.CFG"), "\n\n\nh.wav\n0\n0\n0\n");
    LoadedEngine upper(folder.File("ROOM2.0_441.CFG"), MakeFormat(2, 44100));
    EXPECT_FALSE(upper.engine.IsValid());
    WriteText(folder.File("room2.0_441.cfg"), "\n\n\nh.wav\n0\n0\n0\n");
    LoadedEngine lower(folder.File("room5.1_48.cfg"), MakeFormat(2, 44100));
    EXPECT_TRUE(lower.engine.IsValid());
    EXPECT_EQ(lower.engine.GetFilter(true).ToUTF8(), folder.File("room2.0_441.cfg"));
    EXPECT_EQ(lower.engine.GetFilter(false).ToUTF8(), folder.File("room5.1_48.cfg"));
}
