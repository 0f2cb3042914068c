#include "frame/DSPSettings.h"

#include "effects/EffectsPlugin.h"
#include "frame/SettingsKey.h"

namespace
{

CZoneSettingsKey OpenKey(const CEffectsDSPPlugin* plugin)
{
    return CZoneSettingsKey(plugin != nullptr ? plugin->zone : QVZONE_GLOBAL, CDSPSettings::SUBKEY,
                            CDSPSettings::LEGACY_KEY, CDSPSettings::LEGACY_PREFIX);
}

}  // namespace

CDSPSettings::CDSPSettings(CEffectsDSPPlugin* owner) : plugin(owner) {}

CDSPSettings::~CDSPSettings()
{
    Save();
}

void CDSPSettings::Load()
{
    // A shorter value overwrites only the words it holds; the rest keep what
    // they had. A longer one is some other record and counts as absent.
    Values stored = values;
    int32_t size = static_cast<int32_t>(sizeof(stored));
    values = OpenKey(plugin).ReadSettingsBlob(&stored, size) ? stored : DEFAULTS;
}

bool CDSPSettings::MayWrite() const
{
    return plugin != nullptr && !plugin->transient && plugin->zone != QVZONE_GLOBAL;
}

bool CDSPSettings::Save()
{
    if (!MayWrite())
        return true;
    CSettingsTransaction transaction;
    const bool written = OpenKey(plugin).WriteSettingsBlob(&values);
    return transaction.Commit() && written;
}
