// The plug-in: factory indices, the lock-free sink call, DESCRIBE, settings
// of both instances, block-size independence, no allocation in a steady
// block, and the panel model with its pending save.
#include "parametric/ParametricEqualizerPlugin.h"

#include "ParametricTestSupport.h"
#include "frame/PluginFactory.h"
#include "parametric/EqualizingFilters.h"
#include "parametric/Limiters.h"
#include "parametric/ParametricEqualizerDlg.h"
#include "parametric/RoutingFilters.h"
#include "parametric/TransformFilters.h"
#include "support/AllocationCounter.h"

#include <algorithm>
#include <cstring>

using namespace ptest;

namespace
{
// A list that touches every part of the block state: user channels, delays,
// recursive filters and limiters with memory across blocks.
QVString BusyListText()
{
    ParametricFilterArray filters;
    auto add = [&filters](int32_t type) -> CParametricFilter*
    {
        filters.emplace_back(CreateParametricFilter(type));
        return filters.back().get();
    };
    auto* peak = static_cast<CParametricIIRFilter*>(add(3));
    peak->gain = -4;
    peak->frequency = 300;
    static_cast<CParametricIIRFilter*>(add(2))->slope = 48;
    auto* keep = static_cast<CParametricChannelMixerFilter*>(add(6));
    keep->mode = CHANNELMIX_COPY;
    keep->destination = CAudioFormat::User1;
    auto* shelf = static_cast<CParametricIIRFilter*>(add(10));
    shelf->gain = 5;
    shelf->channels = {CAudioFormat::User1, CAudioFormat::Right};
    auto* delay = static_cast<CParametricDelayFilter*>(add(7));
    delay->delay = 1.3;
    auto* back = static_cast<CParametricChannelMixerFilter*>(add(6));
    back->mode = CHANNELMIX_ADD;
    back->source = CAudioFormat::User1;
    back->destination = CAudioFormat::Left;
    back->gain = -6;
    add(8)->SetEnabled(true);
    static_cast<CParametricLinkwitzTransformFilter*>(filters.back().get())->channels = {2, 3};
    auto* limiter = static_cast<CParametricLimiterFilter*>(add(9));
    limiter->mode = 1;
    limiter->hold = 5;
    limiter->release = 50;
    add(16);
    add(14);
    add(15)->SetEnabled(false);
    add(17);
    add(18);
    add(19);
    add(12);
    add(20);
    auto* bits = static_cast<CParametricBitdepthSimulatorFilter*>(add(13));
    bits->dither = false;
    bits->bits = 20;
    return SaveParametricFilterList(filters);
}

std::unique_ptr<CParametricEqualizerDSPPlugin> MakePlugin(const QVString& listText,
                                                          uint16_t channels)
{
    auto plugin = std::make_unique<CParametricEqualizerDSPPlugin>(nullptr, QVZONE_GLOBAL, 0);
    plugin->GetFilterList().LoadText(listText);
    plugin->SetFormat(MakeFormat(channels));
    return plugin;
}
}  // namespace

