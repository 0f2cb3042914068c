#include "core/QVPropertyMap.h"

#include <gtest/gtest.h>

#include "support/VirtualSlot.h"

#include <cfloat>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "core/QVStringPrint.h"

TEST(QVPropertyMap, StorageExistsOnlyWhileThereAreEntries)
{
    QVPropertyMap map;
    EXPECT_EQ(map.GetDouble(u"x", 2.5), 2.5);
    EXPECT_EQ(map.GetInt(u"x", -7), -7);
    EXPECT_EQ(map.GetString(u"x", u"d"), QVString(u"d"));
    EXPECT_EQ(map.GetString(u"x"), QVString());
    EXPECT_FALSE(map.HasStorage());

    map.SetString(u"a", u"1");
    map.SetString(u"b", u"2");
    EXPECT_TRUE(map.HasStorage());
    map.SetString(u"a", u"", true);  // empty with the flag removes
    EXPECT_FALSE(map.Exists(u"a"));
    map.SetString(u"c", u"", false);  // without it, an empty value is kept
    EXPECT_TRUE(map.Exists(u"c"));
    map.Remove(u"b");
    map.Remove(u"c");
    EXPECT_FALSE(map.HasStorage());
    map.Remove(u"c");

    QVPropertyMap other;
    EXPECT_TRUE(map.IsEqual(other));
}

TEST(QVPropertyMap, TypedAccessGoesThroughText)
{
    QVPropertyMap map;
    map.SetInt(u"int", -123);
    map.SetInt64(u"big", INT64_MIN);
    map.SetUInt64(u"unsigned", UINT64_MAX);
    map.SetHex(u"hex", 0xDEADBEEFull);
    EXPECT_EQ(map.GetString(u"int"), QVString(u"-123"));
    EXPECT_EQ(map.GetInt(u"int", 0), -123);
    EXPECT_EQ(map.GetInt64(u"big", 0), INT64_MIN);
    EXPECT_EQ(map.GetUInt64(u"unsigned", 0), UINT64_MAX);
    EXPECT_EQ(map.GetString(u"hex"), QVString(u"00000000DEADBEEF"));
    EXPECT_EQ(map.GetHex(u"hex", nullptr), 0xDEADBEEFull);
    EXPECT_EQ(map.GetHex(u"none", u"0x1fZ"), 0x1Fu);
    EXPECT_EQ(map.GetInt(u"none", 42), 42);
    EXPECT_EQ(map.GetInt64(u"none", INT64_MAX), INT64_MAX);

    // The file format's number rules, whatever the locale.
    const struct
    {
        const char16_t* text;
        double value;
    } numbers[] = {{u"1,5", 1.5},        {u"1.5", 1.5},   {u"  +-1,5e2", -150.0},
                   {u"\u00e22.5", -2.5}, {u"1.2.3", 1.2}, {u"12abc", 12.0},
                   {u"", 0.0},           {u"-3.5", -3.5}};
    for (const auto& number : numbers)
    {
        map.SetString(u"d", number.text);
        EXPECT_EQ(map.GetDouble(u"d", 99.0), number.value) << QVString(number.text).ToUTF8();
    }

    // (The reading rule scales by a power of ten, which cannot reach the smallest
    // subnormals: those are beyond the format.)
    const double values[] = {0.1,          1.0 / 3.0,           -3.5, 1e-300, 123456.789,
                             DBL_MAX,      0.30000000000000004, -0.0, 1e22,   2.5e-7,
                             6.02214076e23};
    for (const double value : values)
    {
        map.SetDouble(u"d", value);
        const double back = map.GetDouble(u"d", 99.0);
        EXPECT_EQ(std::memcmp(&back, &value, sizeof value), 0)
            << value << " as " << map.GetString(u"d").ToUTF8();
    }
    map.SetDouble(u"d", -3.5);
    EXPECT_EQ(map.GetString(u"d"), QVString(u"-3.5"));
}

