#pragma once

// What the fuzz targets of the audio file readers and of the XMLFN file name
// check, shared with the test that replays their kept inputs. A failed check
// aborts, which libFuzzer reports as a crash with its input.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "FuzzChecks.h"
#include "audiofile/AIFFInfo.h"
#include "audiofile/AUInfo.h"
#include "audiofile/CafInfo.h"
#include "audiofile/LPCMInfo.h"
#include "audiofile/SampleValues.h"
#include "audiofile/WAVInfo.h"
#include "audiofile/Wave64Info.h"
#include "core/QVFileSystem.h"
#include "core/QVPropertyMap.h"

namespace qvfuzz
{

inline std::unique_ptr<CIFFInfo> MakeReader(int kind)
{
    switch (kind)
    {
    case 0: return std::make_unique<CWAVInfo>();
    case 1: return std::make_unique<CAIFFInfo>();
    case 2: return std::make_unique<CAUInfo>();
    case 3: return std::make_unique<CWave64Info>();
    case 4: return std::make_unique<CCafInfo>();
    case 5: return std::make_unique<CLPCMInfo>(16, 44100, 2);
    default: return std::make_unique<CLPCMInfo>(24, 48000, 3);
    }
}
inline constexpr int kReaderKinds = 7;

// Every getter of a reader that did not open answers -1.
inline void CheckClosed(const CIFFInfo& reader)
{
    Require(reader.GetFrames() == -1 && reader.GetDataSize() == -1 && reader.GetDataStart() == -1 &&
                reader.GetSampleRate() == -1 && reader.GetFormatTag() == -1 &&
                reader.GetDuration() == -1,
            "a closed reader answers -1");
}

// The header walk, then every frame read in pieces into buffers of exactly
// the size asked for, so that the sanitizers see any byte written beyond.
inline void CheckOpenedReader(CIFFInfo& reader, int64_t size)
{
    const int64_t start = reader.GetDataStart();
    const int64_t dataSize = reader.GetDataSize();
    Require(start >= 0 && dataSize >= 0 && reader.GetTrailingSize() >= 0 &&
                start + dataSize + reader.GetTrailingSize() == size && reader.GetFileSize() == size,
            "data and trailing bytes make up the file");
    const int64_t frames = reader.GetFrames();
    Require(frames >= 0, "frames are counted");
    reader.GetDuration();
    reader.GetSamples();
    reader.DescribeChunks();
    std::vector<uint8_t> header;
    reader.GetHeaderBytes(header);
    const int64_t bitsPerFrame = reader.GetBitsPerFrame();
    const int64_t sampleBytes = reader.GetFormat().bitsPerSample / 8;
    constexpr int64_t kPiece = 61;
    for (int64_t frame = 0; frame <= frames; frame += kPiece)
    {
        // A read never writes more than what remains of the data, so the
        // buffer is no larger: frames of absurd size need no absurd memory,
        // and the sanitizers still see a byte written beyond what remains.
        const int64_t wanted = kPiece * bitsPerFrame / 8;
        const int64_t remaining = std::max<int64_t>(0, dataSize - frame * bitsPerFrame / 8);
        std::vector<uint8_t> bytes(static_cast<size_t>(std::min(wanted, remaining)));
        int64_t got = -2;
        const int64_t result = reader.Read(bytes.data(), frame, kPiece, &got, frame % 2 == 0);
        Require(result == got || result == -1, "the result is the count of bytes");
        Require(got >= 0 && got <= static_cast<int64_t>(bytes.size()),
                "a read stays within what was asked and what remains");
        if (sampleBytes > 0 && got > 0)
        {
            const int64_t samples = got / sampleBytes;
            std::vector<double> values(static_cast<size_t>(samples));
            SamplesToDoubles(reader, bytes.data(), samples, values.data());
        }
        if (got == 0)
            break;
    }
    uint8_t spare[8];
    Require(reader.Read(spare, -1, 1, nullptr, false) == 0, "no frame before the first");
    Require(reader.Read(spare, INT64_MAX / 2, 1, nullptr, false) <= 0, "no frame far beyond");
}

inline void CheckAudioReaders(const uint8_t* data, size_t size)
{
    for (int kind = 0; kind < kReaderKinds; ++kind)
    {
        for (const bool nonSeekable : {false, true})
        {
            for (const bool strict : {false, true})
            {
                std::unique_ptr<CIFFInfo> reader = MakeReader(kind);
                const int32_t result = reader->OpenStream(
                    std::make_unique<CMemoryStream>(data, size, nonSeekable), strict, strict);
                Require(result == 0 || result == -1, "the header answers 0 or -1");
                if (result != 0)
                    CheckClosed(*reader);
                else
                    CheckOpenedReader(*reader, static_cast<int64_t>(size));
            }
        }
    }
    const int32_t channels = DetectDtsChannels(data, size);
    Require(channels >= 0 && channels <= 9, "DTS channels come from the table");
}

// Reading an XMLFN name, and writing back what was read.
inline void CheckFileName(const std::u16string& text)
{
    const QVString name = ToQV(text);
    QVString path;
    QVPropertyMap extras;
    if (!QVFileSystem::ReadFileNameText(name, path, &extras))
    {
        Require(path.IsEmpty(), "an unreadable name has no path");
        return;
    }
    CIFFInfo::CreateForFileName(name);
    // A path that itself looks like XMLFN or a URL is not wrapped again.
    if (extras.GetCount() == 0 || QVFileSystem::IsURL(path) || QVPropertyMap::IsFileNameText(path))
        return;
    const QVString again = QVFileSystem::MakeFileNameText(path, &extras);
    QVString pathAgain;
    QVPropertyMap extrasAgain;
    Require(QVFileSystem::ReadFileNameText(again, pathAgain, &extrasAgain), "written names read");
    Require(pathAgain == path, "the path comes back");
    Require(extrasAgain.IsEqual(extras), "the items come back");
}

}  // namespace qvfuzz
