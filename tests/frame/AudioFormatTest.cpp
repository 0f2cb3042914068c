#include "qvdsp/AudioFormat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "support/TestSupport.h"

namespace
{

// A GUID as the two little-endian 64-bit words it is stored as.
std::pair<uint64_t, uint64_t> Words(const GUID& guid)
{
    uint64_t words[2];
    std::memcpy(words, &guid, sizeof(words));
    return {words[0], words[1]};
}

bool RecordIsZero(const ChannelRecord& record)
{
    static const ChannelRecord zero{};
    return std::memcmp(&record, &zero, sizeof(record)) == 0;
}

std::string Name(int32_t value, bool shortForm)
{
    return CAudioFormat::GetChannelName(value, shortForm).ToUTF8();
}

}  // namespace

TEST(AudioFormat, PublishedGuidsHaveTheirStoredWords)
{
    EXPECT_EQ(Words(KSDATAFORMAT_SUBTYPE_PCM),
              std::make_pair(uint64_t{0x10000000000001}, uint64_t{0x719b3800aa000080}));
    EXPECT_EQ(Words(KSDATAFORMAT_SUBTYPE_IEEE_FLOAT),
              std::make_pair(uint64_t{0x10000000000003}, uint64_t{0x719b3800aa000080}));
    EXPECT_EQ(Words(KSDATAFORMAT_SUBTYPE_MULAW).first & 0xFFFFFFFF, 7u);
    EXPECT_EQ(Words(KSDATAFORMAT_SUBTYPE_MPEG).first & 0xFFFFFFFF, 0x50u);
    EXPECT_EQ(Words(KSDATAFORMAT_SUBTYPE_ENCODED_92).first & 0xFFFFFFFF, 0x92u);
}

TEST(AudioFormat, DefaultIsSixteenBitStereoPcm)
{
    const CAudioFormat format;
    EXPECT_EQ(format.formatTag, 1);
    EXPECT_EQ(format.channels, 2);
    EXPECT_EQ(format.sampleRate, 44100u);
    EXPECT_EQ(format.avgBytesPerSec, 176400u);
    EXPECT_EQ(format.blockAlign, 4);
    EXPECT_EQ(format.bitsPerSample, 16);
    EXPECT_EQ(format.extraSize, 0);
    EXPECT_EQ(format.validBits, 16);
    EXPECT_EQ(format.channelMask, 0u);
    EXPECT_EQ(format.subFormat, KSDATAFORMAT_SUBTYPE_PCM);
    EXPECT_EQ(format.flags, CAudioFormat::FLAG_INTEGER);
    EXPECT_EQ(format.channelTable[0].position, CAudioFormat::Left);
    EXPECT_EQ(format.channelTable[1].position, CAudioFormat::Right);
    EXPECT_TRUE(format.channelTable[0].present && format.channelTable[1].present);
    EXPECT_TRUE(RecordIsZero(format.channelTable[2]));
}

