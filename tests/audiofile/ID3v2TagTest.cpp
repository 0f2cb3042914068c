// ID3v2 tags built byte by byte as the writers of each version lay them out,
// read, changed and rendered again; the expected values come from the
// format's own rules worked out by hand, and zlib for compressed frames.
#include <gtest/gtest.h>

#include "audiofile/ID3v2Tag.h"

#include <zlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using Bytes = std::vector<uint8_t>;

Bytes Text(const std::string& text)
{
    return Bytes(text.begin(), text.end());
}

Bytes Concat(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

void PutSynchsafe(uint8_t* out, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        out[i] = static_cast<uint8_t>((value >> (21 - 7 * i)) & 0x7F);
}

// A frame of 2.3 (big-endian size) or 2.4 (synchsafe size unless `plain`).
Bytes Frame(const char* id, const Bytes& data, int version = 3, bool plain = false,
            uint8_t format = 0)
{
    Bytes frame(10);
    std::memcpy(frame.data(), id, 4);
    const uint32_t size = static_cast<uint32_t>(data.size());
    if (version == 4 && !plain)
        PutSynchsafe(frame.data() + 4, size);
    else
        for (int i = 0; i < 4; ++i)
            frame[4 + i] = static_cast<uint8_t>(size >> (24 - 8 * i));
    frame[9] = format;
    frame.insert(frame.end(), data.begin(), data.end());
    return frame;
}

// A 2.2 frame: three letters and a 24-bit size.
Bytes ShortFrame(const char* id, const Bytes& data)
{
    const uint32_t size = static_cast<uint32_t>(data.size());
    Bytes frame = {static_cast<uint8_t>(id[0]),     static_cast<uint8_t>(id[1]),
                   static_cast<uint8_t>(id[2]),     static_cast<uint8_t>(size >> 16),
                   static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)};
    frame.insert(frame.end(), data.begin(), data.end());
    return frame;
}

Bytes Tag(int version, uint8_t flags, const Bytes& frames, size_t padding = 0)
{
    Bytes tag = {'I', 'D', '3', static_cast<uint8_t>(version), 0, flags, 0, 0, 0, 0};
    PutSynchsafe(tag.data() + 6, static_cast<uint32_t>(frames.size() + padding));
    tag.insert(tag.end(), frames.begin(), frames.end());
    tag.insert(tag.end(), padding, 0);
    return tag;
}

Bytes Latin(const std::string& text)
{
    return Concat({{0}, Text(text)});
}

std::string Value(CID3v2Tag& tag, const char16_t* name, int32_t index = 0)
{
    QVPropertyMap properties;
    if (!tag.GetField(QVString(name), properties, index))
        return "<none>";
    return properties.GetString(u"Value"_qv).ToUTF8();
}

CID3v2Tag Parsed(const Bytes& bytes)
{
    CID3v2Tag tag;
    EXPECT_TRUE(tag.Parse(bytes.data(), bytes.size(), 0));
    return tag;
}

Bytes Rendered(CID3v2Tag& tag)
{
    Bytes out;
    EXPECT_TRUE(tag.Render(out));
    return out;
}

uint32_t TagSizeOf(const Bytes& tag)
{
    return (uint32_t{tag[6]} << 21) | (uint32_t{tag[7]} << 14) | (uint32_t{tag[8]} << 7) | tag[9];
}

}  // namespace

