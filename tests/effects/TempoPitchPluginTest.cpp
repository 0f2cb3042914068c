#include "effects/TempoPitchPlugin.h"

#include <fftw3.h>
#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>

#include "support/AllocationCounter.h"
#include "support/BlockRunner.h"
#include "support/FileStoreTools.h"
#include "support/Signals.h"
#include "support/Sinks.h"
#include "support/TestHost.h"

namespace
{

constexpr double kRate = 44100.0;
constexpr int32_t kBlock = 1024;

std::unique_ptr<CTempoPitchDSPPlugin> MakePlugin(double tempo, double pitch, double rate,
                                                 uint16_t channels = 2, uint32_t sampleRate = 44100,
                                                 uint32_t bits = 64)
{
    auto plugin = std::make_unique<CTempoPitchDSPPlugin>(nullptr, QVZONE_GLOBAL);
    plugin->SetOption(DSPOPT_TRANSIENT);
    CAudioFormat format;
    format.Set(bits, sampleRate, channels);
    EXPECT_EQ(plugin->SetFormat(format), 0);
    plugin->SetParameters(tempo, pitch, rate, true, false);
    return plugin;
}

// The strongest frequency of one channel over `length` frames from `start`,
// from the peak of a Hann-windowed transform, refined by the parabola through
// the peak bin and its neighbours.
double DominantFrequency(const std::vector<double>& signal, int32_t channels, size_t start,
                         int length, double rate)
{
    std::vector<double> frame(length);
    for (int i = 0; i < length; ++i)
    {
        const double window = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * i / length);
        frame[i] = window * signal[(start + i) * channels];
    }
    std::vector<std::complex<double>> spectrum(length / 2 + 1);
    fftw_plan plan = fftw_plan_dft_r2c_1d(
        length, frame.data(), reinterpret_cast<fftw_complex*>(spectrum.data()), FFTW_ESTIMATE);
    fftw_execute(plan);
    fftw_destroy_plan(plan);
    size_t peak = 1;
    for (size_t k = 1; k + 1 < spectrum.size(); ++k)
        if (std::abs(spectrum[k]) > std::abs(spectrum[peak]))
            peak = k;
    const double a = std::log(std::abs(spectrum[peak - 1]));
    const double b = std::log(std::abs(spectrum[peak]));
    const double c = std::log(std::abs(spectrum[peak + 1]));
    const double offset = 0.5 * (a - c) / (a - 2.0 * b + c);
    return (static_cast<double>(peak) + offset) * rate / length;
}

struct Stretched
{
    std::vector<double> samples;
    int64_t frames = 0;
};

Stretched Stretch(CTempoPitchDSPPlugin& plugin, const std::vector<double>& input, int32_t channels)
{
    qvtest::CollectingSink sink(channels);
    qvtest::RunInBlocks(plugin, input, channels, kBlock, sink);
    return {sink.samples, sink.totalFrames};
}

}  // namespace

TEST(TempoPitchPlugin, PitchRateAndTempoGiveTheirFrequenciesAndDurations)
{
    qvtest::ScopedFileStore store;
    const int32_t frames = 4 * 44100;
    const std::vector<double> sine = qvtest::Sine(frames, 2, 1000.0, kRate, 0.5);
    struct Case
    {
        double tempo, pitch, rate;
        double frequency;  // expected at the output
        double duration;   // share of the input's frames
    };
    for (const Case& c : {Case{1.0, 1.5, 1.0, 1500.0, 1.0}, Case{1.25, 1.0, 1.0, 1000.0, 0.8},
                          Case{1.0, 1.0, 2.0, 2000.0, 0.5}, Case{0.8, 1.0, 1.0, 1000.0, 1.25}})
    {
        SCOPED_TRACE(testing::Message()
                     << "tempo " << c.tempo << ", pitch " << c.pitch << ", rate " << c.rate);
        auto plugin = MakePlugin(c.tempo, c.pitch, c.rate);
        Stretched out = Stretch(*plugin, sine, 2);
        // What comes out plus what the stretcher still holds, at the new speed,
        // makes the whole input within one block.
        const double held =
            static_cast<double>(plugin->Command(DSPCMD_GET_LATENCY, nullptr, nullptr));
        const double speed = c.tempo * c.rate;
        EXPECT_NEAR(static_cast<double>(out.frames) + held / speed, frames * c.duration, kBlock);
        EXPECT_DOUBLE_EQ(plugin->GetSpeedFactor(), speed);
        const double measured = DominantFrequency(out.samples, 2, 8192, 16384, kRate);
        EXPECT_NEAR(measured, c.frequency, c.frequency * 0.002);
    }
}

