// Carriers of a string or a byte buffer across the module border. The host
// reaches them only through the virtual operations, so neither side depends
// on the other's allocator or string manager.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "core/QVString.h"

class IQVDllString
{
public:
    virtual void SetText(const char16_t* text, int32_t length) = 0;  // length -1: up to the NUL
    virtual const char16_t* GetText() const = 0;
    virtual int32_t GetLength() const = 0;

protected:
    ~IQVDllString() = default;
};

class IQVDllBuffer
{
public:
    virtual void SetData(const void* data, size_t size) = 0;
    virtual const void* GetData() const = 0;
    virtual size_t GetSize() const = 0;
    // Room for `size` bytes that the other side fills in place.
    virtual void* Resize(size_t size) = 0;

protected:
    ~IQVDllBuffer() = default;
};

// Writes into a QVString of the calling side. The characters are copied into
// this module's buffers, never shared with the other side's.
class QVDllString final : public IQVDllString
{
public:
    explicit QVDllString(QVString* target) : m_target(target) {}
    void SetText(const char16_t* text, int32_t length) override;
    const char16_t* GetText() const override { return m_target ? m_target->c_str() : u""; }
    int32_t GetLength() const override { return m_target ? m_target->GetLength() : 0; }

private:
    QVString* m_target;
};

class QVDllBuffer final : public IQVDllBuffer
{
public:
    QVDllBuffer() = default;
    void SetData(const void* data, size_t size) override;
    const void* GetData() const override { return m_bytes.data(); }
    size_t GetSize() const override { return m_bytes.size(); }
    void* Resize(size_t size) override;

    const std::vector<uint8_t>& GetBytes() const { return m_bytes; }

private:
    std::vector<uint8_t> m_bytes;
};
