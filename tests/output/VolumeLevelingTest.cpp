#include "output/VolumeLeveling.h"

#include <gtest/gtest.h>

#include <cstring>

#include "support/TestSupport.h"

TEST(VolumeLeveling, BlocksPassUnchanged)
{
    CVolumeLevelingDSPPlugin plugin(nullptr, 0);
    for (const CAudioFormat& format : {CAudioFormat(64, 48000, 2), CAudioFormat(64, 44100, 3)})
    {
        ASSERT_EQ(plugin.SetFormat(format), 0);
        EXPECT_EQ(std::memcmp(&plugin.format, &format, sizeof(CAudioFormat)), 0);
        const std::vector<double> input = qvtest::Noise(500, format.channels, 9, 3.0);
        qvtest::CollectingSink sink;
        qvtest::RunInBlockPattern(plugin, input, format.channels, {1, 64, 300}, sink);
        EXPECT_EQ(sink.samples, input);
        EXPECT_EQ(sink.outputCalls, 6);
        EXPECT_EQ(sink.blockFrames, (std::vector<int32_t>{1, 64, 300, 1, 64, 70}));
    }
}

TEST(VolumeLeveling, PanelTextIsTranslatedParagraphByParagraph)
{
    qvtest::ScopedTestTools scoped;
    CVolumeLevelingDSPPlugin plugin(nullptr, 0);
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    ASSERT_NE(plugin.GetPanel(), nullptr);
    EXPECT_EQ(
        plugin.GetPanel()->GetText().ToUTF8(),
        "[t]Volume Leveling adjusts the playback volume to the same level for all files.\r\n\r\n"
        "[t]The industry leading R128 algorithm is used to analyze files and apply the correct "
        "volume "
        "during playback.\r\n\r\n"
        "[t]Intentional volume differences between tracks on the same album are preserved.\r\n\r\n"
        "[t]The overall volume of a playlist may be reduced.  Enable 'Adaptive Volume' on the left "
        "to "
        "compensate for this.");
    EXPECT_EQ(scoped.tools.translator.calls, 4);
}
