// The framework: factory and names, descriptions of every kind, the list text
// and its loading rules, channel lists and channel resolution.
#include "parametric/ParametricFilter.h"

#include "ParametricTestSupport.h"
#include "parametric/EqualizingFilters.h"
#include "parametric/Limiters.h"
#include "parametric/RoutingFilters.h"
#include "parametric/TransformFilters.h"

using namespace ptest;

TEST(ParametricFilter, FactoryMakesEveryTypeAndNothingElse)
{
    for (int32_t type = 1; type <= 21; ++type)
    {
        std::unique_ptr<CParametricFilter> filter(CreateParametricFilter(type));
        ASSERT_NE(filter, nullptr) << type;
        EXPECT_EQ(filter->GetType(), type);
        EXPECT_TRUE(filter->IsEnabled());
        EXPECT_FALSE(GetParametricFilterName(type).IsEmpty());
    }
    for (int32_t type : {0, 22, 99, -1})
    {
        EXPECT_EQ(CreateParametricFilter(type), nullptr);
        EXPECT_TRUE(GetParametricFilterName(type).IsEmpty());
    }
    EXPECT_EQ(Utf8(GetParametricFilterName(1)), "Remove high frequencies (low-pass filter)");
    EXPECT_EQ(Utf8(GetParametricFilterName(11)), "Adjust high frequencies (high-shelf filter)");
    EXPECT_EQ(Utf8(GetParametricFilterName(21)), "Custom Biquad");
    // The two classes built under another name keep the factory's type.
    EXPECT_NE(dynamic_cast<CAllPassFilter*>(Make(17).get()), nullptr);
    EXPECT_NE(dynamic_cast<CCustomBiquadFilter*>(Make(21).get()), nullptr);
}

TEST(ParametricFilter, DefaultDescriptionsOfEveryKind)
{
    const char* expected[22] = {
        nullptr,
        "Low-pass at 1000 Hz (Left,Right)",
        "High-pass at 1000 Hz (Left,Right)",
        "+0.0 dB at 1000 Hz (Left,Right)",
        "+0.0 dB (Left,Right)",
        "Mute (Left,Right)",
        "Swap Left and Right",
        "Delay 0 ms (Left,Right)",
        "Linkwitz transform (Sub)",
        "Brick wall limiter at +0.0 dB (Left,Right,Center,Sub,SL,SR,RL,RR)",
        "Low-shelf +0.0 dB at 1000 Hz (Left,Right)",
        "High-shelf +0.0 dB at 1000 Hz (Left,Right)",
        "Order channels",
        "Bitdepth simulator (24bit)",
        "Subwoofer limiter (Sub)",
        "Reverse polarity (Left,Right)",
        "Linkwitz-Riley Filter",
        "All-pass Filter",
        "Mid-side Encoding",
        "Mid-side Decoding",
        "--------------",
        "Custom Biquad Filter",
    };
    for (int32_t type = 1; type <= 21; ++type)
        EXPECT_EQ(Describe(*Make(type)), expected[type]) << type;
    CParametricFilter unknown(0);
    EXPECT_EQ(Describe(unknown), "Unknown Filter");
}

