#include "core/QVStringArray.h"

#include <algorithm>

QVStringArray QVStringArray::Split(const QVString& text, std::u16string_view separator,
                                   bool keepEmpty)
{
    QVStringArray pieces;
    if (separator.empty())
    {
        if (!text.IsEmpty() || keepEmpty)
            pieces.Add(text);
        return pieces;
    }
    int32_t start = 0;
    for (;;)
    {
        const int32_t found = text.Find(separator, start);
        const int32_t end = found >= 0 ? found : text.GetLength();
        if (end > start || keepEmpty)
            pieces.Add(text.Mid(start, end - start));
        if (found < 0)
            break;
        start = found + static_cast<int32_t>(separator.size());
    }
    return pieces;
}

QVStringArray QVString::Split(std::u16string_view separator, bool keepEmpty) const
{
    return QVStringArray::Split(*this, separator, keepEmpty);
}

QVStringArray QVStringArray::SplitAny(const QVString& text, std::u16string_view separators,
                                      bool keepEmpty)
{
    QVStringArray pieces;
    int32_t start = 0;
    for (;;)
    {
        const int32_t found = separators.empty() ? -1 : text.FindOneOf(separators, start);
        const int32_t end = found >= 0 ? found : text.GetLength();
        if (end > start || keepEmpty)
            pieces.Add(text.Mid(start, end - start));
        if (found < 0)
            break;
        start = found + 1;
    }
    return pieces;
}

QVString QVStringArray::Join(std::u16string_view separator) const
{
    QVString joined;
    for (int32_t i = 0; i < GetCount(); ++i)
    {
        if (i > 0)
            joined.Append(separator);
        joined += (*this)[i];
    }
    return joined;
}

int32_t QVStringArray::Find(const char16_t* text, bool noCase, int32_t start) const
{
    for (int32_t i = std::max(start, 0); i < GetCount(); ++i)
    {
        const QVString& entry = (*this)[i];
        if (noCase ? entry.CompareNoCase(text) == 0 : entry == text)
            return i;
    }
    return -1;
}

void QVStringArray::Sort(bool noCase, bool descending)
{
    std::stable_sort(begin(), end(),
                     [noCase, descending](const QVString& a, const QVString& b)
                     {
                         const int order = noCase ? a.CompareNoCase(b) : a.Compare(b);
                         return descending ? order > 0 : order < 0;
                     });
}
