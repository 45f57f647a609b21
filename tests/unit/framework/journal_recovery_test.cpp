#include "framework/journal_recovery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "brisq_api.h"
#include "framework/database.h"
#include "framework/due.h"
#include "framework/file_swap.h"
#include "framework/fingerprint.h"
#include "framework/job_table.h"
#include "framework/line_undo.h"
#include "framework/request.h"
#include "framework/seal.h"
#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using journal::Recovered;
using journal::Step;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kId = "0123456789abcdef";
const Step kHead{"request", {{"name", "mailbox add"}, {"who", "alice"}, {"started", "then"}}};

class CountingAction : public brisq_api::Action {
 public:
  explicit CountingAction(std::vector<std::string>& calls)
      : Action("test.owed", 0, nullptr), calls_(calls) {}
  void Execute(brisq_api::Session& session) const override { calls_.push_back(session.Param("n")); }

 private:
  std::vector<std::string>& calls_;
};

class JournalRecoveryTest : public testing::Test {
 protected:
  JournalRecoveryTest() {
    mgr_seal::SetKeyFile(dir_ / "seal.key");
    mgr_db::OpenDatabase(dir_ / "panel.db");
    journal::SetFolder(dir_ / "journal");
  }
  ~JournalRecoveryTest() override {
    journal::SetFolder("");
    mgr_db::CloseDatabase();
  }

  // What a process that dies leaves behind: an entry without a holder.
  static void Leave(const std::vector<Step>& steps) {
    journal::Entry(kId, kHead).Write(steps, true);
  }
  static std::vector<Recovered> Recover() {
    return journal::RecoverDead([](const Recovered&) {});
  }
  Step Line(const line_undo::Change& change) const {
    return line_undo::ToStep(change, dir_ / "users", "line", "");
  }
  Step Swap(const std::string& old, const std::string& fresh) const {
    return {"swap",
            {{"path", dir_ / "file"}, {"aside", dir_ / "aside"}, {"old", old}, {"new", fresh}}};
  }
  bool Exists(const std::string& name) const { return std::filesystem::exists(dir_ / name); }
  std::string Users() const { return dir_.Read("users"); }

  support::TempDir dir_;
};

TEST_F(JournalRecoveryTest, WithoutADeadEntryNothingHappens) {
  EXPECT_THAT(Recover(), IsEmpty());
  EXPECT_THAT(job_table::Latest(0), IsEmpty());
}

TEST_F(JournalRecoveryTest, ARequestThatWasNotCommittedIsUndone) {
  dir_.Write("users", "a:1\nu:1\n");
  dir_.MakeFolder("made/deeper");
  dir_.Write("file", "fresh");
  dir_.Write("aside", "old");
  Leave({Line({"u", "", "u:1", ""}),
         {"sysdir", {{"path", dir_ / "made"}}},
         {"sysdir", {{"path", dir_ / "made/deeper"}}},
         Swap(fingerprint::OfContent("old"), fingerprint::OfContent("fresh")),
         {"call", {{"action", "test.owed"}}}});
  const auto recovered = Recover();
  ASSERT_EQ(1u, recovered.size());
  EXPECT_FALSE(recovered[0].committed);
  EXPECT_TRUE(recovered[0].lines_undone);
  EXPECT_TRUE(recovered[0].files_undone);
  EXPECT_THAT(recovered[0].left, IsEmpty());
  EXPECT_EQ("a:1\n", Users());
  EXPECT_FALSE(Exists("made"));
  EXPECT_EQ("old", dir_.Read("file"));
  EXPECT_FALSE(Exists("aside"));
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
  EXPECT_EQ(job_table::kUndone, job_table::OfEntry(kId)->state);
  EXPECT_THAT(journal::Words(recovered[0]),
              HasSubstr("undid job 1 (mailbox add by alice, then), whose process had died"));
}

TEST_F(JournalRecoveryTest, ARequestThatWasCommittedIsFinished) {
  std::vector<std::string> calls;
  const CountingAction action(calls);
  const std::size_t queued = due::QueuedCommands();
  dir_.Write("users", "u:1\n");
  dir_.Write("file", "fresh");
  dir_.Write("aside", "old");
  job_table::Add({0, kId, "mailbox add", "alice", "then", job_table::kDone, "", "", 0});
  Leave({Line({"u", "", "u:1", ""}),
         Swap(fingerprint::OfContent("old"), fingerprint::OfContent("fresh")),
         {"call", {{"action", "test.owed"}, {"params", "n=7"}}},
         {"call", {{"action", "test.gone"}, {"params", ""}}},
         {"command", {{"line", "true"}}}});
  const auto recovered = Recover();
  ASSERT_EQ(1u, recovered.size());
  EXPECT_TRUE(recovered[0].committed);
  EXPECT_EQ("u:1\n", Users());
  EXPECT_EQ("fresh", dir_.Read("file"));
  EXPECT_FALSE(Exists("aside"));
  EXPECT_THAT(calls, ElementsAre("7"));
  EXPECT_EQ(queued + 1, due::QueuedCommands());
  due::RunQueuedCommands();
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
  EXPECT_THAT(journal::Words(recovered[0]), HasSubstr("finished job 1"));
}

TEST_F(JournalRecoveryTest, ACommitWithoutADatabaseIsToldByTheEntry) {
  dir_.Write("users", "u:1\n");
  Leave({Line({"u", "", "u:1", ""}), {"committed", {}}});
  EXPECT_TRUE(Recover().front().committed);
  EXPECT_EQ("u:1\n", Users());
}

