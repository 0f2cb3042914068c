#include "output/PlayerCoreSettings.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <system_error>

#include "core/QVPropertyMap.h"
#include "core/QVStringArray.h"
#include "frame/IQVTools.h"
#include "frame/SettingsKey.h"
#include "frame/SiblingModules.h"

namespace
{

const QVString kSubKey(u"Audio Settings");
const QVString kLegacyKey(u"Player Core");

CZoneSettingsKey OpenRecordKey(int32_t zone)
{
    return CZoneSettingsKey(zone, kSubKey, kLegacyKey, QVString());
}

void ReadInt(CZoneSettingsKey& key, const char16_t* name, int32_t& field)
{
    field = key.ReadInt(QVString(name), field);
}

// Stored as integers, non-zero being true.
void ReadBool(CZoneSettingsKey& key, const char16_t* name, bool& field)
{
    field = key.ReadInt(QVString(name), field ? 1 : 0) != 0;
}

bool WriteInt(CZoneSettingsKey& key, const char16_t* name, int32_t value)
{
    return key.WriteInt(QVString(name), value);
}

bool WriteBool(CZoneSettingsKey& key, const char16_t* name, bool value)
{
    return key.WriteInt(QVString(name), value ? 1 : 0);
}

// The store's time stamps: days since 1899-12-30 with the time of day as the
// fraction, the date form the host's tools use for every stored moment.
QVString CurrentTimeText()
{
    using namespace std::chrono;
    constexpr double kUnixEpochDay = 25569.0;  // 1970-01-01 in that count
    const double seconds =
        duration_cast<duration<double>>(system_clock::now().time_since_epoch()).count();
    return QVPropertyMap::FormatDouble(kUnixEpochDay + seconds / 86400.0);
}

std::filesystem::path PathOf(const QVString& text)
{
    return std::filesystem::path(text.ToUTF8());
}

bool IsExistingFile(const QVString& path)
{
    std::error_code error;
    return !path.IsEmpty() && std::filesystem::is_regular_file(PathOf(path), error);
}

// Output plug-ins the host ships beside itself, best first.
const char16_t* const kOutputPluginFiles[] = {u"out_main.dll", u"out_QM.dll"};

}  // namespace

void QM_PLAYER_CORE_SETTINGS::SetOutputPluginPath(const QVString& path)
{
    const int32_t length = std::min(path.GetLength(), PLAYER_CORE_PATH_CAPACITY - 1);
    std::copy_n(path.c_str(), length, outputPluginPath);
    outputPluginPath[length] = u'\0';
}

QM_PLAYER_CORE_SETTINGS_PLAYBACK::QM_PLAYER_CORE_SETTINGS_PLAYBACK(int32_t zoneNumber)
{
    zone = zoneNumber;
    autoConfigureMode = 2;
    forwardJumpSeconds = 30;
    backwardJumpSeconds = 10;
    revision = 0;
    Load(-10000);
}

QVString
QM_PLAYER_CORE_SETTINGS_PLAYBACK::FormatRateTable(const int32_t (&table)[PLAYER_CORE_RATE_CLASSES])
{
    QVString text;
    QVPropertyMap::AppendToken(text, QVString::FromInt(1));
    for (int32_t rate : table)
        QVPropertyMap::AppendToken(text, QVString::FromInt(rate));
    return text;
}

