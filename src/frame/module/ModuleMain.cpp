// Load and unload of the shared module, forwarded to the application object.
// Only the shared module is built with this file: a program that links the
// static library gets its tools when the first plug-in is made.
#include <dlfcn.h>

#include "core/QVStringManager.h"
#include "frame/IQVTools.h"
#include "frame/QVDSPApp.h"

namespace
{

void* OwnModuleHandle()
{
    Dl_info info{};
    dladdr(reinterpret_cast<void*>(&OwnModuleHandle), &info);
    return info.dli_fbase;
}

struct ModuleLifetime
{
    ModuleLifetime()
    {
        // A shared library cannot refuse to load here; the failure is logged.
        if (!GetDSPApp().Entry(OwnModuleHandle(), QVApp::ENTRY_ATTACH))
            QVLog(1, u"QVDSPApp::InitInstance", u"The module failed to initialise");
    }
    ~ModuleLifetime()
    {
        GetDSPApp().Entry(OwnModuleHandle(), QVApp::ENTRY_DETACH);
        // Pooled string buffers would outlive the unmapped module that holds
        // their only pointers: give them back to the heap before it goes.
        QVGetStringGlobals()->ReleasePool();
    }
};

ModuleLifetime g_moduleLifetime;

}  // namespace
