#include "framework/journal_recovery.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <stdexcept>

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
#include "mgr_job.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using journal::Recovered;
using journal::Step;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kId = "0123456789abcdef";
const Step kHead{"request", {{"name", "mailbox add"}, {"who", "alice"}, {"started", "then"}}};

class CountingAction : public brisq_api::Action {
 public:
  explicit CountingAction(std::vector<std::string>& calls)
      : Action("test.owed", 0, nullptr), calls_(calls) {}
  void Execute(brisq_api::Session& session) const override {
    calls_.push_back(session.Param("n"));
    if (refusal) {
      refusal();
    }
  }
  std::function<void()> refusal = {};

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

TEST_F(JournalRecoveryTest, ACallThatFailsStaysOwedAndTheOthersAreMadeOnce) {
  std::vector<std::string> calls;
  CountingAction action(calls);
  Leave({{"call", {{"action", "test.owed"}, {"params", "n=1"}}},
         {"call", {{"action", "test.owed"}, {"params", "n=2"}}},
         {"committed", {}}});
  for (const char* type : {"db", "locked", "file", "email", "later"}) {
    SCOPED_TRACE(type);
    action.refusal = [&] {
      if (calls.back() == "1") {
        throw mgr_err::Error(type, "store", "refused");
      }
    };
    const auto refused = Recover();
    ASSERT_EQ(1u, refused.size());
    EXPECT_THAT(refused[0].failed,
                ElementsAre("action test.owed: " + std::string(type) + ": store: refused"));
    EXPECT_THAT(journal::Words(refused[0]), HasSubstr("did not finish all of job 1"));
    EXPECT_EQ(1u, journal::OpenEntries().size());
  }
  action.refusal = {};
  EXPECT_THAT(Recover().at(0).failed, IsEmpty());
  EXPECT_THAT(calls, ElementsAre("1", "2", "1", "1", "1", "1", "1"));
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
}

// Each command would be told of it for ever.
TEST_F(JournalRecoveryTest, ACallThatCanNeverWorkIsGivenUpAndSaid) {
  std::vector<std::string> calls;
  CountingAction action(calls);
  for (const bool known : {true, false}) {
    SCOPED_TRACE(known);
    action.refusal = [&] {
      if (known) {
        throw mgr_err::Error("value", "n", "is wrong");
      }
      throw std::runtime_error("broken");
    };
    Leave({{"call", {{"action", "test.owed"}, {"params", "n=1"}}}, {"committed", {}}});
    const auto recovered = Recover();
    ASSERT_EQ(1u, recovered.size());
    EXPECT_THAT(journal::Words(recovered[0]),
                HasSubstr(std::string("failed, and is not tried again: action test.owed: ") +
                          (known ? "value: n: is wrong" : "broken")));
    EXPECT_THAT(recovered[0].failed, IsEmpty());
    EXPECT_THAT(journal::OpenEntries(), IsEmpty());
  }
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
    EXPECT_THAT(journal::Words(recovered[0]), HasSubstr("the next command tries it again"));
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
  const auto refused = journal::RecoverDead(
      [](const Recovered&) { throw mgr_err::Error("db", "store", "refused"); });
  ASSERT_EQ(1u, refused.size());
  EXPECT_THAT(refused[0].failed, ElementsAre(HasSubstr("store: refused")));
  EXPECT_EQ(1u, journal::OpenEntries().size());
  const auto again = Recover();
  ASSERT_EQ(1u, again.size());
  EXPECT_TRUE(again[0].lines_undone) << "nobody was told yet";
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
}

// What was recovered is to be told all the same, and other entries are to be ended.
TEST_F(JournalRecoveryTest, AnUnknownErrorOfWhatFollowsAnEntryHoldsUpNoOther) {
  Leave({{"committed", {}}});
  journal::Entry("fedcba9876543210", kHead).Write({{"committed", {}}}, true);
  std::size_t asked = 0;
  const auto refused = journal::RecoverDead([&](const Recovered&) {
    if (++asked == 1) {
      throw std::runtime_error("broken");
    }
  });
  ASSERT_EQ(2u, refused.size());
  EXPECT_THAT(refused[0].failed, ElementsAre("broken"));
  EXPECT_THAT(refused[1].failed, IsEmpty());
  EXPECT_EQ(1u, journal::OpenEntries().size());
  EXPECT_THAT(Recover().at(0).failed, IsEmpty());
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
}

// One step is refused while the world goes on: what the others have taken back is the world's.
TEST_F(JournalRecoveryTest, WhatWasTakenBackOnceIsNeverTakenBackAgain) {
  dir_.Write("users", "a:1\n");
  dir_.Write("file", "fresh");
  dir_.Write("aside", "old");
  dir_.MakeFolder("made");
  Leave({{"sysdir", {{"path", dir_ / "made"}, {"what", "directory made"}}},
         Line({"u", "u:1", "", "a:1"}),
         Swap(fingerprint::OfContent("old"), fingerprint::OfContent("fresh"))});
  {
    support::SysFault fault;
    fault.FailCall("rmdir", EPERM);
    const auto first = Recover();
    ASSERT_EQ(1u, first.size());
    EXPECT_EQ(1u, first[0].failed.size());
    EXPECT_TRUE(first[0].lines_undone);
    EXPECT_TRUE(first[0].files_undone);
    EXPECT_THAT(journal::Words(first[0]), HasSubstr("did not undo all of job 1"));
    EXPECT_THAT(journal::Words(first[0]), HasSubstr("remove " + (dir_ / "journal/") + kId));
    EXPECT_EQ("a:1\nu:1\n", Users());
    EXPECT_EQ("old", dir_.Read("file"));
    EXPECT_THAT(journal::OpenEntries().front().steps, ElementsAre("directory made"));

    dir_.Write("users", "a:1\n");
    dir_.Write("file", "fresh");
    const auto second = Recover();
    ASSERT_EQ(1u, second.size());
    EXPECT_EQ(1u, second[0].failed.size());
    EXPECT_FALSE(second[0].lines_undone) << "it was told";
    EXPECT_FALSE(second[0].files_undone);
  }
  EXPECT_THAT(Recover().front().failed, IsEmpty());
  EXPECT_EQ("a:1\n", Users());
  EXPECT_EQ("fresh", dir_.Read("file"));
  EXPECT_FALSE(Exists("made"));
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
}

// Without the note others could build on what the next recovery would take back again.
TEST_F(JournalRecoveryTest, WhatCantBeNotedFailsTheRecovery) {
  dir_.MakeFolder("made");
  Leave({{"sysdir", {{"path", dir_ / "made"}}}});
  {
    support::SysFault fault;
    fault.FailCall("ftruncate", EIO);
    EXPECT_THROW(Recover(), mgr_err::Error);
  }
  EXPECT_TRUE(journal::HasDead());
  EXPECT_THAT(Recover().front().left, IsEmpty());
  EXPECT_FALSE(journal::HasDead());
}

TEST_F(JournalRecoveryTest, ARefusedStepIsGivenUpWhenALaterJobHasTouchedIt) {
  for (const bool touched : {true, false}) {
    SCOPED_TRACE(touched ? "touched" : "another one touched");
    const std::string entry = touched ? "00000000000000a1" : "00000000000000a2";
    const std::string later = touched ? "00000000000000b1" : "00000000000000b2";
    dir_.Write("users", "a:1\n");
    journal::Entry(entry, kHead).Write({Line({"u", "u:1", "", "a:1"})}, true);
    {
      support::SysFault fault;
      fault.FailCall("rename", EIO);
      ASSERT_EQ(1u, Recover().front().failed.size());
    }
    job_table::Add({0, later, "mailbox delete", "alice", "then", job_table::kDone,
                    touched ? "mailbox name=u\n" : "mailbox name=v\n", "", 0});
    const auto recovered = Recover();
    ASSERT_EQ(1u, recovered.size());
    EXPECT_THAT(recovered[0].failed, IsEmpty());
    EXPECT_EQ(touched ? 1u : 0u, recovered[0].lost.size());
    EXPECT_EQ(touched ? "a:1\n" : "a:1\nu:1\n", Users());
    EXPECT_THAT(journal::OpenEntries(), IsEmpty());
    EXPECT_EQ(touched,
              job_table::OfEntry(entry)->changes.find("line%20of%20u") != std::string::npos);
  }
}

TEST_F(JournalRecoveryTest, WhatCanNeverBeTakenBackIsSaidAndEndsTheEntry) {
  mgr_seal::SetKeyFile(dir_ / "lost.key");
  const Step line = Line({"u", "", "u:1", ""});
  mgr_seal::SetKeyFile(dir_ / "seal.key");
  Line({"v", "", "v:1", ""});  // makes the other key
  dir_.Write("users", "u:1\n");
  dir_.Write("file", "fresh");
  Step swap = Swap(fingerprint::OfContent("old"), fingerprint::OfContent("fresh"));
  swap.values["what"] = "the file replaced";
  Leave({line, swap});
  const auto recovered = Recover();
  ASSERT_EQ(1u, recovered.size());
  EXPECT_THAT(recovered[0].failed, IsEmpty());
  EXPECT_THAT(recovered[0].lost,
              ElementsAre("the file replaced: not undone: what was there before is gone",
                          HasSubstr("was not sealed with this instance's key")));
  EXPECT_THAT(journal::Words(recovered[0]), HasSubstr("could not be undone: the file replaced"));
  EXPECT_THAT(job_table::Latest(1).front().changes, HasSubstr("the%20file%20replaced"));
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
  EXPECT_EQ("u:1\n", Users());
}

// Its row may be forgotten, or lost with a database that was brought back from a backup.
TEST_F(JournalRecoveryTest, ARequestThatWasCommittedStaysSoWithoutItsRow) {
  std::vector<std::string> calls;
  const CountingAction action(calls);
  dir_.Write("file", "fresh");
  dir_.Write("aside", "old");
  job_table::Add({0, kId, "mailbox add", "alice", "then", job_table::kDone, "", "", 0});
  Leave({Swap(fingerprint::OfContent("old"), fingerprint::OfContent("fresh")),
         {"call", {{"action", "test.owed"}, {"params", "n=7"}}}});
  {
    support::SysFault fault;
    fault.FailCall("unlink", EPERM);
    EXPECT_EQ(1u, Recover().front().failed.size());
  }
  mgr_db::ThreadConnection()->Change("DELETE FROM job");
  const auto recovered = Recover();
  ASSERT_EQ(1u, recovered.size());
  EXPECT_TRUE(recovered[0].committed);
  EXPECT_EQ("fresh", dir_.Read("file"));
  EXPECT_FALSE(Exists("aside"));
  EXPECT_THAT(calls, ElementsAre("7")) << "a call that was made is not made again";
}

// Dies where a kill would meet the request between its jobs and its commit.
class DyingJob : public mgr_job::Job {
 public:
  void Do() override { ::_exit(0); }
  void Undo() override {}
};

// In a child process, whose entry nobody holds then.
void Die(const std::function<void()>& make_jobs) {
  const pid_t child = ::fork();
  if (child == 0) {
    Request request("killed");
    make_jobs();
    new DyingJob;
    request.Commit();
    ::_exit(1);
  }
  int status = -1;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  ASSERT_EQ(0, status);
}

TEST_F(JournalRecoveryTest, TwoReplacementsOfOneFileAreTakenBack) {
  const mgr_file::Attrs attrs(0600, ::geteuid(), ::getegid());
  struct Case {
    const char* name;
    const char* before;  // null for nothing
    const char* first;
    const char* second;
  };
  for (const Case& one :
       {Case{"three contents", "old", "first", "second"}, Case{"back again", "old", "first", "old"},
        Case{"twice the same", "old", "first", "first"},
        Case{"none before", nullptr, "first", "second"}}) {
    SCOPED_TRACE(one.name);
    std::filesystem::remove(dir_ / "file");
    if (one.before != nullptr) {
      dir_.Write("file", one.before);
    }
    const std::string before = fingerprint::At(dir_ / "file");
    Die([&] {
      new mgr_job::CreateFile(dir_ / "file", one.first, attrs);
      new mgr_job::CreateFile(dir_ / "file", one.second, attrs);
    });
    EXPECT_EQ(one.second, dir_.Read("file"));
    const auto recovered = Recover();
    ASSERT_EQ(1u, recovered.size());
    EXPECT_THAT(recovered[0].failed, IsEmpty());
    EXPECT_THAT(recovered[0].lost, IsEmpty());
    EXPECT_EQ(before, fingerprint::At(dir_ / "file"));
    for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
      EXPECT_THAT(entry.path().filename().string(), Not(HasSubstr("brisq-job")));
    }
  }
}

