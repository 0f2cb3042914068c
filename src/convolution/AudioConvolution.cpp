#include "convolution/AudioConvolution.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>

#include "convolution/ConvolutionKernels.h"
#include "convolution/PinkNoise.h"
#include "filters/IIRFilter.h"
#include "frame/SettingsKey.h"

namespace
{

// 100 ms of stream decide the window: long enough that the transforms stay
// cheap per frame, short enough that the latency stays below a quarter second.
constexpr double kWindowMilliseconds = 100.0;
constexpr int32_t kSmallWindow = 1024;
// The noise that measures a filter's level: five seconds, band-limited like
// music to 22050 Hz, and the filtered result put 6 dB below the input.
constexpr double kNoiseMilliseconds = 5000.0;
constexpr double kNoiseLowPassHz = 22050.0;
constexpr double kButterworthQ = 0.7071067811865476;
constexpr double kSixDecibelsDown = 0.5011872336272722;  // 10^(-0.3)
// The output buffer grows by at least this much, so that a stream of calls
// of slowly rising size does not reallocate every time.
constexpr size_t kOutputGrowthBytes = 16384;

const char16_t* const kKeyFilter = u"Convolution - Filter";
const char16_t* const kKeyVolumeMode = u"Convolution - Volume Mode";
const char16_t* const kKeyAutoMatch = u"Convolution - Auto Match Filter";
const char16_t* const kKeySmallFilters = u"Convolution - Small Filters";
const char16_t* const kKeyPathChoices = u"Convolution - Path Choices";

bool ProcessorHasSSE2()
{
    static const bool hasSSE2 = __builtin_cpu_supports("sse2");
    return hasSSE2;
}

CZoneSettingsKey OpenKey(int32_t zone)
{
    return CZoneSettingsKey(zone, QVString(CAudioConvolution::SETTINGS_SUBKEY),
                            QVString(CAudioConvolution::SETTINGS_LEGACY_KEY), QVString());
}

int32_t SmallestPowerOfTwoNotBelow(int64_t frames)
{
    int64_t power = 2;
    while (power < frames && power < (int64_t{1} << 30))
        power *= 2;
    return static_cast<int32_t>(power);
}

}  // namespace

void CAudioConvolution::CPath::ScaleFilter(double factor)
{
    for (int32_t i = 0; i < filterSize; ++i)
        filter[i] *= factor;
    if (tail != nullptr)
        tail->Scale(factor);
}

void CAudioConvolution::CSpectrumHistory::Resize(int32_t slotCount, int32_t points)
{
    stride = points;
    slots = slotCount;
    spectra.Resize(slotCount * points);
    position = 0;
}

CAudioConvolution::CAudioConvolution(int32_t pluginZone) : zone(pluginZone)
{
    // Room for one more than are kept, so that no block's insertion allocates.
    performanceHistory.Reserve(MAX_PERFORMANCE_HISTORY + 1);
    ReadSettings();
}

CAudioConvolution::~CAudioConvolution()
{
    DestroyPlans();
}

void CAudioConvolution::ReadSettings()
{
    CZoneSettingsKey key = OpenKey(zone);
    filterName = key.ReadString(QVString(kKeyFilter), filterName);
    volumeMode = key.ReadInt(QVString(kKeyVolumeMode), volumeMode);
    autoMatchFilter = key.ReadInt(QVString(kKeyAutoMatch), autoMatchFilter ? 1 : 0) != 0;
    smallFilters = key.ReadInt(QVString(kKeySmallFilters), smallFilters ? 1 : 0) != 0;
    pathChoices.RemoveAll();
    const QVString joined = key.ReadString(QVString(kKeyPathChoices), QVString());
    for (const QVString& choice : joined.Split(u"|", false))
        if (pathChoices.GetCount() < MAX_PATH_CHOICES)
            pathChoices.Add(choice);
}

bool CAudioConvolution::Load(const CAudioFormat* newFormat, bool force)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (newFormat == nullptr || newFormat->formatTag == 0 || newFormat->bitsPerSample != 64)
        return false;
    if (!force && newFormat->IsSameFormat(format))
        return true;
    if (newFormat != &format)
        format = *newFormat;

    smallFilters = OpenKey(zone).ReadInt(QVString(kKeySmallFilters), smallFilters ? 1 : 0) != 0;
    ChooseWindow();
    BuildPlans();
    RebuildChannels();
    paths.RemoveAll();
    partitionCount = 0;
    blocksSinceEmpty = 0;

    loadError = false;
    loadNotes.clear();
    LoadFilter();

    SizeHistories();
    latencyPeak = 0;
    for (int32_t i = 0; i < paths.GetCount(); ++i)
        latencyPeak =
            i == 0 ? paths[i]->peakPosition : std::min(latencyPeak, paths[i]->peakPosition);
    useSSE = ProcessorHasSSE2();
    valid = !loadError;
    Normalize();
    return valid;
}

