#include "convolution/ConvolutionKernels.h"

#include <algorithm>

namespace
{

using Complex = CAudioConvolution::Complex;

const double* Doubles(const Complex* values)
{
    return reinterpret_cast<const double*>(values);
}

double* Doubles(Complex* values)
{
    return reinterpret_cast<double*>(values);
}

}  // namespace

// The loops below are the engine's hot spot and stream their operands from
// memory; wider vectors than the baseline's SSE2 nearly halve their time. The
// loader picks the widest clone the processor runs. -ffp-contract=off keeps
// every clone's rounding the same, so the clone in use changes no output.
#if defined(__x86_64__) && !defined(__clang__)
#define QV_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define QV_VECTOR_CLONES
#endif

namespace
{

// A block's sum of products begins with a store and goes on with additions;
// the products themselves are the same either way, term for term.
enum class ESum
{
    Begin,
    Continue
};

template <ESum sum>
[[gnu::always_inline]] inline void Put(double& target, double value)
{
    if constexpr (sum == ESum::Begin)
        target = value;
    else
        target += value;
}

template <ESum sum>
[[gnu::always_inline]] inline void ProductInto(Complex* accumulator, const Complex* spectrum,
                                               const Complex* filter, int32_t points)
{
    double* __restrict acc = Doubles(accumulator);
    const double* __restrict x = Doubles(spectrum);
    const double* __restrict h = Doubles(filter);
    for (int32_t i = 0; i < 2 * points; i += 2)
    {
        Put<sum>(acc[i], x[i] * h[i] - x[i + 1] * h[i + 1]);
        Put<sum>(acc[i + 1], x[i] * h[i + 1] + x[i + 1] * h[i]);
    }
}

template <ESum sum>
[[gnu::always_inline]] inline void PairProductInto(Complex* accumulator, const Complex* spectrumA,
                                                   const Complex* filterA, const Complex* spectrumB,
                                                   const Complex* filterB, int32_t points)
{
    double* __restrict acc = Doubles(accumulator);
    const double* __restrict xa = Doubles(spectrumA);
    const double* __restrict ha = Doubles(filterA);
    const double* __restrict xb = Doubles(spectrumB);
    const double* __restrict hb = Doubles(filterB);
    for (int32_t i = 0; i < 2 * points; i += 2)
    {
        Put<sum>(acc[i],
                 (xa[i] * ha[i] - xa[i + 1] * ha[i + 1]) + (xb[i] * hb[i] - xb[i + 1] * hb[i + 1]));
        Put<sum>(acc[i + 1],
                 (xa[i] * ha[i + 1] + xa[i + 1] * ha[i]) + (xb[i] * hb[i + 1] + xb[i + 1] * hb[i]));
    }
}

}  // namespace

QV_VECTOR_CLONES
void MultiplyAccumulate(Complex* accumulator, const Complex* spectrum, const Complex* filter,
                        int32_t points)
{
    ProductInto<ESum::Continue>(accumulator, spectrum, filter, points);
}

QV_VECTOR_CLONES
void MultiplyAccumulatePair(Complex* accumulator, const Complex* spectrumA, const Complex* filterA,
                            const Complex* spectrumB, const Complex* filterB, int32_t points)
{
    PairProductInto<ESum::Continue>(accumulator, spectrumA, filterA, spectrumB, filterB, points);
}

QV_VECTOR_CLONES
void Multiply(Complex* accumulator, const Complex* spectrum, const Complex* filter, int32_t points)
{
    ProductInto<ESum::Begin>(accumulator, spectrum, filter, points);
}

QV_VECTOR_CLONES
void MultiplyPair(Complex* accumulator, const Complex* spectrumA, const Complex* filterA,
                  const Complex* spectrumB, const Complex* filterB, int32_t points)
{
    PairProductInto<ESum::Begin>(accumulator, spectrumA, filterA, spectrumB, filterB, points);
}

QV_VECTOR_CLONES
void AddScaled(Complex* target, const Complex* source, double gain, int32_t points)
{
    double* __restrict out = Doubles(target);
    const double* __restrict in = Doubles(source);
    for (int32_t i = 0; i < 2 * points; ++i)
        out[i] += gain * in[i];
}

void AccumulateRing(Complex* accumulator, const Complex* ring, int32_t slots, int32_t position,
                    int32_t available, const Complex* filter, int32_t partitions, int32_t stride,
                    int32_t points, bool paired, bool fresh)
{
    if (ring == nullptr || filter == nullptr)
    {
        if (fresh)
            std::fill(Doubles(accumulator), Doubles(accumulator) + 2 * points, 0.0);
        return;
    }
    const int32_t used = std::min(partitions, available);
    const auto spectrumOf = [=](int32_t age)
    {
        const int32_t slot = position - age;
        return ring + static_cast<size_t>(slot < 0 ? slot + slots : slot) * stride;
    };
    const auto filterOf = [=](int32_t partition)
    { return filter + static_cast<size_t>(partition) * stride; };

    int32_t i = 0;
    if (fresh)
    {
        if (paired && used >= 2)
            MultiplyPair(accumulator, spectrumOf(0), filterOf(0), spectrumOf(1), filterOf(1),
                         points);
        else if (used >= 1)
            Multiply(accumulator, spectrumOf(0), filterOf(0), points);
        else
            std::fill(Doubles(accumulator), Doubles(accumulator) + 2 * points, 0.0);
        i = paired && used >= 2 ? 2 : 1;
    }
    if (paired)
        for (; i + 1 < used; i += 2)
            MultiplyAccumulatePair(accumulator, spectrumOf(i), filterOf(i), spectrumOf(i + 1),
                                   filterOf(i + 1), points);
    for (; i < used; ++i)
        MultiplyAccumulate(accumulator, spectrumOf(i), filterOf(i), points);
}

void AccumulatePartitions(Complex* accumulator, CAudioConvolution::CSpectrumHistory& history,
                          const CAudioConvolution::CPath& path, bool paired, bool fresh)
{
    AccumulateRing(accumulator, history.spectra.Data(), history.slots, history.position,
                   history.count, path.filter.Data(), path.GetHeadPartitions(), history.stride,
                   history.stride, paired, fresh);
}
