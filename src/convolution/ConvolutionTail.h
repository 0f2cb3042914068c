// The later part of a long impulse, convolved in partitions larger than a
// block. A block of N/2 frames multiplies every partition spectrum of its
// path once; for an impulse of 64 blocks that is 64 products per block. The
// tail cuts the impulse beyond its first partitions into levels of partitions
// 8, 64, ... times a block long, each transformed in windows twice its size
// once per partition length of input. Products per block shrink by about the
// growth factor, at the price of one pair of larger transforms per level.
//
// One scheduling rule: a level with partitions of M frames starts at tap M
// (everything before it is covered by the smaller partitions), and it runs at
// the block whose window ends on a multiple of M frames, counted from the
// first window after the history was emptied. What it computes then is due
// from the next block on, so it is always ready in time and the latency is
// that of the first partitions alone.
//
// The first block's window is special: its first half enters a partition i
// only from block i on (the history holds nothing older). The tail sees a
// stream whose first half window is zero, and adds the missing products of
// that first half one uniform partition at a time while the blocks since the
// emptying are fewer than the partitions, exactly as the uniform form would.
#pragma once

#include <fftw3.h>

#include <complex>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "convolution/AlignedArray.h"

// FFTW's planner is not reentrant; engines of several plug-ins may load at once.
std::mutex& TransformPlannerMutex();

// A run of equal partitions: `count` partitions of `size` frames from tap
// `offset` on. Level 0 holds the block-sized partitions of the head.
struct CPartitionLevel
{
    int32_t size = 0;
    int64_t offset = 0;
    int32_t count = 0;
};

// How an impulse of `taps` frames is cut for blocks of `blockFrames`: the
// head takes 8 blocks, each later level 7 partitions of 8 times the size
// before it (so that it starts where its own size is covered). A level is
// opened only when the rest of the impulse fills at least half of it; the
// rest goes otherwise into more partitions of the level before.
std::vector<CPartitionLevel> LayoutPartitions(int64_t taps, int32_t blockFrames);

// The transform plans and scratch of one level size, shared by all paths.
class CTailTransforms
{
public:
    using Complex = std::complex<double>;

    explicit CTailTransforms(int32_t partitionFrames);
    ~CTailTransforms();
    CTailTransforms(const CTailTransforms&) = delete;
    CTailTransforms& operator=(const CTailTransforms&) = delete;

    int32_t PartitionFrames() const { return size; }
    int32_t Points() const { return size + 1; }
    // Points per stored spectrum, rounded up so that every stored spectrum
    // keeps the alignment the plans were made for.
    int32_t Stride() const { return stride; }

    int32_t size;
    int32_t stride;
    fftw_plan forward = nullptr;  // 2 x size real frames to size + 1 points
    fftw_plan inverse = nullptr;
    CAlignedArray<double> window;     // 2 x size frames
    CAlignedArray<Complex> spectrum;  // accumulator of one level
};

// Time-domain sums of an output channel that the tail computed ahead of
// their frames, kept until the block that emits them.
class CTailOutput
{
public:
    void Resize(int32_t frames) { ring.Resize(frames); }
    void Clear() { ring.Clear(); }
    bool IsEmpty() const { return ring.GetCount() == 0; }
    // frames [first, first + count) += values x scale
    void Add(const double* values, int32_t count, int64_t first, double scale);
    // Frame `first + k` of the ring, then cleared, for k below `count`.
    template <typename Visit>
    void Take(int64_t first, int32_t count, Visit visit)
    {
        const int32_t length = ring.GetCount();
        int32_t at = static_cast<int32_t>(first % length);
        for (int32_t k = 0; k < count; ++k)
        {
            visit(k, ring[at]);
            ring[at] = 0.0;
            if (++at == length)
                at = 0;
        }
    }

private:
    CAlignedArray<double> ring;
};

// What a tail borrows from its engine for one block.
struct CTailContext
{
    int32_t blockFrames = 0;        // N/2
    fftw_plan blockForward;         // the engine's N-frame plan
    double* blockWindow = nullptr;  // N frames of scratch
    std::complex<double>* blockSpectrum = nullptr;
    const std::vector<std::unique_ptr<CTailTransforms>>* levels = nullptr;  // by level
    bool paired = false;  // the two-partition kernel may be used
};

// The tail of one path.
class CConvolutionTail
{
public:
    using Complex = std::complex<double>;

    // `impulse` holds the path's taps, delay and gain applied; `layout` came
    // from LayoutPartitions and has more than one level.
    // False when the spectra would not fit the arrays' sizes.
    bool Build(const std::vector<double>& impulse, const std::vector<CPartitionLevel>& layout,
               const CTailContext& context);
    void Scale(double factor);
    // The history is emptied: the next block is block 0.
    void Clear();
    // Frames of output ring that this tail writes ahead of the present block.
    int32_t OutputFrames() const;

    // One block: `window` is the path's input window of N frames, `block`
    // the blocks since the emptying. The first window's correction goes into
    // `accumulator`, the block's output spectrum; the levels' results into
    // `output`.
    void RunBlock(const double* window, int64_t block, const CTailContext& context,
                  Complex* accumulator, CTailOutput& output);

private:
    struct CLevel
    {
        CPartitionLevel layout;
        CAlignedArray<Complex> filter;   // count spectra, Stride() apart
        CAlignedArray<Complex> history;  // the input window spectra
        int32_t position = 0;            // slot of the newest spectrum
        int32_t count = 0;               // slots that hold data
    };

    void Remember(const double* newest, int64_t windowEnd);
    void CopyRecent(int64_t windowEnd, int32_t frames, double* target) const;
    void CorrectFirstWindow(int64_t block, const CTailContext& context, Complex* accumulator);
    void RunLevel(CLevel& level, CTailTransforms& transforms, int64_t windowEnd, bool paired,
                  CTailOutput& output);

    int64_t headTaps = 0;          // taps that the block-sized partitions cover
    std::vector<double> lateTaps;  // the taps from headTaps on, for the first windows
    std::vector<std::unique_ptr<CLevel>> levels;  // without level 0
    CAlignedArray<double> recent;                 // the input of the last two largest partitions
    CAlignedArray<Complex> firstHalfSpectrum;     // block 0's window, second half zeroed
};
