#include "effects/AnalyzerPlugin.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "effects/AnalyzerDlg.h"
#include "frame/PanelModel.h"
#include "frame/SettingsKey.h"

namespace
{

// Beyond this a format's byte rate is nonsense; the ring stays within reach
// of memory instead of failing to allocate.
constexpr double kMaximumRingBytes = 1024.0 * 1024.0 * 1024.0;

}  // namespace

CAnalyzerDSPPlugin::CAnalyzerDSPPlugin(IQVDSPHost* pluginHost, int32_t pluginZone)
    : QVDSPBase(pluginHost, pluginZone)
{
    {
        CZoneSettingsKey key(zone, QVString(SUBKEY), QVString(LEGACY_KEY), QVString(LEGACY_PREFIX));
        highResolution = key.ReadInt(QVString(HIGH_RESOLUTION_VALUE), 0) != 0;
    }
    FftSize = highResolution ? FFT_SIZE_HIGH : FFT_SIZE_NORMAL;
    AllocateBuffers();
}

CAnalyzerDSPPlugin::~CAnalyzerDSPPlugin()
{
    ClosePanelModel(Panel);
    DestroyFftSetup();
}

QVString CAnalyzerDSPPlugin::GetName()
{
    return QVString(NAME);
}

int32_t CAnalyzerDSPPlugin::Flush()
{
    // What the display shows is the recent past; a jump in the stream does
    // not make it wrong.
    return 0;
}

void CAnalyzerDSPPlugin::AllocateBuffers()
{
    TimeInput = AllocateFloats(2 * static_cast<size_t>(FftSize));
    FreqOutput = AllocateFloats(2 * static_cast<size_t>(FftSize));
}

void CAnalyzerDSPPlugin::DestroyFftSetup()
{
    DestroySetup(FftSetup);
    FftSetup = nullptr;
}

int32_t CAnalyzerDSPPlugin::SetFormat(const CAudioFormat& newFormat)
{
    // The display reads the ring from its own thread, so the ring is replaced
    // under the lock even though the host never sends a format mid-block.
    std::lock_guard<std::recursive_mutex> guard(Lock);
    Reformat(newFormat);
    return 0;
}

void CAnalyzerDSPPlugin::Reformat(const CAudioFormat& newFormat)
{
    StoreFormat(Format, newFormat);
    // A setup of the right length is kept: the display may be running it
    // this moment, and FFTW would plan the same transform again. Only a new
    // N, which the display's own thread sets, makes a new one.
    if (FftSetup == nullptr || FftSetupLength != FftSize)
    {
        DestroyFftSetup();
        FftSetup = NewSetup(FftSize);
        FftSetupLength = FftSetup != nullptr ? FftSize : 0;
    }
    // Ten seconds of the stream's bytes, rounded like every size from
    // milliseconds, cut to whole frames, plus the byte a ring keeps empty.
    double bytes =
        std::trunc(static_cast<double>(Format.avgBytesPerSec) * RING_MILLISECONDS / 1000.0 + 0.5);
    bytes = std::min(bytes, kMaximumRingBytes);
    uint32_t capacity = static_cast<uint32_t>(bytes);
    if (Format.blockAlign != 0)
        capacity -= capacity % Format.blockAlign;
    Ring = std::make_unique<QVMemoryCircleBuffer>(capacity + 1);
}

int64_t CAnalyzerDSPPlugin::Command(int32_t kind, void* arg, uint64_t*)
{
    switch (kind)
    {
    case DSPCMD_OPEN_PANEL: return OpenPanelModel(Panel, *this);
    case DSPCMD_CLOSE_PANEL: return ClosePanelModel(Panel);
    case DSPCMD_QUERY_FLAG: return 1;
    case DSPCMD_DESCRIBE: return 0;
    case DSPCMD_SET_ANALYZER_SILENCE: Silence = arg != nullptr; return -1;
    default: return -1;
    }
}

int32_t CAnalyzerDSPPlugin::ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink)
{
    if (frames > 0)
    {
        std::lock_guard<std::recursive_mutex> guard(Lock);
        const uint64_t bytes = static_cast<uint64_t>(Format.BitsPerFrame()) * frames / 8;
        // A format record that claims more bytes per frame than the doubles
        // of the block hold must not make the copy read past the block.
        const uint64_t available = static_cast<uint64_t>(frames) * Format.channels * sizeof(double);
        // A block that does not fit whole is left out whole: the display
        // sees a gap rather than half a block.
        if (Ring && bytes <= available && bytes <= Ring->GetFree())
            Ring->Write(samples, static_cast<uint32_t>(bytes));
    }
    if (sink != nullptr)
        sink->Output(samples, frames);
    return 0;
}

uint32_t CAnalyzerDSPPlugin::GetRingCapacity() const
{
    return Ring ? Ring->GetCapacity() : 0;
}

