// The generic byte stream through which the container readers see a file:
// a local file, or bytes in memory (tests, fuzzing, files already loaded).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class IQVFileStream
{
public:
    enum ESeekOrigin : int32_t
    {
        SEEK_FROM_START = 0,
        SEEK_FROM_HERE = 1,
    };

    virtual ~IQVFileStream() = default;
    virtual bool IsOpen() const = 0;
    // Bytes read, 0 at the end or on an error.
    virtual int64_t Read(void* buffer, int64_t bytes) = 0;
    virtual int64_t Write(const void* buffer, int64_t bytes) = 0;
    virtual int64_t GetSize() = 0;
    virtual int64_t GetPosition() = 0;
    virtual bool Seek(int64_t offset, int32_t origin) = 0;
    virtual bool Flush() = 0;
    virtual bool IsNonSeekable() const = 0;
    virtual bool IsWritable() const = 0;
    // Cuts or extends the file at the present position.
    virtual bool SetEnd() = 0;
};

// A local file through a POSIX descriptor.
class CLocalFileStream : public IQVFileStream
{
public:
    CLocalFileStream() = default;
    ~CLocalFileStream() override;
    CLocalFileStream(const CLocalFileStream&) = delete;
    CLocalFileStream& operator=(const CLocalFileStream&) = delete;

    // Opens for reading, or reading and writing. A folder is not a file.
    bool Open(const std::string& path, bool writable);
    void Close();

    bool IsOpen() const override { return descriptor >= 0; }
    int64_t Read(void* buffer, int64_t bytes) override;
    int64_t Write(const void* buffer, int64_t bytes) override;
    int64_t GetSize() override;
    int64_t GetPosition() override;
    bool Seek(int64_t offset, int32_t origin) override;
    bool Flush() override;
    bool IsNonSeekable() const override { return nonSeekable; }
    bool IsWritable() const override { return writable; }
    bool SetEnd() override;

private:
    int descriptor = -1;
    bool writable = false;
    bool nonSeekable = false;
};

// Bytes held in memory. As a non-seekable stream it only skips forward, as a
// pipe would, but still reports its size.
class CMemoryStream : public IQVFileStream
{
public:
    explicit CMemoryStream(std::vector<uint8_t> bytes, bool nonSeekable = false)
        : bytes(std::move(bytes)), nonSeekable(nonSeekable)
    {
    }
    CMemoryStream(const uint8_t* data, size_t size, bool nonSeekable = false)
        : bytes(data, data + size), nonSeekable(nonSeekable)
    {
    }

    bool IsOpen() const override { return true; }
    int64_t Read(void* buffer, int64_t count) override;
    int64_t Write(const void* buffer, int64_t count) override;
    int64_t GetSize() override { return static_cast<int64_t>(bytes.size()); }
    int64_t GetPosition() override { return position; }
    bool Seek(int64_t offset, int32_t origin) override;
    bool Flush() override { return true; }
    bool IsNonSeekable() const override { return nonSeekable; }
    bool IsWritable() const override { return true; }
    bool SetEnd() override;

    const std::vector<uint8_t>& GetBytes() const { return bytes; }

private:
    std::vector<uint8_t> bytes;
    int64_t position = 0;
    bool nonSeekable;
};
