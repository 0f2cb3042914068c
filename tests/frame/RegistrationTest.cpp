#include "frame/Registration.h"

#include <gtest/gtest.h>

#include "frame/PluginFactory.h"
#include "frame/SiblingModules.h"
#include "support/FileStoreTools.h"
#include "support/TestSupport.h"

TEST(Registration, KeysThatCannotBeOpenedAreSkipped)
{
    // Tools whose every key fails to open: nothing to write, and still 0.
    qvtest::ScopedTestTools tools;
    EXPECT_EQ(DllRegisterServer(), 0);

    // With a store, a second registration gives the same keys as the first.
    qvtest::ScopedFileStore store;
    EXPECT_EQ(DllRegisterServer(), 0);
    auto key = std::unique_ptr<IQVSettingsKey>(
        store.tools.GetPluginKeyObject(QVString(u"Plugins\\DSP\\Output Format"), true));
    EXPECT_EQ(key->ReadInt(u"Index", -1, 0), DSPPLUGIN_OUTPUT_FORMAT);
    EXPECT_EQ(QVReadSettingsString(*key, QVString(u"Path"), QVString(), 0).ToUTF8(),
              GetModulePath());
    const std::vector<QVString> first = QVListSubkeyNames(
        *std::unique_ptr<IQVSettingsKey>(store.tools.GetPluginKeyObject(u"Plugins\\DSP", true)));
    EXPECT_EQ(DllRegisterServer(), 0);
    EXPECT_EQ(QVListSubkeyNames(*std::unique_ptr<IQVSettingsKey>(
                  store.tools.GetPluginKeyObject(u"Plugins\\DSP", true))),
              first);
}
