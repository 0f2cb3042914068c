#include "audiofile/ID3v2Tag.h"

#include "audiofile/ID3v2Text.h"
#include "core/QVFileSystem.h"

#include <zlib.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <unordered_set>

using namespace id3text;

namespace
{
constexpr size_t kTagHeaderSize = 10;
constexpr size_t kFooterSize = 10;
constexpr uint8_t kTagUnsynchronised = 0x80;
constexpr uint8_t kTagExtendedHeader = 0x40;
constexpr uint8_t kTagExperimental = 0x20;
constexpr uint8_t kTagFooter = 0x10;
// Format flags of a 2.4 frame.
constexpr uint8_t kFrameGrouped = 0x40;
constexpr uint8_t kFrameCompressed = 0x08;
constexpr uint8_t kFrameEncrypted = 0x04;
constexpr uint8_t kFrameUnsynchronised = 0x02;
constexpr uint8_t kFrameLengthIndicator = 0x01;
// Format flags of a 2.3 frame, which puts its bits elsewhere.
constexpr uint8_t kFrame23Compressed = 0x80;
constexpr uint8_t kFrame23Encrypted = 0x40;
constexpr uint8_t kFrame23Grouped = 0x20;
// A compressed frame inflates into at most this many times its size.
constexpr size_t kInflateFactor = 20;
constexpr size_t kMaximumInflated = 1u << 28;
constexpr size_t kInflateStep = 1u << 16;
constexpr int64_t kSecondsPerDay = 86400;

uint32_t Synchsafe(const uint8_t* bytes)
{
    return (uint32_t{bytes[0] & 0x7Fu} << 21) | (uint32_t{bytes[1] & 0x7Fu} << 14) |
           (uint32_t{bytes[2] & 0x7Fu} << 7) | (bytes[3] & 0x7Fu);
}

uint32_t BigEndian32(const uint8_t* bytes)
{
    return (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) | (uint32_t{bytes[2]} << 8) |
           bytes[3];
}

bool IsIdCharacter(uint8_t c)
{
    return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '?';
}

bool IsFrameId(const uint8_t* bytes, size_t length)
{
    for (size_t i = 0; i < length; ++i)
    {
        if (!IsIdCharacter(bytes[i]))
            return false;
    }
    return true;
}

// Every 0xFF is followed by a byte that the writer inserted: it goes,
// whatever it is.
std::vector<uint8_t> RemoveUnsynchronisation(const uint8_t* bytes, size_t count)
{
    std::vector<uint8_t> out;
    out.reserve(count);
    for (size_t i = 0; i < count; ++i)
    {
        out.push_back(bytes[i]);
        if (bytes[i] == 0xFF)
            ++i;
    }
    return out;
}

// Removes unsynchronisation from `available` input bytes until `wanted`
// bytes are out; answers the input consumed.
size_t RemoveUnsynchronisationUntil(const uint8_t* bytes, size_t available, size_t wanted,
                                    std::vector<uint8_t>& out)
{
    out.clear();
    size_t i = 0;
    while (i < available && out.size() < wanted)
    {
        out.push_back(bytes[i]);
        i += bytes[i] == 0xFF ? 2 : 1;
    }
    return std::min(i, available);
}

// `declaredSize` is what the frame says the data inflates to, 0 when unknown.
bool Inflate(std::vector<uint8_t>& data, size_t declaredSize)
{
    if (data.empty())
        return false;
    // Text of one repeated letter inflates far beyond the usual factor; the
    // size the frame declares then gives the room, up to what a tag can hold.
    // The room is a bound, not an allocation: the output grows by what the
    // stream really gives, since any frame may declare the largest size.
    const size_t limit =
        std::max(data.size() * kInflateFactor, std::min(declaredSize, kMaximumInflated));
    std::vector<uint8_t> out;
    z_stream stream{};
    if (inflateInit(&stream) != Z_OK)
        return false;
    stream.next_in = data.data();
    stream.avail_in = static_cast<uInt>(std::min<size_t>(data.size(), UINT_MAX));
    int result = Z_OK;
    while (result == Z_OK && out.size() < limit)
    {
        const size_t before = out.size();
        const size_t room = std::min(kInflateStep, limit - before);
        out.resize(before + room);
        stream.next_out = out.data() + before;
        stream.avail_out = static_cast<uInt>(room);
        result = inflate(&stream, Z_NO_FLUSH);
        out.resize(before + room - stream.avail_out);
    }
    inflateEnd(&stream);
    // A stream cut short still gives what it inflated to: the limit is the
    // writer's promise, not the reader's.
    if (result != Z_STREAM_END && result != Z_BUF_ERROR && result != Z_OK)
        return false;
    out.shrink_to_fit();
    data.swap(out);
    return true;
}

// Version 2.2 ids that have a 2.3 frame of their own.
struct ShortId
{
    char from[4];
    char to[5];
};
constexpr ShortId kShortIds[] = {
    {"TAL", "TALB"}, {"TP1", "TPE1"}, {"TP2", "TPE2"}, {"TRK", "TRCK"}, {"TYE", "TYER"},
    {"TT1", "TIT1"}, {"TT2", "TIT2"}, {"COM", "COMM"}, {"TEN", "TENC"}, {"TXX", "TXXX"},
    {"PIC", "APIC"}, {"TCO", "TCON"}, {"TPA", "TPOS"}, {"TSA", "TSOA"}, {"TSP", "TSOP"},
    {"TCP", "TCMP"}, {"TCM", "TCOM"}, {"UFI", "UFID"},
};

void LongIdOf(const uint8_t* shortId, char* out)
{
    for (const ShortId& entry : kShortIds)
    {
        if (std::memcmp(shortId, entry.from, 3) == 0)
        {
            std::memcpy(out, entry.to, 4);
            return;
        }
    }
    std::memcpy(out, shortId, 3);
    out[3] = '?';
}

int32_t RatingOfByte(uint8_t rating)
{
    if (rating == 0)
        return 0;
    if (rating <= 51)
        return 1;
    if (rating <= 102)
        return 2;
    if (rating <= 153)
        return 3;
    if (rating < 205)
        return 4;
    return 5;
}

// Days since 0000-03-01 of a date of the proleptic Gregorian calendar.
int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day)
{
    year -= month <= 2 ? 1 : 0;
    const int64_t era = (year >= 0 ? year : year - 399) / 400;
    const int64_t yearOfEra = year - era * 400;
    const int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
    const int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra;
}

