// Arrays that the transform library may read and write with its vector
// instructions: aligned for the widest vectors, zero-filled, owned.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
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
            if (newCount > 0)
                Allocate(sizeof(T) * static_cast<size_t>(newCount));
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
            std::free(items);
        items = nullptr;
        count = 0;
    }
    T* Data() { return items; }
    const T* Data() const { return items; }
    T& operator[](int32_t index) { return items[index]; }
    const T& operator[](int32_t index) const { return items[index]; }
    int32_t GetCount() const { return count; }

private:
    // Spectra of long impulses take megabytes. From half a huge page on, an
    // array is a large buffer, on huge pages where the system grants them:
    // each is touched from end to end at every load and streamed every
    // block, and on small pages the load spends much of its time in page
    // faults and the blocks in address translation.
    void Allocate(size_t bytes)
    {
        if (bytes >= kLargeBytes)
        {
            try
            {
                large = std::make_unique<QVLargeBuffer>(bytes);
                items = large->As<T>();
            }
            catch (const std::bad_alloc&)
            {
                large.reset();  // no array, as from the small allocator
            }
            return;
        }
        items = static_cast<T*>(std::aligned_alloc(kVectorBytes, RoundUp(bytes, kVectorBytes)));
    }
    static size_t RoundUp(size_t bytes, size_t unit) { return (bytes + unit - 1) / unit * unit; }

    // The widest vectors that the transform library or the kernels use; large
    // buffers keep at least this alignment.
    static constexpr size_t kVectorBytes = 64;
    static constexpr size_t kLargeBytes = size_t{1} << 20;

    std::unique_ptr<QVLargeBuffer> large;
    T* items = nullptr;
    int32_t count = 0;
};
