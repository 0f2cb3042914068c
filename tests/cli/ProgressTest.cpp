#include "cli/host/Progress.h"

#include <gtest/gtest.h>

TEST(ProgressTest, SummaryGivesFramesSecondsAndRealTimeFactor)
{
    EXPECT_EQ(FormatSummary({480000, 479000, 48000, 0.5}),
              "480000 frames in, 479000 frames out, 10.000 s of audio in 0.500 s, 20.0x real time");
    // Too fast to time: no factor rather than an infinite one.
    EXPECT_EQ(FormatSummary({0, 0, 44100, 0.0}),
              "0 frames in, 0 frames out, 0.000 s of audio in 0.000 s");
}

TEST(ProgressTest, LineAppearsOnlyWhenEnabledAndIsClearedAtTheEnd)
{
    testing::internal::CaptureStderr();
    {
        ProgressLine quiet(false, 1000, 100);
        quiet.Update(500);
        quiet.Finish();
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

    testing::internal::CaptureStderr();
    {
        ProgressLine shown(true, 1000, 100);
        shown.Update(500);
        shown.Update(600);  // within the same fraction of a second: not redrawn
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\r 50.0%  5.0 of 10.0 s\r\033[K");
}
