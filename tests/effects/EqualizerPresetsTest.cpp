// The two stores of the Equalizer: the zone's current setting and preset name
// with the old flat key as default, and the presets shared by all zones with
// their old key, duplicates, defaults and whole-list saving.
#include "effects/EqualizerPresets.h"

#include <gtest/gtest.h>

#include "EqualizerTestSupport.h"
#include "effects/EqualizerPlugin.h"

using namespace eqtest;

namespace
{
std::string PresetOf(CEqualizerPresets& presets, const char16_t* name)
{
    const QVString* setting = presets.FindPreset(QVString(name));
    return setting != nullptr ? setting->ToUTF8() : "<none>";
}
}  // namespace

TEST(EqualizerPresets, EmptyStoreGivesFlatAndTheDefaultPresets)
{
    ScopedStore store;
    CEqualizerDSPPlugin plugin(nullptr, 1);
    CEqualizerPresets& presets = plugin.GetPresets();
    EXPECT_EQ(presets.settings.ToUTF8(), "OOOOOOOOOOOOOOOOOOOOO");
    EXPECT_TRUE(presets.preset.IsEmpty());
    EXPECT_TRUE(plugin.GetEngine().active);
    EXPECT_EQ(presets.presets.GetCount(), 7);
    EXPECT_EQ(PresetOf(presets, u"Rock"), "OCCKKUUYYUUNNKKCCCCCC");
    EXPECT_EQ(PresetOf(presets, u"hip-hop"), "OIIFFCCFFKKTTUUUUTTUU");  // names match in any case
    const QVStringArray names = presets.GetSortedNames();
    ASSERT_EQ(names.GetCount(), 7);
    EXPECT_EQ(names[0].ToUTF8(), "Blues");
    EXPECT_EQ(names[6].ToUTF8(), "Rock");
}

TEST(EqualizerPresets, CurrentSettingComesFromTheZoneKeyOrTheOldFlatKey)
{
    ScopedStore store;
    // Only the old key: its 11-character Rock is widened, the name comes along.
    store.Write(LEGACY_KEY, u"Equalizer - Settings (Zone 1)", u"OCKUYUNKCCC");
    store.Write(LEGACY_KEY, u"Equalizer - Preset (Zone 1)", u"Rock");
    {
        CEqualizerDSPPlugin plugin(nullptr, 1);
        EXPECT_EQ(plugin.GetPresets().settings.ToUTF8(), "OCCKKUUYYUUNNKKCCCCCC");
        EXPECT_EQ(plugin.GetPresets().preset.ToUTF8(), "Rock");
        EXPECT_EQ(plugin.GetEngine().bandValues[0], u'C' - 48);
    }
    // The zone key wins over the old one.
    store.Write(CURRENT_KEY, u"Settings", u"0OOOOOOOOOOOOOOOOOOOO");
    {
        CEqualizerDSPPlugin plugin(nullptr, 1);
        EXPECT_EQ(plugin.GetPresets().settings.ToUTF8(), "0OOOOOOOOOOOOOOOOOOOO");
        EXPECT_DOUBLE_EQ(plugin.GetEngine().GetPreampGain(), 12.0);
    }
    // A broken setting reads as flat, silently.
    for (const char16_t* broken : {u"OOOO", u"OOOOOOOOOOOOOOOOOOOOOO", u""})
    {
        store.Write(CURRENT_KEY, u"Settings", broken);
        CEqualizerDSPPlugin plugin(nullptr, 1);
        EXPECT_EQ(plugin.GetPresets().settings.ToUTF8(), "OOOOOOOOOOOOOOOOOOOOO");
    }
}

TEST(EqualizerPresets, StoredPresetsLoadWithDuplicatesDroppedWithoutRegardToCase)
{
    ScopedStore store;
    store.Write(LEGACY_PRESETS_KEY, u"Rock", u"OCKUYUNKCCC");
    store.Write(LEGACY_PRESETS_KEY, u"rock", u"nnnnnnnnnnnnnnnnnnnnn");
    store.Write(LEGACY_PRESETS_KEY, u"Short", u"OOOO");  // a wrong length is kept as it is
    store.Write(PRESETS_KEY, u"ROCK", u"000000000000000000000");
    store.Write(PRESETS_KEY, u"Mine", u"OOOOOOOOOOOOOOOOOOOO0");
    CEqualizerDSPPlugin plugin(nullptr, 1);
    CEqualizerPresets& presets = plugin.GetPresets();
    // Today's key comes first, so its "ROCK" stays; both old spellings go.
    EXPECT_EQ(presets.presets.GetCount(), 3);
    EXPECT_EQ(presets.FindPresetName(QVString(u"rock")).ToUTF8(), "ROCK");
    EXPECT_EQ(PresetOf(presets, u"Rock"), "000000000000000000000");
    EXPECT_EQ(PresetOf(presets, u"Short"), "OOOO");
    EXPECT_EQ(PresetOf(presets, u"Flat"), "<none>");  // stored presets replace the defaults

    // Within one key, the earlier name in the store's order stays.
    ScopedStore other;
    other.Write(LEGACY_PRESETS_KEY, u"live", u"OOOOOOOOOOOOOOOOOOOOn");
    other.Write(LEGACY_PRESETS_KEY, u"Live", u"OYYQQNNIIIIIIKKMMMMNN");
    CEqualizerDSPPlugin second(nullptr, 1);
    EXPECT_EQ(second.GetPresets().presets.GetCount(), 1);
    EXPECT_EQ(second.GetPresets().FindPresetName(QVString(u"LIVE")).ToUTF8(), "Live");
    EXPECT_EQ(PresetOf(second.GetPresets(), u"live"), "OYYQQNNIIIIIIKKMMMMNN");
}

