#include "parametric/RoutingFilters.h"

#include <algorithm>
#include <cmath>

#include "parametric/FilterPanel.h"

namespace
{
double FactorFromDb(double gainDb)
{
    return std::pow(10.0, gainDb / 20.0);
}

void ScaleSpan(const ChannelSpan& span, int32_t frames, double factor)
{
    double* sample = span.base;
    for (int32_t k = 0; k < frames; ++k, sample += span.stride)
        *sample *= factor;
}

void NegateSpan(const ChannelSpan& span, int32_t frames)
{
    double* sample = span.base;
    for (int32_t k = 0; k < frames; ++k, sample += span.stride)
        *sample = -*sample;
}

// The channel-list control shared by volume, delay and polarity.
void AddChannelsControl(CFilterPanel& target, int32_t id)
{
    target.AddChannelChoices(target.Add(id, FILTER_CONTROL_MULTI_CHOICE, u"Channels:"));
}
}  // namespace

// ---------------------------------------------------------------------------
// Volume and mute

CParametricVolumeFilter::CParametricVolumeFilter(int32_t filterType, bool everyChannel)
    : CParametricFilter(filterType), allChannels(everyChannel)
{
}

void CParametricVolumeFilter::SetGain(double gainDb)
{
    gain = gainDb;
}

QVString CParametricVolumeFilter::GetDescription() const
{
    QVString text = type == PARAMETRIC_MUTE ? TranslateText(u"Mute") : GainText(gain);
    if (!allChannels)
        text += ChannelsSuffix(channels);
    return text;
}

void CParametricVolumeFilter::Process(double* samples, int32_t frames, const CAudioFormat* format,
                                      UserChannelBuffer* userChannels)
{
    if (!enabled || format == nullptr)
        return;
    const double factor = type == PARAMETRIC_MUTE ? 0.0 : FactorFromDb(gain);
    if (factor == 1.0)
        return;
    if (allChannels)
    {
        // One flat loop over the block, which the compiler vectorises.
        const int64_t count = static_cast<int64_t>(frames) * format->channels;
        for (int64_t i = 0; i < count; ++i)
            samples[i] *= factor;
        return;
    }
    for (int32_t id : channels)
    {
        ChannelSpan span;
        if (ResolveChannel(id, samples, frames, *format, userChannels, span))
            ScaleSpan(span, frames, factor);
    }
}

void CParametricVolumeFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeValue(load, map, u"Gain", gain);
    SerializeChannelList(load, map, u"Channels", channels);
}

void CParametricVolumeFilter::BuildPanel(CFilterPanel& target)
{
    target.Add(CONTROL_GAIN, FILTER_CONTROL_NUMBER, u"Gain:", u"dB").visible =
        type != PARAMETRIC_MUTE;
    AddChannelsControl(target, CONTROL_CHANNELS);
}

void CParametricVolumeFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    panel->SetNumber(CONTROL_GAIN, gain, 2);
    panel->SetSelection(CONTROL_CHANNELS, channels);
}

void CParametricVolumeFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    if (type != PARAMETRIC_MUTE)
        gain = panel->GetNumber(CONTROL_GAIN, gain);
    channels = panel->GetSelection(CONTROL_CHANNELS);
}

// ---------------------------------------------------------------------------
// Channel mixer

CParametricChannelMixerFilter::CParametricChannelMixerFilter()
    : CParametricFilter(PARAMETRIC_CHANNEL_MIXER)
{
}

QVString CParametricChannelMixerFilter::GetDescription() const
{
    const char16_t* pattern = nullptr;
    switch (mode)
    {
    case CHANNELMIX_ADD: pattern = u"Add %s to %s"; break;
    case CHANNELMIX_COPY: pattern = u"Copy %s to %s"; break;
    case CHANNELMIX_MOVE: pattern = u"Move %s to %s"; break;
    case CHANNELMIX_SWAP: pattern = u"Swap %s and %s"; break;
    case CHANNELMIX_SUBTRACT: pattern = u"Subtract %s from %s"; break;
    default: break;
    }
    QVString text = pattern == nullptr
                        ? TranslateText(u"Mix channels")
                        : QVString::Format(TranslateText(pattern).c_str(), ShortChannelName(source),
                                           ShortChannelName(destination));
    if (gain != 0.0)
        text += QVString(u" (") + GainText(gain) + QVString(u")");
    return text;
}

