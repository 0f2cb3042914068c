#include "core/QVFileSystem.h"

#include "frame/IQVTools.h"

#include <cerrno>
#include <cstdio>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

bool IsAsciiLetter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

bool HasDriveLetter(const QVString& path)
{
    return path.GetLength() >= 2 && IsAsciiLetter(path[0]) && path[1] == u':';
}

bool IsNetworkPath(const QVString& path)
{
    return path.GetLength() >= 2 && path[0] == u'\\' && path[1] == u'\\';
}

std::string Native(const QVString& path)
{
    return QVFileSystem::GetLongPath(path).ToUTF8();
}

bool IsFolder(const std::string& path)
{
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace

QVFileTime QVFileTime::FromUnixTime(std::time_t seconds)
{
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    QVFileTime time;
    time.year = parts.tm_year + 1900;
    time.month = parts.tm_mon + 1;
    time.day = parts.tm_mday;
    time.hour = parts.tm_hour;
    time.minute = parts.tm_min;
    time.second = parts.tm_sec;
    time.hasTime = true;
    time.zoneSuffix = u"Z";
    return time;
}

QVString QVFileSystem::GetLongPath(const QVString& path)
{
    if (path.GetLength() < kLongPathLength || path.StartsWith(u"\\\\?\\"))
        return path;
    if (HasDriveLetter(path))
        return u"\\\\?\\" + path;
    if (IsNetworkPath(path))
        return u"\\\\?\\UNC\\" + path.Mid(2);
    return path;
}

bool QVFileSystem::MakeDirectoryTree(const QVString& path)
{
    if (path.IsEmpty())
        return false;
    // Only an absolute POSIX path names a place here; a URL, a relative name
    // or a drive letter is left alone, as the callers expect of a name that
    // is not a local folder.
    if (path[0] != u'/')
        return true;
    std::string full = Native(path);
    while (full.size() > 1 && full.back() == '/')
        full.pop_back();
    if (IsFolder(full))
        return true;

    // Gather the missing folders from the bottom up, then make them top down.
    std::vector<std::string> missing;
    for (std::string current = full; current.size() >= 2 && !IsFolder(current);)
    {
        missing.push_back(current);
        const size_t slash = current.rfind('/');
        if (slash == std::string::npos || slash == 0)
            break;
        current.resize(slash);
    }
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder)
    {
        // Another thread may have just made it: only a folder that is still
        // missing afterwards is a failure.
        if (mkdir(folder->c_str(), 0777) != 0 && !IsFolder(*folder))
        {
            QVLog(1, u"QVFileSystem::MakeDirectoryTree", u"Failed! Path=%s", path);
            return false;
        }
    }
    return true;
}

bool QVFileSystem::DeleteFile(const QVString& path)
{
    if (path.IsEmpty())
        return false;
    // A file's own read-only bit does not stop its deletion here (the folder's
    // permissions decide), so there is no attribute to clear first.
    if (unlink(Native(path).c_str()) != 0)
    {
        QVLog(1, u"QVFileSystem::DeleteFile", u"Error %d deleting existing file: %s",
              static_cast<int32_t>(errno), path);
        return false;
    }
    return true;
}

bool QVFileSystem::SafeReplaceFile(const QVString& target, const QVString& newFile)
{
    if (target.IsEmpty() || newFile.IsEmpty() || !FileExists(newFile, true))
        return false;
    const std::string targetName = Native(target);
    const std::string newName = Native(newFile);
    struct stat info;
    if (lstat(targetName.c_str(), &info) != 0)
    {
        if (std::rename(newName.c_str(), targetName.c_str()) == 0)
            return true;
        DeleteFile(newFile);
        return false;
    }
    const QVString kept = MakeUniqueName(target + u".old");
    const std::string keptName = Native(kept);
    if (std::rename(targetName.c_str(), keptName.c_str()) != 0)
    {
        QVLog(1, u"QVFileSystem::SafeReplaceFile", u"Error renaming original file");
        DeleteFile(newFile);
        return false;
    }
    if (std::rename(newName.c_str(), targetName.c_str()) == 0)
    {
        DeleteFile(kept);
        return true;
    }
    std::rename(keptName.c_str(), targetName.c_str());
    QVLog(1, u"QVFileSystem::SafeReplaceFile",
          u"Error moving new file into place of original name");
    DeleteFile(newFile);
    return false;
}

bool QVFileSystem::FileExists(const QVString& path, bool wantFile)
{
    if (path.IsEmpty())
        return false;
    struct stat info;
    if (stat(Native(path).c_str(), &info) != 0)
        return false;
    return wantFile ? !S_ISDIR(info.st_mode) : S_ISDIR(info.st_mode);
}

QVString QVFileSystem::MakeUniqueName(const QVString& path)
{
    struct stat info;
    if (lstat(Native(path).c_str(), &info) != 0)
        return path;
    // The extension starts at the last "." of the last element, if any.
    const int32_t slash = path.ReverseFind(u'/');
    int32_t dot = path.ReverseFind(u'.');
    if (dot <= slash + 1)
        dot = path.GetLength();
    const QVString stem = path.Left(dot);
    const QVString extension = path.Mid(dot);
    for (int32_t n = 1;; ++n)
    {
        const QVString candidate = QVString::Format(u"%s - %d%s", stem, n, extension);
        if (lstat(Native(candidate).c_str(), &info) != 0)
            return candidate;
    }
}

QVString QVFileSystem::FormatFileSize(int64_t bytes)
{
    struct Unit
    {
        int shift;
        const char16_t* name;
    };
    static constexpr Unit kUnits[] = {
        {50, u"PB"}, {40, u"TB"}, {30, u"GB"}, {20, u"MB"}, {10, u"KB"},
    };
    // The magnitude in unsigned form, so that the most negative size has one.
    const uint64_t magnitude =
        bytes < 0 ? 0 - static_cast<uint64_t>(bytes) : static_cast<uint64_t>(bytes);
    for (const Unit& unit : kUnits)
    {
        if (magnitude < (uint64_t{1} << unit.shift))
            continue;
        // A power of two scales exactly, so the text is the rounding of the
        // true quotient.
        const double scaled =
            static_cast<double>(magnitude) / static_cast<double>(1ull << unit.shift);
        QVString text =
            QVString::FromDouble(scaled, scaled >= 100.0 ? 0 : 1, true, 0, QVNUMBER_POINT);
        if (bytes < 0)
            text = u"-" + text;
        return text + u" " + unit.name;
    }
    return QVString::Format(u"%d bytes", bytes);
}

QVString QVFileSystem::FormatFileTime(const QVFileTime& time)
{
    if (!time.hasTime)
        return QVString::Format(u"%04d-%02d-%02d", time.year, time.month, time.day);
    return QVString::Format(u"%04d-%02d-%02dT%02d:%02d:%02d%s", time.year, time.month, time.day,
                            time.hour, time.minute, time.second, time.zoneSuffix);
}
