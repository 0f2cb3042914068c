#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <numbers>
#include <string>
#include <vector>

#include "host/BuiltinTools.h"
#include "host/SoundConverter.h"
#include "support/ScratchFolder.h"

namespace
{

using Folder = qvtest::ScratchFolder;

void Write(const std::string& name, const std::vector<double>& samples, int rate, int subtype)
{
    SF_INFO info{};
    info.channels = 1;
    info.samplerate = rate;
    info.format = SF_FORMAT_WAV | subtype;
    SNDFILE* file = sf_open(name.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_writef_double(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
}

std::vector<double> Read(const std::string& name, SF_INFO& info)
{
    info = SF_INFO{};
    SNDFILE* file = sf_open(name.c_str(), SFM_READ, &info);
    if (file == nullptr)
        return {};
    std::vector<double> samples(static_cast<size_t>(info.frames * info.channels));
    sf_readf_double(file, samples.data(), info.frames);
    sf_close(file);
    return samples;
}

std::vector<double> Sine(double frequency, int rate, int frames)
{
    std::vector<double> samples(static_cast<size_t>(frames));
    for (int n = 0; n < frames; ++n)
        samples[n] = 0.5 * std::sin(2.0 * std::numbers::pi * frequency * n / rate);
    return samples;
}

IQVSoundConverter* MakeConverter(int rate, int bits)
{
    IQVSoundConverter* converter = CBuiltinTools(0).CreateSoundConverter();
    converter->SetTargetSampleRate(rate);
    converter->SetTargetBitDepth(bits);
    return converter;
}

}  // namespace

// 16-bit PCM at 44100 Hz becomes 64-bit float at 48000 Hz: same length in
// time, same tone, no shift; the properties tell the names and the source rate.
TEST(SoundConverter, ResamplesToTheTargetRateAsDoubleWav)
{
    Folder folder;
    Write(folder.File("in.wav"), Sine(1000.0, 44100, 44100), 44100, SF_FORMAT_PCM_16);
    IQVSoundConverter* converter = MakeConverter(48000, 64);
    const QVString target = QVString::FromUTF8(folder.File("out.wav"));
    ASSERT_EQ(converter->Convert(QVString::FromUTF8(folder.File("in.wav")), target), 1);
    EXPECT_EQ(converter->GetProperty(u"Output Filename"), target);
    EXPECT_EQ(converter->GetProperty(u"Input Samplerate").ToUTF8(), "44100");
    EXPECT_EQ(converter->GetProperty(u"Other").ToUTF8(), "");
    converter->Release();

    SF_INFO info;
    const std::vector<double> out = Read(folder.File("out.wav"), info);
    EXPECT_EQ(info.samplerate, 48000);
    EXPECT_EQ(info.format, SF_FORMAT_WAV | SF_FORMAT_DOUBLE);
    EXPECT_NEAR(static_cast<double>(info.frames), 48000.0, 1.0);
    const std::vector<double> expected = Sine(1000.0, 48000, 48000);
    // Away from the edges, where the resampler's filter sees the whole tone;
    // 16-bit input limits the agreement to about 1e-4.
    for (size_t n = 2000; n < 46000; n += 7)
        ASSERT_NEAR(out[n], expected[n], 2e-3) << n;
}

// At the source's own rate the samples pass unchanged.
TEST(SoundConverter, SameRateKeepsTheSamplesExactly)
{
    Folder folder;
    const std::vector<double> in = Sine(123.0, 48000, 3000);
    Write(folder.File("in.wav"), in, 48000, SF_FORMAT_DOUBLE);
    IQVSoundConverter* converter = MakeConverter(48000, 64);
    ASSERT_EQ(converter->Convert(QVString::FromUTF8(folder.File("in.wav")),
                                 QVString::FromUTF8(folder.File("out.wav"))),
              1);
    converter->Release();
    SF_INFO info;
    EXPECT_EQ(Read(folder.File("out.wav"), info), in);
}

// A source that is not audio, or is missing, writes nothing.
TEST(SoundConverter, UnreadableSourceFailsWithoutOutput)
{
    Folder folder;
    std::FILE* text = std::fopen(folder.File("notes.cfg").c_str(), "w");
    std::fputs("not audio\n", text);
    std::fclose(text);
    for (const char* source : {"notes.cfg", "missing.wav"})
    {
        IQVSoundConverter* converter = MakeConverter(48000, 64);
        EXPECT_NE(converter->Convert(QVString::FromUTF8(folder.File(source)),
                                     QVString::FromUTF8(folder.File("out.wav"))),
                  1);
        EXPECT_EQ(converter->GetProperty(u"Output Filename").ToUTF8(), "");
        converter->Release();
        EXPECT_FALSE(std::filesystem::exists(folder.File("out.wav")));
    }
}

// A header that claims a rate of 1 Hz asks for 48,000 frames per frame: the
// conversion is refused before anything is allocated or written.
TEST(SoundConverter, ConversionsBeyondTwoGigabytesAreRefused)
{
    Folder folder;
    Write(folder.File("slow.wav"), Sine(0.1, 1, 6000), 1, SF_FORMAT_PCM_16);  // 288,000,000 out
    IQVSoundConverter* converter = MakeConverter(48000, 64);
    EXPECT_NE(converter->Convert(QVString::FromUTF8(folder.File("slow.wav")),
                                 QVString::FromUTF8(folder.File("out.wav"))),
              1);
    converter->Release();
    EXPECT_FALSE(std::filesystem::exists(folder.File("out.wav")));
}