void CivilFromDays(int64_t days, int64_t& year, int64_t& month, int64_t& day)
{
    const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
    const int64_t dayOfEra = days - era * 146097;
    const int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const int64_t monthIndex = (5 * dayOfYear + 2) / 153;
    day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
    month = monthIndex < 10 ? monthIndex + 3 : monthIndex - 9;
    year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);
}

const int64_t kDateEpoch = DaysFromCivil(1899, 12, 30);

// Reads `digits` digits at `offset`; false when they are not there.
bool ReadDigits(const std::u16string_view text, size_t& offset, size_t digits, int64_t& value)
{
    if (offset + digits > text.size())
        return false;
    value = 0;
    for (size_t i = 0; i < digits; ++i)
    {
        const char16_t c = text[offset + i];
        if (c < u'0' || c > u'9')
            return false;
        value = value * 10 + (c - u'0');
    }
    offset += digits;
    return true;
}

bool SameText(const QVString& a, const QVString& b)
{
    return a.CompareNoCase(b) == 0;
}
}  // namespace

bool ID3DateTextToNumber(const QVString& text, double& days)
{
    const std::u16string_view view = text.View();
    size_t offset = 0;
    int64_t year = 0;
    int64_t month = 1;
    int64_t day = 1;
    int64_t parts[3] = {0, 0, 0};  // hours, minutes, seconds
    if (!ReadDigits(view, offset, 4, year))
        return false;
    if (offset < view.size() && view[offset] == u'-')
    {
        ++offset;
        if (!ReadDigits(view, offset, 2, month))
            return false;
        if (offset < view.size() && view[offset] == u'-')
        {
            ++offset;
            if (!ReadDigits(view, offset, 2, day))
                return false;
            if (offset < view.size() && (view[offset] == u'T' || view[offset] == u' '))
            {
                for (int part = 0; part < 3; ++part)
                {
                    if (part > 0 && (offset >= view.size() || view[offset] != u':'))
                        break;
                    ++offset;  // past "T" or ":"
                    if (!ReadDigits(view, offset, 2, parts[part]))
                        return false;
                }
            }
        }
    }
    if (offset != view.size() || month < 1 || month > 12 || day < 1 || day > 31 || parts[0] > 23 ||
        parts[1] > 59 || parts[2] > 59)
        return false;
    const int64_t seconds = parts[0] * 3600 + parts[1] * 60 + parts[2];
    days = static_cast<double>(DaysFromCivil(year, month, day) - kDateEpoch) +
           static_cast<double>(seconds) / kSecondsPerDay;
    return true;
}

