// The speaker set: which speaker serves which channel, the distance records
// that are never cleared, solo, mute and tone, the common gain, and bass
// management against analytic Butterworth responses.
#include "room/ChannelsDSP.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "RoomTestSupport.h"
#include "support/AllocationCounter.h"

using roomtest::MakeFormat;
using roomtest::RunBlock;

namespace
{

class ChannelsDSPTest : public testing::Test
{
protected:
    std::vector<int32_t> ActiveSpeakers() const
    {
        std::vector<int32_t> speakers;
        for (const CChannelDSP* speaker : engine.activeChannels)
            speakers.push_back(speaker != nullptr ? speaker->channel : -1);
        return speakers;
    }
    CChannelDSP& Speaker(int32_t number) { return engine.Speaker(number); }

    qvtest::ScopedFileStore store;
    CChannelsDSP engine{0};
};

// A test signal whose channels differ, so that a mix-up shows.
std::vector<double> Distinct(int32_t frames, int32_t channels)
{
    std::vector<double> signal = qvtest::Noise(frames, channels, 5, 0.5);
    for (size_t i = 0; i < signal.size(); ++i)
        signal[i] += 0.01 * static_cast<double>(i % static_cast<size_t>(channels));
    return signal;
}

}  // namespace

TEST_F(ChannelsDSPTest, ChannelCountsAndTheSpeakersThatServeThem)
{
    using V = std::vector<int32_t>;
    const std::pair<uint16_t, V> served[] = {
        {1, {0}},
        {2, {0, 1}},
        {4, {0, 1, 4, 5}},
        {6, {0, 1, 2, 3, 4, 5}},
        {8, {0, 1, 2, 3, 6, 7, 4, 5}},
        {10, {0, 1, 2, 3, 6, 7, 4, 5, -1, -1}},
    };
    for (const auto& [channels, speakers] : served)
    {
        EXPECT_TRUE(engine.SetAudioFormat(MakeFormat(channels))) << channels;
        EXPECT_EQ(ActiveSpeakers(), speakers) << channels;
    }
    for (uint16_t channels : {0, 3, 5, 7})
    {
        EXPECT_FALSE(engine.SetAudioFormat(MakeFormat(channels))) << channels;
        std::vector<double> block = Distinct(64, std::max<int32_t>(channels, 1));
        Speaker(0).levelDB = -10.0;  // would change the block if it ran
        EXPECT_FALSE(engine.ProcessBlock(block.data(), 64, 1.0));
        EXPECT_EQ(block, Distinct(64, std::max<int32_t>(channels, 1)));
        Speaker(0).levelDB = 0.0;
    }

    // Channels above the eighth pass untouched, whatever the speakers do.
    for (int32_t speaker = 0; speaker < 8; ++speaker)
        Speaker(speaker).levelDB = -12.0 - speaker;
    ASSERT_TRUE(engine.SetAudioFormat(MakeFormat(10)));
    const std::vector<double> in = Distinct(256, 10);
    const std::vector<double> out = RunBlock(engine, in, 10);
    for (int32_t f = 0; f < 256; ++f)
    {
        EXPECT_EQ(out[f * 10 + 8], in[f * 10 + 8]);
        EXPECT_EQ(out[f * 10 + 9], in[f * 10 + 9]);
        // In 7.1 position 4 is the rear left speaker (number 6), 6 the surround left (4).
        EXPECT_NEAR(out[f * 10 + 4], in[f * 10 + 4] * std::pow(10.0, -6.0 / 20.0), 1e-12);
        EXPECT_NEAR(out[f * 10 + 6], in[f * 10 + 6] * std::pow(10.0, -4.0 / 20.0), 1e-12);
    }
}

