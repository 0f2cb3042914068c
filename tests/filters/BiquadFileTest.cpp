#include "filters/BiquadFile.h"
#include "filters/IIRFilter.h"
#include "support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace
{
namespace fs = std::filesystem;

class BiquadFileTest : public ::testing::Test
{
protected:
    QVString Write(const std::string& name, const std::string& bytes)
    {
        qvtest::WriteBytes(folder / name, bytes);
        return QVString::FromUTF8((folder / name).string());
    }

    qvtest::ScratchFolder scratch;
    const fs::path& folder = scratch.Path();
};

int Parse(const char16_t* text, double (*rows)[6])
{
    return BiquadFile::ParseText(QVString(text), rows);
}

// Rows are a0, a1, a2, b0, b1, b2.
void ExpectRow(const double* row, std::initializer_list<double> values)
{
    int i = 0;
    for (double v : values)
        EXPECT_DOUBLE_EQ(row[i++], v) << "value " << i - 1;
}
}  // namespace

TEST(BiquadFileText, SectionsHeadersAndValues)
{
    double rows[10][6] = {};
    // Header in any case with anything behind it, values in any case, in any
    // order, with comma decimals, exponents and trailing commas.
    ASSERT_EQ(
        Parse(u"BiQuad1 peak at 1 kHz\nB0=1,5e-1,\na1=-1.25\nA2=+2.5E+1\nbiquad2\nb2=3", rows), 2);
    ExpectRow(rows[0], {1.0, -1.25, 25.0, 0.15, 1.0, 1.0});
    ExpectRow(rows[1], {1.0, 1.0, 1.0, 1.0, 1.0, 3.0});

    // A lone b0 leaves every other value at 1.0; the missing second header
    // ends the file after section 1.
    ASSERT_EQ(Parse(u"biquad1\r\nb0=0.5\r\nbiquad3\r\nb0=2\r\n", rows), 1);
    ExpectRow(rows[0], {1.0, 1.0, 1.0, 0.5, 1.0, 1.0});

    // Lone CR, lone LF and CR LF all end lines; a line that is no coefficient ends the section.
    ASSERT_EQ(Parse(u"biquad1\rb1=2\n\nbiquad2\r\nb1=4", rows), 1);
    EXPECT_EQ(rows[0][4], 2.0);
    ASSERT_EQ(Parse(u"biquad1\rb1=2\rbiquad2\r\nb1=4", rows), 2);
    EXPECT_EQ(rows[1][4], 4.0);

    // No header first, nothing at all, or a blank before the header: no sections.
    EXPECT_EQ(Parse(u"b0=1\nbiquad1\n", rows), 0);
    EXPECT_EQ(Parse(u"", rows), 0);
    EXPECT_EQ(Parse(u" biquad1\n", rows), 0);
    // A coefficient line needs its "=" right after the name.
    ASSERT_EQ(Parse(u"biquad1\nb0 = 3\n", rows), 1);
    EXPECT_EQ(rows[0][3], 1.0);

    // Ten sections at most.
    std::u16string eleven;
    for (int k = 1; k <= 11; ++k)
    {
        eleven += u"biquad";
        for (char c : std::to_string(k))
            eleven += static_cast<char16_t>(c);
        eleven += u"\nb0=1\n";
    }
    EXPECT_EQ(Parse(eleven.c_str(), rows), 10);
}

TEST_F(BiquadFileTest, MeasurementExportWithByteOrderMarkAndWindowsLineEnds)
{
    // The shape room-measurement programs export: a UTF-8 mark, CR LF, and a
    // comma behind every line, the feedback values with the usual signs. The
    // second section is written at twice the scale with its a0, which
    // normalises it back.
    CIIRFilter peak;
    ASSERT_TRUE(peak.Design(IIR_PEAKING, 48000.0, 1000.0, -4.0, 2.0, true, QVString()));
    std::string text = "\xEF\xBB\xBF";
    for (int k = 1; k <= 2; ++k)
    {
        const double* c = peak.coefficients;
        char section[300];
        std::snprintf(section, sizeof section,
                      "biquad%d,\r\nb0=%.17g,\r\nb1=%.17g,\r\nb2=%.17g,\r\na0=%d,\r\na1=%.17g,"
                      "\r\na2=%.17g,\r\n",
                      k, k * c[0], k * c[1], k * c[2], k, k * c[3], k * c[4]);
        text += section;
    }
    const QVString path = Write("Room EQ.txt", text);

    CIIRFilter f;
    ASSERT_TRUE(f.Design(IIR_CUSTOM_FILE, 48000.0, 1000.0, 0.0, 1.0, true, path));
    ASSERT_EQ(f.sectionCount, 2u);
    EXPECT_FALSE(f.analogPrototype);
    EXPECT_EQ(f.inputGain, 1.0);
    for (int i = 0; i < 10; ++i)
        EXPECT_NEAR(f.coefficients[i], peak.coefficients[i % 5], 1e-15) << i;

    // The name is compared without case: the same file in other letters keeps the state.
    f.Process(1.0);
    const CIIRFilter before = f;
    QVString upper = path;
    ASSERT_TRUE(f.Design(IIR_CUSTOM_FILE, 48000.0, 1000.0, 0.0, 1.0, true, upper.MakeUpper()));
    EXPECT_EQ(0, std::memcmp(before.state, f.state, sizeof f.state));
}

TEST_F(BiquadFileTest, UnreadableEmptyOrHeaderlessFilesGiveATransparentFilter)
{
    const QVString files[] = {QVString::FromUTF8((folder / "missing.txt").string()),
                              QVString::FromUTF8(folder.string()), Write("empty.txt", ""),
                              Write("notes.txt", "\xEF\xBB\xBF"
                                                 "filter settings\r\nbiquad1,\r\nb0=2,\r\n"),
                              QVString()};
    for (const QVString& file : files)
    {
        CIIRFilter f;
        EXPECT_TRUE(f.Design(IIR_CUSTOM_FILE, 48000.0, 1000.0, 0.0, 1.0, true, file))
            << file.ToUTF8();
        EXPECT_EQ(f.sectionCount, 0u);
        EXPECT_EQ(f.Process(0.3), 0.3);
    }
}
