#include "support/TestHost.h"

namespace qvtest
{

int32_t TestPlayer::GetAdaptiveMode()
{
    ++modeReads;
    return mode;
}

void TestPlayer::SetAdaptiveMode(int32_t value)
{
    ++modeWrites;
    mode = value;
}

void CountingHost::NotifyChanged(bool changed)
{
    ++changedCalls;
    if (!changed)
        ++changedFalseCalls;
}

IQVDSPPlayer* CountingHost::GetPlayer()
{
    ++getPlayerCalls;
    return player;
}

}  // namespace qvtest
