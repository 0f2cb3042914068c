#include "parametric/ParametricFilter.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "frame/IQVTools.h"
#include "parametric/EqualizingFilters.h"
#include "parametric/FilterPanel.h"
#include "parametric/Limiters.h"
#include "parametric/RoutingFilters.h"
#include "parametric/TransformFilters.h"

// ---------------------------------------------------------------------------
// User channels

UserChannelBuffer::~UserChannelBuffer()
{
    Free();
}

void UserChannelBuffer::Free()
{
    std::free(data);
    data = nullptr;
    length = 0;
    capacity = 0;
}

void UserChannelBuffer::SetLength(size_t bytes)
{
    if (bytes > capacity)
    {
        auto* grown = static_cast<uint8_t*>(std::realloc(data, bytes));
        if (grown == nullptr)
            throw std::bad_alloc();
        data = grown;
        capacity = bytes;
    }
    if (bytes > length)
        std::memset(data + length, 0, bytes - length);
    length = bytes;
}

bool ResolveChannel(int32_t channelId, double* samples, int32_t frames, const CAudioFormat& format,
                    UserChannelBuffer* userChannels, ChannelSpan& span)
{
    if (format.channels == 1 && channelId == CAudioFormat::Left)
        channelId = CAudioFormat::Mono;
    if (channelId == CAudioFormat::User1 || channelId == CAudioFormat::User2)
    {
        if (userChannels == nullptr || frames < 0)
            return false;
        userChannels->SetLength(static_cast<size_t>(frames) * 2 * sizeof(double));
        span.base = userChannels->GetDoubles() + (channelId == CAudioFormat::User1 ? 0 : 1);
        span.stride = 2;
        return true;
    }
    const int32_t index = format.ChannelIndexOf(channelId);
    if (index < 0)
        return false;
    span.base = samples + index;
    span.stride = format.channels;
    return true;
}

// ---------------------------------------------------------------------------
// The base filter

CParametricFilter::CParametricFilter(int32_t filterType) : type(filterType)
{
    serializeVersion = 1.1;
}

CParametricFilter::~CParametricFilter() = default;

QVString CParametricFilter::GetDescription() const
{
    return TranslateText(u"Unknown Filter");
}

void CParametricFilter::Process(double*, int32_t, const CAudioFormat*, UserChannelBuffer*) {}

void CParametricFilter::AttachToPanel(CFilterPanel* target)
{
    panel = target;
    if (panel == nullptr)
        return;
    panel->Clear();
    panel->SetOwner(this);
    BuildPanel(*panel);
    UpdatePanelFromValues();
}

void CParametricFilter::BuildPanel(CFilterPanel&) {}

void CParametricFilter::UpdatePanelFromValues() {}

void CParametricFilter::UpdateValuesFromPanel() {}

void CParametricFilter::DetachFromPanel()
{
    if (panel != nullptr && panel->GetOwner() == this)
    {
        panel->Clear();
        panel->SetOwner(nullptr);
    }
    panel = nullptr;
    NotifyListResized();
}

void CParametricFilter::NotifyListChanged()
{
    if (parentList != nullptr)
        parentList->OnFilterNotify(this, 0);
}

void CParametricFilter::NotifyListResized()
{
    if (parentList != nullptr)
        parentList->OnFilterNotify(this, 1);
}

void CParametricFilter::Serialize(bool load, QVPropertyMap& map)
{
    SerializeValue(load, map, u"Type", type);
    SerializeValue(load, map, u"Enabled", enabled);
}

QVString CParametricFilter::SaveToText()
{
    QVString text;
    QVPropertyMapSerializer::SaveToText(*this, text);
    return text;
}

bool CParametricFilter::LoadFromText(const QVString& text)
{
    return QVPropertyMapSerializer::LoadFromText(*this, text);
}

// ---------------------------------------------------------------------------
// Factory and names

