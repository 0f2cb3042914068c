#include "filters/BiquadFile.h"

#include "core/QVFileSystem.h"

#include <string_view>
#include <vector>

namespace BiquadFile
{
namespace
{
// A biquad file is a few hundred bytes; only its beginning can matter, so a
// huge file chosen by mistake is not pulled into memory whole.
constexpr int64_t MaxFileBytes = 1 << 20;

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
    static constexpr std::u16string_view names[6] = {u"a0=", u"a1=", u"a2=",
                                                     u"b0=", u"b1=", u"b2="};
    for (int i = 0; i < 6; ++i)
        if (StartsWithNoCase(line, names[i]))
            return i;
    return -1;
}

}  // namespace

int32_t ParseText(const QVString& text, double (*rows)[6])
{
    const std::vector<std::u16string_view> lines = SplitLines(text.View());
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
            // The number ends at the line end at the latest: neither CR, LF
            // nor the final NUL belongs to a number.
            row[index] = QVString::ToDouble(lines[current].data() + 3);
        }
    }
    return sections;
}

int32_t ReadFile(const QVString& path, double (*rows)[6])
{
    if (path.IsEmpty())
        return 0;
    std::vector<uint8_t> bytes;
    QVFileSystem::ReadFileToBuffer(path, bytes, MaxFileBytes);
    return ParseText(QVDecodeText(bytes.data(), bytes.size()), rows);
}
}  // namespace BiquadFile
