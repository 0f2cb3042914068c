// Hand-built files for what other programs get wrong and the readers accept
// or refuse on purpose: chunk order, sizes beyond the file, RF64 sizes, DTS
// in PCM, the AIFF rate number, CAF's open-ended data, a mislabelled file.
#include <gtest/gtest.h>

#include "HandBuiltFiles.h"
#include "audiofile/AIFFInfo.h"
#include "audiofile/AUInfo.h"
#include "audiofile/CafInfo.h"
#include "audiofile/WAVInfo.h"
#include "audiofile/Wave64Info.h"

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace
{

// A RIFF file of the given chunks; the form size is patched in.
CByteBuilder RiffFile()
{
    CByteBuilder file;
    file.Text("RIFF").U32(0).Text("WAVE");
    return file;
}

void FinishRiff(CByteBuilder& file)
{
    file.PatchU32(4, static_cast<uint32_t>(file.Size() - 8));
}

std::vector<uint8_t> ReadAll(CIFFInfo& reader)
{
    std::vector<uint8_t> bytes(static_cast<size_t>(reader.GetDataSize()) + 16);
    int64_t got = 0;
    EXPECT_GE(reader.Read(bytes.data(), 0, reader.GetFrames() + 5, &got, false), 0);
    bytes.resize(static_cast<size_t>(got));
    return bytes;
}

// Writes bits most significant first.
class BitWriter
{
public:
    void Put(uint32_t value, int count)
    {
        for (int i = count - 1; i >= 0; --i)
        {
            if (bit % 8 == 0)
                bytes.push_back(0);
            bytes.back() |= static_cast<uint8_t>(((value >> i) & 1u) << (7 - bit % 8));
            ++bit;
        }
    }
    std::vector<uint8_t> bytes;

private:
    size_t bit = 0;
};

// DTS core frames as 16-bit big-endian words, each `frameBytes` long, with
// the header fields in their published order and widths.
std::vector<uint8_t> DtsFrames(int frames, uint32_t frameBytes, uint32_t amode, uint32_t lff)
{
    std::vector<uint8_t> stream;
    for (int f = 0; f < frames; ++f)
    {
        BitWriter header;
        header.Put(0x7FFE8001, 32);
        header.Put(1, 1);   // normal frame
        header.Put(31, 5);  // no deficit
        header.Put(0, 1);   // no CRC
        header.Put(15, 7);  // 16 blocks of 32 samples
        header.Put(frameBytes - 1, 14);
        header.Put(amode, 6);
        header.Put(13, 4);  // 44.1 kHz
        header.Put(15, 5);  // 1411.2 kbit/s
        header.Put(0, 5);   // mix, dynamic range, time stamp, auxiliary, HDCD
        header.Put(0, 3);   // extension id
        header.Put(0, 1);   // no extension
        header.Put(0, 1);   // audio sync
        header.Put(lff, 2);
        header.Put(0, 1);  // predictor history
        std::vector<uint8_t> frame = header.bytes;
        frame.resize(frameBytes, 0x55);
        stream.insert(stream.end(), frame.begin(), frame.end());
    }
    return stream;
}

// The same stream in 14-bit words: 14 bits of the stream in the low bits of
// each big-endian word, sign-extended into the top two.
std::vector<uint8_t> To14BitWords(const std::vector<uint8_t>& stream)
{
    std::vector<uint8_t> words;
    const size_t bits = stream.size() * 8;
    for (size_t start = 0; start + 14 <= bits; start += 14)
    {
        uint32_t value = 0;
        for (size_t b = start; b < start + 14; ++b)
            value = (value << 1) | ((stream[b / 8] >> (7 - b % 8)) & 1u);
        if (value & 0x2000)
            value |= 0xC000;
        words.push_back(static_cast<uint8_t>(value >> 8));
        words.push_back(static_cast<uint8_t>(value));
    }
    return words;
}

std::vector<uint8_t> SwapPairs(std::vector<uint8_t> bytes)
{
    for (size_t i = 0; i + 1 < bytes.size(); i += 2)
        std::swap(bytes[i], bytes[i + 1]);
    return bytes;
}

CByteBuilder CdWave(const std::vector<uint8_t>& data)
{
    CByteBuilder file = RiffFile();
    AppendWaveFormat(file, 1, 2, 44100, 16);
    file.Text("data").U32(static_cast<uint32_t>(data.size())).Raw(data);
    FinishRiff(file);
    return file;
}

}  // namespace

