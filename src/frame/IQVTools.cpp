#include "frame/IQVTools.h"

#include <atomic>

namespace
{
std::atomic<IQVTools*> g_tools{nullptr};
}

IQVTools* GetQVTools()
{
    return g_tools.load(std::memory_order_acquire);
}

void SetQVTools(IQVTools* tools)
{
    g_tools.store(tools, std::memory_order_release);
}

void QVTranslate(QVString& text)
{
    IQVTools* tools = GetQVTools();
    IQVTranslator* translator = tools != nullptr ? tools->GetTranslator(false) : nullptr;
    if (translator != nullptr)
        translator->Translate(text);
}

QVString QVTranslated(const char16_t* text)
{
    QVString result(text);
    QVTranslate(result);
    return result;
}

IQVLogger* QVGetLogger()
{
    IQVTools* tools = GetQVTools();
    return tools != nullptr ? tools->GetLogger(0) : nullptr;
}