TEST(ParametricFilter, DescriptionsFollowTheFields)
{
    auto peak = Make<CParametricIIRFilter>(3);
    peak->gain = -3.54;
    peak->frequency = 62.9;  // truncated, not rounded
    peak->channels = {CAudioFormat::User1, CAudioFormat::Center};
    EXPECT_EQ(Describe(*peak), "-3.5 dB at 62 Hz (U1,Center)");
    peak->channels.clear();
    EXPECT_EQ(Describe(*peak), "-3.5 dB at 62 Hz");

    auto shelf = Make<CParametricIIRFilter>(10);
    shelf->gain = 6;
    shelf->frequency = 200;
    EXPECT_EQ(Describe(*shelf), "Low-shelf +6.0 dB at 200 Hz (Left,Right)");

    CParametricIIRFilter band(1000.0, 3.0, 2.0);
    EXPECT_EQ(Describe(band), "+3.0 dB at 1000 Hz");  // every channel: no list
    CParametricVolumeFilter preamp(4, true);
    preamp.SetGain(-12);
    EXPECT_EQ(Describe(preamp), "-12.0 dB");

    auto mixer = Make<CParametricChannelMixerFilter>(6);
    const char* modes[] = {"Add Left to Sub",   "Copy Left to Sub",       "Move Left to Sub",
                           "Swap Left and Sub", "Subtract Left from Sub", "Mix channels"};
    mixer->destination = CAudioFormat::Subwoofer;
    for (int32_t mode = 0; mode <= 5; ++mode)
    {
        mixer->mode = mode;
        EXPECT_EQ(Describe(*mixer), modes[mode]);
    }
    mixer->mode = CHANNELMIX_ADD;
    mixer->gain = -6;
    EXPECT_EQ(Describe(*mixer), "Add Left to Sub (-6.0 dB)");

    auto delay = Make<CParametricDelayFilter>(7);
    delay->delay = 12.345;
    delay->channels = {CAudioFormat::Subwoofer};
    EXPECT_EQ(Describe(*delay), "Delay 12.35 ms (Sub)");
    delay->delay = 1.5;
    EXPECT_EQ(Describe(*delay), "Delay 1.5 ms (Sub)");

    auto limiter = Make<CParametricLimiterFilter>(9);
    limiter->level = -6;
    limiter->channels = {2};
    EXPECT_EQ(Describe(*limiter), "Brick wall limiter at -6.0 dB (Left)");
    limiter->mode = 1;
    EXPECT_EQ(Describe(*limiter), "Adaptive Limiter (Left)");

    auto bits = Make<CParametricBitdepthSimulatorFilter>(13);
    bits->bits = 16;
    EXPECT_EQ(Describe(*bits), "Bitdepth simulator (16bit)");
    EXPECT_EQ(Describe(*Make<CParametricIIRFilter>(2)), "High-pass at 1000 Hz (Left,Right)");
}

TEST(ParametricFilter, DescriptionsPassThroughTheTranslator)
{
    qvtest::ScopedTestTools tools;
    auto pass = Make(1);
    EXPECT_EQ(Describe(*pass), "[t]Low-pass [t]at 1000 Hz ([t]Left,[t]Right)");
}

namespace
{
// A list that holds every kind once, each away from its defaults where it has fields.
ParametricFilterArray EveryKind()
{
    ParametricFilterArray filters;
    for (int32_t type = 1; type <= 21; ++type)
        filters.emplace_back(CreateParametricFilter(type));
    auto* lowPass = static_cast<CParametricIIRFilter*>(filters[0].get());
    lowPass->frequency = 1234.5;
    lowPass->slope = 36;
    lowPass->channels = {2, 11, 12};
    static_cast<CParametricIIRFilter*>(filters[2].get())->gain = -2.25;
    static_cast<CParametricVolumeFilter*>(filters[3].get())->gain = 1.0 / 3.0;
    static_cast<CParametricChannelMixerFilter*>(filters[5].get())->mode = CHANNELMIX_SUBTRACT;
    static_cast<CParametricDelayFilter*>(filters[6].get())->delay = 7.25;
    static_cast<CParametricLinkwitzTransformFilter*>(filters[7].get())->preventClipping = true;
    static_cast<CParametricLimiterFilter*>(filters[8].get())->mode = 1;
    static_cast<CParametricChannelOrderFilter*>(filters[11].get())->order = {3, 2, 5};
    static_cast<CParametricBitdepthSimulatorFilter*>(filters[12].get())->dither = false;
    static_cast<CLinkwitzRileyFilter*>(filters[15].get())->frequency = 80;
    static_cast<CParametricDividerFilter*>(filters[19].get())->text =
        QVString(u"<Sub & \"friends\">");
    static_cast<CCustomBiquadFilter*>(filters[20].get())->customFile = QVString(u"/tmp/room.txt");
    filters[4]->SetEnabled(false);
    return filters;
}
}  // namespace

