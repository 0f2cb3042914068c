#include "host/SettingsStore.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/QVStringPrint.h"
#include "support/ScratchFolder.h"
#include "support/TestTools.h"

namespace
{

class SettingsStoreTest : public ::testing::Test
{
protected:
    CFileSettingsKey Key(const std::string& keyPath, bool systemScope = false)
    {
        return CFileSettingsKey(path, keyPath, systemScope);
    }

    std::string FileText() const { return qvtest::ReadBytes(path); }
    void WriteFileText(const std::string& text) const
    {
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        qvtest::WriteBytes(path, text);
    }

    qvtest::ScratchFolder scratch;
    const std::string path = scratch.File("sub/dsp-settings.json");
};

QVString ReadText(IQVSettingsKey& key, const char16_t* name, const char16_t* defaultValue,
                  int32_t zone = 0)
{
    return QVReadSettingsString(key, name, defaultValue, zone);
}

}  // namespace

TEST_F(SettingsStoreTest, ValuesKeepTheirTypes)
{
    CFileSettingsKey key = Key("Zones\\Global\\Tempo & Pitch");
    EXPECT_EQ(key.ReadInt(u"Enabled", 7, 0), 7);  // no file yet
    EXPECT_FALSE(std::filesystem::exists(path));

    const uint8_t blob[] = {0x01, 0x00, 0xff, 0x7f};
    ASSERT_TRUE(key.WriteInt(u"Enabled", -2147483647 - 1));
    ASSERT_TRUE(key.WriteString(u"Tempo", u"1,25 \u00e9\u4e2d"));
    ASSERT_TRUE(key.WriteBinary(u"Settings", blob, 4));
    ASSERT_TRUE(key.WriteString(u"Number text", u"-42"));

    CFileSettingsKey again =
        Key("\\Zones\\\\Global\\Tempo & Pitch\\");  // the same key, written untidily
    EXPECT_EQ(again.ReadInt(u"Enabled", 0, 0), -2147483647 - 1);
    EXPECT_EQ(ReadText(again, u"Tempo", u"x"), QVString(u"1,25 \u00e9\u4e2d"));
    EXPECT_EQ(ReadText(again, u"Enabled", u"x"), QVString(u"-2147483648"));
    EXPECT_EQ(again.ReadInt(u"Number text", 0, 0), -42);
    EXPECT_EQ(again.ReadInt(u"Tempo", 5, 0), 5);                    // text that is no integer
    EXPECT_EQ(ReadText(again, u"Settings", u"d"), QVString(u"d"));  // bytes are no text
    QVDllBuffer buffer;
    ASSERT_TRUE(again.ReadBinary(u"Settings", &buffer, 0));
    ASSERT_EQ(buffer.GetSize(), 4u);
    EXPECT_EQ(buffer.GetBytes(), std::vector<uint8_t>(blob, blob + 4));
    EXPECT_FALSE(again.ReadBinary(u"Tempo", &buffer, 0));

    EXPECT_EQ(again.GetValueType(u"Enabled"), SETTINGS_TYPE_INT);
    EXPECT_EQ(again.GetValueType(u"Tempo"), SETTINGS_TYPE_STRING);
    EXPECT_EQ(again.GetValueType(u"Settings"), SETTINGS_TYPE_BINARY);
    EXPECT_EQ(again.GetValueType(u"None"), SETTINGS_TYPE_NONE);

    // A write replaces a value of another type under the same name.
    ASSERT_TRUE(again.WriteString(u"Enabled", u"yes"));
    EXPECT_EQ(key.GetValueType(u"Enabled"), SETTINGS_TYPE_STRING);
    EXPECT_EQ(key.ReadInt(u"Enabled", 3, 0), 3);

    QVSystemString text = nullptr;
    key.ReadString(&text, u"Missing", nullptr, 0, u"fallback");
    EXPECT_EQ(QVTakeSystemString(text), QVString(u"fallback"));
}

TEST_F(SettingsStoreTest, FileIsSortedIndentedAndChangesOnlyWhereValuesChange)
{
    CFileSettingsKey key = Key("Zones\\2\\Headphones");
    key.WriteString(u"b", u"x\"y");
    key.WriteInt(u"a", 1);
    const uint8_t bytes[] = {0xAB, 0x01};
    Key("Plugins\\DSP", true).WriteBinary(u"Blob", bytes, 2);
    const std::string expected = "{\n"
                                 "  \"system\": {\n"
                                 "    \"Plugins\\\\DSP\": {\n"
                                 "      \"Blob\": {\n"
                                 "        \"binary\": \"ab01\"\n"
                                 "      }\n"
                                 "    }\n"
                                 "  },\n"
                                 "  \"user\": {\n"
                                 "    \"Zones\\\\2\\\\Headphones\": {\n"
                                 "      \"a\": 1,\n"
                                 "      \"b\": \"x\\\"y\"\n"
                                 "    }\n"
                                 "  }\n"
                                 "}\n";
    EXPECT_EQ(FileText(), expected);

    key.WriteInt(u"a", 2);
    std::string changed = expected;
    changed.replace(changed.find("\"a\": 1"), 6, "\"a\": 2");
    EXPECT_EQ(FileText(), changed);

    // Writing the value that is there already leaves the file untouched.
    struct stat before
    {
    }, after{};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    EXPECT_TRUE(key.WriteInt(u"a", 2));
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);  // every real write renames a new file into place
}