QVString ID3DateNumberToText(double days)
{
    const double whole = std::floor(days);
    int64_t seconds = std::llround((days - whole) * kSecondsPerDay);
    int64_t dayNumber = static_cast<int64_t>(whole);
    if (seconds >= kSecondsPerDay)
    {
        ++dayNumber;
        seconds -= kSecondsPerDay;
    }
    int64_t year = 0;
    int64_t month = 0;
    int64_t day = 0;
    CivilFromDays(dayNumber + kDateEpoch, year, month, day);
    QVString text = QVString::Format(u"%04d-%02d-%02d", year, month, day);
    if (seconds != 0)
        text +=
            QVString::Format(u"T%02d:%02d:%02d", seconds / 3600, seconds / 60 % 60, seconds % 60);
    return text;
}

bool CID3v2Field::IsFrame(const char* id) const
{
    return std::memcmp(FrameID, id, 4) == 0;
}

bool CID3v2Frame::HasID(const char* id) const
{
    return std::memcmp(ID, id, 4) == 0;
}

int32_t CID3v2Frame::KindOfId(const char* id)
{
    auto is = [id](const char* other) { return std::memcmp(id, other, 4) == 0; };
    if (is("TXXX"))
        return ID3KIND_USER_TEXT;
    if (is("APIC"))
        return ID3KIND_PICTURE;
    if (is("POPM"))
        return ID3KIND_RATING;
    if (id[0] == 'T')
        return ID3KIND_TEXT;
    if (is("PCST"))
        return ID3KIND_PODCAST;
    if (id[0] == 'W' && !is("WXXX"))
        return ID3KIND_URL;
    if (is("COMM") || is("QMGN") || is("USLT"))
        return ID3KIND_COMMENT;
    if (is("PRIV"))
        return ID3KIND_PRIVATE;
    return ID3KIND_NONE;
}

CID3v2Tag::CID3v2Tag()
{
    BuildFieldTable();
    header[3] = 3;
}

void CID3v2Tag::AddRow(const char* id, const char16_t* name, const char16_t* description,
                       uint32_t flags, int32_t pictureType)
{
    CID3v2Field row;
    std::memcpy(row.FrameID, id, 4);
    row.Name = name;
    if (description != nullptr)
        row.Description = description;
    row.Flags = flags;
    row.PictureType = pictureType;
    fieldTable.push_back(row);
    IndexRow(static_cast<int32_t>(fieldTable.size() - 1));
}

void CID3v2Tag::IndexRow(int32_t row)
{
    fieldIndex[std::u16string(fieldTable[static_cast<size_t>(row)].Name.View())].push_back(row);
}

const std::vector<int32_t>* CID3v2Tag::RowsOf(const QVString& name) const
{
    const auto found = fieldIndex.find(std::u16string(name.View()));
    return found == fieldIndex.end() ? nullptr : &found->second;
}

