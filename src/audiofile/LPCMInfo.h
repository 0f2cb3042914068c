// CLPCMInfo: raw PCM with no container. Its format travels with the file's
// name (the items of its XMLFN form); 16 and 24-bit samples are big-endian.
#pragma once

#include "audiofile/IFFInfo.h"

class CLPCMInfo : public CIFFInfo
{
public:
    CLPCMInfo(int32_t bitDepth, int32_t sampleRate, int32_t channels)
        : bitDepth(bitDepth), sampleRate(sampleRate), channelCount(channels)
    {
    }

    int32_t ReadHeader(bool strict, bool scanAll) override;
    // Raw files have no header before the data.
    int64_t FrameToPosition(int64_t frame) const override;
    QVString GetTagChunkID() const override { return QVString(); }
    const char* GetReaderName() const override { return "CLPCMInfo"; }

protected:
    void ConvertSamples(uint8_t* bytes, int64_t count) override;

private:
    int32_t bitDepth;
    int32_t sampleRate;
    int32_t channelCount;
};
