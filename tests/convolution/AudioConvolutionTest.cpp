#include <gtest/gtest.h>

#include <fftw3.h>

#include <algorithm>
#include <cmath>

#include "ConvolutionTestSupport.h"
#include "support/AllocationCounter.h"

using namespace convtest;

namespace
{

// Full scale is 1.0; the transforms may round, the algorithm may not differ.
constexpr double kTolerance = 1e-9;

void ExpectClose(const std::vector<double>& actual, const std::vector<double>& expected,
                 const std::string& what)
{
    ASSERT_EQ(actual.size(), expected.size()) << what;
    double worst = 0.0;
    size_t where = 0;
    for (size_t i = 0; i < actual.size(); ++i)
        if (std::fabs(actual[i] - expected[i]) > worst)
        {
            worst = std::fabs(actual[i] - expected[i]);
            where = i;
        }
    EXPECT_LT(worst, kTolerance) << what << ": sample " << where;
}

// What the engine must emit after a reset: the first N/2 frames of the
// stream never come out as such, so output frame m is stream frame N/2 + m of
// the windowed convolution, for as many whole blocks as the input completed.
std::vector<double> ExpectedOutput(const std::vector<std::vector<double>>& convolved,
                                   int32_t fftSize, size_t inputFrames)
{
    const size_t half = fftSize / 2;
    const size_t blocks =
        inputFrames >= static_cast<size_t>(fftSize) ? (inputFrames - fftSize) / half + 1 : 0;
    std::vector<std::vector<double>> cut;
    for (const auto& channel : convolved)
        cut.emplace_back(channel.begin() + half, channel.begin() + half + blocks * half);
    return cut[0].empty() ? std::vector<double>() : Interleave(cut);
}

}  // namespace

// Impulses shorter and longer than a block, in partitions, on both channels
// of a stereo stream, against the direct sum, for calls of 1, 31, 127 frames
// and one call of everything: the output must not depend on how it is fed.
TEST(AudioConvolution, ImpulseFileMatchesWindowedConvolutionForAnyCallSize)
{
    TempFolder folder;
    const CAudioFormat format = MakeFormat(2);
    const std::vector<double> input = Noise(2 * 6000, 7);
    for (int taps : {100, 512, 2900})
    {
        const std::vector<double> left = DecayingImpulse(taps, 1);
        const std::vector<double> right = DecayingImpulse(taps, 2);
        const std::string name = folder.File("impulse" + std::to_string(taps) + ".wav");
        WriteWav(name, Interleave({left, right}), 2, 48000);
        LoadedEngine loaded(name, format);
        CAudioConvolution& engine = loaded.engine;
        ASSERT_TRUE(engine.IsValid());
        ASSERT_EQ(engine.fftSize, 1024);
        EXPECT_EQ(engine.partitionCount, (taps + 511) / 512);

        const std::vector<double> expected =
            ExpectedOutput({WindowedConvolution(ChannelOf(input, 2, 0), left, 512),
                            WindowedConvolution(ChannelOf(input, 2, 1), right, 512)},
                           engine.fftSize, input.size() / 2);
        for (int chunk : {1, 31, 127, 6000})
        {
            engine.Reset();
            ExpectClose(RunEngine(engine, input, 2, chunk), expected,
                        std::to_string(taps) + " taps, calls of " + std::to_string(chunk));
        }
    }
}

// A mono impulse filters the first channel only; the second passes through
// aligned with it and scaled by the same volume.
TEST(AudioConvolution, MonoImpulseOnStereoPassesTheSecondChannelAligned)
{
    TempFolder folder;
    const std::vector<double> impulse = DecayingImpulse(1500, 3);
    WriteWav(folder.File("mono.wav"), impulse, 1, 44100);
    LoadedEngine loaded(folder.File("mono.wav"), MakeFormat(2, 44100));
    ASSERT_TRUE(loaded.engine.IsValid());
    EXPECT_EQ(loaded.engine.paths.GetCount(), 1);
    const std::vector<double> input = Noise(2 * 5000, 11);
    const std::vector<double> right = ChannelOf(input, 2, 1);
    ExpectClose(RunEngine(loaded.engine, input, 2, 333),
                ExpectedOutput({WindowedConvolution(ChannelOf(input, 2, 0), impulse, 512), right},
                               loaded.engine.fftSize, 5000),
                "mono on stereo");
}