TEST(ReaderTolerances, WaveChunkOrderAndSizes)
{
    const std::vector<uint8_t> samples = CountingBytes(40);
    // Data before "fmt ", with a LIST and an odd chunk between.
    CByteBuilder early = RiffFile();
    early.Text("data").U32(40).Raw(samples);
    early.Text("junk").U32(3).Raw({1, 2, 3}).Zeros(1);
    AppendWaveFormat(early, 1, 2, 8000, 16);
    FinishRiff(early);
    CWAVInfo reader;
    ASSERT_EQ(reader.OpenStream(early.Stream(), true, true), 0);
    EXPECT_EQ(reader.GetDataStart(), 20);
    EXPECT_EQ(reader.GetDataSize(), 40);
    EXPECT_EQ(reader.GetFrames(), 10);
    EXPECT_EQ(reader.GetTrailingSize(), static_cast<int64_t>(early.Size()) - 60);
    ASSERT_EQ(reader.GetChunks().size(), 3u);
    EXPECT_TRUE(reader.GetChunks()[1].Is("junk"));
    EXPECT_EQ(reader.GetChunks()[2].Position, 72);
    EXPECT_EQ(ReadAll(reader), samples);

    // A data chunk that declares more than the file holds ends at the end.
    CByteBuilder longData = RiffFile();
    AppendWaveFormat(longData, 1, 1, 8000, 16);
    longData.Text("data").U32(1000000).Raw(samples);
    FinishRiff(longData);
    ASSERT_EQ(reader.OpenStream(longData.Stream(), true, false), 0);
    EXPECT_EQ(reader.GetDataSize(), 40);
    EXPECT_EQ(reader.GetTrailingSize(), 0);
    EXPECT_EQ(reader.GetFrames(), 20);
    EXPECT_EQ(ReadAll(reader), samples);
    // Reading from the middle, and past the end.
    uint8_t piece[8] = {};
    int64_t got = 0;
    EXPECT_EQ(reader.Read(piece, 18, 4, &got, true), 4);
    EXPECT_EQ(got, 4);
    EXPECT_EQ(piece[0], samples[36]);
    EXPECT_EQ(reader.Read(piece, 20, 4, &got, true), 0);

    // A chunk other than data that runs past the end stops the walk.
    CByteBuilder cut = RiffFile();
    cut.Text("LIST").U32(5000).Text("INFO");
    AppendWaveFormat(cut, 1, 1, 8000, 16);
    cut.Text("data").U32(4).Zeros(4);
    EXPECT_EQ(reader.OpenStream(cut.Stream(), true, true), -1);
    EXPECT_EQ(reader.GetFrames(), -1);
    EXPECT_EQ(reader.GetFormatTag(), -1);
    EXPECT_EQ(reader.Read(piece, 0, 1, &got, false), -1);

    // No data, no format, a rate of 0, or another magic: not opened.
    CByteBuilder noData = RiffFile();
    AppendWaveFormat(noData, 1, 1, 8000, 16);
    EXPECT_EQ(reader.OpenStream(noData.Stream(), false, true), -1);
    CByteBuilder zeroRate = RiffFile();
    AppendWaveFormat(zeroRate, 1, 1, 0, 16);
    zeroRate.Text("data").U32(4).Zeros(4);
    EXPECT_EQ(reader.OpenStream(zeroRate.Stream(), false, true), -1);
    CByteBuilder notWave = RiffFile();
    notWave.PatchU32(8, 0x45564157 ^ 0x20);  // "wAVE"
    EXPECT_EQ(reader.OpenStream(notWave.Stream(), false, true), -1);
}

