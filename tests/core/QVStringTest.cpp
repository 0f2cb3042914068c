#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

#include "QVStringPrint.h"
#include "core/QVString.h"

namespace
{

int32_t References(const QVString& s)
{
    return s.GetData()->references.load();
}

// The string manager of another module: its buffers must never be shared here.
class ForeignManager final : public IQVStringManager
{
public:
    int freed = 0;
    QVStringData* Allocate(int32_t length, bool) override
    {
        auto* data = static_cast<QVStringData*>(
            ::operator new(sizeof(QVStringData) + (length + 1) * sizeof(char16_t)));
        data->manager = this;
        data->length = length;
        data->capacity = length + 1;
        new (&data->references) std::atomic<int32_t>(1);
        data->Chars()[length] = 0;
        return data;
    }
    void Free(QVStringData* buffer) override
    {
        ++freed;
        ::operator delete(buffer);
    }
    QVStringData* Grow(QVStringData* buffer, int32_t) override { return buffer; }
    QVStringData* GrowExact(QVStringData* buffer, int32_t) override { return buffer; }
    QVStringData* Reallocate(QVStringData* buffer, int32_t, bool) override { return buffer; }
    QVStringData* Create(const char16_t* chars, int32_t length, int32_t, uint32_t) override
    {
        QVStringData* data = Allocate(length, false);
        std::memcpy(data->Chars(), chars, length * sizeof(char16_t));
        return data;
    }
    QVStringData* GetEmpty() override { return nullptr; }
};

}  // namespace

TEST(QVStringTest, HeaderLiesInFrontOfTheCharacters)
{
    QVString s(u"abc");
    const auto* bytes = reinterpret_cast<const uint8_t*>(s.c_str());
    IQVStringManager* manager = nullptr;
    std::memcpy(&manager, bytes - 24, sizeof(manager));
    int32_t length = 0, capacity = 0, references = 0;
    std::memcpy(&length, bytes - 16, 4);
    std::memcpy(&capacity, bytes - 12, 4);
    std::memcpy(&references, bytes - 8, 4);
    EXPECT_EQ(manager, QVGetStringManager());
    EXPECT_EQ(length, 3);
    EXPECT_GE(capacity, 4);
    EXPECT_EQ(references, 1);
    EXPECT_EQ(s.c_str()[3], u'\0');
}

TEST(QVStringTest, StaticStringsAreSharedAndNeverCounted)
{
    const QVString empty;
    EXPECT_EQ(References(empty), 0x7ffffc17);
    EXPECT_EQ(empty.c_str(), QVString().c_str());
    EXPECT_EQ(empty.GetLength(), 0);
    EXPECT_EQ(QVString(u"").c_str(), empty.c_str());
    EXPECT_EQ(QVString(static_cast<const char16_t*>(nullptr)).c_str(), empty.c_str());

    const QVString literal = u"Volume"_qv;
    EXPECT_EQ(References(literal), QVSTRING_STATIC);
    EXPECT_EQ(literal.GetLength(), 6);
    EXPECT_EQ(literal, u"Volume");
    {
        QVString copy = literal;
        QVString another(copy);
        EXPECT_EQ(copy.c_str(), literal.c_str());
        EXPECT_EQ(another.c_str(), literal.c_str());
        EXPECT_EQ(References(literal), QVSTRING_STATIC);
    }
    EXPECT_EQ(References(literal), QVSTRING_STATIC);
    // The same literal text is one buffer wherever it is written.
    EXPECT_EQ(QVLITERAL(u"Volume").c_str(), literal.c_str());

    // Writing to a static string makes a private buffer and leaves the literal alone.
    QVString changed = literal;
    changed += u'!';
    EXPECT_EQ(changed, u"Volume!");
    EXPECT_EQ(literal, u"Volume");
    EXPECT_EQ(References(changed), 1);
}

TEST(QVStringTest, CopiesShareUntilWritten)
{
    QVString a(u"shared text");
    QVString b = a;
    EXPECT_EQ(a.c_str(), b.c_str());
    EXPECT_EQ(References(a), 2);
    {
        QVString c = b;
        EXPECT_EQ(References(a), 3);
    }
    EXPECT_EQ(References(a), 2);
    b.MakeUpper();
    EXPECT_NE(a.c_str(), b.c_str());
    EXPECT_EQ(a, u"shared text");
    EXPECT_EQ(b, u"SHARED TEXT");
    EXPECT_EQ(References(a), 1);
    EXPECT_EQ(References(b), 1);

    QVString moved = std::move(a);
    EXPECT_TRUE(a.IsEmpty());
    EXPECT_EQ(moved, u"shared text");

    QVString self = moved;
    self = self;
    EXPECT_EQ(self, u"shared text");
}

