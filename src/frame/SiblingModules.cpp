#include "frame/SiblingModules.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>

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

void* OpenModule(const std::string& path)
{
    return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

bool TryLoadToolsModule()
{
    void* module = LoadSiblingModule(QVTOOLS_MODULE_NAME);
    if (module == nullptr)
        return false;
    using EntryFunction = IQVTools* (*)(int32_t);
    auto entry = reinterpret_cast<EntryFunction>(dlsym(module, QVTOOLS_ENTRY_POINT));
    IQVTools* tools = entry != nullptr ? entry(QVTOOLS_INTERFACE_VERSION) : nullptr;
    if (tools == nullptr)
    {
        QVLog(1, u"QVDSPApp::EnsureToolsReady", u"%s has no usable %s", QVTOOLS_MODULE_NAME,
              QVTOOLS_ENTRY_POINT);
        return false;
    }
    Dl_info info{};
    dladdr(reinterpret_cast<void*>(&EnsureToolsReady), &info);
    tools->Attach(&g_loaderValue, info.dli_fbase);
    SetQVTools(tools);
    g_toolsFromModule = true;
    return true;
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

void* LoadSiblingModule(const std::string& name)
{
    std::lock_guard<std::recursive_mutex> guard(LoaderMutex());
    for (const HeldModule& held : HeldModules())
        if (held.name == name)
            return held.handle;

    void* handle = nullptr;
    if (!name.empty() && name[0] == '/')
    {
        handle = OpenModule(name);
    }
    else
    {
        const std::string folder = GetModuleFolder();
        handle = OpenModule(folder + name);
        if (handle == nullptr)
            handle = OpenModule(folder + "x64/" + name);
    }
    if (handle != nullptr)
        HeldModules().push_back({name, handle});
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
        dlclose(modules.back().handle);
        modules.pop_back();
    }
}

bool EnsureToolsReady(const QVString& moduleName, bool fatal)
{
    std::lock_guard<std::recursive_mutex> guard(LoaderMutex());
    if (GetQVTools() != nullptr)
        return true;
    if (TryLoadToolsModule())
        return true;
    // A build without the host: the module's own tools stand in, and never fail.
    SetQVTools(&GetBuiltinTools());
    return true;
}
