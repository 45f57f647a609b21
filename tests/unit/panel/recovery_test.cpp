#include "panel/recovery.h"

#include <cerrno>
#include <cstring>

#include "brisq_api.h"
#include "framework/journal.h"
#include "framework/line_undo.h"
#include "framework/reload_queue.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "panel/certificate_cleanup.h"
#include "panel/run_request.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using panel_test::TextOf;
using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class ReloadAction : public brisq_api::Action {
 public:
  explicit ReloadAction(std::vector<std::string>& calls)
      : Action(brisq_panel::kReloadAction, 0, nullptr), calls_(calls) {}
  void Execute(brisq_api::Session& session) const override {
    calls_.push_back(session.Param("hard"));
  }

 private:
  std::vector<std::string>& calls_;
};

class AskingAction : public brisq_api::Action {
 public:
  AskingAction() : Action("test.asks", 0, nullptr) {}
  void Execute(brisq_api::Session&) const override {
    reloader::Queue::OfProcess().Ask("g", "a", false);
  }
};

class BrokenStore : public reloader::MemoryReloadStore {
 public:
  void Add(const reloader::ReloadRequest&) override {
    throw mgr_err::Error("db", "store", "refused");
  }
};

class RecoveryTest : public panel_test::PanelTest {
 protected:
  RecoveryTest() { journal::SetFolder(dir_ / "journal"); }
  ~RecoveryTest() override { journal::SetFolder(""); }

  void LeaveLine(const std::string& id) {
    journal::Entry(id, {"request", {{"name", "mailbox add"}}})
        .Write({line_undo::ToStep({"u", "", "u:1", ""}, dir_ / "users", "line of u added", "")},
               true);
  }

  std::vector<std::string> reloads_;
  const ReloadAction action_{reloads_};
};

TEST_F(RecoveryTest, WithoutDeadRequestsThereIsNothingToSay) {
  EXPECT_THAT(brisq_panel::RecoverRequests(), IsEmpty());
  EXPECT_THAT(reloads_, IsEmpty());
}

TEST_F(RecoveryTest, WhatIsTakenBackIsSaidLoggedAndToldToTheServer) {
  dir_.Write("users", "u:1\n");
  LeaveLine("0123456789abcdef");
  EXPECT_THAT(brisq_panel::RecoverRequests(), ElementsAre(HasSubstr("undid job 1 (mailbox add")));
  EXPECT_EQ("", dir_.Read("users"));
  EXPECT_THAT(reloads_, ElementsAre(""));
  EXPECT_THAT(log_.Messages("brisq"), ElementsAre(HasSubstr("undid job 1")));
  EXPECT_THAT(brisq_panel::RecoverRequests(), IsEmpty());
}

TEST_F(RecoveryTest, ANewRequestFindsTheHouseInOrder) {
  dir_.Write("users", "u:1\n");
  LeaveLine("0123456789abcdef");
  std::string seen;
  const auto notes =
      brisq_panel::RunRequest("test", [&](Request&) { seen = "users: " + dir_.Read("users"); });
  EXPECT_EQ("users: ", seen);
  EXPECT_THAT(notes, ElementsAre(HasSubstr("undid job 1")));
}

TEST_F(RecoveryTest, ARecoveryThatIsNotPossibleYetIsSaidAndFailsNothing) {
  dir_.Write("journal", "a file where the folder should be");
  EXPECT_THAT(brisq_panel::RecoverRequests(), ElementsAre(HasSubstr("not recovered yet")));
}

TEST_F(RecoveryTest, NothingIsChangedOverWhatCantBeRecovered) {
  dir_.Write("users", "u:1\n");
  LeaveLine("00000000000000c1");
  bool worked = false;
  const auto run = [&] { brisq_panel::RunRequest("test", [&](Request&) { worked = true; }); };
  {
    support::SysFault fault;
    fault.FailCall("ftruncate", EIO);  // of the entry: what was taken back can't be noted
    EXPECT_THAT(TextOf(run), HasSubstr("later: test: changes nothing yet: "));
    EXPECT_FALSE(worked);
  }
  EXPECT_EQ("none", TextOf(run));
  EXPECT_TRUE(worked);
  EXPECT_EQ("", dir_.Read("users"));
}

