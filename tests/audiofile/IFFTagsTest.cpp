// Tags inside WAV, RF64 and AIFF files: files tagged by other programs
// (python3-mutagen, ffmpeg; see tag-fixtures/make-fixtures.sh) read as they
// wrote them, and random edit sequences never touch a byte of the audio,
// checked against libsndfile's reading of the same files.
#include <gtest/gtest.h>

#include <sndfile.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <unistd.h>
#include <vector>

#include "HandBuiltFiles.h"
#include "audiofile/AIFFInfo.h"
#include "audiofile/FieldReader.h"
#include "audiofile/WAVInfo.h"
#include "audiofile/Wave64Info.h"
#include "support/FileStoreTools.h"
#include "support/ScratchFolder.h"

namespace
{

namespace fs = std::filesystem;
using Bytes = std::vector<uint8_t>;
using qvtest::ScratchFolder;

Bytes ReadBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void WriteBytes(const std::string& path, const Bytes& bytes)
{
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
}

std::string Fixture(const std::string& name)
{
    const char* source = std::getenv("QVDSP_SOURCE_DIR");
    return source == nullptr ? name : std::string(source) + "/tests/audiofile/tag-fixtures/" + name;
}

std::string TagOf(CIFFInfo& reader, const char16_t* name)
{
    QVString text;
    return reader.GetTag(QVString(name), text) ? text.ToUTF8() : "<none>";
}

uint32_t U32(const Bytes& bytes, size_t offset, bool bigEndian)
{
    return CFieldReader::U32At(bytes.data() + offset, bigEndian);
}

// What libsndfile makes of a file: its format, frames and samples.
struct SoundView
{
    bool opened = false;
    int format = 0;
    sf_count_t frames = 0;
    std::vector<short> samples;
    bool operator==(const SoundView&) const = default;
};

SoundView ReadWithLibsndfile(const std::string& path)
{
    SoundView view;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr)
        return view;
    view.opened = true;
    view.format = info.format;
    view.frames = info.frames;
    view.samples.resize(static_cast<size_t>(info.frames * info.channels));
    sf_readf_short(file, view.samples.data(), info.frames);
    sf_close(file);
    return view;
}

bool WriteWithLibsndfile(const std::string& path, int format, int frames)
{
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 2;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr)
        return false;
    std::vector<short> samples(static_cast<size_t>(frames) * 2);
    for (size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<short>((i * 7919) % 65536 - 32768);
    sf_writef_short(file, samples.data(), frames);
    sf_close(file);
    return true;
}

}  // namespace

TEST(IFFTags, FilesTaggedByOtherProgramsReadAsTheyWroteThem)
{
    ASSERT_NE(std::getenv("QVDSP_SOURCE_DIR"), nullptr) << "run through ctest";
    for (const char* name :
         {"mutagen-v23.wav", "mutagen-v24.wav", "mutagen-v23.aiff", "mutagen-v24.aiff"})
    {
        SCOPED_TRACE(name);
        const bool wide = std::string(name).find("v24") != std::string::npos;
        std::unique_ptr<CIFFInfo> reader =
            CIFFInfo::CreateForFileName(QVString::FromUTF8(Fixture(name)));
        ASSERT_EQ(reader->OpenFile(QVString::FromUTF8(Fixture(name)), false, true), 0);
        EXPECT_EQ(reader->GetID3v2Tag().GetMajorVersion(), wide ? 4 : 3);
        EXPECT_EQ(TagOf(*reader, u"Name"), wide ? "Title \xC3\xA9" : "Title");
        EXPECT_EQ(TagOf(*reader, u"Artist"), wide ? "Bj\xC3\xB6rk" : "Artist");
        EXPECT_EQ(TagOf(*reader, u"Album"), "Album");
        EXPECT_EQ(TagOf(*reader, u"Track #"), "2");
        EXPECT_EQ(TagOf(*reader, u"Genre"), "Rock");
        EXPECT_EQ(TagOf(*reader, u"Replay Gain"), "-6.500000");
        EXPECT_EQ(TagOf(*reader, u"Comment"), "A comment");
        EXPECT_EQ(TagOf(*reader, u"Rating"), "5");
        if (std::string(name) == "mutagen-v24.wav")
        {
            EXPECT_EQ(TagOf(*reader, u"Date"), "36526");
        }
        const std::string picture = TagOf(*reader, u"Image File");
        EXPECT_TRUE(picture.ends_with("WAV Image.png")) << picture;
        Bytes expected = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
        for (uint8_t i = 0; i < 24; ++i)
            expected.push_back(i);
        EXPECT_EQ(ReadBytes(picture), expected);
        const std::string text = reader->GetTagText().ToUTF8();
        EXPECT_EQ(text.rfind(wide ? "ID3v2.4 Tag: (" : "ID3v2.3 Tag: (", 0), 0u) << text;
        EXPECT_NE(text.find("  TIT2: "), std::string::npos) << text;
        fs::remove(picture);
    }

    CAIFFInfo aiff;
    ASSERT_EQ(aiff.OpenFile(QVString::FromUTF8(Fixture("ffmpeg-id3.aiff")), false, true), 0);
    EXPECT_EQ(TagOf(aiff, u"Name"), "FF Title");
    EXPECT_EQ(TagOf(aiff, u"Artist"), "FF Artist");
    EXPECT_EQ(TagOf(aiff, u"Album"), "FF Album");

    // ffmpeg's WAV has an INFO list and no tag: the list answers.
    CWAVInfo wave;
    ASSERT_EQ(wave.OpenFile(QVString::FromUTF8(Fixture("ffmpeg-info.wav")), false, true), 0);
    EXPECT_EQ(TagOf(wave, u"Name"), "FF Title");
    EXPECT_EQ(TagOf(wave, u"Genre"), "Jazz");
    EXPECT_EQ(TagOf(wave, u"Album"), "<none>");
    const std::string list = wave.GetTagText().ToUTF8();
    EXPECT_EQ(list.rfind("WAVE INFO LIST:\r\n", 0), 0u) << list;
    for (const char* line : {"Artist: FF Artist\r\n", "Genre: Jazz\r\n", "Name: FF Title\r\n"})
        EXPECT_NE(list.find(line), std::string::npos) << line;
}

