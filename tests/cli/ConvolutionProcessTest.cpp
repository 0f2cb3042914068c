// qvdsp process with Convolution in the chain, run as a user runs it: the
// file comes out whole and aligned, the plain convolution with the impulse
// advanced by its peak, from the first frame to the last.
#include "TestFiles.h"

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <random>

using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

constexpr int RATE = 48000;
constexpr int CHANNELS = 2;
constexpr int DOUBLE_WAV = SF_FORMAT_WAV | SF_FORMAT_DOUBLE;
// N at 48 kHz; N / 2 frames of the first window never come out on their own.
constexpr int WINDOW_FRAMES = 8192;

class ConvolutionProcessTest : public testing::Test
{
protected:
    void SetUp() override { setenv("QVDSP_SETTINGS", settings.c_str(), 1); }

    RunResult Run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.end(), {"--settings", settings.string()});
        return clitest::RunQvdsp(arguments, scratch);
    }

    // Chooses the impulse without normalisation, so that its gain is kept.
    void UseFilter(const std::vector<double>& impulse)
    {
        const std::filesystem::path name = scratch / "impulse.wav";
        clitest::WriteWithLibsndfile(name, DOUBLE_WAV, RATE, CHANNELS, impulse);
        ASSERT_EQ(Run({"conv", "set", name.string()}).exitCode, 0);
        ASSERT_EQ(Run({"conv", "normalize", "off"}).exitCode, 0);
    }

    // The input through `--chain Convolution`, read back; checks that the run
    // went well and kept the frame count and the 64-bit float format.
    std::vector<double> Process(const std::vector<double>& input,
                                std::vector<std::string> extra = {})
    {
        clitest::WriteWithLibsndfile(scratch / "in.wav", DOUBLE_WAV, RATE, CHANNELS, input);
        std::vector<std::string> arguments = {"process", "--chain", "Convolution"};
        arguments.insert(arguments.end(), extra.begin(), extra.end());
        arguments.insert(arguments.end(),
                         {(scratch / "in.wav").string(), (scratch / "out.wav").string()});
        RunResult result = Run(arguments);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.err, "");
        int format = 0;
        std::vector<double> output = clitest::ReadDoubles(scratch / "out.wav", &format);
        EXPECT_EQ(format, DOUBLE_WAV);
        EXPECT_EQ(output.size(), input.size());
        return output;
    }

    ScratchFolder scratch;
    std::filesystem::path settings = scratch / "settings.json";
};

// A stereo impulse of `frames` frames that is silent but for `value` at `at`.
std::vector<double> Spike(int frames, int at, double value = 1.0)
{
    std::vector<double> impulse(static_cast<size_t>(frames) * CHANNELS, 0.0);
    for (int channel = 0; channel < CHANNELS; ++channel)
        impulse[static_cast<size_t>(at) * CHANNELS + channel] = value;
    return impulse;
}

// A room-like impulse per channel: noise that decays by 60 dB over its
// length, with a distinct peak of its own on each channel.
std::vector<double> DecayingImpulse(int frames, const int peaks[CHANNELS])
{
    std::mt19937 engine(7);
    std::uniform_real_distribution<double> noise(-0.3, 0.3);
    std::vector<double> impulse(static_cast<size_t>(frames) * CHANNELS);
    const double decay = std::log(1000.0) / frames;
    for (int frame = 0; frame < frames; ++frame)
        for (int channel = 0; channel < CHANNELS; ++channel)
            impulse[static_cast<size_t>(frame) * CHANNELS + channel] =
                noise(engine) * std::exp(-decay * frame);
    for (int channel = 0; channel < CHANNELS; ++channel)
        impulse[static_cast<size_t>(peaks[channel]) * CHANNELS + channel] = 1.0 + channel * 0.2;
    return impulse;
}

// Noise where `burst` is true for the frame, silence elsewhere.
template <typename Burst>
std::vector<double> NoiseBursts(int frames, Burst burst)
{
    std::mt19937 engine(11);
    std::uniform_real_distribution<double> noise(-0.5, 0.5);
    std::vector<double> signal(static_cast<size_t>(frames) * CHANNELS, 0.0);
    for (int frame = 0; frame < frames; ++frame)
        if (burst(frame))
            for (int channel = 0; channel < CHANNELS; ++channel)
                signal[static_cast<size_t>(frame) * CHANNELS + channel] = noise(engine);
    return signal;
}

// out[n] = sum over k of h[k] x[n + advance - k], by the definition, with
// silence outside the input; the sum runs over the input's non-zero samples
// only, which keeps it quick for bursts.
std::vector<double> DirectConvolution(const std::vector<double>& input,
                                      const std::vector<double>& impulse, int advance)
{
    const auto inputFrames = static_cast<int64_t>(input.size() / CHANNELS);
    const auto impulseFrames = static_cast<int64_t>(impulse.size() / CHANNELS);
    std::vector<double> output(input.size(), 0.0);
    for (int64_t m = 0; m < inputFrames; ++m)
        for (int channel = 0; channel < CHANNELS; ++channel)
        {
            const double x = input[static_cast<size_t>(m) * CHANNELS + channel];
            if (x == 0.0)
                continue;
            // Output frame n takes h[n + advance - m].
            const int64_t first = std::max<int64_t>(0, m - advance);
            const int64_t last = std::min<int64_t>(inputFrames, m - advance + impulseFrames);
            for (int64_t n = first; n < last; ++n)
                output[static_cast<size_t>(n) * CHANNELS + channel] +=
                    impulse[static_cast<size_t>(n + advance - m) * CHANNELS + channel] * x;
        }
    return output;
}

