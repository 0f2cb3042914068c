// The engine: the setting text and its gains, the old 11-character form, the
// flat setting's bit-exact pass, the measured response against the product of
// the twenty analytic band responses, the band near Nyquist, and block-size
// independence.
#include "effects/EqualizerEngine.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "EqualizerTestSupport.h"

using namespace eqtest;

namespace
{
constexpr const char16_t* ROCK = u"OCCKKUUYYUUNNKKCCCCCC";

// Runs the engine over a copy of the signal in blocks of `blockFrames`.
std::vector<double> RunEngine(CEqualizerEngine& engine, std::vector<double> signal,
                              int32_t channels, int32_t rate, int32_t blockFrames)
{
    const int32_t frames = static_cast<int32_t>(signal.size()) / channels;
    for (int32_t done = 0; done < frames; done += blockFrames)
    {
        const int32_t count = std::min(blockFrames, frames - done);
        engine.Process(signal.data() + static_cast<size_t>(done) * channels, count, channels, rate);
    }
    return signal;
}

std::complex<double> ExpectedResponse(const CEqualizerEngine& engine, double frequency, double rate)
{
    std::complex<double> response = std::pow(10.0, engine.GetPreampGain() / 20.0);
    for (int32_t band = 0; band < CEqualizerEngine::BAND_COUNT; ++band)
        response *=
            PeakingResponse(CEqualizerEngine::BAND_FREQUENCIES[band], engine.GetBandGain(band),
                            CEqualizerEngine::BAND_Q, frequency, rate);
    return response;
}
}  // namespace

TEST(EqualizerEngine, CharacterValuesAndGains)
{
    // Worked by hand from (1 - v/31) x 12 dB.
    EXPECT_EQ(CEqualizerEngine::GainFromValue(u'O' - 48),
              0.0);  // exactly, so a flat band does no work
    EXPECT_DOUBLE_EQ(CEqualizerEngine::GainFromValue(u'0' - 48), 12.0);
    EXPECT_DOUBLE_EQ(CEqualizerEngine::GainFromValue(u'n' - 48), -12.0);
    EXPECT_NEAR(CEqualizerEngine::GainFromValue(u'C' - 48), 144.0 / 31.0,
                1e-12);  // v = 19: 12 x 12/31

    CEqualizerEngine engine;
    EXPECT_FALSE(engine.active);
    engine.ApplySetting(QVString(u"0OOOOOOOOOOOOOOOOOOOn"));
    EXPECT_TRUE(engine.active);
    EXPECT_EQ(engine.preampValue, 0);
    EXPECT_DOUBLE_EQ(engine.GetPreampGain(), 12.0);
    EXPECT_EQ(engine.bandValues[0], 31);
    EXPECT_EQ(engine.GetBandGain(0), 0.0);
    EXPECT_EQ(engine.bandValues[19], 62);
    EXPECT_DOUBLE_EQ(engine.GetBandGain(19), -12.0);

    // Missing characters count as code 0: v = -48, about +30.6 dB.
    engine.ApplySetting(QVString(u"OO"));
    EXPECT_EQ(engine.bandValues[0], 31);
    EXPECT_EQ(engine.bandValues[1], -48);
    EXPECT_NEAR(engine.GetBandGain(19), (1.0 + 48.0 / 31.0) * 12.0, 1e-12);
}

TEST(EqualizerEngine, BandsAreTwentyPeaksAtQTwo)
{
    CEqualizerEngine engine;
    const double expected[] = {31.25, 48,   62.5, 90,   125,  175,  250,  375,   500,   750,
                               1000,  1500, 2000, 3000, 4000, 6000, 8000, 12000, 16000, 20000};
    for (int32_t band = 0; band < CEqualizerEngine::BAND_COUNT; ++band)
    {
        const CParametricIIRFilter& filter = engine.GetBand(band);
        EXPECT_EQ(filter.GetType(), PARAMETRIC_PEAK);
        EXPECT_EQ(filter.frequency, expected[band]);
        EXPECT_EQ(filter.q, 2.0);
        EXPECT_TRUE(filter.allChannels);
    }
}

