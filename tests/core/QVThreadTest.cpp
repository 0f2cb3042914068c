#include "core/QVThread.h"

#include <gtest/gtest.h>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "support/TestTools.h"

namespace
{

using Clock = std::chrono::steady_clock;

int64_t MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Polls `done` for up to five seconds; the bound keeps a broken test from hanging.
bool Eventually(const std::function<bool()>& done)
{
    const Clock::time_point start = Clock::now();
    while (!done())
    {
        if (MillisecondsSince(start) > 5000)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// What a worker's run leaves behind. Shared, so that a worker that was given
// up can still write here after its QVThread is gone.
struct RunRecord
{
    std::atomic<bool> entered{false};
    std::atomic<bool> returned{false};
    std::atomic<bool> release{false};  // lets a stuck worker go
    std::atomic<uint64_t> threadHandle{0};
    std::atomic<int> nice{0};
    std::atomic<int> waitResult{-99};
    std::atomic<int> readError{0};
};

// Runs `body` with the record; the body reads no member after its start.
class LambdaThread : public QVThread
{
public:
    using Body = std::function<void(QVThread&, RunRecord&)>;
    LambdaThread(std::shared_ptr<RunRecord> record, Body body, bool killable = true)
        : record(std::move(record)), body(std::move(body)), killable(killable)
    {
    }
    ~LambdaThread() override { Stop(-1); }

protected:
    void Run() override
    {
        std::shared_ptr<RunRecord> own = record;
        Body ownBody = body;
        own->threadHandle = static_cast<uint64_t>(pthread_self());
        own->nice = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
        own->entered = true;
        ownBody(*this, *own);
        own->returned = true;
    }
    bool CanBeKilled() const override { return killable; }

private:
    std::shared_ptr<RunRecord> record;
    Body body;
    bool killable;
};

std::string Hex(uint64_t value)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%llx", static_cast<unsigned long long>(value));
    return text;
}

}  // namespace

TEST(QVEventTest, ManualAndAutomaticResetAndWaitingOnSeveral)
{
    QVEvent manual(true, false), automatic(false, false);
    EXPECT_FALSE(manual.Wait(0));
    manual.Set();
    EXPECT_TRUE(manual.Wait(0));
    EXPECT_TRUE(manual.Wait(0));  // stays set
    manual.Reset();
    EXPECT_FALSE(manual.IsSet());
    automatic.Set();
    EXPECT_TRUE(automatic.Wait(0));
    EXPECT_FALSE(automatic.Wait(0));  // the first wait took it

    // The first set event by index; null entries are skipped; a timed-out
    // wait never returns before its limit.
    QVEvent* events[] = {&manual, nullptr, &automatic};
    automatic.Set();
    EXPECT_EQ(QVEvent::WaitAny(events, 3, 0), 2);
    EXPECT_EQ(QVEvent::WaitAny(events, 3, 0), QVEvent::WAIT_TIMEOUT);
    Clock::time_point start = Clock::now();
    EXPECT_EQ(QVEvent::WaitAny(events, 3, 30), QVEvent::WAIT_TIMEOUT);
    EXPECT_GE(MillisecondsSince(start), 30);

    // Set from another thread ends a wait with no limit.
    std::thread setter(
        [&automatic]
        {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            automatic.Set();
        });
    EXPECT_EQ(QVEvent::WaitAny(events, 3, -1), 2);
    setter.join();

    // One Set of an automatic event releases exactly one of two waiters.
    std::atomic<int> woken{0};
    auto waiter = [&automatic, &woken]
    {
        if (automatic.Wait(300))
            ++woken;
    };
    std::thread first(waiter), second(waiter);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    automatic.Set();
    first.join();
    second.join();
    EXPECT_EQ(woken.load(), 1);
}

TEST(QVThreadTest, CooperativeThreadsStopWithinTheirLimitAndRestart)
{
    qvtest::ScopedTestTools tools;
    auto record = std::make_shared<RunRecord>();
    LambdaThread worker(record,
                        [](QVThread& self, RunRecord& own)
                        {
                            own.waitResult = self.WaitForEvents(-1);  // sleeps until the stop event
                        });
    EXPECT_FALSE(worker.IsRunning());
    ASSERT_TRUE(worker.StartThread());
    EXPECT_TRUE(worker.IsRunning());
    ASSERT_TRUE(Eventually([&] { return record->entered.load(); }));
    EXPECT_EQ(worker.WaitForEvents(0), QVThread::WAIT_TIMEOUT);
    worker.Stop(-1);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_TRUE(worker.IsStopping());
    EXPECT_TRUE(record->returned);
    EXPECT_EQ(record->waitResult, QVThread::WAIT_STOP);

    // A new start clears the flag and the event of the last stop.
    auto second = std::make_shared<RunRecord>();
    LambdaThread sleeper(second,
                         [](QVThread& self, RunRecord& own)
                         {
                             self.WaitUntilStopped();
                             own.waitResult = 1;
                         });
    ASSERT_TRUE(sleeper.StartThread());
    ASSERT_TRUE(sleeper.StartThread());  // stops the first run, then starts anew
    EXPECT_EQ(sleeper.GetStartCount(), 2);
    EXPECT_FALSE(sleeper.IsStopping());
    EXPECT_FALSE(sleeper.GetStopEvent().IsSet());
    sleeper.Stop(2000);
    EXPECT_FALSE(sleeper.IsRunning());
    EXPECT_EQ(second->waitResult, 1);
    EXPECT_TRUE(tools.tools.logger.texts.empty());
}

TEST(QVThreadTest, StopOnAThreadThatEndedByItselfReturnsAtOnce)
{
    qvtest::ScopedTestTools tools;
    auto record = std::make_shared<RunRecord>();
    LambdaThread worker(record, [](QVThread&, RunRecord&) {});
    ASSERT_TRUE(worker.StartThread());
    // The owner sees the end through the wait as well as through the handle.
    EXPECT_EQ(worker.WaitForEvents(5000), QVThread::WAIT_THREAD_END);
    worker.Wait();
    EXPECT_FALSE(worker.IsRunning());
    worker.Stop(5000);
    // Stop found the handle cleared and returned before even raising the flag.
    EXPECT_FALSE(worker.IsStopping());
    EXPECT_TRUE(tools.tools.logger.texts.empty());
}

TEST(QVThreadTest, StopZeroGivesUpOnAThreadThatIgnoresItsFlag)
{
    qvtest::ScopedTestTools tools;
    auto record = std::make_shared<RunRecord>();
    auto worker = std::make_unique<LambdaThread>(record,
                                                 [](QVThread&, RunRecord& own)
                                                 {
                                                     // Ignores the flag, and sleeps in a way no
                                                     // signal cuts short.
                                                     while (!own.release)
                                                         std::this_thread::sleep_for(
                                                             std::chrono::milliseconds(1));
                                                 });
    ASSERT_TRUE(worker->StartThread());
    ASSERT_TRUE(Eventually([&] { return record->entered.load(); }));
    const Clock::time_point start = Clock::now();
    worker->Stop(0);
    const int64_t elapsed = MillisecondsSince(start);
    EXPECT_FALSE(worker->IsRunning());
    EXPECT_FALSE(record->returned);
    // The first look after the first interval finds it past the limit; one
    // interrupt gets its grace time, then the thread is given up.
    EXPECT_GE(elapsed, QVThread::INTERRUPT_GRACE_MS);
    EXPECT_LT(elapsed, 2000);
    const std::string expected =
        "Hard killing thread (handle=" + Hex(record->threadHandle) + "), it exceeded timeout=0 MS";
    ASSERT_EQ(tools.tools.logger.texts.size(), 2u);  // before the interrupt and at the end
    for (size_t i = 0; i < 2; ++i)
    {
        EXPECT_EQ(tools.tools.logger.headings[i], "QVThread::Stop");
        EXPECT_EQ(tools.tools.logger.texts[i], expected);
        EXPECT_EQ(tools.tools.logger.levels[i], 1);
    }
    // The object goes while its thread still runs; when the thread ends, its
    // last steps must not touch the freed object (AddressSanitizer watches).
    worker.reset();
    record->release = true;
    EXPECT_TRUE(Eventually([&] { return record->returned.load(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // past the last steps
}

TEST(QVThreadTest, StopInterruptsABlockingReadAndTheThreadEndsByItself)
{
    qvtest::ScopedTestTools tools;
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    auto record = std::make_shared<RunRecord>();
    const int readEnd = pipeEnds[0];
    LambdaThread reader(record,
                        [readEnd](QVThread& self, RunRecord& own)
                        {
                            char byte = 0;
                            while (!self.IsStopping())
                            {
                                if (read(readEnd, &byte, 1) < 0)
                                    own.readError = errno;
                            }
                        });
    ASSERT_TRUE(reader.StartThread());
    ASSERT_TRUE(Eventually([&] { return record->entered.load(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // into the read
    reader.Stop(50);
    EXPECT_FALSE(reader.IsRunning());
    EXPECT_TRUE(record->returned);  // it saw its flag once the read ended
    EXPECT_EQ(record->readError, EINTR);
    ASSERT_EQ(tools.tools.logger.texts.size(), 1u);
    EXPECT_EQ(tools.tools.logger.texts[0],
              "Hard killing thread (handle=" + Hex(record->threadHandle) +
                  "), it exceeded timeout=50 MS");
    close(pipeEnds[0]);
    close(pipeEnds[1]);
}

TEST(QVThreadTest, AThreadThatMayNotBeKilledIsWaitedFor)
{
    qvtest::ScopedTestTools tools;
    auto record = std::make_shared<RunRecord>();
    LambdaThread worker(
        record,
        [](QVThread&, RunRecord&) { std::this_thread::sleep_for(std::chrono::milliseconds(150)); },
        false);
    ASSERT_TRUE(worker.StartThread());
    worker.Stop(0);
    EXPECT_TRUE(record->returned);
    EXPECT_FALSE(worker.IsRunning());
    EXPECT_TRUE(tools.tools.logger.texts.empty());
}

TEST(QVThreadTest, PriorityMovesTheNiceValueAsFarAsAllowed)
{
    const int base = getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
    for (int32_t priority : {QVThread::PRIORITY_NORMAL, QVThread::PRIORITY_BELOW_NORMAL,
                             QVThread::PRIORITY_LOWEST, QVThread::PRIORITY_IDLE})
    {
        auto record = std::make_shared<RunRecord>();
        LambdaThread worker(record, [](QVThread&, RunRecord&) {});
        ASSERT_TRUE(worker.StartThread(priority));
        worker.Wait();
        EXPECT_EQ(record->nice, std::min(base - priority * QVThread::NICE_PER_STEP, 19))
            << priority;
    }
}
