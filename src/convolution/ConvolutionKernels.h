// The inner loops of the convolution engine: complex multiply-accumulate of
// spectra, one partition or two at a time. Written on plain doubles (real,
// imaginary) so that no library complex product with its NaN recovery gets
// in the way, and so that the compiler can vectorise them.
#pragma once

#include <cstdint>

#include "convolution/AudioConvolution.h"

// accumulator += spectrum x filter, point by point.
void MultiplyAccumulate(CAudioConvolution::Complex* accumulator,
                        const CAudioConvolution::Complex* spectrum,
                        const CAudioConvolution::Complex* filter, int32_t points);

// accumulator += spectrumA x filterA + spectrumB x filterB in one pass, which
// halves the accumulator's trips through memory.
void MultiplyAccumulatePair(CAudioConvolution::Complex* accumulator,
                            const CAudioConvolution::Complex* spectrumA,
                            const CAudioConvolution::Complex* filterA,
                            const CAudioConvolution::Complex* spectrumB,
                            const CAudioConvolution::Complex* filterB, int32_t points);

// accumulator = spectrum x filter and accumulator = spectrumA x filterA +
// spectrumB x filterB: the first products of a sum, stored in place of
// clearing the accumulator and adding to it.
void Multiply(CAudioConvolution::Complex* accumulator, const CAudioConvolution::Complex* spectrum,
              const CAudioConvolution::Complex* filter, int32_t points);
void MultiplyPair(CAudioConvolution::Complex* accumulator,
                  const CAudioConvolution::Complex* spectrumA,
                  const CAudioConvolution::Complex* filterA,
                  const CAudioConvolution::Complex* spectrumB,
                  const CAudioConvolution::Complex* filterB, int32_t points);

// target += gain x source over real and imaginary parts.
void AddScaled(CAudioConvolution::Complex* target, const CAudioConvolution::Complex* source,
               double gain, int32_t points);

// The newest `available` spectra of a ring of `slots`, `stride` points apart
// with the newest at `position`, against as many of `partitions` filter
// spectra laid out the same way: filter i multiplies the spectrum i slots old.
// With `fresh` the accumulator's content is ignored and replaced by the sum
// (zeros when there is nothing to multiply).
void AccumulateRing(CAudioConvolution::Complex* accumulator, const CAudioConvolution::Complex* ring,
                    int32_t slots, int32_t position, int32_t available,
                    const CAudioConvolution::Complex* filter, int32_t partitions, int32_t stride,
                    int32_t points, bool paired, bool fresh);

// The partitions of one path against the history it reads: partition i
// multiplies the spectrum i blocks old, for as many partitions as the history
// holds data. `paired` takes them two at a time where it can; `fresh` as for
// AccumulateRing.
void AccumulatePartitions(CAudioConvolution::Complex* accumulator,
                          CAudioConvolution::CSpectrumHistory& history,
                          const CAudioConvolution::CPath& path, bool paired, bool fresh);
