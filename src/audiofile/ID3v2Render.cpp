// The writing half of CID3v2Tag: fields set by name, frames built in the
// layouts that reading understands, and the tag rendered with its padding.
#include "audiofile/ID3v2Tag.h"

#include "audiofile/ID3v2Text.h"
#include "core/QVFileSystem.h"
#include "core/QVStringArray.h"

#include <algorithm>
#include <climits>
#include <cstring>

using namespace id3text;

namespace
{
constexpr size_t kTagHeaderSize = 10;
constexpr size_t kFrameHeaderSize = 10;
// A tag keeps its size while it loses no more than this to padding.
constexpr int64_t kMaximumKeptPadding = 0x40000;
// A new or resized tag ends on this boundary, with room to grow.
constexpr int64_t kPaddingStep = 4096;
// Synchsafe numbers carry 28 bits.
constexpr uint32_t kSynchsafeLimit = 1u << 28;
constexpr const char16_t* kAddedCommentPrefix = u"Quovan Box: ";
constexpr const char16_t* kDefaultLanguage = u"eng";
constexpr const char16_t* kDefaultPictureDescription = u"Picture";

constexpr const char16_t* kPodcastDescription = u"!@#$% iTunes Podcast Description !@#$%";
constexpr const char16_t* kPodcastFeed = u"!@#$% iTunes Podcast Feed URL !@#$%";
constexpr const char16_t* kPodcastEpisode = u"!@#$% iTunes Podcast Episode URL !@#$%";
constexpr const char16_t* kPodcastDate = u"!@#$% iTunes Podcast Date !@#$%";
constexpr const char16_t* kPodcastFlag = u"!@#$% iTunes Podcast Flag !@#$%";

// Frame classes of the rendered order.
constexpr int32_t kClassKnown = 10000;
constexpr int32_t kClassComment = 20000;
constexpr int32_t kClassUserText = 30000;
constexpr int32_t kClassUnknown = 40000;

void PutSize(uint8_t* out, uint32_t value, bool synchsafe)
{
    for (int i = 0; i < 4; ++i)
    {
        const int shift = synchsafe ? 21 - 7 * i : 24 - 8 * i;
        out[i] = static_cast<uint8_t>((value >> shift) & (synchsafe ? 0x7Fu : 0xFFu));
    }
}

// The byte of a rating of 0 to 5 stars, inside the range that reads back as
// that rating.
uint8_t ByteOfRating(int64_t stars)
{
    static constexpr uint8_t kBytes[] = {0, 1, 64, 128, 196, 255};
    return kBytes[std::clamp<int64_t>(stars, 0, 5)];
}

std::vector<QVString> SplitValues(const QVString& value)
{
    std::vector<QVString> parts;
    for (const QVString& piece : value.Split(u";"))
    {
        QVString part = piece;
        part.Trim();
        if (!part.IsEmpty())
            parts.push_back(part);
    }
    return parts;
}

QVString JoinValues(const std::vector<QVString>& parts)
{
    QVString joined;
    for (const QVString& part : parts)
    {
        if (!joined.IsEmpty())
            joined += u";";
        joined += part;
    }
    return joined;
}

QVString ExtensionOf(const QVString& path)
{
    const int32_t slash = std::max(path.ReverseFind(u'/'), path.ReverseFind(u'\\'));
    const int32_t dot = path.ReverseFind(u'.');
    return dot > slash ? path.Mid(dot + 1).MakeLower() : QVString();
}

bool AnyWide(const std::vector<QVString>& texts)
{
    return std::any_of(texts.begin(), texts.end(), NeedsWideText);
}

int32_t ClassOf(const CID3v2Frame& frame)
{
    if (frame.HasID("COMM"))
        return kClassComment;
    if (frame.HasID("TXXX"))
        return kClassUserText;
    return frame.Kind != ID3KIND_NONE ? kClassKnown : kClassUnknown;
}
}  // namespace

