// Low-pass, high-pass, peak, shelves, all-pass and custom biquad: responses
// against the analytic values of their designs, and the list's own rules.
#include "parametric/EqualizingFilters.h"

#include <fstream>

#include "ParametricTestSupport.h"
#include "parametric/FilterPanel.h"

using namespace ptest;

namespace
{
constexpr double RATE = 48000.0;
constexpr int32_t IMPULSE_FRAMES = 1 << 15;

double MagnitudeDbAt(CParametricIIRFilter& filter, double frequency)
{
    const CAudioFormat format = MakeFormat(2);
    return Db(
        std::abs(ResponseAt(ImpulseResponse(filter, format, 0, IMPULSE_FRAMES), frequency, RATE)));
}
}  // namespace

TEST(EqualizingFilters, ResponsesAtTheirFrequencies)
{
    // Peak: exactly the gain at its centre, flat far away.
    auto peak = Make<CParametricIIRFilter>(3);
    peak->frequency = 1000;
    peak->gain = 6;
    peak->q = 1.41;
    EXPECT_NEAR(MagnitudeDbAt(*peak, 1000), 6.0, 1e-6);
    EXPECT_NEAR(MagnitudeDbAt(*Make<CParametricIIRFilter>(3), 1000), 0.0, 1e-12);

    // Butterworth pass filters: at the cut-off each section's magnitude is
    // Q' / b1 with Q' = q * sqrt(2), b1 the table's coefficient.
    const double qPrime = 0.7071 * std::sqrt(2.0);
    auto lowPass = Make<CParametricIIRFilter>(1);
    lowPass->frequency = 2000;
    EXPECT_NEAR(MagnitudeDbAt(*lowPass, 2000), Db(qPrime / 1.4142135624), 1e-6);
    auto highPass = Make<CParametricIIRFilter>(2);
    highPass->frequency = 300;
    highPass->slope = 24;
    EXPECT_NEAR(MagnitudeDbAt(*highPass, 300), Db(qPrime / 0.7653668647 * qPrime / 1.847759065),
                1e-5);
    // 24 dB per octave far below the cut-off.
    EXPECT_NEAR(MagnitudeDbAt(*highPass, 300.0 / 16) - MagnitudeDbAt(*highPass, 300.0 / 32),
                20.0 * std::log10(16.0), 0.01);
    auto firstOrder = Make<CParametricIIRFilter>(1);
    firstOrder->slope = 6;
    EXPECT_NEAR(MagnitudeDbAt(*firstOrder, 1000), Db(std::sqrt(0.5)), 1e-6);
    // Gain is ignored by the pass filters.
    auto loud = Make<CParametricIIRFilter>(1);
    loud->gain = 12;
    EXPECT_NEAR(MagnitudeDbAt(*loud, 10), 0.0, 1e-4);

    // Shelves: half the gain at the centre, all of it at the far end.
    auto lowShelf = Make<CParametricIIRFilter>(10);
    lowShelf->frequency = 200;
    lowShelf->gain = -8;
    lowShelf->q = 0.7;
    EXPECT_NEAR(MagnitudeDbAt(*lowShelf, 200), -4.0, 1e-6);
    EXPECT_NEAR(MagnitudeDbAt(*lowShelf, 5), -8.0, 0.01);
    auto highShelf = Make<CParametricIIRFilter>(11);
    highShelf->frequency = 5000;
    highShelf->gain = 4;
    EXPECT_NEAR(MagnitudeDbAt(*highShelf, 5000), 2.0, 1e-6);
    EXPECT_NEAR(MagnitudeDbAt(*highShelf, 23900), 4.0, 0.01);

    // All-pass: flat, with half a turn of phase at its frequency.
    auto allPass = Make<CParametricIIRFilter>(17);
    allPass->frequency = 700;
    const auto impulse = ImpulseResponse(*allPass, MakeFormat(2), 0, IMPULSE_FRAMES);
    for (double f : {50.0, 700.0, 9000.0})
        EXPECT_NEAR(std::abs(ResponseAt(impulse, f, RATE)), 1.0, 1e-9) << f;
    EXPECT_NEAR(std::abs(std::arg(ResponseAt(impulse, 700, RATE))), M_PI, 1e-6);
}

