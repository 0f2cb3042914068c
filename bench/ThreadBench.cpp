// Costs of the thread layer: a command through a target's queue, a command
// from another thread to a waiting owner and back, a thread's start and stop,
// and the quicksort with and without its worker beside std::sort.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <vector>

#include "core/QVCmdTarget.h"
#include "core/QVQSort.h"

namespace
{

class CountingTarget : public QVCmdTarget
{
public:
    int64_t received = 0;
    QVEvent* answer = nullptr;  // set for each command when given

protected:
    void OnCommand(const QVCmd&) override
    {
        ++received;
        if (answer != nullptr)
            answer->Set();
    }
};

// Post and Dispatch on one thread, in batches of 64 as a busy panel would.
void PostAndPumpSameThread(benchmark::State& state)
{
    CountingTarget target;
    target.Create();
    QVCmd cmd;
    for (auto _ : state)
    {
        for (int i = 0; i < 64; ++i)
            target.Post(cmd);
        QVPumpMessages();
    }
    state.SetItemsProcessed(state.iterations() * 64);
}
BENCHMARK(PostAndPumpSameThread);

// A command posted to a target whose owner thread sleeps in WaitPumping, and
// the owner's answer: the latency of a wake-up each way.
class PumpingOwner : public QVThread
{
public:
    CountingTarget target;
    QVEvent ready;
    ~PumpingOwner() override { Stop(-1); }

protected:
    void Run() override
    {
        target.Create();
        ready.Set();
        while (!IsStopping())
            WaitPumping(-1);
    }
};

void PostToAnotherThreadAndBack(benchmark::State& state)
{
    PumpingOwner owner;
    QVEvent answer(false, false);
    owner.target.answer = &answer;
    owner.StartThread();
    owner.ready.Wait(-1);
    QVCmd cmd;
    for (auto _ : state)
    {
        owner.target.Post(cmd);
        answer.Wait(-1);
    }
    owner.Stop(-1);
}
BENCHMARK(PostToAnotherThreadAndBack)->UseRealTime();

class EmptyThread : public QVThread
{
public:
    ~EmptyThread() override { Stop(-1); }

protected:
    void Run() override {}
};

void StartAndWait(benchmark::State& state)
{
    EmptyThread thread;
    for (auto _ : state)
    {
        thread.StartThread();
        thread.Wait();
    }
}
BENCHMARK(StartAndWait)->UseRealTime();

std::vector<int> RandomValues(size_t count)
{
    std::mt19937 random(7);
    std::vector<int> values(count);
    for (int& value : values)
        value = static_cast<int>(random());
    return values;
}

void QuickSort(benchmark::State& state)
{
    const std::vector<int> source = RandomValues(static_cast<size_t>(state.range(0)));
    const QVLessComparer<int> less;
    std::vector<int> values;
    for (auto _ : state)
    {
        values = source;
        QVQSort<int>(values.data(), static_cast<int32_t>(values.size()), less)
            .Sort(state.range(1) != 0);
        benchmark::DoNotOptimize(values.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(QuickSort)
    ->ArgNames({"count", "worker"})
    ->Args({1 << 20, 0})
    ->Args({1 << 20, 1})
    ->UseRealTime();

void StandardSort(benchmark::State& state)
{
    const std::vector<int> source = RandomValues(static_cast<size_t>(state.range(0)));
    std::vector<int> values;
    for (auto _ : state)
    {
        values = source;
        std::sort(values.begin(), values.end());
        benchmark::DoNotOptimize(values.data());
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(StandardSort)->Arg(1 << 20)->UseRealTime();

}  // namespace
