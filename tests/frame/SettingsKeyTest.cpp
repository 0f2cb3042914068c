#include "frame/SettingsKey.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>

#include <unistd.h>

#include "core/QVStringPrint.h"
#include "host/BuiltinTools.h"
#include "host/SettingsStore.h"
#include "support/ScratchFolder.h"
#include "support/TestTools.h"

namespace
{

// Tools whose keys open in a file of the test's own.
class FileTools : public qvtest::TestTools
{
public:
    explicit FileTools(std::string path) : path(std::move(path)) {}
    IQVSettingsKey* GetPluginKeyObject(const QVString& keyPath, bool systemScope) override
    {
        opened.push_back(keyPath);
        return new CFileSettingsKey(path, keyPath.ToUTF8(), systemScope);
    }
    std::string path;
    std::vector<QVString> opened;
};

class ZoneSettingsKeyTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        previous = GetQVTools();
        SetQVTools(&tools);
    }
    void TearDown() override { SetQVTools(previous); }

    CFileSettingsKey Raw(const std::string& keyPath)
    {
        return CFileSettingsKey(tools.path, keyPath, false);
    }

    qvtest::ScratchFolder scratch;
    FileTools tools{scratch.File("settings.json")};
    IQVTools* previous = nullptr;
};

const char16_t* const kLegacyPath = u"Plugins\\DSP\\QM DSP";

}  // namespace

TEST_F(ZoneSettingsKeyTest, PathsAndLegacyNames)
{
    EXPECT_EQ(CZoneSettingsKey::ZoneKeyPath(2, u"Tempo & Pitch"),
              QVString(u"Zones\\2\\Tempo & Pitch"));
    EXPECT_EQ(CZoneSettingsKey::ZoneKeyPath(QVZONE_GLOBAL, u"Equalizer\\Presets"),
              QVString(u"Zones\\Global\\Equalizer\\Presets"));
    EXPECT_EQ(CZoneSettingsKey::ZoneKeyPath(0, u""), QVString(u"Zones\\0"));
    EXPECT_EQ(CZoneSettingsKey::ZoneKeyPath(-3, u"x"), QVString(u"Zones\\-3\\x"));

    CZoneSettingsKey prefixed(1, u"Effects", kLegacyPath, u"Effects - ");
    EXPECT_EQ(prefixed.GetLegacyName(u"Settings"), QVString(u"Effects - Settings"));
    CZoneSettingsKey plain(1, u"Tempo & Pitch", kLegacyPath, u"");
    EXPECT_EQ(plain.GetLegacyName(u"Tempo"), QVString(u"Tempo"));
    EXPECT_EQ(tools.opened, (std::vector<QVString>{u"Zones\\1\\Effects", kLegacyPath,
                                                   u"Zones\\1\\Tempo & Pitch", kLegacyPath}));

    CZoneSettingsKey noLegacy(1, u"Audio Settings", u"", u"");
    EXPECT_EQ(noLegacy.GetLegacyKey(), nullptr);
    EXPECT_NE(noLegacy.GetZoneKey(), nullptr);
}

TEST_F(ZoneSettingsKeyTest, OldValueIsTheDefaultAndTheZoneKeyWins)
{
    CFileSettingsKey legacy = Raw("Plugins\\DSP\\QM DSP");
    legacy.WriteInt(QVSettingsZoneValueName(u"Headphones - Level", 2).c_str(), 5);
    legacy.WriteString(QVSettingsZoneValueName(u"Headphones - Name", 2).c_str(), u"old");
    legacy.WriteInt(u"Headphones - Level", 9);  // what zone 0 and the global branch see

    CZoneSettingsKey zone2(2, u"Headphones", kLegacyPath, u"Headphones - ");
    EXPECT_EQ(zone2.ReadInt(u"Level", 0), 5);
    EXPECT_EQ(zone2.ReadString(u"Name", u"none"), QVString(u"old"));
    EXPECT_EQ(zone2.ReadInt(u"Missing", 17), 17);

    CZoneSettingsKey global(QVZONE_GLOBAL, u"Headphones", kLegacyPath, u"Headphones - ");
    EXPECT_EQ(global.ReadInt(u"Level", 0), 9);  // passed to the old key as zone 0

    Raw("Zones\\2\\Headphones").WriteInt(u"Level", 6);
    Raw("Zones\\2\\Headphones").WriteString(u"Name", u"new");
    EXPECT_EQ(zone2.ReadInt(u"Level", 0), 6);
    QVString name;
    zone2.ReadString(name, u"Name", u"none");
    EXPECT_EQ(name, QVString(u"new"));
}

