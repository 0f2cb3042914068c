#include "host/SettingsFile.h"

#include "frame/IQVTools.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

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

bool MakeFolders(const std::string& folder)
{
    struct stat info
    {
    };
    if (folder.empty() || ::stat(folder.c_str(), &info) == 0)
        return true;
    if (!MakeFolders(ParentFolder(folder)))
        return false;
    return ::mkdir(folder.c_str(), 0755) == 0 || errno == EEXIST;
}

bool ReadWholeFile(int fd, std::string& text)
{
    char buffer[65536];
    for (;;)
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

// Holds the advisory lock on "<file>.lock" for one update. The lock file is
// never removed: unlinking it would let a second writer lock a fresh inode
// while a first still holds the old one.
class CFileLock
{
public:
    explicit CFileLock(const std::string& lockPath)
    {
        fd = ::open(lockPath.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (fd < 0)
            return;
        while (::flock(fd, LOCK_EX) != 0)
        {
            if (errno != EINTR)
            {
                ::close(fd);
                fd = -1;
                return;
            }
        }
    }
    ~CFileLock()
    {
        if (fd >= 0)
            ::close(fd);  // closing releases the lock
    }
    CFileLock(const CFileLock&) = delete;
    CFileLock& operator=(const CFileLock&) = delete;

    bool IsHeld() const { return fd >= 0; }

private:
    int fd = -1;
};

}  // namespace

void ReportSettingsProblem(const char16_t* heading, const std::string& message)
{
    QVLog(1, heading, u"%s", message);
}

CSettingsFile::CSettingsFile(std::string path) : path(std::move(path)) {}

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

bool CSettingsFile::IsSettingsDocument(const nlohmann::json& document)
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

std::string CSettingsFile::Serialize(const nlohmann::json& document)
{
    // Text that went through a lossy conversion may hold bytes that are not
    // UTF-8; replacing them beats refusing the whole save.
    return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

CSettingsFile::ELoad CSettingsFile::Load(nlohmann::json& document, std::string& problem) const
{
    document = nlohmann::json::object();
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
    {
        if (errno == ENOENT)
            return ELoad::Missing;
        problem = "cannot open " + path + ": " + ErrnoText(errno);
        return ELoad::Failed;
    }
    std::string text;
    const bool complete = ReadWholeFile(fd, text);
    const int readError = errno;
    ::close(fd);
    if (!complete)
    {
        problem = "cannot read " + path + ": " + ErrnoText(readError);
        return ELoad::Failed;
    }
    nlohmann::json parsed = nlohmann::json::parse(text, nullptr, false);
    if (parsed.is_discarded())
    {
        problem = "settings file " + path + " cannot be parsed";
        return ELoad::Failed;
    }
    if (!IsSettingsDocument(parsed))
    {
        problem = "settings file " + path + " is not a settings document";
        return ELoad::Failed;
    }
    document = std::move(parsed);
    return ELoad::Loaded;
}

bool CSettingsFile::Read(nlohmann::json& document, std::string* problem) const
{
    std::string reason;
    if (Load(document, reason) != ELoad::Failed)
        return true;
    ReportSettingsProblem(u"CSettingsFile::Read", reason + "; defaults are used");
    if (problem != nullptr)
        *problem = reason;
    return false;
}

std::string CSettingsFile::TargetPath() const
{
    // Replacing a symbolic link by rename would cut the link; write through
    // it to the file it names instead.
    struct stat info
    {
    };
    if (::lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode))
    {
        if (char* resolved = ::realpath(path.c_str(), nullptr))
        {
            std::string target = resolved;
            std::free(resolved);
            return target;
        }
    }
    return path;
}

bool CSettingsFile::WriteReplacing(const nlohmann::json& document, std::string& problem) const
{
    const std::string target = TargetPath();
    std::string temporary = target + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0)
    {
        problem = "cannot create a temporary file beside " + target + ": " + ErrnoText(errno);
        return false;
    }
    struct stat existing
    {
    };
    ::fchmod(fd, ::stat(target.c_str(), &existing) == 0 ? (existing.st_mode & 07777) : 0644);

    const bool written = WriteAll(fd, Serialize(document)) && ::fsync(fd) == 0;
    const int writeError = errno;
    const bool closed = ::close(fd) == 0;
    if (!written || !closed)
    {
        ::unlink(temporary.c_str());
        problem = "cannot write " + temporary + ": " + ErrnoText(written ? errno : writeError);
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

bool CSettingsFile::Update(const std::function<bool(nlohmann::json&)>& change)
{
    std::string problem;
    if (!MakeFolders(ParentFolder(path)))
    {
        ReportSettingsProblem(u"CSettingsFile::Update",
                              "cannot create the folder of " + path + ": " + ErrnoText(errno));
        return false;
    }
    CFileLock lock(path + ".lock");
    if (!lock.IsHeld())
    {
        ReportSettingsProblem(u"CSettingsFile::Update",
                              "cannot lock " + path + ".lock: " + ErrnoText(errno));
        return false;
    }
    nlohmann::json document;
    if (Load(document, problem) == ELoad::Failed)
    {
        ReportSettingsProblem(u"CSettingsFile::Update",
                              problem + "; it is left as it is and the change is not saved");
        return false;
    }
    if (!change(document))
        return true;
    if (!WriteReplacing(document, problem))
    {
        ReportSettingsProblem(u"CSettingsFile::Update", problem);
        return false;
    }
    return true;
}
