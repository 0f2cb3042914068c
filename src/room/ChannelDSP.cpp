#include "room/ChannelDSP.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "frame/SettingsKey.h"

namespace
{

constexpr double kButterworthQ = 0.7071067811865476;

// A gain this close to unity is left out: the multiply would change nothing
// audible, and a speaker at 0 dB then passes its samples untouched.
constexpr double kUnityTolerance = 0.01;

CZoneSettingsKey OpenSpeakerKey(int32_t zone)
{
    return CZoneSettingsKey(zone, QVString(CChannelDSP::SETTINGS_SUBKEY),
                            QVString(CChannelDSP::SETTINGS_LEGACY_KEY), QVString());
}

// A missing or unknown slope is the shallowest high-pass...
IIRFilterKind HighPassKind(int32_t slope)
{
    switch (slope)
    {
    case 48: return IIR_HIGHPASS_48;
    case 36: return IIR_HIGHPASS_36;
    case 24: return IIR_HIGHPASS_24;
    default: return IIR_HIGHPASS_12;
    }
}

// ...but the steepest low-pass, so that what reaches the subwoofer stays bass.
IIRFilterKind LowPassKind(int32_t slope)
{
    switch (slope)
    {
    case 12: return IIR_LOWPASS_12;
    case 24: return IIR_LOWPASS_24;
    case 36: return IIR_LOWPASS_36;
    default: return IIR_LOWPASS_48;
    }
}

int32_t FramesFor(const CAudioFormat& format, double milliseconds)
{
    const int64_t frames = format.FramesFromMilliseconds(milliseconds);
    return static_cast<int32_t>(std::clamp<int64_t>(frames, 0, INT32_MAX - 1));
}

}  // namespace

CChannelDSP::EChannelSets CChannelDSP::GetChannelSet(int32_t speaker)
{
    switch (speaker)
    {
    case 0:
    case 1: return CHANNELSET_FRONT;
    case 4:
    case 5: return CHANNELSET_SURROUND;
    case 6:
    case 7: return CHANNELSET_REAR;
    default: return CHANNELSET_NONE;
    }
}

QVString CChannelDSP::SettingName(int32_t speaker, const char16_t* key)
{
    return QVString::Format(u"Channel %d - %s", {speaker, key});
}

CChannelDSP::CChannelDSP(int32_t speaker, int32_t settingsZone)
    : channel(speaker), zone(settingsZone)
{
    LoadSettings();
}

void CChannelDSP::LoadSettings()
{
    CZoneSettingsKey key = OpenSpeakerKey(zone);
    levelDB = key.ReadDouble(SettingName(channel, KEY_LEVEL), levelDB);
    distanceFeet = key.ReadDouble(SettingName(channel, KEY_DISTANCE), distanceFeet);
    reversePolarity = key.ReadInt(SettingName(channel, KEY_POLARITY), reversePolarity ? 1 : 0) != 0;
    highPassFrequency =
        key.ReadInt(SettingName(channel, KEY_HIGHPASS_FREQUENCY), highPassFrequency);
    highPassSlope = key.ReadInt(SettingName(channel, KEY_HIGHPASS_SLOPE), highPassSlope);
    lowPassSlope = key.ReadInt(SettingName(channel, KEY_LOWPASS_SLOPE), lowPassSlope);
    removedBassRouting = key.ReadInt(SettingName(channel, KEY_ROUTING), removedBassRouting);
    // Text that reads as no number, or as one no panel could have written,
    // falls back rather than reaching the audio path.
    if (!std::isfinite(levelDB))
        levelDB = DEFAULT_LEVEL_DB;
    if (!std::isfinite(distanceFeet) || distanceFeet < 0.0)
        distanceFeet = DEFAULT_DISTANCE_FEET;
    distanceFeet = std::min(distanceFeet, MAX_DISTANCE_FEET);
}

bool CChannelDSP::SaveSettings() const
{
    CSettingsTransaction transaction;
    CZoneSettingsKey key = OpenSpeakerKey(zone);
    bool written = key.WriteDouble(SettingName(channel, KEY_LEVEL), levelDB);
    written &= key.WriteDouble(SettingName(channel, KEY_DISTANCE), distanceFeet);
    written &= key.WriteInt(SettingName(channel, KEY_POLARITY), reversePolarity ? 1 : 0);
    written &= key.WriteInt(SettingName(channel, KEY_HIGHPASS_FREQUENCY), highPassFrequency);
    written &= key.WriteInt(SettingName(channel, KEY_HIGHPASS_SLOPE), highPassSlope);
    written &= key.WriteInt(SettingName(channel, KEY_LOWPASS_SLOPE), lowPassSlope);
    written &= key.WriteInt(SettingName(channel, KEY_ROUTING), removedBassRouting);
    return transaction.Commit() && written;
}

