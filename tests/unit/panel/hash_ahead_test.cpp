#include "panel/hash_ahead.h"

#include <sys/wait.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "framework/config_file.h"
#include "mgr_cf.h"
#include "mgr_proc.h"
#include "panel/domains.h"
#include "panel/email_module.h"
#include "panel/mailbox_changes.h"
#include "panel/mailboxes.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "tests/support/doveadm_stand_in.h"
#include "tests/support/stub_program.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::AddMailbox;
using brisq_panel::BeginHash;
using brisq_panel::HashFor;
using brisq_panel::SetPassword;
using panel_test::TextOf;

constexpr auto kPatience = std::chrono::seconds(20);

// A panel with Dovecot's settings, whose back-end hashes as Dovecot's does.
class HashAhead : public panel_test::PanelTest {
 protected:
  HashAhead() {
    AddBobsDomain();
    email::RegisterPop3(&mail_);
    email::RegisterPwdInterface(&passwords_);
    mgr_cf::SetParam("POP3", "dovecot");
    mgr_cf::SetPath("dovecot-doveadm", doveadm_.path());
    calls_.effects["passwords.Create"] = calls_.effects["passwords.Update"] = [this] { Hash(); };
  }
  ~HashAhead() override { EXPECT_TRUE(NoChildIsLeft()); }

  // A killed child is waited for by the next start when it takes its time to die.
  static bool NoChildIsLeft() {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (::waitpid(-1, nullptr, WNOHANG) != -1 && std::chrono::steady_clock::now() < limit) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return ::waitpid(-1, nullptr, WNOHANG) == -1;
  }

  void Hash() {
    mgr_proc::Execute tool(
        mgr_cf::GetPath("dovecot-doveadm") + " pw -s " + scheme_ + " -u " + kAlice, 3);
    tool.In() << password_ << '\n' << password_ << '\n';
    hash_ = tool.Str();
    status_ = tool.Result();
  }

  // Instead of the stand-in: says that it has begun, and hangs.
  void UseOneThatHangs() {
    mgr_cf::SetPath("dovecot-doveadm",
                    support::WriteStub(beside_ / "hangs",
                                       "echo $$ > '" + (beside_ / "begun") + "'; exec sleep 60"));
  }
  bool HasBegun() const { return std::filesystem::exists(beside_ / "begun"); }
  bool Begins() const {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (!HasBegun() && std::chrono::steady_clock::now() < limit) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return HasBegun();
  }

  const std::string kAlice = "alice@example.org";
  support::TempDir beside_;
  support::DoveadmStandIn doveadm_{beside_};
  std::string scheme_ = "CRAM-MD5";
  std::string password_ = "secret";
  std::string hash_;
  int status_ = -1;
};

TEST_F(HashAhead, TheBackendTakesItOverSoThatTheToolRunsOnceARequest) {
  doveadm_.Answers("{CRAM-MD5}one\n");
  AddMailbox({"ALICE@example.org", "secret"});
  EXPECT_EQ("{CRAM-MD5}one\n", hash_);
  EXPECT_EQ("secret\nsecret\n", doveadm_.Input());
  EXPECT_EQ("[pw][-s][CRAM-MD5][-u][alice@example.org]", doveadm_.Arguments());
  EXPECT_EQ(1, doveadm_.Calls());
  doveadm_.Answers("{CRAM-MD5}two\n");
  password_ = "other";
  SetPassword(kAlice, "other");
  EXPECT_EQ("{CRAM-MD5}two\n", hash_);
  EXPECT_EQ("other\nother\n", doveadm_.Input());
  EXPECT_EQ(1, doveadm_.Calls());
}

TEST_F(HashAhead, TheWishedSchemeIsTheLikelyOne) {
  mgr_cf::SetParam("DovecotPwScheme", "SHA512-CRYPT");
  scheme_ = "SHA512-CRYPT";
  doveadm_.Answers("{SHA512-CRYPT}x\n");
  AddMailbox({kAlice, "secret"});
  EXPECT_EQ(1, doveadm_.Calls());
  EXPECT_EQ("{SHA512-CRYPT}x\n", hash_);
}

// Dovecot does not list the wished one, say.
TEST_F(HashAhead, AWrongGuessIsLeftAndTheToolRunsAsAsked) {
  mgr_cf::SetParam("DovecotPwScheme", "ARGON2ID");
  const std::string script = "case \"$*\" in *ARGON2ID*) echo $$ > '" + (beside_ / "begun") +
                             "'; exec sleep 60;; esac; cat > /dev/null; echo '{CRAM-MD5}right'";
  mgr_cf::SetPath("dovecot-doveadm", support::WriteStub(beside_ / "guessed", script));
  bool begun = false;
  calls_.effects["passwords.Create"] = [&] {
    begun = Begins();
    Hash();
  };
  AddMailbox({kAlice, "secret"});
  EXPECT_TRUE(begun) << "it was no guess";
  EXPECT_EQ("{CRAM-MD5}right\n", hash_);
  EXPECT_EQ(0, status_);
}

TEST_F(HashAhead, AFailureOfTheToolIsToldAsEver) {
  doveadm_.Answers("", 75, "Fatal: no luck with secret\n");
  AddMailbox({kAlice, "secret"});
  EXPECT_EQ(75, status_);
  EXPECT_EQ("Fatal: no luck with ***\n", hash_);
  EXPECT_EQ(1, doveadm_.Calls());
}

TEST_F(HashAhead, ItRunsWhileAnotherRequestHoldsTheDatabase) {
  UseOneThatHangs();
  calls_.effects.clear();  // nobody waits for its answer
  std::jthread adding;
  bool begun = false;
  brisq_panel::DoRequest("domain set", [&](Request&) {
    adding = std::jthread([&] { AddMailbox({kAlice, "secret"}); });
    begun = Begins();
  });
  EXPECT_TRUE(begun);
}