TEST(IFFTags, AnOddTagChunkCountingItsPadAndAnInPlaceRewrite)
{
    ScratchFolder folder;
    // A 31-byte tag, then its pad byte, then a chunk behind it.
    Bytes tag = {'I', 'D', '3', 3, 0, 0, 0, 0, 0,   21,  'T', 'I', 'T',
                 '2', 0,   0,   0, 5, 0, 0, 0, 'O', 'd', 'd', '!'};
    tag.resize(31, 0);
    auto build = [&](uint32_t tagChunkSize)
    {
        CByteBuilder file;
        file.Text("RIFF").U32(0).Text("WAVE");
        AppendWaveFormat(file, 1, 2, 44100, 16);
        file.Text("data").U32(8).Raw({1, 2, 3, 4, 5, 6, 7, 8});
        file.Text("id3 ").U32(tagChunkSize).Raw(tag).Raw({0});
        file.Text("junk").U32(2).Raw({9, 9});
        file.PatchU32(4, static_cast<uint32_t>(file.Size() - 8));
        return file;
    };
    // The size field counts the pad: the tag still reads, the walk goes on.
    CWAVInfo counted;
    ASSERT_EQ(counted.OpenStream(build(32).Stream(), false, true), 0);
    EXPECT_EQ(TagOf(counted, u"Name"), "Odd!");
    EXPECT_TRUE(counted.GetChunks().back().Is("junk"));

    const CByteBuilder file = build(31);
    const std::string path = folder.File("odd.wav");
    WriteBytes(path, file.Bytes());
    {
        CWAVInfo reader;
        ASSERT_EQ(reader.OpenFileForTags(QVString::FromUTF8(path), false), 0);
        EXPECT_EQ(TagOf(reader, u"Name"), "Odd!");
        // The rendered tag keeps its 31 bytes, so only they change.
        ASSERT_TRUE(reader.SetTag(u"Name"_qv, u"Eve!"_qv));
        ASSERT_TRUE(reader.SaveTags(false));
    }
    const Bytes after = ReadBytes(path);
    ASSERT_EQ(after.size(), file.Size());
    const size_t tagStart = 12 + 24 + 16 + 8;
    for (size_t i = 0; i < after.size(); ++i)
    {
        if (i < tagStart || i >= tagStart + 31)
        {
            ASSERT_EQ(after[i], file.Bytes()[i]) << "byte " << i;
        }
    }
    CWAVInfo again;
    ASSERT_EQ(again.OpenFile(QVString::FromUTF8(path), false, true), 0);
    EXPECT_EQ(TagOf(again, u"Name"), "Eve!");
}

