#include "frame/SiblingModules.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#include "frame/IQVTools.h"
#include "host/BuiltinTools.h"

namespace
{

struct HeldModule
{
    std::string name;
    void* handle;
};

// Process-wide and recursive: the loader may be entered again from a module's
// entry point.
std::recursive_mutex& LoaderMutex()
{
    static std::recursive_mutex mutex;
    return mutex;
}

std::vector<HeldModule>& HeldModules()
{
    static std::vector<HeldModule> modules;
    return modules;
}

// Value the loader hands to the entry operation of the modules it loads.
int g_loaderValue = 0;
// The installed tools live in a module the loader holds: they go with it.
bool g_toolsFromModule = false;

std::string BaseName(const std::string& path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void* OwnModuleHandle()
{
    Dl_info info{};
    dladdr(reinterpret_cast<void*>(&OwnModuleHandle), &info);
    return info.dli_fbase;
}

template <typename Function>
Function Entry(void* module, const char* name)
{
    return reinterpret_cast<Function>(dlsym(module, name));
}

// Modules whose entry point answers an object that takes the loader's value.
struct ObjectModule
{
    const char* fileName;
    const char* entryPoint;
};
const ObjectModule kObjectModules[] = {
    {QVPLAYER_MODULE_NAME, QVPLAYER_ENTRY_POINT},
    {QVIMAGE_MODULE_NAME, QVIMAGE_ENTRY_POINT},
    {QVTELEVISION_MODULE_NAME, QVTELEVISION_ENTRY_POINT},
};

// The start of the program's modules other than the tools, which
// EnsureToolsReady starts itself.
void StartModule(const std::string& fileName, void* module)
{
    using ObjectEntry = IQVSiblingModule* (*)();
    using ReaderEntry = void (*)(void*);
    for (const ObjectModule& kind : kObjectModules)
    {
        if (fileName != kind.fileName)
            continue;
        if (auto entry = Entry<ObjectEntry>(module, kind.entryPoint))
            if (IQVSiblingModule* object = entry())
                object->Attach(&g_loaderValue);
    }
    if (fileName == QVREADER_MODULE_NAME)
    {
        for (const char* name : {"QVReaderInitialize", "QVDiscInitialize"})
            if (auto entry = Entry<ReaderEntry>(module, name))
                entry(&g_loaderValue);
    }
}

void StopModule(const std::string& fileName, void* module)
{
    using ReaderExit = void (*)();
    if (fileName != QVREADER_MODULE_NAME)
        return;
    for (const char* name : {"QVReaderUninitialize", "QVDiscUninitialize"})
        if (auto entry = Entry<ReaderExit>(module, name))
            entry();
}

// The tools module's object, attached and installed; null when the module or
// its entry point fails.
IQVTools* LoadToolsModule()
{
    void* module = LoadSiblingModule(QVTOOLS_MODULE_NAME);
    if (module == nullptr)
        return nullptr;
    using EntryFunction = IQVTools* (*)(int32_t);
    auto entry = Entry<EntryFunction>(module, QVTOOLS_ENTRY_POINT);
    IQVTools* tools = entry != nullptr ? entry(QVTOOLS_INTERFACE_VERSION) : nullptr;
    if (tools == nullptr)
        return nullptr;
    tools->Attach(&g_loaderValue, OwnModuleHandle());
    SetQVTools(tools);
    g_toolsFromModule = true;
    return tools;
}

// Where a message box would stand: a line under its title. It goes to the log
// when one takes errors, and otherwise straight to standard error, since the
// user must see it either way.
void ShowCriticalError(const QVString& text)
{
    const QVString title(u"Critical Error");
    IQVLogger* logger = QVGetLogger();
    if (logger == nullptr || logger->GetLevel() < 1)
        logger = GetBuiltinTools().GetLogger(0);
    if (logger != nullptr && logger->GetLevel() >= 1)
    {
        logger->Log(1, title, text);
        return;
    }
    const std::string line = title.ToUTF8() + ": " + text.ToUTF8() + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

}  // namespace

std::string GetModulePath()
{
    Dl_info info{};
    std::string path;
    if (dladdr(reinterpret_cast<void*>(&GetModulePath), &info) != 0 && info.dli_fname != nullptr)
        path = info.dli_fname;
    // The main program may be reported by the name it was started with.
    if (path.find('/') == std::string::npos)
        path = "/proc/self/exe";
    char resolved[PATH_MAX];
    if (realpath(path.c_str(), resolved) != nullptr)
        return resolved;
    return path;
}

std::string GetModuleFolder()
{
    const std::string path = GetModulePath();
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string("./") : path.substr(0, slash + 1);
}

std::string FindSiblingModule(const std::string& name)
{
    if (name.empty())
        return std::string();
    if (name[0] == '/')
        return access(name.c_str(), F_OK) == 0 ? name : std::string();
    const std::string folder = GetModuleFolder();
    for (const std::string& candidate : {folder + name, folder + "x64/" + name})
        if (access(candidate.c_str(), F_OK) == 0)
            return candidate;
    return std::string();
}

void* LoadSiblingModule(const std::string& name)
{
    std::lock_guard<std::recursive_mutex> guard(LoaderMutex());
    for (const HeldModule& held : HeldModules())
        if (held.name == name)
            return held.handle;

    void* handle = nullptr;
    if (!name.empty() && name[0] == '/')
    {
        handle = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    else if (!name.empty())
    {
        // The own folder first, then its "x64/" subfolder, as the installer
        // lays the program out.
        const std::string folder = GetModuleFolder();
        for (const std::string& candidate : {folder + name, folder + "x64/" + name})
        {
            handle = dlopen(candidate.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (handle != nullptr)
                break;
        }
    }
    if (handle == nullptr)
        return nullptr;
    HeldModules().push_back({name, handle});
    StartModule(BaseName(name), handle);
    return handle;
}

void UnloadSiblingModules()
{
    std::lock_guard<std::recursive_mutex> guard(LoaderMutex());
    if (g_toolsFromModule)
    {
        SetQVTools(nullptr);
        g_toolsFromModule = false;
    }
    std::vector<HeldModule>& modules = HeldModules();
    while (!modules.empty())
    {
        StopModule(BaseName(modules.back().name), modules.back().handle);
        dlclose(modules.back().handle);
        modules.pop_back();
    }
}

QVString FormatModuleLoadError(const QVString& moduleName, const QVString& error)
{
    return QVString::Format(
        QVTranslated(u"The following module has failed to load:\r\n%s\r\n\r\nIt "
                     u"has reported the following error:\r\n\r\n%s\r\n\r\n"
                     u"Please reinstall the latest version of the program.")
            .c_str(),
        moduleName, error);
}

bool EnsureToolsReady(const QVString& moduleName, bool fatal)
{
    std::lock_guard<std::recursive_mutex> guard(LoaderMutex());
    IQVTools* tools = GetQVTools();
    if (tools != nullptr && tools->GetProductDescription(false) != nullptr)
        return true;

    QVString error;
    if (tools == nullptr)
    {
        if (FindSiblingModule(QVTOOLS_MODULE_NAME).empty())
        {
            // A build without the host: the module's own tools stand in.
            SetQVTools(&GetBuiltinTools());
            return true;
        }
        tools = LoadToolsModule();
        if (tools == nullptr)
        {
            error = QVTranslated(u"Failed to load QVTools");
            const char* reason = dlerror();
            QVLog(1, u"QVDSPApp::EnsureToolsReady", u"%s: %s", QVTOOLS_MODULE_NAME,
                  reason != nullptr ? reason : "no usable entry point");
        }
    }
    if (tools != nullptr)
    {
        // Tools without a product description (the built-in ones, or a host's
        // own) have nothing to load.
        IQVProductDescription* description = tools->GetProductDescription(true);
        if (description == nullptr || description->Load(moduleName, error))
            return true;
        if (error.IsEmpty())
            error = QVTranslated(u"Unknown error loading product information");
    }

    const QVString shownName =
        moduleName.IsEmpty() ? QVString::FromUTF8(BaseName(GetModulePath())) : moduleName;
    ShowCriticalError(FormatModuleLoadError(shownName, error));
    if (fatal)
        std::exit(0);
    return false;
}
