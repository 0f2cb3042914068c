#pragma once

// One save, one update of the store. A plug-in or a panel saves several values
// at a time, and a command reads a list, changes it and writes it back; each
// must reach the store as a whole, or another writer running at the same time
// (or a crash half way) would lose part of it.
//
// CSettingsTransaction opens such a scope on the calling thread. While one is
// open, a store that supports it (the settings file of the build without the
// host does) takes its lock at the first access, reads its contents once,
// serves every read and gathers every write in memory, and writes once when
// the outermost scope ends. Scopes nest: an inner one joins the outer one.
// A store that knows nothing of transactions simply goes on writing value by
// value.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// What a store keeps for the open transaction of a thread: its lock and the
// changes gathered so far. Destroying it without Commit drops the changes.
class IQVSettingsBatch
{
public:
    virtual ~IQVSettingsBatch() = default;
    // Writes the gathered changes; false with the reason when they did not
    // reach the store.
    virtual bool Commit(std::string& problem) = 0;
};

class CSettingsTransaction
{
public:
    CSettingsTransaction();
    // Commits when this is the outermost scope and Commit was not called,
    // unless an exception is leaving the scope: a save cut short by one is
    // dropped whole.
    ~CSettingsTransaction();
    CSettingsTransaction(const CSettingsTransaction&) = delete;
    CSettingsTransaction& operator=(const CSettingsTransaction&) = delete;

    // Ends this scope now. The outermost scope writes everything gathered;
    // an inner one leaves that to the outermost and answers true.
    bool Commit();
    // Why the last Commit failed.
    const std::string& GetProblem() const { return problem; }

    // Whether the calling thread has a scope open.
    static bool IsOpen();
    // The batch a store enlisted under id in the open transaction, or null.
    static IQVSettingsBatch* FindBatch(const std::string& id);
    // Hands a batch to the open transaction, which commits it at its end.
    static IQVSettingsBatch& Enlist(const std::string& id, std::unique_ptr<IQVSettingsBatch> batch);

    // What the outermost scope of a thread keeps for all scopes of it.
    struct State
    {
        int depth = 0;
        std::vector<std::pair<std::string, std::unique_ptr<IQVSettingsBatch>>> batches;
    };

private:
    std::unique_ptr<State> owned;  // the outermost scope only
    bool open = true;
    int uncaughtAtStart;
    std::string problem;
};
