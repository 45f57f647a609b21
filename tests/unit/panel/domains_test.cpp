#include "panel/domains.h"

#include "panel/email_module.h"
#include "panel/mailboxes.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::AddDomain;
using testing::IsEmpty;

class Domains : public panel_test::PanelTest {};

TEST_F(Domains, AnAddedDomainIsActiveAndEmpty) {
  AddBob();
  const auto added = AddDomain("Example.ORG", "bob");
  EXPECT_EQ("example.org", added.name);
  EXPECT_EQ("bob", added.owner);
  EXPECT_TRUE(added.active);
  EXPECT_EQ(0, added.mailboxes);
  EXPECT_EQ("", added.cert);
  EXPECT_EQ("", added.key);
}

TEST_F(Domains, AnySpellingFindsTheOneDomain) {
  AddBob();
  AddDomain(
      "b\xc3\xbc"
      "cher.example",
      "bob");
  for (const char* spelling : {"xn--bcher-kva.example",
                               "B\xc3\x9c"
                               "CHER.Example"}) {
    SCOPED_TRACE(spelling);
    EXPECT_EQ("xn--bcher-kva.example", brisq_panel::ShowDomain(spelling).name);
    EXPECT_EQ("exists: domain: xn--bcher-kva.example",
              panel_test::TextOf([&] { AddDomain(spelling, "bob"); }));
  }
}

TEST_F(Domains, ListIsInOrderOfNames) {
  AddBob();
  AddDomain("b.org", "bob");
  AddDomain("a.org", "bob");
  const auto domains = brisq_panel::ListDomains();
  ASSERT_EQ(2u, domains.size());
  EXPECT_EQ("a.org", domains[0].name);
  EXPECT_EQ("b.org", domains[1].name);
}

TEST_F(Domains, MailboxesAreCountedByDomain) {
  email::RegisterPop3(&mail_);
  AddBobsDomain();
  AddDomain("other.org", "bob");
  brisq_panel::AddMailbox({"a@example.org", "secret"});
  brisq_panel::AddMailbox({"b@example.org", "secret"});
  EXPECT_EQ(2, brisq_panel::ShowDomain("example.org").mailboxes);
  EXPECT_EQ(0, brisq_panel::ShowDomain("other.org").mailboxes);
}

TEST_F(Domains, MissingOwnersAndBadNamesLeaveNothing) {
  EXPECT_EQ("missed: owner: bob", panel_test::TextOf([] { AddDomain("example.org", "bob"); }));
  AddBob();
  EXPECT_EQ("value: domain: line break not allowed",
            panel_test::TextOf([] { AddDomain("example.org\n", "bob"); }));
  EXPECT_EQ("value", panel_test::ErrorOf([] { AddDomain("example.org", "b'ob"); }).type());
  EXPECT_THAT(brisq_panel::ListDomains(), IsEmpty());
}

TEST_F(Domains, AMissingDomainIsNamedInItsStoredForm) {
  EXPECT_EQ("missed: domain: example.org",
            panel_test::TextOf([] { brisq_panel::ShowDomain("EXAMPLE.org"); }));
}

}  // namespace