std::vector<QVString> CID3v2Tag::GetFieldNames() const
{
    std::vector<QVString> names;
    std::unordered_set<std::u16string> seen;
    for (const CID3v2Field& row : fieldTable)
    {
        if (seen.insert(std::u16string(row.Name.View())).second)
            names.push_back(row.Name);
    }
    return names;
}

void CID3v2Tag::Reset()
{
    present = false;
    dirty = false;
    std::memset(header, 0, sizeof header);
    header[3] = 3;
    size = 0;
    position = 0;
    frames.clear();
    rawData.clear();
}

bool CID3v2Tag::Parse(const uint8_t* data, size_t count, int64_t filePosition)
{
    Reset();
    rawData.assign(data, data + count);
    position = filePosition;
    if (count < kTagHeaderSize)
        return false;
    std::memcpy(header, data, kTagHeaderSize);
    const uint8_t flags = header[5];
    if (std::memcmp(header, "ID3", 3) != 0 || header[3] < 2 || header[3] > 4 ||
        (flags & kTagExperimental) != 0)
    {
        Reset();
        return false;
    }
    const uint32_t tagSize = Synchsafe(header + 6);
    const size_t headerSize =
        (flags & kTagFooter) != 0 ? kTagHeaderSize + kFooterSize : kTagHeaderSize;
    if (count < tagSize + headerSize - 1)
    {
        Reset();
        return false;
    }
    size_t start = kTagHeaderSize;
    if ((flags & kTagExtendedHeader) != 0 && count >= kTagHeaderSize + 4)
    {
        // A 2.4 extended header counts its own size field; a 2.3 one does not.
        const uint32_t extended = Synchsafe(data + kTagHeaderSize);
        start = kTagHeaderSize + extended + (header[3] == 3 ? 4 : 0);
    }
    size_t end = count;
    if ((flags & kTagFooter) != 0)
        end -= kFooterSize;
    ReadFrames(start, end, (flags & kTagUnsynchronised) != 0);
    size = static_cast<int32_t>(tagSize + headerSize);
    present = true;
    return true;
}

bool CID3v2Tag::ReadFrames(size_t start, size_t end, bool unsynchronised)
{
    const bool shortFrames = header[3] == 2;
    const size_t frameHeader = shortFrames ? 6 : 10;
    const size_t idLength = shortFrames ? 3 : 4;
    size_t offset = start;
    while (offset < end && end - offset >= frameHeader)
    {
        const uint8_t* p = rawData.data() + offset;
        if (IsAllZero(p, idLength) || !IsFrameId(p, idLength))
            break;
        auto frame = std::make_unique<CID3v2Frame>();
        int64_t frameSize = 0;
        if (shortFrames)
        {
            LongIdOf(p, frame->ID);
            frameSize = (int64_t{p[3]} << 16) | (int64_t{p[4]} << 8) | p[5];
            std::memcpy(frame->Size + 1, p + 3, 3);
        }
        else
        {
            std::memcpy(frame->ID, p, 4);
            std::memcpy(frame->Size, p + 4, 4);
            std::memcpy(frame->Flags, p + 8, 2);
            // Some 2.4 writers put plain big-endian sizes; a top bit shows it.
            const bool plain = header[3] < 4 || (p[4] | p[5] | p[6] | p[7]) & 0x80;
            frameSize = plain ? static_cast<int32_t>(BigEndian32(p + 4)) : Synchsafe(p + 4);
        }
        const size_t body = offset + frameHeader;
        if (frameSize < 0 || static_cast<uint64_t>(frameSize) > end - body)
            break;
        const size_t length = static_cast<size_t>(frameSize);
        if (!unsynchronised)
        {
            frame->Data.assign(p + frameHeader, p + frameHeader + length);
            offset = body + length;
        }
        else
        {
            // Writers disagree on whether the size counts the bytes before or
            // after unsynchronisation; the bytes at the end tell which.
            const size_t next = body + length;
            const bool nextIsFrame = next + 10 > end ||
                                     IsAllZero(rawData.data() + next, idLength) ||
                                     IsFrameId(rawData.data() + next, idLength);
            if (!nextIsFrame)
            {
                offset = body + RemoveUnsynchronisationUntil(rawData.data() + body, end - body,
                                                             length, frame->Data);
            }
            else
            {
                frame->Data = RemoveUnsynchronisation(p + frameHeader, length);
                offset = next;
            }
        }
        DecodeFrame(*frame, unsynchronised);
        frames.push_back(std::move(frame));
    }
    return true;
}

