// The reverb of the Effects plug-in: per side eight damped comb filters in
// parallel and four all-pass filters in series, fed by the mix of both sides.
// The delay lengths are fixed sample counts, not times: at a higher rate the
// room is smaller, and that is the intended sound. All delay lines live inside
// the object, so that a model never allocates.
#pragma once

#include <cstdint>

class CReverbModel
{
public:
    static constexpr int32_t COMB_COUNT = 8;
    static constexpr int32_t ALLPASS_COUNT = 4;
    static constexpr int32_t COMB_LENGTHS[2][COMB_COUNT] = {
        {1116, 1188, 1277, 1356, 1422, 1491, 1557, 1617},
        {1139, 1211, 1300, 1379, 1445, 1514, 1580, 1640}};
    // In the order the signal passes them.
    static constexpr int32_t ALLPASS_LENGTHS[2][ALLPASS_COUNT] = {{556, 441, 341, 225},
                                                                  {579, 464, 364, 248}};
    static constexpr int32_t BUFFER_LENGTH = 25450;  // the sum of all lengths above

    // The usual room and damping scales taken through single precision, as the
    // values were first computed: 0.84, 0.2 and 0.015 as floats.
    static constexpr double INITIAL_ROOM_SIZE = 0.8399999886751175;
    static constexpr double INITIAL_DAMP = 0.20000000298023224;
    static constexpr double FIXED_GAIN = 0.014999999664723873;
    static constexpr double ALLPASS_FEEDBACK = 0.5;

    // A delay line whose output, low-passed by the damping, is fed back.
    struct Comb
    {
        double feedback = 0.0;
        double filterStore = 0.0;
        double damp1 = 0.0;
        double damp2 = 0.0;
        double* buffer = nullptr;
        int32_t size = 0;
        int32_t index = 0;

        double Process(double input)
        {
            const double output = buffer[index];
            filterStore = output * damp2 + filterStore * damp1;
            buffer[index] = input + filterStore * feedback;
            if (++index >= size)
                index = 0;
            return output;
        }
    };

    // Schroeder's all-pass in its cheap form, which is all-pass only at a
    // feedback of 0.5; it diffuses the combs' echoes.
    struct AllPass
    {
        double feedback = 0.0;
        double* buffer = nullptr;
        int32_t size = 0;
        int32_t index = 0;

        double Process(double input)
        {
            const double delayed = buffer[index];
            const double output = delayed - input;
            buffer[index] = input + delayed * feedback;
            if (++index >= size)
                index = 0;
            return output;
        }
    };

    CReverbModel();
    CReverbModel(const CReverbModel&) = delete;
    CReverbModel& operator=(const CReverbModel&) = delete;

    // Derives the wet gains and the comb coefficients from the parameters.
    void Update();
    // Silences all delay lines, except in the frozen mode; the comb filters'
    // own state and all read positions stay.
    void Mute();

    // One frame in place: the reverb of both inputs' sum, mixed with the dry
    // signal and spread by the width.
    void Process(double& left, double& right)
    {
        const double input = (left + right) * gain;
        double outL = 0.0;
        double outR = 0.0;
        for (int32_t i = 0; i < COMB_COUNT; ++i)
        {
            outL += combs[0][i].Process(input);
            outR += combs[1][i].Process(input);
        }
        for (int32_t i = 0; i < ALLPASS_COUNT; ++i)
        {
            outL = allPasses[0][i].Process(outL);
            outR = allPasses[1][i].Process(outR);
        }
        const double dryLeft = left;
        const double dryRight = right;
        left = outL * wet1 + outR * wet2 + dryLeft * dry;
        right = outR * wet1 + outL * wet2 + dryRight * dry;
    }

    bool IsFrozen() const { return mode >= 0.5; }

    double gain = 0.0;
    double roomSize = INITIAL_ROOM_SIZE;
    double feedback = 0.0;
    double damp = INITIAL_DAMP;
    double damp1 = 0.0;
    double wet = 1.0;
    double wet1 = 0.0;
    double wet2 = 0.0;
    double dry = 0.0;
    double width = 1.0;
    double mode = 0.0;                    // 0.5 and above: a frozen room that rings for ever
    Comb combs[2][COMB_COUNT];            // left, right
    AllPass allPasses[2][ALLPASS_COUNT];  // left, right

private:
    double buffers[BUFFER_LENGTH];
};
