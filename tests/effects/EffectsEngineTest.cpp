// The engine: what Configure derives from the tables, the virtual subwoofer
// and its envelope, the surround field, the channel layouts of the reverb,
// and what Flush and a change of environment do to a ringing tail.
#include "effects/EffectsEngine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "EffectsTestSupport.h"

using fxtest::MakePlugin;
using fxtest::RunWhole;

TEST(EffectsEngine, ConfigureTakesTheTables)
{
    auto plugin = MakePlugin({}, 2);
    CEffectsEngine& engine = plugin->GetEngine();
    CDSPSettings::Values& words = plugin->GetSettings().values;
    for (int32_t environment = 1; environment <= 5; ++environment)
    {
        for (int32_t amount = 1; amount <= 10; ++amount)
        {
            words.environment = environment;
            words.reverbAmount = amount;
            engine.Configure();
            const fxtest::Room& room = fxtest::ROOMS[environment];
            for (const CReverbModel& reverb : engine.reverbs)
            {
                EXPECT_EQ(reverb.damp, room.damp);
                EXPECT_EQ(reverb.roomSize, room.roomSize);
                EXPECT_EQ(reverb.width, room.width);
                EXPECT_EQ(reverb.dry, (0.7 - amount * 0.025) * 2.0);
                EXPECT_EQ(reverb.wet, amount * 0.025 * 3.0);
                EXPECT_EQ(reverb.wet1, (room.width * 0.5 + 0.5) * reverb.wet);
                EXPECT_EQ(reverb.combs[1][5].feedback, room.roomSize);
                EXPECT_EQ(reverb.combs[0][2].damp1, room.damp);
            }
        }
    }
    // At 4 the direct sound is 1.2 and the reverb 0.3; only at 8 do they meet 1.
    words.reverbAmount = 4;
    engine.Configure();
    EXPECT_NEAR(engine.reverbs[0].dry, 1.2, 1e-15);
    EXPECT_NEAR(engine.reverbs[0].wet, 0.3, 1e-15);

    // No environment, or one the table lacks, leaves the room as it was; the
    // amount still applies.
    words.environment = 2;
    engine.Configure();
    for (int32_t environment : {0, 6, -1, 1000})
    {
        words.environment = environment;
        words.reverbAmount = 7;
        engine.Configure();
        EXPECT_EQ(engine.reverbs[3].roomSize, fxtest::ROOMS[2].roomSize);
        EXPECT_EQ(engine.reverbs[3].width, 1.2);
        EXPECT_EQ(engine.reverbs[3].wet, 7 * 0.025 * 3.0);
    }

    // Subwoofer sizes in steps of 3 dB of level (10^0.15), and the headroom
    // factor 1 / (gain x 0.55 + 1) worked out by hand.
    const double gains[6] = {0.0, 0.70794578, 1.0, 1.41253754, 1.99526231, 3.98107171};
    for (int32_t size = 0; size < 6; ++size)
        EXPECT_NEAR(CEffectsEngine::SubwooferGain(size), gains[size], 1e-8) << size;
    EXPECT_EQ(CEffectsEngine::SubwooferGain(6), 0.0);
    EXPECT_EQ(CEffectsEngine::SubwooferGain(-2), 0.0);

    // Surround widths; "(none)" and unknown indices keep the neutral 0.5.
    const double widths[5] = {0.5, 0.625, 0.75, 1.0, 1.5};
    for (int32_t field : {0, 1, 2, 3, 4, 5, 99})
    {
        words.surroundField = field;
        engine.Configure();
        EXPECT_EQ(engine.surroundWidth, field < 5 ? widths[field] : 0.5) << field;
    }
}

