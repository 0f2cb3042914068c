// Volume, mixer, order, delay, polarity, mid-side and divider.
#include "parametric/RoutingFilters.h"

#include "ParametricTestSupport.h"
#include "parametric/FilterPanel.h"

using namespace ptest;

namespace
{
std::vector<double> RunFilter(CParametricFilter& filter, std::vector<double> block,
                              const CAudioFormat& format, UserChannelBuffer& users)
{
    filter.Process(block.data(), static_cast<int32_t>(block.size() / format.channels), &format,
                   &users);
    return block;
}
}  // namespace

TEST(RoutingFilters, VolumeAndMute)
{
    const CAudioFormat format = MakeFormat(3);
    UserChannelBuffer users;
    const std::vector<double> input = {0.1, 0.2, 0.3, -0.4, 0.5, -0.6};

    auto volume = Make<CParametricVolumeFilter>(4);
    EXPECT_EQ(RunFilter(*volume, input, format, users), input);  // 0 dB: bit for bit
    volume->gain = -6;
    volume->channels = {CAudioFormat::Right, CAudioFormat::Center};
    const double factor = std::pow(10.0, -6.0 / 20.0);
    EXPECT_EQ(RunFilter(*volume, input, format, users),
              (std::vector<double>{0.1, 0.2 * factor, 0.3, -0.4, 0.5 * factor, -0.6}));

    auto mute = Make<CParametricVolumeFilter>(5);
    mute->gain = 6;  // no part in muting
    EXPECT_EQ(RunFilter(*mute, input, format, users), (std::vector<double>{0, 0, 0.3, 0, 0, -0.6}));

    CParametricVolumeFilter preamp(4, true);
    preamp.SetGain(6);
    const auto scaled = RunFilter(preamp, input, format, users);
    for (size_t i = 0; i < input.size(); ++i)
        EXPECT_EQ(scaled[i], input[i] * std::pow(10.0, 6.0 / 20.0));
    EXPECT_EQ(users.GetLength(), 0u);  // the whole-block path never touches the user channels

    CFilterPanel panel;
    mute->AttachToPanel(&panel);
    EXPECT_FALSE(panel.Find(CParametricVolumeFilter::CONTROL_GAIN)->visible);
    volume->AttachToPanel(&panel);
    EXPECT_EQ(Utf8(panel.GetText(CParametricVolumeFilter::CONTROL_GAIN)), "-6");
}

TEST(RoutingFilters, MixerModes)
{
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    const std::vector<double> input = {0.5, 0.25, -1.0, 2.0};
    auto mixer = Make<CParametricChannelMixerFilter>(6);
    mixer->gain = 20 * std::log10(2.0);
    const double g = std::pow(10.0, mixer->gain / 20.0);
    const std::vector<std::vector<double>> expected = {
        {0.5, 0.25 + g * 0.5, -1.0, 2.0 + g * -1.0},  // add
        {0.5, g * 0.5, -1.0, g * -1.0},               // copy
        {0.0, g * 0.5, 0.0, g * -1.0},                // move
        {g * 0.25, g * 0.5, g * 2.0, g * -1.0},       // swap: the gain acts on both
        {0.5, 0.25 - g * 0.5, -1.0, 2.0 - g * -1.0},  // subtract
        input,                                        // unknown mode
    };
    for (int32_t mode = 0; mode <= 5; ++mode)
    {
        mixer->mode = mode;
        EXPECT_EQ(RunFilter(*mixer, input, format, users), expected[static_cast<size_t>(mode)])
            << mode;
    }
    // A missing channel is never read as silence: not even the move's zeros.
    mixer->mode = CHANNELMIX_MOVE;
    mixer->destination = CAudioFormat::Center;
    EXPECT_EQ(RunFilter(*mixer, input, format, users), input);
    // On itself a move leaves silence.
    mixer->destination = CAudioFormat::Left;
    EXPECT_EQ(RunFilter(*mixer, input, format, users), (std::vector<double>{0, 0.25, 0, 2.0}));
}

TEST(RoutingFilters, UserChannelKeepsAChannelAside)
{
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    const auto input = qvtest::Noise(100, 2, 4);
    auto keep = Make<CParametricChannelMixerFilter>(6);
    keep->mode = CHANNELMIX_COPY;
    keep->destination = CAudioFormat::User1;
    auto mute = Make<CParametricVolumeFilter>(5);
    mute->channels = {CAudioFormat::Left};
    auto restore = Make<CParametricChannelMixerFilter>(6);
    restore->mode = CHANNELMIX_COPY;
    restore->source = CAudioFormat::User1;
    restore->destination = CAudioFormat::Left;

    auto block = RunFilter(*keep, input, format, users);
    block = RunFilter(*mute, block, format, users);
    EXPECT_EQ(block[0], 0.0);
    block = RunFilter(*restore, block, format, users);
    EXPECT_EQ(block, input);
}

