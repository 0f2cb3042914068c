#include "effects/TubeAmplifier.h"

#include <gtest/gtest.h>

#include <cstring>

#include <cmath>

#include "support/AllocationCounter.h"
#include "support/TestSupport.h"

namespace
{

// The curve as written in the documentation of the effect, as an independent
// reference: y = 1.5x - 0.5x^3.
double Cubic(double x)
{
    return 1.5 * x - 0.5 * x * x * x;
}

std::vector<double> ShapedCopy(const std::vector<double>& input)
{
    std::vector<double> output;
    for (double x : input)
        output.push_back((1.0 - x * x / 3.0) * (x * 3.0 * 0.5));
    return output;
}

}  // namespace

TEST(TubeAmplifier, CurveValues)
{
    using P = CTubeAmplifierDSPPlugin;
    EXPECT_EQ(P::Shape(0.0), 0.0);
    EXPECT_EQ(P::Shape(1.0), 1.0);
    EXPECT_EQ(P::Shape(-1.0), -1.0);
    EXPECT_EQ(P::Shape(0.5), 0.6875);
    // No clamp: beyond full scale the curve bends back, and flips past sqrt(3).
    // -1 up to rounding: 1 - 4/3 is not exact in doubles, and the order of the
    // operations is part of the definition (the expanded cubic would give -1).
    EXPECT_EQ(P::Shape(2.0), -0.9999999999999998);
    EXPECT_EQ(P::Shape(-2.0), 0.9999999999999998);
    EXPECT_NEAR(P::Shape(2.0), -1.0, 1e-15);
    EXPECT_NEAR(P::Shape(std::sqrt(3.0)), 0.0, 1e-15);
    EXPECT_LT(P::Shape(1.8), 0.0);
    EXPECT_GT(P::Shape(1.7), 0.0);
    for (double x = -3.0; x <= 3.0; x += 0.01)
        EXPECT_NEAR(P::Shape(x), Cubic(x), 1e-14) << x;
    // Slope 1.5 at the origin.
    EXPECT_NEAR(P::Shape(1e-9) / 1e-9, 1.5, 1e-12);
}

TEST(TubeAmplifier, BlocksAreShapedInPlaceWhateverTheirSplit)
{
    for (int32_t channels : {1, 2, 3, 5, 8})
    {
        CTubeAmplifierDSPPlugin plugin(nullptr, DSP_ZONE_GLOBAL);
        ASSERT_EQ(plugin.SetFormat(CAudioFormat(64, 48000, static_cast<uint16_t>(channels))), 0);
        const std::vector<double> input = qvtest::Noise(1001, channels, 42, 1.9);
        const std::vector<double> expected = ShapedCopy(input);
        EXPECT_EQ(qvtest::RunInBlocks(plugin, input, channels, 1001), expected) << channels;
        EXPECT_EQ(qvtest::RunInBlocks(plugin, input, channels, 1), expected) << channels;
        EXPECT_EQ(qvtest::RunInBlockPattern(plugin, input, channels, {31, 127, 2}), expected)
            << channels;
    }
}

TEST(TubeAmplifier, HandsOnTheSameBufferOnce)
{
    CTubeAmplifierDSPPlugin plugin(nullptr, 0);
    std::vector<double> block = {0.5, -0.5, 1.0, 3.0, 0.0, -1.0};  // default format: stereo
    qvtest::CollectingSink sink(2);
    EXPECT_EQ(plugin.Process(block.data(), 3, &sink), 0);
    ASSERT_EQ(sink.outputCalls, 1);
    EXPECT_EQ(sink.pointers[0], block.data());
    EXPECT_EQ(sink.blockFrames[0], 3);
    EXPECT_EQ(block, (std::vector<double>{0.6875, -0.6875, 1.0, -9.0, 0.0, -1.0}));
}

TEST(TubeAmplifier, SetFormatAcceptsAnyFormat)
{
    CTubeAmplifierDSPPlugin plugin(nullptr, 0);
    for (const CAudioFormat& format : {CAudioFormat(16, 44100, 3), CAudioFormat(1, 2822400, 2),
                                       CAudioFormat(64, 192000, 64), CAudioFormat(8, 8000, 0)})
    {
        EXPECT_EQ(plugin.SetFormat(format), 0);
        EXPECT_EQ(std::memcmp(&plugin.format, &format, sizeof(CAudioFormat)), 0);
    }
    // No channels: nothing to shape, the block still goes on.
    double sample = 0.5;
    qvtest::CollectingSink sink(1);
    EXPECT_EQ(plugin.Process(&sample, 1, &sink), 0);
    EXPECT_EQ(sink.outputCalls, 1);
    EXPECT_EQ(sample, 0.5);
}

TEST(TubeAmplifier, PanelIsOneLineOfText)
{
    CTubeAmplifierDSPPlugin plugin(nullptr, 0);
    EXPECT_EQ(plugin.GetPanel(), nullptr);
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    uint64_t out = 0;
    EXPECT_EQ(plugin.Command(DSPCMD_OPEN_PANEL, nullptr, &out), -1);  // no window in this build
    CTubeAmplifierDlg* panel = plugin.GetPanel();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(plugin.Command(DSPCMD_OPEN_PANEL, nullptr, &out), -1);
    EXPECT_EQ(plugin.GetPanel(), panel);
    EXPECT_EQ(panel->GetText().ToUTF8(), "Tube Amplifier does stuff!");
    {
        qvtest::ScopedTestTools scoped;
        EXPECT_EQ(panel->GetText().ToUTF8(), "[t]Tube Amplifier does stuff!");
    }
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.GetPanel(), nullptr);
}

TEST(TubeAmplifier, SteadyStateBlocksAllocateNothing)
{
    CTubeAmplifierDSPPlugin plugin(nullptr, 0);
    plugin.SetFormat(CAudioFormat(64, 48000, 2));
    std::vector<double> block = qvtest::Noise(4096, 2, 3);
    struct NullSink : IQVDSPSink
    {
        void Output(double*, int32_t) override {}
    } sink;
    {
        // The counter itself sees an allocation, so that a zero below means something.
        qvtest::ScopedAllocationCount probe;
        int* volatile allocated = new int(1);
        delete allocated;
        ASSERT_EQ(probe.Allocations(), 1);
    }
    qvtest::ScopedAllocationCount count;
    for (int i = 0; i < 10; ++i)
        plugin.Process(block.data(), 4096, &sink);
    EXPECT_EQ(count.Allocations(), 0);
}
