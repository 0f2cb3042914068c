#include "host/BuiltinTools.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

#include "frame/SettingsKey.h"
#include "support/TestSupport.h"

TEST(BuiltinTools, LogLevelFromTheEnvironmentText)
{
    EXPECT_EQ(CStderrLogger::ParseLevel(nullptr), 0);
    const std::pair<const char*, int32_t> levels[] = {
        {"", 0},   {"0", 0},   {"1", 1},  {"3", 3},
        {"-2", 0}, {"yes", 1}, {"2x", 1}, {"99999999999", INT32_MAX}};
    for (const auto& [text, level] : levels)
        EXPECT_EQ(CStderrLogger::ParseLevel(text), level) << text;
}

TEST(BuiltinTools, TheLevelComesFromTheEnvironmentAndWithoutOneThereIsNoLogger)
{
    CBuiltinTools tools(0);
    EXPECT_EQ(tools.GetLogger(0), nullptr);
    QVString text(u"Left");
    ASSERT_NE(tools.GetTranslator(false), nullptr);
    tools.GetTranslator(false)->Translate(text);
    EXPECT_EQ(text.ToUTF8(), "Left");
    // Keys open in the settings file; opening one writes nothing.
    std::unique_ptr<IQVSettingsKey> key(tools.GetPluginKeyObject(QVString(u"Plugins\\DSP"), true));
    EXPECT_NE(key, nullptr);
    ASSERT_NE(tools.GetScaler(), nullptr);
    EXPECT_EQ(tools.GetScaler()->Scale(17), 17);

    // The environment variable sets the level.
    const char* saved = std::getenv("QVDSP_LOG");
    const std::string savedValue = saved != nullptr ? saved : "";
    setenv("QVDSP_LOG", "2", 1);
    CBuiltinTools withLog;
    ASSERT_NE(withLog.GetLogger(0), nullptr);
    EXPECT_EQ(withLog.GetLogger(0)->GetLevel(), 2);
    unsetenv("QVDSP_LOG");
    CBuiltinTools withoutLog;
    EXPECT_EQ(withoutLog.GetLogger(0), nullptr);
    if (saved != nullptr)
        setenv("QVDSP_LOG", savedValue.c_str(), 1);
}

TEST(BuiltinTools, LoggerWritesLinesUpToItsLevelToStandardError)
{
    CBuiltinTools tools(2);
    IQVTools* previous = GetQVTools();
    SetQVTools(&tools);
    testing::internal::CaptureStderr();
    QVLog(1, u"QVThread::Stop", u"Hard killing thread (handle=%x), it exceeded timeout=%d MS", 255,
          5000);
    QVLog(2, u"CAudioConvolution::Load", u"%s", u"file.wav");
    QVLog(3, u"Hidden::Line", u"not written");
    const std::string written = testing::internal::GetCapturedStderr();
    SetQVTools(previous);
    EXPECT_EQ(written,
              "QVThread::Stop: Hard killing thread (handle=ff), it exceeded timeout=5000 MS\n"
              "CAudioConvolution::Load: file.wav\n");
}

TEST(BuiltinTools, LoggingWithoutToolsCostsNothingAndWritesNothing)
{
    IQVTools* previous = GetQVTools();
    SetQVTools(nullptr);
    testing::internal::CaptureStderr();
    QVLog(1, u"QVThread::Stop", u"%d", 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    QVString text(u"Left");
    QVTranslate(text);
    EXPECT_EQ(text.ToUTF8(), "Left");
    SetQVTools(previous);
}
