// One second-order section of a CIIRFilter with its coefficients and state in
// locals, for loops that run a whole block through a single section: the
// state stays in registers for the block instead of going through memory at
// every sample. The arithmetic is CIIRFilter::Process's, term for term, so a
// block gives the same samples as calling Process on each.
#pragma once

#include "filters/IIRFilter.h"

#include <cmath>
#include <cstdint>

// The direct form of peak, shelf and all-pass sections.
struct DirectSectionRegisters
{
    static bool Fits(const CIIRFilter& filter)
    {
        return !filter.analogPrototype && filter.sectionCount == 1;
    }

    double b0, b1, b2, a1, a2;
    double p1, p2, q1, q2;

    explicit DirectSectionRegisters(const CIIRFilter& filter)
        : b0(filter.coefficients[0]), b1(filter.coefficients[1]), b2(filter.coefficients[2]),
          a1(filter.coefficients[3]), a2(filter.coefficients[4]), p1(filter.state[0]),
          p2(filter.state[1]), q1(filter.state[2]), q2(filter.state[3])
    {
    }
    [[gnu::always_inline]] inline double Step(double x)
    {
        double y = b0 * x + b1 * p1 + b2 * p2 - a1 * q1 - a2 * q2;
        if (std::fabs(y) < CIIRFilter::FlushThreshold)
            y = 0.0;
        p2 = p1;
        p1 = x;
        q2 = q1;
        q1 = y;
        return y;
    }
    void StoreTo(CIIRFilter& filter) const
    {
        filter.state[0] = p1;
        filter.state[1] = p2;
        filter.state[2] = q1;
        filter.state[3] = q2;
    }
};

// The analog-prototype form of the second-order low- and high-pass sections,
// with the filter's input gain.
struct AnalogSectionRegisters
{
    static bool Fits(const CIIRFilter& filter)
    {
        return filter.analogPrototype && filter.sectionCount == 1;
    }

    double gain, d1, d2, n1, n2;
    double s1, s2;

    explicit AnalogSectionRegisters(const CIIRFilter& filter)
        : gain(filter.inputGain), d1(filter.coefficients[0]), d2(filter.coefficients[1]),
          n1(filter.coefficients[2]), n2(filter.coefficients[3]), s1(filter.state[0]),
          s2(filter.state[1])
    {
    }
    [[gnu::always_inline]] inline double Step(double input)
    {
        const double x = input * gain;
        double w = x - d1 * s1 - d2 * s2;
        if (std::fabs(w) < CIIRFilter::FlushThreshold)
            w = 0.0;
        const double y = w + n1 * s1 + n2 * s2;
        s2 = s1;
        s1 = w;
        return y;
    }
    void StoreTo(CIIRFilter& filter) const
    {
        filter.state[0] = s1;
        filter.state[1] = s2;
    }
};

// Two channels side by side in one register: each lane computes exactly what
// CIIRFilter computes for its channel, operation by operation (no contraction,
// the same order of terms), so the outcome is bit for bit the filter's own.
using Lanes = double __attribute__((vector_size(16)));
using LaneMask = int64_t __attribute__((vector_size(16)));

inline Lanes FlushTiny(Lanes value)
{
    // |value| < 1e-150 becomes +0.0, as the filter's own flush does; a NaN
    // compares false and stays.
    const LaneMask magnitudeBits =
        reinterpret_cast<LaneMask>(value) & LaneMask{INT64_MAX, INT64_MAX};
    const LaneMask tiny = reinterpret_cast<Lanes>(magnitudeBits) <
                          Lanes{CIIRFilter::FlushThreshold, CIIRFilter::FlushThreshold};
    return reinterpret_cast<Lanes>(reinterpret_cast<LaneMask>(value) & ~tiny);
}

// AnalogSectionRegisters for the two channels of a stereo stream at once: the
// recursion's latency is paid once a frame instead of once a channel.
struct AnalogSectionLanes
{
    Lanes gain, d1, d2, n1, n2;
    Lanes s1, s2;

    AnalogSectionLanes(const CIIRFilter& left, const CIIRFilter& right)
        : gain{left.inputGain, right.inputGain}, d1{left.coefficients[0], right.coefficients[0]},
          d2{left.coefficients[1], right.coefficients[1]}, n1{left.coefficients[2],
                                                              right.coefficients[2]},
          n2{left.coefficients[3], right.coefficients[3]}, s1{left.state[0], right.state[0]},
          s2{left.state[1], right.state[1]}
    {
    }
    [[gnu::always_inline]] inline Lanes Step(Lanes input)
    {
        const Lanes x = input * gain;
        const Lanes w = FlushTiny(x - d1 * s1 - d2 * s2);
        const Lanes y = w + n1 * s1 + n2 * s2;
        s2 = s1;
        s1 = w;
        return y;
    }
    void StoreTo(CIIRFilter& left, CIIRFilter& right) const
    {
        left.state[0] = s1[0];
        left.state[1] = s2[0];
        right.state[0] = s1[1];
        right.state[1] = s2[1];
    }
};
