#include "effects/EqualizerPresets.h"

#include "effects/EqualizerPlugin.h"
#include "frame/SettingsKey.h"

// The older ten-band presets widened to twenty bands, hence the pairs.
const EqualizerPresetDefinition CEqualizerPresets::DEFAULT_PRESETS[DEFAULT_PRESET_COUNT] = {
    {u"Flat", u"OOOOOOOOOOOOOOOOOOOOO"},    {u"Blues", u"OMMMMNNQQUUYYUUQQKKEE"},
    {u"Rock", u"OCCKKUUYYUUNNKKCCCCCC"},    {u"Classical", u"OOOOOOOOOOOOOZZZZZZ^^"},
    {u"Country", u"OMMOORRUUTTOOJJGGCCBB"}, {u"Hip-Hop", u"OIIFFCCFFKKTTUUUUTTUU"},
    {u"Live", u"OYYQQNNIIIIIIKKMMMMNN"},
};

CEqualizerPresets::CEqualizerPresets(CEqualizerDSPPlugin* owner) : plugin(owner) {}

CZoneSettingsKey CEqualizerPresets::OpenCurrentKey() const
{
    return CZoneSettingsKey(plugin->zone, QVString(SUBKEY), QVString(LEGACY_KEY),
                            QVString(LEGACY_PREFIX));
}

CZoneSettingsKey CEqualizerPresets::OpenPresetsKey()
{
    return CZoneSettingsKey(QVZONE_GLOBAL, QVString(PRESETS_SUBKEY), QVString(LEGACY_PRESETS_KEY),
                            QVString());
}

bool CEqualizerPresets::MayWrite() const
{
    return !plugin->transient;
}

void CEqualizerPresets::Apply()
{
    plugin->GetEngine().ApplySetting(settings);
}

void CEqualizerPresets::Load()
{
    {
        CZoneSettingsKey key = OpenCurrentKey();
        QVString stored = CEqualizerEngine::ExpandLegacySetting(
            key.ReadString(QVString(SETTINGS_VALUE), QVString(CEqualizerEngine::FLAT_SETTING)));
        // A character outside "0" to "n" (a file edited by hand) would read as
        // a gain beyond the sliders' range: such a setting is broken, and flat
        // stands in for it.
        settings = CEqualizerEngine::IsWellFormedSetting(stored)
                       ? stored
                       : QVString(CEqualizerEngine::FLAT_SETTING);
        preset = key.ReadString(QVString(PRESET_VALUE), QVString());
    }
    LoadPresets();
    if (presets.GetCount() == 0)
        LoadDefaultPresets();
    Apply();
}

void CEqualizerPresets::LoadPresets()
{
    presets.RemoveAll();
    CZoneSettingsKey key = OpenPresetsKey();
    // Names of today's key first, then any the old key still holds; a name
    // met again in another case is a duplicate, and the first one stays.
    QVStringArray names;
    for (IQVSettingsKey* source : {key.GetZoneKey(), key.GetLegacyKey()})
    {
        if (source == nullptr)
            continue;
        for (const QVString& name : QVListValueNames(*source))
        {
            if (!names.Contains(name.c_str(), true))
                names.Add(name);
        }
    }
    for (const QVString& name : names)
        presets.SetAt(name,
                      CEqualizerEngine::ExpandLegacySetting(key.ReadString(name, QVString())));
}

void CEqualizerPresets::LoadDefaultPresets()
{
    presets.RemoveAll();
    for (const EqualizerPresetDefinition& definition : DEFAULT_PRESETS)
        presets.SetAt(QVString(definition.name), QVString(definition.setting));
}

bool CEqualizerPresets::Save()
{
    if (!MayWrite())
        return true;
    // One update of the store: a save cut short must not leave the presets
    // deleted and only some of them written back.
    CSettingsTransaction transaction;
    bool written = true;
    {
        CZoneSettingsKey key = OpenCurrentKey();
        written = key.WriteString(QVString(SETTINGS_VALUE), settings) && written;
        written = key.WriteString(QVString(PRESET_VALUE), preset) && written;
    }
    CZoneSettingsKey key = OpenPresetsKey();
    // The list is written whole, so that a deleted preset is gone. The old key
    // is emptied too: every preset it held is in the list being written, and
    // a leftover there would come back at the next load.
    if (key.GetZoneKey() != nullptr)
        key.GetZoneKey()->DeleteAllValues();
    if (key.GetLegacyKey() != nullptr)
        key.GetLegacyKey()->DeleteAllValues();
    for (const auto& node : presets)
        written = key.WriteString(node.key, node.value) && written;
    return transaction.Commit() && written;
}

void CEqualizerPresets::SelectPreset(const QVString& name)
{
    if (!name.IsEmpty())
    {
        const QVString* setting = presets.Find(name);
        if (setting != nullptr && CEqualizerEngine::IsWellFormedSetting(*setting))
        {
            settings = *setting;
            preset = name;
        }
    }
    if (MayWrite())
    {
        CZoneSettingsKey key = OpenCurrentKey();
        key.WriteString(QVString(SETTINGS_VALUE), settings);
    }
    Apply();
}

QVString CEqualizerPresets::FindPresetName(const QVString& name) const
{
    for (const auto& node : presets)
    {
        if (node.key.CompareNoCase(name) == 0)
            return node.key;
    }
    return QVString();
}

QVStringArray CEqualizerPresets::GetSortedNames() const
{
    QVStringArray names;
    for (const auto& node : presets)
        names.Add(node.key);
    names.Sort();
    return names;
}