TEST(ReaderTolerances, WaveFormatTags)
{
    const std::vector<uint8_t> data = CountingBytes(64);
    // Strict reading refuses tags other than 1, 3 and 0xFFFE.
    CByteBuilder adpcm = RiffFile();
    AppendWaveFormat(adpcm, 2, 2, 22050, 4);
    adpcm.Text("data").U32(64).Raw(data);
    FinishRiff(adpcm);
    CWAVInfo reader;
    EXPECT_EQ(reader.OpenStream(adpcm.Stream(), true, true), -1);
    ASSERT_EQ(reader.OpenStream(adpcm.Stream(), false, true), 0);
    EXPECT_EQ(reader.GetFormatTag(), 2);

    // Extensible integer, 24 valid bits in 32.
    CByteBuilder wide = RiffFile();
    wide.Text("fmt ").U32(40).U16(0xFFFE).U16(2).U32(48000).U32(384000).U16(8).U16(32);
    wide.U16(22).U16(24).U32(3).U32(1).U16(0).U16(0x10).Raw(
        {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71});
    wide.Text("data").U32(64).Raw(data);
    FinishRiff(wide);
    ASSERT_EQ(reader.OpenStream(wide.Stream(), true, true), 0);
    EXPECT_EQ(reader.GetFormatTag(), 0xFFFE);
    EXPECT_EQ(reader.GetValidBits(), 24);
    EXPECT_EQ(reader.GetFormat().bitsPerSample, 32);
    EXPECT_FALSE(reader.GetFormat().IsFloat());
    EXPECT_EQ(reader.GetFormat().channelMask, 3u);
    EXPECT_EQ(reader.GetFrames(), 8);

    // MPEG (tag 80) without a byte rate takes it from the extension's bit rate.
    CByteBuilder mpeg = RiffFile();
    mpeg.Text("fmt ").U32(40).U16(80).U16(2).U32(44100).U32(0).U16(1).U16(0);
    mpeg.U16(22).U16(2).U32(128000).Zeros(16);
    mpeg.Text("data").U32(64).Raw(data);
    FinishRiff(mpeg);
    ASSERT_EQ(reader.OpenStream(mpeg.Stream(), false, true), 0);
    EXPECT_EQ(reader.GetFormatTag(), 80);
    EXPECT_EQ(reader.GetAverageBytesPerSecond(), 16000);
    EXPECT_TRUE(reader.GetFormat().subFormat == MakeWaveSubFormat(80));
    EXPECT_EQ(reader.GetDuration(), 4);  // 64 bytes at 16000 bytes per second
}

TEST(ReaderTolerances, Rf64SizesComeFromTheSizeChunk)
{
    const std::vector<uint8_t> data = CountingBytes(96);
    CByteBuilder file;
    file.Text("RF64").U32(0xFFFFFFFF).Text("WAVE");
    // The size chunk with a table of one entry.
    file.Text("ds64").U32(40).U64(0).U64(96).U64(24).U32(1).Text("junk").U64(8);
    AppendWaveFormat(file, 1, 2, 48000, 16);
    file.Text("data").U32(0xFFFFFFFF).Raw(data);
    file.Text("tail").U32(2).Zeros(2);
    CWAVInfo reader;
    ASSERT_EQ(reader.OpenStream(file.Stream(), true, true), 0);
    EXPECT_EQ(reader.GetRiffKind(), CWAVInfo::RIFF_RF64);
    ASSERT_NE(reader.GetDataSize64Chunk(), nullptr);
    EXPECT_EQ(reader.GetDataSize64Chunk()->sampleCount, 24u);
    ASSERT_EQ(reader.GetDataSize64Chunk()->table.size(), 1u);
    EXPECT_EQ(reader.GetDataSize64Chunk()->table[0].size, 8u);
    EXPECT_EQ(reader.GetDataSize(), 96);
    EXPECT_EQ(reader.GetTrailingSize(), 10);
    EXPECT_EQ(reader.GetFrames(), 24);
    ASSERT_EQ(reader.GetChunks().size(), 4u);
    EXPECT_TRUE(reader.GetChunks()[3].Is("tail"));
    EXPECT_EQ(ReadAll(reader), data);

    // A table longer than the file is a failed header.
    CByteBuilder broken;
    broken.Text("RF64").U32(0xFFFFFFFF).Text("WAVE");
    broken.Text("ds64").U32(28).U64(0).U64(96).U64(24).U32(0x10000000);
    AppendWaveFormat(broken, 1, 2, 48000, 16);
    broken.Text("data").U32(0xFFFFFFFF).Raw(data);
    EXPECT_EQ(reader.OpenStream(broken.Stream(), true, true), -1);
}