TEST(EqualizingFilters, ShelfQFromTheOldSlope)
{
    // S = 1 gives the steepest monotonic shelf, Q = 1/sqrt(2) for any gain.
    EXPECT_NEAR(ShelfQFromSlope(1.0, 6.0), std::sqrt(0.5), 1e-15);
    EXPECT_NEAR(ShelfQFromSlope(1.0, -15.0), std::sqrt(0.5), 1e-15);
    const double a = std::pow(10.0, -3.0 / 40.0);
    EXPECT_DOUBLE_EQ(ShelfQFromSlope(0.5, -3.0), 1.0 / std::sqrt((a + 1.0 / a) + 2.0));
}

TEST(EqualizingFilters, FlatPeakDoesNothingAndResumesWithoutHistory)
{
    const CAudioFormat format = MakeFormat(2);
    auto peak = Make<CParametricIIRFilter>(3);
    auto input = qvtest::Noise(256, 2, 7);
    auto block = input;
    UserChannelBuffer users;
    peak->Process(block.data(), 256, &format, &users);
    EXPECT_EQ(block, input);
    EXPECT_TRUE(peak->channelFilters.empty());  // not even a design

    peak->gain = 3;
    auto fresh = Make<CParametricIIRFilter>(3);
    fresh->gain = 3;
    auto a = input;
    auto b = input;
    peak->Process(a.data(), 256, &format, &users);
    fresh->Process(b.data(), 256, &format, &users);
    EXPECT_EQ(a, b);
}

TEST(EqualizingFilters, ChannelsAreResolvedByTheListRules)
{
    const CAudioFormat stereo = MakeFormat(2);
    const CAudioFormat mono = MakeFormat(1);
    UserChannelBuffer users;
    const auto input = qvtest::Noise(300, 2, 3);

    // Right on mono does nothing; Left acts on the mono channel.
    auto right = Make<CParametricIIRFilter>(1);
    right->channels = {CAudioFormat::Right};
    auto monoBlock = qvtest::Noise(300, 1, 3);
    const auto monoInput = monoBlock;
    right->Process(monoBlock.data(), 300, &mono, &users);
    EXPECT_EQ(monoBlock, monoInput);
    auto left = Make<CParametricIIRFilter>(1);
    left->channels = {CAudioFormat::Left};
    left->Process(monoBlock.data(), 300, &mono, &users);
    EXPECT_NE(monoBlock, monoInput);

    // An empty list does nothing; an absent channel is skipped quietly.
    auto none = Make<CParametricIIRFilter>(2);
    none->channels = {};
    auto block = input;
    none->Process(block.data(), 300, &stereo, &users);
    EXPECT_EQ(block, input);
    auto absent = Make<CParametricIIRFilter>(2);
    absent->channels = {CAudioFormat::Center, CAudioFormat::Right};
    absent->Process(block.data(), 300, &stereo, &users);
    for (size_t i = 0; i < block.size(); i += 2)
        ASSERT_EQ(block[i], input[i]);

    // On U1 the filter works on the shared user channel.
    auto user = Make<CParametricIIRFilter>(3);
    user->gain = -20;
    user->channels = {CAudioFormat::User1};
    users.SetLength(300 * 16);
    for (int32_t k = 0; k < 300; ++k)
        users.GetDoubles()[2 * k] = input[2 * static_cast<size_t>(k)];
    block = input;
    user->Process(block.data(), 300, &stereo, &users);
    EXPECT_EQ(block, input);
    auto reference = Make<CParametricIIRFilter>(3);
    reference->gain = -20;
    reference->channels = {CAudioFormat::Left};
    reference->Process(block.data(), 300, &stereo, &users);
    for (int32_t k = 0; k < 300; ++k)
        ASSERT_EQ(users.GetDoubles()[2 * k], block[2 * static_cast<size_t>(k)]);
}

TEST(EqualizingFilters, ChannelsSideBySideGiveTheSameAsOneAfterAnother)
{
    const CAudioFormat format = MakeFormat(6);
    UserChannelBuffer users;
    const auto input = qvtest::Noise(500, 6, 11);
    for (const ChannelList& channels :
         {ChannelList{2, 3}, ChannelList{4, 2, 7, 5, 11}, ChannelList{3, 3, 2}})
    {
        auto together = Make<CParametricIIRFilter>(10);
        together->gain = 5;
        together->channels = channels;
        auto a = input;
        together->Process(a.data(), 500, &format, &users);

        auto b = input;
        UserChannelBuffer otherUsers;
        std::vector<std::unique_ptr<CParametricIIRFilter>> single;
        for (int32_t id : channels)
        {
            // A repeated id shares its one filter, as in the list filter.
            bool seen = false;
            for (auto& filter : single)
                seen = seen || filter->channels.front() == id;
            if (!seen)
            {
                single.push_back(Make<CParametricIIRFilter>(10));
                single.back()->gain = 5;
                single.back()->channels = {id};
            }
            for (auto& filter : single)
            {
                if (filter->channels.front() == id)
                    filter->Process(b.data(), 500, &format, &otherUsers);
            }
        }
        EXPECT_EQ(a, b);
    }
}