uint32_t CAnalyzerDSPPlugin::GetRingUsed() const
{
    return Ring ? Ring->GetUsed() : 0;
}

void CAnalyzerDSPPlugin::SetHighResolution(bool high)
{
    {
        std::lock_guard<std::recursive_mutex> guard(Lock);
        highResolution = high;
        FftSize = high ? FFT_SIZE_HIGH : FFT_SIZE_NORMAL;
        AllocateBuffers();
        Reformat(Format);
    }
    // The store is written after the lock is released, so that the audio
    // thread never waits for a file.
    if (!transient)
    {
        CZoneSettingsKey key(zone, QVString(SUBKEY), QVString(LEGACY_KEY), QVString(LEGACY_PREFIX));
        key.WriteInt(QVString(HIGH_RESOLUTION_VALUE), high ? 1 : 0);
    }
}

bool CAnalyzerDSPPlugin::UpdateFrame(CAnalyzerFrame& frame)
{
    // N, the buffers and the setup change only on this thread (the panel's
    // SetHighResolution); the format can change on the audio thread, so it is
    // read under the lock together with the samples.
    const int32_t n = FftSize;
    int32_t channels;
    {
        std::lock_guard<std::recursive_mutex> guard(Lock);
        channels = Format.channels;
        if (channels == 0 || !Ring || FftSetup == nullptr)
            return false;
        const size_t frameBytes = static_cast<size_t>(channels) * sizeof(double);
        const size_t wantedBytes = frameBytes * static_cast<size_t>(n);
        // The ring holds the chain's 64-bit samples; frames are counted in them.
        const size_t used = Ring->GetUsed();
        if (used / frameBytes < static_cast<size_t>(n))
            return false;
        // Only the newest N frames are wanted; older ones are dropped for good.
        if (used > wantedBytes)
            Ring->Skip(static_cast<uint32_t>(used - wantedBytes));
        // Kept between frames, so this allocates only when N or the channels grow.
        analysisSamples.resize(static_cast<size_t>(n) * channels);
        Ring->Read(analysisSamples.data(), static_cast<uint32_t>(wantedBytes));
        if (Silence)
            std::fill(analysisSamples.begin(), analysisSamples.end(), 0.0);
        if (&frame.Format != &Format)
            frame.Format = Format;
    }

    const int32_t bins = n / 2;
    for (int32_t c = 0; c < frame.ChannelSpectra.GetCount(); ++c)
    {
        if (frame.ChannelSpectra[c]->GetCount() != bins)
        {
            frame.ChannelSpectra.RemoveAll();
            break;
        }
    }
    if (frame.ChannelSpectra.GetCount() > channels)
        frame.ChannelSpectra.RemoveAt(channels, frame.ChannelSpectra.GetCount() - channels);
    while (frame.ChannelSpectra.GetCount() < channels)
    {
        auto* spectrum = new QVNumberArray<double>();
        spectrum->SetCount(bins);
        frame.ChannelSpectra.Add(spectrum);
    }
    if (frame.Levels.GetCount() < channels + 1)
        frame.Levels.SetCount(channels + 1);

    // The power of a 16384-point transform moves less from frame to frame, so
    // it is smoothed less.
    const double divisor = n == FFT_SIZE_HIGH ? 2.0 : 4.0;
    float* time = TimeInput.get();
    float* spectrumOut = FreqOutput.get();
    double allSquares = 0.0;
    for (int32_t c = 0; c < channels; ++c)
    {
        double squares = 0.0;
        const double* sample = analysisSamples.data() + c;
        // A plain rectangular cut: no window is applied.
        for (int32_t k = 0; k < n; ++k, sample += channels)
        {
            time[2 * k] = static_cast<float>(*sample);
            time[2 * k + 1] = 0.0f;
            squares += *sample * *sample;
        }
        allSquares += squares;
        const double root = std::sqrt(squares / n);
        // Silence reads as 0.0 dB, the figure the display shows for nothing.
        const double target = root == 0.0 ? 0.0 : 20.0 * std::log10(root);
        frame.Levels[c + 1] += (target - frame.Levels[c + 1]) * LEVEL_GLIDE;

        TransformOrdered(FftSetup, time, spectrumOut, nullptr);
        double* smoothed = frame.ChannelSpectra[c]->GetData();
        for (int32_t k = 0; k < bins; ++k)
        {
            const float re = spectrumOut[2 * k];
            const float im = spectrumOut[2 * k + 1];
            const float power = re * re + im * im;
            smoothed[k] += (power - smoothed[k]) / divisor;
        }
    }
    const double overall = std::sqrt(allSquares / (static_cast<double>(channels) * n));
    const double overallDb = overall > 0.0 ? 20.0 * std::log10(overall) : 0.0;
    frame.Levels[0] = (overallDb - frame.Levels[0]) * LEVEL_GLIDE + frame.Levels[0];
    return true;
}
