#include "framework/doubts.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "framework/conf_defer.h"
#include "framework/request.h"
#include "tests/support/log_capture.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::SetPassword;

TEST(Doubts, AreTakenOnceInTheirOrderAndLogged) {
  support::LogCapture log;
  doubts::Note("one");
  doubts::Note("two");
  doubts::Note("one");
  EXPECT_EQ(doubts::Take(), (std::vector<std::string>{"one", "two"}));
  EXPECT_EQ(doubts::Take(), std::vector<std::string>{});
  log.Clear();
}

/// Files whose directory can't be synced.
class DoubtfulFile : public conf_fixture::ConfTest {
 protected:
  DoubtfulFile() {
    Write(Line("a", "old") + "\n");
    // The file itself is synced first, then its directory.
    fault_.OnCall([this](std::string_view call, std::size_t) {
      if (call != "fsync") return;
      fault_.FailCall("fsync", ++syncs_ % 2 == 0 ? EIO : 0);
    });
  }
  ~DoubtfulFile() override { log_.Clear(); }

  support::LogCapture log_;
  support::SysFault fault_;
  int syncs_ = 0;
  const std::string doubt_ =
      path_ + " was changed, but the change may be lost on a power failure: fsync of " +
      folder_.path() + ": Input/output error";
};

TEST_F(DoubtfulFile, WithoutARequestThePostIsAnErrorOfItsOwnTypeAndTheChangeStays) {
  const auto users = Open();
  EXPECT_EQ(ErrorOf([&] { SetPassword(users, "a", "new"); }),
            "doubt: " + path_ + ": " + doubt_.substr(path_.size() + 1));
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
  users->Assert("a");
  EXPECT_EQ(users->passwd.Str(), "new");
  EXPECT_EQ(doubts::Take(), std::vector<std::string>{});
}

TEST_F(DoubtfulFile, ARequestGoesOnAndItsDoubtIsKept) {
  const auto users = Open();
  bool committed = false;
  {
    Request request("test");
    request.AfterCommit("note", [&] { committed = true; });
    SetPassword(users, "a", "new");
    request.Commit();
    EXPECT_TRUE(request.Notes().empty());
  }
  EXPECT_TRUE(committed);
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
  EXPECT_EQ(doubts::Take(), std::vector<std::string>{doubt_});
}

TEST_F(DoubtfulFile, ARequestThatDefersItsSavesGoesOnToo) {
  const auto users = Open();
  Request request("test");
  {
    DeferSaves saves(DeferSaves::Between::kNever);
    SetPassword(users, "a", "new");
    saves.Save();
  }
  request.Commit();
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
  EXPECT_EQ(doubts::Take(), std::vector<std::string>{doubt_});
}

TEST_F(DoubtfulFile, ARequestThatFailsForAnotherReasonIsTakenBackInDoubt) {
  const auto users = Open();
  {
    Request request("test");
    SetPassword(users, "a", "new");
    request.Rollback();
    EXPECT_TRUE(request.Notes().empty());
  }
  EXPECT_EQ(Content(), Line("a", "old") + "\n");
  EXPECT_EQ(doubts::Take(), std::vector<std::string>{doubt_});
}

TEST_F(DoubtfulFile, OtherErrorsOfASaveAreNoDoubt) {
  const auto users = Open();
  fault_.OnCall({});
  fault_.FailCall("rename", EIO);
  Request request("test");
  EXPECT_NE(ErrorOf([&] { SetPassword(users, "a", "new"); }), "");
  fault_.FailCall("", 0);
  EXPECT_EQ(doubts::Take(), std::vector<std::string>{});
  EXPECT_EQ(Content(), Line("a", "old") + "\n");
}

}  // namespace
