#include "parametric/EqualizingFilters.h"

#include <cmath>

#include "filters/IIRSectionRegisters.h"
#include "parametric/FilterPanel.h"

namespace
{
// Low-pass and high-pass use this exact decimal as their default Q; with the
// design's factor of the square root of two it keeps the Butterworth shape.
constexpr double PASS_DEFAULT_Q = 0.7071;
constexpr double SHELF_MAX_Q = 5.0;
constexpr int32_t MAX_INTERLEAVED = CParametricIIRFilter::MAX_INTERLEAVED;

int32_t PassKindBySlope(double slope, int32_t kind6)
{
    if (slope >= 48)
        return kind6 + 4;
    if (slope >= 36)
        return kind6 + 3;
    if (slope >= 24)
        return kind6 + 2;
    if (slope >= 12)
        return kind6 + 1;
    return kind6;
}

void ProcessSingleSectionPair(CIIRFilter& first, CIIRFilter& second, const ChannelSpan* spans,
                              int32_t frames)
{
    DirectSectionRegisters a(first);
    DirectSectionRegisters b(second);
    double* x = spans[0].base;
    double* y = spans[1].base;
    const ptrdiff_t strideA = spans[0].stride;
    const ptrdiff_t strideB = spans[1].stride;
    for (int32_t k = 0; k < frames; ++k, x += strideA, y += strideB)
    {
        *x = a.Step(*x);
        *y = b.Step(*y);
    }
    a.StoreTo(first);
    b.StoreTo(second);
}
}  // namespace

double ShelfQFromSlope(double slope, double gainDb)
{
    const double a = std::pow(10.0, gainDb / 40.0);
    return 1.0 / std::sqrt((a + 1.0 / a) * (1.0 / slope - 1.0) + 2.0);
}

// ---------------------------------------------------------------------------

CParametricIIRFilter::CParametricIIRFilter(int32_t filterType)
    : CParametricFilter(filterType), channels{CAudioFormat::Left, CAudioFormat::Right}
{
    if (filterType == PARAMETRIC_LOWPASS || filterType == PARAMETRIC_HIGHPASS)
        q = PASS_DEFAULT_Q;
}

CParametricIIRFilter::CParametricIIRFilter(double bandFrequency, double bandGain, double bandQ)
    : CParametricFilter(PARAMETRIC_PEAK), frequency(bandFrequency), gain(bandGain), q(bandQ),
      allChannels(true)
{
}

CParametricIIRFilter::~CParametricIIRFilter() = default;

void CParametricIIRFilter::SetGain(double gainDb)
{
    gain = gainDb;
}

int32_t CParametricIIRFilter::GetDesignKind() const
{
    switch (type)
    {
    case PARAMETRIC_LOWPASS: return PassKindBySlope(slope, IIR_LOWPASS_6);
    case PARAMETRIC_HIGHPASS: return PassKindBySlope(slope, IIR_HIGHPASS_6);
    case PARAMETRIC_PEAK: return IIR_PEAKING;
    case PARAMETRIC_LOWSHELF: return IIR_LOWSHELF;
    case PARAMETRIC_HIGHSHELF: return IIR_HIGHSHELF;
    case PARAMETRIC_ALLPASS: return IIR_ALLPASS;
    case PARAMETRIC_CUSTOM_BIQUAD: return IIR_CUSTOM_FILE;
    default: return -1;
    }
}

