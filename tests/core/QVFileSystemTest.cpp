#include <gtest/gtest.h>

#include "QVStringPrint.h"
#include "core/QVFileSystem.h"
#include "core/QVPropertyMap.h"
#include "support/ScratchFolder.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

// A scratch folder that names its files in the file system's own strings.
struct TempFolder : qvtest::ScratchFolder
{
    QVString Name(const std::string& relative) const { return QVString::FromUTF8(File(relative)); }
};

}  // namespace

TEST(QVFileSystem, LongPathRule)
{
    const QVString drive259 = u"C:\\" + QVString(u'a', 256);
    ASSERT_EQ(drive259.GetLength(), 259);
    EXPECT_EQ(QVFileSystem::GetLongPath(drive259), drive259);
    const QVString drive260 = drive259 + u"b";
    EXPECT_EQ(QVFileSystem::GetLongPath(drive260), u"\\\\?\\" + drive260);
    // Already prefixed: unchanged.
    const QVString prefixed = u"\\\\?\\" + drive260;
    EXPECT_EQ(QVFileSystem::GetLongPath(prefixed), prefixed);

    // A network path loses its two backslashes for the UNC prefix.
    const QVString network = u"\\\\server\\share\\" + QVString(u'n', 300 - 15);
    ASSERT_EQ(network.GetLength(), 300);
    const QVString longNetwork = QVFileSystem::GetLongPath(network);
    EXPECT_EQ(longNetwork, u"\\\\?\\UNC\\" + network.Mid(2));
    EXPECT_EQ(longNetwork.GetLength(), 300 - 2 + 8);

    // POSIX paths have no such limit here.
    const QVString posix = u"/" + QVString(u'p', 400);
    EXPECT_EQ(QVFileSystem::GetLongPath(posix), posix);
}

