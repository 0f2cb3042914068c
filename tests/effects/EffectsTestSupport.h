// Helpers of the Effects tests: a plug-in set to chosen words, and plain
// references of the reverb and the bass envelope written from their formulas,
// with delay lines as vectors and nothing shared with the module's code.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include "effects/EffectsPlugin.h"
#include "support/TestSupport.h"

namespace fxtest
{

struct Words
{
    int32_t environment = 0;
    int32_t amount = 4;
    int32_t subwoofer = 0;
    int32_t surround = 0;
};

// A plug-in of no zone (it never writes to a store) with these words, set to
// a 64-bit float format of `channels` at `rate`.
inline std::unique_ptr<CEffectsDSPPlugin> MakePlugin(const Words& words, int32_t channels,
                                                     uint32_t rate = 44100)
{
    auto plugin = std::make_unique<CEffectsDSPPlugin>(nullptr, DSP_ZONE_GLOBAL);
    CDSPSettings::Values& values = plugin->GetSettings().values;
    values.environment = words.environment;
    values.reverbAmount = words.amount;
    values.virtualSubwoofer = words.subwoofer;
    values.surroundField = words.surround;
    plugin->SetFormat(CAudioFormat(64, rate, static_cast<uint16_t>(channels)));
    return plugin;
}

// Environment parameters as the table gives them, by index 1 to 5.
struct Room
{
    double damp;
    double roomSize;
    double width;
};
inline const Room ROOMS[6] = {{0, 0, 0},
                              {0.36000000536441806, 0.8679999887943268, 1.2},
                              {0.20000000298023224, 0.9519999891519546, 1.2},
                              {0.2800000041723251, 0.7839999884366989, 1.2},
                              {0.38000000566244124, 0.8119999885559082, 1.4},
                              {0.36000000536441806, 0.7419999882578849, 1.0}};

// A delay line of n samples as a plain queue: the sample read is the one
// written n calls before.
class Line
{
public:
    explicit Line(int32_t length) : samples(static_cast<size_t>(length), 0.0) {}
    double Oldest() const { return samples[position]; }
    void Replace(double value)
    {
        samples[position] = value;
        position = (position + 1) % samples.size();
    }

private:
    std::vector<double> samples;
    size_t position = 0;
};

// Eight damped combs and four all-passes per side, with the fixed lengths.
class ReferenceReverb
{
public:
    ReferenceReverb(const Room& room, int32_t amount)
    {
        const int32_t combLengths[8] = {1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617};
        const int32_t allPassLengths[4] = {556, 441, 341, 225};
        const int32_t rightSpread = 23;
        for (int32_t side = 0; side < 2; ++side)
        {
            for (int32_t length : combLengths)
                combs[side].emplace_back(length + side * rightSpread);
            for (int32_t length : allPassLengths)
                allPasses[side].emplace_back(length + side * rightSpread);
        }
        const double a = amount * 0.025;
        dry = (0.7 - a) * 2.0;
        const double wet = a * 3.0;
        wet1 = (room.width * 0.5 + 0.5) * wet;
        wet2 = (1.0 - room.width) * 0.5 * wet;
        feedback = room.roomSize;
        damp = room.damp;
    }

    void Process(double& left, double& right)
    {
        const double input = (left + right) * 0.014999999664723873;
        double out[2] = {0.0, 0.0};
        for (size_t i = 0; i < 8; ++i)
        {
            for (int32_t side = 0; side < 2; ++side)
            {
                Line& line = combs[side][i];
                const double o = line.Oldest();
                store[side][i] = o * (1.0 - damp) + store[side][i] * damp;
                line.Replace(input + store[side][i] * feedback);
                out[side] += o;
            }
        }
        for (int32_t side = 0; side < 2; ++side)
        {
            for (Line& line : allPasses[side])
            {
                const double b = line.Oldest();
                line.Replace(out[side] + b * 0.5);
                out[side] = b - out[side];
            }
        }
        const double l = left;
        const double r = right;
        left = out[0] * wet1 + out[1] * wet2 + l * dry;
        right = out[1] * wet1 + out[0] * wet2 + r * dry;
    }

    double dry;
    double wet1;
    double wet2;

private:
    std::vector<Line> combs[2];
    std::vector<Line> allPasses[2];
    double store[2][8] = {};
    double feedback;
    double damp;
};

// The bass envelope in single precision, with rates 1 / frames.
class ReferenceEnvelope
{
public:
    ReferenceEnvelope(int64_t fastFrames, int64_t slowFrames)
        : fastRate(1.0f / static_cast<float>(fastFrames)),
          slowRate(1.0f / static_cast<float>(slowFrames))
    {
    }
    float operator()(float x)
    {
        fast += (std::fabs(x) - fast) * fastRate;
        slow += (std::fabs(x) - slow) * slowRate;
        const float r = slow > 0.0f ? fast / slow : 1.0f;
        float v = (r - 1.0f) * 0.85f + 0.2f;
        v = std::min(std::max(v, 0.2f), 1.0f);
        return v * x;
    }

private:
    float fast = 0.0f;
    float slow = 0.0f;
    float fastRate;
    float slowRate;
};

// Runs a whole signal through the plug-in in one block.
inline std::vector<double> RunWhole(CEffectsDSPPlugin& plugin, const std::vector<double>& signal,
                                    int32_t channels)
{
    return qvtest::RunInBlocks(
        plugin, signal, channels,
        std::max<int32_t>(1, static_cast<int32_t>(signal.size()) / channels));
}

}  // namespace fxtest
