// How every file qvdsp writes reaches its name: the hidden name beside it,
// links, permissions, set-id bits, long names and signals, through the helper
// and through the real binary's writers.
#include "cli/host/ReplacingFile.h"
#include "cli/host/CliError.h"

#include "TestFiles.h"

#include <sndfile.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <fstream>
#include <thread>

using clitest::RunResult;
using clitest::ScratchFolder;

namespace
{

// The user root hands the runs to when a permission must be respected.
constexpr uid_t UNPRIVILEGED_USER = 65534;
constexpr size_t NAME_LIMIT = 255;

class ReplacingFileTest : public testing::Test
{
protected:
    void SetUp() override { setenv("QVDSP_SETTINGS", (scratch / "settings.json").c_str(), 1); }

    RunResult Run(const std::vector<std::string>& arguments, uid_t user = geteuid())
    {
        return clitest::RunQvdsp(arguments, scratch, user);
    }

    std::filesystem::path WriteInput(const std::string& name = "in.wav")
    {
        input = clitest::TestSignal(1000, 2, 0.9, 5);
        clitest::WriteWithLibsndfile(scratch / name, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 2,
                                     input);
        return scratch / name;
    }

    RunResult Process(const std::filesystem::path& output, uid_t user = geteuid())
    {
        return Run({"process", (scratch / "in.wav").string(), output.string()}, user);
    }

    // Everything in the folder but the settings the runs may leave.
    std::vector<std::string> Entries() const
    {
        std::vector<std::string> entries = scratch.Entries();
        std::erase(entries, "settings.json");
        return entries;
    }

    static mode_t ModeOf(const std::filesystem::path& path)
    {
        struct stat status
        {
        };
        EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
        return status.st_mode;
    }

    ScratchFolder scratch;
    std::vector<double> input;
};

bool IsValidUtf8(const std::string& text)
{
    for (size_t i = 0; i < text.size();)
    {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        const size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        if ((lead & 0xC0) == 0x80 || i + length > text.size())
            return false;
        for (size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(text[i + k]) & 0xC0) != 0x80)
                return false;
        i += length;
    }
    return true;
}

bool HasHiddenFileOf(const std::vector<std::string>& entries, const std::string& name)
{
    const std::string prefix = "." + name + ".";
    for (const std::string& entry : entries)
        if (entry.rfind(prefix, 0) == 0)
            return true;
    return false;
}

}  // namespace

TEST(ReplacingFileName, HiddenNameFitsWhateverTheTargetIsCalled)
{
    EXPECT_EQ(TemporaryNamePattern("out.wav", NAME_LIMIT), ".out.wav.XXXXXX");
    for (size_t length : {NAME_LIMIT - 8, NAME_LIMIT - 7, NAME_LIMIT})
    {
        const std::string name(length, 'a');
        const std::string pattern = TemporaryNamePattern(name, NAME_LIMIT);
        EXPECT_LE(pattern.size(), NAME_LIMIT) << length;
        EXPECT_EQ(pattern.substr(0, 2), ".a");
        EXPECT_EQ(pattern.substr(pattern.size() - 7), ".XXXXXX");
    }
    // Two-byte characters: the cut never splits one.
    std::string accented;
    while (accented.size() < NAME_LIMIT - 1)
        accented += "\xC3\xA9";
    const std::string pattern = TemporaryNamePattern(accented, NAME_LIMIT);
    EXPECT_LE(pattern.size(), NAME_LIMIT);
    EXPECT_TRUE(IsValidUtf8(pattern));
}

TEST_F(ReplacingFileTest, CommitReplacesAndDiscardLeavesNothing)
{
    const std::filesystem::path target = scratch / "note.txt";
    std::ofstream(target) << "old";
    {
        ReplacingFile file(target);
        file.Write("abandoned");
        EXPECT_TRUE(std::filesystem::exists(file.TemporaryPath()));
    }
    EXPECT_EQ(clitest::ReadBytes(target), "old");
    EXPECT_EQ(Entries(), std::vector<std::string>{"note.txt"});
    WriteReplacingFile(target, "new");
    EXPECT_EQ(clitest::ReadBytes(target), "new");
    EXPECT_EQ(Entries(), std::vector<std::string>{"note.txt"});

    // A loop of links names no file at all.
    std::filesystem::create_symlink("loop2", scratch / "loop1");
    std::filesystem::create_symlink("loop1", scratch / "loop2");
    try
    {
        WriteReplacingFile(scratch / "loop1", "x");
        ADD_FAILURE() << "a loop of links was written";
    }
    catch (const CliError& error)
    {
        EXPECT_NE(std::string(error.what()).find("loop1"), std::string::npos) << error.what();
    }
}