TEST(EffectsEngine, BassEnvelopeRatesAndLevelsInSinglePrecision)
{
    CBassEnvelope envelope;
    // 44.1 kHz, 16-bit stereo: 2 ms are 353 bytes, so 88 frames (not 88.2);
    // 200 ms are 35280 bytes, 8820 frames.
    envelope.Reset(CAudioFormat(16, 44100, 2));
    EXPECT_EQ(envelope.fastRate, 1.0f / 88.0f);
    EXPECT_EQ(envelope.slowRate, 1.0f / 8820.0f);
    envelope.Reset(CAudioFormat(64, 48000, 6));
    EXPECT_EQ(envelope.fastRate, 1.0f / 96.0f);
    EXPECT_EQ(envelope.slowRate, 1.0f / 9600.0f);
    EXPECT_EQ(envelope.format.channels, 6);
    // A rate too low for a frame in 2 ms follows at once instead of failing.
    envelope.Reset(CAudioFormat(16, 200, 1));
    EXPECT_EQ(envelope.fastRate, 1.0f);
    envelope.Reset(CAudioFormat(64, 48000, 2));

    // Silence: no slow level yet, so the ratio counts as 1 and the gain is 0.2.
    EXPECT_EQ(envelope.Process(0.0f), 0.0f);
    EXPECT_EQ(envelope.fastLevel, 0.0f);
    // An attack after silence: the fast level leads the slow one by 100, so
    // the gain is clamped at 1 and the sample passes whole.
    EXPECT_EQ(envelope.Process(0.5f), 0.5f);
    // Steady bass settles at 0.2.
    float out = 0.0f;
    for (int32_t n = 0; n < 48000 * 10; ++n)
        out = envelope.Process(-0.5f);
    EXPECT_NEAR(out / -0.5f, 0.2f, 1e-3f);
    EXPECT_GE(out / -0.5f, 0.2f);

    // Against the reference over a signal with attacks and decays.
    fxtest::ReferenceEnvelope reference(96, 9600);
    envelope.Reset(CAudioFormat(64, 48000, 2));
    const std::vector<double> noise = qvtest::Noise(20000, 1, 5, 1.0);
    for (int32_t n = 0; n < 20000; ++n)
    {
        const float x = static_cast<float>(noise[n] * ((n / 3000) % 2 ? 1.0 : 0.05));
        ASSERT_EQ(envelope.Process(x), reference(x)) << n;
    }
}

TEST(EffectsEngine, VirtualSubwooferAddsTheEnvelopedBassAndLowersEverything)
{
    // 8": gain 1, so k = 1 / 1.55; 15": k = 1 / (3.98107 x 0.55 + 1) = 0.31352.
    for (const auto& [size, k] : {std::pair{2, 1.0 / 1.55}, std::pair{5, 0.31352}})
    {
        auto plugin = MakePlugin({0, 4, size, 0}, 2, 48000);
        const double gain = CEffectsEngine::SubwooferGain(size);
        EXPECT_NEAR(1.0 / (gain * 0.55 + 1.0), k, 1e-5);

        // Reference: the same low-pass design, the reference envelope in
        // floats, the boost on both sides, then k on both.
        CIIRFilter lowPass;
        ASSERT_TRUE(
            lowPass.Design(IIR_LOWPASS_48, 48000, 65.0, 0.0, 0.7071067811865476, true, QVString()));
        fxtest::ReferenceEnvelope envelope(96, 9600);
        std::vector<double> input = qvtest::Noise(9000, 2, 11, 0.8);
        const std::vector<double> output = RunWhole(*plugin, input, 2);
        const double headroom = 1.0 / (gain * 0.55 + 1.0);
        for (size_t f = 0; f < 9000; ++f)
        {
            const double left = input[2 * f];
            const double right = input[2 * f + 1];
            const float bass = static_cast<float>(lowPass.Process((left + right) * 0.5));
            const double boost = static_cast<double>(envelope(bass)) * gain;
            ASSERT_EQ(output[2 * f], (left + boost) * headroom) << f;
            ASSERT_EQ(output[2 * f + 1], (right + boost) * headroom) << f;
        }
    }

    // Steady DC is all bass: it comes back as (x + 0.2 x) x k.
    auto plugin = MakePlugin({0, 4, 2, 0}, 2, 48000);
    const std::vector<double> dc(2 * 48000 * 6, 0.5);
    std::vector<double> output = RunWhole(*plugin, dc, 2);
    EXPECT_NEAR(output.back(), 0.6 / 1.55, 1e-3);
    // A 1 kHz tone is far above the 65 Hz low-pass: it is only lowered by k.
    plugin = MakePlugin({0, 4, 2, 0}, 2, 48000);
    const std::vector<double> tone = qvtest::Sine(48000, 2, 1000.0, 48000.0, 0.5);
    output = RunWhole(*plugin, tone, 2);
    for (size_t i = 2 * 4800; i < output.size(); ++i)
        ASSERT_NEAR(output[i], tone[i] / 1.55, 1e-5) << i;

    // Six channels: the subwoofer channel alone gets the bass, every channel
    // gets k; a silent subwoofer channel gets nothing added.
    for (int32_t channels : {6, 8})
    {
        auto surround = MakePlugin({0, 4, 2, 0}, channels, 48000);
        std::vector<double> input = qvtest::Noise(4000, channels, 3, 0.5);
        for (size_t f = 0; f < 4000; ++f)
            input[f * channels + 3] = f < 2000 ? 0.0 : 0.7;  // silence, then a bass step
        const std::vector<double> out = RunWhole(*surround, input, channels);
        bool boosted = false;
        for (size_t i = 0; i < input.size(); ++i)
        {
            const double plain = input[i] * (1.0 / 1.55);
            if (i % channels != 3 || i / channels < 2000)
            {
                ASSERT_EQ(out[i], plain) << i;
            }
            else
            {
                boosted = boosted || out[i] > plain + 1e-3;
            }
        }
        EXPECT_TRUE(boosted) << channels;
    }
}

