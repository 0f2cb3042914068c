// The program's own folders. The install path is worked out once per process;
// the temporary folder follows its setting on every call.
#include "core/QVFileSystem.h"

#include "frame/IQVTools.h"
#include "frame/SettingsKey.h"
#include "frame/SiblingModules.h"

#include <cstdlib>
#include <memory>
#include <mutex>
#include <unistd.h>

namespace
{

QVString WithSlash(QVString path)
{
    if (!path.EndsWith(u"/"))
        path += u'/';
    return path;
}

// $XDG_DATA_HOME, else ~/.local/share, else the temporary folder's root.
QVString UserDataRoot()
{
    if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg != nullptr && xdg[0] == '/')
        return WithSlash(QVString::FromUTF8(xdg));
    if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/')
        return WithSlash(QVString::FromUTF8(home)) + u".local/share/";
    return u"/tmp/";
}

struct InstallFolder
{
    QVString path;
    bool portable = false;
};

const InstallFolder& CachedInstallFolder()
{
    static const InstallFolder folder = []
    {
        InstallFolder found;
        found.path =
            QVFileSystem::ResolveInstallPath(QVString::FromUTF8(GetModuleFolder()), found.portable);
        QVLog(2, u"QVFileSystem::GetInstallPath", u"Quovan install path (process: %d): %s\r\n",
              static_cast<int32_t>(getpid()), found.path);
        return found;
    }();
    return folder;
}

QVString ConfiguredTempPath()
{
    IQVTools* tools = GetQVTools();
    if (tools == nullptr)
        return QVString();
    std::unique_ptr<IQVSettingsKey> key(tools->GetPluginKeyObject(QVString(u"Properties"), false));
    if (!key)
        return QVString();
    return QVReadSettingsString(*key, u"File Location - Temp Location", QVString(), 0);
}

}  // namespace

QVString QVFileSystem::ResolveInstallPath(const QVString& moduleFolder, bool& portable)
{
    const QVString folder = WithSlash(moduleFolder);
    portable = FileExists(folder + u"Portable.dat", true);
    // This system keeps no list of installations: without "Portable.dat" the
    // module's folder is still where the program lives.
    return folder;
}

QVString QVFileSystem::GetInstallPath()
{
    return CachedInstallFolder().path;
}

bool QVFileSystem::IsPortable()
{
    return CachedInstallFolder().portable;
}

QVString QVFileSystem::GetDataPath()
{
    if (IsPortable())
        return GetInstallPath() + u"Data/";
    return UserDataRoot() + u"Quovan/Data/";
}

QVString QVFileSystem::GetUserDataPath(const QVString& productName)
{
    return UserDataRoot() + u"Quovan/" +
           (productName.IsEmpty() ? QVString(u"Generic") : productName) + u"/";
}

QVString QVFileSystem::GetTempPath()
{
    const QVString configured = ConfiguredTempPath();
    if (!configured.IsEmpty() && configured[0] == u'/' && MakeDirectoryTree(configured))
        return WithSlash(configured);
    QVString root = u"/tmp";
    if (const char* tmp = std::getenv("TMPDIR"); tmp != nullptr && tmp[0] == '/')
        root = QVString::FromUTF8(tmp);
    const QVString path = WithSlash(root) + u"Quovan/Temp/";
    MakeDirectoryTree(path);
    return path;
}
