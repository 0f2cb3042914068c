// Memory for buffers of megabytes: the blocks a file streams through, the
// spectra of a long filter. The first touch of every 4 KiB page costs the
// process a fault, and under virtualisation a fault costs several
// microseconds: tens of megabytes cost a tenth of a second in faults alone.
// These are backed by huge pages where the system gives them, one fault per
// 2 MiB; elsewhere they cost what any allocation does. The contents start
// undefined; the data starts on a 64-byte boundary, as vector loads want.
#pragma once

#include <cstddef>

class QVLargeBuffer
{
public:
    explicit QVLargeBuffer(size_t bytes);
    ~QVLargeBuffer();
    QVLargeBuffer(const QVLargeBuffer&) = delete;
    QVLargeBuffer& operator=(const QVLargeBuffer&) = delete;

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
