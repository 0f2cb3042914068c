#include "frame/QVDSPApp.h"

#include <chrono>
#include <fstream>
#include <iterator>

#include "frame/IQVTools.h"
#include "frame/SiblingModules.h"

namespace
{
std::atomic<QVApp*> g_currentApp{nullptr};

uint32_t SeedFromClockNow()
{
    const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
    return QVRandomSeedFromClock(static_cast<uint64_t>(ticks));
}

// Set by static initialisation, after the application object.
const uint32_t g_randomSeed = SeedFromClockNow();

// The arguments the process was started with, as /proc keeps them.
std::vector<std::string> ReadCommandLine()
{
    std::ifstream file("/proc/self/cmdline", std::ios::binary);
    const std::string all((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::vector<std::string> arguments;
    size_t start = 0;
    while (start < all.size())
    {
        size_t end = all.find('\0', start);
        if (end == std::string::npos)
            end = all.size();
        arguments.push_back(all.substr(start, end - start));
        start = end + 1;
    }
    return arguments;
}
}  // namespace

uint32_t QVRandomSeedFromClock(uint64_t clockTicks)
{
    const uint32_t low = static_cast<uint32_t>(clockTicks);
    return ((low * 214013u + 2531011u) >> 16) & 0x7fffu;
}

uint32_t QVGetRandomSeed()
{
    return g_randomSeed;
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
        commandLine = ReadCommandLine();
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
