// The shared module in a folder of its own, with and without a tools module
// beside it: copies of the built libqvdsp.so and of the test tools module are
// laid out the way an installation would be, and loaded with dlopen.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "frame/SettingsKey.h"
#include "frame/SiblingModules.h"
#include "host/SettingsStore.h"
#include "qvdsp/IQVDSP.h"
#include "support/TestSupport.h"
#include "toolsmodule/TestToolsState.h"

namespace
{

namespace fs = std::filesystem;

// A folder laid out like an installation, removed at the end, with the
// settings file of the module's built-in tools inside it.
class InstallFolder
{
public:
    InstallFolder()
    {
        folder = fs::temp_directory_path() /
                 ("qvdsp-install-" + std::to_string(::getpid()) + "-" + std::to_string(count++));
        fs::create_directories(folder);
        fs::copy_file(QVDSP_SHARED_MODULE_PATH, Module());
        settings = (folder / "settings.json").string();
        setenv("QVDSP_SETTINGS", settings.c_str(), 1);
    }
    ~InstallFolder() { fs::remove_all(folder); }

    std::string Module() const { return (folder / "libqvdsp.so").string(); }
    // The test tools module under `relative` (such as "x64/libqvtools.so").
    std::string AddTools(const std::string& relative) const
    {
        const fs::path target = folder / relative;
        fs::create_directories(target.parent_path());
        fs::copy_file(QVDSP_TEST_TOOLS_PATH, target);
        return target.string();
    }
    std::unique_ptr<IQVSettingsKey> SystemKey(const std::string& path) const
    {
        return std::make_unique<CFileSettingsKey>(settings, path, true);
    }

    fs::path folder;
    std::string settings;

private:
    static inline int count = 0;
};

struct Closer
{
    void operator()(void* handle) const { dlclose(handle); }
};
using Handle = std::unique_ptr<void, Closer>;

Handle Open(const std::string& path, int flags = RTLD_NOW | RTLD_LOCAL)
{
    return Handle(dlopen(path.c_str(), flags));
}

bool IsLoaded(const std::string& path)
{
    return Open(path, RTLD_NOW | RTLD_NOLOAD) != nullptr;
}

QVTestToolsState* StateOf(void* toolsModule)
{
    using Getter = QVTestToolsState* (*)();
    auto getter = reinterpret_cast<Getter>(dlsym(toolsModule, "QVTestToolsGetState"));
    return getter != nullptr ? getter() : nullptr;
}

template <typename Function>
Function Export(void* module, const char* name)
{
    return reinterpret_cast<Function>(dlsym(module, name));
}

std::string Read(IQVSettingsKey& key, const char16_t* name)
{
    return QVReadSettingsString(key, QVString(name), QVString(u"<none>"), 0).ToUTF8();
}

// Display names of the index table, 0 to 11.
const char* const kListedNames[] = {
    "Equalizer",
    "Effects",
    "Volume Leveling",
    "Output Format",
    "Tempo & Pitch",
    "Headphones",
    "Room Correction",
    "Analyzer",
    "Parametric Equalizer",
    "Convolution",
    "Parametric Equalizer 2",
    "Adaptive Volume",
};

}  // namespace

