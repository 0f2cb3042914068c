// QVString: searching, pieces and in-place changes.
#include <cstring>

#include "core/QVString.h"

namespace
{

QVStringGlobals& Manager()
{
    return *QVGetStringGlobals();
}

bool EqualNoCase(const char16_t* a, const char16_t* b, size_t count)
{
    const QVStringGlobals& globals = Manager();
    for (size_t i = 0; i < count; ++i)
        if (globals.ToLower(a[i]) != globals.ToLower(b[i]))
            return false;
    return true;
}

bool IsIn(char16_t c, std::u16string_view characters)
{
    return characters.find(c) != std::u16string_view::npos;
}

}  // namespace

bool QVString::StartsWith(std::u16string_view prefix, bool noCase) const
{
    const std::u16string_view text = View();
    if (prefix.size() > text.size())
        return false;
    return noCase ? EqualNoCase(text.data(), prefix.data(), prefix.size())
                  : text.substr(0, prefix.size()) == prefix;
}

bool QVString::EndsWith(std::u16string_view suffix, bool noCase) const
{
    const std::u16string_view text = View();
    if (suffix.size() > text.size())
        return false;
    const char16_t* tail = text.data() + text.size() - suffix.size();
    return noCase ? EqualNoCase(tail, suffix.data(), suffix.size())
                  : std::u16string_view(tail, suffix.size()) == suffix;
}

int32_t QVString::Find(char16_t c, int32_t start) const
{
    if (start < 0)
        start = 0;
    const size_t found = View().find(c, static_cast<size_t>(start));
    return found == std::u16string_view::npos ? -1 : static_cast<int32_t>(found);
}

int32_t QVString::Find(std::u16string_view text, int32_t start) const
{
    if (start < 0)
        start = 0;
    if (start > GetLength())
        return -1;
    const size_t found = View().find(text, static_cast<size_t>(start));
    return found == std::u16string_view::npos ? -1 : static_cast<int32_t>(found);
}

int32_t QVString::FindNoCase(std::u16string_view text, int32_t start) const
{
    const int32_t length = GetLength();
    const int32_t needle = static_cast<int32_t>(text.size());
    for (int32_t i = start < 0 ? 0 : start; i + needle <= length; ++i)
        if (EqualNoCase(m_chars + i, text.data(), text.size()))
            return i;
    return -1;
}

int32_t QVString::FindOneOf(std::u16string_view characters, int32_t start) const
{
    const int32_t length = GetLength();
    for (int32_t i = start < 0 ? 0 : start; i < length; ++i)
        if (IsIn(m_chars[i], characters))
            return i;
    return -1;
}

int32_t QVString::ReverseFind(char16_t c) const
{
    const size_t found = View().rfind(c);
    return found == std::u16string_view::npos ? -1 : static_cast<int32_t>(found);
}

int32_t QVString::ReverseFind(std::u16string_view text) const
{
    const size_t found = View().rfind(text);
    return found == std::u16string_view::npos ? -1 : static_cast<int32_t>(found);
}

QVString QVString::Mid(int32_t first, int32_t count) const
{
    const int32_t length = GetLength();
    if (first < 0)
        first = 0;
    if (first >= length)
        return QVString();
    if (count < 0 || count > length - first)
        count = length - first;
    if (first == 0 && count == length)
        return *this;
    return QVString(m_chars + first, count);
}

QVString QVString::Left(int32_t count) const
{
    return Mid(0, count < 0 ? 0 : count);
}

QVString QVString::Right(int32_t count) const
{
    const int32_t length = GetLength();
    if (count <= 0)
        return QVString();
    return count >= length ? *this : Mid(length - count);
}

QVString& QVString::TrimLeft()
{
    int32_t skip = 0;
    while (Manager().IsSpace(m_chars[skip]))
        ++skip;
    Delete(0, skip);
    return *this;
}

QVString& QVString::TrimRight()
{
    int32_t length = GetLength();
    while (length > 0 && Manager().IsSpace(m_chars[length - 1]))
        --length;
    Delete(length, GetLength() - length);
    return *this;
}

QVString& QVString::Trim()
{
    return TrimRight().TrimLeft();
}

QVString& QVString::TrimLeft(std::u16string_view characters)
{
    int32_t skip = 0;
    while (m_chars[skip] && IsIn(m_chars[skip], characters))
        ++skip;
    Delete(0, skip);
    return *this;
}

QVString& QVString::TrimRight(std::u16string_view characters)
{
    int32_t length = GetLength();
    while (length > 0 && IsIn(m_chars[length - 1], characters))
        --length;
    Delete(length, GetLength() - length);
    return *this;
}