CParametricFilter* CreateParametricFilter(int32_t type)
{
    switch (type)
    {
    case PARAMETRIC_LOWPASS:
    case PARAMETRIC_HIGHPASS:
    case PARAMETRIC_PEAK:
    case PARAMETRIC_LOWSHELF:
    case PARAMETRIC_HIGHSHELF: return new CParametricIIRFilter(type);
    case PARAMETRIC_VOLUME:
    case PARAMETRIC_MUTE: return new CParametricVolumeFilter(type, false);
    case PARAMETRIC_CHANNEL_MIXER: return new CParametricChannelMixerFilter();
    case PARAMETRIC_DELAY: return new CParametricDelayFilter();
    case PARAMETRIC_LINKWITZ_TRANSFORM: return new CParametricLinkwitzTransformFilter();
    case PARAMETRIC_LIMITER: return new CParametricLimiterFilter();
    case PARAMETRIC_CHANNEL_ORDER: return new CParametricChannelOrderFilter();
    case PARAMETRIC_BITDEPTH: return new CParametricBitdepthSimulatorFilter();
    case PARAMETRIC_SUBWOOFER_LIMITER: return new CParametricSubwooferLimiterFilter();
    case PARAMETRIC_POLARITY: return new CParametricPolarityFilter();
    case PARAMETRIC_LINKWITZ_RILEY: return new CLinkwitzRileyFilter();
    case PARAMETRIC_ALLPASS: return new CAllPassFilter();
    case PARAMETRIC_MIDSIDE_ENCODE: return new CParametricMidSideFilter();
    case PARAMETRIC_MIDSIDE_DECODE: return new CParametricUnMidSideFilter();
    case PARAMETRIC_DIVIDER: return new CParametricDividerFilter();
    case PARAMETRIC_CUSTOM_BIQUAD: return new CCustomBiquadFilter();
    default: return nullptr;
    }
}

QVString GetParametricFilterName(int32_t type)
{
    static const char16_t* const names[] = {
        u"",
        u"Remove high frequencies (low-pass filter)",
        u"Remove low frequencies (high-pass filter)",
        u"Adjust a frequency (equalizer filter)",
        u"Adjust the volume",
        u"Mute",
        u"Mix channels",
        u"Delay",
        u"Linkwitz transform",
        u"Limiter",
        u"Adjust low frequencies (low-shelf filter)",
        u"Adjust high frequencies (high-shelf filter)",
        u"Order channels",
        u"Bitdepth simulator",
        u"Subwoofer limiter",
        u"Reverse polarity",
        u"Linkwitz-Riley",
        u"All pass",
        u"Mid-side Encoding",
        u"Mid-side Decoding",
        u"Divider",
        u"Custom Biquad",
    };
    if (type < PARAMETRIC_FIRST_TYPE || type > PARAMETRIC_LAST_TYPE)
        return QVString();
    return QVString(names[type]);
}

// ---------------------------------------------------------------------------
// Channel lists

QVString ChannelListToText(const ChannelList& channels, char16_t separator)
{
    QVString text;
    const char16_t separatorText[2] = {separator, 0};
    for (size_t i = 0; i < channels.size(); ++i)
    {
        if (i > 0)
            text += QVString(separatorText);
        text += QVString::FromInt(channels[i]);
    }
    return text;
}

void ChannelListFromText(const QVString& text, char16_t separator, ChannelList& channels)
{
    channels.clear();
    int32_t start = 0;
    const int32_t length = text.GetLength();
    for (int32_t i = 0; i < length; ++i)
    {
        if (text[i] != separator)
            continue;
        channels.push_back(static_cast<int32_t>(text.Mid(start, i - start).ToInt()));
        start = i + 1;
    }
    if (start < length)
        channels.push_back(static_cast<int32_t>(text.Mid(start).ToInt()));
}

void SerializeChannelList(bool load, QVPropertyMap& map, const char16_t* key, ChannelList& channels,
                          char16_t separator)
{
    if (load)
    {
        QVString text;
        map.GetString(text, key, ChannelListToText(channels, separator));
        ChannelListFromText(text, separator, channels);
    }
    else
    {
        map.SetString(key, ChannelListToText(channels, separator), false);
    }
}

void SerializeValue(bool load, QVPropertyMap& map, const char16_t* key, int32_t& value)
{
    if (load)
        value = map.GetInt(key, value);
    else
        map.SetInt(key, value);
}

