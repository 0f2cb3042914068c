// The single-precision FFT behind the Analyzer: a complex transform of length
// N, forward, unscaled, with its output in natural order (bin k at k). It is
// a thin selector over FFTW's float plans: FFTW picks its own SIMD kernels
// when the plan is made, so there is no processor check of our own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

class PFFFT
{
public:
    // What a plan needs to run: the length, and FFTW's plan behind it.
    struct Setup;

    // Float arrays aligned to 64 bytes, as the transform's input and output.
    struct AlignedDeleter
    {
        void operator()(float* data) const;
    };
    using AlignedFloats = std::unique_ptr<float[], AlignedDeleter>;
    // `count` floats, all zero.
    static AlignedFloats AllocateFloats(size_t count);

    // Plans the complex forward transform of length n (n > 0); null when FFTW
    // cannot plan it. Planning allocates: never call it from the audio path.
    Setup* NewSetup(int32_t n) const;
    void DestroySetup(Setup* setup) const;
    // input and output hold n interleaved complex values (re, im) each and
    // must not overlap; both must be 16-byte aligned like AllocateFloats'.
    // `work` is accepted for the shape of the call and not used.
    void TransformOrdered(const Setup* setup, const float* input, float* output, float* work) const;
};
