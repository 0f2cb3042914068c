// CAUInfo: AU files of either byte order, with the seven encodings of plain
// samples and mu-law. The 24-byte header is the whole of the format; there
// are no chunks.
#pragma once

#include "audiofile/IFFInfo.h"

class CAUInfo : public CIFFInfo
{
public:
    int32_t ReadHeader(bool strict, bool scanAll) override;
    QVString GetTagChunkID() const override { return QVString(); }
    const char* GetReaderName() const override { return "CAUInfo"; }

    bool IsBigEndian() const { return bigEndian != 0; }
    uint32_t GetEncoding() const { return encoding; }

protected:
    void ConvertSamples(uint8_t* bytes, int64_t count) override;

private:
    int32_t bigEndian = 0;
    uint32_t encoding = 0;
};