// The full window of a 48 kHz stream, N = 8192, with a long impulse of many
// partitions on a multi-channel stream whose file has fewer channels.
TEST(AudioConvolution, LongImpulseOnMultiChannelStreamAtFullWindow)
{
    TempFolder folder;
    const int taps = 20000;
    std::vector<std::vector<double>> impulses;
    for (uint32_t c = 0; c < 4; ++c)
        impulses.push_back(DecayingImpulse(taps, 20 + c));
    WriteWav(folder.File("quad.wav"), Interleave(impulses), 4, 48000);
    LoadedEngine loaded(folder.File("quad.wav"), MakeFormat(6), false);
    CAudioConvolution& engine = loaded.engine;
    ASSERT_TRUE(engine.IsValid());
    EXPECT_EQ(engine.fftSize, 8192);
    EXPECT_EQ(engine.partitionCount, 5);  // 20000 taps in hops of 4096

    const size_t frames = 30000;
    const std::vector<double> input = Noise(6 * frames, 5);
    std::vector<std::vector<double>> convolved;
    for (int c = 0; c < 6; ++c)
        convolved.push_back(c < 4 ? WindowedConvolution(ChannelOf(input, 6, c), impulses[c], 4096)
                                  : ChannelOf(input, 6, c));
    ExpectClose(RunEngine(engine, input, 6, 4999), ExpectedOutput(convolved, 8192, frames),
                "6 channels, 4 impulses");
}

// Raw behaviour after a reset: calls of one frame give nothing for N - 1
// calls, then a whole block at once; the latency figure rises by one per
// call and falls back by a block when the block comes out.
TEST(AudioConvolution, OneFrameCallsAndTheLatencyFigure)
{
    TempFolder folder;
    std::vector<double> impulse(700, 0.0);
    impulse[300] = 1.0;  // a pure delay of 300 frames
    WriteWav(folder.File("delay.wav"), impulse, 1, 48000);
    LoadedEngine loaded(folder.File("delay.wav"), MakeFormat(1));
    CAudioConvolution& engine = loaded.engine;
    ASSERT_TRUE(engine.IsValid());
    EXPECT_EQ(engine.latencyPeak, 300);
    EXPECT_EQ(engine.GetLatency(), 300 - 512);

    const std::vector<double> input = Noise(1024, 9);
    for (int frame = 0; frame < 1023; ++frame)
    {
        engine.Process(&input[frame], 1);
        ASSERT_EQ(engine.GetOutputFrames(), 0) << "frame " << frame;
        ASSERT_EQ(engine.GetLatency(), 300 - 512 + frame + 1);
    }
    engine.Process(&input[1023], 1);
    ASSERT_EQ(engine.GetOutputFrames(), 512);
    EXPECT_EQ(engine.GetLatency(), 300);
    // Output frame k is input frame 512 + k - 300: the first 512 frames of
    // the stream only reach the output through the delay.
    for (int k = 0; k < 512; ++k)
        EXPECT_NEAR(engine.GetOutput()[k], input[512 + k - 300], kTolerance);
}

TEST(AudioConvolution, ChannelsWithoutAnyPathPassThroughWithoutTheFirstHalfWindow)
{
    TempFolder folder;
    // All zero: the path is dropped, the filter still loads.
    WriteWav(folder.File("zero.wav"), std::vector<double>(300, 0.0), 1, 48000);
    LoadedEngine loaded(folder.File("zero.wav"), MakeFormat(2));
    ASSERT_TRUE(loaded.engine.IsValid());
    EXPECT_EQ(loaded.engine.paths.GetCount(), 0);
    EXPECT_EQ(loaded.engine.volume, 1.0);
    const std::vector<double> input = Noise(2 * 2048, 4);
    const std::vector<double> out = RunEngine(loaded.engine, input, 2, 100);
    ASSERT_EQ(out.size(), 2u * 1536);
    for (size_t i = 0; i < out.size(); ++i)
        ASSERT_EQ(out[i], input[2 * 512 + i]);
}

