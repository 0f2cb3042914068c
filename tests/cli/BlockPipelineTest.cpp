#include "cli/host/BlockPipeline.h"

#include <gtest/gtest.h>

#include <chrono>
#include <stdexcept>
#include <thread>
#include <vector>

namespace
{

constexpr int32_t kChannels = 3;

// Sample i of the stream: distinct for every position, so any lost, repeated
// or reordered sample shows.
double SampleAt(int64_t index)
{
    return static_cast<double>(index) * 0.5 + 1.0;
}

// Hands out `total` frames, at most `limit` at a time, and throws at `failAt`
// calls if asked to.
struct CountingSource
{
    int64_t total;
    int64_t limit;
    int32_t failAt = -1;
    int64_t position = 0;
    int32_t calls = 0;

    int64_t operator()(double* samples, int64_t frames)
    {
        if (calls++ == failAt)
            throw std::runtime_error("disk gone");
        const int64_t count = std::min({frames, limit, total - position});
        for (int64_t i = 0; i < count * kChannels; ++i)
            samples[i] = SampleAt(position * kChannels + i);
        position += count;
        return count;
    }
};

}  // namespace

TEST(BlockPipelineTest, ReadAheadHandsOnTheSourceBlocksInOrderUnchanged)
{
    for (int32_t depth : {1, 2, 4})
    {
        for (int64_t blockFrames : {int64_t{1}, int64_t{7}, int64_t{4096}})
        {
            const int64_t last = (blockFrames + 1) / 2;
            const int64_t total = 3 * blockFrames + last;
            // Chunks of one and of two blocks; a source that gives a few
            // frames at a time still makes whole blocks.
            for (int64_t chunkBlocks : {1, 2})
            {
                const int64_t sourceLimit = std::max<int64_t>(1, blockFrames / 3);
                ReadAhead reader(CountingSource{total, sourceLimit}, blockFrames, kChannels, depth,
                                 chunkBlocks * blockFrames);
                int64_t position = 0;
                std::vector<int64_t> sizes;
                while (FrameSpan block = reader.Next())
                {
                    sizes.push_back(block.frames);
                    for (int64_t i = 0; i < block.frames * kChannels; ++i)
                        ASSERT_EQ(block.samples[i], SampleAt(position * kChannels + i));
                    position += block.frames;
                    block.samples[0] = -1.0;  // the chain works in place
                }
                EXPECT_EQ(position, total);
                const std::vector<int64_t> expected{blockFrames, blockFrames, blockFrames, last};
                EXPECT_EQ(sizes, expected) << "depth " << depth << ", block " << blockFrames;
                EXPECT_FALSE(reader.Next());
            }
        }
    }
}

TEST(BlockPipelineTest, ReadErrorArrivesInPlaceOfItsBlock)
{
    CountingSource source{1000, 10};
    source.failAt = 3;
    ReadAhead reader(source, 10, kChannels);
    for (int i = 0; i < 3; ++i)
        ASSERT_TRUE(reader.Next()) << "frames read before the failure were lost";
    try
    {
        reader.Next();
        FAIL() << "the read error was lost";
    }
    catch (const std::runtime_error& error)
    {
        EXPECT_STREQ(error.what(), "disk gone");
    }
}

TEST(BlockPipelineTest, ReaderAbandonedMidStreamStopsAtOnce)
{
    // An endless source and a consumer that stops after one block, as an
    // interrupted run does: the thread waiting for room must end.
    const auto started = std::chrono::steady_clock::now();
    {
        ReadAhead reader(CountingSource{INT64_MAX / 8, 64}, 64, kChannels, 2);
        ASSERT_TRUE(reader.Next());
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(2));
}

TEST(BlockPipelineTest, WriteBehindWritesEverythingInOrderWhateverTheSizes)
{
    std::vector<double> written;
    std::vector<int64_t> writes;
    {
        WriteBehind writer(
            [&](const double* samples, int64_t frames)
            {
                written.insert(written.end(), samples, samples + frames * kChannels);
                writes.push_back(frames);
            },
            5, kChannels, 2);
        int64_t position = 0;
        for (int64_t frames : {3, 5, 0, 12, 1, 5})
        {
            std::vector<double> samples(static_cast<size_t>(frames * kChannels));
            for (int64_t i = 0; i < frames * kChannels; ++i)
                samples[i] = SampleAt(position * kChannels + i);
            writer.Write(samples.data(), frames);
            std::fill(samples.begin(), samples.end(), -1.0);  // the chain reuses its buffer
            position += frames;
        }
        writer.Finish();
        ASSERT_EQ(written.size(), static_cast<size_t>(position * kChannels));
    }
    for (size_t i = 0; i < written.size(); ++i)
        ASSERT_EQ(written[i], SampleAt(static_cast<int64_t>(i)));
    // Whatever the chain's cuts, the writer gets whole pieces and a short last one.
    const std::vector<int64_t> expected{5, 5, 5, 5, 5, 1};
    EXPECT_EQ(writes, expected);
}

TEST(BlockPipelineTest, WriteErrorReachesTheProducerAndLaterOutputIsDropped)
{
    int32_t calls = 0;
    WriteBehind writer(
        [&](const double*, int64_t)
        {
            if (++calls == 2)
                throw std::runtime_error("disk full");
        },
        4, kChannels, 2);
    const std::vector<double> block(4 * kChannels, 0.25);
    bool raised = false;
    try
    {
        for (int i = 0; i < 1000; ++i)
            writer.Write(block.data(), 4);
        writer.Finish();
    }
    catch (const std::runtime_error& error)
    {
        raised = true;
        EXPECT_STREQ(error.what(), "disk full");
    }
    EXPECT_TRUE(raised);
    EXPECT_THROW(writer.Finish(), std::runtime_error);
    EXPECT_EQ(calls, 2);
}