TEST(QVPropertyMap, AssignMergeCompareDescribe)
{
    QVPropertyMap a;
    a.SetString(u"x", u"1");
    a.SetString(u"y", u"2");
    EXPECT_TRUE(a.Assign(a));
    EXPECT_EQ(a.GetCount(), 2);

    QVPropertyMap b;
    b.SetString(u"y", u"3");
    b.SetString(u"z", u"4");
    EXPECT_FALSE(a.IsEqual(b));
    EXPECT_TRUE(b.Merge(a));
    EXPECT_EQ(b.GetCount(), 3);
    EXPECT_EQ(b.GetString(u"y"), QVString(u"2"));

    QVPropertyMap c;
    c.SetString(u"gone", u"0");
    EXPECT_TRUE(c.Assign(a));
    EXPECT_TRUE(c.IsEqual(a));
    EXPECT_FALSE(c.Exists(u"gone"));
    c.SetString(u"x", u"other");
    EXPECT_FALSE(c.IsEqual(a));

    QVPropertyMap one;
    one.SetString(u"Gain", u"-3.5");
    QVString description;
    one.Describe(description, u"  ", u"\n");
    EXPECT_EQ(description, QVString(u"  Gain: -3.5\n"));
}

TEST(QVPropertyMap, SaveXMLHasTheExactForm)
{
    QVPropertyMap map;
    map.SetString(u"Gain", u"-3.5");
    map.SetInt(u"Enabled", 1);
    QVString text;
    map.SaveXML(text, u"XMLPH", false, 1.0);
    // "Enabled" hashes into bucket 0 and "Gain" into bucket 2 of 7.
    EXPECT_EQ(text, QVString(u"<XMLPH version=\"1.0\">\r\n"
                             u"<Item Name=\"Enabled\">1</Item>\r\n"
                             u"<Item Name=\"Gain\">-3.5</Item>\r\n"
                             u"</XMLPH>"));

    QVPropertyMap special;
    special.SetString(u"a<b", u"x < y && 'q' > \"r\"");
    special.SaveXML(text, u"Root", false, 1.1);
    EXPECT_EQ(
        text,
        QVString(
            u"<Root version=\"1.1\">\r\n"
            u"<Item Name=\"a&lt;b\">x &lt; y &amp;&amp; &apos;q&apos; &gt; &quot;r&quot;</Item>\r\n"
            u"</Root>"));
    QVPropertyMap back;
    EXPECT_TRUE(back.LoadXML(u"Root", text, 1.1));
    EXPECT_TRUE(back.IsEqual(special));

    QVPropertyMap empty;
    empty.SaveXML(text, u"XMLPH", true, 1.0);
    EXPECT_EQ(text, QVString());
    empty.SaveXML(text, u"XMLPH", false, 2.0);
    EXPECT_EQ(text, QVString(u"<XMLPH version=\"2.0\"></XMLPH>"));
}

TEST(QVPropertyMap, LoadXMLChecksRootAndExactVersion)
{
    const QVString text = u"<XMLPH version=\"1.0\">\r\n<Item Name=\"a\">1</Item>\r\n</XMLPH>";
    QVPropertyMap map;
    map.SetString(u"kept", u"k");
    EXPECT_TRUE(map.LoadXML(u"XMLPH", u"", 1.0));  // empty text: nothing to do
    EXPECT_FALSE(
        map.LoadXML(u"XMLPH", u"<XMLPH version=\"2.0\"><Item Name=\"b\">2</Item></XMLPH>", 1.0));
    EXPECT_FALSE(
        map.LoadXML(u"XMLPH", u"<XMLPH version=\"0.5\"><Item Name=\"b\">2</Item></XMLPH>", 1.0));
    EXPECT_FALSE(map.LoadXML(u"XMLPH", u"<XMLPH><Item Name=\"b\">2</Item></XMLPH>", 1.0));
    EXPECT_FALSE(map.LoadXML(u"Other", text, 1.0));
    EXPECT_FALSE(map.LoadXML(u"XMLPH", u"not xml at all", 1.0));
    EXPECT_FALSE(map.Exists(u"b"));

    EXPECT_TRUE(map.LoadXML(u"XMLPH", text, 1.0));
    EXPECT_EQ(map.GetString(u"a"), QVString(u"1"));
    EXPECT_EQ(map.GetString(u"kept"), QVString(u"k"));  // entered over, not cleared

    // A missing version reads as 0; a comma is a decimal point there too.
    QVPropertyMap other;
    EXPECT_TRUE(other.LoadXML(u"XMLPH", u"<XMLPH><Item Name=\"b\">2</Item></XMLPH>", 0.0));
    EXPECT_TRUE(
        other.LoadXML(u"XMLPH", u"<XMLPH version='1,1'><Item Name=\"c\">3</Item></XMLPH>", 1.1));
    // Items without a name and other elements are skipped.
    EXPECT_TRUE(other.LoadXML(u"XMLPH",
                              u"<XMLPH version=\"1.0\"><Item>x</Item><Other Name=\"o\">y</Other>"
                              u"<Item Name=\"d\"/></XMLPH>",
                              1.0));
    EXPECT_EQ(other.GetCount(), 3);
    EXPECT_EQ(other.GetString(u"d", u"absent"), QVString());
}