TEST(ReaderTolerances, DtsInACdAudioWave)
{
    // AMODE 9 with LFE: five channels and one more.
    const std::vector<uint8_t> frames = DtsFrames(12, 2012, 9, 1);
    CWAVInfo reader;
    ASSERT_EQ(reader.OpenStream(CdWave(SwapPairs(frames)).Stream(), true, true), 0);
    EXPECT_EQ(reader.GetFormatTag(), 8);
    EXPECT_EQ(reader.GetChannels(), 6);

    // 16-bit big-endian and both 14-bit forms, after some silence.
    std::vector<uint8_t> lead(200, 0);
    std::vector<uint8_t> big = lead;
    const std::vector<uint8_t> stereo = DtsFrames(12, 1024, 2, 0);
    big.insert(big.end(), stereo.begin(), stereo.end());
    ASSERT_EQ(reader.OpenStream(CdWave(big).Stream(), true, true), 0);
    EXPECT_EQ(reader.GetFormatTag(), 8);
    EXPECT_EQ(reader.GetChannels(), 2);
    EXPECT_EQ(DetectDtsChannels(big.data(), big.size()), 2);
    const std::vector<uint8_t> words14 = To14BitWords(DtsFrames(12, 1024, 13, 2));
    EXPECT_EQ(DetectDtsChannels(words14.data(), words14.size()), 8);
    const std::vector<uint8_t> little14 = SwapPairs(words14);
    EXPECT_EQ(DetectDtsChannels(little14.data(), little14.size()), 8);

    // The test is made only on 16-bit stereo at 44100 Hz.
    CByteBuilder other = RiffFile();
    AppendWaveFormat(other, 1, 2, 48000, 16);
    other.Text("data").U32(static_cast<uint32_t>(frames.size())).Raw(SwapPairs(frames));
    FinishRiff(other);
    ASSERT_EQ(reader.OpenStream(other.Stream(), true, true), 0);
    EXPECT_EQ(reader.GetFormatTag(), 1);

    // Noise holding one sync word with a plausible header is still PCM: the
    // failed positions after it far outnumber the bytes of the one frame.
    std::vector<uint8_t> noise = CountingBytes(65536);
    const std::vector<uint8_t> one = DtsFrames(1, 1024, 9, 1);
    std::copy(one.begin(), one.begin() + 16, noise.begin() + 1000);
    ASSERT_EQ(reader.OpenStream(CdWave(SwapPairs(noise)).Stream(), true, true), 0);
    EXPECT_EQ(reader.GetFormatTag(), 1);
    EXPECT_EQ(reader.GetChannels(), 2);
}