TEST(EqualizerPresets, SavingReplacesTheWholeListAndIsSharedByAllZones)
{
    ScopedStore store;
    store.Write(LEGACY_PRESETS_KEY, u"Old", u"OCKUYUNKCCC");
    store.Write(PRESETS_KEY, u"Gone", u"OOOOOOOOOOOOOOOOOOOOO");
    {
        CEqualizerDSPPlugin plugin(nullptr, 1);
        CEqualizerPresets& presets = plugin.GetPresets();
        presets.presets.Remove(QVString(u"Gone"));
        presets.presets.SetAt(QVString(u"Bright"), QVString(u"OOOOOOOOOOOOOOOOO0000"));
        presets.settings = QVString(u"OOOOOOOOOOOOOOOOO0000");
        presets.preset = QVString(u"Bright");
        EXPECT_TRUE(presets.Save());
    }
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Settings"), "OOOOOOOOOOOOOOOOO0000");
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Preset"), "Bright");
    EXPECT_EQ(store.Read(PRESETS_KEY, u"Gone"), "<none>");
    // The old preset moved to today's key, widened, and left the old key.
    EXPECT_EQ(store.Read(PRESETS_KEY, u"Old"), "OCCKKUUYYUUNNKKCCCCCC");
    EXPECT_TRUE(QVListValueNames(*store.Key(LEGACY_PRESETS_KEY)).empty());

    // Another zone sees the same presets, but its own current setting.
    CEqualizerDSPPlugin zone2(nullptr, 2);
    EXPECT_EQ(PresetOf(zone2.GetPresets(), u"bright"), "OOOOOOOOOOOOOOOOO0000");
    EXPECT_EQ(zone2.GetPresets().presets.GetCount(), 2);
    EXPECT_EQ(zone2.GetPresets().settings.ToUTF8(), "OOOOOOOOOOOOOOOOOOOOO");
    // The global branch works like any zone.
    CEqualizerDSPPlugin global(nullptr, QVZONE_GLOBAL);
    EXPECT_EQ(PresetOf(global.GetPresets(), u"Old"), "OCCKKUUYYUUNNKKCCCCCC");
}

TEST(EqualizerPresets, SelectPresetWritesAndAppliesTheSetting)
{
    ScopedStore store;
    CEqualizerDSPPlugin plugin(nullptr, 1);
    CEqualizerPresets& presets = plugin.GetPresets();
    presets.SelectPreset(QVString(u"Rock"));
    EXPECT_EQ(presets.settings.ToUTF8(), "OCCKKUUYYUUNNKKCCCCCC");
    EXPECT_EQ(presets.preset.ToUTF8(), "Rock");
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Settings"), "OCCKKUUYYUUNNKKCCCCCC");
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Preset"), "<none>");  // only a full save writes the name
    EXPECT_DOUBLE_EQ(plugin.GetEngine().GetBandGain(0), 144.0 / 31.0);

    // An unknown or empty name keeps the setting and the name, and still
    // writes and applies the setting as it stands.
    presets.settings = QVString(u"nOOOOOOOOOOOOOOOOOOOO");
    presets.SelectPreset(QVString(u"No such preset"));
    EXPECT_EQ(presets.preset.ToUTF8(), "Rock");
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Settings"), "nOOOOOOOOOOOOOOOOOOOO");
    EXPECT_DOUBLE_EQ(plugin.GetEngine().GetPreampGain(), -12.0);
}

TEST(EqualizerPresets, TransientPluginWritesNothing)
{
    ScopedStore store;
    CEqualizerDSPPlugin plugin(nullptr, 1);
    ASSERT_EQ(plugin.SetOption(DSPOPT_TRANSIENT), 0);
    plugin.GetPresets().SelectPreset(QVString(u"Live"));
    EXPECT_TRUE(plugin.GetPresets().Save());
    EXPECT_EQ(store.Read(CURRENT_KEY, u"Settings"), "<none>");
    EXPECT_TRUE(QVListValueNames(*store.Key(PRESETS_KEY)).empty());
    // It still plays what was selected.
    EXPECT_NE(plugin.GetEngine().GetBandGain(0), 0.0);
}
