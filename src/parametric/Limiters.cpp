#include "parametric/Limiters.h"

#include <algorithm>
#include <cmath>

#include "parametric/FilterPanel.h"

namespace
{
// The split of the subwoofer limiter: the Butterworth Q of the whole system.
constexpr double SPLIT_FREQUENCY_HZ = 40.0;
constexpr double BUTTERWORTH_Q = 0.7071067811865476;
constexpr double RECOVERY_MS = 250.0;  // 10 dB of recovery take this long
constexpr double LOW_FLOOR_DB = -36.0;
constexpr double LEVEL_FLOOR_DB = -96.0;

double FactorFromDb(double gainDb)
{
    return std::pow(10.0, gainDb / 20.0);
}
}  // namespace

int64_t CountedSamples(const CAudioFormat& format, double milliseconds)
{
    const int64_t bytes = static_cast<int64_t>(format.avgBytesPerSec * milliseconds / 1000.0 + 0.5);
    const int64_t bytesPerSample = format.bitsPerSample / 8;
    // Formats made by the format record never have these at 0; a hand-made
    // one gets no count rather than a division by zero.
    if (bytesPerSample == 0 || format.channels == 0)
        return 0;
    int64_t count = bytes / bytesPerSample;
    count -= count % format.channels;
    return count;
}

// ---------------------------------------------------------------------------
// Brick wall and adaptive limiter

CParametricLimiterFilter::CParametricLimiterFilter() : CParametricFilter(PARAMETRIC_LIMITER) {}

QVString CParametricLimiterFilter::GetDescription() const
{
    QVString text =
        mode == MODE_BRICK_WALL
            ? QVString::Format(TranslateText(u"Brick wall limiter at %s").c_str(), GainText(level))
            : TranslateText(u"Adaptive Limiter");
    return text + ChannelsSuffix(channels);
}

void CParametricLimiterFilter::Process(double* samples, int32_t frames, const CAudioFormat* format,
                                       UserChannelBuffer* userChannels)
{
    if (!enabled || format == nullptr)
        return;
    if (mode == MODE_BRICK_WALL)
        ProcessBrickWall(samples, frames, *format, userChannels);
    else if (mode == MODE_ADAPTIVE)
        ProcessAdaptive(samples, frames, *format);
}

void CParametricLimiterFilter::ProcessBrickWall(double* samples, int32_t frames,
                                                const CAudioFormat& format,
                                                UserChannelBuffer* userChannels) const
{
    const double limit = FactorFromDb(level);
    for (int32_t id : channels)
    {
        ChannelSpan span;
        if (!ResolveChannel(id, samples, frames, format, userChannels, span))
            continue;
        double* sample = span.base;
        for (int32_t k = 0; k < frames; ++k, sample += span.stride)
        {
            if (*sample > limit)
                *sample = limit;
            else if (*sample < -limit)
                *sample = -limit;
        }
    }
}

void CParametricLimiterFilter::PrepareAdaptive(const CAudioFormat& format)
{
    const int64_t attackCount = CountedSamples(format, attack / 1000.0);
    attackCoefficient = attackCount > 1 ? 1.0 / static_cast<double>(attackCount) : 1.0;
    holdLength = CountedSamples(format, hold);
    holdUntil = 0;
    // A release of 0 makes the step infinite: the envelope drops at once and
    // the next attack starts it again.
    releaseStep = 10.0 / static_cast<double>(CountedSamples(format, release));
    envelope = 0.0;
    prepared = true;
}

