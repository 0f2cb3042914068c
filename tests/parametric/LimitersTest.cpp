// Brick-wall, adaptive and subwoofer limiter.
#include "parametric/Limiters.h"

#include "ParametricTestSupport.h"
#include "parametric/FilterPanel.h"

using namespace ptest;

TEST(Limiters, CountedSamplesCoverAllChannels)
{
    // 64-bit stereo at 48 kHz: 768000 bytes per second.
    const CAudioFormat stereo = MakeFormat(2);
    EXPECT_EQ(CountedSamples(stereo, 1000.0), 96000);
    EXPECT_EQ(CountedSamples(stereo, 0.01), 0);  // 7.68 bytes: 8 bytes, one sample, no whole frame
    EXPECT_EQ(CountedSamples(MakeFormat(3), 0.1), 12);  // 115.2 bytes: 14 samples less 2
    EXPECT_EQ(CountedSamples(CAudioFormat(16, 44100, 2), 250.0), 22050);
}

TEST(Limiters, BrickWallFlattensTheTops)
{
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    auto limiter = Make<CParametricLimiterFilter>(9);
    limiter->level = -6;
    std::vector<double> block = {0.6, -0.6, 0.4, -0.4, 0.5011872336272722, 1e9};
    limiter->Process(block.data(), 3, &format, &users);
    EXPECT_EQ(block[0], 0.5011872336272722);
    EXPECT_EQ(block[1], -0.5011872336272722);
    EXPECT_EQ(block[2], 0.4);
    EXPECT_EQ(block[3], -0.4);
    EXPECT_EQ(block[4], 0.5011872336272722);
    EXPECT_EQ(block[5], 0.5011872336272722);

    // On mono it acts through Left.
    const CAudioFormat mono = MakeFormat(1);
    std::vector<double> single = {-0.9};
    limiter->Process(single.data(), 1, &mono, &users);
    EXPECT_EQ(single[0], -0.5011872336272722);
}

namespace
{
// Sample count until the envelope of an adaptive limiter starts to fall after
// one loud frame, in a stereo stream where only `channels` are chosen.
int64_t HoldSamples(const ChannelList& channels)
{
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    auto limiter = Make<CParametricLimiterFilter>(9);
    limiter->mode = 1;
    limiter->attack = 0;   // coefficient 1: the envelope jumps to the peak
    limiter->hold = 1;     // 1 ms: 96 counted samples
    limiter->release = 1;  // 10 dB per 96 samples
    limiter->channels = channels;
    std::vector<double> block(2 * 400, 0.5);
    block[0] = block[1] = 4.0;  // +12 dB
    limiter->Process(block.data(), 400, &format, &users);
    // Quiet frames of 0.5 (-6 dB) keep the hold untouched; count the frames
    // that are still reduced by the full 12 dB.
    int64_t frames = 0;
    while (frames + 1 < 400 && block[2 * static_cast<size_t>(frames + 1)] == 0.5 / 4.0)
        ++frames;
    return frames;
}
}  // namespace

TEST(Limiters, AdaptiveHoldRunsLongOnFewerChannels)
{
    const int64_t both = HoldSamples({2, 3});
    const int64_t one = HoldSamples({2});
    EXPECT_EQ(both, 47);  // 96 counted samples, two per frame, less the frame of the peak
    EXPECT_EQ(one, 95);   // one per frame: twice as long as set
}