TEST(EffectsEngine, SurroundFieldWidensEachPairAndLeavesCentreAndSubwoofer)
{
    for (int32_t channels : {2, 4, 6, 8})
    {
        const std::vector<double> input = qvtest::Noise(500, channels, 21, 0.9);
        // At the neutral width the field is the identity, up to rounding.
        auto neutral = MakePlugin({0, 4, 0, 0}, channels);
        neutral->GetSettings().values.surroundField = 1;
        neutral->GetEngine().Configure();
        neutral->GetEngine().surroundWidth = 0.5;
        const std::vector<double> same = RunWhole(*neutral, input, channels);
        for (size_t i = 0; i < input.size(); ++i)
            ASSERT_NEAR(same[i], input[i], 1e-15);

        auto plugin = MakePlugin({0, 4, 0, 4}, channels);  // width 1.5
        const std::vector<double> output = RunWhole(*plugin, input, channels);
        std::vector<std::pair<int32_t, int32_t>> pairs = {{0, 1}};
        if (channels == 4)
            pairs.emplace_back(2, 3);
        if (channels >= 6)
            pairs.emplace_back(4, 5);
        if (channels == 8)
            pairs.emplace_back(6, 7);
        std::vector<bool> paired(channels, false);
        for (const auto& [a, b] : pairs)
            paired[a] = paired[b] = true;
        for (int32_t f = 0; f < 500; ++f)
        {
            const double* in = &input[f * channels];
            const double* out = &output[f * channels];
            for (const auto& [a, b] : pairs)
            {
                // Mid stays, the side (half the difference) grows by 1.5 / 0.5.
                EXPECT_NEAR(out[a] + out[b], in[a] + in[b], 1e-14);
                EXPECT_NEAR(out[a] - out[b], (in[a] - in[b]) * 3.0, 1e-14);
            }
            for (int32_t c = 0; c < channels; ++c)
            {
                if (!paired[c])
                {
                    ASSERT_EQ(out[c], in[c]) << channels << " " << c;
                }
            }
        }
    }
}

TEST(EffectsEngine, ReverbLayoutsPerChannelCount)
{
    const int32_t frames = 3000;
    // What one model makes of a pair, from a stereo plug-in.
    auto stereo = [&](const std::vector<double>& left, const std::vector<double>& right)
    {
        std::vector<double> pair(2 * frames);
        for (int32_t f = 0; f < frames; ++f)
        {
            pair[2 * f] = left[f];
            pair[2 * f + 1] = right[f];
        }
        auto plugin = MakePlugin({3, 6, 0, 0}, 2);
        return RunWhole(*plugin, pair, 2);
    };
    for (int32_t channels : {4, 6, 8})
    {
        const std::vector<double> input = qvtest::Noise(frames, channels, 8, 0.7);
        auto plugin = MakePlugin({3, 6, 0, 0}, channels);
        const std::vector<double> output = RunWhole(*plugin, input, channels);
        std::vector<std::vector<double>> in(channels);
        std::vector<std::vector<double>> out(channels);
        for (int32_t c = 0; c < channels; ++c)
        {
            in[c] = qvtest::ChannelOf(input, channels, c);
            out[c] = qvtest::ChannelOf(output, channels, c);
        }
        // Each pair has a model of its own: its output is that of a stereo run.
        std::vector<std::pair<int32_t, int32_t>> pairs = {{0, 1}};
        pairs.emplace_back(channels == 4 ? 2 : 4, channels == 4 ? 3 : 5);
        if (channels == 8)
            pairs.emplace_back(6, 7);
        for (const auto& [a, b] : pairs)
        {
            const std::vector<double> reference = stereo(in[a], in[b]);
            EXPECT_EQ(qvtest::ChannelOf(reference, 2, 0), out[a]) << channels << " " << a;
            EXPECT_EQ(qvtest::ChannelOf(reference, 2, 1), out[b]) << channels << " " << b;
        }
        if (channels >= 6)
        {
            // The centre runs as a pair of itself; its left side is kept.
            const std::vector<double> centre = stereo(in[2], in[2]);
            EXPECT_EQ(qvtest::ChannelOf(centre, 2, 0), out[2]);
            EXPECT_EQ(out[3], in[3]);  // no reverb on the subwoofer
        }
    }

    // Mono is a stereo frame of two equal samples, and their mean comes out.
    const std::vector<double> mono = qvtest::Noise(frames, 1, 4, 0.6);
    auto monoPlugin = MakePlugin({3, 6, 2, 3}, 1);
    auto pairPlugin = MakePlugin({3, 6, 2, 3}, 2);
    const std::vector<double> monoOut = RunWhole(*monoPlugin, mono, 1);
    std::vector<double> doubled;
    for (double x : mono)
        doubled.insert(doubled.end(), {x, x});
    const std::vector<double> pairOut = RunWhole(*pairPlugin, doubled, 2);
    for (int32_t f = 0; f < frames; ++f)
        ASSERT_EQ(monoOut[f], (pairOut[2 * f] + pairOut[2 * f + 1]) * 0.5) << f;
    // Width 1.2 mixes the sides apart, so the mean differs from either side.
    EXPECT_NE(monoOut[2000], pairOut[4000]);
}

