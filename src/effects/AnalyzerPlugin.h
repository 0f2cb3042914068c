// The Analyzer: it leaves the sound alone. The audio side only copies each
// block into a ring of about ten seconds; the display pulls the newest N
// frames from it at each repaint and turns them into smoothed power spectra
// and levels (UpdateFrame). The audio thread waits for a memory copy at most.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "core/QVArray.h"
#include "core/QVCircleBuffer.h"
#include "effects/PFFFT.h"
#include "frame/QVDSPBase.h"
#include "qvdsp/AudioFormat.h"

class CAnalyzerDlg;

// One frame of analysis: filled by the plug-in, owned by whoever shows it.
struct CAnalyzerFrame
{
    CAnalyzerFrame() = default;
    CAnalyzerFrame(const CAnalyzerFrame&) = delete;
    CAnalyzerFrame& operator=(const CAnalyzerFrame&) = delete;

    CAudioFormat Format;
    // One array of N/2 smoothed bin powers per channel, unscaled by N.
    QVOwnedPtrArray<QVNumberArray<double>> ChannelSpectra;
    // Entry 0 the overall level in dB, entry c + 1 that of channel c.
    QVNumberArray<double> Levels;
};

class CAnalyzerDSPPlugin : public QVDSPBase, public PFFFT
{
public:
    static constexpr int32_t FFT_SIZE_NORMAL = 4096;
    static constexpr int32_t FFT_SIZE_HIGH = 16384;
    static constexpr double RING_MILLISECONDS = 10000.0;
    // Levels glide towards the newest value by this share at each frame.
    static constexpr double LEVEL_GLIDE = 0.125;

    static constexpr const char16_t* NAME = u"Analyzer";
    static constexpr const char16_t* SUBKEY = u"Analyzer";
    static constexpr const char16_t* LEGACY_KEY = u"Plugins\\DSP\\QM DSP";
    static constexpr const char16_t* LEGACY_PREFIX = u"Analyzer - ";
    static constexpr const char16_t* HIGH_RESOLUTION_VALUE = u"High Resolution";

    CAnalyzerDSPPlugin(IQVDSPHost* host, int32_t zone);
    ~CAnalyzerDSPPlugin() override;

    int32_t Flush() override;
    int32_t SetFormat(const CAudioFormat& newFormat) override;
    int64_t Command(int32_t kind, void* arg, uint64_t* out) override;
    int32_t ProcessBlock(double* samples, int32_t frames, IQVDSPSink* sink) override;
    QVString GetName() override;

    // Switches between 16384 and 4096 points; the ring starts empty again.
    // The choice is saved unless the plug-in is transient.
    void SetHighResolution(bool high);
    bool GetHighResolution() const { return highResolution; }
    int32_t GetFftSize() const { return FftSize; }

    // Computes a frame from the newest N frames of the ring into `frame`;
    // false (and `frame` untouched) while fewer than N frames have arrived.
    // Runs on the display's thread.
    bool UpdateFrame(CAnalyzerFrame& frame);

    const CAudioFormat& GetFormat() const { return Format; }
    bool IsSilenced() const { return Silence; }
    CAnalyzerDlg* GetPanel() const { return Panel.get(); }
    // For tests and tools: the ring's capacity and bytes held (0 without a ring).
    uint32_t GetRingCapacity() const;
    uint32_t GetRingUsed() const;

private:
    // Algorithms of SetFormat, with the lock already held where needed.
    void Reformat(const CAudioFormat& newFormat);
    void AllocateBuffers();
    void DestroyFftSetup();

    std::unique_ptr<CAnalyzerDlg> Panel;
    std::recursive_mutex Lock;
    CAudioFormat Format;
    std::unique_ptr<QVMemoryCircleBuffer> Ring;
    AlignedFloats TimeInput;
    AlignedFloats FreqOutput;
    int32_t FftSize = FFT_SIZE_NORMAL;
    std::atomic<bool> Silence{false};
    Setup* FftSetup = nullptr;
    int32_t FftSetupLength = 0;
    bool highResolution = false;
    // The newest N frames as the display copies them out; display thread only.
    std::vector<double> analysisSamples;
};
