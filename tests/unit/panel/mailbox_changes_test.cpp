#include "panel/mailbox_changes.h"

#include "framework/config_file.h"
#include "panel/domain_changes.h"
#include "panel/email_module.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::MailboxChange;
using brisq_panel::SetMailboxes;
using brisq_panel::SetPassword;
using panel_test::ErrorOf;
using panel_test::TextOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

class MailboxChanges : public panel_test::FilePanelTest {
 protected:
  MailboxChanges() {
    Add("alice");
    Add("carol");
    calls_.made.clear();
  }
  const std::string kAlice = "alice@example.org";
  const std::string kCarol = "carol@example.org";
};

TEST_F(MailboxChanges, AQuotaIsChangedInRowAndLine) {
  const auto changed = SetMailboxes({kAlice}, {.quota = "2G"});
  ASSERT_EQ(1u, changed.mailboxes.size());
  EXPECT_EQ(2048, changed.mailboxes[0].quota_mb);
  EXPECT_THAT(changed.notes, IsEmpty());
  EXPECT_THAT(LineOf(kAlice), testing::EndsWith(":quota 2048"));
  EXPECT_THAT(LineOf(kCarol), testing::EndsWith(":quota "));
}

TEST_F(MailboxChanges, ManyMailboxesAreChangedTogether) {
  const auto changed = SetMailboxes({kCarol, "ALICE@example.org"}, {.quota = "5"});
  ASSERT_EQ(2u, changed.mailboxes.size());
  EXPECT_EQ(kCarol, changed.mailboxes[0].address);
  EXPECT_EQ(kAlice, changed.mailboxes[1].address);
  EXPECT_EQ("5 5", Column("SELECT quota FROM mailboxes"));
}

TEST_F(MailboxChanges, AllOrNoneAreChanged) {
  const std::string before = Lines();
  EXPECT_EQ("missed: mailbox: nobody@example.org", TextOf([&] {
              SetMailboxes({kAlice, "nobody@example.org"}, {.quota = "5"});
            }));
  EXPECT_EQ("0", Column("SELECT COUNT(*) FROM mailboxes WHERE quota <> ''"));
  EXPECT_EQ(before, Lines());
}

TEST_F(MailboxChanges, AHomeIsChangedAndTheMailsPlaceIsSaid) {
  const auto changed = SetMailboxes({kAlice}, {.home = Home() + "/new"});
  EXPECT_EQ(Home() + "/new", changed.mailboxes[0].home);
  EXPECT_THAT(changed.notes, ElementsAre("the mail of alice@example.org stays in " + Home() +
                                         "/mail/example.org/alice"));
  EXPECT_THAT(LineOf(kAlice), HasSubstr(":" + Home() + "/new:"));
}

TEST_F(MailboxChanges, WhatIsNotAskedForStays) {
  SetMailboxes({kAlice}, {.quota = "5"});
  const auto changed = SetMailboxes({kAlice}, {.home = Home() + "/new"});
  EXPECT_EQ(5, changed.mailboxes[0].quota_mb);
  EXPECT_TRUE(changed.mailboxes[0].active);
  EXPECT_THAT(LineOf(kAlice), StartsWith("alice@example.org:{CLEAR}secret:"));
}

TEST_F(MailboxChanges, ValuesAreCheckedBeforeAnythingIsTouched) {
  struct Case {
    const char* name;
    std::vector<std::string> addresses;
    MailboxChange change;
    std::string text;
  };
  const Case cases[] = {
      {"quota",
       {kAlice},
       {.quota = "5T"},
       "value: quota: must be a whole number of megabytes, like 500, 500M or 2G, or none"},
      {"home", {kAlice}, {.home = "x"}, "value: home: must be an absolute path"},
      {"home elsewhere",
       {kAlice},
       {.home = "/etc/x"},
       "value: mailbox alice@example.org: home: must lie below its owner's home, " + Home()},
      {"one home for two",
       {kAlice, kCarol},
       {.home = "/x"},
       "value: home: can be set for one mailbox at a time"},
      {"address", {"al:ice@example.org"}, {.quota = "5"}, "value: mailbox name: ':' not allowed"},
  };
  const std::string before = Lines();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.text, TextOf([&] { SetMailboxes(c.addresses, c.change); }));
    EXPECT_THAT(calls_.made, IsEmpty());
    EXPECT_EQ(before, Lines());
  }
}

TEST_F(MailboxChanges, AFailingBackendLeavesRowAndLine) {
  const std::string before = Lines();
  calls_.failing = "mail.Update";
  EXPECT_EQ("email", ErrorOf([&] { SetMailboxes({kAlice}, {.quota = "5"}); }).type());
  EXPECT_EQ("0", Column("SELECT COUNT(*) FROM mailboxes WHERE quota <> ''"));
  EXPECT_EQ(before, Lines());
}

TEST_F(MailboxChanges, AMailboxWithoutALineIsMissedByTheBackend) {
  RemoveLine(kAlice);
  EXPECT_EQ("missed", ErrorOf([&] { SetMailboxes({kAlice}, {.quota = "5"}); }).type());
  EXPECT_EQ("0", Column("SELECT COUNT(*) FROM mailboxes WHERE quota <> ''"));
}

// Both places in which passwords may be kept.
class SwitchedMailboxes : public MailboxChanges, public testing::WithParamInterface<bool> {
 protected:
  SwitchedMailboxes() {
    Use(GetParam());
    Add("dave");
  }
  const std::string kDave = "dave@example.org";
};

