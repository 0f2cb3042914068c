#include "cli/commands/DemoSignal.h"

#include <fftw3.h>

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace
{

using Plan = DemoSignalPlan;

std::vector<double> Channel(const std::vector<double>& signal, int channel, int64_t first,
                            int64_t count)
{
    std::vector<double> out(count);
    for (int64_t i = 0; i < count; ++i)
        out[i] = signal[(first + i) * 2 + channel];
    return out;
}

// Amplitude of the component at `frequencyHz` over a window of whole cycles.
double AmplitudeAt(const std::vector<double>& samples, double frequencyHz)
{
    double sine = 0.0;
    double cosine = 0.0;
    for (size_t i = 0; i < samples.size(); ++i)
    {
        double phase =
            2.0 * std::numbers::pi * frequencyHz * static_cast<double>(i) / Plan::SAMPLE_RATE;
        sine += samples[i] * std::sin(phase);
        cosine += samples[i] * std::cos(phase);
    }
    return 2.0 * std::hypot(sine, cosine) / static_cast<double>(samples.size());
}

int ZeroCrossings(const std::vector<double>& samples)
{
    int count = 0;
    for (size_t i = 1; i < samples.size(); ++i)
        count += (samples[i - 1] < 0.0) != (samples[i] < 0.0);
    return count;
}

// Power of the noise in [lowHz, highHz) from one long transform.
double BandPower(const std::vector<double>& noise, double lowHz, double highHz)
{
    int n = static_cast<int>(noise.size());
    std::vector<double> input = noise;
    fftw_complex* spectrum = fftw_alloc_complex(n / 2 + 1);
    fftw_plan plan = fftw_plan_dft_r2c_1d(n, input.data(), spectrum, FFTW_ESTIMATE);
    fftw_execute(plan);
    double power = 0.0;
    for (int bin = 0; bin <= n / 2; ++bin)
    {
        double hz = static_cast<double>(bin) * Plan::SAMPLE_RATE / n;
        if (hz >= lowHz && hz < highHz)
            power += spectrum[bin][0] * spectrum[bin][0] + spectrum[bin][1] * spectrum[bin][1];
    }
    fftw_destroy_plan(plan);
    fftw_free(spectrum);
    return power;
}

}  // namespace

TEST(DemoSignalTest, TenSecondsOfStereoTheSameEveryTime)
{
    std::vector<double> signal = SynthesizeDemoSignal();
    EXPECT_EQ(Plan::TotalFrames(), 480000);
    ASSERT_EQ(signal.size(), 960000u);
    EXPECT_EQ(signal, SynthesizeDemoSignal());
    // Every part starts and ends faded, so the joins do not click.
    for (int64_t edge :
         {int64_t{0}, Plan::SweepFrames(), Plan::SweepFrames() + Plan::NoiseFrames()})
        EXPECT_EQ(signal[edge * 2], 0.0) << edge;
    EXPECT_EQ(signal.back(), 0.0);
}

TEST(DemoSignalTest, SweepRisesExponentiallyAtMinusSixDb)
{
    std::vector<double> signal = SynthesizeDemoSignal();
    std::vector<double> sweep = Channel(signal, 0, 0, Plan::SweepFrames());
    EXPECT_EQ(sweep, Channel(signal, 1, 0, Plan::SweepFrames()));
    double peak = 0.0;
    for (double sample : sweep)
        peak = std::max(peak, std::fabs(sample));
    EXPECT_LE(peak, 0.5);
    EXPECT_GT(peak, 0.4999);

    // Cycles between t1 and t2 of f(t) = 20 * 1000^(t/4): the integral of f.
    auto cycles = [](double t1, double t2)
    {
        double k = std::log(1000.0) / 4.0;
        return 20.0 * (std::exp(k * t2) - std::exp(k * t1)) / k;
    };
    for (double start : {1.0, 2.0, 3.0})
    {
        auto first = static_cast<int64_t>(start * Plan::SAMPLE_RATE);
        std::vector<double> part(sweep.begin() + first,
                                 sweep.begin() + first + Plan::SAMPLE_RATE / 2);
        EXPECT_NEAR(ZeroCrossings(part), 2.0 * cycles(start, start + 0.5), 2.0) << start;
    }
}

TEST(DemoSignalTest, NoiseIsPinkAtMinusTwentyDbPerChannel)
{
    std::vector<double> signal = SynthesizeDemoSignal();
    std::vector<double> left = Channel(signal, 0, Plan::SweepFrames(), Plan::NoiseFrames());
    std::vector<double> right = Channel(signal, 1, Plan::SweepFrames(), Plan::NoiseFrames());
    double leftEnergy = 0.0;
    double rightEnergy = 0.0;
    double cross = 0.0;
    for (size_t i = 0; i < left.size(); ++i)
    {
        leftEnergy += left[i] * left[i];
        rightEnergy += right[i] * right[i];
        cross += left[i] * right[i];
    }
    // The fades take a little off the RMS the noise was scaled to.
    EXPECT_NEAR(std::sqrt(leftEnergy / left.size()), 0.1, 0.002);
    EXPECT_NEAR(std::sqrt(rightEnergy / right.size()), 0.1, 0.002);
    EXPECT_LT(std::fabs(cross) / std::sqrt(leftEnergy * rightEnergy), 0.05);

    // Pink: the same power in every octave.
    std::vector<double> noise = SynthesizePinkNoise(1 << 17, 5, 1.0);
    double reference = BandPower(noise, 1000.0, 2000.0);
    for (double low : {50.0, 100.0, 250.0, 4000.0, 8000.0})
        EXPECT_NEAR(10.0 * std::log10(BandPower(noise, low, 2.0 * low) / reference), 0.0, 1.0)
            << low;
}

TEST(DemoSignalTest, TonesHaveTheirLevelsAndSides)
{
    std::vector<double> signal = SynthesizeDemoSignal();
    // One second in the steady middle of the tone part: whole cycles of each tone.
    int64_t first = Plan::SweepFrames() + Plan::NoiseFrames() + Plan::SAMPLE_RATE;
    std::vector<double> left = Channel(signal, 0, first, Plan::SAMPLE_RATE);
    std::vector<double> right = Channel(signal, 1, first, Plan::SAMPLE_RATE);
    EXPECT_NEAR(AmplitudeAt(left, 100.0), 0.2, 1e-9);
    EXPECT_NEAR(AmplitudeAt(right, 100.0), 0.2, 1e-9);
    EXPECT_NEAR(AmplitudeAt(left, 1000.0), 0.1, 1e-9);
    EXPECT_NEAR(AmplitudeAt(left, 440.0), 0.1, 1e-9);
    EXPECT_NEAR(AmplitudeAt(right, 440.0), 0.0, 1e-9);
    EXPECT_NEAR(AmplitudeAt(right, 660.0), 0.1, 1e-9);
    EXPECT_NEAR(AmplitudeAt(left, 660.0), 0.0, 1e-9);
}
