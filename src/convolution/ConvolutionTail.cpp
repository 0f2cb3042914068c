#include "convolution/ConvolutionTail.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "convolution/ConvolutionKernels.h"

namespace
{

// Each level's partitions are this many times the size of the level before.
// Larger steps save more products per block but make each level's
// transforms longer and less cache-friendly; 8 was the best measured at
// 48 kHz for impulses of 65,536 to 262,144 taps.
constexpr int32_t kLevelGrowth = 8;
// Spectra are stored this many points apart at least, so that each starts
// on the alignment of the plans (64 bytes, the widest vectors).
constexpr int32_t kStrideMultiple = 4;

int64_t DivideUp(int64_t value, int64_t divisor)
{
    return (value + divisor - 1) / divisor;
}

fftw_complex* AsFftw(std::complex<double>* values)
{
    return reinterpret_cast<fftw_complex*>(values);
}

}  // namespace

std::mutex& TransformPlannerMutex()
{
    static std::mutex mutex;
    return mutex;
}

std::vector<CPartitionLevel> LayoutPartitions(int64_t taps, int32_t blockFrames)
{
    std::vector<CPartitionLevel> levels{CPartitionLevel{blockFrames, 0, 0}};
    int64_t covered = 0;
    while (covered < taps && blockFrames > 0)
    {
        CPartitionLevel& level = levels.back();
        const int32_t quota = levels.size() == 1 ? kLevelGrowth : kLevelGrowth - 1;
        const int64_t filled = std::min<int64_t>(quota, DivideUp(taps - covered, level.size));
        level.count += static_cast<int32_t>(filled);
        covered += filled * level.size;
        const int64_t rest = taps - covered;
        if (rest <= 0)
            break;
        const int64_t nextSize = static_cast<int64_t>(level.size) * kLevelGrowth;
        // A level's transforms cost about as much as a few of its products:
        // it pays only when the rest of the impulse fills half of it.
        if (rest < nextSize * (kLevelGrowth / 2) || nextSize > INT32_MAX / 4)
        {
            level.count += static_cast<int32_t>(DivideUp(rest, level.size));
            break;
        }
        levels.push_back(CPartitionLevel{static_cast<int32_t>(nextSize), covered, 0});
    }
    return levels;
}

CTailTransforms::CTailTransforms(int32_t partitionFrames)
    : size(partitionFrames),
      stride(static_cast<int32_t>(DivideUp(partitionFrames + 1, kStrideMultiple)) * kStrideMultiple)
{
    window.Resize(2 * size);
    spectrum.Resize(stride);
    if (window.Data() == nullptr || spectrum.Data() == nullptr)
        return;
    std::lock_guard<std::mutex> planner(TransformPlannerMutex());
    // The forward transform runs in place, on each stored spectrum's own
    // slot: at these lengths the library's in-place plan is a fifth faster
    // than its out-of-place one, and no copy of the spectrum is needed.
    forward = fftw_plan_dft_r2c_1d(2 * size, reinterpret_cast<double*>(spectrum.Data()),
                                   AsFftw(spectrum.Data()), FFTW_ESTIMATE);
    inverse = fftw_plan_dft_c2r_1d(2 * size, AsFftw(spectrum.Data()), window.Data(),
                                   FFTW_ESTIMATE | FFTW_DESTROY_INPUT);
}

CTailTransforms::~CTailTransforms()
{
    std::lock_guard<std::mutex> planner(TransformPlannerMutex());
    if (forward != nullptr)
        fftw_destroy_plan(forward);
    if (inverse != nullptr)
        fftw_destroy_plan(inverse);
}

void CTailOutput::Add(const double* values, int32_t count, int64_t first, double scale)
{
    const int32_t length = ring.GetCount();
    if (length == 0)
        return;
    int32_t at = static_cast<int32_t>(first % length);
    int32_t done = 0;
    while (done < count)
    {
        const int32_t run = std::min(count - done, length - at);
        double* __restrict target = ring.Data() + at;
        const double* __restrict source = values + done;
        for (int32_t k = 0; k < run; ++k)
            target[k] += source[k] * scale;
        done += run;
        at = 0;
    }
}

bool CConvolutionTail::Build(const std::vector<double>& impulse,
                             const std::vector<CPartitionLevel>& layout,
                             const CTailContext& context)
{
    const int64_t total = static_cast<int64_t>(impulse.size());
    headTaps = static_cast<int64_t>(layout.front().count) * layout.front().size;
    lateTaps.assign(impulse.begin() + std::min(headTaps, total), impulse.end());
    levels.clear();
    int32_t largest = 0;
    for (size_t l = 1; l < layout.size(); ++l)
    {
        levels.push_back(std::make_unique<CLevel>());
        CLevel& level = *levels.back();
        level.layout = layout[l];
        CTailTransforms* transforms =
            l < context.levels->size() ? (*context.levels)[l].get() : nullptr;
        if (transforms == nullptr || transforms->forward == nullptr ||
            static_cast<int64_t>(level.layout.count) * transforms->Stride() > INT32_MAX)
            return false;
        const int32_t size = level.layout.size;
        const int32_t stride = transforms->Stride();
        level.filter.Resize(level.layout.count * stride);
        level.history.Resize(level.layout.count * stride);
        if (level.filter.Data() == nullptr || level.history.Data() == nullptr)
            return false;
        // As in the head: each partition fills the first half of a window
        // whose second half stays zero, so that the product is a linear
        // convolution over the half that is kept.
        for (int32_t p = 0; p < level.layout.count; ++p)
        {
            Complex* slot = level.filter.Data() + static_cast<size_t>(p) * stride;
            double* taps = reinterpret_cast<double*>(slot);
            std::fill(taps, taps + 2 * static_cast<size_t>(stride), 0.0);
            const int64_t first = level.layout.offset + static_cast<int64_t>(p) * size;
            const int64_t last = std::min<int64_t>(first + size, total);
            if (first < last)
                std::copy(impulse.begin() + first, impulse.begin() + last, taps);
            fftw_execute_dft_r2c(transforms->forward, taps, AsFftw(slot));
        }
        largest = std::max(largest, size);
    }
    recent.Resize(2 * largest);
    firstHalfSpectrum.Resize(context.blockFrames + 1);
    return recent.Data() != nullptr && firstHalfSpectrum.Data() != nullptr;
}

