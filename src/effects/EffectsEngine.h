// The audio side of the Effects plug-in: per frame a virtual subwoofer, a
// surround field and a reverb, in that order, each switched by one word of the
// settings record. The engine is one object of a little over 800 kB, all delay
// lines included, made once with the plug-in: nothing is allocated when the
// format changes or a block runs.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "effects/ReverbModel.h"
#include "filters/IIRFilter.h"
#include "frame/DSPSettings.h"
#include "qvdsp/AudioFormat.h"

class CEffectsDSPPlugin;

struct EffectsEnvironment
{
    const char16_t* name;
    // As stored: the room and damping scales taken through single precision.
    double damp;
    double roomSize;
    double width;
};

struct EffectsSubwoofer
{
    const char16_t* name;
    double gainExponent;  // subwooferGain = 10^gainExponent; the first entry is off
};

struct EffectsSurround
{
    const char16_t* name;
    double width;
};

// Lets the attacks of the deep bass through and holds its steady part back:
// a 2 ms level against a 200 ms level, all in single precision.
class CBassEnvelope
{
public:
    static constexpr double FAST_MS = 2.0;
    static constexpr double SLOW_MS = 200.0;
    static constexpr float STEADY_GAIN = 0.2f;
    static constexpr float ATTACK_SLOPE = 0.85f;

    // Takes the format's rate and starts from silence.
    void Reset(const CAudioFormat& newFormat);
    // Starts from silence at the same rate.
    void Clear() { fastLevel = slowLevel = 0.0f; }

    float Process(float x)
    {
        const float level = std::fabs(x);
        fastLevel = fastLevel + (level - fastLevel) * fastRate;
        slowLevel = slowLevel + (level - slowLevel) * slowRate;
        const float ratio = slowLevel > 0.0f ? fastLevel / slowLevel : 1.0f;
        const float gain =
            std::clamp((ratio - 1.0f) * ATTACK_SLOPE + STEADY_GAIN, STEADY_GAIN, 1.0f);
        return gain * x;
    }

    CAudioFormat format;
    float fastLevel = 0.0f;
    float slowLevel = 0.0f;
    float fastRate = 1.0f;
    float slowRate = 1.0f;
};

class CEffectsEngine
{
public:
    static constexpr int32_t ENVIRONMENT_COUNT = 6;
    static constexpr int32_t SUBWOOFER_COUNT = 6;
    static constexpr int32_t SURROUND_COUNT = 5;
    static const EffectsEnvironment ENVIRONMENTS[ENVIRONMENT_COUNT];
    static const EffectsSubwoofer SUBWOOFERS[SUBWOOFER_COUNT];
    static const EffectsSurround SURROUNDS[SURROUND_COUNT];
    static constexpr int32_t MIN_REVERB_AMOUNT = 1;
    static constexpr int32_t MAX_REVERB_AMOUNT = 10;
    static constexpr int32_t REVERB_COUNT = 4;

    static constexpr double LOWPASS_HZ = 65.0;
    static constexpr double BUTTERWORTH_Q = 0.7071067811865476;
    // How much of the subwoofer gain is taken off every channel, bass or not,
    // so that the boost has room.
    static constexpr double HEADROOM_SHARE = 0.55;
    // The width at which the surround field leaves the sides as they are.
    static constexpr double NEUTRAL_WIDTH = 0.5;
    // The value of the old flat key in which the player keeps, per zone,
    // whether it runs the plug-in.
    static constexpr const char16_t* ON_VALUE = u"Effects - On";

    // The subwoofer gain of a table index; 0 for off and for indices the table lacks.
    static double SubwooferGain(int32_t index);

    explicit CEffectsEngine(CEffectsDSPPlugin* plugin);
    CEffectsEngine(const CEffectsEngine&) = delete;
    CEffectsEngine& operator=(const CEffectsEngine&) = delete;

    // Derives everything from the settings and the format. Keeps the reverb's
    // delay lines, so that a tail rings on through a change of environment,
    // but starts the bass envelope anew.
    void Configure();
    // Drops all held sound: delay lines, the low-pass's state, the envelope.
    void Flush();

    // Runs a block of `format.channels` channels in place. Mono runs as a
    // stereo frame of two equal samples and keeps their mean.
    void Process(double* samples, int32_t frames);
    // One frame of 2, 4, 6 or 8 channels in place.
    void ProcessFrame(double* frame, int32_t channels);

    CAudioFormat format;
    CIIRFilter lowPass;
    CBassEnvelope bassEnvelope;
    double subwooferGain = 0.0;
    CReverbModel reverbs[REVERB_COUNT];
    double surroundWidth = NEUTRAL_WIDTH;
    bool effectsOn = false;  // the player's switch; only kept here
    CDSPSettings settings;

private:
    // Which steps a block runs, read once per block from the settings.
    struct Steps
    {
        bool subwoofer;
        bool surround;
        bool reverb;
    };

    Steps CurrentSteps() const;
    template <int32_t Channels>
    void ProcessFrames(double* samples, int32_t frames, Steps steps);
    void ProcessMono(double* samples, int32_t frames, Steps steps);
    template <int32_t Channels>
    void RunFrame(double* frame, Steps steps);
    void ReadEffectsOn();

    // 1 / (subwooferGain x 0.55 + 1), kept with the gain.
    double headroom = 1.0;
    // False when the low-pass can't be designed for the rate: the bass step
    // then adds nothing.
    bool lowPassReady = false;
};
