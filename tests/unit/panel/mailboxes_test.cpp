#include "panel/mailboxes.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "framework/config_file.h"
#include "framework/request.h"
#include "framework/seal.h"
#include "panel/domains.h"
#include "panel/email_module.h"
#include "panel/owners.h"
#include "panel/password_line.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::AddMailbox;
using brisq_panel::NewMailbox;
using panel_test::ErrorOf;
using panel_test::TextOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class Mailboxes : public panel_test::PanelTest {
 protected:
  Mailboxes() {
    AddBobsDomain();
    email::RegisterPop3(&mail_);
  }
  void UsePasswordBackend() { email::RegisterPwdInterface(&passwords_); }
  void ExpectNothing() {
    EXPECT_THAT(brisq_panel::ListMailboxes(), IsEmpty());
    EXPECT_EQ(nullptr, Request::Current());
  }
};

TEST_F(Mailboxes, AnAddedMailboxIsShownAndListed) {
  const auto added = AddMailbox({"Alice@EXAMPLE.org", "secret", "2G"});
  EXPECT_EQ("alice@example.org", added.address);
  EXPECT_EQ("bob", added.owner);
  EXPECT_EQ(Home() + "/mail/example.org/alice", added.home);
  EXPECT_EQ(2048, added.quota_mb);
  EXPECT_EQ(0, added.used_mb);
  EXPECT_TRUE(added.active);
  EXPECT_EQ("alice@example.org", brisq_panel::ShowMailbox("ALICE@example.org").address);
  EXPECT_EQ(1u, brisq_panel::ListMailboxes().size());
}

TEST_F(Mailboxes, ListIsInOrderOfDomainAndLocalPart) {
  brisq_panel::AddDomain("a.org", "bob");
  for (const char* address : {"z@example.org", "b@example.org", "c@a.org"}) {
    AddMailbox({address, "secret"});
  }
  std::vector<std::string> addresses;
  for (const auto& mailbox : brisq_panel::ListMailboxes()) {
    addresses.push_back(mailbox.address);
  }
  EXPECT_THAT(addresses, ElementsAre("c@a.org", "b@example.org", "z@example.org"));
}

TEST_F(Mailboxes, WithoutAPasswordBackendTheMailBackendReadsThePassword) {
  AddMailbox({"alice@example.org", "s3cret", "500"});
  EXPECT_THAT(calls_.made,
              ElementsAre("mail.Create alice@example.org uid=1001 gid=1001 home=" + Home() +
                          "/mail/example.org/alice quota=500 "
                          "password=s3cret"));
}

TEST_F(Mailboxes, WithAPasswordBackendTheTableKeepsNoPassword) {
  UsePasswordBackend();
  AddMailbox({"alice@example.org", "s3cret"});
  EXPECT_THAT(calls_.made, ElementsAre("mail.Create alice@example.org uid=1001 gid=1001 home=" +
                                           Home() + "/mail/example.org/alice quota= password=",
                                       "passwords.Create alice@example.org s3cret"));
  EXPECT_EQ("", Column("SELECT password FROM mailboxes"));
}

TEST_F(Mailboxes, AKeptPasswordLiesSealed) {
  AddMailbox({"alice@example.org", "canary-password"});
  EXPECT_THAT(DatabaseBytes(), Not(HasSubstr("canary")));
  EXPECT_EQ("canary-password", mgr_seal::Open(Column("SELECT password FROM mailboxes")));
}

TEST_F(Mailboxes, APasswordIsInNoFileWhenABackendKeepsIt) {
  UsePasswordBackend();
  AddMailbox({"alice@example.org", "canary-password"});
  EXPECT_THAT(DatabaseBytes(), Not(HasSubstr("canary")));
  for (const auto& entry : std::filesystem::recursive_directory_iterator(log_.directory())) {
    if (entry.is_regular_file()) {
      EXPECT_THAT(support::ReadFile(entry.path()), Not(HasSubstr("canary"))) << entry.path();
    }
  }
}

TEST_F(Mailboxes, TheRowIsThereWhenTheBackendIsCalled) {
  std::string seen;
  calls_.effects["mail.Create"] = [&] { seen = Column("SELECT name FROM mailboxes"); };
  AddMailbox({"alice@example.org", "secret"});
  EXPECT_EQ("alice", seen);
}

TEST_F(Mailboxes, ALineAndItsPasswordReachTheFileTogether) {
  UsePasswordBackend();
  dir_.Write("passwd", "a@example.org::1:1::/h:::\n");
  mgr_cf::SetPath("dovecot-passwd", dir_ / "passwd");
  std::string between;
  calls_.effects["mail.Create"] = [] { brisq_panel::StoreHash("a@example.org", "{X}line"); };
  calls_.effects["passwords.Create"] = [&] {
    between = dir_.Read("passwd");
    brisq_panel::StoreHash("a@example.org", "{CRAM-MD5}0123");
  };
  AddMailbox({"a@example.org", "secret"});
  EXPECT_EQ("a@example.org::1:1::/h:::\n", between);
  EXPECT_EQ("a@example.org:{CRAM-MD5}0123:1:1::/h:::\n", dir_.Read("passwd"));
}