void CChannelDSP::ResetSettings()
{
    levelDB = DEFAULT_LEVEL_DB;
    distanceFeet = DEFAULT_DISTANCE_FEET;
    reversePolarity = false;
    highPassFrequency = 0;
    highPassSlope = DEFAULT_HIGHPASS_SLOPE;
    lowPassSlope = DEFAULT_LOWPASS_SLOPE;
    removedBassRouting = ROUTING_REMOVE;
}

void CChannelDSP::Configure(const CAudioFormat& format, int32_t index, double maxDistanceAll,
                            double maxDistanceOwnSet)
{
    gain = std::pow(10.0, levelDB / 20.0);

    // Sound from every speaker has to arrive together: all but the farthest
    // wait for the difference in distance. The delay is rounded on bytes and
    // only then cut to whole frames, like every delay of the module.
    int32_t delayFrames = 0;
    if (HasDistance())
    {
        const double nearerFeet = maxDistanceAll - distanceFeet;
        if (nearerFeet > 0.0)
            delayFrames = FramesFor(format, nearerFeet * 1000.0 / SPEED_OF_SOUND_FEET_PER_SECOND);
        // The nearer speaker of a pair is as much louder as it is nearer
        // (inverse distance law), so it is turned down by the ratio.
        if (channel != CENTER && channel != SUBWOOFER && maxDistanceOwnSet > 0.0)
            gain = distanceFeet / maxDistanceOwnSet * gain;
    }
    delay.SetDelay(delayFrames, FramesFor(format, DELAY_CAPACITY_MS));

    // Copying bass keeps the speaker full range: no high-pass then.
    highPassActive = highPassFrequency >= 1 && !IsSubwoofer() && removedBassRouting != ROUTING_COPY;
    if (highPassActive)
        highPass.Design(HighPassKind(highPassSlope), format.sampleRate, highPassFrequency, 0.0,
                        kButterworthQ, true, QVString());

    bassToSubwoofer = false;
    const int32_t channelCount = std::min<int32_t>(format.channels, CAudioFormat::MAX_CHANNELS);
    const int32_t subwooferIndex = format.ChannelIndexOf(CAudioFormat::Subwoofer);
    const bool ownPresent =
        index >= 0 && index < channelCount && format.channelTable[index].present;
    // A source that already took care of the bass (bit 0) gets no more.
    const bool subwooferHandled = subwooferIndex >= 0 &&
                                  format.channelTable[subwooferIndex].present &&
                                  (format.channelTable[subwooferIndex].extra & 1) != 0;
    if (!IsSubwoofer() && highPassFrequency >= 1 && removedBassRouting != ROUTING_REMOVE &&
        ownPresent && subwooferIndex >= 0 && !subwooferHandled)
    {
        bassToSubwoofer = true;
        bassLowPass.Design(LowPassKind(lowPassSlope), format.sampleRate, highPassFrequency, 0.0,
                           kButterworthQ, true, QVString());
    }

    if (!tone)
    {
        noise.reset();
        return;
    }
    double toneLevelDb = TONE_LEVEL_DB;
    // The subwoofer channel is played louder later by its own gain; the
    // tone is made that much quieter so that the meter reads the same.
    if (IsSubwoofer() && subwooferIndex >= 0)
        toneLevelDb -= format.channelTable[subwooferIndex].gainDb;
    noise = std::make_unique<CCalibrationNoise>(format.sampleRate, IsSubwoofer(), toneLevelDb);
}

void CChannelDSP::ProcessBlock(double* samples, int32_t frames, const CAudioFormat& format,
                               double masterGain, double* bassBuffer, int32_t bassChannels,
                               double bassGain, double toneGain)
{
    if (frames <= 0 || samples == nullptr)
        return;
    double g = masterGain * gain;
    if (silenced)
        g = 0.0;
    if (tone)
        g *= toneGain;
    const bool applyGain = std::fabs(g - 1.0) > kUnityTolerance;
    const bool addBass = bassBuffer != nullptr && bassChannels >= 1 && IsSubwoofer() && !tone;
    const bool sendBass = bassToSubwoofer && bassBuffer != nullptr;
    const ptrdiff_t stride = format.channels;
    CCalibrationNoise* source = tone ? noise.get() : nullptr;

    double* sample = samples;
    for (int32_t i = 0; i < frames; ++i, sample += stride)
    {
        double x;
        if (tone)
            x = source != nullptr ? source->Next() : 0.0;
        else
            x = *sample;
        if (addBass)
            x = bassGain * bassBuffer[i] + x;
        // The bass leaves before anything of this speaker's own applies: its
        // level, distance and polarity are not the subwoofer's business.
        if (sendBass)
            bassBuffer[i] = bassBuffer[i] + bassLowPass.Process(x);
        if (highPassActive)
            x = highPass.Process(x);
        // A delay of 0 still passes the ring, so that a later longer delay
        // reads the samples that really came before.
        x = delay.Process(x);
        if (reversePolarity)
            x = -x;
        if (applyGain)
            x *= g;
        *sample = x;
    }
}