TEST(TempoPitchPlugin, WithinOnePercentOfNeutralTheLibraryIsBypassed)
{
    qvtest::ScopedFileStore store;
    const std::vector<double> noise = qvtest::Noise(kBlock, 2, 3, 0.5);
    for (double tempo : {1.005, 0.995, 1.0099})
    {
        auto plugin = MakePlugin(tempo, 1.0, 1.0);
        std::vector<double> block = noise;
        qvtest::CollectingSink sink(2);
        plugin->Process(block.data(), kBlock, &sink);
        EXPECT_EQ(sink.pointers, std::vector<const double*>{block.data()}) << tempo;
        EXPECT_EQ(sink.samples, noise);
        EXPECT_FALSE(plugin->HasStretcher());
        EXPECT_EQ(plugin->GetSpeedFactor(), 1.0);
    }
    for (double pitch : {1.011, 0.989})
    {
        auto plugin = MakePlugin(1.0, pitch, 1.0);
        std::vector<double> block = noise;
        qvtest::CollectingSink sink(2);
        plugin->Process(block.data(), kBlock, &sink);
        EXPECT_TRUE(plugin->HasStretcher()) << pitch;
        EXPECT_GT(plugin->Command(DSPCMD_GET_LATENCY, nullptr, nullptr), 0);
        // Going neutral drops the library and whatever it held.
        plugin->SetParameters(1.0, 1.0, 1.0, false, false);
        sink.Clear();
        plugin->Process(block.data(), kBlock, &sink);
        EXPECT_FALSE(plugin->HasStretcher());
        EXPECT_EQ(sink.totalFrames, kBlock);
        EXPECT_EQ(plugin->Command(DSPCMD_GET_LATENCY, nullptr, nullptr), 0);
    }
}

TEST(TempoPitchPlugin, FormatsOutsideTheBoundsPassThrough)
{
    qvtest::ScopedFileStore store;
    struct Format
    {
        uint16_t channels;
        uint32_t rate;
        uint32_t bits;
        bool valid;
    };
    for (const Format& f :
         {Format{1, 44100, 64, true}, Format{15, 8000, 64, true}, Format{16, 44100, 64, true},
          Format{2, 192000, 64, true}, Format{32, 44100, 64, true}, Format{33, 44100, 64, false},
          Format{2, 7999, 64, false}, Format{2, 192001, 64, false}, Format{2, 44100, 32, false}})
    {
        SCOPED_TRACE(testing::Message()
                     << f.channels << " channels, " << f.rate << " Hz, " << f.bits << " bits");
        auto plugin = MakePlugin(1.5, 1.2, 1.0, f.channels, f.rate, f.bits);
        EXPECT_EQ(plugin->IsValid(), f.valid);
        std::vector<double> block = qvtest::Noise(kBlock, f.channels, 5, 0.5);
        const std::vector<double> original = block;
        qvtest::CollectingSink sink(f.channels);
        plugin->Process(block.data(), kBlock, &sink);
        // Valid up to 32 channels; the library as packaged here stretches up
        // to 15 of them, and beyond that the block passes untouched as well.
        const bool stretched = f.valid && f.channels <= 15;
        EXPECT_EQ(plugin->HasStretcher(), stretched);
        if (!stretched)
        {
            EXPECT_EQ(sink.samples, original);
        }
    }
    // A format change throws the library away with what it held.
    auto plugin = MakePlugin(1.5, 1.0, 1.0);
    std::vector<double> block = qvtest::Noise(kBlock, 2, 5, 0.5);
    qvtest::CollectingSink sink(2);
    plugin->Process(block.data(), kBlock, &sink);
    ASSERT_TRUE(plugin->HasStretcher());
    CAudioFormat format;
    format.Set(64, 48000, 2);
    plugin->SetFormat(format);
    EXPECT_FALSE(plugin->HasStretcher());
}