bool CID3v2Tag::SetField(const QVString& name, const QVString& value)
{
    const uint32_t mask = GetMajorVersion() < 4 ? ID3FIELD_WRITE_V23 : ID3FIELD_WRITE_V24;
    const std::vector<int32_t>* rows = RowsOf(name);
    const bool writable =
        rows != nullptr &&
        std::any_of(rows->begin(), rows->end(),
                    [&](int32_t r)
                    { return (fieldTable[static_cast<size_t>(r)].Flags & mask) != 0; });
    if (!writable && name != u"Year")
    {
        // Any other name is kept in a user text frame of its own name.
        AddRow("TXXX", name.c_str(), name.c_str(), ID3FIELD_WRITTEN, -1);
        const QVString comment = QVString(kAddedCommentPrefix) + name;
        AddRow("COMM", name.c_str(), comment.c_str(), 0, -1);
        rows = RowsOf(name);
    }
    if (value.IsEmpty())
    {
        if (rows != nullptr)
            RemoveFramesOf(*rows);
        return true;
    }
    if (!writable && name == u"Year")
        return false;
    const std::vector<int32_t> rowList = *rows;
    bool done = false;
    for (const int32_t r : rowList)
    {
        const CID3v2Field row = fieldTable[static_cast<size_t>(r)];
        if ((row.Flags & mask) != 0)
            done = SetRow(row, value) || done;
    }
    return done;
}

void CID3v2Tag::RemoveFramesOf(const std::vector<int32_t>& rows)
{
    const size_t before = frames.size();
    std::erase_if(frames,
                  [&](const std::unique_ptr<CID3v2Frame>& frame)
                  {
                      return std::any_of(
                          rows.begin(), rows.end(),
                          [&](int32_t r)
                          { return RowMatches(fieldTable[static_cast<size_t>(r)], *frame); });
                  });
    dirty = dirty || frames.size() != before;
}

