// QVString at the borders: UTF-8 for the operating system, Windows-1252 for
// 8-bit text, and decoding of byte buffers by their byte-order mark.
#include "core/QVString.h"

#include <climits>
#include <new>

namespace
{

constexpr char16_t REPLACEMENT = 0xFFFD;

// Windows-1252 codes 0x80 to 0x9F. The five codes that the code page leaves
// open map to the same C1 control, as Windows itself converts them.
constexpr char16_t CP1252_HIGH[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

char16_t FromCP1252Byte(uint8_t byte)
{
    return byte >= 0x80 && byte < 0xA0 ? CP1252_HIGH[byte - 0x80] : static_cast<char16_t>(byte);
}

char ToCP1252Char(char16_t c)
{
    if (c < 0x80 || (c >= 0xA0 && c <= 0xFF))
        return static_cast<char>(c);
    for (int i = 0; i < 32; ++i)
        if (CP1252_HIGH[i] == c)
            return static_cast<char>(0x80 + i);
    return '?';
}

// Builds a string of at most `capacity` characters through the locked buffer.
class QVStringWriter
{
public:
    QVStringWriter(QVString& target, size_t capacity)
        : m_target(target), m_chars(target.GetBuffer(Checked(capacity)))
    {
    }
    ~QVStringWriter() { m_target.ReleaseBuffer(m_length); }
    void Put(char16_t c) { m_chars[m_length++] = c; }
    void PutCodePoint(uint32_t code)
    {
        if (code >= 0x10000)
        {
            code -= 0x10000;
            Put(static_cast<char16_t>(0xD800 + (code >> 10)));
            Put(static_cast<char16_t>(0xDC00 + (code & 0x3FF)));
        }
        else
        {
            Put(static_cast<char16_t>(code));
        }
    }

private:
    static int32_t Checked(size_t capacity)
    {
        if (capacity > static_cast<size_t>(INT32_MAX / 2))
            throw std::bad_alloc();
        return static_cast<int32_t>(capacity);
    }

    QVString& m_target;
    char16_t* m_chars;
    int32_t m_length = 0;
};

// Length of a UTF-8 sequence from its first byte, 0 for a byte that can't start one.
int SequenceLength(uint8_t lead)
{
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    if (lead >= 0xF0 && lead <= 0xF4)
        return 4;
    return 0;
}

// Decodes one sequence at `text[i]`; an invalid one yields U+FFFD and the
// number of bytes to skip (at least one).
uint32_t DecodeSequence(std::string_view text, size_t i, size_t& used)
{
    const auto lead = static_cast<uint8_t>(text[i]);
    const int length = SequenceLength(lead);
    used = 1;
    if (length == 1)
        return lead;
    if (length == 0 || i + static_cast<size_t>(length) > text.size())
        return REPLACEMENT;
    uint32_t code = lead & (0x7F >> length);
    for (int k = 1; k < length; ++k)
    {
        const auto next = static_cast<uint8_t>(text[i + static_cast<size_t>(k)]);
        if ((next & 0xC0) != 0x80)
            return REPLACEMENT;
        code = (code << 6) | (next & 0x3F);
    }
    static constexpr uint32_t MINIMUM[5] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < MINIMUM[length] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
        return REPLACEMENT;
    used = static_cast<size_t>(length);
    return code;
}

void AppendUTF8(std::string& out, uint32_t code)
{
    if (code < 0x80)
    {
        out += static_cast<char>(code);
    }
    else if (code < 0x800)
    {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
    else if (code < 0x10000)
    {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
    else
    {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

QVString DecodeUTF16(const uint8_t* bytes, size_t size, bool bigEndian)
{
    QVString result;
    const size_t count = size / 2;  // a dangling odd byte is no character
    if (count == 0)
        return result;
    QVStringWriter writer(result, count);
    for (size_t i = 0; i < count; ++i)
    {
        const uint8_t first = bytes[2 * i];
        const uint8_t second = bytes[2 * i + 1];
        writer.Put(bigEndian ? static_cast<char16_t>(first << 8 | second)
                             : static_cast<char16_t>(second << 8 | first));
    }
    return result;
}

}  // namespace

QVString QVString::FromUTF8(std::string_view text)
{
    QVString result;
    if (text.empty())
        return result;
    // Never more UTF-16 units than bytes.
    QVStringWriter writer(result, text.size());
    for (size_t i = 0; i < text.size();)
    {
        size_t used = 1;
        writer.PutCodePoint(DecodeSequence(text, i, used));
        i += used;
    }
    return result;
}

std::string QVString::ToUTF8() const
{
    std::string out;
    const int32_t length = GetLength();
    out.reserve(static_cast<size_t>(length));
    for (int32_t i = 0; i < length; ++i)
    {
        uint32_t code = m_chars[i];
        if (code >= 0xD800 && code <= 0xDBFF && i + 1 < length && m_chars[i + 1] >= 0xDC00 &&
            m_chars[i + 1] <= 0xDFFF)
        {
            code = 0x10000 + ((code - 0xD800) << 10) + (m_chars[i + 1] - 0xDC00u);
            ++i;
        }
        else if (code >= 0xD800 && code <= 0xDFFF)
        {
            code = REPLACEMENT;
        }
        AppendUTF8(out, code);
    }
    return out;
}

QVString QVString::FromCP1252(std::string_view text)
{
    QVString result;
    if (text.empty())
        return result;
    QVStringWriter writer(result, text.size());
    for (char c : text)
        writer.Put(FromCP1252Byte(static_cast<uint8_t>(c)));
    return result;
}

std::string QVString::ToCP1252() const
{
    std::string out;
    const int32_t length = GetLength();
    out.reserve(static_cast<size_t>(length));
    for (int32_t i = 0; i < length; ++i)
    {
        const char16_t c = m_chars[i];
        // A surrogate pair is one character that the code page lacks.
        if (c >= 0xD800 && c <= 0xDBFF && i + 1 < length && m_chars[i + 1] >= 0xDC00 &&
            m_chars[i + 1] <= 0xDFFF)
            ++i;
        out += ToCP1252Char(c);
    }
    return out;
}

QVString QVDecodeText(const uint8_t* bytes, size_t size)
{
    if (!bytes || size == 0)
        return QVString();
    if (size >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE)
        return DecodeUTF16(bytes + 2, size - 2, false);
    if (size >= 2 && bytes[0] == 0xFE && bytes[1] == 0xFF)
        return DecodeUTF16(bytes + 2, size - 2, true);
    const std::string_view text(reinterpret_cast<const char*>(bytes), size);
    if (size >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF)
        return QVString::FromUTF8(text.substr(3));
    return QVString::FromCP1252(text);
}