TEST(EqualizingFilters, BandOfTheEqualizerActsOnEveryChannel)
{
    const CAudioFormat format = MakeFormat(8);
    CParametricIIRFilter band(125.0, 0.0, 2.0);
    const auto input = qvtest::Noise(200, 8, 5);
    auto block = input;
    UserChannelBuffer users;
    band.Process(block.data(), 200, &format, &users);
    EXPECT_EQ(block, input);
    band.SetGain(-7.5);
    EXPECT_EQ(band.gain, -7.5);
    band.Process(block.data(), 200, &format, &users);
    for (int32_t c = 0; c < 8; ++c)
        EXPECT_NE(block[static_cast<size_t>(100 * 8 + c)], input[static_cast<size_t>(100 * 8 + c)])
            << c;
    EXPECT_EQ(band.channelFilters.size(), 8u);
}

TEST(EqualizingFilters, ShelfPanelClampsQWithALaterMessage)
{
    CFilterPanel panel;
    auto shelf = Make<CParametricIIRFilter>(11);
    shelf->AttachToPanel(&panel);
    EXPECT_FALSE(panel.Find(CParametricIIRFilter::CONTROL_SLOPE)->visible);
    EXPECT_TRUE(panel.Find(CParametricIIRFilter::CONTROL_GAIN)->visible);
    panel.SetText(CParametricIIRFilter::CONTROL_Q, QVString(u"8,5"));
    panel.SetText(CParametricIIRFilter::CONTROL_GAIN, QVString(u"-2.5"));
    panel.SetSelection(CParametricIIRFilter::CONTROL_CHANNELS, {4});
    shelf->UpdateValuesFromPanel();
    EXPECT_EQ(shelf->q, 5.0);
    EXPECT_EQ(shelf->gain, -2.5);
    EXPECT_EQ(shelf->channels, (ChannelList{4}));
    EXPECT_EQ(panel.GetNumber(CParametricIIRFilter::CONTROL_Q, 0), 5.0);
    EXPECT_TRUE(panel.GetShownMessages().empty());  // not from within the read
    panel.AdvanceClock(1);
    ASSERT_EQ(panel.GetShownMessages().size(), 1u);
    EXPECT_EQ(Utf8(panel.GetShownMessages()[0].title), "Information");
    EXPECT_EQ(Utf8(panel.GetShownMessages()[0].text),
              "Q values greater than 5.0 won't be honored.");

    // A peak keeps any Q; a low-pass offers the slopes and reads its choice.
    auto peak = Make<CParametricIIRFilter>(3);
    peak->AttachToPanel(&panel);
    panel.SetText(CParametricIIRFilter::CONTROL_Q, QVString(u"8"));
    peak->UpdateValuesFromPanel();
    EXPECT_EQ(peak->q, 8.0);
    auto lowPass = Make<CParametricIIRFilter>(1);
    lowPass->AttachToPanel(&panel);
    const CFilterControl* slopes = panel.Find(CParametricIIRFilter::CONTROL_SLOPE);
    ASSERT_EQ(slopes->choices.size(), 5u);
    EXPECT_EQ(Utf8(slopes->choices[2].text), "24 dB/octave");
    EXPECT_FALSE(panel.Find(CParametricIIRFilter::CONTROL_GAIN)->visible);
    panel.SetChoice(CParametricIIRFilter::CONTROL_SLOPE, 48);
    lowPass->UpdateValuesFromPanel();
    EXPECT_EQ(lowPass->slope, 48.0);
    EXPECT_EQ(lowPass->GetDesignKind(), IIR_LOWPASS_48);
}

