// The common base of the small filters that the Parametric Equalizer runs in the
// user's order: type and enabled state, the conventions for addressing channels
// (stream channels, mono through Left, the two user channels U1 and U2), the
// text form of one filter and of a whole list, and the factory by type id.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "core/QVPropertyMap.h"
#include "core/QVString.h"
#include "qvdsp/AudioFormat.h"

class CFilterPanel;
class CParametricFilter;

// Ids of the filter kinds. They stand in users' saved lists and never change.
enum ParametricFilterType : int32_t
{
    PARAMETRIC_NONE = 0,  // only the temporary filter that reads a type
    PARAMETRIC_LOWPASS = 1,
    PARAMETRIC_HIGHPASS = 2,
    PARAMETRIC_PEAK = 3,
    PARAMETRIC_VOLUME = 4,
    PARAMETRIC_MUTE = 5,
    PARAMETRIC_CHANNEL_MIXER = 6,
    PARAMETRIC_DELAY = 7,
    PARAMETRIC_LINKWITZ_TRANSFORM = 8,
    PARAMETRIC_LIMITER = 9,
    PARAMETRIC_LOWSHELF = 10,
    PARAMETRIC_HIGHSHELF = 11,
    PARAMETRIC_CHANNEL_ORDER = 12,
    PARAMETRIC_BITDEPTH = 13,
    PARAMETRIC_SUBWOOFER_LIMITER = 14,
    PARAMETRIC_POLARITY = 15,
    PARAMETRIC_LINKWITZ_RILEY = 16,
    PARAMETRIC_ALLPASS = 17,
    PARAMETRIC_MIDSIDE_ENCODE = 18,
    PARAMETRIC_MIDSIDE_DECODE = 19,
    PARAMETRIC_DIVIDER = 20,
    PARAMETRIC_CUSTOM_BIQUAD = 21,
};

inline constexpr int32_t PARAMETRIC_FIRST_TYPE = 1;
inline constexpr int32_t PARAMETRIC_LAST_TYPE = 21;

// The block state shared by all filters of one list: the two virtual channels
// U1 and U2, interleaved as pairs of doubles. A growable byte array with a
// length and a capacity; it only reallocates when a block is longer than any
// block before it that used a user channel.
class UserChannelBuffer
{
public:
    UserChannelBuffer() = default;
    ~UserChannelBuffer();
    UserChannelBuffer(const UserChannelBuffer&) = delete;
    UserChannelBuffer& operator=(const UserChannelBuffer&) = delete;

    // Makes the length exactly `bytes`: added bytes are zero, kept ones stay.
    void SetLength(size_t bytes);
    size_t GetLength() const { return length; }
    size_t GetCapacity() const { return capacity; }
    double* GetDoubles() { return reinterpret_cast<double*>(data); }
    void Free();

private:
    uint8_t* data = nullptr;
    size_t length = 0;
    size_t capacity = 0;
};

// Where the samples of one channel lie in a block: base[k * stride], k < frames.
struct ChannelSpan
{
    double* base = nullptr;
    int32_t stride = 0;
};

// Resolves a channel id the way every list filter does: Left means the mono
// channel of a one-channel stream, U1 and U2 live in `userChannels` (which is
// sized here), and anything else is searched in the format. False when the
// stream lacks the channel: settings for absent channels are dormant.
bool ResolveChannel(int32_t channelId, double* samples, int32_t frames, const CAudioFormat& format,
                    UserChannelBuffer* userChannels, ChannelSpan& span);

using ChannelList = std::vector<int32_t>;

// The list control that shows a filter's panel; told when the description
// (0) or the panel's height (1) changed.
class IParametricFilterParent
{
public:
    virtual ~IParametricFilterParent() = default;
    virtual void OnFilterNotify(CParametricFilter* filter, int32_t what) = 0;
};

class CParametricFilter : public QVSerializeHelper
{
public:
    explicit CParametricFilter(int32_t type);
    ~CParametricFilter() override;
    CParametricFilter(const CParametricFilter&) = delete;
    CParametricFilter& operator=(const CParametricFilter&) = delete;

    virtual bool IsEnabled() const { return enabled; }
    virtual void SetEnabled(bool value) { enabled = value; }
    virtual QVString GetDescription() const;
    // Runs the filter in place over `frames` interleaved frames.
    virtual void Process(double* samples, int32_t frames, const CAudioFormat* format,
                         UserChannelBuffer* userChannels);
    // Panel exchange, on a window-less model of the filter's controls.
    virtual void AttachToPanel(CFilterPanel* panel);
    virtual void UpdatePanelFromValues();
    virtual void UpdateValuesFromPanel();
    virtual void DetachFromPanel();
    void NotifyListChanged();
    void NotifyListResized();

    void Serialize(bool load, QVPropertyMap& map) override;

    int32_t GetType() const { return type; }
    void SetParentList(IParametricFilterParent* parent) { parentList = parent; }
    CFilterPanel* GetPanel() const { return panel; }

    // The filter's own text ("XMLPH", version 1.1); loading empty text fails.
    QVString SaveToText();
    bool LoadFromText(const QVString& text);

protected:
    // Adds this filter's controls to the attached panel; the base has none.
    virtual void BuildPanel(CFilterPanel& target);

    int32_t type;
    bool enabled = true;
    IParametricFilterParent* parentList = nullptr;
    CFilterPanel* panel = nullptr;  // not owned; null while detached
};

CParametricFilter* CreateParametricFilter(int32_t type);
// The menu text of a type, empty for anything that isn't a type.
QVString GetParametricFilterName(int32_t type);

// Channel lists as text: decimal ids joined by `separator` (";" under
// "Channels", "," under "Order").
QVString ChannelListToText(const ChannelList& channels, char16_t separator);
void ChannelListFromText(const QVString& text, char16_t separator, ChannelList& channels);
void SerializeChannelList(bool load, QVPropertyMap& map, const char16_t* key, ChannelList& channels,
                          char16_t separator = u';');
// One field under `key`, named once for both directions: read when loading
// (a missing key leaves the value as it is), written otherwise. Flags are
// kept as 0 and 1.
void SerializeValue(bool load, QVPropertyMap& map, const char16_t* key, int32_t& value);
void SerializeValue(bool load, QVPropertyMap& map, const char16_t* key, double& value);
void SerializeValue(bool load, QVPropertyMap& map, const char16_t* key, bool& value);

// The end of many descriptions: " (L,R)" with the short channel names, or
// nothing for an empty list.
QVString ChannelsSuffix(const ChannelList& channels);
QVString ShortChannelName(int32_t channelId);

// The list text: counted tokens holding "1", the filter count, and each
// filter's text. Loading replaces `filters`; bad or unknown filters are dropped.
using ParametricFilterArray = std::vector<std::unique_ptr<CParametricFilter>>;
QVString SaveParametricFilterList(const ParametricFilterArray& filters);
void LoadParametricFilterList(const QVString& text, ParametricFilterArray& filters);

// Texts shown to the user pass through the host's translator.
QVString TranslateText(const char16_t* text);
// printf into a QVString; for descriptions and panel texts, never on the audio path.
QVString FormatText(const char* format, ...) __attribute__((format(printf, 1, 2)));
// "+3.0 dB": one decimal and a sign.
QVString GainText(double gainDb);
// A number with at most `decimals` decimals and no trailing zeros; huge or
// non-finite numbers with three significant digits ("1e+308", "nan").
QVString NumberText(double value, int32_t decimals);
// "1000 Hz" for 1000.9: whole hertz, truncated; "1e+308 Hz", "nan Hz" beyond.
QVString FrequencyText(double hz);