TEST(IFFTags, FilesThatMustNotTakeTagsAreRefusedButRead)
{
    ScratchFolder folder;
    // Wave64: read, never written.
    const std::string w64 = folder.File("a.w64");
    ASSERT_TRUE(WriteWithLibsndfile(w64, SF_FORMAT_W64 | SF_FORMAT_PCM_16, 10));
    {
        CWave64Info reader;
        ASSERT_EQ(reader.OpenFileForTags(QVString::FromUTF8(w64), false), 0);
        EXPECT_FALSE(reader.CanWriteTags());
        EXPECT_FALSE(reader.SetTag(u"Name"_qv, u"x"_qv));
    }
    // 2 GiB of data, in a sparse file that costs no disk.
    const std::string big = folder.File("big.wav");
    CByteBuilder header;
    header.Text("RIFF").U32(0xFFFFFFFF).Text("WAVE");
    AppendWaveFormat(header, 1, 2, 44100, 16);
    header.Text("data").U32(0x80000000u);
    WriteBytes(big, header.Bytes());
    fs::resize_file(big, header.Size() + 0x80000000ull);
    {
        CWAVInfo reader;
        ASSERT_EQ(reader.OpenFileForTags(QVString::FromUTF8(big), false), 0);
        EXPECT_FALSE(reader.IsBelow2GB());
        EXPECT_FALSE(reader.SetTag(u"Name"_qv, u"x"_qv));
    }
    EXPECT_EQ(fs::file_size(big), header.Size() + 0x80000000ull);

    // The setting that forbids writing tags.
    const std::string wav = folder.File("a.wav");
    ASSERT_TRUE(WriteWithLibsndfile(wav, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 10));
    const Bytes before = ReadBytes(wav);
    {
        qvtest::ScopedFileStore store;
        store.Key(u"Plugins\\Input\\WAV")->WriteInt(u"DoNotWriteTagsToFiles", 1);
        CWAVInfo reader;
        ASSERT_EQ(reader.OpenFileForTags(QVString::FromUTF8(wav), false), 0);
        EXPECT_FALSE(reader.SetTag(u"Name"_qv, u"x"_qv));
        EXPECT_TRUE(reader.SaveTags(true));
    }
    EXPECT_EQ(ReadBytes(wav), before);
    {
        qvtest::ScopedFileStore store;
        CWAVInfo reader;
        ASSERT_EQ(reader.OpenFileForTags(QVString::FromUTF8(wav), false), 0);
        EXPECT_TRUE(reader.SetTag(u"Name"_qv, u"x"_qv));
    }
    // Saved by the destructor.
    CWAVInfo reader;
    ASSERT_EQ(reader.OpenFile(QVString::FromUTF8(wav), false, true), 0);
    EXPECT_EQ(TagOf(reader, u"Name"), "x");

    // A cut-off last chunk would swallow a tag put behind it: nothing is written.
    CByteBuilder cut;
    cut.Text("RIFF").U32(0).Text("WAVE");
    AppendWaveFormat(cut, 1, 2, 44100, 16);
    cut.Text("data").U32(4).Raw({1, 2, 3, 4});
    cut.Text("junk").U32(100).Raw({5, 6});
    cut.PatchU32(4, static_cast<uint32_t>(cut.Size() - 8));
    const std::string cutPath = folder.File("cut.wav");
    WriteBytes(cutPath, cut.Bytes());
    {
        CWAVInfo writer;
        ASSERT_EQ(writer.OpenFileForTags(QVString::FromUTF8(cutPath), false), 0);
        ASSERT_TRUE(writer.SetTag(u"Name"_qv, u"x"_qv));
        EXPECT_FALSE(writer.SaveTags(false));
    }
    EXPECT_EQ(ReadBytes(cutPath), cut.Bytes());

    // A stray tail too short for a chunk, counted by the form size or not,
    // would hide an appended tag from every reader: nothing is written.
    for (const Bytes& tail : {Bytes{7}, Bytes{7, 8, 9, 10, 11}})
    {
        for (const bool counted : {false, true})
        {
            CByteBuilder stray;
            stray.Text("RIFF").U32(0).Text("WAVE");
            AppendWaveFormat(stray, 1, 2, 44100, 16);
            stray.Text("data").U32(4).Raw({1, 2, 3, 4});
            stray.PatchU32(4,
                           static_cast<uint32_t>(stray.Size() - 8 + (counted ? tail.size() : 0)));
            stray.Raw(tail);
            const std::string strayPath = folder.File("stray.wav");
            WriteBytes(strayPath, stray.Bytes());
            {
                CWAVInfo writer;
                ASSERT_EQ(writer.OpenFileForTags(QVString::FromUTF8(strayPath), false), 0);
                ASSERT_TRUE(writer.SetTag(u"Name"_qv, u"x"_qv));
                EXPECT_FALSE(writer.SaveTags(false));
            }
            EXPECT_EQ(ReadBytes(strayPath), stray.Bytes()) << tail.size() << " " << counted;
        }
    }
}

