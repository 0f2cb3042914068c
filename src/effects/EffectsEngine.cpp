#include "effects/EffectsEngine.h"

#include <memory>

#include "effects/EffectsPlugin.h"
#include "frame/IQVTools.h"
#include "frame/SettingsKey.h"

// damp = 0.9, 0.5, 0.7, 0.95, 0.9 x 0.4 and roomSize = 0.6, 0.9, 0.3, 0.4,
// 0.15 x 0.28 + 0.7, as single-precision arithmetic gave them.
const EffectsEnvironment CEffectsEngine::ENVIRONMENTS[ENVIRONMENT_COUNT] = {
    {u"(none)", 0.0, 0.0, 0.0},
    {u"Concert Hall", 0.36000000536441806, 0.8679999887943268, 1.2},
    {u"Arena", 0.20000000298023224, 0.9519999891519546, 1.2},
    {u"Jazz Club", 0.2800000041723251, 0.7839999884366989, 1.2},
    {u"Recording Studio", 0.38000000566244124, 0.8119999885559082, 1.4},
    {u"Living Room", 0.36000000536441806, 0.7419999882578849, 1.0},
};

const EffectsSubwoofer CEffectsEngine::SUBWOOFERS[SUBWOOFER_COUNT] = {
    {u"(none)", 0.0},          {u"6\" Subwoofer", -0.15}, {u"8\" Subwoofer", 0.0},
    {u"10\" Subwoofer", 0.15}, {u"12\" Subwoofer", 0.3},  {u"15\" Subwoofer", 0.6},
};

const EffectsSurround CEffectsEngine::SURROUNDS[SURROUND_COUNT] = {
    {u"(none)", NEUTRAL_WIDTH},       {u"Subtle enhancement", 0.625}, {u"Medium enhancement", 0.75},
    {u"Pronounced enhancement", 1.0}, {u"Maximum enhancement", 1.5},
};

void CBassEnvelope::Reset(const CAudioFormat& newFormat)
{
    if (&newFormat != &format)
        format = newFormat;
    Clear();
    // Frames by the byte rule of every delay in the module. Rates so low that
    // 2 ms round to no frame at all follow the signal at once rather than
    // divide by zero.
    const auto rateOf = [this](double ms)
    {
        const int64_t frames = std::max<int64_t>(format.FramesFromMilliseconds(ms), 1);
        return 1.0f / static_cast<float>(frames);
    };
    fastRate = rateOf(FAST_MS);
    slowRate = rateOf(SLOW_MS);
}

double CEffectsEngine::SubwooferGain(int32_t index)
{
    if (index <= 0 || index >= SUBWOOFER_COUNT)
        return 0.0;
    return std::pow(10.0, SUBWOOFERS[index].gainExponent);
}

CEffectsEngine::CEffectsEngine(CEffectsDSPPlugin* plugin) : settings(plugin) {}

void CEffectsEngine::Configure()
{
    const CDSPSettings::Values& words = settings.values;
    surroundWidth = NEUTRAL_WIDTH;
    lowPassReady = lowPass.Design(IIR_LOWPASS_48, format.sampleRate, LOWPASS_HZ, 0.0, BUTTERWORTH_Q,
                                  true, QVString());
    bassEnvelope.Reset(format);
    subwooferGain = SubwooferGain(words.virtualSubwoofer);
    headroom = 1.0 / (subwooferGain * HEADROOM_SHARE + 1.0);

    // The amount trades direct sound for reverb; below 8 the direct sound
    // comes out louder than it went in, on purpose.
    const double amount = words.reverbAmount * 0.025;
    const bool known = words.environment > 0 && words.environment < ENVIRONMENT_COUNT;
    for (CReverbModel& reverb : reverbs)
    {
        reverb.dry = (0.7 - amount) * 2.0;
        reverb.wet = amount * 3.0;
        reverb.Update();
        if (!known)
            continue;
        const EffectsEnvironment& environment = ENVIRONMENTS[words.environment];
        reverb.damp = environment.damp;
        reverb.Update();
        reverb.roomSize = environment.roomSize;
        reverb.Update();
        reverb.width = environment.width;
        reverb.Update();
    }

    if (words.surroundField > 0 && words.surroundField < SURROUND_COUNT)
        surroundWidth = SURROUNDS[words.surroundField].width;
    ReadEffectsOn();
}