TEST(ID3v2Tag, ReadsTheFieldsOfAVersion23TagByTheFlagRules)
{
    const Bytes utf16Artist = {1, 0xFF, 0xFE, 'B', 0, 0xF6, 0, 'r', 0, 'k', 0, 0, 0};
    const Bytes frames = Concat({
        Frame("TIT2", Latin("Song")),
        Frame("TPE1", utf16Artist),
        Frame("TRCK", Latin("3/12")),
        Frame("TCON", Latin("(17)")),
        Frame("POPM", Concat({Text("a@b"), {0, 204}})),
        Frame("TXXX", Concat({Latin("REPLAYGAIN_TRACK_GAIN"), {0}, Text("-6.50 dB")})),
        Frame("TXXX", Concat({Latin("replaygain_track_peak"), {0}, Text("0.988")})),
        Frame("COMM", Concat({{0}, Text("eng"), {0}, Text("Fine")})),
        Frame("TXXX", Concat({Latin("QV/Date"), {0}, Text("2001-02-03")})),
        Frame("PCST", {1, 0, 0, 0}),
        Frame("WOAR", Text("http://artist")),
        Frame("ZZZZ", {1, 2, 3}),
    });
    CID3v2Tag tag = Parsed(Tag(3, 0, frames, 100));
    EXPECT_EQ(tag.GetSize(), static_cast<int32_t>(frames.size() + 110));
    EXPECT_EQ(tag.GetMajorVersion(), 3);
    EXPECT_EQ(Value(tag, u"Name"), "Song");
    EXPECT_EQ(Value(tag, u"Artist"), "B\xC3\xB6rk");
    EXPECT_EQ(Value(tag, u"Track #"), "3");
    QVPropertyMap track;
    ASSERT_TRUE(tag.GetField(u"Track #"_qv, track));
    EXPECT_EQ(track.GetString(u"Value Original"_qv).ToUTF8(), "3/12");
    EXPECT_EQ(Value(tag, u"Genre"), "Rock");
    EXPECT_EQ(Value(tag, u"Rating"), "4");
    EXPECT_EQ(Value(tag, u"Replay Gain"), "-6.500000");
    EXPECT_EQ(Value(tag, u"Peak Level"), "0.988");
    EXPECT_EQ(Value(tag, u"Comment"), "Fine");
    // The 2.3 row of "Date" keeps the text as it stands.
    EXPECT_EQ(Value(tag, u"Date"), "2001-02-03");
    EXPECT_EQ(Value(tag, u"!@#$% iTunes Podcast Flag !@#$%"), "1.000000");
    EXPECT_EQ(Value(tag, u"Artist URL"), "http://artist");
    EXPECT_EQ(Value(tag, u"Composer"), "<none>");
    EXPECT_EQ(Value(tag, u"No Such Field"), "<none>");
    ASSERT_EQ(tag.GetFrameCount(), 12);
    EXPECT_EQ(tag.GetFrameText(11).ToUTF8(), "ZZZZ: 3 bytes");
    EXPECT_EQ(tag.GetFrameText(0).ToUTF8(), "TIT2: Song");
}

TEST(ID3v2Tag, RatingBytesAndGenreNumbersAtTheirLimits)
{
    const std::pair<uint8_t, const char*> ratings[] = {{0, "0"},   {1, "1"},   {51, "1"},
                                                       {52, "2"},  {102, "2"}, {153, "3"},
                                                       {204, "4"}, {205, "5"}, {255, "5"}};
    for (const auto& [byte, stars] : ratings)
    {
        CID3v2Tag tag = Parsed(Tag(3, 0, Frame("POPM", Bytes{0, byte})));
        EXPECT_EQ(Value(tag, u"Rating"), stars) << int(byte);
    }
    const std::pair<const char*, const char*> genres[] = {
        {"(0)", "Blues"},     {"(17)", "Rock"}, {"(147)", "Synthpop"}, {"(148)", "(148)"},
        {"(80)Folk", "Folk"}, {"Jazz", "Jazz"}, {"(x)", "(x)"}};
    for (const auto& [stored, shown] : genres)
    {
        CID3v2Tag tag = Parsed(Tag(3, 0, Frame("TCON", Latin(stored))));
        EXPECT_EQ(Value(tag, u"Genre"), shown) << stored;
    }
}

TEST(ID3v2Tag, Version24SizesSynchsafeOrPlainAndTheDateAsANumber)
{
    // 200 bytes: synchsafe 0x01 0x48 and plain 0x00 0xC8 differ.
    const std::string longName(199, 'n');
    for (const bool plain : {false, true})
    {
        const Bytes frames = Concat({Frame("TIT2", Latin(longName), 4, plain),
                                     Frame("TDRC", Latin("2000-01-01T12:00"), 4, plain)});
        CID3v2Tag tag = Parsed(Tag(4, 0, frames, 10));
        EXPECT_EQ(Value(tag, u"Name"), longName) << plain;
        // 2000-01-01 is day 36526 of the date numbers; noon is half a day.
        EXPECT_EQ(Value(tag, u"Date"), "36526.5") << plain;
    }
}

