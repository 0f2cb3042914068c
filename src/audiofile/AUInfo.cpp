#include "audiofile/AUInfo.h"

#include "audiofile/FieldReader.h"

#include <algorithm>
#include <cstring>

namespace
{
constexpr int64_t kHeaderSize = 24;

struct Encoding
{
    uint16_t bits;
    uint32_t flags;
    GUID subFormat;
};

// Encodings 1 to 7.
constexpr Encoding kEncodings[] = {
    {8, CAudioFormat::SET_INTEGER, KSDATAFORMAT_SUBTYPE_MULAW},
    {8, CAudioFormat::SET_INTEGER, KSDATAFORMAT_SUBTYPE_PCM},
    {16, CAudioFormat::SET_INTEGER, KSDATAFORMAT_SUBTYPE_PCM},
    {24, CAudioFormat::SET_INTEGER, KSDATAFORMAT_SUBTYPE_PCM},
    {32, CAudioFormat::SET_INTEGER, KSDATAFORMAT_SUBTYPE_PCM},
    {32, 0, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT},
    {64, 0, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT},
};
}  // namespace

int32_t CAUInfo::ReadHeader(bool /*strict*/, bool /*scanAll*/)
{
    isOpen = 0;
    if (!stream)
        return -1;
    const int64_t saved = stream->GetPosition();
    fileSize = stream->GetSize();
    uint8_t header[kHeaderSize];
    const bool complete = ReadAt(0, header, kHeaderSize);
    if (!stream->IsNonSeekable())
        stream->Seek(saved, IQVFileStream::SEEK_FROM_START);
    if (!complete)
        return -1;
    if (std::memcmp(header, ".snd", 4) == 0)
        bigEndian = 1;
    else if (std::memcmp(header, "dns.", 4) == 0)
        bigEndian = 0;
    else
        return -1;
    CFieldReader reader(header + 4, kHeaderSize - 4, bigEndian != 0);
    const uint32_t offset = reader.U32();
    const uint32_t size = reader.U32();
    encoding = reader.U32();
    const uint32_t rate = reader.U32();
    const uint32_t channels = reader.U32();
    // A channel count beyond what a format record holds cannot be shown
    // truthfully; such a file is not opened.
    if (offset < kHeaderSize || offset >= fileSize || encoding < 1 || encoding > 7 ||
        channels > 0xFFFF)
        return -1;
    const Encoding& kind = kEncodings[encoding - 1];
    format.Set(kind.bits | kind.flags, rate, static_cast<uint16_t>(channels), kind.subFormat);
    dataStart = offset;
    dataSize = fileSize - offset;
    if (size != 0)
        dataSize = std::min<int64_t>(dataSize, size);
    if (stream->IsNonSeekable())
    {
        // A pipe reaches the data by reading past what lies before it.
        stream->Seek(offset, IQVFileStream::SEEK_FROM_START);
    }
    isOpen = 1;
    FinishData();
    return 0;
}

void CAUInfo::ConvertSamples(uint8_t* bytes, int64_t count)
{
    const int32_t width = format.bitsPerSample / 8;
    if (width == 1)
    {
        // Signed (and mu-law) bytes become unsigned, in either byte order.
        for (int64_t i = 0; i < count; ++i)
            bytes[i] = static_cast<uint8_t>(bytes[i] + 128);
        return;
    }
    if (!bigEndian || width == 0)
        return;
    for (int64_t s = 0; s + width <= count; s += width)
        std::reverse(bytes + s, bytes + s + width);
}
