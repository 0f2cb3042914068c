// Reads the fixed-layout headers of the containers field by field from a
// byte buffer. The byte order lives here and nowhere else; a field that runs
// past the buffer reads as zero and marks the reader failed, so a short
// header can never be read beyond its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

class CFieldReader
{
public:
    CFieldReader(const uint8_t* data, size_t size, bool bigEndian)
        : data(data), size(size), bigEndian(bigEndian)
    {
    }

    bool Ok() const { return ok; }
    size_t GetOffset() const { return offset; }
    size_t GetRemaining() const { return offset < size ? size - offset : 0; }

    uint16_t U16() { return static_cast<uint16_t>(Unsigned(2)); }
    uint32_t U32() { return static_cast<uint32_t>(Unsigned(4)); }
    uint64_t U64() { return Unsigned(8); }
    int64_t I64() { return static_cast<int64_t>(Unsigned(8)); }
    double F64()
    {
        const uint64_t bits = Unsigned(8);
        double value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    // Copies bytes in file order (ids, GUIDs, text fields).
    void Bytes(void* destination, size_t count)
    {
        if (!Take(count))
        {
            std::memset(destination, 0, count);
            return;
        }
        std::memcpy(destination, data + offset - count, count);
    }
    void Skip(size_t count) { Take(count); }

    // Values of a buffer without a reader.
    static uint32_t U32At(const uint8_t* bytes, bool bigEndian)
    {
        return bigEndian ? (uint32_t{bytes[0]} << 24) | (uint32_t{bytes[1]} << 16) |
                               (uint32_t{bytes[2]} << 8) | bytes[3]
                         : (uint32_t{bytes[3]} << 24) | (uint32_t{bytes[2]} << 16) |
                               (uint32_t{bytes[1]} << 8) | bytes[0];
    }

private:
    bool Take(size_t count)
    {
        if (!ok || count > size - offset)
        {
            ok = false;
            return false;
        }
        offset += count;
        return true;
    }
    uint64_t Unsigned(size_t count)
    {
        if (!Take(count))
            return 0;
        const uint8_t* p = data + offset - count;
        uint64_t value = 0;
        for (size_t i = 0; i < count; ++i)
            value |= uint64_t{bigEndian ? p[i] : p[count - 1 - i]} << (8 * (count - 1 - i));
        return value;
    }

    const uint8_t* data;
    size_t size;
    size_t offset = 0;
    bool bigEndian;
    bool ok = true;
};
