// A stopwatch in nanoseconds on the monotonic clock. The start is kept
// atomically, so that another thread may read an elapsed time while the owner
// restarts it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

class QVTimer
{
public:
    virtual ~QVTimer() = default;

    virtual void Start() { startNanoseconds.store(Now()); }

    // Nanoseconds since the start; `restart` makes now the new start.
    virtual int64_t GetElapsedNanoseconds(bool restart)
    {
        const int64_t now = Now();
        const int64_t elapsed = now - startNanoseconds.load();
        if (restart)
            startNanoseconds.store(now);
        return elapsed;
    }

    virtual double GetElapsedMilliseconds() { return GetElapsedNanoseconds(false) / 1e6; }

    static int64_t Now()
    {
        return std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::steady_clock::now().time_since_epoch())
            .count();
    }

private:
    std::atomic<int64_t> startNanoseconds{Now()};
};