TEST(ReaderTolerances, WaveInfoListBroadcastExtensionAndPayload)
{
    CByteBuilder file = RiffFile();
    AppendWaveFormat(file, 1, 1, 8000, 8);
    CByteBuilder list;
    list.Text("INFO");
    list.Text("INAM").U32(6).Text("First").Zeros(1);
    list.Text("IART").U32(5).Text("Band!").Zeros(1);
    list.Text("ISRF").U32(4).Text("Tape");
    list.Text("ICMT").U32(9).Raw({0xEF, 0xBB, 0xBF, 'c', 'a', 'f', 0xC3, 0xA9, 0}).Zeros(1);
    list.Text("XXXX").U32(2).Text("no");
    list.Text("INAM").U32(7).Text("Second").Zeros(2);
    file.Text("LIST").U32(static_cast<uint32_t>(list.Size())).Raw(list.Bytes());
    CByteBuilder bext;
    bext.Text("A description").Zeros(256 - 13).Text("Originator").Zeros(22).Zeros(32);
    bext.Text("2024-05-01").Text("13:04:05").U32(48000).U32(0).U16(2).Zeros(64);
    bext.U16(0xFFE8).U16(50).U16(0xFFF6).U16(0).U16(0).Zeros(180).Text("A=PCM,F=48000");
    file.Text("bext").U32(static_cast<uint32_t>(bext.Size())).Raw(bext.Bytes()).Zeros(1);
    file.Text("UITS").U32(3).Text("abc").Zeros(1);
    file.Text("id3 ").U32(4).Text("ID3").Zeros(1);
    file.Text("data").U32(4).Raw({128, 129, 130, 131});
    FinishRiff(file);

    CWAVInfo reader;
    ASSERT_EQ(reader.OpenStream(file.Stream(), true, true), 0);
    const QVInfoList& info = reader.GetInfoList();
    QVString value;
    EXPECT_TRUE(info.Lookup(u"Name", value));
    EXPECT_EQ(value, QVString(u"Second"));
    EXPECT_TRUE(info.Lookup(u"Artist", value));
    EXPECT_EQ(value, QVString(u"Band!"));  // the forced 0 is the pad byte
    EXPECT_TRUE(info.Lookup(u"Source Form", value));
    EXPECT_EQ(value, QVString(u"Tap"));  // no pad: the last letter becomes the 0
    EXPECT_TRUE(info.Lookup(u"Release Medium", value));
    EXPECT_TRUE(info.Lookup(u"Comment", value));
    EXPECT_EQ(value, QVString(u"caf\u00E9"));
    EXPECT_EQ(info.GetCount(), 5);

    const CBroadcastExtension* extension = reader.GetBroadcastExtension();
    ASSERT_NE(extension, nullptr);
    EXPECT_EQ(CBroadcastExtension::Text(extension->description, 256), "A description");
    EXPECT_EQ(CBroadcastExtension::Text(extension->originator, 32), "Originator");
    EXPECT_EQ(CBroadcastExtension::Text(extension->originationDate, 10), "2024-05-01");
    EXPECT_EQ(extension->timeReferenceLow, 48000u);
    EXPECT_EQ(extension->version, 2);
    EXPECT_EQ(extension->loudness[0], -24);
    EXPECT_EQ(extension->loudness[2], -10);
    EXPECT_EQ(extension->codingHistory, "A=PCM,F=48000");

    ASSERT_NE(reader.GetUITSChunk(), nullptr);
    EXPECT_EQ(reader.GetUITSChunk()->payload, (std::vector<uint8_t>{'a', 'b', 'c', 0}));
    EXPECT_EQ(reader.GetUITSChunk()->chunkIndex, 3);
    EXPECT_EQ(reader.GetTagChunkIndex(), 4);
    // 8-bit WAV samples are delivered as they stand, unsigned.
    EXPECT_EQ(ReadAll(reader), (std::vector<uint8_t>{128, 129, 130, 131}));

    // Written back, the payload chunk is the bytes it came from.
    CMemoryStream out(std::vector<uint8_t>{});
    ASSERT_TRUE(reader.GetUITSChunk()->Write(out));
    EXPECT_EQ(out.GetBytes(),
              (std::vector<uint8_t>{'U', 'I', 'T', 'S', 4, 0, 0, 0, 'a', 'b', 'c', 0}));
}

