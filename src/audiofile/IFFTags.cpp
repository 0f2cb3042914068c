// The tags of CIFFInfo: the ID3v2 tag in a chunk of its own, the UITS
// payload chunk and, for reading, the INFO list. Tags are rewritten in place:
// a tag that keeps its length overwrites its own bytes and nothing else;
// otherwise the chunks behind it move forward and the tags go to the end.
#include "audiofile/IFFInfo.h"

#include "core/QVFileSystem.h"
#include "frame/IQVTools.h"
#include "frame/SettingsKey.h"

#include <algorithm>
#include <cstring>
#include <fstream>

namespace
{
// What lies behind a tag moves in pieces of this size at most.
constexpr int64_t kMovePiece = 1048576;
// A tag smaller than its header and one frame header is nothing to remove.
constexpr int32_t kSmallestRemovedTag = 20;
constexpr int64_t kFormSizeOffset = 4;
constexpr const char16_t* kUITSName = u"UITS Payload";
constexpr const char16_t* kImageName = u"Image File";
constexpr const char16_t* kSettingsKey = u"Plugins\\Input\\WAV";
constexpr const char16_t* kDoNotWriteSetting = u"DoNotWriteTagsToFiles";

// The extension of a temporary picture file, by the words of its media type.
QVString PictureExtension(const QVString& mime)
{
    static constexpr const char16_t* kKinds[] = {u"jpeg", u"jpg",  u"gif", u"bmp",
                                                 u"png",  u"tiff", u"tif"};
    for (const char16_t* kind : kKinds)
    {
        if (mime.FindNoCase(kind) >= 0)
            return QVString(kind) == u"jpeg" ? QVString(u"jpg") : QVString(kind);
    }
    return QVString(u"bin");
}

bool ReadDoNotWriteSetting()
{
    IQVTools* tools = GetQVTools();
    if (tools == nullptr)
        return false;
    std::unique_ptr<IQVSettingsKey> key(tools->GetPluginKeyObject(QVString(kSettingsKey), false));
    return key && key->ReadInt(kDoNotWriteSetting, 0, 0) != 0;
}
}  // namespace

bool CIFFInfo::ReadTagChunk(int64_t position, uint32_t size, int32_t index)
{
    tagChunkIndex = index;
    if (size > kMaximumKeptChunk)
        return true;
    std::vector<uint8_t> bytes(size);
    if (size > 0 && !ReadAt(position, bytes.data(), size))
        return false;
    // Some writers count the pad byte in the chunk's size.
    if (!tag.Parse(bytes.data(), bytes.size(), position) && size > 1)
        tag.Parse(bytes.data(), bytes.size() - 1, position);
    return true;
}

bool CIFFInfo::WriteAt(int64_t position, const void* buffer, int64_t count)
{
    if (!stream || !stream->Seek(position, IQVFileStream::SEEK_FROM_START))
        return false;
    return stream->Write(buffer, count) == count;
}

bool CIFFInfo::WriteU32At(int64_t position, uint32_t value)
{
    const uint32_t stored = Swap32(value);
    uint8_t bytes[4];
    std::memcpy(bytes, &stored, 4);
    return WriteAt(position, bytes, 4);
}

bool CIFFInfo::GetTag(const QVString& name, QVString& text)
{
    text.Empty();
    if (name == kUITSName)
    {
        if (uitsChunk)
        {
            text = QVDecodeText(uitsChunk->payload.data(), uitsChunk->payload.size());
            const int32_t end = text.Find(u'\0');
            if (end >= 0)
                text = text.Left(end);
        }
        return !text.IsEmpty();
    }
    QVPropertyMap properties;
    if (tag.GetField(name, properties))
        text = properties.GetString(u"Value"_qv);
    if (name == kImageName && !text.IsEmpty())
    {
        // The picture's bytes go to a file whose name is the answer.
        const QVString path = QVFileSystem::GetTempPath() + u"WAV Image." +
                              PictureExtension(properties.GetString(u"Mime Type"_qv));
        std::string bytes(static_cast<size_t>(text.GetLength()), '\0');
        for (int32_t i = 0; i < text.GetLength(); ++i)
            bytes[static_cast<size_t>(i)] = static_cast<char>(text[i]);
        std::ofstream out(path.ToUTF8(), std::ios::binary | std::ios::trunc);
        out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        text = out.good() ? path : QVString();
    }
    if (text.IsEmpty())
        GetInfoListValue(name, text);
    return !text.IsEmpty();
}

bool CIFFInfo::SetTag(const QVString& name, const QVString& text)
{
    if (!CanWriteTags())
        return false;
    if (name == kUITSName)
    {
        std::unique_ptr<CUITSChunk> made;
        CUITSChunk* chunk = uitsChunk.get();
        if (chunk == nullptr)
        {
            made = MakeUITSChunk();
            chunk = made.get();
        }
        if (chunk != nullptr)
        {
            const std::string utf8 = text.ToUTF8();
            chunk->payload.assign(utf8.begin(), utf8.end());
            if (chunk->payload.size() % 2 != 0)
                chunk->payload.push_back(0);
            chunk->dirty = true;
            if (made)
                uitsChunk = std::move(made);
            return true;
        }
    }
    return tag.SetField(name, text);
}

