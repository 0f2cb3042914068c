#include "frame/QVDSPApp.h"

#include "frame/IQVTools.h"
#include "frame/SiblingModules.h"

namespace
{
std::atomic<QVApp*> g_currentApp{nullptr};
}

QVApp::QVApp()
{
    QVApp* expected = nullptr;
    g_currentApp.compare_exchange_strong(expected, this);
}

QVApp* QVApp::GetCurrent()
{
    return g_currentApp.load();
}

bool QVApp::Entry(void* moduleHandle, int32_t reason)
{
    if (reason == ENTRY_ATTACH)
    {
        if (attachCount.fetch_add(1) != 0)
            return true;
        instance = moduleHandle;
        if (InitInstance())
            return true;
        ExitInstance();
        attachCount.fetch_sub(1);
        return false;
    }
    if (reason == ENTRY_DETACH && attachCount.load() > 0 && attachCount.fetch_sub(1) == 1)
        ExitInstance();
    return true;
}

bool QVDSPApp::InitInstance()
{
    return EnsureToolsReady(QVString(), false);
}

bool QVDSPApp::ExitInstance()
{
    UnloadSiblingModules();
    return true;
}

QVDSPApp& GetDSPApp()
{
    // Made on first use, so that the load hook of the shared module finds it
    // whatever the order of static initialisation, and torn down after that hook.
    static QVDSPApp app;
    return app;
}
