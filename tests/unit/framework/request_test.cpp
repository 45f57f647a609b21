#include "framework/request.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <stdexcept>
#include <thread>

#include "brisq_api.h"
#include "framework/due.h"
#include "framework/journal.h"
#include "mgr_err.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_job.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using support::Events;
using support::Only;
using support::RecordingJob;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RequestTest : public testing::Test {
 protected:
  RequestTest() { Request::SetDatabaseHooks({Hook("begin"), Hook("commit"), Hook("rollback")}); }
  ~RequestTest() override { Request::SetDatabaseHooks({}); }

  std::function<void()> Hook(const std::string& name) {
    return [this, name] {
      events.push_back("database " + name);
      if (failing_hook == name) {
        throw mgr_err::Error("db", name, "refused");
      }
    };
  }
  std::function<void()> Event(const std::string& text) {
    return [this, text] { events.push_back(text); };
  }

  support::LogCapture log;
  Events events;
  std::string failing_hook;
};

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "nothing was thrown";
}

TEST_F(RequestTest, ACommittedRequestTakesItsStepsInOrder) {
  const std::size_t queued_before = due::QueuedCommands();
  {
    Request request("test");
    request.BeginDatabase();
    request.AfterCommit("call", [this, queued_before] {
      events.push_back("call");
      EXPECT_EQ(queued_before, due::QueuedCommands()) << "commands are queued after the calls";
    });
    request.QueueCommand("true");
    new RecordingJob(events, "a");
    request.OnRollback("step", Event("never"));
    new RecordingJob(events, "b");
    request.Commit();
    EXPECT_THAT(request.Notes(), IsEmpty());
  }
  EXPECT_THAT(events, ElementsAre("database begin", "do a", "do b", "database commit", "forget a",
                                  "forget b", "delete b", "delete a", "call"));
  EXPECT_EQ(queued_before + 1, due::QueuedCommands());
  due::RunQueuedCommands();
}

// A model beside it: what must have happened when step `failing` of `count` fails.
Events ExpectedAfterFailure(int count, int failing) {
  Events expected{"database begin"};
  for (int i = 0; i <= failing; ++i) {
    expected.push_back("do " + std::to_string(i));
  }
  for (int i = failing - 1; i >= 0; --i) {
    expected.push_back("undo " + std::to_string(i));
  }
  expected.push_back("database rollback");
  for (int i = count - 1; i >= 0; --i) {
    expected.push_back("delete " + std::to_string(i));
  }
  return expected;
}

TEST_F(RequestTest, WhenAnyStepFailsThoseBeforeItAreUndoneInReverse) {
  constexpr int kCount = 6;
  for (int failing = 0; failing < kCount; ++failing) {
    SCOPED_TRACE("failing step " + std::to_string(failing));
    events.clear();
    Request request("test");
    request.BeginDatabase();
    request.AfterCommit("call", Event("called"));
    for (int i = 0; i < kCount; ++i) {
      new RecordingJob(events, std::to_string(i), {.in_do = i == failing});
    }
    EXPECT_EQ("file: " + std::to_string(failing) + ": do refused",
              ErrorOf([&] { request.Commit(); }));
    EXPECT_EQ(ExpectedAfterFailure(kCount, failing), events);
    EXPECT_EQ(nullptr, Request::Current());
  }
}

TEST_F(RequestTest, AnUndoThatFailsIsReportedAndTheRestGoesOn) {
  constexpr int kCount = 5;
  for (int failing = 1; failing < kCount; ++failing) {
    for (int stuck = 0; stuck < failing; ++stuck) {
      SCOPED_TRACE("step " + std::to_string(failing) + ", undo " + std::to_string(stuck));
      events.clear();
      Request request("save");
      request.BeginDatabase();
      for (int i = 0; i < kCount; ++i) {
        new RecordingJob(events, std::to_string(i), {i == failing, i == stuck});
      }
      EXPECT_EQ("file: " + std::to_string(failing) + ": do refused",
                ErrorOf([&] { request.Commit(); }));
      EXPECT_EQ(ExpectedAfterFailure(kCount, failing), events);
      const std::string note = "undo of step " + std::to_string(stuck + 1) +
                               " (support::RecordingJob) failed: file: " + std::to_string(stuck) +
                               ": undo refused";
      EXPECT_THAT(request.Notes(), ElementsAre(note));
      log.ExpectError("save: " + note);
    }
  }
}