void CConvolutionTail::Scale(double factor)
{
    for (const auto& level : levels)
        for (int32_t i = 0; i < level->filter.GetCount(); ++i)
            level->filter[i] *= factor;
    for (double& tap : lateTaps)
        tap *= factor;
}

void CConvolutionTail::Clear()
{
    recent.Clear();
    for (const auto& level : levels)
    {
        level->position = 0;
        level->count = 0;
    }
}

int32_t CConvolutionTail::OutputFrames() const
{
    // A level writes frames up to its offset beyond the present window's
    // end; the present block emits the N/2 frames before that end.
    int64_t frames = 0;
    for (const auto& level : levels)
        frames = std::max(frames, level->layout.offset);
    return static_cast<int32_t>(frames + firstHalfSpectrum.GetCount() - 1);
}

void CConvolutionTail::RunBlock(const double* window, int64_t block, const CTailContext& context,
                                Complex* accumulator, CTailOutput& output)
{
    const int32_t half = context.blockFrames;
    const int64_t windowEnd = (block + 2) * half;
    Remember(window + half, windowEnd);
    if (block == 0)
    {
        std::memcpy(context.blockWindow, window, sizeof(double) * half);
        std::memset(context.blockWindow + half, 0, sizeof(double) * half);
        fftw_execute_dft_r2c(context.blockForward, context.blockWindow,
                             AsFftw(firstHalfSpectrum.Data()));
    }
    CorrectFirstWindow(block, context, accumulator);
    for (size_t l = 0; l < levels.size(); ++l)
        if (windowEnd % levels[l]->layout.size == 0)
            RunLevel(*levels[l], *(*context.levels)[l + 1], windowEnd, context.paired, output);
}

void CConvolutionTail::Remember(const double* newest, int64_t windowEnd)
{
    // The ring holds a whole number of blocks, so a block never wraps.
    const int32_t length = recent.GetCount();
    const int32_t half = firstHalfSpectrum.GetCount() - 1;
    const auto at = static_cast<int32_t>((windowEnd - half) % length);
    std::memcpy(recent.Data() + at, newest, sizeof(double) * half);
}

void CConvolutionTail::CopyRecent(int64_t windowEnd, int32_t frames, double* target) const
{
    // Before the first window the ring still holds the zeros of the emptying.
    const int32_t length = recent.GetCount();
    int32_t at = static_cast<int32_t>(((windowEnd - frames) % length + length) % length);
    int32_t done = 0;
    while (done < frames)
    {
        const int32_t run = std::min(frames - done, length - at);
        std::memcpy(target + done, recent.Data() + at, sizeof(double) * run);
        done += run;
        at = 0;
    }
}

void CConvolutionTail::CorrectFirstWindow(int64_t block, const CTailContext& context,
                                          Complex* accumulator)
{
    // In block b the uniform form multiplies the first window with partition
    // b for the first time; the tail's levels never saw that window's first
    // half, so its share through partition b is added here, until b runs
    // past the impulse.
    const int32_t half = context.blockFrames;
    const int64_t first = block * half - headTaps;
    if (first < 0 || first >= static_cast<int64_t>(lateTaps.size()))
        return;
    const int64_t last = std::min<int64_t>(first + half, static_cast<int64_t>(lateTaps.size()));
    std::memset(context.blockWindow, 0, sizeof(double) * 2 * half);
    std::copy(lateTaps.begin() + first, lateTaps.begin() + last, context.blockWindow);
    fftw_execute_dft_r2c(context.blockForward, context.blockWindow, AsFftw(context.blockSpectrum));
    MultiplyAccumulate(accumulator, firstHalfSpectrum.Data(), context.blockSpectrum, half + 1);
}

void CConvolutionTail::RunLevel(CLevel& level, CTailTransforms& transforms, int64_t windowEnd,
                                bool paired, CTailOutput& output)
{
    const int32_t size = level.layout.size;
    const int32_t slots = level.layout.count;
    const int32_t stride = transforms.Stride();
    level.position = (level.position + 1) % slots;
    level.count = std::min(level.count + 1, slots);
    Complex* newest = level.history.Data() + static_cast<size_t>(level.position) * stride;
    CopyRecent(windowEnd, 2 * size, reinterpret_cast<double*>(newest));
    fftw_execute_dft_r2c(transforms.forward, reinterpret_cast<double*>(newest), AsFftw(newest));

    AccumulateRing(transforms.spectrum.Data(), level.history.Data(), slots, level.position,
                   level.count, level.filter.Data(), slots, stride, transforms.Points(), paired,
                   true);
    fftw_execute_dft_c2r(transforms.inverse, AsFftw(transforms.spectrum.Data()),
                         transforms.window.Data());
    // The second half of the window is the linear part. Its first frame
    // lies M frames before the window's end, delayed by the level's offset;
    // as the offset is at least M, none of it is due in this block.
    output.Add(transforms.window.Data() + size, size, windowEnd - size + level.layout.offset,
               1.0 / (2.0 * static_cast<double>(size)));
}