TEST(AudioFormat, FloatDecision)
{
    CAudioFormat format;
    format.Set(32, 48000, 2);
    EXPECT_EQ(format.formatTag, 3);
    EXPECT_EQ(format.subFormat, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
    EXPECT_EQ(format.flags & CAudioFormat::FLAG_INTEGER, 0u);
    EXPECT_EQ(format.avgBytesPerSec, 384000u);

    format.Set(64, 48000, 2);
    EXPECT_EQ(format.formatTag, 3);
    EXPECT_EQ(format.blockAlign, 16);

    // The caller's "integer" bit wins over the bit count.
    format.Set(32 | CAudioFormat::SET_INTEGER, 48000, 2);
    EXPECT_EQ(format.formatTag, 1);
    EXPECT_EQ(format.subFormat, KSDATAFORMAT_SUBTYPE_PCM);
    EXPECT_NE(format.flags & CAudioFormat::FLAG_INTEGER, 0u);
    EXPECT_EQ(format.validBits, 32);

    // 24 valid bits in a 32-bit container.
    format.Set(32 | CAudioFormat::SET_INTEGER | CAudioFormat::SET_PAD_8, 48000, 2);
    EXPECT_EQ(format.formatTag, 1);
    EXPECT_EQ(format.bitsPerSample, 32);
    EXPECT_EQ(format.validBits, 24);

    // An explicit GUID of the plain kinds is overruled by the decision.
    format.Set(24, 48000, 2, KSDATAFORMAT_SUBTYPE_IEEE_FLOAT);
    EXPECT_EQ(format.formatTag, 1);
    EXPECT_EQ(format.subFormat, KSDATAFORMAT_SUBTYPE_PCM);
    format.Set(32, 48000, 2, KSDATAFORMAT_SUBTYPE_PCM);
    EXPECT_EQ(format.formatTag, 1);
    EXPECT_EQ(format.subFormat, KSDATAFORMAT_SUBTYPE_PCM);
    EXPECT_NE(format.flags & CAudioFormat::FLAG_INTEGER, 0u);
}

TEST(AudioFormat, FlagBitsFollowTheArgumentAndKeepOthers)
{
    CAudioFormat format;
    format.flags = 0x100 | CAudioFormat::FLAG_BIG_ENDIAN | CAudioFormat::FLAG_ATTRIBUTE;
    format.Set(32, 44100, 2);
    EXPECT_EQ(format.flags, 0x100u);

    format.Set(16 | CAudioFormat::SET_BIG_ENDIAN | CAudioFormat::SET_ATTRIBUTE, 44100, 2);
    EXPECT_EQ(format.flags, 0x100u | CAudioFormat::FLAG_INTEGER | CAudioFormat::FLAG_BIG_ENDIAN |
                                CAudioFormat::FLAG_ATTRIBUTE);
    // Neither the big-endian nor the attribute bit makes it float or pads it.
    EXPECT_EQ(format.formatTag, 1);
    EXPECT_EQ(format.validBits, 16);
}

TEST(AudioFormat, PaddingRoundingAndValidBits)
{
    struct Case
    {
        uint32_t bitsAndFlags;
        uint16_t bitsPerSample;
        uint16_t validBits;
    };
    const Case cases[] = {
        {20, 24, 20},
        {12, 16, 12},
        {8, 8, 8},
        {8 | CAudioFormat::SET_PAD_4, 8, 4},
        {7 | CAudioFormat::SET_PAD_4, 8, 7},                            // below 8: no padding
        {8 | CAudioFormat::SET_PAD_4 | CAudioFormat::SET_PAD_8, 8, 4},  // first rule wins
        {8 | CAudioFormat::SET_PAD_8, 8, 8},                            // below 9
        {9 | CAudioFormat::SET_PAD_8, 16, 1},
        {7 | CAudioFormat::SET_PAD_4 | CAudioFormat::SET_PAD_16, 8, 7},  // both fail
        {16 | CAudioFormat::SET_PAD_12, 16, 4},
        {15 | CAudioFormat::SET_PAD_12 | CAudioFormat::SET_PAD_14, 16, 15},
        {16 | CAudioFormat::SET_PAD_14, 16, 2},
        {12 | CAudioFormat::SET_PAD_16, 16, 12},
        {16 | CAudioFormat::SET_PAD_16, 16, 16},
        {17 | CAudioFormat::SET_PAD_16, 24, 1},
        // Rules are tried in their own order, not in the order of the bits given.
        {16 | CAudioFormat::SET_PAD_16 | CAudioFormat::SET_PAD_14, 16, 2},
        {32 | CAudioFormat::SET_INTEGER | CAudioFormat::SET_PAD_16, 32, 16},
    };
    for (const Case& c : cases)
    {
        CAudioFormat format;
        format.Set(c.bitsAndFlags, 44100, 2);
        EXPECT_EQ(format.bitsPerSample, c.bitsPerSample) << std::hex << c.bitsAndFlags;
        EXPECT_EQ(format.validBits, c.validBits) << std::hex << c.bitsAndFlags;
        EXPECT_EQ(format.blockAlign, c.bitsPerSample / 8 * 2) << std::hex << c.bitsAndFlags;
    }
}

TEST(AudioFormat, OneBitStreamsAndOtherGuids)
{
    const GUID other = {0x12345678, 0x9abc, 0xdef0, {1, 2, 3, 4, 5, 6, 7, 8}};
    CAudioFormat format;
    format.Set(1, 2822400, 2, other);
    EXPECT_EQ(format.bitsPerSample, 1);
    EXPECT_EQ(format.blockAlign, 0);
    EXPECT_EQ(format.validBits, 1);
    EXPECT_EQ(format.avgBytesPerSec, 2u * 2822400u / 8u);
    EXPECT_EQ(format.formatTag, 1);
    EXPECT_EQ(format.subFormat, other);
    EXPECT_EQ(format.BitsPerFrame(), 2u);

    // Tags of the encoded family, found by the whole GUID.
    format.Set(8, 8000, 1, KSDATAFORMAT_SUBTYPE_MULAW);
    EXPECT_EQ(format.formatTag, 7);
    format.Set(16, 48000, 2, KSDATAFORMAT_SUBTYPE_MPEG);
    EXPECT_EQ(format.formatTag, 0x50);
    format.Set(16, 48000, 2, KSDATAFORMAT_SUBTYPE_ENCODED_92);
    EXPECT_EQ(format.formatTag, 0x92);
    GUID nearlyMuLaw = KSDATAFORMAT_SUBTYPE_MULAW;
    nearlyMuLaw.Data4[7] ^= 1;
    format.Set(8, 8000, 1, nearlyMuLaw);
    EXPECT_EQ(format.formatTag, 1);
    // A float-sized stream with a foreign GUID keeps the GUID but counts as float in the flags.
    format.Set(32, 48000, 2, KSDATAFORMAT_SUBTYPE_MULAW);
    EXPECT_EQ(format.formatTag, 7);
    EXPECT_EQ(format.flags & CAudioFormat::FLAG_INTEGER, 0u);
}

TEST(AudioFormat, BytesPerSecondWrapsAtThirtyTwoBits)
{
    CAudioFormat format;
    format.Set(64, 4000000000u, 2);
    EXPECT_EQ(format.avgBytesPerSec, 112361472u);  // (128 * 4e9 mod 2^32) >> 3
    format.Set(64 | CAudioFormat::SET_INTEGER, 16777216, 64);
    EXPECT_EQ(format.blockAlign, 512);
    EXPECT_EQ(format.avgBytesPerSec, 0u);  // 4096 * 2^24 = 2^36
    format.Set(24, 200000, 6);
    EXPECT_EQ(format.avgBytesPerSec, 3600000u);
}

TEST(AudioFormat, DefaultLayouts)
{
    using C = CAudioFormat;
    const std::vector<std::vector<C::Channels>> expected = {
        {},
        {C::Mono},
        {C::Left, C::Right},
        {C::Left, C::Right, C::Subwoofer},
        {C::Left, C::Right, C::SurroundLeft, C::SurroundRight},
        {C::Left, C::Right, C::Center, C::SurroundLeft, C::SurroundRight},
        {C::Left, C::Right, C::Center, C::Subwoofer, C::SurroundLeft, C::SurroundRight},
        {C::Left, C::Right, C::Center, C::Subwoofer, C::SurroundLeft, C::SurroundRight,
         C::RearCenter},
        {C::Left, C::Right, C::Center, C::Subwoofer, C::RearLeft, C::RearRight, C::SurroundLeft,
         C::SurroundRight},
    };
    for (int32_t channels = 0; channels <= 70; ++channels)
    {
        CAudioFormat format;
        format.Set(16, 44100, static_cast<uint16_t>(channels));
        for (int32_t i = 0; i < C::MAX_CHANNELS; ++i)
        {
            const ChannelRecord& record = format.channelTable[i];
            if (i >= channels)
            {
                EXPECT_TRUE(RecordIsZero(record)) << channels << " channels, index " << i;
                continue;
            }
            int32_t position;
            if (channels <= 8)
                position = expected[channels][i];
            else if (i < 8)
                position = expected[8][i];
            else if (i < 32)
                position = i + 5;
            else
                position = C::Undefined;
            EXPECT_EQ(record.position, position) << channels << " channels, index " << i;
            EXPECT_TRUE(record.present) << channels << " channels, index " << i;
            EXPECT_EQ(record.gainDb, (i == 3 && channels >= 6) ? 10.0f : 0.0f)
                << channels << " channels";
            EXPECT_EQ(record.extra, 0);
            EXPECT_EQ(record.extraGainDb, 0.0f);
        }
    }
    CAudioFormat format;
    format.Set(16, 44100, 9);
    EXPECT_EQ(format.channelTable[8].position, 13);
    format.Set(16, 44100, 33);
    EXPECT_EQ(format.channelTable[31].position, 36);
    EXPECT_EQ(format.channelTable[32].position, C::Undefined);
    EXPECT_TRUE(format.channelTable[32].present);
}

TEST(AudioFormat, SetDefaultLayoutClearsWhatWasThere)
{
    CAudioFormat format;
    format.Set(16, 44100, 8);
    format.channelTable[7].extra = 1;
    format.channelTable[7].extraGainDb = -3.0f;
    format.channels = 2;
    format.SetDefaultLayout();
    EXPECT_TRUE(RecordIsZero(format.channelTable[7]));
    EXPECT_TRUE(RecordIsZero(format.channelTable[3]));
    EXPECT_EQ(format.channelTable[1].position, CAudioFormat::Right);
}

TEST(AudioFormat, AssignmentCopiesEveryByte)
{
    CAudioFormat a;
    a.Set(24 | CAudioFormat::SET_BIG_ENDIAN, 96000, 6);
    a.channelTable[2].extra = 1;
    a.channelTable[2].extraGainDb = 1.5f;
    a.channelTable[5].reserved3[10] = 0x5A;
    a.flags |= 0x4000;
    CAudioFormat b;
    b = a;
    EXPECT_EQ(std::memcmp(&a, &b, sizeof(CAudioFormat)), 0);
    CAudioFormat& self = b;
    b = self;
    EXPECT_EQ(std::memcmp(&a, &b, sizeof(CAudioFormat)), 0);
}

TEST(AudioFormat, IsSameFormatIgnoresTableAndFlags)
{
    CAudioFormat a;
    CAudioFormat b;
    a.Set(24, 48000, 2);
    b.Set(24 | CAudioFormat::SET_BIG_ENDIAN, 48000, 2);
    b.channelTable[0].position = CAudioFormat::Center;
    b.channelTable[1].gainDb = 6.0f;
    EXPECT_TRUE(a.IsSameFormat(b));

    b = a;
    b.sampleRate = 44100;
    EXPECT_FALSE(a.IsSameFormat(b));
    b = a;
    b.channels = 3;
    EXPECT_FALSE(a.IsSameFormat(b));
    b = a;
    b.bitsPerSample = 32;
    EXPECT_FALSE(a.IsSameFormat(b));
    // Only whether the tag is zero counts, not which tag it is.
    b = a;
    b.formatTag = 0;
    EXPECT_FALSE(a.IsSameFormat(b));
    b.formatTag = WAVE_FORMAT_MPEG;
    EXPECT_TRUE(a.IsSameFormat(b));
    // validBits and block alignment play no part.
    b = a;
    b.validBits = 20;
    b.blockAlign = 8;
    EXPECT_TRUE(a.IsSameFormat(b));
}

TEST(AudioFormat, IsSameFormatComparesFloatMuLawAndEncodedClasses)
{
    CAudioFormat intFormat(32 | CAudioFormat::SET_INTEGER, 48000, 2);
    CAudioFormat floatFormat(32, 48000, 2);
    EXPECT_FALSE(intFormat.IsSameFormat(floatFormat));

    // An extensible record with the float GUID counts as float.
    CAudioFormat extensibleFloat = floatFormat;
    extensibleFloat.formatTag = WAVE_FORMAT_EXTENSIBLE;
    EXPECT_TRUE(extensibleFloat.IsSameFormat(floatFormat));
    // The float GUID under a plain PCM tag does not.
    CAudioFormat pcmTagFloatGuid = floatFormat;
    pcmTagFloatGuid.formatTag = WAVE_FORMAT_PCM;
    EXPECT_FALSE(pcmTagFloatGuid.IsSameFormat(floatFormat));

    CAudioFormat pcm8(8, 8000, 1);
    CAudioFormat mulaw(8, 8000, 1, KSDATAFORMAT_SUBTYPE_MULAW);
    EXPECT_FALSE(pcm8.IsSameFormat(mulaw));
    CAudioFormat extensibleMuLaw = mulaw;
    extensibleMuLaw.formatTag = WAVE_FORMAT_EXTENSIBLE;
    EXPECT_TRUE(extensibleMuLaw.IsSameFormat(mulaw));

    CAudioFormat class2(16, 48000, 2, MakeIec61937SubFormat(0x0a));
    class2.formatTag = WAVE_FORMAT_EXTENSIBLE;
    CAudioFormat class3 = class2;
    class3.subFormat = MakeIec61937SubFormat(0x0c);
    EXPECT_FALSE(class2.IsSameFormat(class3));
    EXPECT_TRUE(class2.IsSameFormat(CAudioFormat(class2)));

    // Classes 6 and 7 hold two GUIDs each; different GUIDs of one class differ.
    CAudioFormat class6a = class2;
    class6a.subFormat = {
        0x34cf0aef, 0x4a1b, 0x4927, {0x97, 0x9d, 0xde, 0x4d, 0x41, 0x71, 0xa6, 0xb1}};
    CAudioFormat class6b = class2;
    class6b.subFormat = {
        0xb3b3761c, 0x48c9, 0x46ae, {0xb8, 0x63, 0x67, 0x6d, 0xf6, 0x06, 0x1d, 0xb5}};
    EXPECT_EQ(class6a.GetEncodedClass(), 6);
    EXPECT_EQ(class6b.GetEncodedClass(), 6);
    EXPECT_FALSE(class6a.IsSameFormat(class6b));
    EXPECT_TRUE(class6a.IsSameFormat(CAudioFormat(class6a)));
}

TEST(AudioFormat, EncodedClasses)
{
    CAudioFormat format(16, 48000, 2);
    EXPECT_EQ(format.GetEncodedClass(), 0);
    format.formatTag = 146;
    EXPECT_EQ(format.GetEncodedClass(), 1);

    struct Case
    {
        GUID guid;
        int32_t encodedClass;
    };
    const Case cases[] = {
        {KSDATAFORMAT_SUBTYPE_ENCODED_92, 1},
        {{0x0000000a, 0x0cea, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}}, 2},
        {{0x0000000c, 0x0cea, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}}, 3},
        {{0x0000000b, 0x0cea, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}}, 5},
        {{0x34cf0aef, 0x4a1b, 0x4927, {0x97, 0x9d, 0xde, 0x4d, 0x41, 0x71, 0xa6, 0xb1}}, 6},
        {{0xb3b3761c, 0x48c9, 0x46ae, {0xb8, 0x63, 0x67, 0x6d, 0xf6, 0x06, 0x1d, 0xb5}}, 6},
        {{0x759fb349, 0xe701, 0x4afb, {0x92, 0x76, 0xa2, 0xdd, 0xd8, 0x75, 0x35, 0xd5}}, 7},
        {{0x274485c3, 0x69f6, 0x4912, {0x84, 0x93, 0x89, 0x53, 0xe7, 0x0e, 0x1e, 0x74}}, 7},
        {{0x0000000d, 0x0cea, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}}, 0},
        {KSDATAFORMAT_SUBTYPE_PCM, 0},
    };
    for (const Case& c : cases)
    {
        format.subFormat = c.guid;
        format.formatTag = WAVE_FORMAT_EXTENSIBLE;
        EXPECT_EQ(format.GetEncodedClass(), c.encodedClass) << std::hex << c.guid.Data1;
        // Without the extensible tag only tag 146 marks an encoded stream.
        format.formatTag = WAVE_FORMAT_PCM;
        EXPECT_EQ(format.GetEncodedClass(), 0) << std::hex << c.guid.Data1;
    }
}

