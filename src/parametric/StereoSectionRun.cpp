// A stretch of single-section filters on the same two channels, run in one
// pass. One section's recursion is bound by the latency of its multiply and
// two subtractions, about ten cycles a sample; with the sections staggered by a
// sample (section k works on sample t - k while section 0 reads sample t), the
// recursions of a group are independent within an iteration and overlap. Both
// channels share a vector register, lane by lane. Every sample still sees the
// same operations in the same order as in CIIRFilter::Process, so the output is
// identical to running the filters one after another.
#include <emmintrin.h>

#include <algorithm>

#include "parametric/EqualizingFilters.h"

namespace
{
// Recursions in flight at once: enough to cover the latency, few enough that
// the states mostly stay in registers. Three measured fastest with the
// three-operand instructions (ten peaks, stereo: a fifth faster than two;
// four spill).
constexpr int32_t GROUP_SECTIONS = 3;
// Longest stretch gathered before it runs; a longer one runs in several passes.
constexpr int32_t MAX_RUN_SECTIONS = 24;

struct SectionPair
{
    CIIRFilter* left;
    CIIRFilter* right;
};

struct SectionLanes
{
    __m128d b0, b1, b2, a1, a2;
    __m128d p1, p2, q1, q2;

    [[gnu::always_inline]] inline void Load(const SectionPair& pair)
    {
        const double* l = pair.left->coefficients;
        const double* r = pair.right->coefficients;
        b0 = _mm_set_pd(r[0], l[0]);
        b1 = _mm_set_pd(r[1], l[1]);
        b2 = _mm_set_pd(r[2], l[2]);
        a1 = _mm_set_pd(r[3], l[3]);
        a2 = _mm_set_pd(r[4], l[4]);
        const double* sl = pair.left->state;
        const double* sr = pair.right->state;
        p1 = _mm_set_pd(sr[0], sl[0]);
        p2 = _mm_set_pd(sr[1], sl[1]);
        q1 = _mm_set_pd(sr[2], sl[2]);
        q2 = _mm_set_pd(sr[3], sl[3]);
    }

    void Store(const SectionPair& pair) const
    {
        double* sl = pair.left->state;
        double* sr = pair.right->state;
        _mm_storel_pd(sl + 0, p1);
        _mm_storeh_pd(sr + 0, p1);
        _mm_storel_pd(sl + 1, p2);
        _mm_storeh_pd(sr + 1, p2);
        _mm_storel_pd(sl + 2, q1);
        _mm_storeh_pd(sr + 2, q1);
        _mm_storel_pd(sl + 3, q2);
        _mm_storeh_pd(sr + 3, q2);
    }

    // y = b0 x + b1 p1 + b2 p2 - a1 q1 - a2 q2, summed left to right, and
    // flushed to zero below the threshold, as the scalar section does.
    [[gnu::always_inline]] inline __m128d Step(__m128d x)
    {
        __m128d y = _mm_add_pd(_mm_mul_pd(b0, x), _mm_mul_pd(b1, p1));
        y = _mm_add_pd(y, _mm_mul_pd(b2, p2));
        y = _mm_sub_pd(y, _mm_mul_pd(a1, q1));
        y = _mm_sub_pd(y, _mm_mul_pd(a2, q2));
        const __m128d magnitude = _mm_andnot_pd(_mm_set1_pd(-0.0), y);
        y = _mm_andnot_pd(_mm_cmplt_pd(magnitude, _mm_set1_pd(CIIRFilter::FlushThreshold)), y);
        p2 = p1;
        p1 = x;
        q2 = q1;
        q1 = y;
        return y;
    }
};

// Two channels anywhere in the block, or side by side in one frame (the usual
// Left and Right), where one vector load and store serve both.
struct StereoSpans
{
    double* left;
    double* right;
    ptrdiff_t leftStride;
    ptrdiff_t rightStride;

    [[gnu::always_inline]] inline __m128d Load(int32_t frame) const
    {
        return _mm_set_pd(right[frame * rightStride], left[frame * leftStride]);
    }
    [[gnu::always_inline]] inline void Store(int32_t frame, __m128d value) const
    {
        _mm_storel_pd(left + frame * leftStride, value);
        _mm_storeh_pd(right + frame * rightStride, value);
    }
};

struct AdjacentSpans
{
    double* left;
    ptrdiff_t stride;

