// A host for tests: it counts what plug-ins tell it and, when given one, offers
// a player whose level control keeps the adaptive mode.
#pragma once

#include <cstdint>

#include "qvdsp/IQVDSP.h"

namespace qvtest
{

// Player and level control in one: keeps the mode, counts reads and writes.
class TestPlayer : public IQVDSPPlayer, public IQVDSPLevelControl
{
public:
    explicit TestPlayer(bool hasLevelControl = true) : hasLevelControl(hasLevelControl) {}
    virtual ~TestPlayer() = default;

    IQVDSPLevelControl* GetLevelControl() override { return hasLevelControl ? this : nullptr; }
    int32_t GetAdaptiveMode() override;
    void SetAdaptiveMode(int32_t value) override;

    bool hasLevelControl;
    int32_t mode = 0;
    int32_t modeReads = 0;
    int32_t modeWrites = 0;
};

class CountingHost : public IQVDSPHost
{
public:
    explicit CountingHost(IQVDSPPlayer* player = nullptr) : player(player) {}
    virtual ~CountingHost() = default;

    void NotifyChanged(bool changed) override;
    void NotifyTempoChanged() override { ++tempoChangedCalls; }
    IQVDSPPlayer* GetPlayer() override;

    IQVDSPPlayer* player;
    int32_t changedCalls = 0;
    int32_t changedFalseCalls = 0;  // NotifyChanged(false); plug-ins always pass true
    int32_t tempoChangedCalls = 0;
    int32_t getPlayerCalls = 0;
};

}  // namespace qvtest
