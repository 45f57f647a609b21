#include "panel/archive.h"

#include <thread>

#include "framework/seal.h"
#include "panel/mailboxes.h"
#include "panel/records.h"
#include "panel/utc_time.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::MailboxArchive;

class Archive : public panel_test::PanelTest {
 protected:
  Archive() {
    AddBobsDomain();
    email::RegisterPop3(&mail_);
    brisq_panel::AddMailbox({"alice@example.org", "secret", "500", ""});
  }
};

TEST_F(Archive, AnArchivedMailboxIsWhole) {
  const std::string before = brisq_panel::UtcNow();
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
  EXPECT_GE(brisq_panel::UtcNow(), std::string(archive->archived));
}

TEST_F(Archive, ConditionsOnAnyColumnAreUnderstood) {
  brisq_panel::ArchiveMailboxes("id = 1 AND active = 'on' OR owner = 99", "swept");
  brisq_panel::ArchiveMailboxes("name = 'nobody'", "swept");
  EXPECT_EQ("alice", Column("SELECT name FROM mailbox_archive"));
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
