// The process-wide service object through which the module reaches the host:
// translator, logger, pixel scaler and settings keys. The order of its virtual
// operations is fixed; places the module does not use are reserved so that the
// used ones stay where the host's tools module has them. The pointer is null
// until tools are installed, and every user tests for null.
#pragma once

#include <cstdint>

#include "core/QVString.h"

class IQVSettingsKey;

// Translates visible text in place; a missing translator leaves the text.
class IQVTranslator
{
public:
    virtual void ReservedTranslator1() {}
    virtual void Translate(QVString& text) = 0;  // operation 2

protected:
    ~IQVTranslator() = default;
};

class IQVLogger
{
public:
    // Highest level that is written; 0 writes nothing. Lets callers skip the
    // formatting of lines nobody reads.
    virtual int32_t GetLevel() = 0;
    // One line: a heading ("QVThread::Stop") and the formatted text.
    virtual void Log(int32_t level, const QVString& heading, const QVString& text) = 0;

protected:
    ~IQVLogger() = default;
};

// Scales pixel values of panels.
class IQVScaler
{
public:
    virtual int32_t Scale(int32_t pixels) = 0;

protected:
    ~IQVScaler() = default;
};

// The host's converter of impulse files: any audio file it can read in, a
// file of the target rate and bit depth out. Made by IQVTools and given back
// through Release.
class IQVSoundConverter
{
public:
    virtual void SetTargetSampleRate(int32_t sampleRate) = 0;
    virtual void SetTargetBitDepth(int32_t bits) = 0;
    // 1 when `target` was written; anything else is a failure.
    virtual int32_t Convert(const QVString& source, const QVString& target) = 0;
    // "Output Filename" and "Input Samplerate" after a conversion; empty
    // text for an unknown name.
    virtual QVString GetProperty(const QVString& name) = 0;
    virtual void Release() = 0;

protected:
    ~IQVSoundConverter() = default;
};

// The program's description of itself, which a tools module loads for each
// module that asks.
class IQVProductDescription
{
public:
    // Loads the description for `moduleName` (empty: this program); false with
    // the reason in `error` (possibly empty) when it cannot.
    virtual bool Load(const QVString& moduleName, QVString& error) = 0;

protected:
    ~IQVProductDescription() = default;
};

class IQVTools
{
public:
    // 1: receives a value held by the sibling-module loader and this module's handle.
    virtual void Attach(void* loaderValue, void* moduleHandle) {}
    // 2: the product description; made on demand when `create` is true. Tools
    // without one (the built-in ones) need nothing loaded and answer null.
    virtual IQVProductDescription* GetProductDescription(bool create) { return nullptr; }
    virtual void* ReservedTools3() { return nullptr; }
    virtual void* ReservedTools4() { return nullptr; }
    virtual void* ReservedTools5() { return nullptr; }
    virtual void* ReservedTools6() { return nullptr; }
    virtual void* ReservedTools7() { return nullptr; }
    virtual IQVTranslator* GetTranslator(bool create) = 0;  // 8
    virtual void* ReservedTools9() { return nullptr; }
    virtual void* ReservedTools10() { return nullptr; }
    virtual IQVLogger* GetLogger(int32_t kind) = 0;  // 11
    // 12: a new sound converter, or null when the tools have none.
    virtual IQVSoundConverter* CreateSoundConverter() { return nullptr; }
    virtual void* ReservedTools13() { return nullptr; }
    virtual void* ReservedTools14() { return nullptr; }
    virtual void* ReservedTools15() { return nullptr; }
    virtual void* ReservedTools16() { return nullptr; }
    virtual void* ReservedTools17() { return nullptr; }
    virtual void* ReservedTools18() { return nullptr; }
    virtual void* ReservedTools19() { return nullptr; }
    virtual IQVScaler* GetScaler() = 0;  // 20
    virtual void* ReservedTools21() { return nullptr; }
    virtual void* ReservedTools22() { return nullptr; }
    virtual void* ReservedTools23() { return nullptr; }
    virtual void* ReservedTools24() { return nullptr; }
    virtual void* ReservedTools25() { return nullptr; }
    // 26: opens a settings key by its backslash-separated path; null if it cannot.
    // The caller owns the key. `systemScope` is true only for registration keys.
    virtual IQVSettingsKey* GetPluginKeyObject(const QVString& path, bool systemScope) = 0;

protected:
    ~IQVTools() = default;
};

IQVTools* GetQVTools();
void SetQVTools(IQVTools* tools);

// Null-safe access for the common uses.
void QVTranslate(QVString& text);
QVString QVTranslated(const char16_t* text);
IQVLogger* QVGetLogger();

// Writes one log line under `heading` ("QVThread::Stop"); the text is formatted
// only when a logger takes lines of this level, so a missing logger costs a test.
template <typename... Args>
void QVLog(int32_t level, const char16_t* heading, const char16_t* format, const Args&... args)
{
    IQVLogger* logger = QVGetLogger();
    if (logger == nullptr || logger->GetLevel() < level)
        return;
    logger->Log(level, QVString(heading), QVString::Format(format, args...));
}
