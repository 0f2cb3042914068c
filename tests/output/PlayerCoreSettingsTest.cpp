#include "output/PlayerCoreSettings.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <tuple>
#include <unistd.h>

#include "core/QVPropertyMap.h"
#include "frame/SettingsKey.h"
#include "support/FileStoreTools.h"
#include "support/ScratchFolder.h"

namespace
{

constexpr const char16_t* kGlobalRecord = u"Zones\\Global\\Audio Settings";

std::vector<int32_t> Table(const QM_PLAYER_CORE_SETTINGS& s)
{
    return std::vector<int32_t>(std::begin(s.sampleRateTable), std::end(s.sampleRateTable));
}

std::set<std::string> ValueNames(qvtest::ScopedFileStore& store, const char16_t* path)
{
    std::set<std::string> names;
    for (const QVString& name : QVListValueNames(*store.Key(path)))
        names.insert(name.ToUTF8());
    return names;
}

// A scratch folder with empty files in it.
struct TempFolder : qvtest::ScratchFolder
{
    std::string Touch(const std::string& name) const
    {
        qvtest::WriteBytes(File(name), "x");
        return File(name);
    }
};

}  // namespace

TEST(PlayerCoreSettings, FreshStoreGivesTheSharedDefaults)
{
    qvtest::ScopedFileStore store;
    const QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
    EXPECT_EQ(s.betweenTracksMode, 3);
    EXPECT_EQ(s.betweenTracksMS, 4000);
    EXPECT_EQ(s.secondaryBufferMinimumMS, 6000);
    EXPECT_EQ(s.forwardJumpSeconds, 30);
    EXPECT_EQ(s.backwardJumpSeconds, 10);
    EXPECT_EQ(s.autoConfigureMode, 2);  // the base record's default is 0
    EXPECT_EQ(QM_PLAYER_CORE_SETTINGS().autoConfigureMode, 0);
    EXPECT_EQ(s.surroundMode, 1);
    EXPECT_EQ(s.subwooferCutoff, 60);
    EXPECT_EQ(s.subwooferCutoffDownmix, 120);
    EXPECT_EQ(s.resampler, 1);
    EXPECT_EQ(s.liveLatencyMS, 50);
    EXPECT_TRUE(s.commonRate);
    EXPECT_TRUE(s.subwooferImpactFilter);
    EXPECT_TRUE(s.pseudoSurroundDetection);
    EXPECT_TRUE(s.gaplessSequentialAlbumTracks);
    EXPECT_FALSE(s.trimSilence);
    EXPECT_EQ(Table(s), std::vector<int32_t>(12, 0));
    // 6 is always added to the bitstream formats.
    EXPECT_EQ(s.bitstreamFormats, std::vector<int32_t>{6});
    EXPECT_EQ(s.GetOutputPluginPath(), QVString());
    EXPECT_EQ(s.GetRevision(), 0);
}

