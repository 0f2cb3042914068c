#include "support/BlockRunner.h"

#include <algorithm>

namespace qvtest
{

void RunInBlockPattern(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                       const std::vector<int32_t>& pattern, IQVDSPSink& sink)
{
    if (channels <= 0 || pattern.empty())
        return;
    const int64_t totalFrames = static_cast<int64_t>(signal.size()) / channels;
    const int32_t largest = std::max(1, *std::max_element(pattern.begin(), pattern.end()));
    std::vector<double> block(static_cast<size_t>(largest) * channels);

    int64_t frame = 0;
    size_t step = 0;
    while (frame < totalFrames)
    {
        const int32_t wanted = std::max(1, pattern[step++ % pattern.size()]);
        const int32_t frames = static_cast<int32_t>(std::min<int64_t>(wanted, totalFrames - frame));
        const auto first = signal.begin() + frame * channels;
        std::copy(first, first + static_cast<int64_t>(frames) * channels, block.begin());
        plugin.Process(block.data(), frames, &sink);
        frame += frames;
    }
}

void RunInBlockPattern(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                       const std::vector<int32_t>& pattern, CollectingSink& sink)
{
    sink.SetChannels(channels);
    RunInBlockPattern(plugin, signal, channels, pattern, static_cast<IQVDSPSink&>(sink));
}

void RunInBlocks(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                 int32_t blockFrames, IQVDSPSink& sink)
{
    RunInBlockPattern(plugin, signal, channels, {blockFrames}, sink);
}

std::vector<double> RunInBlockPattern(IQVDSP& plugin, const std::vector<double>& signal,
                                      int32_t channels, const std::vector<int32_t>& pattern)
{
    CollectingSink sink(channels);
    RunInBlockPattern(plugin, signal, channels, pattern, sink);
    return std::move(sink.samples);
}

void RunInBlocks(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                 int32_t blockFrames, CollectingSink& sink)
{
    RunInBlockPattern(plugin, signal, channels, {blockFrames}, sink);
}

std::vector<double> RunInBlocks(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                                int32_t blockFrames)
{
    return RunInBlockPattern(plugin, signal, channels, {blockFrames});
}

}  // namespace qvtest