TEST(ToolsModule, LoadedFromTheSubfolderAttachedOnceAndReleasedAtUnload)
{
    InstallFolder install;
    const std::string toolsPath = install.AddTools("x64/libqvtools.so");
    void* module = dlopen(install.Module().c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(module, nullptr) << dlerror();

    // Loading the module ran its start, which loaded the tools beside it.
    Handle tools = Open(toolsPath, RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(tools, nullptr);
    QVTestToolsState* state = StateOf(tools.get());
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(state->entryCalls, 1);
    EXPECT_EQ(state->entryVersion, 200048);
    EXPECT_EQ(state->attachCalls, 1);
    EXPECT_NE(state->loaderValue, nullptr);
    Dl_info info{};
    ASSERT_NE(dladdr(dlsym(module, "GetDSPPlugin"), &info), 0);
    EXPECT_EQ(state->moduleHandle, info.dli_fbase);
    EXPECT_EQ(state->productLoads, 1);
    EXPECT_STREQ(state->productModuleName, "");

    // Plug-ins and registration use those tools; the description is not loaded again.
    auto getPlugin = Export<GetDSPPluginFunction>(module, "GetDSPPlugin");
    std::unique_ptr<IQVDSP> plugin(getPlugin(3, nullptr, DSP_ZONE_GLOBAL));
    ASSERT_NE(plugin, nullptr);
    EXPECT_GT(state->keysOpened, 0);
    const int keysBefore = state->keysOpened;
    EXPECT_EQ(Export<DllRegisterServerFunction>(module, "DllRegisterServer")(), 0);
    EXPECT_GT(state->keysOpened, keysBefore);
    EXPECT_EQ(state->productLoads, 1);
    EXPECT_EQ(Read(*install.SystemKey("Plugins\\DSP\\Output Format"), u"Path"),
              fs::canonical(install.Module()).string());
    plugin.reset();

    tools.reset();
    dlclose(module);
    EXPECT_FALSE(IsLoaded(install.Module()));
    EXPECT_FALSE(IsLoaded(toolsPath));
}

TEST(ToolsModule, OwnFolderComesBeforeTheSubfolder)
{
    InstallFolder install;
    const std::string own = install.AddTools("libqvtools.so");
    const std::string sub = install.AddTools("x64/libqvtools.so");
    Handle module = Open(install.Module());
    ASSERT_NE(module, nullptr) << dlerror();
    EXPECT_TRUE(IsLoaded(own));
    EXPECT_FALSE(IsLoaded(sub));
}

TEST(ToolsModule, RegistrationThroughTheLoadedModuleWithBuiltInTools)
{
    InstallFolder install;
    // What earlier versions left: a retired plug-in and the unlisted one.
    install.SystemKey("Plugins\\DSP\\Speakers")->WriteInt(u"Index", 6);
    install.SystemKey("Plugins\\DSP\\Tube Amplifier")->WriteInt(u"Index", 12);
    install.SystemKey("Plugins\\DSP\\Other Vendor")->WriteInt(u"Index", 0);

    Handle module = Open(install.Module());
    ASSERT_NE(module, nullptr) << dlerror();
    auto getPlugin = Export<GetDSPPluginFunction>(module.get(), "GetDSPPlugin");
    auto registerServer = Export<DllRegisterServerFunction>(module.get(), "DllRegisterServer");
    ASSERT_NE(getPlugin, nullptr);
    ASSERT_NE(registerServer, nullptr);
    EXPECT_EQ(registerServer(), 0);

    // Every plug-in the module builds is listed under its display name; the
    // count reaches twelve when every plug-in of the table is part of the build.
    std::set<std::string> expected{"Other Vendor"};
    std::map<std::string, int32_t> indexOf;
    for (int32_t index = 0; index < 12; ++index)
    {
        std::unique_ptr<IQVDSP> plugin(getPlugin(index, nullptr, DSP_ZONE_GLOBAL));
        if (!plugin)
            continue;
        expected.insert(kListedNames[index]);
        indexOf[kListedNames[index]] = index;
    }
    EXPECT_GE(indexOf.size(), 6u);
    std::set<std::string> subkeys;
    for (const QVString& name : QVListSubkeyNames(*install.SystemKey("Plugins\\DSP")))
        subkeys.insert(name.ToUTF8());
    EXPECT_EQ(subkeys, expected);

    const std::string modulePath = fs::canonical(install.Module()).string();
    for (const auto& [name, index] : indexOf)
    {
        auto key = install.SystemKey("Plugins\\DSP\\" + name);
        EXPECT_EQ(QVListValueNames(*key).size(), 8u) << name;
        EXPECT_EQ(key->ReadInt(u"IVersion", -1, 0), 1) << name;
        EXPECT_EQ(key->GetValueType(u"IVersion"), SETTINGS_TYPE_INT);
        EXPECT_EQ(Read(*key, u"Company"), "Quovan");
        EXPECT_EQ(Read(*key, u"Path"), modulePath);
        EXPECT_EQ(key->ReadInt(u"Index", -1, 0), index) << name;
        EXPECT_EQ(key->GetValueType(u"Index"), SETTINGS_TYPE_INT);
        EXPECT_EQ(Read(*key, u"Version"), "1.1.6");
        EXPECT_NE(Read(*key, u"URL"), "<none>");
        EXPECT_NE(Read(*key, u"Copyright"), "<none>");
        EXPECT_EQ(Read(*key, u"Description"), name + " (part of Quovan main DSP plug-ins)");
        EXPECT_EQ(Read(*install.SystemKey("Plugins\\System"), QVString::FromUTF8(name).c_str()),
                  "installed");
    }
    EXPECT_EQ(QVListValueNames(*install.SystemKey("Plugins\\System")).size(), indexOf.size());
    // Registration is written with system scope only.
    CFileSettingsKey userBranch(install.settings, "Plugins\\DSP", false);
    EXPECT_TRUE(QVListSubkeyNames(userBranch).empty());
}

TEST(ToolsModuleDeathTest, ProductDescriptionFailureEndsTheProcessAtTheFirstPlugin)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    InstallFolder install;
    install.AddTools("libqvtools.so");
    const std::string module = install.Module();
    auto run = [&module](const char* failure)
    {
        setenv("QVTEST_TOOLS_FAIL", failure, 1);
        void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (handle == nullptr)
            std::exit(3);
        auto getPlugin = Export<GetDSPPluginFunction>(handle, "GetDSPPlugin");
        getPlugin(0, nullptr, 0);
        std::exit(4);  // not reached: the failed tools end the process
    };
    EXPECT_EXIT(run("Licence file is damaged"), testing::ExitedWithCode(0),
                "Critical Error: The following module has failed to load:\r\nlibqvdsp\\.so\r\n\r\n"
                "It has reported the following error:\r\n\r\nLicence file is damaged\r\n\r\n"
                "Please reinstall the latest version of the program\\.");
    EXPECT_EXIT(run(""), testing::ExitedWithCode(0), "Unknown error loading product information");
}

TEST(ToolsModuleDeathTest, ToolsWithoutAnEntryObjectFailToLoad)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    InstallFolder install;
    install.AddTools("libqvtools.so");
    const std::string module = install.Module();
    EXPECT_EXIT(
        {
            setenv("QVTEST_TOOLS_NULL", "1", 1);
            void* handle = dlopen(module.c_str(), RTLD_NOW | RTLD_LOCAL);
            if (handle != nullptr)
                Export<GetDSPPluginFunction>(handle, "GetDSPPlugin")(0, nullptr, 0);
            std::exit(4);
        },
        testing::ExitedWithCode(0),
        "It has reported the following error:\r\n\r\nFailed to load QVTools");
}