QVString CParametricIIRFilter::GetDescription() const
{
    const std::string hz = FrequencyText(frequency).ToUTF8();
    const QVString at = TranslateText(u"at");
    QVString text;
    switch (type)
    {
    case PARAMETRIC_LOWPASS:
    case PARAMETRIC_HIGHPASS:
        text = TranslateText(type == PARAMETRIC_LOWPASS ? u"Low-pass" : u"High-pass");
        text += FormatText(" %s %s", at.ToUTF8().c_str(), hz.c_str());
        break;
    case PARAMETRIC_PEAK:
        text = GainText(gain);
        text += FormatText(" %s %s", at.ToUTF8().c_str(), hz.c_str());
        break;
    case PARAMETRIC_LOWSHELF:
    case PARAMETRIC_HIGHSHELF:
        text = TranslateText(type == PARAMETRIC_LOWSHELF ? u"Low-shelf" : u"High-shelf");
        text += FormatText(" %s %s %s", GainText(gain).ToUTF8().c_str(), at.ToUTF8().c_str(),
                           hz.c_str());
        break;
    default: return CParametricFilter::GetDescription();
    }
    // Parameters the design refuses leave the audio untouched; say so.
    const double designedGain =
        (type == PARAMETRIC_LOWPASS || type == PARAMETRIC_HIGHPASS) ? 0.0 : gain;
    if (!CIIRFilter::InDesignRange(frequency, designedGain, q))
        text += QVString(u" (") + TranslateText(u"out of range: no effect") + u")";
    if (!allChannels)
        text += ChannelsSuffix(channels);
    return text;
}

CIIRFilter* CParametricIIRFilter::FilterFor(int32_t channelId)
{
    std::unique_ptr<CIIRFilter>& slot = channelFilters[channelId];
    if (!slot)
        slot = std::make_unique<CIIRFilter>();
    return slot.get();
}

void CParametricIIRFilter::ProcessChannel(CIIRFilter* filter, const ChannelSpan& span,
                                          int32_t frames)
{
    double* sample = span.base;
    for (int32_t k = 0; k < frames; ++k, sample += span.stride)
        *sample = filter->Process(*sample);
}

void CParametricIIRFilter::Process(double* samples, int32_t frames, const CAudioFormat* format,
                                   UserChannelBuffer* userChannels)
{
    CIIRFilter* active[MAX_INTERLEAVED];
    ChannelSpan spans[MAX_INTERLEAVED];
    const int32_t count = PrepareBlock(samples, frames, format, userChannels, active, spans);
    ProcessInterleaved(active, spans, count, frames);
}

bool CParametricIIRFilter::MayRunAsPair() const
{
    return enabled && !allChannels && channels.size() == 2 && channels[0] != channels[1] &&
           GetDesignKind() >= 0 && !(type == PARAMETRIC_PEAK && gain == 0.0);
}

int32_t CParametricIIRFilter::PrepareBlock(double* samples, int32_t frames,
                                           const CAudioFormat* format,
                                           UserChannelBuffer* userChannels, CIIRFilter** active,
                                           ChannelSpan* spans)
{
    if (!enabled || format == nullptr)
        return 0;
    const int32_t kind = GetDesignKind();
    if (kind < 0)
        return 0;
    if (type == PARAMETRIC_PEAK && gain == 0.0)
        return 0;  // a flat peak costs nothing and keeps no history
    const double designGain =
        (type == PARAMETRIC_LOWPASS || type == PARAMETRIC_HIGHPASS) ? 0.0 : gain;
    const QVString file = allChannels ? QVString() : customFile;
    const double rate = static_cast<double>(format->sampleRate);

    // Channels of one filter are independent, so they run side by side in one
    // loop over the frames: each recursion's latency hides behind the others'.
    // The result equals running them one after another, unless an id repeats:
    // its one CIIRFilter would then see the block twice in a row, so such a
    // list runs channel after channel.
    const int32_t listed = allChannels ? format->channels : static_cast<int32_t>(channels.size());
    auto idAt = [&](int32_t i)
    {
        return allChannels ? static_cast<int32_t>(format->channelTable[i].position)
                           : channels[static_cast<size_t>(i)];
    };
    bool repeated = false;
    for (int32_t i = 1; i < listed && !repeated; ++i)
    {
        for (int32_t j = 0; j < i && !repeated; ++j)
            repeated = idAt(i) == idAt(j);
    }

    int32_t count = 0;
    for (int32_t i = 0; i < listed; ++i)
    {
        const int32_t id = idAt(i);
        ChannelSpan span;
        if (!ResolveChannel(id, samples, frames, *format, userChannels, span))
            continue;
        CIIRFilter* filter = FilterFor(id);
        if (!filter->Design(kind, rate, frequency, designGain, q, true, file))
            continue;
        if (repeated || count == MAX_INTERLEAVED)
        {
            ProcessChannel(filter, span, frames);
            continue;
        }
        active[count] = filter;
        spans[count] = span;
        ++count;
    }
    return count;
}

