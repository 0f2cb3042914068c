#include "qvdsp/AudioFormat.h"

#include <cstring>

#include "core/QVString.h"
#include "frame/IQVTools.h"

namespace
{

// Sub-formats that mark encoded streams, by the class GetEncodedClass gives.
constexpr GUID kEncodedClass2 = MakeIec61937SubFormat(0x0a);
constexpr GUID kEncodedClass3 = MakeIec61937SubFormat(0x0c);
constexpr GUID kEncodedClass5 = MakeIec61937SubFormat(0x0b);
constexpr GUID kEncodedClass6a = {
    0x34cf0aef, 0x4a1b, 0x4927, {0x97, 0x9d, 0xde, 0x4d, 0x41, 0x71, 0xa6, 0xb1}};
constexpr GUID kEncodedClass6b = {
    0xb3b3761c, 0x48c9, 0x46ae, {0xb8, 0x63, 0x67, 0x6d, 0xf6, 0x06, 0x1d, 0xb5}};
constexpr GUID kEncodedClass7a = {
    0x759fb349, 0xe701, 0x4afb, {0x92, 0x76, 0xa2, 0xdd, 0xd8, 0x75, 0x35, 0xd5}};
constexpr GUID kEncodedClass7b = {
    0x274485c3, 0x69f6, 0x4912, {0x84, 0x93, 0x89, 0x53, 0xe7, 0x0e, 0x1e, 0x74}};

constexpr float kSubwooferGainDb = 10.0f;

// Bits of the container bits that carry no sample, by the first padding
// flag whose minimum the given bits reach.
uint16_t PaddingBits(uint32_t bitsAndFlags, uint32_t givenBits)
{
    struct Rule
    {
        uint32_t flag;
        uint32_t minimumBits;
        uint16_t padding;
    };
    static constexpr Rule kRules[] = {
        {CAudioFormat::SET_PAD_4, 8, 4},    {CAudioFormat::SET_PAD_8, 9, 8},
        {CAudioFormat::SET_PAD_12, 16, 12}, {CAudioFormat::SET_PAD_14, 16, 14},
        {CAudioFormat::SET_PAD_16, 17, 16},
    };
    for (const Rule& rule : kRules)
        if ((bitsAndFlags & rule.flag) != 0 && givenBits >= rule.minimumBits)
            return rule.padding;
    return 0;
}

// Container bits: the next multiple of 8, except that one-bit streams stay 1.
uint16_t ContainerBits(uint32_t givenBits)
{
    if (givenBits == 1)
        return 1;
    return static_cast<uint16_t>((givenBits + 7) & ~7u);
}

void SetFlag(uint32_t& flags, uint32_t bit, bool on)
{
    if (on)
        flags |= bit;
    else
        flags &= ~bit;
}

bool IsPlainSampleGuid(const GUID& guid)
{
    return guid == GUID_NULL || guid == KSDATAFORMAT_SUBTYPE_PCM ||
           guid == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT;
}

uint16_t FormatTagOf(const GUID& subFormat)
{
    if (subFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT)
        return WAVE_FORMAT_IEEE_FLOAT;
    if (subFormat == KSDATAFORMAT_SUBTYPE_ENCODED_92)
        return WAVE_FORMAT_ENCODED_92;
    if (subFormat == KSDATAFORMAT_SUBTYPE_MULAW)
        return WAVE_FORMAT_MULAW;
    if (subFormat == KSDATAFORMAT_SUBTYPE_MPEG)
        return WAVE_FORMAT_MPEG;
    return WAVE_FORMAT_PCM;
}

// Positions of the default layouts up to 8 channels, by channel count.
using C = CAudioFormat;
constexpr C::Channels kLayout1[] = {C::Mono};
constexpr C::Channels kLayout2[] = {C::Left, C::Right};
constexpr C::Channels kLayout3[] = {C::Left, C::Right, C::Subwoofer};
constexpr C::Channels kLayout4[] = {C::Left, C::Right, C::SurroundLeft, C::SurroundRight};
constexpr C::Channels kLayout5[] = {C::Left, C::Right, C::Center, C::SurroundLeft,
                                    C::SurroundRight};
constexpr C::Channels kLayout6[] = {C::Left,      C::Right,        C::Center,
                                    C::Subwoofer, C::SurroundLeft, C::SurroundRight};
constexpr C::Channels kLayout7[] = {C::Left,         C::Right,         C::Center,    C::Subwoofer,
                                    C::SurroundLeft, C::SurroundRight, C::RearCenter};
// The rear pair before the surround pair is deliberate.
constexpr C::Channels kLayout8[] = {C::Left,     C::Right,     C::Center,       C::Subwoofer,
                                    C::RearLeft, C::RearRight, C::SurroundLeft, C::SurroundRight};

struct Layout
{
    const C::Channels* positions;
    int32_t count;
};
constexpr Layout kLayouts[] = {
    {nullptr, 0},  {kLayout1, 1}, {kLayout2, 2}, {kLayout3, 3}, {kLayout4, 4},
    {kLayout5, 5}, {kLayout6, 6}, {kLayout7, 7}, {kLayout8, 8},
};

// Index from which numbered channels follow the 8-channel layout.
constexpr int32_t kFirstNumberedIndex = 8;
// Numbered channel values are the channel's number plus this.
constexpr int32_t kNumberedValueOffset = 4;

}  // namespace

