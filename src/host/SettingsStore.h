#pragma once

// The settings store of a build without the host: IQVSettingsKey over the
// JSON file of CSettingsFile.
//
// The document holds two branches, "user" and "system" (keys opened with
// systemScope). Each branch maps a key's full path, its parts joined by "\",
// to an object of the key's values. A value keeps its type by its JSON form:
// a number is an integer, a string is text, and {"binary": "<hex>"} is bytes:
//
//   { "user": { "Zones\\Global\\Tempo & Pitch": { "Enabled": 1, "Tempo": "1.25" } } }
//
// Sub-keys are implied by paths; a key whose last value goes is dropped.
// Names are kept and matched exactly as given.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "frame/SettingsKey.h"
#include "host/SettingsFile.h"

// The value-zone naming of this store: zone 0 reads the plain name, any other
// zone reads "<name> (Zone <n>)".
QVString QVSettingsZoneValueName(const QVString& name, int32_t zone);

// A key path with its parts joined by single backslashes, with empty parts
// dropped. With acceptSlash, "/" separates parts as well (for typed paths).
std::string NormalizeSettingsPath(std::string_view path, bool acceptSlash);

// Bytes as the store writes them: two lower-case hexadecimal digits each.
std::string SettingsHexOf(const uint8_t* data, size_t size);
// The value of one hexadecimal digit of either case, or -1.
int SettingsHexDigit(char c);

class CFileSettingsKey : public IQVSettingsKey
{
public:
    CFileSettingsKey(std::string filePath, std::string keyPath, bool systemScope);

    bool ReadBinary(const char16_t* name, IQVDllBuffer* buffer, int32_t zone,
                    int32_t reserved = 0) override;
    int32_t ReadInt(const char16_t* name, int32_t defaultValue, int32_t zone,
                    int32_t reserved = 0) override;
    void ReadString(QVSystemString* result, const char16_t* name, const char16_t* defaultValue,
                    int32_t zone, const char16_t* fallback = nullptr,
                    int32_t reserved = 0) override;
    bool WriteBinary(const char16_t* name, const void* data, int32_t byteCount,
                     int32_t reserved1 = 0, int32_t reserved2 = 0) override;
    bool WriteInt(const char16_t* name, int32_t value, int32_t reserved1 = 0,
                  int32_t reserved2 = 0) override;
    bool WriteString(const char16_t* name, const char16_t* value, int32_t reserved1 = 0,
                     const char16_t* reserved2 = nullptr, int32_t reserved3 = 0) override;
    bool DeleteValue(const char16_t* name) override;
    bool DeleteAllValues() override;
    bool DeleteSubkey(const char16_t* name, int32_t reserved = 0) override;
    bool EnumValueName(int32_t index, QVSystemString* name) override;
    void GetZoneValueName(QVSystemString* result, const char16_t* name, int32_t zone) override;
    bool EnumSubkeyName(int32_t index, QVSystemString* name) override;
    int32_t GetValueType(const char16_t* name) override;

    const std::string& GetKeyPath() const { return keyPath; }
    const std::string& GetFilePath() const { return file.GetPath(); }

    // The stored value as JSON, whatever its type, or nothing when there is
    // none; for listings, which show values the store would not write itself.
    std::optional<nlohmann::json> ReadRawValue(const QVString& name);

private:
    const char* Branch() const { return systemScope ? "system" : "user"; }
    nlohmann::json ReadValue(const char16_t* name, int32_t zone);
    bool WriteValue(const char16_t* name, nlohmann::json value);
    std::vector<std::string> SubkeyNames() const;

    CSettingsFile file;
    std::string keyPath;
    bool systemScope;
    std::vector<QVString> listedValues;
    std::vector<QVString> listedSubkeys;
};

// Opens a key of the file that CSettingsFile::DefaultPath names; what the
// built-in tools answer to GetPluginKeyObject.
IQVSettingsKey* OpenFileSettingsKey(const QVString& path, bool systemScope);
