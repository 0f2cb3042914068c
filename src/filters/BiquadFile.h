// Second-order sections from a text file (filter kind 17): a "biquad1" header
// line followed by "b0=" ... "a2=" lines, up to "biquad10". This is the shape
// in which room-measurement programs export their correction filters.
#pragma once

#include "core/QVString.h"

#include <cstdint>

namespace BiquadFile
{
constexpr int32_t MaxSections = 10;

// Rows are a0, a1, a2, b0, b1, b2 (b the numerator). A value the text leaves
// out is 1.0. Returns the number of sections found: 0 when the text does not
// start with the header of section 1.
int32_t ParseText(const QVString& text, double (*rows)[6]);

// Reads the file, decoded by its byte-order mark, and parses it. A file that
// cannot be read counts as empty.
int32_t ReadFile(const QVString& path, double (*rows)[6]);
}  // namespace BiquadFile
