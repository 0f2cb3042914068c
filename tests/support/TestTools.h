// Tools for tests: a translator that marks what passes through it, and a
// logger that keeps its lines. ScopedTestTools installs them as the
// process-wide tools and puts the previous ones back at the end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "frame/IQVTools.h"
#include "host/SoundConverter.h"

namespace qvtest
{

// Puts a prefix before every text it translates ("[t]Left"), so that tests see
// which texts went through the translator.
class MarkingTranslator : public IQVTranslator
{
public:
    explicit MarkingTranslator(std::u16string prefix = u"[t]") : prefix(std::move(prefix)) {}
    void Translate(QVString& text) override;
    int32_t calls = 0;

private:
    std::u16string prefix;
};

class KeepingLogger : public IQVLogger
{
public:
    int32_t GetLevel() override { return level; }
    void Log(int32_t lineLevel, const QVString& heading, const QVString& text) override;

    int32_t level = 9;
    std::vector<int32_t> levels;
    std::vector<std::string> headings;  // UTF-8
    std::vector<std::string> texts;     // UTF-8
};

class TestTools : public IQVTools
{
public:
    IQVTranslator* GetTranslator(bool create) override
    {
        return withTranslator ? &translator : nullptr;
    }
    IQVLogger* GetLogger(int32_t kind) override { return withLogger ? &logger : nullptr; }
    IQVScaler* GetScaler() override { return nullptr; }
    IQVSettingsKey* GetPluginKeyObject(const QVString& path, bool systemScope) override
    {
        return nullptr;
    }
    IQVSoundConverter* CreateSoundConverter() override
    {
        return withConverter ? new CBuiltinSoundConverter : nullptr;
    }

    MarkingTranslator translator;
    KeepingLogger logger;
    bool withTranslator = true;
    bool withLogger = true;
    bool withConverter = true;
};

class ScopedTestTools
{
public:
    ScopedTestTools();
    ~ScopedTestTools();
    ScopedTestTools(const ScopedTestTools&) = delete;
    ScopedTestTools& operator=(const ScopedTestTools&) = delete;

    TestTools tools;

private:
    IQVTools* previous;
};

}  // namespace qvtest