CAudioFormat::CAudioFormat() : CAudioFormat(16, 44100, 2, GUID_NULL) {}

CAudioFormat::CAudioFormat(uint32_t bitsAndFlags, uint32_t rate, uint16_t channelCount,
                           const GUID& guid)
{
    std::memset(static_cast<void*>(this), 0, sizeof(*this));
    Set(bitsAndFlags, rate, channelCount, guid);
}

void CAudioFormat::Set(uint32_t bitsAndFlags, uint32_t rate, uint16_t channelCount,
                       const GUID& guid)
{
    const uint32_t givenBits = bitsAndFlags & 0xFFFF;
    const bool isFloat = (bitsAndFlags & SET_INTEGER) == 0 && !(guid == KSDATAFORMAT_SUBTYPE_PCM) &&
                         (givenBits == 32 || givenBits == 64);

    SetFlag(flags, FLAG_INTEGER, !isFloat);
    SetFlag(flags, FLAG_BIG_ENDIAN, (bitsAndFlags & SET_BIG_ENDIAN) != 0);
    SetFlag(flags, FLAG_ATTRIBUTE, (bitsAndFlags & SET_ATTRIBUTE) != 0);
    const uint16_t padding = PaddingBits(bitsAndFlags, givenBits);

    extraSize = 0;
    bitsPerSample = ContainerBits(givenBits);
    blockAlign = static_cast<uint16_t>((bitsPerSample / 8) * channelCount);
    sampleRate = rate;
    channels = channelCount;
    validBits = static_cast<uint16_t>(givenBits - padding);
    channelMask = 0;
    // The product wraps at 32 bits on purpose: devices compute it that way.
    const uint32_t frameBits =
        blockAlign != 0 ? uint32_t{blockAlign} * 8 : uint32_t{channels} * bitsPerSample;
    avgBytesPerSec = (frameBits * sampleRate) >> 3;

    SetDefaultLayout();

    // An explicit PCM or float GUID is overruled by the decision above.
    if (IsPlainSampleGuid(guid))
        subFormat = isFloat ? KSDATAFORMAT_SUBTYPE_IEEE_FLOAT : KSDATAFORMAT_SUBTYPE_PCM;
    else
        subFormat = guid;
    formatTag = FormatTagOf(subFormat);
}

void CAudioFormat::SetDefaultLayout()
{
    std::memset(channelTable, 0, sizeof(channelTable));
    const int32_t count = channels < MAX_CHANNELS ? channels : MAX_CHANNELS;
    const int32_t layoutIndex = count < kFirstNumberedIndex ? count : kFirstNumberedIndex;
    const Layout& layout = kLayouts[layoutIndex];

    for (int32_t i = 0; i < count; ++i)
    {
        ChannelRecord& record = channelTable[i];
        if (i < layout.count)
            record.position = layout.positions[i];
        else if (i < MAX_NAMED_CHANNELS)
            record.position = static_cast<Channels>(i + FirstNumbered - kFirstNumberedIndex);
        else
            record.position = Undefined;
        record.present = true;
    }
    if (count >= 6)
        channelTable[3].gainDb = kSubwooferGainDb;
}

