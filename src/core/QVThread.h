// Threads whose stop always ends, and the events they sleep on.
//
// A QVThread subclass overrides Run and checks IsStopping (or sleeps in
// WaitForEvents, which the stop event ends). Stop sets the flag and waits for
// the thread's end; past its limit it gives up on a thread that ignores the
// flag, so that whoever stops it (a player at exit) never hangs.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

// An event in the manner of the system's: manual reset (stays set until
// Reset) or automatic (one waiter takes it). Several can be waited on at once.
class QVEvent
{
public:
    static constexpr int32_t WAIT_TIMEOUT = -1;

    explicit QVEvent(bool manualReset = true, bool initialState = false);
    ~QVEvent();
    QVEvent(const QVEvent&) = delete;
    QVEvent& operator=(const QVEvent&) = delete;

    void Set();
    void Reset();
    bool IsSet() const;
    // True when the event was (or became) set within `timeoutMS`; a negative
    // limit waits for good.
    bool Wait(int32_t timeoutMS);
    // The index of the first set event of `events` (null entries are skipped),
    // or WAIT_TIMEOUT. An automatic event that ends the wait is taken.
    static int32_t WaitAny(QVEvent* const* events, int32_t count, int32_t timeoutMS);

    struct Waiter;

private:
    // Takes the state under `lock`: an automatic event is reset by the taking.
    bool TakeLocked();

    mutable std::mutex lock;
    bool manualReset;
    bool state;
    std::vector<Waiter*> waiters;  // threads in WaitAny that include this event
};

class QVThread
{
public:
    // Priorities in the system's steps; each step away from normal moves the
    // thread's nice value by NICE_PER_STEP, as far as the system allows.
    static constexpr int32_t PRIORITY_IDLE = -15;
    static constexpr int32_t PRIORITY_LOWEST = -2;
    static constexpr int32_t PRIORITY_BELOW_NORMAL = -1;
    static constexpr int32_t PRIORITY_NORMAL = 0;
    static constexpr int32_t PRIORITY_ABOVE_NORMAL = 1;
    static constexpr int32_t PRIORITY_HIGHEST = 2;
    static constexpr int32_t PRIORITY_TIME_CRITICAL = 15;
    static constexpr int32_t NICE_PER_STEP = 5;

    // What ended WaitForEvents and WaitPumping.
    static constexpr int32_t WAIT_STOP = 0;
    static constexpr int32_t WAIT_THREAD_END = 1;
    static constexpr int32_t WAIT_EXTRA = 2;
    static constexpr int32_t WAIT_TIMEOUT = QVEvent::WAIT_TIMEOUT;

    static constexpr int32_t DEFAULT_STOP_TIMEOUT_MS = 5000;
    static constexpr int32_t DEFAULT_POLL_INTERVAL_MS = 10;
    // Stop looks at the clock this long before it checks that the thread
    // still exists at all.
    static constexpr int32_t STOP_GRACE_MS = 1000;
    // After blocking calls were interrupted, the time the thread gets to see
    // its flag before it is given up.
    static constexpr int32_t INTERRUPT_GRACE_MS = 100;

    QVThread();
    // Stops the thread. A subclass must call Stop in its own destructor: by
    // the time this one runs, the members that Run uses are gone.
    virtual ~QVThread();
    QVThread(const QVThread&) = delete;
    QVThread& operator=(const QVThread&) = delete;

    // Stops what runs, then starts Run on a new thread. False, with a line
    // under "QVThread::StartThread" in the log, when no thread could be made.
    bool StartThread(int32_t priority = PRIORITY_NORMAL);
    // Asks the thread to stop and waits up to `timeoutMS` (-1: the default
    // limit; -2 and below: no limit) before giving it up; see QVThread.cpp.
    void Stop(int32_t timeoutMS = -1);
    void SetStop(bool value);
    bool IsStopping() const { return stop.load(std::memory_order_acquire); }
    bool IsRunning() const { return handle.load(std::memory_order_acquire) != nullptr; }

    // Waits for the thread's end, with no limit.
    void Wait();
    // Waits for the stop event, the thread's end or `extraEvent`, whichever
    // comes first: WAIT_STOP, WAIT_THREAD_END, WAIT_EXTRA or WAIT_TIMEOUT.
    int32_t WaitForEvents(int32_t timeoutMS, QVEvent* extraEvent = nullptr);
    // The same wait, for a thread that owns command targets: their commands
    // and timers run while it waits.
    int32_t WaitPumping(int32_t timeoutMS, QVEvent* extraEvent = nullptr);
    // Sleeps in steps of 100 ms until a stop is asked for.
    void WaitUntilStopped();

    QVEvent& GetStopEvent() { return stopEvent; }
    int32_t GetStartCount() const { return started.load(); }
    int32_t stopTimeoutMS = DEFAULT_STOP_TIMEOUT_MS;
    int32_t pollIntervalMS = DEFAULT_POLL_INTERVAL_MS;
    // Whether Stop runs the calling thread's commands and timers while it waits.
    bool pumpWhileStopping = false;

protected:
    virtual void Run() = 0;
    // Whether Stop may give up on the thread once its limit has passed; a
    // subclass that must finish whatever happens answers false.
    virtual bool CanBeKilled() const { return true; }
    int32_t GetPriority() const { return priority; }

private:
    struct Control;
    static void* Entry(void* start);
    static void Finish(QVThread* self, const std::shared_ptr<Control>& control);
    // Gives up on the thread: it runs on, detached, and this object forgets it.
    void Abandon(Control* control);

    std::atomic<Control*> handle{nullptr};
    std::atomic<bool> stop{false};
    QVEvent stopEvent{true, false};
    QVEvent endEvent{true, true};  // set while no thread runs
    int32_t priority = PRIORITY_NORMAL;
    std::atomic<int32_t> started{0};
    std::shared_ptr<Control> current;  // keeps the handle's record alive
};

// The calling thread's id in the system's numbering (what `top -H` shows).
uint32_t QVGetCurrentThreadID();