TEST(ID3v2Tag, DateNumbersCountDaysFrom18991230)
{
    const std::pair<const char*, double> dates[] = {{"1899-12-30", 0.0},
                                                    {"1900-01-01", 2.0},
                                                    {"1970-01-01", 25569.0},
                                                    {"2000-01-01", 36526.0},
                                                    {"2024-02-29T06:00:00", 45351.25},
                                                    {"1800-01-01", -36522.0},
                                                    {"2023", 44927.0},
                                                    {"2023-07", 45108.0}};
    for (const auto& [text, days] : dates)
    {
        double number = -1;
        ASSERT_TRUE(ID3DateTextToNumber(QVString::FromUTF8(text), number)) << text;
        EXPECT_EQ(number, days) << text;
    }
    EXPECT_EQ(ID3DateNumberToText(36526.0).ToUTF8(), "2000-01-01");
    EXPECT_EQ(ID3DateNumberToText(45351.25).ToUTF8(), "2024-02-29T06:00:00");
    EXPECT_EQ(ID3DateNumberToText(-36522.0).ToUTF8(), "1800-01-01");
    double ignored = 0;
    for (const char* bad : {"", "20", "2023-13-01", "2023-01-01X", "year", "2023-1-1"})
        EXPECT_FALSE(ID3DateTextToNumber(QVString::FromUTF8(bad), ignored)) << bad;
}

TEST(ID3v2Tag, Version22IsReadAndWrittenBackAs23)
{
    const Bytes picture = {0x89, 'P', 'N', 'G', 0xFF, 0x00};
    const Bytes frames =
        Concat({ShortFrame("TT2", Latin("Old")), ShortFrame("TP1", Latin("Band")),
                ShortFrame("TYE", Latin("1999")),
                ShortFrame("PIC", Concat({{0}, Text("JPG"), {3}, Text("Cover"), {0}, picture})),
                ShortFrame("XYZ", {7})});
    CID3v2Tag tag = Parsed(Tag(2, 0, frames, 20));
    EXPECT_EQ(Value(tag, u"Name"), "Old");
    EXPECT_EQ(Value(tag, u"Artist"), "Band");
    EXPECT_EQ(Value(tag, u"Year"), "1999");
    QVPropertyMap image;
    ASSERT_TRUE(tag.GetField(u"Image File"_qv, image));
    EXPECT_EQ(image.GetString(u"Mime Type"_qv).ToUTF8(), "JPG");
    EXPECT_EQ(image.GetString(u"Description"_qv).ToUTF8(), "Cover");
    EXPECT_EQ(image.GetString(u"Value"_qv).GetLength(), 6);

    const Bytes out = Rendered(tag);
    EXPECT_EQ(out[3], 3);
    CID3v2Tag again = Parsed(out);
    EXPECT_EQ(again.GetMajorVersion(), 3);
    EXPECT_EQ(Value(again, u"Name"), "Old");
    EXPECT_EQ(Value(again, u"Year"), "1999");
    ASSERT_TRUE(again.GetField(u"Image File"_qv, image));
    EXPECT_EQ(image.GetString(u"Mime Type"_qv).ToUTF8(), "image/jpeg");
    EXPECT_EQ(image.GetString(u"Description"_qv).ToUTF8(), "Cover");
    const QVString bytes = image.GetString(u"Value"_qv);
    ASSERT_EQ(bytes.GetLength(), 6);
    for (size_t i = 0; i < picture.size(); ++i)
        EXPECT_EQ(bytes[static_cast<int32_t>(i)], picture[i]);
    // The unknown 2.2 frame keeps its bytes under its widened id.
    bool found = false;
    for (int32_t i = 0; i < again.GetFrameCount(); ++i)
        found = found || (again.GetFrame(i).HasID("XYZ?") && again.GetFrame(i).Data == Bytes{7});
    EXPECT_TRUE(found);
}

