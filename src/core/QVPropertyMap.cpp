#include "core/QVPropertyMap.h"

#include <charconv>
#include <cstring>

namespace
{

constexpr std::u16string_view kItem = u"Item";

int HexValue(char16_t c)
{
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    return -1;
}

QVString FromAscii(const char* text, size_t length)
{
    std::u16string wide(text, text + length);
    return QVString(wide.c_str(), static_cast<int32_t>(wide.size()));
}

bool SameDouble(double a, double b)
{
    // Bit equality, so that -0.0 keeps its sign.
    return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace

QVPropertyMap::QVPropertyMap(const QVPropertyMap& other)
{
    Merge(other);
}

QVPropertyMap& QVPropertyMap::operator=(const QVPropertyMap& other)
{
    Assign(other);
    return *this;
}

QVPropertyMap::~QVPropertyMap() = default;

QVPropertyMap::Storage& QVPropertyMap::Entries()
{
    if (!entries)
        entries = std::make_unique<Storage>();
    return *entries;
}

bool QVPropertyMap::Exists(const QVString& name) const
{
    return entries != nullptr && entries->Contains(name);
}

QVString QVPropertyMap::GetString(QVString& result, const QVString& name,
                                  const char16_t* defaultText) const
{
    const QVString* found = entries != nullptr ? entries->Find(name) : nullptr;
    result = found != nullptr ? *found : QVString(defaultText);
    return result;
}

QVString QVPropertyMap::GetString(const QVString& name, const char16_t* defaultText) const
{
    QVString result;
    return GetString(result, name, defaultText);
}

int32_t QVPropertyMap::GetInt(const QVString& name, int32_t defaultValue) const
{
    return static_cast<int32_t>(GetInt64(name, defaultValue));
}

int64_t QVPropertyMap::GetInt64(const QVString& name, int64_t defaultValue) const
{
    QVString text;
    GetString(text, name, QVString::FromInt(defaultValue).c_str());
    return text.ToInt();
}

uint64_t QVPropertyMap::GetUInt64(const QVString& name, uint64_t defaultValue) const
{
    return static_cast<uint64_t>(GetInt64(name, static_cast<int64_t>(defaultValue)));
}

double QVPropertyMap::GetDouble(const QVString& name, double defaultValue) const
{
    // The default would go through text and back unchanged; skip the trip.
    const QVString* found = entries != nullptr ? entries->Find(name) : nullptr;
    return found != nullptr ? ParseDouble(*found) : defaultValue;
}

uint64_t QVPropertyMap::GetHex(const QVString& name, const char16_t* defaultText) const
{
    QVString text;
    GetString(text, name, defaultText);
    int32_t i = 0;
    if (text.GetLength() >= 2 && text[0] == u'0' && (text[1] == u'x' || text[1] == u'X'))
        i = 2;
    uint64_t value = 0;
    for (; i < text.GetLength() && HexValue(text[i]) >= 0; ++i)
        value = (value << 4) | static_cast<uint64_t>(HexValue(text[i]));
    return value;
}

void QVPropertyMap::SetString(const QVString& name, const QVString& value, bool removeIfEmpty)
{
    if (removeIfEmpty && value.IsEmpty())
    {
        Remove(name);
        return;
    }
    Entries().SetAt(name, value);
}

void QVPropertyMap::SetInt(const QVString& name, int32_t value)
{
    SetInt64(name, value);
}

void QVPropertyMap::SetInt64(const QVString& name, int64_t value)
{
    SetString(name, QVString::FromInt(value));
}

void QVPropertyMap::SetUInt64(const QVString& name, uint64_t value)
{
    SetInt64(name, static_cast<int64_t>(value));
}

void QVPropertyMap::SetHex(const QVString& name, uint64_t value)
{
    static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
    char16_t text[16];
    for (int i = 15; i >= 0; --i, value >>= 4)
        text[i] = kDigits[value & 15];
    SetString(name, QVString(text, 16));
}

void QVPropertyMap::SetDouble(const QVString& name, double value)
{
    SetString(name, FormatDouble(value));
}

void QVPropertyMap::Clear()
{
    entries.reset();
}

void QVPropertyMap::Remove(const QVString& name)
{
    if (entries == nullptr)
        return;
    entries->Remove(name);
    if (entries->IsEmpty())
        entries.reset();
}

bool QVPropertyMap::Assign(const QVPropertyMap& other)
{
    if (&other == this)
        return true;
    Clear();
    return Merge(other);
}

bool QVPropertyMap::Merge(const QVPropertyMap& other)
{
    if (&other == this)
        return true;
    other.ForEach([this](const QVString& name, const QVString& value)
                  { Entries().SetAt(name, value); });
    return true;
}

bool QVPropertyMap::IsEqual(const QVPropertyMap& other) const
{
    if (GetCount() != other.GetCount())
        return false;
    bool equal = true;
    ForEach(
        [&](const QVString& name, const QVString& value)
        {
            const QVString* theirs = other.entries != nullptr ? other.entries->Find(name) : nullptr;
            equal = equal && theirs != nullptr && *theirs == value;
        });
    return equal;
}

int32_t QVPropertyMap::GetCount() const
{
    return entries != nullptr ? entries->GetCount() : 0;
}

void QVPropertyMap::AppendToken(QVString& result, const QVString& text)
{
    result += u'(';
    result += QVString::FromInt(text.GetLength());
    result += u':';
    result += text;
    result += u')';
}

bool QVPropertyMap::ReadToken(const QVString& text, int32_t& offset, QVString& token)
{
    token.Empty();
    const int32_t length = text.GetLength();
    int32_t p = offset;
    if (p < 0 || p >= length || text[p] != u'(')
        return false;
    ++p;
    const int32_t digitsStart = p;
    int64_t count = 0;
    while (p < length && text[p] >= u'0' && text[p] <= u'9')
    {
        count = std::min<int64_t>(count * 10 + (text[p] - u'0'), INT32_MAX);
        ++p;
    }
    if (p == digitsStart || p >= length || text[p] != u':')
    {
        offset = p;
        return false;
    }
    ++p;
    // The text and the closing ")" must fit in what is left.
    if (count > static_cast<int64_t>(length - p) - 1)
    {
        offset = p;
        return false;
    }
    const int32_t end = p + static_cast<int32_t>(count);
    if (text[end] != u')')
    {
        offset = end;
        return false;
    }
    token = text.Mid(p, static_cast<int32_t>(count));
    offset = end + 1;
    return true;
}

QVString QVPropertyMap::ReadToken(const QVString& text, int32_t& offset)
{
    QVString token;
    ReadToken(text, offset, token);
    return token;
}

void QVPropertyMap::SaveTokens(QVString& result, bool withEntries) const
{
    result.Empty();
    if (!withEntries || GetCount() == 0)
    {
        AppendToken(result, u"0");
        return;
    }
    AppendToken(result, QVString::FromInt(GetCount()));
    ForEach(
        [&result](const QVString& name, const QVString& value)
        {
            AppendToken(result, name);
            AppendToken(result, value);
        });
}

bool QVPropertyMap::LoadTokens(const QVString& text, int32_t& offset)
{
    Clear();
    QVString countText;
    if (!ReadToken(text, offset, countText))
        return false;
    const int64_t count = countText.ToInt();
    for (int64_t i = 0; i < count; ++i)
    {
        QVString name;
        QVString value;
        if (!ReadToken(text, offset, name) || !ReadToken(text, offset, value))
            return false;
        SetString(name, value);
    }
    return true;
}

bool QVPropertyMap::LoadTokens(const QVString& text)
{
    int32_t offset = 0;
    return LoadTokens(text, offset);
}

void QVPropertyMap::WriteItems(QVXml& xml, QVXml::Handle parent) const
{
    ForEach(
        [&](const QVString& name, const QVString& value)
        {
            const QVXml::Handle item = xml.AddElement(parent, kItem, value.View());
            xml.SetAttribute(item, u"Name", name.View());
        });
}

void QVPropertyMap::ReadItems(const QVXml& xml, QVXml::Handle parent)
{
    for (QVXml::Handle child = xml.GetFirstChild(parent); child != 0;
         child = xml.GetNextSibling(child))
    {
        QVString name;
        if (xml.NameIs(child, kItem) && xml.GetAttribute(child, u"Name", name))
            SetString(name, xml.GetText(child), false);
    }
}

void QVPropertyMap::SaveXML(QVString& result, const QVString& rootName, bool skipIfEmpty,
                            double version) const
{
    if (skipIfEmpty && GetCount() == 0)
    {
        result.Empty();
        return;
    }
    QVXml xml;
    const QVXml::Handle root = xml.AddElement(QVXml::kDocument, rootName.View());
    xml.SetAttribute(root, u"version",
                     QVString::FromDouble(version, 1, true, 0, QVNUMBER_POINT).View());
    WriteItems(xml, root);
    result = xml.GetDocumentText();
}

bool QVPropertyMap::LoadXML(const QVString& rootName, const QVString& text, double version)
{
    if (text.IsEmpty())
        return true;
    QVXml xml;
    xml.Parse(text);  // errors as such do not fail the load: what was readable counts
    QVXml::Handle root = xml.GetRoot();
    while (root != 0 && !xml.NameIs(root, rootName.View()))
        root = xml.GetNextSibling(root);
    if (root == 0)
        return false;
    QVString versionText;
    const double found =
        xml.GetAttribute(root, u"version", versionText) ? ParseDouble(versionText) : 0.0;
    // Older texts are refused as well as newer ones: each object upgrades by
    // loading again with its older version number.
    if (found != version)
        return false;
    ReadItems(xml, root);
    return true;
}

void QVPropertyMap::Describe(QVString& result, const QVString& prefix, const QVString& suffix) const
{
    result.Empty();
    ForEach([&](const QVString& name, const QVString& value)
            { result += QVString::Format(u"%s%s: %s%s", prefix, name, value, suffix); });
}

bool QVPropertyMap::IsPropertyMapText(const QVString& text)
{
    return text.StartsWith(u"<XMLPH version=", true);
}

bool QVPropertyMap::IsFileNameText(const QVString& text)
{
    return text.StartsWith(u"<XMLFN version=", true);
}

double QVPropertyMap::ParseDouble(const QVString& text)
{
    return text.ToDouble();
}

QVString QVPropertyMap::FormatDouble(double value)
{
    // The reading rule is not correctly rounded, so the shortest text of the
    // usual kind may read back one step off; try the plain form first, then
    // the shortest round trip, then all seventeen digits.
    const QVString plain = QVString::FromDouble(value, -1, false, 0, QVNUMBER_POINT);
    if (SameDouble(ParseDouble(plain), value))
        return plain;
    char buffer[64];
    const auto shortest = std::to_chars(buffer, buffer + sizeof buffer, value);
    const QVString shortText = FromAscii(buffer, static_cast<size_t>(shortest.ptr - buffer));
    if (SameDouble(ParseDouble(shortText), value))
        return shortText;
    const auto full =
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, 17);
    const QVString fullText = FromAscii(buffer, static_cast<size_t>(full.ptr - buffer));
    if (SameDouble(ParseDouble(fullText), value))
        return fullText;
    return shortText;
}

namespace QVPropertyMapSerializer
{

bool SaveToText(QVSerializeHelper& object, QVString& result)
{
    QVPropertyMap map;
    object.Serialize(false, map);
    map.SaveXML(result, kRootName, false, object.serializeVersion);
    return true;
}

bool LoadFromText(QVSerializeHelper& object, const QVString& text)
{
    if (text.IsEmpty())
        return false;
    QVPropertyMap map;
    if (!map.LoadXML(kRootName, text, object.serializeVersion))
        return false;
    object.Serialize(true, map);
    return true;
}

}  // namespace QVPropertyMapSerializer
