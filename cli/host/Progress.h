// What qvdsp tells the user while a file runs and when it is done.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

bool StandardErrorIsTerminal();

// A line on standard error that is rewritten in place, at most a few times a
// second. Disabled, it does nothing at all.
class ProgressLine
{
public:
    ProgressLine(bool enabled, int64_t totalFrames, int sampleRate);
    ~ProgressLine();

    void Update(int64_t framesDone);
    // Clears the line so that later messages start at the left margin.
    void Finish();

private:
    bool enabled;
    bool shown = false;
    int64_t totalFrames;
    int sampleRate;
    std::chrono::steady_clock::time_point lastShown;
};

struct ProcessSummary
{
    int64_t framesIn = 0;
    int64_t framesOut = 0;
    int sampleRate = 0;
    double elapsedSeconds = 0.0;
};

// "480000 frames in, 480000 frames out, 10.000 s of audio in 0.052 s, 192.3x real time"
std::string FormatSummary(const ProcessSummary& summary);
