#include "host/BuiltinTools.h"

#include "host/SettingsStore.h"
#include "host/SoundConverter.h"

#include <cstdio>
#include <cstdlib>
#include <string>

int32_t CStderrLogger::ParseLevel(const char* value)
{
    if (value == nullptr || *value == '\0')
        return 0;
    char* end = nullptr;
    const long parsed = std::strtol(value, &end, 10);
    if (end == value || *end != '\0')
        return 1;  // set, but not a number: errors at least
    if (parsed < 0)
        return 0;
    return parsed > INT32_MAX ? INT32_MAX : static_cast<int32_t>(parsed);
}

void CStderrLogger::Log(int32_t lineLevel, const QVString& heading, const QVString& text)
{
    if (lineLevel > level)
        return;
    // One write per line, so that lines of several threads do not interleave.
    std::string line = heading.ToUTF8();
    line += ": ";
    line += text.ToUTF8();
    line += '\n';
    std::lock_guard<std::mutex> guard(writeLock);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fflush(stderr);
}

CBuiltinTools::CBuiltinTools() : CBuiltinTools(CStderrLogger::ParseLevel(std::getenv("QVDSP_LOG")))
{
}

CBuiltinTools::CBuiltinTools(int32_t logLevel) : logger(logLevel) {}

IQVLogger* CBuiltinTools::GetLogger(int32_t kind)
{
    return logger.GetLevel() > 0 ? &logger : nullptr;
}

IQVSettingsKey* CBuiltinTools::GetPluginKeyObject(const QVString& path, bool systemScope)
{
    return OpenFileSettingsKey(path, systemScope);
}

IQVSoundConverter* CBuiltinTools::CreateSoundConverter()
{
    return new CBuiltinSoundConverter;
}

CBuiltinTools::~CBuiltinTools()
{
    // Nobody may reach the tools through the process-wide pointer once they are gone.
    if (GetQVTools() == this)
        SetQVTools(nullptr);
}

CBuiltinTools& GetBuiltinTools()
{
    static CBuiltinTools tools;
    return tools;
}
