// The Effects settings record in a store of the test's own: where it reads,
// what it writes byte for byte, and when it writes nothing.
#include "frame/DSPSettings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "core/QVDllString.h"
#include "effects/EffectsPlugin.h"
#include "host/SettingsStore.h"
#include "support/FileStoreTools.h"

namespace
{

constexpr const char16_t* ZONE_KEY = u"Zones\\3\\Effects";
constexpr const char16_t* LEGACY_KEY = u"Plugins\\DSP\\QM DSP";

// The bytes of five little-endian words.
std::vector<uint8_t> Blob(std::initializer_list<int32_t> words)
{
    std::vector<uint8_t> bytes;
    for (int32_t word : words)
        for (int32_t shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<uint8_t>(static_cast<uint32_t>(word) >> shift));
    return bytes;
}

std::vector<uint8_t> ReadBlob(IQVSettingsKey& key, const char16_t* name, int32_t zone = 0)
{
    QVDllBuffer buffer;
    if (!key.ReadBinary(name, &buffer, zone))
        return {};
    const auto* data = static_cast<const uint8_t*>(buffer.GetData());
    return std::vector<uint8_t>(data, data + buffer.GetSize());
}

void ExpectWords(const CDSPSettings& settings, std::initializer_list<int32_t> words)
{
    int32_t stored[5];
    std::memcpy(stored, &settings.values, sizeof(stored));
    EXPECT_EQ(std::vector<int32_t>(stored, stored + 5), std::vector<int32_t>(words));
}

}  // namespace

TEST(DSPSettings, LoadsTheZoneBlobThenTheOldOneThenTheDefaults)
{
    qvtest::ScopedFileStore store;
    CEffectsDSPPlugin plugin(nullptr, 3);
    CDSPSettings settings(&plugin);
    plugin.SetOption(DSPOPT_TRANSIENT);  // this test looks only at reading

    settings.values = {9, 9, 9, 9, 9};
    settings.Load();
    ExpectWords(settings, {1, 4, 2, 1, 2});

    // The old flat value, stored under this zone's name for it.
    const std::vector<uint8_t> old = Blob({3, 7, 5, 0, 1});
    store.Key(LEGACY_KEY)
        ->WriteBinary(QVSettingsZoneValueName(u"Effects - Settings", 3).c_str(), old.data(), 20);
    settings.Load();
    ExpectWords(settings, {3, 7, 5, 0, 1});

    // The zone's own value wins.
    const std::vector<uint8_t> current = Blob({2, 10, 0, 1, 4});
    store.Key(ZONE_KEY)->WriteBinary(u"Settings", current.data(), 20);
    settings.Load();
    ExpectWords(settings, {2, 10, 0, 1, 4});

    // A longer value is some other record: it counts as absent, so the old
    // value serves, and without that the defaults.
    const std::vector<uint8_t> longer = Blob({5, 5, 5, 5, 5, 5});
    store.Key(ZONE_KEY)->WriteBinary(u"Settings", longer.data(), 24);
    settings.Load();
    ExpectWords(settings, {3, 7, 5, 0, 1});
    store.Key(LEGACY_KEY)->DeleteAllValues();
    settings.Load();
    ExpectWords(settings, {1, 4, 2, 1, 2});
    // A shorter one replaces the words it holds.
    const std::vector<uint8_t> shorter = Blob({5, 6});
    settings.values = {1, 4, 2, 1, 2};
    store.Key(ZONE_KEY)->WriteBinary(u"Settings", shorter.data(), 8);
    settings.Load();
    ExpectWords(settings, {5, 6, 2, 1, 2});
}

