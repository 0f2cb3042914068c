#pragma once

// A map of names to text with typed access: the general record in which
// filters, presets and configuration objects save themselves. Its two text
// forms (the XML of SaveXML and the counted tokens of SaveTokens) stand in
// users' settings, so they never change shape.
//
// Every typed getter works on text: a missing entry parses to the default.
// The map is not synchronised; its owner locks.

#include <cstdint>
#include <memory>

#include "core/QVMap.h"
#include "core/QVString.h"
#include "core/QVXml.h"

class QVPropertyMap
{
public:
    QVPropertyMap() = default;
    QVPropertyMap(const QVPropertyMap& other);
    QVPropertyMap& operator=(const QVPropertyMap& other);

    // The virtual operations, in their fixed order.
    virtual ~QVPropertyMap();
    virtual bool Exists(const QVString& name) const;
    // The stored text, else the default, else empty; also given back.
    virtual QVString GetString(QVString& result, const QVString& name,
                               const char16_t* defaultText = nullptr) const;
    virtual int32_t GetInt(const QVString& name, int32_t defaultValue) const;
    virtual int64_t GetInt64(const QVString& name, int64_t defaultValue) const;
    virtual uint64_t GetUInt64(const QVString& name, uint64_t defaultValue) const;
    // By the file format's number rules: "." and "," are decimal points, and
    // the character 0xE2 is a minus.
    virtual double GetDouble(const QVString& name, double defaultValue) const;
    // The text read as hexadecimal, after an optional "0x".
    virtual uint64_t GetHex(const QVString& name, const char16_t* defaultText) const;
    virtual void SetString(const QVString& name, const QVString& value, bool removeIfEmpty = false);
    virtual void SetInt(const QVString& name, int32_t value);
    virtual void SetInt64(const QVString& name, int64_t value);
    virtual void SetUInt64(const QVString& name, uint64_t value);
    // Sixteen upper-case hexadecimal digits, the form of "%p" on the 64-bit
    // platform where these texts were first written.
    virtual void SetHex(const QVString& name, uint64_t value);
    virtual void SetDouble(const QVString& name, double value);
    virtual void Clear();
    virtual void Remove(const QVString& name);
    virtual bool Assign(const QVPropertyMap& other);
    virtual bool Merge(const QVPropertyMap& other);
    virtual bool IsEqual(const QVPropertyMap& other) const;
    virtual void SaveTokens(QVString& result, bool withEntries) const;
    // Clears, then reads a count and that many pairs from offset, which moves
    // past what was read. False when the text ends early or a token is faulty.
    virtual bool LoadTokens(const QVString& text, int32_t& offset);
    virtual bool LoadTokens(const QVString& text);
    virtual void SaveXML(QVString& result, const QVString& rootName, bool skipIfEmpty,
                         double version) const;
    // Enters the items of the root element over the existing entries. Fails
    // when the root is missing or its version is not exactly the one given.
    virtual bool LoadXML(const QVString& rootName, const QVString& text, double version);
    virtual void WriteItems(QVXml& xml, QVXml::Handle parent) const;
    virtual void ReadItems(const QVXml& xml, QVXml::Handle parent);
    virtual void Describe(QVString& result, const QVString& prefix, const QVString& suffix) const;

    // Conveniences over the operations above.
    QVString GetString(const QVString& name, const char16_t* defaultText = nullptr) const;
    int32_t GetCount() const;
    bool HasStorage() const { return entries != nullptr; }
    // Visits every entry, in the map's own order.
    template <typename Visit>
    void ForEach(Visit visit) const
    {
        if (entries != nullptr)
        {
            for (const auto& node : *entries)
                visit(node.key, node.value);
        }
    }

    // Whether text stored in a text field is a saved property map, or a file
    // name record; the test is on the very first characters, case-blind.
    static bool IsPropertyMapText(const QVString& text);
    static bool IsFileNameText(const QVString& text);

    // The counted token "(length:text)", length in characters.
    static void AppendToken(QVString& result, const QVString& text);
    // Reads a token at offset. Any fault gives an empty text and false, and
    // leaves offset where the reading stopped.
    static bool ReadToken(const QVString& text, int32_t& offset, QVString& token);
    static QVString ReadToken(const QVString& text, int32_t& offset);

    // Text to number by the file format's rules (see GetDouble).
    static double ParseDouble(const QVString& text);
    // The shortest text of value that ParseDouble reads back exactly.
    static QVString FormatDouble(double value);

private:
    using Storage = QVStringMap<QVString>;
    Storage& Entries();

    // Null while the map is empty: an empty map costs no storage.
    std::unique_ptr<Storage> entries;
};

// The base of objects saved as property maps.
class QVSerializeHelper
{
public:
    virtual ~QVSerializeHelper() = default;
    // Saving and loading run through the same operation, in the same order.
    virtual void Serialize(bool load, QVPropertyMap& map) = 0;

    double serializeVersion = 1.0;
};

namespace QVPropertyMapSerializer
{

inline constexpr const char16_t* kRootName = u"XMLPH";

// The object's items as XML with the root "XMLPH" and the object's version.
bool SaveToText(QVSerializeHelper& object, QVString& result);
// Empty text fails at once; otherwise the object reads the map when the text
// has the root "XMLPH" and exactly the object's version.
bool LoadFromText(QVSerializeHelper& object, const QVString& text);

}  // namespace QVPropertyMapSerializer