TEST(AudioConvolution, SteadyBlocksAllocateNothing)
{
    TempFolder folder;
    WriteWav(folder.File("ir.wav"),
             Interleave({DecayingImpulse(3000, 1), DecayingImpulse(3000, 2)}), 2, 48000);
    LoadedEngine loaded(folder.File("ir.wav"), MakeFormat(2));
    const std::vector<double> input = Noise(2 * 4096, 3);
    // Two calls: the first completes one block fewer than the steady ones.
    loaded.engine.Process(input.data(), 4096);
    loaded.engine.Process(input.data(), 4096);
    qvtest::ScopedAllocationCount count;
    for (int i = 0; i < 5; ++i)
        loaded.engine.Process(input.data(), 4096);
    EXPECT_EQ(count.Allocations(), 0);
}

// The level of the filter is measured with pink noise: a unit impulse keeps
// the level, so the volume lands at 6 dB below; an impulse of 0.25 needs four
// times that. Without normalisation the volume is exactly 1.
TEST(AudioConvolution, NormalisationPutsTheFilteredNoiseSixDecibelsDown)
{
    TempFolder folder;
    std::vector<double> unit(64, 0.0);
    unit[0] = 1.0;
    WriteWav(folder.File("unit.wav"), unit, 1, 48000);
    unit[0] = 0.25;
    WriteWav(folder.File("quarter.wav"), unit, 1, 48000);

    LoadedEngine plain(folder.File("unit.wav"), MakeFormat(1), true, 0);
    EXPECT_NEAR(plain.engine.volume, std::pow(10.0, -0.3), 1e-3);
    LoadedEngine quarter(folder.File("quarter.wav"), MakeFormat(1), true, 0);
    EXPECT_NEAR(quarter.engine.volume, 4.0 * std::pow(10.0, -0.3), 4e-3);
    quarter.engine.SetVolumeMode(1);
    EXPECT_EQ(quarter.engine.volume, 1.0);
    quarter.engine.SetVolumeMode(0);
    EXPECT_NEAR(quarter.engine.volume, 4.0 * std::pow(10.0, -0.3), 4e-3);
    // The measurement leaves the windows empty and the figures cleared.
    EXPECT_EQ(quarter.engine.fillPosition, 0);
    EXPECT_EQ(quarter.engine.performance, 0.0);
}

// The window follows 100 ms of the stream, at least 1024 frames, and 1024
// with small filters; a format that is not 64-bit changes nothing.
TEST(AudioConvolution, WindowSizeByRateAndSmallFilters)
{
    TempFolder folder;
    WriteWav(folder.File("ir.wav"), DecayingImpulse(100, 1), 1, 8000);
    struct Case
    {
        uint32_t rate;
        int32_t fftSize;
    };
    for (const Case& c : {Case{8000, 1024}, Case{44100, 8192}, Case{48000, 8192},
                          Case{96000, 16384}, Case{192000, 32768}, Case{384000, 65536}})
    {
        LoadedEngine loaded(folder.File("ir.wav"), MakeFormat(1, c.rate), false);
        EXPECT_EQ(loaded.engine.fftSize, c.fftSize) << c.rate;
        EXPECT_EQ(loaded.engine.blockSize, c.fftSize / 2) << c.rate;
        loaded.engine.SetSmallFilters(true);
        EXPECT_EQ(loaded.engine.fftSize, 1024) << c.rate;
        const CAudioFormat pcm16(16, c.rate, 1);
        EXPECT_FALSE(loaded.engine.Load(&pcm16, true));
        EXPECT_EQ(loaded.engine.fftSize, 1024);
        EXPECT_TRUE(loaded.engine.IsValid());
    }
}

