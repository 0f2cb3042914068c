#include "host/SettingsFile.h"

#include "frame/IQVTools.h"
#include "frame/SettingsTransaction.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

using nlohmann::json;

// Links followed before a chain counts as a loop, as the kernel does.
constexpr int kMaxLinkHops = 40;
constexpr mode_t kNewFileMode = 0644;

// Process-wide rather than per thread: a thread-local string would keep the
// module from being unloaded. Only messages to the user read it.
std::mutex lastProblemLock;
std::string lastProblem;

void SetLastProblem(const std::string& problem)
{
    std::lock_guard<std::mutex> guard(lastProblemLock);
    lastProblem = problem;
}

void Fail(const char16_t* heading, const std::string& problem)
{
    SetLastProblem(problem);
    ReportSettingsProblem(heading, problem);
}

std::string ErrnoText(int error)
{
    return std::strerror(error);
}

std::string ParentFolder(const std::string& path)
{
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    if (slash == 0)
        return "/";
    return path.substr(0, slash);
}

std::string LeafName(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

bool FolderExists(const std::string& folder)
{
    struct stat info
    {
    };
    return ::stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

bool MakeFolders(const std::string& folder)
{
    struct stat info
    {
    };
    if (folder.empty())
        return true;
    if (::stat(folder.c_str(), &info) == 0)
    {
        errno = ENOTDIR;
        return S_ISDIR(info.st_mode);
    }
    if (!MakeFolders(ParentFolder(folder)))
        return false;
    return ::mkdir(folder.c_str(), 0755) == 0 || errno == EEXIST;
}

// The file a path finally names, following links even when the last one
// dangles: writers through a link and through the real path must lock and
// replace the same file, and a dangling link is written through, not cut.
std::string ResolveLinks(std::string path)
{
    for (int hop = 0; hop < kMaxLinkHops; ++hop)
    {
        struct stat info
        {
        };
        if (::lstat(path.c_str(), &info) != 0 || !S_ISLNK(info.st_mode))
            return path;
        std::string target(PATH_MAX, '\0');
        const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
        if (length <= 0)
            return path;
        target.resize(static_cast<size_t>(length));
        path = target.front() == '/' ? target : ParentFolder(path) + "/" + target;
    }
    return path;  // a loop: opening it reports one
}

// One spelling per file, so that one transaction never locks a file twice
// (which would wait for itself) when two paths reach it through linked folders.
std::string CanonicalName(const std::string& target)
{
    char* folder = ::realpath(ParentFolder(target).c_str(), nullptr);
    if (folder == nullptr)
        return target;
    std::string name = std::string(folder) + "/" + LeafName(target);
    std::free(folder);
    return name;
}

// Reads at most limit + 1 bytes, so that an over-long file is seen as such
// without reading all of it.
bool ReadLimited(int fd, size_t limit, std::string& text)
{
    char buffer[65536];
    while (text.size() <= limit)
    {
        const ssize_t got = ::read(fd, buffer, sizeof buffer);
        if (got == 0)
            return true;
        if (got < 0)
        {
            if (errno == EINTR)
                continue;
            return false;
        }
        text.append(buffer, static_cast<size_t>(got));
    }
    return true;
}

bool WriteAll(int fd, const std::string& text)
{
    size_t done = 0;
    while (done < text.size())
    {
        const ssize_t put = ::write(fd, text.data() + done, text.size() - done);
        if (put < 0)
        {
            if (errno == EINTR)
                continue;
            return false;
        }
        done += static_cast<size_t>(put);
    }
    return true;
}

// Whether arrays and objects nest deeper than limit, judged from the text
// before any parser or serializer recurses into it.
bool NestsDeeperThan(const std::string& text, int limit)
{
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i)
    {
        const char c = text[i];
        if (inString)
        {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
            continue;
        }
        if (c == '"')
            inString = true;
        else if (c == '[' || c == '{')
        {
            if (++depth > limit)
                return true;
        }
        else if (c == ']' || c == '}')
            --depth;
    }
    return false;
}

enum class ELoad
{
    Loaded,
    Missing,
    Failed
};

ELoad LoadDocument(const std::string& path, json& document, std::string& problem)
{
    document = json::object();
    // Non-blocking, so that a named pipe given as the file cannot hang the open.
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0)
    {
        if (errno == ENOENT)
            return ELoad::Missing;
        problem = "cannot open " + path + ": " + ErrnoText(errno);
        return ELoad::Failed;
    }
    struct stat info
    {
    };
    std::string text;
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
        problem = "settings file " + path + " is not a regular file";
    else if (static_cast<uint64_t>(info.st_size) > CSettingsFile::kMaxFileBytes)
        problem = "settings file " + path + " is larger than 256 MiB";
    else if (!ReadLimited(fd, CSettingsFile::kMaxFileBytes, text))
        problem = "cannot read " + path + ": " + ErrnoText(errno);
    else if (text.size() > CSettingsFile::kMaxFileBytes)
        problem = "settings file " + path + " is larger than 256 MiB";
    ::close(fd);
    if (!problem.empty())
        return ELoad::Failed;
    if (NestsDeeperThan(text, CSettingsFile::kMaxNesting))
    {
        problem = "settings file " + path + " nests values deeper than " +
                  std::to_string(CSettingsFile::kMaxNesting) + " levels";
        return ELoad::Failed;
    }
    json parsed = json::parse(text, nullptr, false);
    if (parsed.is_discarded())
    {
        problem = "settings file " + path + " cannot be parsed";
        return ELoad::Failed;
    }
    if (!CSettingsFile::IsSettingsDocument(parsed))
    {
        problem = "settings file " + path + " is not a settings document";
        return ELoad::Failed;
    }
    document = std::move(parsed);
    return ELoad::Loaded;
}

