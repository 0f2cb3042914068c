// Replays the seeds of the audio fuzz targets, and every input they once
// failed on, through the same checks, so that a fixed fault stays fixed.
// Failed inputs live in tests/audiofile/fuzz-regressions/<target>/.
#include <gtest/gtest.h>

#include <cstdlib>

#include "../../fuzz/AudioFuzzChecks.h"
#include "../../fuzz/TagFuzzChecks.h"
#include "support/FuzzReplay.h"

namespace
{

int Replay(const std::string& target, const std::function<void(const std::vector<uint8_t>&)>& check)
{
    return qvtest::ReplayKeptInputs(target, "tests/audiofile/fuzz-regressions", check);
}

}  // namespace

TEST(AudioFuzzReplay, EveryKeptInputPassesItsChecks)
{
    ASSERT_NE(std::getenv("QVDSP_SOURCE_DIR"), nullptr)
        << "run through ctest, which names the source folder";
    EXPECT_GT(Replay("AudioReaders", [](const std::vector<uint8_t>& bytes)
                     { qvfuzz::CheckAudioReaders(bytes.data(), bytes.size()); }),
              0);
    EXPECT_GT(Replay("FileName", [](const std::vector<uint8_t>& bytes)
                     { qvfuzz::CheckFileName(qvfuzz::FuzzText(bytes.data(), bytes.size())); }),
              0);
    EXPECT_GT(Replay("ID3v2Tag", [](const std::vector<uint8_t>& bytes)
                     { qvfuzz::CheckID3v2Tag(bytes.data(), bytes.size()); }),
              0);
    EXPECT_GT(Replay("TagWriting", [](const std::vector<uint8_t>& bytes)
                     { qvfuzz::CheckTagWriting(bytes.data(), bytes.size()); }),
              0);
}
