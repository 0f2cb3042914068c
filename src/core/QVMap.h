// The map family: a chained hash table. Integer keys hash to themselves,
// strings by h = h * 65599 + c. A chain averages up to about two nodes before
// the table grows to 7 or 2^k - 1 buckets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

#include "core/QVString.h"

// Where nodes come from when a map is given one; null means the heap.
class IQVBlockAllocator
{
public:
    virtual void* AllocateBlock(size_t size) = 0;
    virtual void FreeBlock(void* block) = 0;

protected:
    ~IQVBlockAllocator() = default;
};

struct QVMapNodeBase
{
    QVMapNodeBase* next;
    uint32_t hash;
};

class QVMapBase
{
public:
    int32_t GetCount() const { return m_count; }
    bool IsEmpty() const { return m_count == 0; }
    int32_t GetBucketCount() const { return m_bucketCount; }
    void SetNodeAllocator(IQVBlockAllocator* allocator) { m_allocator = allocator; }

    // Buckets for `count` entries: 7 below 8, else 2^k - 1 for the smallest
    // power of two above `count`; a margin asks for 20 % more first.
    static int32_t BucketCountFor(int32_t count, bool margin);

protected:
    QVMapBase() = default;
    ~QVMapBase() { FreeBuckets(); }

    // Relinks every node into a table of BucketCountFor(count, margin) buckets.
    void Resize(int32_t count, bool margin);
    // True when a new node may join its chain without resizing first.
    bool HasRoomForOneMore() const
    {
        return m_bucketCount > 0 && m_count + 1 <= 2 * m_bucketCount + 2;
    }
    QVMapNodeBase*& BucketOf(uint32_t hash)
    {
        return m_buckets[hash % static_cast<uint32_t>(m_bucketCount)];
    }
    void* AllocateNode(size_t size)
    {
        return m_allocator ? m_allocator->AllocateBlock(size) : ::operator new(size);
    }
    void FreeNode(void* node)
    {
        if (m_allocator)
            m_allocator->FreeBlock(node);
        else
            ::operator delete(node);
    }
    void FreeBuckets();
    void SwapBase(QVMapBase& other) noexcept;

    int32_t m_count = 0;
    int32_t m_bucketCount = 0;
    IQVBlockAllocator* m_allocator = nullptr;
    QVMapNodeBase** m_buckets = nullptr;
};

// Hash of a key, in 32 bits: integers and enumerations as themselves (wider
// ones keep their low 32 bits), pointers by address, strings by 65599.
template <typename K>
uint32_t QVHashKey(const K& key)
{
    if constexpr (std::is_enum_v<K>)
        return QVHashKey(static_cast<std::underlying_type_t<K>>(key));
    else if constexpr (std::is_integral_v<K>)
        return static_cast<uint32_t>(static_cast<std::make_unsigned_t<K>>(key));
    else if constexpr (std::is_pointer_v<K>)
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key) >>
                                     4);  // heap blocks are 16-byte aligned
    else
        return key.Hash();
}
inline uint32_t QVHashKey(const QVString& key)
{
    return key.Hash();
}

template <typename K, typename ARG_KEY, typename V, typename ARG_VALUE, bool OWNS_VALUES = false>
class QVMap : public QVMapBase
{
public:
    struct Node : QVMapNodeBase
    {
        K key;
        V value;
    };

    class Iterator
    {
    public:
        Iterator(const QVMap* map, int32_t bucket, Node* node)
            : m_map(map), m_bucket(bucket), m_node(node)
        {
            Settle();
        }
        Node& operator*() const { return *m_node; }
        Node* operator->() const { return m_node; }
        Iterator& operator++()
        {
            m_node = static_cast<Node*>(m_node->next);
            if (!m_node)
                ++m_bucket;
            Settle();
            return *this;
        }
        bool operator==(const Iterator& other) const { return m_node == other.m_node; }

    private:
        void Settle()
        {
            while (!m_node && m_bucket < m_map->m_bucketCount)
            {
                m_node = static_cast<Node*>(m_map->m_buckets[m_bucket]);
                if (!m_node)
                    ++m_bucket;
            }
        }
        const QVMap* m_map;
        int32_t m_bucket;
        Node* m_node;
    };

    QVMap() = default;
    QVMap(const QVMap& other) requires(!OWNS_VALUES) { CopyFrom(other); }
    QVMap& operator=(const QVMap& other) requires(!OWNS_VALUES)
    {
        if (this != &other)
        {
            RemoveAll();
            CopyFrom(other);
        }
        return *this;
    }

    // Virtual operations, in this order.
    virtual ~QVMap() { RemoveAll(); }
    virtual int32_t GetBucketOf(const Node* node) const
    {
        return static_cast<int32_t>(node->hash % static_cast<uint32_t>(m_bucketCount));
    }
    virtual size_t GetNodeSize() const { return sizeof(Node); }
    virtual uint32_t HashKey(ARG_KEY key) const { return QVHashKey<K>(key); }
    virtual bool KeysEqual(ARG_KEY a, ARG_KEY b) const { return a == b; }
    virtual void DestroyNode(Node* node)
    {
        if constexpr (OWNS_VALUES)
            delete node->value;
        node->~Node();
        FreeNode(node);
    }
    virtual Node* MakeNode(ARG_KEY key, uint32_t hash)
    {
        void* memory = AllocateNode(GetNodeSize());
        Node* node = new (memory) Node{{nullptr, hash}, K(key), V()};
        return node;
    }

