#include "core/QVCmdTarget.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "core/QVDeleteProbe.h"

namespace
{

using Clock = std::chrono::steady_clock;

int64_t MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Keeps what reached it: commands and timer ticks with the thread they ran on.
class RecordingTarget : public QVCmdTarget
{
public:
    struct Entry
    {
        int32_t id;
        intptr_t arg1;
        uint32_t threadID;
    };

    std::vector<Entry> commands;
    std::vector<Entry> ticks;
    std::function<void(const QVCmd&)> onCommand;  // runs after the record
    std::function<void(int32_t)> onTimer;
    QVEvent received{false, false};  // set after each command

protected:
    void OnCommand(const QVCmd& cmd) override
    {
        commands.push_back({cmd.id, cmd.arg1, QVGetCurrentThreadID()});
        received.Set();
        if (onCommand)
            onCommand(cmd);
    }
    void OnTimer(int32_t id) override
    {
        ticks.push_back({id, 0, QVGetCurrentThreadID()});
        if (onTimer)
            onTimer(id);
    }
};

// Runs `body` on its own thread.
class BodyThread : public QVThread
{
public:
    explicit BodyThread(std::function<void(QVThread&)> body) : body(std::move(body)) {}
    ~BodyThread() override { Stop(-1); }

protected:
    void Run() override { body(*this); }

private:
    std::function<void(QVThread&)> body;
};

// Pumps the calling thread until `event` is set or five seconds pass.
bool PumpUntil(QVEvent& event)
{
    QVEvent* events[] = {&event};
    return QVPumpMessagesUntil(events, 1, 5000) == 0;
}

QVCmd Command(int32_t id, intptr_t arg1 = 0)
{
    QVCmd cmd;
    cmd.id = id;
    cmd.arg1 = arg1;
    return cmd;
}

}  // namespace

TEST(QVDeleteProbeTest, MarksEveryProbeOnTheTargetAndOnlyThose)
{
    const int32_t before = QVDeleteProbe::GetRegisteredCount();
    int first = 0, second = 0;
    {
        QVDeleteProbe outer(&first), inner(&first), other(&second);
        EXPECT_EQ(QVDeleteProbe::GetRegisteredCount(), before + 3);
        EXPECT_EQ(QVDeleteProbe::TargetDestroyed(&first), 2);
        EXPECT_TRUE(outer.IsDeleted());
        EXPECT_TRUE(inner.IsDeleted());
        EXPECT_FALSE(other.IsDeleted());
    }
    EXPECT_EQ(QVDeleteProbe::GetRegisteredCount(), before);
    // A probe that is gone is no longer reached.
    EXPECT_EQ(QVDeleteProbe::TargetDestroyed(&second), 0);
}

TEST(QVCmdTargetTest, CommandsRunOnTheOwnerThreadInOrderWhenPumped)
{
    RecordingTarget target;
    target.Create();
    EXPECT_TRUE(target.IsOwnerThread());
    for (int32_t id = 1; id <= 3; ++id)
        target.Post(Command(id, id * 10));
    EXPECT_TRUE(target.commands.empty());  // Post only queues
    EXPECT_EQ(QVPumpMessages(), 1);        // one wake-up for the three
    ASSERT_EQ(target.commands.size(), 3u);
    for (int32_t i = 0; i < 3; ++i)
    {
        EXPECT_EQ(target.commands[i].id, i + 1);
        EXPECT_EQ(target.commands[i].arg1, (i + 1) * 10);
        EXPECT_EQ(target.commands[i].threadID, QVGetCurrentThreadID());
    }
    EXPECT_EQ(QVPumpMessages(), 0);

    // Commands posted before the target joined a queue wait for Create, on
    // whichever thread then owns it. That thread runs them while it waits.
    RecordingTarget moved;
    moved.Post(Command(7));
    std::atomic<uint32_t> workerID{0};
    BodyThread owner(
        [&](QVThread& self)
        {
            workerID = QVGetCurrentThreadID();
            moved.Create();
            self.WaitPumping(-1);
        });
    ASSERT_TRUE(owner.StartThread());
    ASSERT_TRUE(moved.received.Wait(5000));
    moved.Post(Command(8));
    ASSERT_TRUE(moved.received.Wait(5000));
    owner.Stop(2000);
    ASSERT_EQ(moved.commands.size(), 2u);
    EXPECT_EQ(moved.commands[0].id, 7);
    EXPECT_EQ(moved.commands[1].id, 8);
    EXPECT_EQ(moved.commands[0].threadID, workerID.load());
    EXPECT_EQ(moved.commands[1].threadID, workerID.load());
    EXPECT_NE(workerID.load(), QVGetCurrentThreadID());
}