TEST_F(RequestTest, JobsAndStepsDoneAtOnceAreUndoneInTheReverseOfWhatHappened) {
  Request request("test");
  request.OnRollback("first", Event("undo first"));
  new RecordingJob(events, "a");
  request.OnRollback("second", Event("undo second"));
  new RecordingJob(events, "b", {.in_do = true});
  EXPECT_ANY_THROW(request.Commit());
  EXPECT_THAT(Only(events, {"do", "undo"}),
              ElementsAre("do a", "do b", "undo a", "undo second", "undo first"));
}

// A job that saves a file through a layer that notes its own undo.
class NotingJob : public RecordingJob {
 public:
  NotingJob(Events& events, Fails fails) : RecordingJob(events, "noting", fails), events_(events) {}
  void Do() override {
    Request::Current()->OnRollback("inner", [this] { events_.push_back("undo inner"); });
    RecordingJob::Do();
  }

 private:
  Events& events_;
};

TEST_F(RequestTest, WhatAJobHasNotedIsUndoneAlsoWhenTheJobFails) {
  {
    Request request("test");
    new NotingJob(events, {.in_do = true});
    EXPECT_ANY_THROW(request.Commit());
  }
  EXPECT_THAT(Only(events, {"undo"}), ElementsAre("undo inner"));
  events.clear();
  {
    Request request("test");
    new NotingJob(events, {});
    new RecordingJob(events, "b", {.in_do = true});
    EXPECT_ANY_THROW(request.Commit());
  }
  EXPECT_THAT(Only(events, {"undo"}), ElementsAre("undo noting", "undo inner"));
}

class AddingJob : public RecordingJob {
 public:
  explicit AddingJob(Events& events) : RecordingJob(events, "adding"), events_(events) {}
  void Do() override {
    RecordingJob::Do();
    for (int i = 0; i < 100; ++i) {
      new RecordingJob(events_, "added");
    }
  }

 private:
  Events& events_;
};

// Notes the step beforehand or, as jobs that find their steps out late do, in Do.
class AnnouncingJob : public RecordingJob {
 public:
  AnnouncingJob(Events& events, const std::string& name, bool early)
      : RecordingJob(events, name), events_(events), name_(name), early_(early) {}
  bool Announce() override {
    if (early_) {
      events_.push_back("announce " + name_);
      Request::Current()->NoteSteps({{"test", {{"what", name_}}}}, false);
    }
    return early_;
  }
  void Do() override {
    if (!early_) Request::Current()->NoteSteps({{"test", {{"what", name_}}}});
    const auto entries = journal::OpenEntries();
    const auto& steps = entries.front().steps;
    EXPECT_THAT(steps, testing::Contains(name_)) << "it must be noted by now";
    RecordingJob::Do();
  }

 private:
  Events& events_;
  const std::string name_;
  const bool early_;
};

TEST_F(RequestTest, TheJournalHasTheStepsOfJobsInTheirOrderAndBeforeTheyAreTaken) {
  const support::TempDir dir;
  journal::SetFolder(dir / "journal");
  Events noted;
  Request request("test");
  for (const auto& [name, early] : {std::pair("a", true), {"b", true}, {"c", false}, {"d", true}}) {
    new AnnouncingJob(events, name, early);
  }
  new RecordingJob(events, "fails", {.in_do = true});
  request.OnRollback("look", [&] { noted = journal::OpenEntries().front().steps; });
  EXPECT_THAT(ErrorOf([&] { request.Commit(); }), HasSubstr("do refused"));
  journal::SetFolder("");
  EXPECT_THAT(noted, ElementsAre("a", "b", "c", "d"));
  EXPECT_THAT(Only(events, {"announce", "do"}),
              ElementsAre("announce a", "announce b", "do a", "do b", "do c", "announce d", "do d",
                          "do fails"));
}