// Holds the advisory lock of the folder that holds the settings file, for one
// transaction. The folder, not a lock file beside the settings file: it
// exists before the first write, and taking it leaves nothing behind in the
// user's folder, also when it is read-only.
class CFolderLock
{
public:
    CFolderLock() = default;
    ~CFolderLock()
    {
        if (fd >= 0)
            ::close(fd);  // closing releases the lock
    }
    CFolderLock(const CFolderLock&) = delete;
    CFolderLock& operator=(const CFolderLock&) = delete;

    bool Acquire(const std::string& folder, std::string& problem)
    {
        fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd >= 0)
        {
            while (::flock(fd, LOCK_EX) != 0)
            {
                if (errno != EINTR)
                {
                    ::close(fd);
                    fd = -1;
                    break;
                }
            }
        }
        if (fd < 0)
            problem = "cannot lock the folder " + folder + ": " + ErrnoText(errno);
        return fd >= 0;
    }
    bool IsHeld() const { return fd >= 0; }

private:
    int fd = -1;
};

// Keeps the signals that end a process by default away while a temporary
// file exists, so that none is left behind: they arrive once it is renamed
// or removed. Nothing can keep SIGKILL away.
class CTerminationDeferred
{
public:
    CTerminationDeferred()
    {
        sigset_t deferred;
        sigemptyset(&deferred);
        for (int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2,
                           SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF})
            sigaddset(&deferred, signal);
        pthread_sigmask(SIG_BLOCK, &deferred, &previous);
    }
    ~CTerminationDeferred() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    CTerminationDeferred(const CTerminationDeferred&) = delete;
    CTerminationDeferred& operator=(const CTerminationDeferred&) = delete;

private:
    sigset_t previous;
};

// The mode of the replacement: that of the file replaced, as far as its
// owner's read and write rights go; never a set-id bit.
mode_t ReplacementMode(const struct stat& existing)
{
    return existing.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
}