void CParametricLimiterFilter::ProcessAdaptive(double* samples, int32_t frames,
                                               const CAudioFormat& format)
{
    // The rate in force at the first block after an edit stays until the next
    // edit or reload.
    if (!prepared)
        PrepareAdaptive(format);
    // Only the stream's own channels; they share one envelope, so a peak in
    // one pulls all of them down alike.
    int32_t positions[CAudioFormat::MAX_CHANNELS];
    int32_t count = 0;
    for (int32_t id : channels)
    {
        const int32_t index = format.ChannelIndexOf(id);
        if (index >= 0 && count < CAudioFormat::MAX_CHANNELS)
            positions[count++] = index;
    }
    if (count == 0)
        return;
    const int32_t stride = format.channels;
    for (int32_t f = 0; f < frames; ++f)
    {
        double* frame = samples + static_cast<ptrdiff_t>(f) * stride;
        for (int32_t c = 0; c < count; ++c)
        {
            double& x = frame[positions[c]];
            ++sampleCounter;
            // Digital silence counts as 0 dB: it restarts the hold without
            // reducing anything.
            const double magnitude = std::fabs(x);
            const double d = magnitude > 0.0 ? 20.0 * std::log10(magnitude) : 0.0;
            if (sampleCounter >= holdUntil)
                envelope -= releaseStep;
            if (d > envelope)
            {
                envelope += (d - envelope) * attackCoefficient;
                holdUntil = sampleCounter + holdLength;
            }
            if (envelope > 0.0)
                x = x / FactorFromDb(envelope);
        }
    }
}

void CParametricLimiterFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeValue(load, map, u"Mode", mode);
    SerializeValue(load, map, u"Level", level);
    SerializeValue(load, map, u"Attack", attack);
    SerializeValue(load, map, u"Hold", hold);
    SerializeValue(load, map, u"Release", release);
    SerializeChannelList(load, map, u"Channels", channels);
}

void CParametricLimiterFilter::BuildPanel(CFilterPanel& target)
{
    CFilterControl& modes = target.Add(CONTROL_MODE, FILTER_CONTROL_CHOICE, u"Mode:");
    modes.choices = {
        {TranslateText(u"Brick wall (flat line values over limit)"), MODE_BRICK_WALL},
        {TranslateText(u"Adaptive"), MODE_ADAPTIVE},
    };
    target.Add(CONTROL_LIMIT, FILTER_CONTROL_NUMBER, u"Limit:", u"dB");
    target.Add(CONTROL_ATTACK, FILTER_CONTROL_NUMBER, u"Attack:", u"\u00B5s");
    target.Add(CONTROL_HOLD, FILTER_CONTROL_NUMBER, u"Hold:", u"ms");
    target.Add(CONTROL_RELEASE, FILTER_CONTROL_NUMBER, u"Release:", u"ms for 10dB");
    target.AddChannelChoices(
        target.Add(CONTROL_CHANNELS, FILTER_CONTROL_MULTI_CHOICE, u"Channels:"));
}

void CParametricLimiterFilter::ShowModeControls()
{
    const bool adaptive = mode == MODE_ADAPTIVE;
    panel->SetVisible(CONTROL_LIMIT, !adaptive);
    panel->SetVisible(CONTROL_ATTACK, adaptive);
    panel->SetVisible(CONTROL_HOLD, adaptive);
    panel->SetVisible(CONTROL_RELEASE, adaptive);
}

void CParametricLimiterFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    panel->SetChoice(CONTROL_MODE, mode);
    panel->SetNumber(CONTROL_LIMIT, level);
    panel->SetNumber(CONTROL_ATTACK, attack);
    panel->SetNumber(CONTROL_HOLD, hold);
    panel->SetNumber(CONTROL_RELEASE, release);
    panel->SetSelection(CONTROL_CHANNELS, channels);
    ShowModeControls();
}

void CParametricLimiterFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    const int32_t previousMode = mode;
    mode = panel->GetChoice(CONTROL_MODE, mode);
    level = panel->GetNumber(CONTROL_LIMIT, level);
    attack = panel->GetNumber(CONTROL_ATTACK, attack);
    hold = panel->GetNumber(CONTROL_HOLD, hold);
    release = panel->GetNumber(CONTROL_RELEASE, release);
    channels = panel->GetSelection(CONTROL_CHANNELS);
    prepared = false;
    if (mode != previousMode)
    {
        ShowModeControls();
        NotifyListResized();
    }
}

// ---------------------------------------------------------------------------
// Subwoofer limiter