TEST(QVPropertyMap, BrokenTextStillGivesWhatCanBeRead)
{
    QVPropertyMap map;
    EXPECT_TRUE(map.LoadXML(u"XMLPH",
                            u"<XMLPH version=\"1.0\">\r\n<Item Name=\"a\">1</item>\r\n"
                            u"<Item Name=\"b\">2</Item>\r\n</XMLPH>",
                            1.0));
    EXPECT_EQ(map.GetString(u"b"), QVString(u"2"));
    EXPECT_TRUE(map.Exists(u"a"));

    QVPropertyMap truncated;
    EXPECT_TRUE(truncated.LoadXML(
        u"XMLPH", u"<XMLPH version=\"1.0\">\r\n<Item Name=\"a\">1</Item>\r\n<Item Na", 1.0));
    EXPECT_EQ(truncated.GetString(u"a"), QVString(u"1"));
}

TEST(QVPropertyMap, CountedTokens)
{
    QVPropertyMap map;
    QVString text;
    map.SaveTokens(text, true);
    EXPECT_EQ(text, QVString(u"(1:0)"));
    map.SetString(u"Gain", u"-3.5");
    map.SaveTokens(text, true);
    EXPECT_EQ(text, QVString(u"(1:1)(4:Gain)(4:-3.5)"));
    map.SaveTokens(text, false);
    EXPECT_EQ(text, QVString(u"(1:0)"));

    map.SetString(u"odd (name):", u")(:");
    map.SetString(u"empty", u"");
    map.SaveTokens(text, true);
    QVPropertyMap back;
    back.SetString(u"cleared", u"x");
    EXPECT_TRUE(back.LoadTokens(text));
    EXPECT_TRUE(back.IsEqual(map));

    // Tokens read from the middle of a longer text, offset moving on.
    const QVString embedded = u"prefix(1:1)(1:k)(2:vv)suffix";
    int32_t offset = 6;
    EXPECT_TRUE(back.LoadTokens(embedded, offset));
    EXPECT_EQ(offset, 22);
    EXPECT_EQ(back.GetCount(), 1);
    EXPECT_EQ(back.GetString(u"k"), QVString(u"vv"));
}

TEST(QVPropertyMap, FaultyTokensStopWhereTheyAre)
{
    const struct
    {
        const char16_t* text;
        int32_t start;
        int32_t stop;
    } faults[] = {
        {u"x(1:a)", 0, 0},   // no "("
        {u"(:a)", 0, 1},     // no digits
        {u"(1a)", 0, 2},     // no ":"
        {u"(5:ab)", 0, 3},   // longer than the text
        {u"(2:abc)", 0, 5},  // no ")" after the text
        {u"(99999999999:a)", 0, 13},
        {u"(1:a", 0, 3},
        {u"(1:a)", 5, 5},  // at the end
        {u"(1:a)", -1, -1},
    };
    for (const auto& fault : faults)
    {
        int32_t offset = fault.start;
        QVString token = u"stale";
        EXPECT_FALSE(QVPropertyMap::ReadToken(fault.text, offset, token))
            << QVString(fault.text).ToUTF8();
        EXPECT_EQ(token, QVString());
        EXPECT_EQ(offset, fault.stop) << QVString(fault.text).ToUTF8();
    }
    int32_t offset = 0;
    EXPECT_EQ(QVPropertyMap::ReadToken(u"(0:)(3:a)c)", offset), QVString());
    EXPECT_EQ(offset, 4);
    EXPECT_EQ(QVPropertyMap::ReadToken(u"(0:)(3:a)c)", offset), QVString(u"a)c"));

    QVPropertyMap map;
    EXPECT_FALSE(map.LoadTokens(u"(1:2)(1:a)(1:b)(1:c)"));  // the count promises more than there is
    EXPECT_EQ(map.GetString(u"a"), QVString(u"b"));
    EXPECT_FALSE(map.LoadTokens(u"(10:2147483647)(1:a)"));
}

