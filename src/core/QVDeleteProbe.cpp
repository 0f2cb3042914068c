#include "core/QVDeleteProbe.h"

#include <mutex>

namespace
{

// Probes are few and short-lived (one per dispatch in progress), so a plain
// array searched from the end, where the newest are, is all it takes.
struct ProbeRegistry
{
    std::recursive_mutex lock;
    QVNumberArray<QVDeleteProbe*> probes;
};

ProbeRegistry& Registry()
{
    // Never destroyed: a probe may outlive static destruction in a thread
    // that is still winding down.
    static ProbeRegistry* registry = new ProbeRegistry;
    return *registry;
}

}  // namespace

QVDeleteProbe::QVDeleteProbe(const void* target) : target(target)
{
    ProbeRegistry& registry = Registry();
    std::lock_guard<std::recursive_mutex> guard(registry.lock);
    registry.probes.Add(this);
}

QVDeleteProbe::~QVDeleteProbe()
{
    ProbeRegistry& registry = Registry();
    std::lock_guard<std::recursive_mutex> guard(registry.lock);
    for (int32_t i = registry.probes.GetCount() - 1; i >= 0; --i)
    {
        if (registry.probes[i] == this)
        {
            registry.probes.RemoveAt(i);
            break;
        }
    }
}

int32_t QVDeleteProbe::TargetDestroyed(const void* target)
{
    ProbeRegistry& registry = Registry();
    std::lock_guard<std::recursive_mutex> guard(registry.lock);
    int32_t marked = 0;
    for (QVDeleteProbe* probe : registry.probes)
    {
        if (probe->target == target)
        {
            probe->deleted.store(true, std::memory_order_release);
            ++marked;
        }
    }
    return marked;
}

int32_t QVDeleteProbe::GetRegisteredCount()
{
    ProbeRegistry& registry = Registry();
    std::lock_guard<std::recursive_mutex> guard(registry.lock);
    return registry.probes.GetCount();
}