void CParametricChannelMixerFilter::Process(double* samples, int32_t frames,
                                            const CAudioFormat* format,
                                            UserChannelBuffer* userChannels)
{
    if (!enabled || format == nullptr)
        return;
    // A channel that isn't there is neither created nor read as silence.
    ChannelSpan from;
    ChannelSpan to;
    if (!ResolveChannel(source, samples, frames, *format, userChannels, from) ||
        !ResolveChannel(destination, samples, frames, *format, userChannels, to))
        return;
    const double g = FactorFromDb(gain);
    double* s = from.base;
    double* d = to.base;
    switch (mode)
    {
    case CHANNELMIX_ADD:
        for (int32_t k = 0; k < frames; ++k, s += from.stride, d += to.stride)
            *d = *d + g * *s;
        break;
    case CHANNELMIX_COPY:
        for (int32_t k = 0; k < frames; ++k, s += from.stride, d += to.stride)
            *d = g * *s;
        break;
    case CHANNELMIX_MOVE:
        for (int32_t k = 0; k < frames; ++k, s += from.stride, d += to.stride)
        {
            *d = g * *s;
            *s = 0.0;
        }
        break;
    case CHANNELMIX_SWAP:
        for (int32_t k = 0; k < frames; ++k, s += from.stride, d += to.stride)
        {
            const double oldSource = *s;
            const double oldDestination = *d;
            *d = g * oldSource;
            *s = g * oldDestination;
        }
        break;
    case CHANNELMIX_SUBTRACT:
        for (int32_t k = 0; k < frames; ++k, s += from.stride, d += to.stride)
            *d = *d - g * *s;
        break;
    default: break;
    }
}

void CParametricChannelMixerFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeValue(load, map, u"Source", source);
    SerializeValue(load, map, u"Destination", destination);
    SerializeValue(load, map, u"Mode", mode);
    SerializeValue(load, map, u"Gain", gain);
}

void CParametricChannelMixerFilter::BuildPanel(CFilterPanel& target)
{
    target.AddChannelChoices(target.Add(CONTROL_SOURCE, FILTER_CONTROL_CHOICE, u"Source:"));
    target.AddChannelChoices(
        target.Add(CONTROL_DESTINATION, FILTER_CONTROL_CHOICE, u"Destination:"));
    CFilterControl& modes = target.Add(CONTROL_MODE, FILTER_CONTROL_CHOICE, u"Mode:");
    modes.choices = {
        {TranslateText(u"Copy (replace destination with source)"), CHANNELMIX_COPY},
        {TranslateText(u"Move (replace destination with source and empty source)"),
         CHANNELMIX_MOVE},
        {TranslateText(u"Swap (swap source and destination)"), CHANNELMIX_SWAP},
        {TranslateText(u"Add (add source to destination)"), CHANNELMIX_ADD},
        {TranslateText(u"Subtract (subtract source from destination)"), CHANNELMIX_SUBTRACT},
    };
    target.Add(CONTROL_GAIN, FILTER_CONTROL_NUMBER, u"Gain:", u"dB");
}

void CParametricChannelMixerFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    panel->SetChoice(CONTROL_SOURCE, source);
    panel->SetChoice(CONTROL_DESTINATION, destination);
    panel->SetChoice(CONTROL_MODE, mode);
    panel->SetNumber(CONTROL_GAIN, gain, 2);
}

void CParametricChannelMixerFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    source = panel->GetChoice(CONTROL_SOURCE, source);
    destination = panel->GetChoice(CONTROL_DESTINATION, destination);
    mode = panel->GetChoice(CONTROL_MODE, mode);
    gain = panel->GetNumber(CONTROL_GAIN, gain);
}

// ---------------------------------------------------------------------------
// Channel order

CParametricChannelOrderFilter::CParametricChannelOrderFilter()
    : CParametricFilter(PARAMETRIC_CHANNEL_ORDER), order(DefaultOrder())
{
}

ChannelList CParametricChannelOrderFilter::DefaultOrder()
{
    return {CAudioFormat::Left,         CAudioFormat::Right,        CAudioFormat::Center,
            CAudioFormat::Subwoofer,    CAudioFormat::RearLeft,     CAudioFormat::RearRight,
            CAudioFormat::SurroundLeft, CAudioFormat::SurroundRight};
}

void CParametricChannelOrderFilter::ResetOrder()
{
    order = DefaultOrder();
    UpdatePanelFromValues();
    NotifyListChanged();
}

QVString CParametricChannelOrderFilter::GetDescription() const
{
    return TranslateText(u"Order channels");
}