TEST(ID3v2Tag, UnsynchronisationOfTheWholeTagWithEitherSizeConvention)
{
    // The text "A\xFF\xE0" is stored as A FF 00 E0 once unsynchronised.
    const Bytes plain = {0, 'A', 0xFF, 0xE0};
    const Bytes stored = {0, 'A', 0xFF, 0x00, 0xE0};
    // Size counted after the removal (4), then before it (5).
    for (const Bytes& frame : {Concat({Text("TIT2"), {0, 0, 0, 4, 0, 0}, stored}),
                               Concat({Text("TIT2"), {0, 0, 0, 5, 0, 0}, stored})})
    {
        const Bytes frames = Concat({frame, Frame("TPE1", Latin("After"))});
        CID3v2Tag tag = Parsed(Tag(3, 0x80, frames, 16));
        EXPECT_EQ(Value(tag, u"Name"), "A\xC3\xBF\xC3\xA0");
        EXPECT_EQ(Value(tag, u"Artist"), "After");
        ASSERT_GE(tag.GetFrameCount(), 1);
        EXPECT_EQ(tag.GetFrame(0).Data, plain);
    }
    // One 2.4 frame unsynchronised on its own.
    CID3v2Tag single = Parsed(Tag(4, 0, Frame("TIT2", stored, 4, false, 0x02)));
    EXPECT_EQ(single.GetFrame(0).Data, plain);
}

TEST(ID3v2Tag, CompressedFramesInflateThroughZlib)
{
    const Bytes text = Latin(std::string(300, 'z') + "!");
    Bytes compressed(compressBound(text.size()));
    uLongf length = compressed.size();
    ASSERT_EQ(compress(compressed.data(), &length, text.data(), text.size()), Z_OK);
    compressed.resize(length);
    const Bytes sizeBytes = {0, 0, 0x02, 0x2E};  // 302, synchsafe
    // 2.4: the data length indicator stands in front of the compressed data.
    CID3v2Tag v24 =
        Parsed(Tag(4, 0, Frame("TIT2", Concat({sizeBytes, compressed}), 4, false, 0x09)));
    EXPECT_EQ(Value(v24, u"Name"), std::string(300, 'z') + "!");
    // 2.3: the inflated size, big-endian, in front.
    CID3v2Tag v23 =
        Parsed(Tag(3, 0, Frame("TIT2", Concat({{0, 0, 1, 0x2E}, compressed}), 3, false, 0x80)));
    EXPECT_EQ(Value(v23, u"Name"), std::string(300, 'z') + "!");
    // A declared size is a bound, never room taken up front: any frame may
    // declare the largest one.
    CID3v2Tag boasting = Parsed(
        Tag(4, 0, Frame("TIT2", Concat({{0x7F, 0x7F, 0x7F, 0x7F}, compressed}), 4, false, 0x09)));
    EXPECT_EQ(Value(boasting, u"Name"), std::string(300, 'z') + "!");
    EXPECT_LT(boasting.GetFrame(0).Data.capacity(), size_t{1} << 20);
    // Rendered again, the frame is stored plain.
    CID3v2Tag again = Parsed(Rendered(v24));
    EXPECT_EQ(again.GetFrame(0).FormatFlags(), 0);
    EXPECT_EQ(Value(again, u"Name"), std::string(300, 'z') + "!");
}

TEST(ID3v2Tag, FormatFlagsUndoneInTheOrderTheWritersAppliedThem)
{
    const Bytes text = Latin("grouped");
    Bytes compressed(compressBound(text.size()));
    uLongf length = compressed.size();
    ASSERT_EQ(compress(compressed.data(), &length, text.data(), text.size()), Z_OK);
    compressed.resize(length);
    // 2.3: the inflated size, then the group byte, then the compressed data.
    CID3v2Tag v23 = Parsed(
        Tag(3, 0, Frame("TIT2", Concat({{0, 0, 0, 8}, {0x17}, compressed}), 3, false, 0xA0)));
    EXPECT_EQ(Value(v23, u"Name"), "grouped");
    // 2.4: group byte FF, unsynchronised to FF 00, then the length indicator.
    CID3v2Tag v24 =
        Parsed(Tag(4, 0, Frame("TIT2", Concat({{0xFF, 0x00, 0, 0, 0, 8}, text}), 4, false, 0x43)));
    EXPECT_EQ(Value(v24, u"Name"), "grouped");
    EXPECT_EQ(v24.GetFrame(0).FormatFlags(), 0);
}

