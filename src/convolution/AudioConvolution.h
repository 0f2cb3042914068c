// The convolution engine: uniformly partitioned overlap-save filtering in the
// frequency domain. Each stream channel slides a window of N frames in hops of
// N/2; each path sends a mix of channels through one impulse, cut into
// partitions of N/2 frames, into one output channel.
//
// The transforms are real-input ones: the window is real, so the upper half
// of its complex spectrum mirrors the lower one and only N/2 + 1 points are
// kept and multiplied. A long impulse keeps block-sized partitions only for
// its head; the rest goes to larger ones (ConvolutionTail.h). The output
// equals that of complex transforms of the same real windows in uniform
// partitions within rounding, frame for frame and block for block.
#pragma once

#include <fftw3.h>

#include <complex>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "convolution/AlignedArray.h"
#include "convolution/ConvolutionTail.h"
#include "core/QVArray.h"
#include "core/QVString.h"
#include "core/QVStringArray.h"
#include "core/QVTimer.h"
#include "qvdsp/AudioFormat.h"

class CAudioConvolution
{
public:
    using Complex = std::complex<double>;

    // The last window spectra of one channel (or one path's mix), newest at
    // `position`, older ones before it, wrapping.
    struct CSpectrumHistory
    {
        CAlignedArray<Complex> spectra;
        int32_t stride = 0;    // points per spectrum
        int32_t slots = 0;     // spectra held
        int32_t position = 0;  // slot of the newest spectrum
        int32_t count = 0;     // slots that hold data, up to `slots`

        void Resize(int32_t slotCount, int32_t points);
        Complex* Slot(int32_t slot) { return spectra.Data() + static_cast<size_t>(slot) * stride; }
    };

    class CChannel
    {
    public:
        bool spectrumReady = false;   // the window was transformed in this block
        bool hasOutput = false;       // outputSpectrum holds a sum for this block
        CAlignedArray<double> input;  // the sliding window of N frames
        CSpectrumHistory history;
        CAlignedArray<Complex> outputSpectrum;
        CTailOutput tailOutput;  // sums of the paths' tails, ahead of time
    };

    class CPath
    {
    public:
        struct CInputLine
        {
            int32_t channel = 0;
            double gain = 1.0;
        };

        // Partitions of N/2 frames that the impulse spans, delay included.
        int32_t GetPartitions() const { return partitions; }
        // Those of them that are multiplied block by block; the tail has the
        // rest in larger ones.
        int32_t GetHeadPartitions() const { return stride > 0 ? filterSize / stride : 0; }
        // The filter's gain, head and tail alike.
        void ScaleFilter(double factor);

        std::vector<CInputLine> lines;
        int32_t outputChannel = 0;
        CSpectrumHistory mixHistory;    // only while `mixing`
        CAlignedArray<Complex> filter;  // the head's partition spectra, one after another
        int32_t filterSize = 0;         // head partitions x points per spectrum
        int32_t partitions = 0;
        std::unique_ptr<CConvolutionTail> tail;  // only for a long impulse
        int32_t stride = 0;                      // points per partition spectrum
        bool mixing = false;
        int32_t peakPosition = 0;  // frame of the largest magnitude, delay included
        // Where the impulse came from, for reports.
        QVString fileName;
        int32_t fileChannel = 0;
        int32_t delayFrames = 0;
    };

    // One audio file of a load, at the stream's rate.
    struct CFilterFile
    {
        QVString name;
        std::vector<double> samples;  // interleaved
        int32_t channels = 0;
        double gain = 1.0;
    };

    // Why a block of a configuration or a file gave no path; `check` shows it.
    struct CLoadNote
    {
        int32_t line = 0;  // 0 for an impulse audio file
        QVString text;
    };

    static constexpr const char16_t* SETTINGS_SUBKEY = u"Convolution";
    static constexpr const char16_t* SETTINGS_LEGACY_KEY = u"Plugins\\DSP\\QM DSP";
    static constexpr int32_t MAX_PATH_CHOICES = 10;
    static constexpr int32_t MAX_PERFORMANCE_HISTORY = 20;
    // The longest impulse a path may span, delay included: 2^23 frames, three
    // minutes at 48 kHz and 22 s at 384 kHz, far beyond any room or reverb.
    // Its spectra take about 270 MB a path; a longer file or delay, mostly a
    // wrong file or a typing slip, is refused before it can exhaust memory.
    static constexpr int64_t MAX_IMPULSE_FRAMES = int64_t{1} << 23;

    explicit CAudioConvolution(int32_t zone);
    ~CAudioConvolution();
    CAudioConvolution(const CAudioConvolution&) = delete;
    CAudioConvolution& operator=(const CAudioConvolution&) = delete;