TEST(QVCmdTargetTest, AHandlerThatDestroysItsTargetEndsTheDispatch)
{
    int handled = 0;
    auto* target = new RecordingTarget;
    target->Create();
    target->onCommand = [&handled, target](const QVCmd&)
    {
        ++handled;
        delete target;  // the rest of the loop must not touch it
    };
    for (int32_t id = 1; id <= 3; ++id)
        target->Post(Command(id));
    const int32_t probes = QVDeleteProbe::GetRegisteredCount();
    QVPumpMessages();
    EXPECT_EQ(handled, 1);
    EXPECT_EQ(QVDeleteProbe::GetRegisteredCount(), probes);

    // What was posted to a target destroyed before the pump is dropped, and
    // so are its timers.
    auto* gone = new RecordingTarget;
    gone->Create();
    gone->Post(Command(1));
    gone->SetTimer(1, 1);
    delete gone;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(QVPumpMessages(), 0);

    // A timer handler may destroy its target too.
    auto* ticking = new RecordingTarget;
    QVEvent fired;
    ticking->onTimer = [ticking, &fired](int32_t)
    {
        QVEvent& done = fired;  // this lambda goes with its target
        delete ticking;
        done.Set();
    };
    ticking->SetTimer(3, 1);
    EXPECT_TRUE(PumpUntil(fired));
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(QVPumpMessages(), 0);
}

TEST(QVCmdTargetTest, TimersRepeatRestartAndNeverFireEarly)
{
    RecordingTarget target;
    QVEvent tick(false, false);
    target.onTimer = [&tick](int32_t) { tick.Set(); };
    const Clock::time_point start = Clock::now();
    ASSERT_TRUE(target.SetTimer(5, 30));
    ASSERT_TRUE(PumpUntil(tick));
    EXPECT_GE(MillisecondsSince(start), 30);
    const Clock::time_point second = Clock::now();
    ASSERT_TRUE(PumpUntil(tick));              // periodic until killed
    EXPECT_GE(MillisecondsSince(second), 29);  // the first tick's time is rounded
    ASSERT_EQ(target.ticks.size(), 2u);
    EXPECT_EQ(target.ticks[0].id, 5);
    EXPECT_EQ(target.ticks[1].threadID, QVGetCurrentThreadID());

    // Setting it again restarts its period.
    const Clock::time_point restart = Clock::now();
    ASSERT_TRUE(target.SetTimer(5, 60));
    ASSERT_TRUE(PumpUntil(tick));
    EXPECT_GE(MillisecondsSince(restart), 60);

    EXPECT_TRUE(target.KillTimer(5));
    EXPECT_FALSE(target.KillTimer(5));
    const size_t ticks = target.ticks.size();
    QVEvent never;
    QVEvent* events[] = {&never};
    EXPECT_EQ(QVPumpMessagesUntil(events, 1, 100), QVEvent::WAIT_TIMEOUT);
    EXPECT_EQ(target.ticks.size(), ticks);
}