TEST_F(RequestTest, StepsAreNotedNotLongBeforeTheyAreTaken) {
  const support::TempDir dir;
  journal::SetFolder(dir / "journal");
  Request request("test");
  for (int i = 0; i < 40; ++i) {
    new AnnouncingJob(events, "job", true);
  }
  request.Commit();
  journal::SetFolder("");
  std::vector<int> waiting = {0};  // noted and not taken, after each event
  for (const std::string& event : Only(events, {"announce", "do"})) {
    waiting.push_back(waiting.back() + (event == "do job" ? -1 : 1));
  }
  EXPECT_EQ(16, *std::max_element(waiting.begin(), waiting.end()));
  EXPECT_EQ(40u, Only(events, {"do"}).size());
}

TEST_F(RequestTest, StepsOfJobsCanBeNotedTogetherWithAnEarlierOne) {
  const support::TempDir dir;
  journal::SetFolder(dir.path());
  Request request("test");
  for (const char* name : {"a", "b"}) {
    new AnnouncingJob(events, name, true);
  }
  support::SysFault calls;
  calls.OnCall([this](std::string_view call, std::size_t) {
    if (call == "fsync") events.emplace_back("sync");
  });
  request.AnnounceJobs();
  request.NoteSteps({{"test", {{"what", "earlier"}}}});
  new AnnouncingJob(events, "c", true);
  request.Commit();
  journal::SetFolder("");
  EXPECT_THAT(Only(events, {"announce", "sync", "do"}),
              ElementsAre("announce a", "announce b", "sync", "sync", "do a", "do b", "announce c",
                          "sync", "do c", "sync"));
}

// Whose steps can't be told at first.
class LateJob : public AnnouncingJob {
 public:
  using AnnouncingJob::AnnouncingJob;
  bool Announce() override {
    if (!std::exchange(refused_, true)) throw mgr_err::Error("file", "late");
    return AnnouncingJob::Announce();
  }

 private:
  bool refused_ = false;
};

TEST_F(RequestTest, WhatWasNotedBeforeAnErrorIsDurableBeforeItIsTaken) {
  const support::TempDir dir;
  journal::SetFolder(dir.path());
  Request request("test");
  new AnnouncingJob(events, "a", true);
  new LateJob(events, "b", true);
  support::SysFault calls;
  calls.OnCall([this](std::string_view call, std::size_t) {
    if (call == "fsync") events.emplace_back("sync");
  });
  EXPECT_THROW(request.AnnounceJobs(), mgr_err::Error);
  events.clear();
  request.Commit();
  journal::SetFolder("");
  EXPECT_THAT(Only(events, {"announce", "sync", "do"}),
              ElementsAre("sync", "sync", "do a", "announce b", "sync", "do b", "sync"));
}

TEST_F(RequestTest, StepsThatWereNotedEarlyAreDurableBeforeTheyAreTaken) {
  const support::TempDir dir;
  journal::SetFolder(dir.path());
  Request request("test");
  new AnnouncingJob(events, "a", true);
  support::SysFault calls;
  calls.OnCall([this](std::string_view call, std::size_t) {
    if (call == "fsync") events.emplace_back("sync");
  });
  request.AnnounceJobs();
  request.AnnounceJobs();
  request.Commit();
  journal::SetFolder("");
  EXPECT_THAT(Only(events, {"announce", "sync", "do"}),
              ElementsAre("announce a", "sync", "sync", "do a", "sync"));
}

