#include "audiofile/LPCMInfo.h"

#include <utility>

int32_t CLPCMInfo::ReadHeader(bool /*strict*/, bool /*scanAll*/)
{
    isOpen = 0;
    if (!stream)
        return -1;
    fileSize = stream->GetSize();
    if (bitDepth < 1 || bitDepth > 0xFFFF || sampleRate < 0 || channelCount < 1 ||
        channelCount > 0xFFFF)
        return -1;
    format.Set(static_cast<uint32_t>(bitDepth) | CAudioFormat::SET_INTEGER,
               static_cast<uint32_t>(sampleRate), static_cast<uint16_t>(channelCount));
    if (format.blockAlign == 0)
        return -1;
    dataStart = 0;
    dataSize = fileSize;
    isOpen = 1;
    FinishData();
    return 0;
}

int64_t CLPCMInfo::FrameToPosition(int64_t frame) const
{
    const int64_t bits = GetBitsPerFrame();
    return frame > INT64_MAX / bits ? INT64_MAX : frame * bits / 8;
}

void CLPCMInfo::ConvertSamples(uint8_t* bytes, int64_t count)
{
    if (bitDepth == 16)
    {
        for (int64_t s = 0; s + 2 <= count; s += 2)
            std::swap(bytes[s], bytes[s + 1]);
    }
    else if (bitDepth == 24)
    {
        for (int64_t s = 0; s + 3 <= count; s += 3)
            std::swap(bytes[s], bytes[s + 2]);
    }
}
