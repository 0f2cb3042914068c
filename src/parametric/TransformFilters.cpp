#include "parametric/TransformFilters.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>

#include "frame/IQVTools.h"
#include "frame/SettingsKey.h"
#include "parametric/FilterPanel.h"

namespace
{
constexpr double PI = 3.141592653589793;
constexpr double FLUSH_THRESHOLD = 1e-150;
// 12 dB down: the headroom that "prevent clipping" makes for the boost.
constexpr double PREVENT_CLIPPING_DB = -12.0;
constexpr int32_t MIN_BITS = 2;
constexpr int32_t MAX_BITS = 32;
}  // namespace

// ---------------------------------------------------------------------------
// Linkwitz transform

CParametricLinkwitzTransformFilter::CParametricLinkwitzTransformFilter()
    : CParametricFilter(PARAMETRIC_LINKWITZ_TRANSFORM)
{
}

CParametricLinkwitzTransformFilter::~CParametricLinkwitzTransformFilter() = default;

QVString CParametricLinkwitzTransformFilter::GetDescription() const
{
    return TranslateText(u"Linkwitz transform") + ChannelsSuffix(channels);
}

void CParametricLinkwitzTransformFilter::Process(double* samples, int32_t frames,
                                                 const CAudioFormat* format,
                                                 UserChannelBuffer* userChannels)
{
    if (!enabled || format == nullptr)
        return;
    // Bilinear transform of the zero and pole pairs, warped at the middle of
    // the two frequencies.
    const double fs = static_cast<double>(format->sampleRate);
    const double fc = (fz + fp) / 2.0;
    const double gn = 2.0 * PI * fc / std::tan(PI * fc / fs);
    const double wz = 2.0 * PI * fz;
    const double wp = 2.0 * PI * fp;
    const double p2 = wp * wp;
    const double z2 = wz * wz;
    const double p1 = wp / qp * gn;
    const double z1 = wz / qz * gn;
    const double g = gn * gn;
    const double d = g + p1 + p2;
    const double coefficients[6] = {
        1.0,
        (z1 + z2 + g) / d,
        2.0 * (z2 - g) / d,
        (z2 - z1 + g) / d,
        2.0 * (p2 - g) / d,
        (p2 - p1 + g) / d,
    };

    for (int32_t id : channels)
    {
        ChannelSpan span;
        if (!ResolveChannel(id, samples, frames, *format, userChannels, span))
            continue;
        std::unique_ptr<CLinkwitzTransformFilter>& slot = transforms[id];
        if (!slot)
            slot = std::make_unique<CLinkwitzTransformFilter>();
        CLinkwitzTransformFilter& t = *slot;
        if (!t.initialized || !std::equal(coefficients, coefficients + 6, t.target))
        {
            std::copy(coefficients, coefficients + 6, t.target);
            t.b0 = coefficients[1];
            t.b1 = coefficients[2];
            t.b2 = coefficients[3];
            t.a1 = coefficients[4];
            t.a2 = coefficients[5];
            t.x1 = t.x2 = t.y1 = t.y2 = 0.0;
            t.initialized = true;
        }
        double* sample = span.base;
        for (int32_t k = 0; k < frames; ++k, sample += span.stride)
        {
            const double x = *sample;
            double y = t.b0 * x + t.b1 * t.x1 + t.b2 * t.x2 - t.a1 * t.y1 - t.a2 * t.y2;
            if (std::fabs(y) < FLUSH_THRESHOLD)
                y = 0.0;
            t.x2 = t.x1;
            t.x1 = x;
            t.y2 = t.y1;
            t.y1 = y;
            *sample = y;
        }
    }
    if (preventClipping)
    {
        // Every channel of the stream, listed or not; the user channels aren't part of it.
        const double factor = std::pow(10.0, PREVENT_CLIPPING_DB / 20.0);
        const int64_t count = static_cast<int64_t>(frames) * format->channels;
        for (int64_t i = 0; i < count; ++i)
            samples[i] *= factor;
    }
}

void CParametricLinkwitzTransformFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeValue(load, map, u"Fz", fz);
    SerializeValue(load, map, u"Qz", qz);
    SerializeValue(load, map, u"Fp", fp);
    SerializeValue(load, map, u"Qp", qp);
    SerializeValue(load, map, u"PreventClipping", preventClipping);
    SerializeChannelList(load, map, u"Channels", channels);
}

void CParametricLinkwitzTransformFilter::BuildPanel(CFilterPanel& target)
{
    target.Add(CONTROL_FZ, FILTER_CONTROL_NUMBER, u"Fz:", u"Hz");
    target.Add(CONTROL_QZ, FILTER_CONTROL_NUMBER, u"Qz:");
    target.Add(CONTROL_FP, FILTER_CONTROL_NUMBER, u"Fp:", u"Hz");
    target.Add(CONTROL_QP, FILTER_CONTROL_NUMBER, u"Qp:");
    target.Add(CONTROL_PREVENT_CLIPPING, FILTER_CONTROL_CHECK,
               u"Adjust volume of all channels to prevent clipping");
    target.AddChannelChoices(
        target.Add(CONTROL_CHANNELS, FILTER_CONTROL_MULTI_CHOICE, u"Channels:"));
}

void CParametricLinkwitzTransformFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    panel->SetNumber(CONTROL_FZ, fz);
    panel->SetNumber(CONTROL_QZ, qz);
    panel->SetNumber(CONTROL_FP, fp);
    panel->SetNumber(CONTROL_QP, qp);
    panel->SetChecked(CONTROL_PREVENT_CLIPPING, preventClipping);
    panel->SetSelection(CONTROL_CHANNELS, channels);
}

void CParametricLinkwitzTransformFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    fz = panel->GetNumber(CONTROL_FZ, fz);
    qz = panel->GetNumber(CONTROL_QZ, qz);
    fp = panel->GetNumber(CONTROL_FP, fp);
    qp = panel->GetNumber(CONTROL_QP, qp);
    preventClipping = panel->GetChecked(CONTROL_PREVENT_CLIPPING);
    channels = panel->GetSelection(CONTROL_CHANNELS);
}

// ---------------------------------------------------------------------------
// Linkwitz-Riley

CLinkwitzRileyEffect::CLinkwitzRileyEffect(int32_t rate, double cutoff)
    : sampleRate(rate), frequency(cutoff)
{
    // Two cascaded Butterworth high-pass pairs by the bilinear transform,
    // pre-warped at the cut-off: -6 dB there, 24 dB per octave below.
    const double wc = 2.0 * PI * frequency;
    const double k = wc / std::tan(PI * frequency / sampleRate);
    const double r = std::sqrt(2.0);
    const double wc2 = wc * wc;
    const double wc3 = wc2 * wc;
    const double wc4 = wc2 * wc2;
    const double k2 = k * k;
    const double k3 = k2 * k;
    const double k4 = k2 * k2;
    const double s1 = r * wc3 * k;
    const double s2 = r * wc * k3;
    const double a = 4.0 * wc2 * k2 + 2.0 * s1 + k4 + 2.0 * s2 + wc4;
    c[0] = k4 / a;
    c[1] = -4.0 * k4 / a;
    c[2] = 6.0 * k4 / a;
    c[3] = c[1];
    c[4] = c[0];
    d[0] = 0.0;
    d[1] = 4.0 * (wc4 + s1 - k4 - s2) / a;
    d[2] = (6.0 * wc4 - 8.0 * wc2 * k2 + 6.0 * k4) / a;
    d[3] = 4.0 * (wc4 - s1 + s2 - k4) / a;
    d[4] = (k4 - 2.0 * s1 + wc4 - 2.0 * s2 + 4.0 * wc2 * k2) / a;
}

double CLinkwitzRileyEffect::Process(double x)
{
    const double y = c[0] * x + c[1] * x1 + c[2] * x2 + c[3] * x3 + c[4] * x4 - d[1] * y1 -
                     d[2] * y2 - d[3] * y3 - d[4] * y4;
    x4 = x3;
    x3 = x2;
    x2 = x1;
    x1 = x;
    y4 = y3;
    y3 = y2;
    y2 = y1;
    y1 = y;
    return y;
}

CLinkwitzRileyFilter::CLinkwitzRileyFilter() : CParametricFilter(PARAMETRIC_LINKWITZ_RILEY) {}

CLinkwitzRileyFilter::~CLinkwitzRileyFilter() = default;

QVString CLinkwitzRileyFilter::GetDescription() const
{
    return TranslateText(u"Linkwitz-Riley Filter");
}

void CLinkwitzRileyFilter::Process(double* samples, int32_t frames, const CAudioFormat* format,
                                   UserChannelBuffer*)
{
    if (!enabled || format == nullptr)
        return;
    const int32_t channelCount = format->channels;
    if (effects.size() < static_cast<size_t>(channelCount))
        effects.resize(static_cast<size_t>(channelCount));
    for (int32_t i = 0; i < channelCount; ++i)
    {
        std::unique_ptr<CLinkwitzRileyEffect>& effect = effects[static_cast<size_t>(i)];
        if (!effect)
            effect = std::make_unique<CLinkwitzRileyEffect>(
                static_cast<int32_t>(format->sampleRate), frequency);
        double* sample = samples + i;
        for (int32_t k = 0; k < frames; ++k, sample += channelCount)
            *sample = effect->Process(*sample);
    }
}

void CLinkwitzRileyFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeValue(load, map, u"Frequency", frequency);
}

void CLinkwitzRileyFilter::BuildPanel(CFilterPanel& target)
{
    target.Add(CONTROL_FREQUENCY, FILTER_CONTROL_NUMBER, u"Frequency:", u"Hz");
}

void CLinkwitzRileyFilter::UpdatePanelFromValues()
{
    if (panel != nullptr)
        panel->SetNumber(CONTROL_FREQUENCY, frequency);
}

void CLinkwitzRileyFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    frequency = panel->GetNumber(CONTROL_FREQUENCY, frequency);
    // New records at the next block, with the rate then in force.
    effects.clear();
}

// ---------------------------------------------------------------------------
// Bit-depth simulator

