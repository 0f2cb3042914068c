// The array family. Arrays grow in fixed jumps (4, 64, 256, ... 65536, then
// by 65537) unless a `growBy` is set, keep their capacity on removal and zero
// the freed tail. Indexing is unchecked; GetPtr returns null out of range.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

class QVArrayBase
{
public:
    static constexpr int32_t GROW_AUTOMATIC = -1;

    int32_t GetCount() const { return m_count; }
    int32_t GetSize() const { return m_count; }
    int32_t GetCapacity() const { return m_capacity; }
    int32_t GetGrowBy() const { return m_growBy; }
    void SetGrowBy(int32_t growBy) { m_growBy = growBy > 0 ? growBy : GROW_AUTOMATIC; }
    bool IsEmpty() const { return m_count == 0; }

    // The capacity after growing an array of `count` elements to hold `needed`.
    static int32_t NextCapacity(int32_t count, int32_t needed, int32_t growBy);

protected:
    QVArrayBase() = default;
    ~QVArrayBase() = default;

    int32_t m_count = 0;
    int32_t m_capacity = 0;
    int32_t m_growBy = GROW_AUTOMATIC;
    void* m_data = nullptr;
};

// `PLAIN` elements are moved and copied by bytes and need no destructor.
template <typename T, typename ARG = const T&, bool PLAIN = std::is_trivially_copyable_v<T>>
class QVCoreArray : public QVArrayBase
{
public:
    using value_type = T;

    QVCoreArray() = default;
    QVCoreArray(std::initializer_list<T> items)
    {
        Reserve(static_cast<int32_t>(items.size()));
        for (const T& item : items)
            Add(item);
    }
    QVCoreArray(const QVCoreArray& other) { Append(other); }
    QVCoreArray(QVCoreArray&& other) noexcept { Swap(other); }
    ~QVCoreArray() { RemoveAll(); }
    QVCoreArray& operator=(const QVCoreArray& other)
    {
        if (this != &other)
        {
            RemoveAll();
            Append(other);
        }
        return *this;
    }
    QVCoreArray& operator=(QVCoreArray&& other) noexcept
    {
        if (this != &other)
        {
            RemoveAll();
            Swap(other);
        }
        return *this;
    }

    T* GetData() { return Items(); }
    const T* GetData() const { return Items(); }
    T& operator[](int32_t index) { return AssertIndex(index), Items()[index]; }
    const T& operator[](int32_t index) const { return AssertIndex(index), Items()[index]; }
    T& GetAt(int32_t index) { return (*this)[index]; }
    const T& GetAt(int32_t index) const { return (*this)[index]; }
    T* GetPtr(int32_t index) { return index >= 0 && index < m_count ? Items() + index : nullptr; }
    const T* GetPtr(int32_t index) const
    {
        return index >= 0 && index < m_count ? Items() + index : nullptr;
    }
    void SetAt(int32_t index, ARG value) { (*this)[index] = value; }
    T& GetLast() { return (*this)[m_count - 1]; }

    T* begin() { return Items(); }
    T* end() { return Items() + m_count; }
    const T* begin() const { return Items(); }
    const T* end() const { return Items() + m_count; }

