#include "panel/run_request.h"

#include <csignal>
#include <thread>

#include "brisq_api.h"
#include "framework/database.h"
#include "framework/journal.h"
#include "mgr_err.h"
#include "mgr_job.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::DoRequest;
using brisq_panel::RunRequest;
using testing::ElementsAre;

class RunRequestTest : public panel_test::PanelTest {
 protected:
  static void AddOwner() {
    mgr_db::ThreadConnection()->Change(
        "INSERT INTO owners (name, uid, gid, home) VALUES ('x', 1, 1, '/x')");
  }
};

TEST_F(RunRequestTest, WorkThatEndsIsCommittedWithItsNotes) {
  const auto notes = RunRequest("test", [](Request& request) {
    EXPECT_EQ(&request, Request::Current());
    AddOwner();
    request.AddNote("done");
  });
  EXPECT_THAT(notes, ElementsAre("done"));
  EXPECT_EQ(nullptr, Request::Current());
  EXPECT_EQ("x", Column("SELECT name FROM owners"));
}

TEST_F(RunRequestTest, NotesThatNobodyAsksForGoToTheKeeperOfTheThread) {
  const auto work = [](Request& request) {
    request.AddNote("odd");
    request.AfterCommit("call", [] { throw mgr_err::Error("file", "/x", "gone"); });
  };
  DoRequest("test", work);
  {
    const brisq_panel::NoteKeeper keeper;
    std::jthread([&] { DoRequest("test", work); }).join();
    EXPECT_THAT(RunRequest("test", [](Request& request) { request.AddNote("mine"); }),
                ElementsAre("mine"));
    EXPECT_THAT(keeper.notes(), testing::IsEmpty());
    DoRequest("test", work);
    EXPECT_THAT(keeper.notes(),
                ElementsAre("odd", "after the commit: call failed: file: /x: gone"));
  }
  DoRequest("test", work);
  for (int calls = 0; calls < 4; ++calls) {
    log_.ExpectError("after the commit: call failed");
  }
}

class FailingAction : public brisq_api::Action {
 public:
  FailingAction() : Action("test.fails", 0, nullptr) {}
  void Execute(brisq_api::Session&) const override {
    if (fails) {
      throw mgr_err::Error("file", "/x", "gone");
    }
  }
  bool fails = true;
};

TEST_F(RunRequestTest, WhatARequestOwesIsKnownUntilARecoveryHasMadeIt) {
  journal::SetFolder(dir_ / "journal");
  FailingAction action;
  const brisq_panel::NoteKeeper keeper;
  RunRequest("test", [](Request&) { AddOwner(); });
  EXPECT_FALSE(keeper.IsAnythingOwed());
  RunRequest("test", [](Request&) { new mgr_job::CallOnCommit("test.fails", ""); });
  EXPECT_TRUE(keeper.IsAnythingOwed());
  action.fails = false;
  EXPECT_THAT(RunRequest("test", [](Request&) {}), ElementsAre(testing::HasSubstr("finished job")));
  EXPECT_FALSE(keeper.IsAnythingOwed());
  log_.ExpectError("action test.fails failed: file: /x: gone");
  journal::SetFolder("");
}

TEST_F(RunRequestTest, WorkThatThrowsIsTakenBack) {
  const auto error = panel_test::ErrorOf([] {
    RunRequest("test", [](Request&) {
      AddOwner();
      throw mgr_err::Error("limit", "thing", "too many").set_report();
    });
  });
  EXPECT_STREQ("limit: thing: too many", error.what());
  EXPECT_TRUE(error.report());
  EXPECT_EQ("", Column("SELECT name FROM owners"));
}

TEST_F(RunRequestTest, OtherExceptionsTakeItBackToo) {
  EXPECT_THROW(RunRequest("test",
                          [](Request&) {
                            AddOwner();
                            throw std::bad_alloc();
                          }),
               std::bad_alloc);
  EXPECT_EQ(nullptr, Request::Current());
  EXPECT_EQ("", Column("SELECT name FROM owners"));
}

TEST_F(RunRequestTest, NobodyElseWritesFromItsBeginning) {
  mgr_db::OpenDatabase(dir_ / "panel.db", 50);
  RunRequest("test", [](Request&) {
    std::jthread([] { EXPECT_EQ("locked", panel_test::ErrorOf([] { AddOwner(); }).type()); });
  });
}

TEST_F(RunRequestTest, CtrlCInTheMiddleWaitsForTheCommit) {
  static volatile std::sig_atomic_t seen;
  seen = 0;
  const auto before =
      std::signal(SIGINT, [](int) { seen = Request::Current() == nullptr ? 1 : -1; });
  RunRequest("test", [](Request&) {
    AddOwner();
    std::raise(SIGINT);
    EXPECT_EQ(0, seen);
  });
  std::signal(SIGINT, before);
  EXPECT_EQ(1, seen);
  EXPECT_EQ("x", Column("SELECT name FROM owners"));
}

TEST_F(RunRequestTest, WhatCouldNotBeTakenBackStandsInTheError) {
  const auto error = panel_test::ErrorOf([] {
    RunRequest("test", [](Request& request) {
      request.OnRollback("step one", [] { throw mgr_err::Error("file", "/x", "gone"); });
      throw mgr_err::Error("email", "doveadm", "failed");
    });
  });
  EXPECT_EQ("email", error.type());
  EXPECT_THAT(error.value(),
              testing::AllOf(testing::StartsWith("failed; "), testing::HasSubstr("step one")));
  log_.ExpectError("step one");
}

}  // namespace
