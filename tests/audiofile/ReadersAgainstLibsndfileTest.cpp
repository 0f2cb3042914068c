// Files of every container and sample type written by libsndfile, read back
// through the module's own readers: the same samples as libsndfile reads from
// them, bit for bit, and the same format, except where a reading rule of the
// readers differs; each such case names its rule.
#include <gtest/gtest.h>

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

#include "audiofile/AIFFInfo.h"
#include "audiofile/IFFInfo.h"
#include "audiofile/SampleValues.h"
#include "core/QVFileSystem.h"
#include "core/QVPropertyMap.h"
#include "support/ScratchFolder.h"

namespace
{

using qvtest::ScratchFolder;

// A deterministic signal within (-1, 1) with a different course per channel.
std::vector<double> TestSignal(int frames, int channels)
{
    std::vector<double> samples(static_cast<size_t>(frames) * channels);
    uint32_t state = 12345;
    for (size_t i = 0; i < samples.size(); ++i)
    {
        state = state * 1664525u + 1013904223u;
        samples[i] = (static_cast<double>(state >> 8) / 16777216.0 * 2.0 - 1.0) * 0.97;
    }
    return samples;
}

bool WriteWithLibsndfile(const std::string& path, int format, int channels, int rate, int frames)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (file == nullptr)
        return false;
    const std::vector<double> samples = TestSignal(frames, channels);
    const sf_count_t written = sf_writef_double(file, samples.data(), frames);
    sf_close(file);
    return written == frames;
}

struct LibsndfileRead
{
    SF_INFO info{};
    std::vector<double> doubles;
    std::vector<int32_t> ints;  // left-aligned 32-bit integers
};

LibsndfileRead ReadWithLibsndfile(const std::string& path, int rawFormat = 0, int rawChannels = 0,
                                  int rawRate = 0)
{
    LibsndfileRead read;
    read.info.format = rawFormat;
    read.info.channels = rawChannels;
    read.info.samplerate = rawRate;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &read.info);
    if (file == nullptr)
        return read;
    const size_t count = static_cast<size_t>(read.info.frames * read.info.channels);
    read.doubles.resize(count);
    sf_readf_double(file, read.doubles.data(), read.info.frames);
    sf_seek(file, 0, SEEK_SET);
    read.ints.resize(count);
    sf_readf_int(file, read.ints.data(), read.info.frames);
    sf_close(file);
    return read;
}

struct ModuleRead
{
    std::unique_ptr<CIFFInfo> reader;
    std::vector<uint8_t> bytes;
    std::vector<double> doubles;
    bool converted = false;
};

// Opens through the type dispatch, reads every frame in pieces of odd size
// (so that piece boundaries fall everywhere), and converts.
ModuleRead ReadWithModule(const QVString& name)
{
    ModuleRead read;
    read.reader = CIFFInfo::CreateForFileName(name);
    if (read.reader->OpenFile(name, true, true) != 0)
        return read;
    const int64_t frames = read.reader->GetFrames();
    const int64_t frameBytes = read.reader->GetBitsPerFrame() / 8;
    read.bytes.resize(static_cast<size_t>(frames * frameBytes));
    constexpr int64_t kPiece = 37;
    for (int64_t frame = 0; frame < frames; frame += kPiece)
    {
        const int64_t got = read.reader->Read(read.bytes.data() + frame * frameBytes, frame,
                                              std::min(kPiece, frames - frame), nullptr, false);
        EXPECT_EQ(got, std::min(kPiece, frames - frame) * frameBytes);
    }
    const int64_t samples = frames * read.reader->GetChannels();
    read.doubles.resize(static_cast<size_t>(samples));
    read.converted =
        SamplesToDoubles(*read.reader, read.bytes.data(), samples, read.doubles.data());
    return read;
}

struct Case
{
    const char* extension;
    int format;
    int channels;
    const char* reader;
    int bits;
    bool isFloat;
};

constexpr int kFrames = 1001;
constexpr int kRate = 48000;

