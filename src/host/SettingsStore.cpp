#include "host/SettingsStore.h"

#include <limits>
#include <set>

namespace
{

using nlohmann::json;

std::string Utf8(const char16_t* text)
{
    return QVString(text).ToUTF8();
}

bool BytesOf(const std::string& hex, std::vector<uint8_t>& bytes)
{
    if (hex.size() % 2 != 0)
        return false;
    bytes.clear();
    for (size_t i = 0; i < hex.size(); i += 2)
    {
        const int high = SettingsHexDigit(hex[i]);
        const int low = SettingsHexDigit(hex[i + 1]);
        if (high < 0 || low < 0)
            return false;
        bytes.push_back(static_cast<uint8_t>(high * 16 + low));
    }
    return true;
}

bool IsBinaryValue(const json& value)
{
    if (!value.is_object() || value.size() != 1)
        return false;
    const auto found = value.find("binary");
    return found != value.end() && found->is_string();
}

// Text that is an integer and nothing else: values written as text by hand
// (or by `qvdsp settings set` without --int) still read as numbers.
bool ParseInt32(const std::string& text, int32_t& value)
{
    size_t i = 0;
    const bool negative = !text.empty() && text[0] == '-';
    if (!text.empty() && (text[0] == '-' || text[0] == '+'))
        ++i;
    if (i == text.size() || text.size() - i > 10)
        return false;
    int64_t magnitude = 0;
    for (; i < text.size(); ++i)
    {
        if (text[i] < '0' || text[i] > '9')
            return false;
        magnitude = magnitude * 10 + (text[i] - '0');
    }
    const int64_t signedValue = negative ? -magnitude : magnitude;
    if (signedValue < std::numeric_limits<int32_t>::min() ||
        signedValue > std::numeric_limits<int32_t>::max())
        return false;
    value = static_cast<int32_t>(signedValue);
    return true;
}

bool IntOf(const json& value, int32_t& result)
{
    if (value.is_number_integer())
    {
        const int64_t wide =
            value.is_number_unsigned()
                ? static_cast<int64_t>(std::min<uint64_t>(value.get<uint64_t>(), INT64_MAX))
                : value.get<int64_t>();
        if (wide < std::numeric_limits<int32_t>::min() ||
            wide > std::numeric_limits<int32_t>::max())
            return false;
        result = static_cast<int32_t>(wide);
        return true;
    }
    return value.is_string() && ParseInt32(value.get<std::string>(), result);
}

const json* FindMember(const json& object, const std::string& name)
{
    if (!object.is_object())
        return nullptr;
    const auto found = object.find(name);
    return found != object.end() ? &*found : nullptr;
}

void SetSystemString(QVSystemString* result, const QVString& text)
{
    if (result != nullptr)
        *result = QVAllocSystemString(text.View());
}

}  // namespace

std::string SettingsHexOf(const uint8_t* data, size_t size)
{
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(size * 2);
    for (size_t i = 0; i < size; ++i)
    {
        hex.push_back(kDigits[data[i] >> 4]);
        hex.push_back(kDigits[data[i] & 15]);
    }
    return hex;
}

int SettingsHexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

QVString QVSettingsZoneValueName(const QVString& name, int32_t zone)
{
    if (zone == 0)
        return name;
    return QVString::Format(u"%s (Zone %d)", name, zone);
}

std::string NormalizeSettingsPath(std::string_view path, bool acceptSlash)
{
    std::string normalized;
    size_t i = 0;
    while (i <= path.size())
    {
        size_t end = i;
        while (end < path.size() && path[end] != '\\' && !(acceptSlash && path[end] == '/'))
            ++end;
        if (end > i)
        {
            if (!normalized.empty())
                normalized.push_back('\\');
            normalized.append(path.substr(i, end - i));
        }
        i = end + 1;
    }
    return normalized;
}

