// What every plug-in benchmark does the same way: a block of noise, a sink
// that keeps the output alive, and a loop that pushes a fresh copy of the
// block through the plug-in, counted as real time.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "qvdsp/IQVDSP.h"

class DiscardingSink : public IQVDSPSink
{
public:
    void Output(double* samples, int32_t) override { benchmark::DoNotOptimize(samples); }
};

// Uniform noise in [-0.5, 0.5), the same for every run.
std::vector<double> NoiseBlock(int32_t frames, int32_t channels);

// Pushes `source` through `plugin` once per iteration and sets the counter
// "x realtime"; returns the frames pushed. A fresh copy each time keeps the
// level steady and far from denormal numbers; it is small beside the work of
// the plug-ins measured with it.
double RunPluginBlocks(benchmark::State& state, IQVDSP& plugin, const std::vector<double>& source,
                       int32_t frames, int32_t sampleRate);
