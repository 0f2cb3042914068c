// The settings file under attack: several processes at once, links, files
// that are not what they seem, permissions and signals.
#include "host/SettingsFile.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/SettingsStore.h"
#include "support/ScratchFolder.h"
#include "support/TestTools.h"

namespace
{

namespace fs = std::filesystem;

class SettingsFileTest : public ::testing::Test
{
protected:
    // Runs body in a child process and answers its exit code.
    static int InChild(const std::function<bool()>& body)
    {
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(body() ? 0 : 1);
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    qvtest::ScratchFolder scratch;
    const std::string folder = scratch.Path().string();
    const std::string path = scratch.File("settings.json");
};

// Appends an item to the text value "List" of key K: read, change, write.
bool AppendToList(const std::string& file, const std::string& item)
{
    CSettingsTransaction transaction;
    CFileSettingsKey key(file, "K", false);
    const QVString list = QVReadSettingsString(key, u"List", u"", 0);
    const QVString grown =
        list.IsEmpty() ? QVString::FromUTF8(item) : list + u"," + QVString::FromUTF8(item);
    return key.WriteString(u"List", grown.c_str()) && transaction.Commit();
}

std::set<std::string> ListItems(const std::string& file)
{
    CFileSettingsKey key(file, "K", false);
    std::set<std::string> items;
    std::stringstream list(QVReadSettingsString(key, u"List", u"", 0).ToUTF8());
    for (std::string item; std::getline(list, item, ',');)
        items.insert(item);
    return items;
}

}  // namespace

TEST_F(SettingsFileTest, ATransactionReadsOnceSeesItsOwnWritesAndWritesOnceAtTheEnd)
{
    CFileSettingsKey key(path, "Zones\\1\\Equalizer", false);
    ASSERT_TRUE(key.WriteString(u"Preset", u"Rock"));
    const std::string before = qvtest::ReadBytes(path);
    {
        CSettingsTransaction transaction;
        EXPECT_EQ(QVReadSettingsString(key, u"Preset", u"", 0), QVString(u"Rock"));
        for (int i = 0; i < 9; ++i)
            ASSERT_TRUE(key.WriteInt(QVString::Format(u"Band %d", i).c_str(), i));
        EXPECT_TRUE(key.DeleteValue(u"Preset"));
        // Reads inside the transaction see its own changes ...
        EXPECT_EQ(key.ReadInt(u"Band 8", -1, 0), 8);
        EXPECT_EQ(key.GetValueType(u"Preset"), SETTINGS_TYPE_NONE);
        // ... while the file is still as it was.
        EXPECT_EQ(qvtest::ReadBytes(path), before);
        EXPECT_TRUE(transaction.Commit());
    }
    CFileSettingsKey again(path, "Zones\\1\\Equalizer", false);
    EXPECT_EQ(again.ReadInt(u"Band 0", -1, 0), 0);
    EXPECT_EQ(again.ReadInt(u"Band 8", -1, 0), 8);
    EXPECT_EQ(again.GetValueType(u"Preset"), SETTINGS_TYPE_NONE);
    EXPECT_EQ(scratch.Entries(), std::vector<std::string>{"settings.json"});
}

TEST_F(SettingsFileTest, AReadModifyWriteHoldsTheLockSoNoOtherWriterIsLost)
{
    ASSERT_TRUE(AppendToList(path, "first"));
    {
        CSettingsTransaction transaction;
        CFileSettingsKey key(path, "K", false);
        const QVString list = QVReadSettingsString(key, u"List", u"", 0);
        // Another writer appends while this one holds what it read; it must
        // wait for this transaction and then build on its result. (A thread:
        // a child forked now would inherit this transaction.)
        bool appended = false;
        std::thread other([&] { appended = AppendToList(path, "other"); });
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        ASSERT_TRUE(key.WriteString(u"List", (list + u",parent").c_str()));
        ASSERT_TRUE(transaction.Commit());
        other.join();
        EXPECT_TRUE(appended);
    }
    EXPECT_EQ(ListItems(path), (std::set<std::string>{"first", "parent", "other"}));
}

TEST_F(SettingsFileTest, WritersThroughALinkAndThroughTheRealPathShareOneLock)
{
    const std::string link = folder + "/link.json";
    fs::create_symlink("settings.json", link);
    constexpr int kWritersEach = 12;
    std::vector<pid_t> children;
    for (int i = 0; i < 2 * kWritersEach; ++i)
    {
        const std::string through = i % 2 == 0 ? link : path;
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(AppendToList(through, std::to_string(i)) ? 0 : 1);
        children.push_back(child);
    }
    for (pid_t child : children)
    {
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    EXPECT_EQ(ListItems(link).size(), static_cast<size_t>(2 * kWritersEach));
    EXPECT_TRUE(fs::is_symlink(link));
}

TEST_F(SettingsFileTest, ADanglingLinkIsWrittenThroughNotReplaced)
{
    const std::string link = folder + "/link.json";
    const std::string target = folder + "/made/later.json";
    fs::create_symlink("made/later.json", link);
    CFileSettingsKey key(link, "K", false);
    ASSERT_TRUE(key.WriteInt(u"x", 7));
    EXPECT_TRUE(fs::is_symlink(link));
    ASSERT_TRUE(fs::is_regular_file(target));
    EXPECT_EQ(CFileSettingsKey(target, "K", false).ReadInt(u"x", 0, 0), 7);
}

TEST_F(SettingsFileTest, DeepNestingIsABrokenFileNeverWrittenAndLeavesNothingBehind)
{
    // Deep enough to overflow any recursive writer's stack.
    const std::string deep =
        "{\"user\": {\"K\": {\"v\": " + std::string(100000, '[') + std::string(100000, ']') + "}}}";
    qvtest::WriteBytes(path, deep);
    qvtest::ScopedTestTools tools;
    CSettingsFile file(path);
    nlohmann::json document;
    std::string problem;
    EXPECT_FALSE(file.Read(document, &problem));
    EXPECT_NE(problem.find(path), std::string::npos) << problem;
    EXPECT_NE(problem.find("deeper"), std::string::npos) << problem;
    EXPECT_EQ(document, nlohmann::json::object());
    CFileSettingsKey key(path, "K", false);
    EXPECT_EQ(key.ReadInt(u"x", 5, 0), 5);
    EXPECT_FALSE(key.WriteInt(u"x", 1));
    EXPECT_EQ(qvtest::ReadBytes(path), deep);
    EXPECT_EQ(scratch.Entries(), std::vector<std::string>{"settings.json"});

    // A hand-written file nested a little less deep is read, and kept by writes.
    const int kept = CSettingsFile::kMaxNesting - 3;
    qvtest::WriteBytes(path, "{\"user\": {\"K\": {\"v\": " + std::string(kept, '[') +
                                 std::string(kept, ']') + "}}}");
    ASSERT_TRUE(key.WriteInt(u"x", 1));
    EXPECT_EQ(nlohmann::json::parse(qvtest::ReadBytes(path))["user"]["K"]["x"], 1);
}

TEST_F(SettingsFileTest, DevicesAndHugeFilesAreRefusedWithoutReadingThemWhole)
{
    qvtest::ScopedTestTools tools;
    nlohmann::json document;
    std::string problem;
    const auto started = std::chrono::steady_clock::now();
    EXPECT_FALSE(CSettingsFile("/dev/zero").Read(document, &problem));
    EXPECT_NE(problem.find("/dev/zero"), std::string::npos) << problem;
    EXPECT_FALSE(CFileSettingsKey("/dev/zero", "K", false).WriteInt(u"x", 1));

    // A sparse file just over the cap: refused by its size, not read.
    {
        const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, static_cast<off_t>(CSettingsFile::kMaxFileBytes + 1)), 0);
        ::close(fd);
    }
    EXPECT_FALSE(CSettingsFile(path).Read(document, &problem));
    EXPECT_NE(problem.find("larger"), std::string::npos) << problem;
    EXPECT_FALSE(CFileSettingsKey(path, "K", false).WriteInt(u"x", 1));
    EXPECT_EQ(fs::file_size(path), CSettingsFile::kMaxFileBytes + 1);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
}

