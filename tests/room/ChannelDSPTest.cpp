// One speaker: its stored settings, and what Configure makes of them: the
// delay through bytes then frames, the pair gain, the ring that only grows,
// the filter kinds and their fallbacks, and the conditions for sending bass.
#include "room/ChannelDSP.h"

#include <gtest/gtest.h>

#include "RoomTestSupport.h"

using roomtest::MakeFormat;

namespace
{

class ChannelDSPTest : public testing::Test
{
protected:
    qvtest::ScopedFileStore store;
};

}  // namespace

TEST_F(ChannelDSPTest, SettingsRoundTripThroughTheZoneKeyWithTheOldFlatKeyAsDefault)
{
    // Values of the old flat key serve as defaults, read by the text rules
    // (a decimal comma reads as a point).
    store.Write(u"Plugins\\DSP\\QM DSP", u"Channel 1 - Distance (ft)", u"8,5");
    store.Key(u"Plugins\\DSP\\QM DSP")->WriteInt(u"Channel 1 - High-pass Frequency", 80);
    store.Key(u"Zones\\0\\Room Correction")->WriteInt(u"Channel 1 - High-pass Frequency", 120);
    CChannelDSP right(1, 0);
    EXPECT_EQ(right.distanceFeet, 8.5);
    EXPECT_EQ(right.highPassFrequency, 120);  // the zone key wins
    EXPECT_EQ(right.levelDB, 0.0);
    EXPECT_EQ(right.highPassSlope, 12);
    EXPECT_EQ(right.lowPassSlope, 48);
    EXPECT_EQ(right.removedBassRouting, 0);
    EXPECT_FALSE(right.reversePolarity);

    right.levelDB = -3.25;
    right.distanceFeet = 10.5;
    right.reversePolarity = true;
    right.highPassSlope = 36;
    right.lowPassSlope = 24;
    right.removedBassRouting = 2;
    EXPECT_TRUE(right.SaveSettings());
    EXPECT_EQ(store.Read(u"Zones\\0\\Room Correction", u"Channel 1 - Level (dB)"), "-3.25");
    EXPECT_EQ(store.Read(u"Zones\\0\\Room Correction", u"Channel 1 - Distance (ft)"), "10.5");
    // Writing the new place removes the old value.
    EXPECT_EQ(store.Read(u"Plugins\\DSP\\QM DSP", u"Channel 1 - Distance (ft)"), "<none>");
    auto zoneKey = store.Key(u"Zones\\0\\Room Correction");
    EXPECT_EQ(zoneKey->ReadInt(u"Channel 1 - Reverse Polarity", -1, 0), 1);
    EXPECT_EQ(zoneKey->ReadInt(u"Channel 1 - Removed Bass Routing", -1, 0), 2);

    CChannelDSP again(1, 0);
    EXPECT_EQ(again.levelDB, -3.25);
    EXPECT_EQ(again.distanceFeet, 10.5);
    EXPECT_TRUE(again.reversePolarity);
    EXPECT_EQ(again.highPassFrequency, 120);
    EXPECT_EQ(again.highPassSlope, 36);
    EXPECT_EQ(again.lowPassSlope, 24);
    EXPECT_EQ(again.removedBassRouting, 2);
    // Damaged text falls back: a distance beyond the panel's reach is its
    // end, one below 0 or no number at all is none.
    store.Write(u"Zones\\0\\Room Correction", u"Channel 5 - Distance (ft)", u"1e12");
    store.Write(u"Zones\\0\\Room Correction", u"Channel 6 - Distance (ft)", u"-4");
    store.Write(u"Zones\\0\\Room Correction", u"Channel 6 - Level (dB)", u"1e999");
    EXPECT_NEAR(CChannelDSP(5, 0).distanceFeet, 328.084, 1e-3);
    EXPECT_EQ(CChannelDSP(6, 0).distanceFeet, 0.0);
    EXPECT_EQ(CChannelDSP(6, 0).levelDB, 0.0);
    // Another zone and another speaker keep their defaults.
    EXPECT_EQ(CChannelDSP(1, 2).levelDB, 0.0);
    EXPECT_EQ(CChannelDSP(0, 0).removedBassRouting, 0);
}