TEST(PlayerCoreSettings, OlderSingleRateFillsTheTableByMode)
{
    {
        qvtest::ScopedFileStore store;
        store.Key(kGlobalRecord)->WriteInt(u"Output Sample Rate", 96000);
        store.Key(kGlobalRecord)->WriteInt(u"Output Sample Rate Mode", 3);
        const QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
        const int32_t r = 96000;
        EXPECT_EQ(Table(s), (std::vector<int32_t>{r, 0, 0, 0, 0, r, r, r, r, r, r, r}));
    }
    // Every mode, with the classes worked out from the mode descriptions.
    const std::vector<std::vector<int32_t>> expected = {
        {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // mode 0: none
        {7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7},  // 1: all
        {7, 7, 0, 7, 7, 7, 7, 7, 7, 7, 7, 7},  // 2: all but 48000
        {7, 0, 0, 0, 0, 7, 7, 7, 7, 7, 7, 7},  // 3: below 44100, 176400 and up
        {7, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // 4: below 44100
        {0, 0, 0, 0, 0, 0, 0, 7, 7, 7, 7, 7},  // 5: 352800 and up
        {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},  // 6: none
    };
    for (int32_t mode = 0; mode < static_cast<int32_t>(expected.size()); ++mode)
    {
        int32_t table[PLAYER_CORE_RATE_CLASSES];
        std::fill(std::begin(table), std::end(table), -5);
        QM_PLAYER_CORE_SETTINGS_PLAYBACK::FillRateTableFromMode(7, mode, table);
        EXPECT_EQ(std::vector<int32_t>(std::begin(table), std::end(table)), expected[mode])
            << "mode " << mode;
    }
    // A stored table wins over the older pair.
    qvtest::ScopedFileStore store;
    store.Key(kGlobalRecord)->WriteInt(u"Output Sample Rate", 96000);
    store.Key(kGlobalRecord)->WriteInt(u"Output Sample Rate Mode", 1);
    store.Write(kGlobalRecord, u"Output Sample Rate Settings",
                u"(1:1)(1:0)(5:48000)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(6:768000)");
    const QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
    EXPECT_EQ(Table(s), (std::vector<int32_t>{0, 48000, 0, 0, 0, 0, 0, 0, 0, 0, 0, 768000}));
}

TEST(PlayerCoreSettings, RateTableText)
{
    int32_t table[PLAYER_CORE_RATE_CLASSES] = {0, 44100, 0, 0, 0, 0, 0, 0, 0, 0, 0, 96000};
    EXPECT_EQ(QM_PLAYER_CORE_SETTINGS_PLAYBACK::FormatRateTable(table).ToUTF8(),
              "(1:1)(1:0)(5:44100)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(1:0)(5:96000)");

    // A token that does not read gives 0 in its entry and stops the rest.
    int32_t parsed[PLAYER_CORE_RATE_CLASSES];
    std::fill(std::begin(parsed), std::end(parsed), 9);
    EXPECT_TRUE(QM_PLAYER_CORE_SETTINGS_PLAYBACK::ParseRateTable(
        QVString(u"(1:1)(5:44100)(9:48000)"), parsed));
    EXPECT_EQ(parsed[0], 44100);
    for (int32_t i = 1; i < PLAYER_CORE_RATE_CLASSES; ++i)
        EXPECT_EQ(parsed[i], 0) << i;

    // Any other format number leaves the table alone.
    std::fill(std::begin(parsed), std::end(parsed), 9);
    EXPECT_FALSE(QM_PLAYER_CORE_SETTINGS_PLAYBACK::ParseRateTable(
        QVString(u"(1:2)(5:44100)(5:48000)"), parsed));
    EXPECT_FALSE(QM_PLAYER_CORE_SETTINGS_PLAYBACK::ParseRateTable(QVString(u"garbage"), parsed));
    EXPECT_EQ(std::vector<int32_t>(std::begin(parsed), std::end(parsed)),
              std::vector<int32_t>(12, 9));
}

TEST(PlayerCoreSettings, BitstreamFormatsFromBothPlacesGainSixAndLoseSeven)
{
    {
        qvtest::ScopedFileStore store;
        store.Write(kGlobalRecord, u"Bitstream Formats", u"1,7,2");
        const QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
        EXPECT_EQ(s.bitstreamFormats, (std::vector<int32_t>{1, 2, 6}));
    }
    {
        // Only in the old place, under its own legacy key: still read.
        qvtest::ScopedFileStore store;
        store.Write(u"Playback Engine\\DirectX Playback", u"Bitstream Formats", u"7,3,7,6,7");
        const QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
        EXPECT_EQ(s.bitstreamFormats, (std::vector<int32_t>{3, 6}));
    }
    {
        // Both places: the new one wins.
        qvtest::ScopedFileStore store;
        store.Write(u"Zones\\Global\\Video Settings", u"Bitstream Formats", u"4,5");
        store.Write(kGlobalRecord, u"Bitstream Formats", u"2");
        const QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
        EXPECT_EQ(s.bitstreamFormats, (std::vector<int32_t>{2, 6}));
    }
    EXPECT_EQ(QM_PLAYER_CORE_SETTINGS_PLAYBACK::ParseBitstreamFormats(QVString(u"1,x,3")),
              (std::vector<int32_t>{1, 0, 3}));
    EXPECT_TRUE(QM_PLAYER_CORE_SETTINGS_PLAYBACK::ParseBitstreamFormats(QVString()).empty());
    EXPECT_EQ(QM_PLAYER_CORE_SETTINGS_PLAYBACK::FormatBitstreamFormats({1, 20, 6}).ToUTF8(),
              "1,20,6");
}

TEST(PlayerCoreSettings, SaveWritesOnlyTheChosenSectionsAndTheTime)
{
    qvtest::ScopedFileStore store;
    QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
    const double before = std::time(nullptr) / 86400.0 + 25569.0;
    ASSERT_TRUE(s.Save(PLAYER_CORE_SECTION_FORMAT));
    const double after = std::time(nullptr) / 86400.0 + 25569.0;

    const std::set<std::string> names = ValueNames(store, kGlobalRecord);
    const std::set<std::string> formatSection = {
        "Output Channels",
        "Output Channel Layout",
        "Output Padding Channels",
        "Output Sample Rate Settings",
        "Output Sample Rate Common Rate",
        "Allow Custom Output Format",
        "Output Surround Mode",
        "Output Surround Two Point One Mixing",
        "Output Surround Phantom Center",
        "Output Surround Subwoofer Cutoff",
        "Output Surround Subwoofer Cutoff Downmix",
        "Output Surround Subwoofer Impact Filter",
        "Output Encoding",
        "Output Pseudo Surround Detection",
        "Center Level",
        "Use SoX For Resampling",
        "Last Change Time",
    };
    EXPECT_EQ(names, formatSection);

    // The time as days since 1899-12-30, read back by the store's number rules.
    const double stamp = QVPropertyMap::ParseDouble(
        QVString::FromUTF8(store.Read(kGlobalRecord, u"Last Change Time")));
    EXPECT_GE(stamp, before - 1.0 / 86400.0);
    EXPECT_LE(stamp, after + 1.0 / 86400.0);

    // The other sections each add their own names and nothing of the others.
    qvtest::ScopedFileStore other;
    QM_PLAYER_CORE_SETTINGS_PLAYBACK t(QVZONE_GLOBAL);
    ASSERT_TRUE(t.Save(PLAYER_CORE_SECTION_PLUGIN | PLAYER_CORE_SECTION_ZONE_SYNC));
    EXPECT_EQ(ValueNames(other, kGlobalRecord),
              (std::set<std::string>{
                  "Output Plugin Path", "Output Plugin Index", "Zone Sync Audio Output Latency MS",
                  "Zone Sync Manual Latency Adjustment MS", "Last Change Time"}));
}

TEST(PlayerCoreSettings, EveryFieldSurvivesARoundTripThroughTheStore)
{
    qvtest::ScopedFileStore store;
    // An existing main output plug-in, so that the path search keeps path and index.
    TempFolder folder;
    const std::string pluginPath = folder.Touch("out_main.dll");
    QM_PLAYER_CORE_SETTINGS_PLAYBACK s(4);
    s.SetOutputPluginPath(QVString::FromUTF8(pluginPath));
    s.outputChannels = 6;
    s.outputChannelLayout = 12;
    s.outputPaddingChannels = 2;
    for (int32_t i = 0; i < PLAYER_CORE_RATE_CLASSES; ++i)
        s.sampleRateTable[i] = 1000 * (i + 1);
    s.commonRate = false;
    s.allowCustomOutputFormat = true;
    s.surroundMode = 0;
    s.twoPointOneMixing = true;
    s.phantomCenter = true;
    s.subwooferCutoff = -1;
    s.subwooferCutoffDownmix = 85;
    s.subwooferImpactFilter = false;
    s.outputEncoding = 4;
    s.pseudoSurroundDetection = false;
    s.gaplessOnManualTransitions = false;
    s.centerLevel = -7;
    s.resampler = 2;
    s.outputPluginIndex = 3;
    s.betweenTracksMode = 1;
    s.betweenTracksMS = 250;
    s.seekMode = 2;
    s.stopMode = 4;
    s.pauseMode = 5;
    s.betweenTracksModeAlternate = 6;
    s.betweenTracksMSAlternate = 70;
    s.seekModeAlternate = 8;
    s.stopModeAlternate = 9;
    s.pauseModeAlternate = 10;
    s.forwardJumpSeconds = 11;
    s.backwardJumpSeconds = 12;
    s.startupGapMS = 13;
    s.secondaryBufferMinimumMS = 14;
    s.trimSilence = true;
    s.gaplessSequentialAlbumTracks = false;
    s.autoConfigureMode = 15;
    s.bitstreamFormats = {3, 6, 20};
    s.bitstreamDSDMaxRate = 16;
    s.liveLatencyMS = 17;
    s.stopAfterLongPause = true;
    s.zoneSyncAudioOutputLatencyMS = 18;
    s.zoneSyncManualLatencyAdjustmentMS = -19;
    ASSERT_TRUE(s.Save(PLAYER_CORE_SECTION_ALL));

    // Every field read back as it was set: compared together, so that none is left out.
    const auto fields = [](const QM_PLAYER_CORE_SETTINGS_PLAYBACK& x)
    {
        return std::make_tuple(
            Table(x), x.GetOutputPluginPath().ToUTF8(), x.outputChannels, x.outputChannelLayout,
            x.outputPaddingChannels, x.commonRate, x.allowCustomOutputFormat, x.surroundMode,
            x.twoPointOneMixing, x.phantomCenter, x.subwooferCutoff, x.subwooferCutoffDownmix,
            x.subwooferImpactFilter, x.outputEncoding, x.pseudoSurroundDetection,
            x.gaplessOnManualTransitions, x.centerLevel, x.resampler, x.outputPluginIndex,
            x.betweenTracksMode, x.betweenTracksMS, x.seekMode, x.stopMode, x.pauseMode,
            x.betweenTracksModeAlternate, x.betweenTracksMSAlternate, x.seekModeAlternate,
            x.stopModeAlternate, x.pauseModeAlternate, x.forwardJumpSeconds, x.backwardJumpSeconds,
            x.startupGapMS, x.secondaryBufferMinimumMS, x.trimSilence,
            x.gaplessSequentialAlbumTracks, x.autoConfigureMode, x.bitstreamFormats,
            x.bitstreamDSDMaxRate, x.liveLatencyMS, x.stopAfterLongPause,
            x.zoneSyncAudioOutputLatencyMS, x.zoneSyncManualLatencyAdjustmentMS);
    };
    const QM_PLAYER_CORE_SETTINGS_PLAYBACK r(4);
    EXPECT_EQ(fields(r), fields(s));
    EXPECT_EQ(r.GetOutputPluginPath().ToUTF8(), pluginPath);
    // The stored forms the host reads: booleans as 0 or 1, the resampler as a flag.
    EXPECT_EQ(store.Key(u"Zones\\4\\Audio Settings")->ReadInt(u"Use SoX For Resampling", -1, 0), 1);
    EXPECT_EQ(store.Key(u"Zones\\4\\Audio Settings")->ReadInt(u"Trim Silence", -1, 0), 1);
    EXPECT_EQ(store.Read(u"Zones\\4\\Audio Settings", u"Bitstream Formats"), "3,6,20");
    // Another zone sees none of it.
    const QM_PLAYER_CORE_SETTINGS_PLAYBACK elsewhere(5);
    EXPECT_EQ(elsewhere.outputChannels, 0);
    EXPECT_EQ(elsewhere.betweenTracksMode, 3);
}

TEST(PlayerCoreSettings, OlderFlatKeyGivesDefaultsAndLosesWhatIsWritten)
{
    qvtest::ScopedFileStore store;
    store.Key(u"Player Core")->WriteInt(u"Output Channels", 8);
    store.Key(u"Player Core")->WriteInt(u"Use SoX For Resampling", 7);
    QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
    EXPECT_EQ(s.outputChannels, 8);
    EXPECT_EQ(s.resampler, 2);  // any non-zero flag selects it
    s.outputChannels = 2;
    ASSERT_TRUE(s.Save(PLAYER_CORE_SECTION_FORMAT));
    EXPECT_EQ(store.Key(u"Player Core")->ReadInt(u"Output Channels", -1, 0), -1);
    EXPECT_EQ(QM_PLAYER_CORE_SETTINGS_PLAYBACK(QVZONE_GLOBAL).outputChannels, 2);
}

TEST(PlayerCoreSettings, FollowingZoneTakesTheLeadersTrackChanges)
{
    qvtest::ScopedFileStore store;
    auto leader = store.Key(u"Zones\\1\\Audio Settings");
    leader->WriteInt(u"Between Tracks Mode", 5);
    leader->WriteInt(u"Between Tracks MS", 1234);
    leader->WriteInt(u"Seek Mode", 0);
    leader->WriteInt(u"Gapless Sequential Album Tracks", 0);
    leader->WriteInt(u"Stop Mode", 9);
    auto follower = store.Key(u"Zones\\2\\Audio Settings");
    follower->WriteInt(u"Trim Silence", 1);
    follower->WriteInt(u"Between Tracks Mode", 2);

    QM_PLAYER_CORE_SETTINGS_PLAYBACK s(2);
    EXPECT_TRUE(s.trimSilence);
    EXPECT_EQ(s.betweenTracksMode, 2);
    s.Load(1);
    EXPECT_FALSE(s.trimSilence);
    EXPECT_EQ(s.betweenTracksMode, 5);
    EXPECT_EQ(s.betweenTracksMS, 1234);
    EXPECT_EQ(s.seekMode, 0);
    EXPECT_FALSE(s.gaplessSequentialAlbumTracks);
    EXPECT_EQ(s.stopMode, 1);  // not one of the four taken over

    // Following itself only drops the silence trimming.
    s.Load(2);
    EXPECT_FALSE(s.trimSilence);
    EXPECT_EQ(s.betweenTracksMode, 2);
    EXPECT_TRUE(s.gaplessSequentialAlbumTracks);
}

TEST(PlayerCoreSettings, DisableDitherBecomesDitherModeZero)
{
    qvtest::ScopedFileStore store;
    store.Key(u"Properties")->WriteInt(u"Disable Dither", 1);
    store.Key(u"Properties")->WriteInt(u"Other", 4);
    QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
    EXPECT_EQ(ValueNames(store, u"Properties"), (std::set<std::string>{"Dither Mode", "Other"}));
    EXPECT_EQ(store.Key(u"Properties")->ReadInt(u"Dither Mode", -1, 0), 0);

    // Any other value is left as it is.
    qvtest::ScopedFileStore other;
    other.Key(u"Properties")->WriteInt(u"Disable Dither", 2);
    QM_PLAYER_CORE_SETTINGS_PLAYBACK t(QVZONE_GLOBAL);
    EXPECT_EQ(ValueNames(other, u"Properties"), (std::set<std::string>{"Disable Dither"}));
}

TEST(PlayerCoreSettings, OutputPluginPathSearch)
{
    qvtest::ScopedFileStore store;
    QM_PLAYER_CORE_SETTINGS_PLAYBACK s(QVZONE_GLOBAL);
    auto directSound = store.Key(u"Plugins\\Output\\Direct Sound");
    directSound->WriteString(u"Path", u"/opt/player/out_ds.dll");
    directSound->WriteInt(u"Index", 4);

    // The main output plug-in, found whatever the case of its name, is final.
    TempFolder main;
    main.Touch("out_qm.dll");
    const std::string found = main.Touch("OUT_Main.DLL");
    s.SetOutputPluginPath(QVString(u"/gone/out_main.dll"));
    s.ResolveOutputPluginPath(main.Path().string() + "/");
    EXPECT_EQ(s.GetOutputPluginPath().ToUTF8(), found);
    EXPECT_EQ(s.outputPluginIndex, 0);

    // An existing file is kept, and a main one needs nothing more.
    s.outputPluginIndex = 2;
    s.ResolveOutputPluginPath("/nonexistent/");
    EXPECT_EQ(s.GetOutputPluginPath().ToUTF8(), found);
    EXPECT_EQ(s.outputPluginIndex, 2);

    // Any other output plug-in defers to the sound output's key.
    TempFolder second;
    second.Touch("Out_QM.dll");
    s.SetOutputPluginPath(QVString(u"/gone/out_main.dll"));
    s.ResolveOutputPluginPath(second.Path().string() + "/");
    EXPECT_EQ(s.GetOutputPluginPath().ToUTF8(), "/opt/player/out_ds.dll");
    EXPECT_EQ(s.outputPluginIndex, 4);

    // A path longer than the fixed field is cut to it.
    s.SetOutputPluginPath(QVString(u'a', 3000));
    EXPECT_EQ(s.GetOutputPluginPath().GetLength(), PLAYER_CORE_PATH_CAPACITY - 1);
}
