// The plug-in: factory index 7 and its commands, the ring (its size, whole
// blocks or none, the sound untouched), the frame against a plain DFT and the
// levels against their glide, silence, high resolution, and the settings.
#include "effects/AnalyzerPlugin.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

#include "AnalyzerTestSupport.h"
#include "effects/AnalyzerDlg.h"
#include "frame/PluginFactory.h"
#include "support/AllocationCounter.h"
#include "support/FileStoreTools.h"
#include "support/TestSupport.h"

using namespace analyzertest;

namespace
{

constexpr int32_t N = CAnalyzerDSPPlugin::FFT_SIZE_NORMAL;

void Push(CAnalyzerDSPPlugin& plugin, const std::vector<double>& signal, int32_t channels,
          int32_t blockFrames = 1000)
{
    qvtest::CollectingSink sink(channels);
    qvtest::RunInBlocks(plugin, signal, channels, blockFrames, sink);
}

// Within single-precision rounding of a float transform of n points: relative
// to the bin's own power and to the channel's whole energy per bin.
void ExpectSpectrumNear(const QVNumberArray<double>& got, const std::vector<double>& expected,
                        double scale, double energyPerBin, const char* what)
{
    ASSERT_EQ(got.GetCount(), static_cast<int32_t>(expected.size())) << what;
    for (size_t k = 0; k < expected.size(); ++k)
    {
        const double reference = expected[k] * scale;
        EXPECT_NEAR(got[static_cast<int32_t>(k)], reference, 1e-5 * reference + 1e-5 * energyPerBin)
            << what << ", bin " << k;
    }
}

}  // namespace

