#include "cli/host/PluginChain.h"

#include "cli/commands/Commands.h"
#include "frame/PluginFactory.h"
#include "support/Sinks.h"

#include <gtest/gtest.h>

#include <sstream>

namespace
{

// A plug-in written for the test: scales by `gain`, optionally holding each
// block back by one call in a buffer of its own (as a stage with latency does),
// refusing formats, and describing itself with one line.
class FakePlugin final : public IQVDSP
{
public:
    FakePlugin(double gain, bool holdsBack, bool refuses, std::string line)
        : gain(gain), holdsBack(holdsBack), refuses(refuses), line(std::move(line))
    {
    }

    int32_t Process(double* samples, int32_t frames, IQVDSPSink* sink) override
    {
        testLevel = sink->GetTestLevel();
        for (int32_t i = 0; i < frames * channels; ++i)
            samples[i] *= gain;
        if (!holdsBack)
        {
            sink->Output(samples, frames);
            return 0;
        }
        std::vector<double> previous = held;
        held.assign(samples, samples + frames * channels);
        if (!previous.empty())
            sink->Output(previous.data(), static_cast<int32_t>(previous.size() / channels));
        return 0;
    }
    int32_t Flush() override { return 0; }
    int32_t SetFormat(const CAudioFormat& format) override
    {
        channels = format.channels;
        return refuses ? -1 : 0;
    }
    int32_t GetInfo(int32_t, char16_t*) override { return -1; }
    int32_t SetOption(int32_t) override { return -1; }
    int64_t Command(int32_t kind, void* arg, uint64_t*) override
    {
        if (kind != DSPCMD_DESCRIBE)
            return -1;
        if (!line.empty())
        {
            std::u16string text(line.begin(), line.end());
            static_cast<IStatusList*>(arg)->Add(text.c_str(), 0);
        }
        return 0;
    }

private:
    double gain;
    bool holdsBack;
    bool refuses;
    std::string line;
    int channels = 2;
    std::vector<double> held;

public:
    double testLevel = 0.0;
};

const std::vector<PluginEntry> CATALOG = {{0, "Equalizer", true},
                                          {4, "Tempo & Pitch", true},
                                          {10, "Parametric Equalizer 2", true},
                                          {12, "Tube Amplifier", false}};

std::vector<int32_t> IndicesOf(const std::vector<PluginEntry>& entries)
{
    std::vector<int32_t> indices;
    for (const PluginEntry& entry : entries)
        indices.push_back(entry.index);
    return indices;
}

int UsageErrorOf(const std::string& list, std::string* message)
{
    try
    {
        ResolveChain(list, CATALOG);
    }
    catch (const CliError& error)
    {
        *message = error.what();
        return error.ExitCode();
    }
    return CLI_EXIT_DONE;
}

}  // namespace

TEST(PluginChainTest, ChainTextNamesPluginsByNameInAnyCaseOrByIndex)
{
    EXPECT_TRUE(ResolveChain("", CATALOG).empty());
    EXPECT_TRUE(ResolveChain("  ", CATALOG).empty());
    EXPECT_EQ(IndicesOf(ResolveChain("tempo & pitch,EQUALIZER", CATALOG)),
              (std::vector<int32_t>{4, 0}));
    EXPECT_EQ(IndicesOf(ResolveChain(" 10 , Tube Amplifier,0,0", CATALOG)),
              (std::vector<int32_t>{10, 12, 0, 0}));
    EXPECT_FALSE(ResolveChain("tube amplifier", CATALOG).front().listed);

    std::string message;
    EXPECT_EQ(UsageErrorOf("Equalizer,Reverb", &message), CLI_EXIT_USAGE);
    EXPECT_NE(message.find("'Reverb'"), std::string::npos) << message;
    EXPECT_EQ(UsageErrorOf("7", &message), CLI_EXIT_USAGE);
    EXPECT_NE(message.find("'7'"), std::string::npos) << message;
    EXPECT_EQ(UsageErrorOf("Equalizer,,Equalizer", &message), CLI_EXIT_USAGE);
    EXPECT_EQ(UsageErrorOf("Equalizer,", &message), CLI_EXIT_USAGE);
    EXPECT_EQ(UsageErrorOf("-1", &message), CLI_EXIT_USAGE);
    EXPECT_EQ(UsageErrorOf("99999999999", &message), CLI_EXIT_USAGE);
}