TEST(ReaderTolerances, AiffRateOffsetAndCompressions)
{
    // 44100 Hz: exponent 0x400E (e = 14), mantissa whose top 16 bits are
    // 44100: shifted right by 16.
    EXPECT_EQ(CAIFFInfo::RateFromExtended({0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}), 44100u);
    EXPECT_EQ(CAIFFInfo::RateFromExtended({0x40, 0x0D, 0xAC, 0x44, 0, 0, 0, 0, 0, 0}), 22050u);
    EXPECT_EQ(CAIFFInfo::RateFromExtended({0x40, 0x0E, 0xBB, 0x80, 0, 0, 0, 0, 0, 0}), 48000u);
    // The last bit shifted out rounds: 44100.5 becomes 44101.
    EXPECT_EQ(CAIFFInfo::RateFromExtended({0x40, 0x0E, 0xAC, 0x44, 0x80, 0, 0, 0, 0, 0}), 44101u);

    auto aiff = [](const char* kind, const char* compression, uint32_t offset, uint16_t bits)
    {
        CByteBuilder file(true);
        file.Text("FORM").U32(0).Text(kind);
        if (compression != nullptr)
            file.Text("COMM")
                .U32(24)
                .U16(1)
                .U32(4)
                .U16(bits)
                .Raw({0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0})
                .Text(compression)
                .U16(0);
        else
            file.Text("COMM").U32(18).U16(1).U32(4).U16(bits).Raw(
                {0x40, 0x0E, 0xAC, 0x44, 0, 0, 0, 0, 0, 0});
        const uint32_t bytes = 4 * bits / 8;
        file.Text("SSND").U32(8 + offset + bytes).U32(offset).U32(0).Zeros(offset);
        file.Raw(CountingBytes(bytes));
        file.PatchU32(4, static_cast<uint32_t>(file.Size() - 8));
        return file;
    };
    CAIFFInfo reader;
    // The sound data's own offset moves the first frame.
    ASSERT_EQ(reader.OpenStream(aiff("AIFF", nullptr, 6, 16).Stream(), true, true), 0);
    EXPECT_EQ(reader.GetSampleRate(), 44100);
    EXPECT_EQ(reader.GetSoundDataOffset(), 6u);
    EXPECT_EQ(reader.GetDataStart(), 12 + 26 + 16);
    EXPECT_EQ(reader.FrameToPosition(1), 12 + 26 + 16 + 6 + 2);
    EXPECT_EQ(reader.GetFrames(), 4);
    uint8_t sample[2];
    ASSERT_EQ(reader.Read(sample, 0, 1, nullptr, false), 2);
    // Big-endian 16-bit turned to little-endian.
    EXPECT_EQ(sample[0], CountingBytes(2)[1]);
    EXPECT_EQ(sample[1], CountingBytes(2)[0]);

    ASSERT_EQ(reader.OpenStream(aiff("AIFC", "fl32", 0, 32).Stream(), true, true), 0);
    EXPECT_EQ(reader.GetCompression(), CAIFFInfo::COMPRESSION_FL32);
    EXPECT_TRUE(reader.GetFormat().IsFloat());
    ASSERT_EQ(reader.OpenStream(aiff("AIFC", "sowt", 0, 16).Stream(), true, true), 0);
    ASSERT_EQ(reader.Read(sample, 0, 1, nullptr, false), 2);
    EXPECT_EQ(sample[0], CountingBytes(2)[0]);
    for (const char* refused : {"ACE2", "MAC6", "FL32", "ulaw"})
    {
        EXPECT_EQ(reader.OpenStream(aiff("AIFC", refused, 0, 16).Stream(), true, true), -1)
            << refused;
    }
}

