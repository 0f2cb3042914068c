// Lets GoogleTest show a QVString as text in failure messages.
#pragma once

#include <ostream>

#include "core/QVString.h"

inline void PrintTo(const QVString& text, std::ostream* out)
{
    *out << '"' << text.ToUTF8() << '"';
}
