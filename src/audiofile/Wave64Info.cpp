#include "audiofile/Wave64Info.h"

#include "audiofile/FieldReader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

namespace
{
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t kChunkHeader = 24;

// GUIDs as their bytes stand in the file: the first three fields little-endian.
constexpr uint8_t kRiffGuid[16] = {0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11,
                                   0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00};
constexpr uint8_t kWaveGuid[16] = {0x77, 0x61, 0x76, 0x65, 0xF3, 0xAC, 0xD3, 0x11,
                                   0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
constexpr uint8_t kFormatGuid[16] = {0x66, 0x6D, 0x74, 0x20, 0xF3, 0xAC, 0xD3, 0x11,
                                     0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
constexpr uint8_t kDataGuid[16] = {0x64, 0x61, 0x74, 0x61, 0xF3, 0xAC, 0xD3, 0x11,
                                   0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
constexpr uint8_t kTagGuid[16] = {0x69, 0x64, 0x33, 0x20, 0xF3, 0xAC, 0xD3, 0x11,
                                  0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
constexpr uint8_t kListGuid[16] = {0xBC, 0x94, 0x5F, 0x92, 0x5A, 0x52, 0xD2, 0x11,
                                   0x86, 0xDC, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};

bool SameGuid(const uint8_t* bytes, const uint8_t (&guid)[16])
{
    return std::memcmp(bytes, guid, 16) == 0;
}
}  // namespace

std::string CWave64Info::GuidText(const uint8_t* bytes)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X",
                  CFieldReader::U32At(bytes, false), bytes[4] | (bytes[5] << 8),
                  bytes[6] | (bytes[7] << 8), bytes[8], bytes[9], bytes[10], bytes[11], bytes[12],
                  bytes[13], bytes[14], bytes[15]);
    return text;
}

int32_t CWave64Info::ReadHeader(bool strict, bool scanAll)
{
    isOpen = 0;
    infoList.RemoveAll();
    wideChunks.clear();
    if (!stream)
        return -1;
    const int64_t saved = stream->GetPosition();
    fileSize = stream->GetSize();

    uint8_t head[40];
    bool formatFound = false;
    bool dataFound = false;
    if (ReadAt(0, head, sizeof head) && SameGuid(head, kRiffGuid) &&
        SameGuid(head + 24, kWaveGuid) &&
        CFieldReader(head + 16, 8, false).U64() == static_cast<uint64_t>(fileSize))
    {
        for (int64_t position = 40; position <= fileSize - kChunkHeader;)
        {
            uint8_t header[kChunkHeader];
            if (!ReadAt(position, header, kChunkHeader))
                break;
            const uint64_t size = CFieldReader(header + 16, 8, false).U64();
            if (size < kChunkHeader)
                break;
            const uint64_t bodySize = size - kChunkHeader;
            const int32_t index =
                AddChunk(reinterpret_cast<const char*>(header),
                         static_cast<uint32_t>(std::min<uint64_t>(size, 0xFFFFFFFF)), position);
            WideChunk wide;
            std::memcpy(wide.guid, header, 16);
            wide.size = size;
            wideChunks.push_back(wide);
            const int64_t body = position + kChunkHeader;
            const bool isData = SameGuid(header, kDataGuid);
            if (!isData && bodySize > static_cast<uint64_t>(fileSize - body))
                break;
            if (SameGuid(header, kFormatGuid))
            {
                uint8_t bytes[16];
                if (bodySize >= 16 && ReadAt(body, bytes, 16))
                {
                    const EWaveFormatResult result =
                        ParseWaveFormat(bytes, 16, strict, false, format);
                    if (result == EWaveFormatResult::EndWalk)
                        break;
                    formatFound = true;
                }
            }
            else if (isData)
            {
                dataStart = body;
                dataSize = bodySize > static_cast<uint64_t>(kInt64Max)
                               ? -1
                               : static_cast<int64_t>(bodySize);
                dataFound = true;
            }
            else if (SameGuid(header, kTagGuid) && bodySize <= kMaximumKeptChunk)
            {
                if (!ReadTagChunk(body, static_cast<uint32_t>(bodySize), index))
                    break;
            }
            else if (SameGuid(header, kListGuid) && bodySize >= 4 && bodySize <= kMaximumKeptChunk)
            {
                std::vector<uint8_t> bytes(static_cast<size_t>(bodySize));
                if (ReadAt(body, bytes.data(), static_cast<int64_t>(bodySize)) &&
                    std::memcmp(bytes.data(), "INFO", 4) == 0)
                    ParseInfoList(bytes.data() + 4, bytes.size() - 4, infoList);
            }
            position = NextChunkPosition(body, bodySize, 8);
            if (dataFound && ((formatFound && !scanAll) || stream->IsNonSeekable()))
                break;
        }
    }
    if (!stream->IsNonSeekable())
        stream->Seek(saved, IQVFileStream::SEEK_FROM_START);
    if (!formatFound || !dataFound)
        return -1;
    isOpen = 1;
    FinishData();
    return 0;
}

bool CWave64Info::GetInfoListValue(const QVString& name, QVString& text) const
{
    const QVString* value = infoList.Find(name);
    if (value == nullptr || value->IsEmpty())
        return false;
    text = *value;
    return true;
}

std::vector<CChunkSummary> CWave64Info::DescribeChunks() const
{
    std::vector<CChunkSummary> list;
    for (size_t i = 0; i < wideChunks.size() && i < chunks.size(); ++i)
        list.push_back({GuidText(wideChunks[i].guid), wideChunks[i].size, chunks[i].Position});
    return list;
}
