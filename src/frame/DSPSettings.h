// The settings record of the Effects plug-in: five words kept as one binary
// value, "Settings", in the plug-in's key of its zone. It is the one plug-in
// whose settings are a blob rather than a value per setting, and the only one
// that saves again when it is destroyed.
#pragma once

#include <cstdint>
#include <type_traits>

class CEffectsDSPPlugin;

class CDSPSettings
{
public:
    // The words in their stored order; the layout is the stored value itself.
    struct Values
    {
        int32_t environment;       // index in the environment table, 0 = no reverb
        int32_t reverbAmount;      // 1 to 10
        int32_t virtualSubwoofer;  // index in the subwoofer table, 0 = off
        int32_t reserved;          // kept and written back, never used
        int32_t surroundField;     // index in the surround table, 0 = off
    };
    static constexpr Values DEFAULTS = {1, 4, 2, 1, 2};

    static constexpr const char16_t* SUBKEY = u"Effects";
    static constexpr const char16_t* LEGACY_KEY = u"Plugins\\DSP\\QM DSP";
    static constexpr const char16_t* LEGACY_PREFIX = u"Effects - ";

    // `plugin` gives the zone and the transient flag; null stands for a
    // plug-in of no zone, which reads the global branch and never writes.
    explicit CDSPSettings(CEffectsDSPPlugin* plugin);
    virtual ~CDSPSettings();
    CDSPSettings(const CDSPSettings&) = delete;
    CDSPSettings& operator=(const CDSPSettings&) = delete;

    // Reads the blob of the plug-in's zone (the old flat value serving when the
    // zone has none); no value, or one longer than 20 bytes, gives the defaults.
    void Load();
    // Writes all five words unless the plug-in is transient or of no zone.
    // False when a write was due and the store refused it.
    bool Save();
    // Whether Save would write at all.
    bool MayWrite() const;

    CEffectsDSPPlugin* plugin;
    Values values = DEFAULTS;
};

static_assert(sizeof(CDSPSettings::Values) == 20 &&
              std::is_standard_layout_v<CDSPSettings::Values>);
