// Lets code that calls out to a handler learn whether the handler destroyed
// the object it was working on, without touching that object again.
//
//     QVDeleteProbe probe(this);
//     OnCommand(cmd);            // may delete this
//     if (probe.IsDeleted())
//         return;                // nothing of this may be touched
//
// Probes live on the caller's stack and register themselves in one process-wide
// registry; a probed class calls QVDeleteProbe::TargetDestroyed(this) from its
// destructor, which marks every probe watching it.
#pragma once

#include <atomic>

#include "core/QVArray.h"

class IQVDeleteProbe
{
public:
    bool IsDeleted() const { return deleted.load(std::memory_order_acquire); }

protected:
    ~IQVDeleteProbe() = default;
    std::atomic<bool> deleted{false};
};

class QVDeleteProbe final : public IQVDeleteProbe
{
public:
    explicit QVDeleteProbe(const void* target);
    ~QVDeleteProbe();
    QVDeleteProbe(const QVDeleteProbe&) = delete;
    QVDeleteProbe& operator=(const QVDeleteProbe&) = delete;

    const void* GetTarget() const { return target; }

    // Marks every probe on `target`; returns how many there were.
    static int32_t TargetDestroyed(const void* target);
    // Probes registered now, in all threads.
    static int32_t GetRegisteredCount();

private:
    const void* target;
};