// Writes, reads both ways and compares samples and format.
void CheckSameAsLibsndfile(const ScratchFolder& folder, const Case& c, int index)
{
    const std::string path = folder.File("case" + std::to_string(index) + "." + c.extension);
    SCOPED_TRACE(path);
    ASSERT_TRUE(WriteWithLibsndfile(path, c.format, c.channels, kRate, kFrames));
    const LibsndfileRead expected = ReadWithLibsndfile(path);
    ASSERT_EQ(expected.info.frames, kFrames);
    const ModuleRead actual = ReadWithModule(QVString::FromUTF8(path));
    ASSERT_TRUE(actual.reader->IsOpen());
    EXPECT_STREQ(actual.reader->GetReaderName(), c.reader);
    EXPECT_EQ(actual.reader->GetChannels(), c.channels);
    EXPECT_EQ(actual.reader->GetSampleRate(), kRate);
    EXPECT_EQ(actual.reader->GetFrames(), kFrames);
    EXPECT_EQ(actual.reader->GetFormat().bitsPerSample, c.bits);
    EXPECT_EQ(actual.reader->GetFormat().IsFloat(), c.isFloat);
    EXPECT_EQ(actual.reader->GetAverageBytesPerSecond(),
              int64_t{kRate} * c.channels * (c.bits / 8));
    EXPECT_EQ(actual.reader->GetDuration(), std::llround(kFrames * 1000.0 / kRate));
    ASSERT_TRUE(actual.converted);
    ASSERT_EQ(actual.doubles.size(), expected.doubles.size());
    for (size_t i = 0; i < expected.doubles.size(); ++i)
        ASSERT_EQ(actual.doubles[i], expected.doubles[i]) << "sample " << i;
}

}  // namespace

TEST(ReadersAgainstLibsndfile, WavRf64AndWave64GiveTheSameSamples)
{
    ScratchFolder folder;
    const Case cases[] = {
        {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 2, "CWAVInfo", 8, false},
        {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1, "CWAVInfo", 16, false},
        {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, 2, "CWAVInfo", 24, false},
        {"wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32, 2, "CWAVInfo", 32, false},
        {"wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, "CWAVInfo", 32, true},
        {"wav", SF_FORMAT_WAV | SF_FORMAT_DOUBLE, 1, "CWAVInfo", 64, true},
        {"wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, 3, "CWAVInfo", 24, false},
        {"wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_32, 2, "CWAVInfo", 32, false},
        {"wav", SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, 6, "CWAVInfo", 32, true},
        {"rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, 2, "CWAVInfo", 16, false},
        {"rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_24, 2, "CWAVInfo", 24, false},
        {"rf64", SF_FORMAT_RF64 | SF_FORMAT_DOUBLE, 2, "CWAVInfo", 64, true},
        {"w64", SF_FORMAT_W64 | SF_FORMAT_PCM_U8, 1, "CWave64Info", 8, false},
        {"w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16, 2, "CWave64Info", 16, false},
        {"w64", SF_FORMAT_W64 | SF_FORMAT_PCM_24, 2, "CWave64Info", 24, false},
        {"w64", SF_FORMAT_W64 | SF_FORMAT_PCM_32, 2, "CWave64Info", 32, false},
        {"w64", SF_FORMAT_W64 | SF_FORMAT_FLOAT, 2, "CWave64Info", 32, true},
        {"w64", SF_FORMAT_W64 | SF_FORMAT_DOUBLE, 2, "CWave64Info", 64, true},
    };
    int index = 0;
    for (const Case& c : cases)
        CheckSameAsLibsndfile(folder, c, index++);
}

TEST(ReadersAgainstLibsndfile, AiffAuAndCafGiveTheSameSamples)
{
    ScratchFolder folder;
    const Case cases[] = {
        {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 2, "CAIFFInfo", 8, false},
        {"aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 2, "CAIFFInfo", 16, false},
        {"aif", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1, "CAIFFInfo", 24, false},
        // Little-endian 16-bit AIFF is AIFC with the compression "sowt".
        {"aifc", SF_FORMAT_AIFF | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 2, "CAIFFInfo", 16, false},
        {"au", SF_FORMAT_AU | SF_FORMAT_PCM_S8, 2, "CAUInfo", 8, false},
        {"au", SF_FORMAT_AU | SF_FORMAT_PCM_16, 2, "CAUInfo", 16, false},
        {"au", SF_FORMAT_AU | SF_FORMAT_PCM_24, 2, "CAUInfo", 24, false},
        {"snd", SF_FORMAT_AU | SF_FORMAT_PCM_32, 1, "CAUInfo", 32, false},
        {"au", SF_FORMAT_AU | SF_FORMAT_FLOAT, 2, "CAUInfo", 32, true},
        {"au", SF_FORMAT_AU | SF_FORMAT_DOUBLE, 2, "CAUInfo", 64, true},
        {"au", SF_FORMAT_AU | SF_FORMAT_PCM_S8 | SF_ENDIAN_LITTLE, 2, "CAUInfo", 8, false},
        {"au", SF_FORMAT_AU | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 2, "CAUInfo", 16, false},
        {"au", SF_FORMAT_AU | SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE, 2, "CAUInfo", 24, false},
        {"au", SF_FORMAT_AU | SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE, 2, "CAUInfo", 32, false},
        {"au", SF_FORMAT_AU | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE, 2, "CAUInfo", 32, true},
        {"au", SF_FORMAT_AU | SF_FORMAT_DOUBLE | SF_ENDIAN_LITTLE, 1, "CAUInfo", 64, true},
        // CAF's 8-bit samples stay signed: the reader says so and the values
        // agree only when they are taken as signed.
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_S8, 2, "CCafInfo", 8, false},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16, 2, "CCafInfo", 16, false},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_24, 2, "CCafInfo", 24, false},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_32, 2, "CCafInfo", 32, false},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_FLOAT, 2, "CCafInfo", 32, true},
        // Big-endian CAF samples deeper than 32 bits are not swapped; the
        // format's big-endian flag tells the conversion to do it.
        {"caf", SF_FORMAT_CAF | SF_FORMAT_DOUBLE, 2, "CCafInfo", 64, true},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_S8 | SF_ENDIAN_LITTLE, 1, "CCafInfo", 8, false},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16 | SF_ENDIAN_LITTLE, 2, "CCafInfo", 16, false},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_24 | SF_ENDIAN_LITTLE, 2, "CCafInfo", 24, false},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_PCM_32 | SF_ENDIAN_LITTLE, 2, "CCafInfo", 32, false},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_FLOAT | SF_ENDIAN_LITTLE, 2, "CCafInfo", 32, true},
        {"caf", SF_FORMAT_CAF | SF_FORMAT_DOUBLE | SF_ENDIAN_LITTLE, 2, "CCafInfo", 64, true},
    };
    int index = 0;
    for (const Case& c : cases)
        CheckSameAsLibsndfile(folder, c, index++);
}

