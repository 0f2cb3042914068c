#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>

#include "QVStringPrint.h"
#include "core/QVString.h"

namespace
{

double Parse(const char16_t* text)
{
    return QVString::ToDouble(text);
}

}  // namespace

TEST(QVNumberTextTest, TextToDoubleFollowsTheRule)
{
    // After U+00E2 (the first byte of a typographic minus), the exponent of
    // "1e2.9" is truncated, a blank after the digits ends "1.5 e2", and only
    // one minus sign of "--1" is read.
    const std::pair<const char16_t*, double> numbers[] = {
        {u"+-1,5e2", -150.0}, {u"1.2.3", 1.2},   {u"1,2.3", 1.2},       {u"12abc", 12.0},
        {u"", 0.0},           {nullptr, 0.0},    {u"  ++ +3.25", 3.25}, {u"\u00E25,5", -5.5},
        {u"1.5e+2", 150.0},   {u"1e2.9", 100.0}, {u"5E-1", 0.5},        {u"1.5 e2", 1.5},
        {u"e5", 0.0},         {u".5", 0.5},      {u"7.", 7.0},          {u"--1", -0.0}};
    for (const auto& [text, value] : numbers)
        EXPECT_EQ(Parse(text), value) << (text ? QVString(text).ToUTF8() : "(null)");
    EXPECT_TRUE(std::signbit(Parse(u"-")));
    EXPECT_EQ(QVString(u"-0,75").ToDouble(), -0.75);
    // The sum is integer + fraction / divisor, then times 10^exponent, not a
    // correctly rounded conversion.
    EXPECT_EQ(Parse(u"2e-3"), 2.0 * std::pow(10.0, -3.0));
    EXPECT_EQ(Parse(u"3.14159265358979"), 3.0 + 14159265358979.0 / 1e14);
    // Digits far beyond what a double holds neither wrap nor crash.
    EXPECT_NEAR(Parse(u"123456789012345678901234") / 1.2345678901234568e23, 1.0, 1e-15);
    EXPECT_NEAR(Parse(u"0.1234567890123456789012345"), 0.12345678901234568, 1e-17);
}

TEST(QVNumberTextTest, DoubleToTextRoundsTheTruncatedProduct)
{
    EXPECT_EQ(QVString::FromDouble(1.5, 0, true), u"2");
    EXPECT_EQ(QVString::FromDouble(2.5, 0), u"3");
    EXPECT_EQ(QVString::FromDouble(1.25, 0), u"1");
    EXPECT_EQ(QVString::FromDouble(0.125, 2), u"0.13");
    // 1.005 is stored as 1.00499999..., so the product 4.9999... truncates to 4.
    EXPECT_EQ(QVString::FromDouble(1.005, 2), u"1");
    EXPECT_EQ(QVString::FromDouble(1.005, 2, true), u"1.00");
    // Rounding that overflows carries into the integer part, away from zero.
    EXPECT_EQ(QVString::FromDouble(0.999, 2, true), u"1.00");
    EXPECT_EQ(QVString::FromDouble(-0.999, 2, true), u"-1.00");
    EXPECT_EQ(QVString::FromDouble(9.96, 1), u"10");
    EXPECT_EQ(QVString::FromDouble(3.0, 2, true), u"3.00");
    EXPECT_EQ(QVString::FromDouble(3.0, -1, true), u"3");
    EXPECT_EQ(QVString::FromDouble(3.0), u"3");
    EXPECT_EQ(QVString::FromDouble(-7.0), u"-7");
    EXPECT_EQ(QVString::FromDouble(0.1), u"0.1");
    EXPECT_EQ(QVString::FromDouble(123.456, 3), u"123.456");
    // Without a limit the binary error of 123.456 shows: its fraction is 0.45600000000000307...
    EXPECT_EQ(QVString::FromDouble(123.456), u"123.4560000000000031");
    EXPECT_EQ(QVString::FromDouble(0.5, 3, true), u"0.500");
    EXPECT_EQ(QVString::FromDouble(0.05, 1, true), u"0.1");
    EXPECT_EQ(QVString::FromDouble(0.04, 1, true), u"0.0");
    EXPECT_EQ(QVString::FromDouble(1e20), u"100000000000000000000");
    EXPECT_EQ(QVString::FromDouble(2.5, -1, false, 0, QVNUMBER_PLUS), u"+2.5");
    EXPECT_EQ(QVString::FromDouble(-2.5, -1, false, 0, QVNUMBER_PLUS), u"-2.5");
    EXPECT_EQ(QVString::FromDouble(0.0, -1, false, 0, QVNUMBER_PLUS), u"0");
    EXPECT_EQ(QVString::FromDouble(2.5, -1, false, 0, QVNUMBER_POINT), u"2.5");
    EXPECT_EQ(QVString::FromDouble(2.5, 1, true, 3), u"002.5");
    // Sixteen decimals at most, the seventeenth only rounds.
    EXPECT_EQ(QVString::FromDouble(0.3), u"0.3");
    EXPECT_EQ(QVString::FromDouble(1.0 / 3.0), u"0.3333333333333333");
    // 2/3 times 10^16 is already a whole double, so no digit is left to round on.
    EXPECT_EQ(QVString::FromDouble(2.0 / 3.0, 30), u"0.6666666666666666");
    EXPECT_EQ(QVString::FromDouble(2.0 / 3.0, 15), u"0.666666666666667");
    EXPECT_EQ(QVString::FromDouble(std::numeric_limits<double>::infinity()), u"inf");
    EXPECT_EQ(QVString::FromDouble(std::nan("")), u"nan");
}