TEST_F(JournalRecoveryTest, WhatSomebodyElseHasChangedStaysAndIsSaid) {
  dir_.Write("users", "u:by hand\n");
  dir_.Write("file", "by hand");
  dir_.Write("aside", "old");
  dir_.Write("made/by hand", "");
  Leave({Line({"u", "u:1", "u:2", ""}),
         {"sysdir", {{"path", dir_ / "made"}, {"what", "directory made"}}},
         Swap(fingerprint::OfContent("old"), fingerprint::OfContent("fresh"))});
  const auto recovered = Recover();
  ASSERT_EQ(1u, recovered.size());
  EXPECT_EQ(3u, recovered[0].left.size());
  EXPECT_EQ("u:by hand\n", Users());
  EXPECT_EQ("by hand", dir_.Read("file"));
  EXPECT_TRUE(Exists("made/by hand"));
  EXPECT_THAT(journal::OpenEntries(), IsEmpty()) << "it is said once";
  EXPECT_THAT(journal::Words(recovered[0]), HasSubstr("not undone, changed since: "));
}

TEST_F(JournalRecoveryTest, WhatTheSystemRefusesIsTriedAgain) {
  dir_.Write("users", "a:1\nu:1\n");
  Leave({Line({"u", "", "u:1", ""})});
  {
    support::SysFault fault;
    fault.FailCall("rename", EIO);
    const auto recovered = Recover();
    ASSERT_EQ(1u, recovered.size());
    EXPECT_EQ(1u, recovered[0].failed.size());
    EXPECT_THAT(journal::Words(recovered[0]), HasSubstr("it is tried again"));
  }
  ASSERT_EQ(1u, journal::OpenEntries().size());
  EXPECT_EQ("a:1\nu:1\n", Users());
  EXPECT_THAT(Recover().front().failed, IsEmpty());
  EXPECT_EQ("a:1\n", Users());
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
  EXPECT_EQ(1u, job_table::Latest(0).size()) << "one row, however often it is tried";
}

TEST_F(JournalRecoveryTest, AnEntryStaysWhenWhatFollowsItCantBeDone) {
  dir_.Write("users", "u:1\n");
  Leave({Line({"u", "", "u:1", ""})});
  EXPECT_THROW(journal::RecoverDead(
                   [](const Recovered&) { throw mgr_err::Error("db", "store", "refused"); }),
               mgr_err::Error);
  EXPECT_EQ(1u, journal::OpenEntries().size());
  EXPECT_EQ(1u, Recover().size());
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
}

// Each state in which a process that replaces a file may die, with and without an old one.
TEST_F(JournalRecoveryTest, AReplacementIsTakenBackFromEveryState) {
  const std::string old = fingerprint::OfContent("old");
  const std::string fresh = fingerprint::OfContent("fresh");
  struct Case {
    const char* name;
    const char* noted;  // what was there before; null for nothing
    const char* file;   // what is there; null for nothing
    const char* aside;
    const char* second;  // beside it, where entries can't be exchanged
    const char* left;    // what must be there afterwards; null for nothing
    bool said = false;
  };
  const std::vector<Case> cases = {
      {"nothing was done", "old", "old", nullptr, nullptr, "old"},
      {"half prepared", "old", "old", "fre", nullptr, "old"},
      {"prepared", "old", "old", "fresh", nullptr, "old"},
      {"exchanged", "old", "fresh", "old", nullptr, "old"},
      {"old has a second name", "old", "old", "fresh", "old", "old"},
      {"renamed over", "old", "fresh", nullptr, "old", "old"},
      {"taken back", "old", "old", nullptr, nullptr, "old"},
      {"none: prepared", nullptr, nullptr, "fresh", nullptr, nullptr},
      {"none: placed", nullptr, "fresh", nullptr, nullptr, nullptr},
      {"none: taken back", nullptr, nullptr, nullptr, nullptr, nullptr},
      {"equal content", "fresh", "fresh", "fresh", nullptr, "fresh"},
      {"somebody else's", "old", "other", "old", nullptr, "other", true},
      {"somebody else's, where none was", nullptr, "other", nullptr, nullptr, "other", true},
      {"removed by somebody", "old", nullptr, "old", nullptr, nullptr, true},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    for (const auto& [name, content] :
         {std::pair{"file", one.file}, {"aside", one.aside}, {"aside-old", one.second}}) {
      std::filesystem::remove(dir_ / name);
      if (content != nullptr) {
        dir_.Write(name, content);
      }
    }
    const std::string noted =
        one.noted == nullptr ? fingerprint::kNone : fingerprint::OfContent(one.noted);
    EXPECT_EQ(!one.said, FileSwap::Undo(Swap(noted, fresh)));
    EXPECT_EQ(one.left == nullptr ? fingerprint::kNone : fingerprint::OfContent(one.left),
              fingerprint::At(dir_ / "file"));
    EXPECT_FALSE(Exists("aside"));
    EXPECT_FALSE(Exists("aside-old"));
  }
}

TEST_F(JournalRecoveryTest, ALostOldFileIsAnError) {
  dir_.Write("file", "fresh");
  EXPECT_THROW(FileSwap::Undo(Swap(fingerprint::OfContent("old"), fingerprint::OfContent("fresh"))),
               mgr_err::Error);
  EXPECT_EQ("fresh", dir_.Read("file"));
}

}  // namespace
