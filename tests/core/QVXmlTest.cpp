#include "core/QVXml.h"

#include <gtest/gtest.h>

#include "core/QVStringPrint.h"

namespace
{

QVString Attribute(const QVXml& xml, QVXml::Handle element, std::u16string_view name)
{
    QVString value;
    EXPECT_TRUE(xml.GetAttribute(element, name, value)) << QVString(name).ToUTF8();
    return value;
}

}  // namespace

TEST(QVXml, ReadsElementsAttributesAndText)
{
    QVXml xml;
    ASSERT_TRUE(xml.Parse(QVString(
        u"<?xml version=\"1.0\"?>\r\n<!-- note -->\r\n"
        u"<root a='1 > 0' b=\"x\" flag c=plain>\r\n"
        u"  <child n=\"&lt;&amp;&#65;&#x42;&#x1F600;\">t&gt;1<![CDATA[<raw&amp;>]]></child>\r\n"
        u"  <empty/>\r\n"
        u"</root>")))
        << xml.GetError().ToUTF8();
    const QVXml::Handle root = xml.GetRoot();
    EXPECT_EQ(xml.GetName(root), QVString(u"root"));
    EXPECT_EQ(xml.GetOffset(root), 38);
    EXPECT_EQ(Attribute(xml, root, u"a"), QVString(u"1 > 0"));  // quotes protect ">"
    EXPECT_EQ(Attribute(xml, root, u"b"), QVString(u"x"));
    EXPECT_EQ(Attribute(xml, root, u"flag"), QVString());  // no "=": empty value
    EXPECT_EQ(Attribute(xml, root, u"c"), QVString(u"plain"));
    QVString missing;
    EXPECT_FALSE(xml.GetAttribute(root, u"d", missing));

    const QVXml::Handle child = xml.FindElement(QVXml::kDocument, u"root/child");
    ASSERT_NE(child, 0u);
    EXPECT_EQ(Attribute(xml, child, u"n"), QVString(u"<&AB\U0001F600"));
    EXPECT_EQ(xml.GetText(child), QVString(u"t>1<raw&amp;>"));  // CDATA stays as written
    EXPECT_EQ(xml.GetParent(child), root);
    EXPECT_EQ(xml.GetDepth(child), 2);

    const QVXml::Handle empty = xml.GetNextSibling(child);
    EXPECT_EQ(xml.GetName(empty), QVString(u"empty"));
    EXPECT_TRUE(xml.GetFlags(empty) & QVXml::FLAG_EMPTY);
    EXPECT_EQ(xml.GetNextSibling(empty), 0u);
    EXPECT_EQ(xml.GetPreviousSibling(empty), child);
    EXPECT_EQ(xml.GetPreviousSibling(child), 0u);
    EXPECT_EQ(xml.FindElement(QVXml::kDocument, u"root[empty]"), empty);
    EXPECT_EQ(xml.FindElement(root, u"nothing"), 0u);
    EXPECT_EQ(xml.GetElementCount(), 3);
}

TEST(QVXml, UnknownReferencesStayAsWritten)
{
    EXPECT_EQ(QVXml::Unescape(u"&nbsp; &#; &#x; &#12 &#0; &#x110000; a&b &amp"),
              u"&nbsp; &#; &#x; &#12 &#0; &#x110000; a&b &amp");
    EXPECT_EQ(QVXml::Escape(u"<a href='x'>\"&\"</a>"),
              u"&lt;a href=&apos;x&apos;&gt;&quot;&amp;&quot;&lt;/a&gt;");
    EXPECT_EQ(QVXml::Unescape(QVXml::Escape(u"<&>'\"")), u"<&>'\"");
}

TEST(QVXml, DocumentLevelMessages)
{
    QVXml xml;
    EXPECT_FALSE(xml.Parse(QVString(u" \r\n\t")));
    EXPECT_EQ(xml.GetError(), QVString(u"Empty document"));
    EXPECT_TRUE(xml.GetFlags(QVXml::kDocument) & QVXml::FLAG_ERROR);

    EXPECT_FALSE(xml.Parse(QVString(u"just text <!-- and a comment -->")));
    EXPECT_EQ(xml.GetError(), QVString(u"No root element"));

    EXPECT_FALSE(xml.Parse(QVString(u"<a/><b></b><c/>")));
    EXPECT_EQ(xml.GetError(), QVString(u"Root element has sibling"));
    EXPECT_EQ(xml.FindElement(QVXml::kDocument, u"b"), xml.GetNextSibling(xml.GetRoot()));

    EXPECT_TRUE(xml.Parse(QVString(u"<a></a>")));
    EXPECT_EQ(xml.GetError(), QVString());
}