TEST(EqualizingFilters, CustomBiquadReadsItsFileForLeftAndRight)
{
    const std::string path =
        (std::filesystem::temp_directory_path() / "qvdsp-parametric-biquad.txt").string();
    std::ofstream(path) << "biquad1\nb0=0.5\nb1=0\nb2=0\na0=1\na1=0\na2=0\n";
    auto custom = Make<CCustomBiquadFilter>(21);
    custom->customFile = QVString::FromUTF8(path);
    const CAudioFormat format = MakeFormat(3);
    const auto input = qvtest::Noise(64, 3, 9);
    auto block = input;
    UserChannelBuffer users;
    custom->Process(block.data(), 64, &format, &users);
    for (size_t i = 0; i < block.size(); ++i)
        EXPECT_EQ(block[i], i % 3 == 2 ? input[i] : input[i] * 0.5) << i;
    std::filesystem::remove(path);

    // Only the base keys and the file name are kept.
    const QVString text = custom->SaveToText();
    EXPECT_GE(text.Find(u"Filename"), 0);
    EXPECT_LT(text.Find(u"Frequency"), 0);
    EXPECT_LT(text.Find(u"Channels"), 0);
}

TEST(EqualizingFilters, StereoPathMatchesTheFilterSampleBySample)
{
    // The list filter keeps the state of a stereo section in registers; it
    // must give CIIRFilter::Process's results exactly, across blocks.
    const CAudioFormat format = MakeFormat(2);
    UserChannelBuffer users;
    auto peak = Make<CParametricIIRFilter>(3);
    peak->gain = -9;
    peak->frequency = 40;
    peak->q = 3;
    CIIRFilter left;
    CIIRFilter right;
    ASSERT_TRUE(left.Design(IIR_PEAKING, 48000, 40, -9, 3, true, QVString()));
    ASSERT_TRUE(right.Design(IIR_PEAKING, 48000, 40, -9, 3, true, QVString()));
    auto input = qvtest::Noise(1000, 2, 13);
    input.resize(8000, 0.0);  // a tail of silence reaches the flush threshold
    auto block = input;
    for (int32_t start : {0, 333, 1000, 2500})
    {
        const int32_t frames = (start == 2500   ? 4000
                                : start == 1000 ? 2500
                                : start == 333  ? 1000
                                                : 333) -
                               start;
        peak->Process(block.data() + 2 * start, frames, &format, &users);
    }
    for (size_t f = 0; f < 4000; ++f)
    {
        ASSERT_EQ(block[2 * f], left.Process(input[2 * f])) << f;
        ASSERT_EQ(block[2 * f + 1], right.Process(input[2 * f + 1])) << f;
    }
}

TEST(EqualizingFilters, DescriptionsShowWhatTheFilterReallyDoes)
{
    auto peak = Make<CParametricIIRFilter>(3);
    peak->channels.clear();  // every channel: no list behind the text
    peak->gain = 3;
    peak->frequency = 1000.9;  // whole hertz, truncated: the list's text
    EXPECT_EQ(peak->GetDescription().ToUTF8(), "+3.0 dB at 1000 Hz");
    peak->frequency = 9.2e14;  // still within what an integer holds
    EXPECT_EQ(peak->GetDescription().ToUTF8(),
              "+3.0 dB at 920000000000000 Hz (out of range: no effect)");

    // Values the design refuses: short texts, and the filter passes the audio on.
    const CAudioFormat format = MakeFormat(2);
    peak->frequency = 1e308;
    EXPECT_EQ(peak->GetDescription().ToUTF8(), "+3.0 dB at 1e+308 Hz (out of range: no effect)");
    EXPECT_EQ(ImpulseResponse(*peak, format, 0, 4)[0], 1.0);
    peak->frequency = std::nan("");
    EXPECT_EQ(peak->GetDescription().ToUTF8(), "+3.0 dB at nan Hz (out of range: no effect)");
    EXPECT_EQ(ImpulseResponse(*peak, format, 0, 4)[0], 1.0);
    peak->frequency = 1000;
    peak->gain = 1e300;
    EXPECT_EQ(peak->GetDescription().ToUTF8(), "+1e+300 dB at 1000 Hz (out of range: no effect)");

    // A pass filter ignores its gain, so a wild one changes nothing.
    auto highPass = Make<CParametricIIRFilter>(2);
    highPass->channels.clear();
    highPass->frequency = 80;
    highPass->gain = 1e300;
    EXPECT_EQ(highPass->GetDescription().ToUTF8(), "High-pass at 80 Hz");
}