bool CID3v2Tag::UnpackFrame24(CID3v2Frame& frame, bool unsynchronisedAlready)
{
    std::vector<uint8_t>& data = frame.Data;
    uint8_t& format = frame.Flags[1];
    // Unsynchronisation was applied last, over everything behind the frame
    // header, so it goes first; the whole tag's may already have covered it.
    // The frame is rendered without it either way.
    if ((format & kFrameUnsynchronised) != 0 && !unsynchronisedAlready)
        data = RemoveUnsynchronisation(data.data(), data.size());
    format &= static_cast<uint8_t>(~kFrameUnsynchronised);
    if ((format & kFrameEncrypted) != 0)
        return false;
    // In front of the data: the group byte, then the data length indicator.
    size_t prefix = (format & kFrameGrouped) != 0 ? 1 : 0;
    size_t declared = 0;
    if ((format & kFrameLengthIndicator) != 0)
    {
        if (data.size() < prefix + 4)
            return false;
        declared = Synchsafe(data.data() + prefix);
        prefix += 4;
    }
    if (data.size() < prefix)
        return false;
    std::vector<uint8_t> payload(data.begin() + static_cast<ptrdiff_t>(prefix), data.end());
    if ((format & kFrameCompressed) != 0 && !Inflate(payload, declared))
        return false;
    data.swap(payload);
    format &= static_cast<uint8_t>(~(kFrameGrouped | kFrameLengthIndicator | kFrameCompressed));
    return true;
}

bool CID3v2Tag::UnpackFrame23(CID3v2Frame& frame)
{
    std::vector<uint8_t>& data = frame.Data;
    uint8_t& format = frame.Flags[1];
    if ((format & kFrame23Encrypted) != 0)
        return false;
    // The header grows by what the flags add, in their order: the inflated
    // size, then the group byte.
    const bool compressed = (format & kFrame23Compressed) != 0;
    const size_t prefix = (compressed ? 4 : 0) + ((format & kFrame23Grouped) != 0 ? 1 : 0);
    if (data.size() < prefix)
        return false;
    const size_t declared = compressed ? BigEndian32(data.data()) : 0;
    std::vector<uint8_t> payload(data.begin() + static_cast<ptrdiff_t>(prefix), data.end());
    if (compressed && !Inflate(payload, declared))
        return false;
    data.swap(payload);
    format &= static_cast<uint8_t>(~(kFrame23Compressed | kFrame23Grouped));
    return true;
}

