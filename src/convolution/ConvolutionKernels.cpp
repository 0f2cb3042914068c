#include "convolution/ConvolutionKernels.h"

#include <algorithm>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

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

// The loops below are the engine's hot spot. Left to the compiler, a product
// of interleaved complex numbers becomes a vector loop that spends most of its
// instructions regrouping real and imaginary parts across the register's
// halves. The AVX2 form below needs only in-lane swaps and duplications per
// product and an add-subtract, and does every multiplication and addition of
// the plain form in the same order, so both give the same bits; the processor
// decides once which one runs. -ffp-contract=off keeps either from fusing.
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
[[gnu::always_inline]] inline void ProductInto(double* __restrict acc, const double* __restrict x,
                                               const double* __restrict h, int32_t from,
                                               int32_t points)
{
    for (int32_t i = 2 * from; i < 2 * points; i += 2)
    {
        Put<sum>(acc[i], x[i] * h[i] - x[i + 1] * h[i + 1]);
        Put<sum>(acc[i + 1], x[i] * h[i + 1] + x[i + 1] * h[i]);
    }
}

template <ESum sum>
[[gnu::always_inline]] inline void
PairProductInto(double* __restrict acc, const double* __restrict xa, const double* __restrict ha,
                const double* __restrict xb, const double* __restrict hb, int32_t from,
                int32_t points)
{
    for (int32_t i = 2 * from; i < 2 * points; i += 2)
    {
        Put<sum>(acc[i],
                 (xa[i] * ha[i] - xa[i + 1] * ha[i + 1]) + (xb[i] * hb[i] - xb[i + 1] * hb[i + 1]));
        Put<sum>(acc[i + 1],
                 (xa[i] * ha[i + 1] + xa[i + 1] * ha[i]) + (xb[i] * hb[i + 1] + xb[i + 1] * hb[i]));
    }
}

#if defined(__x86_64__) && defined(__GNUC__)
#define QV_HAS_AVX2_KERNELS 1
#define QV_AVX2 __attribute__((target("avx2")))

bool ProcessorHasAVX2()
{
    static const bool hasAVX2 = __builtin_cpu_supports("avx2");
    return hasAVX2;
}

// Two complex products at once: (xr hr - xi hi, xr hi + xi hr) per point.
QV_AVX2 inline __m256d ComplexProduct(const double* x, const double* h)
{
    const __m256d values = _mm256_loadu_pd(x);
    const __m256d filter = _mm256_loadu_pd(h);
    const __m256d real = _mm256_movedup_pd(values);            // xr xr
    const __m256d imaginary = _mm256_permute_pd(values, 0xF);  // xi xi
    const __m256d swapped = _mm256_permute_pd(filter, 0x5);    // hi hr
    return _mm256_addsub_pd(_mm256_mul_pd(real, filter), _mm256_mul_pd(imaginary, swapped));
}

template <ESum sum>
QV_AVX2 inline void PutVector(double* target, __m256d value)
{
    if constexpr (sum == ESum::Continue)
        value = _mm256_add_pd(_mm256_loadu_pd(target), value);
    _mm256_storeu_pd(target, value);
}

template <ESum sum>
QV_AVX2 void ProductIntoAVX2(double* __restrict acc, const double* __restrict x,
                             const double* __restrict h, int32_t points)
{
    const int32_t vectorPoints = points & ~1;
    for (int32_t i = 0; i < 2 * vectorPoints; i += 4)
        PutVector<sum>(acc + i, ComplexProduct(x + i, h + i));
    ProductInto<sum>(acc, x, h, vectorPoints, points);
}

template <ESum sum>
QV_AVX2 void PairProductIntoAVX2(double* __restrict acc, const double* __restrict xa,
                                 const double* __restrict ha, const double* __restrict xb,
                                 const double* __restrict hb, int32_t points)
{
    const int32_t vectorPoints = points & ~1;
    for (int32_t i = 0; i < 2 * vectorPoints; i += 4)
        PutVector<sum>(
            acc + i, _mm256_add_pd(ComplexProduct(xa + i, ha + i), ComplexProduct(xb + i, hb + i)));
    PairProductInto<sum>(acc, xa, ha, xb, hb, vectorPoints, points);
}
#endif

template <ESum sum>
void Product(Complex* accumulator, const Complex* spectrum, const Complex* filter, int32_t points)
{
#ifdef QV_HAS_AVX2_KERNELS
    if (ProcessorHasAVX2())
        return ProductIntoAVX2<sum>(Doubles(accumulator), Doubles(spectrum), Doubles(filter),
                                    points);
#endif
    ProductInto<sum>(Doubles(accumulator), Doubles(spectrum), Doubles(filter), 0, points);
}

template <ESum sum>
void PairProduct(Complex* accumulator, const Complex* spectrumA, const Complex* filterA,
                 const Complex* spectrumB, const Complex* filterB, int32_t points)
{
#ifdef QV_HAS_AVX2_KERNELS
    if (ProcessorHasAVX2())
        return PairProductIntoAVX2<sum>(Doubles(accumulator), Doubles(spectrumA), Doubles(filterA),
                                        Doubles(spectrumB), Doubles(filterB), points);
#endif
    PairProductInto<sum>(Doubles(accumulator), Doubles(spectrumA), Doubles(filterA),
                         Doubles(spectrumB), Doubles(filterB), 0, points);
}

}  // namespace

void MultiplyAccumulate(Complex* accumulator, const Complex* spectrum, const Complex* filter,
                        int32_t points)
{
    Product<ESum::Continue>(accumulator, spectrum, filter, points);
}

void MultiplyAccumulatePair(Complex* accumulator, const Complex* spectrumA, const Complex* filterA,
                            const Complex* spectrumB, const Complex* filterB, int32_t points)
{
    PairProduct<ESum::Continue>(accumulator, spectrumA, filterA, spectrumB, filterB, points);
}

void Multiply(Complex* accumulator, const Complex* spectrum, const Complex* filter, int32_t points)
{
    Product<ESum::Begin>(accumulator, spectrum, filter, points);
}

void MultiplyPair(Complex* accumulator, const Complex* spectrumA, const Complex* filterA,
                  const Complex* spectrumB, const Complex* filterB, int32_t points)
{
    PairProduct<ESum::Begin>(accumulator, spectrumA, filterA, spectrumB, filterB, points);
}

// Scaled additions are few (one per mixed input line and block); the compiler's
// wider clone of the plain loop is enough for them.
#if defined(__x86_64__) && !defined(__clang__)
#define QV_VECTOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define QV_VECTOR_CLONES
#endif

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