TEST_F(SettingsStoreTest, ZoneReadsUseTheZoneValueName)
{
    CFileSettingsKey key = Key("Plugins\\DSP\\QM DSP");
    EXPECT_EQ(QVZoneValueName(key, u"Effects - Settings", 0), QVString(u"Effects - Settings"));
    const QVString zoneName = QVZoneValueName(key, u"Tempo", 3);
    EXPECT_EQ(zoneName, QVString(u"Tempo (Zone 3)"));

    key.WriteInt(u"Tempo", 10);
    key.WriteInt(zoneName.c_str(), 30);
    EXPECT_EQ(key.ReadInt(u"Tempo", 0, 0), 10);
    EXPECT_EQ(key.ReadInt(u"Tempo", 0, 3), 30);
    EXPECT_EQ(key.ReadInt(u"Tempo", -1, 4), -1);  // another zone has no value of its own
    key.WriteString(QVZoneValueName(key, u"Name", -7).c_str(), u"minus seven");
    EXPECT_EQ(ReadText(key, u"Name", u"", -7), QVString(u"minus seven"));
}

TEST_F(SettingsStoreTest, DeletingAndListing)
{
    CFileSettingsKey eq = Key("Zones\\Global\\Equalizer\\Presets");
    eq.WriteString(u"Rock", u"1");
    eq.WriteString(u"Jazz", u"2");
    eq.WriteString(u"Classic", u"3");
    Key("Zones\\Global\\Equalizer").WriteInt(u"Enabled", 1);
    Key("Zones\\1\\Headphones").WriteInt(u"Level", 1);
    Key("Zones\\1\\Headphones\\Deep\\Deeper").WriteInt(u"x", 1);

    EXPECT_EQ(QVListValueNames(eq), (std::vector<QVString>{u"Classic", u"Jazz", u"Rock"}));
    EXPECT_EQ(QVListSubkeyNames(*std::make_unique<CFileSettingsKey>(Key("Zones"))),
              (std::vector<QVString>{u"1", u"Global"}));
    EXPECT_EQ(QVListSubkeyNames(*std::make_unique<CFileSettingsKey>(Key(""))),
              (std::vector<QVString>{u"Zones"}));
    EXPECT_EQ(QVListSubkeyNames(*std::make_unique<CFileSettingsKey>(Key("Zones\\1\\Headphones"))),
              (std::vector<QVString>{u"Deep"}));

    EXPECT_TRUE(eq.DeleteValue(u"Jazz"));
    EXPECT_EQ(QVListValueNames(eq), (std::vector<QVString>{u"Classic", u"Rock"}));
    EXPECT_TRUE(eq.DeleteAllValues());
    EXPECT_TRUE(QVListValueNames(eq).empty());
    EXPECT_EQ(Key("Zones\\Global\\Equalizer").ReadInt(u"Enabled", 0, 0),
              1);  // the parent keeps its values

    CFileSettingsKey zone = Key("Zones\\1");
    EXPECT_TRUE(zone.DeleteSubkey(u"Headphones"));
    EXPECT_EQ(Key("Zones\\1\\Headphones\\Deep\\Deeper").ReadInt(u"x", 0, 0), 0);
    EXPECT_EQ(QVListSubkeyNames(*std::make_unique<CFileSettingsKey>(Key("Zones"))),
              (std::vector<QVString>{u"Global"}));
    EXPECT_FALSE(zone.DeleteSubkey(u""));  // never the key itself

    // The system branch is apart from the user branch.
    Key("Plugins\\DSP", true).WriteInt(u"x", 5);
    EXPECT_EQ(Key("Plugins\\DSP").ReadInt(u"x", 0, 0), 0);
    EXPECT_EQ(Key("Plugins\\DSP", true).ReadInt(u"x", 0, 0), 5);
}

