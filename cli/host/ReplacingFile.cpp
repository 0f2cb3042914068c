#include "cli/host/ReplacingFile.h"

#include "cli/host/CliError.h"
#include "cli/host/SoundFile.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <mutex>
#include <vector>

namespace
{

// The kernel gives up on a chain of links after 40 as well.
constexpr int MAX_LINK_HOPS = 40;
// NAME_MAX of the usual file systems, for a folder that does not say.
constexpr size_t DEFAULT_NAME_LIMIT = 255;
constexpr const char* TEMPORARY_SUFFIX = ".XXXXXX";

// Signals whose default action ends the process and that a handler can catch.
constexpr int TERMINATING_SIGNALS[] = {SIGHUP,  SIGINT,  SIGQUIT,   SIGPIPE, SIGALRM, SIGTERM,
                                       SIGUSR1, SIGUSR2, SIGVTALRM, SIGPROF, SIGXCPU, SIGXFSZ};

// Hidden files in the making, for the signal handler: a slot holds a pointer
// to the name while its ReplacingFile lives. Lock-free atomics are safe to
// read in a handler; one run of qvdsp writes one or two files at a time.
constexpr int PENDING_SLOTS = 16;
std::atomic<const char*> pendingNames[PENDING_SLOTS];
static_assert(std::atomic<const char*>::is_always_lock_free);

void RemovePendingFilesAndDie(int signal)
{
    for (std::atomic<const char*>& slot : pendingNames)
    {
        if (const char* name = slot.load())
            unlink(name);
    }
    // The default action then ends the process as the signal would have, so
    // that the caller sees how it ended.
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void InstallSignalCleanup()
{
    static std::once_flag installed;
    std::call_once(installed,
                   []
                   {
                       TerminatingSignalsHeld held;
                       for (int signal : TERMINATING_SIGNALS)
                       {
                           struct sigaction previous
                           {
                           };
                           sigaction(signal, nullptr, &previous);
                           // A signal the caller ignores (nohup) stays ignored.
                           if (previous.sa_handler != SIG_DFL)
                               continue;
                           struct sigaction action
                           {
                           };
                           action.sa_handler = RemovePendingFilesAndDie;
                           sigemptyset(&action.sa_mask);
                           for (int other : TERMINATING_SIGNALS)
                               sigaddset(&action.sa_mask, other);
                           action.sa_flags = SA_RESTART;
                           sigaction(signal, &action, nullptr);
                       }
                   });
}

int ClaimPendingSlot(const char* name)
{
    for (int i = 0; i < PENDING_SLOTS; ++i)
    {
        const char* expected = nullptr;
        if (pendingNames[i].compare_exchange_strong(expected, name))
            return i;
    }
    return -1;  // only the cleanup on a signal is lost
}

void ReleasePendingSlot(int& slot)
{
    if (slot >= 0)
        pendingNames[slot].store(nullptr);
    slot = -1;
}

// Makes the file from the pattern in `name` with the terminating signals held
// back until its name is known to the handler; -1 with errno on failure.
int CreateKnownFile(std::string& name, int& slot)
{
    int descriptor = -1;
    int error = 0;
    {
        TerminatingSignalsHeld held;
        descriptor = mkostemp(name.data(), O_CLOEXEC);
        error = errno;
        if (descriptor >= 0)
            slot = ClaimPendingSlot(name.c_str());
    }
    errno = error;
    return descriptor;
}

size_t NameLimitOf(const std::filesystem::path& folder)
{
    const long limit = pathconf(folder.c_str(), _PC_NAME_MAX);
    return limit > 0 ? static_cast<size_t>(limit) : DEFAULT_NAME_LIMIT;
}

// Permission bits for the new file: those of the file it replaces, or what
// the umask leaves of rw-rw-rw-, as if it had been created directly. Set-id
// bits are never carried over: the new content was never vetted for them.
mode_t NewFileMode(const struct stat* existing)
{
    if (existing)
        return existing->st_mode & 0777;
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

std::string TemporaryNamePattern(const std::string& name, size_t nameLimit)
{
    const size_t extra = 1 + std::strlen(TEMPORARY_SUFFIX);
    std::string kept = name;
    if (nameLimit > extra && kept.size() + extra > nameLimit)
    {
        size_t length = nameLimit - extra;
        // Cut before a continuation byte's lead, so the name stays valid UTF-8.
        while (length > 0 && (static_cast<unsigned char>(kept[length]) & 0xC0) == 0x80)
            --length;
        kept.resize(length);
    }
    return "." + kept + TEMPORARY_SUFFIX;
}

std::filesystem::path FollowLinks(const std::filesystem::path& path)
{
    std::filesystem::path current = path;
    for (int hop = 0;; ++hop)
    {
        struct stat status
        {
        };
        if (lstat(current.c_str(), &status) != 0 || !S_ISLNK(status.st_mode))
            return current;
        if (hop == MAX_LINK_HOPS)
            throw CliError(CLI_EXIT_FAILED,
                           "cannot write " + Quoted(path) + ": " + std::strerror(ELOOP));
        std::vector<char> buffer(
            static_cast<size_t>(status.st_size > 0 ? status.st_size : PATH_MAX) + 1);
        const ssize_t length = readlink(current.c_str(), buffer.data(), buffer.size());
        if (length < 0 || static_cast<size_t>(length) >= buffer.size())
            return current;  // changed under us: the rename below replaces the link
        const std::filesystem::path destination(std::string(buffer.data(), length));
        current = destination.is_absolute() ? destination : current.parent_path() / destination;
    }
}

// ---------------------------------------------------------------------------

ReplacingFile::ReplacingFile(const std::filesystem::path& target)
    : target(target), resolvedTarget(FollowLinks(target))
{
    struct stat existing
    {
    };
    const bool exists = stat(resolvedTarget.c_str(), &existing) == 0;
    if (exists && S_ISDIR(existing.st_mode))
        Fail("it is a folder");
    if (exists && !S_ISREG(existing.st_mode))
        Fail("it is not a regular file");
    // As a copy onto it would, the target's own permission decides, not just
    // the folder's: a read-only file stays read-only.
    if (exists && faccessat(AT_FDCWD, resolvedTarget.c_str(), W_OK, AT_EACCESS) != 0)
        Fail(std::strerror(errno));

    std::filesystem::path folder = resolvedTarget.parent_path();
    if (folder.empty())
        folder = ".";
    temporaryName =
        (folder / TemporaryNamePattern(resolvedTarget.filename().string(), NameLimitOf(folder)))
            .string();
    InstallSignalCleanup();
    // O_EXCL under the hood: a name that exists, a link included, is never
    // used. A signal in between would find the file made but not yet known.
    const int created = CreateKnownFile(temporaryName, pendingSlot);
    if (created < 0)
        Fail(std::strerror(errno));
    descriptor = created;
    temporaryPath = temporaryName;

    if (exists && (existing.st_uid != geteuid() || existing.st_gid != getegid()))
    {
        // Keep the owner where the system lets us (as root), else at least the
        // group; failing both, the file is ours, as a new file would be.
        if (fchown(descriptor, existing.st_uid, existing.st_gid) != 0 &&
            fchown(descriptor, static_cast<uid_t>(-1), existing.st_gid) != 0)
            errno = 0;
    }
    fchmod(descriptor, NewFileMode(exists ? &existing : nullptr));
}

ReplacingFile::~ReplacingFile()
{
    Discard();
}

void ReplacingFile::Fail(const std::string& reason)
{
    Discard();
    throw CliError(CLI_EXIT_FAILED, "cannot write " + Quoted(target) + ": " + reason);
}

void ReplacingFile::Write(std::string_view bytes)
{
    size_t written = 0;
    while (written < bytes.size())
    {
        const ssize_t count = ::write(descriptor, bytes.data() + written, bytes.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            Fail(std::strerror(errno));
        written += static_cast<size_t>(count);
    }
}

// What qvdsp writes is made from what the user keeps (a rendering of an audio
// file, a picture, an exported list). The rename shows it only when whole, and
// does not wait for the disk: with an fsync every run of a long file went at
// the disk's pace, not the processing's. What a crash of the system itself
// leaves is the file system's to answer, as for any program that makes files.
void ReplacingFile::Commit()
{
    const int closed = close(descriptor);
    descriptor = -1;
    if (closed != 0)
        Fail(std::strerror(errno));
    if (rename(temporaryName.c_str(), resolvedTarget.c_str()) != 0)
        Fail(std::strerror(errno));
    // Only now: a signal just before the rename still removes the hidden file.
    ReleasePendingSlot(pendingSlot);
    temporaryPath.clear();
}

void ReplacingFile::Discard()
{
    const int error = errno;  // Fail reports the reason after this
    if (descriptor >= 0)
        close(descriptor);
    descriptor = -1;
    if (!temporaryPath.empty())
        unlink(temporaryName.c_str());
    ReleasePendingSlot(pendingSlot);
    temporaryPath.clear();
    errno = error;
}

void WriteReplacingFile(const std::filesystem::path& target, std::string_view bytes)
{
    ReplacingFile file(target);
    file.Write(bytes);
    file.Commit();
}

TerminatingSignalsHeld::TerminatingSignalsHeld()
{
    sigset_t terminating;
    sigemptyset(&terminating);
    for (int signal : TERMINATING_SIGNALS)
        sigaddset(&terminating, signal);
    pthread_sigmask(SIG_BLOCK, &terminating, &previous);
}

TerminatingSignalsHeld::~TerminatingSignalsHeld()
{
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}
