// Linkwitz transform, Linkwitz-Riley and the bit-depth simulator.
#include "parametric/TransformFilters.h"

#include <set>

#include "ParametricTestSupport.h"
#include "frame/SettingsKey.h"
#include "parametric/FilterPanel.h"

using namespace ptest;

TEST(TransformFilters, LinkwitzRileyIsDownSixDbAtItsFrequencyAndFallsAt24DbPerOctave)
{
    const double rate = 48000;
    auto filter = Make<CLinkwitzRileyFilter>(16);
    filter->frequency = 1000;
    const auto impulse = ImpulseResponse(*filter, MakeFormat(2), 1, 1 << 15);
    // Two Butterworth high-pass pairs: |H| = x^4 / (1 + x^4), with x the
    // ratio of the pre-warped frequencies.
    auto analytic = [rate](double f)
    {
        const double x = std::tan(M_PI * f / rate) / std::tan(M_PI * 1000 / rate);
        return std::pow(x, 4) / (1 + std::pow(x, 4));
    };
    EXPECT_NEAR(Db(std::abs(ResponseAt(impulse, 1000, rate))), Db(0.5), 1e-6);
    for (double f : {62.5, 125.0, 250.0, 500.0, 4000.0})
        EXPECT_NEAR(std::abs(ResponseAt(impulse, f, rate)), analytic(f), 1e-9) << f;
    const double octave = Db(std::abs(ResponseAt(impulse, 125, rate))) -
                          Db(std::abs(ResponseAt(impulse, 62.5, rate)));
    EXPECT_NEAR(octave, 24.0, 0.2);
    EXPECT_EQ(filter->effects.size(), 2u);
}

TEST(TransformFilters, LinkwitzRileyRecordsKeepTheirRateUntilAnEdit)
{
    auto filter = Make<CLinkwitzRileyFilter>(16);
    UserChannelBuffer users;
    std::vector<double> block(12, 0.0);
    const CAudioFormat stereo = MakeFormat(2, 44100);
    filter->Process(block.data(), 6, &stereo, &users);
    const CAudioFormat surround = MakeFormat(6, 96000);
    filter->Process(block.data(), 2, &surround, &users);
    ASSERT_EQ(filter->effects.size(), 6u);
    EXPECT_EQ(filter->effects[0]->sampleRate, 44100);
    EXPECT_EQ(filter->effects[5]->sampleRate, 96000);
    const CAudioFormat mono = MakeFormat(1, 96000);
    filter->Process(block.data(), 2, &mono, &users);
    EXPECT_EQ(filter->effects.size(), 6u);  // records of positions that went away stay

    CFilterPanel panel;
    filter->AttachToPanel(&panel);
    filter->UpdateValuesFromPanel();
    EXPECT_TRUE(filter->effects.empty());
}

TEST(TransformFilters, LinkwitzTransform)
{
    const double rate = 48000;
    auto transform = Make<CParametricLinkwitzTransformFilter>(8);
    transform->channels = {CAudioFormat::Left};
    const CAudioFormat format = MakeFormat(2);
    const auto impulse = ImpulseResponse(*transform, format, 0, 1 << 16);
    // The analogue prototype (s² + s wz/qz + wz²) / (s² + s wp/qp + wp²) at
    // the warping frequency, where the bilinear transform is exact.
    const double fc = (55.0 + 25.0) / 2;
    const std::complex<double> s(0, 2 * M_PI * fc);
    const double wz = 2 * M_PI * 55, wp = 2 * M_PI * 25;
    const auto analog = (s * s + s * wz / 1.21 + wz * wz) / (s * s + s * wp / 0.5 + wp * wp);
    EXPECT_NEAR(std::abs(ResponseAt(impulse, fc, rate)), std::abs(analog), 1e-6);
    // Far above both resonances the transform is flat.
    EXPECT_NEAR(std::abs(ResponseAt(impulse, 5000, rate)), 1.0, 1e-3);

    // An edit of fz restarts the history; an unchanged block keeps it.
    UserChannelBuffer users;
    std::vector<double> block = {1.0, 0.0, 0.0, 0.0};
    transform->Process(block.data(), 2, &format, &users);
    const double y1 = transform->transforms[CAudioFormat::Left]->y1;
    EXPECT_NE(y1, 0.0);
    transform->fz = 50;
    std::vector<double> silence(4, 0.0);
    transform->Process(silence.data(), 2, &format, &users);
    EXPECT_EQ(silence, std::vector<double>(4, 0.0));

    // Prevent clipping lowers every channel of the stream by 12 dB, listed or not.
    transform->preventClipping = true;
    std::vector<double> loud = {0.0, 1.0, 0.0, -1.0};
    transform->Process(loud.data(), 2, &format, &users);
    EXPECT_EQ(loud[1], 0.251188643150958);
    EXPECT_NEAR(std::pow(10.0, -0.6), 0.251188643150958, 1e-15);
}

TEST(TransformFilters, BitDepthValues)
{
    UserChannelBuffer users;
    const CAudioFormat format = MakeFormat(2);
    auto simulator = Make<CParametricBitdepthSimulatorFilter>(13);
    simulator->bits = 16;
    simulator->dither = false;
    std::vector<double> block = {0.5, 1.0, -1.0, 0.25 + 0.4 / 32768, 1.0 / 65536 * 0.99, -2.0};
    simulator->Process(block.data(), 3, &format, &users);
    EXPECT_EQ(block[0], 16384.0 / 32768);
    EXPECT_EQ(block[1], 32767.0 / 32768);
    EXPECT_EQ(block[2], -1.0);
    EXPECT_EQ(block[3], 8192.0 / 32768);
    EXPECT_EQ(block[4], 0.0);
    EXPECT_EQ(block[5], -1.0);

    simulator->bits = 2;
    auto noise = qvtest::Noise(1000, 2, 12, 1.5);
    simulator->Process(noise.data(), 1000, &format, &users);
    std::set<double> values(noise.begin(), noise.end());
    for (double v : values)
        EXPECT_TRUE(v == -1.0 || v == -0.5 || v == 0.0 || v == 0.5) << v;
    EXPECT_GE(values.size(), 3u);
}

TEST(TransformFilters, DitherFollowsTheStoreSetting)
{
    ScopedStore store;
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    const std::vector<double> input(200, 0.3);

    auto dithered = Make<CParametricBitdepthSimulatorFilter>(13);
    dithered->bits = 8;
    EXPECT_EQ(dithered->ditherMode, 1);  // the default without a value
    auto block = input;
    dithered->Process(block.data(), 100, &format, &users);
    std::set<double> withNoise(block.begin(), block.end());
    EXPECT_GT(withNoise.size(), 1u);

    {
        std::unique_ptr<IQVSettingsKey> key(
            store.tools.GetPluginKeyObject(QVString(u"Properties"), false));
        key->WriteInt(u"Dither Mode", 0, 0, 0);
    }
    auto quiet = Make<CParametricBitdepthSimulatorFilter>(13);
    quiet->bits = 8;
    EXPECT_EQ(quiet->ditherMode, 0);
    block = input;
    quiet->Process(block.data(), 100, &format, &users);
    for (double v : block)
        EXPECT_EQ(v, 38.0 / 128);  // 0.3 * 128 = 38.4
}
