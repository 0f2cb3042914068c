#include "effects/EqualizerDlg.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "effects/EqualizerPlugin.h"
#include "effects/EqualizerPresets.h"
#include "parametric/ParametricFilter.h"

const char16_t* const CEqualizerDlg::SLIDER_LABELS[SLIDER_COUNT] = {
    u"Pre\r\nAmp", u"31.3\r\nHz", u"48\r\nHz",  u"62.5\r\nHz", u"90\r\nHz",  u"125\r\nHz",
    u"175\r\nHz",  u"250\r\nHz",  u"375\r\nHz", u"500\r\nHz",  u"750\r\nHz", u"1\r\nkHz",
    u"1.5\r\nkHz", u"2\r\nkHz",   u"3\r\nkHz",  u"4\r\nkHz",   u"6\r\nkHz",  u"8\r\nkHz",
    u"12\r\nkHz",  u"16\r\nkHz",  u"20\r\nkHz",
};

double CEqualizerDlg::SliderFromCharacter(char16_t character)
{
    const int32_t value = static_cast<int32_t>(character) - CEqualizerEngine::VALUE_BASE;
    const double gainDb = -(value - CEqualizerEngine::FLAT_VALUE) * 12.0 / 31.0;
    return std::clamp(std::round(gainDb * 2.0) * 0.5, SLIDER_MIN_DB, SLIDER_MAX_DB);
}

char16_t CEqualizerDlg::CharacterFromSlider(double gainDb)
{
    // std::round rounds halves away from zero. The slider's 0.5 dB steps fall
    // between characters (62 values over 48 steps), so halves do occur.
    const double raw = std::clamp(std::round((gainDb + 12.0) * 62.0 / 24.0), 0.0,
                                  static_cast<double>(CEqualizerEngine::MAX_VALUE));
    return static_cast<char16_t>(CEqualizerEngine::MAX_VALUE - static_cast<int32_t>(raw) +
                                 CEqualizerEngine::VALUE_BASE);
}

CEqualizerDlg::CEqualizerDlg(CEqualizerDSPPlugin& owner)
    : plugin(owner), presets(owner.GetPresets())
{
}

void CEqualizerDlg::Open()
{
    Refresh();
}

void CEqualizerDlg::Refresh()
{
    UpdateSliders();
    RefreshPresetList();
    ++refreshCount;
}

QVString CEqualizerDlg::GetSliderLabel(int32_t slider) const
{
    return TranslateText(SLIDER_LABELS[slider]);
}

QVString CEqualizerDlg::GetSliderText(int32_t slider) const
{
    return FormatText("%.1f\r\n", sliders[slider]) + TranslateText(u"dB");
}

void CEqualizerDlg::UpdateSliders()
{
    updatingSliders = true;
    const QVString& setting = presets.settings;
    for (int32_t slider = 0; slider < SLIDER_COUNT; ++slider)
        sliders[slider] =
            SliderFromCharacter(slider < setting.GetLength() ? setting[slider] : u'\0');
    updatingSliders = false;
}

void CEqualizerDlg::RefreshPresetList()
{
    presetNames = presets.GetSortedNames();
    presetText = presets.preset.IsEmpty() ? TranslateText(CUSTOM_PRESET) : presets.preset;
}

QVString CEqualizerDlg::GetPresetText() const
{
    return presetText;
}

void CEqualizerDlg::Changed()
{
    if (plugin.host != nullptr)
        plugin.host->NotifyChanged(true);
}

void CEqualizerDlg::MoveSlider(int32_t slider, double gainDb)
{
    if (updatingSliders || slider < 0 || slider >= SLIDER_COUNT)
        return;
    updatingSliders = true;
    sliders[slider] = std::clamp(gainDb, SLIDER_MIN_DB, SLIDER_MAX_DB);
    // A preset of another length may be the current setting; the characters
    // it lacks are taken from what the sliders show.
    std::u16string setting(presets.settings.View());
    for (int32_t i = static_cast<int32_t>(setting.size()); i < SLIDER_COUNT; ++i)
        setting.push_back(CharacterFromSlider(sliders[i]));
    setting[static_cast<size_t>(slider)] = CharacterFromSlider(gainDb);
    presets.settings = QVString(setting.c_str(), static_cast<int32_t>(setting.size()));
    if (!presets.preset.IsEmpty())
    {
        presets.preset = QVString();
        presetText = TranslateText(CUSTOM_PRESET);
    }
    presets.SelectPreset(QVString());
    updatingSliders = false;
    Changed();
}

void CEqualizerDlg::ChoosePreset(const QVString& name)
{
    presets.SelectPreset(name);
    UpdateSliders();
    presets.Save();
    RefreshPresetList();
    Changed();
}

bool CEqualizerDlg::SavePresetAs(const QVString& name, bool confirmed)
{
    QVString trimmed = name;
    trimmed.Trim();
    if (!confirmed || trimmed.IsEmpty())
        return false;
    // An old preset of the name goes, whatever its case, so that the name
    // is stored as now typed.
    presets.presets.Remove(trimmed);
    presets.presets.SetAt(trimmed, presets.settings);
    presets.SelectPreset(trimmed);
    presets.Save();
    Refresh();
    Changed();
    return true;
}

QVString CEqualizerDlg::GetDeleteQuestion(const QVString& name) const
{
    return QVString::Format(TranslateText(DELETE_QUESTION).c_str(), name);
}

bool CEqualizerDlg::DeletePreset(const QVString& name, bool confirmed)
{
    if (!confirmed || !presets.presets.Remove(name))
        return false;
    // The setting stays as it is, now without a name.
    if (presets.preset.CompareNoCase(name) == 0)
        presets.preset = QVString();
    presets.Save();
    RefreshPresetList();
    return true;
}

bool CEqualizerDlg::ResetAllPresets(bool confirmed)
{
    if (!confirmed)
        return false;
    presets.LoadDefaultPresets();
    presets.Save();
    RefreshPresetList();
    return true;
}