void CAudioConvolution::ChooseWindow()
{
    const int64_t windowFrames = format.FramesFromMilliseconds(kWindowMilliseconds);
    const int32_t power = SmallestPowerOfTwoNotBelow(windowFrames);
    fftSize = smallFilters || power < kSmallWindow ? kSmallWindow : power;
    blockSize = fftSize / 2;
}

void CAudioConvolution::BuildPlans()
{
    if (planSize == fftSize && forwardPlan != nullptr && inversePlan != nullptr)
        return;
    DestroyPlans();
    scratchWindow.Resize(fftSize);
    scratchSpectrum.Resize(SpectrumPoints());
    mixWindow.Resize(fftSize);
    tailTransforms.clear();
    auto* spectrum = reinterpret_cast<fftw_complex*>(scratchSpectrum.Data());
    std::lock_guard<std::mutex> planner(TransformPlannerMutex());
    // Planned on the scratch arrays and run on others of the same alignment
    // through the new-array interface. ESTIMATE keeps the plans, and so the
    // rounding of every run, the same from one load to the next.
    forwardPlan = fftw_plan_dft_r2c_1d(fftSize, scratchWindow.Data(), spectrum, FFTW_ESTIMATE);
    inversePlan = fftw_plan_dft_c2r_1d(fftSize, spectrum, scratchWindow.Data(),
                                       FFTW_ESTIMATE | FFTW_DESTROY_INPUT);
    planSize = fftSize;
}

void CAudioConvolution::DestroyPlans()
{
    std::lock_guard<std::mutex> planner(TransformPlannerMutex());
    if (forwardPlan != nullptr)
        fftw_destroy_plan(forwardPlan);
    if (inversePlan != nullptr)
        fftw_destroy_plan(inversePlan);
    forwardPlan = inversePlan = nullptr;
    planSize = 0;
}

void CAudioConvolution::RebuildChannels()
{
    channels.RemoveAll();
    for (int32_t c = 0; c < format.channels; ++c)
    {
        auto* channel = new CChannel;
        channel->input.Resize(fftSize);
        channel->outputSpectrum.Resize(SpectrumPoints());
        channels.Add(channel);
    }
}

void CAudioConvolution::SizeHistories()
{
    const int32_t points = SpectrumPoints();
    historyDepth = 0;
    for (const CPath* path : paths)
        historyDepth = std::max(historyDepth, path->GetHeadPartitions());
    for (CChannel* channel : channels)
        channel->history.Resize(historyDepth, points);
    for (CPath* path : paths)
    {
        path->mixing =
            path->lines.size() > 1 || (path->lines.size() == 1 && path->lines[0].gain != 1.0);
        if (path->mixing)
            path->mixHistory.Resize(historyDepth, points);
    }
    std::vector<int32_t> tailFrames(channels.GetCount(), 0);
    for (const CPath* path : paths)
        if (path->tail != nullptr && path->outputChannel >= 0 &&
            path->outputChannel < channels.GetCount())
            tailFrames[path->outputChannel] =
                std::max(tailFrames[path->outputChannel], path->tail->OutputFrames());
    for (int32_t c = 0; c < channels.GetCount(); ++c)
        channels[c]->tailOutput.Resize(tailFrames[c]);
}

bool CAudioConvolution::Reset()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    fillPosition = 0;
    for (CChannel* channel : channels)
    {
        channel->input.Clear();
        channel->history.count = 0;
    }
    for (CPath* path : paths)
    {
        path->mixHistory.count = 0;
        if (path->tail != nullptr)
            path->tail->Clear();
    }
    for (CChannel* channel : channels)
        channel->tailOutput.Clear();
    blocksSinceEmpty = 0;
    outputBuffer = std::vector<double>();
    outputUsed = 0;
    performanceHistory.RemoveAllKeepCapacity();
    elapsedMilliseconds = 0.0;
    performance = 0.0;
    return true;
}