void SerializeValue(bool load, QVPropertyMap& map, const char16_t* key, double& value)
{
    if (load)
        value = map.GetDouble(key, value);
    else
        map.SetDouble(key, value);
}

void SerializeValue(bool load, QVPropertyMap& map, const char16_t* key, bool& value)
{
    if (load)
        value = map.GetInt(key, value ? 1 : 0) != 0;
    else
        map.SetInt(key, value ? 1 : 0);
}

QVString ShortChannelName(int32_t channelId)
{
    return CAudioFormat::GetChannelName(channelId, true);
}

QVString ChannelsSuffix(const ChannelList& channels)
{
    if (channels.empty())
        return QVString();
    QVString text(u" (");
    for (size_t i = 0; i < channels.size(); ++i)
    {
        if (i > 0)
            text += QVString(u",");
        text += ShortChannelName(channels[i]);
    }
    text += QVString(u")");
    return text;
}

// ---------------------------------------------------------------------------
// The list text

namespace
{
constexpr char16_t LIST_FORMAT_VERSION[] = u"1";

}  // namespace

QVString SaveParametricFilterList(const ParametricFilterArray& filters)
{
    QVString text;
    QVPropertyMap::AppendToken(text, QVString(LIST_FORMAT_VERSION));
    QVPropertyMap::AppendToken(text, QVString::FromInt(static_cast<int64_t>(filters.size())));
    for (const auto& filter : filters)
        QVPropertyMap::AppendToken(text, filter->SaveToText());
    return text;
}

void LoadParametricFilterList(const QVString& text, ParametricFilterArray& filters)
{
    filters.clear();
    int32_t position = 0;
    if (QVPropertyMap::ReadToken(text, position) != QVString(LIST_FORMAT_VERSION))
        return;
    const int64_t count = QVPropertyMap::ReadToken(text, position).ToInt();
    for (int64_t i = 0; i < count; ++i)
    {
        const QVString filterText = QVPropertyMap::ReadToken(text, position);
        // A plain filter of type 0 reads only "Type" and "Enabled".
        CParametricFilter probe(PARAMETRIC_NONE);
        if (!probe.LoadFromText(filterText))
            continue;
        std::unique_ptr<CParametricFilter> filter(CreateParametricFilter(probe.GetType()));
        if (!filter || !filter->LoadFromText(filterText))
            continue;
        filters.push_back(std::move(filter));
    }
}

// ---------------------------------------------------------------------------
// Texts

QVString TranslateText(const char16_t* text)
{
    return QVTranslated(text);
}

QVString FormatText(const char* format, ...)
{
    char buffer[512];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    return QVString::FromUTF8(buffer);
}

namespace
{
// Fixed notation of larger numbers would run to hundreds of digits; they are
// shown by their first significant digits instead.
constexpr double LARGEST_FIXED_TEXT = 1e15;

bool FitsFixedText(double value)
{
    return std::isfinite(value) && std::fabs(value) < LARGEST_FIXED_TEXT;
}
}  // namespace

QVString GainText(double gainDb)
{
    if (!FitsFixedText(gainDb))
        return FormatText("%+.3g dB", gainDb);
    return FormatText("%+.1f dB", gainDb);
}

QVString FrequencyText(double hz)
{
    // Whole hertz, truncated: the list's established text. Only values that no
    // integer could hold (or that are no number) fall back to leading digits,
    // since converting them would be undefined.
    if (!FitsFixedText(hz))
        return FormatText("%.3g Hz", hz);
    return FormatText("%.0f Hz", std::trunc(hz));
}

QVString NumberText(double value, int32_t decimals)
{
    if (!FitsFixedText(value))
        return FormatText("%.3g", value);
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.*f", static_cast<int>(decimals), value);
    char* point = std::strchr(buffer, '.');
    if (point != nullptr)
    {
        char* end = buffer + std::strlen(buffer) - 1;
        while (end > point && *end == '0')
            *end-- = 0;
        if (end == point)
            *end = 0;
    }
    if (std::strcmp(buffer, "-0") == 0)
        return QVString(u"0");
    return QVString::FromUTF8(buffer);
}
