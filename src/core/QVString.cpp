// QVString: sharing, copy on write, comparison and hashing.
#include "core/QVString.h"

#include <cstring>

namespace
{

int32_t LengthOf(const char16_t* text)
{
    int32_t length = 0;
    if (text)
        while (text[length])
            ++length;
    return length;
}

QVStringGlobals& Manager()
{
    return *QVGetStringGlobals();
}

}  // namespace

// A buffer is shared only if it is static, or counted and owned by this
// module's manager. A locked buffer, or one of another module's manager, is
// copied by characters: that is what lets a string cross a module border.
char16_t* QVString::Share(char16_t* chars)
{
    QVStringData* data = QVStringData::Of(chars);
    const int32_t references = data->references.load(std::memory_order_relaxed);
    if (references == QVSTRING_STATIC)
        return chars;
    if (references != QVSTRING_LOCKED && data->manager == QVGetStringManager())
    {
        data->references.fetch_add(1, std::memory_order_relaxed);
        return chars;
    }
    return Manager().Create(chars, data->length, 0, QVSTRING_CREATE_POOLED)->Chars();
}

void QVString::Release() noexcept
{
    QVStringData* data = Data();
    const int32_t references = data->references.load(std::memory_order_relaxed);
    if (references == QVSTRING_STATIC)
        return;
    if (references == QVSTRING_LOCKED ||
        data->references.fetch_sub(1, std::memory_order_acq_rel) <= 1)
        data->manager->Free(data);
}

QVString::QVString(const char16_t* text) : QVString(text, LengthOf(text)) {}

QVString::QVString(const char16_t* text, int32_t length)
{
    if (!text || length <= 0)
        m_chars = Manager().EmptyChars();
    else
        m_chars = Manager().Create(text, length, 0, QVSTRING_CREATE_POOLED)->Chars();
}

QVString::QVString(std::u16string_view text)
    : QVString(text.data(), static_cast<int32_t>(text.size()))
{
}

QVString::QVString(char16_t c, int32_t repeat)
{
    if (repeat <= 0)
    {
        m_chars = Manager().EmptyChars();
        return;
    }
    QVStringData* data = Manager().Allocate(repeat, true);
    for (int32_t i = 0; i < repeat; ++i)
        data->Chars()[i] = c;
    m_chars = data->Chars();
}

QVString::QVString(const QVString& other) : m_chars(Share(other.m_chars)) {}

QVString& QVString::operator=(const QVString& other)
{
    if (m_chars != other.m_chars)
    {
        char16_t* shared = Share(other.m_chars);
        Release();
        m_chars = shared;
    }
    return *this;
}

QVString& QVString::operator=(QVString&& other) noexcept
{
    if (this != &other)
    {
        Release();
        m_chars = other.m_chars;
        other.m_chars = Manager().EmptyChars();
    }
    return *this;
}

QVString& QVString::operator=(const char16_t* text)
{
    QVString copy(text);
    return *this = std::move(copy);
}

QVString QVString::FromStatic(const QVStringData* data) noexcept
{
    QVString result;
    result.m_chars = const_cast<QVStringData*>(data)->Chars();
    return result;
}

QVString QVString::Attach(QVStringData* data) noexcept
{
    QVString result;
    if (data)
        result.m_chars = data->Chars();
    return result;
}

void QVString::PrepareWrite(int32_t length)
{
    QVStringData* data = Data();
    const int32_t references = data->references.load(std::memory_order_acquire);
    const bool isPrivate =
        (references == 1 || references == QVSTRING_LOCKED) && data->manager == QVGetStringManager();
    if (isPrivate)
    {
        if (data->capacity <= length)
            m_chars = Manager().Grow(data, length)->Chars();
        return;
    }
    // Shared, static or foreign: a private copy with room for the change.
    QVStringData* fresh = Manager().Create(m_chars, data->length, length, QVSTRING_CREATE_POOLED);
    Release();
    m_chars = fresh->Chars();
}

void QVString::SetLength(int32_t length)
{
    QVStringData* data = Data();
    data->length = length;
    m_chars[length] = 0;
}

void QVString::SetAt(int32_t index, char16_t c)
{
    if (index < 0 || index >= GetLength())
        return;
    PrepareWrite(GetLength());
    m_chars[index] = c;
}

void QVString::Empty()
{
    Release();
    m_chars = Manager().EmptyChars();
}

char16_t* QVString::GetBuffer(int32_t minLength)
{
    const int32_t length = GetLength();
    PrepareWrite(minLength > length ? minLength : length);
    Data()->references.store(QVSTRING_LOCKED, std::memory_order_relaxed);
    return m_chars;
}

void QVString::ReleaseBuffer(int32_t newLength)
{
    QVStringData* data = Data();
    if (data->references.load(std::memory_order_relaxed) != QVSTRING_LOCKED)
        return;
    if (newLength < 0)
    {
        newLength = 0;
        while (newLength < data->capacity - 1 && m_chars[newLength])
            ++newLength;
    }
    if (newLength > data->capacity - 1)
        newLength = data->capacity - 1;
    SetLength(newLength);
    data->references.store(1, std::memory_order_release);
}

int QVString::Compare(const char16_t* text) const
{
    const char16_t* a = m_chars;
    const char16_t* b = text ? text : u"";
    while (*a && *a == *b)
    {
        ++a;
        ++b;
    }
    return static_cast<int>(*a) - static_cast<int>(*b);
}

bool QVString::operator==(const QVString& other) const
{
    if (m_chars == other.m_chars)
        return true;
    const int32_t length = GetLength();
    return length == other.GetLength() &&
           std::memcmp(m_chars, other.m_chars, static_cast<size_t>(length) * sizeof(char16_t)) == 0;
}

// Each character below 256 through the manager's table, any other through the
// platform's conversion; the difference at the first mismatch.
int QVString::CompareNoCase(const char16_t* a, const char16_t* b)
{
    const QVStringGlobals& globals = Manager();
    a = a ? a : u"";
    b = b ? b : u"";
    for (;; ++a, ++b)
    {
        const char16_t la = globals.ToLower(*a);
        const char16_t lb = globals.ToLower(*b);
        if (la != lb || *a == 0)
            return static_cast<int>(la) - static_cast<int>(lb);
    }
}

int QVString::CompareNoCase(const char16_t* text) const
{
    return CompareNoCase(m_chars, text);
}

uint32_t QVString::Hash(const char16_t* text)
{
    uint32_t hash = 0;
    if (text)
        for (; *text; ++text)
            hash = hash * 65599u + *text;
    return hash;
}

uint32_t QVString::HashNoCase(const char16_t* text)
{
    const QVStringGlobals& globals = Manager();
    uint32_t hash = 0;
    if (text)
        for (; *text; ++text)
            hash = hash * 65599u + globals.ToLower(*text);
    return hash;
}

QVString operator+(const QVString& a, const QVString& b)
{
    QVString result(a);
    result += b;
    return result;
}

QVString operator+(const QVString& a, const char16_t* b)
{
    QVString result(a);
    result += b;
    return result;
}

QVString operator+(const char16_t* a, const QVString& b)
{
    QVString result(a);
    result += b;
    return result;
}

QVString operator+(const QVString& a, char16_t b)
{
    QVString result(a);
    result += b;
    return result;
}
