// The tools of a build without the host: a translator that leaves text as it
// is, a logger to standard error, a scaler that keeps pixel values. Settings
// keys open in the JSON file of the settings store (host/SettingsStore.h).
#pragma once

#include <cstdint>
#include <mutex>

#include "frame/IQVTools.h"

class CBuiltinTranslator : public IQVTranslator
{
public:
    void Translate(QVString& text) override {}
};

// Writes lines of a level up to the one the environment variable QVDSP_LOG
// names (1 = errors) to standard error; without it, nothing is written and
// GetLogger answers null, so that logging costs nothing.
class CStderrLogger : public IQVLogger
{
public:
    explicit CStderrLogger(int32_t level) : level(level) {}
    int32_t GetLevel() override { return level; }
    void Log(int32_t lineLevel, const QVString& heading, const QVString& text) override;

    // The level that the text of QVDSP_LOG names; 0 for unset or "0", 1 for
    // text that is set but is not a number.
    static int32_t ParseLevel(const char* value);

private:
    int32_t level;
    std::mutex writeLock;  // keeps lines of two threads apart
};

class CIdentityScaler : public IQVScaler
{
public:
    int32_t Scale(int32_t pixels) override { return pixels; }
};

class CBuiltinTools : public IQVTools
{
public:
    CBuiltinTools();
    explicit CBuiltinTools(int32_t logLevel);
    ~CBuiltinTools();

    IQVTranslator* GetTranslator(bool create) override { return &translator; }
    IQVLogger* GetLogger(int32_t kind) override;
    IQVScaler* GetScaler() override { return &scaler; }
    IQVSettingsKey* GetPluginKeyObject(const QVString& path, bool systemScope) override;
    IQVSoundConverter* CreateSoundConverter() override;

private:
    CBuiltinTranslator translator;
    CStderrLogger logger;
    CIdentityScaler scaler;
};

// The one instance the module installs when no tools module is present.
CBuiltinTools& GetBuiltinTools();