TEST(ID3v2Tag, FramesThatCannotBeReadRenderAsStoredAndAreReplacedWhenSet)
{
    // Encrypted with group byte and length indicator; inflating garbage; and
    // encrypted plus unsynchronised, where only the unsynchronisation goes.
    const Bytes encrypted = {0x05, 0x80, 0, 0, 0, 9, 0x31, 0x32, 0x33};
    const Bytes garbage = {0, 0, 0, 0x40, 0xDE, 0xAD, 0xBE, 0xEF};
    const Bytes unsynchronised = {0x07, 0xFF, 0x00, 0xE1};
    CID3v2Tag tag = Parsed(Tag(
        4, 0,
        Concat({Frame("TIT2", encrypted, 4, false, 0x45), Frame("TPE1", garbage, 4, false, 0x09),
                Frame("TALB", unsynchronised, 4, false, 0x06)}),
        64));
    // Unreadable frames sort by id when rendered; look them up by it.
    auto frameOf = [](const CID3v2Tag& of, const char* id) -> const CID3v2Frame&
    {
        for (int32_t i = 0; i < of.GetFrameCount(); ++i)
        {
            if (of.GetFrame(i).HasID(id))
                return of.GetFrame(i);
        }
        static const CID3v2Frame missing;
        ADD_FAILURE() << id << " is missing";
        return missing;
    };
    for (int round = 0; round < 2; ++round)
    {
        SCOPED_TRACE(round);
        ASSERT_EQ(tag.GetFrameCount(), 3);
        EXPECT_EQ(frameOf(tag, "TIT2").Data, encrypted);
        EXPECT_EQ(frameOf(tag, "TIT2").FormatFlags(), 0x45);
        EXPECT_EQ(frameOf(tag, "TPE1").Data, garbage);
        EXPECT_EQ(frameOf(tag, "TPE1").FormatFlags(), 0x09);
        EXPECT_EQ(frameOf(tag, "TALB").Data, Bytes({0x07, 0xFF, 0xE1}));
        EXPECT_EQ(frameOf(tag, "TALB").FormatFlags(), 0x04);
        EXPECT_EQ(Value(tag, u"Name"), "");
        tag = Parsed(Rendered(tag));
    }
    // Setting a field puts a frame that reads in place of the unreadable one.
    EXPECT_TRUE(tag.SetField(u"Name"_qv, u"Clear"_qv));
    EXPECT_FALSE(tag.SetField(u"Replay Gain"_qv, u"loud"_qv));
    CID3v2Tag again = Parsed(Rendered(tag));
    EXPECT_EQ(Value(again, u"Name"), "Clear");
    EXPECT_EQ(again.GetFrameCount(), 3);
    EXPECT_EQ(frameOf(again, "TIT2").FormatFlags(), 0);
}