// From one call on each of some kinds fails.
class Broken : public sys::Hook {
 public:
  Broken(std::string from, std::vector<std::string> kinds)
      : from_(std::move(from)), kinds_(std::move(kinds)), before_(sys::SetHook(this)) {}
  ~Broken() override { sys::SetHook(before_); }

  int Before(const char* call) override {
    if (broken_ && std::find(kinds_.begin(), kinds_.end(), call) != kinds_.end()) {
      return EROFS;
    }
    broken_ = broken_ || call == from_;
    return 0;
  }

 private:
  const std::string from_;
  const std::vector<std::string> kinds_;
  sys::Hook* before_;
  bool broken_ = false;
};

TEST_F(JournalRecoveryTest, AJobThatFailsAndCantClearUpIsRecoveredLater) {
  const uid_t uid = ::geteuid();
  const gid_t gid = ::getegid();
  const mgr_file::Attrs attrs(0700, uid, gid);
  const auto replace = [&] { new mgr_job::CreateFile(dir_ / "file", "fresh", attrs); };
  const auto make = [&] {
    const mgr_file::safe::Folder folder(dir_.path(), dir_.path(), uid, gid);
    new mgr_job::safe::CreateDir(folder, "made", attrs);
  };
  struct Case {
    const char* name;
    std::function<void()> make_job;
    const char* from;
    std::vector<std::string> kinds;
  };
  const std::vector<Case> cases = {
      {"a file that is replaced", replace, "rename", {"fsync", "rename"}},
      {"a directory", make, "mkdir", {"fchown", "rmdir"}},
  };
  dir_.Write("journal/README", "there already");
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    dir_.Write("file", "old");
    {
      Request request("broken");
      one.make_job();
      const Broken broken(one.from, one.kinds);
      EXPECT_THROW(request.Commit(), mgr_err::Error);
    }
    EXPECT_TRUE(Exists("made") || dir_.Read("file") == "fresh") << "half of it is there";
    EXPECT_EQ(1u, Recover().size());
    EXPECT_EQ("old", dir_.Read("file"));
    EXPECT_FALSE(Exists("made"));
    EXPECT_THAT(journal::OpenEntries(), IsEmpty());
  }
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