TEST_F(SettingsStoreTest, UnreadableFilesAreNeverOverwritten)
{
    const std::string texts[] = {
        "{\n  \"user\": {\n    \"Zones\\\\1\": {\n      \"a\": 1\n",  // truncated
        std::string("\x00\x01garbage\xff", 10),
        "[1, 2, 3]\n",  // JSON, but not a settings document
        "{\"user\": {\"Zones\\\\1\": [1]}}",
        "{\"user\": {\"Zones\\\\1\": {\"a\": \"\xc3\x28\"}}}",  // invalid UTF-8
    };
    for (const std::string& text : texts)
    {
        WriteFileText(text);
        qvtest::ScopedTestTools tools;
        CFileSettingsKey key = Key("Zones\\1");
        EXPECT_EQ(key.ReadInt(u"a", 9, 0), 9);
        EXPECT_FALSE(key.WriteInt(u"a", 2));
        EXPECT_FALSE(key.DeleteValue(u"a"));
        EXPECT_EQ(FileText(), text);
        // The write's message names the file, so the user can find and mend it.
        const std::vector<std::string>& lines = tools.tools.logger.texts;
        ASSERT_FALSE(lines.empty());
        EXPECT_NE(lines.back().find(path), std::string::npos) << lines.back();
        EXPECT_NE(lines.back().find("not saved"), std::string::npos) << lines.back();
    }
    // No temporary file is left beside it.
    int entries = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(std::filesystem::path(path).parent_path()))
        entries += entry.path().extension() != ".lock";
    EXPECT_EQ(entries, 1);
}

TEST_F(SettingsStoreTest, UnknownPartsOfTheDocumentSurviveWrites)
{
    WriteFileText("{\"comment\": [\"kept\"], \"user\": {\"K\": {\"odd\": 1.5, \"list\": [1]}}}");
    CFileSettingsKey key = Key("K");
    EXPECT_EQ(key.ReadInt(u"odd", 4, 0), 4);  // a value of no known type reads as absent
    ASSERT_TRUE(key.WriteInt(u"new", 1));
    const nlohmann::json document = nlohmann::json::parse(FileText());
    EXPECT_EQ(document["comment"][0], "kept");
    EXPECT_EQ(document["user"]["K"]["odd"], 1.5);
    EXPECT_EQ(document["user"]["K"]["list"][0], 1);
    EXPECT_EQ(document["user"]["K"]["new"], 1);
}

TEST_F(SettingsStoreTest, TwoProcessesWritingAtOnceKeepBothValues)
{
    constexpr int kProcesses = 4;
    constexpr int kWrites = 40;
    pid_t children[kProcesses];
    for (int p = 0; p < kProcesses; ++p)
    {
        children[p] = ::fork();
        ASSERT_GE(children[p], 0);
        if (children[p] == 0)
        {
            CFileSettingsKey key(path, "Zones\\Global\\Shared", false);
            bool ok = true;
            for (int i = 0; i < kWrites; ++i)
            {
                const QVString name = QVString::Format(u"P%d-%d", p, i);
                ok = key.WriteInt(name.c_str(), p * 1000 + i) && ok;
            }
            ::_exit(ok ? 0 : 1);
        }
    }
    for (pid_t child : children)
    {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }
    CFileSettingsKey key = Key("Zones\\Global\\Shared");
    EXPECT_EQ(QVListValueNames(key).size(), static_cast<size_t>(kProcesses * kWrites));
    for (int p = 0; p < kProcesses; ++p)
    {
        for (int i = 0; i < kWrites; ++i)
            EXPECT_EQ(key.ReadInt(QVString::Format(u"P%d-%d", p, i).c_str(), -1, 0), p * 1000 + i);
    }
}

TEST_F(SettingsStoreTest, DefaultPathFollowsTheEnvironment)
{
    const auto keep = [](const char* name)
    {
        const char* value = std::getenv(name);
        return value != nullptr ? std::optional<std::string>(value) : std::nullopt;
    };
    const auto restore = [](const char* name, const std::optional<std::string>& value)
    {
        if (value)
            ::setenv(name, value->c_str(), 1);
        else
            ::unsetenv(name);
    };
    const auto settings = keep("QVDSP_SETTINGS");
    const auto xdg = keep("XDG_CONFIG_HOME");
    const auto home = keep("HOME");

    ::setenv("QVDSP_SETTINGS", "/x/y.json", 1);
    EXPECT_EQ(CSettingsFile::DefaultPath(), "/x/y.json");
    ::unsetenv("QVDSP_SETTINGS");
    ::setenv("XDG_CONFIG_HOME", "/cfg", 1);
    EXPECT_EQ(CSettingsFile::DefaultPath(), "/cfg/quovan/dsp-settings.json");
    ::unsetenv("XDG_CONFIG_HOME");
    ::setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(CSettingsFile::DefaultPath(), "/home/someone/.config/quovan/dsp-settings.json");

    restore("QVDSP_SETTINGS", settings);
    restore("XDG_CONFIG_HOME", xdg);
    restore("HOME", home);
}

TEST(SettingsPath, NormalizesSeparators)
{
    EXPECT_EQ(NormalizeSettingsPath("\\Zones\\\\Global\\", false), "Zones\\Global");
    EXPECT_EQ(NormalizeSettingsPath("Zones/Global/Tempo & Pitch", true),
              "Zones\\Global\\Tempo & Pitch");
    EXPECT_EQ(NormalizeSettingsPath("a/b", false), "a/b");
    EXPECT_EQ(NormalizeSettingsPath("", true), "");
}