TEST_F(Mailboxes, AFailureAtAnyStepLeavesNothingAndReachesTheUser) {
  UsePasswordBackend();
  for (const std::string step : {"mail.Create", "passwords.Create"}) {
    SCOPED_TRACE(step);
    calls_.failing = step;
    const auto error = ErrorOf([] { AddMailbox({"alice@example.org", "secret"}); });
    EXPECT_STREQ("email: doveadm: stand-in failed", error.what());
    EXPECT_TRUE(error.report());
    ExpectNothing();
  }
  calls_.failing.clear();
  AddMailbox({"alice@example.org", "secret"});
}

TEST_F(Mailboxes, StepsOfTheBackendsAreTakenBackInReverse) {
  UsePasswordBackend();
  std::vector<std::string> undone;
  const auto undo = [&](const std::string& what) {
    return [&undone, what] {
      Request::Current()->OnRollback(what, [&undone, what] { undone.push_back(what); });
    };
  };
  calls_.effects["mail.Create"] = undo("line");
  calls_.effects["passwords.Create"] = undo("hash");
  calls_.failing = "passwords.Create";
  ErrorOf([] { AddMailbox({"alice@example.org", "secret"}); });
  EXPECT_THAT(undone, ElementsAre("hash", "line"));
}

TEST_F(Mailboxes, AJobThatFailsAtCommitLeavesNothing) {
  struct Failing : mgr_job::Job {
    void Do() override { throw mgr_err::Error("file", "/maildir", "no space"); }
    void Undo() override {}
  };
  bool undone = false;
  calls_.effects["mail.Create"] = [&] {
    Request::Current()->OnRollback("line", [&] { undone = true; });
    new Failing;
  };
  EXPECT_EQ("file: /maildir: no space", TextOf([] {
              AddMailbox({"alice@example.org", "secret"});
            }));
  EXPECT_TRUE(undone);
  ExpectNothing();
}

TEST_F(Mailboxes, WhatCouldNotBeTakenBackIsSaid) {
  calls_.effects["mail.Create"] = [] {
    Request::Current()->OnRollback(
        "the line of alice", [] { throw mgr_err::Error("file", "/passwd", "changed since"); });
  };
  calls_.failing = "mail.Create";
  const auto error = ErrorOf([] { AddMailbox({"alice@example.org", "secret"}); });
  EXPECT_EQ("email", error.type());
  EXPECT_THAT(error.value(), testing::AllOf(HasSubstr("stand-in failed"), HasSubstr("alice"),
                                            HasSubstr("changed since")));
  EXPECT_TRUE(error.report());
  log_.ExpectError("changed since");
}

TEST_F(Mailboxes, ATakenAddressIsRefusedBeforeAnyBackendIsAsked) {
  AddMailbox({"alice@example.org", "secret"});
  calls_.made.clear();
  EXPECT_EQ("exists: mailbox: alice@example.org", TextOf([] {
              AddMailbox({"ALICE@Example.org", "other"});
            }));
  EXPECT_THAT(calls_.made, IsEmpty());
  EXPECT_EQ(1u, brisq_panel::ListMailboxes().size());
}

TEST_F(Mailboxes, ANameInTheServersOwnListIsTakenToo) {
  calls_.failing = "mail.Create";
  calls_.error = mgr_err::Error("exists", "name", "alice@example.org");
  const auto error = ErrorOf([] { AddMailbox({"alice@example.org", "secret"}); });
  EXPECT_EQ("exists", error.type());
  EXPECT_EQ("mailbox", error.object());
  EXPECT_THAT(error.value(), HasSubstr("alice@example.org stands in the mail server's list"));
  ExpectNothing();
}

TEST_F(Mailboxes, AHashThatDoesNotFitItsColumnIsTheToolsFault) {
  UsePasswordBackend();
  calls_.failing = "passwords.Create";
  calls_.error = mgr_err::Error("value", "passwd", "':' not allowed");
  EXPECT_EQ("email: doveadm: its answer can't stand in a line: ':' not allowed", TextOf([] {
              AddMailbox({"alice@example.org", "se:cret"});
            }));
  ExpectNothing();
}

// The other request has the lock first; what this one sees before it counts for nothing.
TEST_F(Mailboxes, ADomainThatIsSwitchedOffMeanwhileTakesNone) {
  std::string refused;
  std::jthread adding;
  brisq_panel::DoRequest("domain set", [&](Request&) {
    adding = std::jthread([&] {
      refused = TextOf([] { AddMailbox({"alice@example.org", "secret"}); });
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));  // until it waits, most likely
    const auto domain = brisq_panel::FindDomain("example.org");
    domain->active = false;
    domain->Post();
  });
  adding.join();
  EXPECT_EQ("limit: mailbox alice@example.org: domain: example.org is switched off", refused);
  ExpectNothing();
}

