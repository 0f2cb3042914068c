#include "core/QVCmdTarget.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <vector>

#include "core/QVDeleteProbe.h"

using QVClock = std::chrono::steady_clock;

// One per thread that owns targets, in place of the hidden window and the
// thread's message loop: which targets have commands waiting, the timers,
// and the event that wakes the thread when either changes.
class QVMessageQueue
{
public:
    static std::shared_ptr<QVMessageQueue> ForCurrentThread();

    // From any thread: the target has commands waiting.
    void Wake(QVCmdTarget* target);
    // The target is being destroyed: nothing may reach it any more.
    void Forget(QVCmdTarget* target);
    void SetTimer(QVCmdTarget* target, int32_t id, int32_t periodMS);
    bool KillTimer(QVCmdTarget* target, int32_t id);

    // On the owner thread: dispatches the targets woken so far, then the
    // timers that are due (of `only`, when given). Returns the handlers run.
    int32_t Pump();
    int32_t RunDueTimers(const QVCmdTarget* only);
    // Milliseconds until the next timer is due (0: one is due), -1 if none.
    int32_t GetNextTimerDelayMS();

    QVEvent wakeup{false, false};

private:
    struct Timer
    {
        QVCmdTarget* target;
        int32_t id;
        int32_t periodMS;
        QVClock::time_point due;
    };

    bool HasTimer(const QVCmdTarget* target, int32_t id);

    std::mutex lock;
    std::vector<QVCmdTarget*> woken;  // each target once, in the order of their first Post
    std::vector<Timer> timers;
};

std::shared_ptr<QVMessageQueue> QVMessageQueue::ForCurrentThread()
{
    // Targets hold the queue too: one that outlives its thread keeps a queue
    // that nobody pumps, as a window of a thread that ended gets no messages.
    thread_local std::shared_ptr<QVMessageQueue> queue;
    if (!queue)
        queue = std::make_shared<QVMessageQueue>();
    return queue;
}

void QVMessageQueue::Wake(QVCmdTarget* target)
{
    {
        std::lock_guard<std::mutex> guard(lock);
        // One wake-up per target is enough: Dispatch takes all its commands.
        if (std::find(woken.begin(), woken.end(), target) == woken.end())
            woken.push_back(target);
    }
    wakeup.Set();
}

void QVMessageQueue::Forget(QVCmdTarget* target)
{
    std::lock_guard<std::mutex> guard(lock);
    woken.erase(std::remove(woken.begin(), woken.end(), target), woken.end());
    timers.erase(std::remove_if(timers.begin(), timers.end(),
                                [target](const Timer& timer) { return timer.target == target; }),
                 timers.end());
}

void QVMessageQueue::SetTimer(QVCmdTarget* target, int32_t id, int32_t periodMS)
{
    {
        std::lock_guard<std::mutex> guard(lock);
        const QVClock::time_point due = QVClock::now() + std::chrono::milliseconds(periodMS);
        auto at = std::find_if(timers.begin(), timers.end(),
                               [&](const Timer& timer)
                               { return timer.target == target && timer.id == id; });
        if (at != timers.end())
            *at = {target, id, periodMS, due};
        else
            timers.push_back({target, id, periodMS, due});
    }
    wakeup.Set();  // the owner may be sleeping until a later timer
}

bool QVMessageQueue::KillTimer(QVCmdTarget* target, int32_t id)
{
    std::lock_guard<std::mutex> guard(lock);
    auto at =
        std::find_if(timers.begin(), timers.end(),
                     [&](const Timer& timer) { return timer.target == target && timer.id == id; });
    if (at == timers.end())
        return false;
    timers.erase(at);
    return true;
}

bool QVMessageQueue::HasTimer(const QVCmdTarget* target, int32_t id)
{
    std::lock_guard<std::mutex> guard(lock);
    return std::any_of(timers.begin(), timers.end(),
                       [&](const Timer& timer)
                       { return timer.target == target && timer.id == id; });
}

int32_t QVMessageQueue::Pump()
{
    // Only the targets woken before this round: a handler that posts to its
    // own target is served in the next round, not in an endless one.
    size_t rounds = 0;
    {
        std::lock_guard<std::mutex> guard(lock);
        rounds = woken.size();
    }
    int32_t ran = 0;
    for (size_t i = 0; i < rounds; ++i)
    {
        QVCmdTarget* target = nullptr;
        {
            std::lock_guard<std::mutex> guard(lock);
            if (woken.empty())
                break;
            target = woken.front();
            woken.erase(woken.begin());
        }
        target->Dispatch();
        ++ran;
    }
    return ran + RunDueTimers(nullptr);
}

int32_t QVMessageQueue::RunDueTimers(const QVCmdTarget* only)
{
    struct Due
    {
        QVCmdTarget* target;
        int32_t id;
    };
    std::vector<Due> due;
    {
        std::lock_guard<std::mutex> guard(lock);
        const QVClock::time_point now = QVClock::now();
        for (Timer& timer : timers)
        {
            if (timer.due > now || (only != nullptr && timer.target != only))
                continue;
            // A late timer fires once and goes on from now, as the system's do.
            timer.due = now + std::chrono::milliseconds(timer.periodMS);
            due.push_back({timer.target, timer.id});
        }
    }
    int32_t ran = 0;
    for (const Due& entry : due)
    {
        // An earlier handler may have killed this timer or destroyed its target.
        if (!HasTimer(entry.target, entry.id))
            continue;
        entry.target->OnTimer(entry.id);
        ++ran;
    }
    return ran;
}