TEST_F(RequestTest, JobsThatAJobAddsAreDoneBehindTheOthers) {
  Request request("test");
  new AddingJob(events);
  new RecordingJob(events, "b");
  request.Commit();
  const Events done = Only(events, {"do"});
  ASSERT_EQ(102U, done.size());
  EXPECT_THAT(Events(done.begin(), done.begin() + 3), ElementsAre("do adding", "do b", "do added"));
}

TEST_F(RequestTest, ARequestThatIsNotCommittedIsRolledBack) {
  {
    Request request("test");
    request.BeginDatabase();
    new RecordingJob(events, "a");
    request.OnRollback("line added", Event("undo line"));
    request.AfterCommit("call", Event("called"));
  }
  EXPECT_THAT(events, ElementsAre("database begin", "undo line", "database rollback", "delete a"));
  EXPECT_EQ(nullptr, Request::Current());
}

TEST_F(RequestTest, AnExceptionOfTheCallerRollsBack) {
  EXPECT_THROW(
      {
        Request request("test");
        request.OnRollback("line added", Event("undo line"));
        throw std::runtime_error("stop");
      },
      std::runtime_error);
  EXPECT_THAT(events, ElementsAre("undo line"));
}

TEST_F(RequestTest, ADatabaseThatCantCommitUndoesEverything) {
  failing_hook = "commit";
  Request request("test");
  request.BeginDatabase();
  request.AfterCommit("call", Event("called"));
  new RecordingJob(events, "a");
  EXPECT_EQ("db: commit: refused", ErrorOf([&] { request.Commit(); }));
  EXPECT_THAT(events, ElementsAre("database begin", "do a", "database commit", "undo a",
                                  "database rollback", "delete a"));
}

TEST_F(RequestTest, ADatabaseThatCantRollBackIsNoted) {
  failing_hook = "rollback";
  Request request("test");
  request.BeginDatabase();
  request.Rollback();
  EXPECT_THAT(request.Notes(),
              ElementsAre("rollback of the database failed: db: rollback: refused"));
  log.ExpectError("rollback of the database failed");
}

TEST_F(RequestTest, ARequestWithoutDatabaseOperationsHasNoTransaction) {
  {
    Request request("test");
    request.Commit();
  }
  { Request request("test"); }
  EXPECT_THAT(events, IsEmpty());
}

TEST_F(RequestTest, TheTransactionBeginsOnceAndAgainOnlyAfterAFailure) {
  failing_hook = "begin";
  Request request("test");
  EXPECT_ANY_THROW(request.BeginDatabase());
  failing_hook.clear();
  request.BeginDatabase();
  request.BeginDatabase();
  request.Commit();
  EXPECT_THAT(events, ElementsAre("database begin", "database begin", "database commit"));
}

TEST_F(RequestTest, ARequestKeepsTheHooksItBeganWith) {
  Request request("test");
  request.BeginDatabase();
  Request::SetDatabaseHooks({});
  request.Commit();
  EXPECT_THAT(events, ElementsAre("database begin", "database commit"));
}

TEST_F(RequestTest, CallsAfterTheCommitStandOutsideOfTheRequest) {
  Request request("test");
  request.AfterCommit("inner request", [this] {
    EXPECT_EQ(nullptr, Request::Current());
    Request inner("inner");
    inner.AfterCommit("call", Event("inner call"));
    inner.Commit();
  });
  request.AfterCommit("second", Event("second call"));
  request.Commit();
  EXPECT_THAT(events, ElementsAre("inner call", "second call"));
}

