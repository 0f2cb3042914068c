// Samples as a reader delivers them, turned to doubles for showing and
// comparing: integers scaled so that full scale is 1.0 (divided by 2^(bits - 1)
// of the container's sample word), unsigned 8-bit samples taken with 128 as
// zero, floats as they are.
#pragma once

#include <cstdint>

#include "qvdsp/AudioFormat.h"

class CIFFInfo;

enum class ESampleEncoding
{
    Integer,
    Float,
    Other,  // mu-law, DTS, MPEG and anything else that is not plain PCM
};

ESampleEncoding GetSampleEncoding(const CAudioFormat& format);

// Converts `sampleCount` samples of `bytes`, as `reader` delivered them, into
// `out`. False, touching nothing, for encodings that are not integer or float
// PCM.
bool SamplesToDoubles(const CIFFInfo& reader, const uint8_t* bytes, int64_t sampleCount,
                      double* out);
