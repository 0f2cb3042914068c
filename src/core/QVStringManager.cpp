#include "core/QVStringManager.h"

#include <algorithm>
#include <climits>
#include <clocale>
#include <cstring>
#include <cwctype>
#include <locale.h>
#include <new>
#include <type_traits>

constinit QVStringGlobals g_qvStringGlobals;

namespace
{

// Largest capacity (characters with the NUL) that keeps the byte size and the
// 32-bit fields in range.
constexpr int32_t MAX_CAPACITY = (INT32_MAX - static_cast<int32_t>(sizeof(QVStringData))) / 2;

int32_t CheckedCapacity(int64_t characters)
{
    if (characters < 1 || characters > MAX_CAPACITY)
        throw std::bad_alloc();
    return static_cast<int32_t>(characters);
}

// The wide case conversion of the platform for codes above 255. The C.UTF-8
// locale carries the full Unicode case tables whatever the process locale is.
locale_t UnicodeLocale()
{
    static const locale_t locale =
        newlocale(LC_CTYPE_MASK, "C.UTF-8", static_cast<locale_t>(nullptr));
    return locale;
}

}  // namespace

char16_t QVStringGlobals::WideToLower(char16_t c)
{
    if (c >= 0xD800 && c <= 0xDFFF)
        return c;
    const locale_t locale = UnicodeLocale();
    const wint_t lower = locale ? towlower_l(c, locale) : towlower(c);
    return lower <= 0xFFFF ? static_cast<char16_t>(lower) : c;
}

char16_t QVStringGlobals::WideToUpper(char16_t c)
{
    if (c >= 0xD800 && c <= 0xDFFF)
        return c;
    const locale_t locale = UnicodeLocale();
    const wint_t upper = locale ? towupper_l(c, locale) : towupper(c);
    return upper <= 0xFFFF ? static_cast<char16_t>(upper) : c;
}

void QVStringGlobals::InitHeader(QVStringData* data, IQVStringManager* manager, int32_t capacity)
{
    data->manager = manager;
    data->length = 0;
    data->capacity = capacity;
    new (&data->references) std::atomic<int32_t>(1);
    data->reserved = 0;
    data->Chars()[0] = 0;
}

QVStringData* QVStringGlobals::NewBlock(int32_t capacity)
{
    void* memory =
        ::operator new(sizeof(QVStringData) + static_cast<size_t>(capacity) * sizeof(char16_t));
    auto* data = static_cast<QVStringData*>(memory);
    InitHeader(data, this, capacity);
    return data;
}

// Among the slots that are taken, the buffer with the smallest surplus over
// `needed`; a surplus below QVSTRING_POOL_GOOD_FIT ends the search early.
QVStringData* QVStringGlobals::TakeFromPool(int32_t needed)
{
    std::lock_guard<std::mutex> lock(m_poolLock);
    if (m_pooledCount == 0)
        return nullptr;
    int best = -1;
    int32_t bestSurplus = INT32_MAX;
    for (int slot = 0; slot < QVSTRING_POOL_SLOTS; ++slot)
    {
        QVStringData* candidate = m_pool[slot];
        if (!candidate || candidate->capacity < needed)
            continue;
        const int32_t surplus = candidate->capacity - needed;
        if (surplus < bestSurplus)
        {
            best = slot;
            bestSurplus = surplus;
            if (bestSurplus < QVSTRING_POOL_GOOD_FIT)
                break;
        }
    }
    if (best < 0)
        return nullptr;
    QVStringData* chosen = m_pool[best];
    m_pool[best] = nullptr;
    --m_pooledCount;
    return chosen;
}

QVStringData* QVStringGlobals::Allocate(int32_t length, bool pooled)
{
    const int32_t needed = CheckedCapacity(static_cast<int64_t>(length) + 1);
    QVStringData* data = nullptr;
    if (pooled && needed < QVSTRING_POOL_LIMIT)
        data = TakeFromPool(needed);
    if (data)
        InitHeader(data, this, data->capacity);
    else
        data = NewBlock(needed);
    data->length = length;
    data->Chars()[length] = 0;
    return data;
}