TEST_F(RequestTest, ACallAfterTheCommitThatThrowsIsNotedAndTheRestGoesOn) {
  Request request("tls set");
  request.BeginDatabase();
  request.AfterCommit("action one", [] { throw mgr_err::Error("missed", "action", "one"); });
  request.AfterCommit("action two", [] { throw 1; });
  request.AfterCommit("action three", Event("third call"));
  request.Commit();
  EXPECT_THAT(events, ElementsAre("database begin", "database commit", "third call"));
  EXPECT_THAT(request.Notes(),
              ElementsAre("after the commit: action one failed: missed: action: one",
                          "after the commit: action two failed: an exception of unknown kind"));
  log.ExpectError("tls set: after the commit: action one failed");
  log.ExpectError("tls set: after the commit: action two failed");
}

TEST_F(RequestTest, CommandsOfAFailedRequestAreDropped) {
  const std::size_t before = due::QueuedCommands();
  {
    Request request("test");
    brisq_api::ExecuteLater("exit 1");
  }
  EXPECT_EQ(before, due::QueuedCommands());
}

TEST_F(RequestTest, WhatAnUndoDoesIsFinal) {
  const std::size_t before = due::QueuedCommands();
  Request request("test");
  request.OnRollback("line added", [this] {
    events.push_back("undo line");
    Request::Current()->OnRollback("line restored", Event("undo of the undo"));
    Request::Current()->AfterCommit("call", Event("called"));
    brisq_api::ExecuteLater("exit 1");
    EXPECT_THAT(ErrorOf([this] { new RecordingJob(events, "late"); }),
                HasSubstr("internal: request test: takes no job"));
  });
  request.Rollback();
  EXPECT_THAT(events, ElementsAre("undo line"));
  EXPECT_EQ(before, due::QueuedCommands());
}

TEST_F(RequestTest, AnUndoThatRollsBackAgainDoesNothing) {
  Request request("test");
  request.OnRollback("first", Event("undo first"));
  request.OnRollback("second", [this, &request] {
    events.push_back("undo second");
    request.Rollback();
  });
  request.Rollback();
  request.Rollback();
  EXPECT_THAT(events, ElementsAre("undo second", "undo first"));
}

TEST_F(RequestTest, ASecondRequestOnTheThreadIsRefused) {
  Request outer("outer");
  EXPECT_EQ("internal: request inner: begun inside of request outer",
            ErrorOf([] { Request inner("inner"); }));
  EXPECT_EQ(&outer, Request::Current());
}

TEST_F(RequestTest, EachThreadHasItsOwnRequest) {
  Request mine("mine");
  std::thread([] {
    EXPECT_EQ(nullptr, Request::Current());
    Request theirs("theirs");
    EXPECT_EQ(&theirs, Request::Current());
  }).join();
  EXPECT_EQ(&mine, Request::Current());
}

TEST_F(RequestTest, ARequestCommitsOnceAndOnItsOwnThread) {
  const std::string refusal = "internal: request test: has ended or belongs to another thread";
  Request request("test");
  std::thread([&] { EXPECT_EQ(refusal, ErrorOf([&] { request.Commit(); })); }).join();
  request.Commit();
  EXPECT_EQ(refusal, ErrorOf([&] { request.Commit(); }));
}

TEST_F(RequestTest, ARequestKnowsItsNameItsStartAndItsNotes) {
  const auto before = std::chrono::system_clock::now();
  Request request("mailbox add");
  EXPECT_EQ("mailbox add", request.name());
  EXPECT_LE(before, request.started());
  EXPECT_GE(std::chrono::system_clock::now(), request.started());
  request.AddNote("the mail stays on disk");
  request.Commit();
  EXPECT_THAT(request.Notes(), ElementsAre("the mail stays on disk"));
}

TEST_F(RequestTest, RequestsOfManyThreadsDoNotMeet) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) {
        Events own;
        Request request("thread");
        new RecordingJob(own, "a");
        new RecordingJob(own, "b", {.in_do = (t + i) % 2 == 0});
        ErrorOf([&] { request.Commit(); });
        ASSERT_EQ((t + i) % 2 == 0 ? 1U : 0U, Only(own, {"undo"}).size());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

}  // namespace