TEST_F(HashAhead, NothingIsBegunForWhatWillAskForNone) {
  AddMailbox({kAlice, "secret"});
  AddMailbox({"off@example.org", "secret"});
  brisq_panel::SetMailboxes({"off@example.org"}, {.active = false});
  brisq_panel::AddDomain("off.org", "bob");
  brisq_panel::DoRequest("domain set", [](Request&) {
    const auto domain = brisq_panel::FindDomain("off.org");
    domain->active = false;
    domain->Post();
  });
  UseOneThatHangs();
  struct Case {
    const char* name;
    const char* address;
    const char* password;
    HashFor what = HashFor::kNewMailbox;
    const char* pop3 = "dovecot";
    const char* scheme = "";
    bool tool = true;
  };
  const Case cases[] = {
      {"no address", "carol", "secret"},
      {"words in the address", "carol@example.org -r 5", "secret"},
      {"an option as address", "-carol@example.org", "secret"},
      {"a line break in the address", "carol@example.org\nx", "secret"},
      {"no password", "carol@example.org", ""},
      {"a line break in the password", "carol@example.org", "a\nb"},
      {"no domain", "carol@example.net", "secret"},
      {"a domain that is off", "carol@off.org", "secret"},
      {"a mailbox that is there", "Alice@example.org", "secret"},
      {"another password of none", "carol@example.org", "secret", HashFor::kOtherPassword},
      {"another password of one that is off", "off@example.org", "secret", HashFor::kOtherPassword},
      {"another server", "carol@example.org", "secret", HashFor::kNewMailbox, "courier"},
      {"words as scheme", "carol@example.org", "secret", HashFor::kNewMailbox, "dovecot", "X -l"},
      {"no tool", "carol@example.org", "secret", HashFor::kNewMailbox, "dovecot", "", false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    mgr_cf::SetParam("POP3", c.pop3);
    mgr_cf::SetParam("DovecotPwScheme", c.scheme);
    mgr_cf::SetPath("dovecot-doveadm", c.tool ? beside_ / "hangs" : "");
    EXPECT_EQ(nullptr, BeginHash(c.address, c.password, c.what));
  }
  mgr_cf::SetPath("dovecot-doveadm", beside_ / "hangs");
  mgr_cf::SetParam("DovecotPwScheme", "");
  EXPECT_NE(nullptr, BeginHash("carol@example.org", "secret", HashFor::kNewMailbox));
  EXPECT_NE(nullptr, BeginHash(kAlice, "secret", HashFor::kOtherPassword));
}

TEST_F(HashAhead, ARefusedRequestLeavesNothingRunning) {
  UseOneThatHangs();
  calls_.failing = "mail.Create";
  calls_.effects["mail.Create"] = [this] { EXPECT_TRUE(Begins()); };
  EXPECT_EQ("email: doveadm: stand-in failed", TextOf([&] { AddMailbox({kAlice, "secret"}); }));
  EXPECT_TRUE(NoChildIsLeft());
  EXPECT_EQ("value: mailbox alice@example.org: home: must lie below its owner's home, " + Home(),
            TextOf([&] {
              AddMailbox({kAlice, "secret", {}, "/elsewhere"});
            }));
  EXPECT_TRUE(NoChildIsLeft());
}

bool IsHeld(int signal) {
  sigset_t held;
  EXPECT_EQ(0, ::pthread_sigmask(SIG_BLOCK, nullptr, &held));
  return sigismember(&held, signal) == 1;
}

TEST_F(HashAhead, CtrlCWaitsUntilTheToolHasEnded) {
  UseOneThatHangs();
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(signal);
    const auto ahead = BeginHash(kAlice, "secret", HashFor::kNewMailbox);
    ASSERT_NE(nullptr, ahead);
    EXPECT_TRUE(IsHeld(signal));
  }
  EXPECT_FALSE(IsHeld(SIGINT));
}

TEST_F(HashAhead, NothingIsBegunForAMailboxWithAWrongValue) {
  UseOneThatHangs();
  EXPECT_EQ(nullptr, brisq_panel::BeginToAdd({kAlice, "secret", "much"}));
  EXPECT_EQ(nullptr, brisq_panel::BeginToAdd({kAlice, "secret", {}, "here"}));
  EXPECT_NE(nullptr, brisq_panel::BeginToAdd({kAlice, "secret", "5"}));
}

TEST_F(HashAhead, WhatWasBegunBeforeTheRequestIsNotBegunAgain) {
  doveadm_.Answers("{CRAM-MD5}one\n");
  const auto ahead = BeginHash(kAlice, "secret", HashFor::kNewMailbox);
  ASSERT_NE(nullptr, ahead);
  AddMailbox({kAlice, "secret"});
  EXPECT_EQ("{CRAM-MD5}one\n", hash_);
  EXPECT_EQ(1, doveadm_.Calls());
}

TEST_F(HashAhead, AToolThatGoesMissingInBetweenHasDoneItsWork) {
  doveadm_.Answers("{CRAM-MD5}one\n");
  calls_.effects["mail.Create"] = [&] {
    const auto limit = std::chrono::steady_clock::now() + kPatience;
    while (doveadm_.Calls() == 0 && std::chrono::steady_clock::now() < limit) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::filesystem::remove(doveadm_.path());
  };
  AddMailbox({kAlice, "secret"});
  EXPECT_EQ("{CRAM-MD5}one\n", hash_);
  password_ = "other";
  SetPassword(kAlice, "other");
  EXPECT_EQ(127, status_) << "and the next one is told";
}

}  // namespace
