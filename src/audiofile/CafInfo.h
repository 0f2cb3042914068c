// CCafInfo: CAF files, big-endian, with 64-bit chunk sizes. Only linear PCM
// ("lpcm") is read. Samples of more than 32 bits are left in the file's order.
#pragma once

#include "audiofile/IFFInfo.h"

struct CAFChunk
{
    char type[4] = {};
    int64_t size = 0;
    int64_t position = 0;  // of the chunk's header
};

class CCafInfo : public CIFFInfo
{
public:
    int32_t ReadHeader(bool strict, bool scanAll) override;
    QVString GetTagChunkID() const override { return u"ID3 "; }
    bool IsBelow2GB() const override { return false; }
    uint32_t Swap32(uint32_t value) const override { return __builtin_bswap32(value); }
    const char* GetReaderName() const override { return "CCafInfo"; }
    // 8-bit samples are signed in the file and stay so.
    bool DeliversUnsigned8() const override { return false; }
    std::vector<CChunkSummary> DescribeChunks() const override;

    const std::vector<CAFChunk>& GetCafChunks() const { return cafChunks; }
    uint32_t GetEditCount() const { return editCount; }
    double GetDescribedSampleRate() const { return sampleRate; }
    uint32_t GetFormatFlags() const { return formatFlags; }

    static constexpr uint32_t kFlagFloat = 1;
    static constexpr uint32_t kFlagLittleEndian = 2;

protected:
    void ConvertSamples(uint8_t* bytes, int64_t count) override;

private:
    // In place of the base's chunk list, which has no room for 64-bit sizes.
    std::vector<CAFChunk> cafChunks;
    uint32_t editCount = 0;
    double sampleRate = 0;
    uint32_t formatID = 0;
    uint32_t formatFlags = 0;
    uint32_t bytesPerPacket = 0;
    uint32_t framesPerPacket = 0;
    uint32_t channelsPerFrame = 0;
    uint32_t bitsPerChannel = 0;
};
