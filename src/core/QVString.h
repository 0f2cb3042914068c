// QVString: the system's string. 16-bit characters, NUL-terminated, one pointer
// wide, with the 24-byte header of QVStringData in front of the characters.
// Copies share the buffer (atomic count) and writing makes a private copy.
//
// Literals that cost no allocation: u"text"_qv (or QVLITERAL(u"text")) gives a
// QVString over a static buffer whose `references` is QVSTRING_STATIC, so that
// neither the literal nor any copy of it ever touches the heap.
#pragma once

#include <compare>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "core/QVStringManager.h"

class QVString;
class QVStringArray;  // core/QVStringArray.h, needed where Split is called

// Flags of QVString::FromDouble.
inline constexpr uint32_t QVNUMBER_POINT = 1;  // always ".", never the locale's mark
inline constexpr uint32_t QVNUMBER_PLUS = 2;   // "+" before positive values

// One argument of QVString::Format. The kinds are checked against the
// specifiers: a number where text is expected (or the reverse) is refused.
class QVFormatArg
{
public:
    enum EKind : uint8_t
    {
        KIND_INT,
        KIND_UINT,
        KIND_DOUBLE,
        KIND_TEXT,
        KIND_UTF8,
        KIND_POINTER
    };

    template <typename T>
    requires std::is_integral_v<T> && std::is_signed_v<T> QVFormatArg(T value) : m_kind(KIND_INT)
    {
        m_int = value;
    }
    template <typename T>
    requires std::is_integral_v<T> && std::is_unsigned_v<T> QVFormatArg(T value) : m_kind(KIND_UINT)
    {
        m_uint = value;
    }
    template <typename T>
    requires std::is_enum_v<T> QVFormatArg(T value) : m_kind(KIND_INT)
    {
        m_int = static_cast<int64_t>(value);
    }
    QVFormatArg(double value) : m_kind(KIND_DOUBLE) { m_double = value; }
    QVFormatArg(float value) : m_kind(KIND_DOUBLE) { m_double = value; }
    QVFormatArg(const char16_t* text) : m_kind(KIND_TEXT) { m_text = text; }
    QVFormatArg(const QVString& text);
    QVFormatArg(const char* utf8) : m_kind(KIND_UTF8) { m_utf8 = utf8; }
    QVFormatArg(const std::string& utf8) : m_kind(KIND_UTF8) { m_utf8 = utf8.c_str(); }
    QVFormatArg(const void* pointer) : m_kind(KIND_POINTER) { m_pointer = pointer; }

    EKind GetKind() const { return m_kind; }
    int64_t GetInt() const { return m_int; }
    uint64_t GetUInt() const { return m_uint; }
    double GetDouble() const { return m_double; }
    const char16_t* GetText() const { return m_text; }
    const char* GetUTF8() const { return m_utf8; }
    const void* GetPointer() const { return m_pointer; }

private:
    EKind m_kind;
    union
    {
        int64_t m_int;
        uint64_t m_uint;
        double m_double;
        const char16_t* m_text;
        const char* m_utf8;
        const void* m_pointer;
    };
};

class QVString
{
public:
    QVString() noexcept : m_chars(g_qvStringGlobals.EmptyChars()) {}
    QVString(const char16_t* text);
    QVString(const char16_t* text, int32_t length);
    explicit QVString(std::u16string_view text);
    QVString(char16_t c, int32_t repeat);
    QVString(const QVString& other);
    QVString(QVString&& other) noexcept : m_chars(other.m_chars)
    {
        other.m_chars = g_qvStringGlobals.EmptyChars();
    }
    ~QVString() { Release(); }

    QVString& operator=(const QVString& other);
    QVString& operator=(QVString&& other) noexcept;
    QVString& operator=(const char16_t* text);

    // A QVString over a static buffer (see u"..."_qv); shares it for good.
    static QVString FromStatic(const QVStringData* data) noexcept;
    // Takes over one reference to a buffer, which may belong to another
    // module's manager; that manager frees it.
    static QVString Attach(QVStringData* data) noexcept;