double CSubwooferLimiterState::Process(double x)
{
    if (active)
    {
        lowGainDb = std::min(lowGainDb + lowStep, 0.0);
        lowGain = FactorFromDb(lowGainDb);
        highGainDb = std::min(highGainDb + highStep, 0.0);
        highGain = FactorFromDb(highGainDb);
        if (lowGainDb == 0.0 && highGainDb == 0.0)
            active = false;
    }
    const double low = split.Process(x);
    const double high = x - low;
    double y = active ? high * highGain + low * lowGain : high + low;
    if (std::fabs(y) > limit)
    {
        active = true;
        const double room = limit - std::fabs(highGain * high);
        if (room > 0.0)
        {
            // The bass gives way first, at the very sample of the overshoot.
            lowGain = room / std::fabs(low);
            lowGainDb = lowGain > 0.0 ? 20.0 * std::log10(lowGain) : 0.0;
            y = lowGain * low + highGain * high;
        }
        else
        {
            // The upper part alone is over the limit: the bass starts its
            // recovery from the floor.
            lowGain = 0.0;
            lowGainDb = LOW_FLOOR_DB;
            highGain = limit / std::fabs(high);
            highGainDb = highGain > 0.0 ? 20.0 * std::log10(highGain) : 0.0;
            y = highGain * high;
        }
    }
    return y;
}

CParametricSubwooferLimiterFilter::CParametricSubwooferLimiterFilter()
    : CParametricFilter(PARAMETRIC_SUBWOOFER_LIMITER)
{
}

QVString CParametricSubwooferLimiterFilter::GetDescription() const
{
    return TranslateText(u"Subwoofer limiter") + ChannelsSuffix(channels);
}

void CParametricSubwooferLimiterFilter::Prepare(const CAudioFormat& format)
{
    limiter.levelDb = std::max(level, LEVEL_FLOOR_DB);
    limiter.limit = FactorFromDb(level);
    limiter.split.Design(IIR_LOWPASS_24, static_cast<double>(format.sampleRate), SPLIT_FREQUENCY_HZ,
                         0.0, BUTTERWORTH_Q, true, QVString());
    limiter.active = false;
    const double step = 10.0 / static_cast<double>(CountedSamples(format, RECOVERY_MS));
    limiter.lowStep = step;
    limiter.highStep = step;
    limiter.lowGain = 1.0;
    limiter.highGain = 1.0;
    limiter.lowGainDb = 0.0;
    limiter.highGainDb = 0.0;
    prepared = true;
}

void CParametricSubwooferLimiterFilter::Process(double* samples, int32_t frames,
                                                const CAudioFormat* format, UserChannelBuffer*)
{
    if (!enabled || format == nullptr)
        return;
    // Only the first listed channel that the stream has, found directly: the
    // panel offers a single channel.
    int32_t position = -1;
    for (int32_t id : channels)
    {
        position = format->ChannelIndexOf(id);
        if (position >= 0)
            break;
    }
    if (position < 0)
        return;
    if (!prepared)
        Prepare(*format);
    const int32_t stride = format->channels;
    double* sample = samples + position;
    for (int32_t k = 0; k < frames; ++k, sample += stride)
        *sample = limiter.Process(*sample);
}

void CParametricSubwooferLimiterFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeValue(load, map, u"Level", level);
    SerializeChannelList(load, map, u"Channels", channels);
}

void CParametricSubwooferLimiterFilter::BuildPanel(CFilterPanel& target)
{
    target.AddChannelChoices(target.Add(CONTROL_CHANNEL, FILTER_CONTROL_CHOICE, u"Channel:"));
    target.Add(CONTROL_LIMIT, FILTER_CONTROL_NUMBER, u"Limit:", u"dB");
}

void CParametricSubwooferLimiterFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    panel->SetChoice(CONTROL_CHANNEL,
                     channels.empty() ? CAudioFormat::Subwoofer : channels.front());
    panel->SetNumber(CONTROL_LIMIT, level);
}

void CParametricSubwooferLimiterFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    channels.assign(1, panel->GetChoice(CONTROL_CHANNEL, CAudioFormat::Subwoofer));
    level = panel->GetNumber(CONTROL_LIMIT, level);
    prepared = false;
}
