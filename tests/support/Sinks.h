// Sinks and status collectors for tests: they keep what a plug-in hands on.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qvdsp/IQVDSP.h"

namespace qvtest
{

// Keeps every sample that reaches Output, and how it arrived.
class CollectingSink : public IQVDSPSink
{
public:
    explicit CollectingSink(int32_t channels = 2) : channels(channels) {}
    virtual ~CollectingSink() = default;

    void Output(double* samples, int32_t frames) override;
    double GetTestLevel() override;

    // Channels per frame, used to know how many samples a call carries.
    void SetChannels(int32_t count) { channels = count; }
    int32_t GetChannels() const { return channels; }
    void Clear();

    std::vector<double> samples;          // everything received, interleaved
    std::vector<int32_t> blockFrames;     // frame count of each Output call, in order
    std::vector<const double*> pointers;  // buffer of each Output call
    int64_t totalFrames = 0;              // sum of the positive counts
    int32_t outputCalls = 0;
    int32_t testLevelCalls = 0;
    double testLevel = 1.0;  // what GetTestLevel answers

private:
    int32_t channels;
};

// Counts the frames it is handed and keeps none, so that it allocates nothing
// itself: the sink of steady-state allocation checks.
class FrameCountingSink final : public IQVDSPSink
{
public:
    void Output(double*, int32_t count) override { frames += count; }
    double GetTestLevel() override { return 1.0; }
    int64_t frames = 0;
};

// Leads into the next plug-in of a chain, the way a host links stages.
class PluginSink : public IQVDSPSink
{
public:
    PluginSink(IQVDSP* next, IQVDSPSink* after) : next(next), after(after) {}
    virtual ~PluginSink() = default;
    void Output(double* samples, int32_t frames) override { next->Process(samples, frames, after); }
    double GetTestLevel() override { return after->GetTestLevel(); }

private:
    IQVDSP* next;
    IQVDSPSink* after;
};

// Keeps the lines added with DSPCMD_DESCRIBE, as UTF-8.
class RecordingStatusList : public IStatusList
{
public:
    virtual ~RecordingStatusList() = default;
    void Add(const char16_t* text, int32_t flags) override;

    std::vector<std::string> lines;
    std::vector<int32_t> flags;
};

// UTF-8 of a NUL-terminated 16-bit text, for comparisons in tests.
std::string ToUtf8(const char16_t* text);

}  // namespace qvtest