TEST(AudioFormat, DerivedQuantities)
{
    CAudioFormat format(16, 44100, 2);
    EXPECT_EQ(format.BitsPerFrame(), 32u);
    EXPECT_EQ(format.FramesFromBytes(1764), 441);
    EXPECT_EQ(format.FramesFromBytes(7), 1);  // integer division
    EXPECT_EQ(format.BytesFromMilliseconds(10.0), 1764);
    EXPECT_EQ(format.FramesFromMilliseconds(10.0), 441);

    // 24-bit stereo at 48 kHz: 288000 bytes per second; 0.1 ms is 28.8 bytes,
    // rounded to 29, which is 4 whole frames and 24 bytes of whole frames.
    format.Set(24, 48000, 2);
    EXPECT_EQ(format.BitsPerFrame(), 48u);
    EXPECT_EQ(format.BytesFromMilliseconds(0.1), 29);
    EXPECT_EQ(format.FramesFromMilliseconds(0.1), 4);
    EXPECT_EQ(format.WholeFrameBytesFromMilliseconds(0.1), 24);

    // The half rounds up, and the sum truncates rather than rounds again.
    format.avgBytesPerSec = 1000;
    EXPECT_EQ(format.BytesFromMilliseconds(2.5), 3);
    EXPECT_EQ(format.BytesFromMilliseconds(2.4999), 2);
    EXPECT_EQ(format.BytesFromMilliseconds(0.0), 0);

    // Without block alignment: bits per sample times channels; then 8.
    format.blockAlign = 0;
    EXPECT_EQ(format.BitsPerFrame(), 48u);
    format.bitsPerSample = 0;
    EXPECT_EQ(format.BitsPerFrame(), 8u);
    EXPECT_EQ(format.FramesFromBytes(5), 5);
    EXPECT_EQ(format.WholeFrameBytesFromMilliseconds(2.5), 3);
}