void CID3v2Tag::DecodeFrame(CID3v2Frame& frame, bool unsynchronisedAlready)
{
    const int32_t major = header[3];
    bool readable = true;
    if (major == 4)
        readable = UnpackFrame24(frame, unsynchronisedAlready);
    else if (major == 3)
        readable = UnpackFrame23(frame);
    // A frame that cannot be read keeps its data and flags as they came, so
    // that it is rendered again as it was.
    std::vector<uint8_t>& data = frame.Data;
    frame.Kind = readable ? CID3v2Frame::KindOfId(frame.ID) : ID3KIND_NONE;
    if (frame.Kind == ID3KIND_NONE)
        return;

    QVPropertyMap& properties = frame.Properties;
    size_t offset = 0;
    auto encodingByte = [&]() -> uint8_t
    {
        const uint8_t encoding = offset < data.size() ? data[offset] : kLatin;
        ++offset;
        properties.SetInt(u"Text Encoding"_qv, encoding);
        return encoding <= kUTF8 ? encoding : kLatin;
    };
    switch (frame.Kind)
    {
    case ID3KIND_TEXT:
    {
        const uint8_t encoding = encodingByte();
        properties.SetString(u"Value"_qv, ReadStrings(data, offset, encoding));
        break;
    }
    case ID3KIND_USER_TEXT:
    {
        const uint8_t encoding = encodingByte();
        properties.SetString(u"Description"_qv, ReadString(data, offset, encoding));
        properties.SetString(u"Value"_qv, ReadStrings(data, offset, encoding));
        break;
    }
    case ID3KIND_COMMENT:
    {
        const uint8_t encoding = encodingByte();
        if (offset + 3 <= data.size())
            properties.SetString(
                u"Language ID"_qv,
                BytesAsText(data.data() + offset, 3).Trim(std::u16string_view(u"\0", 1)));
        offset += 3;
        properties.SetString(u"Description"_qv, ReadString(data, offset, encoding));
        properties.SetString(u"Value"_qv, ReadStrings(data, offset, encoding));
        break;
    }
    case ID3KIND_PICTURE:
    {
        const uint8_t encoding = encodingByte();
        QVString mime;
        if (major == 2)
        {
            if (offset + 3 <= data.size())
                mime = BytesAsText(data.data() + offset, 3);
            offset += 3;
        }
        else
            mime = ReadString(data, offset, kLatin);
        properties.SetString(u"Mime Type"_qv, mime);
        properties.SetInt(u"Picture Type"_qv, offset < data.size() ? data[offset] : 0);
        ++offset;
        const QVString description = ReadString(data, offset, encoding);
        properties.SetString(u"Description"_qv, description);
        const size_t start = std::min(offset, data.size());
        properties.SetString(u"Value"_qv, BytesAsText(data.data() + start, data.size() - start));
        if (major == 2)
        {
            // Rewritten as 2.3, the three letters become a media type.
            QVString type = mime.ToLower();
            if (type == u"jpg")
                type = u"jpeg";
            const uint8_t written = NeedsWideText(description) ? kUTF16 : kLatin;
            std::vector<uint8_t> rebuilt{written};
            AppendString(rebuilt, u"image/"_qv + type, kLatin);
            rebuilt.push_back(static_cast<uint8_t>(properties.GetInt(u"Picture Type"_qv, 0)));
            AppendString(rebuilt, description, written);
            rebuilt.insert(rebuilt.end(), data.begin() + static_cast<ptrdiff_t>(start), data.end());
            data.swap(rebuilt);
        }
        break;
    }
    case ID3KIND_RATING:
    {
        ReadString(data, offset, kLatin);
        const uint8_t rating = offset < data.size() ? data[offset] : 0;
        properties.SetInt(u"Value"_qv, RatingOfByte(rating));
        break;
    }
    case ID3KIND_PODCAST:
    {
        uint32_t number = 0;
        for (size_t i = 0; i < 4 && i < data.size(); ++i)
            number |= uint32_t{data[i]} << (8 * i);
        properties.SetString(u"Value"_qv, QVString::FromUInt(number));
        break;
    }
    case ID3KIND_URL: properties.SetString(u"Value"_qv, ReadString(data, offset, kLatin)); break;
    case ID3KIND_PRIVATE:
    {
        properties.SetString(u"Description"_qv, ReadString(data, offset, kLatin));
        const size_t start = std::min(offset, data.size());
        properties.SetString(u"Value"_qv, QVDecodeText(data.data() + start, data.size() - start));
        break;
    }
    default: break;
    }
}

