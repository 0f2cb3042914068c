#include "cli/host/Progress.h"

#include <unistd.h>

#include <cstdio>

bool StandardErrorIsTerminal()
{
    return isatty(STDERR_FILENO) == 1;
}

ProgressLine::ProgressLine(bool enabled, int64_t totalFrames, int sampleRate)
    : enabled(enabled), totalFrames(totalFrames), sampleRate(sampleRate > 0 ? sampleRate : 1)
{
}

ProgressLine::~ProgressLine()
{
    Finish();
}

void ProgressLine::Update(int64_t framesDone)
{
    if (!enabled)
        return;
    auto now = std::chrono::steady_clock::now();
    if (shown && now - lastShown < std::chrono::milliseconds(200))
        return;
    lastShown = now;
    shown = true;
    double seconds = static_cast<double>(framesDone) / sampleRate;
    if (totalFrames > 0)
    {
        double percent = 100.0 * static_cast<double>(framesDone) / static_cast<double>(totalFrames);
        std::fprintf(stderr, "\r%5.1f%%  %.1f of %.1f s", percent, seconds,
                     static_cast<double>(totalFrames) / sampleRate);
    }
    else
    {
        std::fprintf(stderr, "\r%.1f s", seconds);
    }
    std::fflush(stderr);
}

void ProgressLine::Finish()
{
    if (!shown)
        return;
    // Erase to the end of the line: the terminal is known to understand it.
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    shown = false;
}

std::string FormatSummary(const ProcessSummary& summary)
{
    double audioSeconds =
        summary.sampleRate > 0 ? static_cast<double>(summary.framesIn) / summary.sampleRate : 0.0;
    char text[160];
    int length = std::snprintf(
        text, sizeof(text), "%lld frames in, %lld frames out, %.3f s of audio in %.3f s",
        static_cast<long long>(summary.framesIn), static_cast<long long>(summary.framesOut),
        audioSeconds, summary.elapsedSeconds);
    std::string line(text, length);
    if (summary.elapsedSeconds > 0.0)
    {
        std::snprintf(text, sizeof(text), ", %.1fx real time",
                      audioSeconds / summary.elapsedSeconds);
        line += text;
    }
    return line;
}