TEST(ReaderTolerances, AuCafAndWave64Headers)
{
    // AU: offset and data size checked, encodings 1 to 7 only.
    auto au = [](uint32_t offset, uint32_t size, uint32_t encoding, size_t dataBytes)
    {
        CByteBuilder file(true);
        file.Text(".snd").U32(offset).U32(size).U32(encoding).U32(8000).U32(1);
        file.Zeros(offset > 24 ? offset - 24 : 0).Raw(CountingBytes(dataBytes));
        return file;
    };
    CAUInfo reader;
    ASSERT_EQ(reader.OpenStream(au(28, 0, 3, 20).Stream(), true, true), 0);
    EXPECT_EQ(reader.GetDataStart(), 28);
    EXPECT_EQ(reader.GetDataSize(), 20);
    ASSERT_EQ(reader.OpenStream(au(24, 8, 3, 20).Stream(), true, true), 0);
    EXPECT_EQ(reader.GetDataSize(), 8);
    EXPECT_EQ(reader.GetTrailingSize(), 12);
    ASSERT_EQ(reader.OpenStream(au(24, 0, 1, 4).Stream(), true, true), 0);
    EXPECT_EQ(reader.GetFormatTag(), 7);
    EXPECT_EQ(reader.OpenStream(au(24, 0, 8, 4).Stream(), true, true), -1);
    EXPECT_EQ(reader.OpenStream(au(16, 0, 3, 4).Stream(), true, true), -1);
    EXPECT_EQ(reader.OpenStream(au(200, 0, 3, 0).Stream(), true, true), -1);

    // CAF: a data size of -1 runs to the end of the file.
    CByteBuilder caf(true);
    caf.Text("caff").U16(1).U16(0);
    caf.Text("desc").U64(32).F64(44100.4).Text("lpcm").U32(2).U32(4).U32(1).U32(2).U32(16);
    caf.Text("data").U64(0xFFFFFFFFFFFFFFFF).U32(7).Raw(CountingBytes(40));
    CCafInfo cafReader;
    ASSERT_EQ(cafReader.OpenStream(caf.Stream(), true, true), 0);
    EXPECT_EQ(cafReader.GetEditCount(), 7u);
    EXPECT_EQ(cafReader.GetDataStart(), 8 + 44 + 16);
    EXPECT_EQ(cafReader.GetDataSize(), 40);
    EXPECT_EQ(cafReader.GetSampleRate(), 44100);
    EXPECT_EQ(cafReader.GetAverageBytesPerSecond(), 176402);  // 4 x 44100.4, rounded
    EXPECT_EQ(cafReader.GetFrames(), 10);
    ASSERT_EQ(cafReader.GetCafChunks().size(), 2u);
    EXPECT_EQ(cafReader.GetCafChunks()[1].size, -1);

    // Wave64: the header's file size must be the file's.
    CByteBuilder w64;
    w64.Raw({0x72, 0x69, 0x66, 0x66, 0x2E, 0x91, 0xCF, 0x11, 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1,
             0x00, 0x00});
    w64.U64(0);
    const std::vector<uint8_t> tail = {0xF3, 0xAC, 0xD3, 0x11, 0x8C, 0xD1,
                                       0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A};
    w64.Text("wave").Raw(tail);
    w64.Text("fmt ").Raw(tail).U64(24 + 16).U16(1).U16(1).U32(8000).U32(16000).U16(2).U16(16);
    w64.Text("data").Raw(tail).U64(24 + 6).Raw(CountingBytes(6)).Zeros(2);
    std::vector<uint8_t> bytes = w64.Bytes();
    CWave64Info wave64;
    EXPECT_EQ(wave64.OpenStream(std::make_unique<CMemoryStream>(bytes), true, true), -1);
    bytes[16] = static_cast<uint8_t>(bytes.size());
    ASSERT_EQ(wave64.OpenStream(std::make_unique<CMemoryStream>(bytes), true, true), 0);
    EXPECT_EQ(wave64.GetDataSize(), 6);
    EXPECT_EQ(wave64.GetTrailingSize(), 2);
    EXPECT_FALSE(wave64.IsBelow2GB());
    ASSERT_EQ(wave64.DescribeChunks().size(), 2u);
    EXPECT_EQ(wave64.DescribeChunks()[0].id, "20746D66-ACF3-11D3-8CD1-00C04F8EDB8A");
}