TEST(IFFTags, RandomEditSequencesKeepTheAudioAndTheSizesRight)
{
    ScratchFolder folder;
    struct Kind
    {
        const char* name;
        int format;
    };
    const Kind kinds[] = {{"plain.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16},
                          {"big.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
                          {"plain.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
                          {"tag-first.wav", 0}};
    const char16_t* fields[] = {u"Name",     u"Artist", u"Album",    u"Comment",
                                u"Composer", u"Lyrics", u"Own Field"};
    std::mt19937 random(20261125);
    for (const Kind& kind : kinds)
    {
        SCOPED_TRACE(kind.name);
        const std::string path = folder.File(kind.name);
        if (kind.format != 0)
            ASSERT_TRUE(WriteWithLibsndfile(path, kind.format, 3001));
        else
        {
            // A tag in front of the data, which then has to move.
            CByteBuilder file;
            file.Text("RIFF").U32(0).Text("WAVE");
            AppendWaveFormat(file, 1, 2, 44100, 16);
            file.Text("id3 ").U32(14).Raw({'I', 'D', '3', 3, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0});
            file.Text("data").U32(3001 * 4);
            for (int i = 0; i < 3001 * 4; ++i)
                file.Raw({static_cast<uint8_t>(i * 31)});
            file.Text("LIST").U32(4).Text("INFO");
            file.PatchU32(4, static_cast<uint32_t>(file.Size() - 8));
            WriteBytes(path, file.Bytes());
        }
        const SoundView original = ReadWithLibsndfile(path);
        ASSERT_TRUE(original.opened);
        std::map<std::u16string, std::u16string> expected;
        std::string uits;
        for (int step = 0; step < 25; ++step)
        {
            SCOPED_TRACE(step);
            std::unique_ptr<CIFFInfo> reader =
                CIFFInfo::CreateForFileName(QVString::FromUTF8(path));
            ASSERT_EQ(reader->OpenFileForTags(QVString::FromUTF8(path), false), 0);
            const int action = static_cast<int>(random() % 10);
            if (action == 0)
            {
                ASSERT_TRUE(reader->SaveTags(true));
                if (reader->GetID3v2Tag().GetFrameCount() == 0)
                    expected.clear();
            }
            else if (action == 1)
            {
                uits = "payload " + std::to_string(random() % 1000);
                ASSERT_TRUE(reader->SetTag(u"UITS Payload"_qv, QVString::FromUTF8(uits)));
            }
            else
            {
                const std::u16string field = fields[random() % std::size(fields)];
                // Lengths from nothing to far beyond one padding step.
                const size_t lengths[] = {0, 1, 7, 40, 900, 5000};
                std::u16string value(lengths[random() % std::size(lengths)], u'a' + step % 26);
                if (!value.empty() && random() % 2 == 0)
                    value[0] = u'\u00e9';
                ASSERT_TRUE(reader->SetTag(QVString(field), QVString(value)));
                if (value.empty())
                    expected.erase(field);
                else
                    expected[field] = value;
            }
            reader.reset();

            const Bytes bytes = ReadBytes(path);
            const bool bigEndian = kind.format == (SF_FORMAT_AIFF | SF_FORMAT_PCM_16);
            if (kind.format == (SF_FORMAT_RF64 | SF_FORMAT_PCM_16))
            {
                ASSERT_EQ(U32(bytes, 4, false), 0xFFFFFFFFu);
                uint64_t riffSize = 0;
                std::memcpy(&riffSize, bytes.data() + 20, 8);
                ASSERT_EQ(riffSize, bytes.size() - 8);
            }
            else
                ASSERT_EQ(U32(bytes, 4, bigEndian), bytes.size() - 8);
            ASSERT_EQ(ReadWithLibsndfile(path), original);

            std::unique_ptr<CIFFInfo> check = CIFFInfo::CreateForFileName(QVString::FromUTF8(path));
            ASSERT_EQ(check->OpenFile(QVString::FromUTF8(path), false, true), 0);
            for (const char16_t* field : fields)
            {
                const auto found = expected.find(field);
                QVString text;
                const bool has = check->GetTag(QVString(field), text);
                if (found == expected.end())
                    EXPECT_FALSE(has) << QVString(field).ToUTF8();
                else
                    ASSERT_EQ(std::u16string(text.View()), found->second)
                        << QVString(field).ToUTF8();
            }
            if (!uits.empty())
            {
                EXPECT_EQ(TagOf(*check, u"UITS Payload"), uits);
            }
        }
    }
}
