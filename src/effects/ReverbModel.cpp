#include "effects/ReverbModel.h"

#include <algorithm>

namespace
{

constexpr int32_t SumOfLengths()
{
    int32_t total = 0;
    for (int32_t side = 0; side < 2; ++side)
    {
        for (int32_t length : CReverbModel::COMB_LENGTHS[side])
            total += length;
        for (int32_t length : CReverbModel::ALLPASS_LENGTHS[side])
            total += length;
    }
    return total;
}
static_assert(SumOfLengths() == CReverbModel::BUFFER_LENGTH);

}  // namespace

CReverbModel::CReverbModel()
{
    double* next = buffers;
    for (int32_t side = 0; side < 2; ++side)
    {
        for (int32_t i = 0; i < COMB_COUNT; ++i)
        {
            combs[side][i].buffer = next;
            combs[side][i].size = COMB_LENGTHS[side][i];
            next += COMB_LENGTHS[side][i];
        }
        for (int32_t i = 0; i < ALLPASS_COUNT; ++i)
        {
            allPasses[side][i].buffer = next;
            allPasses[side][i].size = ALLPASS_LENGTHS[side][i];
            allPasses[side][i].feedback = ALLPASS_FEEDBACK;
            next += ALLPASS_LENGTHS[side][i];
        }
    }
    Update();
    Mute();  // a new model is never frozen, so this clears every line
}

void CReverbModel::Update()
{
    // A width above 1 turns wet2 negative: the sides are then mixed in
    // opposite phase, which widens the room further.
    wet1 = (width * 0.5 + 0.5) * wet;
    wet2 = (1.0 - width) * 0.5 * wet;
    double dampValue = damp;
    if (IsFrozen())
    {
        feedback = 1.0;
        dampValue = 0.0;
        gain = 0.0;
    }
    else
    {
        feedback = roomSize;
        gain = FIXED_GAIN;
    }
    damp1 = dampValue;
    for (auto& side : combs)
    {
        for (Comb& comb : side)
        {
            comb.feedback = feedback;
            comb.damp1 = dampValue;
            comb.damp2 = 1.0 - dampValue;
        }
    }
}

void CReverbModel::Mute()
{
    if (IsFrozen())
        return;
    for (auto& side : combs)
    {
        for (Comb& comb : side)
            std::fill(comb.buffer, comb.buffer + comb.size, 0.0);
    }
    for (auto& side : allPasses)
    {
        for (AllPass& allPass : side)
            std::fill(allPass.buffer, allPass.buffer + allPass.size, 0.0);
    }
}