bool CID3v2Tag::SetRow(const CID3v2Field& row, const QVString& value)
{
    CID3v2Frame* frame = FindFrame(row, 0);
    std::unique_ptr<CID3v2Frame> made;
    if (frame == nullptr)
    {
        made = std::make_unique<CID3v2Frame>();
        std::memcpy(made->ID, row.FrameID, 4);
        frame = made.get();
    }
    // A new frame, or one that could not be read (encrypted, say), which is
    // then replaced whole, takes the layout of its id and what the row asks
    // for; the frame changes only once the value has been taken.
    const bool replaced = frame->Kind == ID3KIND_NONE;
    const int32_t kind = replaced ? CID3v2Frame::KindOfId(row.FrameID) : frame->Kind;
    QVPropertyMap properties;
    if (!replaced)
        properties = frame->Properties;
    else
    {
        if (!row.Description.IsEmpty())
            properties.SetString(u"Description"_qv, row.Description);
        if (row.PictureType != -1)
            properties.SetInt(u"Picture Type"_qv, row.PictureType);
    }
    const QVString description = properties.GetString(u"Description"_qv);
    QVString text = value;
    if ((row.Flags & ID3FIELD_PAIR) != 0 && kind == ID3KIND_TEXT && value.Find(u'/') < 0)
    {
        // The total of "n/total" outlives a change of n.
        const QVString old = properties.GetString(u"Value"_qv);
        const int32_t slash = old.Find(u'/');
        if (slash >= 0)
            text = QVString::Format(u"%s/%d", value, old.Mid(slash + 1).ToInt());
    }
    if ((row.Flags & ID3FIELD_GAIN) != 0 && kind != ID3KIND_PODCAST)
    {
        QVString number = value;
        RemoveNoCase(number, u"db");
        double gain = 0;
        if (!ParseNumber(number, gain))
            return false;
        text = QVPropertyMap::FormatDouble(gain) + u" dB";
    }
    double days = 0;
    if ((row.Flags & ID3FIELD_DATE) != 0 && ParseNumber(value, days))
        text = ID3DateNumberToText(days);
    std::vector<QVString> parts = {text};
    if ((row.Flags & ID3FIELD_MULTIVALUE) != 0)
    {
        parts = SplitValues(text);
        if (parts.empty())
            parts = {text};
        text = JoinValues(parts);
    }

    std::vector<uint8_t> data;
    uint8_t encoding = kLatin;
    switch (kind)
    {
    case ID3KIND_TEXT:
        encoding = AnyWide(parts) ? kUTF16 : kLatin;
        data.push_back(encoding);
        for (const QVString& part : parts)
            AppendString(data, part, encoding);
        break;
    case ID3KIND_USER_TEXT:
    case ID3KIND_COMMENT:
    {
        std::vector<QVString> all = parts;
        all.push_back(description);
        encoding = AnyWide(all) ? kUTF16 : kLatin;
        data.push_back(encoding);
        if (kind == ID3KIND_COMMENT)
        {
            QVString language = properties.GetString(u"Language ID"_qv, kDefaultLanguage);
            if (language.GetLength() != 3)
                language = kDefaultLanguage;
            for (int32_t i = 0; i < 3; ++i)
                data.push_back(static_cast<uint8_t>(language[i]));
            properties.SetString(u"Language ID"_qv, language);
        }
        AppendString(data, description, encoding);
        for (const QVString& part : parts)
            AppendString(data, part, encoding);
        break;
    }
    case ID3KIND_PICTURE:
    {
        std::vector<uint8_t> picture;
        if (!QVFileSystem::ReadFileToBuffer(value, picture) || picture.empty())
            return false;
        QVString type = ExtensionOf(QVFileSystem::GetPlainPath(value));
        if (type == u"jpg")
            type = u"jpeg";
        const QVString mime = u"image/"_qv + type;
        const QVString pictureDescription =
            description.IsEmpty() ? QVString(kDefaultPictureDescription) : description;
        const int32_t pictureType = row.PictureType != -1 ? row.PictureType : 3;
        encoding = NeedsWideText(pictureDescription) ? kUTF16 : kLatin;
        data.push_back(encoding);
        AppendString(data, mime, kLatin);
        data.push_back(static_cast<uint8_t>(pictureType));
        AppendString(data, pictureDescription, encoding);
        data.insert(data.end(), picture.begin(), picture.end());
        properties.SetString(u"Mime Type"_qv, mime);
        properties.SetInt(u"Picture Type"_qv, pictureType);
        properties.SetString(u"Description"_qv, pictureDescription);
        text = BytesAsText(picture.data(), picture.size());
        break;
    }
    case ID3KIND_RATING:
    {
        double stars = 0;
        if (!ParseNumber(value, stars))
            return false;
        data = {0, ByteOfRating(static_cast<int64_t>(stars))};
        text = QVString::FromInt(std::clamp<int64_t>(static_cast<int64_t>(stars), 0, 5));
        break;
    }
    case ID3KIND_PODCAST:
    {
        const uint32_t number = static_cast<uint32_t>(value.ToInt());
        for (int i = 0; i < 4; ++i)
            data.push_back(static_cast<uint8_t>(number >> (8 * i)));
        text = QVString::FromUInt(number);
        break;
    }
    case ID3KIND_URL:
        for (int32_t i = 0; i < text.GetLength(); ++i)
            data.push_back(static_cast<uint8_t>(text[i]));
        break;
    case ID3KIND_PRIVATE:
    {
        AppendString(data, row.Description, kLatin);
        const std::string payload = text.ToUTF8();
        data.insert(data.end(), payload.begin(), payload.end());
        break;
    }
    default: return false;
    }
    if (kind != ID3KIND_RATING && kind != ID3KIND_PODCAST && kind != ID3KIND_URL &&
        kind != ID3KIND_PRIVATE)
        properties.SetInt(u"Text Encoding"_qv, encoding);
    properties.SetString(u"Value"_qv, text);
    frame->Kind = kind;
    frame->Properties = properties;
    frame->Data = std::move(data);
    frame->Flags[1] = 0;
    PutSize(frame->Size, static_cast<uint32_t>(frame->Data.size()), GetMajorVersion() >= 4);
    if (made)
        frames.push_back(std::move(made));
    dirty = true;
    return true;
}

void CID3v2Tag::SetPodcastFrames()
{
    const QVString feed = GetValue(u"Feed URL"_qv);
    if (feed.IsEmpty())
    {
        for (const char16_t* name :
             {kPodcastDescription, kPodcastFeed, kPodcastEpisode, kPodcastFlag})
            SetField(QVString(name), QVString());
        return;
    }
    SetField(QVString(kPodcastDescription), GetValue(u"Comment"_qv));
    SetField(QVString(kPodcastFeed), feed);
    SetField(QVString(kPodcastEpisode), GetValue(u"Episode URL"_qv));
    SetField(QVString(kPodcastDate), GetValue(u"Date"_qv));
    SetField(QVString(kPodcastFlag), u"0"_qv);
}

