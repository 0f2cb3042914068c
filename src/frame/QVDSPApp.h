// The application object that receives the library's load and unload. The
// first load stores the module's handle and runs InitInstance; the last unload
// runs ExitInstance.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

class QVApp
{
public:
    enum EEntryReason : int32_t
    {
        ENTRY_DETACH = 0,
        ENTRY_ATTACH = 1,
    };

    QVApp();
    virtual ~QVApp() = default;
    QVApp(const QVApp&) = delete;
    QVApp& operator=(const QVApp&) = delete;

    // Load and unload are forwarded here; false fails the load.
    virtual bool Entry(void* moduleHandle, int32_t reason);
    virtual bool InitInstance() { return true; }
    virtual bool ExitInstance() { return true; }

    void* GetInstanceHandle() const { return instance; }
    int32_t GetAttachCount() const { return attachCount.load(); }
    // The process's command line, copied at the first attach.
    const std::vector<std::string>& GetCommandLine() const { return commandLine; }

    // The application object of this module: the first one constructed.
    static QVApp* GetCurrent();

protected:
    void* instance = nullptr;
    std::atomic<int32_t> attachCount{0};
    std::vector<std::string> commandLine;
};

class QVDllApp : public QVApp
{
};

class QVDSPApp : public QVDllApp
{
public:
    // Makes sure the tools are there; without a tools module the built-in ones
    // are installed, so this does not fail in a build without the host.
    bool InitInstance() override;
    // Releases the sibling modules, the last loaded first.
    bool ExitInstance() override;
};

// The module's one application object.
QVDSPApp& GetDSPApp();

// The seed of the module's random numbers, taken from the high-resolution
// clock when the module is loaded: one step of the classic linear congruential
// generator over the clock's low 32 bits, keeping 15 bits.
uint32_t QVRandomSeedFromClock(uint64_t clockTicks);
uint32_t QVGetRandomSeed();
