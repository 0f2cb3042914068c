// Parametric EQ text into list filters, checked against the mapping rules worked
// through by hand.
#include "cli/commands/ApoImport.h"
#include "parametric/EqualizingFilters.h"

#include <gtest/gtest.h>

#include <cmath>

namespace
{

TEST(ApoImportTest, EveryKindMapsWithItsValues)
{
    const ApoImport imported = ParseApoText("# from a measurement\n"
                                            "Preamp: -6.2 dB\r\n"
                                            "Filter 1: ON PK Fc 1000 Hz Gain -3,5 dB Q 1,41\n"
                                            "Filter 2: OFF PEQ Fc 50 Hz Gain 2 dB Q 0.5\n"
                                            "Filter 3: ON LSC Fc 105 Hz Gain 4 dB Q 0.7\n"
                                            "Filter 4: ON HSC Fc 9000 Hz Gain -2 dB Q 0.6\n"
                                            "Filter 5: ON HP Fc 30 Hz\n"
                                            "Filter 6: ON LPQ Fc 15000 Hz Q 0.9\n"
                                            "Filter 7: ON AP Fc 700 Hz Q 2\n"
                                            "\n"
                                            "Filter: ON LP Fc 18000 Hz\n");
    EXPECT_TRUE(imported.unmapped.empty());
    ASSERT_EQ(imported.filters.size(), 9u);
    struct Expected
    {
        int32_t type;
        bool enabled;
        double frequency, gain, q;
    };
    const Expected expected[] = {
        {PARAMETRIC_VOLUME, true, 0, -6.2, 0.7071},   {PARAMETRIC_PEAK, true, 1000, -3.5, 1.41},
        {PARAMETRIC_PEAK, false, 50, 2, 0.5},         {PARAMETRIC_LOWSHELF, true, 105, 4, 0.7},
        {PARAMETRIC_HIGHSHELF, true, 9000, -2, 0.6},  {PARAMETRIC_HIGHPASS, true, 30, 0, 0.7071},
        {PARAMETRIC_LOWPASS, true, 15000, 0, 0.9},    {PARAMETRIC_ALLPASS, true, 700, 0, 2},
        {PARAMETRIC_LOWPASS, true, 18000, 0, 0.7071},
    };
    for (size_t i = 0; i < std::size(expected); ++i)
    {
        const ImportedFilter& filter = imported.filters[i];
        EXPECT_EQ(filter.type, expected[i].type) << i;
        EXPECT_EQ(filter.enabled, expected[i].enabled) << i;
        EXPECT_EQ(filter.frequency, expected[i].frequency) << i;
        EXPECT_EQ(filter.gain, expected[i].gain) << i;
        EXPECT_EQ(filter.q, expected[i].q) << i;
        EXPECT_EQ(filter.slope, 12) << i;
    }
}

TEST(ApoImportTest, CornerShelvesMoveToTheirCentre)
{
    const ApoImport imported = ParseApoText("Filter 1: ON LS Fc 100 Hz Gain 6 dB Q 0.7\n"
                                            "Filter 2: ON HS 6dB Fc 8000 Hz Gain -4 dB\n"
                                            "Filter 3: ON HS Fc 4000 Hz Gain 3 dB\n"
                                            "Filter 4: ON LS 12dB Fc 200 Hz Gain 5 dB\n");
    ASSERT_TRUE(imported.unmapped.empty());
    ASSERT_EQ(imported.filters.size(), 4u);

    // Q 0.7 at +6 dB: A = 10^0.15 = 1.41254, A + 1/A = 2.12048,
    // S = 1/((1/0.49 - 2)/2.12048 + 1) = 0.981115; centre 100 * 10^(6/(80 S)).
    EXPECT_NEAR(ShelfSlopeFromQ(0.7, 6), 0.9811149155, 1e-9);
    EXPECT_EQ(imported.filters[0].type, PARAMETRIC_LOWSHELF);
    EXPECT_NEAR(imported.filters[0].frequency, 119.2459518804, 1e-8);
    EXPECT_EQ(imported.filters[0].q, 0.7);

    // "6dB": S = 0.5. A = 10^-0.1, A + 1/A = 2.05325; centre 8000 / 10^(4/40) = 6354.63;
    // Q = 1/sqrt(2.05325 * (2 - 1) + 2) = 0.496705.
    EXPECT_EQ(imported.filters[1].type, PARAMETRIC_HIGHSHELF);
    EXPECT_NEAR(imported.filters[1].frequency, 6354.6258777943, 1e-8);
    EXPECT_NEAR(imported.filters[1].q, 0.4967045164, 1e-9);
    EXPECT_EQ(imported.filters[1].gain, -4);

    // No slope and no Q: S = 0.9. Centre 4000 / 10^(3/72); A = 10^0.075.
    EXPECT_NEAR(imported.filters[2].frequency, 3634.0703026067, 1e-8);
    EXPECT_NEAR(imported.filters[2].q, 0.6703195606, 1e-9);

    // "12dB": S = 1 makes Q = 1/sqrt(2) whatever the gain; centre 200 * 10^(5/80).
    EXPECT_NEAR(imported.filters[3].frequency, 200 * std::pow(10.0, 5.0 / 80), 1e-9);
    EXPECT_NEAR(imported.filters[3].q, std::sqrt(0.5), 1e-12);

    // The two conversions undo each other.
    for (double gain : {-12.0, -1.0, 3.0, 15.0})
        for (double slope : {0.3, 0.9, 1.0})
            EXPECT_NEAR(ShelfSlopeFromQ(ShelfQFromSlope(slope, gain), gain), slope, 1e-12)
                << gain << " " << slope;
}

TEST(ApoImportTest, LinesThatCannotBeMappedAreNamedByNumber)
{
    const ApoImport imported = ParseApoText("Device: Speakers\n"
                                            "no colon here, skipped\n"
                                            "Filter 1: ON BP Fc 100 Hz Q 2\n"
                                            "Filter 2: ON PK Fc 100 Hz Gain 3 dB\n"
                                            "Filter 3: ON PK Fc abc Hz Gain 1 dB Q 1\n"
                                            "Filter 4: ON HP Fc 100 Hz Gain 3 dB\n"
                                            "Filter 5: ON PK Fc 100 Hz Gain 1 dB Q 1 BW 2\n"
                                            "Filter 6: MAYBE PK Fc 100 Hz Gain 1 dB Q 1\n"
                                            "Filter 7: ON LS Fc 100 Hz Gain 6 dB Q 0\n"
                                            "Preamp: loud\n"
                                            "Filter 8: ON PK Fc 250 Hz Gain -1 dB Q 4\n");
    ASSERT_EQ(imported.filters.size(), 1u);
    EXPECT_EQ(imported.filters[0].frequency, 250);
    const int32_t lines[] = {1, 3, 4, 5, 6, 7, 8, 9, 10};
    ASSERT_EQ(imported.unmapped.size(), std::size(lines));
    for (size_t i = 0; i < std::size(lines); ++i)
        EXPECT_EQ(imported.unmapped[i].line, lines[i]);
    EXPECT_EQ(imported.unmapped[0].text, "Device: Speakers");

    EXPECT_TRUE(ParseApoText("").filters.empty());
}

TEST(ApoImportTest, MadeFiltersCarryTheValuesOnEverySpeakerChannel)
{
    ImportedFilter shelf;
    shelf.type = PARAMETRIC_LOWSHELF;
    shelf.frequency = 119.25;
    shelf.gain = 6;
    shelf.q = 0.7;
    shelf.enabled = false;
    std::unique_ptr<CParametricFilter> filter = MakeImportedFilter(shelf);
    QVPropertyMap map;
    filter->Serialize(false, map);
    EXPECT_EQ(map.GetDouble(u"Frequency", 0), 119.25);
    EXPECT_EQ(map.GetDouble(u"Gain", 0), 6);
    EXPECT_EQ(map.GetDouble(u"Q", 0), 0.7);
    EXPECT_EQ(map.GetInt(u"Version", 0), 1);  // no old-version slope conversion
    EXPECT_EQ(map.GetString(u"Channels").ToUTF8(), "2;3;4;5;6;7;8;9");
    EXPECT_FALSE(filter->IsEnabled());

    ImportedFilter preamp;
    preamp.type = PARAMETRIC_VOLUME;
    preamp.gain = -6.2;
    filter = MakeImportedFilter(preamp);
    EXPECT_EQ(filter->GetDescription().ToUTF8(), "-6.2 dB (Left,Right,Center,Sub,SL,SR,RL,RR)");
}

}  // namespace