namespace
{
// The process-wide seed counter: the clock at first use, then one step per
// quantizer. Nothing depends on its exact sequence.
std::atomic<bool> seedStarted{false};
std::atomic<uint32_t> seedCounter{0};

uint32_t NextSeed()
{
    if (!seedStarted.exchange(true, std::memory_order_relaxed))
    {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        const auto nanoseconds = std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
        seedCounter.store(static_cast<uint32_t>(nanoseconds), std::memory_order_relaxed);
        return static_cast<uint32_t>(nanoseconds);
    }
    return seedCounter.fetch_add(1, std::memory_order_relaxed) + 1;
}
}  // namespace

CSampleQuantizer::CSampleQuantizer(int32_t bits, bool dither, int32_t ditherMode)
    : scale(std::ldexp(1.0, bits - 1)), gainScale(1.0 * scale), upperClip(scale - 1.5),
      lowerClip(0.5 - scale), maxValue(static_cast<int32_t>(scale - 1)),
      minValue(static_cast<int32_t>(-scale)), ditherOn(dither)
{
    if (ditherOn)
    {
        if (ditherMode == 0)
            ditherOn = false;
        else
            ditherBits = ditherMode == 2 ? bits - 1 : bits;
    }
    seed = NextSeed();
    if (ditherOn)
    {
        noiseUnit = 1.0 / (std::ldexp(1.0, ditherBits) * 32768.0);
        AdvanceNoise();
        previousNoise = ((seed >> 16) & 0x7FFF) * noiseUnit;
    }
}

void CSampleQuantizer::AdvanceNoise()
{
    seed = seed * 0x343FDu + 0x269EC3u;
}

double CSampleQuantizer::Quantize(double x)
{
    double n = previousNoise;
    if (ditherOn)
    {
        // The difference of successive uniform values: high-pass triangular dither.
        AdvanceNoise();
        n = ((seed >> 16) & 0x7FFF) * noiseUnit;
        x = x + (n - previousNoise);
    }
    const double v = x * gainScale;
    double q;
    if (v >= upperClip)
        q = maxValue;
    else if (v <= lowerClip)
        q = minValue;
    else
        q = std::nearbyint(v);
    previousNoise = n;
    return q / scale;
}

CParametricBitdepthSimulatorFilter::CParametricBitdepthSimulatorFilter()
    : CParametricFilter(PARAMETRIC_BITDEPTH), ditherMode(ReadDitherMode())
{
}

QVString CParametricBitdepthSimulatorFilter::GetDescription() const
{
    return QVString::Format(TranslateText(u"Bitdepth simulator (%dbit)").c_str(), bits);
}

void CParametricBitdepthSimulatorFilter::Process(double* samples, int32_t frames,
                                                 const CAudioFormat* format,
                                                 UserChannelBuffer* userChannels)
{
    if (!enabled || format == nullptr)
        return;
    // A new quantizer for every block: the noise doesn't carry over.
    // Depths beyond 32 bits don't fit the quantizer's integer range.
    CSampleQuantizer quantizer(std::clamp(bits, 1, MAX_BITS), dither, ditherMode);
    for (int32_t i = 0; i < format->channels; ++i)
    {
        ChannelSpan span;
        if (!ResolveChannel(format->channelTable[i].position, samples, frames, *format,
                            userChannels, span))
            continue;
        double* sample = span.base;
        for (int32_t k = 0; k < frames; ++k, sample += span.stride)
            *sample = quantizer.Quantize(*sample);
    }
}

void CParametricBitdepthSimulatorFilter::Serialize(bool load, QVPropertyMap& map)
{
    CParametricFilter::Serialize(load, map);
    SerializeValue(load, map, u"Bits", bits);
    SerializeValue(load, map, u"Dither", dither);
}

void CParametricBitdepthSimulatorFilter::BuildPanel(CFilterPanel& target)
{
    CFilterControl& list = target.Add(CONTROL_BITS, FILTER_CONTROL_CHOICE, u"Bits:");
    for (int32_t value = MIN_BITS; value <= MAX_BITS; ++value)
        list.choices.push_back({QVString::FromInt(value), value});
    target.Add(CONTROL_DITHER, FILTER_CONTROL_CHECK, u"Dither");
}

void CParametricBitdepthSimulatorFilter::UpdatePanelFromValues()
{
    if (panel == nullptr)
        return;
    panel->SetChoice(CONTROL_BITS, bits);
    panel->SetChecked(CONTROL_DITHER, dither);
}

void CParametricBitdepthSimulatorFilter::UpdateValuesFromPanel()
{
    if (panel == nullptr)
        return;
    bits = panel->GetChoice(CONTROL_BITS, bits);
    dither = panel->GetChecked(CONTROL_DITHER);
    ditherMode = ReadDitherMode();
}

int32_t ReadDitherMode()
{
    IQVTools* tools = GetQVTools();
    if (tools == nullptr)
        return 1;
    std::unique_ptr<IQVSettingsKey> key(tools->GetPluginKeyObject(QVString(u"Properties"), false));
    if (!key)
        return 1;
    return key->ReadInt(u"Dither Mode", 1, 0, 0);
}
