#include "audiofile/IFFInfo.h"

#include "audiofile/AIFFInfo.h"
#include "audiofile/AUInfo.h"
#include "audiofile/CafInfo.h"
#include "audiofile/LPCMInfo.h"
#include "audiofile/WAVInfo.h"
#include "audiofile/Wave64Info.h"
#include "core/QVFileSystem.h"
#include "core/QVPropertyMap.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace
{
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();

// a * b, or -1 when the product does not fit (both are non-negative).
int64_t CheckedProduct(int64_t a, int64_t b)
{
    int64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product))
        return -1;
    return product;
}

QVString ExtensionOf(const QVString& path)
{
    const int32_t slash = std::max(path.ReverseFind(u'/'), path.ReverseFind(u'\\'));
    const int32_t dot = path.ReverseFind(u'.');
    if (dot <= slash)
        return QVString();
    return path.Mid(dot + 1).MakeLower();
}
}  // namespace

int64_t NextChunkPosition(int64_t dataStart, uint64_t size, uint64_t alignment)
{
    const uint64_t remainder = size % alignment;
    const uint64_t room = static_cast<uint64_t>(kInt64Max - dataStart);
    if (size > room || (remainder != 0 && size + (alignment - remainder) > room))
        return kInt64Max;
    return dataStart + static_cast<int64_t>(size + (remainder != 0 ? alignment - remainder : 0));
}

CIFFInfo::CIFFInfo() = default;
// Readers that can save tags close in their own destructors, where their
// overrides of the size operations still run.
CIFFInfo::~CIFFInfo() = default;

void CIFFInfo::ResetFields()
{
    format = CAudioFormat();
    dataStart = 0;
    trailingSize = 0;
    fileSize = 0;
    isOpen = 0;
    dataSize = -1;
    tagChunkIndex = -1;
    chunks.clear();
    tagWritable = -1;
    uitsChunk.reset();
    tag.Reset();
}

int32_t CIFFInfo::OpenStream(std::unique_ptr<IQVFileStream> newStream, bool strict, bool scanAll)
{
    Close();
    ResetFields();
    if (!newStream || !newStream->IsOpen())
        return -1;
    stream = std::move(newStream);
    openedStrict = strict;
    return ReadHeader(strict, scanAll);
}

int32_t CIFFInfo::OpenFile(const QVString& name, bool strict, bool scanAll)
{
    fileName = name;
    auto file = std::make_unique<CLocalFileStream>();
    const QVString path = QVFileSystem::GetPlainPath(name);
    if (path.IsEmpty() || QVFileSystem::IsURL(path) || !file->Open(path.ToUTF8(), false))
    {
        Close();
        ResetFields();
        return -1;
    }
    return OpenStream(std::move(file), strict, scanAll);
}

int32_t CIFFInfo::OpenFileForTags(const QVString& name, bool strict)
{
    fileName = name;
    auto file = std::make_unique<CLocalFileStream>();
    const QVString path = QVFileSystem::GetPlainPath(name);
    if (path.IsEmpty() || QVFileSystem::IsURL(path) || !file->Open(path.ToUTF8(), true))
    {
        Close();
        ResetFields();
        return -1;
    }
    return OpenStream(std::move(file), strict, true);
}

int32_t CIFFInfo::Reopen()
{
    return OpenFile(QVString(fileName), true, true);
}

void CIFFInfo::Close()
{
    SaveTags(false);
    stream.reset();
    isOpen = 0;
}

bool CIFFInfo::ReadAt(int64_t position, void* buffer, int64_t count)
{
    if (!stream || position < 0)
        return false;
    if (stream->GetPosition() != position &&
        !stream->Seek(position, IQVFileStream::SEEK_FROM_START))
        return false;
    return stream->Read(buffer, count) == count;
}

int32_t CIFFInfo::AddChunk(const char* id, uint32_t size, int64_t position)
{
    CIFFChunk chunk;
    std::memcpy(chunk.ID, id, 4);
    chunk.Size = size;
    chunk.Position = position;
    chunks.push_back(chunk);
    return static_cast<int32_t>(chunks.size() - 1);
}

void CIFFInfo::FinishData()
{
    dataStart = std::clamp<int64_t>(dataStart, 0, fileSize);
    const int64_t rest = fileSize - dataStart;
    if (dataSize < 0 || dataSize > rest)
        dataSize = rest;
    trailingSize = rest - dataSize;
}

int64_t CIFFInfo::GetBitsPerFrame() const
{
    if (format.blockAlign != 0)
        return int64_t{format.blockAlign} * 8;
    if (format.bitsPerSample != 0 && format.channels != 0)
        return int64_t{format.bitsPerSample} * format.channels;
    return 8;
}

int64_t CIFFInfo::FrameToPosition(int64_t frame) const
{
    const int64_t bits = CheckedProduct(frame, GetBitsPerFrame());
    if (bits < 0)
        return kInt64Max;
    return dataStart + bits / 8;
}

int64_t CIFFInfo::PositionToFrame(int64_t position) const
{
    return (position - dataStart) * 8 / GetBitsPerFrame();
}