TEST_F(ChannelsDSPTest, DistanceMaximaAreKeptAfterASpeakerMovesNearer)
{
    const CAudioFormat stereo = MakeFormat(2, 44100);
    ASSERT_TRUE(engine.SetAudioFormat(stereo));
    // No distances: the records exist and stay at 0; nothing is delayed.
    EXPECT_TRUE(engine.distances.Contains(CChannelDSP::CHANNELSET_ALL));
    EXPECT_TRUE(engine.distances.Contains(CChannelDSP::CHANNELSET_FRONT));
    EXPECT_EQ(engine.Distances(CChannelDSP::CHANNELSET_ALL).maximum, 0.0);
    EXPECT_EQ(Speaker(0).GetDelayFrames(), 0);

    // Only one speaker with a distance: it is the farthest, nothing waits.
    Speaker(0).distanceFeet = 10.0;
    engine.SetAudioFormat(stereo);
    EXPECT_EQ(Speaker(0).GetDelayFrames(), 0);
    EXPECT_EQ(Speaker(1).GetDelayFrames(), 0);
    EXPECT_EQ(Speaker(1).gain, 1.0);

    Speaker(1).distanceFeet = 8.0;
    engine.SetAudioFormat(stereo);
    EXPECT_EQ(Speaker(0).GetDelayFrames(), 0);
    EXPECT_EQ(Speaker(1).GetDelayFrames(), 79);
    EXPECT_DOUBLE_EQ(Speaker(1).gain, 0.8);
    EXPECT_EQ(engine.masterGain, 1.0);
    // An impulse on both: Right comes 79 frames later at 0.8.
    std::vector<double> impulse = qvtest::Impulse(200, 2);
    std::vector<double> out = RunBlock(engine, impulse, 2);
    for (int32_t f = 0; f < 200; ++f)
    {
        ASSERT_EQ(out[2 * f], f == 0 ? 1.0 : 0.0) << f;
        ASSERT_NEAR(out[2 * f + 1], f == 79 ? 0.8 : 0.0, 1e-15) << f;
    }

    // Right moves to 12 ft: now Left waits 79 frames.
    Speaker(1).distanceFeet = 12.0;
    engine.SetAudioFormat(stereo);
    EXPECT_EQ(engine.Distances(CChannelDSP::CHANNELSET_ALL).maximum, 12.0);
    EXPECT_EQ(Speaker(0).GetDelayFrames(), 79);
    EXPECT_EQ(Speaker(1).GetDelayFrames(), 0);

    // Back to 8 ft: the maximum stays at 12, so both wait. 4 ft is 3.5828 ms,
    // 2528.04 bytes, 158 frames. The pair gains are 10/12 and 8/12, and the
    // common gain lifts the louder one back to unity.
    Speaker(1).distanceFeet = 8.0;
    engine.SetAudioFormat(stereo);
    EXPECT_EQ(engine.Distances(CChannelDSP::CHANNELSET_ALL).maximum, 12.0);
    EXPECT_EQ(engine.Distances(CChannelDSP::CHANNELSET_ALL).minimum, 8.0);
    EXPECT_EQ(Speaker(0).GetDelayFrames(), 79);
    EXPECT_EQ(Speaker(1).GetDelayFrames(), 158);
    EXPECT_DOUBLE_EQ(engine.masterGain, 1.2);
    out = RunBlock(engine, qvtest::Impulse(200, 2), 2);
    EXPECT_DOUBLE_EQ(out[2 * 79], 1.0);
    EXPECT_DOUBLE_EQ(out[2 * 158 + 1], 0.8);

    // A pair is compared only with itself: in 5.1 the surround pair at 4 and
    // 5 ft keeps the gains of its own ratio, and the center is not trimmed.
    Speaker(2).distanceFeet = 9.0;
    Speaker(4).distanceFeet = 4.0;
    Speaker(5).distanceFeet = 5.0;
    engine.SetAudioFormat(MakeFormat(6, 44100));
    EXPECT_DOUBLE_EQ(Speaker(4).gain, 0.8);
    EXPECT_EQ(Speaker(5).gain, 1.0);
    EXPECT_EQ(Speaker(2).gain, 1.0);
    // The farthest distance ever seen is still 12 ft: the center at 9 ft
    // waits 2.6871 ms, 5688.09 bytes of 48 a frame: 118 frames.
    EXPECT_EQ(Speaker(2).GetDelayFrames(), 118);
}

