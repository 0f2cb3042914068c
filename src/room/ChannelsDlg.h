// The panel of Room Correction as a window-less model. One speaker is edited
// at a time; every change of a control is applied to the running engine at
// once and written to the store. Distances can be shown in metres, converted
// in single precision as the number control holds them.
#pragma once

#include <cstdint>
#include <memory>

#include "core/QVString.h"
#include "frame/PanelModel.h"
#include "room/ChannelDSP.h"

class CChannelsDSPPlugin;
class CChannelsLevelsPopupWnd;

class CChannelsDlg : public QVPanelModel
{
public:
    struct ListItem
    {
        const char16_t* text;
        int32_t value;
    };
    static constexpr int32_t FREQUENCY_COUNT = 19;
    static constexpr int32_t SLOPE_COUNT = 4;
    static constexpr int32_t ROUTING_COUNT = 3;
    static const ListItem FREQUENCY_LIST[FREQUENCY_COUNT];
    static const ListItem HIGHPASS_SLOPE_LIST[SLOPE_COUNT];
    static const ListItem LOWPASS_SLOPE_LIST[SLOPE_COUNT];
    static const ListItem ROUTING_LIST[ROUTING_COUNT];

    static constexpr const char16_t* HEAD_TEXT =
        u"Select the speaker to configure below.  All settings are stored per speaker and "
        u"applied any time that speaker is in use.";
    static constexpr const char16_t* DISTANCE_HEADING = u"Distance";
    static constexpr const char16_t* DISTANCE_TEXT =
        u"Set the distance from this speaker to your listening position to optimize signal "
        u"phasing.  Set the distance to 0 to disable distance correction.  Set all distances "
        u"before setting volume levels.";
    static constexpr const char16_t* LEVEL_HEADING = u"Volume Level";
    static constexpr const char16_t* LEVEL_TEXT =
        u"Volume level allows adjusting the relative volume of this speaker to compensate for "
        u"speaker sensitivity and placement.";
    static constexpr const char16_t* LEVEL_LABEL = u"Level";
    static constexpr const char16_t* BASS_HEADING = u"Bass Management";
    static constexpr const char16_t* BASS_TEXT =
        u"Set the frequencies that should be played by this speaker, and how any removed bass "
        u"should be routed.";
    static constexpr const char16_t* CROSSOVER_LABEL = u"Crossover:";
    static constexpr const char16_t* ROUTING_LABEL = u"Routing:";
    static constexpr const char16_t* POLARITY_HEADING = u"Polarity";
    static constexpr const char16_t* POLARITY_CHECK =
        u"Reverse the polarity of this speaker (use if positive and negative wires are switched)";
    static constexpr const char16_t* TOOLS_HEADING = u"Tools";
    static constexpr const char16_t* TOOLS_TEXT = u"Tools help with setup and calibration.";
    static constexpr const char16_t* MUTE_BUTTON = u"Mute";
    static constexpr const char16_t* SOLO_BUTTON = u"Solo";
    static constexpr const char16_t* TONE_BUTTON = u"Tone";
    static constexpr const char16_t* LEVELS_BUTTON = u"Set levels from decibel meter";

    // The panel's own setting: the speaker shown when it opens.
    static constexpr const char16_t* SELECTED_CHANNEL_KEY = u"Selected Channel";
    static constexpr const char16_t* SELECTED_CHANNEL_PREFIX = u"Channels - ";

    // Ranges of the number controls; the distance range is the same number
    // in either unit, so in metres it reaches further.
    static constexpr double DISTANCE_MIN = 0.0;
    static constexpr double DISTANCE_MAX = 100.0;
    static constexpr double DISTANCE_STEP_FEET = 0.1;
    static constexpr double DISTANCE_STEP_METRES = 0.01;
    static constexpr double DISTANCE_PAGE_STEP = 1.0;
    static constexpr double LEVEL_MIN_DB = -20.0;
    static constexpr double LEVEL_MAX_DB = 20.0;
    static constexpr double LEVEL_STEP_DB = 0.1;
    static constexpr float METRES_PER_FOOT = 0.3048f;

