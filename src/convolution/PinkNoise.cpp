#include "convolution/PinkNoise.h"

namespace
{

constexpr uint32_t kMultiplier = 214013;
constexpr uint32_t kIncrement = 2531011;
constexpr double kThirtyBits = 1073741823.0;  // 2^30 - 1: the largest draw
// A draw below a stage's limit refreshes that stage (the first such stage).
constexpr double kStageLimits[5] = {0.00198, 0.01478, 0.06378, 0.23378, 0.91578};
constexpr double kStageAmplitudes[5] = {3.8024, 2.9694, 2.597, 3.087, 3.4006};
constexpr double kOutputScale = 0.0171131517;  // 10^(-0.76667) x 10^(-1)

}  // namespace

double CPinkNoise::Draw()
{
    state = state * kMultiplier + kIncrement;
    const uint32_t first = (state >> 16) & 0x7FFF;
    state = state * kMultiplier + kIncrement;
    const uint32_t second = (state >> 16) & 0x7FFF;
    return static_cast<double>(first << 15 | second) / kThirtyBits;
}

double CPinkNoise::Next()
{
    const double r = Draw();
    for (int32_t stage = 0; stage < 5; ++stage)
        if (kStageLimits[stage] >= r)
        {
            contributions[stage] = 2.0 * (Draw() - 0.5) * kStageAmplitudes[stage];
            break;
        }
    double sum = 0.0;
    for (double contribution : contributions)
        sum += contribution;
    return sum * kOutputScale;
}
