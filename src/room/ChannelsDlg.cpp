#include "room/ChannelsDlg.h"

#include <algorithm>
#include <cmath>
#include <mutex>

#include "frame/IQVTools.h"
#include "frame/SettingsKey.h"
#include "room/ChannelsDSPPlugin.h"
#include "room/ChannelsLevelsPopupWnd.h"

const CChannelsDlg::ListItem CChannelsDlg::FREQUENCY_LIST[FREQUENCY_COUNT] = {
    {u"No crossover (play all frequencies)", 0},
    {u"30 Hz", 30},
    {u"35 Hz", 35},
    {u"40 Hz (recommended for large speakers)", 40},
    {u"45 Hz", 45},
    {u"50 Hz", 50},
    {u"55 Hz", 55},
    {u"60 Hz", 60},
    {u"65 Hz", 65},
    {u"70 Hz", 70},
    {u"75 Hz", 75},
    {u"80 Hz (recommended for medium speakers)", 80},
    {u"90 Hz", 90},
    {u"100 Hz", 100},
    {u"110 Hz", 110},
    {u"120 Hz (recommended for small speakers)", 120},
    {u"150 Hz", 150},
    {u"200 Hz", 200},
    {u"250 Hz", 250},
};

// A gentle slope on the speaker, a steep one on what goes to the subwoofer.
const CChannelsDlg::ListItem CChannelsDlg::HIGHPASS_SLOPE_LIST[SLOPE_COUNT] = {
    {u"12 dB/octave (recommended)", 12},
    {u"24 dB/octave", 24},
    {u"36 dB/octave", 36},
    {u"48 dB/octave", 48},
};
const CChannelsDlg::ListItem CChannelsDlg::LOWPASS_SLOPE_LIST[SLOPE_COUNT] = {
    {u"12 dB/octave", 12},
    {u"24 dB/octave", 24},
    {u"36 dB/octave", 36},
    {u"48 dB/octave (recommended)", 48},
};

const CChannelsDlg::ListItem CChannelsDlg::ROUTING_LIST[ROUTING_COUNT] = {
    {u"Remove bass below crossover", CChannelDSP::ROUTING_REMOVE},
    {u"Move bass to subwoofer (recommended)", CChannelDSP::ROUTING_MOVE},
    {u"Copy bass to subwoofer", CChannelDSP::ROUTING_COPY},
};

namespace
{

template <int32_t N>
int32_t ItemOf(const CChannelsDlg::ListItem (&list)[N], int32_t value, int32_t fallback)
{
    for (int32_t item = 0; item < N; ++item)
        if (list[item].value == value)
            return item;
    return fallback;
}

template <int32_t N>
int32_t ValueOf(const CChannelsDlg::ListItem (&list)[N], int32_t item)
{
    return list[std::clamp(item, 0, N - 1)].value;
}

bool IsSpeaker(int32_t speaker)
{
    return speaker >= 0 && speaker < CChannelDSP::SPEAKER_COUNT;
}

CZoneSettingsKey OpenPanelKey(int32_t zone)
{
    return CZoneSettingsKey(zone, QVString(CChannelDSP::SETTINGS_SUBKEY),
                            QVString(CChannelDSP::SETTINGS_LEGACY_KEY),
                            QVString(CChannelsDlg::SELECTED_CHANNEL_PREFIX));
}

}  // namespace

int32_t CChannelsDlg::FrequencyItemOf(int32_t frequencyHz)
{
    return ItemOf(FREQUENCY_LIST, frequencyHz, 0);
}

int32_t CChannelsDlg::HighPassSlopeItemOf(int32_t slope)
{
    return ItemOf(HIGHPASS_SLOPE_LIST, slope, ItemOf(HIGHPASS_SLOPE_LIST, 12, 0));
}

int32_t CChannelsDlg::LowPassSlopeItemOf(int32_t slope)
{
    return ItemOf(LOWPASS_SLOPE_LIST, slope, ItemOf(LOWPASS_SLOPE_LIST, 48, 0));
}

int32_t CChannelsDlg::RoutingItemOf(int32_t routing)
{
    return ItemOf(ROUTING_LIST, routing, 0);
}

double CChannelsDlg::MetresFromFeet(double feet)
{
    return static_cast<float>(feet) * METRES_PER_FOOT;
}

