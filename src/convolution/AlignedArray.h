// Arrays that the transform library may read and write with its vector
// instructions: zero-filled, owned. Those of a few kilobytes come from the
// library's allocator; the megabytes of a long filter's spectra come as large
// buffers, whose pages cost a fault per 2 MiB instead of one per 4 KiB.
#pragma once

#include <fftw3.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "core/QVLargeBuffer.h"

template <typename T>
class CAlignedArray
{
public:
    CAlignedArray() = default;
    ~CAlignedArray() { Free(); }
    CAlignedArray(const CAlignedArray&) = delete;
    CAlignedArray& operator=(const CAlignedArray&) = delete;

    // Reallocates only when the size differs; clears either way.
    void Resize(int32_t newCount)
    {
        if (newCount != count)
        {
            Free();
            const size_t bytes = sizeof(T) * static_cast<size_t>(std::max(newCount, 0));
            if (bytes >= LARGE_BYTES)
            {
                try
                {
                    large = std::make_unique<QVLargeBuffer>(bytes);
                    items = large->As<T>();
                }
                catch (const std::bad_alloc&)
                {
                    large.reset();  // no array, as from the library's allocator
                }
            }
            else if (bytes > 0)
                items = static_cast<T*>(fftw_malloc(bytes));
            count = items != nullptr ? newCount : 0;
        }
        Clear();
    }
    void Clear()
    {
        for (int32_t i = 0; i < count; ++i)
            items[i] = T();
    }
    void Free()
    {
        if (large)
            large.reset();
        else
            fftw_free(items);
        items = nullptr;
        count = 0;
    }
    T* Data() { return items; }
    const T* Data() const { return items; }
    T& operator[](int32_t index) { return items[index]; }
    const T& operator[](int32_t index) const { return items[index]; }
    int32_t GetCount() const { return count; }

private:
    // A huge page holds 2 MiB whatever part of it is used: smaller arrays
    // would take more memory than they save time.
    static constexpr size_t LARGE_BYTES = size_t{1} << 20;

    std::unique_ptr<QVLargeBuffer> large;
    T* items = nullptr;
    int32_t count = 0;
};
