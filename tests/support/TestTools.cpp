#include "support/TestTools.h"

namespace qvtest
{

void MarkingTranslator::Translate(QVString& text)
{
    ++calls;
    text = QVString(prefix.c_str()) + text;
}

void KeepingLogger::Log(int32_t lineLevel, const QVString& heading, const QVString& text)
{
    levels.push_back(lineLevel);
    headings.push_back(heading.ToUTF8());
    texts.push_back(text.ToUTF8());
}

ScopedTestTools::ScopedTestTools() : previous(GetQVTools())
{
    SetQVTools(&tools);
}

ScopedTestTools::~ScopedTestTools()
{
    SetQVTools(previous);
}

}  // namespace qvtest