CFileSettingsKey::CFileSettingsKey(std::string filePath, std::string keyPath, bool systemScope)
    : file(std::move(filePath)), keyPath(NormalizeSettingsPath(keyPath, false)),
      systemScope(systemScope)
{
}

json CFileSettingsKey::ReadValue(const char16_t* name, int32_t zone)
{
    const std::string valueName = QVSettingsZoneValueName(name, zone).ToUTF8();
    json result;
    file.Inspect(
        [&](const json& document)
        {
            const json* key = FindMember(document, Branch());
            key = key != nullptr ? FindMember(*key, keyPath) : nullptr;
            const json* value = key != nullptr ? FindMember(*key, valueName) : nullptr;
            if (value != nullptr)
                result = *value;
        });
    return result;
}

std::optional<json> CFileSettingsKey::ReadRawValue(const QVString& name)
{
    const std::string valueName = name.ToUTF8();
    std::optional<json> result;
    file.Inspect(
        [&](const json& document)
        {
            const json* key = FindMember(document, Branch());
            key = key != nullptr ? FindMember(*key, keyPath) : nullptr;
            if (const json* value = key != nullptr ? FindMember(*key, valueName) : nullptr)
                result = *value;
        });
    return result;
}

bool CFileSettingsKey::ReadBinary(const char16_t* name, IQVDllBuffer* buffer, int32_t zone, int32_t)
{
    const json value = ReadValue(name, zone);
    std::vector<uint8_t> bytes;
    if (!IsBinaryValue(value) || !BytesOf(value["binary"].get<std::string>(), bytes))
        return false;
    if (buffer != nullptr)
        buffer->SetData(bytes.data(), bytes.size());
    return true;
}

int32_t CFileSettingsKey::ReadInt(const char16_t* name, int32_t defaultValue, int32_t zone, int32_t)
{
    int32_t result = defaultValue;
    return IntOf(ReadValue(name, zone), result) ? result : defaultValue;
}

void CFileSettingsKey::ReadString(QVSystemString* result, const char16_t* name,
                                  const char16_t* defaultValue, int32_t zone,
                                  const char16_t* fallback, int32_t)
{
    const json value = ReadValue(name, zone);
    if (value.is_string())
        SetSystemString(result, QVString::FromUTF8(value.get<std::string>()));
    else if (value.is_number_integer())
        SetSystemString(result, QVString::FromUTF8(value.dump()));
    else
        SetSystemString(result, QVString(defaultValue != nullptr ? defaultValue : fallback));
}

bool CFileSettingsKey::WriteValue(const char16_t* name, json value)
{
    const std::string valueName = Utf8(name);
    return file.Update(
        [&](json& document)
        {
            json& key = document[Branch()][keyPath];
            const auto existing = key.find(valueName);
            if (existing != key.end() && *existing == value)
                return false;  // unchanged: leave the file as it is
            key[valueName] = std::move(value);
            return true;
        });
}

bool CFileSettingsKey::WriteBinary(const char16_t* name, const void* data, int32_t byteCount,
                                   int32_t, int32_t)
{
    if (byteCount < 0 || (data == nullptr && byteCount > 0))
        return false;
    return WriteValue(name, json{{"binary", SettingsHexOf(static_cast<const uint8_t*>(data),
                                                          static_cast<size_t>(byteCount))}});
}

bool CFileSettingsKey::WriteInt(const char16_t* name, int32_t value, int32_t, int32_t)
{
    return WriteValue(name, json(value));
}

bool CFileSettingsKey::WriteString(const char16_t* name, const char16_t* value, int32_t,
                                   const char16_t*, int32_t)
{
    return WriteValue(name, json(Utf8(value)));
}

bool CFileSettingsKey::DeleteValue(const char16_t* name)
{
    const std::string valueName = Utf8(name);
    return file.Update(
        [&](json& document)
        {
            if (FindMember(document, Branch()) == nullptr)
                return false;
            json& branch = document[Branch()];
            const auto key = branch.find(keyPath);
            if (key == branch.end() || key->erase(valueName) == 0)
                return false;
            if (key->empty())
                branch.erase(key);
            return true;
        });
}

