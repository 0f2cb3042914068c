#include "effects/EqualizerEngine.h"

#include "filters/IIRSectionRegisters.h"

#include <algorithm>
#include <cstring>

const double CEqualizerEngine::BAND_FREQUENCIES[BAND_COUNT] = {
    31.25,  48.0,   62.5,   90.0,   125.0,  175.0,  250.0,  375.0,   500.0,   750.0,
    1000.0, 1500.0, 2000.0, 3000.0, 4000.0, 6000.0, 8000.0, 12000.0, 16000.0, 20000.0,
};

namespace
{
// Frames per pass of the filters. Each of the twenty bands walks the block in
// turn, so the block should stay in the first-level cache between them; a
// piece of this size (8 KB in stereo) does for up to a few channels, and the
// result is the same as one pass over the whole block.
constexpr int32_t PIECE_FRAMES = 512;

// Bands that walk a piece together, their histories held in registers.
constexpr int32_t GROUP_BANDS = 3;

// One designed single-section filter (direct form, b0 b1 b2 a1 a2) per lane;
// a missing second lane runs on zeros and is never stored.
struct SectionLanes
{
    Lanes b0, b1, b2, a1, a2;
    Lanes x1, x2, y1, y2;

    void Load(const CIIRFilter* first, const CIIRFilter* second)
    {
        const auto pair = [&](auto pick) {
            return Lanes{pick(first), second != nullptr ? pick(second) : 0.0};
        };
        b0 = pair([](const CIIRFilter* f) { return f->coefficients[0]; });
        b1 = pair([](const CIIRFilter* f) { return f->coefficients[1]; });
        b2 = pair([](const CIIRFilter* f) { return f->coefficients[2]; });
        a1 = pair([](const CIIRFilter* f) { return f->coefficients[3]; });
        a2 = pair([](const CIIRFilter* f) { return f->coefficients[4]; });
        x1 = pair([](const CIIRFilter* f) { return f->state[0]; });
        x2 = pair([](const CIIRFilter* f) { return f->state[1]; });
        y1 = pair([](const CIIRFilter* f) { return f->state[2]; });
        y2 = pair([](const CIIRFilter* f) { return f->state[3]; });
    }

    void Store(CIIRFilter* first, CIIRFilter* second) const
    {
        const auto put = [](CIIRFilter* f, int lane, const SectionLanes& s)
        {
            f->state[0] = s.x1[lane];
            f->state[1] = s.x2[lane];
            f->state[2] = s.y1[lane];
            f->state[3] = s.y2[lane];
        };
        put(first, 0, *this);
        if (second != nullptr)
            put(second, 1, *this);
    }