void CAudioConvolution::Process(const double* samples, int32_t frames)
{
    if (!valid)
        return;
    timer.Start();
    outputUsed = 0;
    const int32_t channelCount = channels.GetCount();
    int32_t blocks = 0;
    int32_t done = 0;
    while (done < frames)
    {
        // Also before the store: a position left over from a larger window
        // runs a block at once.
        if (fillPosition >= fftSize)
        {
            RunBlock();
            ++blocks;
        }
        const int32_t take = std::min(fftSize - fillPosition, frames - done);
        for (int32_t c = 0; c < channelCount; ++c)
        {
            double* window = channels[c]->input.Data() + fillPosition;
            const double* source = samples + static_cast<size_t>(done) * channelCount + c;
            for (int32_t i = 0; i < take; ++i)
                window[i] = source[static_cast<size_t>(i) * channelCount];
        }
        fillPosition += take;
        done += take;
        if (fillPosition >= fftSize)
        {
            RunBlock();
            ++blocks;
        }
    }
    elapsedMilliseconds += timer.GetElapsedNanoseconds(false) / 1e6;
    UpdatePerformance(blocks);
}

void CAudioConvolution::UpdatePerformance(int32_t blocks)
{
    if (blocks == 0)
        return;  // the time waits for the call that completes a block
    const double bytes = static_cast<double>(blocks) * blockSize * format.BitsPerFrame() / 8;
    const double audioMilliseconds =
        format.avgBytesPerSec != 0 ? bytes * 1000.0 / format.avgBytesPerSec : 0.0;
    const double ratio = audioMilliseconds / std::max(elapsedMilliseconds, 0.00001);
    performanceHistory.InsertAt(0, ratio);
    if (performanceHistory.GetCount() > MAX_PERFORMANCE_HISTORY)
        performanceHistory.RemoveAt(MAX_PERFORMANCE_HISTORY,
                                    performanceHistory.GetCount() - MAX_PERFORMANCE_HISTORY);
    double sum = 0.0;
    for (double entry : performanceHistory)
        sum += entry;
    const int32_t entries = performanceHistory.GetCount();
    performance = entries < 2 ? sum : sum / entries;
    elapsedMilliseconds = 0.0;
}

void CAudioConvolution::RunBlock()
{
    for (CPath* path : paths)
        RunPath(*path);
    AppendOutput();
    const int32_t half = fftSize / 2;
    for (CChannel* channel : channels)
    {
        double* window = channel->input.Data();
        std::memmove(window, window + half, sizeof(double) * static_cast<size_t>(fftSize - half));
    }
    fillPosition = half;
    for (CChannel* channel : channels)
    {
        channel->spectrumReady = false;
        channel->hasOutput = false;
        channel->history.position = (channel->history.position + 1) % std::max(historyDepth, 1);
    }
    ++blocksSinceEmpty;
}

void CAudioConvolution::AppendOutput()
{
    const int32_t channelCount = channels.GetCount();
    const int32_t half = fftSize / 2;
    double* out = GrowOutput(static_cast<size_t>(blockSize) * channelCount);
    const double inverseScale = (1.0 / fftSize) * volume;
    for (int32_t c = 0; c < channelCount; ++c)
    {
        CChannel& channel = *channels[c];
        const double* source = channel.input.Data() + half;
        double scale = volume;
        if (channel.hasOutput && inversePlan != nullptr)
        {
            fftw_execute_dft_c2r(inversePlan,
                                 reinterpret_cast<fftw_complex*>(channel.outputSpectrum.Data()),
                                 scratchWindow.Data());
            source = scratchWindow.Data() + half;
            scale = inverseScale;
        }
        double* target = out + c;
        for (int32_t k = 0; k < blockSize; ++k)
            target[static_cast<size_t>(k) * channelCount] = source[k] * scale;
        if (!channel.tailOutput.IsEmpty())
            channel.tailOutput.Take((blocksSinceEmpty + 1) * blockSize, blockSize,
                                    [&](int32_t k, double value) {
                                        target[static_cast<size_t>(k) * channelCount] +=
                                            value * volume;
                                    });
    }
}

double* CAudioConvolution::GrowOutput(size_t doubles)
{
    const size_t need = outputUsed + doubles;
    if (need > outputBuffer.size())
    {
        const size_t grown = outputBuffer.size() + kOutputGrowthBytes / sizeof(double);
        const size_t size = std::max(grown, need);
        outputBuffer.reserve(size);
        outputBuffer.resize(size);
    }
    double* start = outputBuffer.data() + outputUsed;
    outputUsed = need;
    return start;
}

