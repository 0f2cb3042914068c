// One physical speaker of Room Correction: its stored trim, distance,
// polarity and crossover, the test functions of the panel (mute, solo, tone),
// and the delay line and filters built from them for a stream. It runs one
// channel of an interleaved block; the speaker set decides which channel and
// supplies every figure that depends on the other speakers.
//
// No lock of its own: everything here runs under the speaker set's lock.
#pragma once

#include <cstdint>
#include <memory>

#include "core/QVString.h"
#include "filters/DelayFilter.h"
#include "filters/IIRFilter.h"
#include "qvdsp/AudioFormat.h"
#include "room/CalibrationNoise.h"

class CChannelDSP
{
public:
    enum EChannelSets : int32_t
    {
        CHANNELSET_NONE = -1,
        CHANNELSET_ALL = 0,
        CHANNELSET_FRONT = 1,
        CHANNELSET_SURROUND = 2,
        CHANNELSET_REAR = 3,
    };

    // Speaker numbers; the number plus 2 is the speaker's CAudioFormat::Channels code.
    static constexpr int32_t SPEAKER_COUNT = 8;
    static constexpr int32_t LEFT = 0;
    static constexpr int32_t RIGHT = 1;
    static constexpr int32_t CENTER = 2;
    static constexpr int32_t SUBWOOFER = 3;

    // Values of `removedBassRouting`.
    static constexpr int32_t ROUTING_REMOVE = 0;
    static constexpr int32_t ROUTING_MOVE = 1;
    static constexpr int32_t ROUTING_COPY = 2;

    // A distance below this is no distance: the single-precision 0.1, widened,
    // because that is what a panel's 0.1 ft step leaves in the store.
    static constexpr double MIN_DISTANCE_FEET = 0.10000000149011612;
    static constexpr double SPEED_OF_SOUND_FEET_PER_SECOND = 1116.43701;
    // The ring holds at least this much, so that moving a speaker within a
    // normal room never has to grow it (and so restart it from silence).
    static constexpr double DELAY_CAPACITY_MS = 100.0;
    // The farthest the panel can set (100 m); a stored distance beyond it is
    // taken as this, so that a damaged value cannot ask for a ring of
    // gigabytes.
    static constexpr double MAX_DISTANCE_FEET = 100.0 / static_cast<double>(0.3048f);
    // Meter reading of the calibration tone, relative to full scale.
    static constexpr double TONE_LEVEL_DB = -23.0;

    // Names of the stored values after "Channel %d - ".
    static constexpr const char16_t* KEY_LEVEL = u"Level (dB)";
    static constexpr const char16_t* KEY_DISTANCE = u"Distance (ft)";
    static constexpr const char16_t* KEY_POLARITY = u"Reverse Polarity";
    static constexpr const char16_t* KEY_HIGHPASS_FREQUENCY = u"High-pass Frequency";
    static constexpr const char16_t* KEY_HIGHPASS_SLOPE = u"High-pass Slope";
    static constexpr const char16_t* KEY_LOWPASS_SLOPE = u"Low-pass Slope";
    static constexpr const char16_t* KEY_ROUTING = u"Removed Bass Routing";
    // The store's place of the speakers.
    static constexpr const char16_t* SETTINGS_SUBKEY = u"Room Correction";
    static constexpr const char16_t* SETTINGS_LEGACY_KEY = u"Plugins\\DSP\\QM DSP";

    static constexpr double DEFAULT_LEVEL_DB = 0.0;
    static constexpr double DEFAULT_DISTANCE_FEET = 0.0;
    static constexpr int32_t DEFAULT_HIGHPASS_SLOPE = 12;
    static constexpr int32_t DEFAULT_LOWPASS_SLOPE = 48;

    // The pair a speaker belongs to, CHANNELSET_NONE for center and subwoofer.
    static EChannelSets GetChannelSet(int32_t speaker);
    // "Channel 3 - Level (dB)".
    static QVString SettingName(int32_t speaker, const char16_t* key);

    // Reads the speaker's settings of the zone.
    CChannelDSP(int32_t channel, int32_t zone);

    void LoadSettings();
    // Writes the seven values in their fixed order; false when the store
    // refused any of them.
    bool SaveSettings() const;
    // The stored defaults, in the fields only.
    void ResetSettings();

    // Prepares the speaker for a stream: `index` is its channel there, the
    // maxima are the farthest speaker in use and the farthest of its pair.
    void Configure(const CAudioFormat& format, int32_t index, double maxDistanceAll,
                   double maxDistanceOwnSet);

    // Runs this speaker's channel of an interleaved block in place: `samples`
    // points at its first sample, the stride is the format's channel count.
    // `bassBuffer` (frames doubles, or null) collects the bass of the speakers
    // that send it; the subwoofer adds it to its own signal.
    void ProcessBlock(double* samples, int32_t frames, const CAudioFormat& format,
                      double masterGain, double* bassBuffer, int32_t bassChannels, double bassGain,
                      double toneGain);

    bool IsSubwoofer() const { return channel == SUBWOOFER; }
    bool HasDistance() const { return distanceFeet >= MIN_DISTANCE_FEET; }
    int32_t GetDelayFrames() const { return delay.delay; }

    int32_t channel;
    int32_t zone;
    double levelDB = DEFAULT_LEVEL_DB;
    double distanceFeet = DEFAULT_DISTANCE_FEET;
    bool reversePolarity = false;
    bool mute = false;
    bool solo = false;
    bool tone = false;
    int32_t highPassFrequency = 0;
    int32_t highPassSlope = DEFAULT_HIGHPASS_SLOPE;
    int32_t lowPassSlope = DEFAULT_LOWPASS_SLOPE;
    int32_t removedBassRouting = ROUTING_REMOVE;
    CDelayFilter<double> delay;
    CIIRFilter bassLowPass;
    CIIRFilter highPass;
    std::unique_ptr<CCalibrationNoise> noise;
    bool silenced = false;
    bool bassToSubwoofer = false;
    bool highPassActive = false;
    double gain = 1.0;
};
