// The panel's timers as timers of the thread that owns it instead of the
// explicit clock: they fire only when that thread pumps, never on another.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "ConvolutionTestSupport.h"
#include "convolution/ConvolutionDlg.h"
#include "convolution/ConvolutionPlugin.h"
#include "core/QVCmdTarget.h"
#include "support/TestHost.h"
#include "support/TestSupport.h"

using namespace convtest;

namespace
{

using Clock = std::chrono::steady_clock;

int64_t MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Pumps the calling thread's commands and timers for `milliseconds`, or
// until the panel's filter timer is no longer armed.
void PumpWhileArmed(CConvolutionDlg& panel, int64_t milliseconds)
{
    QVEvent never;
    QVEvent* events[] = {&never};
    const Clock::time_point start = Clock::now();
    while (panel.IsFilterTimerArmed() && MillisecondsSince(start) < milliseconds)
        QVPumpMessagesUntil(events, 1, 5);
}

// Tells which thread each change notification came from.
class ThreadRecordingHost : public qvtest::CountingHost
{
public:
    void NotifyChanged(bool changed) override
    {
        CountingHost::NotifyChanged(changed);
        threads.push_back(std::this_thread::get_id());
    }
    std::vector<std::thread::id> threads;
};

}  // namespace

TEST(ConvolutionDlgTimer, ThreadTimersFireOnTheOwnerThreadOnlyAfterTheLastEdit)
{
    TempFolder folder;
    const std::string first = folder.File("first.wav");
    const std::string second = folder.File("second.wav");
    for (const std::string& name : {first, second})
        WriteWav(name, Interleave({DecayingImpulse(300, 1), DecayingImpulse(300, 2)}), 2, 48000);
    qvtest::ScopedFileStore store;
    ThreadRecordingHost host;
    CConvolutionDSPPlugin plugin(&host, 0);
    plugin.GetConvolution().SetSmallFilters(true);
    plugin.GetConvolution().SetVolumeMode(1);
    plugin.SetFormat(MakeFormat(2));
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    CConvolutionDlg& panel = *plugin.GetPanel();
    panel.UseThreadTimers();

    panel.EditFilter(QVString::FromUTF8(first), 0);
    // Another thread's pumping runs none of the panel's timers, however long.
    std::thread(
        []
        {
            QVEvent never;
            QVEvent* events[] = {&never};
            QVPumpMessagesUntil(events, 1, 1300);
        })
        .join();
    panel.AdvanceClock(10000);  // no longer the timers' clock
    EXPECT_TRUE(panel.IsFilterTimerArmed());
    EXPECT_EQ(panel.GetStatusRepaints(), 0);
    EXPECT_FALSE(plugin.GetConvolution().IsValid());

    // The owner's pump finds both overdue.
    PumpWhileArmed(panel, 5000);
    EXPECT_FALSE(panel.IsFilterTimerArmed());
    EXPECT_TRUE(plugin.GetConvolution().IsValid());
    ASSERT_EQ(host.threads.size(), 1u);
    EXPECT_EQ(host.threads[0], std::this_thread::get_id());
    EXPECT_GE(panel.GetStatusRepaints(), 1);

    // Each edit re-arms the filter timer: the half-typed name is never loaded.
    panel.EditFilter(QVString::FromUTF8(second.substr(0, 8)), 0);
    PumpWhileArmed(panel, 400);
    ASSERT_TRUE(panel.IsFilterTimerArmed());
    const Clock::time_point lastEdit = Clock::now();
    panel.EditFilter(QVString::FromUTF8(second), 0);
    PumpWhileArmed(panel, 5000);
    EXPECT_GE(MillisecondsSince(lastEdit), CConvolutionDlg::FILTER_TIMER_MS);
    ASSERT_EQ(panel.GetFilterList().GetCount(), 2);
    EXPECT_EQ(panel.GetFilterList()[0].ToUTF8(), second);
    EXPECT_EQ(panel.GetFilterList()[1].ToUTF8(), first);
    EXPECT_EQ(host.changedCalls, 2);

    // The status timer keeps repainting while the owner pumps: every second.
    const int32_t repaints = panel.GetStatusRepaints();
    QVEvent never;
    QVEvent* events[] = {&never};
    QVPumpMessagesUntil(events, 1, 1100);
    EXPECT_GE(panel.GetStatusRepaints(), repaints + 1);
    const std::string status = panel.GetStatusText().ToUTF8();
    EXPECT_NE(status.find("\r\nFilter: " + second), std::string::npos) << status;
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(host.changedCalls, 2);
}