TEST(EqualizerEngine, ElevenCharacterSettingsAreDoubledInPlace)
{
    // Rock with each pair stored once.
    EXPECT_EQ(CEqualizerEngine::ExpandLegacySetting(QVString(u"OCKUYUNKCCC")).ToUTF8(),
              "OCCKKUUYYUUNNKKCCCCCC");
    EXPECT_EQ(CEqualizerEngine::ExpandLegacySetting(QVString(u"0123456789a")).ToUTF8(),
              "0112233445566778899aa");
    // Other lengths stay as they are.
    EXPECT_EQ(CEqualizerEngine::ExpandLegacySetting(QVString(ROCK)).ToUTF8(),
              "OCCKKUUYYUUNNKKCCCCCC");
    EXPECT_EQ(CEqualizerEngine::ExpandLegacySetting(QVString(u"OCKUYUNKCC")).ToUTF8(),
              "OCKUYUNKCC");

    EXPECT_TRUE(CEqualizerEngine::IsWellFormedSetting(QVString(ROCK)));
    EXPECT_TRUE(CEqualizerEngine::IsWellFormedSetting(QVString(u"0nnnnnnnnnnnnnnnnnnnn")));
    EXPECT_FALSE(CEqualizerEngine::IsWellFormedSetting(QVString(u"OCKUYUNKCCC")));
    EXPECT_FALSE(
        CEqualizerEngine::IsWellFormedSetting(QVString(u"OOOOOOOOOOOOOOOOOOOOo")));  // 'o' is 63
    EXPECT_FALSE(
        CEqualizerEngine::IsWellFormedSetting(QVString(u"OOOOOOOOOOOOOOOOOOOO/")));  // below '0'
}

TEST(EqualizerEngine, FlatSettingIsBitExactAndDoesNoFilterWork)
{
    CEqualizerEngine engine;
    engine.ApplySetting(QVString(CEqualizerEngine::FLAT_SETTING));
    const std::vector<double> input = qvtest::Noise(3000, 2, 7);
    const std::vector<double> output = RunEngine(engine, input, 2, 48000, 1000);
    ASSERT_EQ(output.size(), input.size());
    EXPECT_EQ(std::memcmp(output.data(), input.data(), input.size() * sizeof(double)), 0);
    // No band made a filter for any channel.
    for (int32_t band = 0; band < CEqualizerEngine::BAND_COUNT; ++band)
        EXPECT_TRUE(engine.GetBand(band).channelFilters.empty()) << "band " << band;

    // An inactive engine (no setting applied yet) leaves audio alone too.
    CEqualizerEngine fresh;
    EXPECT_EQ(RunEngine(fresh, input, 2, 48000, 512), input);
}

TEST(EqualizerEngine, SineGainAtEveryCentreMatchesTheAnalyticCascade)
{
    constexpr double rate = 48000.0;
    for (const char16_t* setting : {ROCK, u"E0nOa7ZOI3kOQOOOfO00O"})
    {
        CEqualizerEngine engine;
        engine.ApplySetting(QVString(setting));
        for (int32_t band = 0; band < CEqualizerEngine::BAND_COUNT; ++band)
        {
            const double frequency = CEqualizerEngine::BAND_FREQUENCIES[band];
            CEqualizerEngine fresh;
            fresh.ApplySetting(QVString(setting));
            // 1.5 s: even the lowest band has settled after the first second.
            const std::vector<double> output =
                RunEngine(fresh, qvtest::Sine(72000, 2, frequency, rate, 0.25), 2,
                          static_cast<int32_t>(rate), 4096);
            const double expectedDb = Db(std::abs(ExpectedResponse(engine, frequency, rate)));
            for (int32_t channel = 0; channel < 2; ++channel)
            {
                const double measuredDb =
                    Db(ToneAmplitude(output, 2, channel, frequency, rate, 24000) / 0.25);
                EXPECT_NEAR(measuredDb, expectedDb, 0.01)
                    << "band " << band + 1 << " channel " << channel;
            }
        }
    }
}

TEST(EqualizerEngine, TopBandWorksAt44100AndIsTransparentAt32000)
{
    // Only the 20 kHz band is boosted.
    const QVString setting(u"OOOOOOOOOOOOOOOOOOOO0");
    {
        CEqualizerEngine engine;
        engine.ApplySetting(setting);
        const std::vector<double> output =
            RunEngine(engine, qvtest::Sine(44100, 2, 20000.0, 44100.0, 0.25), 2, 44100, 1024);
        const double expectedDb =
            Db(std::abs(PeakingResponse(20000.0, 12.0, 2.0, 20000.0, 44100.0)));
        EXPECT_NEAR(expectedDb, 12.0, 1e-9);  // a peak has its full gain at its centre
        EXPECT_NEAR(Db(ToneAmplitude(output, 2, 0, 20000.0, 44100.0, 22050) / 0.25), expectedDb,
                    0.01);
    }
    {
        // 20000 Hz lies above 99% of 16000 Hz: no section, output = input.
        CEqualizerEngine engine;
        engine.ApplySetting(setting);
        const std::vector<double> input = qvtest::Noise(4000, 2, 3);
        EXPECT_EQ(RunEngine(engine, input, 2, 32000, 700), input);
        EXPECT_EQ(engine.sampleRate, 32000);
    }
}