void CParametricIIRFilter::ProcessInterleaved(CIIRFilter* const* filters, const ChannelSpan* spans,
                                              int32_t count, int32_t frames)
{
    if (count == 1)
    {
        ProcessChannel(filters[0], spans[0], frames);
        return;
    }
    if (count == 2 && spans[0].base != spans[1].base && DirectSectionRegisters::Fits(*filters[0]) &&
        DirectSectionRegisters::Fits(*filters[1]))
    {
        ProcessSingleSectionPair(*filters[0], *filters[1], spans, frames);
        return;
    }
    if (count == 2 && spans[0].base != spans[1].base)
    {
        // The common stereo case, written out so that both recursions sit in
        // one loop body.
        CIIRFilter& first = *filters[0];
        CIIRFilter& second = *filters[1];
        double* a = spans[0].base;
        double* b = spans[1].base;
        const ptrdiff_t strideA = spans[0].stride;
        const ptrdiff_t strideB = spans[1].stride;
        for (int32_t k = 0; k < frames; ++k, a += strideA, b += strideB)
        {
            const double x = first.Process(*a);
            const double y = second.Process(*b);
            *a = x;
            *b = y;
        }
        return;
    }
    for (int32_t k = 0; k < frames; ++k)
    {
        for (int32_t j = 0; j < count; ++j)
        {
            double* sample = spans[j].base + static_cast<ptrdiff_t>(k) * spans[j].stride;
            *sample = filters[j]->Process(*sample);
        }
    }
}

void CParametricIIRFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    if (load)
    {
        const int32_t version = map.GetInt(u"Version", 0);
        frequency = map.GetDouble(u"Frequency", frequency);
        slope = map.GetDouble(u"Slope", slope);
        gain = map.GetDouble(u"Gain", gain);
        q = map.GetDouble(u"Q", q);
        SerializeChannelList(true, map, u"Channels", channels);
        // Older lists stored a shelf's slope where the Q now stands.
        if (version < 1 && (type == PARAMETRIC_LOWSHELF || type == PARAMETRIC_HIGHSHELF))
            q = ShelfQFromSlope(q, gain);
    }
    else
    {
        map.SetInt(u"Version", 1);
        map.SetDouble(u"Frequency", frequency);
        map.SetDouble(u"Slope", slope);
        map.SetDouble(u"Gain", gain);
        map.SetDouble(u"Q", q);
        SerializeChannelList(false, map, u"Channels", channels);
    }
}

bool CParametricIIRFilter::ShowsQ() const
{
    switch (type)
    {
    case PARAMETRIC_LOWPASS:
    case PARAMETRIC_HIGHPASS:
    case PARAMETRIC_PEAK:
    case PARAMETRIC_LOWSHELF:
    case PARAMETRIC_HIGHSHELF:
    case PARAMETRIC_ALLPASS: return true;
    default: return false;
    }
}

bool CParametricIIRFilter::ShowsGain() const
{
    return type == PARAMETRIC_PEAK || type == PARAMETRIC_LOWSHELF || type == PARAMETRIC_HIGHSHELF;
}

