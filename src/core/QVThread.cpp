#include "core/QVThread.h"

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <thread>

#include "core/QVCmdTarget.h"
#include "frame/IQVTools.h"

using QVClock = std::chrono::steady_clock;

namespace
{

int64_t ElapsedMS(QVClock::time_point since)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(QVClock::now() - since).count();
}

}  // namespace

uint32_t QVGetCurrentThreadID()
{
    return static_cast<uint32_t>(gettid());
}

// ---- QVEvent ----

// One thread in WaitAny. Each event it waits on lists it, and Set wakes it.
// The event's lock is always taken before the waiter's.
struct QVEvent::Waiter
{
    std::mutex lock;
    std::condition_variable woken;
    bool signalled = false;
};

QVEvent::QVEvent(bool manualReset, bool initialState)
    : manualReset(manualReset), state(initialState)
{
}

QVEvent::~QVEvent() = default;

void QVEvent::Set()
{
    std::lock_guard<std::mutex> guard(lock);
    state = true;
    // Every waiter looks: one of them may take an automatic event, the others
    // find it reset and sleep again. A waiter leaves the list only under
    // `lock`, so none of them is gone while this runs.
    for (Waiter* waiter : waiters)
    {
        {
            std::lock_guard<std::mutex> waiterGuard(waiter->lock);
            waiter->signalled = true;
        }
        waiter->woken.notify_one();
    }
}

void QVEvent::Reset()
{
    std::lock_guard<std::mutex> guard(lock);
    state = false;
}

bool QVEvent::IsSet() const
{
    std::lock_guard<std::mutex> guard(lock);
    return state;
}

bool QVEvent::TakeLocked()
{
    if (!state)
        return false;
    if (!manualReset)
        state = false;
    return true;
}

bool QVEvent::Wait(int32_t timeoutMS)
{
    QVEvent* self = this;
    return WaitAny(&self, 1, timeoutMS) == 0;
}

int32_t QVEvent::WaitAny(QVEvent* const* events, int32_t count, int32_t timeoutMS)
{
    const auto deadline = QVClock::now() + std::chrono::milliseconds(std::max(timeoutMS, 0));
    Waiter waiter;
    for (;;)
    {
        // Taking and listing happen under each event's lock, so a Set after
        // the look finds this waiter in its list: no wake-up is lost.
        const bool timedOut = timeoutMS >= 0 && QVClock::now() >= deadline;
        int32_t found = WAIT_TIMEOUT;
        int32_t listed = 0;
        for (int32_t i = 0; i < count; ++i)
        {
            QVEvent* event = events[i];
            if (event == nullptr)
                continue;
            std::lock_guard<std::mutex> guard(event->lock);
            if (event->TakeLocked())
            {
                found = i;
                break;
            }
            if (!timedOut)
            {
                event->waiters.push_back(&waiter);
                listed = i + 1;
            }
        }
        if (found < 0 && !timedOut)
        {
            std::unique_lock<std::mutex> waiterLock(waiter.lock);
            auto signalled = [&waiter] { return waiter.signalled; };
            if (timeoutMS < 0)
                waiter.woken.wait(waiterLock, signalled);
            else
                waiter.woken.wait_until(waiterLock, deadline, signalled);
            waiter.signalled = false;
        }
        for (int32_t i = 0; i < listed; ++i)
        {
            QVEvent* event = events[i];
            if (event == nullptr)
                continue;
            std::lock_guard<std::mutex> guard(event->lock);
            auto at = std::find(event->waiters.begin(), event->waiters.end(), &waiter);
            if (at != event->waiters.end())
                event->waiters.erase(at);
        }
        if (found >= 0 || timedOut)
            return found;
    }
}

// ---- QVThread ----

// What the owner and the thread share about one run. It outlives the
// QVThread when the thread was given up, so that the thread's last steps
// touch only this record.
struct QVThread::Control
{
    std::mutex lock;
    pthread_t thread{};
    bool finished = false;   // the thread is in its last steps, or past them
    bool abandoned = false;  // Stop gave up on it; it must not touch its QVThread
};

