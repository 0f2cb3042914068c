// qvdsp tag, run as a user runs it, on files tagged by python3-mutagen and
// on files written by libsndfile, which also reads the audio back.
#include "TestFiles.h"

#include <sndfile.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>

using clitest::RunQvdsp;
using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

std::filesystem::path Fixture(const std::string& name)
{
    const char* source = std::getenv("QVDSP_SOURCE_DIR");
    return std::filesystem::path(source != nullptr ? source : ".") /
           "tests/audiofile/tag-fixtures" / name;
}

}  // namespace

TEST(TagCommand, ListsGetsAndSetsInPlaceOrThroughACopy)
{
    ScratchFolder scratch;
    const auto file = scratch / "song.wav";
    std::filesystem::copy_file(Fixture("mutagen-v23.wav"), file);
    const std::vector<double> audio = clitest::ReadDoubles(file);
    ASSERT_FALSE(audio.empty());

    RunResult result = RunQvdsp({"tag", file.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out.rfind("ID3v2.3 Tag: (", 0), 0u) << result.out;
    EXPECT_NE(result.out.find("\n  TIT2: Title\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\nName: Title\n"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("\nTrack #: 2\n"), std::string::npos) << result.out;

    result = RunQvdsp({"tag", "--json", file.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const nlohmann::json listing = nlohmann::json::parse(result.out);
    EXPECT_EQ(listing["version"], 3);
    EXPECT_EQ(listing["fields"]["Genre"], "Rock");
    EXPECT_EQ(listing["canWrite"], true);

    result = RunQvdsp({"tag", "--get", "Artist", file.string()}, scratch);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "Artist\n");
    result = RunQvdsp({"tag", "--get", "Composer", file.string()}, scratch);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "");

    // Two small changes fit the padding: the tag is overwritten in place.
    const auto sizeBefore = std::filesystem::file_size(file);
    result = RunQvdsp({"tag", "--set", "Name=New name", "--set", "Composer=Someone", file.string()},
                      scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, file.string() + ": tag saved in place\n");
    EXPECT_EQ(std::filesystem::file_size(file), sizeBefore);
    EXPECT_EQ(RunQvdsp({"tag", "--get", "Composer", file.string()}, scratch).out, "Someone\n");
    // A name of its own is kept in a user text frame, and listed by it.
    result = RunQvdsp({"tag", "--set", "Studio Take=3", file.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(RunQvdsp({"tag", "--get", "Studio Take", file.string()}, scratch).out, "3\n");
    EXPECT_NE(RunQvdsp({"tag", file.string()}, scratch).out.find("\nStudio Take: 3\n"),
              std::string::npos);

    // A large change moves chunks: made on a copy, which leaves no trace.
    const std::string lyrics(6000, 'l');
    result = RunQvdsp({"tag", "--set", "Lyrics=" + lyrics, file.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(result.out, file.string() + ": tag saved\n");
    EXPECT_GT(std::filesystem::file_size(file), sizeBefore + 6000);
    EXPECT_EQ(RunQvdsp({"tag", "--get", "Lyrics", file.string()}, scratch).out, lyrics + "\n");
    EXPECT_EQ(RunQvdsp({"tag", "--get", "Name", file.string()}, scratch).out, "New name\n");
    EXPECT_EQ(clitest::ReadDoubles(file), audio);

    const auto picture = scratch / "cover.png";
    std::ofstream(picture, std::ios::binary) << "\x89PNG fake picture";
    result = RunQvdsp({"tag", "--image", picture.string(), file.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    result = RunQvdsp({"tag", "--get", "Image File", file.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0);
    EXPECT_EQ(clitest::ReadBytes(result.out.substr(0, result.out.size() - 1)),
              "\x89PNG fake picture");

    result = RunQvdsp({"tag", "--remove", file.string()}, scratch);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(RunQvdsp({"tag", "--get", "Name", file.string()}, scratch).exitCode, 1);
    EXPECT_EQ(clitest::ReadDoubles(file), audio);
    EXPECT_LT(std::filesystem::file_size(file), sizeBefore);
    // The copies were put in place or removed: only what the test made is left.
    const std::vector<std::string> expected = {"cover.png", "song.wav"};
    std::vector<std::string> left;
    for (const std::string& entry : scratch.Entries())
    {
        if (entry == "cover.png" || entry == "song.wav" ||
            entry.find(".qvdsp-tag") != std::string::npos)
            left.push_back(entry);
    }
    EXPECT_EQ(left, expected);
}

TEST(TagCommand, RefusalsAndBadUsageChangeNothing)
{
    ScratchFolder scratch;
    const auto w64 = scratch / "a.w64";
    clitest::WriteWithLibsndfile(w64, SF_FORMAT_W64 | SF_FORMAT_PCM_16, 44100, 2, {0.5, -0.5});
    const std::string before = clitest::ReadBytes(w64);
    RunResult result = RunQvdsp({"tag", "--set", "Name=x", w64.string()}, scratch);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "qvdsp: " + w64.string() +
                              ": cannot take tags: Wave64 files never get tags written; nothing "
                              "was changed\n");
    EXPECT_EQ(clitest::ReadBytes(w64), before);

    const auto wav = scratch / "a.wav";
    clitest::WriteWithLibsndfile(wav, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 2, {0.5, -0.5});
    const std::string wavBefore = clitest::ReadBytes(wav);
    for (const std::vector<std::string>& bad :
         {std::vector<std::string>{"tag"},
          {"tag", "--set", "NoEquals", wav.string()},
          {"tag", "--set", "=value", wav.string()},
          {"tag", "--remove", "--set", "Name=x", wav.string()},
          {"tag", "--get", "Name", "--set", "Name=x", wav.string()}})
    {
        result = RunQvdsp(bad, scratch);
        EXPECT_EQ(result.exitCode, 2) << result.err;
    }
    result = RunQvdsp({"tag", "--image", (scratch / "none.png").string(), wav.string()}, scratch);
    EXPECT_EQ(result.exitCode, 1);
    result = RunQvdsp({"tag", "--set", "Name=x", (scratch / "missing.wav").string()}, scratch);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("No such file or directory"), std::string::npos) << result.err;
    EXPECT_EQ(clitest::ReadBytes(wav), wavBefore);

    result = RunQvdsp({"tag", "--help"}, scratch);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_NE(result.out.find("--remove"), std::string::npos);
}