    [[gnu::always_inline]] inline __m128d Load(int32_t frame) const
    {
        return _mm_loadu_pd(left + frame * stride);
    }
    [[gnu::always_inline]] inline void Store(int32_t frame, __m128d value) const
    {
        _mm_storeu_pd(left + frame * stride, value);
    }
};

// One iteration t of the staggered loop for the sections whose sample t - k
// lies in the block; the first and last iterations of a block have fewer.
template <int32_t K, typename Spans>
[[gnu::always_inline]] inline void StaggeredIteration(SectionLanes (&lanes)[K], __m128d (&carry)[K],
                                                      const Spans& io, int32_t t, int32_t frames)
{
    const int32_t lowest = std::max(0, t - (frames - 1));
    const int32_t highest = std::min(K - 1, t);
    for (int32_t k = highest; k >= lowest; --k)
        carry[k] = lanes[k].Step(k == 0 ? io.Load(t) : carry[k - 1]);
    if (highest == K - 1)
        io.Store(t - (K - 1), carry[K - 1]);
}

template <int32_t K, typename Spans>
void RunGroup(const SectionPair* pairs, const Spans& io, int32_t frames)
{
    SectionLanes lanes[K];
    for (int32_t k = 0; k < K; ++k)
        lanes[k].Load(pairs[k]);
    __m128d carry[K];
    for (int32_t k = 0; k < K; ++k)
        carry[k] = _mm_setzero_pd();

    const int32_t last = frames + K - 2;  // the last iteration
    int32_t t = 0;
    for (; t < std::min(K - 1, last + 1); ++t)
        StaggeredIteration<K, Spans>(lanes, carry, io, t, frames);
    // The steady state: every section busy, no bounds to check.
    // A local copy of the spans: stores through them can't change them.
    const Spans local = io;
    for (; t < frames; ++t)
    {
#pragma GCC unroll 8
        for (int32_t k = K - 1; k >= 1; --k)
            carry[k] = lanes[k].Step(carry[k - 1]);
        carry[0] = lanes[0].Step(local.Load(t));
        local.Store(t - (K - 1), carry[K - 1]);
    }
    for (; t <= last; ++t)
        StaggeredIteration<K, Spans>(lanes, carry, io, t, frames);

    for (int32_t k = 0; k < K; ++k)
        lanes[k].Store(pairs[k]);
}

// Groups of GROUP_SECTIONS, the last one smaller.
template <typename Spans>
void RunGroups(const SectionPair* pairs, int32_t count, const Spans& io, int32_t frames)
{
    static_assert(GROUP_SECTIONS <= 4);
    for (; count >= GROUP_SECTIONS; count -= GROUP_SECTIONS, pairs += GROUP_SECTIONS)
        RunGroup<GROUP_SECTIONS>(pairs, io, frames);
    switch (count)
    {
    case 3: RunGroup<3>(pairs, io, frames); break;
    case 2: RunGroup<2>(pairs, io, frames); break;
    case 1: RunGroup<1>(pairs, io, frames); break;
    default: break;
    }
}

// Where the processor has them, the three-operand forms of the same vector
// instructions save the register copies that the two-operand forms need; the
// arithmetic, and so every result, is the same.
__attribute__((target_clones("avx2", "default"))) void
RunSections(const SectionPair* pairs, int32_t count, const ChannelSpan* spans, int32_t frames)
{
    if (spans[1].base == spans[0].base + 1 && spans[1].stride == spans[0].stride)
        RunGroups(pairs, count, AdjacentSpans{spans[0].base, spans[0].stride}, frames);
    else
        RunGroups(pairs, count,
                  StereoSpans{spans[0].base, spans[1].base, spans[0].stride, spans[1].stride},
                  frames);
}

bool SameSpans(const ChannelSpan* a, const ChannelSpan* b)
{
    return a[0].base == b[0].base && a[0].stride == b[0].stride && a[1].base == b[1].base &&
           a[1].stride == b[1].stride;
}

bool IsSingleDirectPair(CIIRFilter* const* active, const ChannelSpan* spans, int32_t count)
{
    return count == 2 && spans[0].base != spans[1].base && !active[0]->analogPrototype &&
           active[0]->sectionCount == 1 && !active[1]->analogPrototype &&
           active[1]->sectionCount == 1;
}
}  // namespace

int32_t CParametricIIRFilter::ProcessRun(const std::unique_ptr<CParametricFilter>* filters,
                                         int32_t count, double* samples, int32_t frames,
                                         const CAudioFormat* format,
                                         UserChannelBuffer* userChannels)
{
    SectionPair run[MAX_RUN_SECTIONS];
    ChannelSpan runSpans[2];
    int32_t length = 0;
    int32_t used = 0;
    for (; used < count && length < MAX_RUN_SECTIONS; ++used)
    {
        auto* filter = dynamic_cast<CParametricIIRFilter*>(filters[used].get());
        if (filter == nullptr || format == nullptr || !filter->MayRunAsPair())
            break;
        // Two distinct channel ids: nothing runs alone while the block is prepared.
        CIIRFilter* active[CParametricIIRFilter::MAX_INTERLEAVED];
        ChannelSpan spans[CParametricIIRFilter::MAX_INTERLEAVED];
        const int32_t ready =
            filter->PrepareBlock(samples, frames, format, userChannels, active, spans);
        if (!IsSingleDirectPair(active, spans, ready) ||
            (length > 0 && !SameSpans(spans, runSpans)))
        {
            // This filter runs on its own, after the stretch before it.
            RunSections(run, length, runSpans, frames);
            ProcessInterleaved(active, spans, ready, frames);
            return used + 1;
        }
        if (length == 0)
            std::copy(spans, spans + 2, runSpans);
        run[length++] = {active[0], active[1]};
    }
    if (used == 0)
    {
        filters[0]->Process(samples, frames, format, userChannels);
        return 1;
    }
    RunSections(run, length, runSpans, frames);
    return used;
}
