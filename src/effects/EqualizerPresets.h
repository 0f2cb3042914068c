// The settings side of the 20-band Equalizer: the current setting and preset
// name of the plug-in's zone, and the named presets, which all zones share.
#pragma once

#include <cstdint>

#include "core/QVMap.h"
#include "core/QVString.h"
#include "core/QVStringArray.h"
#include "effects/EqualizerEngine.h"

class CEqualizerDSPPlugin;
class CZoneSettingsKey;

struct EqualizerPresetDefinition
{
    const char16_t* name;
    const char16_t* setting;
};

class CEqualizerPresets
{
public:
    // Store places. The presets key lives in the global branch.
    static constexpr const char16_t* SUBKEY = u"Equalizer";
    static constexpr const char16_t* LEGACY_KEY = u"Plugins\\DSP\\QM DSP";
    static constexpr const char16_t* LEGACY_PREFIX = u"Equalizer - ";
    static constexpr const char16_t* PRESETS_SUBKEY = u"Equalizer\\Presets";
    static constexpr const char16_t* LEGACY_PRESETS_KEY = u"Plugins\\DSP\\QM DSP\\EQ Presets";
    static constexpr const char16_t* SETTINGS_VALUE = u"Settings";
    static constexpr const char16_t* PRESET_VALUE = u"Preset";

    static constexpr int32_t DEFAULT_PRESET_COUNT = 7;
    static const EqualizerPresetDefinition DEFAULT_PRESETS[DEFAULT_PRESET_COUNT];

    // Name to setting; names match without regard to case.
    using PresetMap = QVStringMap<QVString>;

    explicit CEqualizerPresets(CEqualizerDSPPlugin* plugin);

    // Reads the current setting, its preset name and all presets, then applies
    // the setting. A broken setting reads as flat; no presets in the store
    // give the defaults.
    void Load();
    // Writes the current setting, the preset name and the whole preset list,
    // which replaces what the store held. Nothing is written for a transient
    // plug-in. False when the store refused a value.
    bool Save();
    // Takes the setting of a known preset (an empty or unknown name keeps the
    // current setting), writes "Settings" and applies it.
    void SelectPreset(const QVString& name);
    // Replaces all presets by the defaults (in memory).
    void LoadDefaultPresets();

    // The stored spelling of a preset name, or empty when there is none.
    QVString FindPresetName(const QVString& name) const;
    const QVString* FindPreset(const QVString& name) const { return presets.Find(name); }
    // The names as the panel lists them: by the string array sort.
    QVStringArray GetSortedNames() const;

    PresetMap presets{true};
    QVString settings{CEqualizerEngine::FLAT_SETTING};
    QVString preset;
    CEqualizerDSPPlugin* plugin;

private:
    CZoneSettingsKey OpenCurrentKey() const;
    static CZoneSettingsKey OpenPresetsKey();
    void LoadPresets();
    bool MayWrite() const;
    void Apply();
};
