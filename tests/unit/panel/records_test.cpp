#include "panel/records.h"

#include <gmock/gmock.h>

#include "framework/database.h"
#include "panel/domains.h"
#include "panel/mailboxes.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using panel_test::TextOf;

class FindRecords : public panel_test::PanelTest {
 protected:
  FindRecords() {
    AddBobsDomain();
    email::RegisterPop3(&mail_);
    brisq_panel::AddMailbox({"alice@example.org", "secret"});
  }
};

TEST_F(FindRecords, WhatIsThereIsFound) {
  EXPECT_EQ(1001, brisq_panel::FindOwner("bob")->uid);
  EXPECT_TRUE(brisq_panel::FindDomain("example.org")->active);
  EXPECT_EQ("alice", std::string(brisq_panel::FindMailbox({"alice", "example.org"})->name));
}

TEST_F(FindRecords, WhatIsMissingIsNamed) {
  EXPECT_EQ("missed: owner: al", TextOf([] { brisq_panel::FindOwner("al"); }));
  EXPECT_EQ("missed: domain: x.org", TextOf([] { brisq_panel::FindDomain("x.org"); }));
  EXPECT_EQ("missed: mailbox: bob@example.org", TextOf([] {
              brisq_panel::FindMailbox({"bob", "example.org"});
            }));
  EXPECT_EQ("missed: mailbox: alice@x.org", TextOf([] {
              brisq_panel::FindMailbox({"alice", "x.org"});
            }));
}

TEST_F(FindRecords, TablesGoBackToTheStock) {
  brisq_db::EmailTable* seen = nullptr;
  { seen = brisq_panel::FindMailbox({"alice", "example.org"}).get(); }
  EXPECT_EQ(seen, brisq_panel::Table<brisq_db::EmailTable>().get());
}

TEST_F(FindRecords, MakingTablesThatAreThereChangesNothing) {
  brisq_panel::CreatePanelTables();
  EXPECT_EQ("alice", Column("SELECT name FROM mailboxes"));
}

class VersionOfData : public panel_test::PanelTest {
 protected:
  static void Mark(int version) {
    mgr_db::ThreadConnection()->Change("PRAGMA user_version = " + std::to_string(version));
  }
  static std::string Version() { return Column("PRAGMA user_version"); }
};

TEST_F(VersionOfData, ANewDatabaseIsMarked) { EXPECT_EQ("2", Version()); }

// It brought all mailboxes back with their domain.
TEST_F(VersionOfData, InDataOfTheFirstAllMailboxesOfADomainThatIsOffWentOffWithIt) {
  AddBob();
  brisq_panel::AddDomain("off.org", "bob");
  brisq_panel::AddDomain("on.org", "bob");
  const auto connection = mgr_db::ThreadConnection();
  connection->Change("UPDATE domains SET active = 'off' WHERE name = 'off.org'");
  for (const char* row : {"'a', 'off.org', 'switched off'", "'b', 'off.org', 'deleted'",
                          "'c', 'on.org', 'switched off'"}) {
    connection->Change(
        "INSERT INTO mailbox_archive (owner, password, hash, home, quota, used, active, archived,"
        " name, domain, reason) VALUES ('bob', '', '', '', '', 0, 'on', '', " +
        std::string(row) + ")");
  }
  Mark(1);
  brisq_panel::CreatePanelTables();
  EXPECT_EQ("2", Version());
  EXPECT_EQ("switched off with its domain deleted switched off",
            Column("SELECT reason FROM mailbox_archive ORDER BY name"));
}

TEST_F(VersionOfData, DataWithoutAMarkIsTakenOver) {
  AddBob();
  Mark(0);
  brisq_panel::CreatePanelTables();
  EXPECT_EQ("2", Version());
  EXPECT_EQ("bob", Column("SELECT name FROM owners"));
}

TEST_F(VersionOfData, ItIsMarkedWithItsTablesOrNotAtAll) {
  mgr_db::ThreadConnection()->Change("DROP TABLE file_stamps");
  mgr_db::ThreadConnection()->Change("DROP TABLE panel_state");
  mgr_db::ThreadConnection()->Change("CREATE INDEX panel_state ON owners (name)");
  Mark(0);
  EXPECT_THAT(TextOf([] { brisq_panel::CreatePanelTables(); }), testing::StartsWith("db: "));
  EXPECT_EQ("0", Version());
  EXPECT_EQ("0", Column("SELECT COUNT(*) FROM sqlite_master WHERE name = 'file_stamps'"));
}

TEST_F(VersionOfData, DataOfALaterProgramIsRefusedAndNothingIsChanged) {
  mgr_db::ThreadConnection()->Change("DROP TABLE file_stamps");
  Mark(7);
  EXPECT_EQ("db: " + (dir_ / "panel.db") +
                ": its data is of version 7, and this program knows versions up to 2: use the"
                " program that wrote it, or a later one",
            TextOf([] { brisq_panel::CreatePanelTables(); }));
  EXPECT_EQ("7", Version());
  EXPECT_EQ("0", Column("SELECT COUNT(*) FROM sqlite_master WHERE name = 'file_stamps'"));
}

}  // namespace
