// CAIFFInfo: AIFF and AIFC, big-endian, with the compressions "NONE", "sowt"
// (little-endian samples) and "fl32".
#pragma once

#include "audiofile/IFFInfo.h"

class CAIFFUITSChunk : public CUITSChunk
{
public:
    // An "APPL" chunk whose payload starts with the signature "UITS".
    bool Write(IQVFileStream& stream) const override;
};

class CAIFFInfo : public CIFFInfo
{
public:
    enum ECompression : int32_t
    {
        COMPRESSION_NONE = 0,
        COMPRESSION_SOWT = 1,
        COMPRESSION_ACE2 = 2,
        COMPRESSION_ACE8 = 3,
        COMPRESSION_MAC3 = 4,
        COMPRESSION_MAC6 = 5,
        COMPRESSION_FL32 = 6,
        COMPRESSION_OTHER = 7,
    };

    ~CAIFFInfo() override;
    int32_t ReadHeader(bool strict, bool scanAll) override;
    int64_t FrameToPosition(int64_t frame) const override;
    QVString GetTagChunkID() const override { return u"ID3 "; }
    uint32_t Swap32(uint32_t value) const override { return __builtin_bswap32(value); }
    const char* GetReaderName() const override { return "CAIFFInfo"; }

    int32_t GetCompression() const { return compression; }
    uint32_t GetSoundDataOffset() const { return soundDataOffset; }

    // The sample rate of an 80-bit extended number: the top 32 bits of the
    // mantissa shifted right by (30 - e), e the low byte of the exponent,
    // rounded by the last bit shifted out.
    static uint32_t RateFromExtended(const uint8_t (&extended)[10]);

protected:
    void ConvertSamples(uint8_t* bytes, int64_t count) override;
    std::unique_ptr<CUITSChunk> MakeUITSChunk() const override;

private:
    uint32_t soundDataOffset = 0;
    int32_t compression = COMPRESSION_NONE;
};
