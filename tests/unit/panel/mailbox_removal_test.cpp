#include "panel/mailbox_removal.h"

#include "framework/database.h"
#include "panel/domain_changes.h"
#include "panel/email_module.h"
#include "panel/mailbox_changes.h"
#include "panel/owners.h"
#include "panel/records.h"
#include "panel/refresh.h"
#include "panel/refresh_lock.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::DeleteMailboxes;
using brisq_panel::ListArchived;
using brisq_panel::RestoreMailboxes;
using panel_test::ErrorOf;
using panel_test::TextOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

// Both places in which passwords may be kept.
class MailboxRemoval : public panel_test::FilePanelTest, public testing::WithParamInterface<bool> {
 protected:
  MailboxRemoval() {
    brisq_panel::RefreshLock::SetFolder(dir_.path());
    Use(GetParam());
    Add("alice");
    Add("carol");
  }
  // Has a refresh sweep alice.
  void Sweep() {
    mail_in_use_->figures[kCarol] = 1;
    RemoveLine(kAlice);
    brisq_panel::Refresh(false);
    ASSERT_THAT(brisq_panel::ListMailboxes(), testing::SizeIs(1));
  }
  const std::string kAlice = "alice@example.org";
  const std::string kCarol = "carol@example.org";
};

TEST_P(MailboxRemoval, ADeletedMailboxIsGoneAndItsMailsPlaceIsSaid) {
  const auto removed = DeleteMailboxes({"Alice@example.org"});
  ASSERT_EQ(1u, removed.size());
  EXPECT_EQ(kAlice, removed[0].address);
  EXPECT_EQ(Home() + "/mail/example.org/alice", removed[0].home);
  EXPECT_EQ("none", LineOf(kAlice));
  EXPECT_EQ("carol", Column("SELECT name FROM mailboxes"));
}

TEST_P(MailboxRemoval, AllOrNoneAreDeleted) {
  const std::string before = Lines();
  EXPECT_EQ("missed: mailbox: nobody@example.org", TextOf([&] {
              DeleteMailboxes({kAlice, "nobody@example.org"});
            }));
  calls_.failing = "mail.Delete";
  EXPECT_EQ("email", ErrorOf([&] { DeleteMailboxes({kAlice}); }).type());
  EXPECT_EQ(before, Lines());
  EXPECT_EQ(2u, brisq_panel::ListMailboxes().size());
  EXPECT_THAT(ListArchived(), IsEmpty());
}

TEST_P(MailboxRemoval, OneWhoseLineIsGoneIsDeletedAllTheSame) {
  RemoveLine(kAlice);
  DeleteMailboxes({kAlice});
  EXPECT_EQ("carol", Column("SELECT name FROM mailboxes"));
}

TEST_P(MailboxRemoval, TheArchiveIsListedLatestFirst) {
  brisq_panel::SetMailboxes({kAlice}, {.quota = "7"});
  DeleteMailboxes({kAlice});
  DeleteMailboxes({kCarol});
  const auto archived = ListArchived();
  ASSERT_EQ(2u, archived.size());
  EXPECT_EQ(kCarol, archived[0].address);
  EXPECT_EQ(kAlice, archived[1].address);
  EXPECT_EQ("bob", archived[1].owner);
  EXPECT_EQ(Home() + "/mail/example.org/alice", archived[1].home);
  EXPECT_EQ(7, archived[1].quota_mb);
  EXPECT_EQ("deleted", archived[1].reason);
  EXPECT_EQ(20u, archived[1].archived.size());
  EXPECT_TRUE(archived[1].password_known);
}

TEST_P(MailboxRemoval, ADeletedMailboxComesBackWithItsLineAndPassword) {
  const std::string before = LineOf(kAlice);
  DeleteMailboxes({kAlice});
  const auto restored = RestoreMailboxes({kAlice});
  EXPECT_EQ(kAlice, restored.mailboxes[0].address);
  EXPECT_TRUE(restored.mailboxes[0].active);
  EXPECT_THAT(restored.notes, IsEmpty());
  EXPECT_EQ(before, LineOf(kAlice));
  EXPECT_THAT(ListArchived(), IsEmpty());
}

TEST_P(MailboxRemoval, SeveralComeBackInTheOrderGiven) {
  const std::string alice = LineOf(kAlice);
  const std::string carol = LineOf(kCarol);
  DeleteMailboxes({kAlice, kCarol});
  const auto restored = RestoreMailboxes({kCarol, kAlice});
  ASSERT_EQ(2u, restored.mailboxes.size());
  EXPECT_EQ(kCarol, restored.mailboxes[0].address);
  EXPECT_EQ(kAlice, restored.mailboxes[1].address);
  EXPECT_EQ(alice, LineOf(kAlice));
  EXPECT_EQ(carol, LineOf(kCarol));
  EXPECT_THAT(ListArchived(), IsEmpty());
}

TEST_P(MailboxRemoval, AllComeBackOrNone) {
  DeleteMailboxes({kAlice, kCarol});
  struct Case {
    const char* name;
    std::vector<std::string> addresses;
    const char* text;
  };
  const Case cases[] = {
      {"one that is not there",
       {kAlice, "nobody@example.org"},
       "missed: archived mailbox: nobody@example.org"},
      {"one twice", {kAlice, kAlice}, "value: mailbox: alice@example.org is given twice"},
      {"one with a wrong address",
       {kAlice, "ca:rol@example.org"},
       "value: address 2 of 2: mailbox name: ':' not allowed"},
  };
  const std::string before = Lines();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.text, TextOf([&] { RestoreMailboxes(c.addresses); }));
    EXPECT_EQ(before, Lines());
    EXPECT_THAT(brisq_panel::ListMailboxes(), IsEmpty());
    EXPECT_EQ(2u, ListArchived().size());
  }
}