    // What the controls hold: numbers as the controls show them (metres when
    // metric), lists by item.
    struct Controls
    {
        double distance = 0.0;
        double level = 0.0;
        int32_t frequencyItem = 0;
        int32_t highPassSlopeItem = 0;
        int32_t routingItem = 0;
        int32_t lowPassSlopeItem = SLOPE_COUNT - 1;
        bool reversePolarity = false;
        bool mute = false;
        bool solo = false;
        bool tone = false;
    };
    struct EnableStates
    {
        bool frequency = true;
        bool highPassSlope = false;
        bool routing = false;
        bool lowPassSlope = false;
    };

    // Items of a value, or the list's fallback for a value it does not hold:
    // the first item, except 12 dB/octave for the high-pass slope and 48 for
    // the low-pass slope.
    static int32_t FrequencyItemOf(int32_t frequencyHz);
    static int32_t HighPassSlopeItemOf(int32_t slope);
    static int32_t LowPassSlopeItemOf(int32_t slope);
    static int32_t RoutingItemOf(int32_t routing);
    // Feet and metres as the control converts them: in single precision.
    static double MetresFromFeet(double feet);
    static double FeetFromMetres(double metres);

    // `plugin.IsMetric()` is read here, once.
    explicit CChannelsDlg(CChannelsDSPPlugin& plugin);
    ~CChannelsDlg() override;

    // Shows the speaker stored as "Selected Channel".
    void Open() override;
    // Closes the popup and applies the controls without notification.
    void Close() override;

    bool IsMetric() const { return metric; }
    QVString GetSpeakerButtonText(int32_t speaker) const;
    QVString GetSpeakerButtonTooltip(int32_t speaker) const;
    bool IsSpeakerButtonOn(int32_t speaker) const;
    // A press of a speaker button: selects it and stores the choice.
    void PressSpeakerButton(int32_t speaker);

    // Applies the controls to the speaker shown so far, then shows `speaker`;
    // a number that is no speaker selects none.
    void Select(int32_t speaker);
    int32_t GetSelectedChannel() const { return selectedChannel; }
    // Copies the controls into the selected speaker, saves it and prepares
    // the engine again; `notify` also flushes the plug-in and tells the host.
    void Apply(bool notify);

    // The user changes a control: clamped to its range, then applied at once.
    void SetDistance(double value);
    void SetLevel(double levelDb);
    void SetFrequencyItem(int32_t item);
    void SetHighPassSlopeItem(int32_t item);
    void SetRoutingItem(int32_t item);
    void SetLowPassSlopeItem(int32_t item);
    void SetReversePolarity(bool reverse);
    void SetMute(bool on);
    void SetSolo(bool on);
    void SetTone(bool on);

    const Controls& GetControls() const { return controls; }
    // "10.0 ft", "3.05 m", "-3.5 dB".
    QVString GetDistanceText() const;
    QVString GetLevelText() const;
    const EnableStates& GetEnableStates() const { return enableStates; }

    // "Set levels from decibel meter": opens the popup, or raises it.
    CChannelsLevelsPopupWnd& OpenLevelsPopup();
    CChannelsLevelsPopupWnd* GetLevelsPopup() const { return levelsPopup.get(); }
    int32_t GetLevelsPopupRaiseCount() const { return levelsPopupRaises; }
    // OK of the popup: false keeps it open (its message says why). Otherwise
    // it closes and the selected speaker is shown again with its new level,
    // without the old controls being applied over it.
    bool AcceptLevelsPopup();
    void CancelLevelsPopup();

private:
    // A control changed by the user; ignored while the model fills them.
    void ControlChanged();
    void FillControls(const CChannelDSP& speaker);
    void UpdateEnableStates();

    CChannelsDSPPlugin& plugin;
    int32_t selectedChannel = -1;
    // Set while the model fills the controls, so their change events don't
    // come back as user edits.
    bool updating = false;
    std::unique_ptr<CChannelsLevelsPopupWnd> levelsPopup;
    bool metric;
    Controls controls;
    EnableStates enableStates;
    bool buttonsOn[CChannelDSP::SPEAKER_COUNT] = {};
    int32_t levelsPopupRaises = 0;
};
