// Replays the seeds of the audio fuzz targets, and every input they once
// failed on, through the same checks, so that a fixed fault stays fixed.
// Failed inputs live in tests/audiofile/fuzz-regressions/<target>/.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "../../fuzz/AudioFuzzChecks.h"
#include "../../fuzz/TagFuzzChecks.h"

namespace
{

std::vector<uint8_t> ReadFile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in),
                                std::istreambuf_iterator<char>());
}

int Replay(const std::string& target, const std::function<void(const std::vector<uint8_t>&)>& check)
{
    const char* source = std::getenv("QVDSP_SOURCE_DIR");
    if (source == nullptr)
        return -1;
    int count = 0;
    for (const std::filesystem::path& folder :
         {std::filesystem::path(source) / "fuzz/corpus" / target,
          std::filesystem::path(source) / "tests/audiofile/fuzz-regressions" / target})
    {
        if (!std::filesystem::is_directory(folder))
            continue;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
        {
            SCOPED_TRACE(entry.path().string());
            check(ReadFile(entry.path()));
            ++count;
        }
    }
    return count;
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
