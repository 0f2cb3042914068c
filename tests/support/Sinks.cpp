#include "support/Sinks.h"

#include "core/QVString.h"

namespace qvtest
{

void CollectingSink::Output(double* samples, int32_t frames)
{
    ++outputCalls;
    blockFrames.push_back(frames);
    pointers.push_back(samples);
    if (frames <= 0 || samples == nullptr)
        return;
    totalFrames += frames;
    const size_t count = static_cast<size_t>(frames) * static_cast<size_t>(channels);
    this->samples.insert(this->samples.end(), samples, samples + count);
}

double CollectingSink::GetTestLevel()
{
    ++testLevelCalls;
    return testLevel;
}

void CollectingSink::Clear()
{
    samples.clear();
    blockFrames.clear();
    pointers.clear();
    totalFrames = 0;
    outputCalls = 0;
    testLevelCalls = 0;
}

void RecordingStatusList::Add(const char16_t* text, int32_t lineFlags)
{
    lines.push_back(ToUtf8(text));
    flags.push_back(lineFlags);
}

std::string ToUtf8(const char16_t* text)
{
    return QVString(text).ToUTF8();
}

}  // namespace qvtest