TEST_F(ZoneSettingsKeyTest, WritesGoToTheZoneKeyAndRemoveTheOldValue)
{
    CFileSettingsKey legacy = Raw("Plugins\\DSP\\QM DSP");
    const QVString zoneName = QVSettingsZoneValueName(u"Headphones - Level", 2);
    legacy.WriteInt(zoneName.c_str(), 5);
    legacy.WriteInt(u"Headphones - Level", 9);
    legacy.WriteString(QVSettingsZoneValueName(u"Headphones - Name", 2).c_str(), u"old");

    CZoneSettingsKey zone2(2, u"Headphones", kLegacyPath, u"Headphones - ");
    EXPECT_TRUE(zone2.WriteInt(u"Level", 7));
    EXPECT_TRUE(zone2.WriteString(u"Name", u"new"));
    EXPECT_EQ(legacy.GetValueType(zoneName.c_str()), SETTINGS_TYPE_NONE);
    EXPECT_EQ(legacy.ReadInt(u"Headphones - Level", 0, 0), 9);  // other zones keep theirs
    EXPECT_EQ(QVListValueNames(legacy), (std::vector<QVString>{u"Headphones - Level"}));
    EXPECT_EQ(Raw("Zones\\2\\Headphones").ReadInt(u"Level", 0, 0), 7);

    // A later read sees the new value only, even once the zone key goes.
    Raw("Zones\\2\\Headphones").DeleteValue(u"Level");
    EXPECT_EQ(zone2.ReadInt(u"Level", -1), -1);

    CZoneSettingsKey global(QVZONE_GLOBAL, u"Headphones", kLegacyPath, u"Headphones - ");
    EXPECT_TRUE(global.WriteInt(u"Level", 3));
    EXPECT_TRUE(QVListValueNames(legacy).empty());
    EXPECT_EQ(Raw("Zones\\Global\\Headphones").ReadInt(u"Level", 0, 0), 3);
}

TEST_F(ZoneSettingsKeyTest, NumbersAsText)
{
    CZoneSettingsKey key(QVZONE_GLOBAL, u"Tempo & Pitch", kLegacyPath, u"");
    EXPECT_EQ(key.ReadDouble(u"Tempo", 1.25), 1.25);
    Raw("Plugins\\DSP\\QM DSP")
        .WriteString(u"Tempo", u"0,75");  // written where "," is the decimal mark
    EXPECT_EQ(key.ReadDouble(u"Tempo", 1.25), 0.75);
    EXPECT_TRUE(key.WriteDouble(u"Tempo", 0.1));
    EXPECT_EQ(key.ReadDouble(u"Tempo", 1.25), 0.1);
    Raw("Zones\\Global\\Tempo & Pitch").WriteString(u"Tempo", u"  ");
    EXPECT_EQ(key.ReadDouble(u"Tempo", 1.25), 1.25);
}

