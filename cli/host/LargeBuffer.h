// Memory for the megabytes that qvdsp's reading and writing threads stream
// through. The first touch of every 4 KiB page costs the process a fault, and
// under virtualisation a fault costs several microseconds: the buffers of one
// file cost tens of milliseconds in faults alone. These are backed by huge
// pages where the system gives them, one fault per 2 MiB; elsewhere they cost
// what any allocation does. The contents start undefined.
#pragma once

#include <cstddef>

class LargeBuffer
{
public:
    explicit LargeBuffer(size_t bytes);
    ~LargeBuffer();
    LargeBuffer(const LargeBuffer&) = delete;
    LargeBuffer& operator=(const LargeBuffer&) = delete;

    template <typename T>
    T* As() const
    {
        return static_cast<T*>(data);
    }
    size_t Bytes() const { return bytes; }

private:
    size_t bytes;
    void* region = nullptr;
    void* data = nullptr;
    size_t mapped = 0;
};
