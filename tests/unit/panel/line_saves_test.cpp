#include "panel/line_saves.h"

#include <csignal>
#include <functional>

#include "framework/config_file.h"
#include "framework/doubts.h"
#include "framework/request.h"
#include "panel/domain_changes.h"
#include "panel/job_history.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/password_line.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::LineSaves;
using brisq_panel::StoreHash;

class LineSavesTest : public panel_test::PanelTest {
 protected:
  LineSavesTest() {
    mgr_cf::SetPath("dovecot-passwd", dir_ / "passwd");
    dir_.Write("passwd", kBefore);
  }
  const std::string kBefore = "a@x.org::1:1::/a:::\nb@x.org::1:1::/b:::\n";
};

TEST_F(LineSavesTest, WithoutAScopeACallIsMadeAtOnce) {
  bool called = false;
  LineSaves::WhenSaved([&] { called = true; });
  EXPECT_TRUE(called);
  EXPECT_FALSE(LineSaves::Active());
}

TEST_F(LineSavesTest, ACallWaitsForTheSaveAndWhatItPostsIsSavedToo) {
  LineSaves saves;
  EXPECT_TRUE(LineSaves::Active());
  StoreHash("a@x.org", "{X}one");
  std::string seen;
  LineSaves::WhenSaved([&] {
    seen = dir_.Read("passwd");
    StoreHash("b@x.org", "{X}two");
  });
  EXPECT_EQ(kBefore, dir_.Read("passwd"));
  saves.Save();
  EXPECT_EQ("a@x.org:{X}one:1:1::/a:::\nb@x.org::1:1::/b:::\n", seen);
  EXPECT_EQ("a@x.org:{X}one:1:1::/a:::\nb@x.org:{X}two:1:1::/b:::\n", dir_.Read("passwd"));
}

TEST_F(LineSavesTest, AnInnerScopeDoesNothingOfItsOwn) {
  LineSaves outer;
  bool called = false;
  {
    LineSaves inner;
    StoreHash("a@x.org", "{X}one");
    LineSaves::WhenSaved([&] { called = true; });
    inner.Save();
  }
  EXPECT_FALSE(called);
  EXPECT_EQ(kBefore, dir_.Read("passwd"));
  outer.Save();
  EXPECT_TRUE(called);
}

TEST_F(LineSavesTest, AnErrorOfACallIsThatOfTheSave) {
  LineSaves saves;
  LineSaves::WhenSaved([] { throw mgr_err::Error("email", "doveadm", "no"); });
  EXPECT_EQ("email: doveadm: no", panel_test::TextOf([&] { saves.Save(); }));
  EXPECT_EQ("none", panel_test::ErrorOf([&] { saves.Save(); }).type()) << "told once";
}

TEST_F(LineSavesTest, CallsOfAScopeThatEndsWithoutASaveAreDropped) {
  bool called = false;
  {
    const LineSaves saves;
    LineSaves::WhenSaved([&] { called = true; });
  }
  EXPECT_FALSE(called);
  EXPECT_FALSE(LineSaves::Active());
}

// The directory can't be synced: the file is in place, but may not outlive a power failure.
TEST_F(LineSavesTest, ASaveInDoubtIsNoError) {
  support::SysFault fault;
  Request request("test");
  LineSaves saves;
  StoreHash("a@x.org", "{X}one");
  std::size_t syncs = 0;
  fault.OnCall([&](std::string_view call, std::size_t) {
    if (call == "fsync" && ++syncs == 2) {
      fault.FailCall("fsync", EIO);
    }
  });
  EXPECT_EQ("none", panel_test::ErrorOf([&] { saves.Save(); }).type());
  EXPECT_EQ("a@x.org:{X}one:1:1::/a:::\nb@x.org::1:1::/b:::\n", dir_.Read("passwd"));
  request.Commit();
  EXPECT_EQ(1u, doubts::Take().size());
  log_.ExpectError(dir_ / "passwd");
}

// Requests that change the lines of many mailboxes; one after the other, each finds what it needs.
class ManyLines : public panel_test::FilePanelTest {
 protected:
  struct Step {
    const char* name;
    std::function<void()> work;
    int saves;         // at most; more than one where hashes are put back into new lines
    const char* call;  // of the mail server's back-end, for each mailbox
  };
  const std::vector<std::string> all_ = {"a@example.org", "b@example.org", "c@example.org",
                                         "d@example.org"};
  const std::vector<Step> steps_ = {
      {"domain off", [] { brisq_panel::SetDomain("example.org", {.active = false}); }, 1,
       "mail.Delete"},
      {"domain on", [] { brisq_panel::SetDomain("example.org", {.active = true}); }, 2,
       "mail.Create"},
      {"mailboxes off", [this] { brisq_panel::SetMailboxes(all_, {.active = false}); }, 1,
       "mail.Delete"},
      {"mailboxes on", [this] { brisq_panel::SetMailboxes(all_, {.active = true}); }, 2,
       "mail.Create"},
      {"mailboxes deleted", [this] { brisq_panel::DeleteMailboxes(all_); }, 1, "mail.Delete"},
      {"mailboxes restored", [this] { brisq_panel::RestoreMailboxes(all_); }, 2, "mail.Create"},
      {"domain deleted", [] { brisq_panel::DeleteDomain("example.org"); }, 1, "mail.Delete"},
  };

  ManyLines() {
    for (const char* local : {"a", "b", "c", "d"}) Add(local);
  }
};

TEST_F(ManyLines, AreSavedTogether) {
  const std::string before = Lines();
  for (const Step& step : steps_) {
    SCOPED_TRACE(step.name);
    support::SysFault calls;
    int saves = 0;
    calls.OnCall([&](std::string_view call, std::size_t) { saves += call == "rename" ? 1 : 0; });
    step.work();
    EXPECT_GE(saves, 1);
    EXPECT_LE(saves, step.saves);
    EXPECT_EQ(step.call == std::string("mail.Create") ? before : "", Lines());
  }
}

TEST_F(ManyLines, StayAsTheyAreWhenASignalComesBeforeTheSave) {
  for (const Step& step : steps_) {
    SCOPED_TRACE(step.name);
    const std::string before = Lines();
    const std::string rows = Column("SELECT name || active FROM mailboxes ORDER BY name");
    static volatile std::sig_atomic_t ended = 0;
    ended = 0;
    const auto handler = std::signal(SIGTERM, [](int) { ended = 1; });
    calls_.effects[step.call] = [] { std::raise(SIGTERM); };
    EXPECT_THAT(panel_test::TextOf(step.work),
                testing::HasSubstr("interrupted, nothing was changed"));
    std::signal(SIGTERM, handler);
    EXPECT_EQ(1, ended) << "it is obeyed once all is taken back";
    EXPECT_EQ(before, Lines());
    EXPECT_EQ(rows, Column("SELECT name || active FROM mailboxes ORDER BY name"));
    calls_.effects.clear();
    step.work();
  }
}

}  // namespace
