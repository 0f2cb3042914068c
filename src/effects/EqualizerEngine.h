// The audio side of the 20-band Equalizer and the text form of its setting.
//
// A setting is 21 characters: the preamp, then the twenty bands from low to
// high. Each character holds v = code - 48, from 0 ("0") to 62 ("n"), for a
// gain of (1 - v/31) x 12 dB: "O" is flat, "0" is +12 dB, "n" is -12 dB.
// Settings of older versions had ten bands and are widened by doubling each
// band character in place.
#pragma once

#include <cstdint>
#include <memory>

#include "core/QVString.h"
#include "parametric/EqualizingFilters.h"
#include "parametric/ParametricFilter.h"
#include "parametric/RoutingFilters.h"

class CEqualizerEngine
{
public:
    static constexpr int32_t BAND_COUNT = 20;
    static constexpr int32_t SETTING_LENGTH = BAND_COUNT + 1;  // preamp first
    static constexpr int32_t LEGACY_SETTING_LENGTH = 11;
    static constexpr int32_t FLAT_VALUE = 31;
    static constexpr int32_t MAX_VALUE = 62;
    static constexpr char16_t VALUE_BASE = u'0';
    static constexpr double BAND_Q = 2.0;
    static constexpr double MAX_GAIN_DB = 12.0;
    static constexpr const char16_t* FLAT_SETTING = u"OOOOOOOOOOOOOOOOOOOOO";
    static const double BAND_FREQUENCIES[BAND_COUNT];

    // The gain of a character value; exactly 0.0 for the flat value, so that a
    // flat band does no work at all.
    static double GainFromValue(int32_t value) { return (1.0 - value / 31.0) * 12.0; }
    // An 11-character setting widened to 21 characters; any other text as it is.
    static QVString ExpandLegacySetting(const QVString& setting);
    // True for exactly 21 characters, each from "0" to "n".
    static bool IsWellFormedSetting(const QVString& setting);

    CEqualizerEngine();
    ~CEqualizerEngine();
    CEqualizerEngine(const CEqualizerEngine&) = delete;
    CEqualizerEngine& operator=(const CEqualizerEngine&) = delete;

    // Decodes the setting into the values and gives every filter its gain. A
    // character the text lacks counts as code 0. The filters take the gains
    // at their next block, on the audio thread.
    void ApplySetting(const QVString& setting);

    // Runs the preamp and the twenty bands over the block, in place.
    void Process(double* samples, int32_t frames, int32_t channels, int32_t rate);

    double GetBandGain(int32_t band) const { return bands[band]->gain; }
    double GetPreampGain() const { return preamp->gain; }
    const CParametricIIRFilter& GetBand(int32_t band) const { return *bands[band]; }

    bool active = false;
    int8_t bandValues[BAND_COUNT];
    int32_t preampValue = FLAT_VALUE;
    int32_t sampleRate = 44100;

private:
    // The band filters of one stream channel in a run of consecutive bands.
    struct BandRun;

    void ProcessFilters(double* samples, int32_t frames, const CAudioFormat& format);
    // Designs the band's filter of every channel for this block, the way the
    // band itself would; false when the band can't take the cascade path.
    bool PrepareBand(int32_t band, const CAudioFormat& format, CIIRFilter** filters,
                     bool& transparent);
    // A band that can't take the cascade path, channel by channel.
    void RunBandAlone(int32_t band, double* samples, int32_t frames, const CAudioFormat& format);
    // The band's filter of the channel at `index`: the band's own filter of the
    // channel's id, or for a later position with the same id its own filter, so
    // that no two channels ever share a history.
    CIIRFilter* FilterAt(int32_t band, const CAudioFormat& format, int32_t index);

    std::unique_ptr<CParametricIIRFilter> bands[BAND_COUNT];
    std::unique_ptr<CParametricVolumeFilter> preamp;
    // Never used by these filters, which only address the stream's channels;
    // it stays empty and so never allocates.
    UserChannelBuffer scratch;
    // The filters of the bands that run in the cascade, per band and channel.
    CIIRFilter* runFilters[BAND_COUNT][CAudioFormat::MAX_CHANNELS] = {};
    // Filters of positions whose id an earlier position already has (past 32
    // channels every position is "undefined"), per band and channel index.
    std::unique_ptr<CIIRFilter> repeatedIdFilters[BAND_COUNT][CAudioFormat::MAX_CHANNELS];
};