TEST(ID3v2Tag, ExtendedHeaderFooterAndRefusedHeaders)
{
    // 2.4: the extended header's synchsafe size counts itself (6 bytes).
    const Bytes extended24 = {0, 0, 0, 6, 1, 0};
    CID3v2Tag v24 = Parsed(Tag(4, 0x40, Concat({extended24, Frame("TIT2", Latin("Ext"), 4)})));
    EXPECT_EQ(Value(v24, u"Name"), "Ext");
    // 2.3: its size (6) leaves out the size field.
    const Bytes extended23 = {0, 0, 0, 6, 0, 0, 0, 0, 0, 0};
    CID3v2Tag v23 = Parsed(Tag(3, 0x40, Concat({extended23, Frame("TIT2", Latin("Ext3"))})));
    EXPECT_EQ(Value(v23, u"Name"), "Ext3");
    // A footer: ten more bytes that are no frame.
    Bytes withFooter = Tag(4, 0x10, Frame("TIT2", Latin("Foot"), 4));
    Bytes footer = {'3', 'D', 'I', 4, 0, 0x10};
    footer.insert(footer.end(), withFooter.begin() + 6, withFooter.begin() + 10);
    withFooter.insert(withFooter.end(), footer.begin(), footer.end());
    CID3v2Tag footed = Parsed(withFooter);
    EXPECT_EQ(Value(footed, u"Name"), "Foot");
    EXPECT_EQ(footed.GetSize(), static_cast<int32_t>(withFooter.size()));

    CID3v2Tag tag;
    const Bytes good = Tag(3, 0, Frame("TIT2", Latin("x")));
    for (int damage = 0; damage < 4; ++damage)
    {
        Bytes bad = good;
        if (damage == 0)
            bad[0] = 'X';
        else if (damage == 1)
            bad[3] = 5;
        else if (damage == 2)
            bad[5] = 0x20;
        else
            bad.resize(bad.size() - 2);  // shorter than its size by more than one byte
        EXPECT_FALSE(tag.Parse(bad.data(), bad.size(), 0)) << damage;
        EXPECT_FALSE(tag.IsPresent());
    }
    // One byte short is a writer's pad miscount and still reads.
    Bytes oneShort = good;
    oneShort.pop_back();
    EXPECT_TRUE(tag.Parse(oneShort.data(), oneShort.size(), 0));
    // A damaged frame ends the reading; what came before stays.
    Bytes damaged = Tag(3, 0, Concat({Frame("TIT2", Latin("Kept")), Frame("TPE1", Latin("Gone"))}));
    damaged[10 + 15 + 4] = 0x7F;  // TPE1's size reaches beyond the block
    CID3v2Tag partial = Parsed(damaged);
    EXPECT_EQ(Value(partial, u"Name"), "Kept");
    EXPECT_EQ(partial.GetFrameCount(), 1);
}

TEST(ID3v2Tag, RenderKeepsTheSizeOrRoundsToTheNext4096)
{
    CID3v2Tag tag = Parsed(Tag(3, 0, Frame("TIT2", Latin("Short")), 1000));
    const int32_t oldSize = tag.GetSize();
    ASSERT_TRUE(tag.SetField(u"Name"_qv, u"A somewhat longer name"_qv));
    EXPECT_TRUE(tag.IsDirty());
    Bytes out = Rendered(tag);
    EXPECT_EQ(static_cast<int32_t>(out.size()), oldSize);
    CID3v2Tag back = Parsed(out);
    EXPECT_EQ(Value(back, u"Name"), "A somewhat longer name");

    // Grown beyond its room: the next multiple of 4096 strictly above.
    CID3v2Tag full = Parsed(Tag(3, 0, Frame("TIT2", Latin("x")), 0));
    full.SetField(u"Name"_qv, u"xyz"_qv);
    EXPECT_EQ(Rendered(full).size(), 4096u);

    // More than 256 KiB of padding shrinks to the next 4096 boundary.
    CID3v2Tag padded = Parsed(Tag(3, 0, Frame("TIT2", Latin("pad")), 300000));
    const Bytes shrunk = Rendered(padded);
    EXPECT_EQ(shrunk.size(), 4096u);
    EXPECT_EQ(TagSizeOf(shrunk), 4096u - 10);

    // A new tag, with exactly 4096 bytes of frames and header, still grows.
    CID3v2Tag fresh;
    ASSERT_TRUE(fresh.SetField(u"Name"_qv, QVString(std::u16string(4096 - 10 - 10 - 2, u'n'))));
    EXPECT_EQ(Rendered(fresh).size(), 8192u);
}