void QVStringGlobals::Free(QVStringData* buffer)
{
    if (!buffer || buffer == &m_empty.header)
        return;
    if (buffer->capacity < QVSTRING_POOL_LIMIT)
    {
        std::lock_guard<std::mutex> lock(m_poolLock);
        if (m_pooledCount < QVSTRING_POOL_SLOTS)
        {
            for (auto& slot : m_pool)
            {
                if (!slot)
                {
                    slot = buffer;
                    ++m_pooledCount;
                    return;
                }
            }
        }
    }
    ::operator delete(buffer);
}

QVStringData* QVStringGlobals::Reallocate(QVStringData* buffer, int32_t length, bool keepContents)
{
    const int32_t needed = CheckedCapacity(static_cast<int64_t>(length) + 1);
    const bool isPrivate = buffer && buffer->manager == this && !buffer->IsStatic() &&
                           buffer->references.load(std::memory_order_acquire) <= 1;
    if (isPrivate && buffer->capacity >= needed)
    {
        if (!keepContents)
        {
            buffer->length = 0;
            buffer->Chars()[0] = 0;
        }
        return buffer;
    }
    QVStringData* fresh = Allocate(length, true);
    fresh->length = 0;
    fresh->Chars()[0] = 0;
    if (buffer && keepContents)
    {
        const int32_t kept = buffer->length < length ? buffer->length : length;
        std::memcpy(fresh->Chars(), buffer->Chars(), static_cast<size_t>(kept) * sizeof(char16_t));
        fresh->length = kept;
        fresh->Chars()[kept] = 0;
    }
    if (isPrivate)
        Free(buffer);
    return fresh;
}

QVStringData* QVStringGlobals::Grow(QVStringData* buffer, int32_t length)
{
    if (buffer && buffer->capacity > length &&
        buffer->references.load(std::memory_order_acquire) <= 1)
        return buffer;
    // Half as much again, so that a run of appends costs amortised constant time.
    int64_t capacity = static_cast<int64_t>(length) + 1;
    if (buffer && !buffer->IsStatic())
        capacity = std::max<int64_t>(capacity, static_cast<int64_t>(buffer->capacity) * 3 / 2);
    if (capacity > MAX_CAPACITY)
        capacity = static_cast<int64_t>(length) + 1;
    return Reallocate(buffer, static_cast<int32_t>(capacity - 1), true);
}

QVStringData* QVStringGlobals::GrowExact(QVStringData* buffer, int32_t length)
{
    return Reallocate(buffer, length, true);
}

QVStringData* QVStringGlobals::Create(const char16_t* chars, int32_t length, int32_t capacity,
                                      uint32_t flags)
{
    if (length < 0)
    {
        length = 0;
        if (chars)
            while (chars[length])
                ++length;
    }
    if (!chars)
        length = 0;
    const int32_t room = capacity > length ? capacity : length;
    QVStringData* data = Allocate(room, (flags & QVSTRING_CREATE_POOLED) != 0);
    if (length > 0)
        std::memcpy(data->Chars(), chars, static_cast<size_t>(length) * sizeof(char16_t));
    data->length = length;
    data->Chars()[length] = 0;
    return data;
}

int32_t QVStringGlobals::GetPooledCount()
{
    std::lock_guard<std::mutex> lock(m_poolLock);
    return m_pooledCount;
}

void QVStringGlobals::ReleasePool()
{
    std::lock_guard<std::mutex> lock(m_poolLock);
    for (auto& slot : m_pool)
    {
        if (slot)
            ::operator delete(slot);
        slot = nullptr;
    }
    m_pooledCount = 0;
}

static_assert(std::is_trivially_destructible_v<QVStringGlobals>,
              "the manager must outlive every string, including those of static destructors");
