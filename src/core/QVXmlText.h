#pragma once

// Small text helpers shared by the XML reader and writer.

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

namespace qvxml
{

inline bool IsSpace(char16_t c)
{
    return c == u' ' || c == u'\t' || c == u'\n' || c == u'\r';
}

// The start tag's length takes the low 22 bits and the end tag's the high 10.
// Longer tags are clamped: the text queries stay inside the element either way.
constexpr uint32_t kStartTagMask = (1u << 22) - 1;
constexpr uint32_t kEndTagMax = (1u << 10) - 1;

inline uint32_t PackTagLengths(uint32_t startTag, uint32_t endTag)
{
    return std::min(startTag, kStartTagMask) | (std::min(endTag, kEndTagMax) << 22);
}

inline uint32_t PackDepth(size_t depth)
{
    return static_cast<uint32_t>(std::min<size_t>(depth, 0xFFFF)) << 16;
}

inline std::u16string Number(uint64_t value)
{
    char16_t digits[24];
    size_t count = 0;
    do
    {
        digits[count++] = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    } while (value != 0);
    std::u16string result;
    while (count > 0)
        result.push_back(digits[--count]);
    return result;
}

inline std::u16string Message(std::initializer_list<std::u16string_view> parts)
{
    std::u16string result;
    for (std::u16string_view part : parts)
        result.append(part);
    return result;
}

}  // namespace qvxml
