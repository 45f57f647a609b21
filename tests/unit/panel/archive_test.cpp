#include "panel/archive.h"

#include <thread>

#include "framework/database.h"
#include "framework/seal.h"
#include "framework/utc.h"
#include "panel/mailboxes.h"
#include "panel/records.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::MailboxArchive;

class Archive : public panel_test::PanelTest {
 protected:
  Archive() {
    AddBobsDomain();
    email::RegisterPop3(&mail_);
    brisq_panel::AddMailbox({"alice@example.org", "secret", "500"});
  }
};

TEST_F(Archive, AnArchivedMailboxIsWhole) {
  const std::string before = UtcNow();
  brisq_panel::ArchiveMailboxes("name = 'alice'", "deleted");
  const auto archive = brisq_panel::Table<MailboxArchive>();
  ASSERT_TRUE(archive->DbFind({{"name", "alice"}, {"domain", "example.org"}}));
  EXPECT_EQ("bob", std::string(archive->owner));
  EXPECT_EQ("secret", std::string(archive->password)) << "sealed as it was";
  EXPECT_EQ("", std::string(archive->hash));
  EXPECT_EQ(Home() + "/mail/example.org/alice", std::string(archive->home));
  EXPECT_EQ("500", std::string(archive->quota));
  EXPECT_TRUE(archive->active);
  EXPECT_EQ("deleted", std::string(archive->reason));
  EXPECT_LE(before, std::string(archive->archived));
  EXPECT_GE(UtcNow(), std::string(archive->archived));
}

TEST_F(Archive, OneMailboxThatMatchesIsEnough) {
  EXPECT_TRUE(brisq_panel::IsAnyMailbox("active = 'on'"));
  EXPECT_TRUE(brisq_panel::IsAnyMailbox("name = 'nobody' OR owner = 1"));
  EXPECT_FALSE(brisq_panel::IsAnyMailbox("name = 'nobody'"));
  EXPECT_FALSE(brisq_panel::IsAnyMailbox("active = 'on' AND owner = 99"));
}

TEST_F(Archive, ConditionsOnAnyColumnAreUnderstood) {
  brisq_panel::ArchiveMailboxes("id = 1 AND active = 'on' OR owner = 99", "swept");
  brisq_panel::ArchiveMailboxes("name = 'nobody'", "swept");
  EXPECT_EQ("alice", Column("SELECT name FROM mailbox_archive"));
}

TEST_F(Archive, TheLatestStateForItsReasonsIsFound) {
  const auto alice = brisq_panel::FindMailbox({"alice", "example.org"});
  const std::vector<std::string> gone = {brisq_panel::kSwept, brisq_panel::kDeleted};
  EXPECT_EQ(nullptr, brisq_panel::FindArchived({"alice", "example.org"}, gone));
  brisq_panel::ArchiveMailbox(alice, brisq_panel::kDeleted, "{X}first");
  brisq_panel::ArchiveMailbox(alice, brisq_panel::kSwept, "");
  brisq_panel::ArchiveMailbox(alice, brisq_panel::kSwitchedOff, "{X}third");
  const auto latest = brisq_panel::FindArchived({"alice", "example.org"}, gone);
  ASSERT_NE(nullptr, latest);
  EXPECT_EQ(brisq_panel::kSwept, std::string(latest->reason));
  const auto first = brisq_panel::FindArchived({"alice", "example.org"}, {brisq_panel::kDeleted});
  EXPECT_EQ("{X}first", std::string(first->hash));
  EXPECT_THAT(DatabaseBytes(), testing::Not(testing::HasSubstr("{X}first")));
  EXPECT_EQ(nullptr, brisq_panel::FindArchived({"alice", "other.org"}, gone));
  EXPECT_EQ(nullptr, brisq_panel::FindArchived({"bob", "example.org"}, gone));
}

// A domain's mailboxes are looked for one by one, and the archive only grows.
TEST_F(Archive, AMailboxIsFoundWithoutALookAtAllOthers) {
  const auto plan = mgr_db::ThreadConnection()->Query(
      "EXPLAIN QUERY PLAN SELECT * FROM mailbox_archive"
      " WHERE name = :v1 AND domain = :v2 AND reason = :v3",
      {"alice", "example.org", "swept"}, 4);
  ASSERT_EQ(1u, plan.size());
  EXPECT_THAT(plan.front().back(), testing::HasSubstr("(name=? AND domain=?)"));
}

TEST(SweepPermit, CountsForItsThreadWhileItLives) {
  EXPECT_FALSE(brisq_panel::SweepPermit::Given());
  {
    const brisq_panel::SweepPermit permit;
    const brisq_panel::SweepPermit inner;
    EXPECT_TRUE(brisq_panel::SweepPermit::Given());
    std::jthread([] { EXPECT_FALSE(brisq_panel::SweepPermit::Given()); });
  }
  EXPECT_FALSE(brisq_panel::SweepPermit::Given());
}

}  // namespace