TEST(ParametricFilter, ListTextRoundTripIsUnchanged)
{
    ParametricFilterArray filters = EveryKind();
    const QVString text = SaveParametricFilterList(filters);
    ASSERT_TRUE(text.StartsWith(u"(1:1)(2:21)("));

    ParametricFilterArray loaded;
    LoadParametricFilterList(text, loaded);
    ASSERT_EQ(loaded.size(), 21u);
    for (size_t i = 0; i < loaded.size(); ++i)
    {
        EXPECT_EQ(loaded[i]->GetType(), filters[i]->GetType());
        EXPECT_EQ(loaded[i]->IsEnabled(), filters[i]->IsEnabled());
        EXPECT_EQ(Describe(*loaded[i]), Describe(*filters[i]));
    }
    EXPECT_EQ(Utf8(SaveParametricFilterList(loaded)), Utf8(text));
    EXPECT_EQ(static_cast<CParametricDividerFilter*>(loaded[19].get())->text,
              QVString(u"<Sub & \"friends\">"));
    EXPECT_EQ(static_cast<CParametricChannelOrderFilter*>(loaded[11].get())->order,
              (ChannelList{3, 2, 5}));
}

namespace
{
QVString Token(const QVString& payload)
{
    return QVString::FromUTF8("(" + std::to_string(payload.GetLength()) + ":") + payload +
           QVString(u")");
}

QVString FilterText(const std::vector<std::pair<std::string, std::string>>& items)
{
    std::string text = "<XMLPH version=\"1.1\">\r\n";
    for (const auto& [name, value] : items)
        text += "<Item Name=\"" + name + "\">" + value + "</Item>\r\n";
    return QVString::FromUTF8(text + "</XMLPH>");
}
}  // namespace

TEST(ParametricFilter, OldListsLoadAsTheyAlwaysDid)
{
    // A shelf of the old format (no "Version": its "Q" is a slope), a peak
    // without "Frequency", a type that doesn't exist, a filter of another text
    // version, and a decimal comma.
    const QVString list =
        Token(QVString(u"1")) + Token(QVString(u"5")) +
        Token(FilterText({{"Type", "10"}, {"Enabled", "1"}, {"Gain", "6"}, {"Q", "0.5"}})) +
        Token(FilterText({{"Type", "3"}, {"Enabled", "0"}, {"Gain", "-4,5"}})) +
        Token(FilterText({{"Type", "99"}, {"Enabled", "1"}})) +
        Token(QVString(u"<XMLPH version=\"1.0\">\r\n<Item Name=\"Type\">4</Item>\r\n</XMLPH>")) +
        Token(FilterText({{"Type", "11"}, {"Version", "1"}, {"Q", "8"}, {"Enabled", "7"}}));
    ParametricFilterArray filters;
    LoadParametricFilterList(list, filters);
    ASSERT_EQ(filters.size(), 3u);

    auto* shelf = static_cast<CParametricIIRFilter*>(filters[0].get());
    const double a = std::pow(10.0, 6.0 / 40.0);
    EXPECT_DOUBLE_EQ(shelf->q, 1.0 / std::sqrt((a + 1.0 / a) * (1.0 / 0.5 - 1.0) + 2.0));
    EXPECT_EQ(shelf->channels, (ChannelList{2, 3}));

    auto* peak = static_cast<CParametricIIRFilter*>(filters[1].get());
    EXPECT_FALSE(peak->IsEnabled());
    EXPECT_EQ(peak->frequency, 1000.0);
    EXPECT_EQ(peak->gain, -4.5);

    auto* highShelf = static_cast<CParametricIIRFilter*>(filters[2].get());
    EXPECT_TRUE(highShelf->IsEnabled());  // any non-zero value
    EXPECT_EQ(highShelf->q, 8.0);         // kept; only the design clamps it
}