TEST_F(RecoveryTest, AStepThatIsRefusedHoldsUpNobodyAndIsSaidOnce) {
  dir_.Write("users", "u:1\n");
  LeaveLine("00000000000000c2");
  support::SysFault fault;
  fault.FailCall("rename", EIO);
  EXPECT_TRUE(brisq_panel::NeedsRecovery());
  EXPECT_THAT(brisq_panel::RecoverRequests(), ElementsAre(HasSubstr("tries it again")));
  EXPECT_FALSE(brisq_panel::NeedsRecovery()) << "this process has tried it";
  EXPECT_THAT(brisq_panel::RunRequest("test", [](Request&) {}), IsEmpty());
  LeaveLine("00000000000000c3");
  EXPECT_TRUE(brisq_panel::NeedsRecovery()) << "another one has died";
  fault.FailCall("", 0);
  EXPECT_EQ(2u, brisq_panel::RecoverRequests().size());
  EXPECT_FALSE(brisq_panel::NeedsRecovery());
}

TEST_F(RecoveryTest, AServerRecoversWhatOthersHaveLeft) {
  brisq_panel::RecoverInTurn();
  dir_.Write("users", "u:1\n");
  LeaveLine("00000000000000c5");
  {
    support::SysFault fault;
    fault.FailCall("open", EIO);
    brisq_panel::RecoverInTurn();
  }
  EXPECT_EQ("u:1\n", dir_.Read("users"));
  brisq_panel::RecoverInTurn();
  EXPECT_EQ("", dir_.Read("users"));
  EXPECT_THAT(log_.Messages("brisq"), ElementsAre(HasSubstr("undid job 1")));
}

TEST_F(RecoveryTest, AServerSaysOnceWhatKeepsItFromRecoveringUntilThatChanges) {
  dir_.Write("users", "u:1\n");
  LeaveLine("00000000000000c6");
  support::SysFault fault;
  for (const int error : {EIO, EIO, ENOSPC, ENOSPC, EIO}) {
    fault.FailCall("ftruncate", error);
    brisq_panel::RecoverInTurn();
  }
  const auto io = HasSubstr(std::strerror(EIO));
  EXPECT_THAT(log_.Messages("brisq"), ElementsAre(AllOf(HasSubstr("not recovered yet"), io),
                                                  HasSubstr(std::strerror(ENOSPC)), io));
  fault.FailCall("", 0);
  brisq_panel::RecoverInTurn();
  EXPECT_THAT(log_.Messages("brisq"), Contains(HasSubstr("job 1")).Times(1));
}

// A reload that is in this process only would end with it.
TEST_F(RecoveryTest, AReloadThatCantBeStoredStaysOwed) {
  reloader::Queue::OfProcess().SetStore(std::make_shared<BrokenStore>());
  const AskingAction asking;
  journal::Entry("00000000000000c6", {"request", {{"name", "tls set"}}})
      .Write({{"call", {{"action", "test.asks"}, {"params", ""}}}, {"committed", {}}}, true);
  EXPECT_THAT(brisq_panel::RecoverRequests(),
              ElementsAre(HasSubstr("request of a: can't be stored")));
  EXPECT_EQ(1u, journal::Ids().size());
  reloader::Queue::OfProcess().SetStore(nullptr);
  EXPECT_THAT(brisq_panel::RecoverRequests(), ElementsAre(HasSubstr("finished job 1")));
  EXPECT_EQ(0u, journal::Ids().size());
  for (int times = 0; times < 2; ++times) {
    log_.ExpectError("request of a not stored yet");
  }
}

TEST_F(RecoveryTest, AnErrorOfARequestSaysNothingOfOthers) {
  dir_.Write("users", "u:1\n");
  LeaveLine("00000000000000c4");
  const auto fail = [](Request&) { throw mgr_err::Error("value", "it", "is wrong"); };
  EXPECT_EQ("value: it: is wrong", TextOf([&] { brisq_panel::RunRequest("test", fail); }));
  EXPECT_THAT(log_.Messages("brisq"), ElementsAre(HasSubstr("undid job 1")));
}

}  // namespace