bool CID3v2Tag::RowMatches(const CID3v2Field& row, const CID3v2Frame& frame) const
{
    if (std::memcmp(row.FrameID, frame.ID, 4) != 0)
        return false;
    const bool described = frame.Kind == ID3KIND_USER_TEXT || frame.Kind == ID3KIND_COMMENT ||
                           frame.Kind == ID3KIND_PRIVATE;
    if (described && (row.Flags & ID3FIELD_ANY_DESCRIPTION) == 0 &&
        !SameText(row.Description, frame.Properties.GetString(u"Description"_qv)))
        return false;
    if (row.PictureType != -1 && frame.Properties.GetInt(u"Picture Type"_qv, -1) != row.PictureType)
        return false;
    // A user text frame is a date only where both its names say so.
    if ((row.Flags & ID3FIELD_DATE) != 0 && row.IsFrame("TXXX") &&
        !(row.Description == u"Date" && row.Name == u"Date"))
        return false;
    return true;
}

CID3v2Frame* CID3v2Tag::FindFrame(const CID3v2Field& row, int32_t skip)
{
    for (const auto& frame : frames)
    {
        if (RowMatches(row, *frame) && skip-- <= 0)
            return frame.get();
    }
    return nullptr;
}

void CID3v2Tag::ApplyReadFlags(const CID3v2Field& row, const CID3v2Frame& frame,
                               QVPropertyMap& result)
{
    QVString value = result.GetString(u"Value"_qv);
    if ((row.Flags & ID3FIELD_PAIR) != 0)
    {
        result.SetString(u"Value Original"_qv, value);
        const int32_t slash = value.Find(u'/');
        if (slash >= 0)
            value = value.Left(slash);
    }
    if ((row.Flags & ID3FIELD_GENRE) != 0 && value.StartsWith(u"("))
    {
        const int32_t close = value.Find(u')');
        double number = -1;
        if (close > 1 && ParseNumber(value.Mid(1, close - 1), number) && number >= 0 &&
            number < kGenreCount && number == std::floor(number))
            value = GenreName(static_cast<int32_t>(number));
    }
    if ((row.Flags & ID3FIELD_PEAK) != 0)
    {
        RemoveNoCase(value, u"replaygain_track_peak");
        value.Trim();
    }
    if ((row.Flags & ID3FIELD_GAIN) != 0)
    {
        RemoveNoCase(value, u"replaygain_track_gain");
        RemoveNoCase(value, u"db");
        double number = 0;
        if (ParseNumber(value, number))
            value = QVString::Format(u"%f", number);
    }
    if ((row.Flags & ID3FIELD_DATE) != 0)
    {
        double days = 0;
        if (ID3DateTextToNumber(value, days))
            value = QVPropertyMap::FormatDouble(days);
    }
    (void)frame;
    result.SetString(u"Value"_qv, value);
}

bool CID3v2Tag::GetField(const QVString& name, QVPropertyMap& result, int32_t index)
{
    const std::vector<int32_t>* rows = RowsOf(name);
    // A name outside the table is found where SetField keeps it: in a user
    // text frame of its own name, which a tag read from a file has no row for.
    std::vector<CID3v2Field> ownRow;
    if (rows == nullptr)
    {
        ownRow.resize(1);
        std::memcpy(ownRow[0].FrameID, "TXXX", 4);
        ownRow[0].Name = name;
        ownRow[0].Description = name;
    }
    const size_t rowCount = rows != nullptr ? rows->size() : 1;
    std::unordered_set<const CID3v2Frame*> seen;
    for (size_t r = 0; r < rowCount; ++r)
    {
        const CID3v2Field& row =
            rows != nullptr ? fieldTable[static_cast<size_t>((*rows)[r])] : ownRow[0];
        for (const auto& frame : frames)
        {
            if (!RowMatches(row, *frame) || !seen.insert(frame.get()).second)
                continue;
            if (index-- > 0)
                continue;
            result = frame->Properties;
            ApplyReadFlags(row, *frame, result);
            return true;
        }
    }
    return false;
}

QVString CID3v2Tag::GetValue(const QVString& name)
{
    QVPropertyMap properties;
    if (!GetField(name, properties))
        return QVString();
    return properties.GetString(u"Value"_qv);
}
