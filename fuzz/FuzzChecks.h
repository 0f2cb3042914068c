#pragma once

// What the fuzz targets check, shared with the regression test that replays
// the inputs they once broke on. A failed check aborts, which libFuzzer
// reports as a crash with the input that caused it.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "core/QVPropertyMap.h"
#include "core/QVXml.h"

namespace qvfuzz
{

inline void Require(bool condition, const char* what)
{
    if (!condition)
    {
        std::fprintf(stderr, "check failed: %s\n", what);
        std::abort();
    }
}

// Bytes as text: UTF-16 LE after the mark FF FE, otherwise one character per
// byte. NUL becomes U+FFFD, as the texts these readers meet never hold it.
inline std::u16string FuzzText(const uint8_t* data, size_t size)
{
    std::u16string text;
    if (size >= 2 && data[0] == 0xFF && data[1] == 0xFE)
    {
        for (size_t i = 2; i + 1 < size; i += 2)
            text.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    }
    else
        text.assign(data, data + size);
    for (char16_t& c : text)
    {
        if (c == 0)
            c = 0xFFFD;
    }
    return text;
}

inline QVString ToQV(const std::u16string& text)
{
    return QVString(text.c_str(), static_cast<int32_t>(text.size()));
}

// Walks every element once and asks it everything a reader may ask.
inline void CheckXmlDocument(const QVXml& xml)
{
    const size_t textLength = xml.GetRawText().size();
    int32_t visited = 0;
    QVXml::Handle element = xml.GetFirstChild(QVXml::kDocument);
    while (element != 0)
    {
        Require(++visited <= xml.GetElementCount(), "each element is visited once");
        Require(xml.GetOffset(element) >= 0 &&
                    static_cast<size_t>(xml.GetOffset(element)) < textLength,
                "offsets lie in the text");
        QVString value;
        xml.GetName(element);
        xml.GetText(element);
        xml.GetAttribute(element, u"Name", value);
        xml.GetAttribute(element, u"version", value);
        xml.GetPreviousSibling(element);
        if (QVXml::Handle child = xml.GetFirstChild(element))
        {
            Require(xml.GetParent(child) == element, "children point at their parent");
            element = child;
            continue;
        }
        while (element != 0 && xml.GetNextSibling(element) == 0)
            element = xml.GetParent(element);
        if (element != 0)
            element = xml.GetNextSibling(element);
    }
    xml.GetError();
}

inline void CheckXmlReader(const std::u16string& text)
{
    QVXml xml;
    xml.Parse(text);
    CheckXmlDocument(xml);
    xml.FindElement(QVXml::kDocument, u"XMLPH/Item");
    // Writing into a parsed document must keep it consistent too.
    const QVXml::Handle root = xml.GetRoot();
    if (xml.AddElement(root, u"Item", u"a<b") != 0)
        CheckXmlDocument(xml);
    if (xml.RemoveElement(xml.GetFirstChild(root)))
        CheckXmlDocument(xml);
    if (xml.RemoveElement(root))
        CheckXmlDocument(xml);
}

inline void CheckSameAfterTokens(const QVPropertyMap& map)
{
    QVString tokens;
    map.SaveTokens(tokens, true);
    QVPropertyMap back;
    Require(back.LoadTokens(tokens), "saved tokens load");
    Require(back.IsEqual(map), "tokens keep every entry");
}

inline void CheckLoadXml(const std::u16string& text)
{
    QVPropertyMap map;
    if (!map.LoadXML(u"XMLPH", ToQV(text), 1.0))
        return;
    QVString saved;
    map.SaveXML(saved, u"XMLPH", false, 1.0);
    QVPropertyMap back;
    Require(back.LoadXML(u"XMLPH", saved, 1.0), "saved XML loads");
    Require(back.IsEqual(map), "XML keeps every entry");
    CheckSameAfterTokens(map);
}

inline void CheckTokenReader(const std::u16string& text)
{
    const QVString qv = ToQV(text);
    QVPropertyMap map;
    int32_t offset = 0;
    map.LoadTokens(qv, offset);
    Require(offset >= 0 && offset <= qv.GetLength(), "the offset stays in the text");
    CheckSameAfterTokens(map);
    for (offset = 0; offset < qv.GetLength();)
    {
        const int32_t before = offset;
        QVString token;
        if (!QVPropertyMap::ReadToken(qv, offset, token))
            offset = before + 1;
        Require(offset > before && offset <= qv.GetLength(), "reading moves on");
    }
}

}  // namespace qvfuzz
