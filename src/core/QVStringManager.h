// Buffers of QVString: the header in front of the characters, the manager
// interface that owns them, and the process-wide manager with its pool.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>

class IQVStringManager;

// `references` of a buffer that is never counted and never freed: literals and
// the shared empty string. Every copy and release tests for it first.
inline constexpr int32_t QVSTRING_STATIC = 0x7ffffc17;
// `references` of a buffer that one owner has locked for writing: never shared.
inline constexpr int32_t QVSTRING_LOCKED = -1;

inline constexpr int32_t QVSTRING_POOL_SLOTS = 16;
// Buffers of this many characters (with the NUL) or more bypass the pool.
inline constexpr int32_t QVSTRING_POOL_LIMIT = 1032;
// A pooled buffer this close to the request is good enough: stop searching.
inline constexpr int32_t QVSTRING_POOL_GOOD_FIT = 16;

// Flags of IQVStringManager::Create.
inline constexpr uint32_t QVSTRING_CREATE_POOLED = 1;

// Character classes of the codes 0 to 255 (QVStringGlobals::GetCharClass).
inline constexpr uint8_t QVCHAR_SPACE = 0x01;
inline constexpr uint8_t QVCHAR_DIGIT = 0x02;
inline constexpr uint8_t QVCHAR_UPPER = 0x04;
inline constexpr uint8_t QVCHAR_LOWER = 0x08;
inline constexpr uint8_t QVCHAR_PUNCT = 0x10;
inline constexpr uint8_t QVCHAR_CONTROL = 0x20;
inline constexpr uint8_t QVCHAR_XDIGIT = 0x40;
inline constexpr uint8_t QVCHAR_ALPHA = QVCHAR_UPPER | QVCHAR_LOWER;

// The 24 bytes that precede the characters. Layout is shared with other
// modules, so field order and sizes are fixed.
struct QVStringData
{
    IQVStringManager* manager;        // 24 bytes before the characters
    int32_t length;                   // 16: characters without the NUL
    int32_t capacity;                 // 12: characters the buffer holds, with the NUL
    std::atomic<int32_t> references;  // 8
    int32_t reserved;                 // 4: keeps the characters 8-byte aligned

    char16_t* Chars() { return reinterpret_cast<char16_t*>(this + 1); }
    const char16_t* Chars() const { return reinterpret_cast<const char16_t*>(this + 1); }
    static QVStringData* Of(const char16_t* chars)
    {
        return reinterpret_cast<QVStringData*>(const_cast<char16_t*>(chars)) - 1;
    }
    bool IsStatic() const { return references.load(std::memory_order_relaxed) == QVSTRING_STATIC; }
};
static_assert(sizeof(QVStringData) == 24, "the string header is 24 bytes");
static_assert(offsetof(QVStringData, length) == 8 && offsetof(QVStringData, capacity) == 12 &&
              offsetof(QVStringData, references) == 16);

// Owner of string buffers. The order of the operations is part of the layout
// that other modules see.
class IQVStringManager
{
public:
    // A buffer for `length` characters and the NUL, with `references` 1.
    virtual QVStringData* Allocate(int32_t length, bool pooled) = 0;
    virtual void Free(QVStringData* buffer) = 0;
    // Room for `length` characters, contents kept; leaves slack for appends.
    virtual QVStringData* Grow(QVStringData* buffer, int32_t length) = 0;
    // Room for exactly `length` characters, contents kept.
    virtual QVStringData* GrowExact(QVStringData* buffer, int32_t length) = 0;
    // A private buffer with room for `length` characters; contents are kept
    // when asked. A private old buffer is given back when a new one is made; a
    // shared one is left alone and the caller drops its reference.
    virtual QVStringData* Reallocate(QVStringData* buffer, int32_t length, bool keepContents) = 0;
    // A new buffer holding `chars`; `length` -1 means up to the NUL;
    // `capacity` asks for more room (characters without the NUL).
    virtual QVStringData* Create(const char16_t* chars, int32_t length, int32_t capacity,
                                 uint32_t flags) = 0;
    virtual QVStringData* GetEmpty() = 0;

protected:
    ~IQVStringManager() = default;
};

// The one string manager of this module, a singleton that is ready before any
// static constructor runs (it is constant-initialised).
class QVStringGlobals final : public IQVStringManager
{
public:
    constexpr QVStringGlobals();

