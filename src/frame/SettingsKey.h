#pragma once

// The typed key of the settings store, and the zone-aware access through
// which every plug-in reads and writes its settings.

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "core/QVDllString.h"
#include "core/QVString.h"
#include "frame/SettingsTransaction.h"

// Text handed out across the store's interface. The store allocates it; the
// receiver converts it and frees it (QVTakeSystemString does both).
using QVSystemString = char16_t*;
QVSystemString QVAllocSystemString(std::u16string_view text);
void QVFreeSystemString(QVSystemString text);
QVString QVTakeSystemString(QVSystemString& text);

// Types of stored values, as GetValueType answers them.
enum ESettingsValueType : int32_t
{
    SETTINGS_TYPE_NONE = 0,
    SETTINGS_TYPE_STRING = 1,
    SETTINGS_TYPE_BINARY = 3,
    SETTINGS_TYPE_INT = 4,
};

// A key of the store. The order of the virtual operations is a contract with
// the host's tools module; places this module does not use are reserved.
//
// Reads take a zone: they read the value stored under GetZoneValueName(name,
// zone), which for zone 0 is the name itself. Writes and deletes take the
// name as it is stored. A key comes into being at its first write.
class IQVSettingsKey
{
public:
    virtual ~IQVSettingsKey() = default;  // 1
    // 2: true if a binary value was found; the buffer then holds its bytes.
    virtual bool ReadBinary(const char16_t* name, IQVDllBuffer* buffer, int32_t zone,
                            int32_t reserved = 0) = 0;
    // 3: the stored integer, or defaultValue.
    virtual int32_t ReadInt(const char16_t* name, int32_t defaultValue, int32_t zone,
                            int32_t reserved = 0) = 0;
    // 4: *result receives the stored text, else defaultValue, else (when that
    // is null) fallback. The caller frees *result.
    virtual void ReadString(QVSystemString* result, const char16_t* name,
                            const char16_t* defaultValue, int32_t zone,
                            const char16_t* fallback = nullptr, int32_t reserved = 0) = 0;
    // 5, 6, 7: write a value, replacing one of any type under the same name.
    virtual bool WriteBinary(const char16_t* name, const void* data, int32_t byteCount,
                             int32_t reserved1 = 0, int32_t reserved2 = 0) = 0;
    virtual bool WriteInt(const char16_t* name, int32_t value, int32_t reserved1 = 0,
                          int32_t reserved2 = 0) = 0;
    virtual bool WriteString(const char16_t* name, const char16_t* value, int32_t reserved1 = 0,
                             const char16_t* reserved2 = nullptr, int32_t reserved3 = 0) = 0;
    virtual void ReservedKey8() {}
    virtual void ReservedKey9() {}
    virtual bool DeleteValue(const char16_t* name) = 0;                         // 10
    virtual bool DeleteAllValues() = 0;                                         // 11
    virtual bool DeleteSubkey(const char16_t* name, int32_t reserved = 0) = 0;  // 12
    // 13: the names of the key's values, one per index from 0, in sorted
    // order; false past the last. Index 0 takes a fresh look at the store.
    virtual bool EnumValueName(int32_t index, QVSystemString* name) = 0;
    virtual void ReservedKey14() {}
    virtual void ReservedKey15() {}
    // 16: the name under which a value of this zone is stored.
    virtual void GetZoneValueName(QVSystemString* result, const char16_t* name, int32_t zone) = 0;
    // 17: the names of the sub-keys one level down, like EnumValueName.
    virtual bool EnumSubkeyName(int32_t index, QVSystemString* name) = 0;
    // 18: the type of a stored value, SETTINGS_TYPE_NONE if there is none.
    virtual int32_t GetValueType(const char16_t* name) = 0;
};

// Convenience wrappers over the interface, for code that holds QVStrings.
QVString QVReadSettingsString(IQVSettingsKey& key, const QVString& name,
                              const QVString& defaultValue, int32_t zone);
QVString QVZoneValueName(IQVSettingsKey& key, const QVString& name, int32_t zone);
std::vector<QVString> QVListValueNames(IQVSettingsKey& key);
std::vector<QVString> QVListSubkeyNames(IQVSettingsKey& key);

// Zone number that stands for no zone: the global branch.
inline constexpr int32_t QVZONE_GLOBAL = -10000;

// Settings of one plug-in in one zone. The zone key is the place of today's
// values; the old flat key, when one is named, only gives defaults and loses
// each value that is written anew. Lives for one load or one save: nothing
// of the store stays open beyond it.
class CZoneSettingsKey
{
public:
    CZoneSettingsKey(int32_t zone, const QVString& subKey, const QVString& legacyKeyPath,
                     const QVString& legacyPrefix);

    QVString GetLegacyName(const QVString& name) const;

    int32_t ReadInt(const QVString& name, int32_t defaultValue);
    void ReadString(QVString& result, const QVString& name, const QVString& defaultValue);
    QVString ReadString(const QVString& name, const QVString& defaultValue);
    // Reads "Settings" into data; size holds the buffer's size and receives
    // the byte count. A value longer than the buffer counts as absent.
    bool ReadSettingsBlob(void* data, int32_t& size);

    bool WriteInt(const QVString& name, int32_t value);
    bool WriteString(const QVString& name, const QVString& value);

    // Numbers stored as text, read by the locale-free rules ("." and "," both
    // decimal marks) and written so that they read back exactly.
    double ReadDouble(const QVString& name, double defaultValue);
    bool WriteDouble(const QVString& name, double value);
    // Writes the 20 bytes of "Settings"; the Effects record is the only user.
    bool WriteSettingsBlob(const void* data);

    // The path of the zone part: "Zones\<zone>" or "Zones\Global", then the sub-key.
    static QVString ZoneKeyPath(int32_t zone, const QVString& subKey);

    int32_t GetZone() const { return zone; }
    IQVSettingsKey* GetZoneKey() const { return zoneKey.get(); }
    IQVSettingsKey* GetLegacyKey() const { return legacyKey.get(); }

    static constexpr int32_t kSettingsBlobSize = 20;

private:
    // The zone passed to the store: none is passed as 0.
    int32_t StoreZone() const { return zone == QVZONE_GLOBAL ? 0 : zone; }
    void DeleteLegacyValue(const QVString& name);

    int32_t zone;
    std::unique_ptr<IQVSettingsKey> zoneKey;
    std::unique_ptr<IQVSettingsKey> legacyKey;
    QVString subKey;
    QVString legacyPrefix;
};