namespace
{

// The plain linear convolution through one transform of the whole signal,
// then without the products that the first window's first half makes with
// the partitions it never met: frame n < N/2 reaches output frame t only
// through taps below the start of t's hop. The same as WindowedConvolution,
// in a time that allows impulses of hundreds of thousands of taps.
std::vector<double> WindowedConvolutionByTransform(const std::vector<double>& x,
                                                   const std::vector<double>& h, size_t half)
{
    size_t size = 1;
    while (size < x.size() + h.size())
        size *= 2;
    const size_t points = size / 2 + 1;
    std::vector<double> a(size, 0.0), b(size, 0.0), y(size);
    std::copy(x.begin(), x.end(), a.begin());
    std::copy(h.begin(), h.end(), b.begin());
    std::vector<fftw_complex> fa(points), fb(points);
    fftw_plan pa = fftw_plan_dft_r2c_1d(static_cast<int>(size), a.data(), fa.data(), FFTW_ESTIMATE);
    fftw_plan pb = fftw_plan_dft_r2c_1d(static_cast<int>(size), b.data(), fb.data(), FFTW_ESTIMATE);
    fftw_execute(pa);
    fftw_execute(pb);
    for (size_t k = 0; k < points; ++k)
    {
        const double re = fa[k][0] * fb[k][0] - fa[k][1] * fb[k][1];
        const double im = fa[k][0] * fb[k][1] + fa[k][1] * fb[k][0];
        fa[k][0] = re / static_cast<double>(size);
        fa[k][1] = im / static_cast<double>(size);
    }
    fftw_plan pi = fftw_plan_dft_c2r_1d(static_cast<int>(size), fa.data(), y.data(), FFTW_ESTIMATE);
    fftw_execute(pi);
    fftw_destroy_plan(pa);
    fftw_destroy_plan(pb);
    fftw_destroy_plan(pi);
    y.resize(x.size());
    for (size_t t = 0; t < y.size(); ++t)
        for (size_t n = 0; n <= t % half && n <= t; ++n)
            if (t - n < h.size())
                y[t] -= h[t - n] * x[n];
    return y;
}

}  // namespace

// An impulse of many blocks goes mostly into larger partitions. Through a
// configuration: output 0 mixes both inputs at different gains (the mix is
// built for the larger partitions in the time domain), output 1 takes input
// 1 at a common gain folded into the filter, delayed by 120 frames. Calls
// of any size give the windowed convolution, first blocks included, and the
// steady blocks of the larger partitions allocate nothing.
TEST(AudioConvolution, LargerPartitionsMatchTheWindowedConvolution)
{
    TempFolder folder;
    const int taps = 24000;  // 8 blocks of 512, then 5 partitions of 4096
    const std::vector<double> left = DecayingImpulse(taps, 31);
    const std::vector<double> right = DecayingImpulse(taps, 32);
    WriteWav(folder.File("long.wav"), Interleave({left, right}), 2, 48000);
    WriteText(folder.File("long.cfg"),
              "48000 2 2 0\n0 0\n0 2.5\nlong.wav\n0\n0.5 1.25\n0\nlong.wav\n1\n1.5\n1\n");
    LoadedEngine loaded(folder.File("long.cfg"), MakeFormat(2));
    CAudioConvolution& engine = loaded.engine;
    ASSERT_TRUE(engine.IsValid());
    ASSERT_EQ(engine.paths.GetCount(), 2);
    EXPECT_TRUE(engine.paths[0]->mixing);
    EXPECT_FALSE(engine.paths[1]->mixing);
    EXPECT_EQ(engine.paths[0]->GetPartitions(), 47);
    EXPECT_EQ(engine.paths[1]->GetPartitions(), 48);  // 120 frames of delay
    EXPECT_EQ(engine.paths[0]->GetHeadPartitions(), 8);
    EXPECT_EQ(engine.partitionCount, 48);

    const size_t frames = 36000;
    const std::vector<double> input = Noise(2 * frames, 17);
    const std::vector<double> x0 = ChannelOf(input, 2, 0);
    const std::vector<double> x1 = ChannelOf(input, 2, 1);
    std::vector<double> mix(frames), half1(frames);
    for (size_t i = 0; i < frames; ++i)
    {
        mix[i] = 0.5 * x0[i] + 0.25 * x1[i];
        half1[i] = 0.5 * x1[i];
    }
    const std::vector<double> expected = ExpectedOutput(
        {WindowedConvolution(mix, left, 512), WindowedConvolution(half1, right, 512, 120)},
        engine.fftSize, frames);
    for (int chunk : {1, 31, 127, static_cast<int>(frames)})
    {
        engine.Reset();
        ExpectClose(RunEngine(engine, input, 2, chunk), expected,
                    "calls of " + std::to_string(chunk));
    }

    // Past the first 47 blocks only the steady work remains, the larger
    // partitions' runs every 8 blocks included.
    engine.Process(input.data(), 512 * 50);
    qvtest::ScopedAllocationCount count;
    engine.Process(input.data(), 512 * 20);
    EXPECT_EQ(count.Allocations(), 0);
}

