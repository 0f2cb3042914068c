// DTS carried in a PCM file: a CD-audio WAV whose samples are in truth DTS
// core frames, in 16-bit or 14-bit words of either byte order. The frames are
// brought to one form (16-bit big-endian words) and their headers checked
// frame by frame, so that noise that happens to hold a sync word is not taken
// for DTS.
#include "audiofile/WAVInfo.h"

#include <cstring>
#include <vector>

namespace
{
enum class EWordKind
{
    None,
    Words14Little,
    Words14Big,
    Words16Little,
    Words16Big,
};

// The header fields up to LFF take 87 bits; a header is only trusted with
// this many bytes behind its start.
constexpr size_t kHeaderBytes = 15;
constexpr uint32_t kSyncWord = 0x7FFE8001;
constexpr uint32_t kMinimumBlocks = 5;
constexpr uint32_t kMinimumFrameSizeField = 95;

EWordKind FindSync(const uint8_t* bytes, size_t size, size_t& start)
{
    for (size_t i = 0; i + 4 <= size; ++i)
    {
        const uint8_t* p = bytes + i;
        start = i;
        if (i + 6 <= size && p[0] == 0xFF && p[1] == 0x1F && p[2] == 0x00 && p[3] == 0xE8 &&
            (p[4] == 0xF0 || p[4] == 0xF1) && p[5] == 0x07)
            return EWordKind::Words14Little;
        if (i + 6 <= size && p[0] == 0x1F && p[1] == 0xFF && p[2] == 0xE8 && p[3] == 0x00 &&
            p[4] == 0x07 && (p[5] == 0xF0 || p[5] == 0xF1))
            return EWordKind::Words14Big;
        if (p[0] == 0xFE && p[1] == 0x7F && p[2] == 0x01 && p[3] == 0x80)
            return EWordKind::Words16Little;
        if (p[0] == 0x7F && p[1] == 0xFE && p[2] == 0x80 && p[3] == 0x01)
            return EWordKind::Words16Big;
    }
    return EWordKind::None;
}

// From the sync on, as 16-bit big-endian words with all 16 bits used: the
// 14-bit kinds keep the low 14 bits of each word, eight words (16 bytes)
// giving 14 bytes.
std::vector<uint8_t> ToBigEndianStream(const uint8_t* bytes, size_t size, EWordKind kind)
{
    std::vector<uint8_t> words(bytes, bytes + (size & ~size_t{1}));
    if (kind == EWordKind::Words14Little || kind == EWordKind::Words16Little)
    {
        for (size_t i = 0; i + 1 < words.size(); i += 2)
            std::swap(words[i], words[i + 1]);
    }
    if (kind == EWordKind::Words16Little || kind == EWordKind::Words16Big)
        return words;
    std::vector<uint8_t> packed;
    packed.reserve(words.size() / 16 * 14);
    for (size_t group = 0; group + 16 <= words.size(); group += 16)
    {
        uint32_t bits = 0;
        int32_t held = 0;
        for (size_t w = 0; w < 16; w += 2)
        {
            const uint32_t word =
                ((uint32_t{words[group + w]} << 8) | words[group + w + 1]) & 0x3FFF;
            bits = (bits << 14) | word;
            held += 14;
            while (held >= 8)
            {
                held -= 8;
                packed.push_back(static_cast<uint8_t>(bits >> held));
            }
        }
    }
    return packed;
}

class CBitReader
{
public:
    explicit CBitReader(const uint8_t* bytes) : bytes(bytes) {}
    uint32_t Take(int32_t count)
    {
        uint32_t value = 0;
        for (int32_t i = 0; i < count; ++i, ++bit)
            value = (value << 1) | ((bytes[bit / 8] >> (7 - bit % 8)) & 1u);
        return value;
    }

private:
    const uint8_t* bytes;
    size_t bit = 0;
};

struct FrameHeader
{
    uint32_t frameBytes = 0;
    uint32_t amode = 0;
    uint32_t lff = 0;
};

// The core frame header at `bytes`, which holds at least kHeaderBytes.
bool ReadFrameHeader(const uint8_t* bytes, FrameHeader& header)
{
    // Most positions a scan visits fail here, before any bit is taken apart.
    if (bytes[0] != 0x7F || bytes[1] != 0xFE || bytes[2] != 0x80 || bytes[3] != 0x01)
        return false;
    CBitReader reader(bytes);
    if (reader.Take(32) != kSyncWord)
        return false;
    reader.Take(1);  // frame type
    reader.Take(5);  // deficit sample count
    reader.Take(1);  // CRC present
    const uint32_t blocks = reader.Take(7);
    const uint32_t frameSize = reader.Take(14);
    header.amode = reader.Take(6);
    reader.Take(4);  // sample frequency
    reader.Take(5);  // bit rate
    reader.Take(5);  // mix, dynamic range, time stamp, auxiliary and HDCD flags
    reader.Take(3);  // extension audio id
    reader.Take(2);  // extension present, audio sync
    header.lff = reader.Take(2);
    header.frameBytes = frameSize + 1;
    return blocks >= kMinimumBlocks && frameSize >= kMinimumFrameSizeField;
}

int32_t ChannelsOfMode(uint32_t amode)
{
    if (amode == 0)
        return 1;
    if (amode <= 4)
        return 2;
    if (amode <= 6)
        return 3;
    if (amode <= 8)
        return 4;
    if (amode == 9)
        return 5;
    if (amode <= 12)
        return 6;
    if (amode == 13)
        return 7;
    if (amode <= 15)
        return 8;
    return 2;
}
}  // namespace

int32_t DetectDtsChannels(const uint8_t* bytes, size_t size)
{
    size_t start = 0;
    const EWordKind kind = FindSync(bytes, size, start);
    if (kind == EWordKind::None)
        return 0;
    const std::vector<uint8_t> frames = ToBigEndianStream(bytes + start, size - start, kind);

    // Good headers jump by their frame size, bad positions move one byte on;
    // DTS it is when the good frames cover more bytes than the failures.
    size_t position = 0;
    size_t reach = 0;
    size_t failed = 0;
    bool found = false;
    FrameHeader first;
    while (position + kHeaderBytes <= frames.size())
    {
        FrameHeader header;
        if (ReadFrameHeader(frames.data() + position, header))
        {
            if (!found)
                first = header;
            found = true;
            position += header.frameBytes;
            reach = position;
        }
        else
        {
            ++position;
            ++failed;
        }
    }
    if (!found || reach <= failed)
        return 0;
    return ChannelsOfMode(first.amode) + (first.lff != 0 ? 1 : 0);
}