double CChannelsDlg::FeetFromMetres(double metres)
{
    return static_cast<float>(metres) / METRES_PER_FOOT;
}

CChannelsDlg::CChannelsDlg(CChannelsDSPPlugin& owner) : plugin(owner), metric(owner.IsMetric()) {}

CChannelsDlg::~CChannelsDlg() = default;

void CChannelsDlg::Open()
{
    Select(OpenPanelKey(plugin.zone).ReadInt(QVString(SELECTED_CHANNEL_KEY), 0));
}

void CChannelsDlg::Close()
{
    levelsPopup.reset();
    Apply(false);
}

QVString CChannelsDlg::GetSpeakerButtonText(int32_t speaker) const
{
    return CAudioFormat::GetChannelName(speaker + CAudioFormat::Left, true);
}

QVString CChannelsDlg::GetSpeakerButtonTooltip(int32_t speaker) const
{
    return CAudioFormat::GetChannelName(speaker + CAudioFormat::Left, false);
}

bool CChannelsDlg::IsSpeakerButtonOn(int32_t speaker) const
{
    return IsSpeaker(speaker) && buttonsOn[speaker];
}

void CChannelsDlg::PressSpeakerButton(int32_t speaker)
{
    Select(speaker);
    OpenPanelKey(plugin.zone).WriteInt(QVString(SELECTED_CHANNEL_KEY), speaker);
}

void CChannelsDlg::Select(int32_t speaker)
{
    CChannelsDSP& channels = plugin.GetChannels();
    std::lock_guard<std::recursive_mutex> guard(channels.lock);
    Apply(false);
    std::fill(std::begin(buttonsOn), std::end(buttonsOn), false);
    if (!IsSpeaker(speaker))
    {
        selectedChannel = -1;
        return;
    }
    updating = true;
    selectedChannel = speaker;
    buttonsOn[speaker] = true;
    FillControls(channels.Speaker(speaker));
    updating = false;
    UpdateEnableStates();
}

void CChannelsDlg::FillControls(const CChannelDSP& speaker)
{
    controls.level = std::clamp(speaker.levelDB, LEVEL_MIN_DB, LEVEL_MAX_DB);
    const double distance = metric ? MetresFromFeet(speaker.distanceFeet) : speaker.distanceFeet;
    controls.distance = std::clamp(distance, DISTANCE_MIN, DISTANCE_MAX);
    controls.frequencyItem = FrequencyItemOf(speaker.highPassFrequency);
    controls.highPassSlopeItem = HighPassSlopeItemOf(speaker.highPassSlope);
    controls.routingItem = RoutingItemOf(speaker.removedBassRouting);
    controls.lowPassSlopeItem = LowPassSlopeItemOf(speaker.lowPassSlope);
    controls.reversePolarity = speaker.reversePolarity;
    controls.mute = speaker.mute;
    controls.solo = speaker.solo;
    controls.tone = speaker.tone;
}

void CChannelsDlg::Apply(bool notify)
{
    CChannelsDSP& channels = plugin.GetChannels();
    {
        std::lock_guard<std::recursive_mutex> guard(channels.lock);
        if (IsSpeaker(selectedChannel))
        {
            CChannelDSP& speaker = channels.Speaker(selectedChannel);
            // Only one speaker can be soloed or sound a tone; mutes combine.
            bool exclusive = false;
            if (controls.mute && !speaker.mute)
            {
                controls.solo = false;
                controls.tone = false;
            }
            if (controls.solo && !speaker.solo)
            {
                controls.tone = false;
                controls.mute = false;
                exclusive = true;
            }
            if (controls.tone && !speaker.tone)
            {
                controls.mute = false;
                controls.solo = false;
                exclusive = true;
            }
            if (exclusive)
            {
                for (int32_t other = 0; other < CChannelDSP::SPEAKER_COUNT; ++other)
                {
                    if (other == selectedChannel)
                        continue;
                    CChannelDSP& each = channels.Speaker(other);
                    each.mute = false;
                    each.solo = false;
                    each.tone = false;
                }
            }

            speaker.levelDB = controls.level;
            speaker.distanceFeet = metric ? FeetFromMetres(controls.distance) : controls.distance;
            speaker.highPassFrequency = ValueOf(FREQUENCY_LIST, controls.frequencyItem);
            speaker.highPassSlope = ValueOf(HIGHPASS_SLOPE_LIST, controls.highPassSlopeItem);
            speaker.removedBassRouting = ValueOf(ROUTING_LIST, controls.routingItem);
            speaker.lowPassSlope = ValueOf(LOWPASS_SLOPE_LIST, controls.lowPassSlopeItem);
            speaker.reversePolarity = controls.reversePolarity;
            speaker.tone = controls.tone;
            speaker.mute = controls.mute;
            speaker.solo = controls.solo;
            speaker.SaveSettings();
            channels.SetAudioFormat(plugin.GetFormat());
        }
    }
    UpdateEnableStates();
    if (notify)
    {
        plugin.Flush();
        if (plugin.host != nullptr)
            plugin.host->NotifyChanged(true);
    }
}

