// The stream format record shared by the host, every plug-in and the container
// readers. Its head is the extensible wave format field for field, so that it can
// be handed to an audio device as it stands; behind it come 64 channel records and
// a word of flags. The layout is fixed at 2860 bytes and checked at compile time.
#pragma once

#include <cstddef>
#include <cstdint>

class QVString;

struct GUID
{
    uint32_t Data1;
    uint16_t Data2;
    uint16_t Data3;
    uint8_t Data4[8];

    friend constexpr bool operator==(const GUID& a, const GUID& b)
    {
        if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3)
            return false;
        for (int i = 0; i < 8; ++i)
            if (a.Data4[i] != b.Data4[i])
                return false;
        return true;
    }
};
static_assert(sizeof(GUID) == 16);

inline constexpr GUID GUID_NULL = {0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

// The published sub-format family xxxxxxxx-0000-0010-8000-00aa00389b71: the
// first word is the wave format tag the GUID stands for.
constexpr GUID MakeWaveSubFormat(uint32_t tag)
{
    return {tag, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
}
// The IEC 61937 family xxxxxxxx-0cea-0010-8000-00aa00389b71.
constexpr GUID MakeIec61937SubFormat(uint32_t code)
{
    return {code, 0x0cea, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
}

inline constexpr GUID KSDATAFORMAT_SUBTYPE_PCM = MakeWaveSubFormat(0x0001);
inline constexpr GUID KSDATAFORMAT_SUBTYPE_IEEE_FLOAT = MakeWaveSubFormat(0x0003);
inline constexpr GUID KSDATAFORMAT_SUBTYPE_MULAW = MakeWaveSubFormat(0x0007);
inline constexpr GUID KSDATAFORMAT_SUBTYPE_MPEG = MakeWaveSubFormat(0x0050);
inline constexpr GUID KSDATAFORMAT_SUBTYPE_ENCODED_92 = MakeWaveSubFormat(0x0092);

// Wave format tags this record uses.
inline constexpr uint16_t WAVE_FORMAT_PCM = 1;
inline constexpr uint16_t WAVE_FORMAT_IEEE_FLOAT = 3;
inline constexpr uint16_t WAVE_FORMAT_MULAW = 7;
inline constexpr uint16_t WAVE_FORMAT_MPEG = 0x50;
inline constexpr uint16_t WAVE_FORMAT_ENCODED_92 = 0x92;
inline constexpr uint16_t WAVE_FORMAT_EXTENSIBLE = 0xFFFE;

class CAudioFormat
{
public:
    enum Channels : int32_t
    {
        Undefined = 0,
        Mono = 1,
        Left = 2,
        Right = 3,
        Center = 4,
        Subwoofer = 5,
        SurroundLeft = 6,
        SurroundRight = 7,
        RearLeft = 8,
        RearRight = 9,
        RearCenter = 10,
        User1 = 11,
        User2 = 12,
        // Numbered channels 9 to 32 have the values 13 to 36 (number + 4).
        FirstNumbered = 13,
        LastNumbered = 36,
    };

    struct ChannelRecord
    {
        Channels position;
        bool present;
        uint8_t reserved1[3];
        float gainDb;
        // Bit 0: the source has already handled bass for this channel.
        uint8_t extra;
        uint8_t reserved2[3];
        float extraGainDb;
        uint8_t reserved3[24];
    };

    static constexpr int32_t MAX_CHANNELS = 64;
    static constexpr int32_t MAX_NAMED_CHANNELS = 32;

    // Bits of `flags`.
    static constexpr uint32_t FLAG_INTEGER = 4;
    static constexpr uint32_t FLAG_BIG_ENDIAN = 8;
    static constexpr uint32_t FLAG_ATTRIBUTE = 16;

    // High bits of the first argument of Set; the low 16 bits are bits per sample.
    static constexpr uint32_t SET_INTEGER = 0x10000;
    static constexpr uint32_t SET_BIG_ENDIAN = 0x20000;
    static constexpr uint32_t SET_PAD_4 = 0x40000;    // at least 8 bits given
    static constexpr uint32_t SET_PAD_8 = 0x80000;    // at least 9: 24 valid bits in 32
    static constexpr uint32_t SET_PAD_12 = 0x100000;  // at least 16
    static constexpr uint32_t SET_PAD_14 = 0x200000;  // at least 16
    static constexpr uint32_t SET_PAD_16 = 0x400000;  // at least 17
    static constexpr uint32_t SET_ATTRIBUTE = 0x800000;

    uint16_t formatTag;
    uint16_t channels;
    uint32_t sampleRate;
    uint32_t avgBytesPerSec;
    uint16_t blockAlign;
    uint16_t bitsPerSample;
    uint16_t extraSize;
    uint16_t validBits;
    uint32_t channelMask;
    GUID subFormat;
    ChannelRecord channelTable[MAX_CHANNELS];
    uint32_t flags;

    // The default of every holder: 16 bits, 44100 Hz, 2 channels, null sub-format.
    CAudioFormat();
    CAudioFormat(uint32_t bitsAndFlags, uint32_t sampleRate, uint16_t channels,
                 const GUID& subFormat = GUID_NULL);

    void Set(uint32_t bitsAndFlags, uint32_t sampleRate, uint16_t channels,
             const GUID& subFormat = GUID_NULL);
    void SetDefaultLayout();

    bool IsSameFormat(const CAudioFormat& other) const;
    int32_t GetEncodedClass() const;
    bool IsFloat() const;
    bool IsMuLaw() const;

    static QVString GetChannelName(int32_t channelValue, bool shortForm);

    // Derived quantities. Every delay and size in the system goes through these,
    // so that all stages agree on the same roundings.
    uint32_t BitsPerFrame() const;
    int64_t FramesFromBytes(int64_t bytes) const;
    int64_t BytesFromMilliseconds(double ms) const;
    // The bytes above less the remainder of a partial frame.
    int64_t WholeFrameBytesFromMilliseconds(double ms) const;
    int64_t FramesFromMilliseconds(double ms) const;
    // First channel index below `channels` whose record has this position, or -1.
    int32_t ChannelIndexOf(int32_t position) const;
};

using ChannelRecord = CAudioFormat::ChannelRecord;

static_assert(sizeof(ChannelRecord) == 44);
static_assert(offsetof(ChannelRecord, position) == 0);
static_assert(offsetof(ChannelRecord, present) == 4);
static_assert(offsetof(ChannelRecord, gainDb) == 8);
static_assert(offsetof(ChannelRecord, extra) == 12);
static_assert(offsetof(ChannelRecord, extraGainDb) == 16);

static_assert(sizeof(CAudioFormat) == 2860);
static_assert(offsetof(CAudioFormat, formatTag) == 0);
static_assert(offsetof(CAudioFormat, channels) == 2);
static_assert(offsetof(CAudioFormat, sampleRate) == 4);
static_assert(offsetof(CAudioFormat, avgBytesPerSec) == 8);
static_assert(offsetof(CAudioFormat, blockAlign) == 12);
static_assert(offsetof(CAudioFormat, bitsPerSample) == 14);
static_assert(offsetof(CAudioFormat, extraSize) == 16);
static_assert(offsetof(CAudioFormat, validBits) == 18);
static_assert(offsetof(CAudioFormat, channelMask) == 20);
static_assert(offsetof(CAudioFormat, subFormat) == 24);
static_assert(offsetof(CAudioFormat, channelTable) == 40);
static_assert(offsetof(CAudioFormat, flags) == 2856);
