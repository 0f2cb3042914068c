// The number rules of QVString. Text to number is locale-independent: every
// stored setting goes through it, and "." and "," are both decimal marks.
#include <cmath>
#include <cstdio>
#include <limits>

#include "core/QVString.h"

namespace
{

// Text written through a single-byte conversion keeps only the first byte
// (0xE2) of the typographic minus U+2212.
constexpr char16_t MANGLED_MINUS = 226;
// 10^18: the largest power of ten below 2^63 that a fraction's divisor reaches.
constexpr uint64_t MAX_DIVISOR = 1000000000000000000ull;
constexpr int32_t MAX_DECIMALS = 16;

constexpr uint64_t POWERS_OF_TEN[] = {1ull,
                                      10ull,
                                      100ull,
                                      1000ull,
                                      10000ull,
                                      100000ull,
                                      1000000ull,
                                      10000000ull,
                                      100000000ull,
                                      1000000000ull,
                                      10000000000ull,
                                      100000000000ull,
                                      1000000000000ull,
                                      10000000000000ull,
                                      100000000000000ull,
                                      1000000000000000ull,
                                      10000000000000000ull,
                                      100000000000000000ull,
                                      1000000000000000000ull};

bool IsBlank(char16_t c)
{
    return c == u' ' || c == u'\t';
}
bool IsDigit(char16_t c)
{
    return c >= u'0' && c <= u'9';
}
bool IsMark(char16_t c)
{
    return c == u'.' || c == u',';
}

// Skips blanks and plus signs, then reads one minus sign; true if negative.
bool ReadSign(const char16_t*& p)
{
    while (IsBlank(*p) || *p == u'+')
        ++p;
    if (*p == u'-' || *p == MANGLED_MINUS)
    {
        ++p;
        return true;
    }
    return false;
}

// One number by the rule; the exponent is read by the same rule. The sum is
// deliberately not correctly rounded: integer part + fraction / divisor.
double ParseNumber(const char16_t*& p)
{
    const bool negative = ReadSign(p);
    uint64_t integer = 0;
    int droppedIntegerDigits = 0;  // digits beyond 64 bits scale the value instead of wrapping
    uint64_t fraction = 0;
    uint64_t divisor = 1;
    bool inFraction = false;
    for (;; ++p)
    {
        if (IsDigit(*p))
        {
            const unsigned digit = static_cast<unsigned>(*p - u'0');
            if (inFraction)
            {
                // Digits past 18 places no longer change a double; they are read and dropped.
                if (divisor < MAX_DIVISOR)
                {
                    fraction = fraction * 10 + digit;
                    divisor *= 10;
                }
            }
            else if (droppedIntegerDigits == 0 &&
                     integer <= (std::numeric_limits<uint64_t>::max() - digit) / 10)
            {
                integer = integer * 10 + digit;
            }
            else
            {
                ++droppedIntegerDigits;
            }
        }
        else if (IsMark(*p) && !inFraction)
        {
            inFraction = true;
        }
        else
        {
            break;  // a second mark or any other character ends the number
        }
    }
    double value = static_cast<double>(integer);
    if (droppedIntegerDigits > 0)
        value *= std::pow(10.0, droppedIntegerDigits);
    else
        value += static_cast<double>(fraction) / static_cast<double>(divisor);
    if (*p == u'E' || *p == u'e')
    {
        ++p;
        const double exponent = std::trunc(ParseNumber(p));
        value *= std::pow(10.0, exponent);
    }
    return negative ? -value : value;
}

char16_t LocaleDecimalMark()
{
    static const char16_t mark = []
    {
        char text[16] = {};
        std::snprintf(text, sizeof(text), "%.1f", 1.1);
        return text[1] == ',' ? u',' : u'.';
    }();
    return mark;
}

void AppendDigits(QVString& out, uint64_t value, int32_t minDigits)
{
    char16_t digits[24];
    int count = 0;
    do
    {
        digits[count++] = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    } while (value != 0);
    for (int32_t pad = count; pad < minDigits; ++pad)
        out += u'0';
    while (count > 0)
        out += digits[--count];
}

// The integer part of a value at or above 2^63, which has no fraction.
void AppendHugeInteger(QVString& out, double value)
{
    char text[400];
    std::snprintf(text, sizeof(text), "%.0f", value);
    for (const char* c = text; *c; ++c)
        out += static_cast<char16_t>(*c);
}

}  // namespace