TEST(QVStringTest, LockedBufferIsNeverShared)
{
    QVString s(u"abc");
    char16_t* buffer = s.GetBuffer(10);
    EXPECT_EQ(References(s), QVSTRING_LOCKED);
    QVString copy = s;  // a copy of a locked buffer gets its own characters
    EXPECT_NE(copy.c_str(), s.c_str());
    EXPECT_EQ(copy, u"abc");
    buffer[3] = u'd';
    buffer[4] = 0;
    s.ReleaseBuffer();
    EXPECT_EQ(s, u"abcd");
    EXPECT_EQ(s.GetLength(), 4);
    EXPECT_EQ(References(s), 1);
    EXPECT_EQ(copy, u"abc");
}

TEST(QVStringTest, ForeignBuffersAreCopiedByCharacters)
{
    ForeignManager foreign;
    {
        QVString received = QVString::Attach(foreign.Create(u"from the host", 13, 0, 0));
        QVString copy = received;
        EXPECT_NE(copy.c_str(), received.c_str());
        EXPECT_EQ(copy, u"from the host");
        EXPECT_EQ(copy.GetData()->manager, QVGetStringManager());
        EXPECT_EQ(References(received), 1);
        // Writing to it makes a private buffer of this module, and the
        // foreign one goes back to its own manager.
        received += u'!';
        EXPECT_EQ(received.GetData()->manager, QVGetStringManager());
        EXPECT_EQ(foreign.freed, 1);
        QVString another = QVString::Attach(foreign.Create(u"x", 1, 0, 0));
    }
    EXPECT_EQ(foreign.freed, 2);
}

TEST(QVStringTest, CountsAreSafeAcrossThreads)
{
    const QVString shared(u"handed between threads");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back(
            [&shared]
            {
                for (int i = 0; i < 20000; ++i)
                {
                    QVString copy = shared;
                    QVString second = copy;
                    ASSERT_EQ(second.GetLength(), 22);
                }
            });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(References(shared), 1);
}

TEST(QVStringTest, PoolReusesTheClosestBuffer)
{
    QVStringGlobals& globals = *QVGetStringGlobals();
    globals.ReleasePool();
    const char16_t* first;
    {
        QVString s(u"0123456789");  // capacity 11
        first = s.c_str();
    }
    EXPECT_EQ(globals.GetPooledCount(), 1);
    {
        QVString again(u"abcdefghij");
        EXPECT_EQ(again.c_str(), first);  // the same block came back
        EXPECT_EQ(globals.GetPooledCount(), 0);
    }

    // Smallest surplus wins: from buffers of 41, 21 and 61 characters, a
    // request for 20 takes the 21.
    globals.ReleasePool();
    const char16_t* closest;
    {
        QVString a(QVString(u'a', 40)), b(QVString(u'b', 20)), c(QVString(u'c', 60));
        closest = b.c_str();
    }
    EXPECT_EQ(globals.GetPooledCount(), 3);
    {
        QVString s(u'x', 19);
        EXPECT_EQ(s.c_str(), closest);
        EXPECT_EQ(s.GetData()->capacity, 21);
    }

    // A surplus below 16 ends the search: of 31 and then 21 characters, a
    // request for 21 takes the 31 found first.
    globals.ReleasePool();
    const char16_t* firstGoodFit;
    {
        QVString a(u'a', 30);
        QVString b(u'b', 20);
        firstGoodFit = a.c_str();
        a.Empty();  // slot 0
    }
    EXPECT_EQ(globals.GetPooledCount(), 2);
    {
        QVString s(u'x', 20);
        EXPECT_EQ(s.c_str(), firstGoodFit);
    }

    // Long buffers are really freed, and a full pool frees the rest.
    globals.ReleasePool();
    {
        QVString big(u'z', 1031);
    }
    EXPECT_EQ(globals.GetPooledCount(), 0);
    {
        QVString justBelow(u'z', 1030);
    }
    EXPECT_EQ(globals.GetPooledCount(), 1);
    {
        std::vector<QVString> many;
        for (int i = 0; i < 20; ++i)
            many.emplace_back(u'q', 5 + i);
    }
    EXPECT_EQ(globals.GetPooledCount(), QVSTRING_POOL_SLOTS);
    globals.ReleasePool();
}

TEST(QVStringTest, UTF8RoundTripsAndRepairsBadBytes)
{
    const char* text = "Gr\xC3\xBC\xC3\x9F"
                       "e \xE2\x82\xAC \xF0\x9F\x8E\xB5";  // Grüße € and a note outside the BMP
    const QVString s = QVString::FromUTF8(text);
    EXPECT_EQ(s.GetLength(), 10);
    EXPECT_EQ(s[2], 0xFC);
    EXPECT_EQ(s[6], 0x20AC);
    EXPECT_EQ(s[8], 0xD83C);
    EXPECT_EQ(s[9], 0xDFB5);
    EXPECT_EQ(s.ToUTF8(), text);

    // Truncated, overlong and surrogate encodings each become U+FFFD.
    const QVString bad = QVString::FromUTF8("a\xC3"
                                            "b\xC0\xAF"
                                            "c\xED\xA0\x80");
    EXPECT_EQ(bad, u"a\xFFFD"
                   u"b\xFFFD\xFFFD"
                   u"c\xFFFD\xFFFD\xFFFD");
    const char16_t lone[] = {u'x', 0xD800, u'y', 0};
    EXPECT_EQ(QVString(lone).ToUTF8(), "x\xEF\xBF\xBDy");
}

