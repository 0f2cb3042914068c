// The test signal of `qvdsp demo`: ten seconds of stereo at 48 kHz in three
// parts, each faded in and out so that no part starts with a click.
//   0 - 4 s   a logarithmic sine sweep from 20 Hz to 20 kHz, peak -6 dBFS
//   4 - 7 s   pink noise, independent per channel, -20 dBFS RMS
//   7 - 10 s  steady tones: 100 Hz at -14 dBFS and 1 kHz at -20 dBFS on both
//             channels, 440 Hz on the left and 660 Hz on the right at -20 dBFS
#pragma once

#include <cstdint>
#include <vector>

struct DemoSignalPlan
{
    static constexpr int SAMPLE_RATE = 48000;
    static constexpr int CHANNELS = 2;
    static constexpr double SWEEP_SECONDS = 4.0;
    static constexpr double NOISE_SECONDS = 3.0;
    static constexpr double TONE_SECONDS = 3.0;
    static constexpr double SWEEP_START_HZ = 20.0;
    static constexpr double SWEEP_END_HZ = 20000.0;
    static constexpr double SWEEP_PEAK = 0.5;
    static constexpr double NOISE_RMS = 0.1;
    static constexpr double FADE_SECONDS = 0.02;
    static constexpr uint32_t NOISE_SEED = 20240601;

    struct Tone
    {
        double frequencyHz;
        double amplitude;
        bool left;
        bool right;
    };
    static constexpr Tone TONES[] = {
        {100.0, 0.2, true, true},
        {1000.0, 0.1, true, true},
        {440.0, 0.1, true, false},
        {660.0, 0.1, false, true},
    };

    static constexpr int64_t SweepFrames()
    {
        return static_cast<int64_t>(SWEEP_SECONDS * SAMPLE_RATE);
    }
    static constexpr int64_t NoiseFrames()
    {
        return static_cast<int64_t>(NOISE_SECONDS * SAMPLE_RATE);
    }
    static constexpr int64_t ToneFrames()
    {
        return static_cast<int64_t>(TONE_SECONDS * SAMPLE_RATE);
    }
    static constexpr int64_t TotalFrames() { return SweepFrames() + NoiseFrames() + ToneFrames(); }
};

// Interleaved stereo, DemoSignalPlan::TotalFrames() frames. The same every run.
std::vector<double> SynthesizeDemoSignal();

// Pink noise (-3 dB per octave) from a seeded white source, scaled to `rms`.
std::vector<double> SynthesizePinkNoise(int64_t frames, uint32_t seed, double rms);
