// The recursive filter every DSP stage of the module stands on: one channel of
// a cascade of up to ten second-order sections, designed from a kind and four
// numbers, run one sample at a time in double precision.
#pragma once

#include "core/QVString.h"

#include <cmath>
#include <cstdint>

enum IIRFilterKind : int32_t
{
    IIR_LOWPASS_6 = 0,
    IIR_LOWPASS_12 = 1,
    IIR_LOWPASS_24 = 2,
    IIR_LOWPASS_36 = 3,
    IIR_LOWPASS_48 = 4,
    IIR_HIGHPASS_6 = 5,
    IIR_HIGHPASS_12 = 6,
    IIR_HIGHPASS_24 = 7,
    IIR_HIGHPASS_36 = 8,
    IIR_HIGHPASS_48 = 9,
    IIR_PEAKING = 10,
    IIR_BANDPASS = 11,
    IIR_LOWSHELF = 12,
    IIR_HIGHSHELF = 13,
    IIR_FIXED_TABLE = 14,
    IIR_KWEIGHTING = 15,
    IIR_ALLPASS = 16,
    IIR_CUSTOM_FILE = 17,
};

class CIIRFilterBase
{
public:
    virtual ~CIIRFilterBase() = default;
};

class CIIRFilter : public CIIRFilterBase
{
public:
    static constexpr int32_t MaxSections = 10;
    static constexpr int32_t AnalogCoefficientsPerSection = 4;  // d1, d2, n1, n2
    static constexpr int32_t DirectCoefficientsPerSection = 5;  // b0, b1, b2, a1, a2
    static constexpr int32_t MaxAnalogSections = 4;
    // Recursive values below this are set to exact zero: far above the
    // denormal range, so a decaying tail never slows the processor down and
    // silence in gives true zeros out after a while.
    static constexpr double FlushThreshold = 1e-150;

    // Returns true when the filter may be used. Cheap when nothing changed, so
    // owners call it before every block; a changed parameter restarts the
    // filter from silence. `flag` has no effect.
    bool Design(int kind, double sampleRate, double frequency, double gain, double q, bool flag,
                const QVString& customFile);
    // Whether Design takes these parameters; NaN is outside every range.
    static bool InDesignRange(double frequency, double gain, double q);

    // One sample in, one out; only after Design returned true.
    inline double Process(double input) noexcept;

    bool designed = false;
    int32_t kind = -1;
    double sampleRate = 0.0;
    double frequency = 0.0;
    double gain = 0.0;  // dB
    double q = 0.0;
    QVString customFile;  // biquad text file of kind 17, else empty
    uint32_t sectionCount = 0;
    bool analogPrototype = true;  // true: d1, d2, n1, n2 per section; false: b0, b1, b2, a1, a2
    double inputGain = 1.0;
    double coefficients[50] = {};
    double state[22] = {};

private:
    // a0, a1, a2, b0, b1, b2 of one section while a design runs.
    using WorkingRow = double[6];

    bool SameParameters(int kind, double sampleRate, double frequency, double gain, double q,
                        const QVString& customFile) const;
    bool FillRows(WorkingRow* rows);
    void PackAnalogSection(const WorkingRow& row, double* packed, double& runningGain) const;
    static void PackDirectSection(const WorkingRow& row, double* packed) noexcept;

    // Compiles to a mask, not a jump. A forced jump measured slower: the
    // cost of a section is its state's trip through memory between calls,
    // and the extra instructions only crowd the cascades.
    [[gnu::always_inline]] static inline double Flush(double value) noexcept
    {
        return std::fabs(value) < FlushThreshold ? 0.0 : value;
    }
    template <uint32_t Sections>
    [[gnu::always_inline]] inline double ProcessAnalog(double input) noexcept;
    template <uint32_t Sections>
    [[gnu::always_inline]] inline double ProcessDirect(double input) noexcept;
};

// Direct form II: per section only the internal node w is kept. Only w feeds
// back, so only w is flushed.
template <uint32_t Sections>
inline double CIIRFilter::ProcessAnalog(double input) noexcept
{
    double x = input * inputGain;
#pragma GCC unroll 4
    for (uint32_t k = 0; k < Sections; ++k)
    {
        const double* c = coefficients + k * AnalogCoefficientsPerSection;
        double* s = state + 2 * k;
        const double s1 = s[0];
        const double s2 = s[1];
        const double w = Flush(x - c[0] * s1 - c[1] * s2);
        x = w + c[2] * s1 + c[3] * s2;
        s[1] = s1;
        s[0] = w;
    }
    return x;
}

// Direct form I with shared delay pairs: the two previous outputs of section k
// are the two previous inputs of section k + 1, so a cascade of n sections
// keeps n + 1 pairs instead of 2n.
template <uint32_t Sections>
inline double CIIRFilter::ProcessDirect(double input) noexcept
{
    double x = input;
    double p1 = state[0];
    double p2 = state[1];
#pragma GCC unroll 10
    for (uint32_t k = 0; k < Sections; ++k)
    {
        const double* c = coefficients + k * DirectCoefficientsPerSection;
        const double q1 = state[2 * k + 2];
        const double q2 = state[2 * k + 3];
        const double y = Flush(c[0] * x + c[1] * p1 + c[2] * p2 - c[3] * q1 - c[4] * q2);
        state[2 * k] = x;
        state[2 * k + 1] = p1;
        x = y;
        p1 = q1;
        p2 = q2;
    }
    state[2 * Sections] = x;
    state[2 * Sections + 1] = p1;
    return x;
}

// One code path per section count and layout, chosen by one jump: the section
// loops above unroll completely inside each case.
inline double CIIRFilter::Process(double input) noexcept
{
    const uint32_t path = analogPrototype ? sectionCount : sectionCount + 16;
    switch (path)
    {
    case 1: return ProcessAnalog<1>(input);
    case 2: return ProcessAnalog<2>(input);
    case 3: return ProcessAnalog<3>(input);
    case 4: return ProcessAnalog<4>(input);
    case 16 + 1: return ProcessDirect<1>(input);
    case 16 + 2: return ProcessDirect<2>(input);
    case 16 + 3: return ProcessDirect<3>(input);
    case 16 + 4: return ProcessDirect<4>(input);
    case 16 + 5: return ProcessDirect<5>(input);
    case 16 + 6: return ProcessDirect<6>(input);
    case 16 + 7: return ProcessDirect<7>(input);
    case 16 + 8: return ProcessDirect<8>(input);
    case 16 + 9: return ProcessDirect<9>(input);
    case 16 + 10: return ProcessDirect<10>(input);
    default: return input * inputGain;  // no sections: transparent, scaled
    }
}