int64_t CIFFInfo::Read(void* destination, int64_t startFrame, int64_t frames, int64_t* outBytes,
                       bool restorePosition)
{
    if (outBytes != nullptr)
        *outBytes = 0;
    if (!isOpen || !stream)
        return -1;
    if (startFrame < 0 || frames <= 0)
        return 0;
    const int64_t position = FrameToPosition(startFrame);
    const int64_t bits = CheckedProduct(frames, GetBitsPerFrame());
    int64_t wanted = bits < 0 ? kInt64Max : bits / 8;
    // What remains of the data counts from the first frame's place, which
    // some containers put behind an offset of their own.
    const int64_t remaining = dataSize - (position - FrameToPosition(0));
    if (remaining < 1)
        return 0;
    wanted = std::min(wanted, remaining);
    if (wanted < 1)
        return 0;
    const int64_t before = restorePosition ? stream->GetPosition() : 0;
    if (stream->GetPosition() != position &&
        !stream->Seek(position, IQVFileStream::SEEK_FROM_START))
        return -1;
    const int64_t got = stream->Read(destination, wanted);
    if (restorePosition)
        stream->Seek(before, IQVFileStream::SEEK_FROM_START);
    ConvertSamples(static_cast<uint8_t*>(destination), got);
    if (outBytes != nullptr)
        *outBytes = got;
    return got;
}

int64_t CIFFInfo::GetDuration() const
{
    if (!isOpen || format.avgBytesPerSec == 0)
        return -1;
    return std::llround(static_cast<double>(dataSize) * 1000.0 / format.avgBytesPerSec);
}

int64_t CIFFInfo::GetFrames() const
{
    return isOpen ? dataSize * 8 / GetBitsPerFrame() : -1;
}

int64_t CIFFInfo::GetSamples() const
{
    const int64_t bytesPerSample = format.bitsPerSample / 8;
    if (!isOpen || bytesPerSample == 0)
        return -1;
    const int64_t samples = dataSize / bytesPerSample;
    return format.channels == 0 ? samples : samples - samples % format.channels;
}

int64_t CIFFInfo::GetSampleRate() const
{
    return isOpen ? int64_t{format.sampleRate} : -1;
}

int64_t CIFFInfo::GetValidBits() const
{
    return isOpen ? int64_t{format.validBits} : -1;
}

int64_t CIFFInfo::GetBytesPerSample() const
{
    return isOpen ? int64_t{format.bitsPerSample} / 8 : -1;
}

int64_t CIFFInfo::GetChannels() const
{
    return isOpen ? int64_t{format.channels} : -1;
}

int64_t CIFFInfo::GetAverageBytesPerSecond() const
{
    return isOpen ? int64_t{format.avgBytesPerSec} : -1;
}

int64_t CIFFInfo::GetFormatTag() const
{
    return isOpen ? int64_t{format.formatTag} : -1;
}

int64_t CIFFInfo::GetBlockAlign() const
{
    return isOpen ? int64_t{format.blockAlign} : -1;
}

int64_t CIFFInfo::GetDataSize() const
{
    return isOpen ? dataSize : -1;
}

int64_t CIFFInfo::GetFileSize() const
{
    return isOpen ? fileSize : -1;
}

int64_t CIFFInfo::GetDataStart() const
{
    return isOpen ? dataStart : -1;
}

int64_t CIFFInfo::GetHeaderBytes(std::vector<uint8_t>& destination)
{
    destination.clear();
    if (!isOpen || !stream || stream->IsNonSeekable())
        return -1;
    const int64_t here = stream->GetPosition();
    destination.resize(static_cast<size_t>(dataStart));
    const bool complete = ReadAt(0, destination.data(), dataStart);
    stream->Seek(here, IQVFileStream::SEEK_FROM_START);
    if (!complete)
    {
        destination.clear();
        return -1;
    }
    return dataStart;
}

std::vector<CChunkSummary> CIFFInfo::DescribeChunks() const
{
    std::vector<CChunkSummary> list;
    for (const CIFFChunk& chunk : chunks)
    {
        std::string id(chunk.ID, 4);
        for (char& c : id)
        {
            if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) > 0x7E)
                c = '?';
        }
        list.push_back({id, chunk.Size, chunk.Position});
    }
    return list;
}

std::unique_ptr<CIFFInfo> CIFFInfo::CreateForFileName(const QVString& name)
{
    QVPropertyMap items;
    QVString path;
    QVFileSystem::ReadFileNameText(name, path, &items);
    const QVString extension = ExtensionOf(path);
    if (extension == u"aif" || extension == u"aiff" || extension == u"aifc")
        return std::make_unique<CAIFFInfo>();
    if (extension == u"au" || extension == u"snd")
        return std::make_unique<CAUInfo>();
    if (extension == u"l16" || extension == u"l24")
    {
        int32_t bits = items.GetInt(u"BitDepth", extension == u"l16" ? 16 : 24);
        if (bits < 1)
            bits = 16;
        return std::make_unique<CLPCMInfo>(bits, items.GetInt(u"SampleRate", 44100),
                                           items.GetInt(u"Channels", 2));
    }
    if (extension == u"w64")
        return std::make_unique<CWave64Info>();
    if (extension == u"caf")
        return std::make_unique<CCafInfo>();
    return std::make_unique<CWAVInfo>();
}