void CChannelsDlg::UpdateEnableStates()
{
    // The subwoofer has no crossover of its own; its stored values stay.
    if (selectedChannel == CChannelDSP::SUBWOOFER)
    {
        enableStates = {false, false, false, false};
        return;
    }
    const bool crossover = ValueOf(FREQUENCY_LIST, controls.frequencyItem) != 0;
    const bool routed = ValueOf(ROUTING_LIST, controls.routingItem) != CChannelDSP::ROUTING_REMOVE;
    enableStates.frequency = true;
    enableStates.highPassSlope = crossover;
    enableStates.routing = crossover;
    enableStates.lowPassSlope = crossover && routed;
}

void CChannelsDlg::ControlChanged()
{
    if (!updating)
        Apply(true);
}

void CChannelsDlg::SetDistance(double value)
{
    if (!std::isfinite(value))
        return;
    controls.distance = std::clamp(value, DISTANCE_MIN, DISTANCE_MAX);
    ControlChanged();
}

void CChannelsDlg::SetLevel(double levelDb)
{
    if (!std::isfinite(levelDb))
        return;
    controls.level = std::clamp(levelDb, LEVEL_MIN_DB, LEVEL_MAX_DB);
    ControlChanged();
}

void CChannelsDlg::SetFrequencyItem(int32_t item)
{
    controls.frequencyItem = std::clamp(item, 0, FREQUENCY_COUNT - 1);
    ControlChanged();
}

void CChannelsDlg::SetHighPassSlopeItem(int32_t item)
{
    controls.highPassSlopeItem = std::clamp(item, 0, SLOPE_COUNT - 1);
    ControlChanged();
}

void CChannelsDlg::SetRoutingItem(int32_t item)
{
    controls.routingItem = std::clamp(item, 0, ROUTING_COUNT - 1);
    ControlChanged();
}

void CChannelsDlg::SetLowPassSlopeItem(int32_t item)
{
    controls.lowPassSlopeItem = std::clamp(item, 0, SLOPE_COUNT - 1);
    ControlChanged();
}

void CChannelsDlg::SetReversePolarity(bool reverse)
{
    controls.reversePolarity = reverse;
    ControlChanged();
}

void CChannelsDlg::SetMute(bool on)
{
    controls.mute = on;
    ControlChanged();
}

void CChannelsDlg::SetSolo(bool on)
{
    controls.solo = on;
    ControlChanged();
}

void CChannelsDlg::SetTone(bool on)
{
    controls.tone = on;
    ControlChanged();
}

QVString CChannelsDlg::GetDistanceText() const
{
    return metric ? QVString::Format(u"%.2f m", {controls.distance})
                  : QVString::Format(u"%.1f ft", {controls.distance});
}

QVString CChannelsDlg::GetLevelText() const
{
    return QVString::Format(u"%.1f dB", {controls.level});
}

CChannelsLevelsPopupWnd& CChannelsDlg::OpenLevelsPopup()
{
    if (levelsPopup)
        ++levelsPopupRaises;
    else
        levelsPopup = std::make_unique<CChannelsLevelsPopupWnd>(plugin.GetChannels());
    return *levelsPopup;
}

bool CChannelsDlg::AcceptLevelsPopup()
{
    if (!levelsPopup || !levelsPopup->Accept())
        return false;
    levelsPopup.reset();
    // The controls still hold the old level: they must not be applied over
    // the new one.
    const int32_t shown = selectedChannel;
    selectedChannel = -1;
    Select(shown);
    return true;
}

void CChannelsDlg::CancelLevelsPopup()
{
    levelsPopup.reset();
}
