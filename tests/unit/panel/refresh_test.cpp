#include "panel/refresh.h"

#include <filesystem>
#include <set>
#include <thread>

#include "framework/config_file.h"
#include "framework/database.h"
#include "panel/email_module.h"
#include "panel/mailbox_changes.h"
#include "panel/mailboxes.h"
#include "panel/panel_state.h"
#include "panel/refresh_lock.h"
#include "tests/support/stub_program.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::Refresh;
using panel_test::ErrorOf;
using panel_test::TextOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class RefreshTest : public panel_test::FilePanelTest {
 protected:
  RefreshTest() {
    brisq_panel::RefreshLock::SetFolder(dir_.path());
    mgr_cf::SetPath("dovecot-doveadm",
                    support::WriteStub(dir_ / "doveadm", "echo 'quota: no such plugin'; exit 75"));
    Add("alice");
    Add("carol");
    mail_in_use_->figures = {{kAlice, 3}, {kCarol, 4}};
  }
  static std::string Used() { return Column("SELECT used FROM mailboxes ORDER BY name"); }
  bool Walks() { return Refresh(false).walked; }

  const std::string kAlice = "alice@example.org";
  const std::string kCarol = "carol@example.org";
};

TEST_F(RefreshTest, TheFirstOneWalksAndTheNextDoesNot) {
  const auto first = Refresh(false);
  EXPECT_TRUE(first.walked);
  EXPECT_EQ(2u, first.lines);
  EXPECT_EQ(2u, first.figures_changed);
  EXPECT_EQ("", first.quota_problem);
  EXPECT_EQ("3 4", Used());
  mail_in_use_->figures[kAlice] = 9;
  const auto second = Refresh(false);
  EXPECT_FALSE(second.walked);
  EXPECT_EQ(0u, second.lines);
  EXPECT_EQ(1u, second.figures_changed);
  EXPECT_EQ("9 4", Used());
}

TEST_F(RefreshTest, WhatItDidIsReported) {
  dir_.Write("passwd", Lines() + "foreign@example.net:x:1:1::/h:::\n");
  mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET home = '' WHERE name = 'carol'");
  Add("dave");
  RemoveLine("dave@example.org");
  const auto report = Refresh(false);
  EXPECT_EQ(3u, report.lines);
  EXPECT_THAT(report.unknown, ElementsAre("foreign@example.net"));
  EXPECT_EQ(1u, report.homes_filled);
  EXPECT_THAT(report.swept, ElementsAre("dave@example.org"));
  EXPECT_EQ(Home() + "/mail/example.org/carol", brisq_panel::ShowMailbox("carol@example.org").home);
}

// Rows are read ahead and marked many at a time, in the order of the file or in none.
TEST_F(RefreshTest, OfManyMailboxesThoseWithoutALineAreSwept) {
  constexpr int kMany = 400;
  const auto name_of = [](int number) { return "m" + std::to_string(1000 + number); };
  for (int number = 0; number < kMany; ++number) {
    mgr_db::ThreadConnection()->Change(
        "INSERT INTO mailboxes (name, domain, owner, password, pwupdate, home, quota, used, active,"
        " tag) SELECT :v1, domain, owner, '', 'off', '/h', '', 0, 'on', 0 FROM mailboxes LIMIT 1",
        {name_of(number)});
    mail_in_use_->figures[name_of(number) + "@example.org"] = number % 90 == 0 ? 5 : 0;
  }
  const std::string before = Lines();
  std::set<int> gone;
  for (const auto& [step, next] : {std::pair{1, 123}, std::pair{7, 301}}) {
    SCOPED_TRACE(step);
    gone.insert(next);
    std::string text = before;
    for (int at = 0; at < kMany; ++at) {
      const int number = at * step % kMany;
      text += gone.count(number) != 0 ? "" : name_of(number) + "@example.org:x:1:1::/h:::\n";
    }
    dir_.Write("passwd", text);
    EXPECT_THAT(Refresh(false).swept, ElementsAre(name_of(next) + "@example.org"));
    EXPECT_EQ("5", Column("SELECT DISTINCT used FROM mailboxes WHERE name IN ('m1000', 'm1360')"));
    EXPECT_EQ("1", Column("SELECT COUNT(DISTINCT tag) FROM mailboxes"));
  }
}