TEST_P(MailboxRemoval, ASweptMailboxComesBackWithThePasswordThatIsKnown) {
  Sweep();
  ASSERT_EQ(1u, ListArchived().size());
  EXPECT_EQ("swept", ListArchived()[0].reason);
  EXPECT_EQ(!GetParam(), ListArchived()[0].password_known);
  const auto restored = RestoreMailboxes({kAlice});
  if (GetParam()) {
    EXPECT_THAT(restored.notes, ElementsAre("alice@example.org has no password: set one"));
    EXPECT_THAT(LineOf(kAlice), StartsWith("alice@example.org::"));
  } else {
    EXPECT_THAT(restored.notes, IsEmpty());
    EXPECT_THAT(LineOf(kAlice), StartsWith("alice@example.org:{CLEAR}secret:"));
  }
}

// After a file that was cut by accident is back, mailboxes that were swept get their rows again.
TEST_P(MailboxRemoval, ALineThatIsBackAlreadyIsTakenOver) {
  const std::string before = Lines();
  Sweep();
  dir_.Write("passwd", before);
  const auto restored = RestoreMailboxes({kAlice});
  EXPECT_THAT(restored.notes, IsEmpty());
  EXPECT_EQ(before, Lines());
}

TEST_P(MailboxRemoval, NoneComesBackIntoADomainOfAnotherOwner) {
  DeleteMailboxes({kAlice, kCarol});
  brisq_panel::AddOwner({"eve", 1002, 1002, dir_ / "eve"});
  brisq_panel::SetDomain("example.org", {.owner = "eve"});
  EXPECT_EQ(
      "limit: mailbox alice@example.org: domain: example.org has another owner than bob, whose "
      "mailbox it was",
      TextOf([&] { RestoreMailboxes({kAlice}); }));
  brisq_panel::SetDomain("example.org", {.owner = "bob"});
  EXPECT_EQ("bob", RestoreMailboxes({kAlice}).mailboxes[0].owner);
}

TEST_P(MailboxRemoval, NoneComesBackToBeServedInADomainThatIsSwitchedOff) {
  brisq_panel::SetMailboxes({kCarol}, {.active = false});
  DeleteMailboxes({kAlice, kCarol});
  brisq_panel::SetDomain("example.org", {.active = false});
  EXPECT_EQ("limit: mailbox alice@example.org: domain: example.org is switched off",
            TextOf([&] { RestoreMailboxes({kAlice}); }));
  EXPECT_EQ("none", LineOf(kAlice));
  EXPECT_FALSE(RestoreMailboxes({kCarol}).mailboxes[0].active);
}

TEST_P(MailboxRemoval, TheLatestOfSeveralComesBack) {
  DeleteMailboxes({kAlice});
  brisq_panel::AddMailbox({kAlice, "second", "8"});
  DeleteMailboxes({kAlice});
  EXPECT_EQ(8, RestoreMailboxes({kAlice}).mailboxes[0].quota_mb);
  EXPECT_EQ(1u, ListArchived().size());
}

TEST_P(MailboxRemoval, OneThatWasOffComesBackSwitchedOffWithItsPassword) {
  const std::string before = LineOf(kAlice);
  brisq_panel::SetMailboxes({kAlice}, {.active = false});
  DeleteMailboxes({kAlice});
  const auto restored = RestoreMailboxes({kAlice});
  EXPECT_FALSE(restored.mailboxes[0].active);
  EXPECT_THAT(restored.notes, ElementsAre("alice@example.org is switched off, as it was"));
  EXPECT_EQ("none", LineOf(kAlice));
  EXPECT_THAT(ListArchived(), IsEmpty());
  brisq_panel::SetMailboxes({kAlice}, {.active = true});
  EXPECT_EQ(before, LineOf(kAlice));
}

TEST_P(MailboxRemoval, WhatCantComeBackIsSaid) {
  EXPECT_EQ("missed: archived mailbox: alice@example.org",
            TextOf([&] { RestoreMailboxes({kAlice}); }));
  DeleteMailboxes({kAlice});
  Add("alice");
  EXPECT_EQ("exists: mailbox: alice@example.org", TextOf([&] { RestoreMailboxes({kAlice}); }));
  brisq_panel::DeleteDomain("example.org");
  EXPECT_EQ("missed: mailbox alice@example.org: domain: example.org",
            TextOf([&] { RestoreMailboxes({kAlice}); }));
  EXPECT_EQ("value", ErrorOf([] { RestoreMailboxes({"al:ice@example.org"}); }).type());
}

TEST_P(MailboxRemoval, AFailedRestoreLeavesTheArchive) {
  DeleteMailboxes({kAlice});
  const std::string before = Lines();
  calls_.failing = "mail.Create";
  EXPECT_EQ("email", ErrorOf([&] { RestoreMailboxes({kAlice}); }).type());
  EXPECT_EQ(before, Lines());
  EXPECT_EQ(1u, ListArchived().size());
  EXPECT_EQ(1u, brisq_panel::ListMailboxes().size());
}

TEST_P(MailboxRemoval, WithoutAMailBackendNothingHappens) {
  brisq_panel::ForgetBackends();
  EXPECT_EQ("plugin", ErrorOf([&] { DeleteMailboxes({kAlice}); }).type());
  EXPECT_EQ("plugin", ErrorOf([&] { RestoreMailboxes({kAlice}); }).type());
}

INSTANTIATE_TEST_SUITE_P(Passwords, MailboxRemoval, testing::Bool(), [](const auto& place) {
  return place.param ? "KeptByTheBackend" : "KeptByThePanel";
});

}  // namespace