bool CIFFInfo::CanWriteTags()
{
    if (tagWritable == -1)
    {
        if (!IsBelow2GB() || GetTagChunkID().IsEmpty())
            tagWritable = 0;
        else
            tagWritable = ReadDoNotWriteSetting() ? 0 : 1;
    }
    return tagWritable == 1;
}

int64_t CIFFInfo::GetFormSize()
{
    uint8_t bytes[4];
    if (!ReadAt(kFormSizeOffset, bytes, 4))
        return -1;
    uint32_t value;
    std::memcpy(&value, bytes, 4);
    return Swap32(value);
}

bool CIFFInfo::AddToFormSize(int64_t delta)
{
    const int64_t size = GetFormSize();
    if (size < 0)
        return false;
    return WriteU32At(kFormSizeOffset, static_cast<uint32_t>(size + delta));
}

bool CIFFInfo::WritePad(int64_t size)
{
    if (size % 2 == 0)
        return true;
    const uint8_t pad = 0;
    return stream->Write(&pad, 1) == 1;
}

bool CIFFInfo::RepairFormSize()
{
    uint8_t magic[4];
    if (!ReadAt(0, magic, 4) ||
        (std::memcmp(magic, "RIFF", 4) != 0 && std::memcmp(magic, "FORM", 4) != 0))
        return true;
    fileSize = stream->GetSize();
    if (GetFormSize() == fileSize - 8)
        return true;
    return WriteU32At(kFormSizeOffset, static_cast<uint32_t>(fileSize - 8));
}

bool CIFFInfo::RepairDataSize()
{
    if (chunks.empty() || !chunks.back().Is("data"))
        return true;
    const CIFFChunk& last = chunks.back();
    const int64_t body = last.Position + 8;
    fileSize = stream->GetSize();
    if (body + int64_t{last.Size} <= fileSize)
        return true;
    const int64_t size = fileSize - body;
    if (!WriteU32At(last.Position + 4, static_cast<uint32_t>(size)))
        return false;
    chunks.back().Size = static_cast<uint32_t>(size);
    if (size % 2 != 0)
    {
        const uint8_t pad = 0;
        if (!WriteAt(fileSize, &pad, 1))
            return false;
        ++fileSize;
    }
    return true;
}

void CIFFInfo::ChunkExtent(size_t index, int64_t& start, int64_t& end) const
{
    start = chunks[index].Position;
    end = index + 1 < chunks.size() ? chunks[index + 1].Position : fileSize;
    end = std::clamp(end, start, fileSize);
}

CIFFInfo::CTagSavePlan CIFFInfo::PlanTagSave(bool remove)
{
    CTagSavePlan plan;
    remove = remove && tag.IsPresent() && tag.GetSize() >= kSmallestRemovedTag;
    const bool uitsDirty = uitsChunk && uitsChunk->dirty;
    if (!isOpen || !stream || !CanWriteTags() || (!tag.IsDirty() && !uitsDirty && !remove))
        return plan;
    plan.needed = true;
    const bool keepTag = !remove && (tag.IsPresent() || tag.GetFrameCount() > 0);
    if (keepTag && tag.IsDirty())
    {
        if (!tag.Render(plan.rendered))
        {
            plan.failed = true;
            return plan;
        }
        if (tagChunkIndex >= 0)
        {
            const CIFFChunk& chunk = chunks[static_cast<size_t>(tagChunkIndex)];
            const uint64_t padded = uint64_t{chunk.Size} + (chunk.Size & 1);
            plan.tagInPlace = plan.rendered.size() == chunk.Size || plan.rendered.size() == padded;
        }
        plan.appendTag = !plan.tagInPlace;
    }
    plan.dropTag = remove || plan.appendTag;
    plan.moveChunks = plan.dropTag || uitsDirty;
    // A last chunk that claims more than the file holds would swallow what is
    // appended behind it; only a data chunk is cut to the file first.
    if (plan.moveChunks && !chunks.empty() && !chunks.back().Is("data") &&
        chunks.back().Position + 8 + int64_t{chunks.back().Size} > fileSize)
        plan.failed = true;
    // Bytes behind the last chunk that are no chunk (a stray tail) would hide
    // what is appended behind them from every reader, this one included.
    if (plan.moveChunks && !chunks.empty() && !LastChunkReachesTheEnd())
        plan.failed = true;
    return plan;
}

bool CIFFInfo::LastChunkReachesTheEnd() const
{
    const CIFFChunk& last = chunks.back();
    // A data chunk of unknown size runs to the end of the file.
    if (last.Is("data") && (last.Size == 0xFFFFFFFF || last.Size == 0xFFFFFFFE))
        return true;
    const int64_t end = last.Position + 8 + int64_t{last.Size} + (last.Size & 1);
    return end >= fileSize;
}