bool IsWritableTarget(const std::string& target, mode_t& mode, std::string& problem)
{
    struct stat existing
    {
    };
    mode = kNewFileMode;
    if (::stat(target.c_str(), &existing) != 0)
        return true;  // a new file
    if (!S_ISREG(existing.st_mode))
    {
        problem = "settings file " + target + " is not a regular file";
        return false;
    }
    // As cp would: a file its user may not write is not replaced behind his back.
    if (::faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0 && errno == EACCES)
    {
        problem = "settings file " + target + " is read-only; the change is not saved";
        return false;
    }
    mode = ReplacementMode(existing);
    return true;
}

bool WriteReplacing(const std::string& target, const json& document, std::string& problem)
{
    mode_t mode = kNewFileMode;
    if (!IsWritableTarget(target, mode, problem))
        return false;
    // The text is made before any file exists, so that nothing is left behind
    // should it fail.
    const std::string text = CSettingsFile::Serialize(document);
    CTerminationDeferred deferred;
    std::string temporary = target + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
    {
        problem = "cannot create a temporary file beside " + target + ": " + ErrnoText(errno);
        return false;
    }
    ::fchmod(fd, mode);
    const bool written = WriteAll(fd, text) && ::fsync(fd) == 0;
    const int writeError = errno;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed)
    {
        ::unlink(temporary.c_str());
        problem = "cannot write " + target + ": " + ErrnoText(written ? errno : writeError);
        return false;
    }
    if (::rename(temporary.c_str(), target.c_str()) != 0)
    {
        problem = "cannot replace " + target + ": " + ErrnoText(errno);
        ::unlink(temporary.c_str());
        return false;
    }
    // Make the rename itself durable, so a crash cannot bring back the old file.
    const int folder = ::open(ParentFolder(target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder >= 0)
    {
        ::fsync(folder);
        ::close(folder);
    }
    return true;
}

// The file's part of an open transaction: its lock, the document read once
// under it, and whether anything changed.
class CSettingsFileBatch : public IQVSettingsBatch
{
public:
    explicit CSettingsFileBatch(std::string target) : target(std::move(target))
    {
        // Only reads so far: a missing folder is not made for them (and the
        // file cannot exist), and a folder that cannot be locked still reads.
        if (FolderExists(ParentFolder(this->target)))
            lock.Acquire(ParentFolder(this->target), lockProblem);
        load = LoadDocument(this->target, document, loadProblem);
    }

    bool Readable(std::string& problem) const
    {
        problem = loadProblem;
        return load != ELoad::Failed;
    }
    const json& Document() const { return document; }
    // The last change was refused because the file was read before the lock
    // was held and is no longer what was read.
    bool ChangedMeanwhile() const { return changedMeanwhile; }

    bool Change(const std::function<bool(json&)>& change, std::string& problem)
    {
        if (!lock.IsHeld() && !LockForWriting(problem))
            return false;
        if (load == ELoad::Failed)
        {
            problem = loadProblem + "; it is left as it is and the change is not saved";
            return false;
        }
        if (change(document))
            dirty = true;
        return true;
    }

    bool Commit(std::string& problem) override
    {
        if (!dirty)
            return true;
        dirty = false;
        if (WriteReplacing(target, document, problem))
            return true;
        Fail(u"CSettingsFile::Update", problem);
        return false;
    }

private:
    bool LockForWriting(std::string& problem)
    {
        if (!MakeFolders(ParentFolder(target)))
        {
            problem = "cannot create the folder of " + target + ": " + ErrnoText(errno);
            return false;
        }
        if (!lock.Acquire(ParentFolder(target), problem))
            return false;
        // What was read without the lock may be stale by now. Changes made on
        // top of it could drop another writer's, so they are refused instead.
        json current;
        std::string currentProblem;
        const ELoad now = LoadDocument(target, current, currentProblem);
        if (now != load || current != document)
        {
            changedMeanwhile = true;
            problem = "settings file " + target +
                      " was changed by another program meanwhile; the change is not saved";
            return false;
        }
        return true;
    }

    std::string target;
    CFolderLock lock;
    std::string lockProblem;
    json document;
    ELoad load = ELoad::Missing;
    std::string loadProblem;
    bool dirty = false;
    bool changedMeanwhile = false;
};