TEST(QVFileSystem, FileSizeText)
{
    EXPECT_EQ(QVFileSystem::FormatFileSize(0), QVString(u"0 bytes"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(1023), QVString(u"1023 bytes"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(1024), QVString(u"1.0 KB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(1536), QVString(u"1.5 KB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(153600), QVString(u"150 KB"));
    // 99.95 KB rounds to one decimal; 100 KB and more have none.
    EXPECT_EQ(QVFileSystem::FormatFileSize(102348), QVString(u"99.9 KB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(102400), QVString(u"100 KB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(5 * 1048576 + 524288), QVString(u"5.5 MB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(int64_t{3} << 30), QVString(u"3.0 GB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(int64_t{1} << 40), QVString(u"1.0 TB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(int64_t{200} << 50), QVString(u"200 PB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(-1536), QVString(u"-1.5 KB"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(-12), QVString(u"-12 bytes"));
    EXPECT_EQ(QVFileSystem::FormatFileSize(INT64_MIN), QVString(u"-8192 PB"));
}

TEST(QVFileSystem, DirectoryTrees)
{
    TempFolder folder;
    const QVString deep = folder.Name("a/b/c/");
    EXPECT_TRUE(QVFileSystem::MakeDirectoryTree(deep));
    EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));
    EXPECT_TRUE(QVFileSystem::FileExists(deep, false));
    EXPECT_FALSE(QVFileSystem::FileExists(deep, true));
    // Existing: true, and nothing new.
    const auto before = fs::last_write_time(folder / "a/b");
    EXPECT_TRUE(QVFileSystem::MakeDirectoryTree(folder.Name("a/b")));
    EXPECT_EQ(fs::last_write_time(folder / "a/b"), before);

    // Relative names, URLs and drive letters are not this operation's
    // business: true, and nothing is made.
    const fs::path here = fs::current_path();
    fs::current_path(folder.Path());
    EXPECT_TRUE(QVFileSystem::MakeDirectoryTree(u"relative/name"));
    EXPECT_TRUE(QVFileSystem::MakeDirectoryTree(u"http://host/x"));
    EXPECT_TRUE(QVFileSystem::MakeDirectoryTree(u"C:\\Music"));
    EXPECT_FALSE(fs::exists(folder / "relative"));
    fs::current_path(here);
    EXPECT_FALSE(QVFileSystem::MakeDirectoryTree(u""));

    // A file in the way fails, and what was made stays.
    qvtest::WriteBytes(folder / "a/file", "x");
    EXPECT_FALSE(QVFileSystem::MakeDirectoryTree(folder.Name("a/file/d/e")));
    EXPECT_TRUE(fs::is_directory(folder / "a/b/c"));
}

TEST(QVFileSystem, ReplaceDeleteAndUniqueNames)
{
    TempFolder folder;
    const fs::path target = folder / "settings.txt";
    const fs::path fresh = folder / "settings.new";
    qvtest::WriteBytes(target, "old");
    qvtest::WriteBytes(fresh, "new");
    EXPECT_TRUE(
        QVFileSystem::SafeReplaceFile(folder.Name("settings.txt"), folder.Name("settings.new")));
    EXPECT_EQ(qvtest::ReadBytes(target), "new");
    EXPECT_FALSE(fs::exists(fresh));
    EXPECT_EQ(folder.Entries().size(), 1u);

    // No target yet: the new file takes the name.
    qvtest::WriteBytes(fresh, "first");
    EXPECT_TRUE(
        QVFileSystem::SafeReplaceFile(folder.Name("other.txt"), folder.Name("settings.new")));
    EXPECT_EQ(qvtest::ReadBytes(folder / "other.txt"), "first");
    // A missing new file fails and leaves the target.
    EXPECT_FALSE(QVFileSystem::SafeReplaceFile(folder.Name("other.txt"), folder.Name("missing")));
    EXPECT_EQ(qvtest::ReadBytes(folder / "other.txt"), "first");

    // The new file cannot take the name (another file system here, where a
    // rename cannot go): the target is as it was and the new file is gone.
    struct stat tmpInfo, shmInfo;
    if (stat("/dev/shm", &shmInfo) == 0 && stat(folder.Path().c_str(), &tmpInfo) == 0 &&
        shmInfo.st_dev != tmpInfo.st_dev)
    {
        const fs::path elsewhere = fs::path("/dev/shm") / ("qvdsp-" + std::to_string(::getpid()));
        qvtest::WriteBytes(elsewhere, "unplaceable");
        EXPECT_FALSE(QVFileSystem::SafeReplaceFile(folder.Name("settings.txt"),
                                                   QVString::FromUTF8(elsewhere.string())));
        EXPECT_EQ(qvtest::ReadBytes(target), "new");
        EXPECT_FALSE(fs::exists(elsewhere));
        EXPECT_EQ(folder.Entries().size(), 2u);
    }

    // Unique names count up ahead of the extension.
    EXPECT_EQ(QVFileSystem::MakeUniqueName(folder.Name("free.txt")), folder.Name("free.txt"));
    EXPECT_EQ(QVFileSystem::MakeUniqueName(folder.Name("settings.txt")),
              folder.Name("settings - 1.txt"));
    qvtest::WriteBytes(folder / "settings - 1.txt", "");
    EXPECT_EQ(QVFileSystem::MakeUniqueName(folder.Name("settings.txt")),
              folder.Name("settings - 2.txt"));
    fs::create_directories(folder / "d.ir");
    qvtest::WriteBytes(folder / "d.ir/noext", "");
    EXPECT_EQ(QVFileSystem::MakeUniqueName(folder.Name("d.ir/noext")),
              folder.Name("d.ir/noext - 1"));

    EXPECT_TRUE(QVFileSystem::DeleteFile(folder.Name("settings - 1.txt")));
    EXPECT_FALSE(fs::exists(folder / "settings - 1.txt"));
    EXPECT_FALSE(QVFileSystem::DeleteFile(folder.Name("settings - 1.txt")));
    EXPECT_FALSE(QVFileSystem::DeleteFile(u""));
}

TEST(QVFileSystem, FileNameText)
{
    // "&" is escaped in the text and comes back plain.
    QVPropertyMap items;
    items.SetString(u"PostExtensionData", u"track=3 <b>");
    items.SetInt(u"SampleRate", 48000);
    const QVString text = QVFileSystem::MakeFileNameText(u"/music/A & B.l16", &items);
    EXPECT_EQ(text, QVString(u"<XMLFN version=\"1.0\"><Item Name=\"Filename\">/music/A &amp; "
                             u"B.l16</Item><Item Name=\"PostExtensionData\">track=3 "
                             u"&lt;b&gt;</Item><Item Name=\"SampleRate\">48000</Item></XMLFN>"));
    QVString path;
    QVPropertyMap back;
    ASSERT_TRUE(QVFileSystem::ReadFileNameText(text, path, &back));
    EXPECT_EQ(path, QVString(u"/music/A & B.l16"));
    EXPECT_TRUE(back.IsEqual(items));
    EXPECT_EQ(QVFileSystem::GetPlainPath(text), QVString(u"/music/A & B.l16"));

    // Item names keep their case: "FileName" is an item of its own.
    QVPropertyMap cased;
    cased.SetString(u"FileName", u"other");
    ASSERT_TRUE(QVFileSystem::ReadFileNameText(QVFileSystem::MakeFileNameText(u"/x.wav", &cased),
                                               path, &back));
    EXPECT_EQ(path, QVString(u"/x.wav"));
    EXPECT_TRUE(back.IsEqual(cased));

    // Plain names and URLs stay as they are, both ways.
    EXPECT_EQ(QVFileSystem::MakeFileNameText(u"/a & b.wav"), QVString(u"/a & b.wav"));
    EXPECT_EQ(QVFileSystem::MakeFileNameText(u"http://host/a.wav?x&y", &items),
              QVString(u"http://host/a.wav?x&y"));
    ASSERT_TRUE(QVFileSystem::ReadFileNameText(u"/a &amp; b.wav", path, &back));
    EXPECT_EQ(path, QVString(u"/a &amp; b.wav"));
    EXPECT_EQ(back.GetCount(), 0);

    // Text that claims to be XMLFN and is not readable names no file.
    EXPECT_FALSE(QVFileSystem::ReadFileNameText(u"<XMLFN version=\"2.0\"><Item Name=\"Filename\">x"
                                                u"</Item></XMLFN>",
                                                path));
    EXPECT_TRUE(path.IsEmpty());
    EXPECT_FALSE(QVFileSystem::ReadFileNameText(u"<XMLFN version=\"1.0\"></XMLFN>", path));
}

TEST(QVFileSystem, DatesAndProgramFolders)
{
    QVFileTime date;
    date.year = 2024;
    date.month = 5;
    date.day = 1;
    EXPECT_EQ(QVFileSystem::FormatFileTime(date), QVString(u"2024-05-01"));
    const QVFileTime stamp = QVFileTime::FromUnixTime(1714568645);
    EXPECT_EQ(QVFileSystem::FormatFileTime(stamp), QVString(u"2024-05-01T13:04:05Z"));

    TempFolder folder;
    bool portable = true;
    const QVString plain = folder.Name("install");
    fs::create_directories(folder / "install");
    EXPECT_EQ(QVFileSystem::ResolveInstallPath(plain, portable), plain + u"/");
    EXPECT_FALSE(portable);
    qvtest::WriteBytes(folder / "install/Portable.dat", "");
    EXPECT_EQ(QVFileSystem::ResolveInstallPath(plain + u"/", portable), plain + u"/");
    EXPECT_TRUE(portable);
    EXPECT_TRUE(QVFileSystem::GetInstallPath().EndsWith(u"/"));

    // The temporary folder is made below $TMPDIR.
    const char* saved = std::getenv("TMPDIR");
    const std::string savedText = saved ? saved : "";
    setenv("TMPDIR", folder.Path().c_str(), 1);
    EXPECT_EQ(QVFileSystem::GetTempPath(), folder.Name("Quovan/Temp/"));
    EXPECT_TRUE(fs::is_directory(folder / "Quovan/Temp"));
    if (saved)
        setenv("TMPDIR", savedText.c_str(), 1);
    else
        unsetenv("TMPDIR");
    EXPECT_TRUE(QVFileSystem::GetUserDataPath(u"").EndsWith(u"/Quovan/Generic/"));
    EXPECT_TRUE(QVFileSystem::GetUserDataPath(u"Player").EndsWith(u"/Quovan/Player/"));
}