TEST(AnalyzerPlugin, FactoryIndexSevenAndCommands)
{
    qvtest::ScopedFileStore store;
    std::unique_ptr<IQVDSP> plugin(CreateDSPPlugin(DSPPLUGIN_ANALYZER, nullptr, 1, false));
    ASSERT_NE(plugin, nullptr);
    auto* analyzer = dynamic_cast<CAnalyzerDSPPlugin*>(plugin.get());
    ASSERT_NE(analyzer, nullptr);
    EXPECT_EQ(analyzer->GetName().ToUTF8(), "Analyzer");
    EXPECT_EQ(plugin->Command(DSPCMD_QUERY_FLAG, nullptr, nullptr), 1);
    EXPECT_EQ(plugin->Command(DSPCMD_DESCRIBE, nullptr, nullptr), 0);
    EXPECT_EQ(plugin->Command(DSPCMD_RELOAD, nullptr, nullptr), -1);
    // The default format until the host sets one, and no ring or setup yet.
    EXPECT_EQ(analyzer->GetFormat().bitsPerSample, 16);
    EXPECT_EQ(analyzer->GetFormat().sampleRate, 44100u);
    EXPECT_EQ(analyzer->GetRingCapacity(), 0u);
    CAnalyzerFrame frame;
    EXPECT_FALSE(analyzer->UpdateFrame(frame));

    // Silence: set by a non-null argument, cleared by null, answered with -1.
    int flag = 1;
    EXPECT_EQ(plugin->Command(DSPCMD_SET_ANALYZER_SILENCE, &flag, nullptr), -1);
    EXPECT_TRUE(analyzer->IsSilenced());
    EXPECT_EQ(plugin->Command(DSPCMD_SET_ANALYZER_SILENCE, nullptr, nullptr), -1);
    EXPECT_FALSE(analyzer->IsSilenced());

    EXPECT_EQ(plugin->Command(DSPCMD_OPEN_PANEL, nullptr, nullptr), -1);
    ASSERT_NE(analyzer->GetPanel(), nullptr);
    EXPECT_EQ(plugin->Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(analyzer->GetPanel(), nullptr);
}

TEST(AnalyzerPlugin, RingHoldsTenSecondsAndDropsWholeBlocksThatDoNotFit)
{
    CAnalyzerDSPPlugin plugin(nullptr, 0);
    // 64-bit stereo at 48 kHz: 768000 bytes a second, 16 a frame.
    ASSERT_EQ(plugin.SetFormat(CAudioFormat(64, 48000, 2)), 0);
    EXPECT_EQ(plugin.GetRingCapacity(), 7680000u + 1u);

    // A byte rate that leaves a partial frame: 1001 * 10 = 10010, less 10010 % 6.
    CAudioFormat odd(64, 48000, 2);
    odd.avgBytesPerSec = 1001;
    odd.blockAlign = 6;
    plugin.SetFormat(odd);
    EXPECT_EQ(plugin.GetRingCapacity(), 10008u + 1u);

    plugin.SetFormat(CAudioFormat(64, 48000, 2));
    const int32_t block = 4096;
    const std::vector<double> signal = qvtest::Noise(block, 2, 5, 0.5);
    // 7680000 / 65536 = 117.2: the 118th block does not fit and is left out whole.
    for (int32_t i = 0; i < 130; ++i)
    {
        std::vector<double> samples = signal;
        qvtest::CollectingSink sink(2);
        EXPECT_EQ(plugin.Process(samples.data(), block, &sink), 0);
        // The sound goes on untouched, in place, whether it was stored or not.
        ASSERT_EQ(sink.pointers.size(), 1u);
        EXPECT_EQ(sink.pointers[0], samples.data());
        EXPECT_EQ(sink.blockFrames[0], block);
        EXPECT_EQ(sink.samples, signal);
        const uint32_t expectedUsed = std::min(i + 1, 117) * block * 16;
        ASSERT_EQ(plugin.GetRingUsed(), expectedUsed) << "block " << i;
    }
    // A frame keeps only the newest N frames, which frees room for new blocks.
    CAnalyzerFrame frame;
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    EXPECT_EQ(plugin.GetRingUsed(), static_cast<uint32_t>(N * 16));
    std::vector<double> samples = signal;
    qvtest::CollectingSink sink(2);
    plugin.Process(samples.data(), block, &sink);
    EXPECT_EQ(plugin.GetRingUsed(), static_cast<uint32_t>((N + block) * 16));

    // A new format starts an empty ring.
    plugin.SetFormat(CAudioFormat(64, 44100, 1));
    EXPECT_EQ(plugin.GetRingUsed(), 0u);
    EXPECT_EQ(plugin.GetRingCapacity(), 3528000u + 1u);
}

TEST(AnalyzerPlugin, NoFrameBeforeNFramesThenTheNewestN)
{
    CAnalyzerDSPPlugin plugin(nullptr, 0);
    plugin.SetFormat(CAudioFormat(64, 44100, 2));
    CAnalyzerFrame frame;
    EXPECT_FALSE(plugin.UpdateFrame(frame));
    Push(plugin, qvtest::Noise(N - 1, 2, 3, 0.3), 2, 700);
    EXPECT_FALSE(plugin.UpdateFrame(frame));
    EXPECT_EQ(frame.ChannelSpectra.GetCount(), 0) << "nothing changes without a frame";
    EXPECT_EQ(frame.Levels.GetCount(), 0);

    // Noise first, then exactly N frames of a sine: only the sine is analysed.
    std::vector<double> signal = qvtest::Noise(N + 1, 2, 4, 0.3);
    const std::vector<double> sine =
        qvtest::Sine(N, 2, BinFrequency(64, N, 44100.0), 44100.0, 0.25);
    signal.insert(signal.end(), sine.begin(), sine.end());
    Push(plugin, signal, 2, 333);
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    EXPECT_EQ(frame.Format.sampleRate, 44100u);
    EXPECT_EQ(frame.Format.channels, 2);
    ASSERT_EQ(frame.ChannelSpectra.GetCount(), 2);
    // A full-scale-relative check: (A N / 2)^2, smoothed once by 1/4.
    const double peak = std::pow(0.25 * N / 2, 2);
    EXPECT_NEAR((*frame.ChannelSpectra[0])[64], peak / 4, peak * 1e-5);
    EXPECT_NEAR((*frame.ChannelSpectra[1])[64], peak / 4, peak * 1e-5);
    EXPECT_LT((*frame.ChannelSpectra[0])[63], peak * 1e-8);
    EXPECT_LT((*frame.ChannelSpectra[0])[65], peak * 1e-8);
}

TEST(AnalyzerPlugin, SpectraAndLevelsAgainstAPlainDft)
{
    CAnalyzerDSPPlugin plugin(nullptr, 0);
    plugin.SetFormat(CAudioFormat(64, 44100, 2));
    // Left: a sine on the centre of bin 100 plus a little noise; right: noise.
    std::vector<double> signal = qvtest::Noise(N + 500, 2, 11, 0.05);
    const double frequency = BinFrequency(100, N, 44100.0);
    for (size_t f = 0; f < signal.size() / 2; ++f)
        signal[2 * f] += 0.5 * std::sin(2.0 * std::numbers::pi * frequency * f / 44100.0);
    Push(plugin, signal, 2, 512);

    const std::vector<double> left = DftPower(signal, 2, 0, N);
    const std::vector<double> right = DftPower(signal, 2, 1, N);
    const double leftEnergy = MeanSquare(signal, 2, 0, N) * N;
    const double rightEnergy = MeanSquare(signal, 2, 1, N) * N;
    EXPECT_NEAR(left[100], std::pow(0.5 * N / 2, 2), std::pow(0.5 * N / 2, 2) * 0.05);

    CAnalyzerFrame frame;
    // No new audio between repaints: the same N frames again, and the
    // spectra settle on them by a quarter of the rest each time.
    const double divisor = 4.0;
    for (int32_t repaint = 1; repaint <= 40; ++repaint)
    {
        ASSERT_TRUE(plugin.UpdateFrame(frame));
        const double share = 1.0 - std::pow(1.0 - 1.0 / divisor, repaint);
        if (repaint <= 2 || repaint == 40)
        {
            ExpectSpectrumNear(*frame.ChannelSpectra[0], left, share, leftEnergy, "left");
            ExpectSpectrumNear(*frame.ChannelSpectra[1], right, share, rightEnergy, "right");
        }
        // Levels glide by 1/8 from 0.0 dB towards each channel's RMS level.
        const double glide = 1.0 - std::pow(0.875, repaint);
        ASSERT_EQ(frame.Levels.GetCount(), 3);
        EXPECT_NEAR(frame.Levels[1], glide * Decibels(MeanSquare(signal, 2, 0, N)), 1e-9);
        EXPECT_NEAR(frame.Levels[2], glide * Decibels(MeanSquare(signal, 2, 1, N)), 1e-9);
        // The overall level: the RMS over every sample of every channel.
        EXPECT_NEAR(frame.Levels[0], glide * Decibels(MeanSquare(signal, 2, -1, N)), 1e-9);
    }
}

TEST(AnalyzerPlugin, OverallLevelOverSeveralChannelsAndSilence)
{
    CAnalyzerDSPPlugin plugin(nullptr, 0);
    CAudioFormat format(64, 48000, 6);
    plugin.SetFormat(format);
    // Each channel its own level; channel 4 silent.
    std::vector<double> signal(static_cast<size_t>(N) * 6);
    const double amplitudes[6] = {1.0, 0.5, 0.25, 0.125, 0.0, 0.75};
    for (int32_t f = 0; f < N; ++f)
        for (int32_t c = 0; c < 6; ++c)
            signal[static_cast<size_t>(f) * 6 + c] = (f % 2 ? 1 : -1) * amplitudes[c];
    Push(plugin, signal, 6, 4096);
    CAnalyzerFrame frame;
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    ASSERT_EQ(frame.Levels.GetCount(), 7);
    // A square wave's RMS is its amplitude: by hand, 20 log10(a) / 8.
    EXPECT_NEAR(frame.Levels[1], 0.0, 1e-12);
    EXPECT_NEAR(frame.Levels[2], 20.0 * std::log10(0.5) / 8, 1e-12);
    EXPECT_NEAR(frame.Levels[4], 20.0 * std::log10(0.125) / 8, 1e-12);
    EXPECT_EQ(frame.Levels[5], 0.0) << "a silent channel's target is 0.0 dB";
    const double meanSquare = (1.0 + 0.25 + 0.0625 + 0.015625 + 0.0 + 0.5625) / 6;
    EXPECT_NEAR(frame.Levels[0], 10.0 * std::log10(meanSquare) / 8, 1e-12);

    // Silence in the stream: levels move up towards 0.0 dB, not down.
    const double before = frame.Levels[2];
    Push(plugin, qvtest::Silence(N, 6), 6, 4096);
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    EXPECT_NEAR(frame.Levels[2], before * 0.875, 1e-12);
    EXPECT_GT(frame.Levels[2], before);
    for (int32_t k = 0; k < N / 2; ++k)
        ASSERT_NEAR((*frame.ChannelSpectra[0])[k], 0.0, 1e-3);
}

TEST(AnalyzerPlugin, SilenceFlagClearsWhatTheAnalysisSees)
{
    CAnalyzerDSPPlugin plugin(nullptr, 0);
    plugin.SetFormat(CAudioFormat(64, 44100, 1));
    const std::vector<double> sine = qvtest::Sine(N, 1, BinFrequency(10, N, 44100.0), 44100.0, 0.5);
    Push(plugin, sine, 1);
    CAnalyzerFrame frame;
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    const double peak = (*frame.ChannelSpectra[0])[10];
    EXPECT_NEAR(peak, std::pow(0.5 * N / 2, 2) / 4, peak * 1e-5);
    const double level = frame.Levels[1];
    int on = 1;
    plugin.Command(DSPCMD_SET_ANALYZER_SILENCE, &on, nullptr);
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    // The ring still holds the sine, but zeros are analysed: power decays by 3/4.
    EXPECT_NEAR((*frame.ChannelSpectra[0])[10], peak * 0.75, peak * 1e-6);
    EXPECT_NEAR(frame.Levels[1], level * 0.875, 1e-12);
    plugin.Command(DSPCMD_SET_ANALYZER_SILENCE, nullptr, nullptr);
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    EXPECT_NEAR((*frame.ChannelSpectra[0])[10], peak * 0.75 + (peak * 4 - peak * 0.75) / 4,
                peak * 1e-5);
}

TEST(AnalyzerPlugin, HighResolutionSmoothsByHalfAndIsSaved)
{
    qvtest::ScopedFileStore store;
    // The old flat key gives the default; the zone key wins once written.
    {
        auto legacy = store.Key(u"Plugins\\DSP\\QM DSP");
        legacy->WriteInt(QVZoneValueName(*legacy, u"Analyzer - High Resolution", 2).c_str(), 1);
    }
    CAnalyzerDSPPlugin plugin(nullptr, 2);
    EXPECT_TRUE(plugin.GetHighResolution());
    EXPECT_EQ(plugin.GetFftSize(), 16384);

    plugin.SetFormat(CAudioFormat(64, 44100, 1));
    const int32_t n = 16384;
    const std::vector<double> sine =
        qvtest::Sine(n, 1, BinFrequency(1000, n, 44100.0), 44100.0, 0.5);
    Push(plugin, sine, 1, 4096);
    CAnalyzerFrame frame;
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    ASSERT_EQ(frame.ChannelSpectra[0]->GetCount(), n / 2);
    const double power = std::pow(0.5 * n / 2, 2);
    EXPECT_NEAR((*frame.ChannelSpectra[0])[1000], power / 2, power * 1e-5);
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    EXPECT_NEAR((*frame.ChannelSpectra[0])[1000], power * 0.75, power * 1e-5);

    // Back to 4096: the ring starts empty, and the spectra are made anew at N/2.
    plugin.SetHighResolution(false);
    EXPECT_EQ(plugin.GetFftSize(), N);
    EXPECT_EQ(plugin.GetRingUsed(), 0u);
    EXPECT_FALSE(plugin.UpdateFrame(frame));
    Push(plugin, qvtest::Sine(N, 1, BinFrequency(250, N, 44100.0), 44100.0, 0.5), 1);
    ASSERT_TRUE(plugin.UpdateFrame(frame));
    ASSERT_EQ(frame.ChannelSpectra[0]->GetCount(), N / 2);
    EXPECT_NEAR((*frame.ChannelSpectra[0])[250], std::pow(0.5 * N / 2, 2) / 4,
                std::pow(0.5 * N / 2, 2) * 1e-5);
    EXPECT_EQ(store.Key(u"Zones\\2\\Analyzer")->ReadInt(u"High Resolution", -1, 0), 0);
    {
        auto legacy = store.Key(u"Plugins\\DSP\\QM DSP");
        EXPECT_EQ(legacy->GetValueType(
                      QVZoneValueName(*legacy, u"Analyzer - High Resolution", 2).c_str()),
                  SETTINGS_TYPE_NONE);
    }

    // A transient plug-in changes N but writes nothing.
    CAnalyzerDSPPlugin transient(nullptr, 3);
    transient.SetOption(DSPOPT_TRANSIENT);
    transient.SetHighResolution(true);
    EXPECT_EQ(transient.GetFftSize(), 16384);
    EXPECT_EQ(store.Key(u"Zones\\3\\Analyzer")->GetValueType(u"High Resolution"),
              SETTINGS_TYPE_NONE);
}

TEST(AnalyzerPlugin, BlocksAllocateNothingAndFormatsOfAnyKindAreSafe)
{
    CAnalyzerDSPPlugin plugin(nullptr, 0);
    plugin.SetFormat(CAudioFormat(64, 48000, 2));
    std::vector<double> block = qvtest::Noise(512, 2, 8, 0.5);
    qvtest::CollectingSink sink(2);
    sink.samples.reserve(1 << 22);
    sink.blockFrames.reserve(4096);
    sink.pointers.reserve(4096);
    plugin.Process(block.data(), 512, &sink);
    {
        qvtest::ScopedAllocationCount count;
        // Stored blocks, and (after ten seconds) dropped ones.
        for (int32_t i = 0; i < 1000; ++i)
            plugin.Process(block.data(), 512, &sink);
        EXPECT_EQ(count.Allocations(), 0);
    }
    // A record that claims more bytes per frame than a block of doubles holds
    // stores nothing rather than read past the block.
    CAudioFormat wide(64, 48000, 2);
    wide.blockAlign = 64;
    plugin.SetFormat(wide);
    plugin.Process(block.data(), 512, &sink);
    EXPECT_EQ(plugin.GetRingUsed(), 0u);
    // A 16-bit record stores its 4 bytes a frame of the doubles; the frame
    // counts doubles and waits for enough of them.
    plugin.SetFormat(CAudioFormat(16, 48000, 2));
    plugin.Process(block.data(), 512, &sink);
    EXPECT_EQ(plugin.GetRingUsed(), 2048u);
    CAnalyzerFrame frame;
    EXPECT_FALSE(plugin.UpdateFrame(frame));
    // No channels: nothing stored and no frame.
    CAudioFormat none(64, 48000, 2);
    none.channels = 0;
    none.blockAlign = 0;
    plugin.SetFormat(none);
    plugin.Process(block.data(), 512, &sink);
    EXPECT_FALSE(plugin.UpdateFrame(frame));
}

TEST(AnalyzerPlugin, FftSelectorIsTheUnscaledOrderedForwardTransform)
{
    // Complex input, so that all n bins (above n/2 too) are checked in order.
    const PFFFT fft;
    for (int32_t n : {8, 64, 4096})
    {
        PFFFT::Setup* setup = fft.NewSetup(n);
        ASSERT_NE(setup, nullptr);
        PFFFT::AlignedFloats input = PFFFT::AllocateFloats(2 * static_cast<size_t>(n));
        PFFFT::AlignedFloats output = PFFFT::AllocateFloats(2 * static_cast<size_t>(n));
        const std::vector<double> noise = qvtest::Noise(n, 2, 21, 1.0);
        for (int32_t i = 0; i < 2 * n; ++i)
            input[i] = static_cast<float>(noise[i]);
        fft.TransformOrdered(setup, input.get(), output.get(), nullptr);
        for (int32_t k = 0; k < n; k += (n > 64 ? 37 : 1))
        {
            std::complex<double> sum = 0.0;
            for (int32_t t = 0; t < n; ++t)
                sum += std::complex<double>(input[2 * t], input[2 * t + 1]) *
                       std::polar(1.0, -2.0 * std::numbers::pi * k * t / n);
            EXPECT_NEAR(output[2 * k], sum.real(), 1e-5 * std::sqrt(n) * 4) << n << " " << k;
            EXPECT_NEAR(output[2 * k + 1], sum.imag(), 1e-5 * std::sqrt(n) * 4) << n << " " << k;
        }
        // The input is left as it was.
        EXPECT_EQ(input[1], static_cast<float>(noise[1]));
        fft.DestroySetup(setup);
    }
    EXPECT_EQ(fft.NewSetup(0), nullptr);
}
