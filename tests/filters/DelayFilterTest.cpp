#include "filters/DelayFilter.h"

#include <gtest/gtest.h>

#include <vector>

namespace
{
std::vector<double> Feed(CDelayFilter<double>& line, std::vector<double> input)
{
    for (double& x : input)
        x = line.Process(x);
    return input;
}
}  // namespace

TEST(DelayFilter, LagsByWholeFrames)
{
    CDelayFilter<double> line;
    EXPECT_TRUE(line.SetDelay(1, 0));
    EXPECT_EQ(line.size, 2);
    EXPECT_EQ(Feed(line, {1, 2, 3, 4}), (std::vector<double>{0, 1, 2, 3}));

    // A negative delay is none at all.
    CDelayFilter<double> none;
    none.SetDelay(-4, 0);
    EXPECT_EQ(none.delay, 0);
    EXPECT_EQ(none.size, 1);
    EXPECT_EQ(Feed(none, {5, 6, 7}), (std::vector<double>{5, 6, 7}));

    // A larger minimum size changes nothing about the lag.
    CDelayFilter<double> wide;
    wide.SetDelay(3, 16);
    EXPECT_EQ(wide.size, 16);
    EXPECT_EQ(Feed(wide, {1, 2, 3, 4, 5, 6}), (std::vector<double>{0, 0, 0, 1, 2, 3}));
}

TEST(DelayFilter, GrowsOnlyAndRestartsFromSilenceWhenItGrows)
{
    CDelayFilter<double> line;
    line.SetDelay(3, 0);
    Feed(line, {1, 2, 3, 4, 5});
    // Shorter: same ring and contents, the output jumps to the newer samples at once.
    line.SetDelay(1, 0);
    EXPECT_EQ(line.size, 4);
    EXPECT_EQ(Feed(line, {6, 7}), (std::vector<double>{5, 6}));
    // Back to 3 within the ring: the older samples are still there.
    line.SetDelay(3, 0);
    EXPECT_EQ(Feed(line, {8, 9}), (std::vector<double>{5, 6}));
    // Longer than the ring: a new ring, silence first.
    line.SetDelay(5, 0);
    EXPECT_EQ(line.size, 6);
    EXPECT_EQ(Feed(line, {1, 2, 3, 4, 5, 6, 7}), (std::vector<double>{0, 0, 0, 0, 0, 1, 2}));

    CDelayFilter<double> copy = line;
    EXPECT_EQ(Feed(copy, {8}), Feed(line, {8}));
    EXPECT_NE(copy.buffer, line.buffer);
}

TEST(DelayFilter, MillisecondsRoundOnBytes)
{
    // 16-bit stereo at 44100 Hz: 176400 bytes per second, 4 bytes a frame.
    CAudioFormat cd;
    EXPECT_EQ(CDelayFilter<double>::FramesForMilliseconds(cd, 10.0), 441);
    EXPECT_EQ(CDelayFilter<double>::FramesForMilliseconds(cd, 1.0),
              44);  // 176.4 bytes -> 176 -> 44 frames
    // 0.042 ms is 7.4 bytes, 1.85 frames: the bytes round to 7, one frame.
    EXPECT_EQ(CDelayFilter<double>::FramesForMilliseconds(cd, 0.042), 1);
    // 24-bit, six channels at 48000 Hz: 18 bytes a frame.
    CAudioFormat surround(24, 48000, 6);
    EXPECT_EQ(CDelayFilter<double>::FramesForMilliseconds(surround, 5.0), 240);
    EXPECT_EQ(CDelayFilter<double>::FramesForMilliseconds(surround, 0.0), 0);
}
