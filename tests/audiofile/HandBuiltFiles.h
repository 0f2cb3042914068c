// Byte-by-byte builders of container files for the tests of the readers'
// tolerances: what no well-behaved writer produces.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "audiofile/FileStream.h"

class CByteBuilder
{
public:
    explicit CByteBuilder(bool bigEndian = false) : bigEndian(bigEndian) {}

    CByteBuilder& Text(const char* text)
    {
        bytes.insert(bytes.end(), text, text + std::strlen(text));
        return *this;
    }
    CByteBuilder& Raw(std::initializer_list<uint8_t> values)
    {
        bytes.insert(bytes.end(), values);
        return *this;
    }
    CByteBuilder& Raw(const std::vector<uint8_t>& values)
    {
        bytes.insert(bytes.end(), values.begin(), values.end());
        return *this;
    }
    CByteBuilder& Zeros(size_t count)
    {
        bytes.insert(bytes.end(), count, 0);
        return *this;
    }
    CByteBuilder& U16(uint16_t value) { return Unsigned(value, 2); }
    CByteBuilder& U32(uint32_t value) { return Unsigned(value, 4); }
    CByteBuilder& U64(uint64_t value) { return Unsigned(value, 8); }
    CByteBuilder& F64(double value)
    {
        uint64_t bits;
        std::memcpy(&bits, &value, 8);
        return Unsigned(bits, 8);
    }
    // Overwrites a 32-bit value at `offset` (sizes known only at the end).
    void PatchU32(size_t offset, uint32_t value)
    {
        for (int i = 0; i < 4; ++i)
            bytes[offset + i] = static_cast<uint8_t>(value >> (bigEndian ? 24 - 8 * i : 8 * i));
    }
    size_t Size() const { return bytes.size(); }
    const std::vector<uint8_t>& Bytes() const { return bytes; }
    std::unique_ptr<IQVFileStream> Stream(bool nonSeekable = false) const
    {
        return std::make_unique<CMemoryStream>(bytes, nonSeekable);
    }

private:
    CByteBuilder& Unsigned(uint64_t value, int count)
    {
        for (int i = 0; i < count; ++i)
            bytes.push_back(
                static_cast<uint8_t>(value >> (bigEndian ? 8 * (count - 1 - i) : 8 * i)));
        return *this;
    }

    std::vector<uint8_t> bytes;
    bool bigEndian;
};

// A plain 16-byte "fmt " chunk body.
inline void AppendWaveFormat(CByteBuilder& file, uint16_t tag, uint16_t channels, uint32_t rate,
                             uint16_t bits)
{
    const uint16_t align = static_cast<uint16_t>(channels * bits / 8);
    file.Text("fmt ")
        .U32(16)
        .U16(tag)
        .U16(channels)
        .U32(rate)
        .U32(rate * align)
        .U16(align)
        .U16(bits);
}

// Sample bytes 0, 1, 2, ... of a given count.
inline std::vector<uint8_t> CountingBytes(size_t count)
{
    std::vector<uint8_t> bytes(count);
    for (size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 1);
    return bytes;
}