bool CAudioFormat::IsFloat() const
{
    return formatTag == WAVE_FORMAT_IEEE_FLOAT ||
           (formatTag == WAVE_FORMAT_EXTENSIBLE && subFormat == KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
}

bool CAudioFormat::IsMuLaw() const
{
    return formatTag == WAVE_FORMAT_MULAW ||
           (formatTag == WAVE_FORMAT_EXTENSIBLE && subFormat == KSDATAFORMAT_SUBTYPE_MULAW);
}

int32_t CAudioFormat::GetEncodedClass() const
{
    if (formatTag == WAVE_FORMAT_ENCODED_92)
        return 1;
    if (formatTag != WAVE_FORMAT_EXTENSIBLE)
        return 0;
    if (subFormat == KSDATAFORMAT_SUBTYPE_ENCODED_92)
        return 1;
    if (subFormat == kEncodedClass2)
        return 2;
    if (subFormat == kEncodedClass3)
        return 3;
    if (subFormat == kEncodedClass5)
        return 5;
    if (subFormat == kEncodedClass6a || subFormat == kEncodedClass6b)
        return 6;
    if (subFormat == kEncodedClass7a || subFormat == kEncodedClass7b)
        return 7;
    return 0;
}

// Decides whether a format change needs a rebuild: the channel table and the
// flags play no part.
bool CAudioFormat::IsSameFormat(const CAudioFormat& other) const
{
    if ((formatTag == 0) != (other.formatTag == 0))
        return false;
    if (sampleRate != other.sampleRate || channels != other.channels ||
        bitsPerSample != other.bitsPerSample)
        return false;
    if (IsFloat() != other.IsFloat() || IsMuLaw() != other.IsMuLaw())
        return false;
    const int32_t encodedClass = GetEncodedClass();
    if (encodedClass != other.GetEncodedClass())
        return false;
    if ((encodedClass == 6 || encodedClass == 7) && !(subFormat == other.subFormat))
        return false;
    return true;
}

uint32_t CAudioFormat::BitsPerFrame() const
{
    if (blockAlign != 0)
        return uint32_t{blockAlign} * 8;
    const uint32_t bits = uint32_t{bitsPerSample} * channels;
    return bits != 0 ? bits : 8;
}

int64_t CAudioFormat::FramesFromBytes(int64_t bytes) const
{
    return bytes * 8 / static_cast<int64_t>(BitsPerFrame());
}

int64_t CAudioFormat::BytesFromMilliseconds(double ms) const
{
    return static_cast<int64_t>(static_cast<double>(avgBytesPerSec) * ms / 1000.0 + 0.5);
}

int64_t CAudioFormat::WholeFrameBytesFromMilliseconds(double ms) const
{
    const int64_t bytes = BytesFromMilliseconds(ms);
    return blockAlign != 0 ? bytes - bytes % blockAlign : bytes;
}

int64_t CAudioFormat::FramesFromMilliseconds(double ms) const
{
    return FramesFromBytes(BytesFromMilliseconds(ms));
}

int32_t CAudioFormat::ChannelIndexOf(int32_t position) const
{
    const int32_t count = channels < MAX_CHANNELS ? channels : MAX_CHANNELS;
    for (int32_t i = 0; i < count; ++i)
        if (channelTable[i].position == position)
            return i;
    return -1;
}

QVString CAudioFormat::GetChannelName(int32_t channelValue, bool shortForm)
{
    struct Names
    {
        const char16_t* longText;
        const char16_t* shortText;  // null: the translated long text
    };
    static constexpr Names kNames[] = {
        {u"Undefined", nullptr},
        {u"Mono", nullptr},
        {u"Left", nullptr},
        {u"Right", nullptr},
        {u"Center", nullptr},
        {u"Subwoofer", u"Sub"},
        {u"Surround Left", u"SL"},
        {u"Surround Right", u"SR"},
        {u"Rear Left (used in 7.1)", u"RL"},
        {u"Rear Right (used in 7.1)", u"RR"},
        {u"Rear Center (used in 7.1)", u"RC"},
        {u"User 1", u"U1"},
        {u"User 2", u"U2"},
    };
    constexpr int32_t kNamedCount = static_cast<int32_t>(sizeof(kNames) / sizeof(kNames[0]));

    if (channelValue >= 0 && channelValue < kNamedCount)
    {
        const Names& names = kNames[channelValue];
        if (shortForm && names.shortText != nullptr)
            return QVString(names.shortText);
        return QVTranslated(names.longText);
    }
    if (channelValue >= FirstNumbered && channelValue <= LastNumbered)
    {
        const int32_t number = channelValue - kNumberedValueOffset;
        if (shortForm)
            return QVString::Format(u"#%d", {number});
        return QVString::Format(u"%s %d", {QVTranslated(u"Channel"), number});
    }
    return QVString();
}
