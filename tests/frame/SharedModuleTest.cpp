// Loads the built libqvdsp.so the way a host does and drives it only through
// its two exports.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>
#include <sstream>
#include <string>

#include "qvdsp/IQVDSP.h"
#include "support/TestSupport.h"

namespace
{

const char* ModulePath()
{
    return QVDSP_SHARED_MODULE_PATH;
}

struct ModuleCloser
{
    void operator()(void* handle) const { dlclose(handle); }
};
using ModuleHandle = std::unique_ptr<void, ModuleCloser>;

ModuleHandle OpenModule()
{
    return ModuleHandle(dlopen(ModulePath(), RTLD_NOW | RTLD_LOCAL));
}

// Text symbols that the module defines in its dynamic table, by nm; empty
// with `available` false when nm cannot be run.
std::set<std::string> DefinedTextSymbols(bool& available)
{
    std::set<std::string> symbols;
    const std::string command =
        std::string("nm -D --defined-only '") + ModulePath() + "' 2>/dev/null";
    FILE* pipe = popen(command.c_str(), "r");
    available = pipe != nullptr;
    if (pipe == nullptr)
        return symbols;
    char line[1024];
    bool any = false;
    while (fgets(line, sizeof(line), pipe) != nullptr)
    {
        any = true;
        std::istringstream fields(line);
        std::string address, type, name;
        if (fields >> address >> type >> name &&
            (type == "T" || type == "t" || type == "W" || type == "i"))
            symbols.insert(name);
    }
    available = pclose(pipe) == 0 && any;
    return symbols;
}

}  // namespace

TEST(SharedModule, ExportsExactlyTheTwoEntryPoints)
{
    ModuleHandle module = OpenModule();
    ASSERT_NE(module, nullptr) << dlerror();
    EXPECT_NE(dlsym(module.get(), "GetDSPPlugin"), nullptr);
    EXPECT_NE(dlsym(module.get(), "DllRegisterServer"), nullptr);
    // The factory behind the export stays inside.
    EXPECT_EQ(dlsym(module.get(), "_Z15CreateDSPPluginiP10IQVDSPHostib"), nullptr);

    bool nmAvailable = false;
    const std::set<std::string> symbols = DefinedTextSymbols(nmAvailable);
    if (!nmAvailable)
        GTEST_SKIP() << "nm could not be run";
    EXPECT_EQ(symbols, (std::set<std::string>{"DllRegisterServer", "GetDSPPlugin"}));
}

TEST(SharedModule, PluginsMadeThroughTheExportProcessABlock)
{
    ModuleHandle module = OpenModule();
    ASSERT_NE(module, nullptr) << dlerror();
    auto getPlugin = reinterpret_cast<GetDSPPluginFunction>(dlsym(module.get(), "GetDSPPlugin"));
    auto registerServer =
        reinterpret_cast<DllRegisterServerFunction>(dlsym(module.get(), "DllRegisterServer"));
    ASSERT_NE(getPlugin, nullptr);
    ASSERT_NE(registerServer, nullptr);

    qvtest::CountingHost host;
    const CAudioFormat format(64, 48000, 2);
    std::set<int32_t> made;
    for (int32_t index = -1; index <= 13; ++index)
    {
        std::unique_ptr<IQVDSP> plugin(getPlugin(index, &host, DSP_ZONE_GLOBAL));
        if (!plugin)
            continue;
        made.insert(index);
        ASSERT_EQ(plugin->SetFormat(format), 0);
        std::vector<double> block = qvtest::Sine(256, 2, 1000.0, 48000.0, 0.5);
        qvtest::CollectingSink sink(2);
        EXPECT_EQ(plugin->Process(block.data(), 256, &sink), 0);
        EXPECT_EQ(sink.outputCalls, 1) << index;
        EXPECT_EQ(sink.totalFrames, 256) << index;
    }
    // The unlisted Tube Amplifier is not reachable through the export.
    EXPECT_EQ(made, (std::set<int32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}));
    // Registration writes into the store: one of its own, gone afterwards.
    const std::string store =
        testing::TempDir() + "qvdsp-shared-module-" + std::to_string(::getpid()) + ".json";
    const char* previous = std::getenv("QVDSP_SETTINGS");
    const std::string kept = previous != nullptr ? previous : "";
    setenv("QVDSP_SETTINGS", store.c_str(), 1);
    EXPECT_EQ(registerServer(), 0);
    std::remove(store.c_str());
    if (previous != nullptr)
        setenv("QVDSP_SETTINGS", kept.c_str(), 1);
    else
        unsetenv("QVDSP_SETTINGS");
}