namespace
{

struct StartBlock
{
    QVThread* self;
    std::shared_ptr<void> control;
};

// Blocking calls (read on a pipe or socket, poll, accept, ...) are ended
// with EINTR by a signal whose handler does nothing and that is installed
// without SA_RESTART. Sleeps of the standard library and waits on condition
// variables resume by themselves, and reads of local files are not
// interruptible: those threads are given up after the grace time.
int InterruptSignal()
{
    return SIGRTMIN + 4;
}

void OnInterruptSignal(int) {}

// The handler is installed only where nobody handles the signal yet; a host
// that uses it keeps it, and Stop then gives up on a stuck thread at once.
bool InterruptHandlerInstalled()
{
    static const bool installed = []
    {
        struct sigaction current = {};
        if (sigaction(InterruptSignal(), nullptr, &current) != 0)
            return false;
        if ((current.sa_flags & SA_SIGINFO) != 0 || current.sa_handler != SIG_DFL)
            return false;
        struct sigaction action = {};
        action.sa_handler = &OnInterruptSignal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = 0;
        return sigaction(InterruptSignal(), &action, nullptr) == 0;
    }();
    return installed;
}

// Moves the calling thread's nice value by the priority's steps (a higher
// priority is a lower nice value). Lowering always works; raising needs a
// privilege, and without it the thread keeps the nice value it inherited.
void ApplyPriority(int32_t priority)
{
    if (priority == QVThread::PRIORITY_NORMAL)
        return;
    const id_t self = static_cast<id_t>(gettid());
    errno = 0;
    const int inherited = getpriority(PRIO_PROCESS, self);
    if (errno != 0)
        return;
    const int64_t wanted =
        static_cast<int64_t>(inherited) - static_cast<int64_t>(priority) * QVThread::NICE_PER_STEP;
    setpriority(PRIO_PROCESS, self, static_cast<int>(std::clamp<int64_t>(wanted, -20, 19)));
}

}  // namespace

QVThread::QVThread() = default;

QVThread::~QVThread()
{
    Stop(-1);
}

void QVThread::SetStop(bool value)
{
    stop.store(value, std::memory_order_release);
    if (value)
        stopEvent.Set();
    else
        stopEvent.Reset();
}

bool QVThread::StartThread(int32_t newPriority)
{
    Stop(-1);
    SetStop(false);
    endEvent.Reset();
    priority = newPriority;

    // The thread waits at the gate (the record's lock) until its handle is
    // stored: the equivalent of creating it suspended and resuming it.
    auto control = std::make_shared<Control>();
    auto* start = new StartBlock{this, control};
    std::unique_lock<std::mutex> gate(control->lock);
    const int error = pthread_create(&control->thread, nullptr, &QVThread::Entry, start);
    if (error != 0)
    {
        gate.unlock();
        delete start;
        endEvent.Set();
        QVLog(1, u"QVThread::StartThread", u"Error starting thread, errno=%d", error);
        return false;
    }
    current = control;
    handle.store(control.get(), std::memory_order_release);
    started.fetch_add(1);
    return true;
}

void* QVThread::Entry(void* argument)
{
    std::shared_ptr<Control> control;
    QVThread* self = nullptr;
    {
        std::unique_ptr<StartBlock> start(static_cast<StartBlock*>(argument));
        self = start->self;
        control = std::static_pointer_cast<Control>(start->control);
    }
    {
        std::lock_guard<std::mutex> gate(control->lock);
    }
    ApplyPriority(self->priority);
    // The last steps run from a destructor, so that they also run when the
    // thread is ended by pthread_exit or cancellation, which unwind the stack.
    struct Epilogue
    {
        QVThread* self;
        const std::shared_ptr<Control>& control;
        ~Epilogue() { Finish(self, control); }
    } epilogue{self, control};
    self->Run();
    return nullptr;
}

void QVThread::Finish(QVThread* self, const std::shared_ptr<Control>& control)
{
    std::lock_guard<std::mutex> guard(control->lock);
    control->finished = true;
    if (control->abandoned)
        return;  // `self` may be gone; Stop has detached the thread
    self->endEvent.Set();
    pthread_detach(pthread_self());
    // The cleared handle tells Stop that the thread is done; after it nothing
    // of `self` may be touched, since Stop's caller may destroy it.
    Control* expected = control.get();
    self->handle.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel);
}

