#include <gtest/gtest.h>

#include "audiofile/FileLoader.h"
#include "core/QVFileSystem.h"
#include "support/ScratchFolder.h"

#include <filesystem>
#include <fstream>
#include <thread>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

class LoaderFiles : public ::testing::Test
{
protected:
    void SetUp() override
    {
        bytes.resize(3000);
        for (size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<uint8_t>(i * 13);
        std::ofstream(folder / "data.bin", std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), 3000);
        name = QVString::FromUTF8((folder / "data.bin").string());
    }

    qvtest::ScratchFolder scratch;
    const fs::path& folder = scratch.Path();
    std::vector<uint8_t> bytes;
    QVString name;
};

// Loads again from inside its own local read, as a progress callback might.
class ReenteringLoader : public CFileLoader
{
public:
    bool innerResult = true;

protected:
    bool LoadLocal(const QVString& name, std::vector<uint8_t>& output) override
    {
        std::vector<uint8_t> inner;
        innerResult = Load(name, inner);
        return CFileLoader::LoadLocal(name, output);
    }
};

}  // namespace

TEST_F(LoaderFiles, OffsetsLimitsAndFailures)
{
    CFileLoader loader;
    std::vector<uint8_t> out;
    ASSERT_TRUE(loader.Load(name, out));
    EXPECT_EQ(out, bytes);

    loader.offset = 1000;
    loader.maximumSize = 500;
    ASSERT_TRUE(loader.Load(name, out));
    EXPECT_EQ(out, std::vector<uint8_t>(bytes.begin() + 1000, bytes.begin() + 1500));
    // An offset beyond the file leaves nothing to read; that is all of it.
    loader.offset = 5000;
    EXPECT_TRUE(loader.Load(name, out));
    EXPECT_TRUE(out.empty());
    // A maximum below 1 is no limit.
    loader.offset = 2990;
    loader.maximumSize = 0;
    ASSERT_TRUE(loader.Load(name, out));
    EXPECT_EQ(out.size(), 10u);

    // Failures leave the buffer empty: a missing file, a folder, a URL in a
    // build without the host's transfer object.
    out.assign(5, 1);
    EXPECT_FALSE(loader.Load(QVString::FromUTF8((folder / "missing").string()), out));
    EXPECT_TRUE(out.empty());
    out.assign(5, 1);
    EXPECT_FALSE(loader.Load(QVString::FromUTF8(folder.string()), out));
    EXPECT_TRUE(out.empty());
    out.assign(5, 1);
    EXPECT_FALSE(loader.Load(u"https://example.invalid/data.bin", out));
    EXPECT_TRUE(out.empty());
    EXPECT_FALSE(loader.IsBusy());
}

TEST_F(LoaderFiles, HeadersCancelAndReentry)
{
    CFileLoader loader;
    ASSERT_EQ(loader.GetHeaders().GetCount(), 1);
    EXPECT_EQ(loader.GetHeaders()[0], QVString(u"Accept-Encoding: gzip"));
    QVStringArray lines;
    lines.Add(QVString(u"User-Agent: test"));
    lines.Add(QVString(u""));
    lines.Add(QVString(u"User-Agent: test"));
    lines.Add(QVString(u"Accept-Encoding: gzip"));
    loader.SetHeaders(lines);
    ASSERT_EQ(loader.GetHeaders().GetCount(), 2);
    EXPECT_EQ(loader.GetHeaders()[0], QVString(u"User-Agent: test"));
    EXPECT_EQ(loader.GetProgressTitle(u"ftp://x/y"), QVString(u"Internet resource"));
    EXPECT_EQ(loader.GetProgressTitle(name), QVString(u"Local resource"));

    // A second load while one runs is refused; the first goes on.
    ReenteringLoader reentering;
    std::vector<uint8_t> out;
    EXPECT_TRUE(reentering.Load(name, out));
    EXPECT_FALSE(reentering.innerResult);
    EXPECT_EQ(out, bytes);

    // A cancel from another thread: this and every later load fail at once.
    std::thread other([&loader] { loader.Cancel(); });
    other.join();
    EXPECT_TRUE(loader.IsCancelled());
    out.assign(3, 0);
    EXPECT_FALSE(loader.Load(name, out));
    EXPECT_EQ(out.size(), 3u);  // refused before anything was touched

    // The core library's reads stand on the loader.
    std::vector<uint8_t> buffer;
    ASSERT_TRUE(QVFileSystem::ReadFileToBuffer(name, buffer, 100));
    EXPECT_EQ(buffer, std::vector<uint8_t>(bytes.begin(), bytes.begin() + 100));
    std::ofstream(folder / "text.txt", std::ios::binary) << "\xEF\xBB\xBFna\xC3\xAFve";
    QVString text;
    ASSERT_TRUE(
        QVFileSystem::ReadTextFile(QVString::FromUTF8((folder / "text.txt").string()), text));
    EXPECT_EQ(text, QVString(u"na\u00EFve"));
    EXPECT_FALSE(QVFileSystem::ReadTextFile(u"/nonexistent/x.txt", text));
    EXPECT_TRUE(text.IsEmpty());
}
