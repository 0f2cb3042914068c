// The XMLFN form of a file name: a path and the items that travel with it.
// Kept apart from the disk operations so that it needs nothing but the XML
// reader.
#include "core/QVFileSystem.h"
#include "core/QVPropertyMap.h"
#include "core/QVXml.h"

#include <algorithm>
#include <vector>

namespace
{
constexpr char16_t kFileNameRoot[] = u"XMLFN";
constexpr char16_t kFileNameItem[] = u"Filename";

void AppendItem(QVString& text, const QVString& name, const QVString& value)
{
    text += u"<Item Name=\"";
    text.Append(QVXml::Escape(name.View()));
    text += u"\">";
    text.Append(QVXml::Escape(value.View()));
    text += u"</Item>";
}
}  // namespace

QVString QVFileSystem::MakeFileNameText(const QVString& path, const QVPropertyMap* extras)
{
    if (IsURL(path) || extras == nullptr || extras->GetCount() == 0)
        return path;
    QVString text = u"<XMLFN version=\"1.0\">";
    AppendItem(text, kFileNameItem, path);
    // Sorted, so that the same name and items always give the same text.
    std::vector<std::pair<QVString, QVString>> items;
    extras->ForEach([&](const QVString& name, const QVString& value)
                    { items.emplace_back(name, value); });
    std::sort(items.begin(), items.end());
    for (const auto& [name, value] : items)
    {
        // Items are named with case, as the map keeps them: only the path's
        // own name is left out, not "FileName" or "FILENAME".
        if (name != kFileNameItem)
            AppendItem(text, name, value);
    }
    text += u"</XMLFN>";
    return text;
}

bool QVFileSystem::ReadFileNameText(const QVString& text, QVString& path, QVPropertyMap* extras)
{
    if (extras != nullptr)
        extras->Clear();
    if (!QVPropertyMap::IsFileNameText(text) || IsURL(text))
    {
        path = text;
        return true;
    }
    QVPropertyMap items;
    if (!items.LoadXML(kFileNameRoot, text, 1.0) || !items.Exists(kFileNameItem))
    {
        path.Empty();
        return false;
    }
    path = items.GetString(kFileNameItem);
    if (extras != nullptr)
    {
        items.Remove(kFileNameItem);
        extras->Assign(items);
    }
    return true;
}

QVString QVFileSystem::GetPlainPath(const QVString& text)
{
    QVString path;
    ReadFileNameText(text, path);
    return path;
}
