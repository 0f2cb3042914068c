// Helpers of the Equalizer tests: tools whose settings keys live in a
// temporary JSON file, direct access to store keys, and the analytic response
// of the band filters worked out from their design formulas.
#pragma once

#include <cmath>
#include <complex>
#include <filesystem>
#include <memory>
#include <string>

#include "support/FileStoreTools.h"
#include "support/TestSupport.h"

namespace eqtest
{
using StoreTools = qvtest::FileStoreTools;
using ScopedStore = qvtest::ScopedFileStore;

inline constexpr const char16_t* CURRENT_KEY = u"Zones\\1\\Equalizer";
inline constexpr const char16_t* PRESETS_KEY = u"Zones\\Global\\Equalizer\\Presets";
inline constexpr const char16_t* LEGACY_KEY = u"Plugins\\DSP\\QM DSP";
inline constexpr const char16_t* LEGACY_PRESETS_KEY = u"Plugins\\DSP\\QM DSP\\EQ Presets";

// The peaking section of the design formulas (A = 10^(gain/40),
// alpha = sin(w0) / 2Q), evaluated on the unit circle at `frequency`.
inline std::complex<double> PeakingResponse(double centre, double gainDb, double q,
                                            double frequency, double rate)
{
    if (gainDb == 0.0 || centre > rate * 0.5 * 0.99)
        return 1.0;
    const double w0 = 2.0 * M_PI * centre / rate;
    const double a = std::pow(10.0, gainDb / 40.0);
    const double alpha = std::sin(w0) / (2.0 * q);
    const std::complex<double> z1 = std::polar(1.0, -2.0 * M_PI * frequency / rate);
    const std::complex<double> z2 = z1 * z1;
    const std::complex<double> numerator =
        (1.0 + alpha * a) - 2.0 * std::cos(w0) * z1 + (1.0 - alpha * a) * z2;
    const std::complex<double> denominator =
        (1.0 + alpha / a) - 2.0 * std::cos(w0) * z1 + (1.0 - alpha / a) * z2;
    return numerator / denominator;
}

// Amplitude of the component at `frequency` in one channel of an interleaved
// signal, over the last whole periods that fit in `windowFrames`.
inline double ToneAmplitude(const std::vector<double>& signal, int32_t channels, int32_t channel,
                            double frequency, double rate, int32_t windowFrames)
{
    const int64_t frames = static_cast<int64_t>(signal.size()) / channels;
    const double period = rate / frequency;
    const int64_t length = static_cast<int64_t>(std::floor(windowFrames / period) * period + 0.5);
    double sine = 0.0;
    double cosine = 0.0;
    for (int64_t n = frames - length; n < frames; ++n)
    {
        const double phase = 2.0 * M_PI * frequency * static_cast<double>(n) / rate;
        const double x = signal[static_cast<size_t>(n * channels + channel)];
        sine += x * std::sin(phase);
        cosine += x * std::cos(phase);
    }
    return 2.0 * std::hypot(sine, cosine) / static_cast<double>(length);
}

inline double Db(double magnitude)
{
    return 20.0 * std::log10(magnitude);
}
}  // namespace eqtest
