#include "audiofile/FileStream.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

CLocalFileStream::~CLocalFileStream()
{
    Close();
}

bool CLocalFileStream::Open(const std::string& path, bool forWriting)
{
    Close();
    const int fd = ::open(path.c_str(), (forWriting ? O_RDWR : O_RDONLY) | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat info;
    if (fstat(fd, &info) != 0 || S_ISDIR(info.st_mode))
    {
        ::close(fd);
        return false;
    }
    descriptor = fd;
    writable = forWriting;
    nonSeekable = !S_ISREG(info.st_mode) && !S_ISBLK(info.st_mode);
    return true;
}

void CLocalFileStream::Close()
{
    if (descriptor >= 0)
        ::close(descriptor);
    descriptor = -1;
}

int64_t CLocalFileStream::Read(void* buffer, int64_t bytes)
{
    if (descriptor < 0 || bytes <= 0)
        return 0;
    // read() may return less than asked before the end (pipes, signals).
    int64_t done = 0;
    auto* out = static_cast<uint8_t*>(buffer);
    while (done < bytes)
    {
        const ssize_t got = ::read(descriptor, out + done, static_cast<size_t>(bytes - done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += got;
    }
    return done;
}

int64_t CLocalFileStream::Write(const void* buffer, int64_t bytes)
{
    if (descriptor < 0 || !writable || bytes <= 0)
        return 0;
    int64_t done = 0;
    const auto* in = static_cast<const uint8_t*>(buffer);
    while (done < bytes)
    {
        const ssize_t put = ::write(descriptor, in + done, static_cast<size_t>(bytes - done));
        if (put < 0 && errno == EINTR)
            continue;
        if (put <= 0)
            break;
        done += put;
    }
    return done;
}

int64_t CLocalFileStream::GetSize()
{
    struct stat info;
    if (descriptor < 0 || fstat(descriptor, &info) != 0)
        return -1;
    return static_cast<int64_t>(info.st_size);
}

int64_t CLocalFileStream::GetPosition()
{
    if (descriptor < 0)
        return -1;
    return static_cast<int64_t>(::lseek(descriptor, 0, SEEK_CUR));
}

bool CLocalFileStream::Seek(int64_t offset, int32_t origin)
{
    if (descriptor < 0)
        return false;
    const int whence = origin == SEEK_FROM_HERE ? SEEK_CUR : SEEK_SET;
    return ::lseek(descriptor, static_cast<off_t>(offset), whence) >= 0;
}

bool CLocalFileStream::Flush()
{
    return descriptor >= 0 && (!writable || ::fsync(descriptor) == 0);
}

bool CLocalFileStream::SetEnd()
{
    if (descriptor < 0 || !writable)
        return false;
    const off_t here = ::lseek(descriptor, 0, SEEK_CUR);
    return here >= 0 && ::ftruncate(descriptor, here) == 0;
}

int64_t CMemoryStream::Read(void* buffer, int64_t count)
{
    const int64_t size = static_cast<int64_t>(bytes.size());
    if (count <= 0 || position >= size)
        return 0;
    const int64_t n = std::min(count, size - position);
    std::memcpy(buffer, bytes.data() + position, static_cast<size_t>(n));
    position += n;
    return n;
}

int64_t CMemoryStream::Write(const void* buffer, int64_t count)
{
    if (count <= 0)
        return 0;
    const size_t end = static_cast<size_t>(position + count);
    if (end > bytes.size())
        bytes.resize(end);
    std::memcpy(bytes.data() + position, buffer, static_cast<size_t>(count));
    position += count;
    return count;
}

bool CMemoryStream::Seek(int64_t offset, int32_t origin)
{
    const int64_t target = origin == SEEK_FROM_HERE ? position + offset : offset;
    if (target < 0)
        return false;
    // A pipe can only skip forward.
    if (nonSeekable && target < position)
        return false;
    position = target;
    return true;
}

bool CMemoryStream::SetEnd()
{
    bytes.resize(static_cast<size_t>(position));
    return true;
}