TEST_F(ChannelDSPTest, DelayIsRoundedOnBytesThenCutToFrames)
{
    // 2 ft nearer: 2 x 1000 / 1116.43701 = 1.7914 ms. At 44,100 Hz in 64-bit
    // stereo, 705,600 bytes a second: 1264.02 bytes, 1264 of them, 79 frames.
    CChannelDSP right(1, 0);
    right.distanceFeet = 8.0;
    const CAudioFormat doubles = MakeFormat(2, 44100);
    ASSERT_EQ(doubles.avgBytesPerSec, 705600u);
    right.Configure(doubles, 1, 10.0, 10.0);
    EXPECT_EQ(right.GetDelayFrames(), 79);
    EXPECT_DOUBLE_EQ(right.gain, 0.8);  // the nearer of the pair, by 8 / 10

    // 0.2684 ft nearer at 16-bit stereo: 0.240407 ms, 42.41 bytes, 42 bytes,
    // 10.5 frames: 10. Rounding frames directly would give 11 (10.6 frames).
    const CAudioFormat pcm16 = CAudioFormat(16 | CAudioFormat::SET_INTEGER, 44100, 2);
    right.distanceFeet = 10.0 - 0.2684;
    right.Configure(pcm16, 1, 10.0, 10.0);
    EXPECT_EQ(right.GetDelayFrames(), 10);

    // The farthest speaker waits for nobody and keeps its level.
    CChannelDSP left(0, 0);
    left.distanceFeet = 10.0;
    left.Configure(doubles, 0, 10.0, 10.0);
    EXPECT_EQ(left.GetDelayFrames(), 0);
    EXPECT_EQ(left.gain, 1.0);

    // Center is delayed like all but keeps its level: it belongs to no pair.
    CChannelDSP center(2, 0);
    center.distanceFeet = 8.0;
    center.levelDB = -6.0;
    center.Configure(MakeFormat(6, 44100), 2, 10.0, 10.0);
    // 2,116,800 bytes a second: 3792.07 bytes, 3792 of them, 79 frames of 48 bytes.
    EXPECT_EQ(center.GetDelayFrames(), 79);
    EXPECT_DOUBLE_EQ(center.gain, std::pow(10.0, -6.0 / 20.0));
}

TEST_F(ChannelDSPTest, DistanceBelowATenthOfAFootIsNoDistance)
{
    CChannelDSP right(1, 0);
    // 0.1 in double precision is below the single-precision 0.1 widened.
    right.distanceFeet = 0.1;
    right.Configure(MakeFormat(2), 1, 20.0, 20.0);
    EXPECT_FALSE(right.HasDistance());
    EXPECT_EQ(right.GetDelayFrames(), 0);
    EXPECT_EQ(right.gain, 1.0);

    right.distanceFeet = static_cast<double>(0.1f);
    right.Configure(MakeFormat(2), 1, 20.0, 20.0);
    EXPECT_TRUE(right.HasDistance());
    EXPECT_GT(right.GetDelayFrames(), 0);
    EXPECT_NEAR(right.gain, 0.1f / 20.0, 1e-15);
}

TEST_F(ChannelDSPTest, RingGrowsForLongDelaysAndKeepsItsContentOtherwise)
{
    CChannelDSP right(1, 0);
    const CAudioFormat format = MakeFormat(2, 48000);
    right.Configure(format, 1, 0.0, 0.0);
    // Capacity of 100 ms: 4800 frames, plus nothing.
    EXPECT_EQ(right.delay.size, 4800);
    right.delay.buffer[17] = 0.5;

    right.distanceFeet = 10.0;
    right.Configure(format, 1, 60.0, 60.0);  // 50 ft: 44.79 ms
    EXPECT_EQ(right.delay.size, 4800);
    EXPECT_EQ(right.delay.buffer[17], 0.5);  // not cleared

    right.Configure(format, 1, 210.0, 210.0);  // 200 ft: 179.14 ms, beyond the capacity
    EXPECT_EQ(right.GetDelayFrames(), 8598);
    EXPECT_EQ(right.delay.size, 8599);
    EXPECT_EQ(right.delay.buffer[17], 0.0);  // a new ring starts from silence

    // An impulse comes out exactly that late.
    std::vector<double> block(2 * 9000, 0.0);
    block[1] = 1.0;
    right.ProcessBlock(block.data() + 1, 9000, format, 1.0, nullptr, 0, 1.0, 1.0);
    for (int32_t f = 0; f < 9000; ++f)
    {
        const double expected = f == 8598 ? 10.0 / 210.0 : 0.0;
        ASSERT_NEAR(block[2 * f + 1], expected, 1e-15) << f;
        ASSERT_EQ(block[2 * f], 0.0);  // the other channel is never touched
    }
}