QVString& QVString::Trim(std::u16string_view characters)
{
    return TrimRight(characters).TrimLeft(characters);
}

QVString& QVString::MakeUpper()
{
    const int32_t length = GetLength();
    int32_t i = 0;
    while (i < length && Manager().ToUpper(m_chars[i]) == m_chars[i])
        ++i;
    if (i == length)
        return *this;  // nothing to change: keep sharing
    PrepareWrite(length);
    for (; i < length; ++i)
        m_chars[i] = Manager().ToUpper(m_chars[i]);
    return *this;
}

QVString& QVString::MakeLower()
{
    const int32_t length = GetLength();
    int32_t i = 0;
    while (i < length && Manager().ToLower(m_chars[i]) == m_chars[i])
        ++i;
    if (i == length)
        return *this;
    PrepareWrite(length);
    for (; i < length; ++i)
        m_chars[i] = Manager().ToLower(m_chars[i]);
    return *this;
}

QVString& QVString::Append(const char16_t* text, int32_t count)
{
    if (!text || count <= 0)
        return *this;
    const int32_t length = GetLength();
    // `text` may point into this very buffer, which PrepareWrite can move.
    const bool inside = text >= m_chars && text < m_chars + length;
    const int32_t offset = inside ? static_cast<int32_t>(text - m_chars) : 0;
    PrepareWrite(length + count);
    if (inside)
        text = m_chars + offset;
    std::memmove(m_chars + length, text, static_cast<size_t>(count) * sizeof(char16_t));
    SetLength(length + count);
    return *this;
}

QVString& QVString::operator+=(const QVString& text)
{
    if (IsEmpty())
        return *this = text;
    return Append(text.m_chars, text.GetLength());
}

QVString& QVString::operator+=(const char16_t* text)
{
    int32_t count = 0;
    if (text)
        while (text[count])
            ++count;
    return Append(text, count);
}

QVString& QVString::operator+=(char16_t c)
{
    return Append(&c, 1);
}

int32_t QVString::Insert(int32_t index, std::u16string_view text)
{
    const int32_t length = GetLength();
    if (index < 0)
        index = 0;
    if (index > length)
        index = length;
    if (text.empty())
        return length;
    const QVString copy{text};  // the text may live in this buffer
    const int32_t count = copy.GetLength();
    PrepareWrite(length + count);
    std::memmove(m_chars + index + count, m_chars + index,
                 static_cast<size_t>(length - index) * sizeof(char16_t));
    std::memcpy(m_chars + index, copy.m_chars, static_cast<size_t>(count) * sizeof(char16_t));
    SetLength(length + count);
    return length + count;
}

int32_t QVString::Delete(int32_t index, int32_t count)
{
    const int32_t length = GetLength();
    if (index < 0)
        index = 0;
    if (count > length - index)
        count = length - index;
    if (count <= 0)
        return length;
    PrepareWrite(length);
    std::memmove(m_chars + index, m_chars + index + count,
                 static_cast<size_t>(length - index - count) * sizeof(char16_t));
    SetLength(length - count);
    return length - count;
}

int32_t QVString::Replace(char16_t from, char16_t to)
{
    int32_t index = Find(from);
    if (index < 0 || from == to)
        return 0;
    PrepareWrite(GetLength());
    int32_t replaced = 0;
    for (int32_t length = GetLength(); index < length; ++index)
        if (m_chars[index] == from)
        {
            m_chars[index] = to;
            ++replaced;
        }
    return replaced;
}

int32_t QVString::Replace(std::u16string_view from, std::u16string_view to)
{
    if (from.empty())
        return 0;
    int32_t replaced = 0;
    QVString result;
    int32_t done = 0;
    for (int32_t found = Find(from); found >= 0;
         found = Find(from, found + static_cast<int32_t>(from.size())))
    {
        result.Append(m_chars + done, found - done);
        result.Append(to);
        done = found + static_cast<int32_t>(from.size());
        ++replaced;
    }
    if (replaced > 0)
    {
        result.Append(m_chars + done, GetLength() - done);
        *this = std::move(result);
    }
    return replaced;
}

int32_t QVString::Remove(char16_t c)
{
    if (Find(c) < 0)
        return 0;
    PrepareWrite(GetLength());
    const int32_t length = GetLength();
    int32_t kept = 0;
    for (int32_t i = 0; i < length; ++i)
        if (m_chars[i] != c)
            m_chars[kept++] = m_chars[i];
    SetLength(kept);
    return length - kept;
}