TEST(ParametricEqualizerPlugin, FactoryIndicesAndNames)
{
    std::unique_ptr<IQVDSP> first(CreateDSPPlugin(8, nullptr, QVZONE_GLOBAL, false));
    std::unique_ptr<IQVDSP> second(CreateDSPPlugin(10, nullptr, QVZONE_GLOBAL, false));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    char16_t name[1024];
    ASSERT_EQ(first->GetInfo(DSPINFO_NAME, name), 0);
    EXPECT_EQ(qvtest::ToUtf8(name), "Parametric Equalizer");
    ASSERT_EQ(second->GetInfo(DSPINFO_NAME, name), 0);
    EXPECT_EQ(qvtest::ToUtf8(name), "Parametric Equalizer 2");
    EXPECT_EQ(first->Command(DSPCMD_QUERY_FLAG, nullptr, nullptr), 1);
    EXPECT_EQ(first->Command(DSPCMD_RELOAD, nullptr, nullptr), -1);
    EXPECT_EQ(first->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(first->Flush(), 0);
}

TEST(ParametricEqualizerPlugin, EmptyListPassesThroughAndDescribesActiveFilters)
{
    auto plugin = MakePlugin(QVString(), 2);
    EXPECT_EQ(plugin->GetFilterList().GetCount(), 0);
    const auto input = qvtest::Noise(100, 2, 3);
    qvtest::CollectingSink sink(2);
    auto block = input;
    plugin->Process(block.data(), 100, &sink);
    EXPECT_EQ(sink.samples, input);
    EXPECT_EQ(sink.outputCalls, 1);
    EXPECT_EQ(sink.pointers[0], block.data());

    plugin->GetFilterList().LoadText(BusyListText());
    qvtest::RecordingStatusList status;
    EXPECT_EQ(plugin->Command(DSPCMD_DESCRIBE, &status, nullptr), 0);
    ASSERT_EQ(status.lines.size(), 16u);  // the polarity filter is off
    EXPECT_EQ(status.lines[0], "-4.0 dB at 300 Hz (Left,Right)");
    EXPECT_EQ(status.lines[2], "Copy Left to U1");
    EXPECT_EQ(status.lines[15], "Bitdepth simulator (20bit)");
}

TEST(ParametricEqualizerPlugin, InstancesKeepSeparateListsInTheStore)
{
    ScopedStore store;
    {
        CParametricEqualizerDSPPlugin first(nullptr, 3, 0);
        CParametricEqualizerDSPPlugin second(nullptr, 3, 1);
        EXPECT_EQ(first.GetFilterList().GetCount(), 0);
        first.GetFilterList().Insert(
            0, std::unique_ptr<CParametricFilter>(CreateParametricFilter(15)));
        first.GetFilterList().Save();
        second.GetFilterList().Insert(
            0, std::unique_ptr<CParametricFilter>(CreateParametricFilter(5)));
        second.GetFilterList().Insert(
            0, std::unique_ptr<CParametricFilter>(CreateParametricFilter(20)));
        second.GetFilterList().Save();
    }
    CParametricEqualizerDSPPlugin first(nullptr, 3, 0);
    CParametricEqualizerDSPPlugin second(nullptr, 3, 1);
    CParametricEqualizerDSPPlugin otherZone(nullptr, 4, 0);
    ASSERT_EQ(first.GetFilterList().GetCount(), 1);
    EXPECT_EQ(first.GetFilterList().GetAt(0)->GetType(), 15);
    ASSERT_EQ(second.GetFilterList().GetCount(), 2);
    EXPECT_EQ(second.GetFilterList().GetAt(0)->GetType(), 20);
    EXPECT_EQ(otherZone.GetFilterList().GetCount(), 0);

    // The value lies under the zone and the plug-in's name.
    CZoneSettingsKey key(3, QVString(u"Parametric Equalizer 2"), QVString(), QVString());
    EXPECT_TRUE(key.ReadString(QVString(u"Filters"), QVString()).StartsWith(u"(1:1)(1:2)("));
}

TEST(ParametricEqualizerPlugin, OutputDoesNotDependOnBlockSizes)
{
    auto reference = MakePlugin(BusyListText(), 6);
    const auto input = qvtest::Noise(3000, 6, 21, 1.5);
    const auto whole = qvtest::RunInBlocks(*reference, input, 6, 3000);
    auto single = MakePlugin(BusyListText(), 6);
    EXPECT_EQ(qvtest::RunInBlocks(*single, input, 6, 1), whole);
    auto odd = MakePlugin(BusyListText(), 6);
    EXPECT_EQ(qvtest::RunInBlockPattern(*odd, input, 6, {31, 1, 127, 7}), whole);
    EXPECT_NE(whole, input);
}

// Stretches of peaks, shelves and all-passes on one pair of channels run as a
// group; what breaks a stretch: another channel pair, the same pair swapped, a
// flat peak, a multi-section high-pass, a disabled filter, another kind.
QVString SectionStretchesText()
{
    ParametricFilterArray filters;
    auto add = [&filters](int32_t type, double frequency, double gain, ChannelList channels)
    {
        auto* filter = static_cast<CParametricIIRFilter*>(CreateParametricFilter(type));
        filter->frequency = frequency;
        filter->gain = gain;
        filter->q = 0.5 + frequency / 4000;
        filter->channels = std::move(channels);
        filters.emplace_back(filter);
    };
    const ChannelList stereo = {CAudioFormat::Left, CAudioFormat::Right};
    for (double frequency : {40.0, 90.0, 200.0, 450.0, 1000.0, 2200.0, 5000.0})
        add(PARAMETRIC_PEAK, frequency, frequency > 800 ? 4 : -5, stereo);
    add(PARAMETRIC_LOWSHELF, 100, 3, stereo);
    add(PARAMETRIC_HIGHPASS, 30, 0, stereo);
    static_cast<CParametricIIRFilter*>(filters.back().get())->slope = 24;
    add(PARAMETRIC_HIGHSHELF, 7000, -2, stereo);
    add(PARAMETRIC_ALLPASS, 300, 0, stereo);
    add(PARAMETRIC_PEAK, 600, 0, stereo);
    add(PARAMETRIC_PEAK, 800, 6, {CAudioFormat::Right, CAudioFormat::Left});
    add(PARAMETRIC_PEAK, 900, -6, {CAudioFormat::Center, CAudioFormat::User1});
    add(PARAMETRIC_PEAK, 950, 2, stereo);
    add(PARAMETRIC_PEAK, 1200, 2, stereo);
    filters.back()->SetEnabled(false);
    add(PARAMETRIC_PEAK, 1500, -3, stereo);
    filters.emplace_back(CreateParametricFilter(PARAMETRIC_POLARITY));
    add(PARAMETRIC_PEAK, 3000, 1, stereo);
    add(PARAMETRIC_PEAK, 3500, -1, stereo);
    add(PARAMETRIC_PEAK, 9000, -1, stereo);
    return SaveParametricFilterList(filters);
}

TEST(ParametricEqualizerPlugin, StretchesOfSectionsGiveWhatEachFilterGivesAlone)
{
    const QVString text = SectionStretchesText();
    for (const uint16_t channels : {uint16_t(2), uint16_t(6)})
    {
        const CAudioFormat format = MakeFormat(channels);
        std::vector<double> input = qvtest::Noise(4000, channels, 5, 1.2);
        // Values at the flush threshold and below it, and silence at the end.
        input[10] = 1e-151;
        input[13] = -2e-150;
        std::fill(input.end() - 800, input.end(), 0.0);

        ParametricFilterArray alone;
        LoadParametricFilterList(text, alone);
        UserChannelBuffer users;
        std::vector<double> expected = input;
        const int32_t pattern[] = {1, 2, 3, 500, 1, 1300, 7, 2186};
        int32_t start = 0;
        for (const int32_t frames : pattern)
        {
            double* block = expected.data() + static_cast<size_t>(start) * channels;
            for (const auto& filter : alone)
                filter->Process(block, frames, &format, &users);
            start += frames;
        }
        ASSERT_EQ(start, 4000);

        auto plugin = MakePlugin(text, channels);
        const auto output =
            qvtest::RunInBlockPattern(*plugin, input, channels, {1, 2, 3, 500, 1, 1300, 7, 2186});
        ASSERT_EQ(output.size(), expected.size());
        size_t differences = 0;
        for (size_t i = 0; i < expected.size(); ++i)
            differences += std::memcmp(&output[i], &expected[i], sizeof(double)) != 0;
        EXPECT_EQ(differences, 0u) << channels << " channels";
        EXPECT_NE(output, input);
    }
}

TEST(ParametricEqualizerPlugin, SteadyBlocksAllocateNothing)
{
    auto plugin = MakePlugin(BusyListText(), 6);
    auto block = qvtest::Noise(512, 6, 2);
    qvtest::CollectingSink sink(6);
    plugin->Process(block.data(), 512, &sink);  // first block: filters make their state
    sink.Clear();
    std::vector<double> again = qvtest::Noise(512, 6, 3);
    sink.samples.reserve(again.size() * 2);
    int64_t allocations = 0;
    {
        qvtest::ScopedAllocationCount count;
        plugin->ProcessBlock(again.data(), 512, nullptr);
        plugin->ProcessBlock(again.data(), 256, nullptr);
        allocations = count.Allocations();
    }
    EXPECT_EQ(allocations, 0);
}

TEST(ParametricEqualizerPlugin, PanelAppliesEditsAfterThePendingSave)
{
    ScopedStore store;
    qvtest::CountingHost host;
    CParametricEqualizerDSPPlugin plugin(&host, 1, 0);
    EXPECT_EQ(plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);  // no native window
    CParametricEqualizerDlg* panel = plugin.GetPanel();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->GetAddMenu().size(), 21u);
    EXPECT_EQ(Utf8(panel->GetAddMenu()[16].text), "All pass");

    EXPECT_EQ(panel->AddFilter(3, 10), 0);  // clamped to the end
    EXPECT_EQ(panel->AddFilter(4, 0), 0);
    EXPECT_EQ(Utf8(panel->GetItemText(1)), "+0.0 dB at 1000 Hz (Left,Right)");
    EXPECT_EQ(Utf8(panel->GetItemText(5)), "");
    EXPECT_TRUE(panel->IsSavePending());
    panel->AdvanceClock(749);
    EXPECT_TRUE(panel->IsSavePending());
    panel->AdvanceClock(1);
    EXPECT_FALSE(panel->IsSavePending());
    EXPECT_EQ(host.changedCalls, 1);
    {
        CParametricEqualizerDSPPlugin reloaded(nullptr, 1, 0);
        EXPECT_EQ(reloaded.GetFilterList().GetCount(), 2);
    }

    // An edit in the detail panel reaches the filter only when the timer fires;
    // each change restarts it.
    panel->Select(1);
    CFilterPanel& details = panel->GetDetailPanel();
    auto* peak = static_cast<CParametricIIRFilter*>(plugin.GetFilterList().GetAt(1));
    details.SetText(CParametricIIRFilter::CONTROL_GAIN, QVString(u"-3"));
    peak->NotifyListChanged();
    panel->AdvanceClock(500);
    details.SetText(CParametricIIRFilter::CONTROL_GAIN, QVString(u"-3.5"));
    peak->NotifyListChanged();
    panel->AdvanceClock(500);
    EXPECT_EQ(peak->gain, 0.0);
    panel->AdvanceClock(250);
    EXPECT_EQ(peak->gain, -3.5);

    // Enabling takes effect at once; only its save waits.
    panel->SetItemEnabled(1, false);
    EXPECT_FALSE(peak->IsEnabled());
    EXPECT_TRUE(panel->IsSavePending());

    // Keys: U moves up, D down, R removes without asking.
    EXPECT_TRUE(panel->OnKey(u'U'));
    EXPECT_EQ(panel->GetSelection(), 0);
    EXPECT_EQ(plugin.GetFilterList().GetAt(0), peak);
    EXPECT_FALSE(panel->OnKey(u'U'));
    EXPECT_TRUE(panel->OnKey(u'D'));
    EXPECT_EQ(plugin.GetFilterList().GetAt(1), peak);
    EXPECT_FALSE(panel->RemoveFilter(0, false));  // the user said no
    EXPECT_TRUE(panel->OnKey(u'R'));
    EXPECT_EQ(plugin.GetFilterList().GetCount(), 1);
    EXPECT_EQ(panel->GetSelection(), -1);

    // Closing with a save pending saves.
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.GetPanel(), nullptr);
    CParametricEqualizerDSPPlugin reloaded(nullptr, 1, 0);
    ASSERT_EQ(reloaded.GetFilterList().GetCount(), 1);
    EXPECT_EQ(reloaded.GetFilterList().GetAt(0)->GetType(), 4);
}