TEST(ReaderTolerances, StreamsFilesAndTheExtension)
{
    // A pipe: the walk ends at the data, which is then read in order.
    const std::vector<uint8_t> data = CountingBytes(32);
    CByteBuilder file = RiffFile();
    AppendWaveFormat(file, 1, 2, 8000, 16);
    file.Text("data").U32(32).Raw(data);
    file.Text("LIST").U32(4).Text("INFO");
    FinishRiff(file);
    CWAVInfo reader;
    ASSERT_EQ(reader.OpenStream(file.Stream(true), true, true), 0);
    EXPECT_EQ(reader.GetChunks().size(), 2u);
    std::vector<uint8_t> header;
    EXPECT_EQ(reader.GetHeaderBytes(header), -1);
    EXPECT_EQ(ReadAll(reader), data);
    ASSERT_EQ(reader.OpenStream(file.Stream(false), true, true), 0);
    EXPECT_EQ(reader.GetChunks().size(), 3u);
    ASSERT_EQ(reader.GetHeaderBytes(header), 44);
    EXPECT_EQ(header, std::vector<uint8_t>(file.Bytes().begin(), file.Bytes().begin() + 44));

    // The extension alone picks the reader: an AU file named ".wav" fails.
    const auto folder =
        std::filesystem::temp_directory_path() / ("qvdsp-extension-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    CByteBuilder au(true);
    au.Text(".snd").U32(24).U32(0).U32(3).U32(8000).U32(1).Raw(CountingBytes(8));
    for (const char* name : {"really-au.wav", "really-au.AU"})
    {
        std::ofstream(folder / name, std::ios::binary)
            .write(reinterpret_cast<const char*>(au.Bytes().data()),
                   static_cast<std::streamsize>(au.Size()));
    }
    const QVString wavName = QVString::FromUTF8((folder / "really-au.wav").string());
    std::unique_ptr<CIFFInfo> wrong = CIFFInfo::CreateForFileName(wavName);
    EXPECT_STREQ(wrong->GetReaderName(), "CWAVInfo");
    EXPECT_EQ(wrong->OpenFile(wavName, false, true), -1);
    EXPECT_EQ(wrong->GetSampleRate(), -1);
    const QVString auName = QVString::FromUTF8((folder / "really-au.AU").string());
    std::unique_ptr<CIFFInfo> right = CIFFInfo::CreateForFileName(auName);
    EXPECT_STREQ(right->GetReaderName(), "CAUInfo");
    EXPECT_EQ(right->OpenFile(auName, false, true), 0);
    EXPECT_EQ(right->GetFrames(), 4);
    EXPECT_EQ(right->Reopen(), 0);
    EXPECT_EQ(right->GetFileName(), auName);
    right->Close();
    EXPECT_EQ(right->GetFrames(), -1);
    EXPECT_EQ(right->OpenFile(u"/nonexistent/file.au", false, true), -1);
    std::filesystem::remove_all(folder);

    for (const auto& [name, reader] :
         {std::pair{u"a.AIFC", "CAIFFInfo"}, std::pair{u"b.snd", "CAUInfo"},
          std::pair{u"c.W64", "CWave64Info"}, std::pair{u"d.caf", "CCafInfo"},
          std::pair{u"e.l24", "CLPCMInfo"}, std::pair{u"f.rf64", "CWAVInfo"},
          std::pair{u"dir.aiff/noext", "CWAVInfo"}})
    {
        EXPECT_STREQ(CIFFInfo::CreateForFileName(name)->GetReaderName(), reader);
    }
}