void CEffectsEngine::ReadEffectsOn()
{
    IQVTools* tools = GetQVTools();
    if (tools == nullptr)
        return;
    std::unique_ptr<IQVSettingsKey> key(
        tools->GetPluginKeyObject(QVString(CDSPSettings::LEGACY_KEY), false));
    if (!key)
        return;
    const int32_t zone = settings.plugin != nullptr ? settings.plugin->zone : QVZONE_GLOBAL;
    effectsOn = key->ReadInt(ON_VALUE, effectsOn ? 1 : 0, zone == QVZONE_GLOBAL ? 0 : zone) != 0;
}

void CEffectsEngine::Flush()
{
    for (CReverbModel& reverb : reverbs)
        reverb.Mute();
    std::fill(std::begin(lowPass.state), std::end(lowPass.state), 0.0);
    bassEnvelope.Clear();
}

CEffectsEngine::Steps CEffectsEngine::CurrentSteps() const
{
    const CDSPSettings::Values& words = settings.values;
    return {words.virtualSubwoofer != 0, words.surroundField != 0,
            words.environment != 0 && words.reverbAmount != 0};
}

template <int32_t Channels>
inline void CEffectsEngine::RunFrame(double* frame, Steps steps)
{
    if (steps.subwoofer)
    {
        if (lowPassReady)
        {
            // With a subwoofer channel only that channel gets the bass;
            // otherwise the mid of the front pair feeds both.
            double* const target = Channels <= 4 ? frame : frame + 3;
            const double source = Channels <= 4 ? (frame[0] + frame[1]) * 0.5 : frame[3];
            const float bass = static_cast<float>(lowPass.Process(source));
            const double boost = static_cast<double>(bassEnvelope.Process(bass)) * subwooferGain;
            target[0] += boost;
            if (Channels <= 4)
                target[1] += boost;
        }
        if (headroom < 1.0)
        {
            for (int32_t c = 0; c < Channels; ++c)
                frame[c] *= headroom;
        }
    }
    if (steps.surround)
    {
        const double width = surroundWidth;
        const auto widen = [width](double& a, double& b)
        {
            const double difference = a - b;
            const double mid = (a + b) * 0.5;
            a = difference * width + mid;
            b = mid - difference * width;
        };
        widen(frame[0], frame[1]);
        if constexpr (Channels == 4)
            widen(frame[2], frame[3]);
        if constexpr (Channels >= 6)
            widen(frame[4], frame[5]);
        if constexpr (Channels == 8)
            widen(frame[6], frame[7]);
    }
    if (steps.reverb)
    {
        reverbs[0].Process(frame[0], frame[1]);
        if constexpr (Channels == 4)
            reverbs[1].Process(frame[2], frame[3]);
        if constexpr (Channels >= 6)
        {
            // The centre runs as a mono pair of which only the left side is
            // kept; the subwoofer channel gets no reverb.
            double centre = frame[2];
            double dropped = frame[2];
            reverbs[1].Process(centre, dropped);
            frame[2] = centre;
            reverbs[2].Process(frame[4], frame[5]);
        }
        if constexpr (Channels == 8)
            reverbs[3].Process(frame[6], frame[7]);
    }
}

template <int32_t Channels>
void CEffectsEngine::ProcessFrames(double* samples, int32_t frames, Steps steps)
{
    for (int32_t f = 0; f < frames; ++f)
        RunFrame<Channels>(samples + static_cast<int64_t>(f) * Channels, steps);
}

void CEffectsEngine::ProcessMono(double* samples, int32_t frames, Steps steps)
{
    for (int32_t f = 0; f < frames; ++f)
    {
        double pair[2] = {samples[f], samples[f]};
        RunFrame<2>(pair, steps);
        samples[f] = (pair[0] + pair[1]) * 0.5;
    }
}

void CEffectsEngine::Process(double* samples, int32_t frames)
{
    const Steps steps = CurrentSteps();
    switch (format.channels)
    {
    case 1: ProcessMono(samples, frames, steps); break;
    case 2: ProcessFrames<2>(samples, frames, steps); break;
    case 4: ProcessFrames<4>(samples, frames, steps); break;
    case 6: ProcessFrames<6>(samples, frames, steps); break;
    case 8: ProcessFrames<8>(samples, frames, steps); break;
    default: break;
    }
}

void CEffectsEngine::ProcessFrame(double* frame, int32_t channels)
{
    const Steps steps = CurrentSteps();
    switch (channels)
    {
    case 2: RunFrame<2>(frame, steps); break;
    case 4: RunFrame<4>(frame, steps); break;
    case 6: RunFrame<6>(frame, steps); break;
    case 8: RunFrame<8>(frame, steps); break;
    default: break;
    }
}