void QVThread::Abandon(Control* control)
{
    // A thread given up keeps running: POSIX has no safe way to end one
    // thread of a process. It may finish its Run, touching this object after
    // it is destroyed, and locks it holds stay held meanwhile. The owner
    // accepts that by letting the limit pass; the base's last steps (Finish)
    // will not touch this object.
    {
        std::lock_guard<std::mutex> guard(control->lock);
        if (!control->finished)
        {
            control->abandoned = true;
            pthread_detach(control->thread);
        }
    }
    Control* expected = control;
    if (handle.compare_exchange_strong(expected, nullptr, std::memory_order_acq_rel))
        endEvent.Set();
}

// Raises the flag, then looks every pollIntervalMS. Past the limit, when the
// thread may be killed, it logs, interrupts the thread's blocking calls once
// and grants INTERRUPT_GRACE_MS, and then gives the thread up (Abandon), so
// that Stop always ends. From STOP_GRACE_MS on, each look also checks that
// the thread still exists.
void QVThread::Stop(int32_t timeoutMS)
{
    Control* control = handle.load(std::memory_order_acquire);
    if (control == nullptr)
        return;
    {
        // A thread that stops itself can only ask: waiting for its own end
        // would wait for ever.
        std::lock_guard<std::mutex> guard(control->lock);
        if (!control->finished && pthread_equal(control->thread, pthread_self()))
        {
            SetStop(true);
            return;
        }
    }
    if (!IsStopping())
        SetStop(true);
    if (timeoutMS == -1)
        timeoutMS = stopTimeoutMS;

    const QVClock::time_point start = QVClock::now();
    bool interruptTried = false;
    while ((control = handle.load(std::memory_order_acquire)) != nullptr)
    {
        const int64_t elapsed = ElapsedMS(start);
        if (timeoutMS >= 0 && elapsed > timeoutMS && CanBeKilled())
        {
            pthread_t thread{};
            bool alive = false;
            {
                std::lock_guard<std::mutex> guard(control->lock);
                thread = control->thread;
                alive = !control->finished;
            }
            if (!alive)
            {
                // In its last steps: the handle is cleared in a moment.
                std::this_thread::yield();
                continue;
            }
            QVLog(1, u"QVThread::Stop",
                  u"Hard killing thread (handle=%x), it exceeded timeout=%d MS",
                  static_cast<uint64_t>(thread), timeoutMS);
            if (!interruptTried)
            {
                interruptTried = true;
                bool interrupted = false;
                if (InterruptHandlerInstalled())
                {
                    std::lock_guard<std::mutex> guard(control->lock);
                    // Under the lock the thread cannot reach its end, so its
                    // id is still good.
                    interrupted =
                        !control->finished && pthread_kill(control->thread, InterruptSignal()) == 0;
                }
                if (interrupted)
                {
                    if (endEvent.Wait(INTERRUPT_GRACE_MS))
                        std::this_thread::yield();
                    continue;
                }
            }
            Abandon(control);
            return;
        }
        if (elapsed > STOP_GRACE_MS)
        {
            // The thread must still exist; one that vanished without its last
            // steps counts as ended.
            int error = 0;
            {
                std::lock_guard<std::mutex> guard(control->lock);
                if (!control->finished)
                {
                    int policy = 0;
                    sched_param parameters = {};
                    error = pthread_getschedparam(control->thread, &policy, &parameters);
                }
            }
            if (error != 0)
            {
                QVLog(1, u"QVThread::Stop", u"GetThreadPriority returned error, errno=%d", error);
                Control* expected = control;
                if (handle.compare_exchange_strong(expected, nullptr))
                    endEvent.Set();
                return;
            }
        }
        if (pumpWhileStopping)
            QVPumpMessages();
        // The sleep of the loop, cut short by the thread's end.
        if (endEvent.Wait(pollIntervalMS))
            std::this_thread::yield();  // the handle is cleared just after
    }
}

void QVThread::Wait()
{
    endEvent.Wait(-1);
    while (IsRunning())
        std::this_thread::yield();  // the thread clears its handle right after the event
}

int32_t QVThread::WaitForEvents(int32_t timeoutMS, QVEvent* extraEvent)
{
    QVEvent* events[] = {&stopEvent, &endEvent, extraEvent};
    return QVEvent::WaitAny(events, 3, timeoutMS);
}

int32_t QVThread::WaitPumping(int32_t timeoutMS, QVEvent* extraEvent)
{
    QVEvent* events[] = {&stopEvent, &endEvent, extraEvent};
    return QVPumpMessagesUntil(events, 3, timeoutMS);
}

void QVThread::WaitUntilStopped()
{
    while (!IsStopping())
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
}