TEST_F(ChannelsDSPTest, CommonGainPutsTheLoudestPathAtUnity)
{
    const CAudioFormat stereo = MakeFormat(2);
    const std::vector<double> in = Distinct(512, 2);

    // +20 dB on one speaker: everything else down by 20 dB, and the boosted
    // one passes untouched.
    Speaker(0).levelDB = 20.0;
    engine.SetAudioFormat(stereo);
    EXPECT_NEAR(engine.masterGain, 0.1, 1e-15);
    std::vector<double> out = RunBlock(engine, in, 2);
    for (size_t f = 0; f < 512; ++f)
    {
        ASSERT_EQ(out[2 * f], in[2 * f]);
        ASSERT_NEAR(out[2 * f + 1], in[2 * f + 1] * 0.1, 1e-15);
    }

    // A uniform trim has no effect at all.
    Speaker(0).levelDB = -6.0;
    Speaker(1).levelDB = -6.0;
    engine.SetAudioFormat(stereo);
    EXPECT_EQ(RunBlock(engine, in, 2), in);

    // 0.05 dB is a gain of 1.00577, left out; so is the 0.99426 it leaves
    // the other speaker with.
    Speaker(0).levelDB = 0.05;
    Speaker(1).levelDB = 0.0;
    engine.SetAudioFormat(stereo);
    EXPECT_EQ(RunBlock(engine, in, 2), in);

    // A cut of one speaker only: nothing to make up for, that one is cut.
    Speaker(0).levelDB = -0.5;
    engine.SetAudioFormat(stereo);
    EXPECT_EQ(engine.masterGain, 1.0);
    out = RunBlock(engine, in, 2);
    EXPECT_NEAR(out[0], in[0] * std::pow(10.0, -0.5 / 20.0), 1e-15);
    EXPECT_EQ(out[1], in[1]);

    // A channel's extra gain counts against its speaker's peak.
    Speaker(0).levelDB = 6.0;
    CAudioFormat extra = stereo;
    extra.channelTable[0].extraGainDb = 6.0f;
    engine.SetAudioFormat(extra);
    EXPECT_NEAR(engine.masterGain, 1.0, 1e-12);
}

TEST_F(ChannelsDSPTest, BassOfSeveralSpeakersAddsAsPower)
{
    // Three speakers move their bass: w = sqrt(3) x 10^(-10/20) + 1 with the
    // subwoofer record present.
    for (int32_t speaker : {0, 1, 2})
        roomtest::SetCrossover(Speaker(speaker), 80, CChannelDSP::ROUTING_MOVE);
    engine.SetAudioFormat(MakeFormat(6));
    EXPECT_EQ(engine.bassChannels, 3);
    const double bassGain = std::pow(10.0, -10.0 / 20.0);
    EXPECT_NEAR(engine.bassGain, bassGain, 1e-15);
    EXPECT_NEAR(engine.masterGain, 1.0 / (std::sqrt(3.0) * bassGain + 1.0), 1e-14);

    // Without the subwoofer's own signal in the record only the bass counts.
    CAudioFormat noSubSignal = MakeFormat(6);
    noSubSignal.channelTable[3].present = false;
    engine.SetAudioFormat(noSubSignal);
    EXPECT_NEAR(engine.masterGain, 1.0 / std::max(1.0, std::sqrt(3.0) * bassGain), 1e-14);

    // No bass routed: the subwoofer is a speaker like the others.
    for (int32_t speaker : {0, 1, 2})
        Speaker(speaker).removedBassRouting = CChannelDSP::ROUTING_REMOVE;
    engine.SetAudioFormat(MakeFormat(6));
    EXPECT_EQ(engine.bassChannels, 0);
    EXPECT_EQ(engine.bassGain, 1.0);
    EXPECT_EQ(engine.masterGain, 1.0);
}

