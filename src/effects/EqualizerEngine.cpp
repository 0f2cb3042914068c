#include "effects/EqualizerEngine.h"

#include <algorithm>

const double CEqualizerEngine::BAND_FREQUENCIES[BAND_COUNT] = {
    31.25, 48.0,   62.5,   90.0,   125.0,  175.0,  250.0,   375.0,   500.0,   750.0,
    1000.0, 1500.0, 2000.0, 3000.0, 4000.0, 6000.0, 8000.0, 12000.0, 16000.0, 20000.0,
};

namespace
{
// Frames per pass of the filters. Each of the twenty bands walks the block in
// turn, so the block should stay in the first-level cache between them; a
// piece of this size (8 KB in stereo) does for up to a few channels, and the
// result is the same as one pass over the whole block.
constexpr int32_t PIECE_FRAMES = 512;
}  // namespace

QVString CEqualizerEngine::ExpandLegacySetting(const QVString& setting)
{
    if (setting.GetLength() != LEGACY_SETTING_LENGTH)
        return setting;
    char16_t wide[SETTING_LENGTH + 1];
    wide[0] = setting[0];
    for (int32_t i = 1; i < LEGACY_SETTING_LENGTH; ++i)
    {
        wide[2 * i - 1] = setting[i];
        wide[2 * i] = setting[i];
    }
    wide[SETTING_LENGTH] = 0;
    return QVString(wide, SETTING_LENGTH);
}

bool CEqualizerEngine::IsWellFormedSetting(const QVString& setting)
{
    if (setting.GetLength() != SETTING_LENGTH)
        return false;
    for (int32_t i = 0; i < SETTING_LENGTH; ++i)
    {
        const int32_t value = setting[i] - VALUE_BASE;
        if (value < 0 || value > MAX_VALUE)
            return false;
    }
    return true;
}

CEqualizerEngine::CEqualizerEngine()
{
    std::fill(std::begin(bandValues), std::end(bandValues), static_cast<int8_t>(FLAT_VALUE));
    for (int32_t band = 0; band < BAND_COUNT; ++band)
        bands[band] = std::make_unique<CParametricIIRFilter>(BAND_FREQUENCIES[band], 0.0, BAND_Q);
    preamp = std::make_unique<CParametricVolumeFilter>(PARAMETRIC_VOLUME, true);
}

CEqualizerEngine::~CEqualizerEngine() = default;

void CEqualizerEngine::ApplySetting(const QVString& setting)
{
    // A short text reads as code 0 where characters are missing (a large
    // boost); the panel never writes one, and the store's text is checked
    // for its length before it gets here.
    const auto valueAt = [&setting](int32_t i) {
        return (i < setting.GetLength() ? static_cast<int32_t>(setting[i]) : 0) - VALUE_BASE;
    };
    preampValue = valueAt(0);
    for (int32_t band = 0; band < BAND_COUNT; ++band)
        bandValues[band] = static_cast<int8_t>(valueAt(band + 1));
    active = true;
    for (int32_t band = 0; band < BAND_COUNT; ++band)
        bands[band]->SetGain(GainFromValue(bandValues[band]));
    preamp->SetGain(GainFromValue(preampValue));
}

void CEqualizerEngine::Process(double* samples, int32_t frames, int32_t channels, int32_t rate)
{
    if (sampleRate != rate)
        sampleRate = rate;
    if (!active || frames <= 0 || channels <= 0)
        return;
    // The default layout of the channel count: every band runs on every
    // channel, whatever the positions are called. Built here on the stack, so
    // a change of format needs no notice to the engine.
    const CAudioFormat format(64, static_cast<uint32_t>(rate), static_cast<uint16_t>(channels));
    const int32_t pieceFrames = std::max(1, PIECE_FRAMES * 2 / channels);
    for (int32_t done = 0; done < frames; done += pieceFrames)
    {
        const int32_t count = std::min(pieceFrames, frames - done);
        ProcessFilters(samples + static_cast<ptrdiff_t>(done) * channels, count, format);
    }
}

void CEqualizerEngine::ProcessFilters(double* samples, int32_t frames, const CAudioFormat& format)
{
    // A band at exactly 0 dB returns at once and keeps its history idle; the
    // preamp does the same at a factor of exactly 1.
    preamp->Process(samples, frames, &format, &scratch);
    for (int32_t band = 0; band < BAND_COUNT; ++band)
        bands[band]->Process(samples, frames, &format, &scratch);
}