    // The operating system's border and 8-bit text.
    static QVString FromUTF8(std::string_view text);
    std::string ToUTF8() const;
    static QVString FromCP1252(std::string_view text);
    std::string ToCP1252() const;

    const char16_t* c_str() const { return m_chars; }
    const char16_t* GetString() const { return m_chars; }
    operator const char16_t*() const { return m_chars; }
    std::u16string_view View() const { return {m_chars, static_cast<size_t>(GetLength())}; }

    int32_t GetLength() const { return Data()->length; }
    bool IsEmpty() const { return Data()->length == 0; }
    char16_t operator[](int32_t index) const { return m_chars[index]; }
    char16_t GetAt(int32_t index) const { return m_chars[index]; }
    void SetAt(int32_t index, char16_t c);
    void Empty();

    // Comparison: difference of the first differing characters, 0 if equal.
    int Compare(const char16_t* text) const;
    int CompareNoCase(const char16_t* text) const;
    bool operator==(const QVString& other) const;
    bool operator==(const char16_t* text) const { return Compare(text) == 0; }
    std::strong_ordering operator<=>(const QVString& other) const
    {
        return Compare(other.m_chars) <=> 0;
    }
    std::strong_ordering operator<=>(const char16_t* text) const { return Compare(text) <=> 0; }
    bool StartsWith(std::u16string_view prefix, bool noCase = false) const;
    bool EndsWith(std::u16string_view suffix, bool noCase = false) const;

    // Searching; -1 when not found.
    int32_t Find(char16_t c, int32_t start = 0) const;
    int32_t Find(std::u16string_view text, int32_t start = 0) const;
    int32_t Find(const char16_t* text, int32_t start = 0) const
    {
        return Find(std::u16string_view(text ? text : u""), start);
    }
    int32_t FindNoCase(std::u16string_view text, int32_t start = 0) const;
    int32_t FindOneOf(std::u16string_view characters, int32_t start = 0) const;
    int32_t ReverseFind(char16_t c) const;
    int32_t ReverseFind(std::u16string_view text) const;
    bool Contains(std::u16string_view text) const { return Find(text) >= 0; }

    // Pieces; counts are clipped to the string.
    QVString Mid(int32_t first, int32_t count = -1) const;
    QVString Left(int32_t count) const;
    QVString Right(int32_t count) const;

    // In-place changes; each returns the string.
    QVString& Trim();
    QVString& TrimLeft();
    QVString& TrimRight();
    QVString& Trim(std::u16string_view characters);
    QVString& TrimLeft(std::u16string_view characters);
    QVString& TrimRight(std::u16string_view characters);
    QVString& MakeUpper();
    QVString& MakeLower();
    QVString& Append(const char16_t* text, int32_t length);
    QVString& Append(std::u16string_view text)
    {
        return Append(text.data(), static_cast<int32_t>(text.size()));
    }
    QVString& operator+=(const QVString& text);
    QVString& operator+=(const char16_t* text);
    QVString& operator+=(char16_t c);
    int32_t Insert(int32_t index, std::u16string_view text);
    int32_t Delete(int32_t index, int32_t count = 1);
    // Replacements return how many were made.
    int32_t Replace(char16_t from, char16_t to);
    int32_t Replace(std::u16string_view from, std::u16string_view to);
    int32_t Remove(char16_t c);

    // Pieces between each `separator` (see QVStringArray::Split).
    QVStringArray Split(std::u16string_view separator, bool keepEmpty = true) const;

    QVString ToUpper() const { return QVString(*this).MakeUpper(); }
    QVString ToLower() const { return QVString(*this).MakeLower(); }

    // Writing in place: GetBuffer locks a private buffer of at least
    // `minLength` characters; ReleaseBuffer sets the length (-1 = up to the NUL)
    // and makes it shareable again.
    char16_t* GetBuffer(int32_t minLength);
    void ReleaseBuffer(int32_t newLength = -1);

