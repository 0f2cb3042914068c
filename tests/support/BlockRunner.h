// Runs a plug-in over a whole signal in blocks, the way a host would, and
// collects what it hands on. Every block is copied into a buffer of its own
// first, since plug-ins work in place.
#pragma once

#include <cstdint>
#include <vector>

#include "qvdsp/IQVDSP.h"
#include "support/Sinks.h"

namespace qvtest
{

// Blocks of `blockFrames` (the last one shorter); the output is returned.
std::vector<double> RunInBlocks(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                                int32_t blockFrames);
// The same into a given sink, to look at block counts and calls as well.
void RunInBlocks(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                 int32_t blockFrames, CollectingSink& sink);
// Blocks whose sizes follow `pattern` cyclically (for odd splits such as 1, 31, 127).
std::vector<double> RunInBlockPattern(IQVDSP& plugin, const std::vector<double>& signal,
                                      int32_t channels, const std::vector<int32_t>& pattern);
void RunInBlockPattern(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                       const std::vector<int32_t>& pattern, CollectingSink& sink);
// Into any sink, for example a PluginSink that leads into a chain.
void RunInBlocks(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                 int32_t blockFrames, IQVDSPSink& sink);
void RunInBlockPattern(IQVDSP& plugin, const std::vector<double>& signal, int32_t channels,
                       const std::vector<int32_t>& pattern, IQVDSPSink& sink);

}  // namespace qvtest