TEST_F(ZoneSettingsKeyTest, SettingsBlob)
{
    const int32_t defaults[5] = {1, 4, 2, 1, 2};
    int32_t values[5];
    std::memcpy(values, defaults, sizeof values);
    int32_t size = 20;
    CZoneSettingsKey key(1, u"Effects", kLegacyPath, u"Effects - ");
    EXPECT_FALSE(key.ReadSettingsBlob(values, size));

    // A 24-byte value is some other record: it counts as absent.
    const uint8_t longer[24] = {9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9,
                                9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9, 9};
    Raw("Zones\\1\\Effects").WriteBinary(u"Settings", longer, 24);
    EXPECT_FALSE(key.ReadSettingsBlob(values, size));
    EXPECT_EQ(size, 20);
    EXPECT_EQ(std::memcmp(values, defaults, sizeof values), 0);

    // The old key serves when the zone key has none that fits.
    const int32_t old[5] = {0, 3, 1, 0, 1};
    Raw("Plugins\\DSP\\QM DSP")
        .WriteBinary(QVSettingsZoneValueName(u"Effects - Settings", 1).c_str(), old, 20);
    EXPECT_TRUE(key.ReadSettingsBlob(values, size));
    EXPECT_EQ(std::memcmp(values, old, sizeof values), 0);

    const int32_t fresh[5] = {1, 2, 3, 4, 5};
    Raw("Plugins\\DSP\\QM DSP").WriteBinary(u"Effects - Settings", old, 20);
    EXPECT_TRUE(key.WriteSettingsBlob(fresh));
    EXPECT_EQ(Raw("Plugins\\DSP\\QM DSP").GetValueType(u"Effects - Settings"), SETTINGS_TYPE_NONE);
    size = 20;
    EXPECT_TRUE(key.ReadSettingsBlob(values, size));
    EXPECT_EQ(size, 20);
    EXPECT_EQ(std::memcmp(values, fresh, sizeof values), 0);

    // A shorter value reads, and says how long it was.
    const uint8_t shorter[3] = {7, 8, 9};
    Raw("Zones\\1\\Effects").WriteBinary(u"Settings", shorter, 3);
    size = 20;
    EXPECT_TRUE(key.ReadSettingsBlob(values, size));
    EXPECT_EQ(size, 3);
}

TEST_F(ZoneSettingsKeyTest, MissingToolsGiveSilentDefaults)
{
    SetQVTools(nullptr);
    CZoneSettingsKey key(2, u"Headphones", kLegacyPath, u"Headphones - ");
    EXPECT_EQ(key.GetZoneKey(), nullptr);
    EXPECT_EQ(key.ReadInt(u"Level", 4), 4);
    EXPECT_EQ(key.ReadString(u"Name", u"d"), QVString(u"d"));
    int32_t values[5] = {};
    int32_t size = 20;
    EXPECT_FALSE(key.ReadSettingsBlob(values, size));
    EXPECT_FALSE(key.WriteInt(u"Level", 1));
    EXPECT_FALSE(key.WriteString(u"Name", u"x"));
    EXPECT_FALSE(key.WriteSettingsBlob(values));
    EXPECT_FALSE(std::filesystem::exists(tools.path));
}

TEST_F(ZoneSettingsKeyTest, PresetsKeyListsItsValueNames)
{
    CZoneSettingsKey presets(QVZONE_GLOBAL, u"Equalizer\\Presets",
                             u"Plugins\\DSP\\QM DSP\\EQ Presets", u"");
    presets.WriteString(u"Rock", u"0,1,2");
    presets.WriteString(u"Flat", u"0,0,0");
    EXPECT_EQ(QVListValueNames(*presets.GetZoneKey()), (std::vector<QVString>{u"Flat", u"Rock"}));
    EXPECT_EQ(Raw("Zones\\Global\\Equalizer\\Presets").ReadInt(u"Rock", 5, 0), 5);
    EXPECT_EQ(QVReadSettingsString(*presets.GetZoneKey(), u"Rock", u"", 0), QVString(u"0,1,2"));
}

TEST(BuiltinToolsSettings, KeysOpenInTheFileOfTheEnvironment)
{
    qvtest::ScratchFolder scratch;
    const std::string file = scratch.File("a/b.json");
    const char* kept = std::getenv("QVDSP_SETTINGS");
    const std::string keptValue = kept != nullptr ? kept : "";
    ::setenv("QVDSP_SETTINGS", file.c_str(), 1);

    CBuiltinTools tools(0);
    std::unique_ptr<IQVSettingsKey> key(
        tools.GetPluginKeyObject(u"Zones\\Global\\Analyzer", false));
    ASSERT_NE(key, nullptr);
    EXPECT_TRUE(key->WriteInt(u"High Resolution", 1));
    EXPECT_EQ(
        CFileSettingsKey(file, "Zones\\Global\\Analyzer", false).ReadInt(u"High Resolution", 0, 0),
        1);

    if (kept != nullptr)
        ::setenv("QVDSP_SETTINGS", keptValue.c_str(), 1);
    else
        ::unsetenv("QVDSP_SETTINGS");
}