    [[gnu::always_inline]] inline Lanes Step(Lanes x)
    {
        Lanes y = b0 * x;
        y = y + b1 * x1;
        y = y + b2 * x2;
        y = y - a1 * y1;
        y = y - a2 * y2;
        y = FlushTiny(y);
        x2 = x1;
        x1 = x;
        y2 = y1;
        y1 = y;
        return y;
    }
};

// Runs `Count` bands in cascade over one or two channels of a piece: per
// frame the sample goes through every band of the group while the bands'
// histories stay in registers. One band alone would wait on its own
// recursion every sample; a few in a row overlap.
template <int32_t Count>
void RunGroup(double* samples, int32_t frames, int32_t stride, CIIRFilter* const* first,
              CIIRFilter* const* second)
{
    SectionLanes sections[Count];
    for (int32_t k = 0; k < Count; ++k)
        sections[k].Load(first[k], second != nullptr ? second[k] : nullptr);
    double* sample = samples;
    if (second != nullptr)
    {
        for (int32_t n = 0; n < frames; ++n, sample += stride)
        {
            Lanes x;
            std::memcpy(&x, sample, sizeof(x));
#pragma GCC unroll 8
            for (int32_t k = 0; k < Count; ++k)
                x = sections[k].Step(x);
            std::memcpy(sample, &x, sizeof(x));
        }
    }
    else
    {
        for (int32_t n = 0; n < frames; ++n, sample += stride)
        {
            Lanes x{*sample, 0.0};
#pragma GCC unroll 8
            for (int32_t k = 0; k < Count; ++k)
                x = sections[k].Step(x);
            *sample = x[0];
        }
    }
    for (int32_t k = 0; k < Count; ++k)
        sections[k].Store(first[k], second != nullptr ? second[k] : nullptr);
}

void RunGroupOf(int32_t count, double* samples, int32_t frames, int32_t stride,
                CIIRFilter* const* first, CIIRFilter* const* second)
{
    static_assert(GROUP_BANDS <= 4, "one case per group size");
    switch (count)
    {
    case 1: RunGroup<1>(samples, frames, stride, first, second); break;
    case 2: RunGroup<2>(samples, frames, stride, first, second); break;
    case 3: RunGroup<3>(samples, frames, stride, first, second); break;
    case 4: RunGroup<4>(samples, frames, stride, first, second); break;
    default: break;
    }
}
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
    const auto valueAt = [&setting](int32_t i)
    { return (i < setting.GetLength() ? static_cast<int32_t>(setting[i]) : 0) - VALUE_BASE; };
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

CIIRFilter* CEqualizerEngine::FilterAt(int32_t band, const CAudioFormat& format, int32_t index)
{
    // The filter is made at the channel's first block, as the band does.
    const int32_t id = format.channelTable[index].position;
    std::unique_ptr<CIIRFilter>& slot = format.ChannelIndexOf(id) == index
                                            ? bands[band]->channelFilters[id]
                                            : repeatedIdFilters[band][index];
    if (!slot)
        slot = std::make_unique<CIIRFilter>();
    return slot.get();
}

bool CEqualizerEngine::PrepareBand(int32_t band, const CAudioFormat& format, CIIRFilter** filters,
                                   bool& transparent)
{
    CParametricIIRFilter& filter = *bands[band];
    const double gain = filter.gain;
    const double rate = static_cast<double>(format.sampleRate);
    int32_t sections = -1;
    for (int32_t i = 0; i < format.channels; ++i)
    {
        CIIRFilter* channelFilter = FilterAt(band, format, i);
        if (!channelFilter->Design(IIR_PEAKING, rate, filter.frequency, gain, filter.q, true,
                                   QVString()))
            return false;
        const int32_t count =
            channelFilter->analogPrototype ? -1 : static_cast<int32_t>(channelFilter->sectionCount);
        if (count < 0 || count > 1 || (i > 0 && count != sections))
            return false;
        sections = count;
        filters[i] = channelFilter;
    }
    // No section: above 99 % of Nyquist the filter passes the samples as they are.
    transparent = sections == 0;
    return true;
}

void CEqualizerEngine::ProcessFilters(double* samples, int32_t frames, const CAudioFormat& format)
{
    // The preamp does no work at a factor of exactly 1.
    preamp->Process(samples, frames, &format, &scratch);
    const int32_t channels = format.channels;
    int32_t runLength = 0;
    const auto runCascade = [&]()
    {
        for (int32_t channel = 0; channel < channels; channel += 2)
        {
            const bool pair = channel + 1 < channels;
            for (int32_t start = 0; start < runLength; start += GROUP_BANDS)
            {
                CIIRFilter* first[GROUP_BANDS];
                CIIRFilter* second[GROUP_BANDS];
                const int32_t count = std::min(GROUP_BANDS, runLength - start);
                for (int32_t k = 0; k < count; ++k)
                {
                    first[k] = runFilters[start + k][channel];
                    second[k] = pair ? runFilters[start + k][channel + 1] : nullptr;
                }
                RunGroupOf(count, samples + channel, frames, channels, first,
                           pair ? second : nullptr);
            }
        }
        runLength = 0;
    };
    for (int32_t band = 0; band < BAND_COUNT; ++band)
    {
        // A band at exactly 0 dB does no work and keeps its filters idle.
        if (bands[band]->gain == 0.0)
            continue;
        bool transparent = false;
        if (PrepareBand(band, format, runFilters[runLength], transparent))
        {
            if (!transparent)
                ++runLength;
            continue;
        }
        // Not a single designed section: the band runs by itself, in its place.
        runCascade();
        RunBandAlone(band, samples, frames, format);
    }
    runCascade();
}

void CEqualizerEngine::RunBandAlone(int32_t band, double* samples, int32_t frames,
                                    const CAudioFormat& format)
{
    const CParametricIIRFilter& filter = *bands[band];
    const double rate = static_cast<double>(format.sampleRate);
    const int32_t channels = format.channels;
    for (int32_t i = 0; i < channels; ++i)
    {
        CIIRFilter* channelFilter = FilterAt(band, format, i);
        if (!channelFilter->Design(IIR_PEAKING, rate, filter.frequency, filter.gain, filter.q, true,
                                   QVString()))
            continue;  // as the band does: a filter it cannot design passes the channel on
        double* sample = samples + i;
        for (int32_t n = 0; n < frames; ++n, sample += channels)
            *sample = channelFilter->Process(*sample);
    }
}