TEST(EffectsEngine, NoEnvironmentLeavesTheModelsUntouched)
{
    auto plugin = MakePlugin({5, 4, 0, 0}, 4);
    RunWhole(*plugin, qvtest::Noise(2000, 4, 1, 0.5), 4);
    CEffectsEngine& engine = plugin->GetEngine();
    std::vector<char> before(sizeof(engine.reverbs));

    plugin->GetSettings().values.environment = 0;
    engine.Configure();
    std::memcpy(before.data(), static_cast<const void*>(engine.reverbs), before.size());
    const std::vector<double> input = qvtest::Noise(2000, 4, 2, 0.5);
    EXPECT_EQ(RunWhole(*plugin, input, 4), input);
    EXPECT_EQ(std::memcmp(before.data(), static_cast<const void*>(engine.reverbs), before.size()),
              0);
    // Amount 0 switches the reverb off the same way.
    plugin->GetSettings().values.environment = 5;
    plugin->GetSettings().values.reverbAmount = 0;
    engine.Configure();
    std::memcpy(before.data(), static_cast<const void*>(engine.reverbs), before.size());
    EXPECT_EQ(RunWhole(*plugin, input, 4), input);
    EXPECT_EQ(std::memcmp(before.data(), static_cast<const void*>(engine.reverbs), before.size()),
              0);
}

TEST(EffectsEngine, FlushDropsTheTailButAChangeOfEnvironmentKeepsIt)
{
    const std::vector<double> burst = qvtest::Noise(3000, 2, 6, 0.8);
    const std::vector<double> silence = qvtest::Silence(3000, 2);
    auto plugin = MakePlugin({2, 5, 3, 2}, 2);
    RunWhole(*plugin, burst, 2);

    // A new environment through Configure: the tail rings on into the next block.
    plugin->GetSettings().values.environment = 4;
    plugin->GetEngine().Configure();
    EXPECT_GT(qvtest::Rms(RunWhole(*plugin, silence, 2)), 1e-3);

    // Flush: lines, low-pass and envelope start from silence. Each comb keeps
    // its one-sample damping state, so a faint trace of the room is left.
    RunWhole(*plugin, burst, 2);
    auto unflushed = MakePlugin({2, 5, 3, 2}, 2);
    RunWhole(*unflushed, burst, 2);
    unflushed->GetSettings().values.environment = 4;
    unflushed->GetEngine().Configure();
    RunWhole(*unflushed, burst, 2);
    EXPECT_EQ(plugin->Flush(), 0);
    CEffectsEngine& engine = plugin->GetEngine();
    EXPECT_EQ(engine.bassEnvelope.slowLevel, 0.0f);
    EXPECT_EQ(engine.bassEnvelope.fastLevel, 0.0f);
    for (double value : engine.lowPass.state)
        ASSERT_EQ(value, 0.0);
    for (const CReverbModel& reverb : engine.reverbs)
        for (const auto& side : reverb.combs)
            for (const auto& comb : side)
                for (int32_t i = 0; i < comb.size; ++i)
                    ASSERT_EQ(comb.buffer[i], 0.0);
    const double flushedPeak = qvtest::Peak(RunWhole(*plugin, silence, 2));
    const double ringingPeak = qvtest::Peak(RunWhole(*unflushed, silence, 2));
    EXPECT_GT(ringingPeak, 0.01);
    EXPECT_LT(flushedPeak, ringingPeak * 0.05);
}

TEST(EffectsEngine, SameDelaysInSamplesAtEveryRate)
{
    // Subwoofer and surround off: the reverb alone does not know the rate.
    const std::vector<double> input = qvtest::Noise(4000, 2, 9, 0.5);
    auto at44 = MakePlugin({1, 4, 0, 0}, 2, 44100);
    auto at48 = MakePlugin({1, 4, 0, 0}, 2, 48000);
    auto at96 = MakePlugin({1, 4, 0, 0}, 2, 96000);
    const std::vector<double> reference = RunWhole(*at44, input, 2);
    EXPECT_EQ(RunWhole(*at48, input, 2), reference);
    EXPECT_EQ(RunWhole(*at96, input, 2), reference);
}
