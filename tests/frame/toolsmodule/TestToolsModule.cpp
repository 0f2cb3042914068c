// A tools module built only for the tests: it stands where the host's tools
// module would, beside the DSP module, and records how the DSP module treats
// it. Copied under the names of the program's other modules it also answers
// their entry points. Its settings keys open the same JSON file as the
// built-in tools, so that what the DSP module writes through it can be read.
//
// QVTEST_TOOLS_NULL set: the entry point answers null. QVTEST_TOOLS_FAIL set:
// the product description fails to load with that text as the reason.
#include <cstdlib>
#include <cstring>

#include "TestToolsState.h"
#include "core/QVStringManager.h"
#include "frame/IQVTools.h"
#include "frame/SiblingModules.h"
#include "host/SettingsStore.h"

#define TEST_EXPORT extern "C" __attribute__((visibility("default")))

namespace
{

QVTestToolsState g_state;

class TestProduct : public IQVProductDescription
{
public:
    bool Load(const QVString& moduleName, QVString& error) override
    {
        ++g_state.productLoads;
        std::strncpy(g_state.productModuleName, moduleName.ToUTF8().c_str(),
                     sizeof(g_state.productModuleName) - 1);
        if (const char* failure = std::getenv("QVTEST_TOOLS_FAIL"))
        {
            error = QVString::FromUTF8(failure);
            return false;
        }
        loaded = true;
        return true;
    }
    bool loaded = false;
};

class TestModuleTools : public IQVTools
{
public:
    void Attach(void* loaderValue, void* moduleHandle) override
    {
        ++g_state.attachCalls;
        g_state.loaderValue = loaderValue;
        g_state.moduleHandle = moduleHandle;
    }
    IQVProductDescription* GetProductDescription(bool create) override
    {
        return create || product.loaded ? &product : nullptr;
    }
    IQVTranslator* GetTranslator(bool create) override { return nullptr; }
    IQVLogger* GetLogger(int32_t kind) override { return nullptr; }
    IQVScaler* GetScaler() override { return nullptr; }
    IQVSettingsKey* GetPluginKeyObject(const QVString& path, bool systemScope) override
    {
        ++g_state.keysOpened;
        return OpenFileSettingsKey(path, systemScope);
    }

private:
    TestProduct product;
};

TestModuleTools g_tools;

class TestPlayer : public IQVSiblingModule
{
public:
    void Attach(void* loaderValue) override
    {
        ++g_state.playerAttaches;
        g_state.playerLoaderValue = loaderValue;
    }
};

TestPlayer g_player;

// Strings this module made are pooled by its own copy of the string manager;
// they go back to the heap before the module is unmapped.
__attribute__((destructor)) void ReleaseStrings()
{
    QVGetStringGlobals()->ReleasePool();
}

}  // namespace

TEST_EXPORT IQVTools* GetQVToolsDLL(int32_t version)
{
    ++g_state.entryCalls;
    g_state.entryVersion = version;
    return std::getenv("QVTEST_TOOLS_NULL") != nullptr ? nullptr : &g_tools;
}

TEST_EXPORT IQVSiblingModule* GetQVPlayerDLL()
{
    return &g_player;
}

TEST_EXPORT void QVReaderInitialize(void* loaderValue)
{
    ++g_state.readerStarts;
    g_state.readerLoaderValue = loaderValue;
}

TEST_EXPORT void QVDiscInitialize(void* loaderValue)
{
    ++g_state.discStarts;
}

TEST_EXPORT void QVReaderUninitialize()
{
    if (g_state.endCounts != nullptr)
        ++g_state.endCounts[0];
}

TEST_EXPORT void QVDiscUninitialize()
{
    if (g_state.endCounts != nullptr)
        ++g_state.endCounts[1];
}

TEST_EXPORT QVTestToolsState* QVTestToolsGetState()
{
    return &g_state;
}
