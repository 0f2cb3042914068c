#include "audiofile/CafInfo.h"

#include "audiofile/FieldReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{
constexpr int64_t kChunkHeader = 12;
constexpr uint32_t kDescriptionSize = 32;

// To the nearest integer within [0, 2^32 - 1]; not-a-number gives 0.
uint32_t RoundToU32(double value)
{
    if (!(value > 0))
        return 0;
    if (value >= 4294967295.0)
        return 0xFFFFFFFF;
    return static_cast<uint32_t>(std::llround(value));
}
}  // namespace

int32_t CCafInfo::ReadHeader(bool /*strict*/, bool scanAll)
{
    isOpen = 0;
    cafChunks.clear();
    editCount = 0;
    if (!stream)
        return -1;
    const int64_t saved = stream->GetPosition();
    fileSize = stream->GetSize();

    uint8_t head[8];
    bool formatFound = false;
    bool dataFound = false;
    bool failed = false;
    if (ReadAt(0, head, sizeof head) && std::memcmp(head, "caff", 4) == 0 &&
        CFieldReader(head + 4, 2, true).U16() == 1)
    {
        for (int64_t position = 8; position <= fileSize - kChunkHeader && !failed;)
        {
            uint8_t header[kChunkHeader];
            if (!ReadAt(position, header, kChunkHeader))
                break;
            const int64_t size = CFieldReader(header + 4, 8, true).I64();
            CAFChunk chunk;
            std::memcpy(chunk.type, header, 4);
            chunk.size = size;
            chunk.position = position;
            cafChunks.push_back(chunk);
            const int64_t body = position + kChunkHeader;
            const bool isData = std::memcmp(header, "data", 4) == 0;
            // -1 is the size of a data chunk still being written; other
            // negative sizes mean nothing.
            if (size < -1 || (size == -1 && !isData) || (!isData && size > fileSize - body))
                break;
            if (std::memcmp(header, "desc", 4) == 0)
            {
                uint8_t bytes[kDescriptionSize];
                if (size != kDescriptionSize || !ReadAt(body, bytes, kDescriptionSize))
                {
                    failed = true;
                    break;
                }
                CFieldReader reader(bytes, sizeof bytes, true);
                sampleRate = reader.F64();
                formatID = reader.U32();
                formatFlags = reader.U32();
                bytesPerPacket = reader.U32();
                framesPerPacket = reader.U32();
                channelsPerFrame = reader.U32();
                bitsPerChannel = reader.U32();
                if (std::memcmp(bytes + 8, "lpcm", 4) != 0 || channelsPerFrame > 0xFFFF ||
                    bitsPerChannel > 0xFFFF || bytesPerPacket > 0xFFFF)
                {
                    failed = true;
                    break;
                }
                const bool isFloat = (formatFlags & kFlagFloat) != 0;
                const bool littleEndian = (formatFlags & kFlagLittleEndian) != 0;
                const uint32_t rate = RoundToU32(sampleRate);
                format.Set(bitsPerChannel | (isFloat ? 0 : CAudioFormat::SET_INTEGER) |
                               (littleEndian ? 0 : CAudioFormat::SET_BIG_ENDIAN),
                           rate, static_cast<uint16_t>(channelsPerFrame));
                format.blockAlign = static_cast<uint16_t>(bytesPerPacket);
                format.avgBytesPerSec = RoundToU32(bytesPerPacket * sampleRate);
                formatFound = true;
            }
            else if (isData)
            {
                uint8_t count[4];
                if (size != -1 && size < 4)
                    break;
                if (!ReadAt(body, count, 4))
                    break;
                editCount = CFieldReader::U32At(count, true);
                dataStart = body + 4;
                dataSize = size == -1 ? -1 : size - 4;
                dataFound = true;
                // A data chunk of unknown size runs to the end of the file.
                if (size == -1)
                    break;
            }
            else if ((std::memcmp(header, "ID3 ", 4) == 0 || std::memcmp(header, "id3 ", 4) == 0) &&
                     size <= kMaximumKeptChunk)
            {
                if (!ReadTagChunk(body, static_cast<uint32_t>(size),
                                  static_cast<int32_t>(cafChunks.size() - 1)))
                    break;
            }
            position = NextChunkPosition(body, static_cast<uint64_t>(size), 1);
            if (dataFound && ((formatFound && !scanAll) || stream->IsNonSeekable()))
                break;
        }
    }
    if (!stream->IsNonSeekable())
        stream->Seek(saved, IQVFileStream::SEEK_FROM_START);
    if (failed || !formatFound || !dataFound)
        return -1;
    isOpen = 1;
    FinishData();
    return 0;
}

void CCafInfo::ConvertSamples(uint8_t* bytes, int64_t count)
{
    if ((formatFlags & kFlagLittleEndian) != 0)
        return;
    const int32_t width = format.bitsPerSample / 8;
    if (width < 2 || width > 4)
        return;
    for (int64_t s = 0; s + width <= count; s += width)
    {
        uint8_t* p = bytes + s;
        if (width == 2)
            std::swap(p[0], p[1]);
        else if (width == 3)
            std::swap(p[0], p[2]);
        else
            std::reverse(p, p + 4);
    }
}

std::vector<CChunkSummary> CCafInfo::DescribeChunks() const
{
    std::vector<CChunkSummary> list;
    for (const CAFChunk& chunk : cafChunks)
    {
        std::string id(chunk.type, 4);
        for (char& c : id)
        {
            if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7E)
                c = '?';
        }
        list.push_back({id, static_cast<uint64_t>(chunk.size), chunk.position});
    }
    return list;
}