TEST_F(RefreshTest, AFileThatWasChangedIsWalkedAgain) {
  Refresh(false);
  dir_.Write("passwd", Lines() + "# by hand\n");
  EXPECT_TRUE(Walks());
  EXPECT_FALSE(Walks());
}

TEST_F(RefreshTest, ItsOwnSavesDoNotMakeItWalkAgain) {
  mail_in_use_->caches_passwords = true;
  const std::string before = Lines();
  std::string tampered = before;
  tampered.replace(tampered.find("{CLEAR}secret"), 13, "{CLEAR}byhand");
  dir_.Write("passwd", tampered);
  EXPECT_TRUE(Walks());
  EXPECT_EQ(before, Lines()) << "the panel's password is back";
  EXPECT_FALSE(Walks());
}

// By hand, with the panel keeping the passwords.
TEST_F(RefreshTest, PasswordsThatAreNotDueYetAreLookedAtByALaterOne) {
  mail_in_use_->caches_passwords = true;
  mgr_cf::SetParam("EmailPasswordDelay", "3600");
  EXPECT_TRUE(Walks());
  EXPECT_FALSE(Walks());
  const std::string before = Lines();
  std::string tampered = before;
  tampered.replace(tampered.find("{CLEAR}secret"), 13, "{CLEAR}byhand");
  dir_.Write("passwd", tampered);
  EXPECT_TRUE(Walks());
  EXPECT_EQ(tampered, Lines()) << "too early";
  EXPECT_TRUE(Walks()) << "it has not forgotten";
  mgr_cf::SetParam("EmailPasswordDelay", "0");
  EXPECT_TRUE(Walks());
  EXPECT_EQ(before, Lines());
  EXPECT_FALSE(Walks());
}

TEST_F(RefreshTest, AForeignChangeMeanwhileMakesItWalkAgain) {
  mail_in_use_->caches_passwords = true;
  struct Case {
    const char* name;
    const char* place;
  };
  for (const Case& c : {Case{"before its own saves", "swept"}, Case{"between", "walked"}}) {
    SCOPED_TRACE(c.name);
    mail_in_use_->at.clear();
    mail_in_use_->at[c.place] = [&] { dir_.Write("passwd", Lines() + "# by hand\n"); };
    dir_.Write("passwd", Lines() + "# begin\n");
    EXPECT_TRUE(Walks());
    mail_in_use_->at.clear();
    EXPECT_TRUE(Walks());
    EXPECT_FALSE(Walks());
  }
}

TEST_F(RefreshTest, AForeignChangeAfterItsOwnSavesMakesItWalkAgain) {
  mail_in_use_->caches_passwords = true;
  calls_.effects["mail.Cache"] = [&] { dir_.Write("passwd", Lines() + "# by hand\n"); };
  EXPECT_TRUE(Walks());
  calls_.effects.clear();
  EXPECT_TRUE(Walks());
  EXPECT_FALSE(Walks());
}

TEST_F(RefreshTest, OneThatFailsKeepsItsRowsAndWalksAgain) {
  calls_.failing = "mail.Cache";
  EXPECT_EQ("email", ErrorOf([] { Refresh(false); }).type());
  EXPECT_EQ("3 4", Used());
  calls_.failing.clear();
  EXPECT_TRUE(Walks());
}