TEST(ID3v2Tag, SetFieldByVersionMultiValuesEncodingsAndRemoval)
{
    CID3v2Tag v23 = Parsed(Tag(3, 0, Frame("TRCK", Latin("1/9")), 64));
    ASSERT_TRUE(v23.SetField(u"Track #"_qv, u"4"_qv));
    QVPropertyMap track;
    ASSERT_TRUE(v23.GetField(u"Track #"_qv, track));
    EXPECT_EQ(track.GetString(u"Value Original"_qv).ToUTF8(), "4/9");
    ASSERT_TRUE(v23.SetField(u"Date"_qv, u"36526"_qv));
    ASSERT_TRUE(v23.SetField(u"Artist"_qv, u"One; Two;;Thr\u00e9e"_qv));
    ASSERT_TRUE(v23.SetField(u"Replay Gain"_qv, u"-7.25"_qv));
    ASSERT_TRUE(v23.SetField(u"Rating"_qv, u"4"_qv));
    ASSERT_TRUE(v23.SetField(u"Mood"_qv, u"Calm"_qv));
    ASSERT_TRUE(v23.SetField(u"My Own Field"_qv, u"mine"_qv));
    EXPECT_FALSE(v23.SetField(u"Replay Gain"_qv, u"loud"_qv));

    CID3v2Tag back = Parsed(Rendered(v23));
    EXPECT_EQ(Value(back, u"Track #"), "4");
    // 2.3 keeps "Date" in a user text frame; 2.4 would use TDRC.
    bool userDate = false;
    bool artistFrame = false;
    for (int32_t i = 0; i < back.GetFrameCount(); ++i)
    {
        const CID3v2Frame& frame = back.GetFrame(i);
        userDate = userDate || (frame.HasID("TXXX") &&
                                frame.Properties.GetString(u"Description"_qv) == u"QV/Date");
        if (frame.HasID("TPE1"))
        {
            artistFrame = true;
            // Encoding 1 for a character above 0x7E; three strings of their own.
            const Bytes expected =
                Concat({{1},
                        {0xFF, 0xFE, 'O', 0, 'n', 0, 'e', 0, 0, 0},
                        {0xFF, 0xFE, 'T', 0, 'w', 0, 'o', 0, 0, 0},
                        {0xFF, 0xFE, 'T', 0, 'h', 0, 'r', 0, 0xE9, 0, 'e', 0, 0, 0}});
            EXPECT_EQ(frame.Data, expected);
        }
        EXPECT_FALSE(frame.HasID("TDRC"));
        EXPECT_FALSE(frame.HasID("TMOO"));
    }
    EXPECT_TRUE(userDate);
    EXPECT_TRUE(artistFrame);
    EXPECT_EQ(Value(back, u"Date"), "36526");
    EXPECT_EQ(Value(back, u"Artist"), "One;Two;Thr\xC3\xA9"
                                      "e");
    EXPECT_EQ(Value(back, u"Replay Gain"), "-7.250000");
    EXPECT_EQ(Value(back, u"Rating"), "4");
    EXPECT_EQ(Value(back, u"Mood"), "Calm");
    EXPECT_EQ(Value(back, u"My Own Field"), "mine");

    CID3v2Tag v24 = Parsed(Tag(4, 0, Frame("TIT2", Latin("x"), 4), 64));
    ASSERT_TRUE(v24.SetField(u"Date"_qv, u"36526.5"_qv));
    ASSERT_TRUE(v24.SetField(u"Mood"_qv, u"Calm"_qv));
    EXPECT_FALSE(v24.SetField(u"Year"_qv, u"1999"_qv));
    CID3v2Tag back24 = Parsed(Rendered(v24));
    EXPECT_EQ(Value(back24, u"Date"), "36526.5");
    EXPECT_EQ(back24.GetMajorVersion(), 4);
    int tdrc = 0;
    for (int32_t i = 0; i < back24.GetFrameCount(); ++i)
        tdrc += back24.GetFrame(i).HasID("TDRC") || back24.GetFrame(i).HasID("TMOO");
    EXPECT_EQ(tdrc, 2);

    ASSERT_TRUE(back.SetField(u"Artist"_qv, QVString()));
    ASSERT_TRUE(back.SetField(u"My Own Field"_qv, QVString()));
    EXPECT_EQ(Value(back, u"Artist"), "<none>");
    EXPECT_EQ(Value(back, u"My Own Field"), "<none>");
}

