// Cost of the recursive filter's sample step, in nanoseconds per sample per
// section, next to a biquad loop written by hand with everything in registers:
// that loop is about as fast as a recursion of this shape can run, since each
// output waits for the one before it.
#include "filters/IIRFilter.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

namespace
{
constexpr int BlockFrames = 4096;

std::vector<double> Noise()
{
    std::mt19937 random(1);
    std::uniform_real_distribution<double> sample(-1.0, 1.0);
    std::vector<double> block(BlockFrames);
    for (double& x : block)
        x = sample(random);
    return block;
}

void CountPerSection(benchmark::State& state, int64_t sections)
{
    state.counters["per sample and section"] = benchmark::Counter(
        static_cast<double>(BlockFrames * sections),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void RunFilter(benchmark::State& state, CIIRFilter& filter)
{
    const std::vector<double> input = Noise();
    std::vector<double> output(BlockFrames);
    for (auto _ : state)
    {
        for (int n = 0; n < BlockFrames; ++n)
            output[n] = filter.Process(input[n]);
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
    CountPerSection(state, filter.sectionCount);
}

// Butterworth low-pass of 12, 24, 36 or 48 dB/octave: 1 to 4 sections in the
// four-coefficient layout.
void AnalogLayout(benchmark::State& state)
{
    CIIRFilter filter;
    const int sections = static_cast<int>(state.range(0));
    filter.Design(IIR_LOWPASS_12 + sections - 1, 48000.0, 1000.0, 0.0, 0.7071067811865476, true,
                  QVString());
    RunFilter(state, filter);
}
BENCHMARK(AnalogLayout)->Arg(1)->Arg(2)->Arg(4);

// A cascade of peaking sections in the five-coefficient layout, as a file of
// biquads would give.
void DirectLayout(benchmark::State& state)
{
    CIIRFilter filter;
    filter.Design(IIR_PEAKING, 48000.0, 1000.0, 1.0, 1.0, true, QVString());
    const uint32_t sections = static_cast<uint32_t>(state.range(0));
    for (uint32_t k = 1; k < sections; ++k)
        for (int i = 0; i < CIIRFilter::DirectCoefficientsPerSection; ++i)
            filter.coefficients[k * CIIRFilter::DirectCoefficientsPerSection + i] =
                filter.coefficients[i];
    filter.sectionCount = sections;
    RunFilter(state, filter);
}
BENCHMARK(DirectLayout)->Arg(1)->Arg(2)->Arg(4)->Arg(10);

// The reference: one direct form I biquad, coefficients and state in
// registers for the whole block.
template <bool WithFlush>
void HandWrittenBiquad(benchmark::State& state)
{
    CIIRFilter design;
    design.Design(IIR_PEAKING, 48000.0, 1000.0, 1.0, 1.0, true, QVString());
    const double b0 = design.coefficients[0], b1 = design.coefficients[1],
                 b2 = design.coefficients[2];
    const double a1 = design.coefficients[3], a2 = design.coefficients[4];
    const std::vector<double> input = Noise();
    std::vector<double> output(BlockFrames);
    double x1 = 0, x2 = 0, y1 = 0, y2 = 0;
    for (auto _ : state)
    {
        for (int n = 0; n < BlockFrames; ++n)
        {
            const double x = input[n];
            double y = b0 * x + b1 * x1 + b2 * x2 - a1 * y1 - a2 * y2;
            if constexpr (WithFlush)
                y = std::fabs(y) < 1e-150 ? 0.0 : y;
            x2 = x1;
            x1 = x;
            y2 = y1;
            y1 = y;
            output[n] = y;
        }
        benchmark::DoNotOptimize(output.data());
        benchmark::ClobberMemory();
    }
    CountPerSection(state, 1);
}
BENCHMARK(HandWrittenBiquad<false>);
BENCHMARK(HandWrittenBiquad<true>);
}  // namespace