    // Hashes of the maps: h = h * 65599 + c in 32 bits.
    uint32_t Hash() const { return Hash(m_chars); }
    uint32_t HashNoCase() const { return HashNoCase(m_chars); }
    static uint32_t Hash(const char16_t* text);
    static uint32_t HashNoCase(const char16_t* text);
    static int CompareNoCase(const char16_t* a, const char16_t* b);

    // printf-like, with the argument kinds checked: Format(u"%s=%d", {name, 5})
    // or Format(u"%s=%d", name, 5). A specifier whose argument is missing or of
    // the wrong kind is copied into the result as written; TryFormat says so.
    static QVString Format(const char16_t* format, std::initializer_list<QVFormatArg> args);
    template <typename... Args>
    static QVString Format(const char16_t* format, const Args&... args)
    {
        return Format(format, std::initializer_list<QVFormatArg>{QVFormatArg(args)...});
    }
    static bool TryFormat(QVString& result, const char16_t* format,
                          std::initializer_list<QVFormatArg> args);

    // The locale-independent number rules ("." and "," are both decimal marks).
    double ToDouble() const { return ToDouble(m_chars); }
    static double ToDouble(const char16_t* text);
    static QVString FromDouble(double value, int32_t decimals = -1, bool fixed = false,
                               int32_t minIntegerDigits = 0, uint32_t flags = 0);
    int64_t ToInt() const { return ToInt(m_chars); }
    static int64_t ToInt(const char16_t* text);
    // `minDigits` pads with leading zeros.
    static QVString FromInt(int64_t value, int32_t minDigits = 0);
    static QVString FromUInt(uint64_t value, int32_t minDigits = 0);

    // For tests and tools: the header of this string.
    const QVStringData* GetData() const { return Data(); }

private:
    QVStringData* Data() const { return QVStringData::Of(m_chars); }
    void Release() noexcept;
    static char16_t* Share(char16_t* chars);
    // Makes the buffer private with room for `length` characters; keeps contents.
    void PrepareWrite(int32_t length);
    void SetLength(int32_t length);

    char16_t* m_chars;
};
static_assert(sizeof(QVString) == sizeof(void*), "a QVString is one pointer");

QVString operator+(const QVString& a, const QVString& b);
QVString operator+(const QVString& a, const char16_t* b);
QVString operator+(const char16_t* a, const QVString& b);
QVString operator+(const QVString& a, char16_t b);

inline QVFormatArg::QVFormatArg(const QVString& text) : m_kind(KIND_TEXT)
{
    m_text = text.c_str();
}

// The buffer behind a literal: a header and the characters, built at compile time.
template <size_t N>
struct QVStaticStringData
{
    QVStringData header;
    char16_t chars[N];

    constexpr QVStaticStringData(const char16_t (&text)[N])
        : header{&g_qvStringGlobals, static_cast<int32_t>(N - 1), static_cast<int32_t>(N),
                 QVSTRING_STATIC, 0},
          chars{}
    {
        for (size_t i = 0; i < N; ++i)
            chars[i] = text[i];
    }
};

template <size_t N>
struct QVLiteralText
{
    char16_t text[N];
    constexpr QVLiteralText(const char16_t (&source)[N])
    {
        for (size_t i = 0; i < N; ++i)
            text[i] = source[i];
    }
};

template <QVLiteralText T>
inline constinit QVStaticStringData<sizeof(T.text) / sizeof(char16_t)> g_qvLiteral{T.text};

template <QVLiteralText T>
QVString operator""_qv()
{
    return QVString::FromStatic(&g_qvLiteral<T>.header);
}

#define QVLITERAL(text) text##_qv

// Text from a byte buffer by its byte-order mark: UTF-16 LE or BE, UTF-8,
// and Windows-1252 when there is none. The mark is not part of the result.
QVString QVDecodeText(const uint8_t* bytes, size_t size);