TEST(DSPSettings, SavesTwentyBytesAndRemovesTheOldValue)
{
    qvtest::ScopedFileStore store;
    // The old value as this zone reads it, and under its plain name, which
    // a save removes.
    const std::vector<uint8_t> old = Blob({3, 7, 5, 0, 1});
    store.Key(LEGACY_KEY)
        ->WriteBinary(QVSettingsZoneValueName(u"Effects - Settings", 3).c_str(), old.data(), 20);
    store.Key(LEGACY_KEY)->WriteBinary(u"Effects - Settings", old.data(), 20);
    {
        CEffectsDSPPlugin plugin(nullptr, 3);
        CDSPSettings& settings = plugin.GetSettings();
        ExpectWords(settings, {3, 7, 5, 0, 1});
        settings.values = {5, 10, 4, -7, 3};
        ASSERT_TRUE(settings.Save());
        EXPECT_EQ(ReadBlob(*store.Key(ZONE_KEY), u"Settings"), Blob({5, 10, 4, -7, 3}));
        EXPECT_EQ(store.Key(LEGACY_KEY)->GetValueType(u"Effects - Settings"), SETTINGS_TYPE_NONE);

        // The destructor saves once more what the words hold then.
        settings.values.environment = 2;
    }
    EXPECT_EQ(ReadBlob(*store.Key(ZONE_KEY), u"Settings"), Blob({2, 10, 4, -7, 3}));

    // The plug-in itself reads what was saved, and saves on its way out.
    {
        CEffectsDSPPlugin plugin(nullptr, 3);
        ExpectWords(plugin.GetSettings(), {2, 10, 4, -7, 3});
        plugin.GetSettings().values.surroundField = 0;
    }
    EXPECT_EQ(ReadBlob(*store.Key(ZONE_KEY), u"Settings"), Blob({2, 10, 4, -7, 0}));
}

TEST(DSPSettings, NoZoneAndTransientPluginsWriteNothing)
{
    qvtest::ScopedFileStore store;
    {
        CEffectsDSPPlugin global(nullptr, DSP_ZONE_GLOBAL);
        EXPECT_FALSE(global.GetSettings().MayWrite());
        global.GetSettings().values.environment = 5;
        EXPECT_TRUE(global.GetSettings().Save());  // nothing was due
    }
    {
        CEffectsDSPPlugin passing(nullptr, 4);
        EXPECT_TRUE(passing.GetSettings().MayWrite());
        EXPECT_EQ(passing.SetOption(DSPOPT_TRANSIENT), 0);
        EXPECT_FALSE(passing.GetSettings().MayWrite());
        passing.GetSettings().values.environment = 5;
        EXPECT_TRUE(passing.GetSettings().Save());
    }
    CDSPSettings orphan(nullptr);
    EXPECT_FALSE(orphan.MayWrite());
    EXPECT_FALSE(std::filesystem::exists(store.tools.path));

    // The global branch is read all the same, with zone 0 for the old value.
    const std::vector<uint8_t> global = Blob({4, 2, 3, 1, 1});
    store.Key(LEGACY_KEY)->WriteBinary(u"Effects - Settings", global.data(), 20);
    CEffectsDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
    ExpectWords(plugin.GetSettings(), {4, 2, 3, 1, 1});
    store.Key(u"Zones\\Global\\Effects")
        ->WriteBinary(u"Settings", Blob({5, 1, 0, 1, 0}).data(), 20);
    plugin.GetSettings().Load();
    ExpectWords(plugin.GetSettings(), {5, 1, 0, 1, 0});
}

TEST(DSPSettings, AStoreThatRefusesWritesIsReported)
{
    qvtest::ScopedFileStore store;
    {
        std::ofstream broken(store.tools.path);
        broken << "{ not json";
    }
    CEffectsDSPPlugin plugin(nullptr, 2);
    ExpectWords(plugin.GetSettings(), {1, 4, 2, 1, 2});
    EXPECT_FALSE(plugin.GetSettings().Save());
    plugin.SetOption(DSPOPT_TRANSIENT);
    std::ifstream kept(store.tools.path);
    std::string text((std::istreambuf_iterator<char>(kept)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "{ not json");
}