bool QM_PLAYER_CORE_SETTINGS_PLAYBACK::ParseRateTable(const QVString& text,
                                                      int32_t (&table)[PLAYER_CORE_RATE_CLASSES])
{
    int32_t offset = 0;
    if (QVPropertyMap::ReadToken(text, offset).ToInt() != 1)
        return false;
    // A token that does not read gives 0 in its entry; the rest still follow.
    for (int32_t& rate : table)
        rate = static_cast<int32_t>(QVPropertyMap::ReadToken(text, offset).ToInt());
    return true;
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::FillRateTableFromMode(
    int32_t rate, int32_t mode, int32_t (&table)[PLAYER_CORE_RATE_CLASSES])
{
    std::fill(std::begin(table), std::end(table), 0);
    for (int32_t index = 0; index < PLAYER_CORE_RATE_CLASSES; ++index)
    {
        bool takes = false;
        switch (mode)
        {
        case RATE_MODE_ALL: takes = true; break;
        case RATE_MODE_ALL_BUT_48000: takes = index != 2; break;
        // Everything but the CD and DVD families 44100 to 96000.
        case RATE_MODE_NON_CD_DVD: takes = index == 0 || index >= 5; break;
        case RATE_MODE_BELOW_44100: takes = index == 0; break;
        case RATE_MODE_352800_AND_ABOVE: takes = index >= 7; break;
        default: break;
        }
        if (takes)
            table[index] = rate;
    }
}

QVString
QM_PLAYER_CORE_SETTINGS_PLAYBACK::FormatBitstreamFormats(const std::vector<int32_t>& formats)
{
    QVString text;
    for (size_t i = 0; i < formats.size(); ++i)
    {
        if (i != 0)
            text += u",";
        text += QVString::FromInt(formats[i]);
    }
    return text;
}

std::vector<int32_t> QM_PLAYER_CORE_SETTINGS_PLAYBACK::ParseBitstreamFormats(const QVString& text)
{
    std::vector<int32_t> formats;
    if (text.IsEmpty())
        return formats;
    for (const QVString& part : QVStringArray::Split(text, u","))
        formats.push_back(static_cast<int32_t>(part.ToInt()));
    return formats;
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::LoadFormatSection(CZoneSettingsKey& key)
{
    ReadInt(key, u"Output Channels", outputChannels);
    ReadInt(key, u"Output Channel Layout", outputChannelLayout);
    ReadInt(key, u"Output Padding Channels", outputPaddingChannels);

    const QVString table = key.ReadString(QVString(u"Output Sample Rate Settings"), QVString());
    if (!table.IsEmpty())
    {
        ParseRateTable(table, sampleRateTable);
    }
    else
    {
        // Older stores kept one rate and a mode that said which inputs take it.
        const int32_t rate = key.ReadInt(QVString(u"Output Sample Rate"), 0);
        const int32_t mode = key.ReadInt(QVString(u"Output Sample Rate Mode"), 0);
        FillRateTableFromMode(rate, mode, sampleRateTable);
    }

    ReadBool(key, u"Output Sample Rate Common Rate", commonRate);
    ReadBool(key, u"Allow Custom Output Format", allowCustomOutputFormat);
    ReadInt(key, u"Output Surround Mode", surroundMode);
    ReadBool(key, u"Output Surround Two Point One Mixing", twoPointOneMixing);
    ReadBool(key, u"Output Surround Phantom Center", phantomCenter);
    ReadInt(key, u"Output Surround Subwoofer Cutoff", subwooferCutoff);
    ReadInt(key, u"Output Surround Subwoofer Cutoff Downmix", subwooferCutoffDownmix);
    ReadBool(key, u"Output Surround Subwoofer Impact Filter", subwooferImpactFilter);
    ReadInt(key, u"Output Encoding", outputEncoding);
    ReadBool(key, u"Output Pseudo Surround Detection", pseudoSurroundDetection);
    ReadBool(key, u"Gapless On Manual Transitions", gaplessOnManualTransitions);
    ReadInt(key, u"Center Level", centerLevel);
    resampler =
        key.ReadInt(QVString(u"Use SoX For Resampling"), resampler == 2 ? 1 : 0) != 0 ? 2 : 1;

    ReadInt(key, u"Output Plugin Index", outputPluginIndex);
    SetOutputPluginPath(key.ReadString(QVString(u"Output Plugin Path"), GetOutputPluginPath()));
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::LoadTransitionsSection(CZoneSettingsKey& key)
{
    ReadInt(key, u"Between Tracks Mode", betweenTracksMode);
    ReadInt(key, u"Between Tracks MS", betweenTracksMS);
    ReadInt(key, u"Seek Mode", seekMode);
    ReadInt(key, u"Stop Mode", stopMode);
    ReadInt(key, u"Pause Mode", pauseMode);
    ReadInt(key, u"Between Tracks Mode (alternate)", betweenTracksModeAlternate);
    ReadInt(key, u"Between Tracks MS (alternate)", betweenTracksMSAlternate);
    ReadInt(key, u"Seek Mode (alternate)", seekModeAlternate);
    ReadInt(key, u"Stop Mode (alternate)", stopModeAlternate);
    ReadInt(key, u"Pause Mode (alternate)", pauseModeAlternate);
    ReadInt(key, u"Forward Jump Seconds", forwardJumpSeconds);
    ReadInt(key, u"Backward Jump Seconds", backwardJumpSeconds);
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::LoadBufferingSection(CZoneSettingsKey& key)
{
    ReadInt(key, u"Startup Gap MS", startupGapMS);
    ReadInt(key, u"Secondary Buffer Minimum MS", secondaryBufferMinimumMS);
    ReadBool(key, u"Trim Silence", trimSilence);
    ReadBool(key, u"Gapless Sequential Album Tracks", gaplessSequentialAlbumTracks);
    ReadInt(key, u"Auto Configure Mode", autoConfigureMode);
    ReadInt(key, u"Bitstream DSD Max Rate", bitstreamDSDMaxRate);
    ReadInt(key, u"Live Latency MS", liveLatencyMS);
    ReadBool(key, u"Stop After Long Pause", stopAfterLongPause);
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::LoadBitstreamFormats()
{
    // The list moved from the video engine's settings to this record; the new
    // place wins, the old one gives its default.
    CZoneSettingsKey oldPlace(zone, QVString(u"Video Settings"),
                              QVString(u"Playback Engine\\DirectX Playback"), QVString());
    CZoneSettingsKey newPlace = OpenRecordKey(zone);
    for (CZoneSettingsKey* key : {&oldPlace, &newPlace})
    {
        const QVString current = FormatBitstreamFormats(bitstreamFormats);
        bitstreamFormats =
            ParseBitstreamFormats(key->ReadString(QVString(u"Bitstream Formats"), current));
    }
    // Format 6 is always offered; 7 is no longer one.
    if (std::find(bitstreamFormats.begin(), bitstreamFormats.end(), 6) == bitstreamFormats.end())
        bitstreamFormats.push_back(6);
    for (size_t i = bitstreamFormats.size(); i-- > 0;)
        if (bitstreamFormats[i] == 7)
            bitstreamFormats.erase(bitstreamFormats.begin() + static_cast<std::ptrdiff_t>(i));
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::FollowZone(int32_t zoneOverride)
{
    trimSilence = false;
    if (zoneOverride == zone)
        return;
    // A following zone plays its tracks the way the zone it follows does.
    const QM_PLAYER_CORE_SETTINGS_PLAYBACK leader(zoneOverride);
    gaplessSequentialAlbumTracks = leader.gaplessSequentialAlbumTracks;
    betweenTracksMode = leader.betweenTracksMode;
    betweenTracksMS = leader.betweenTracksMS;
    seekMode = leader.seekMode;
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::MigrateDitherSetting()
{
    // The host's playback properties once stored the negative of today's value.
    IQVTools* tools = GetQVTools();
    if (tools == nullptr)
        return;
    std::unique_ptr<IQVSettingsKey> key(tools->GetPluginKeyObject(QVString(u"Properties"), false));
    if (!key || key->ReadInt(u"Disable Dither", 0, 0) != 1)
        return;
    CSettingsTransaction transaction;
    key->WriteInt(u"Dither Mode", 0);
    key->DeleteValue(u"Disable Dither");
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::ResolveOutputPluginPath(const std::string& programFolder)
{
    QVString path = GetOutputPluginPath();
    if (!IsExistingFile(path))
    {
        // Names on disk may differ in case from the names the host ships them by.
        std::error_code error;
        bool found = false;
        for (const char16_t* wanted : kOutputPluginFiles)
        {
            for (std::filesystem::directory_iterator it(programFolder, error), end;
                 !found && !error && it != end; it.increment(error))
            {
                const QVString name = QVString::FromUTF8(it->path().filename().string());
                if (name.CompareNoCase(wanted) == 0 &&
                    IsExistingFile(QVString::FromUTF8(it->path().string())))
                {
                    path = QVString::FromUTF8(it->path().string());
                    found = true;
                }
            }
            if (found)
                break;
            error.clear();
        }
        SetOutputPluginPath(path);
    }

    const QVString fileName = QVString::FromUTF8(PathOf(path).filename().string());
    if (fileName.CompareNoCase(kOutputPluginFiles[0]) == 0)
        return;
    // Any other output plug-in is the one the host's sound output names.
    IQVTools* tools = GetQVTools();
    if (tools == nullptr)
        return;
    std::unique_ptr<IQVSettingsKey> key(
        tools->GetPluginKeyObject(QVString(u"Plugins\\Output\\Direct Sound"), false));
    if (!key)
        return;
    SetOutputPluginPath(QVReadSettingsString(*key, QVString(u"Path"), GetOutputPluginPath(), 0));
    outputPluginIndex = key->ReadInt(u"Index", 0, 0);
}

void QM_PLAYER_CORE_SETTINGS_PLAYBACK::Load(int32_t zoneOverride)
{
    gaplessSequentialAlbumTracks = true;
    {
        CZoneSettingsKey key = OpenRecordKey(zone);
        LoadFormatSection(key);
        LoadTransitionsSection(key);
        LoadBufferingSection(key);
    }
    LoadBitstreamFormats();
    if (zoneOverride >= 0)
        FollowZone(zoneOverride);
    MigrateDitherSetting();
    {
        CZoneSettingsKey key = OpenRecordKey(zone);
        ReadInt(key, u"Zone Sync Audio Output Latency MS", zoneSyncAudioOutputLatencyMS);
        ReadInt(key, u"Zone Sync Manual Latency Adjustment MS", zoneSyncManualLatencyAdjustmentMS);
    }
    ResolveOutputPluginPath(GetModuleFolder());
}

bool QM_PLAYER_CORE_SETTINGS_PLAYBACK::Save(uint32_t sections)
{
    CSettingsTransaction transaction;
    CZoneSettingsKey key = OpenRecordKey(zone);
    bool written = true;
    auto writeInt = [&](const char16_t* name, int32_t value)
    { written = WriteInt(key, name, value) && written; };
    auto writeBool = [&](const char16_t* name, bool value)
    { written = WriteBool(key, name, value) && written; };
    auto writeString = [&](const char16_t* name, const QVString& value)
    { written = key.WriteString(QVString(name), value) && written; };

    if (sections & PLAYER_CORE_SECTION_FORMAT)
    {
        writeInt(u"Output Channels", outputChannels);
        writeInt(u"Output Channel Layout", outputChannelLayout);
        writeInt(u"Output Padding Channels", outputPaddingChannels);
        writeString(u"Output Sample Rate Settings", FormatRateTable(sampleRateTable));
        writeBool(u"Output Sample Rate Common Rate", commonRate);
        writeBool(u"Allow Custom Output Format", allowCustomOutputFormat);
        writeInt(u"Output Surround Mode", surroundMode);
        writeBool(u"Output Surround Two Point One Mixing", twoPointOneMixing);
        writeBool(u"Output Surround Phantom Center", phantomCenter);
        writeInt(u"Output Surround Subwoofer Cutoff", subwooferCutoff);
        writeInt(u"Output Surround Subwoofer Cutoff Downmix", subwooferCutoffDownmix);
        writeBool(u"Output Surround Subwoofer Impact Filter", subwooferImpactFilter);
        writeInt(u"Output Encoding", outputEncoding);
        writeBool(u"Output Pseudo Surround Detection", pseudoSurroundDetection);
        writeInt(u"Center Level", centerLevel);
        writeBool(u"Use SoX For Resampling", resampler == 2);
    }
    if (sections & PLAYER_CORE_SECTION_PLUGIN)
    {
        writeString(u"Output Plugin Path", GetOutputPluginPath());
        writeInt(u"Output Plugin Index", outputPluginIndex);
    }
    if (sections & PLAYER_CORE_SECTION_TRANSITIONS)
    {
        writeInt(u"Between Tracks Mode", betweenTracksMode);
        writeInt(u"Between Tracks MS", betweenTracksMS);
        writeInt(u"Seek Mode", seekMode);
        writeInt(u"Stop Mode", stopMode);
        writeInt(u"Pause Mode", pauseMode);
        writeInt(u"Between Tracks Mode (alternate)", betweenTracksModeAlternate);
        writeInt(u"Between Tracks MS (alternate)", betweenTracksMSAlternate);
        writeInt(u"Seek Mode (alternate)", seekModeAlternate);
        writeInt(u"Stop Mode (alternate)", stopModeAlternate);
        writeInt(u"Pause Mode (alternate)", pauseModeAlternate);
        writeInt(u"Forward Jump Seconds", forwardJumpSeconds);
        writeInt(u"Backward Jump Seconds", backwardJumpSeconds);
    }
    if (sections & PLAYER_CORE_SECTION_BUFFERING)
    {
        writeInt(u"Startup Gap MS", startupGapMS);
        writeInt(u"Secondary Buffer Minimum MS", secondaryBufferMinimumMS);
        writeBool(u"Trim Silence", trimSilence);
        writeBool(u"Gapless Sequential Album Tracks", gaplessSequentialAlbumTracks);
        writeInt(u"Auto Configure Mode", autoConfigureMode);
        writeString(u"Bitstream Formats", FormatBitstreamFormats(bitstreamFormats));
        writeInt(u"Bitstream DSD Max Rate", bitstreamDSDMaxRate);
        writeInt(u"Live Latency MS", liveLatencyMS);
        writeBool(u"Stop After Long Pause", stopAfterLongPause);
        // Kept with the output format when read, but saved with the buffering.
        writeBool(u"Gapless On Manual Transitions", gaplessOnManualTransitions);
    }
    if (sections & PLAYER_CORE_SECTION_ZONE_SYNC)
    {
        writeInt(u"Zone Sync Audio Output Latency MS", zoneSyncAudioOutputLatencyMS);
        writeInt(u"Zone Sync Manual Latency Adjustment MS", zoneSyncManualLatencyAdjustmentMS);
    }
    writeString(u"Last Change Time", CurrentTimeText());
    return transaction.Commit() && written;
}
