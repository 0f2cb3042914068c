#include "audiofile/WAVInfo.h"

#include "audiofile/FieldReader.h"
#include "frame/IQVTools.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace
{
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr uint16_t kTagMpeg = 80;
constexpr uint16_t kTagEncoded146 = 146;
constexpr uint16_t kTagDts = 8;
// The DTS test looks at this much of the start of the data.
constexpr int64_t kDtsScanBytes = 0x40000;
// The ds64 chunk with its header, up to the length of its table.
constexpr size_t kDataSize64Head = 36;

bool SameId(const uint8_t* bytes, const char* id)
{
    return std::memcmp(bytes, id, 4) == 0;
}

struct InfoName
{
    char id[5];
    const char16_t* name;
};
// "ISRF" has two names: older programs wrote the release medium there.
constexpr InfoName kInfoNames[] = {
    {"IARL", u"Archival Location"}, {"IART", u"Artist"},         {"ICMS", u"Commissioned"},
    {"ICMT", u"Comment"},           {"ICOP", u"Copyright"},      {"ICRD", u"Date"},
    {"ICRP", u"Cropped"},           {"IDIM", u"Dimensions"},     {"IDPI", u"Dot Per Inch"},
    {"IENG", u"Engineer"},          {"IGNR", u"Genre"},          {"IKEY", u"Keywords"},
    {"ILGT", u"Lightness"},         {"IMED", u"Medium"},         {"INAM", u"Name"},
    {"IPLT", u"Palette Setting"},   {"IPRD", u"Album"},          {"ISBJ", u"Subject"},
    {"ISFT", u"Software"},          {"ISHP", u"Sharpness"},      {"ISRC", u"Source"},
    {"ISRF", u"Source Form"},       {"ISRF", u"Release Medium"}, {"ITCH", u"Technician"},
    {"ITRK", u"Track #"},           {"TORG", u"Publisher"},      {"TKEY", u"Initial Key"},
};

GUID ReadGuid(CFieldReader& reader)
{
    GUID guid;
    guid.Data1 = reader.U32();
    guid.Data2 = reader.U16();
    guid.Data3 = reader.U16();
    reader.Bytes(guid.Data4, 8);
    return guid;
}
}  // namespace

std::string CBroadcastExtension::Text(const char* field, size_t size)
{
    return std::string(field, strnlen(field, size));
}