TEST(QVStringTest, Windows1252CoversTheHighCodes)
{
    const QVString s = QVString::FromCP1252("\x80\x8A\x9F\xA0\xE9\x81");
    ASSERT_EQ(s.GetLength(), 6);
    EXPECT_EQ(s[0], 0x20AC);
    EXPECT_EQ(s[1], 0x0160);
    EXPECT_EQ(s[2], 0x0178);
    EXPECT_EQ(s[3], 0x00A0);
    EXPECT_EQ(s[4], 0x00E9);
    EXPECT_EQ(s[5], 0x0081);
    EXPECT_EQ(s.ToCP1252(), "\x80\x8A\x9F\xA0\xE9\x81");
    // Every byte survives the round trip.
    std::string all;
    for (int b = 1; b < 256; ++b)
        all += static_cast<char>(b);
    EXPECT_EQ(QVString::FromCP1252(all).ToCP1252(), all);
    EXPECT_EQ(QVString(u"\x4E2D").ToCP1252(), "?");
}

TEST(QVStringTest, DecodeTextFollowsTheByteOrderMark)
{
    const uint8_t le[] = {0xFF, 0xFE, 'H', 0, 0xAC, 0x20, 'i'};  // odd byte at the end is dropped
    EXPECT_EQ(QVDecodeText(le, sizeof(le)), u"H\x20AC");
    const uint8_t be[] = {0xFE, 0xFF, 0, 'H', 0x20, 0xAC};
    EXPECT_EQ(QVDecodeText(be, sizeof(be)), u"H\x20AC");
    const uint8_t utf8[] = {0xEF, 0xBB, 0xBF, 'H', 0xE2, 0x82, 0xAC};
    EXPECT_EQ(QVDecodeText(utf8, sizeof(utf8)), u"H\x20AC");
    const uint8_t ansi[] = {'H', 0x80};
    EXPECT_EQ(QVDecodeText(ansi, sizeof(ansi)), u"H\x20AC");
    // Without a mark, UTF-8 bytes are read as Windows-1252.
    const uint8_t unmarked[] = {0xC3, 0xA9};
    EXPECT_EQ(QVDecodeText(unmarked, sizeof(unmarked)), u"\xC3\xA9");
    const uint8_t onlyMark[] = {0xFF, 0xFE};
    EXPECT_TRUE(QVDecodeText(onlyMark, sizeof(onlyMark)).IsEmpty());
    EXPECT_TRUE(QVDecodeText(nullptr, 5).IsEmpty());
}

TEST(QVStringTest, CaseBlindCompareCoversTheWholeTable)
{
    // Lower case by the Latin-1 rules, worked out apart from the tables.
    auto expectedLower = [](int c)
    {
        const bool upper = (c >= 'A' && c <= 'Z') || (c >= 0xC0 && c <= 0xDE && c != 0xD7);
        return upper ? c + 32 : c;
    };
    for (int a = 1; a < 256; ++a)
    {
        const char16_t left[] = {static_cast<char16_t>(a), 0};
        for (int b = 1; b < 256; ++b)
        {
            const char16_t right[] = {static_cast<char16_t>(b), 0};
            ASSERT_EQ(QVString::CompareNoCase(left, right), expectedLower(a) - expectedLower(b))
                << a << " " << b;
        }
    }
    // Beyond the table, the platform's wide conversion.
    EXPECT_EQ(QVString(u"\x0100\x03A3\x0414").CompareNoCase(u"\x0101\x03C3\x0434"), 0);
    EXPECT_EQ(QVString(u"STRASSE").CompareNoCase(u"strasse"), 0);
    EXPECT_LT(QVString(u"abc").CompareNoCase(u"ABCD"), 0);
    EXPECT_EQ(QVString(u"abcd").CompareNoCase(u"ABC"), 'd');
    EXPECT_EQ(QVString(u"a").CompareNoCase(u"B"), -1);
    EXPECT_EQ(QVString(u"\xD7").CompareNoCase(u"\xF7"),
              0xD7 - 0xF7);  // times and divide are no letters
    EXPECT_EQ(QVString(u"\xFF").ToUpper(), u"\x0178");
    EXPECT_EQ(QVString(u"\xB5").ToUpper(), u"\x039C");
    EXPECT_EQ(QVString(u"\xC9t\xC9").ToLower(), u"\xE9t\xE9");
    EXPECT_EQ(QVString(u"\x0436").ToUpper(), u"\x0416");

    // Ordinary compare: difference of the first differing characters.
    EXPECT_EQ(QVString(u"abc").Compare(u"abd"), -1);
    EXPECT_EQ(QVString(u"abc").Compare(u"ab"), 'c');
    EXPECT_TRUE(QVString(u"a") < QVString(u"b"));
    EXPECT_TRUE(QVString(u"B") < QVString(u"a"));
    EXPECT_TRUE(QVString(u"x") != u"y");
}