TEST(AudioFormat, ChannelIndexOfSeesOnlyUsedChannels)
{
    CAudioFormat format(16, 48000, 8);
    EXPECT_EQ(format.ChannelIndexOf(CAudioFormat::Subwoofer), 3);
    EXPECT_EQ(format.ChannelIndexOf(CAudioFormat::RearLeft), 4);
    EXPECT_EQ(format.ChannelIndexOf(CAudioFormat::SurroundLeft), 6);
    EXPECT_EQ(format.ChannelIndexOf(CAudioFormat::Mono), -1);
    format.Set(16, 48000, 2);
    format.channelTable[5].position = CAudioFormat::Center;
    EXPECT_EQ(format.ChannelIndexOf(CAudioFormat::Center), -1);
    // The first match wins.
    format.channelTable[1].position = CAudioFormat::Left;
    EXPECT_EQ(format.ChannelIndexOf(CAudioFormat::Left), 0);
    format.Set(16, 48000, 40);
    EXPECT_EQ(format.ChannelIndexOf(36), 31);
    EXPECT_EQ(format.ChannelIndexOf(CAudioFormat::Undefined), 32);
}

TEST(AudioFormat, ChannelNames)
{
    const std::tuple<int32_t, bool, const char*> names[] = {
        {0, false, "Undefined"},  {0, true, "Undefined"}, {4, true, "Center"},
        {5, false, "Subwoofer"},  {5, true, "Sub"},       {8, false, "Rear Left (used in 7.1)"},
        {10, true, "RC"},         {12, false, "User 2"},  {12, true, "U2"},
        {13, false, "Channel 9"}, {13, true, "#9"},       {36, false, "Channel 32"},
        {36, true, "#32"},        {37, false, ""},        {37, true, ""},
        {-1, false, ""}};
    for (const auto& [value, shortForm, name] : names)
        EXPECT_EQ(Name(value, shortForm), name) << value << (shortForm ? " short" : " long");
}

TEST(AudioFormat, ChannelNamesPassTheTranslatorWhereTheyShould)
{
    qvtest::ScopedTestTools scoped;
    EXPECT_EQ(Name(2, false), "[t]Left");
    EXPECT_EQ(Name(2, true), "[t]Left");  // the short text is the long one
    EXPECT_EQ(Name(6, false), "[t]Surround Left");
    EXPECT_EQ(Name(6, true), "SL");  // literal
    EXPECT_EQ(Name(20, false), "[t]Channel 16");
    EXPECT_EQ(Name(20, true), "#16");
    EXPECT_EQ(Name(40, false), "");
    scoped.tools.withTranslator = false;
    EXPECT_EQ(Name(2, false), "Left");
}
