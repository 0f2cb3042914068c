#include "core/QVDllString.h"

#include <cstring>

void QVDllString::SetText(const char16_t* text, int32_t length)
{
    if (!m_target)
        return;
    if (length < 0)
    {
        *m_target = QVString(text);
        return;
    }
    *m_target = QVString(text, length);
}

void QVDllBuffer::SetData(const void* data, size_t size)
{
    if (!data)
        size = 0;
    m_bytes.resize(size);
    if (size > 0)
        std::memcpy(m_bytes.data(), data, size);
}

void* QVDllBuffer::Resize(size_t size)
{
    m_bytes.resize(size);
    return m_bytes.data();
}