TEST(QVStringTest, HashesMultiplyBy65599)
{
    EXPECT_EQ(QVString(u"ab").Hash(), 97u * 65599u + 98u);
    EXPECT_EQ(QVString().Hash(), 0u);
    EXPECT_EQ(QVString::Hash(nullptr), 0u);
    uint32_t expected = 0;
    for (char16_t c : std::u16string_view(u"Room Correction"))
        expected = expected * 65599u + c;  // wraps in 32 bits
    EXPECT_EQ(QVString(u"Room Correction").Hash(), expected);
    EXPECT_EQ(QVString(u"AB\xC9").HashNoCase(), QVString(u"ab\xE9").Hash());
}

TEST(QVStringTest, OrdinaryMembers)
{
    const QVString s(u"Left Right Left");
    EXPECT_EQ(s.Find(u'R'), 5);
    EXPECT_EQ(s.Find(u"Left"), 0);
    EXPECT_EQ(s.Find(u"Left", 1), 11);
    EXPECT_EQ(s.Find(u"left"), -1);
    EXPECT_EQ(s.FindNoCase(u"left", 1), 11);
    EXPECT_EQ(s.Find(u'z'), -1);
    EXPECT_EQ(s.Find(u"t", 100), -1);
    EXPECT_EQ(s.ReverseFind(u'L'), 11);
    EXPECT_EQ(s.ReverseFind(u"Right"), 5);
    EXPECT_EQ(s.FindOneOf(u"gh"), 7);
    EXPECT_EQ(s.Mid(5, 5), u"Right");
    EXPECT_EQ(s.Mid(11), u"Left");
    EXPECT_EQ(s.Mid(11, 100), u"Left");
    EXPECT_EQ(s.Mid(-3, 4), u"Left");
    EXPECT_TRUE(s.Mid(20).IsEmpty());
    EXPECT_EQ(s.Mid(0).c_str(), s.c_str());  // the whole string is shared, not copied
    EXPECT_EQ(s.Left(4), u"Left");
    EXPECT_EQ(s.Right(4), u"Left");
    EXPECT_TRUE(s.Left(-1).IsEmpty());
    EXPECT_EQ(s.Right(99), s);
    EXPECT_TRUE(s.StartsWith(u"left", true));
    EXPECT_FALSE(s.StartsWith(u"left"));
    EXPECT_TRUE(s.EndsWith(u"Left"));

    QVString t(u" \t padded \r\n");
    EXPECT_EQ(t.Trim(), u"padded");
    QVString u(u"--x--");
    EXPECT_EQ(u.TrimLeft(u"-"), u"x--");
    EXPECT_EQ(u.TrimRight(u"-"), u"x");
    QVString blank(u"   ");
    EXPECT_TRUE(blank.Trim().IsEmpty());

    QVString r(u"a,b,,c");
    EXPECT_EQ(r.Replace(u",", u";;"), 3);
    EXPECT_EQ(r, u"a;;b;;;;c");
    EXPECT_EQ(r.Replace(u';', u':'), 6);
    EXPECT_EQ(r.Remove(u':'), 6);
    EXPECT_EQ(r, u"abc");
    EXPECT_EQ(r.Replace(u"zz", u"y"), 0);
    EXPECT_EQ(r.Insert(1, u"XY"), 5);
    EXPECT_EQ(r, u"aXYbc");
    EXPECT_EQ(r.Delete(1, 2), 3);
    EXPECT_EQ(r, u"abc");
    r.Append(r.c_str() + 1, 2);  // appending a piece of itself
    EXPECT_EQ(r, u"abcbc");

    QVString sum = QVString(u"a") + u"b" + QVString(u"c") + u'd';
    EXPECT_EQ(sum, u"abcd");
    EXPECT_EQ(u"x" + sum, u"xabcd");
    QVString grown;
    for (int i = 0; i < 2000; ++i)
        grown += static_cast<char16_t>(u'a' + i % 26);
    EXPECT_EQ(grown.GetLength(), 2000);
    EXPECT_EQ(grown[1999], u'a' + 1999 % 26);
    EXPECT_EQ(grown.c_str()[2000], 0);
}
