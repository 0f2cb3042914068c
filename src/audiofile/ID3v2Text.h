// The text of ID3v2 frames: strings in the four encodings, read and written,
// and the small conversions that reading and writing fields share.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/QVString.h"

namespace id3text
{

inline bool IsAllZero(const uint8_t* bytes, size_t length)
{
    return std::all_of(bytes, bytes + length, [](uint8_t b) { return b == 0; });
}

// Encodings of text in frames.
constexpr uint8_t kLatin = 0;
constexpr uint8_t kUTF16 = 1;
constexpr uint8_t kUTF16BigEndian = 2;
constexpr uint8_t kUTF8 = 3;

inline size_t UnitOf(uint8_t encoding)
{
    return encoding == kUTF16 || encoding == kUTF16BigEndian ? 2 : 1;
}

// One string from `offset`: up to the encoding's terminator or the end.
inline QVString ReadString(const std::vector<uint8_t>& data, size_t& offset, uint8_t encoding)
{
    const size_t unit = UnitOf(encoding);
    size_t end = offset;
    while (end + unit <= data.size() && !IsAllZero(data.data() + end, unit))
        end += unit;
    const size_t stop = end + unit <= data.size() ? end : data.size();
    const uint8_t* bytes = data.data() + std::min(offset, data.size());
    const size_t count = stop > offset ? stop - offset : 0;
    offset = std::min(data.size(), end + unit);
    if (count == 0)
        return QVString();
    if (encoding == kUTF8)
        return QVString::FromUTF8(std::string_view(reinterpret_cast<const char*>(bytes), count));
    if (unit == 1)
        return QVString::FromCP1252(std::string_view(reinterpret_cast<const char*>(bytes), count));
    bool bigEndian = encoding == kUTF16BigEndian;
    size_t first = 0;
    if (encoding == kUTF16 && count >= 2)
    {
        if (bytes[0] == 0xFE && bytes[1] == 0xFF)
        {
            bigEndian = true;
            first = 2;
        }
        else if (bytes[0] == 0xFF && bytes[1] == 0xFE)
            first = 2;
    }
    std::u16string text;
    for (size_t i = first; i + 1 < count; i += 2)
        text += static_cast<char16_t>(bigEndian ? (bytes[i] << 8) | bytes[i + 1]
                                                : (bytes[i + 1] << 8) | bytes[i]);
    return QVString(std::u16string_view(text));
}

// The remaining strings of a text frame, joined by ";" so that a list
// written as strings of their own reads back as it was set.
inline QVString ReadStrings(const std::vector<uint8_t>& data, size_t offset, uint8_t encoding)
{
    QVString joined;
    while (offset < data.size())
    {
        const QVString part = ReadString(data, offset, encoding);
        if (part.IsEmpty())
            continue;
        if (!joined.IsEmpty())
            joined += u";";
        joined += part;
    }
    return joined;
}

inline bool NeedsWideText(const QVString& text)
{
    for (int32_t i = 0; i < text.GetLength(); ++i)
    {
        if (text[i] >= 0x7F)
            return true;
    }
    return false;
}

inline void AppendString(std::vector<uint8_t>& out, const QVString& text, uint8_t encoding)
{
    if (encoding == kLatin)
    {
        for (int32_t i = 0; i < text.GetLength(); ++i)
            out.push_back(static_cast<uint8_t>(text[i]));
        out.push_back(0);
        return;
    }
    out.push_back(0xFF);
    out.push_back(0xFE);
    for (int32_t i = 0; i < text.GetLength(); ++i)
    {
        out.push_back(static_cast<uint8_t>(text[i] & 0xFF));
        out.push_back(static_cast<uint8_t>(text[i] >> 8));
    }
    out.push_back(0);
    out.push_back(0);
}

// Bytes stored one to a character, as a picture's "Value" holds them.
inline QVString BytesAsText(const uint8_t* bytes, size_t count)
{
    std::u16string text(bytes, bytes + count);
    return QVString(std::u16string_view(text));
}

inline std::vector<uint8_t> TextAsBytes(const QVString& text)
{
    std::vector<uint8_t> bytes(static_cast<size_t>(text.GetLength()));
    for (int32_t i = 0; i < text.GetLength(); ++i)
        bytes[static_cast<size_t>(i)] = static_cast<uint8_t>(text[i]);
    return bytes;
}

// A number with "." or "," as decimal mark and an optional exponent; the
// whole text must be the number.
inline bool ParseNumber(QVString text, double& value)
{
    text.Trim();
    if (text.IsEmpty())
        return false;
    std::string ascii = text.ToUTF8();
    std::replace(ascii.begin(), ascii.end(), ',', '.');
    char* end = nullptr;
    value = std::strtod(ascii.c_str(), &end);
    return end == ascii.c_str() + ascii.size() && std::isfinite(value);
}

inline void RemoveNoCase(QVString& text, std::u16string_view what)
{
    for (int32_t at = text.FindNoCase(what); at >= 0; at = text.FindNoCase(what))
        text.Delete(at, static_cast<int32_t>(what.size()));
}

}  // namespace id3text