    Iterator begin() const { return Iterator(this, 0, nullptr); }
    Iterator end() const { return Iterator(this, m_bucketCount, nullptr); }

    // The value of `key`, or null.
    V* Find(ARG_KEY key) const
    {
        Node* node = FindNode(key, HashKey(key));
        return node ? &node->value : nullptr;
    }
    bool Lookup(ARG_KEY key, V& value) const
    {
        const V* found = Find(key);
        if (found)
            value = *found;
        return found != nullptr;
    }
    bool Contains(ARG_KEY key) const { return Find(key) != nullptr; }

    // The node of `key`, made at the end of its chain when missing.
    Node* FindOrAdd(ARG_KEY key, bool* added = nullptr)
    {
        const uint32_t hash = HashKey(key);
        if (Node* node = FindNode(key, hash))
        {
            if (added)
                *added = false;
            return node;
        }
        if (!HasRoomForOneMore())
            Resize(m_count + 1, false);
        Node* node = MakeNode(key, hash);
        QVMapNodeBase** link = &BucketOf(hash);
        while (*link)
            link = &(*link)->next;
        *link = node;
        ++m_count;
        if (added)
            *added = true;
        return node;
    }
    V& operator[](ARG_KEY key) { return FindOrAdd(key)->value; }
    void SetAt(ARG_KEY key, ARG_VALUE value)
    {
        bool added = false;
        Node* node = FindOrAdd(key, &added);
        if constexpr (OWNS_VALUES)
        {
            if (!added && node->value != value)
                delete node->value;
        }
        node->value = value;
    }

    bool Remove(ARG_KEY key)
    {
        if (m_bucketCount == 0)
            return false;
        const uint32_t hash = HashKey(key);
        for (QVMapNodeBase** link = &BucketOf(hash); *link; link = &(*link)->next)
        {
            Node* node = static_cast<Node*>(*link);
            if (node->hash == hash && KeysEqual(node->key, key))
            {
                *link = node->next;
                DestroyNode(node);
                --m_count;
                return true;
            }
        }
        return false;
    }
    // Removes every node; the buckets stay.
    void RemoveAll()
    {
        for (int32_t bucket = 0; bucket < m_bucketCount; ++bucket)
        {
            QVMapNodeBase* node = m_buckets[bucket];
            m_buckets[bucket] = nullptr;
            while (node)
            {
                QVMapNodeBase* next = node->next;
                DestroyNode(static_cast<Node*>(node));
                node = next;
            }
        }
        m_count = 0;
    }
    // Prepares the table for `count` entries, with 20 % more when `margin`.
    void InitHashTable(int32_t count, bool margin = true) { Resize(count, margin); }

protected:
    Node* FindNode(ARG_KEY key, uint32_t hash) const
    {
        if (m_bucketCount == 0)
            return nullptr;
        for (QVMapNodeBase* node = m_buckets[hash % static_cast<uint32_t>(m_bucketCount)]; node;
             node = node->next)
            if (node->hash == hash && KeysEqual(static_cast<Node*>(node)->key, key))
                return static_cast<Node*>(node);
        return nullptr;
    }

private:
    void CopyFrom(const QVMap& other)
    {
        for (const Node& node : other)
            SetAt(node.key, node.value);
    }
};

// Values are owned pointers: removing an entry or destroying the map deletes them.
template <typename K, typename V, typename ARG_KEY = K>
class QVOwnedPtrMap : public QVMap<K, ARG_KEY, V*, V*, true>
{
public:
    QVOwnedPtrMap() = default;
    // Hands the value to the caller and removes its entry without deleting it.
    V* Detach(ARG_KEY key)
    {
        V** found = this->Find(key);
        if (!found)
            return nullptr;
        V* value = *found;
        *found = nullptr;
        this->Remove(key);
        return value;
    }
};

// Keys are QVString; `noCase` makes hash and compare case-blind.
template <typename V, typename ARG_VALUE = const V&>
class QVStringMap : public QVMap<QVString, const QVString&, V, ARG_VALUE>
{
    using Base = QVMap<QVString, const QVString&, V, ARG_VALUE>;

public:
    explicit QVStringMap(bool noCase = false) : m_noCase(noCase) {}
    QVStringMap(const QVStringMap& other) : Base(), m_noCase(other.m_noCase)
    {
        Base::operator=(other);
    }
    QVStringMap& operator=(const QVStringMap& other)
    {
        m_noCase = other.m_noCase;
        Base::operator=(other);
        return *this;
    }
    ~QVStringMap() override { this->RemoveAll(); }

    uint32_t HashKey(const QVString& key) const override
    {
        return m_noCase ? key.HashNoCase() : key.Hash();
    }
    bool KeysEqual(const QVString& a, const QVString& b) const override
    {
        return m_noCase ? a.CompareNoCase(b) == 0 : a == b;
    }
    bool IsNoCase() const { return m_noCase; }

private:
    bool m_noCase;
};
