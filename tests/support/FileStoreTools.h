// Tools whose settings keys live in a JSON file of their own, removed again
// afterwards, so that a test can make plug-ins load and save for real without
// ever reaching the user's settings.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "frame/SettingsKey.h"
#include "host/SettingsStore.h"
#include "support/TestTools.h"

namespace qvtest
{

class FileStoreTools : public TestTools
{
public:
    FileStoreTools()
    {
        path =
            (std::filesystem::temp_directory_path() / ("qvdsp-store-" + std::to_string(::getpid()) +
                                                       "-" + std::to_string(counter++) + ".json"))
                .string();
        std::filesystem::remove(path);
        withTranslator = false;
    }
    ~FileStoreTools() { std::filesystem::remove(path); }
    IQVSettingsKey* GetPluginKeyObject(const QVString& keyPath, bool systemScope) override
    {
        return new CFileSettingsKey(path, NormalizeSettingsPath(keyPath.ToUTF8(), false),
                                    systemScope);
    }
    std::string path;

private:
    static inline int counter = 0;
};

// Installs FileStoreTools as the process-wide tools for the life of the object.
class ScopedFileStore
{
public:
    ScopedFileStore() : previous(GetQVTools()) { SetQVTools(&tools); }
    ~ScopedFileStore() { SetQVTools(previous); }
    ScopedFileStore(const ScopedFileStore&) = delete;
    ScopedFileStore& operator=(const ScopedFileStore&) = delete;

    // A key of the store by path, for looking behind the plug-in's back.
    std::unique_ptr<IQVSettingsKey> Key(const char16_t* keyPath)
    {
        return std::unique_ptr<IQVSettingsKey>(tools.GetPluginKeyObject(QVString(keyPath), false));
    }
    std::string Read(const char16_t* keyPath, const char16_t* name)
    {
        return QVReadSettingsString(*Key(keyPath), QVString(name), QVString(u"<none>"), 0).ToUTF8();
    }
    void Write(const char16_t* keyPath, const char16_t* name, const char16_t* value)
    {
        Key(keyPath)->WriteString(name, value);
    }

    FileStoreTools tools;

private:
    IQVTools* previous;
};

}  // namespace qvtest
