#include "frame/SettingsTransaction.h"

#include <exception>
#include <utility>
#include <vector>

namespace
{

// The transaction of one thread: each thread saves on its own, so a plug-in's
// panel thread and a command's thread never share a scope. A plain pointer to
// state that the outermost scope owns: a thread-local object with a destructor
// would keep the module from ever being unloaded.
thread_local CSettingsTransaction::State* current = nullptr;

// Commits every batch in the order the stores were first reached, then
// releases them all (and with them the stores' locks).
bool CommitAll(std::vector<std::pair<std::string, std::unique_ptr<IQVSettingsBatch>>>& batches,
               std::string& problem)
{
    bool committed = true;
    for (auto& [id, batch] : batches)
    {
        std::string reason;
        if (!batch->Commit(reason))
        {
            if (committed)
                problem = reason;
            committed = false;
        }
    }
    batches.clear();
    return committed;
}

}  // namespace

CSettingsTransaction::CSettingsTransaction() : uncaughtAtStart(std::uncaught_exceptions())
{
    if (current == nullptr)
    {
        owned = std::make_unique<State>();
        current = owned.get();
    }
    ++current->depth;
}

CSettingsTransaction::~CSettingsTransaction()
{
    if (!open || current == nullptr)
        return;  // ended, or its outermost scope already committed
    if (std::uncaught_exceptions() > uncaughtAtStart)
    {
        open = false;
        if (--current->depth == 0)
        {
            current->batches.clear();
            current = nullptr;
        }
        return;
    }
    Commit();
}

bool CSettingsTransaction::Commit()
{
    if (!open || current == nullptr)
    {
        open = false;
        return problem.empty();
    }
    open = false;
    problem.clear();
    if (--current->depth > 0)
        return true;
    // The thread's scope ends before the batches write, so that a store
    // reached while committing starts a transaction of its own.
    current = nullptr;
    return CommitAll(owned->batches, problem);
}

bool CSettingsTransaction::IsOpen()
{
    return current != nullptr;
}

IQVSettingsBatch* CSettingsTransaction::FindBatch(const std::string& id)
{
    if (current == nullptr)
        return nullptr;
    for (auto& [batchId, batch] : current->batches)
    {
        if (batchId == id)
            return batch.get();
    }
    return nullptr;
}

IQVSettingsBatch& CSettingsTransaction::Enlist(const std::string& id,
                                               std::unique_ptr<IQVSettingsBatch> batch)
{
    current->batches.emplace_back(id, std::move(batch));
    return *current->batches.back().second;
}
