// A quicksort over an array, in the calling thread or with one further worker
// on a QVThread.
// Pending ranges live on one shared stack of at most 124 entries under a lock;
// each worker pops a range, partitions it around the median of its first,
// middle and last elements, pushes one side and goes on with the other, and
// sorts ranges of up to 16 elements by insertion.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

#include "core/QVThread.h"

template <typename T>
class IQVComparer
{
public:
    // Negative, zero or positive, as a is before, equal to or after b.
    virtual int Compare(const T& a, const T& b) const = 0;

protected:
    ~IQVComparer() = default;
};

// Orders by operator<.
template <typename T>
class QVLessComparer final : public IQVComparer<T>
{
public:
    int Compare(const T& a, const T& b) const override { return a < b ? -1 : (b < a ? 1 : 0); }
};

template <typename T>
class QVQSort : public QVThread
{
public:
    static constexpr int32_t MAX_RANGES = 124;
    static constexpr int32_t INSERTION_LIMIT = 16;

    QVQSort(T* items, int32_t count, const IQVComparer<T>& comparer)
        : m_items(items), m_count(count), m_comparer(comparer)
    {
    }
    ~QVQSort() override { Stop(-1); }

    // Sorts; with `useWorker` a second thread shares the ranges. When that
    // thread cannot be started, the calling thread sorts alone.
    void Sort(bool useWorker = false)
    {
        if (!m_items || m_count < 2)
            return;
        m_top = 0;
        m_busy = 0;
        Push(0, m_count - 1);
        const bool withWorker = useWorker && StartThread();
        Work();
        if (withWorker)
            Wait();
    }

protected:
    void Run() override { Work(); }

private:
    // Until the stack is empty and no worker holds a range that could push more.
    void Work()
    {
        for (;;)
        {
            int32_t first = 0, last = 0;
            {
                std::lock_guard<std::recursive_mutex> lock(m_lock);
                if (m_top > 0)
                {
                    --m_top;
                    first = m_first[m_top];
                    last = m_last[m_top];
                    ++m_busy;
                }
                else if (m_busy == 0)
                {
                    return;
                }
                else
                {
                    first = last = -1;
                }
            }
            if (first < 0)
            {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                continue;
            }
            SortRange(first, last);
            std::lock_guard<std::recursive_mutex> lock(m_lock);
            --m_busy;
        }
    }

    // False when the stack is full; the caller then sorts the range itself.
    bool Push(int32_t first, int32_t last)
    {
        std::lock_guard<std::recursive_mutex> lock(m_lock);
        if (m_top >= MAX_RANGES)
            return false;
        m_first[m_top] = first;
        m_last[m_top] = last;
        ++m_top;
        return true;
    }

    void SortRange(int32_t first, int32_t last)
    {
        while (last - first + 1 > INSERTION_LIMIT)
        {
            int32_t leftEnd = 0, rightStart = 0;
            Partition(first, last, leftEnd, rightStart);
            // The larger side goes to the stack, the smaller stays here: the
            // stack then holds at most about log2(count) ranges per worker.
            if (leftEnd - first > last - rightStart)
            {
                if (!Push(first, leftEnd))
                    SortRange(first, leftEnd);
                first = rightStart;
            }
            else
            {
                if (!Push(rightStart, last))
                    SortRange(rightStart, last);
                last = leftEnd;
            }
        }
        InsertionSort(first, last);
    }

    int Compare(int32_t a, int32_t b) const { return m_comparer.Compare(m_items[a], m_items[b]); }
    void SwapItems(int32_t a, int32_t b) { std::swap(m_items[a], m_items[b]); }

    void Partition(int32_t first, int32_t last, int32_t& leftEnd, int32_t& rightStart)
    {
        const int32_t middle = first + (last - first) / 2;
        if (Compare(middle, first) < 0)
            SwapItems(middle, first);
        if (Compare(last, first) < 0)
            SwapItems(last, first);
        if (Compare(last, middle) < 0)
            SwapItems(last, middle);
        const T pivot = m_items[middle];
        int32_t i = first, j = last;
        while (i <= j)
        {
            while (m_comparer.Compare(m_items[i], pivot) < 0)
                ++i;
            while (m_comparer.Compare(pivot, m_items[j]) < 0)
                --j;
            if (i <= j)
            {
                SwapItems(i, j);
                ++i;
                --j;
            }
        }
        leftEnd = j;
        rightStart = i;
    }

    void InsertionSort(int32_t first, int32_t last)
    {
        for (int32_t i = first + 1; i <= last; ++i)
        {
            T item = std::move(m_items[i]);
            int32_t j = i - 1;
            for (; j >= first && m_comparer.Compare(item, m_items[j]) < 0; --j)
                m_items[j + 1] = std::move(m_items[j]);
            m_items[j + 1] = std::move(item);
        }
    }

    T* m_items;
    int32_t m_count;
    const IQVComparer<T>& m_comparer;
    std::recursive_mutex m_lock;
    int32_t m_first[MAX_RANGES] = {};
    int32_t m_last[MAX_RANGES] = {};
    int32_t m_top = 0;
    int32_t m_busy = 0;
};
