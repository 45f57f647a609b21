#include "panel/domain_changes.h"

#include "panel/domains.h"
#include "panel/email_module.h"
#include "panel/job_history.h"
#include "panel/mailbox_changes.h"
#include "panel/owners.h"
#include "panel/run_request.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::DeleteDomain;
using brisq_panel::SetDomain;
using panel_test::ErrorOf;
using panel_test::TextOf;
using testing::ElementsAre;
using testing::IsEmpty;

class DomainChanges : public panel_test::FilePanelTest {
 protected:
  DomainChanges() {
    brisq_panel::AddDomain("other.org", "bob");
    Add("alice");
    Add("carol");
    calls_.made.clear();
  }
};

TEST_F(DomainChanges, SwitchingADomainSwitchesItsMailboxes) {
  brisq_panel::AddMailbox({"kept@other.org", "secret"});
  const std::string before = LineOf("alice@example.org");
  EXPECT_FALSE(SetDomain("EXAMPLE.org", {.active = false}).active);
  EXPECT_EQ("off off on", Column("SELECT active FROM mailboxes ORDER BY name"));
  EXPECT_EQ("none", LineOf("alice@example.org"));
  EXPECT_EQ("limit: mailbox new@example.org: domain: example.org is switched off",
            TextOf([this] { Add("new"); }));
  EXPECT_TRUE(SetDomain("example.org", {.active = true}).active);
  EXPECT_EQ(before, LineOf("alice@example.org"));
}

TEST_F(DomainChanges, AMailboxThatWasSwitchedOffByItselfStaysOffWhenItsDomainComesBack) {
  const std::string carols = LineOf("carol@example.org");
  brisq_panel::SetMailboxes({"alice@example.org"}, {.active = false});
  const auto active = [] { return Column("SELECT active FROM mailboxes ORDER BY name"); };
  for (int round = 0; round < 2; ++round) {
    SetDomain("example.org", {.active = false});
    EXPECT_EQ("off off", active());
    SetDomain("example.org", {.active = false});
    const brisq_panel::NoteKeeper keeper;
    SetDomain("example.org", {.active = true});
    EXPECT_EQ("off on", active());
    EXPECT_EQ("none", LineOf("alice@example.org"));
    EXPECT_EQ(carols, LineOf("carol@example.org"));
    EXPECT_THAT(keeper.notes(),
                ElementsAre("alice@example.org stays switched off, as it was by itself"));
  }
  brisq_panel::SetMailboxes({"alice@example.org"}, {.active = true});
  EXPECT_EQ("on on", active());
  EXPECT_TRUE(brisq_panel::ListArchived().empty());
}

TEST_F(DomainChanges, AMailboxThatIsSwitchedOffWhileItsDomainIsOffStaysOffToo) {
  SetDomain("example.org", {.active = false});
  EXPECT_TRUE(brisq_panel::ListArchived().empty()) << "none has been removed";
  brisq_panel::SetMailboxes({"alice@example.org"}, {.active = false});
  brisq_panel::SetMailboxes({"carol@example.org"}, {.quota = "5M"});
  SetDomain("example.org", {.active = true});
  EXPECT_EQ("off on", Column("SELECT active FROM mailboxes ORDER BY name"));
}

TEST_F(DomainChanges, AnUndoneSwitchRemembersWhatWentOffWithTheDomain) {
  brisq_panel::SetMailboxes({"alice@example.org"}, {.active = false});
  SetDomain("example.org", {.active = false});
  SetDomain("example.org", {.active = true});
  brisq_panel::UndoJob(brisq_panel::ListJobs(1).at(0).id);
  EXPECT_EQ("off off", Column("SELECT active FROM mailboxes ORDER BY name"));
  SetDomain("example.org", {.active = true});
  EXPECT_EQ("off on", Column("SELECT active FROM mailboxes ORDER BY name"));
}

TEST_F(DomainChanges, TheBackendHearsOfAChangedDomain) {
  SetDomain("other.org", {.active = true});
  EXPECT_THAT(calls_.made, ElementsAre("mail.OnUpdateDomain other.org"));
}

TEST_F(DomainChanges, AnEmptyDomainCanChangeHands) {
  brisq_panel::AddOwner({"eve", 1002, 1002, dir_ / "home/eve"});
  EXPECT_EQ("eve", SetDomain("other.org", {.owner = "eve"}).owner);
  EXPECT_EQ("limit: domain example.org: owner: can't be changed while the domain has mailboxes",
            TextOf([] { SetDomain("example.org", {.owner = "eve"}); }));
  EXPECT_EQ("bob", SetDomain("example.org", {.owner = "bob"}).owner) << "it has him already";
  EXPECT_EQ("missed: owner: nobody", TextOf([] { SetDomain("other.org", {.owner = "nobody"}); }));
}

TEST_F(DomainChanges, AFailedChangeLeavesEverything) {
  const std::string before = Lines();
  calls_.failing = "mail.OnUpdateDomain";
  EXPECT_EQ("email", ErrorOf([] { SetDomain("example.org", {.active = false}); }).type());
  EXPECT_TRUE(brisq_panel::ShowDomain("example.org").active);
  EXPECT_EQ(before, Lines());
}

TEST_F(DomainChanges, ADeletedDomainGoesWithItsMailboxes) {
  brisq_panel::SetMailboxes({"carol@example.org"}, {.active = false});
  calls_.made.clear();
  const auto removed = DeleteDomain("Example.org");
  ASSERT_EQ(2u, removed.size());
  EXPECT_EQ("alice@example.org", removed[0].address);
  EXPECT_EQ(Home() + "/mail/example.org/carol", removed[1].home);
  EXPECT_EQ("", Lines());
  EXPECT_THAT(calls_.made,
              ElementsAre("mail.Delete alice@example.org", "mail.OnDeleteDomain example.org"));
  EXPECT_EQ("missed", ErrorOf([] { brisq_panel::ShowDomain("example.org"); }).type());
  EXPECT_EQ(2u, brisq_panel::ListArchived().size());
}

TEST_F(DomainChanges, AFailedDeletionLeavesEverything) {
  const std::string before = Lines();
  calls_.failing = "mail.OnDeleteDomain";
  EXPECT_EQ("email", ErrorOf([] { DeleteDomain("example.org"); }).type());
  EXPECT_EQ(before, Lines());
  EXPECT_EQ(2, brisq_panel::ShowDomain("example.org").mailboxes);
}

TEST_F(DomainChanges, MissingDomainsAreNamed) {
  EXPECT_EQ("missed: domain: none.org", TextOf([] { DeleteDomain("none.org"); }));
  EXPECT_EQ("missed: domain: none.org", TextOf([] { SetDomain("none.org", {}); }));
  EXPECT_EQ("value", ErrorOf([] { DeleteDomain("no ne.org"); }).type());
  EXPECT_THAT(calls_.made, IsEmpty());
}

}  // namespace
