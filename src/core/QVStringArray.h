// An array of QVString with join, split, search and sort.
#pragma once

#include <string_view>

#include "core/QVArray.h"
#include "core/QVString.h"

class QVStringArray : public QVArray<QVString>
{
public:
    using QVArray<QVString>::QVArray;

    // Pieces between each occurrence of `separator` (a whole text, not a set of
    // characters); empty pieces are kept unless `keepEmpty` is false.
    static QVStringArray Split(const QVString& text, std::u16string_view separator,
                               bool keepEmpty = true);
    // Pieces between any of the `separators` characters.
    static QVStringArray SplitAny(const QVString& text, std::u16string_view separators,
                                  bool keepEmpty = true);
    QVString Join(std::u16string_view separator) const;

    int32_t Find(const char16_t* text, bool noCase = false, int32_t start = 0) const;
    bool Contains(const char16_t* text, bool noCase = false) const
    {
        return Find(text, noCase) >= 0;
    }
    // Stable: equal entries keep their order.
    void Sort(bool noCase = false, bool descending = false);
};