double QVString::ToDouble(const char16_t* text)
{
    if (!text || !*text)
        return 0.0;
    return ParseNumber(text);
}

int64_t QVString::ToInt(const char16_t* text)
{
    if (!text)
        return 0;
    const bool negative = ReadSign(text);
    uint64_t magnitude = 0;
    const uint64_t limit = negative ? static_cast<uint64_t>(std::numeric_limits<int64_t>::max()) + 1
                                    : static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    for (; IsDigit(*text); ++text)
    {
        magnitude = magnitude * 10 + static_cast<unsigned>(*text - u'0');
        if (magnitude >= limit)
        {
            magnitude = limit;  // saturate rather than wrap
            break;
        }
    }
    if (negative)
        return magnitude == limit ? std::numeric_limits<int64_t>::min()
                                  : -static_cast<int64_t>(magnitude);
    return static_cast<int64_t>(magnitude);
}

QVString QVString::FromInt(int64_t value, int32_t minDigits)
{
    QVString out;
    uint64_t magnitude = static_cast<uint64_t>(value);
    if (value < 0)
    {
        out += u'-';
        magnitude = 0 - magnitude;
    }
    AppendDigits(out, magnitude, minDigits);
    return out;
}

QVString QVString::FromUInt(uint64_t value, int32_t minDigits)
{
    QVString out;
    AppendDigits(out, value, minDigits);
    return out;
}

QVString QVString::FromDouble(double value, int32_t decimals, bool fixed, int32_t minIntegerDigits,
                              uint32_t flags)
{
    QVString out;
    if (std::isnan(value))
        return QVString(u"nan");
    if (value < 0)
    {
        out += u'-';
        value = -value;
    }
    else if ((flags & QVNUMBER_PLUS) && value > 0)
    {
        out += u'+';
    }
    if (std::isinf(value))
        return out += u"inf";
    if (value >= 9223372036854775808.0)
    {
        AppendHugeInteger(out, value);
        return out;
    }

    uint64_t integer = static_cast<uint64_t>(value);
    const double fraction = value - static_cast<double>(integer);
    if (fraction == 0.0 && (!fixed || decimals == -1))
    {
        AppendDigits(out, integer, minIntegerDigits);
        return out;
    }

    // Look at up to limit + 1 digits: as many as the fraction has, the one past
    // the limit only to round on.
    const int32_t limit = decimals < 0 || decimals > MAX_DECIMALS ? MAX_DECIMALS : decimals;
    int32_t digits = 0;
    double product = 0.0;
    while (digits < limit + 1)
    {
        ++digits;
        product = fraction * static_cast<double>(POWERS_OF_TEN[digits]);
        if (product == std::trunc(product))
            break;
    }
    uint64_t scaled = static_cast<uint64_t>(product);
    if (fixed)
        for (; digits < decimals && digits < MAX_DECIMALS; ++digits)
            scaled *= 10;
    if (digits > limit)
    {
        // Half up, on the truncated integer product.
        const uint64_t drop = POWERS_OF_TEN[digits - limit];
        scaled = (scaled + drop / 2) / drop;
        digits = limit;
        if (scaled >= POWERS_OF_TEN[digits])
        {
            scaled -= POWERS_OF_TEN[digits];
            ++integer;  // the carry moves away from zero: the sign is already written
        }
    }
    if (!fixed)
        for (; digits > 0 && scaled % 10 == 0; --digits)
            scaled /= 10;

    AppendDigits(out, integer, minIntegerDigits);
    if (digits > 0)
    {
        out += (flags & QVNUMBER_POINT) ? u'.' : LocaleDecimalMark();
        AppendDigits(out, scaled, digits);
    }
    return out;
}
