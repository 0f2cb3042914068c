// Runs one audio file through a plug-in chain into another file: the work of
// `qvdsp process`, and of `qvdsp demo` after it has written its signal.
#pragma once

#include "cli/host/Progress.h"
#include "cli/host/SoundFile.h"

#include <cstdint>
#include <filesystem>

class PluginChain;

struct ProcessRequest
{
    std::filesystem::path input;
    std::filesystem::path output;
    int32_t blockFrames = 4096;
    SampleFormat format = SampleFormat::Same;
    bool showProgress = false;
    // The file's frames only, and everything the chain emits for them, as a
    // player would play them; otherwise the output is latency-aligned.
    bool raw = false;
};

// The chain gets the 64-bit float format of the input's rate and channels; a
// plug-in that refuses it is reported once on standard error and stays in the
// chain. Unless `raw`, the output lines up with the input frame for frame and
// has its length at the chain's speed (LatencyAlignment). OUTPUT is written beside itself and
// renamed only when complete. Throws CliError: usage for OUTPUT naming INPUT's file or a format the
// output cannot hold, failed for files that cannot be read or written.
ProcessSummary ProcessFile(const ProcessRequest& request, PluginChain& chain);

// Writes an interleaved signal to a file in one go, by the same safe route.
void WriteSoundFile(const std::filesystem::path& path, const SoundFileLayout& layout,
                    const double* samples, int64_t frames);