CSettingsFileBatch& BatchFor(const std::string& path)
{
    const std::string target = ResolveLinks(path);
    const std::string id = "settings file " + CanonicalName(target);
    if (IQVSettingsBatch* found = CSettingsTransaction::FindBatch(id))
        return static_cast<CSettingsFileBatch&>(*found);
    return static_cast<CSettingsFileBatch&>(
        CSettingsTransaction::Enlist(id, std::make_unique<CSettingsFileBatch>(target)));
}

}  // namespace

void ReportSettingsProblem(const char16_t* heading, const std::string& message)
{
    QVLog(1, heading, u"%s", message);
}

CSettingsFile::CSettingsFile(std::string path) : path(std::move(path)) {}

std::string CSettingsFile::LastProblem()
{
    std::lock_guard<std::mutex> guard(lastProblemLock);
    return lastProblem;
}

std::string CSettingsFile::DefaultPath()
{
    const char* explicitPath = std::getenv("QVDSP_SETTINGS");
    if (explicitPath != nullptr && *explicitPath != '\0')
        return explicitPath;
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    std::string configFolder;
    // A relative XDG_CONFIG_HOME is invalid by its own rules and is ignored.
    if (xdg != nullptr && xdg[0] == '/')
        configFolder = xdg;
    else
    {
        const char* home = std::getenv("HOME");
        if (home == nullptr || *home == '\0')
        {
            const passwd* entry = ::getpwuid(::getuid());
            home = entry != nullptr ? entry->pw_dir : "/tmp";
        }
        configFolder = std::string(home) + "/.config";
    }
    return configFolder + "/quovan/dsp-settings.json";
}

bool CSettingsFile::IsSettingsDocument(const json& document)
{
    if (!document.is_object())
        return false;
    for (const char* scope : {"user", "system"})
    {
        const auto found = document.find(scope);
        if (found == document.end())
            continue;
        if (!found->is_object())
            return false;
        for (const auto& key : found->items())
        {
            if (!key.value().is_object())
                return false;
        }
    }
    return true;
}

std::string CSettingsFile::Serialize(const json& document)
{
    // Text that went through a lossy conversion may hold bytes that are not
    // UTF-8; replacing them beats refusing the whole save.
    return document.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}

bool CSettingsFile::Inspect(const std::function<void(const json&)>& look) const
{
    std::string problem;
    if (CSettingsTransaction::IsOpen())
    {
        const CSettingsFileBatch& batch = BatchFor(path);
        const bool readable = batch.Readable(problem);
        look(readable ? batch.Document() : json::object());
        if (readable)
            return true;
    }
    else
    {
        json document;
        const bool readable = LoadDocument(path, document, problem) != ELoad::Failed;
        look(document);
        if (readable)
            return true;
    }
    Fail(u"CSettingsFile::Read", problem + "; defaults are used");
    SetLastProblem(problem);
    return false;
}

bool CSettingsFile::Read(json& document, std::string* problem) const
{
    const bool readable = Inspect([&document](const json& current) { document = current; });
    if (!readable && problem != nullptr)
        *problem = LastProblem();
    return readable;
}

bool CSettingsFile::Update(const std::function<bool(json&)>& change)
{
    if (!CSettingsTransaction::IsOpen())
    {
        // A single change is a transaction of its own. Begun before the folder
        // existed, it read the file without the lock; should another program
        // have written the file meanwhile, the change is made once more on
        // what that program left, as nothing else of the transaction relied on
        // what was read. This is what two first saves at once come to.
        for (int attempt = 0;; ++attempt)
        {
            CSettingsTransaction transaction;
            CSettingsFileBatch& batch = BatchFor(path);
            std::string problem;
            if (batch.Change(change, problem))
                return transaction.Commit();
            if (attempt > 0 || !batch.ChangedMeanwhile())
            {
                Fail(u"CSettingsFile::Update", problem);
                return false;
            }
        }
    }
    std::string problem;
    if (BatchFor(path).Change(change, problem))
        return true;
    Fail(u"CSettingsFile::Update", problem);
    return false;
}