TEST(ReadersAgainstLibsndfile, RulesThatDifferFromLibsndfile)
{
    ScratchFolder folder;

    // AIFF 32-bit integers become floats with the sign inverted: each
    // sample is the integer times -2^-31, rounded to float.
    const std::string aiff32 = folder.File("int32.aiff");
    ASSERT_TRUE(WriteWithLibsndfile(aiff32, SF_FORMAT_AIFF | SF_FORMAT_PCM_32, 2, kRate, kFrames));
    const LibsndfileRead ints = ReadWithLibsndfile(aiff32);
    const ModuleRead floats = ReadWithModule(QVString::FromUTF8(aiff32));
    ASSERT_TRUE(floats.reader->IsOpen());
    EXPECT_TRUE(floats.reader->GetFormat().IsFloat());
    ASSERT_TRUE(floats.converted);
    ASSERT_EQ(floats.doubles.size(), ints.ints.size());
    for (size_t i = 0; i < ints.ints.size(); ++i)
    {
        const float expected =
            static_cast<float>(-std::ldexp(static_cast<double>(ints.ints[i]), -31));
        ASSERT_EQ(floats.doubles[i], static_cast<double>(expected)) << "sample " << i;
        ASSERT_NE(floats.doubles[i] > 0, ints.doubles[i] > 0) << "sample " << i;
    }

    // Float AIFC is written with the compressions "FL32" and "FL64", which
    // are not among those read ("fl32" is, in lower case).
    for (const int subtype : {SF_FORMAT_FLOAT, SF_FORMAT_DOUBLE})
    {
        const std::string path = folder.File("float" + std::to_string(subtype) + ".aifc");
        ASSERT_TRUE(WriteWithLibsndfile(path, SF_FORMAT_AIFF | subtype, 2, kRate, 100));
        CAIFFInfo reader;
        EXPECT_EQ(reader.OpenFile(QVString::FromUTF8(path), true, true), -1);
        EXPECT_EQ(reader.GetCompression(), CAIFFInfo::COMPRESSION_OTHER);
        EXPECT_EQ(reader.GetFrames(), -1);
    }

    // Deeper little-endian AIFC is written with the compressions "42n1" and
    // "23ni", which are not read either; only "sowt" is.
    for (const int subtype : {SF_FORMAT_PCM_24, SF_FORMAT_PCM_32})
    {
        const std::string path = folder.File("little" + std::to_string(subtype) + ".aifc");
        ASSERT_TRUE(
            WriteWithLibsndfile(path, SF_FORMAT_AIFF | subtype | SF_ENDIAN_LITTLE, 2, kRate, 100));
        CAIFFInfo reader;
        EXPECT_EQ(reader.OpenFile(QVString::FromUTF8(path), true, true), -1);
        EXPECT_EQ(reader.GetCompression(), CAIFFInfo::COMPRESSION_OTHER);
    }

    // CAF 8-bit: the delivered bytes are the file's signed bytes.
    const std::string caf8 = folder.File("s8.caf");
    ASSERT_TRUE(WriteWithLibsndfile(caf8, SF_FORMAT_CAF | SF_FORMAT_PCM_S8, 1, kRate, 300));
    const LibsndfileRead signed8 = ReadWithLibsndfile(caf8);
    const ModuleRead caf = ReadWithModule(QVString::FromUTF8(caf8));
    ASSERT_EQ(caf.bytes.size(), signed8.ints.size());
    for (size_t i = 0; i < caf.bytes.size(); ++i)
        ASSERT_EQ(static_cast<int8_t>(caf.bytes[i]), signed8.ints[i] >> 24) << "sample " << i;

    // Big-endian CAF doubles arrive in the file's order.
    const std::string caf64 = folder.File("double.caf");
    ASSERT_TRUE(WriteWithLibsndfile(caf64, SF_FORMAT_CAF | SF_FORMAT_DOUBLE, 1, kRate, 50));
    const LibsndfileRead doubles = ReadWithLibsndfile(caf64);
    const ModuleRead big = ReadWithModule(QVString::FromUTF8(caf64));
    ASSERT_EQ(big.bytes.size(), 50u * 8);
    for (size_t i = 0; i < 50; ++i)
    {
        uint8_t swapped[8];
        std::reverse_copy(big.bytes.begin() + i * 8, big.bytes.begin() + i * 8 + 8, swapped);
        double value;
        std::memcpy(&value, swapped, 8);
        ASSERT_EQ(value, doubles.doubles[i]) << "sample " << i;
    }
}