int32_t CAudioConvolution::GetOutputFrames() const
{
    const size_t bytes = outputUsed * sizeof(double);
    return static_cast<int32_t>(format.FramesFromBytes(static_cast<int64_t>(bytes)));
}

void CAudioConvolution::TransformChannel(CChannel& channel)
{
    if (channel.spectrumReady)
        return;
    CSpectrumHistory& history = channel.history;
    history.count = std::min(history.count + 1, historyDepth);
    if (forwardPlan != nullptr && history.spectra.Data() != nullptr)
        fftw_execute_dft_r2c(forwardPlan, channel.input.Data(),
                             reinterpret_cast<fftw_complex*>(history.Slot(history.position)));
    channel.spectrumReady = true;
}

void CAudioConvolution::RunPath(CPath& path)
{
    const int32_t channelCount = channels.GetCount();
    const int32_t points = SpectrumPoints();
    CSpectrumHistory* source = nullptr;
    if (!path.mixing)
    {
        const int32_t line = path.lines.empty() ? -1 : path.lines[0].channel;
        if (line >= 0 && line < channelCount)
        {
            TransformChannel(*channels[line]);
            source = &channels[line]->history;
        }
    }
    else if (!path.lines.empty() && path.mixHistory.spectra.Data() != nullptr)
    {
        CSpectrumHistory& mix = path.mixHistory;
        mix.count = std::min(mix.count + 1, historyDepth);
        Complex* slot = mix.Slot(mix.position);
        bool first = true;
        for (const CPath::CInputLine& line : path.lines)
        {
            if (line.channel < 0 || line.channel >= channelCount)
                continue;
            CChannel& channel = *channels[line.channel];
            TransformChannel(channel);
            const Complex* spectrum = channel.history.Slot(channel.history.position);
            if (first && line.gain == 1.0)
            {
                std::memcpy(static_cast<void*>(slot), spectrum, sizeof(Complex) * points);
                first = false;
                continue;
            }
            if (first)
                std::memset(static_cast<void*>(slot), 0, sizeof(Complex) * points);
            first = false;
            AddScaled(slot, spectrum, line.gain, points);
        }
        source = &mix;
    }

    if (source != nullptr && path.outputChannel >= 0 && path.outputChannel < channelCount)
    {
        CChannel& target = *channels[path.outputChannel];
        // The first path of a channel in this block replaces the sum that
        // the last block left, so that it need not be cleared first.
        AccumulatePartitions(target.outputSpectrum.Data(), *source, path, useSSE,
                             !target.hasOutput);
        target.hasOutput = true;
        if (path.tail != nullptr)
            RunTail(path, target);
    }
    if (path.mixing && path.mixHistory.slots > 0)
        path.mixHistory.position = (path.mixHistory.position + 1) % path.mixHistory.slots;
}

CTailContext CAudioConvolution::TailContext()
{
    CTailContext context;
    context.blockFrames = fftSize / 2;
    context.blockForward = forwardPlan;
    context.blockWindow = scratchWindow.Data();
    context.blockSpectrum = scratchSpectrum.Data();
    context.levels = &tailTransforms;
    context.paired = useSSE;
    return context;
}

bool CAudioConvolution::BuildTailTransforms(const std::vector<CPartitionLevel>& layout)
{
    if (tailTransforms.empty())
        tailTransforms.emplace_back();  // level 0 is the engine's own plan
    for (size_t l = tailTransforms.size(); l < layout.size(); ++l)
        tailTransforms.push_back(std::make_unique<CTailTransforms>(layout[l].size));
    return std::all_of(tailTransforms.begin() + 1, tailTransforms.end(),
                       [](const std::unique_ptr<CTailTransforms>& transforms) {
                           return transforms->forward != nullptr && transforms->inverse != nullptr;
                       });
}

void CAudioConvolution::RunTail(CPath& path, CChannel& target)
{
    // The tail reads the path's input in the time domain: a channel's
    // window as it is, a mix built here. Only the newest half is new, except
    // in the first block, whose first half the tail also needs.
    const double* window = nullptr;
    if (!path.mixing)
        window = channels[path.lines[0].channel]->input.Data();
    else if (mixWindow.Data() != nullptr)
    {
        const int32_t from = blocksSinceEmpty == 0 ? 0 : fftSize / 2;
        double* mix = mixWindow.Data();
        std::fill(mix + from, mix + fftSize, 0.0);
        for (const CPath::CInputLine& line : path.lines)
            if (line.channel >= 0 && line.channel < channels.GetCount())
            {
                const double* input = channels[line.channel]->input.Data();
                for (int32_t i = from; i < fftSize; ++i)
                    mix[i] += line.gain * input[i];
            }
        window = mix;
    }
    if (window != nullptr && forwardPlan != nullptr)
        path.tail->RunBlock(window, blocksSinceEmpty, TailContext(), target.outputSpectrum.Data(),
                            target.tailOutput);
}

