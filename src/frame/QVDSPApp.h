// The application object that receives the library's load and unload. The
// first load stores the module's handle and runs InitInstance; the last unload
// runs ExitInstance.
#pragma once

#include <atomic>
#include <cstdint>

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

    // The application object of this module: the first one constructed.
    static QVApp* GetCurrent();

protected:
    void* instance = nullptr;
    std::atomic<int32_t> attachCount{0};
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