// Two levels of larger partitions (4096 and 32768 frames at 512-frame
// blocks) behind the head, against the windowed convolution computed through
// one transform of the whole signal.
TEST(AudioConvolution, TwoLevelsOfLargerPartitionsMatchTheWindowedConvolution)
{
    TempFolder folder;
    const int taps = 170000;
    std::vector<double> impulse = DecayingImpulse(taps, 41);
    for (double& tap : impulse)
        tap /= 50.0;  // keeps the output near full scale
    WriteWav(folder.File("hall.wav"), impulse, 1, 48000);
    LoadedEngine loaded(folder.File("hall.wav"), MakeFormat(1));
    CAudioConvolution& engine = loaded.engine;
    ASSERT_TRUE(engine.IsValid());
    EXPECT_EQ(engine.paths[0]->GetHeadPartitions(), 8);
    EXPECT_EQ(engine.paths[0]->GetPartitions(), (taps + 511) / 512);

    const size_t frames = 240000;
    const std::vector<double> input = Noise(frames, 23);
    const std::vector<double> expected = ExpectedOutput(
        {WindowedConvolutionByTransform(input, impulse, 512)}, engine.fftSize, frames);
    for (int chunk : {1, 4999})
    {
        engine.Reset();
        ExpectClose(RunEngine(engine, input, 1, chunk), expected,
                    "calls of " + std::to_string(chunk));
    }
}

// The layout of the partitions: 8 blocks first, then levels 8 times larger
// of 7 partitions each, a level opened only when the rest fills half of it.
TEST(AudioConvolution, PartitionLayoutGrowsByLevelsThatPayForThemselves)
{
    const auto counts = [](int64_t taps)
    {
        std::vector<int32_t> result;
        int64_t covered = 0;
        int64_t last = 0;
        for (const CPartitionLevel& level : LayoutPartitions(taps, 4096))
        {
            EXPECT_EQ(level.offset, covered) << taps;
            // A level's output is due no earlier than one block after the
            // window that completes its input.
            EXPECT_GE(level.offset, level.size == 4096 ? 0 : level.size) << taps;
            covered += static_cast<int64_t>(level.size) * level.count;
            last = level.size;
            result.push_back(level.count);
        }
        EXPECT_GE(covered, taps);
        EXPECT_LT(covered - taps, last) << "a partition beyond the impulse";
        return result;
    };
    EXPECT_EQ(counts(100), std::vector<int32_t>({1}));
    EXPECT_EQ(counts(65536), std::vector<int32_t>({16}));        // a level would not pay
    EXPECT_EQ(counts(40 * 4096), std::vector<int32_t>({8, 4}));  // half a level: it pays
    EXPECT_EQ(counts(262144), std::vector<int32_t>({8, 7}));     // 8 + 7 x 8 blocks
    EXPECT_EQ(counts(262145), std::vector<int32_t>({8, 8}));     // no third level yet
    EXPECT_EQ(counts(320 * 4096), std::vector<int32_t>({8, 7, 4}));
}
