#include "panel/records.h"

#include "panel/mailboxes.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using panel_test::TextOf;

class FindRecords : public panel_test::PanelTest {
 protected:
  FindRecords() {
    AddBobsDomain();
    email::RegisterPop3(&mail_);
    brisq_panel::AddMailbox({"alice@example.org", "secret", "", ""});
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

}  // namespace