TEST_F(RefreshTest, ATooLargeSweepStopsItBeforeAnyRowIsGone) {
  for (int i = 0; i < 20; ++i) {
    Add("m" + std::to_string(i));
  }
  const std::string whole = Lines();
  dir_.Write("passwd", whole.substr(0, whole.find("m0@")));  // cut by accident
  const auto error = ErrorOf([] { Refresh(false); });
  EXPECT_EQ("limit", error.type());
  EXPECT_THAT(error.value(), testing::AllOf(HasSubstr("20 of 22"), HasSubstr("--sweep")));
  EXPECT_EQ(22u, brisq_panel::ListMailboxes().size());
  EXPECT_EQ("limit", ErrorOf([] { Refresh(false); }).type()) << "it walks again";
  const auto report = Refresh(true);
  EXPECT_EQ(20u, report.swept.size());
  EXPECT_EQ(2u, brisq_panel::ListMailboxes().size());
}

TEST_F(RefreshTest, SwitchedOffMailboxesAreNotSwept) {
  brisq_panel::SetMailboxes({kAlice}, {.active = false});
  EXPECT_THAT(Refresh(false).swept, IsEmpty());
  EXPECT_EQ(2u, brisq_panel::ListMailboxes().size());
}

// The walk has passed the end of the file when these lines are added.
TEST_F(RefreshTest, MailboxesMadeBehindTheWalkAreNotSwept) {
  brisq_panel::SetMailboxes({kCarol}, {.active = false});
  mail_in_use_->at["walked"] = [this] {
    mgr_db::GroupedChanges().Commit();  // others get their turn between two transactions
    std::jthread([this] {
      Add("dave");
      brisq_panel::SetMailboxes({kCarol}, {.active = true});
    });
  };
  const auto report = Refresh(false);
  EXPECT_THAT(report.swept, IsEmpty());
  EXPECT_EQ("alice carol dave", Column("SELECT name FROM mailboxes ORDER BY name"));
}

TEST_F(RefreshTest, FiguresStayWhenTheServerTellsNone) {
  Refresh(false);
  mail_in_use_->figures.clear();
  dir_.Write("passwd", Lines() + "# changed\n");
  const auto walked = Refresh(false);
  EXPECT_TRUE(walked.walked);
  EXPECT_EQ("quota: no such plugin", walked.quota_problem);
  EXPECT_EQ(0u, walked.figures_changed);
  EXPECT_EQ("3 4", Used());
  const auto unchanged = Refresh(false);
  EXPECT_FALSE(unchanged.walked) << "the walk itself ended well";
  EXPECT_EQ("quota: no such plugin", unchanged.quota_problem);
  EXPECT_EQ("quota: no such plugin", brisq_panel::KeptValue(brisq_panel::kQuotaProblem));
  mail_in_use_->figures = {{kAlice, 5}, {kCarol, 6}};
  EXPECT_EQ("", Refresh(false).quota_problem);
  EXPECT_EQ("5 6", Used());
  EXPECT_EQ("", brisq_panel::KeptValue(brisq_panel::kQuotaProblem));
}

TEST_F(RefreshTest, FiguresStayWhenItFailsAfterTheWalkToo) {
  Refresh(false);
  mail_in_use_->figures.clear();
  dir_.Write("passwd", Lines() + "# changed\n");
  calls_.failing = "mail.Cache";
  EXPECT_EQ("email", ErrorOf([] { Refresh(false); }).type());
  EXPECT_EQ("3 4", Used());
}

TEST_F(RefreshTest, ThereIsOneAtATime) {
  const brisq_panel::RefreshLock lock;
  EXPECT_EQ("locked: refresh: another refresh is running", TextOf([] { Refresh(false); }));
}

TEST_F(RefreshTest, WithoutAMailBackendThereIsNone) {
  brisq_panel::ForgetBackends();
  EXPECT_EQ("plugin", ErrorOf([] { Refresh(false); }).type());
}

TEST_F(RefreshTest, TablesAreBackInTheStockWhateverHappens) {
  calls_.failing = "mail.Cache";
  for (int i = 0; i < 3; ++i) {
    ErrorOf([] { Refresh(false); });
  }
  brisq_db::EmailTable* seen = brisq_db::GetCache().Get<brisq_db::EmailTable>().get();
  ErrorOf([] { Refresh(false); });
  EXPECT_EQ(seen, brisq_db::GetCache().Get<brisq_db::EmailTable>().get());
}

}  // namespace