int32_t QVMessageQueue::GetNextTimerDelayMS()
{
    std::lock_guard<std::mutex> guard(lock);
    if (timers.empty())
        return -1;
    QVClock::time_point next = timers.front().due;
    for (const Timer& timer : timers)
        next = std::min(next, timer.due);
    const auto delay = std::chrono::ceil<std::chrono::milliseconds>(next - QVClock::now());
    return static_cast<int32_t>(std::clamp<int64_t>(delay.count(), 0, INT32_MAX));
}

// ---- QVCmdTarget ----

QVCmdTarget::QVCmdTarget() : ownerThreadID(QVGetCurrentThreadID()) {}

QVCmdTarget::~QVCmdTarget()
{
    // A Dispatch or timer in progress on this target stops at its probe.
    QVDeleteProbe::TargetDestroyed(this);
    std::shared_ptr<QVMessageQueue> ownQueue;
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
        ownQueue = queue;
    }
    if (ownQueue)
        ownQueue->Forget(this);
}

void QVCmdTarget::Create()
{
    bool waiting = false;
    std::shared_ptr<QVMessageQueue> ownQueue;
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
        if (queue)
            return;
        ownerThreadID = QVGetCurrentThreadID();
        queue = QVMessageQueue::ForCurrentThread();
        ownQueue = queue;
        waiting = pendingHead < pending.GetCount();
    }
    if (waiting)
        ownQueue->Wake(this);
}

bool QVCmdTarget::IsCreated() const
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    return queue != nullptr;
}

bool QVCmdTarget::IsOwnerThread() const
{
    std::lock_guard<std::recursive_mutex> guard(lock);
    return ownerThreadID == QVGetCurrentThreadID();
}

void QVCmdTarget::Post(const QVCmd& cmd)
{
    std::shared_ptr<QVMessageQueue> ownQueue;
    {
        std::lock_guard<std::recursive_mutex> guard(lock);
        pending.Add(cmd);
        ownQueue = queue;
    }
    // Not created yet: Create sends the wake-up.
    if (ownQueue)
        ownQueue->Wake(this);
}

void QVCmdTarget::Dispatch()
{
    if (!IsOwnerThread())
        return;
    QVDeleteProbe probe(this);
    for (;;)
    {
        QVCmd cmd;
        {
            std::lock_guard<std::recursive_mutex> guard(lock);
            if (pendingHead >= pending.GetCount())
            {
                pending.RemoveAllKeepCapacity();
                pendingHead = 0;
                return;
            }
            cmd = pending[pendingHead++];
        }
        // Never under `lock`: a handler may post, or wait for a thread that posts.
        if (cmd.isTimer)
        {
            if (cmd.kind == QVCmd::TIMER_SET)
                SetTimer(cmd.id, static_cast<int32_t>(cmd.arg1));
            else
                KillTimer(cmd.id);
        }
        else
        {
            OnCommand(cmd);
        }
        if (probe.IsDeleted())
            return;
    }
}

bool QVCmdTarget::PumpPendingTimers()
{
    QVDeleteProbe probe(this);
    queue->RunDueTimers(this);
    return !probe.IsDeleted();
}

bool QVCmdTarget::SetTimer(int32_t id, int32_t milliseconds)
{
    milliseconds = std::max(milliseconds, 1);
    if (!IsOwnerThread())
    {
        Post({QVCmd::TIMER_SET, id, milliseconds, 0, true});
        return true;
    }
    Create();
    if (!PumpPendingTimers())
        return false;
    queue->SetTimer(this, id, milliseconds);
    return true;
}

bool QVCmdTarget::KillTimer(int32_t id)
{
    if (!IsOwnerThread())
    {
        Post({QVCmd::TIMER_KILL, id, 0, 0, true});
        return true;
    }
    if (!IsCreated())
        return false;
    if (!PumpPendingTimers())
        return false;
    return queue->KillTimer(this, id);
}

// ---- the calling thread's loop ----

int32_t QVPumpMessages()
{
    return QVMessageQueue::ForCurrentThread()->Pump();
}

int32_t QVPumpMessagesUntil(QVEvent* const* events, int32_t count, int32_t timeoutMS)
{
    const std::shared_ptr<QVMessageQueue> queue = QVMessageQueue::ForCurrentThread();
    std::vector<QVEvent*> watched(events, events + count);
    watched.push_back(&queue->wakeup);
    const QVClock::time_point start = QVClock::now();
    for (;;)
    {
        queue->Pump();
        // The time left is worked out anew after every round, in whole
        // milliseconds, so that rounds of pumping do not stretch the limit.
        int32_t wait = -1;
        if (timeoutMS >= 0)
        {
            const double elapsedMS =
                std::chrono::duration<double, std::milli>(QVClock::now() - start).count();
            wait = std::max(0, timeoutMS - static_cast<int32_t>(std::llround(elapsedMS)));
        }
        const int32_t remaining = wait;
        const int32_t nextTimer = queue->GetNextTimerDelayMS();
        if (nextTimer >= 0 && (wait < 0 || nextTimer < wait))
            wait = nextTimer;
        const int32_t which = QVEvent::WaitAny(watched.data(), count + 1, wait);
        if (which >= 0 && which < count)
            return which;
        if (which == QVEvent::WAIT_TIMEOUT && remaining == wait && remaining >= 0)
            return QVEvent::WAIT_TIMEOUT;
    }
}