TEST(QVXml, MismatchedEndTagClosesInnerElementsAndKeepsTheRest)
{
    // Names are compared exactly: "</item>" closes nothing, and the outer end
    // tag then closes the first Item as not ended. The second Item moves up to
    // the root, so both values stay readable.
    const std::u16string text = u"<XMLPH version=\"1.0\">\r\n"
                                u"<Item Name=\"a\">1</item>\r\n"
                                u"<Item Name=\"b\">2</Item>\r\n"
                                u"</XMLPH>";
    QVXml xml;
    EXPECT_FALSE(xml.Parse(text));
    EXPECT_EQ(
        xml.GetError(),
        QVString(u"No start tag for end tag 'item' at offset 39, "
                 u"End tag 'XMLPH' at offset 73 does not match start tag 'Item' at offset 23"));
    const QVXml::Handle root = xml.GetRoot();
    const QVXml::Handle first = xml.GetFirstChild(root);
    const QVXml::Handle second = xml.GetNextSibling(first);
    ASSERT_NE(second, 0u);
    EXPECT_EQ(xml.GetParent(second), root);
    EXPECT_TRUE(xml.GetFlags(first) & QVXml::FLAG_NOT_ENDED);
    EXPECT_TRUE(xml.GetFlags(root) & QVXml::FLAG_ENDED);
    EXPECT_EQ(Attribute(xml, second, u"Name"), QVString(u"b"));
    EXPECT_EQ(xml.GetText(second), QVString(u"2"));
    EXPECT_EQ(xml.GetText(first), QVString(u"1\r\n"));
}

TEST(QVXml, MalformedPartsAreReportedWithOffsets)
{
    struct Case
    {
        std::u16string text;
        std::u16string message;
    };
    const Case cases[] = {
        {u"<a>< b</a>", u"Incorrect tag name character at offset 4"},
        {u"<a><_b/></a>", u"Incorrect tag name character at offset 4"},
        {u"<a><!x></a>", u"Incorrect ! tag at offset 3"},
        {u"<a><!-x--></a>", u"Incorrect comment tag at offset 3"},
        {u"<a></></a>", u"Incorrect tag at offset 3"},
        {u"<a></b></a>", u"No start tag for end tag 'b' at offset 3"},
        {u"<a><!-- open</a>",
         u"Comment at offset 3 unterminated, Element 'a' at offset 0 not ended"},
        {u"<a><![CDATA[x</a>",
         u"CDATA Section at offset 3 unterminated, Element 'a' at offset 0 not ended"},
        {u"<a><?pi</a>",
         u"Processing instruction at offset 3 unterminated, Element 'a' at offset 0 not ended"},
        {u"<!DOCTYPE a", u"Doctype at offset 0 unterminated, No root element"},
        {u"<a x=\"1>", u"Element tag at offset 0 unterminated, No root element"},
        {u"<a <b></b>", u"Element tag at offset 0 unterminated"},
        {u"<a></a", u"Element end tag at offset 3 unterminated, Element 'a' at offset 0 not ended"},
        {u"<a><b>", u"Element 'b' at offset 3 not ended, Element 'a' at offset 0 not ended"},
        {u"<a>x<", u"Element tag at offset 4 unterminated, Element 'a' at offset 0 not ended"},
    };
    for (const Case& c : cases)
    {
        QVXml xml;
        EXPECT_FALSE(xml.Parse(c.text)) << QVString(c.text.c_str()).ToUTF8();
        EXPECT_EQ(xml.GetError(), QVString(c.message.c_str())) << QVString(c.text.c_str()).ToUTF8();
    }
}

TEST(QVXml, ElementsOpenAtTheEndKeepTheirChildren)
{
    QVXml xml;
    EXPECT_FALSE(xml.Parse(QVString(u"<r><i>1</i><i>2</i>")));
    const QVXml::Handle root = xml.GetRoot();
    EXPECT_TRUE(xml.GetFlags(root) & QVXml::FLAG_NOT_ENDED);
    const QVXml::Handle second = xml.FindNextSibling(xml.GetFirstChild(root), u"i");
    EXPECT_EQ(xml.GetText(second), QVString(u"2"));
}

