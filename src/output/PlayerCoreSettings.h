// The record of what the host's output stage does after the DSP chain: output
// plug-in, channels, sample rates per input class, surround mixing, track
// changes and buffering. The host reads and writes the same values in the same
// store, so every property name and default here is shared with it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/QVString.h"

class CZoneSettingsKey;

// Bits of QM_PLAYER_CORE_SETTINGS_PLAYBACK::Save: which sections are written.
enum EPlayerCoreSection : uint32_t
{
    PLAYER_CORE_SECTION_FORMAT = 1,
    PLAYER_CORE_SECTION_PLUGIN = 2,
    PLAYER_CORE_SECTION_TRANSITIONS = 4,
    PLAYER_CORE_SECTION_BUFFERING = 8,
    PLAYER_CORE_SECTION_ZONE_SYNC = 16,
    PLAYER_CORE_SECTION_ALL = 31,
};

// Input classes of the sample-rate table, in their order.
inline constexpr int32_t PLAYER_CORE_RATE_CLASSES = 12;
// The rate that stands for each class; 0 for "below 44100" and 1 for "above
// 768000", which have no single rate.
inline constexpr int32_t PLAYER_CORE_CLASS_RATES[PLAYER_CORE_RATE_CLASSES] = {
    0, 44100, 48000, 88200, 96000, 176400, 192000, 352800, 384000, 705600, 768000, 1};

// Bits of outputChannelLayout, and the 3.1 layout.
inline constexpr int32_t PLAYER_CORE_LAYOUT_CENTER = 4;
inline constexpr int32_t PLAYER_CORE_LAYOUT_SUBWOOFER = 8;
inline constexpr int32_t PLAYER_CORE_LAYOUT_3_1 = 15;

// Values of surroundMode.
enum EPlayerCoreSurroundMode : int32_t
{
    SURROUND_CLONE_SIDES = 0,
    SURROUND_MIXING = 1,
    SURROUND_NONE = 2,
};

// Characters of the fixed output plug-in path, with its terminating zero.
inline constexpr int32_t PLAYER_CORE_PATH_CAPACITY = 2080;

class QM_PLAYER_CORE_SETTINGS
{
public:
    virtual ~QM_PLAYER_CORE_SETTINGS() = default;

    // Section 1: output format.
    int32_t outputChannels = 0;  // 0 keeps the source's count
    int32_t outputChannelLayout = 0;
    int32_t outputPaddingChannels = 0;
    int32_t sampleRateTable[PLAYER_CORE_RATE_CLASSES] = {};  // 0 is no change
    bool commonRate = true;
    bool allowCustomOutputFormat = false;
    int32_t surroundMode = SURROUND_MIXING;
    bool twoPointOneMixing = false;
    bool phantomCenter = false;
    int32_t subwooferCutoff = 60;  // Hz; -1 silent, 0 full range
    int32_t subwooferCutoffDownmix = 120;
    bool subwooferImpactFilter = true;
    int32_t outputEncoding = 0;
    bool pseudoSurroundDetection = true;
    bool gaplessOnManualTransitions = true;
    int32_t centerLevel = 0;  // dB
    int32_t resampler = 1;    // 2 selects the SoX resampler

    // Section 2: output plug-in.
    char16_t outputPluginPath[PLAYER_CORE_PATH_CAPACITY] = {};
    int32_t outputPluginIndex = 0;

    // Section 4: transitions.
    int32_t betweenTracksMode = 3;
    int32_t betweenTracksMS = 4000;
    int32_t seekMode = 3;
    int32_t stopMode = 1;
    int32_t pauseMode = 1;
    int32_t betweenTracksModeAlternate = 0;
    int32_t betweenTracksMSAlternate = 100;
    int32_t seekModeAlternate = 1;
    int32_t stopModeAlternate = 0;
    int32_t pauseModeAlternate = 0;
    int32_t forwardJumpSeconds = 30;
    int32_t backwardJumpSeconds = 10;

    // Section 8: buffering and the rest.
    int32_t startupGapMS = 0;
    int32_t secondaryBufferMinimumMS = 6000;
    bool trimSilence = false;
    bool gaplessSequentialAlbumTracks = true;
    int32_t autoConfigureMode = 0;
    std::vector<int32_t> bitstreamFormats;
    int32_t bitstreamDSDMaxRate = 0;
    int32_t liveLatencyMS = 50;
    bool stopAfterLongPause = false;

    // Section 16: zone synchronisation.
    int32_t zoneSyncAudioOutputLatencyMS = 0;
    int32_t zoneSyncManualLatencyAdjustmentMS = 0;

    int32_t zone = -10000;
    int32_t revision = 0;

    QVString GetOutputPluginPath() const { return QVString(outputPluginPath); }
    // Longer paths are cut to the fixed field.
    void SetOutputPluginPath(const QVString& path);
};

class QM_PLAYER_CORE_SETTINGS_PLAYBACK : public QM_PLAYER_CORE_SETTINGS
{
public:
    // Defaults, then the stored values of `zone` (-10000: the global branch).
    explicit QM_PLAYER_CORE_SETTINGS_PLAYBACK(int32_t zone);
    ~QM_PLAYER_CORE_SETTINGS_PLAYBACK() override = default;

    virtual bool Reserved() { return true; }
    // Writes the sections whose bits are set, then "Last Change Time". False
    // when the store refused a write.
    virtual bool Save(uint32_t sections);
    virtual int32_t GetRevision() const { return revision; }
    // Reads every section. zoneOverride >= 0: this record stands for a zone
    // that follows zone `zoneOverride`; -10000 is a plain load.
    virtual void Load(int32_t zoneOverride);

    // The output plug-in search of Load, with the program's folder given.
    void ResolveOutputPluginPath(const std::string& programFolder);

    // The rate table's text: format 1 and the twelve rates as counted tokens.
    static QVString FormatRateTable(const int32_t (&table)[PLAYER_CORE_RATE_CLASSES]);
    // Reads that text into table; a format other than 1 leaves it alone. False
    // when the text holds no format 1 table.
    static bool ParseRateTable(const QVString& text, int32_t (&table)[PLAYER_CORE_RATE_CLASSES]);
    // Fills the table from the older single rate and its mode.
    static void FillRateTableFromMode(int32_t rate, int32_t mode,
                                      int32_t (&table)[PLAYER_CORE_RATE_CLASSES]);
    // "Bitstream Formats": numbers joined with ",", and back.
    static QVString FormatBitstreamFormats(const std::vector<int32_t>& formats);
    static std::vector<int32_t> ParseBitstreamFormats(const QVString& text);

    // Values of the older single-rate mode.
    enum ERateMode : int32_t
    {
        RATE_MODE_ALL = 1,
        RATE_MODE_ALL_BUT_48000 = 2,
        RATE_MODE_NON_CD_DVD = 3,
        RATE_MODE_BELOW_44100 = 4,
        RATE_MODE_352800_AND_ABOVE = 5,
    };

private:
    void LoadFormatSection(CZoneSettingsKey& key);
    void LoadTransitionsSection(CZoneSettingsKey& key);
    void LoadBufferingSection(CZoneSettingsKey& key);
    void LoadBitstreamFormats();
    void MigrateDitherSetting();
    void FollowZone(int32_t zoneOverride);
};
