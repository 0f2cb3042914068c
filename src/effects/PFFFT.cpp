#include "effects/PFFFT.h"

#include <fftw3.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

struct PFFFT::Setup
{
    int32_t length = 0;
    fftwf_plan plan = nullptr;
};

namespace
{

// FFTW's planner keeps global state and is not safe to call from two threads
// at once; executing a finished plan is.
std::mutex& PlannerLock()
{
    static std::mutex lock;
    return lock;
}

constexpr size_t kAlignment = 64;

}  // namespace

void PFFFT::AlignedDeleter::operator()(float* data) const
{
    std::free(data);
}

PFFFT::AlignedFloats PFFFT::AllocateFloats(size_t count)
{
    size_t bytes = (count * sizeof(float) + kAlignment - 1) / kAlignment * kAlignment;
    if (bytes == 0)
        bytes = kAlignment;
    void* data = std::aligned_alloc(kAlignment, bytes);
    if (data == nullptr)
        throw std::bad_alloc();
    std::memset(data, 0, bytes);
    return AlignedFloats(static_cast<float*>(data));
}

PFFFT::Setup* PFFFT::NewSetup(int32_t n) const
{
    if (n <= 0)
        return nullptr;
    // The plan is made on scratch arrays of the same alignment as the ones it
    // will run on, with FFTW_ESTIMATE so that making it takes no measurement.
    AlignedFloats input = AllocateFloats(2 * static_cast<size_t>(n));
    AlignedFloats output = AllocateFloats(2 * static_cast<size_t>(n));
    fftwf_plan plan;
    {
        std::lock_guard<std::mutex> guard(PlannerLock());
        plan = fftwf_plan_dft_1d(n, reinterpret_cast<fftwf_complex*>(input.get()),
                                 reinterpret_cast<fftwf_complex*>(output.get()), FFTW_FORWARD,
                                 FFTW_ESTIMATE);
    }
    if (plan == nullptr)
        return nullptr;
    return new Setup{n, plan};
}

void PFFFT::DestroySetup(Setup* setup) const
{
    if (setup == nullptr)
        return;
    {
        std::lock_guard<std::mutex> guard(PlannerLock());
        fftwf_destroy_plan(setup->plan);
    }
    delete setup;
}

void PFFFT::TransformOrdered(const Setup* setup, const float* input, float* output, float*) const
{
    // The new-array execute runs the plan on other arrays of the same
    // alignment; an out-of-place complex transform leaves its input as it was.
    fftwf_execute_dft(setup->plan, reinterpret_cast<fftwf_complex*>(const_cast<float*>(input)),
                      reinterpret_cast<fftwf_complex*>(output));
}