TEST(ReadersAgainstLibsndfile, RawPcmTakesItsFormatFromTheName)
{
    ScratchFolder folder;
    // 16 and 24-bit raw PCM is big-endian; the defaults are 44100 Hz stereo.
    for (const auto& [extension, subtype, bits] :
         {std::tuple{"l16", SF_FORMAT_PCM_16, 16}, std::tuple{"l24", SF_FORMAT_PCM_24, 24}})
    {
        const std::string path = folder.File(std::string("raw.") + extension);
        const int format = SF_FORMAT_RAW | subtype | SF_ENDIAN_BIG;
        ASSERT_TRUE(WriteWithLibsndfile(path, format, 2, 44100, kFrames));
        const LibsndfileRead expected = ReadWithLibsndfile(path, format, 2, 44100);
        const ModuleRead actual = ReadWithModule(QVString::FromUTF8(path));
        ASSERT_TRUE(actual.reader->IsOpen()) << path;
        EXPECT_STREQ(actual.reader->GetReaderName(), "CLPCMInfo");
        EXPECT_EQ(actual.reader->GetFormat().bitsPerSample, bits);
        EXPECT_EQ(actual.reader->GetDataStart(), 0);
        EXPECT_EQ(actual.reader->GetFrames(), kFrames);
        ASSERT_TRUE(actual.converted);
        EXPECT_EQ(actual.doubles, expected.doubles) << path;
    }

    // Mono at 8000 Hz, named through the XMLFN items.
    const std::string path = folder.File("mono.l16");
    const int format = SF_FORMAT_RAW | SF_FORMAT_PCM_16 | SF_ENDIAN_BIG;
    ASSERT_TRUE(WriteWithLibsndfile(path, format, 1, 8000, 500));
    QVPropertyMap items;
    items.SetInt(u"Channels", 1);
    items.SetInt(u"SampleRate", 8000);
    const QVString name = QVFileSystem::MakeFileNameText(QVString::FromUTF8(path), &items);
    const ModuleRead mono = ReadWithModule(name);
    ASSERT_TRUE(mono.reader->IsOpen());
    EXPECT_EQ(mono.reader->GetChannels(), 1);
    EXPECT_EQ(mono.reader->GetSampleRate(), 8000);
    EXPECT_EQ(mono.reader->GetFrames(), 500);
    EXPECT_EQ(mono.doubles, ReadWithLibsndfile(path, format, 1, 8000).doubles);
}