TEST(ParametricFilter, BrokenListTextsGiveWhatCanBeRead)
{
    ParametricFilterArray filters;
    const QVString one = Token(FilterText({{"Type", "15"}}));
    LoadParametricFilterList(Token(QVString(u"2")) + Token(QVString(u"1")) + one, filters);
    EXPECT_TRUE(filters.empty());  // the version must be 1

    LoadParametricFilterList(
        Token(QVString(u"1")) + Token(QVString(u"2")) + one + QVString(u"(9x:abc)") + one, filters);
    EXPECT_EQ(filters.size(), 1u);  // a bad token isn't passed over, so nothing after it reads

    LoadParametricFilterList(QVString(u"(1:1)(1:3)(500:short)"), filters);
    EXPECT_TRUE(filters.empty());
    LoadParametricFilterList(QVString(), filters);
    EXPECT_TRUE(filters.empty());

    CParametricFilter probe(0);
    EXPECT_FALSE(probe.LoadFromText(QVString()));
}

TEST(ParametricFilter, ChannelListsAsText)
{
    ChannelList channels;
    ChannelListFromText(QVString(u"2;3;11"), u';', channels);
    EXPECT_EQ(channels, (ChannelList{2, 3, 11}));
    ChannelListFromText(QVString(u"5;"), u';', channels);
    EXPECT_EQ(channels, (ChannelList{5}));
    ChannelListFromText(QVString(u"2;;3"), u';', channels);
    EXPECT_EQ(channels, (ChannelList{2, 0, 3}));
    ChannelListFromText(QVString(), u';', channels);
    EXPECT_TRUE(channels.empty());
    EXPECT_EQ(Utf8(ChannelListToText({2, 3, 4, 5, 8, 9, 6, 7}, u',')), "2,3,4,5,8,9,6,7");
    EXPECT_EQ(Utf8(ChannelListToText({}, u';')), "");
    EXPECT_EQ(Utf8(ChannelsSuffix({5, 11, 12, 13})), " (Sub,U1,U2,#9)");
}

TEST(ParametricFilter, ChannelResolution)
{
    std::vector<double> samples(4 * 6, 0.0);
    UserChannelBuffer users;
    ChannelSpan span;

    const CAudioFormat mono = MakeFormat(1);
    ASSERT_TRUE(ResolveChannel(CAudioFormat::Left, samples.data(), 4, mono, &users, span));
    EXPECT_EQ(span.base, samples.data());
    EXPECT_EQ(span.stride, 1);
    EXPECT_FALSE(ResolveChannel(CAudioFormat::Right, samples.data(), 4, mono, &users, span));

    const CAudioFormat surround = MakeFormat(6);  // L R C Sub SL SR
    ASSERT_TRUE(
        ResolveChannel(CAudioFormat::SurroundRight, samples.data(), 4, surround, &users, span));
    EXPECT_EQ(span.base, samples.data() + 5);
    EXPECT_EQ(span.stride, 6);
    EXPECT_FALSE(ResolveChannel(CAudioFormat::RearLeft, samples.data(), 4, surround, &users, span));
    EXPECT_FALSE(ResolveChannel(CAudioFormat::Mono, samples.data(), 4, surround, &users, span));

    // The user channels: zero on first use, kept across blocks, sized to the block.
    ASSERT_TRUE(ResolveChannel(CAudioFormat::User2, samples.data(), 4, surround, &users, span));
    EXPECT_EQ(users.GetLength(), 4u * 16u);
    EXPECT_EQ(span.base, users.GetDoubles() + 1);
    EXPECT_EQ(span.stride, 2);
    for (int32_t k = 0; k < 8; ++k)
        EXPECT_EQ(users.GetDoubles()[k], 0.0);
    span.base[2] = 0.25;  // frame 1 of U2
    ASSERT_TRUE(ResolveChannel(CAudioFormat::User1, samples.data(), 2, surround, &users, span));
    EXPECT_EQ(users.GetLength(), 2u * 16u);
    EXPECT_EQ(users.GetDoubles()[3], 0.25);
    ASSERT_TRUE(ResolveChannel(CAudioFormat::User1, samples.data(), 3, surround, &users, span));
    EXPECT_EQ(users.GetDoubles()[3], 0.25);
    EXPECT_EQ(users.GetDoubles()[5], 0.0);  // length grows back with zeros
}