TEST(QVNumberTextTest, NumbersSurviveTheRoundTrip)
{
    // Neither direction is correctly rounded, so values that settings hold
    // come back within a couple of units in the last place, and binary
    // fractions come back exactly.
    for (int k = -200000; k <= 200000; k += 7)
    {
        const double value = k / 1000.0;
        const double back = QVString::FromDouble(value).ToDouble();
        ASSERT_LE(std::fabs(back - value), 2 * std::fabs(std::nextafter(value, 0.0) - value)) << k;
        const int magnitude = k < 0 ? -k : k;
        ASSERT_EQ(QVString::FromDouble(value, 3, true),
                  QVString::Format(u"%s%d.%03d",
                                   {k < 0 ? u"-" : u"", magnitude / 1000, magnitude % 1000}));
        const double quarter = k * 0.25;
        ASSERT_EQ(QVString::FromDouble(quarter).ToDouble(), quarter) << k;
        const double binary = k / 1024.0;
        ASSERT_EQ(QVString::FromDouble(binary).ToDouble(), binary) << k;
    }
    // Arbitrary doubles keep 16 decimals: close, not always bit-exact.
    std::mt19937_64 random(12345);
    std::uniform_real_distribution<double> spread(-1e6, 1e6);
    for (int i = 0; i < 20000; ++i)
    {
        const double value = spread(random);
        const double back = QVString::FromDouble(value).ToDouble();
        ASSERT_NEAR(back, value, std::fabs(value) * 4e-16 + 1e-16) << value;
    }
    // With fixed decimals the text itself round-trips.
    for (int k = -5000; k <= 5000; ++k)
    {
        const QVString text = QVString::FromDouble(k / 100.0, 2, true);
        ASSERT_EQ(QVString::FromDouble(text.ToDouble(), 2, true), text);
    }
}

TEST(QVNumberTextTest, IntegersToAndFromText)
{
    EXPECT_EQ(QVString::FromInt(0), u"0");
    EXPECT_EQ(QVString::FromInt(-42), u"-42");
    EXPECT_EQ(QVString::FromInt(7, 3), u"007");
    EXPECT_EQ(QVString::FromInt(std::numeric_limits<int64_t>::min()), u"-9223372036854775808");
    EXPECT_EQ(QVString::FromUInt(std::numeric_limits<uint64_t>::max()), u"18446744073709551615");
    EXPECT_EQ(QVString::ToInt(u"  +-17x"), -17);
    EXPECT_EQ(QVString::ToInt(u"12.9"), 12);
    EXPECT_EQ(QVString::ToInt(u""), 0);
    EXPECT_EQ(QVString::ToInt(u"99999999999999999999"), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(QVString::ToInt(u"-99999999999999999999"), std::numeric_limits<int64_t>::min());
    std::mt19937_64 random(99);
    for (int i = 0; i < 10000; ++i)
    {
        const auto value = static_cast<int64_t>(random());
        ASSERT_EQ(QVString::FromInt(value).ToInt(), value);
    }
}

TEST(QVNumberTextTest, FormatChecksItsArguments)
{
    EXPECT_EQ(QVString::Format(u"%s=%d", {u"gain", 5}), u"gain=5");
    EXPECT_EQ(QVString::Format(u"%s=%d", QVString(u"gain"), -5), u"gain=-5");
    EXPECT_EQ(QVString::Format(u"[%5.2f]", {3.14159}), u"[ 3.14]");
    EXPECT_EQ(QVString::Format(u"[%-4s|%4s]", {u"ab", u"cd"}), u"[ab  |  cd]");
    EXPECT_EQ(QVString::Format(u"%x %X %o %u", {255, 255u, 8, uint64_t{18446744073709551615ull}}),
              u"ff FF 10 18446744073709551615");
    EXPECT_EQ(QVString::Format(u"%08.3f|%+d|%%|%c", {-2.5, 3, char16_t(u'\x20AC')}),
              u"-002.500|+3|%|\x20AC");
    EXPECT_EQ(QVString::Format(u"%*d|%.*s", {5, 42, 2, u"abcdef"}), u"   42|ab");
    EXPECT_EQ(
        QVString::Format(u"%I64d %lld %ld %hs", {int64_t{1} << 40, 2, 3, "Gr\xC3\xBC\xC3\x9F"}),
        u"1099511627776 2 3 Gr\xFC\xDF");
    EXPECT_EQ(QVString::Format(u"%.1f %d", {3, 2.9}), u"3.0 2");  // numbers convert between kinds
    EXPECT_EQ(QVString::Format(u"%e", {12345.678}), u"1.234568e+04");
    EXPECT_EQ(QVString::Format(u"%g", {0.0001}), u"0.0001");
    EXPECT_EQ(QVString::Format(u"Hard killing thread (handle=%x), it exceeded timeout=%d MS",
                               {0x1f, 2000}),
              u"Hard killing thread (handle=1f), it exceeded timeout=2000 MS");

    QVString out;
    EXPECT_TRUE(QVString::TryFormat(out, u"%d", {1}));
    // A wrong kind or a missing argument is shown as written, never read blindly.
    EXPECT_FALSE(QVString::TryFormat(out, u"a%db", {u"text"}));
    EXPECT_EQ(out, u"a%db");
    EXPECT_FALSE(QVString::TryFormat(out, u"%s and %5.1f", {u"one"}));
    EXPECT_EQ(out, u"one and %5.1f");
    EXPECT_FALSE(QVString::TryFormat(out, u"%s", {7}));
    EXPECT_EQ(out, u"%s");
    EXPECT_FALSE(QVString::TryFormat(out, u"%n", {7}));
    EXPECT_FALSE(QVString::TryFormat(out, u"100%", {}));
    EXPECT_EQ(out, u"100%");
    EXPECT_EQ(QVString::Format(u"%d", {1, 2, 3}), u"1");  // extra arguments are ignored
}