// Factors edited by hand into the store: beyond the panel's range they are
// held to it; what is no positive number leaves the factor as it was.
TEST(TempoPitchPlugin, StoredFactorsAreHeldToThePanelsRanges)
{
    qvtest::ScopedFileStore store;
    qvtest::CountingHost host;
    store.Write(u"Zones\\3\\Tempo & Pitch", u"Tempo", u"0.000001");
    store.Write(u"Zones\\3\\Tempo & Pitch", u"Pitch", u"1000");
    store.Write(u"Zones\\3\\Tempo & Pitch", u"Rate", u"-2");
    CTempoPitchDSPPlugin plugin(&host, 3);
    CAudioFormat format;
    format.Set(64, 44100, 2);
    plugin.SetFormat(format);
    EXPECT_EQ(plugin.GetTempo(), 0.25);
    EXPECT_EQ(plugin.GetPitch(), 3.0);
    EXPECT_EQ(plugin.GetRate(), 1.0);

    store.Write(u"Zones\\3\\Tempo & Pitch", u"Tempo", u"nan");
    store.Write(u"Zones\\3\\Tempo & Pitch", u"Rate", u"3.5");
    plugin.SetFormat(format);
    EXPECT_EQ(plugin.GetTempo(), 0.25);
    EXPECT_EQ(plugin.GetRate(), 3.5);
}

TEST(TempoPitchPlugin, ExternalTempoIsClampedAndReleasedToTheStoredOne)
{
    qvtest::ScopedFileStore store;
    qvtest::CountingHost host;
    CTempoPitchDSPPlugin plugin(&host, 3);
    CAudioFormat format;
    format.Set(64, 44100, 2);
    plugin.SetFormat(format);
    plugin.SetParameters(1.2, 0.9, 1.1, false, false);
    EXPECT_EQ(host.changedCalls, 1);
    EXPECT_EQ(store.Read(u"Zones\\3\\Tempo & Pitch", u"Tempo"), "1.2");

    auto command = [&](double value, int32_t mode)
    {
        double argument = value;
        plugin.Command(DSPCMD_TEMPO, &argument,
                       reinterpret_cast<uint64_t*>(static_cast<uintptr_t>(mode)));
        return argument;
    };
    EXPECT_EQ(command(0.0, DSPTEMPO_READ), 1.2);
    command(9.0, DSPTEMPO_SET);
    EXPECT_EQ(plugin.GetTempo(), 5.0);
    EXPECT_EQ(plugin.GetPitch(), 1.0);
    EXPECT_EQ(plugin.GetRate(), 1.0);
    EXPECT_EQ(host.tempoChangedCalls, 1);
    command(-100.0, DSPTEMPO_ADD);
    EXPECT_EQ(plugin.GetTempo(), 0.01);
    command(0.24, DSPTEMPO_ADD);
    EXPECT_DOUBLE_EQ(command(0.0, DSPTEMPO_READ), 0.25);
    // Nothing driven from outside reaches the store, not even a reload of the
    // format.
    plugin.SetFormat(format);
    EXPECT_DOUBLE_EQ(plugin.GetTempo(), 0.25);
    EXPECT_EQ(store.Read(u"Zones\\3\\Tempo & Pitch", u"Tempo"), "1.2");

    // Even a driven tempo of 1.0 runs through the library, and describing it
    // adds nothing; another tempo is described.
    command(1.0, DSPTEMPO_SET);
    std::vector<double> block = qvtest::Noise(kBlock, 2, 5, 0.5);
    qvtest::CollectingSink sink(2);
    plugin.Process(block.data(), kBlock, &sink);
    EXPECT_TRUE(plugin.HasStretcher());
    qvtest::RecordingStatusList status;
    plugin.Command(DSPCMD_DESCRIBE, static_cast<IStatusList*>(&status), nullptr);
    EXPECT_TRUE(status.lines.empty());
    command(1.25, DSPTEMPO_SET);
    plugin.Command(DSPCMD_DESCRIBE, static_cast<IStatusList*>(&status), nullptr);
    EXPECT_EQ(status.lines, std::vector<std::string>{"Tempo of +1.2500x for video clock"});

    command(0.0, DSPTEMPO_RESTORE);
    EXPECT_FALSE(plugin.IsExternalTempo());
    EXPECT_EQ(plugin.GetTempo(), 1.2);
    EXPECT_EQ(plugin.GetPitch(), 0.9);
    EXPECT_EQ(plugin.GetRate(), 1.1);
    // A NaN from outside changes nothing.
    command(std::nan(""), DSPTEMPO_SET);
    EXPECT_EQ(plugin.GetTempo(), 1.2);
}

