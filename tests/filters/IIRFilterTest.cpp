#include "filters/IIRFilter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <complex>
#include <cstring>
#include <random>
#include <vector>

namespace
{
constexpr double Pi = 3.141592653589793;
constexpr double Butterworth = 0.7071067811865476;
const QVString NoFile;

// H(e^jw) from the stored coefficients alone, as the packing describes them.
std::complex<double> Response(const CIIRFilter& f, double hz)
{
    const std::complex<double> z1 = std::polar(1.0, -2.0 * Pi * hz / f.sampleRate);
    const std::complex<double> z2 = z1 * z1;
    std::complex<double> h = f.inputGain;
    for (uint32_t k = 0; k < f.sectionCount; ++k)
    {
        if (f.analogPrototype)
        {
            const double* c = f.coefficients + 4 * k;
            h *= (1.0 + c[2] * z1 + c[3] * z2) / (1.0 + c[0] * z1 + c[1] * z2);
        }
        else
        {
            const double* c = f.coefficients + 5 * k;
            h *= (c[0] + c[1] * z1 + c[2] * z2) / (1.0 + c[3] * z1 + c[4] * z2);
        }
    }
    return h;
}

double ResponseDb(const CIIRFilter& f, double hz)
{
    return 20.0 * std::log10(std::abs(Response(f, hz)));
}

// Amplitude of the running filter's answer to a sine, after it has settled.
double SteadySineGain(CIIRFilter& f, double hz)
{
    const int settle = 20000, measure = 4800;
    double peak = 0.0;
    for (int n = 0; n < settle + measure; ++n)
    {
        const double y = f.Process(std::sin(2.0 * Pi * hz * n / f.sampleRate));
        if (n >= settle)
            peak = std::max(peak, std::abs(y));
    }
    return peak;
}

CIIRFilter Designed(int kind, double rate, double hz, double gain, double q)
{
    CIIRFilter f;
    EXPECT_TRUE(f.Design(kind, rate, hz, gain, q, true, NoFile)) << "kind " << kind;
    return f;
}

bool StateIsZero(const CIIRFilter& f)
{
    return std::all_of(f.state, f.state + 22, [](double s) { return s == 0.0; });
}

// The sample loop written the plain way, straight from the description of
// the two layouts, to compare the unrolled paths with.
double PlainProcess(CIIRFilter& f, double input)
{
    auto flush = [](double v) { return std::fabs(v) < 1e-150 ? 0.0 : v; };
    if (f.analogPrototype)
    {
        double x = input * f.inputGain;
        for (uint32_t k = 0; k < f.sectionCount; ++k)
        {
            double* c = f.coefficients + 4 * k;
            double* s = f.state + 2 * k;
            double w = flush(x - c[0] * s[0] - c[1] * s[1]);
            double y = w + c[2] * s[0] + c[3] * s[1];
            s[1] = s[0];
            s[0] = w;
            x = y;
        }
        return x;
    }
    if (f.sectionCount == 0)
        return input * f.inputGain;
    double x = input, y = 0.0;
    for (uint32_t k = 0; k < f.sectionCount; ++k)
    {
        double* c = f.coefficients + 5 * k;
        double* p = f.state + 2 * k;
        double* q = p + 2;
        y = flush(c[0] * x + c[1] * p[0] + c[2] * p[1] - c[3] * q[0] - c[4] * q[1]);
        p[1] = p[0];
        p[0] = x;
        x = y;
    }
    double* last = f.state + 2 * f.sectionCount;
    last[1] = last[0];
    last[0] = y;
    return y;
}
}  // namespace

