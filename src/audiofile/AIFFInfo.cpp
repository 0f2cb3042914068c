#include "audiofile/AIFFInfo.h"

#include "audiofile/FieldReader.h"

#include <algorithm>
#include <cstring>

namespace
{
bool SameId(const uint8_t* bytes, const char* id)
{
    return std::memcmp(bytes, id, 4) == 0;
}

int32_t CompressionOf(const uint8_t* id)
{
    // Compared with case: "FL32" and "fl32" are different compressions.
    static constexpr const char* kNames[] = {"NONE", "sowt", "ACE2", "ACE8",
                                             "MAC3", "MAC6", "fl32"};
    for (int32_t i = 0; i < 7; ++i)
    {
        if (SameId(id, kNames[i]))
            return i;
    }
    return CAIFFInfo::COMPRESSION_OTHER;
}

void PutU32BigEndian(uint8_t* out, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<uint8_t>(value >> (24 - 8 * i));
}
}  // namespace

bool CAIFFUITSChunk::Write(IQVFileStream& stream) const
{
    uint8_t header[12] = {'A', 'P', 'P', 'L', 0, 0, 0, 0, 'U', 'I', 'T', 'S'};
    const uint32_t size = static_cast<uint32_t>(payload.size() + 4);
    PutU32BigEndian(header + 4, size);
    const int64_t count = static_cast<int64_t>(payload.size());
    bool done = stream.Write(header, 12) == 12 && stream.Write(payload.data(), count) == count;
    if (done && (size & 1) != 0)
    {
        const uint8_t pad = 0;
        done = stream.Write(&pad, 1) == 1;
    }
    return done;
}

CAIFFInfo::~CAIFFInfo()
{
    Close();
}

std::unique_ptr<CUITSChunk> CAIFFInfo::MakeUITSChunk() const
{
    return std::make_unique<CAIFFUITSChunk>();
}

uint32_t CAIFFInfo::RateFromExtended(const uint8_t (&extended)[10])
{
    const int32_t e = extended[1];
    const uint32_t mantissa = CFieldReader::U32At(extended + 2, true);
    const int32_t shift = 30 - e;
    // Rates of 2^31 Hz and more are no audio; the rule has no answer for them.
    if (shift < 0)
        return 0;
    if (shift >= 32)
        return shift == 32 ? mantissa >> 31 : 0;
    const uint32_t rounding = shift > 0 ? (mantissa >> (shift - 1)) & 1u : 0u;
    return (mantissa >> shift) + rounding;
}

int64_t CAIFFInfo::FrameToPosition(int64_t frame) const
{
    const int64_t position = CIFFInfo::FrameToPosition(frame);
    return position > INT64_MAX - soundDataOffset ? INT64_MAX : position + soundDataOffset;
}