TEST_F(ReplacingFileTest, LongNamesAreWritten)
{
    WriteInput();
    for (size_t length : {248, 251, 255})
    {
        const std::string name = std::string(length - 4, 'n') + ".wav";
        RunResult result = Process(scratch / name);
        ASSERT_EQ(result.exitCode, 0) << length << ": " << result.err;
        EXPECT_EQ(clitest::ReadDoubles(scratch / name).size(), input.size());
        std::filesystem::remove(scratch / name);
    }
    const std::string list = std::string(NAME_LIMIT - 4, 'p') + ".txt";
    RunResult result = Run({"peq", "export", (scratch / list).string()});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(std::filesystem::is_regular_file(scratch / list));
}

TEST_F(ReplacingFileTest, LinksAreWrittenThroughAndNeverFollowedForTheHiddenFile)
{
    WriteInput();
    std::filesystem::create_directory(scratch / "real");
    std::ofstream(scratch / "real" / "target.wav") << "earlier";
    std::filesystem::create_symlink("real/target.wav", scratch / "link.wav");
    std::filesystem::create_symlink("link.wav", scratch / "link-to-link.wav");
    std::filesystem::create_symlink("real/new.wav", scratch / "dangling.wav");

    for (const char* name : {"link.wav", "link-to-link.wav", "dangling.wav"})
    {
        RunResult result = Process(scratch / name);
        ASSERT_EQ(result.exitCode, 0) << name << ": " << result.err;
        EXPECT_TRUE(std::filesystem::is_symlink(scratch / name)) << name;
        EXPECT_EQ(clitest::ReadDoubles(scratch / name).size(), input.size()) << name;
    }
    EXPECT_EQ(clitest::ReadDoubles(scratch / "real" / "new.wav").size(), input.size());
    EXPECT_EQ(Entries(), (std::vector<std::string>{"dangling.wav", "in.wav", "link-to-link.wav",
                                                   "link.wav", "real"}));

    // A link waiting where a fixed hidden name would be is left alone, and so
    // is the file it points at.
    std::ofstream(scratch / "victim.txt") << "precious";
    std::filesystem::create_symlink("victim.txt", scratch / "list.txt.part");
    std::filesystem::create_symlink("victim.txt", scratch / "plot.svg.part");
    RunResult result = Run({"peq", "export", (scratch / "list.txt").string()});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    result = Run({"peq", "response", "--points", "4", "--svg", (scratch / "plot.svg").string()});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(clitest::ReadBytes(scratch / "victim.txt"), "precious");
    EXPECT_FALSE(std::filesystem::is_symlink(scratch / "list.txt"));
    EXPECT_FALSE(std::filesystem::is_symlink(scratch / "plot.svg"));
    EXPECT_NE(clitest::ReadBytes(scratch / "plot.svg").find("<svg"), std::string::npos);
}