TEST_F(ChannelsDSPTest, SoloMuteAndTone)
{
    const CAudioFormat six = MakeFormat(6);
    const std::vector<double> in = Distinct(256, 6);
    const auto heard = [&](const std::vector<double>& out)
    {
        std::vector<int32_t> channels;
        for (int32_t c = 0; c < 6; ++c)
            if (qvtest::Rms(qvtest::ChannelOf(out, 6, c)) > 0.0)
                channels.push_back(c);
        return channels;
    };

    // One soloed, another muted: only the soloed one plays.
    Speaker(1).solo = true;
    Speaker(4).mute = true;
    engine.SetAudioFormat(six);
    EXPECT_EQ(heard(RunBlock(engine, in, 6)), std::vector<int32_t>{1});
    // Soloed and muted: all silent.
    Speaker(1).mute = true;
    engine.SetAudioFormat(six);
    EXPECT_EQ(heard(RunBlock(engine, in, 6)), std::vector<int32_t>{});
    // Mutes alone combine; mute and solo don't enter the common gain.
    Speaker(1).solo = false;
    Speaker(1).levelDB = 20.0;
    engine.SetAudioFormat(six);
    EXPECT_EQ(heard(RunBlock(engine, in, 6)), (std::vector<int32_t>{0, 2, 3, 5}));
    EXPECT_NEAR(engine.masterGain, 0.1, 1e-15);
    Speaker(1).mute = false;
    Speaker(4).mute = false;
    Speaker(1).levelDB = 0.0;

    // A tone on the subwoofer of a stereo stream: it serves no channel, so
    // nothing plays differently.
    Speaker(3).tone = true;
    engine.SetAudioFormat(MakeFormat(2));
    const std::vector<double> stereo = Distinct(256, 2);
    EXPECT_EQ(RunBlock(engine, stereo, 2), stereo);

    // In 5.1 the subwoofer's tone replaces its input, ignores the bass of
    // the others, silences them, and keeps the common gain at 1 so the level
    // is exact; the host's test level scales it.
    for (int32_t speaker : {0, 1, 2})
        roomtest::SetCrossover(Speaker(speaker), 80, CChannelDSP::ROUTING_MOVE);
    engine.SetAudioFormat(six);
    EXPECT_EQ(engine.masterGain, 1.0);
    ASSERT_NE(Speaker(3).noise, nullptr);
    CCalibrationNoise reference(48000.0, true, -33.0);
    reference.seed = Speaker(3).noise->seed;
    const std::vector<double> out = RunBlock(engine, in, 6, 0.5);
    EXPECT_EQ(heard(out), std::vector<int32_t>{3});
    for (int32_t f = 0; f < 256; ++f)
        ASSERT_NEAR(out[6 * f + 3], 0.5 * reference.Next(), 1e-15) << f;
}

TEST_F(ChannelsDSPTest, BassManagementMeetsTheAnalyticResponses)
{
    // An impulse on the three front speakers of 5.1, the subwoofer silent.
    // Moved: each main channel is the designed high-pass; the subwoofer is
    // the low-pass of the three summed, times bassGain. All times the common
    // gain, which makes room for that sum.
    const double rate = 48000.0;
    const int32_t frames = 1 << 15;
    const auto run = [&]
    {
        std::vector<double> block(static_cast<size_t>(frames) * 6, 0.0);
        for (int32_t c : {0, 1, 2})
            block[static_cast<size_t>(c)] = 1.0;
        return RunBlock(engine, block, 6);
    };
    const double frequencies[] = {20.0, 40.0, 60.0, 80.0, 120.0, 240.0, 1000.0};

    for (int32_t speaker : {0, 1, 2})
        roomtest::SetCrossover(Speaker(speaker), 80, CChannelDSP::ROUTING_MOVE, 24, 48);
    engine.SetAudioFormat(MakeFormat(6));
    const double bassGain = std::pow(10.0, -0.5);
    const double master = 1.0 / (std::sqrt(3.0) * bassGain + 1.0);
    std::vector<double> out = run();
    for (double f : frequencies)
    {
        const double sub = std::abs(roomtest::ResponseAt(qvtest::ChannelOf(out, 6, 3), f, rate));
        EXPECT_NEAR(sub, master * bassGain * 3.0 * roomtest::ButterworthLowPass(8, f, 80.0, rate),
                    1e-6)
            << f;
        for (int32_t c : {0, 1, 2})
        {
            const double main =
                std::abs(roomtest::ResponseAt(qvtest::ChannelOf(out, 6, c), f, rate));
            EXPECT_NEAR(main, master * roomtest::ButterworthHighPass(4, f, 80.0, rate), 1e-6) << f;
        }
        EXPECT_EQ(qvtest::Rms(qvtest::ChannelOf(out, 6, 4)), 0.0);
    }

    // Copied: the main channels stay full range (an impulse stays one).
    for (int32_t speaker : {0, 1, 2})
        roomtest::SetCrossover(Speaker(speaker), 80, CChannelDSP::ROUTING_COPY, 24, 12);
    engine.SetAudioFormat(MakeFormat(6));
    out = run();
    EXPECT_NEAR(out[0], master, 1e-15);
    for (int32_t f = 1; f < frames; ++f)
        ASSERT_EQ(out[6 * static_cast<size_t>(f)], 0.0) << f;
    for (double f : frequencies)
    {
        const double sub = std::abs(roomtest::ResponseAt(qvtest::ChannelOf(out, 6, 3), f, rate));
        EXPECT_NEAR(sub, master * bassGain * 3.0 * roomtest::ButterworthLowPass(2, f, 80.0, rate),
                    1e-6)
            << f;
    }

    // Removed: high-passed mains, nothing reaches the subwoofer.
    for (int32_t speaker : {0, 1, 2})
        roomtest::SetCrossover(Speaker(speaker), 80, CChannelDSP::ROUTING_REMOVE, 48, 48);
    engine.SetAudioFormat(MakeFormat(6));
    EXPECT_EQ(engine.masterGain, 1.0);
    out = run();
    EXPECT_EQ(qvtest::Rms(qvtest::ChannelOf(out, 6, 3)), 0.0);
    for (double f : frequencies)
        EXPECT_NEAR(std::abs(roomtest::ResponseAt(qvtest::ChannelOf(out, 6, 1), f, rate)),
                    roomtest::ButterworthHighPass(8, f, 80.0, rate), 1e-6)
            << f;
}