void CAudioConvolution::Normalize()
{
    volume = 1.0;
    if (!valid || volumeMode != 0)
        return;
    std::lock_guard<std::recursive_mutex> guard(lock);
    Reset();

    const int64_t bytesPerSample = format.bitsPerSample / 8;
    int64_t total =
        format.BytesFromMilliseconds(kNoiseMilliseconds) / std::max<int64_t>(bytesPerSample, 1);
    const int32_t channelCount = std::max<int32_t>(format.channels, 1);
    total -= total % channelCount;
    std::vector<double> noise(static_cast<size_t>(std::max<int64_t>(total, 0)));

    CPinkNoise pink;
    CIIRFilter lowPass;
    const bool filtered = lowPass.Design(IIR_LOWPASS_12, format.sampleRate, kNoiseLowPassHz, 0.0,
                                         kButterworthQ, false, QVString());
    const int64_t frames = total / channelCount;
    double sumIn = 0.0;
    for (int32_t c = 0; c < channelCount; ++c)
        for (int64_t f = 0; f < frames; ++f)
        {
            double value = pink.Next();
            if (filtered)
                value = lowPass.Process(value);
            value = std::clamp(value, -1.0, 1.0);
            noise[static_cast<size_t>(f * channelCount + c)] = value;
            sumIn += value * value;
        }
    const double levelIn = std::sqrt(sumIn / static_cast<double>(total));

    Process(noise.data(), static_cast<int32_t>(frames));
    double sumOut = 0.0;
    for (size_t i = 0; i < outputUsed; ++i)
        sumOut += outputBuffer[i] * outputBuffer[i];
    const double levelOut = std::sqrt(sumOut / static_cast<double>(outputUsed));
    // No guard against silence: a filter of zeros gives an infinite or
    // undefined volume, as its output is silence either way.
    volume = (levelIn / levelOut) * kSixDecibelsDown;
    Reset();
}

int32_t CAudioConvolution::GetLatency() const
{
    if (!valid)
        return 0;
    return latencyPeak - blockSize + fillPosition;
}

QVString CAudioConvolution::GetFilter(bool effective)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    return effective ? effectiveFilterName : filterName;
}

void CAudioConvolution::SetFilter(const QVString& name)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (name.CompareNoCase(filterName) == 0)
        return;
    filterName = name;
    Load(&format, true);
    OpenKey(zone).WriteString(QVString(kKeyFilter), filterName);
}

void CAudioConvolution::SetVolumeMode(int32_t mode)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    volumeMode = mode;
    OpenKey(zone).WriteInt(QVString(kKeyVolumeMode), volumeMode);
    Normalize();
}

void CAudioConvolution::SetSmallFilters(bool small)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    smallFilters = small;
    OpenKey(zone).WriteInt(QVString(kKeySmallFilters), small ? 1 : 0);
    Load(&format, true);
}

void CAudioConvolution::SetAutoMatchFilter(bool autoMatch)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    if (autoMatch == autoMatchFilter)
        return;
    autoMatchFilter = autoMatch;
    OpenKey(zone).WriteInt(QVString(kKeyAutoMatch), autoMatch ? 1 : 0);
    Load(&format, true);
}

void CAudioConvolution::AddPathChoice(const QVString& name)
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    for (int32_t i = pathChoices.GetCount() - 1; i >= 0; --i)
        if (pathChoices[i] == name)
            pathChoices.RemoveAt(i);
    pathChoices.InsertAt(0, name);
    if (pathChoices.GetCount() > MAX_PATH_CHOICES)
        pathChoices.RemoveAt(MAX_PATH_CHOICES, pathChoices.GetCount() - MAX_PATH_CHOICES);
    OpenKey(zone).WriteString(QVString(kKeyPathChoices), pathChoices.Join(u"|"));
}

void CAudioConvolution::ClearPathChoices()
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    pathChoices.RemoveAll();
    OpenKey(zone).WriteString(QVString(kKeyPathChoices), QVString());
    SetFilter(QVString());
}