TEST_F(SettingsFileTest, PermissionsOfTheFileAreRespectedAndSetIdBitsDropped)
{
    CFileSettingsKey key(path, "K", false);
    ASSERT_TRUE(key.WriteInt(u"x", 1));
    ASSERT_EQ(::chmod(path.c_str(), 06750), 0);
    ASSERT_TRUE(key.WriteInt(u"x", 2));
    struct stat info
    {
    };
    ASSERT_EQ(::stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0750u) << "rights kept, set-id bits dropped";

    // A read-only file is not replaced for a user who may not write it, even
    // where the folder would let him.
    ASSERT_EQ(::chmod(path.c_str(), 0444), 0);
    ASSERT_EQ(::chmod(folder.c_str(), 0777), 0);
    const std::string before = qvtest::ReadBytes(path);
    const int refused = InChild(
        [&]
        {
            constexpr uid_t kNobody = 65534;
            if (::geteuid() == 0 && (::setgid(kNobody) != 0 || ::setuid(kNobody) != 0))
                return false;
            qvtest::ScopedTestTools tools;
            const bool written = CFileSettingsKey(path, "K", false).WriteInt(u"x", 3);
            return !written && CSettingsFile::LastProblem().find("read-only") != std::string::npos;
        });
    EXPECT_EQ(refused, 0);
    EXPECT_EQ(qvtest::ReadBytes(path), before);
}

TEST_F(SettingsFileTest, SignalsDuringWritesLeaveNoTemporaryFile)
{
    // A large document makes each write take a while, so the signals land
    // inside writes as often as between them.
    {
        CSettingsTransaction transaction;
        CFileSettingsKey key(path, "Bulk", false);
        for (int i = 0; i < 20000; ++i)
            key.WriteString(QVString::Format(u"Value %d", i).c_str(), u"some text to write");
    }
    std::mt19937 random(20261125);
    for (int round = 0; round < 12; ++round)
    {
        const pid_t child = ::fork();
        if (child == 0)
        {
            // A shell ignores some signals for what it starts in the background.
            for (int reset : {SIGTERM, SIGINT, SIGHUP, SIGPIPE, SIGALRM, SIGUSR1})
                std::signal(reset, SIG_DFL);
            CFileSettingsKey key(path, "K", false);
            for (int i = 0;; ++i)
                key.WriteInt(u"x", i);
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 200));
        const int signals[] = {SIGTERM, SIGINT, SIGHUP, SIGPIPE, SIGALRM, SIGUSR1};
        ::kill(child, signals[round % 6]);
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(scratch.Entries(), std::vector<std::string>{"settings.json"})
            << "round " << round;
        nlohmann::json document;
        EXPECT_TRUE(CSettingsFile(path).Read(document)) << "round " << round;
    }
}