TEST(PluginChainTest, BlocksRunThroughEveryStageInOrder)
{
    PluginChain chain;
    auto* first = new FakePlugin(2.0, false, false, "doubles");
    auto* last = new FakePlugin(5.0, false, false, "times five");
    chain.Append(PluginPointer(first), "First");
    chain.Append(PluginPointer(new FakePlugin(3.0, true, true, "")), "Second");
    chain.Append(PluginPointer(last), "Third");
    qvtest::CollectingSink output;
    output.testLevel = 0.25;
    chain.SetOutput(&output);

    CAudioFormat format;
    format.Set(64, 48000, 2);
    EXPECT_EQ(chain.SetFormat(format), std::vector<std::string>{"Second"});

    // The second stage holds each block back by one call, so the first push
    // reaches nothing and the last block stays inside.
    std::vector<double> blocks[3] = {{1, 2, 3, 4}, {5, 6}, {7, 8, 9, 10, 11, 12}};
    for (auto& block : blocks)
        chain.Push(block.data(), static_cast<int32_t>(block.size() / 2));
    EXPECT_EQ(output.blockFrames, (std::vector<int32_t>{2, 1}));
    EXPECT_EQ(output.samples, (std::vector<double>{30, 60, 90, 120, 150, 180}));
    // Every stage sees the output's test level through the links.
    EXPECT_EQ(first->testLevel, 0.25);
    EXPECT_EQ(last->testLevel, 0.25);

    std::ostringstream text;
    PrintDescription(chain, text, "> ");
    EXPECT_EQ(text.str(), "> First\n>   doubles\n> Second\n> Third\n>   times five\n");
}

TEST(PluginChainTest, EmptyChainHandsBlocksStraightOn)
{
    PluginChain chain;
    qvtest::CollectingSink output;
    chain.SetOutput(&output);
    std::vector<double> block = {0.25, -0.5};
    chain.Push(block.data(), 1);
    EXPECT_EQ(output.samples, block);
    EXPECT_EQ(output.pointers, std::vector<const double*>{block.data()});
}

TEST(PluginChainTest, CatalogueHoldsTheModulesPlugins)
{
    // The plug-ins the module builds today; later plug-ins extend these lists.
    CliHost host;
    std::vector<PluginEntry> listed = ListPlugins(host, 0, false);
    std::vector<PluginEntry> all = ListPlugins(host, 0, true);
    auto find = [](const std::vector<PluginEntry>& entries, int32_t index) -> const PluginEntry*
    {
        for (const PluginEntry& entry : entries)
            if (entry.index == index)
                return &entry;
        return nullptr;
    };
    ASSERT_NE(find(listed, DSPPLUGIN_VOLUME_LEVELING), nullptr);
    EXPECT_EQ(find(listed, DSPPLUGIN_VOLUME_LEVELING)->name, "Volume Leveling");
    ASSERT_NE(find(listed, DSPPLUGIN_ADAPTIVE_VOLUME), nullptr);
    EXPECT_EQ(find(listed, DSPPLUGIN_ADAPTIVE_VOLUME)->name, "Adaptive Volume");
    EXPECT_EQ(find(listed, DSPPLUGIN_TUBE_AMPLIFIER), nullptr);
    ASSERT_NE(find(all, DSPPLUGIN_TUBE_AMPLIFIER), nullptr);
    EXPECT_EQ(find(all, DSPPLUGIN_TUBE_AMPLIFIER)->name, "Tube Amplifier");
    EXPECT_FALSE(find(all, DSPPLUGIN_TUBE_AMPLIFIER)->listed);
    for (size_t i = 1; i < all.size(); ++i)
        EXPECT_LT(all[i - 1].index, all[i].index);

    // The host stands in for the player's level control.
    IQVDSPLevelControl* control = host.GetPlayer()->GetLevelControl();
    control->SetAdaptiveMode(2);
    EXPECT_EQ(control->GetAdaptiveMode(), 2);
}