TEST(IIRFilter, ButterworthAndFirstOrderMatchAnalyticMagnitude)
{
    const double rate = 44100.0, cutoff = 1000.0;
    const double warpedCutoff = std::tan(Pi * cutoff / rate);
    // Order 1 is the first-order pair (kinds 0 and 5), orders 2 to 8 the Butterworth cascades.
    for (int order : {1, 2, 4, 6, 8})
    {
        for (bool highPass : {false, true})
        {
            const int kind = order == 1
                                 ? (highPass ? IIR_HIGHPASS_6 : IIR_LOWPASS_6)
                                 : (highPass ? IIR_HIGHPASS_12 : IIR_LOWPASS_12) + order / 2 - 1;
            CIIRFilter f = Designed(kind, rate, cutoff, 0.0, Butterworth);
            EXPECT_EQ(f.analogPrototype, order > 1);
            EXPECT_NEAR(ResponseDb(f, cutoff), -3.0103, 1e-4) << "kind " << kind;
            for (double hz : {20.0, 300.0, 700.0, 1500.0, 5000.0, 15000.0})
            {
                const double ratio = std::tan(Pi * hz / rate) / warpedCutoff;
                const double analytic =
                    -10.0 * std::log10(1.0 + std::pow(highPass ? 1.0 / ratio : ratio, 2.0 * order));
                EXPECT_NEAR(ResponseDb(f, hz), analytic, 1e-6) << "kind " << kind << " at " << hz;
            }
        }
    }
    // The same Q acts on every section: a higher Q lifts the corner of the whole cascade.
    EXPECT_GT(ResponseDb(Designed(IIR_LOWPASS_48, rate, cutoff, 0.0, 2.0), cutoff), 0.0);
}

TEST(IIRFilter, PeakingBandPassShelfAndAllPassGains)
{
    const double rate = 44100.0, centre = 1000.0, nyquist = rate / 2;
    struct Probe
    {
        int kind;
        double gain, q, hz, expectedDb;
    };
    // Shelves pass half their gain in dB at the corner.
    const Probe probes[] = {
        {IIR_PEAKING, 6.0, 1.4, centre, 6.0},    {IIR_PEAKING, 6.0, 1.4, 0.0, 0.0},
        {IIR_PEAKING, 6.0, 1.4, nyquist, 0.0},   {IIR_BANDPASS, 0.0, 2.0, centre, 0.0},
        {IIR_LOWSHELF, -9.0, 0.7, 0.0, -9.0},    {IIR_LOWSHELF, -9.0, 0.7, centre, -4.5},
        {IIR_LOWSHELF, -9.0, 0.7, nyquist, 0.0}, {IIR_HIGHSHELF, 9.0, 0.7, 0.0, 0.0},
        {IIR_HIGHSHELF, 9.0, 0.7, centre, 4.5},  {IIR_HIGHSHELF, 9.0, 0.7, nyquist, 9.0},
    };
    for (const Probe& p : probes)
        EXPECT_NEAR(ResponseDb(Designed(p.kind, rate, centre, p.gain, p.q), p.hz), p.expectedDb,
                    1e-9)
            << "kind " << p.kind << " at " << p.hz;
    EXPECT_LT(ResponseDb(Designed(IIR_BANDPASS, rate, centre, 0.0, 2.0), 10.0), -40.0);
    // The running filter agrees with the response of its coefficients.
    CIIRFilter peak = Designed(IIR_PEAKING, rate, centre, 6.0, 1.4);
    EXPECT_NEAR(SteadySineGain(peak, centre), std::pow(10.0, 6.0 / 20.0), 1e-3);

    // Without gain the numerator equals the denominator to the bit.
    CIIRFilter flat = Designed(IIR_PEAKING, rate, centre, 0.0, 1.4);
    EXPECT_EQ(flat.coefficients[0], 1.0);
    EXPECT_EQ(flat.coefficients[1], flat.coefficients[3]);
    EXPECT_EQ(flat.coefficients[2], flat.coefficients[4]);

    // A shelf's Q stops at 5; the peaking filter's does not.
    for (int kind : {IIR_LOWSHELF, IIR_HIGHSHELF, IIR_PEAKING})
    {
        CIIRFilter at5 = Designed(kind, rate, centre, 6.0, 5.0);
        CIIRFilter at20 = Designed(kind, rate, centre, 6.0, 20.0);
        EXPECT_EQ(kind != IIR_PEAKING,
                  0 == std::memcmp(at5.coefficients, at20.coefficients, sizeof at5.coefficients));
        EXPECT_NE(0, std::memcmp(at5.coefficients,
                                 Designed(kind, rate, centre, 6.0, 4.0).coefficients, 40));
    }

    CIIRFilter allPass = Designed(IIR_ALLPASS, 48000.0, 3000.0, 0.0, 0.9);
    for (double hz = 0.0; hz <= 24000.0; hz += 250.0)
        EXPECT_NEAR(std::abs(Response(allPass, hz)), 1.0, 1e-12) << hz;
    EXPECT_NEAR(std::abs(std::arg(Response(allPass, 3000.0))), Pi, 1e-9);
    EXPECT_NEAR(SteadySineGain(allPass, 5000.0), 1.0, 1e-3);
}