TEST(QVCmdTargetTest, SetTimerFromAWorkerTakesEffectOnTheOwnerThread)
{
    RecordingTarget target;
    target.Create();
    QVEvent tick(false, false);
    target.onTimer = [&tick](int32_t) { tick.Set(); };
    BodyThread worker(
        [&target](QVThread&)
        {
            EXPECT_FALSE(target.IsOwnerThread());
            target.SetTimer(9, 10);
        });
    ASSERT_TRUE(worker.StartThread());
    worker.Wait();
    // Nothing runs before the owner dispatches the posted command.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_TRUE(target.ticks.empty());
    ASSERT_TRUE(PumpUntil(tick));
    ASSERT_FALSE(target.ticks.empty());
    EXPECT_EQ(target.ticks[0].id, 9);
    EXPECT_EQ(target.ticks[0].threadID, QVGetCurrentThreadID());
    EXPECT_TRUE(target.commands.empty());  // timer commands are not the handler's

    // A kill from a worker stops it once dispatched.
    BodyThread killer([&target](QVThread&) { target.KillTimer(9); });
    ASSERT_TRUE(killer.StartThread());
    killer.Wait();
    QVPumpMessages();
    const size_t ticks = target.ticks.size();
    QVEvent never;
    QVEvent* events[] = {&never};
    EXPECT_EQ(QVPumpMessagesUntil(events, 1, 60), QVEvent::WAIT_TIMEOUT);
    EXPECT_EQ(target.ticks.size(), ticks);
}

TEST(QVCmdTargetTest, ManyThreadsPostingReachTheTargetOnceEachInTheirOrder)
{
    constexpr int32_t THREADS = 6;
    constexpr int32_t PER_THREAD = 2000;
    RecordingTarget target;
    target.Create();
    QVEvent allReceived;
    target.onCommand = [&](const QVCmd&)
    {
        if (target.commands.size() == static_cast<size_t>(THREADS * PER_THREAD))
            allReceived.Set();
    };
    std::vector<std::unique_ptr<BodyThread>> posters;
    for (int32_t thread = 0; thread < THREADS; ++thread)
    {
        posters.push_back(std::make_unique<BodyThread>(
            [&target, thread](QVThread&)
            {
                for (int32_t sequence = 0; sequence < PER_THREAD; ++sequence)
                    target.Post(Command(thread, sequence));
            }));
    }
    for (auto& poster : posters)
        ASSERT_TRUE(poster->StartThread());
    ASSERT_TRUE(PumpUntil(allReceived));
    for (auto& poster : posters)
        poster->Wait();
    QVPumpMessages();
    ASSERT_EQ(target.commands.size(), static_cast<size_t>(THREADS * PER_THREAD));
    std::vector<intptr_t> next(THREADS, 0);
    for (const RecordingTarget::Entry& entry : target.commands)
    {
        ASSERT_GE(entry.id, 0);
        ASSERT_LT(entry.id, THREADS);
        ASSERT_EQ(entry.arg1, next[entry.id]) << "thread " << entry.id;
        ++next[entry.id];
        ASSERT_EQ(entry.threadID, QVGetCurrentThreadID());
    }
}

TEST(QVCmdTargetTest, AStopThatPumpsLetsAWorkerFinishThatNeedsItsOwner)
{
    // The worker's last step needs an answer from the thread that stops it;
    // a Stop that kept no commands moving would wait out its limit.
    RecordingTarget owner;
    owner.Create();
    QVEvent answered;
    owner.onCommand = [&answered](const QVCmd&) { answered.Set(); };
    std::atomic<bool> finished{false};
    BodyThread worker(
        [&](QVThread& self)
        {
            self.WaitUntilStopped();
            owner.Post(Command(1));
            if (answered.Wait(5000))
                finished = true;
        });
    worker.pumpWhileStopping = true;
    ASSERT_TRUE(worker.StartThread());
    const Clock::time_point start = Clock::now();
    worker.Stop(4000);
    EXPECT_TRUE(finished);
    EXPECT_LT(MillisecondsSince(start), 4000);
    ASSERT_EQ(owner.commands.size(), 1u);
    EXPECT_EQ(owner.commands[0].threadID, QVGetCurrentThreadID());
}
