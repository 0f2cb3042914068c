#include "cli/host/SignalLevels.h"

#include <gtest/gtest.h>

#include <cmath>

TEST(SignalLevelsTest, RmsAndPeakPerChannelWhateverTheBlocks)
{
    // Left: a square wave of 0.5, RMS 0.5. Right: 0.8 once in 4 frames, RMS 0.4.
    std::vector<double> samples;
    for (int frame = 0; frame < 400; ++frame)
    {
        samples.push_back(frame % 2 ? 0.5 : -0.5);
        samples.push_back(frame % 4 == 3 ? -0.8 : 0.0);
    }
    SignalLevels whole(2);
    whole.Add(samples.data(), 400);
    SignalLevels split(2);
    split.Add(samples.data(), 7);
    split.Add(samples.data() + 14, 0);
    split.Add(samples.data() + 14, 393);
    for (const SignalLevels* levels : {&whole, &split})
    {
        EXPECT_EQ(levels->Frames(), 400);
        EXPECT_DOUBLE_EQ(levels->Rms(0), 0.5);
        EXPECT_DOUBLE_EQ(levels->Rms(1), 0.4);
        EXPECT_EQ(levels->Peak(0), 0.5);
        EXPECT_EQ(levels->Peak(1), 0.8);
    }
    EXPECT_EQ(SignalLevels(1).Rms(0), 0.0);
}

TEST(SignalLevelsTest, DecibelsRelativeToFullScale)
{
    EXPECT_EQ(FormatDbfs(1.0), "0.00 dBFS");
    EXPECT_EQ(FormatDbfs(0.5), "-6.02 dBFS");
    EXPECT_EQ(FormatDbfs(std::pow(10.0, -1.25)), "-25.00 dBFS");
    EXPECT_EQ(FormatDbfs(2.0), "6.02 dBFS");
    EXPECT_EQ(FormatDbfs(0.0), "-inf dBFS");
}
