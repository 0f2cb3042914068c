// A list that keeps its entries unique, in the order they were added, with a
// map beside it that answers lookups without a search.
#pragma once

#include "core/QVArray.h"
#include "core/QVMap.h"

template <typename T, typename ARG = const T&>
class QVUniqueList
{
public:
    // Index of `item`: where it already is, or where it was appended.
    int32_t Add(ARG item)
    {
        bool added = false;
        auto* node = m_index.FindOrAdd(item, &added);
        if (added)
            node->value = m_items.Add(item);
        return node->value;
    }
    int32_t Find(ARG item) const
    {
        const int32_t* index = m_index.Find(item);
        return index ? *index : -1;
    }
    bool Contains(ARG item) const { return Find(item) >= 0; }
    bool Remove(ARG item)
    {
        const int32_t index = Find(item);
        if (index < 0)
            return false;
        m_index.Remove(item);
        m_items.RemoveAt(index);
        for (int32_t i = index; i < m_items.GetCount(); ++i)
            m_index[m_items[i]] = i;
        return true;
    }
    void RemoveAll()
    {
        m_items.RemoveAll();
        m_index.RemoveAll();
    }

    int32_t GetCount() const { return m_items.GetCount(); }
    bool IsEmpty() const { return m_items.IsEmpty(); }
    const T& operator[](int32_t index) const { return m_items[index]; }
    const T* GetPtr(int32_t index) const { return m_items.GetPtr(index); }
    const T* begin() const { return m_items.begin(); }
    const T* end() const { return m_items.end(); }

private:
    QVArray<T, ARG> m_items;
    QVMap<T, ARG, int32_t, int32_t> m_index;
};
