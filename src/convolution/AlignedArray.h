// Arrays that the transform library may read and write with its vector
// instructions: allocated by it, zero-filled, owned.
#pragma once

#include <fftw3.h>

#include <cstddef>
#include <cstdint>

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
                items = static_cast<T*>(fftw_malloc(sizeof(T) * static_cast<size_t>(newCount)));
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
    T* items = nullptr;
    int32_t count = 0;
};