    bool Load(const CAudioFormat* newFormat, bool force);
    bool Reset();
    // Consumes the frames; what became ready lies in GetOutput.
    void Process(const double* samples, int32_t frames);
    void Normalize();

    QVString GetFilter(bool effective);
    void SetFilter(const QVString& name);
    void SetVolumeMode(int32_t mode);
    void SetSmallFilters(bool small);
    void SetAutoMatchFilter(bool autoMatch);
    void AddPathChoice(const QVString& name);
    void ClearPathChoices();

    // Frames held back between input and output; 0 while not valid.
    int32_t GetLatency() const;
    double* GetOutput() { return outputBuffer.data(); }
    int32_t GetOutputFrames() const;

    bool IsValid() const { return valid; }
    const CAudioFormat& GetFormat() const { return format; }
    int32_t GetVolumeMode() const { return volumeMode; }
    bool GetSmallFilters() const { return smallFilters; }
    bool GetAutoMatchFilter() const { return autoMatchFilter; }
    const QVStringArray& GetPathChoices() const { return pathChoices; }
    // The notes of the last load, in the order they arose.
    const std::vector<CLoadNote>& GetLoadNotes() const { return loadNotes; }

    // The auto-match rule on its own: the name to load for a chosen name and
    // a stream of this rate and channel count.
    static QVString MatchFilterName(const QVString& chosen, uint32_t sampleRate,
                                    int32_t channelCount);

    std::recursive_mutex lock;
    bool valid = false;
    int32_t zone;
    QVString filterName;
    QVString effectiveFilterName;
    CAudioFormat format;
    int32_t fftSize = 4096;
    int32_t blockSize = 2048;
    QVOwnedPtrArray<CChannel> channels;
    QVOwnedPtrArray<CPath> paths;
    int32_t fillPosition = 2048;
    int32_t volumeMode = 0;
    double volume = 1.0;
    bool autoMatchFilter = true;
    int32_t partitionCount = 0;
    int32_t latencyPeak = 0;
    QVNumberArray<double> performanceHistory;
    double elapsedMilliseconds = 0.0;
    double performance = 0.0;
    bool useSSE = false;
    bool smallFilters = false;
    QVStringArray pathChoices;

private:
    // Points of a real window's spectrum that are kept: N/2 + 1.
    int32_t SpectrumPoints() const { return fftSize / 2 + 1; }
    void ReadSettings();
    void ChooseWindow();
    void BuildPlans();
    void DestroyPlans();
    void RebuildChannels();
    void SizeHistories();

    void RunBlock();
    void RunPath(CPath& path);
    void RunTail(CPath& path, CChannel& target);
    CTailContext TailContext();
    bool BuildTailTransforms(const std::vector<CPartitionLevel>& layout);
    void TransformChannel(CChannel& channel);
    void AppendOutput();
    void UpdatePerformance(int32_t blocks);
    double* GrowOutput(size_t doubles);

    // The filter part of a load; sets `loadError` as it goes.
    void LoadFilter();
    void LoadImpulseFile(const QVString& name);
    void LoadConfiguration(const QVString& name);
    void LoadConfigurationBlock(const QVStringArray& lines, int32_t firstLine,
                                const QVStringArray& delays, const QVString& folder);
    CFilterFile* GetFilterFile(const QVString& name);
    CFilterFile* ConvertFilterFile(const QVString& name);
    bool BuildPathFilter(CPath& path, const CFilterFile& file, int32_t fileChannel, double gain,
                         int32_t delayFrames);
    void AddPath(CPath* path);
    void Note(int32_t line, const QVString& text);

    fftw_plan forwardPlan = nullptr;
    fftw_plan inversePlan = nullptr;
    int32_t planSize = 0;
    CAlignedArray<double> scratchWindow;  // the inverse transform's target
    CAlignedArray<Complex> scratchSpectrum;
    CAlignedArray<double> mixWindow;  // a mixing path's input, for its tail
    // Slots of every spectrum history: the most head partitions of any path.
    int32_t historyDepth = 0;
    // Blocks since the histories were last emptied; the tails' clock.
    int64_t blocksSinceEmpty = 0;
    // The larger partitions' plans, by level (none for level 0).
    std::vector<std::unique_ptr<CTailTransforms>> tailTransforms;
    std::vector<double> outputBuffer;  // capacity kept until Reset
    size_t outputUsed = 0;             // doubles
    QVTimer timer;

    // Only while a load runs: the files read so far by name (null for one
    // that failed, so that it is not tried twice), and its error flag.
    using FilterFileMap = std::vector<std::pair<QVString, std::unique_ptr<CFilterFile>>>;
    FilterFileMap* loadFiles = nullptr;
    bool loadError = false;
    std::vector<CLoadNote> loadNotes;
};