bool CIFFInfo::TagSaveTouchesOnlyTagBytes(bool remove)
{
    const CTagSavePlan plan = PlanTagSave(remove);
    return !plan.failed && !plan.moveChunks;
}

bool CIFFInfo::SaveTags(bool remove)
{
    if (!stream || !stream->IsWritable() || stream->IsNonSeekable())
        return true;
    const CTagSavePlan plan = PlanTagSave(remove);
    if (!plan.needed)
        return true;
    if (plan.failed || !RepairDataSize() || !RepairFormSize())
        return false;
    fileSize = stream->GetSize();
    if (plan.tagInPlace)
    {
        const CIFFChunk& chunk = chunks[static_cast<size_t>(tagChunkIndex)];
        const int64_t count = static_cast<int64_t>(plan.rendered.size());
        if (!WriteAt(chunk.Position + 8, plan.rendered.data(), count))
            return false;
        // Only the pad differs: the size says what the tag now is.
        if (plan.rendered.size() != chunk.Size &&
            !WriteU32At(chunk.Position + 4, static_cast<uint32_t>(count)))
            return false;
    }
    if (plan.moveChunks &&
        !MoveChunksAndAppend(plan.dropTag, plan.appendTag ? &plan.rendered : nullptr))
        return false;
    if (!stream->Flush())
        return false;
    Rescan();
    return true;
}

bool CIFFInfo::MoveChunksAndAppend(bool dropTag, const std::vector<uint8_t>* rendered)
{
    // The chunks that go: the tag's, when it is removed or moves to the end,
    // and the payload chunk's, which is written again at the end.
    std::vector<bool> dropped(chunks.size(), false);
    if (dropTag && tagChunkIndex >= 0)
        dropped[static_cast<size_t>(tagChunkIndex)] = true;
    if (uitsChunk && uitsChunk->chunkIndex >= 0 &&
        uitsChunk->chunkIndex < static_cast<int32_t>(chunks.size()))
        dropped[static_cast<size_t>(uitsChunk->chunkIndex)] = true;
    const auto first = std::find(dropped.begin(), dropped.end(), true);
    int64_t cursor = fileSize;
    if (first != dropped.end())
    {
        const size_t lowest = static_cast<size_t>(first - dropped.begin());
        cursor = chunks[lowest].Position;
        std::vector<uint8_t> piece(static_cast<size_t>(std::min<int64_t>(kMovePiece, fileSize)));
        for (size_t i = lowest; i < chunks.size(); ++i)
        {
            if (dropped[i])
                continue;
            int64_t start = 0;
            int64_t end = 0;
            ChunkExtent(i, start, end);
            for (int64_t from = start; from < end;)
            {
                const int64_t count = std::min<int64_t>(kMovePiece, end - from);
                if (!ReadAt(from, piece.data(), count) || !WriteAt(cursor, piece.data(), count))
                    return false;
                from += count;
                cursor += count;
            }
        }
    }
    if (!stream->Seek(cursor, IQVFileStream::SEEK_FROM_START))
        return false;
    // A chunk starts on an even position, whatever ended before it.
    if (!WritePad(cursor))
        return false;
    if (rendered != nullptr && !rendered->empty())
    {
        const std::string id = GetTagChunkID().ToUTF8();
        const uint32_t size = static_cast<uint32_t>(rendered->size());
        const uint32_t stored = Swap32(size);
        const int64_t count = static_cast<int64_t>(rendered->size());
        if (stream->Write(id.data(), 4) != 4 || stream->Write(&stored, 4) != 4 ||
            stream->Write(rendered->data(), count) != count || !WritePad(count))
            return false;
    }
    if (uitsChunk && !uitsChunk->Write(*stream))
        return false;
    const int64_t newSize = stream->GetPosition();
    if (!stream->SetEnd())
        return false;
    const int64_t delta = newSize - fileSize;
    fileSize = newSize;
    return AddToFormSize(delta);
}

void CIFFInfo::Rescan()
{
    chunks.clear();
    tagChunkIndex = -1;
    uitsChunk.reset();
    tag.Reset();
    dataSize = -1;
    dataStart = 0;
    ReadHeader(openedStrict, true);
}

QVString CIFFInfo::GetTagText()
{
    QVString text;
    if (tag.IsPresent() || tag.GetFrameCount() > 0)
    {
        const int32_t major = tag.GetMajorVersion();
        const char16_t* version = major == 3 ? u"ID3v2.3" : major == 4 ? u"ID3v2.4" : u"ID3v2";
        QVString line = QVTranslated(u"%s Tag: (%d bytes)\r\n");
        text += QVString::Format(line.c_str(), version, tag.GetSize());
        for (int32_t i = 0; i < tag.GetFrameCount(); ++i)
            text += QVString::Format(u"  %s\r\n", tag.GetFrameText(i));
    }
    return text;
}
