// A ring of whole frames that delays one channel. Every delay of the module
// resolves to one frame; there is no fractional delay and no cross-fade.
#pragma once

#include "qvdsp/AudioFormat.h"

#include <algorithm>
#include <cstdint>
#include <utility>

template <typename T>
class CDelayFilter
{
public:
    CDelayFilter() = default;
    ~CDelayFilter() { delete[] buffer; }
    CDelayFilter(const CDelayFilter& other) { CopyFrom(other); }
    CDelayFilter(CDelayFilter&& other) noexcept { Swap(other); }
    CDelayFilter& operator=(const CDelayFilter& other)
    {
        if (this != &other)
            CDelayFilter(other).Swap(*this);
        return *this;
    }
    CDelayFilter& operator=(CDelayFilter&& other) noexcept
    {
        CDelayFilter(std::move(other)).Swap(*this);
        return *this;
    }

    // Prepares the ring, outside the sample loop. The ring only grows, and
    // growing starts it again from silence; a shorter delay keeps the ring
    // and its contents and takes effect at once.
    bool SetDelay(int newDelay, int minimumSize)
    {
        const int64_t needed = std::min<int64_t>(
            std::max<int64_t>(std::max(minimumSize, 1), int64_t{newDelay} + 1), INT32_MAX);
        if (needed > size)
        {
            delete[] buffer;
            buffer = nullptr;
            buffer = new T[static_cast<size_t>(needed)]();
            size = static_cast<int32_t>(needed);
            writePosition = 0;
        }
        delay = std::clamp(newDelay, 0, size - 1);
        return true;
    }

    // One sample through the line; SetDelay must have run once before.
    inline T Process(T input) noexcept
    {
        buffer[writePosition] = input;
        int32_t read = writePosition - delay;
        if (read < 0)
            read += size;
        if (++writePosition == size)
            writePosition = 0;
        return buffer[read];
    }

    // Milliseconds to frames by the format's own rule. The rounding happens
    // on bytes, so a delay can land up to one frame short of the nearest
    // frame: every stage that converts a delay must agree on that.
    static int32_t FramesForMilliseconds(const CAudioFormat& format, double milliseconds)
    {
        return static_cast<int32_t>(format.FramesFromMilliseconds(milliseconds));
    }

    T* buffer = nullptr;  // owned
    int32_t size = 0;
    int32_t writePosition = 0;
    int32_t delay = 0;  // frames

private:
    void CopyFrom(const CDelayFilter& other)
    {
        if (other.buffer)
        {
            buffer = new T[static_cast<size_t>(other.size)];
            std::copy(other.buffer, other.buffer + other.size, buffer);
        }
        size = other.size;
        writePosition = other.writePosition;
        delay = other.delay;
    }
    void Swap(CDelayFilter& other) noexcept
    {
        std::swap(buffer, other.buffer);
        std::swap(size, other.size);
        std::swap(writePosition, other.writePosition);
        std::swap(delay, other.delay);
    }
};
