#include "panel/mailbox_steps.h"

#include "framework/database.h"
#include "panel/archive.h"
#include "panel/records.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::FindMailbox;
using brisq_panel::SwitchMailbox;
using testing::ElementsAre;

class MailboxSteps : public panel_test::FilePanelTest {
 protected:
  MailboxSteps() {
    Use(true);
    Add("alice");
  }
  void Switch(bool on) {
    Request request("test");
    brisq_panel::Mailbox mailbox = FindMailbox({"alice", "example.org"});
    SwitchMailbox(mailbox, on, request);
    EXPECT_EQ(on, mailbox->active);
    request.Commit();
    notes_ = request.Notes();
  }
  std::vector<std::string> notes_;
};

TEST_F(MailboxSteps, TheHashOfOneThatIsOffLiesSealedInTheArchive) {
  Switch(false);
  const auto kept =
      brisq_panel::FindArchived({"alice", "example.org"}, {brisq_panel::kSwitchedOff});
  ASSERT_NE(nullptr, kept);
  EXPECT_EQ("{CLEAR}secret", std::string(kept->hash));
  EXPECT_EQ(std::string::npos, DatabaseBytes().find("{CLEAR}secret"));
}

// A refresh that began before sweeps only what it can have seen.
TEST_F(MailboxSteps, OneThatIsSwitchedOnIsYoungerThanAllOthers) {
  Add("bob");
  Switch(false);
  Switch(true);
  EXPECT_EQ("bob alice", Column("SELECT name FROM mailboxes ORDER BY id"));
}

TEST_F(MailboxSteps, OneWhoseHashIsNotKnownIsSaidToHaveNoPassword) {
  Switch(false);
  mgr_db::ThreadConnection()->Change("DELETE FROM mailbox_archive");
  Switch(true);
  EXPECT_THAT(notes_, ElementsAre("alice@example.org has no password: set one"));
  EXPECT_THAT(LineOf("alice@example.org"), testing::StartsWith("alice@example.org::"));
}

TEST_F(MailboxSteps, ARemovedMailboxLeavesTableAndFileForTheArchive) {
  {
    Request request("test");
    const auto removed = brisq_panel::RemoveMailbox(FindMailbox({"alice", "example.org"}));
    EXPECT_EQ("alice@example.org", removed.address);
    EXPECT_EQ(Home() + "/mail/example.org/alice", removed.home);
    request.Commit();
  }
  EXPECT_EQ("", Lines());
  EXPECT_EQ("0", Column("SELECT COUNT(*) FROM mailboxes"));
  const auto kept = brisq_panel::FindArchived({"alice", "example.org"}, {brisq_panel::kDeleted});
  ASSERT_NE(nullptr, kept);
  EXPECT_EQ("{CLEAR}secret", std::string(kept->hash));
}

TEST_F(MailboxSteps, OneThatIsOffIsRemovedWithTheHashThatWasKept) {
  Switch(false);
  {
    Request request("test");
    brisq_panel::RemoveMailbox(FindMailbox({"alice", "example.org"}));
    request.Commit();
  }
  EXPECT_EQ("deleted", Column("SELECT reason FROM mailbox_archive"));
  const auto kept = brisq_panel::FindArchived({"alice", "example.org"}, {brisq_panel::kDeleted});
  EXPECT_EQ("{CLEAR}secret", std::string(kept->hash));
}

}  // namespace