TEST(TempoPitchPlugin, PanelControlsConvertSymmetrically)
{
    EXPECT_EQ(CTempoPitchDlg::ControlToFactor(3.0), 4.0);
    EXPECT_EQ(CTempoPitchDlg::ControlToFactor(-3.0), 0.25);
    EXPECT_EQ(CTempoPitchDlg::ControlToFactor(0.0), 1.0);
    EXPECT_EQ(CTempoPitchDlg::ControlToFactor(-1.0), 0.5);
    EXPECT_EQ(CTempoPitchDlg::FactorToControl(0.25), -3.0);
    EXPECT_EQ(CTempoPitchDlg::FactorToControl(1.5), 0.5);
    for (double control : {-2.75, -0.01, 0.37, 1.99})
        EXPECT_NEAR(CTempoPitchDlg::FactorToControl(CTempoPitchDlg::ControlToFactor(control)),
                    control, 1e-12);

    qvtest::ScopedFileStore store;
    qvtest::CountingHost host;
    CTempoPitchDSPPlugin plugin(&host, 1);
    plugin.SetParameters(10.0, 0.5, 1.0, false, false);
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    CTempoPitchDlg* panel = plugin.GetPanel();
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->GetValue(CTempoPitchDlg::ROW_TEMPO), 3.0);  // 10x is beyond the control
    EXPECT_EQ(panel->GetValue(CTempoPitchDlg::ROW_PITCH), -1.0);
    panel->SetValue(CTempoPitchDlg::ROW_RATE, -1.0);
    EXPECT_EQ(plugin.GetRate(), 0.5);
    EXPECT_EQ(plugin.GetTempo(), 4.0);  // opening the panel read the stored 10 into range
    EXPECT_EQ(store.Read(u"Zones\\1\\Tempo & Pitch", u"Rate"), "0.5");

    // A reload from the store reaches the panel's controls.
    store.Key(u"Zones\\1\\Tempo & Pitch")->WriteString(u"Pitch", u"2");
    EXPECT_EQ(plugin.Command(DSPCMD_RELOAD_TEMPO, nullptr, nullptr), 0);
    EXPECT_EQ(plugin.GetPitch(), 2.0);
    EXPECT_EQ(panel->GetValue(CTempoPitchDlg::ROW_PITCH), 1.0);
}

TEST(TempoPitchPlugin, FlushEmptiesTheStretcherAndSteadyBlocksAllocateNothing)
{
    qvtest::ScopedFileStore store;
    auto plugin = MakePlugin(1.25, 1.2, 1.0);
    std::vector<double> block = qvtest::Noise(kBlock, 2, 8, 0.5);
    qvtest::CollectingSink sink(2);
    for (int i = 0; i < 50; ++i)
        plugin->Process(block.data(), kBlock, &sink);
    EXPECT_GT(plugin->Command(DSPCMD_GET_LATENCY, nullptr, nullptr), 0);
    {
        qvtest::FrameCountingSink counting;
        std::vector<double> copy = block;
        qvtest::ScopedAllocationCount count;
        for (int i = 0; i < 20; ++i)
            plugin->Process(copy.data(), kBlock, &counting);
        EXPECT_EQ(count.Allocations(), 0);
        EXPECT_GT(counting.frames, 0);
    }
    plugin->Flush();
    EXPECT_EQ(plugin->Command(DSPCMD_GET_LATENCY, nullptr, nullptr), 0);
    sink.Clear();
    double none = 0.0;
    plugin->Process(&none, 0, &sink);
    EXPECT_EQ(sink.outputCalls, 0);  // nothing held, nothing to hand on
}