void CParametricChannelOrderFilter::Process(double* samples, int32_t frames,
                                            const CAudioFormat* format, UserChannelBuffer*)
{
    if (!enabled || format == nullptr)
        return;
    const int32_t channelCount = std::min<int32_t>(format->channels, CAudioFormat::MAX_CHANNELS);
    if (channelCount < 2 || frames <= 0)
        return;
    // present: the ids of `order` that the stream has, in order.
    int32_t present[CAudioFormat::MAX_CHANNELS];
    int32_t presentCount = 0;
    for (int32_t id : order)
    {
        if (presentCount < CAudioFormat::MAX_CHANNELS && format->ChannelIndexOf(id) >= 0)
            present[presentCount++] = id;
    }
    int32_t map[CAudioFormat::MAX_CHANNELS];
    bool identity = true;
    for (int32_t i = 0; i < channelCount; ++i)
    {
        map[i] = i;
        const int32_t id = format->channelTable[i].position;
        for (int32_t p = 0; p < presentCount; ++p)
        {
            if (present[p] == id)
            {
                map[i] = p;
                break;
            }
        }
        identity = identity && map[i] == i;
    }
    if (identity)
        return;
    // Two positions may map to the same place; the later one wins.
    double frame[CAudioFormat::MAX_CHANNELS];
    for (int32_t f = 0; f < frames; ++f)
    {
        double* values = samples + static_cast<ptrdiff_t>(f) * format->channels;
        std::copy(values, values + channelCount, frame);
        for (int32_t i = 0; i < channelCount; ++i)
            values[map[i]] = frame[i];
    }
}

void CParametricChannelOrderFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeChannelList(load, map, u"Order", order, u',');
}

void CParametricChannelOrderFilter::BuildPanel(CFilterPanel& target)
{
    target.Add(CONTROL_ORDER, FILTER_CONTROL_ORDER_LIST, u"Output Order (drag to reorder)");
    target.Add(CONTROL_RESET, FILTER_CONTROL_BUTTON, u"Reset");
    target.Add(CONTROL_NOTE, FILTER_CONTROL_NOTE, u"Channels not in the output are ignored.");
}

void CParametricChannelOrderFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    if (CFilterControl* list = panel->Find(CONTROL_ORDER))
    {
        list->choices.clear();
        for (int32_t id : order)
            list->choices.push_back({CAudioFormat::GetChannelName(id, false), id});
        list->selection = order;
    }
}

void CParametricChannelOrderFilter::UpdateValuesFromPanel()
{
    if (panel != nullptr)
        order = panel->GetSelection(CONTROL_ORDER);
}

// ---------------------------------------------------------------------------
// Delay

CParametricDelayFilter::CParametricDelayFilter() : CParametricFilter(PARAMETRIC_DELAY) {}

CParametricDelayFilter::~CParametricDelayFilter() = default;

QVString CParametricDelayFilter::GetDescription() const
{
    return QVString::Format(TranslateText(u"Delay %s ms").c_str(), NumberText(delay, 2)) +
           ChannelsSuffix(channels);
}

void CParametricDelayFilter::Process(double* samples, int32_t frames, const CAudioFormat* format,
                                     UserChannelBuffer* userChannels)
{
    if (!enabled || format == nullptr || !(delay > 0.0))
        return;
    // Recomputed in every block from the format in force; below one frame the
    // line is left alone, contents and all.
    // A stored list may hold more than the edit's range (a hand-edited text,
    // which the commands refuse to take): the lines never grow beyond that
    // range, since 20,000,000 ms would be gigabytes per channel.
    const int32_t delayFrames =
        CDelayFilter<double>::FramesForMilliseconds(*format, std::min(delay, MAX_DELAY_MS));
    if (delayFrames < 1)
        return;
    const int32_t secondFrames = CDelayFilter<double>::FramesForMilliseconds(*format, 1000.0);
    for (int32_t id : channels)
    {
        ChannelSpan span;
        if (!ResolveChannel(id, samples, frames, *format, userChannels, span))
            continue;
        std::unique_ptr<CDelayFilter<double>>& line = delayLines[id];
        if (!line)
            line = std::make_unique<CDelayFilter<double>>();
        line->SetDelay(delayFrames, secondFrames);
        double* sample = span.base;
        for (int32_t k = 0; k < frames; ++k, sample += span.stride)
            *sample = line->Process(*sample);
    }
}

void CParametricDelayFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeValue(load, map, u"Delay", delay);
    SerializeChannelList(load, map, u"Channels", channels);
}

void CParametricDelayFilter::BuildPanel(CFilterPanel& target)
{
    target.Add(CONTROL_DELAY, FILTER_CONTROL_NUMBER, u"Delay:", u"ms");
    AddChannelsControl(target, CONTROL_CHANNELS);
}

void CParametricDelayFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    panel->SetNumber(CONTROL_DELAY, delay, 2);
    panel->SetSelection(CONTROL_CHANNELS, channels);
}

void CParametricDelayFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    delay = std::clamp(panel->GetNumber(CONTROL_DELAY, delay), 0.0, MAX_DELAY_MS);
    channels = panel->GetSelection(CONTROL_CHANNELS);
}

// ---------------------------------------------------------------------------
// Polarity

CParametricPolarityFilter::CParametricPolarityFilter() : CParametricFilter(PARAMETRIC_POLARITY) {}

QVString CParametricPolarityFilter::GetDescription() const
{
    return TranslateText(u"Reverse polarity") + ChannelsSuffix(channels);
}