TEST(IIRFilter, KWeightingFollowsTheLoudnessCurveAtAnyRate)
{
    // The published 48 kHz coefficients of the loudness weighting.
    CIIRFilter f = Designed(IIR_KWEIGHTING, 48000.0, 1000.0, 0.0, 1.0);
    ASSERT_EQ(f.sectionCount, 2u);
    const double published[10] = {1.53512485958697,
                                  -2.69169618940638,
                                  1.19839281085285,
                                  -1.69065929318241,
                                  0.73248077421585,
                                  1.0,
                                  -2.0,
                                  1.0,
                                  -1.99004745483398,
                                  0.99007225036621};
    for (int i = 0; i < 10; ++i)
        EXPECT_NEAR(f.coefficients[i], published[i], 1e-9) << i;
    for (double rate : {48000.0, 44100.0})
    {
        CIIRFilter k = Designed(IIR_KWEIGHTING, rate, 1000.0, 0.0, 1.0);
        // 997 Hz is lifted by the 0.691 dB that the loudness formula takes off
        // again; the shelf reaches about +4 dB; the high-pass cuts the lowest bass.
        EXPECT_NEAR(ResponseDb(k, 997.0), 0.691, 0.005) << rate;
        EXPECT_NEAR(ResponseDb(k, 16000.0), 4.0, 0.1) << rate;
        EXPECT_LT(ResponseDb(k, 20.0), -10.0) << rate;
    }
}

TEST(IIRFilter, FixedTableAndTransparentDesigns)
{
    // The fixed table ignores every parameter, the frequency included.
    CIIRFilter a = Designed(IIR_FIXED_TABLE, 44100.0, 1000.0, 0.0, 1.0);
    CIIRFilter b = Designed(IIR_FIXED_TABLE, 96000.0, 47900.0, 12.0, 3.0);
    ASSERT_EQ(a.sectionCount, 4u);
    EXPECT_EQ(0, std::memcmp(a.coefficients, b.coefficients, sizeof a.coefficients));
    const double section2[5] = {1.0, -1.818851873988273, 0.828002905238657, -1.737374, 0.758104};
    EXPECT_EQ(0, std::memcmp(a.coefficients + 5, section2, sizeof section2));

    // Every other kind passes the signal untouched above 99% of Nyquist.
    for (int kind = 0; kind <= IIR_CUSTOM_FILE; ++kind)
    {
        if (kind == IIR_FIXED_TABLE)
            continue;
        CIIRFilter f = Designed(kind, 44100.0, 21900.0, 6.0, 1.0);
        EXPECT_EQ(f.sectionCount, 0u) << kind;
        for (double x : {0.25, -1.0, 1e-200})
            EXPECT_EQ(f.Process(x), x);
    }
    EXPECT_EQ(Designed(IIR_LOWPASS_12, 44100.0, 21800.0, 0.0, 1.0).sectionCount, 1u);
}

TEST(IIRFilter, RangesAndUnknownKinds)
{
    CIIRFilter f;
    auto design = [&](int kind, double rate, double hz, double gain, double q)
    { return f.Design(kind, rate, hz, gain, q, true, NoFile); };
    EXPECT_FALSE(design(IIR_LOWPASS_12, 999.9, 100.0, 0.0, 1.0));
    EXPECT_TRUE(design(IIR_LOWPASS_12, 1000.0, 100.0, 0.0, 1.0));
    EXPECT_TRUE(design(IIR_PEAKING, 1e7, 1e6, 1000.0, 10000.0));
    EXPECT_TRUE(design(IIR_PEAKING, 48000.0, 0.0, -1000.0, 0.01));
    EXPECT_FALSE(design(IIR_PEAKING, 1.0000001e7, 100.0, 0.0, 1.0));
    EXPECT_FALSE(design(IIR_PEAKING, 48000.0, -0.001, 0.0, 1.0));
    EXPECT_FALSE(design(IIR_PEAKING, 48000.0, 100.0, 1000.5, 1.0));
    EXPECT_FALSE(design(IIR_PEAKING, 48000.0, 100.0, 0.0, 0.0099));
    EXPECT_FALSE(design(18, 48000.0, 100.0, 0.0, 1.0));
    EXPECT_FALSE(design(-1, 48000.0, 100.0, 0.0, 1.0));
    EXPECT_FALSE(f.designed);
}

