#include "frame/PanelModel.h"

#include "frame/IQVTools.h"

QVTextPanelModel::QVTextPanelModel(std::initializer_list<const char16_t*> texts) : paragraphs(texts)
{
}

QVString QVTextPanelModel::GetText() const
{
    QVString text;
    for (const char16_t* paragraph : paragraphs)
        text += QVTranslated(paragraph);
    return text;
}
