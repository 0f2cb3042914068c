#include "audiofile/SampleValues.h"

#include "audiofile/IFFInfo.h"

#include <algorithm>
#include <cmath>
#include <cstring>

ESampleEncoding GetSampleEncoding(const CAudioFormat& format)
{
    const bool extensible = format.formatTag == WAVE_FORMAT_EXTENSIBLE;
    if (format.formatTag == WAVE_FORMAT_IEEE_FLOAT ||
        (extensible && format.subFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT))
    {
        return format.bitsPerSample == 32 || format.bitsPerSample == 64 ? ESampleEncoding::Float
                                                                        : ESampleEncoding::Other;
    }
    if (format.formatTag == WAVE_FORMAT_PCM ||
        (extensible && format.subFormat == KSDATAFORMAT_SUBTYPE_PCM))
    {
        return format.bitsPerSample >= 8 && format.bitsPerSample <= 64 &&
                       format.bitsPerSample % 8 == 0
                   ? ESampleEncoding::Integer
                   : ESampleEncoding::Other;
    }
    return ESampleEncoding::Other;
}

bool SamplesToDoubles(const CIFFInfo& reader, const uint8_t* bytes, int64_t sampleCount,
                      double* out)
{
    const CAudioFormat& format = reader.GetFormat();
    const ESampleEncoding encoding = GetSampleEncoding(format);
    if (encoding == ESampleEncoding::Other)
        return false;
    const int32_t width = format.bitsPerSample / 8;
    // Readers turn samples up to 32 bits to the machine's order; deeper ones
    // a big-endian file leaves as they are, and its format says so.
    const bool bigEndian = (format.flags & CAudioFormat::FLAG_BIG_ENDIAN) != 0 && width > 4;
    const bool unsigned8 = width == 1 && reader.DeliversUnsigned8();
    const double scale = std::ldexp(1.0, -(format.bitsPerSample - 1));
    for (int64_t i = 0; i < sampleCount; ++i)
    {
        uint8_t word[8];
        std::memcpy(word, bytes + i * width, static_cast<size_t>(width));
        if (bigEndian)
            std::reverse(word, word + width);
        if (encoding == ESampleEncoding::Float)
        {
            if (width == 4)
            {
                float value;
                std::memcpy(&value, word, 4);
                out[i] = value;
            }
            else
            {
                double value;
                std::memcpy(&value, word, 8);
                out[i] = value;
            }
            continue;
        }
        if (unsigned8)
        {
            out[i] = (static_cast<int32_t>(word[0]) - 128) * scale;
            continue;
        }
        // Little-endian two's complement of `width` bytes, sign-extended.
        uint64_t raw = 0;
        for (int32_t b = 0; b < width; ++b)
            raw |= uint64_t{word[b]} << (8 * b);
        const int32_t unused = 64 - 8 * width;
        const int64_t value = static_cast<int64_t>(raw << unused) >> unused;
        out[i] = static_cast<double>(value) * scale;
    }
    return true;
}