TEST_F(ChannelDSPTest, FilterKindsAndTheConditionsForSendingBass)
{
    const CAudioFormat six = MakeFormat(6);
    CChannelDSP left(0, 0);

    // Defaults: a 12 dB/octave high-pass against a 48 dB/octave low-pass.
    roomtest::SetCrossover(left, 80, CChannelDSP::ROUTING_MOVE);
    left.Configure(six, 0, 0.0, 0.0);
    EXPECT_TRUE(left.highPassActive);
    EXPECT_TRUE(left.bassToSubwoofer);
    EXPECT_EQ(left.highPass.kind, IIR_HIGHPASS_12);
    EXPECT_EQ(left.bassLowPass.kind, IIR_LOWPASS_48);
    EXPECT_EQ(left.highPass.frequency, 80.0);
    EXPECT_EQ(left.bassLowPass.frequency, 80.0);

    // Unknown slopes fall back in opposite directions.
    roomtest::SetCrossover(left, 80, CChannelDSP::ROUTING_MOVE, 30, 30);
    left.Configure(six, 0, 0.0, 0.0);
    EXPECT_EQ(left.highPass.kind, IIR_HIGHPASS_12);
    EXPECT_EQ(left.bassLowPass.kind, IIR_LOWPASS_48);
    const int32_t slopes[] = {12, 24, 36, 48};
    const int32_t highKinds[] = {IIR_HIGHPASS_12, IIR_HIGHPASS_24, IIR_HIGHPASS_36,
                                 IIR_HIGHPASS_48};
    const int32_t lowKinds[] = {IIR_LOWPASS_12, IIR_LOWPASS_24, IIR_LOWPASS_36, IIR_LOWPASS_48};
    for (int32_t i = 0; i < 4; ++i)
    {
        roomtest::SetCrossover(left, 120, CChannelDSP::ROUTING_MOVE, slopes[i], slopes[i]);
        left.Configure(six, 0, 0.0, 0.0);
        EXPECT_EQ(left.highPass.kind, highKinds[i]);
        EXPECT_EQ(left.bassLowPass.kind, lowKinds[i]);
    }

    // Copy keeps the speaker full range; remove sends nothing.
    roomtest::SetCrossover(left, 80, CChannelDSP::ROUTING_COPY);
    left.Configure(six, 0, 0.0, 0.0);
    EXPECT_FALSE(left.highPassActive);
    EXPECT_TRUE(left.bassToSubwoofer);
    roomtest::SetCrossover(left, 80, CChannelDSP::ROUTING_REMOVE);
    left.Configure(six, 0, 0.0, 0.0);
    EXPECT_TRUE(left.highPassActive);
    EXPECT_FALSE(left.bassToSubwoofer);

    // No subwoofer in the stream, a subwoofer whose bass the source already
    // handled, or a speaker whose own channel is absent: no bass is sent.
    roomtest::SetCrossover(left, 80, CChannelDSP::ROUTING_MOVE);
    left.Configure(MakeFormat(2), 0, 0.0, 0.0);
    EXPECT_FALSE(left.bassToSubwoofer);
    EXPECT_TRUE(left.highPassActive);
    CAudioFormat handled = six;
    handled.channelTable[3].extra = 1;
    left.Configure(handled, 0, 0.0, 0.0);
    EXPECT_FALSE(left.bassToSubwoofer);
    handled.channelTable[3].present = false;  // the bit counts only on a present record
    left.Configure(handled, 0, 0.0, 0.0);
    EXPECT_TRUE(left.bassToSubwoofer);
    CAudioFormat absent = six;
    absent.channelTable[0].present = false;
    left.Configure(absent, 0, 0.0, 0.0);
    EXPECT_FALSE(left.bassToSubwoofer);

    // The subwoofer's own crossover and routing have no effect.
    CChannelDSP sub(3, 0);
    roomtest::SetCrossover(sub, 80, CChannelDSP::ROUTING_MOVE);
    sub.Configure(six, 3, 0.0, 0.0);
    EXPECT_FALSE(sub.highPassActive);
    EXPECT_FALSE(sub.bassToSubwoofer);
}

TEST_F(ChannelDSPTest, ToneSourceFollowsTheFlagAndTheSubwooferGain)
{
    const CAudioFormat six = MakeFormat(6);
    CChannelDSP left(0, 0);
    left.Configure(six, 0, 0.0, 0.0);
    EXPECT_EQ(left.noise, nullptr);
    left.tone = true;
    left.Configure(six, 0, 0.0, 0.0);
    ASSERT_NE(left.noise, nullptr);
    const uint32_t firstSeed = left.noise->seed;
    // -23 dB plus the speaker band's 7.9586 dB.
    EXPECT_NEAR(left.noise->scale,
                std::pow(10.0, (-23.0 + 7.9586) / 20.0) * std::pow(10.0, -0.76667), 1e-15);
    left.Configure(six, 0, 0.0, 0.0);  // a new tone from a new seed
    EXPECT_NE(left.noise->seed, firstSeed);
    left.tone = false;
    left.Configure(six, 0, 0.0, 0.0);
    EXPECT_EQ(left.noise, nullptr);

    // The subwoofer's tone is lowered by the gain its channel gets later.
    CChannelDSP sub(3, 0);
    sub.tone = true;
    sub.Configure(six, 3, 0.0, 0.0);
    ASSERT_NE(sub.noise, nullptr);
    EXPECT_NEAR(sub.noise->scale,
                std::pow(10.0, (-33.0 + 7.0258) / 20.0) * std::pow(10.0, -0.76667), 1e-15);
    EXPECT_EQ(sub.noise->lowPass.frequency, 150.0);
    EXPECT_EQ(sub.noise->highPass.frequency, 25.0);
}