int32_t CID3v2Tag::BuiltInRowOf(const CID3v2Frame& frame) const
{
    const bool described = frame.Kind == ID3KIND_USER_TEXT || frame.Kind == ID3KIND_COMMENT;
    const QVString description = frame.Properties.GetString(u"Description"_qv);
    for (size_t r = 0; r < fieldTable.size(); ++r)
    {
        const CID3v2Field& row = fieldTable[r];
        if ((row.Flags & ID3FIELD_BUILT_IN) == 0 || std::memcmp(row.FrameID, frame.ID, 4) != 0)
            continue;
        if (!described || (row.Flags & ID3FIELD_ANY_DESCRIPTION) != 0 ||
            row.Description.CompareNoCase(description) == 0)
            return static_cast<int32_t>(r);
    }
    return INT_MAX;
}

void CID3v2Tag::SortFrames()
{
    if (frames.size() < 2)
        return;
    auto before =
        [this](const std::unique_ptr<CID3v2Frame>& a, const std::unique_ptr<CID3v2Frame>& b)
    {
        const int32_t classA = ClassOf(*a);
        const int32_t classB = ClassOf(*b);
        if (classA != classB)
            return classA < classB;
        int order = 0;
        if (classA == kClassComment || classA == kClassUserText)
            order = QVString::CompareNoCase(a->Properties.GetString(u"Description"_qv),
                                            b->Properties.GetString(u"Description"_qv));
        else if (classA == kClassUnknown)
            order = std::memcmp(a->ID, b->ID, 4);
        if (order != 0)
            return order < 0;
        return BuiltInRowOf(*a) < BuiltInRowOf(*b);
    };
    std::stable_sort(frames.begin(), frames.end(), before);
}

bool CID3v2Tag::Render(std::vector<uint8_t>& out)
{
    out.clear();
    SetPodcastFrames();
    SortFrames();
    const uint8_t major = present ? std::max<uint8_t>(3, header[3]) : 3;
    std::vector<uint8_t> body;
    for (const auto& frame : frames)
    {
        if (frame->Data.size() >= kSynchsafeLimit)
            return false;
        uint8_t frameHeader[kFrameHeaderSize];
        std::memcpy(frameHeader, frame->ID, 4);
        PutSize(frameHeader + 4, static_cast<uint32_t>(frame->Data.size()), major >= 4);
        std::memcpy(frameHeader + 8, frame->Flags, 2);
        body.insert(body.end(), frameHeader, frameHeader + kFrameHeaderSize);
        body.insert(body.end(), frame->Data.begin(), frame->Data.end());
    }
    const int64_t total = static_cast<int64_t>(body.size() + kTagHeaderSize);
    int64_t padding = (total / kPaddingStep + 1) * kPaddingStep - total;
    if (present && total <= size && size - kMaximumKeptPadding <= total)
        padding = size - total;
    const int64_t tagSize = static_cast<int64_t>(body.size()) + padding;
    if (tagSize >= kSynchsafeLimit)
        return false;
    out = {'I', 'D', '3', major, 0, 0, 0, 0, 0, 0};
    PutSize(out.data() + 6, static_cast<uint32_t>(tagSize), true);
    out.insert(out.end(), body.begin(), body.end());
    out.insert(out.end(), static_cast<size_t>(padding), 0);
    return true;
}

QVString CID3v2Tag::GetFrameText(int32_t index) const
{
    if (index < 0 || index >= GetFrameCount())
        return QVString();
    const CID3v2Frame& frame = *frames[static_cast<size_t>(index)];
    const QVString id = QVString::FromCP1252(std::string_view(frame.ID, 4));
    const QVPropertyMap& properties = frame.Properties;
    const QVString value = properties.GetString(u"Value"_qv);
    const QVString description = properties.GetString(u"Description"_qv);
    switch (frame.Kind)
    {
    case ID3KIND_USER_TEXT:
    case ID3KIND_COMMENT: return QVString::Format(u"%s (%s): %s", id, description, value);
    case ID3KIND_PICTURE:
        return QVString::Format(
            u"%s: %s, type %d, \"%s\", %d bytes", id, properties.GetString(u"Mime Type"_qv),
            properties.GetInt(u"Picture Type"_qv, 0), description, value.GetLength());
    case ID3KIND_PRIVATE:
        return QVString::Format(u"%s (%s): %d bytes", id, description,
                                static_cast<int64_t>(frame.Data.size()));
    case ID3KIND_NONE:
        return QVString::Format(u"%s: %d bytes", id, static_cast<int64_t>(frame.Data.size()));
    default: return QVString::Format(u"%s: %s", id, value);
    }
}