TEST(Limiters, AdaptiveSpikeRaisesTheEnvelopeByAShareOnly)
{
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    auto limiter = Make<CParametricLimiterFilter>(9);
    limiter->mode = 1;
    limiter->channels = {CAudioFormat::Left, CAudioFormat::Right, CAudioFormat::Center};
    std::vector<double> block = {2.0, 0.5};  // +6 dB spike on Left
    limiter->Process(block.data(), 1, &format, &users);
    ASSERT_TRUE(limiter->prepared);
    const double a = static_cast<double>(CountedSamples(format, 3.0));  // 3000 µs
    EXPECT_EQ(limiter->attackCoefficient, 1.0 / a);
    const double release = 10.0 / static_cast<double>(CountedSamples(format, 30000.0));
    const double afterSpike = (0.0 - release) + (20.0 * std::log10(2.0) - (0.0 - release)) / a;
    EXPECT_DOUBLE_EQ(block[0], 2.0 / std::pow(10.0, afterSpike / 20.0));
    EXPECT_GT(block[0], 1.9);  // reduced by that little
    EXPECT_EQ(limiter->sampleCounter, 2);

    // Only an edit prepares again, and the counter runs on.
    CFilterPanel panel;
    limiter->AttachToPanel(&panel);
    EXPECT_TRUE(panel.Find(CParametricLimiterFilter::CONTROL_ATTACK)->visible);
    EXPECT_FALSE(panel.Find(CParametricLimiterFilter::CONTROL_LIMIT)->visible);
    limiter->UpdateValuesFromPanel();
    EXPECT_FALSE(limiter->prepared);
    EXPECT_EQ(limiter->sampleCounter, 2);
}

TEST(Limiters, SubwooferLimiterPullsDownTheBassFirst)
{
    UserChannelBuffer users;
    auto limiter = Make<CParametricSubwooferLimiterFilter>(14);
    limiter->level = -6;

    // No Sub in stereo: nothing happens, not even the preparation.
    const CAudioFormat stereo = MakeFormat(2);
    const auto input = qvtest::Noise(100, 2, 1, 4.0);
    auto block = input;
    limiter->Process(block.data(), 100, &stereo, &users);
    EXPECT_EQ(block, input);
    EXPECT_FALSE(limiter->prepared);

    // A loud 30 Hz tone on the Sub of 5.1 is held at the limit while its
    // neighbours pass untouched.
    const CAudioFormat surround = MakeFormat(6);
    const int32_t frames = 48000;
    std::vector<double> tone(static_cast<size_t>(frames) * 6, 0.0);
    for (int32_t k = 0; k < frames; ++k)
    {
        tone[static_cast<size_t>(k) * 6 + 3] = 2.0 * std::sin(2 * M_PI * 30 * k / 48000.0);
        tone[static_cast<size_t>(k) * 6 + 0] = 1.5;
    }
    limiter->Process(tone.data(), frames, &surround, &users);
    ASSERT_TRUE(limiter->prepared);
    EXPECT_EQ(limiter->limiter.lowStep, 10.0 / 72000.0);  // 250 ms of 6 channels
    const double limit = std::pow(10.0, -6.0 / 20.0);
    double peak = 0;
    for (int32_t k = 0; k < frames; ++k)
    {
        peak = std::max(peak, std::fabs(tone[static_cast<size_t>(k) * 6 + 3]));
        ASSERT_EQ(tone[static_cast<size_t>(k) * 6], 1.5);
    }
    EXPECT_LE(peak, limit + 1e-12);
    EXPECT_GT(peak, limit * 0.9);
    EXPECT_TRUE(limiter->limiter.active);
    EXPECT_LT(limiter->limiter.lowGainDb, 0.0);
}

TEST(Limiters, SubwooferLimiterRecoversToExactlyZero)
{
    CSubwooferLimiterState state;
    state.limit = 1.0;
    state.split.Design(IIR_LOWPASS_24, 48000, 40.0, 0.0, 0.7071067811865476, true, QVString());
    state.lowStep = state.highStep = 0.25;
    state.active = true;
    state.lowGainDb = -1.0;
    state.highGainDb = -0.5;
    int32_t samples = 0;
    while (state.active && samples < 10)
    {
        state.Process(0.0);
        ++samples;
    }
    EXPECT_EQ(samples, 4);  // both capped at 0 on the fourth step
    EXPECT_EQ(state.lowGain, 1.0);
}