bool CFileSettingsKey::DeleteAllValues()
{
    return file.Update(
        [&](json& document)
        {
            if (FindMember(document, Branch()) == nullptr)
                return false;
            return document[Branch()].erase(keyPath) != 0;
        });
}

bool CFileSettingsKey::DeleteSubkey(const char16_t* name, int32_t)
{
    const std::string sub = NormalizeSettingsPath(Utf8(name), false);
    if (sub.empty())
        return false;  // never the key itself
    const std::string target = keyPath.empty() ? sub : keyPath + "\\" + sub;
    const std::string below = target + "\\";
    return file.Update(
        [&](json& document)
        {
            if (FindMember(document, Branch()) == nullptr)
                return false;
            json& branch = document[Branch()];
            std::vector<std::string> doomed;
            for (const auto& key : branch.items())
            {
                if (key.key() == target || key.key().starts_with(below))
                    doomed.push_back(key.key());
            }
            for (const std::string& path : doomed)
                branch.erase(path);
            return !doomed.empty();
        });
}

bool CFileSettingsKey::EnumValueName(int32_t index, QVSystemString* name)
{
    if (index == 0)
    {
        listedValues.clear();
        file.Inspect(
            [&](const json& document)
            {
                const json* key = FindMember(document, Branch());
                key = key != nullptr ? FindMember(*key, keyPath) : nullptr;
                if (key == nullptr)
                    return;
                for (const auto& value : key->items())  // a JSON object keeps its members sorted
                    listedValues.push_back(QVString::FromUTF8(value.key()));
            });
    }
    if (index < 0 || static_cast<size_t>(index) >= listedValues.size())
        return false;
    SetSystemString(name, listedValues[static_cast<size_t>(index)]);
    return true;
}

std::vector<std::string> CFileSettingsKey::SubkeyNames() const
{
    std::set<std::string> names;
    const std::string prefix = keyPath.empty() ? std::string() : keyPath + "\\";
    file.Inspect(
        [&](const json& document)
        {
            const json* branch = FindMember(document, Branch());
            if (branch == nullptr)
                return;
            for (const auto& key : branch->items())
            {
                const std::string& path = key.key();
                if (path.size() <= prefix.size() || !path.starts_with(prefix))
                    continue;
                const std::string rest =
                    NormalizeSettingsPath(std::string_view(path).substr(prefix.size()), false);
                if (!rest.empty())
                    names.insert(rest.substr(0, rest.find('\\')));
            }
        });
    return {names.begin(), names.end()};
}

bool CFileSettingsKey::EnumSubkeyName(int32_t index, QVSystemString* name)
{
    if (index == 0)
    {
        listedSubkeys.clear();
        for (const std::string& subkey : SubkeyNames())
            listedSubkeys.push_back(QVString::FromUTF8(subkey));
    }
    if (index < 0 || static_cast<size_t>(index) >= listedSubkeys.size())
        return false;
    SetSystemString(name, listedSubkeys[static_cast<size_t>(index)]);
    return true;
}

void CFileSettingsKey::GetZoneValueName(QVSystemString* result, const char16_t* name, int32_t zone)
{
    SetSystemString(result, QVSettingsZoneValueName(name, zone));
}

int32_t CFileSettingsKey::GetValueType(const char16_t* name)
{
    const json value = ReadValue(name, 0);
    if (value.is_number_integer())
        return SETTINGS_TYPE_INT;
    if (value.is_string())
        return SETTINGS_TYPE_STRING;
    if (IsBinaryValue(value))
        return SETTINGS_TYPE_BINARY;
    return SETTINGS_TYPE_NONE;
}

IQVSettingsKey* OpenFileSettingsKey(const QVString& path, bool systemScope)
{
    return new CFileSettingsKey(CSettingsFile::DefaultPath(), path.ToUTF8(), systemScope);
}