double LargestDifference(const std::vector<double>& a, const std::vector<double>& b, size_t* where)
{
    double largest = 0.0;
    for (size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        if (std::fabs(a[i] - b[i]) > largest)
        {
            largest = std::fabs(a[i] - b[i]);
            *where = i;
        }
    return largest;
}

}  // namespace

// A unit impulse gives the input back, whether its peak lies at 0 or beyond
// the first half window (which a player would lose), in any block size.
TEST_F(ConvolutionProcessTest, UnitImpulseGivesTheInputBackAtAnyDelay)
{
    const std::vector<double> input = clitest::TestSignal(30011, CHANNELS, 0.9, 5);
    const struct
    {
        int frames;
        int peak;
        const char* block;
    } cases[] = {
        {1, 0, "4096"},
        {5001, 5000, "4096"},            // more than N / 2 = 4096 frames late
        {12000, 5000, "777"},            // trailing silence is dropped from the filter
        {WINDOW_FRAMES, 100, "100000"},  // one block holds the whole file
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(testing::Message() << "peak " << c.peak << " of " << c.frames << " frames");
        UseFilter(Spike(c.frames, c.peak));
        const std::vector<double> output = Process(input, {"--block", c.block});
        size_t where = 0;
        EXPECT_LE(LargestDifference(output, input, &where), 1e-12)
            << "sample " << where << " of " << output.size();
    }
}

// An impulse of many windows applies whole from the first frame on, and the
// last frames of the file come out filtered: the output is the direct sum,
// advanced by the smaller of the channels' peaks.
TEST_F(ConvolutionProcessTest, LongImpulseGivesThePlainConvolutionFromFirstToLastFrame)
{
    constexpr int IMPULSE_FRAMES = 40000;  // five windows, ten partitions
    const int peaks[CHANNELS] = {300, 170};
    const std::vector<double> impulse = DecayingImpulse(IMPULSE_FRAMES, peaks);
    UseFilter(impulse);

    constexpr int FRAMES = 60000;
    constexpr int BURST = 1500;
    // The start, a click now and then, and the end of the file.
    const std::vector<double> input =
        NoiseBursts(FRAMES, [](int frame)
                    { return frame < BURST || frame % 9973 == 0 || frame >= FRAMES - BURST; });
    const std::vector<double> output = Process(input, {"--block", "1000"});
    const std::vector<double> expected = DirectConvolution(input, impulse, 170);
    ASSERT_EQ(output.size(), expected.size());

    size_t where = 0;
    EXPECT_LE(LargestDifference(output, expected, &where), 1e-9)
        << "frame " << where / CHANNELS << " of " << FRAMES;
    // The last frame holds the end burst through the whole impulse, not silence.
    double lastLevel = 0.0;
    for (int i = 1; i <= 16; ++i)
        lastLevel = std::max(lastLevel, std::fabs(output[output.size() - i]));
    EXPECT_GT(lastLevel, 0.05);
}

namespace
{

size_t Occurrences(const std::string& text, const std::string& part)
{
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++count;
    return count;
}

}  // namespace

// A filter that does not load leaves Convolution not valid: process says so
// once, naming the filter and why, and passes every sample on as it was.
TEST_F(ConvolutionProcessTest, FilterThatDoesNotLoadIsToldOnceAndTheAudioPassesOn)
{
    const std::string folder = scratch.Path().string();
    std::ofstream(scratch / "noise.wav") << "not a sound";
    std::ofstream(scratch / "room.cfg") << "48000 2 2 0\n0 0\n0 0\ngone.wav\n0\n0\n0\n";
    std::filesystem::create_directory(scratch / "folder.wav");
    const struct
    {
        const char* filter;  // empty: none chosen
        std::string reason;
    } cases[] = {
        {"", "no filter is chosen ('qvdsp convolution set FILTER' chooses one)"},
        {"missing.wav", "its filter \"" + folder + "/missing.wav\" does not exist"},
        {"folder.wav", "its filter \"" + folder + "/folder.wav\" is a folder"},
        {"noise.wav", "its filter \"" + folder + "/noise.wav\" is not audio that can be decoded"},
        {"room.cfg", "its configuration \"" + folder + "/room.cfg\" fails: line 4: cannot read \"" +
                         folder + "/gone.wav\""},
    };
    const std::vector<double> input = clitest::TestSignal(9000, CHANNELS, 0.9, 8);
    clitest::WriteWithLibsndfile(scratch / "in.wav", DOUBLE_WAV, RATE, CHANNELS, input);
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.filter);
        const std::string filter = *c.filter ? (scratch / c.filter).string() : "";
        ASSERT_EQ(Run({"conv", "set", filter}).exitCode, 0);
        for (const char* mode : {"--block=4096", "--raw"})
        {
            RunResult result = Run({"process", "--chain", "Parametric Equalizer,Convolution", mode,
                                    (scratch / "in.wav").string(), (scratch / "out.wav").string()});
            EXPECT_EQ(result.exitCode, 0) << result.err;
            EXPECT_NE(result.err.find("qvdsp: Convolution is not valid: " + c.reason +
                                      "; it passes the audio on unchanged\n"),
                      std::string::npos)
                << result.err;
            EXPECT_EQ(Occurrences(result.err, "not valid"), 1u) << result.err;
            EXPECT_EQ(clitest::ReadDoubles(scratch / "out.wav"), input) << mode;
        }
    }
}
