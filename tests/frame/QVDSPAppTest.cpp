#include "frame/QVDSPApp.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "frame/IQVTools.h"
#include "frame/SiblingModules.h"
#include "host/BuiltinTools.h"

namespace
{

class CountingApp : public QVApp
{
public:
    bool InitInstance() override
    {
        ++inits;
        return initResult;
    }
    bool ExitInstance() override
    {
        ++exits;
        return true;
    }
    int inits = 0;
    int exits = 0;
    bool initResult = true;
};

int handleValue = 0;

}  // namespace

TEST(QVDSPApp, FirstAttachInitialisesAndLastDetachExits)
{
    CountingApp app;
    EXPECT_TRUE(app.Entry(&handleValue, QVApp::ENTRY_ATTACH));
    EXPECT_TRUE(app.Entry(nullptr, QVApp::ENTRY_ATTACH));
    EXPECT_EQ(app.inits, 1);
    EXPECT_EQ(app.GetInstanceHandle(), &handleValue);
    EXPECT_EQ(app.GetAttachCount(), 2);
    app.Entry(nullptr, QVApp::ENTRY_DETACH);
    EXPECT_EQ(app.exits, 0);
    app.Entry(nullptr, QVApp::ENTRY_DETACH);
    EXPECT_EQ(app.exits, 1);
    // A detach too many changes nothing.
    app.Entry(nullptr, QVApp::ENTRY_DETACH);
    EXPECT_EQ(app.exits, 1);
    EXPECT_EQ(app.GetAttachCount(), 0);
}

TEST(QVDSPApp, FailedInitialisationExitsAndFailsTheLoad)
{
    CountingApp app;
    app.initResult = false;
    EXPECT_FALSE(app.Entry(&handleValue, QVApp::ENTRY_ATTACH));
    EXPECT_EQ(app.exits, 1);
    EXPECT_EQ(app.GetAttachCount(), 0);
    app.initResult = true;
    EXPECT_TRUE(app.Entry(&handleValue, QVApp::ENTRY_ATTACH));
    EXPECT_EQ(app.inits, 2);
}

TEST(QVDSPApp, TheModuleAppInstallsToolsWithoutAToolsModule)
{
    IQVTools* previous = GetQVTools();
    SetQVTools(nullptr);
    EXPECT_TRUE(GetDSPApp().InitInstance());
    EXPECT_EQ(GetQVTools(), &GetBuiltinTools());
    EXPECT_TRUE(EnsureToolsReady(QVString(), true));
    EXPECT_TRUE(GetDSPApp().ExitInstance());
    SetQVTools(previous);
    // The first application object made in the process is the current one.
    EXPECT_NE(QVApp::GetCurrent(), nullptr);
}

TEST(SiblingModules, ModuleFolderAndLoading)
{
    char exe[4096];
    const ssize_t length = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    ASSERT_GT(length, 0);
    exe[length] = '\0';
    EXPECT_EQ(GetModulePath(), exe);
    const std::string folder = GetModuleFolder();
    ASSERT_FALSE(folder.empty());
    EXPECT_EQ(folder.back(), '/');
    EXPECT_EQ(std::string(exe).rfind(folder, 0), 0u);

    EXPECT_EQ(LoadSiblingModule("/nonexistent/libnothing.so"), nullptr);
    EXPECT_EQ(LoadSiblingModule("libnothing-here.so"), nullptr);
    void* module = LoadSiblingModule(QVDSP_SHARED_MODULE_PATH);
    ASSERT_NE(module, nullptr);
    // A module already held is not loaded again.
    EXPECT_EQ(LoadSiblingModule(QVDSP_SHARED_MODULE_PATH), module);
    UnloadSiblingModules();
}

TEST(QVDSPApp, RandomSeedFromTheClock)
{
    // Worked by hand: (t * 214013 + 2531011) mod 2^32, shifted by 16, 15 bits kept.
    EXPECT_EQ(QVRandomSeedFromClock(0), 38u);
    EXPECT_EQ(QVRandomSeedFromClock(1), 41u);
    EXPECT_EQ(QVRandomSeedFromClock(100000), 31684u);
    EXPECT_EQ(QVRandomSeedFromClock((uint64_t(1) << 32) + 1), 41u);  // the low 32 bits count
    EXPECT_EQ(QVRandomSeedFromClock(123456789012ull), 15748u);
    EXPECT_LE(QVGetRandomSeed(), 0x7fffu);
}

TEST(QVDSPApp, FirstAttachCopiesTheCommandLine)
{
    CountingApp app;
    EXPECT_TRUE(app.GetCommandLine().empty());
    app.Entry(&handleValue, QVApp::ENTRY_ATTACH);
    ASSERT_FALSE(app.GetCommandLine().empty());
    const std::string program = app.GetCommandLine()[0];
    EXPECT_NE(program.find("frame_tests"), std::string::npos) << program;
    app.Entry(nullptr, QVApp::ENTRY_DETACH);
}