TEST(QVPropertyMap, TextKindsAndFileNameRecords)
{
    EXPECT_TRUE(QVPropertyMap::IsPropertyMapText(u"<XMLPH version=\"1.0\">"));
    EXPECT_TRUE(QVPropertyMap::IsPropertyMapText(u"<xmlph VERSION="));
    EXPECT_FALSE(QVPropertyMap::IsPropertyMapText(u" <XMLPH version="));
    EXPECT_FALSE(QVPropertyMap::IsPropertyMapText(u"<XMLPH>"));
    EXPECT_FALSE(QVPropertyMap::IsFileNameText(u"<XMLPH version=\"1.0\">"));

    const QVString record =
        u"<XMLFN version=\"1.0\"><Item Name=\"Filename\">C:\\A &amp; B\\x.wav</Item>"
        u"<Item Name=\"PostExtensionData\">t=3</Item></XMLFN>";
    EXPECT_TRUE(QVPropertyMap::IsFileNameText(record));
    QVPropertyMap map;
    EXPECT_TRUE(map.LoadXML(u"XMLFN", record, 1.0));
    EXPECT_EQ(map.GetString(u"Filename"), QVString(u"C:\\A & B\\x.wav"));
    EXPECT_EQ(map.GetString(u"PostExtensionData"), QVString(u"t=3"));
}

namespace
{

class SavedThing : public QVSerializeHelper
{
public:
    void Serialize(bool load, QVPropertyMap& map) override
    {
        if (load)
        {
            level = map.GetDouble(u"Level", level);
            name = map.GetString(u"Name", name.c_str());
        }
        else
        {
            map.SetDouble(u"Level", level);
            map.SetString(u"Name", name);
        }
    }
    double level = 0.0;
    QVString name;
};

}  // namespace

TEST(QVPropertyMapSerializer, SavesAndLoadsThroughXMLPH)
{
    SavedThing thing;
    thing.serializeVersion = 1.1;
    thing.level = -6.25;
    thing.name = u"Low & <shelf>";
    QVString text;
    EXPECT_TRUE(QVPropertyMapSerializer::SaveToText(thing, text));
    EXPECT_TRUE(text.StartsWith(u"<XMLPH version=\"1.1\">\r\n"));

    SavedThing copy;
    copy.serializeVersion = 1.1;
    EXPECT_TRUE(QVPropertyMapSerializer::LoadFromText(copy, text));
    EXPECT_EQ(copy.level, -6.25);
    EXPECT_EQ(copy.name, QVString(u"Low & <shelf>"));

    SavedThing newer;
    newer.serializeVersion = 1.2;
    EXPECT_FALSE(QVPropertyMapSerializer::LoadFromText(newer, text));
    EXPECT_EQ(newer.level, 0.0);
    EXPECT_FALSE(QVPropertyMapSerializer::LoadFromText(copy, u""));
}

TEST(QVPropertyMap, OperationsKeepTheirPlaces)
{
    using Map = QVPropertyMap;
    EXPECT_EQ(qvtest::VirtualSlot(&Map::Exists), 2);
    EXPECT_EQ(qvtest::VirtualSlot(
                  static_cast<QVString (Map::*)(QVString&, const QVString&, const char16_t*) const>(
                      &Map::GetString)),
              3);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::GetInt), 4);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::GetInt64), 5);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::GetUInt64), 6);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::GetDouble), 7);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::GetHex), 8);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::SetString), 9);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::SetInt), 10);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::SetInt64), 11);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::SetUInt64), 12);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::SetHex), 13);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::SetDouble), 14);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::Clear), 15);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::Remove), 16);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::Assign), 17);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::Merge), 18);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::IsEqual), 19);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::SaveTokens), 20);
    EXPECT_EQ(qvtest::VirtualSlot(
                  static_cast<bool (Map::*)(const QVString&, int32_t&)>(&Map::LoadTokens)),
              21);
    EXPECT_EQ(qvtest::VirtualSlot(static_cast<bool (Map::*)(const QVString&)>(&Map::LoadTokens)),
              22);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::SaveXML), 23);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::LoadXML), 24);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::WriteItems), 25);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::ReadItems), 26);
    EXPECT_EQ(qvtest::VirtualSlot(&Map::Describe), 27);
}
