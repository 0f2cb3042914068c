// CWave64Info: Wave64 files, whose chunks are named by GUIDs and sized in 64
// bits, with their data aligned to 8 bytes.
#pragma once

#include "audiofile/WAVInfo.h"

class CWave64Info : public CIFFInfo
{
public:
    int32_t ReadHeader(bool strict, bool scanAll) override;
    QVString GetTagChunkID() const override { return u"ID3 "; }
    bool IsBelow2GB() const override { return false; }
    const char* GetReaderName() const override { return "CWave64Info"; }
    std::vector<CChunkSummary> DescribeChunks() const override;

    const QVInfoList& GetInfoList() const { return infoList; }

    // A GUID as it stands in the file, in its usual text form.
    static std::string GuidText(const uint8_t* bytes);

protected:
    bool GetInfoListValue(const QVString& name, QVString& text) const override;

private:
    QVInfoList infoList;
    // The whole GUID and 64-bit size of each chunk, beside the base's record
    // that holds their first four bytes and a size cut to 32 bits.
    struct WideChunk
    {
        uint8_t guid[16];
        uint64_t size;
    };
    std::vector<WideChunk> wideChunks;
};