void CParametricIIRFilter::BuildPanel(CFilterPanel& target)
{
    const bool passFilter = type == PARAMETRIC_LOWPASS || type == PARAMETRIC_HIGHPASS;
    target.Add(CONTROL_FREQUENCY, FILTER_CONTROL_NUMBER, u"Frequency:", u"Hz");
    CFilterControl& slopeList = target.Add(CONTROL_SLOPE, FILTER_CONTROL_CHOICE, u"Slope:");
    for (int32_t value : {6, 12, 24, 36, 48})
        slopeList.choices.push_back(
            {FormatText("%d ", value) + TranslateText(u"dB/octave"), value});
    slopeList.visible = passFilter;
    target.Add(CONTROL_Q, FILTER_CONTROL_NUMBER, u"Bandwidth (Q):").visible = ShowsQ();
    target.Add(CONTROL_GAIN, FILTER_CONTROL_NUMBER, u"Gain:", u"dB").visible = ShowsGain();
    target.AddChannelChoices(
        target.Add(CONTROL_CHANNELS, FILTER_CONTROL_MULTI_CHOICE, u"Channels:"));
}

void CParametricIIRFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    panel->SetNumber(CONTROL_FREQUENCY, frequency);
    panel->SetChoice(CONTROL_SLOPE, static_cast<int32_t>(slope));
    panel->SetNumber(CONTROL_Q, q);
    panel->SetNumber(CONTROL_GAIN, gain);
    panel->SetSelection(CONTROL_CHANNELS, channels);
}

void CParametricIIRFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    frequency = panel->GetNumber(CONTROL_FREQUENCY, frequency);
    if (type == PARAMETRIC_LOWPASS || type == PARAMETRIC_HIGHPASS)
        slope = panel->GetChoice(CONTROL_SLOPE, static_cast<int32_t>(slope));
    if (ShowsQ())
    {
        q = panel->GetNumber(CONTROL_Q, q);
        if ((type == PARAMETRIC_LOWSHELF || type == PARAMETRIC_HIGHSHELF) && q > SHELF_MAX_Q)
        {
            q = SHELF_MAX_Q;
            panel->SetNumber(CONTROL_Q, q);
            // Shown from a one-shot timer, not from within the read.
            panel->ShowMessageLater(u"Information", u"Q values greater than 5.0 won't be honored.",
                                    1);
        }
    }
    if (ShowsGain())
        gain = panel->GetNumber(CONTROL_GAIN, gain);
    channels = panel->GetSelection(CONTROL_CHANNELS);
}

// ---------------------------------------------------------------------------

CAllPassFilter::CAllPassFilter() : CParametricIIRFilter(PARAMETRIC_ALLPASS)
{
    frequency = 1000.0;
    q = 1.0;
}

QVString CAllPassFilter::GetDescription() const
{
    return TranslateText(u"All-pass Filter");
}

void CAllPassFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricIIRFilter::Serialize(load, map);
    SerializeValue(load, map, u"Frequency", frequency);
    SerializeValue(load, map, u"Q", q);
}

// ---------------------------------------------------------------------------

CCustomBiquadFilter::CCustomBiquadFilter() : CParametricIIRFilter(PARAMETRIC_CUSTOM_BIQUAD) {}

QVString CCustomBiquadFilter::GetDescription() const
{
    return TranslateText(u"Custom Biquad Filter");
}

void CCustomBiquadFilter::Serialize(bool load, QVPropertyMap& map)
{
    // Only the base keys and the file: a custom biquad has no channel key and
    // always acts on Left and Right.
    CParametricFilter::Serialize(load, map);
    if (load)
        map.GetString(customFile, u"Filename", customFile);
    else
        map.SetString(u"Filename", customFile, false);
}

void CCustomBiquadFilter::BuildPanel(CFilterPanel& target)
{
    target.Add(CONTROL_FILENAME, FILTER_CONTROL_FILE, u"Filename:");
}

void CCustomBiquadFilter::UpdatePanelFromValues()
{
    if (panel != nullptr)
        panel->SetText(CONTROL_FILENAME, customFile);
}

void CCustomBiquadFilter::UpdateValuesFromPanel()
{
    if (panel != nullptr)
        customFile = panel->GetText(CONTROL_FILENAME);
}
