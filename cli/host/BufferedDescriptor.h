// A file descriptor with a megabyte of buffering in front of it, in the shape
// of libsndfile's virtual I/O. libsndfile converts audio through a buffer of a
// few kilobytes and asks the system for each one, and it asks where the file
// stands between writes; through this buffer a ten-minute file costs a few
// hundred system calls instead of tens of thousands.
#pragma once

#include <sndfile.h>

#include "core/QVLargeBuffer.h"

#include <cstdint>

class BufferedDescriptor
{
public:
    static constexpr size_t BUFFER_BYTES = size_t{1} << 20;

    // Does not own the descriptor; the caller closes it after libsndfile is done.
    explicit BufferedDescriptor(int descriptor);
    BufferedDescriptor(const BufferedDescriptor&) = delete;
    BufferedDescriptor& operator=(const BufferedDescriptor&) = delete;

    // The callbacks for sf_open_virtual, with this object as user data.
    static SF_VIRTUAL_IO* Callbacks();

    // Hands every buffered write to the system; false on failure (see Error).
    bool Flush();
    // The offset the next read or write starts at, as libsndfile sees it.
    int64_t Position() const { return position; }
    // errno of the first failed system call, 0 while none failed.
    int Error() const { return error; }

    int64_t Length();
    int64_t Seek(int64_t offset, int whence);
    int64_t Read(void* destination, int64_t bytes);
    int64_t Write(const void* source, int64_t bytes);

private:
    bool HasInBuffer(int64_t offset) const;
    bool Fill(int64_t offset);
    int64_t ReadDirect(char* destination, int64_t bytes, int64_t offset);
    bool WriteDirect(const char* source, int64_t bytes, int64_t offset);
    void Fail(int code);

    int descriptor;
    QVLargeBuffer buffer;
    // The buffer holds either bytes read from bufferStart on, or bytes still to
    // be written there; never both.
    int64_t bufferStart = 0;
    int64_t readBytes = 0;
    int64_t pendingBytes = 0;
    int64_t position = 0;
    int error = 0;
};
