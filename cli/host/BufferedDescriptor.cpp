#include "cli/host/BufferedDescriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

BufferedDescriptor& Self(void* user)
{
    return *static_cast<BufferedDescriptor*>(user);
}

sf_count_t LengthOf(void* user)
{
    return Self(user).Length();
}

sf_count_t SeekIn(sf_count_t offset, int whence, void* user)
{
    return Self(user).Seek(offset, whence);
}

sf_count_t ReadFrom(void* destination, sf_count_t bytes, void* user)
{
    return Self(user).Read(destination, bytes);
}

sf_count_t WriteTo(const void* source, sf_count_t bytes, void* user)
{
    return Self(user).Write(source, bytes);
}

sf_count_t PositionOf(void* user)
{
    return Self(user).Position();
}

}  // namespace

BufferedDescriptor::BufferedDescriptor(int descriptor)
    : descriptor(descriptor), buffer(BUFFER_BYTES)
{
}

SF_VIRTUAL_IO* BufferedDescriptor::Callbacks()
{
    static SF_VIRTUAL_IO callbacks{LengthOf, SeekIn, ReadFrom, WriteTo, PositionOf};
    return &callbacks;
}

void BufferedDescriptor::Fail(int code)
{
    if (error == 0)
        error = code;
}

int64_t BufferedDescriptor::Length()
{
    struct stat status
    {
    };
    if (fstat(descriptor, &status) != 0)
    {
        Fail(errno);
        return -1;
    }
    return std::max<int64_t>(status.st_size, bufferStart + pendingBytes);
}

int64_t BufferedDescriptor::Seek(int64_t offset, int whence)
{
    // Nothing moves on a seek: the buffer is only given up when a read or
    // write actually lands outside it.
    int64_t base = 0;
    if (whence == SEEK_CUR)
        base = position;
    else if (whence == SEEK_END)
        base = Length();
    if (base < 0 || base + offset < 0)
        return -1;
    position = base + offset;
    return position;
}

bool BufferedDescriptor::HasInBuffer(int64_t offset) const
{
    return offset >= bufferStart && offset < bufferStart + readBytes;
}

int64_t BufferedDescriptor::ReadDirect(char* destination, int64_t bytes, int64_t offset)
{
    int64_t done = 0;
    while (done < bytes)
    {
        const ssize_t got =
            pread(descriptor, destination + done, static_cast<size_t>(bytes - done), offset + done);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
        {
            Fail(errno);
            break;
        }
        if (got == 0)
            break;
        done += got;
    }
    return done;
}

bool BufferedDescriptor::Fill(int64_t offset)
{
    bufferStart = offset;
    readBytes = ReadDirect(buffer.As<char>(), static_cast<int64_t>(BUFFER_BYTES), offset);
    return readBytes > 0;
}

int64_t BufferedDescriptor::Read(void* destination, int64_t bytes)
{
    if (!Flush())
        return 0;
    char* out = static_cast<char*>(destination);
    int64_t done = 0;
    while (done < bytes)
    {
        if (!HasInBuffer(position))
        {
            // A read as large as the buffer gains nothing from it.
            if (bytes - done >= static_cast<int64_t>(BUFFER_BYTES))
            {
                const int64_t got = ReadDirect(out + done, bytes - done, position);
                done += got;
                position += got;
                break;
            }
            if (!Fill(position))
                break;
        }
        const int64_t from = position - bufferStart;
        const int64_t piece = std::min(bytes - done, readBytes - from);
        std::memcpy(out + done, buffer.As<char>() + from, static_cast<size_t>(piece));
        done += piece;
        position += piece;
    }
    return done;
}

bool BufferedDescriptor::WriteDirect(const char* source, int64_t bytes, int64_t offset)
{
    int64_t done = 0;
    while (done < bytes)
    {
        const ssize_t put =
            pwrite(descriptor, source + done, static_cast<size_t>(bytes - done), offset + done);
        if (put < 0 && errno == EINTR)
            continue;
        if (put < 0)
        {
            Fail(errno);
            return false;
        }
        done += put;
    }
    return true;
}

bool BufferedDescriptor::Flush()
{
    if (error != 0)
        return false;
    if (pendingBytes == 0)
        return true;
    const bool written = WriteDirect(buffer.As<char>(), pendingBytes, bufferStart);
    pendingBytes = 0;
    return written;
}

int64_t BufferedDescriptor::Write(const void* source, int64_t bytes)
{
    if (error != 0)
        return 0;
    readBytes = 0;  // what was read may be about to change
    const bool continues = pendingBytes > 0 && position == bufferStart + pendingBytes;
    const bool fits = pendingBytes + bytes <= static_cast<int64_t>(BUFFER_BYTES);
    if ((pendingBytes > 0 && !continues) || !fits)
    {
        if (!Flush())
            return 0;
    }
    const char* in = static_cast<const char*>(source);
    if (bytes >= static_cast<int64_t>(BUFFER_BYTES))
    {
        if (!WriteDirect(in, bytes, position))
            return 0;
    }
    else
    {
        if (pendingBytes == 0)
            bufferStart = position;
        std::memcpy(buffer.As<char>() + pendingBytes, in, static_cast<size_t>(bytes));
        pendingBytes += bytes;
    }
    position += bytes;
    return bytes;
}
