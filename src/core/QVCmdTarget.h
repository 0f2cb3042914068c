// Commands and timers carried over to the thread that owns an object.
//
// Each thread that owns targets has one message queue: the targets that have
// commands waiting, and the timers of its targets. The owner thread runs them
// when it pumps (QVPumpMessages, QVPumpMessagesUntil, QVThread::WaitPumping);
// a Post from any thread wakes it. Handlers run on the owner thread only,
// never under a lock of the target, and one may destroy its own target.
//
// A target is destroyed on its owner thread (or when nothing else can reach
// it): from then on, what was posted to it is dropped and its timers are gone.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>

#include "core/QVArray.h"
#include "core/QVThread.h"

// A command record. For timers: kind 1 sets, 0 kills; arg1 is the period in
// milliseconds and arg2 is 0.
struct QVCmd
{
    static constexpr int32_t TIMER_KILL = 0;
    static constexpr int32_t TIMER_SET = 1;

    int32_t kind = 0;
    int32_t id = 0;
    intptr_t arg1 = 0;
    intptr_t arg2 = 0;
    bool isTimer = false;
};

class QVMessageQueue;

class QVCmdTarget
{
public:
    // The constructing thread becomes the owner; Create may move ownership
    // to another thread before anything is posted.
    QVCmdTarget();
    virtual ~QVCmdTarget();
    QVCmdTarget(const QVCmdTarget&) = delete;
    QVCmdTarget& operator=(const QVCmdTarget&) = delete;

    // On the owner thread (or the thread that is to own the target): joins
    // the calling thread's queue, if it has joined none yet. Commands posted
    // before get their wake-up now.
    void Create();
    bool IsCreated() const;
    uint32_t GetOwnerThreadID() const { return ownerThreadID; }
    bool IsOwnerThread() const;

    // From any thread: queues the command and wakes the owner.
    void Post(const QVCmd& cmd);
    // On the owner thread: runs the queued commands in the order they were
    // posted, until none is left or a handler destroys this target.
    void Dispatch();

    // A periodic timer of `milliseconds` (at least 1); setting an id that
    // runs restarts it. From another thread, the change is posted to the
    // owner and takes effect when it is dispatched there.
    bool SetTimer(int32_t id, int32_t milliseconds);
    bool KillTimer(int32_t id);

protected:
    virtual void OnCommand(const QVCmd& cmd) {}
    virtual void OnTimer(int32_t id) {}

private:
    friend class QVMessageQueue;

    // Runs this target's timers that are already due, as the message loop
    // would have, so that a timer changed now does not fire late with its
    // old period. False when a handler destroyed this target.
    bool PumpPendingTimers();

    mutable std::recursive_mutex lock;
    QVArray<QVCmd> pending;
    int32_t pendingHead = 0;  // commands before it are taken
    uint32_t ownerThreadID;
    std::shared_ptr<QVMessageQueue> queue;  // in place of the hidden window
};

// Runs the calling thread's posted commands and due timers; returns how many
// handlers ran.
int32_t QVPumpMessages();
// Pumps the calling thread's queue until one of `events` is set (its index is
// returned) or `timeoutMS` passes (QVEvent::WAIT_TIMEOUT; negative: no limit).
int32_t QVPumpMessagesUntil(QVEvent* const* events, int32_t count, int32_t timeoutMS);
