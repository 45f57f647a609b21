#include "panel/figures_guard.h"

#include <filesystem>

#include "framework/config_file.h"
#include "framework/database.h"
#include "panel/mailboxes.h"
#include "tests/support/stub_program.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::MailboxSnapshot;
using brisq_panel::QuotaProblem;
using brisq_panel::RefreshWatch;

class FiguresGuard : public panel_test::PanelTest {
 protected:
  FiguresGuard() {
    mgr_cf::SetPath("dovecot-doveadm",
                    support::WriteStub(dir_ / "doveadm", "echo asked >>" + (dir_ / "asked") +
                                                             "\ncat " + (dir_ / "answer")));
    Answer(
        "doveadm(root): Error: some user\nFatal: Unknown command 'quota', but plugin quota "
        "exists\n");
  }
  void Answer(const std::string& text) { dir_.Write("answer", text); }
  bool WasAsked() const { return std::filesystem::exists(dir_ / "asked"); }

  static constexpr const char* kProblem = "Fatal: Unknown command 'quota', but plugin quota exists";
  // {has a home, used, tag, active}
  const MailboxSnapshot before_ = {{1, {true, 5, 1, true}}, {2, {true, 0, 1, true}}};
};

void Walk() { RefreshWatch::SawFile("/passwd", ConfStamp{}, true); }

TEST_F(FiguresGuard, SomeFigureInAWalkIsEnough) {
  const RefreshWatch watch(9);
  Walk();
  EXPECT_EQ("", QuotaProblem(before_, {{1, {true, 0, 2, true}}, {2, {true, 3, 2, true}}}, watch));
  EXPECT_FALSE(WasAsked());
}

TEST_F(FiguresGuard, ZerosAloneInAWalkMakeTheServerBeAsked) {
  const RefreshWatch watch(9);
  Walk();
  const MailboxSnapshot zeros = {{1, {true, 0, 2, true}}, {2, {true, 0, 2, true}}};
  EXPECT_EQ(kProblem, QuotaProblem(before_, zeros, watch));
  Answer("Username Quota name Type Value Limit %\nalice User quota STORAGE 0 - 0\n");
  EXPECT_EQ("", QuotaProblem(before_, zeros, watch)) << "they are empty indeed";
}

TEST_F(FiguresGuard, MailboxesThatTheWalkDidNotSeeDoNotCount) {
  const RefreshWatch watch(9);
  Walk();
  EXPECT_EQ(kProblem,
            QuotaProblem(before_, {{1, {true, 5, 1, false}}, {2, {true, 0, 2, true}}}, watch));
  EXPECT_EQ("", QuotaProblem(before_, before_, watch)) << "a walk that saw none";
  EXPECT_EQ("", QuotaProblem(before_, {}, watch));
}

TEST_F(FiguresGuard, WithoutAWalkNamesThatWereLookedUpAreFigures) {
  const RefreshWatch watch(9);
  EXPECT_EQ(kProblem, QuotaProblem(before_, before_, watch));
  RefreshWatch::SawName("alice@example.org", true);
  EXPECT_EQ("", QuotaProblem(before_, before_, watch));
}

TEST_F(FiguresGuard, APanelWithoutActiveMailboxesNeedsNoFigures) {
  const RefreshWatch watch(9);
  EXPECT_EQ("", QuotaProblem({}, {}, watch));
  EXPECT_EQ("", QuotaProblem(before_, {{1, {true, 5, 1, false}}}, watch));
  EXPECT_FALSE(WasAsked());
}

TEST_F(FiguresGuard, TheReasonIsTheLineThatSaysWhy) {
  const struct {
    const char* name;
    const char* answer;
    const char* reason;
  } cases[] = {
      {"a server that is down",
       "Error: auth-master: userdb list: connect(/run/dovecot/auth-userdb) failed: No such file\n"
       "Panic: file auth-master.c: line 436\nError: Raw backtrace: #0 x\nAborted\n",
       "Error: auth-master: userdb list: connect(/run/dovecot/auth-userdb) failed: No such file;"
       " is Dovecot running?"},
      {"what is fatal before what is not", "Error: one\nFatal: two\nError: three\n", "Fatal: two"},
      {"the last line of others", "one\ntwo\n\n", "two"},
  };
  const RefreshWatch watch(9);
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    Answer(item.answer);
    EXPECT_EQ(item.reason, QuotaProblem(before_, before_, watch));
  }
  mgr_cf::SetPath("dovecot-doveadm", support::WriteStub(dir_ / "silent", "exit 3"));
  EXPECT_EQ("doveadm quota told no figures, and ended with exit status 3",
            QuotaProblem(before_, before_, watch));
}

TEST_F(FiguresGuard, AServerThatSaysNothingIsAProblemToo) {
  const RefreshWatch watch(9);
  Answer("");
  EXPECT_EQ("doveadm quota told no figures", QuotaProblem(before_, before_, watch));
  mgr_cf::SetPath("dovecot-doveadm", dir_ / "missing");
  EXPECT_NE("", QuotaProblem(before_, before_, watch));
  mgr_cf::SetPath("dovecot-doveadm", "");
  EXPECT_EQ("the path dovecot-doveadm is not set", QuotaProblem(before_, before_, watch));
}

TEST_F(FiguresGuard, FiguresComeBackForTheMailboxesThatAreStillThere) {
  AddBobsDomain();
  email::RegisterPop3(&mail_);
  for (const char* address : {"a@example.org", "b@example.org", "c@example.org"}) {
    brisq_panel::AddMailbox({address, "secret"});
  }
  mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET used = id * 10");
  const MailboxSnapshot before = brisq_panel::TakeMailboxSnapshot();
  mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET used = 0, tag = 7, home = ''");
  mgr_db::ThreadConnection()->Change("DELETE FROM mailboxes WHERE id = 2");
  MailboxSnapshot after = brisq_panel::TakeMailboxSnapshot();
  brisq_panel::RestoreFigures(before, after);
  EXPECT_EQ("10 30", Column("SELECT used FROM mailboxes ORDER BY id"));
  EXPECT_EQ(30, after.at(3).used);
  EXPECT_EQ(7, after.at(3).tag);
  EXPECT_TRUE(before.at(3).has_home);
  EXPECT_FALSE(after.at(3).has_home);
  EXPECT_TRUE(after.at(3).active);
}

}  // namespace
