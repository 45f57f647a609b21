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
using brisq_panel::RestoreMailbox;
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
  const auto restored = RestoreMailbox(kAlice);
  EXPECT_EQ(kAlice, restored.mailbox.address);
  EXPECT_TRUE(restored.mailbox.active);
  EXPECT_THAT(restored.notes, IsEmpty());
  EXPECT_EQ(before, LineOf(kAlice));
  EXPECT_THAT(ListArchived(), IsEmpty());
}

TEST_P(MailboxRemoval, ASweptMailboxComesBackWithThePasswordThatIsKnown) {
  Sweep();
  ASSERT_EQ(1u, ListArchived().size());
  EXPECT_EQ("swept", ListArchived()[0].reason);
  EXPECT_EQ(!GetParam(), ListArchived()[0].password_known);
  const auto restored = RestoreMailbox(kAlice);
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
  const auto restored = RestoreMailbox(kAlice);
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
      TextOf([&] { RestoreMailbox(kAlice); }));
  brisq_panel::SetDomain("example.org", {.owner = "bob"});
  EXPECT_EQ("bob", RestoreMailbox(kAlice).mailbox.owner);
}

TEST_P(MailboxRemoval, NoneComesBackToBeServedInADomainThatIsSwitchedOff) {
  brisq_panel::SetMailboxes({kCarol}, {.active = false});
  DeleteMailboxes({kAlice, kCarol});
  brisq_panel::SetDomain("example.org", {.active = false});
  EXPECT_EQ("limit: mailbox alice@example.org: domain: example.org is switched off",
            TextOf([&] { RestoreMailbox(kAlice); }));
  EXPECT_EQ("none", LineOf(kAlice));
  EXPECT_FALSE(RestoreMailbox(kCarol).mailbox.active);
}

TEST_P(MailboxRemoval, TheLatestOfSeveralComesBack) {
  DeleteMailboxes({kAlice});
  brisq_panel::AddMailbox({kAlice, "second", "8"});
  DeleteMailboxes({kAlice});
  EXPECT_EQ(8, RestoreMailbox(kAlice).mailbox.quota_mb);
  EXPECT_EQ(1u, ListArchived().size());
}

TEST_P(MailboxRemoval, OneThatWasOffComesBackSwitchedOffWithItsPassword) {
  const std::string before = LineOf(kAlice);
  brisq_panel::SetMailboxes({kAlice}, {.active = false});
  DeleteMailboxes({kAlice});
  const auto restored = RestoreMailbox(kAlice);
  EXPECT_FALSE(restored.mailbox.active);
  EXPECT_THAT(restored.notes, ElementsAre("alice@example.org is switched off, as it was"));
  EXPECT_EQ("none", LineOf(kAlice));
  EXPECT_THAT(ListArchived(), IsEmpty());
  brisq_panel::SetMailboxes({kAlice}, {.active = true});
  EXPECT_EQ(before, LineOf(kAlice));
}

TEST_P(MailboxRemoval, WhatCantComeBackIsSaid) {
  EXPECT_EQ("missed: archived mailbox: alice@example.org", TextOf([&] { RestoreMailbox(kAlice); }));
  DeleteMailboxes({kAlice});
  Add("alice");
  EXPECT_EQ("exists: mailbox: alice@example.org", TextOf([&] { RestoreMailbox(kAlice); }));
  brisq_panel::DeleteDomain("example.org");
  EXPECT_EQ("missed: domain: example.org", TextOf([&] { RestoreMailbox(kAlice); }));
  EXPECT_EQ("value", ErrorOf([] { RestoreMailbox("al:ice@example.org"); }).type());
}

TEST_P(MailboxRemoval, AFailedRestoreLeavesTheArchive) {
  DeleteMailboxes({kAlice});
  const std::string before = Lines();
  calls_.failing = "mail.Create";
  EXPECT_EQ("email", ErrorOf([&] { RestoreMailbox(kAlice); }).type());
  EXPECT_EQ(before, Lines());
  EXPECT_EQ(1u, ListArchived().size());
  EXPECT_EQ(1u, brisq_panel::ListMailboxes().size());
}

TEST_P(MailboxRemoval, WithoutAMailBackendNothingHappens) {
  brisq_panel::ForgetBackends();
  EXPECT_EQ("plugin", ErrorOf([&] { DeleteMailboxes({kAlice}); }).type());
  EXPECT_EQ("plugin", ErrorOf([&] { RestoreMailbox(kAlice); }).type());
}

INSTANTIATE_TEST_SUITE_P(Passwords, MailboxRemoval, testing::Bool(), [](const auto& place) {
  return place.param ? "KeptByTheBackend" : "KeptByThePanel";
});

}  // namespace
