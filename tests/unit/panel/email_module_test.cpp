#include "panel/email_module.h"

#include "panel/mailboxes.h"
#include "panel/names.h"
#include "panel/records.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::Table;
using panel_test::ErrorOf;

class EmailModule : public panel_test::PanelTest {
 protected:
  EmailModule() {
    AddBobsDomain();
    email::RegisterPop3(&mail_);
    brisq_panel::AddMailbox({"alice@example.org", "secret"});
  }
  bool Find(const std::string& name) { return email::FindByEmailName(name, email_, domain_); }

  std::shared_ptr<brisq_db::EmailTable> email_ = Table<brisq_db::EmailTable>();
  std::shared_ptr<brisq_db::EmailDomainTable> domain_ = Table<brisq_db::EmailDomainTable>();
};

TEST_F(EmailModule, TheLastRegistrationCounts) {
  panel_test::RecordingMail other(calls_);
  EXPECT_EQ(&mail_, &brisq_panel::MailBackend());
  email::RegisterPop3(&other);
  EXPECT_EQ(&other, &brisq_panel::MailBackend());
  EXPECT_EQ(nullptr, brisq_panel::PasswordBackend());
  email::RegisterPwdInterface(&passwords_);
  EXPECT_EQ(&passwords_, brisq_panel::PasswordBackend());
}

TEST_F(EmailModule, WithoutAMailBackendTheReasonIsSaid) {
  brisq_panel::ForgetBackends();
  brisq_panel::SetBackendProblem("it could not be loaded");
  EXPECT_EQ("plugin: mail back-end: it could not be loaded",
            panel_test::TextOf([] { brisq_panel::MailBackend(); }));
}

TEST_F(EmailModule, AMailboxIsFoundByAnySpellingOfItsName) {
  for (const char* name : {"alice@example.org", "ALICE@Example.ORG", "alice@EXAMPLE.org"}) {
    SCOPED_TRACE(name);
    EXPECT_TRUE(Find(name));
    EXPECT_EQ("alice", std::string(email_->name));
    EXPECT_EQ("example.org", std::string(domain_->name));
  }
}

TEST_F(EmailModule, NamesThatAreNoMailboxAreNotFound) {
  for (const std::string name :
       {"", "alice", "@", "alice@", "@example.org", "bob@example.org", "alice@example.net",
        "alice@example.org ", "#alice@example.org", "alice@@example.org", "alice@example.org\n",
        "al\xff@example.org", "x' OR '1'='1@example.org"}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(Find(name));
  }
}

TEST_F(EmailModule, TheFullNameAndTheOwnerAreThoseOfTheRecords) {
  ASSERT_TRUE(Find("alice@example.org"));
  EXPECT_EQ("alice@example.org", email::GetEmailName(email_));
  EXPECT_EQ("bob", std::string(email::GetEmailOwner(email_)->name));
}

TEST_F(EmailModule, MissingDomainsAndOwnersAreErrors) {
  email_->New();
  email_->domain = 99;
  email_->owner = 99;
  EXPECT_EQ("missed", ErrorOf([&] { email::GetEmailName(email_); }).type());
  EXPECT_EQ("missed", ErrorOf([&] { email::GetEmailOwner(email_); }).type());
}

TEST_F(EmailModule, AMailFailureIsReportedToTheUser) {
  const email::Fail fail("doveadm", "no such scheme");
  EXPECT_STREQ("email: doveadm: no such scheme", fail.what());
  EXPECT_TRUE(fail.report());
  const email::Fail copy(fail);
  EXPECT_TRUE(copy.report());
  EXPECT_EQ("no such scheme", copy.value());
}

}  // namespace