TEST(SiblingModules, EntryPointsOfThePlayersModules)
{
    InstallFolder install;
    const std::string reader = install.AddTools("libqvreader.so");
    const std::string player = install.AddTools("libqvplayer.so");
    const std::string tools = install.AddTools("other/libqvtools.so");

    void* readerModule = LoadSiblingModule(reader);
    void* playerModule = LoadSiblingModule(player);
    void* toolsModule = LoadSiblingModule(tools);
    ASSERT_NE(readerModule, nullptr);
    ASSERT_NE(playerModule, nullptr);
    ASSERT_NE(toolsModule, nullptr);

    QVTestToolsState* readerState = StateOf(readerModule);
    EXPECT_EQ(readerState->readerStarts, 1);
    EXPECT_EQ(readerState->discStarts, 1);
    EXPECT_NE(readerState->readerLoaderValue, nullptr);
    EXPECT_EQ(readerState->playerAttaches, 0);
    QVTestToolsState* playerState = StateOf(playerModule);
    EXPECT_EQ(playerState->playerAttaches, 1);
    EXPECT_EQ(playerState->playerLoaderValue, readerState->readerLoaderValue);
    EXPECT_EQ(playerState->readerStarts, 0);
    // The tools' entry point is EnsureToolsReady's to call, not the loader's.
    EXPECT_EQ(StateOf(toolsModule)->entryCalls, 0);

    // Held once: a second load gives the same module without a second start.
    EXPECT_EQ(LoadSiblingModule(reader), readerModule);
    EXPECT_EQ(readerState->readerStarts, 1);

    int endCounts[2] = {0, 0};
    readerState->endCounts = endCounts;
    UnloadSiblingModules();
    EXPECT_EQ(endCounts[0], 1);
    EXPECT_EQ(endCounts[1], 1);
    EXPECT_FALSE(IsLoaded(reader));
    EXPECT_FALSE(IsLoaded(player));
    EXPECT_EQ(FindSiblingModule(reader), reader);
    EXPECT_EQ(FindSiblingModule(install.folder.string() + "/libqvnone.so"), "");
}

// These tests load copies of the module and unload them again. The leak check
// at exit must not walk the thread-local blocks of modules that are gone: their
// memory went with them. Heap blocks are still checked as everywhere else.
extern "C" __attribute__((visibility("default"), used)) const char* __lsan_default_options()
{
    return "use_tls=0";
}