TEST_P(SwitchedMailboxes, OffTakesTheLineOutAndOnBringsItBackAsItWas) {
  const std::string before = LineOf(kDave);
  EXPECT_FALSE(SetMailboxes({kDave}, {.active = false}).mailboxes[0].active);
  EXPECT_EQ("none", LineOf(kDave));
  const auto on = SetMailboxes({kDave}, {.active = true});
  EXPECT_TRUE(on.mailboxes[0].active);
  EXPECT_THAT(on.notes, IsEmpty());
  EXPECT_EQ(before, LineOf(kDave));
  EXPECT_EQ("", Column("SELECT name FROM mailbox_archive"));
}

TEST_P(SwitchedMailboxes, NoneIsSwitchedOnInADomainThatIsSwitchedOff) {
  brisq_panel::SetDomain("example.org", {.active = false});
  EXPECT_EQ("limit: mailbox dave@example.org: domain: example.org is switched off",
            TextOf([&] { SetMailboxes({kDave}, {.active = true}); }));
  EXPECT_EQ("none", LineOf(kDave));
  brisq_panel::SetDomain("example.org", {.active = true});
  EXPECT_THAT(LineOf(kDave), StartsWith("dave@example.org:{CLEAR}secret:"));
}

TEST_P(SwitchedMailboxes, SwitchingTwiceChangesNothingMore) {
  SetMailboxes({kDave}, {.active = false});
  SetMailboxes({kDave}, {.active = false});
  SetMailboxes({kDave}, {.active = true});
  SetMailboxes({kDave}, {.active = true});
  EXPECT_THAT(LineOf(kDave), StartsWith("dave@example.org:{CLEAR}secret:"));
}

TEST_P(SwitchedMailboxes, ChangesOfOneThatIsOffReachTheLineWhenItIsSwitchedOn) {
  SetMailboxes({kDave}, {.active = false});
  SetMailboxes({kDave}, {.quota = "9"});
  EXPECT_EQ("none", LineOf(kDave));
  SetMailboxes({kDave}, {.active = true});
  EXPECT_THAT(LineOf(kDave), testing::EndsWith(":quota 9"));
}

TEST_P(SwitchedMailboxes, AFailureLeavesTheMailboxAsItWas) {
  const std::string before = Lines();
  calls_.failing = GetParam() ? "passwords.Delete" : "mail.Delete";
  EXPECT_EQ("email", ErrorOf([&] { SetMailboxes({kDave}, {.active = false}); }).type());
  EXPECT_EQ(before, Lines());
  calls_.failing.clear();
  SetMailboxes({kDave}, {.active = false});
  calls_.failing = "mail.Create";
  EXPECT_EQ("email", ErrorOf([&] { SetMailboxes({kDave}, {.active = true}); }).type());
  EXPECT_EQ("none", LineOf(kDave));
  calls_.failing.clear();
  SetMailboxes({kDave}, {.active = true});
  EXPECT_EQ(before, Lines());
}

TEST_P(SwitchedMailboxes, ANewPasswordOfOneThatIsOffNeedsAPlace) {
  SetMailboxes({kDave}, {.active = false});
  if (GetParam()) {
    EXPECT_EQ("value: mailbox: dave@example.org is switched off: switch it on to set its password",
              TextOf([&] { SetPassword(kDave, "other"); }));
    return;
  }
  SetPassword(kDave, "other");
  SetMailboxes({kDave}, {.active = true});
  EXPECT_THAT(LineOf(kDave), StartsWith("dave@example.org:{CLEAR}other:"));
}

TEST_P(SwitchedMailboxes, ANewPasswordReplacesTheOldOne) {
  SetPassword("DAVE@Example.org", "other");
  EXPECT_THAT(LineOf(kDave), StartsWith("dave@example.org:{CLEAR}other:"));
  EXPECT_EQ("off", Column("SELECT DISTINCT pwupdate FROM mailboxes"));
}

TEST_P(SwitchedMailboxes, APasswordThatCantBeSetLeavesTheOldOne) {
  calls_.failing = GetParam() ? "passwords.Update" : "mail.Update";
  EXPECT_EQ("email", ErrorOf([&] { SetPassword(kDave, "other"); }).type());
  EXPECT_THAT(LineOf(kDave), StartsWith("dave@example.org:{CLEAR}secret:"));
  EXPECT_EQ("off", Column("SELECT DISTINCT pwupdate FROM mailboxes"));
}

INSTANTIATE_TEST_SUITE_P(Passwords, SwitchedMailboxes, testing::Bool(), [](const auto& place) {
  return place.param ? "KeptByTheBackend" : "KeptByThePanel";
});

TEST_F(MailboxChanges, PasswordsAreChecked) {
  EXPECT_EQ("value: password: line break not allowed",
            TextOf([&] { SetPassword(kAlice, "a\nb"); }));
  mgr_cf::SetParam("DovecotPwScheme", "BLF-CRYPT");
  EXPECT_EQ("value: password: too long (max 72 bytes)",
            TextOf([&] { SetPassword(kAlice, std::string(73, 'x')); }));
  EXPECT_EQ("missed", ErrorOf([] { SetPassword("nobody@example.org", "x"); }).type());
  EXPECT_THAT(calls_.made, IsEmpty());
}

TEST_F(MailboxChanges, WithoutAMailBackendNothingIsChanged) {
  brisq_panel::ForgetBackends();
  EXPECT_EQ("plugin", ErrorOf([&] { SetMailboxes({kAlice}, {.quota = "5"}); }).type());
  EXPECT_EQ("plugin", ErrorOf([&] { SetPassword(kAlice, "x"); }).type());
}

}  // namespace
