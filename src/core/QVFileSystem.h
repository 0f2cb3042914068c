// File operations that the rest of the system uses instead of calling the
// platform: whole directory trees, safe replacement, sizes as text, the
// program's folders, and the XMLFN text that keeps a path and its extra data in
// one string.
//
// Windows-shaped names (a drive letter, a leading "\\") keep their rules where
// a rule is pure text (the long-path prefix); on this system they name no
// place, so the operations that touch the disk treat them like any other name
// that is not an absolute POSIX path.
#pragma once

#include <cstdint>
#include <ctime>
#include <vector>

#include "core/QVString.h"

class QVPropertyMap;

// A calendar date with an optional time of day, as a file's time is shown.
struct QVFileTime
{
    int32_t year = 1970;
    int32_t month = 1;
    int32_t day = 1;
    int32_t hour = 0;
    int32_t minute = 0;
    int32_t second = 0;
    bool hasTime = false;
    // Appended to the time: "Z" for UTC, "+02:00" and the like, or nothing.
    QVString zoneSuffix;

    // The UTC time of a POSIX time stamp, with the suffix "Z".
    static QVFileTime FromUnixTime(std::time_t seconds);
};

class QVFileSystem
{
public:
    // Paths at least this long get the long-path prefix.
    static constexpr int32_t kLongPathLength = 260;

    // The long-path rule: a Windows-shaped path of 260 characters or more gets
    // "\\?\" (drive letter) or "\\?\UNC\" in place of its leading "\\"
    // (network). Shorter paths, prefixed ones and POSIX paths stay as they are.
    static QVString GetLongPath(const QVString& path);

    // Makes every missing folder of an absolute path; true when the folder
    // exists at the end. Names that are not absolute POSIX paths (relative
    // names, URLs, drive letters) are not this operation's business: true,
    // and nothing is made. An empty path is false.
    static bool MakeDirectoryTree(const QVString& path);

    // Deletes a file; false (and a log line) when it cannot.
    static bool DeleteFile(const QVString& path);

    // Gives `newFile` the name `target` without ever leaving the user without
    // a file: the old one keeps its name until the new one has it. On failure
    // `newFile` is deleted and `target` is as it was.
    static bool SafeReplaceFile(const QVString& target, const QVString& newFile);

    // True when `path` names a file (`wantFile`) or a folder (otherwise).
    static bool FileExists(const QVString& path, bool wantFile);

    // `path` itself when nothing has that name, else the first free
    // "name - N.ext" with N from 1.
    static QVString MakeUniqueName(const QVString& path);

    // "1023 bytes", "1.5 KB", "150 KB", up to "PB"; scaled by powers of two.
    static QVString FormatFileSize(int64_t bytes);

    // "2024-05-01", or "2024-05-01T13:04:05Z" when the time has a time part.
    static QVString FormatFileTime(const QVFileTime& time);

    // The program's folders, each with a trailing "/".
    // The module's folder; "Portable.dat" there marks a portable installation.
    // With no list of installations on this system, the module's folder is the
    // installation in either case. Computed once.
    static QVString GetInstallPath();
    // Portable: "Data/" in the install folder. Otherwise
    // $XDG_DATA_HOME (or ~/.local/share) + "/Quovan/Data/".
    static QVString GetDataPath();
    // Per-user data of a product: $XDG_DATA_HOME/Quovan/<product or "Generic">/.
    static QVString GetUserDataPath(const QVString& productName);
    // "File Location - Temp Location" of the system's "Properties" when set and
    // the folder can be made, else $TMPDIR (or /tmp) + "/Quovan/Temp/". The
    // folder is made.
    static QVString GetTempPath();
    // The install-path rule on its own: the folder given, which a
    // "Portable.dat" in it marks as portable.
    static QVString ResolveInstallPath(const QVString& moduleFolder, bool& portable);
    static bool IsPortable();

    // The XMLFN form of a file name. A name holding "://" is a URL and is
    // returned as it is; a plain path with no extra items stays plain.
    static QVString MakeFileNameText(const QVString& path, const QVPropertyMap* extras = nullptr);
    // Reads a name that may be XMLFN: `path` gets the file's path and `extras`
    // (when given) every further item, such as "PostExtensionData". A plain
    // name is its own path. False for XMLFN text that cannot be read.
    static bool ReadFileNameText(const QVString& text, QVString& path,
                                 QVPropertyMap* extras = nullptr);
    // The path alone, empty for unreadable XMLFN text.
    static QVString GetPlainPath(const QVString& text);
    static bool IsURL(const QVString& name) { return name.Contains(u"://"); }

    // The whole of a named resource, through CFileLoader: false, with an
    // empty buffer, when it cannot be read. `maximumSize` -1 is no limit.
    static bool ReadFileToBuffer(const QVString& name, std::vector<uint8_t>& buffer,
                                 int64_t maximumSize = -1);
    // A text file decoded by its byte-order mark (UTF-16 either way, UTF-8,
    // else Windows-1252).
    static bool ReadTextFile(const QVString& name, QVString& text, int64_t maximumSize = -1);
};