    QVStringData* Allocate(int32_t length, bool pooled) override;
    void Free(QVStringData* buffer) override;
    QVStringData* Grow(QVStringData* buffer, int32_t length) override;
    QVStringData* GrowExact(QVStringData* buffer, int32_t length) override;
    QVStringData* Reallocate(QVStringData* buffer, int32_t length, bool keepContents) override;
    QVStringData* Create(const char16_t* chars, int32_t length, int32_t capacity,
                         uint32_t flags) override;
    QVStringData* GetEmpty() override { return &m_empty.header; }

    char16_t* EmptyChars() { return m_empty.chars; }

    // Case of a character: codes below 256 from the tables, others from the
    // platform's wide conversion.
    char16_t ToLower(char16_t c) const { return c < 256 ? m_lower[c] : WideToLower(c); }
    char16_t ToUpper(char16_t c) const { return c < 256 ? m_upper[c] : WideToUpper(c); }
    uint8_t GetCharClass(char16_t c) const { return c < 256 ? m_class[c] : 0; }
    bool IsSpace(char16_t c) const { return (GetCharClass(c) & QVCHAR_SPACE) != 0; }

    // Buffers held by the pool now; ReleasePool frees them all.
    int32_t GetPooledCount();
    void ReleasePool();

private:
    static char16_t WideToLower(char16_t c);
    static char16_t WideToUpper(char16_t c);
    QVStringData* NewBlock(int32_t capacity);
    QVStringData* TakeFromPool(int32_t needed);
    static void InitHeader(QVStringData* data, IQVStringManager* manager, int32_t capacity);

    struct EmptyString
    {
        QVStringData header;
        char16_t chars[4];
    };

    // A plain mutex, not a recursive one: the pool never locks twice, and it
    // keeps the whole object constant-initialised and trivially destroyed, so
    // strings work in static constructors and destructors of any order.
    std::mutex m_poolLock;
    QVStringData* m_pool[QVSTRING_POOL_SLOTS] = {};
    int32_t m_pooledCount = 0;
    char16_t m_lower[256] = {};
    char16_t m_upper[256] = {};
    uint8_t m_class[256] = {};
    EmptyString m_empty;
};

extern QVStringGlobals g_qvStringGlobals;

// The accessor through which everything reaches the manager: no lookup.
inline QVStringGlobals* QVGetStringGlobals()
{
    return &g_qvStringGlobals;
}
inline IQVStringManager* QVGetStringManager()
{
    return &g_qvStringGlobals;
}

// The case tables follow the Latin-1 rules that Windows and Unicode share for
// these codes. Fixing them here keeps them independent of the process locale.
constexpr QVStringGlobals::QVStringGlobals()
    : m_empty{{this, 0, 1, QVSTRING_STATIC, 0}, {0, 0, 0, 0}}
{
    for (int c = 0; c < 256; ++c)
    {
        m_lower[c] = static_cast<char16_t>(c);
        m_upper[c] = static_cast<char16_t>(c);
        uint8_t cls = 0;
        const bool upperLatin = (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7);
        const bool lowerLatin = (c >= 'a' && c <= 'z') || (c >= 0xDF && c <= 0xFF && c != 0xF7) ||
                                c == 0xAA || c == 0xB5 || c == 0xBA;
        if (upperLatin)
        {
            m_lower[c] = static_cast<char16_t>(c + 32);
            cls |= QVCHAR_UPPER;
        }
        if (lowerLatin)
        {
            cls |= QVCHAR_LOWER;
            if ((c >= 'a' && c <= 'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7))
                m_upper[c] = static_cast<char16_t>(c - 32);
        }
        if (c >= '0' && c <= '9')
            cls |= QVCHAR_DIGIT | QVCHAR_XDIGIT;
        if ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))
            cls |= QVCHAR_XDIGIT;
        if (c == ' ' || (c >= 9 && c <= 13) || c == 0xA0)
            cls |= QVCHAR_SPACE;
        if (c < 32 || (c >= 0x7F && c < 0xA0))
            cls |= QVCHAR_CONTROL;
        if ((c > 32 && c < 127 && !(cls & (QVCHAR_ALPHA | QVCHAR_DIGIT))) ||
            (c > 0xA0 && !(cls & QVCHAR_ALPHA)))
            cls |= QVCHAR_PUNCT;
        m_class[c] = cls;
    }
    // Two lower-case letters of Latin-1 have their capitals outside it.
    m_upper[0xB5] = 0x039C;
    m_upper[0xFF] = 0x0178;
}