TEST(QVXml, DeepNestingDoesNotRecurse)
{
    std::u16string text;
    for (int i = 0; i < 200000; ++i)
        text += u"<a>";
    QVXml xml;
    EXPECT_FALSE(xml.Parse(text));
    EXPECT_EQ(xml.GetElementCount(), 200000);
    EXPECT_EQ(xml.GetDepth(xml.GetRoot()), 1);
}

TEST(QVXml, WriterBuildsTextThatReadsBack)
{
    QVXml xml;
    const QVXml::Handle root = xml.AddElement(QVXml::kDocument, u"Root");
    ASSERT_NE(root, 0u);
    EXPECT_TRUE(xml.SetAttribute(root, u"version", u"1.0"));
    const QVXml::Handle first = xml.AddElement(root, u"Item", u"a<b & 'c'");
    EXPECT_TRUE(xml.SetAttribute(first, u"Name", u"x\"y"));
    xml.AddElement(root, u"Item", u"2");
    EXPECT_EQ(xml.GetDocumentText(),
              QVString(u"<Root version=\"1.0\">\r\n"
                       u"<Item Name=\"x&quot;y\">a&lt;b &amp; &apos;c&apos;</Item>\r\n"
                       u"<Item>2</Item>\r\n"
                       u"</Root>"));
    // The table follows the edits, so the document reads like a parsed one.
    EXPECT_EQ(xml.GetText(first), QVString(u"a<b & 'c'"));
    EXPECT_EQ(Attribute(xml, first, u"Name"), QVString(u"x\"y"));
    EXPECT_EQ(Attribute(xml, root, u"version"), QVString(u"1.0"));

    QVXml reread;
    EXPECT_TRUE(reread.Parse(xml.GetDocumentText()));
    EXPECT_EQ(reread.GetText(reread.FindElement(0, u"Root/Item")), QVString(u"a<b & 'c'"));

    // An element without an end tag of its own takes no children.
    QVXml parsed;
    parsed.Parse(QVString(u"<a/>"));
    EXPECT_EQ(parsed.AddElement(parsed.GetRoot(), u"b"), 0u);
}

TEST(QVXml, RemovedElementsLeaveTextAndTableConsistent)
{
    QVXml xml;
    ASSERT_TRUE(xml.Parse(QVString(u"<r>\r\n<a><x/><y>1</y></a>\r\n<b>2</b>\r\n<c>3</c>\r\n</r>")));
    const QVXml::Handle root = xml.GetRoot();
    const QVXml::Handle a = xml.GetFirstChild(root);
    const QVXml::Handle b = xml.GetNextSibling(a);
    const QVXml::Handle c = xml.GetNextSibling(b);
    const QVXml::Handle x = xml.GetFirstChild(a);
    const QVXml::Handle y = xml.GetNextSibling(x);
    EXPECT_TRUE(xml.RemoveElement(b));  // from the middle
    EXPECT_EQ(xml.GetDocumentText(), QVString(u"<r>\r\n<a><x/><y>1</y></a>\r\n<c>3</c>\r\n</r>"));
    EXPECT_EQ(xml.GetNextSibling(a), c);
    EXPECT_EQ(xml.GetPreviousSibling(c), a);
    EXPECT_EQ(xml.GetName(b), QVString());  // a removed handle answers nothing
    EXPECT_FALSE(xml.RemoveElement(b));

    EXPECT_TRUE(xml.RemoveElement(a));  // the first, with children
    EXPECT_EQ(xml.GetFirstChild(root), c);
    EXPECT_EQ(xml.GetElementCount(), 2);
    EXPECT_EQ(xml.GetText(c), QVString(u"3"));

    // Freed entries are used again, and the last child link still holds.
    const QVXml::Handle d = xml.AddElement(root, u"d", u"4");
    EXPECT_TRUE(d == a || d == b || d == x || d == y);
    EXPECT_EQ(xml.GetElementCount(), 3);
    EXPECT_TRUE(xml.RemoveElement(d));  // the last
    EXPECT_EQ(xml.GetNextSibling(c), 0u);
    const QVXml::Handle e = xml.AddElement(root, u"e", u"5");
    EXPECT_EQ(xml.GetPreviousSibling(e), c);
    EXPECT_EQ(xml.GetDocumentText(), QVString(u"<r>\r\n<c>3</c>\r\n<e>5</e>\r\n</r>"));

    QVXml reread;
    EXPECT_TRUE(reread.Parse(xml.GetDocumentText()));
    EXPECT_EQ(reread.GetElementCount(), xml.GetElementCount());
}