TEST_F(Mailboxes, WithoutAMailBackendTheReasonIsSaid) {
  brisq_panel::ForgetBackends();
  brisq_panel::SetBackendProblem("the parameter POP3 is not set");
  EXPECT_EQ("plugin: mail back-end: the parameter POP3 is not set", TextOf([] {
              AddMailbox({"alice@example.org", "secret"});
            }));
  ExpectNothing();
}

TEST_F(Mailboxes, NothingIsTouchedWhenAValueIsRefused) {
  struct Case {
    const char* name;
    NewMailbox mailbox;
    std::string text;
  };
  const std::string home = Home();
  const Case cases[] = {
      {"line break in the name",
       {"al\nice@example.org", "secret"},
       "value: mailbox name: line break not allowed"},
      {"colon in the name",
       {"al:ice@example.org", "secret"},
       "value: mailbox name: ':' not allowed"},
      {"no domain", {"alice", "secret"}, "value: address: must be LOCALPART@DOMAIN"},
      {"bad domain", {"alice@example.org:x", "secret"}, "value: domain: ':' not allowed"},
      {"empty password", {"alice@example.org", ""}, "value: password: must not be empty"},
      {"line break in the password",
       {"alice@example.org", "a\nb"},
       "value: password: line break not allowed"},
      {"NUL in the password",
       {"alice@example.org", std::string("abc\0def", 7)},
       "value: password: NUL not allowed"},
      {"quota",
       {"alice@example.org", "secret", "5 nopassword"},
       "value: quota: must be a whole number of megabytes, like 500, 500M or 2G, or none"},
      {"empty quota", {"alice@example.org", "secret", ""}, "value: quota: must not be empty"},
      {"empty home", {"alice@example.org", "secret", {}, ""}, "value: home: must not be empty"},
      {"home of somebody else",
       {"alice@example.org", "secret", {}, "/etc/mail"},
       "value: mailbox alice@example.org: home: must lie below its owner's home, " + Home()},
      {"owner's own home",
       {"alice@example.org", "secret", {}, home},
       "value: mailbox alice@example.org: home: must lie below its owner's home, " + Home()},
      {"home with a way out",
       {"alice@example.org", "secret", {}, home + "/../x"},
       "value: home: must have no '.', '..', doubled or closing '/' in it"},
      {"home that Dovecot expands",
       {"alice@example.org", "secret", {}, home + "/%u"},
       "value: home: '%' not allowed"},
      {"bad home of a domain that is missing",
       {"alice@missing.org", "secret", {}, "relative"},
       "value: home: must be an absolute path"},
      {"domain that is missing", {"alice@missing.org", "secret"}, "missed: domain: missing.org"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.text, TextOf([&] { AddMailbox(c.mailbox); }));
    EXPECT_THAT(calls_.made, IsEmpty());
    ExpectNothing();
  }
}

TEST_F(Mailboxes, ThePasswordsLimitIsThatOfTheConfiguredScheme) {
  mgr_cf::SetParam("DovecotPwScheme", "BLF-CRYPT");
  EXPECT_EQ("value: password: too long (max 72 bytes)", TextOf([] {
              AddMailbox({"alice@example.org", std::string(73, 'x')});
            }));
  mgr_cf::SetParam("DovecotPwScheme", "SHA512-CRYPT");
  AddMailbox({"alice@example.org", std::string(73, 'x')});
}

TEST_F(Mailboxes, AGivenHomeIsUsed) {
  EXPECT_EQ(Home() + "/x", AddMailbox({"alice@example.org", "secret", "0", Home() + "/x"}).home);
}

TEST_F(Mailboxes, NamesThatLookLikeSqlAreNeverSql) {
  for (const char* address :
       {"x'--@example.org", "x\";--@example.org", "x@example.org' OR '1'='1"}) {
    SCOPED_TRACE(address);
    EXPECT_EQ("value", ErrorOf([&] { brisq_panel::ShowMailbox(address); }).type());
    EXPECT_EQ("value", ErrorOf([&] { AddMailbox({address, "secret"}); }).type());
  }
  AddMailbox(
      {"alice@example.org", "'; DROP TABLE mailboxes; --", {}, Home() + "/x'; DROP TABLE y"});
  EXPECT_EQ(Home() + "/x'; DROP TABLE y", brisq_panel::ShowMailbox("alice@example.org").home);
}

TEST_F(Mailboxes, AMissingMailboxIsNamed) {
  EXPECT_EQ("missed: mailbox: alice@example.org",
            TextOf([] { brisq_panel::ShowMailbox("alice@example.org"); }));
  EXPECT_EQ("missed: mailbox: alice@missing.org",
            TextOf([] { brisq_panel::ShowMailbox("alice@missing.org"); }));
}

TEST_F(Mailboxes, ALocalPartIsUniqueWithinItsDomainOnly) {
  brisq_panel::AddDomain("other.org", "bob");
  AddMailbox({"alice@example.org", "secret"});
  AddMailbox({"alice@other.org", "secret"});
  EXPECT_EQ(2u, brisq_panel::ListMailboxes().size());
}

}  // namespace
