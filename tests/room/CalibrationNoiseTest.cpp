// The calibration noise: its generator against values worked out apart from
// this code, the level rule, the bands it lies in, and fresh seeds.
#include "room/CalibrationNoise.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "RoomTestSupport.h"

using roomtest::ResponseAt;

namespace
{

constexpr double kRate = 48000.0;

std::vector<double> Filtered(CCalibrationNoise& noise, int32_t count)
{
    std::vector<double> samples(static_cast<size_t>(count));
    for (double& sample : samples)
        sample = noise.Next();
    return samples;
}

// Mean power over `bins` neighbouring DFT bins around `frequencyHz` of a
// Hann-windowed record: one bin of noise scatters too much to compare.
double BandPower(const std::vector<double>& samples, double frequencyHz, int32_t bins = 16)
{
    std::vector<double> windowed(samples.size());
    const double n = static_cast<double>(samples.size());
    for (size_t i = 0; i < samples.size(); ++i)
        windowed[i] = samples[i] * (0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * i / n));
    const double binHz = kRate / n;
    double power = 0.0;
    for (int32_t b = -bins / 2; b < bins / 2; ++b)
        power += std::norm(ResponseAt(windowed, frequencyHz + b * binHz, kRate));
    return power / bins;
}

double Db(double powerRatio)
{
    return 10.0 * std::log10(powerRatio);
}

}  // namespace

TEST(CalibrationNoise, GeneratorAndLevelRule)
{
    // Seed 12345, the speaker's -23 dB: the first twelve sums of the stages,
    // computed with an implementation written apart from this one.
    CCalibrationNoise noise(kRate, false, -23.0);
    noise.seed = 12345;
    const double expected[] = {
        0.053708574095198074, 0.06330414849101153,  0.054348999869695484,  0.020245643532974644,
        0.12422551082607446,  0.030203386141636403, -0.004470174087123874, 0.01897715606632817,
        -0.0226242194678471,  -0.05571241985475227, 0.05686961658236796,   -0.07454908951203626,
    };
    EXPECT_NEAR(noise.scale, 0.03028726099336741, 1e-15);
    for (double value : expected)
        EXPECT_NEAR(noise.NextUnfiltered(), value, 1e-14);

    // The level moves the whole output by its ratio, sample for sample, and
    // the subwoofer's band takes another offset (7.0258 instead of 7.9586 dB).
    CCalibrationNoise quiet(kRate, false, -23.0);
    CCalibrationNoise loud(kRate, false, -17.0);
    CCalibrationNoise sub(kRate, true, -23.0);
    quiet.seed = loud.seed = 99;
    for (int32_t i = 0; i < 4000; ++i)
    {
        const double q = quiet.Next();
        const double l = loud.Next();
        EXPECT_NEAR(l, q * std::pow(10.0, 6.0 / 20.0), 1e-12 + 1e-12 * std::fabs(l));
    }
    EXPECT_NEAR(sub.scale / quiet.scale, std::pow(10.0, (7.0258 - 7.9586) / 20.0), 1e-12);
    // A level that cancels the band offset leaves the plain unit scale.
    CCalibrationNoise unit(kRate, false, -7.9586);
    EXPECT_EQ(unit.scale, std::pow(10.0, -0.76667));
}

TEST(CalibrationNoise, UnfilteredSumHasTheRmsOfASine)
{
    // A stage holds a value uniform in +-a once first drawn, so the sum of the
    // five has a variance of sum(a^2) / 3; at the unit scale that is the RMS
    // of a full-scale sine, 0.7071 (within the scatter of a long record).
    CCalibrationNoise noise(kRate, false, -7.9586);
    noise.seed = 7;
    double sum = 0.0;
    const int32_t count = 1 << 21;
    for (int32_t i = 0; i < count; ++i)
    {
        const double x = noise.NextUnfiltered();
        sum += x * x;
    }
    const double variance =
        (3.8024 * 3.8024 + 2.9694 * 2.9694 + 2.597 * 2.597 + 3.087 * 3.087 + 3.4006 * 3.4006) / 3.0;
    const double expected = std::sqrt(variance) * std::pow(10.0, -0.76667);
    EXPECT_NEAR(expected, 0.7071, 0.005);
    EXPECT_NEAR(std::sqrt(sum / count), expected, 0.02 * expected);
}

TEST(CalibrationNoise, SpectrumLiesInTheMeterBands)
{
    // 500 Hz to 2 kHz for a speaker, 25 to 150 Hz for the subwoofer, each
    // edge an eighth-order Butterworth: two octaves out is more than 90 dB
    // down, while inside the band the pink slope keeps all within 10 dB.
    CCalibrationNoise speaker(kRate, false, -23.0);
    speaker.seed = 1;
    for (int32_t i = 0; i < 20000; ++i)
        speaker.Next();
    const std::vector<double> speakerNoise = Filtered(speaker, 1 << 16);
    const double mid = BandPower(speakerNoise, 1000.0);
    EXPECT_NEAR(Db(BandPower(speakerNoise, 700.0) / mid), 0.0, 5.0);
    EXPECT_NEAR(Db(BandPower(speakerNoise, 1400.0) / mid), 0.0, 5.0);
    EXPECT_LT(Db(BandPower(speakerNoise, 125.0) / mid), -70.0);
    EXPECT_LT(Db(BandPower(speakerNoise, 8000.0) / mid), -70.0);

    CCalibrationNoise sub(kRate, true, -33.0);
    sub.seed = 2;
    for (int32_t i = 0; i < 20000; ++i)
        sub.Next();
    const std::vector<double> subNoise = Filtered(sub, 1 << 17);
    const double subMid = BandPower(subNoise, 60.0);
    EXPECT_NEAR(Db(BandPower(subNoise, 40.0) / subMid), 0.0, 6.0);
    EXPECT_NEAR(Db(BandPower(subNoise, 100.0) / subMid), 0.0, 6.0);
    EXPECT_LT(Db(BandPower(subNoise, 6.0) / subMid), -60.0);
    EXPECT_LT(Db(BandPower(subNoise, 600.0) / subMid), -70.0);
}

TEST(CalibrationNoise, EveryToneOfTheProcessStartsFromAnotherSeed)
{
    CCalibrationNoise::ResetSeedCounter();
    CCalibrationNoise first(kRate, false, -23.0);
    CCalibrationNoise second(kRate, false, -23.0);
    CCalibrationNoise third(kRate, true, -33.0);
    EXPECT_EQ(second.seed, first.seed + 1);
    EXPECT_EQ(third.seed, first.seed + 2);
    // Different seeds, different noise from the first sample that draws.
    int32_t differing = 0;
    for (int32_t i = 0; i < 100; ++i)
        differing += first.NextUnfiltered() != second.NextUnfiltered();
    EXPECT_GT(differing, 90);
}
