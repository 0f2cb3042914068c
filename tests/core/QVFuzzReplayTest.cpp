// Replays the fuzz seeds, and every input a fuzz target once failed on, through
// the same checks the fuzz targets make, so that a fixed fault stays fixed in
// the ordinary test run. Failed inputs live in tests/core/fuzz-regressions/<target>/.
#include <gtest/gtest.h>

#include <cstdlib>

#include "../../fuzz/FuzzChecks.h"
#include "support/FuzzReplay.h"

namespace
{

// The core targets take their input as text.
int Replay(const std::string& target, void (*check)(const std::u16string&))
{
    return qvtest::ReplayKeptInputs(target, "tests/core/fuzz-regressions",
                                    [check](const std::vector<uint8_t>& bytes)
                                    { check(qvfuzz::FuzzText(bytes.data(), bytes.size())); });
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