TEST_F(ChannelsDSPTest, BassLeavesBeforeTheSpeakersOwnLevelDelayAndPolarity)
{
    // Left moves its bass but is muted, reversed, delayed and trimmed: the
    // subwoofer still gets exactly what an untouched Left would have sent.
    roomtest::SetCrossover(Speaker(0), 80, CChannelDSP::ROUTING_MOVE);
    engine.SetAudioFormat(MakeFormat(6));
    const std::vector<double> in = Distinct(4096, 6);
    const std::vector<double> plain = RunBlock(engine, in, 6);

    CChannelsDSP other(0);
    roomtest::SetCrossover(other.Speaker(0), 80, CChannelDSP::ROUTING_MOVE);
    other.Speaker(0).mute = true;
    other.Speaker(0).reversePolarity = true;
    other.Speaker(0).levelDB = -9.0;
    other.Speaker(0).distanceFeet = 3.0;
    other.Speaker(1).distanceFeet = 13.0;
    other.SetAudioFormat(MakeFormat(6));
    ASSERT_EQ(other.masterGain, engine.masterGain);
    const std::vector<double> out = RunBlock(other, in, 6);
    EXPECT_EQ(qvtest::Rms(qvtest::ChannelOf(out, 6, 0)), 0.0);
    EXPECT_EQ(qvtest::ChannelOf(out, 6, 3), qvtest::ChannelOf(plain, 6, 3));
}

TEST_F(ChannelsDSPTest, SteadyBlocksAllocateNothingAndSplitsChangeNothing)
{
    // 7.1, every main speaker crossed over and moving its bass, distances set.
    const auto configure = [](CChannelsDSP& channels)
    {
        for (int32_t speaker = 0; speaker < 8; ++speaker)
        {
            CChannelDSP& each = channels.Speaker(speaker);
            if (speaker != CChannelDSP::SUBWOOFER)
                roomtest::SetCrossover(each, 80, CChannelDSP::ROUTING_MOVE);
            each.distanceFeet = 6.0 + speaker;
            each.levelDB = -1.0 * speaker;
        }
        channels.Speaker(5).reversePolarity = true;
    };
    const CAudioFormat format = MakeFormat(8);
    const std::vector<double> in = Distinct(6000, 8);

    configure(engine);
    engine.SetAudioFormat(format);
    const std::vector<double> whole = RunBlock(engine, in, 8);

    CChannelsDSP split(0);
    configure(split);
    split.SetAudioFormat(format);
    std::vector<double> pieces = in;
    const int32_t pattern[] = {1, 31, 127, 1000};
    int32_t done = 0;
    for (int32_t i = 0; done < 6000; ++i)
    {
        const int32_t count = std::min(pattern[i % 4], 6000 - done);
        if (i >= 8)
        {
            // Past the growth of the bass buffer to 1000 frames: nothing allocates.
            qvtest::ScopedAllocationCount allocations;
            split.ProcessBlock(pieces.data() + done * 8, count, 1.0);
            ASSERT_EQ(allocations.Allocations(), 0) << i;
        }
        else
        {
            split.ProcessBlock(pieces.data() + done * 8, count, 1.0);
        }
        done += count;
    }
    EXPECT_EQ(pieces, whole);
}
