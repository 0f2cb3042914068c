// Test signals, interleaved doubles with the same content in every channel
// unless said otherwise. Reproducible: noise comes from a fixed seed and a
// generator whose sequence the C++ standard fixes.
#pragma once

#include <cstdint>
#include <vector>

namespace qvtest
{

std::vector<double> Silence(int32_t frames, int32_t channels);
// One sample of `amplitude` at frame `position` in every channel, zeros elsewhere.
std::vector<double> Impulse(int32_t frames, int32_t channels, int32_t position = 0,
                            double amplitude = 1.0);
// amplitude * sin(2 pi f n / rate + phase).
std::vector<double> Sine(int32_t frames, int32_t channels, double frequencyHz, double sampleRate,
                         double amplitude = 1.0, double phase = 0.0);
// Uniform white noise in [-amplitude, amplitude), independent per channel.
std::vector<double> Noise(int32_t frames, int32_t channels, uint64_t seed = 1,
                          double amplitude = 1.0);

// One channel of an interleaved signal.
std::vector<double> ChannelOf(const std::vector<double>& signal, int32_t channels, int32_t channel);

double Rms(const std::vector<double>& samples);
double Peak(const std::vector<double>& samples);

}  // namespace qvtest