TEST(IIRFilter, UnchangedDesignKeepsStateAndAnyChangeClearsIt)
{
    const double rate = 48000.0, hz = 500.0, gain = 3.0, q = 1.2;
    for (int kind : {IIR_LOWPASS_24, IIR_PEAKING})
    {
        auto primed = [&]
        {
            CIIRFilter f = Designed(kind, rate, hz, gain, q);
            for (int n = 0; n < 100; ++n)
                f.Process(std::sin(n * 0.3));
            return f;
        };
        CIIRFilter f = primed();
        const CIIRFilter before = f;
        EXPECT_TRUE(f.Design(kind, rate, hz, gain, q, true, NoFile));
        EXPECT_EQ(0, std::memcmp(before.state, f.state, sizeof f.state));

        const double changes[4][4] = {{rate * (1 + 1e-9), hz, gain, q},
                                      {rate, hz * (1 + 1e-9), gain, q},
                                      {rate, hz, gain + 1e-9, q},
                                      {rate, hz, gain, q * (1 + 1e-9)}};
        for (const auto& c : changes)
        {
            CIIRFilter g = primed();
            EXPECT_TRUE(g.Design(kind, c[0], c[1], c[2], c[3], true, NoFile));
            EXPECT_TRUE(StateIsZero(g));
        }
        // A failed design forgets the old one: the same parameters then design afresh.
        CIIRFilter g = primed();
        EXPECT_FALSE(g.Design(kind, 500.0, hz, gain, q, true, NoFile));
        EXPECT_TRUE(g.Design(kind, rate, hz, gain, q, true, NoFile));
        EXPECT_TRUE(StateIsZero(g));
    }
}

TEST(IIRFilter, UnrolledPathsEqualThePlainLoop)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> coefficient(-0.4, 0.4), sample(-1.0, 1.0);
    std::vector<double> input(3000);
    for (double& x : input)
        x = sample(random);
    input.resize(input.size() + 40000, 0.0);  // a long silent tail exercises the flush
    for (bool analog : {true, false})
    {
        for (uint32_t sections = 0; sections <= (analog ? 4u : 10u); ++sections)
        {
            CIIRFilter fast = Designed(IIR_PEAKING, 48000.0, 1000.0, 3.0, 1.0);
            fast.analogPrototype = analog;
            fast.sectionCount = sections;
            fast.inputGain = analog ? 0.75 : 1.0;
            for (double& c : fast.coefficients)
                c = coefficient(random);  // |a1| + |a2| < 1 keeps every section stable
            CIIRFilter plain = fast;
            for (double x : input)
                ASSERT_EQ(fast.Process(x), PlainProcess(plain, x)) << analog << " " << sections;
            EXPECT_EQ(0, std::memcmp(fast.state, plain.state, sizeof fast.state));
            EXPECT_TRUE(StateIsZero(fast));  // the silent tail flushed everything
        }
    }
}

TEST(IIRFilter, FlushTurnsADecayingTailIntoExactZeros)
{
    struct Case
    {
        int kind;
        double hz, gain, q;
        bool reachesSilence;
    };
    // A sharp resonance far below the rate is kicked again by each flush of a
    // value near 1e-150 and keeps ringing there: still far from subnormal.
    const Case cases[] = {{IIR_LOWPASS_48, 1000.0, 0.0, Butterworth, true},
                          {IIR_HIGHPASS_24, 100.0, 0.0, Butterworth, true},
                          {IIR_PEAKING, 1000.0, 6.0, 1.0, true},
                          {IIR_HIGHPASS_6, 50.0, 0.0, 1.0, true},
                          {IIR_KWEIGHTING, 1000.0, 0.0, 1.0, true},
                          {IIR_LOWPASS_48, 200.0, 0.0, 4.0, false}};
    for (const Case& c : cases)
    {
        CIIRFilter f = Designed(c.kind, 44100.0, c.hz, c.gain, c.q);
        f.Process(1.0);
        bool silent = false;
        for (int n = 0; n < 1000000 && !silent; ++n)
        {
            const double y = f.Process(0.0);
            ASSERT_NE(std::fpclassify(y), FP_SUBNORMAL);
            silent = y == 0.0 && StateIsZero(f);
        }
        EXPECT_EQ(silent, c.reachesSilence) << "kind " << c.kind << " at " << c.hz;
    }
}