void CParametricPolarityFilter::Process(double* samples, int32_t frames, const CAudioFormat* format,
                                        UserChannelBuffer* userChannels)
{
    if (!enabled || format == nullptr)
        return;
    for (int32_t id : channels)
    {
        ChannelSpan span;
        if (ResolveChannel(id, samples, frames, *format, userChannels, span))
            NegateSpan(span, frames);
    }
}

void CParametricPolarityFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeChannelList(load, map, u"Channels", channels);
}

void CParametricPolarityFilter::BuildPanel(CFilterPanel& target)
{
    AddChannelsControl(target, CONTROL_CHANNELS);
}

void CParametricPolarityFilter::UpdatePanelFromValues()
{
    if (panel != nullptr)
        panel->SetSelection(CONTROL_CHANNELS, channels);
}

void CParametricPolarityFilter::UpdateValuesFromPanel()
{
    if (panel != nullptr)
        channels = panel->GetSelection(CONTROL_CHANNELS);
}

// ---------------------------------------------------------------------------
// Mid-side

namespace
{
// The left and right positions for mid-side; only the stream's own channels.
bool FindStereoPair(const CAudioFormat& format, int32_t& left, int32_t& right)
{
    left = format.ChannelIndexOf(format.channels == 1 ? CAudioFormat::Mono : CAudioFormat::Left);
    right = format.ChannelIndexOf(CAudioFormat::Right);
    return left >= 0 && right >= 0;
}

// One pass over the block, handing each frame's left and right sample to
// `mix`, which rewrites the pair in place from their old values.
template <typename Mix>
void MixStereoPair(double* samples, int32_t frames, int32_t stride, int32_t left, int32_t right,
                   Mix mix)
{
    for (int32_t f = 0; f < frames; ++f)
    {
        double* frame = samples + static_cast<ptrdiff_t>(f) * stride;
        mix(frame[left], frame[right]);
    }
}
}  // namespace

CParametricMidSideFilter::CParametricMidSideFilter() : CParametricFilter(PARAMETRIC_MIDSIDE_ENCODE)
{
}

QVString CParametricMidSideFilter::GetDescription() const
{
    return TranslateText(u"Mid-side Encoding");
}

void CParametricMidSideFilter::Process(double* samples, int32_t frames, const CAudioFormat* format,
                                       UserChannelBuffer*)
{
    int32_t left = 0;
    int32_t right = 0;
    if (!enabled || format == nullptr || !FindStereoPair(*format, left, right))
        return;
    MixStereoPair(samples, frames, format->channels, left, right,
                  [](double& l, double& r)
                  {
                      const double oldLeft = l;
                      l = (l + r) * 0.5;
                      r = r - oldLeft;
                  });
}

CParametricUnMidSideFilter::CParametricUnMidSideFilter()
    : CParametricFilter(PARAMETRIC_MIDSIDE_DECODE)
{
}

QVString CParametricUnMidSideFilter::GetDescription() const
{
    return TranslateText(u"Mid-side Decoding");
}

void CParametricUnMidSideFilter::Process(double* samples, int32_t frames,
                                         const CAudioFormat* format, UserChannelBuffer*)
{
    int32_t left = 0;
    int32_t right = 0;
    if (!enabled || format == nullptr || !FindStereoPair(*format, left, right))
        return;
    // The whole pass runs once per channel of the stream, not once: saved
    // lists have always sounded this way, so it stays.
    const int32_t stride = format->channels;
    for (int32_t pass = 0; pass < stride; ++pass)
    {
        MixStereoPair(samples, frames, stride, left, right,
                      [](double& m, double& s)
                      {
                          const double oldMid = m;
                          m = m - s * 0.5;
                          s = oldMid + s * 0.5;
                      });
    }
}

// ---------------------------------------------------------------------------
// Divider

CParametricDividerFilter::CParametricDividerFilter()
    : CParametricFilter(PARAMETRIC_DIVIDER), text(u"--------------")
{
}

QVString CParametricDividerFilter::GetDescription() const
{
    return text;
}

void CParametricDividerFilter::Serialize(bool load, QVPropertyMap& map)
{
    // Its own key first, the base's last: the order its saved text has always had.
    if (load)
        map.GetString(text, u"Text", text);
    else
        map.SetString(u"Text", text, false);
    CParametricFilter::Serialize(load, map);
}

void CParametricDividerFilter::BuildPanel(CFilterPanel& target)
{
    target.Add(CONTROL_TEXT, FILTER_CONTROL_TEXT, u"Text:");
}

void CParametricDividerFilter::UpdatePanelFromValues()
{
    if (panel != nullptr)
        panel->SetText(CONTROL_TEXT, text);
}

void CParametricDividerFilter::UpdateValuesFromPanel()
{
    if (panel != nullptr)
        text = panel->GetText(CONTROL_TEXT);
}
