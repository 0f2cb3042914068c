// The panel of the 20-band Equalizer as a window-less model: the preset list,
// the "Manage" menu and 21 vertical sliders (preamp first), with the rules that
// turn a slider position into a setting character and back.
#pragma once

#include <cstdint>

#include "core/QVString.h"
#include "core/QVStringArray.h"
#include "effects/EqualizerEngine.h"
#include "frame/PanelModel.h"

class CEqualizerDSPPlugin;
class CEqualizerPresets;

class CEqualizerDlg : public QVPanelModel
{
public:
    static constexpr int32_t SLIDER_COUNT = CEqualizerEngine::SETTING_LENGTH;
    static constexpr double SLIDER_MIN_DB = -12.0;
    static constexpr double SLIDER_MAX_DB = 12.0;
    static constexpr double SLIDER_STEP_DB = 0.5;
    static constexpr int32_t SLIDER_STEPS = 48;
    static constexpr const char16_t* SLIDER_VALUE_FORMAT = u"%.1f\r\ndB";
    static const char16_t* const SLIDER_LABELS[SLIDER_COUNT];

    static constexpr const char16_t* PRESET_LABEL = u"Preset:";
    static constexpr const char16_t* MANAGE_BUTTON = u"Manage";
    static constexpr const char16_t* CUSTOM_PRESET = u"Custom";
    static constexpr const char16_t* MENU_SAVE = u"Save...";
    static constexpr const char16_t* MENU_DELETE = u"Delete Preset";
    static constexpr const char16_t* MENU_RESET = u"Reset All Presets";
    static constexpr const char16_t* SAVE_PROMPT = u"Please enter a preset name.";
    static constexpr const char16_t* SAVE_TITLE = u"Preset Name";
    static constexpr const char16_t* DELETE_QUESTION = u"Are you sure you want to delete '%s'?";
    static constexpr const char16_t* DELETE_TITLE = u"Confirm Action";
    static constexpr const char16_t* RESET_QUESTION =
        u"Are you sure you want to reset all presets to their default values?";
    static constexpr const char16_t* RESET_TITLE = u"Confirm Reset";

    // The slider position (dB) of a setting character: rounded to the half
    // dB and clamped to the slider's range.
    static double SliderFromCharacter(char16_t character);
    // The setting character of a slider position: "0" at +12, "O" at 0, "n" at -12.
    static char16_t CharacterFromSlider(double gainDb);

    explicit CEqualizerDlg(CEqualizerDSPPlugin& plugin);

    void Open() override;

    // Reads the sliders and the preset list from the plug-in again.
    void Refresh();

    // Slider i (0 is the preamp) as the panel shows it.
    double GetSliderValue(int32_t slider) const { return sliders[slider]; }
    QVString GetSliderLabel(int32_t slider) const;
    QVString GetSliderText(int32_t slider) const;
    // The user moved slider i to `gainDb`: the setting changes, is written and
    // heard at once, and a named preset becomes "Custom".
    void MoveSlider(int32_t slider, double gainDb);

    // The preset list: sorted names, and what the control shows.
    const QVStringArray& GetPresetNames() const { return presetNames; }
    QVString GetPresetText() const;
    // The user picked a preset in the list.
    void ChoosePreset(const QVString& name);

    // "Manage": each takes the user's answer to its prompt or question. False
    // when nothing changed.
    bool SavePresetAs(const QVString& name, bool confirmed);
    QVString GetDeleteQuestion(const QVString& name) const;
    bool DeletePreset(const QVString& name, bool confirmed);
    bool ResetAllPresets(bool confirmed);

    int32_t GetRefreshCount() const { return refreshCount; }

private:
    void UpdateSliders();
    void RefreshPresetList();
    void Changed();

    CEqualizerDSPPlugin& plugin;
    CEqualizerPresets& presets;
    double sliders[SLIDER_COUNT] = {};
    QVStringArray presetNames;
    QVString presetText;
    // Set while the model moves its own sliders, so that their change events
    // don't come back as user moves.
    bool updatingSliders = false;
    int32_t refreshCount = 0;
};