TEST(RoutingFilters, ChannelOrder)
{
    UserChannelBuffer users;
    auto order = Make<CParametricChannelOrderFilter>(12);
    // 5.1 as Left, Right, Center, Sub, SL, SR: the default order is the identity.
    const CAudioFormat surround = MakeFormat(6);
    const auto input = qvtest::Noise(10, 6, 8);
    EXPECT_EQ(RunFilter(*order, input, surround, users), input);

    // Swapped fronts, centre last; SL and SR aren't named and keep their places.
    order->order = {3, 2, 5, 4};
    const auto output = RunFilter(*order, input, surround, users);
    for (size_t f = 0; f < 10; ++f)
    {
        const double* in = &input[f * 6];
        const double* out = &output[f * 6];
        EXPECT_EQ(out[0], in[1]);
        EXPECT_EQ(out[1], in[0]);
        EXPECT_EQ(out[2], in[3]);
        EXPECT_EQ(out[3], in[2]);
        EXPECT_EQ(out[4], in[4]);
        EXPECT_EQ(out[5], in[5]);
    }
    const CAudioFormat mono = MakeFormat(1);
    EXPECT_EQ(RunFilter(*order, {0.5, 0.25}, mono, users), (std::vector<double>{0.5, 0.25}));

    CFilterPanel panel;
    order->AttachToPanel(&panel);
    EXPECT_EQ(panel.GetSelection(CParametricChannelOrderFilter::CONTROL_ORDER),
              (std::vector<int32_t>{3, 2, 5, 4}));
    order->ResetOrder();
    EXPECT_EQ(order->order, CParametricChannelOrderFilter::DefaultOrder());
    EXPECT_EQ(Utf8(ChannelListToText(order->order, u',')), "2,3,4,5,8,9,6,7");
}

TEST(RoutingFilters, DelayInWholeFrames)
{
    const CAudioFormat format = MakeFormat(2, 44100);
    UserChannelBuffer users;
    auto delay = Make<CParametricDelayFilter>(7);
    delay->channels = {CAudioFormat::Right};
    delay->delay = 0.01;  // below one frame at 44.1 kHz
    const auto input = qvtest::Noise(300, 2, 2);
    EXPECT_EQ(RunFilter(*delay, input, format, users), input);
    EXPECT_TRUE(delay->delayLines.empty());

    // 1 ms at 44.1 kHz: 705.6 bytes round to 706, that is 44 frames of 16 bytes.
    delay->delay = 1.0;
    auto output = RunFilter(*delay, input, format, users);
    for (size_t f = 0; f < 300; ++f)
    {
        EXPECT_EQ(output[2 * f], input[2 * f]);
        EXPECT_EQ(output[2 * f + 1], f >= 44 ? input[2 * (f - 44) + 1] : 0.0) << f;
    }
    EXPECT_EQ(delay->delayLines[CAudioFormat::Right]->size, 44100);  // a second's ring, made once

    CFilterPanel panel;
    delay->AttachToPanel(&panel);
    panel.SetText(CParametricDelayFilter::CONTROL_DELAY, QVString(u"45000"));
    delay->UpdateValuesFromPanel();
    EXPECT_EQ(delay->delay, 30000.0);
    panel.SetText(CParametricDelayFilter::CONTROL_DELAY, QVString(u"-3"));
    delay->UpdateValuesFromPanel();
    EXPECT_EQ(delay->delay, 0.0);

    // A delay beyond that range, as a hand-edited list may hold, runs as the
    // longest the edit allows: the lines grow no further.
    delay->delay = 20000000.0;
    RunFilter(*delay, input, format, users);
    EXPECT_EQ(delay->delayLines[CAudioFormat::Right]->size, 1323001);  // 30 s and one frame
}

TEST(RoutingFilters, PolarityAndMidSide)
{
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    auto polarity = Make<CParametricPolarityFilter>(15);
    polarity->channels = {CAudioFormat::Left};
    EXPECT_EQ(RunFilter(*polarity, {0.5, 0.25, -1.0, 2.0}, format, users),
              (std::vector<double>{-0.5, 0.25, 1.0, 2.0}));

    auto encode = Make(18);
    auto decode = Make(19);
    const std::vector<double> input = {0.5, 0.25, -1.0, 2.0};
    const auto encoded = RunFilter(*encode, input, format, users);
    EXPECT_EQ(encoded, (std::vector<double>{0.375, -0.25, 0.5, 3.0}));
    // The decoder's pass runs once per channel: twice on stereo, so it
    // doesn't give the input back.
    auto once = [](double m, double s) {
        return std::pair<double, double>{m - s * 0.5, m + s * 0.5};
    };
    const auto [l1, r1] = once(0.375, -0.25);
    const auto [l2, r2] = once(l1, r1);
    const auto decoded = RunFilter(*decode, encoded, format, users);
    EXPECT_EQ(decoded[0], l2);
    EXPECT_EQ(decoded[1], r2);
    EXPECT_NE(decoded, input);

    // On mono there is no Right: both do nothing.
    const CAudioFormat mono = MakeFormat(1);
    EXPECT_EQ(RunFilter(*encode, {0.5, 0.25}, mono, users), (std::vector<double>{0.5, 0.25}));
}

TEST(RoutingFilters, DividerKeepsItsTextAndDoesNothing)
{
    auto divider = Make<CParametricDividerFilter>(20);
    divider->text = QVString(u"== Room ==");
    divider->SetEnabled(false);
    auto copy = Make<CParametricDividerFilter>(20);
    ASSERT_TRUE(copy->LoadFromText(divider->SaveToText()));
    EXPECT_EQ(Describe(*copy), "== Room ==");
    EXPECT_FALSE(copy->IsEnabled());
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    EXPECT_EQ(RunFilter(*copy, {0.5, 0.25}, format, users), (std::vector<double>{0.5, 0.25}));
}