    int32_t Add(ARG value)
    {
        if (m_count + 1 > m_capacity)
        {
            T copy(value);  // `value` may live in the block that growth frees
            GrowFor(m_count + 1);
            new (Items() + m_count) T(std::move(copy));
        }
        else
        {
            new (Items() + m_count) T(value);
        }
        return m_count++;
    }
    void InsertAt(int32_t index, ARG value, int32_t repeat = 1)
    {
        if (repeat <= 0)
            return;
        index = std::clamp(index, 0, m_count);
        T copy(value);
        if (m_count + repeat > m_capacity)
            GrowFor(m_count + repeat);
        OpenGap(index, repeat);
        for (int32_t i = 0; i < repeat; ++i)
            new (Items() + index + i) T(copy);
        m_count += repeat;
    }
    void Append(const QVCoreArray& other)
    {
        if (other.m_count == 0)
            return;
        if (m_count + other.m_count > m_capacity)
            GrowFor(m_count + other.m_count);
        const int32_t count = other.m_count;  // `other` may be this array
        for (int32_t i = 0; i < count; ++i)
            new (Items() + m_count + i) T(other.Items()[i]);
        m_count += count;
    }
    void RemoveAt(int32_t index, int32_t count = 1)
    {
        if (index < 0 || count <= 0 || index >= m_count)
            return;
        count = std::min(count, m_count - index);
        T* items = Items();
        if constexpr (!PLAIN)
            for (int32_t i = index; i < index + count; ++i)
                items[i].~T();
        const int32_t tail = m_count - index - count;
        RelocateBytesOrMove(items + index, items + index + count, tail);
        ZeroTail(m_count - count, m_count);
        m_count -= count;
    }
    void RemoveLast()
    {
        if (m_count > 0)
            RemoveAt(m_count - 1);
    }
    // Keeps the capacity and zeroes the freed slots.
    void RemoveAllKeepCapacity() { RemoveAt(0, m_count); }
    // The explicit clear: gives the block back.
    void RemoveAll()
    {
        RemoveAllKeepCapacity();
        ::operator delete(m_data);
        m_data = nullptr;
        m_capacity = 0;
    }
    // New elements are value-initialised; shrinking destroys the tail.
    void SetCount(int32_t count)
    {
        if (count < 0)
            count = 0;
        if (count < m_count)
        {
            RemoveAt(count, m_count - count);
            return;
        }
        if (count > m_capacity)
            GrowFor(count);
        for (int32_t i = m_count; i < count; ++i)
            new (Items() + i) T();
        m_count = count;
    }
    void Reserve(int32_t capacity)
    {
        if (capacity > m_capacity)
            Relocate(capacity);
    }
    void Swap(QVCoreArray& other) noexcept
    {
        std::swap(m_count, other.m_count);
        std::swap(m_capacity, other.m_capacity);
        std::swap(m_growBy, other.m_growBy);
        std::swap(m_data, other.m_data);
    }

protected:
    T* Items() { return static_cast<T*>(m_data); }
    const T* Items() const { return static_cast<const T*>(m_data); }

private:
    void AssertIndex(int32_t index) const { assert(index >= 0 && index < m_count); }

    void GrowFor(int32_t needed) { Relocate(NextCapacity(m_count, needed, m_growBy)); }

    // A new block, the elements moved into it, the old block freed.
    void Relocate(int32_t capacity)
    {
        void* block = ::operator new(static_cast<size_t>(capacity) * sizeof(T));
        std::memset(block, 0, static_cast<size_t>(capacity) * sizeof(T));
        T* target = static_cast<T*>(block);
        if constexpr (PLAIN)
        {
            if (m_count > 0)
                std::memcpy(static_cast<void*>(target), m_data,
                            static_cast<size_t>(m_count) * sizeof(T));
        }
        else
        {
            for (int32_t i = 0; i < m_count; ++i)
            {
                new (target + i) T(std::move(Items()[i]));
                Items()[i].~T();
            }
        }
        ::operator delete(m_data);
        m_data = block;
        m_capacity = capacity;
    }

    // Shifts [index, m_count) up by `gap`; the gap is left unconstructed.
    void OpenGap(int32_t index, int32_t gap)
    {
        T* items = Items();
        if constexpr (PLAIN)
        {
            std::memmove(static_cast<void*>(items + index + gap), items + index,
                         static_cast<size_t>(m_count - index) * sizeof(T));
        }
        else
        {
            for (int32_t i = m_count - 1; i >= index; --i)
            {
                new (items + i + gap) T(std::move(items[i]));
                items[i].~T();
            }
        }
    }

    // Moves `count` live elements down from `source` into destroyed slots at `target`.
    static void RelocateBytesOrMove(T* target, T* source, int32_t count)
    {
        if constexpr (PLAIN)
        {
            std::memmove(static_cast<void*>(target), source,
                         static_cast<size_t>(count) * sizeof(T));
        }
        else
        {
            for (int32_t i = 0; i < count; ++i)
            {
                new (target + i) T(std::move(source[i]));
                source[i].~T();
            }
        }
    }

    void ZeroTail(int32_t first, int32_t last)
    {
        if (last > first)
            std::memset(static_cast<void*>(Items() + first), 0,
                        static_cast<size_t>(last - first) * sizeof(T));
    }
};

