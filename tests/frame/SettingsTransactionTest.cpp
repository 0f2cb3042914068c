// The scope of one save: batches a store enlists are committed once, by the
// outermost scope, and dropped when an exception leaves it.
#include "frame/SettingsTransaction.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{

// Notes what happens to it in a journal that outlives it.
class JournalBatch : public IQVSettingsBatch
{
public:
    JournalBatch(std::vector<std::string>& journal, std::string name, bool succeeds = true)
        : journal(journal), name(std::move(name)), succeeds(succeeds)
    {
    }
    ~JournalBatch() override { journal.push_back("released " + name); }
    bool Commit(std::string& problem) override
    {
        journal.push_back("committed " + name);
        if (!succeeds)
            problem = name + " is full";
        return succeeds;
    }

private:
    std::vector<std::string>& journal;
    std::string name;
    bool succeeds;
};

IQVSettingsBatch& Enlist(std::vector<std::string>& journal, const std::string& name,
                         bool succeeds = true)
{
    return CSettingsTransaction::Enlist(name,
                                        std::make_unique<JournalBatch>(journal, name, succeeds));
}

}  // namespace

TEST(SettingsTransaction, OnlyTheOutermostScopeCommitsAndEveryBatchOnce)
{
    std::vector<std::string> journal;
    EXPECT_FALSE(CSettingsTransaction::IsOpen());
    {
        CSettingsTransaction outer;
        EXPECT_TRUE(CSettingsTransaction::IsOpen());
        IQVSettingsBatch& a = Enlist(journal, "a");
        {
            CSettingsTransaction inner;
            // The inner scope finds what the outer one enlisted, and adds to it.
            EXPECT_EQ(CSettingsTransaction::FindBatch("a"), &a);
            Enlist(journal, "b");
            EXPECT_TRUE(inner.Commit());
            EXPECT_TRUE(journal.empty()) << "an inner scope must not write";
        }
        EXPECT_TRUE(CSettingsTransaction::IsOpen());
        EXPECT_NE(CSettingsTransaction::FindBatch("b"), nullptr);
        EXPECT_EQ(CSettingsTransaction::FindBatch("c"), nullptr);
    }
    EXPECT_FALSE(CSettingsTransaction::IsOpen());
    EXPECT_EQ(journal,
              (std::vector<std::string>{"committed a", "committed b", "released a", "released b"}));
    // A new transaction starts empty.
    CSettingsTransaction next;
    EXPECT_EQ(CSettingsTransaction::FindBatch("a"), nullptr);
}

TEST(SettingsTransaction, AFailedBatchFailsTheCommitWithItsReasonAndTheOthersStillCommit)
{
    std::vector<std::string> journal;
    CSettingsTransaction transaction;
    Enlist(journal, "disk", false);
    Enlist(journal, "other");
    EXPECT_FALSE(transaction.Commit());
    EXPECT_EQ(transaction.GetProblem(), "disk is full");
    EXPECT_EQ(journal, (std::vector<std::string>{"committed disk", "committed other",
                                                 "released disk", "released other"}));
    EXPECT_FALSE(CSettingsTransaction::IsOpen());
}

TEST(SettingsTransaction, AnExceptionLeavingTheOutermostScopeDropsTheSave)
{
    std::vector<std::string> journal;
    try
    {
        CSettingsTransaction outer;
        Enlist(journal, "half");
        {
            CSettingsTransaction inner;
            throw std::runtime_error("cut short");
        }
    }
    catch (const std::runtime_error&)
    {
    }
    EXPECT_EQ(journal, (std::vector<std::string>{"released half"}));
    EXPECT_FALSE(CSettingsTransaction::IsOpen());
}

TEST(SettingsTransaction, EachThreadHasItsOwnScope)
{
    std::vector<std::string> journal;
    CSettingsTransaction transaction;
    Enlist(journal, "main");
    bool openElsewhere = true;
    bool foundElsewhere = true;
    std::thread other(
        [&]
        {
            openElsewhere = CSettingsTransaction::IsOpen();
            foundElsewhere = CSettingsTransaction::FindBatch("main") != nullptr;
        });
    other.join();
    EXPECT_FALSE(openElsewhere);
    EXPECT_FALSE(foundElsewhere);
}
