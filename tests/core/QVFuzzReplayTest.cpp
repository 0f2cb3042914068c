// Replays the fuzz seeds, and every input a fuzz target once failed on, through
// the same checks the fuzz targets make, so that a fixed fault stays fixed in
// the ordinary test run. Failed inputs live in tests/core/fuzz-regressions/<target>/.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "../../fuzz/FuzzChecks.h"

namespace
{

std::vector<uint8_t> ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}

// Runs check over every file of the target's seed and regression folders;
// answers how many there were.
int Replay(const std::string& target, const std::function<void(const std::u16string&)>& check)
{
    const char* source = std::getenv("QVDSP_SOURCE_DIR");
    if (source == nullptr)
        return -1;
    int count = 0;
    for (const std::filesystem::path& folder :
         {std::filesystem::path(source) / "fuzz/corpus" / target,
          std::filesystem::path(source) / "tests/core/fuzz-regressions" / target})
    {
        if (!std::filesystem::is_directory(folder))
            continue;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
        {
            const std::vector<uint8_t> bytes = ReadFile(entry.path());
            SCOPED_TRACE(entry.path().string());
            check(qvfuzz::FuzzText(bytes.data(), bytes.size()));
            ++count;
        }
    }
    return count;
}

}  // namespace

TEST(QVFuzzReplay, EveryKeptInputPassesItsChecks)
{
    ASSERT_NE(std::getenv("QVDSP_SOURCE_DIR"), nullptr)
        << "run through ctest, which names the source folder";
    EXPECT_GT(Replay("XmlReader", qvfuzz::CheckXmlReader), 0);
    EXPECT_GT(Replay("LoadXml", qvfuzz::CheckLoadXml), 0);
    EXPECT_GT(Replay("TokenReader", qvfuzz::CheckTokenReader), 0);
}

TEST(QVFuzzReplay, TextFromBytes)
{
    const uint8_t latin[] = {'<', 0, 0xE9};
    EXPECT_EQ(qvfuzz::FuzzText(latin, 3), std::u16string(u"<\uFFFD\u00E9"));
    const uint8_t wide[] = {0xFF, 0xFE, 0x3C, 0x00, 0x2D, 0x4E, 0x00, 0x00, 0x7F};
    EXPECT_EQ(qvfuzz::FuzzText(wide, sizeof wide), std::u16string(u"<\u4E2D\uFFFD"));
}
