// RMS and peak of each channel of an interleaved signal, gathered block by block.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class SignalLevels
{
public:
    explicit SignalLevels(int channels);

    void Add(const double* samples, int64_t frames);

    int Channels() const { return static_cast<int>(sumOfSquares.size()); }
    int64_t Frames() const { return frames; }
    double Rms(int channel) const;
    double Peak(int channel) const { return peaks[channel]; }

private:
    std::vector<double> sumOfSquares;
    std::vector<double> peaks;
    int64_t frames = 0;
};

// Level relative to full scale 1.0, e.g. "-6.02 dBFS"; silence is "-inf dBFS".
std::string FormatDbfs(double linear);
