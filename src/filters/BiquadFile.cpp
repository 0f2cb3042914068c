#include "filters/BiquadFile.h"

#include <fstream>
#include <string_view>
#include <vector>

namespace BiquadFile
{
namespace
{
// A biquad file is a few hundred bytes; only its beginning can matter, so a
// huge file name typed by mistake is not pulled into memory whole.
constexpr std::streamsize MaxFileBytes = 1 << 20;

enum RowIndex
{
    A0,
    A1,
    A2,
    B0,
    B1,
    B2
};

char16_t FoldAscii(char16_t c)
{
    return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c - u'A' + u'a') : c;
}

// True when `line` begins with `prefix`, an ASCII text in lower case,
// regardless of the case of the line.
bool StartsWithNoCase(std::u16string_view line, std::u16string_view prefix)
{
    if (line.size() < prefix.size())
        return false;
    for (size_t i = 0; i < prefix.size(); ++i)
        if (FoldAscii(line[i]) != prefix[i])
            return false;
    return true;
}

// CR LF, a lone CR and a lone LF all end a line.
std::vector<std::u16string_view> SplitLines(std::u16string_view text)
{
    std::vector<std::u16string_view> lines;
    size_t start = 0;
    for (size_t i = 0; i < text.size(); ++i)
    {
        if (text[i] != u'\r' && text[i] != u'\n')
            continue;
        lines.push_back(text.substr(start, i - start));
        if (text[i] == u'\r' && i + 1 < text.size() && text[i + 1] == u'\n')
            ++i;
        start = i + 1;
    }
    lines.push_back(text.substr(start));
    return lines;
}

std::u16string SectionHeader(int32_t section)
{
    std::u16string header = u"biquad";
    for (char c : std::to_string(section))
        header += static_cast<char16_t>(c);
    return header;
}

// Which value of the row a coefficient line sets, or -1.
int CoefficientIndex(std::u16string_view line)
{
    static constexpr std::u16string_view names[6] = {u"a0=", u"a1=", u"a2=", u"b0=", u"b1=", u"b2="};
    for (int i = 0; i < 6; ++i)
        if (StartsWithNoCase(line, names[i]))
            return i;
    return -1;
}

// TEMPORARY until QVString::ToDouble is merged.
double LenientNumber(std::u16string_view text)
{
    std::string narrow;
    for (char16_t c : text)
        narrow += c == u',' ? '.' : static_cast<char>(c);
    return std::strtod(narrow.c_str(), nullptr);
}
}  // namespace

int32_t ParseText(const std::u16string& text, double (*rows)[6])
{
    const std::vector<std::u16string_view> lines = SplitLines(text);
    size_t current = 0;
    int32_t sections = 0;
    for (int32_t k = 1; k <= MaxSections; ++k)
    {
        if (current >= lines.size() || !StartsWithNoCase(lines[current], SectionHeader(k)))
            break;
        double* row = rows[sections++];
        for (int i = 0; i < 6; ++i)
            row[i] = 1.0;
        for (++current; current < lines.size(); ++current)
        {
            const int index = CoefficientIndex(lines[current]);
            if (index < 0)
                break;
            row[index] = LenientNumber(lines[current].substr(3));
        }
    }
    return sections;
}

int32_t ReadFile(const std::u16string& path, double (*rows)[6])
{
    // TEMPORARY: ASCII path, UTF-8 only, until QVString and QVDecodeText are merged.
    std::string narrowPath(path.begin(), path.end());
    std::ifstream file(narrowPath, std::ios::binary);
    if (!file)
        return 0;
    std::vector<char> bytes(MaxFileBytes);
    file.read(bytes.data(), MaxFileBytes);
    bytes.resize(static_cast<size_t>(file.gcount()));
    std::u16string text;
    size_t start = bytes.size() >= 3 && bytes[0] == '\xEF' && bytes[1] == '\xBB' && bytes[2] == '\xBF' ? 3 : 0;
    for (size_t i = start; i < bytes.size(); ++i)
        text += static_cast<char16_t>(static_cast<unsigned char>(bytes[i]));
    return ParseText(text, rows);
}
}  // namespace BiquadFile
