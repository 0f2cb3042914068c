// The sound converter of a build without the host: libsndfile decodes any
// file it can read, libsoxr at its very-high-quality setting resamples to the
// target rate, and libsndfile writes the result as WAV of the target depth
// (64 means 64-bit float, the depth impulses are asked for).
#pragma once

#include <cstdint>

#include "frame/IQVTools.h"

class CBuiltinSoundConverter final : public IQVSoundConverter
{
public:
    void SetTargetSampleRate(int32_t sampleRate) override { targetRate = sampleRate; }
    void SetTargetBitDepth(int32_t bits) override { targetBits = bits; }
    int32_t Convert(const QVString& source, const QVString& target) override;
    QVString GetProperty(const QVString& name) override;
    void Release() override { delete this; }

private:
    ~CBuiltinSoundConverter() = default;

    int32_t targetRate = 0;  // 0: keep the source's rate
    int32_t targetBits = 64;
    QVString outputName;
    int32_t inputRate = 0;
};
