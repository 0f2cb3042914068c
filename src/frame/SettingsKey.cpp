#include "frame/SettingsKey.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "core/QVPropertyMap.h"
#include "frame/IQVTools.h"

QVSystemString QVAllocSystemString(std::u16string_view text)
{
    auto* copy = static_cast<char16_t*>(std::malloc((text.size() + 1) * sizeof(char16_t)));
    if (copy == nullptr)
        throw std::bad_alloc();
    std::memcpy(copy, text.data(), text.size() * sizeof(char16_t));
    copy[text.size()] = u'\0';
    return copy;
}

void QVFreeSystemString(QVSystemString text)
{
    std::free(text);
}

QVString QVTakeSystemString(QVSystemString& text)
{
    QVString result(text);  // a null text gives the empty string
    QVFreeSystemString(text);
    text = nullptr;
    return result;
}

QVString QVReadSettingsString(IQVSettingsKey& key, const QVString& name,
                              const QVString& defaultValue, int32_t zone)
{
    QVSystemString text = nullptr;
    key.ReadString(&text, name.c_str(), defaultValue.c_str(), zone);
    return QVTakeSystemString(text);
}

QVString QVZoneValueName(IQVSettingsKey& key, const QVString& name, int32_t zone)
{
    QVSystemString text = nullptr;
    key.GetZoneValueName(&text, name.c_str(), zone);
    return QVTakeSystemString(text);
}

namespace
{

template <typename Enumerate>
std::vector<QVString> CollectNames(Enumerate enumerate)
{
    std::vector<QVString> names;
    QVSystemString text = nullptr;
    for (int32_t index = 0; enumerate(index, &text); ++index)
        names.push_back(QVTakeSystemString(text));
    return names;
}

std::unique_ptr<IQVSettingsKey> OpenKey(const QVString& path)
{
    IQVTools* tools = GetQVTools();
    return std::unique_ptr<IQVSettingsKey>(tools != nullptr ? tools->GetPluginKeyObject(path, false)
                                                            : nullptr);
}

}  // namespace

std::vector<QVString> QVListValueNames(IQVSettingsKey& key)
{
    return CollectNames([&key](int32_t index, QVSystemString* name)
                        { return key.EnumValueName(index, name); });
}

std::vector<QVString> QVListSubkeyNames(IQVSettingsKey& key)
{
    return CollectNames([&key](int32_t index, QVSystemString* name)
                        { return key.EnumSubkeyName(index, name); });
}

QVString CZoneSettingsKey::ZoneKeyPath(int32_t zone, const QVString& subKey)
{
    QVString path = zone != QVZONE_GLOBAL ? QVString::Format(u"%s\\%d", u"Zones", zone)
                                          : QVString::Format(u"%s\\Global", u"Zones");
    if (!subKey.IsEmpty())
        path += u"\\" + subKey;
    return path;
}

CZoneSettingsKey::CZoneSettingsKey(int32_t zone, const QVString& subKey,
                                   const QVString& legacyKeyPath, const QVString& legacyPrefix)
    : zone(zone), subKey(subKey), legacyPrefix(legacyPrefix)
{
    zoneKey = OpenKey(ZoneKeyPath(zone, subKey));
    if (!legacyKeyPath.IsEmpty())
        legacyKey = OpenKey(legacyKeyPath);
}

QVString CZoneSettingsKey::GetLegacyName(const QVString& name) const
{
    return legacyPrefix.IsEmpty() ? name : legacyPrefix + name;
}

int32_t CZoneSettingsKey::ReadInt(const QVString& name, int32_t defaultValue)
{
    // The old value only serves as the default of the new place.
    if (legacyKey)
        defaultValue = legacyKey->ReadInt(GetLegacyName(name).c_str(), defaultValue, StoreZone());
    return zoneKey ? zoneKey->ReadInt(name.c_str(), defaultValue, 0) : defaultValue;
}

void CZoneSettingsKey::ReadString(QVString& result, const QVString& name,
                                  const QVString& defaultValue)
{
    QVString value = defaultValue;
    if (legacyKey)
        value = QVReadSettingsString(*legacyKey, GetLegacyName(name), value, StoreZone());
    if (zoneKey)
        value = QVReadSettingsString(*zoneKey, name, value, 0);
    result = value;
}

QVString CZoneSettingsKey::ReadString(const QVString& name, const QVString& defaultValue)
{
    QVString result;
    ReadString(result, name, defaultValue);
    return result;
}

bool CZoneSettingsKey::ReadSettingsBlob(void* data, int32_t& size)
{
    const auto readFrom = [&](IQVSettingsKey* key, const QVString& name, int32_t storeZone)
    {
        QVDllBuffer buffer;
        if (key == nullptr || !key->ReadBinary(name.c_str(), &buffer, storeZone))
            return false;
        // A longer value is some other record: leave the caller's buffer alone.
        if (buffer.GetSize() > static_cast<size_t>(std::max(size, 0)))
            return false;
        if (buffer.GetSize() > 0)
            std::memcpy(data, buffer.GetData(), buffer.GetSize());
        size = static_cast<int32_t>(buffer.GetSize());
        return true;
    };
    return readFrom(zoneKey.get(), u"Settings", 0) ||
           readFrom(legacyKey.get(), GetLegacyName(u"Settings"), StoreZone());
}

void CZoneSettingsKey::DeleteLegacyValue(const QVString& name)
{
    if (legacyKey)
        legacyKey->DeleteValue(
            QVZoneValueName(*legacyKey, GetLegacyName(name), StoreZone()).c_str());
}

bool CZoneSettingsKey::WriteInt(const QVString& name, int32_t value)
{
    DeleteLegacyValue(name);
    return zoneKey && zoneKey->WriteInt(name.c_str(), value);
}

bool CZoneSettingsKey::WriteString(const QVString& name, const QVString& value)
{
    DeleteLegacyValue(name);
    return zoneKey && zoneKey->WriteString(name.c_str(), value.c_str());
}

double CZoneSettingsKey::ReadDouble(const QVString& name, double defaultValue)
{
    const QVString defaultText = QVPropertyMap::FormatDouble(defaultValue);
    QVString text = ReadString(name, defaultText);
    // An empty value leaves the default standing, as does an untouched default
    // (whose text might not read back bit for bit, like the smallest subnormals).
    if (text == defaultText || text.Trim().IsEmpty())
        return defaultValue;
    return QVPropertyMap::ParseDouble(text);
}

bool CZoneSettingsKey::WriteDouble(const QVString& name, double value)
{
    return WriteString(name, QVPropertyMap::FormatDouble(value));
}

bool CZoneSettingsKey::WriteSettingsBlob(const void* data)
{
    if (legacyKey)
        legacyKey->DeleteValue(GetLegacyName(u"Settings").c_str());
    return zoneKey && zoneKey->WriteBinary(u"Settings", data, kSettingsBlobSize);
}
