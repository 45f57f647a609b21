#include "panel/sync.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>

#include "framework/config_file.h"
#include "framework/database.h"
#include "mgr_cf.h"
#include "panel/archive.h"
#include "panel/mailbox_changes.h"
#include "panel/password_line.h"
#include "panel/records.h"
#include "tests/support/sanitized.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace brisq_panel {
namespace {

using panel_test::ErrorOf;
using panel_test::TextOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

// The stand-in's lines: NAME:{CLEAR}PASSWORD::::HOME:::quota N
class SyncTest : public panel_test::FilePanelTest {
 protected:
  SyncTest() {
    Add("al");
    Add("bo");
    MakeMaildirs();
  }

  // The stand-in makes none.
  static void MakeMaildirs() { Sync(false); }
  std::string Masked(const std::string& local) const {
    return local + "@example.org:{CLEAR}***::::" + Home() + "/mail/example.org/" + local +
           ":::quota ";
  }
  std::string Unhashed(const std::string& local) const {
    return local + "@example.org:::::" + Home() + "/mail/example.org/" + local + ":::quota ";
  }
};

TEST_F(SyncTest, NothingIsDoneWhenNothingDiffers) {
  const std::string before = Lines();
  EXPECT_FALSE(PlanSync().Differs());
  EXPECT_FALSE(Sync(true).Differs());
  EXPECT_EQ(before, Lines());
}

TEST_F(SyncTest, ALostFileComesBackWithThePasswordsThatThePanelKeeps) {
  const std::string before = Lines();
  std::filesystem::remove(path_);
  const SyncReport plan = PlanSync();
  EXPECT_THAT(plan.diff, ElementsAre("@@ line 1 @@", "+" + Unhashed("al"), "+" + Unhashed("bo")));
  EXPECT_THAT(plan.passwordless, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(path_));
  const SyncReport report = Sync(false);
  EXPECT_THAT(report.diff, ElementsAre("@@ line 1 @@", "+" + Masked("al"), "+" + Masked("bo")));
  EXPECT_EQ(before, Lines());
  EXPECT_FALSE(PlanSync().Differs());
}

TEST_F(SyncTest, PasswordsThatNobodyKeepsAreListedAndMadeOnRequest) {
  Use(true);
  SetPassword("al@example.org", "now-in-the-file-alone");
  SetPassword("bo@example.org", "now-in-the-file-alone");
  RemoveLine("al@example.org");
  EXPECT_THAT(PlanSync().passwordless, ElementsAre("al@example.org"));
  const SyncReport without = Sync(false);
  EXPECT_THAT(without.passwordless, ElementsAre("al@example.org"));
  EXPECT_THAT(without.passwords, IsEmpty());
  EXPECT_EQ(Unhashed("al"), LineOf("al@example.org"));
  EXPECT_FALSE(Sync(false).Differs()) << "the list repeats, the lines do not";

  const SyncReport with = Sync(true);
  ASSERT_EQ(1u, with.passwords.size());
  EXPECT_EQ("al@example.org", with.passwords[0].first);
  EXPECT_THAT(LineOf("al@example.org"),
              StartsWith("al@example.org:{CLEAR}" + with.passwords[0].second + ":"));
  EXPECT_THAT(with.diff.back(), Not(HasSubstr(with.passwords[0].second)));
  EXPECT_THAT(LineOf("bo@example.org"), StartsWith("bo@example.org:{CLEAR}now-in-the-file-alone:"));
}

// Hashing thousands of passwords takes minutes.
TEST_F(SyncTest, OneThatIsInterruptedBeforeItsSaveChangesNothing) {
  Use(true);
  for (const char* address : {"al@example.org", "bo@example.org"}) RemoveLine(address);
  const std::string before = Lines();
  static volatile std::sig_atomic_t ended = 0;
  const auto handler = std::signal(SIGTERM, [](int) { ended = 1; });
  calls_.effects["passwords.Update"] = [] {
    std::raise(SIGTERM);
    EXPECT_EQ(0, ended);
  };
  EXPECT_EQ("later: sync: interrupted, nothing was changed", TextOf([] { Sync(true); }));
  std::signal(SIGTERM, handler);
  EXPECT_EQ(1, ended) << "it is obeyed once all is taken back";
  EXPECT_EQ(before, Lines());
  calls_.effects.clear();
  EXPECT_EQ(2u, Sync(true).passwords.size());
}

TEST_F(SyncTest, AKeptPasswordIsHashedAnewWhereTheLineHasNone) {
  dir_.Write("passwd", Unhashed("al") + "\n" + LineOf("bo@example.org") + "\n");
  EXPECT_THAT(PlanSync().passwordless, IsEmpty());
  Sync(false);
  EXPECT_THAT(LineOf("al@example.org"), StartsWith("al@example.org:{CLEAR}secret:"));
}

TEST_F(SyncTest, ValuesFollowTheTableAndPasswordsStay) {
  dir_.Write("passwd", "al@example.org:{CLEAR}by hand::::/elsewhere:::quota 9\n" +
                           LineOf("bo@example.org") + "\n");
  Sync(false);
  EXPECT_EQ("al@example.org:{CLEAR}by hand::::" + Home() + "/mail/example.org/al:::quota ",
            LineOf("al@example.org"));
}

TEST_F(SyncTest, LinesOfOthersAreLeftAloneAndListed) {
  const std::string others = "# remark\nzed@else.org:x:::::::\nshort:line\n";
  dir_.Write("passwd", others + Lines());
  RemoveLine("al@example.org");
  const SyncReport report = Sync(false);
  EXPECT_THAT(report.strangers, ElementsAre("zed@else.org"));
  EXPECT_THAT(Lines(), StartsWith(others));
}

TEST_F(SyncTest, ALineOfAMailboxThatIsSwitchedOffLeavesAndItsPasswordIsKept) {
  const std::string before = LineOf("al@example.org");
  SetMailboxes({"al@example.org"}, {.active = false});
  dir_.Write("passwd", Lines() + "al@example.org:{CLEAR}stale::::/x:::\n");
  const SyncReport plan = PlanSync();
  EXPECT_THAT(plan.diff, ElementsAre("@@ line 2 @@", "-al@example.org:{CLEAR}***::::/x:::"));
  Sync(false);
  EXPECT_EQ("none", LineOf("al@example.org"));
  EXPECT_EQ("1", Column("SELECT COUNT(*) FROM mailbox_archive"));
  SetMailboxes({"al@example.org"}, {.active = true});
  EXPECT_EQ(before, LineOf("al@example.org")) << "the panel keeps the password";
}

TEST_F(SyncTest, MissingMaildirsAreMade) {
  const std::string maildir = Home() + "/mail/example.org/al/.maildir";
  std::filesystem::remove_all(maildir + "/new");
  EXPECT_THAT(PlanSync().maildirs, ElementsAre(maildir));
  EXPECT_FALSE(std::filesystem::exists(maildir + "/new"));
  EXPECT_THAT(Sync(false).maildirs, ElementsAre(maildir));
  EXPECT_TRUE(std::filesystem::exists(maildir + "/new"));
}

TEST_F(SyncTest, ATrapInOneUsersWayKeepsNobodyElseOut) {
  const std::string home = Home() + "/mail/example.org/al";
  std::filesystem::remove_all(home);
  std::filesystem::create_directory_symlink("/tmp", home);
  std::filesystem::remove(path_);
  const SyncReport report = Sync(false);
  EXPECT_THAT(report.unsafe, ElementsAre(home + ": not safe: is a symbolic link"));
  EXPECT_EQ("none", LineOf("al@example.org"));
  EXPECT_THAT(LineOf("bo@example.org"), StartsWith("bo@example.org:{CLEAR}secret:"));
}

TEST_F(SyncTest, AnErrorOfTheSystemAtAnyCallIsToldOrDoesNoHarm) {
  const std::string maildir = Home() + "/mail/example.org/al/.maildir";
  bool failed = true;
  int told = 0;
  for (std::size_t call = 1; failed; ++call) {
    SCOPED_TRACE(call);
    std::filesystem::remove_all(maildir + "/new");
    SyncReport report;
    bool refused = false;
    {
      support::SysFault fault;
      fault.FailNumber(call, EIO, false);
      try {
        report = Sync(false);
      } catch (const mgr_err::Error&) {
        refused = true;
      }
      failed = fault.Failed();
    }
    const bool made = std::filesystem::exists(maildir + "/new");
    EXPECT_TRUE(refused || !report.unsafe.empty() || made);
    EXPECT_EQ(made && !refused, !report.maildirs.empty()) << "what is told was done";
    told += refused || !report.unsafe.empty() ? 1 : 0;
  }
  EXPECT_GT(told, 10);
}

TEST_F(SyncTest, AFailureLeavesTheFileAsItWas) {
  RemoveLine("bo@example.org");
  dir_.Write("passwd", "al@example.org:{CLEAR}x::::/elsewhere:::\n");
  const std::string before = Lines();
  calls_.failing = "mail.Create";
  EXPECT_EQ("email", ErrorOf([] { Sync(false); }).type());
  EXPECT_EQ(before, Lines());
}

// The tool may print what is no hash, and end well.
TEST_F(SyncTest, WhatIsStoredForAPasswordIsChecked) {
  struct Case {
    const char* name;
    bool backend_keeps;
    bool generate;
    bool line;
  };
  for (const Case& c : {Case{"a kept one", false, false, true},
                        Case{"a kept one, in a line that is on no disk yet", false, false, false},
                        Case{"a new one", false, true, true},
                        Case{"a new one that the back-end keeps", true, true, true},
                        Case{"a new one, in a new line", true, true, false}}) {
    SCOPED_TRACE(c.name);
    Use(c.backend_keeps);
    if (c.generate) {
      mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET password = ''");
    }
    dir_.Write("passwd", c.line ? Unhashed("al") + "\n" + Unhashed("bo") + "\n" : "# lost\n");
    const std::string before = Lines();
    const std::string kept = Column("SELECT password FROM mailboxes");
    mgr_cf::SetParam("StandInAnswer", "*0");
    EXPECT_EQ("email: doveadm: al@example.org: its answer is no hash",
              panel_test::TextOf([&] { Sync(c.generate); }));
    EXPECT_EQ(before, Lines());
    EXPECT_EQ(kept, Column("SELECT password FROM mailboxes"));
    mgr_cf::SetParam("StandInAnswer", "");
  }
}

TEST_F(SyncTest, AllLinesOfAMailboxThatIsSwitchedOffLeave) {
  for (const bool passwords : {true, false}) {
    SCOPED_TRACE(passwords);
    Use(passwords);
    SetMailboxes({"al@example.org"}, {.active = false});
    dir_.Write("passwd",
               Lines() + "al@example.org:{CLEAR}1::::/x:::\nal@example.org:{CLEAR}2::::/x:::\n");
    Sync(false);
    EXPECT_EQ("none", LineOf("al@example.org"));
    SetMailboxes({"al@example.org"}, {.active = true});
    EXPECT_THAT(LineOf("al@example.org"), StartsWith(passwords ? "al@example.org:{CLEAR}1:"
                                                               : "al@example.org:{CLEAR}secret:"));
  }
}

// One replacement of the file, whatever the number of lines.
TEST_F(SyncTest, ThousandsOfLinesAreOneSave) {
  constexpr std::size_t kMailboxes = support::kSanitized ? 2000 : 10000;
  Use(true);
  const auto connection = mgr_db::ThreadConnection();
  {
    const mgr_db::GroupedChanges rows;
    for (std::size_t i = 0; i < kMailboxes; ++i) {
      connection->Change(
          "INSERT INTO mailboxes (name, domain, owner, password, pwupdate, home, quota, used,"
          " active, tag) SELECT :v1, 1, 1, '', 'off', home || '/mail/example.org/al', '', 0, 'on',"
          " 0 FROM owners",
          {"user" + std::to_string(i)});
    }
  }
  std::size_t saves = 0;
  {
    support::SysFault watch;
    watch.OnCall([&](std::string_view call, std::size_t) { saves += call == "rename" ? 1u : 0u; });
    EXPECT_EQ(kMailboxes + 1, Sync(false).diff.size());
  }
  EXPECT_EQ(1u, saves);
  const std::string last = "user" + std::to_string(kMailboxes - 1) + "@example.org";
  EXPECT_THAT(LineOf(last), StartsWith(last + ":"));
  EXPECT_FALSE(PlanSync().Differs());
}

}  // namespace
}  // namespace brisq_panel