TEST(EqualizerEngine, OutputDoesNotDependOnBlockSizes)
{
    const std::vector<double> input = qvtest::Noise(5000, 3, 11, 0.5);
    auto run = [&](int32_t blockFrames)
    {
        CEqualizerEngine engine;
        engine.ApplySetting(QVString(u"E0nOa7ZOI3kOQOOOfO00O"));
        return RunEngine(engine, input, 3, 44100, blockFrames);
    };
    const std::vector<double> whole = run(5000);
    EXPECT_NE(whole, input);
    EXPECT_EQ(run(1), whole);
    EXPECT_EQ(run(127), whole);
    EXPECT_EQ(run(2048), whole);
}

TEST(EqualizerEngine, GainChangeReachesTheFiltersAtTheNextBlock)
{
    CEqualizerEngine engine;
    engine.ApplySetting(QVString(ROCK));
    std::vector<double> block = qvtest::Noise(256, 2, 5);
    engine.Process(block.data(), 256, 2, 48000);
    // Back to flat: every band stops, so the next block passes untouched.
    engine.ApplySetting(QVString(CEqualizerEngine::FLAT_SETTING));
    const std::vector<double> input = qvtest::Noise(256, 2, 6);
    std::vector<double> next = input;
    engine.Process(next.data(), 256, 2, 48000);
    EXPECT_EQ(next, input);
}

TEST(EqualizerEngine, EqualsTheBandFiltersRunOneAfterAnother)
{
    // The reference: a preamp and twenty bands made by the band constructor,
    // each run over the whole block by itself through its own Process.
    const QVString first(u"E0nOa7ZOI3kOQOOOfO00O");
    const QVString second(u"OCCKKUUYYUUNNKKCCCCCC");
    for (int32_t channels : {1, 2, 3, 6, 8})
    {
        const int32_t rate = 44100;
        CEqualizerEngine engine;
        CEqualizerEngine reference;  // holds the same gains; its filters are run one by one
        std::vector<std::unique_ptr<CParametricIIRFilter>> bands;
        for (double frequency : CEqualizerEngine::BAND_FREQUENCIES)
            bands.push_back(std::make_unique<CParametricIIRFilter>(frequency, 0.0, 2.0));
        CParametricVolumeFilter preamp(PARAMETRIC_VOLUME, true);
        UserChannelBuffer scratch;
        const CAudioFormat format(64, rate, static_cast<uint16_t>(channels));
        auto runReference = [&](std::vector<double>& block)
        {
            preamp.SetGain(reference.GetPreampGain());
            preamp.Process(block.data(), static_cast<int32_t>(block.size()) / channels, &format,
                           &scratch);
            for (int32_t band = 0; band < CEqualizerEngine::BAND_COUNT; ++band)
            {
                bands[band]->SetGain(reference.GetBandGain(band));
                bands[band]->Process(block.data(), static_cast<int32_t>(block.size()) / channels,
                                     &format, &scratch);
            }
        };
        // Two settings in a row: the second restarts every changed band's history.
        for (const QVString* setting : {&first, &second})
        {
            engine.ApplySetting(*setting);
            reference.ApplySetting(*setting);
            std::vector<double> expected = qvtest::Noise(3001, channels, 13, 0.7);
            std::vector<double> actual = RunEngine(engine, expected, channels, rate, 389);
            runReference(expected);
            ASSERT_EQ(actual, expected) << channels << " channels";
        }
    }
}

TEST(EqualizerEngine, EveryChannelOfAWideStreamIsEqualisedLikeAMonoStream)
{
    // Past 32 channels the default layout names every position alike; each
    // must still keep its own history. Each channel is compared with the same
    // noise run alone through an engine of its own.
    for (int32_t channels : {33, 34, 64})
    {
        const int32_t frames = 3000;
        const std::vector<double> input = qvtest::Noise(frames, channels, 21, 0.5);
        CEqualizerEngine wide;
        wide.ApplySetting(QVString(ROCK));
        const std::vector<double> output = RunEngine(wide, input, channels, 48000, 700);
        for (int32_t channel = 0; channel < channels; ++channel)
        {
            std::vector<double> mono(frames);
            for (int32_t n = 0; n < frames; ++n)
                mono[n] = input[static_cast<size_t>(n) * channels + channel];
            CEqualizerEngine alone;
            alone.ApplySetting(QVString(ROCK));
            mono = RunEngine(alone, mono, 1, 48000, 700);
            for (int32_t n = 0; n < frames; ++n)
                ASSERT_EQ(output[static_cast<size_t>(n) * channels + channel], mono[n])
                    << channels << " channels, channel " << channel << ", frame " << n;
        }
    }
}