TEST_F(ReplacingFileTest, PermissionsDecideAsForACopyAndSetIdBitsAreDropped)
{
    WriteInput();
    // Set-id bits of the file replaced are not carried over; the rest is.
    for (mode_t mode : {04755, 02775, 06711})
    {
        const std::filesystem::path out = scratch / "setid.wav";
        std::ofstream(out) << "earlier";
        ASSERT_EQ(chmod(out.c_str(), mode), 0);
        RunResult result = Process(out);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(ModeOf(out) & 07777, mode & 0777) << std::oct << mode;
    }

    // A file the user may not write stays as it is, even in a folder the user
    // may write. Root may write anything, so a user without rights runs it.
    const bool root = geteuid() == 0;
    const uid_t user = root ? UNPRIVILEGED_USER : geteuid();
    ASSERT_EQ(chmod(scratch.Path().c_str(), 0777), 0);
    const std::filesystem::path readOnly = scratch / "read-only.wav";
    std::ofstream(readOnly) << "earlier";
    ASSERT_EQ(chmod(readOnly.c_str(), root ? 0644 : 0444), 0);
    RunResult result = Process(readOnly, user);
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_NE(result.err.find("read-only.wav"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find(std::strerror(EACCES)), std::string::npos) << result.err;
    EXPECT_EQ(clitest::ReadBytes(readOnly), "earlier");

    // Something that is not a plain file is never replaced by one.
    const std::filesystem::path pipe = scratch / "pipe.wav";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0666), 0);
    result = Process(pipe);
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("not a regular file"), std::string::npos) << result.err;
    EXPECT_TRUE(S_ISFIFO(ModeOf(pipe)));
    EXPECT_EQ(Entries(),
              (std::vector<std::string>{"in.wav", "pipe.wav", "read-only.wav", "setid.wav"}));
}

TEST_F(ReplacingFileTest, TerminatingSignalsRemoveTheHiddenFile)
{
    const std::filesystem::path fifo = scratch / "in.wav";
    const std::filesystem::path logs = scratch / "logs";
    std::filesystem::create_directory(logs);
    // 16-bit stereo that announces far more data than will ever come.
    const std::string header = clitest::PcmWavHeader(2, 44100, 16, 0x7FFF0000);
    const std::string silence(1 << 14, '\0');
    void (*previousPipe)(int) = std::signal(SIGPIPE, SIG_IGN);

    for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2,
                       SIGVTALRM, SIGPROF, SIGXCPU, SIGXFSZ})
    {
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        const pid_t child = fork();
        if (child == 0)
        {
            const int log = open((logs / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
            dup2(log, STDOUT_FILENO);
            dup2(log, STDERR_FILENO);
            const rlimit noCore{0, 0};
            setrlimit(RLIMIT_CORE, &noCore);
            // An ignored signal would stay ignored, and a shell ignores some
            // for what it starts in the background: the run gets the defaults.
            for (int reset : {SIGHUP, SIGINT, SIGQUIT, SIGPIPE, SIGALRM, SIGTERM, SIGUSR1, SIGUSR2,
                              SIGVTALRM, SIGPROF, SIGXCPU, SIGXFSZ})
                std::signal(reset, SIG_DFL);
            execl(clitest::QvdspPath(), clitest::QvdspPath(), "process", "--quiet", fifo.c_str(),
                  (scratch / "out.wav").c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        const int feed = open(fifo.c_str(), O_WRONLY);
        ASSERT_GE(feed, 0);
        ASSERT_EQ(write(feed, header.data(), header.size()), static_cast<ssize_t>(header.size()));
        fcntl(feed, F_SETFL, O_NONBLOCK);

        // Feed the run until it has made its hidden file, signal it, and feed
        // it on until it has gone, so that it is never stuck on its input.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        bool signalled = false;
        int status = 0;
        while (waitpid(child, &status, WNOHANG) == 0)
        {
            if (std::chrono::steady_clock::now() > deadline)
            {
                kill(child, SIGKILL);
                waitpid(child, &status, 0);
                ADD_FAILURE() << "signal " << signal << ": the run did not end";
                break;
            }
            if (!signalled && HasHiddenFileOf(Entries(), "out.wav"))
            {
                kill(child, signal);
                signalled = true;
            }
            if (write(feed, silence.data(), silence.size()) < 0)
                std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        close(feed);
        EXPECT_TRUE(signalled) << strsignal(signal);
        // Ctrl-C and a termination request that arrive during the run end it
        // as a failure between two blocks; the rest end it the way the
        // signal does.
        const bool failed = WIFEXITED(status) && WEXITSTATUS(status) == 1 &&
                            (signal == SIGINT || signal == SIGTERM);
        EXPECT_TRUE(failed || (WIFSIGNALED(status) && WTERMSIG(status) == signal))
            << strsignal(signal);
        std::filesystem::remove(fifo);
        EXPECT_EQ(Entries(), std::vector<std::string>{"logs"})
            << strsignal(signal) << ": " << clitest::ReadBytes(logs / "err");
    }
    std::signal(SIGPIPE, previousPipe);
}
