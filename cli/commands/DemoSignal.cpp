#include "cli/commands/DemoSignal.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>

namespace
{

using Plan = DemoSignalPlan;
constexpr double TWO_PI = 2.0 * std::numbers::pi;

// Phase of an exponential sweep: the frequency f0 * (f1/f0)^(t/T) integrated
// over time, so that every octave gets the same time.
double SweepPhase(double seconds)
{
    const double rate = std::log(Plan::SWEEP_END_HZ / Plan::SWEEP_START_HZ) / Plan::SWEEP_SECONDS;
    return TWO_PI * Plan::SWEEP_START_HZ * (std::exp(rate * seconds) - 1.0) / rate;
}

// Raised-cosine gain at the two ends of a part, 1 in between.
double FadeGain(int64_t frame, int64_t frames)
{
    const int64_t fadeFrames = static_cast<int64_t>(Plan::FADE_SECONDS * Plan::SAMPLE_RATE);
    int64_t fromEdge = std::min(frame, frames - 1 - frame);
    if (fromEdge >= fadeFrames)
        return 1.0;
    return 0.5 - 0.5 * std::cos(std::numbers::pi * static_cast<double>(fromEdge) / fadeFrames);
}

void WriteSweep(double* out)
{
    for (int64_t frame = 0; frame < Plan::SweepFrames(); ++frame)
    {
        double seconds = static_cast<double>(frame) / Plan::SAMPLE_RATE;
        double sample =
            Plan::SWEEP_PEAK * FadeGain(frame, Plan::SweepFrames()) * std::sin(SweepPhase(seconds));
        out[frame * 2] = sample;
        out[frame * 2 + 1] = sample;
    }
}

void WriteNoise(double* out)
{
    for (int channel = 0; channel < Plan::CHANNELS; ++channel)
    {
        std::vector<double> noise =
            SynthesizePinkNoise(Plan::NoiseFrames(), Plan::NOISE_SEED + channel, Plan::NOISE_RMS);
        for (int64_t frame = 0; frame < Plan::NoiseFrames(); ++frame)
            out[frame * 2 + channel] = noise[frame] * FadeGain(frame, Plan::NoiseFrames());
    }
}

void WriteTones(double* out)
{
    for (int64_t frame = 0; frame < Plan::ToneFrames(); ++frame)
    {
        double seconds = static_cast<double>(frame) / Plan::SAMPLE_RATE;
        double gain = FadeGain(frame, Plan::ToneFrames());
        double left = 0.0;
        double right = 0.0;
        for (const auto& tone : Plan::TONES)
        {
            double value = tone.amplitude * std::sin(TWO_PI * tone.frequencyHz * seconds);
            if (tone.left)
                left += value;
            if (tone.right)
                right += value;
        }
        out[frame * 2] = gain * left;
        out[frame * 2 + 1] = gain * right;
    }
}

}  // namespace

std::vector<double> SynthesizePinkNoise(int64_t frames, uint32_t seed, double rms)
{
    // White noise from the engine's raw output, whose sequence the language fixes,
    // so the demo is the same on every machine.
    std::mt19937 engine(seed);
    // Seven first-order sections whose poles are spread over the audio band; their
    // sum falls by 3 dB per octave within about half a dB from 10 Hz up.
    const double poles[6] = {0.99886, 0.99332, 0.96900, 0.86650, 0.55000, -0.7616};
    const double gains[6] = {0.0555179, 0.0750759, 0.1538520, 0.3104856, 0.5329522, -0.0168980};
    double state[6] = {};
    double held = 0.0;
    std::vector<double> noise(frames);
    for (int64_t frame = 0; frame < frames; ++frame)
    {
        double white = static_cast<double>(engine()) / 2147483648.0 - 1.0;
        double sum = 0.0;
        for (int i = 0; i < 6; ++i)
        {
            state[i] = poles[i] * state[i] + white * gains[i];
            sum += state[i];
        }
        noise[frame] = sum + held + white * 0.5362;
        held = white * 0.115926;
    }
    double energy = 0.0;
    for (double sample : noise)
        energy += sample * sample;
    double scale = energy > 0.0 ? rms / std::sqrt(energy / static_cast<double>(frames)) : 0.0;
    for (double& sample : noise)
        sample *= scale;
    return noise;
}

std::vector<double> SynthesizeDemoSignal()
{
    std::vector<double> signal(Plan::TotalFrames() * Plan::CHANNELS, 0.0);
    double* out = signal.data();
    WriteSweep(out);
    WriteNoise(out + Plan::SweepFrames() * Plan::CHANNELS);
    WriteTones(out + (Plan::SweepFrames() + Plan::NoiseFrames()) * Plan::CHANNELS);
    return signal;
}