// The walk has no strict mode. Plain AIFF stops at its two chunks unless
// scan all asks for the tags; AIFC runs to the end.
int32_t CAIFFInfo::ReadHeader(bool /*strict*/, bool scanAll)
{
    isOpen = 0;
    compression = COMPRESSION_NONE;
    soundDataOffset = 0;
    if (!stream)
        return -1;
    const int64_t saved = stream->GetPosition();
    fileSize = stream->GetSize();

    uint8_t head[12];
    if (!ReadAt(0, head, sizeof head) || !SameId(head, "FORM") ||
        !(SameId(head + 8, "AIFF") || SameId(head + 8, "AIFC")))
    {
        if (!stream->IsNonSeekable())
            stream->Seek(saved, IQVFileStream::SEEK_FROM_START);
        return -1;
    }
    const bool isAIFC = SameId(head + 8, "AIFC");
    bool commFound = false;
    bool ssndFound = false;
    uint16_t channels = 0;
    uint32_t frames = 0;
    uint16_t bits = 0;
    uint32_t rate = 0;
    uint32_t blockSize = 0;
    int64_t chunkDataSize = 0;

    for (int64_t position = 12; position <= fileSize - 8;)
    {
        uint8_t header[8];
        if (!ReadAt(position, header, sizeof header))
            break;
        const uint32_t size = CFieldReader::U32At(header + 4, true);
        const int32_t index = AddChunk(reinterpret_cast<const char*>(header), size, position);
        const int64_t body = position + 8;
        const bool isSound = SameId(header, "SSND");
        if (!isSound && size > fileSize - body)
            break;
        if (SameId(header, "COMM") && !commFound && size >= 18)
        {
            uint8_t bytes[22] = {};
            if (!ReadAt(body, bytes, std::min<uint32_t>(size, sizeof bytes)))
                break;
            CFieldReader reader(bytes, sizeof bytes, true);
            channels = reader.U16();
            frames = reader.U32();
            bits = reader.U16();
            uint8_t extended[10];
            reader.Bytes(extended, sizeof extended);
            rate = RateFromExtended(extended);
            // The name that follows the compression id is not needed.
            if (isAIFC && size >= 19)
                compression = CompressionOf(bytes + 18);
            commFound = true;
        }
        else if (isSound && !ssndFound)
        {
            uint8_t bytes[8];
            if (!ReadAt(body, bytes, sizeof bytes))
                break;
            soundDataOffset = CFieldReader::U32At(bytes, true);
            blockSize = CFieldReader::U32At(bytes + 4, true);
            chunkDataSize = size >= 8 ? int64_t{size} - 8 : 0;
            dataStart = body + 8;
            ssndFound = true;
        }
        else if (SameId(header, "id3 ") || SameId(header, "ID3 ") || SameId(header, "tag "))
        {
            if (!ReadTagChunk(body, size, index))
                break;
        }
        else if (SameId(header, "APPL") && size >= 4 && size - 4 <= kMaximumKeptChunk)
        {
            uint8_t signature[4];
            if (ReadAt(body, signature, 4) && SameId(signature, "UITS"))
            {
                auto chunk = std::make_unique<CAIFFUITSChunk>();
                chunk->payload.resize(size - 4);
                if (ReadAt(body + 4, chunk->payload.data(), size - 4))
                {
                    std::memcpy(chunk->ID, header, 4);
                    chunk->Size = size;
                    chunk->Position = position;
                    chunk->chunkIndex = index;
                    uitsChunk = std::move(chunk);
                }
            }
        }
        // "FVER" holds a version stamp that nothing needs; it is skipped.
        position = NextChunkPosition(body, size, 2);
        // Tags often follow the sound data, so a walk for them goes on.
        if (commFound && ssndFound && ((!isAIFC && !scanAll) || stream->IsNonSeekable()))
            break;
    }
    if (!stream->IsNonSeekable())
        stream->Seek(saved, IQVFileStream::SEEK_FROM_START);
    const bool accepted = compression == COMPRESSION_NONE || compression == COMPRESSION_SOWT ||
                          compression == COMPRESSION_FL32;
    if (!commFound || !ssndFound || !accepted)
        return -1;

    // Plain 32-bit integers are delivered as floats (see ConvertSamples).
    const bool isFloat =
        compression == COMPRESSION_FL32 || (compression == COMPRESSION_NONE && bits == 32);
    const bool leftBigEndian = bits > 32 && compression != COMPRESSION_SOWT;
    format.Set(bits | (isFloat ? 0 : CAudioFormat::SET_INTEGER) |
                   (leftBigEndian ? CAudioFormat::SET_BIG_ENDIAN : 0),
               rate, channels);
    if (blockSize > format.blockAlign && blockSize <= uint32_t{channels} * 8)
    {
        format.blockAlign = static_cast<uint16_t>(blockSize);
        format.avgBytesPerSec = format.blockAlign * rate;
    }
    // Frames are counted in whole sample words, which for odd depths are the
    // container's bytes.
    const int64_t framesBytes =
        int64_t{frames} * channels * static_cast<int64_t>(format.bitsPerSample / 8);
    dataSize = std::min(chunkDataSize, framesBytes);
    isOpen = 1;
    FinishData();
    return 0;
}

void CAIFFInfo::ConvertSamples(uint8_t* bytes, int64_t count)
{
    const int32_t width = format.bitsPerSample / 8;
    if (width <= 1)
    {
        // Signed in the file, unsigned as delivered, in either compression.
        for (int64_t i = 0; i < count; ++i)
            bytes[i] = static_cast<uint8_t>(bytes[i] + 128);
        return;
    }
    if (compression == COMPRESSION_SOWT || width > 4)
        return;
    const int64_t samples = count / width;
    for (int64_t s = 0; s < samples; ++s)
    {
        uint8_t* p = bytes + s * width;
        if (width == 2)
            std::swap(p[0], p[1]);
        else if (width == 3)
            std::swap(p[0], p[2]);
        else
        {
            std::reverse(p, p + 4);
            if (compression == COMPRESSION_NONE && format.validBits == 32)
            {
                int32_t value;
                std::memcpy(&value, p, 4);
                // Full scale becomes 1.0, with the sign turned over.
                const float converted = static_cast<float>(value) * -0x1p-31f;
                std::memcpy(p, &converted, 4);
            }
        }
    }
}
