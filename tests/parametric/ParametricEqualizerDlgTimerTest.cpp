// The panel's pending save timed by a timer of its thread instead of the
// explicit clock: each change restarts it, and it fires only when the thread
// pumps its timers.
#include "parametric/ParametricEqualizerDlg.h"

#include <chrono>

#include "ParametricTestSupport.h"
#include "core/QVCmdTarget.h"
#include "parametric/ParametricEqualizerPlugin.h"
#include "support/TestHost.h"

using namespace ptest;

namespace
{

using Clock = std::chrono::steady_clock;

int64_t MillisecondsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

// Runs the thread's timers for `milliseconds`, or until the save is done.
void PumpWhilePending(CParametricEqualizerDlg& panel, int64_t milliseconds)
{
    QVEvent never;
    QVEvent* events[] = {&never};
    const Clock::time_point start = Clock::now();
    while (panel.IsSavePending() && MillisecondsSince(start) < milliseconds)
        QVPumpMessagesUntil(events, 1, 5);
}

}  // namespace

TEST(ParametricEqualizerDlgTimer, PendingSaveFiresFromTheThreadTimerAfterTheLastChange)
{
    ScopedStore store;
    qvtest::CountingHost host;
    CParametricEqualizerDSPPlugin plugin(&host, 1, 0);
    plugin.Command(DSPCMD_OPEN_PANEL, nullptr, nullptr);
    CParametricEqualizerDlg* panel = plugin.GetPanel();
    ASSERT_NE(panel, nullptr);
    panel->UseThreadTimer();

    EXPECT_EQ(panel->AddFilter(3, 0), 0);
    EXPECT_TRUE(panel->IsSavePending());
    panel->AdvanceClock(2 * CParametricEqualizerDlg::SAVE_DELAY_MS);  // no longer the save's clock
    EXPECT_TRUE(panel->IsSavePending());
    EXPECT_EQ(host.changedCalls, 0);

    PumpWhilePending(*panel, 300);
    EXPECT_TRUE(panel->IsSavePending());
    const Clock::time_point lastChange = Clock::now();
    EXPECT_EQ(panel->AddFilter(4, 1), 1);  // restarts the timer
    PumpWhilePending(*panel, 5000);
    EXPECT_FALSE(panel->IsSavePending());
    EXPECT_GE(MillisecondsSince(lastChange), CParametricEqualizerDlg::SAVE_DELAY_MS);
    EXPECT_EQ(host.changedCalls, 1);  // one save for both changes
    {
        CParametricEqualizerDSPPlugin reloaded(nullptr, 1, 0);
        EXPECT_EQ(reloaded.GetFilterList().GetCount(), 2);
    }

    // The timer is one-shot: nothing more is saved without a change, and a
    // close with a change pending saves at once.
    QVEvent never;
    QVEvent* events[] = {&never};
    QVPumpMessagesUntil(events, 1, 50);
    EXPECT_EQ(host.changedCalls, 1);
    panel->SetItemEnabled(0, false);
    EXPECT_EQ(plugin.Command(DSPCMD_CLOSE_PANEL, nullptr, nullptr), 0);
    EXPECT_EQ(host.changedCalls, 2);
    CParametricEqualizerDSPPlugin reloaded(nullptr, 1, 0);
    ASSERT_EQ(reloaded.GetFilterList().GetCount(), 2);
    EXPECT_FALSE(reloaded.GetFilterList().GetAt(0)->IsEnabled());
}