// Elements copied with their constructors and destructors.
template <typename T, typename ARG = const T&>
class QVArray : public QVCoreArray<T, ARG, false>
{
public:
    using QVCoreArray<T, ARG, false>::QVCoreArray;
};

// Numbers (or pointers) held by value: search by value and sort.
template <typename T>
class QVNumberArray : public QVCoreArray<T, T, true>
{
public:
    using QVCoreArray<T, T, true>::QVCoreArray;

    int32_t Find(T value, int32_t start = 0) const
    {
        for (int32_t i = std::max(start, 0); i < this->m_count; ++i)
            if (this->Items()[i] == value)
                return i;
        return -1;
    }
    bool Contains(T value) const { return Find(value) >= 0; }
    // Adds the value unless it is there already; the index either way.
    int32_t AddUnique(T value)
    {
        const int32_t found = Find(value);
        return found >= 0 ? found : this->Add(value);
    }
    bool Remove(T value)
    {
        const int32_t found = Find(value);
        if (found >= 0)
            this->RemoveAt(found);
        return found >= 0;
    }
    void Sort(bool descending = false)
    {
        if (descending)
            std::sort(this->begin(), this->end(), [](T a, T b) { return b < a; });
        else
            std::sort(this->begin(), this->end());
    }
    // Index of `value` in a sorted array, or -1.
    int32_t BinarySearch(T value) const
    {
        const T* found = std::lower_bound(this->begin(), this->end(), value);
        return found != this->end() && *found == value ? static_cast<int32_t>(found - this->begin())
                                                       : -1;
    }
};

// Pointers that the array does not own.
template <typename T>
class QVPointerArray : public QVNumberArray<T*>
{
public:
    using QVNumberArray<T*>::QVNumberArray;
};

// Pointers that the array owns: removing an entry or destroying the array
// deletes the object.
template <typename T>
class QVOwnedPtrArray : public QVCoreArray<T*, T*, true>
{
    using Base = QVCoreArray<T*, T*, true>;

public:
    QVOwnedPtrArray() = default;
    QVOwnedPtrArray(const QVOwnedPtrArray&) = delete;
    QVOwnedPtrArray& operator=(const QVOwnedPtrArray&) = delete;
    QVOwnedPtrArray(QVOwnedPtrArray&& other) noexcept { this->Swap(other); }
    ~QVOwnedPtrArray() { RemoveAll(); }

    int32_t Find(const T* item) const
    {
        for (int32_t i = 0; i < this->m_count; ++i)
            if (this->Items()[i] == item)
                return i;
        return -1;
    }
    void RemoveAt(int32_t index, int32_t count = 1)
    {
        if (index < 0 || count <= 0 || index >= this->m_count)
            return;
        count = std::min(count, this->m_count - index);
        for (int32_t i = index; i < index + count; ++i)
            delete this->Items()[i];
        Base::RemoveAt(index, count);
    }
    void RemoveAll()
    {
        RemoveAt(0, this->m_count);
        Base::RemoveAll();
    }
    // Hands the object to the caller: it leaves the array undeleted.
    T* Detach(int32_t index)
    {
        T* item = this->GetPtr(index) ? this->Items()[index] : nullptr;
        if (item)
            Base::RemoveAt(index);
        return item;
    }
    // Replaces (and deletes) the object at `index`.
    void SetAt(int32_t index, T* item)
    {
        T*& slot = (*this)[index];
        if (slot != item)
            delete slot;
        slot = item;
    }
};

template <typename A, typename B>
struct QVPair
{
    A first;
    B second;
};

// Pairs of two element types, searched by either side.
template <typename A, typename B>
class QVPairArray : public QVArray<QVPair<A, B>>
{
public:
    using QVArray<QVPair<A, B>>::QVArray;
    using QVArray<QVPair<A, B>>::Add;

    int32_t Add(const A& first, const B& second)
    {
        return QVArray<QVPair<A, B>>::Add(QVPair<A, B>{first, second});
    }
    int32_t FindFirst(const A& first) const
    {
        for (int32_t i = 0; i < this->m_count; ++i)
            if (this->Items()[i].first == first)
                return i;
        return -1;
    }
    int32_t FindSecond(const B& second) const
    {
        for (int32_t i = 0; i < this->m_count; ++i)
            if (this->Items()[i].second == second)
                return i;
        return -1;
    }
};
