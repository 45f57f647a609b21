#include "panel/mail_line.h"

#include "panel/email_module.h"
#include "panel/mailboxes.h"
#include "panel/records.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using testing::ElementsAre;
using testing::StartsWith;

// Each test for both places in which passwords may be kept.
class MailLine : public panel_test::FilePanelTest, public testing::WithParamInterface<bool> {
 protected:
  MailLine() {
    Use(GetParam());
    Add("alice");
    mailbox_ = brisq_panel::FindMailbox({"alice", "example.org"});
    calls_.made.clear();
  }
  const std::string kAlice = "alice@example.org";
  brisq_panel::Mailbox mailbox_;
};

TEST_P(MailLine, ALineThatIsTakenOutComesBackWithItsPassword) {
  const std::string before = LineOf(kAlice);
  const std::string hash = brisq_panel::TakeLineOut(mailbox_);
  EXPECT_EQ("{CLEAR}secret", hash);
  EXPECT_EQ("none", LineOf(kAlice));
  EXPECT_TRUE(brisq_panel::BringLineBack(mailbox_, hash));
  EXPECT_EQ(before, LineOf(kAlice));
}

TEST_P(MailLine, WithoutAHashOnlyThePanelsOwnPasswordIsKnown) {
  brisq_panel::TakeLineOut(mailbox_);
  EXPECT_EQ(!GetParam(), brisq_panel::BringLineBack(mailbox_, ""));
  EXPECT_THAT(LineOf(kAlice),
              StartsWith(GetParam() ? "alice@example.org::" : "alice@example.org:{CLEAR}secret:"));
}

TEST_P(MailLine, ALineThatIsThereIsTakenOver) {
  dir_.Write("passwd", "alice@example.org:{X}by hand:1:1::/old:::\n");
  EXPECT_TRUE(brisq_panel::BringLineBack(mailbox_, "{X}of the archive"));
  EXPECT_THAT(LineOf(kAlice), StartsWith(GetParam() ? "alice@example.org:{X}by hand:"
                                                    : "alice@example.org:{CLEAR}secret:"));
  EXPECT_THAT(LineOf(kAlice), testing::HasSubstr(Home()));
  EXPECT_FALSE(mailbox_->pwupdate);
}

TEST_P(MailLine, ALineWithoutAPasswordIsNotTakenForOneWith) {
  if (GetParam()) {
    dir_.Write("passwd", "alice@example.org::1:1::/old:::\n");
    EXPECT_FALSE(brisq_panel::BringLineBack(mailbox_, ""));
  }
}

TEST_P(MailLine, ANewPasswordIsInTheLine) {
  brisq_panel::SetLinePassword(mailbox_, "other");
  EXPECT_THAT(LineOf(kAlice), StartsWith("alice@example.org:{CLEAR}other:"));
  EXPECT_EQ(GetParam() ? "" : "other", std::string(mailbox_->password));
  EXPECT_EQ("off", Column("SELECT pwupdate FROM mailboxes"));
}

TEST_P(MailLine, ThePasswordFlagIsOnWhileTheBackendWritesIt) {
  brisq_panel::SetLinePassword(mailbox_, "other");
  if (GetParam()) {
    EXPECT_THAT(calls_.made, ElementsAre("passwords.Update alice@example.org other"));
  } else {
    EXPECT_THAT(calls_.made, ElementsAre(testing::EndsWith("password=other pwupdate")));
  }
}

TEST_P(MailLine, AChangedRowIsWrittenIntoTheLine) {
  mailbox_->quota = "7";
  mailbox_->Post();
  brisq_panel::ChangeLine(mailbox_);
  EXPECT_THAT(LineOf(kAlice), testing::EndsWith(":quota 7"));
  EXPECT_THAT(LineOf(kAlice), StartsWith("alice@example.org:{CLEAR}secret:"));
}

TEST_P(MailLine, AnAnswerThatDoesNotFitIntoTheLineIsTheToolsFault) {
  calls_.failing = GetParam() ? "passwords.Update" : "mail.Update";
  calls_.error = mgr_err::Error("value", "passwd", "line break not allowed");
  EXPECT_EQ("email: doveadm: its answer can't stand in a line: line break not allowed",
            panel_test::TextOf([&] { brisq_panel::SetLinePassword(mailbox_, "other"); }));
}

// The calls that a back-end stores a password in, each followed by a look at what it stored.
TEST_P(MailLine, WhatIsStoredAndNoHashIsAnError) {
  const std::string in_use = GetParam() ? "passwords." : "mail.";
  const std::string problem = "email: doveadm: it gave no hash of the password";
  const auto store_nothing = [this] {
    dir_.Write("passwd", "alice@example.org::1:1::/h:::\nbob@example.org::1:1::/h:::\n");
  };
  calls_.effects[in_use + "Update"] = store_nothing;
  EXPECT_EQ(problem, panel_test::TextOf([&] { brisq_panel::SetLinePassword(mailbox_, "other"); }));
  if (!GetParam()) {
    EXPECT_EQ(problem, panel_test::TextOf([&] { brisq_panel::BringLineBack(mailbox_, ""); }))
        << "a line that is there";
  }
  calls_.effects[in_use + "Create"] = store_nothing;
  dir_.Write("passwd", "");
  EXPECT_EQ(problem, panel_test::TextOf([&] { brisq_panel::MakeLine(mailbox_, "secret"); }));
  if (!GetParam()) {
    dir_.Write("passwd", "");
    EXPECT_EQ(problem, panel_test::TextOf([&] { brisq_panel::BringLineBack(mailbox_, ""); }));
  }
}

INSTANTIATE_TEST_SUITE_P(Passwords, MailLine, testing::Bool(), [](const auto& place) {
  return place.param ? "KeptByTheBackend" : "KeptByThePanel";
});

}  // namespace