EWaveFormatResult ParseWaveFormat(const uint8_t* bytes, size_t size, bool strict,
                                  bool withExtension, CAudioFormat& format)
{
    if (size < 16)
        return EWaveFormatResult::Skipped;
    CFieldReader reader(bytes, size, false);
    const uint16_t tag = reader.U16();
    const uint16_t channels = reader.U16();
    const uint32_t rate = reader.U32();
    uint32_t bytesPerSecond = reader.U32();
    const uint16_t blockAlign = reader.U16();
    const uint16_t bits = reader.U16();
    if (rate == 0)
        return EWaveFormatResult::EndWalk;
    if (strict && tag != WAVE_FORMAT_PCM && tag != WAVE_FORMAT_IEEE_FLOAT &&
        tag != WAVE_FORMAT_EXTENSIBLE)
        return EWaveFormatResult::EndWalk;

    bool integer =
        tag != WAVE_FORMAT_IEEE_FLOAT && tag != kTagMpeg && tag != WAVE_FORMAT_EXTENSIBLE;
    uint32_t padding = 0;
    GUID subFormat = GUID_NULL;
    bool extensible = false;
    uint16_t extensionSize = 0;
    uint32_t channelMask = 0;
    if (withExtension && size >= 40 && (tag == WAVE_FORMAT_EXTENSIBLE || tag == kTagMpeg))
    {
        extensionSize = reader.U16();
        const uint16_t validBits = reader.U16();
        channelMask = reader.U32();
        const GUID extensionGuid = ReadGuid(reader);
        if (tag == WAVE_FORMAT_EXTENSIBLE)
        {
            extensible = true;
            subFormat = extensionGuid;
            integer = !(extensionGuid == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
            if (bits == 32 && validBits == 24)
                padding = CAudioFormat::SET_PAD_8;
        }
        else
        {
            // The MPEG extension keeps the bit rate where the channel mask
            // would stand.
            if (bytesPerSecond == 0)
                bytesPerSecond = channelMask / 8;
            channelMask = 0;
            subFormat = MakeWaveSubFormat(tag);
        }
    }
    else if (tag == WAVE_FORMAT_PCM)
        subFormat = KSDATAFORMAT_SUBTYPE_PCM;
    else if (tag == WAVE_FORMAT_IEEE_FLOAT)
        subFormat = KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
    else if (tag == kTagEncoded146 || tag == WAVE_FORMAT_MULAW || tag == kTagMpeg)
        subFormat = MakeWaveSubFormat(tag);

    format.Set(bits | (integer ? CAudioFormat::SET_INTEGER : 0) | padding, rate, channels,
               subFormat);
    format.formatTag = tag;
    if (extensible)
    {
        format.extraSize = extensionSize;
        format.channelMask = channelMask;
    }
    format.avgBytesPerSec = bytesPerSecond;
    format.blockAlign = blockAlign;
    return EWaveFormatResult::Found;
}

void ParseInfoList(const uint8_t* bytes, size_t size, QVInfoList& list)
{
    size_t offset = 0;
    while (size - offset >= 8)
    {
        const uint8_t* id = bytes + offset;
        const uint32_t length = CFieldReader::U32At(bytes + offset + 4, false);
        offset += 8;
        const uint64_t padded = uint64_t{length} + (length & 1);
        if (padded > size - offset)
            break;
        std::vector<uint8_t> text(bytes + offset, bytes + offset + padded);
        offset += static_cast<size_t>(padded);
        if (!text.empty())
            text.back() = 0;
        QVString value = QVDecodeText(text.data(), text.size());
        const int32_t end = value.Find(u'\0');
        if (end >= 0)
            value = value.Left(end);
        for (const InfoName& entry : kInfoNames)
        {
            if (SameId(id, entry.id))
                list.SetAt(QVString(entry.name), value);
        }
    }
}

bool CWAVUITSChunk::Write(IQVFileStream& stream) const
{
    uint8_t header[8] = {'U', 'I', 'T', 'S'};
    const uint32_t size = static_cast<uint32_t>(payload.size());
    for (int i = 0; i < 4; ++i)
        header[4 + i] = static_cast<uint8_t>(size >> (8 * i));
    const int64_t count = static_cast<int64_t>(payload.size());
    bool done = stream.Write(header, 8) == 8 && stream.Write(payload.data(), count) == count;
    if (done && (size & 1) != 0)
    {
        const uint8_t pad = 0;
        done = stream.Write(&pad, 1) == 1;
    }
    return done;
}

bool CWAVInfo::ReadDataSize64()
{
    uint8_t head[kDataSize64Head];
    if (!ReadAt(12, head, sizeof head))
        return false;
    CFieldReader reader(head, sizeof head, false);
    char id[4];
    reader.Bytes(id, 4);
    const uint32_t size = reader.U32();
    auto chunk = std::make_unique<CDataSize64Chunk>();
    chunk->riffSize = reader.U64();
    chunk->dataSize = reader.U64();
    chunk->sampleCount = reader.U64();
    const uint32_t tableLength = reader.U32();
    // Each entry needs 12 bytes of the file; a longer table cannot be there.
    const int64_t tableBytes = int64_t{tableLength} * 12;
    if (tableBytes > fileSize - 12 - static_cast<int64_t>(kDataSize64Head))
        return false;
    std::vector<uint8_t> table(static_cast<size_t>(tableBytes));
    if (tableBytes > 0 && !ReadAt(12 + kDataSize64Head, table.data(), tableBytes))
        return false;
    CFieldReader entries(table.data(), table.size(), false);
    for (uint32_t i = 0; i < tableLength; ++i)
    {
        CChunkSize64 entry;
        entries.Bytes(entry.ID, 4);
        entry.size = entries.U64();
        chunk->table.push_back(entry);
    }
    AddChunk(id, size, 12);
    dataSize64Chunk = std::move(chunk);
    return true;
}

void CWAVInfo::ReadList(int64_t position, uint32_t size)
{
    if (size < 4 || size > kMaximumKeptChunk)
        return;
    std::vector<uint8_t> bytes(size);
    if (!ReadAt(position, bytes.data(), size) || !SameId(bytes.data(), "INFO"))
        return;
    ParseInfoList(bytes.data() + 4, bytes.size() - 4, infoList);
}

void CWAVInfo::ReadBroadcastExtension(int64_t position, uint32_t size)
{
    if (size < CBroadcastExtension::kFixedSize)
        return;
    const int64_t kept =
        std::min<int64_t>(size, CBroadcastExtension::kFixedSize + kMaximumKeptChunk);
    std::vector<uint8_t> bytes(static_cast<size_t>(kept));
    if (!ReadAt(position, bytes.data(), kept))
        return;
    auto record = std::make_unique<CBroadcastExtension>();
    CFieldReader reader(bytes.data(), bytes.size(), false);
    reader.Bytes(record->description, sizeof record->description);
    reader.Bytes(record->originator, sizeof record->originator);
    reader.Bytes(record->originatorReference, sizeof record->originatorReference);
    reader.Bytes(record->originationDate, sizeof record->originationDate);
    reader.Bytes(record->originationTime, sizeof record->originationTime);
    record->timeReferenceLow = reader.U32();
    record->timeReferenceHigh = reader.U32();
    record->version = reader.U16();
    reader.Bytes(record->umid, sizeof record->umid);
    for (int16_t& value : record->loudness)
        value = static_cast<int16_t>(reader.U16());
    reader.Bytes(record->reserved, sizeof record->reserved);
    const char* history = reinterpret_cast<const char*>(bytes.data()) + reader.GetOffset();
    record->codingHistory.assign(history, strnlen(history, reader.GetRemaining()));
    broadcastExtension = std::move(record);
}

void CWAVInfo::ReadUITS(int64_t position, uint32_t size, int32_t index)
{
    if (size > kMaximumKeptChunk)
        return;
    auto chunk = std::make_unique<CWAVUITSChunk>();
    // The payload keeps its pad byte; one missing at the file's end reads as 0.
    chunk->payload.assign(size + (size & 1), 0);
    if (!ReadAt(position, chunk->payload.data(), size))
        return;
    std::memcpy(chunk->ID, "UITS", 4);
    chunk->Size = size;
    chunk->Position = position - 8;
    chunk->chunkIndex = index;
    uitsChunk = std::move(chunk);
}

void CWAVInfo::DetectDts()
{
    if (format.formatTag != WAVE_FORMAT_PCM || format.channels != 2 || format.sampleRate != 44100 ||
        format.bitsPerSample != 16 || stream->IsNonSeekable())
        return;
    const int64_t here = stream->GetPosition();
    std::vector<uint8_t> start(static_cast<size_t>(std::min(dataSize, kDtsScanBytes)));
    const int64_t got = stream->Seek(dataStart, IQVFileStream::SEEK_FROM_START)
                            ? stream->Read(start.data(), static_cast<int64_t>(start.size()))
                            : 0;
    stream->Seek(here, IQVFileStream::SEEK_FROM_START);
    const int32_t channels = DetectDtsChannels(start.data(), static_cast<size_t>(got));
    if (channels > 0)
    {
        format.formatTag = kTagDts;
        format.channels = static_cast<uint16_t>(channels);
    }
}

int32_t CWAVInfo::ReadHeader(bool strict, bool scanAll)
{
    infoList.RemoveAll();
    broadcastExtension.reset();
    dataSize64Chunk.reset();
    riffKind = RIFF_NONE;
    isOpen = 0;
    if (!stream)
        return -1;
    const int64_t saved = stream->GetPosition();
    fileSize = stream->GetSize();

    uint8_t head[12];
    if (ReadAt(0, head, sizeof head) && SameId(head + 8, "WAVE"))
    {
        if (SameId(head, "RIFF"))
            riffKind = RIFF_RIFF;
        else if (SameId(head, "RF64"))
            riffKind = RIFF_RF64;
    }
    bool formatFound = false;
    bool dataFound = false;
    int64_t position = 12;
    // In RF64 the first chunk is the size chunk, whatever its id says.
    if (riffKind == RIFF_RF64)
    {
        if (ReadDataSize64())
        {
            const uint64_t tableBytes = uint64_t{12} * dataSize64Chunk->table.size();
            position =
                NextChunkPosition(20, std::max<uint64_t>(chunks[0].Size, 28 + tableBytes), 2);
        }
        else
            riffKind = RIFF_NONE;
    }

    while (riffKind != RIFF_NONE && position <= fileSize - 8)
    {
        uint8_t header[8];
        if (!ReadAt(position, header, sizeof header))
            break;
        const uint32_t size = CFieldReader::U32At(header + 4, false);
        const int32_t index = AddChunk(reinterpret_cast<const char*>(header), size, position);
        const int64_t body = position + 8;
        const bool isData = SameId(header, "data");
        if (!isData && size > fileSize - body)
            break;
        int64_t next = NextChunkPosition(body, size, 2);
        if (SameId(header, "fmt "))
        {
            uint8_t bytes[40];
            const uint32_t count = std::min<uint32_t>(size, sizeof bytes);
            if (size >= 16 && ReadAt(body, bytes, count))
            {
                const EWaveFormatResult result =
                    ParseWaveFormat(bytes, count, strict, true, format);
                if (result == EWaveFormatResult::EndWalk)
                    break;
                formatFound = formatFound || result == EWaveFormatResult::Found;
            }
        }
        else if (isData)
        {
            dataSize = (size == 0xFFFFFFFF || size == 0xFFFFFFFE) ? -1 : int64_t{size};
            if (riffKind == RIFF_RF64)
            {
                const uint64_t size64 = dataSize64Chunk->dataSize;
                dataSize =
                    size64 > static_cast<uint64_t>(kInt64Max) ? -1 : static_cast<int64_t>(size64);
            }
            dataStart = body;
            dataFound = true;
            next = dataSize < 0 ? kInt64Max
                                : NextChunkPosition(body, static_cast<uint64_t>(dataSize), 2);
        }
        else if (SameId(header, "id3 ") || SameId(header, "ID3 ") || SameId(header, "tag "))
        {
            if (!ReadTagChunk(body, size, index))
                break;
        }
        else if (SameId(header, "LIST"))
            ReadList(body, size);
        else if (SameId(header, "UITS"))
            ReadUITS(body, size, index);
        else if (SameId(header, "bext") || SameId(header, "BEXT"))
            ReadBroadcastExtension(body, size);
        position = next;
        if (dataFound && ((formatFound && !scanAll) || stream->IsNonSeekable()))
            break;
    }

    if (!stream->IsNonSeekable())
        stream->Seek(saved, IQVFileStream::SEEK_FROM_START);
    if (!formatFound || !dataFound)
        return -1;
    isOpen = 1;
    FinishData();
    DetectDts();
    return 0;
}

namespace
{
// Places of the 64-bit sizes in an RF64 file's ds64 chunk.
constexpr int64_t kRiffSize64Offset = 20;
constexpr int64_t kDataSize64Offset = 28;
}  // namespace

CWAVInfo::~CWAVInfo()
{
    Close();
}

bool CWAVInfo::WriteU64At(int64_t position, uint64_t value)
{
    uint8_t bytes[8];
    for (int i = 0; i < 8; ++i)
        bytes[i] = static_cast<uint8_t>(value >> (8 * i));
    return WriteAt(position, bytes, 8);
}

// In RF64 the header keeps 0xFFFFFFFF and the true size lives in ds64.
bool CWAVInfo::AddToFormSize(int64_t delta)
{
    if (riffKind != RIFF_RF64 || !dataSize64Chunk)
        return CIFFInfo::AddToFormSize(delta);
    dataSize64Chunk->riffSize += static_cast<uint64_t>(delta);
    return WriteU64At(kRiffSize64Offset, dataSize64Chunk->riffSize);
}

bool CWAVInfo::RepairFormSize()
{
    if (riffKind != RIFF_RF64 || !dataSize64Chunk)
        return CIFFInfo::RepairFormSize();
    fileSize = stream->GetSize();
    const uint64_t wanted = static_cast<uint64_t>(fileSize - 8);
    if (dataSize64Chunk->riffSize == wanted)
        return true;
    dataSize64Chunk->riffSize = wanted;
    return WriteU64At(kRiffSize64Offset, wanted);
}

bool CWAVInfo::RepairDataSize()
{
    if (riffKind != RIFF_RF64 || !dataSize64Chunk)
        return CIFFInfo::RepairDataSize();
    if (chunks.empty() || !chunks.back().Is("data"))
        return true;
    const int64_t body = chunks.back().Position + 8;
    fileSize = stream->GetSize();
    const uint64_t available = static_cast<uint64_t>(fileSize - body);
    if (dataSize64Chunk->dataSize <= available)
        return true;
    dataSize64Chunk->dataSize = available;
    if (!WriteU64At(kDataSize64Offset, available))
        return false;
    if (available % 2 != 0)
    {
        const uint8_t pad = 0;
        if (!WriteAt(fileSize, &pad, 1))
            return false;
        ++fileSize;
    }
    return true;
}

bool CWAVInfo::GetInfoListValue(const QVString& name, QVString& text) const
{
    const QVString* value = infoList.Find(name);
    if (value == nullptr || value->IsEmpty())
        return false;
    text = *value;
    return true;
}

std::unique_ptr<CUITSChunk> CWAVInfo::MakeUITSChunk() const
{
    return std::make_unique<CWAVUITSChunk>();
}

QVString CWAVInfo::GetTagText()
{
    QVString text = CIFFInfo::GetTagText();
    if (!text.IsEmpty() || infoList.GetCount() == 0)
        return text;
    text = QVTranslated(u"WAVE INFO LIST:\r\n");
    for (const auto& node : infoList)
        text += node.key + u": " + node.value + u"\r\n";
    return text;
}