TEST(ID3v2Tag, PicturesFromFilesAndPodcastFramesAtRender)
{
    const std::filesystem::path folder =
        std::filesystem::temp_directory_path() / ("id3-test-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    const std::filesystem::path picture = folder / "cover.JPG";
    const Bytes pictureBytes = {0xFF, 0xD8, 0xFF, 0xE0, 0, 1, 2, 0xFF, 0xD9};
    std::ofstream(picture, std::ios::binary)
        .write(reinterpret_cast<const char*>(pictureBytes.data()), pictureBytes.size());

    CID3v2Tag tag;
    ASSERT_TRUE(tag.SetField(u"Image File"_qv, QVString::FromUTF8(picture.string())));
    EXPECT_FALSE(
        tag.SetField(u"Image File"_qv, QVString::FromUTF8((folder / "none.png").string())));
    ASSERT_TRUE(tag.SetField(u"Feed URL"_qv, u"http://feed"_qv));
    ASSERT_TRUE(tag.SetField(u"Comment"_qv, u"About"_qv));
    CID3v2Tag back = Parsed(Rendered(tag));
    std::filesystem::remove_all(folder);

    QVPropertyMap image;
    ASSERT_TRUE(back.GetField(u"Image File"_qv, image));
    EXPECT_EQ(image.GetString(u"Mime Type"_qv).ToUTF8(), "image/jpeg");
    EXPECT_EQ(image.GetInt(u"Picture Type"_qv, -1), 3);
    EXPECT_EQ(image.GetString(u"Description"_qv).ToUTF8(), "Picture");
    EXPECT_EQ(image.GetString(u"Value"_qv).GetLength(), static_cast<int32_t>(pictureBytes.size()));
    EXPECT_EQ(Value(back, u"!@#$% iTunes Podcast Feed URL !@#$%"), "http://feed");
    EXPECT_EQ(Value(back, u"!@#$% iTunes Podcast Description !@#$%"), "About");
    bool flag = false;
    for (int32_t i = 0; i < back.GetFrameCount(); ++i)
        flag =
            flag || (back.GetFrame(i).HasID("PCST") && back.GetFrame(i).Data == Bytes{0, 0, 0, 0});
    EXPECT_TRUE(flag);

    // Without a feed, the podcast frames go at the next render.
    ASSERT_TRUE(back.SetField(u"Feed URL"_qv, QVString()));
    CID3v2Tag plain = Parsed(Rendered(back));
    for (int32_t i = 0; i < plain.GetFrameCount(); ++i)
    {
        EXPECT_FALSE(plain.GetFrame(i).HasID("PCST"));
        EXPECT_FALSE(plain.GetFrame(i).HasID("WFED"));
        EXPECT_FALSE(plain.GetFrame(i).HasID("TDES"));
    }
}

TEST(ID3v2Tag, RenderedFramesFollowTheTableThenCommentsThenUserTextThenUnknownIds)
{
    const Bytes frames = Concat({
        Frame("ZZZB", {1}),
        Frame("TXXX", Concat({Latin("beta"), {0}, Text("2")})),
        Frame("COMM", Concat({{0}, Text("eng"), Text("z"), {0}, Text("c")})),
        Frame("TALB", Latin("Album")),
        Frame("ZZZA", {2}),
        Frame("TXXX", Concat({Latin("Alpha"), {0}, Text("1")})),
        Frame("TIT2", Latin("Name")),
        Frame("COMM", Concat({{0}, Text("eng"), Text("A"), {0}, Text("c")})),
    });
    CID3v2Tag tag = Parsed(Tag(3, 0, frames));
    CID3v2Tag back = Parsed(Rendered(tag));
    std::vector<std::string> order;
    for (int32_t i = 0; i < back.GetFrameCount(); ++i)
    {
        const CID3v2Frame& frame = back.GetFrame(i);
        std::string entry(frame.ID, 4);
        if (frame.Kind == ID3KIND_USER_TEXT || frame.Kind == ID3KIND_COMMENT)
            entry += ":" + frame.Properties.GetString(u"Description"_qv).ToUTF8();
        order.push_back(entry);
    }
    const std::vector<std::string> expected = {"TIT2",       "TALB",      "COMM:A", "COMM:z",
                                               "TXXX:Alpha", "TXXX:beta", "ZZZA",   "ZZZB"};
    EXPECT_EQ(order, expected);
}
