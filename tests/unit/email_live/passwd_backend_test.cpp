#include "email/passwd_backend.h"

#include "framework/config_file.h"
#include "tests/unit/email_live/live_fixture.h"

using live::Passwords;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;

namespace {

class SchemeChoice : public live::LiveTest {};

std::string Unsupported(const std::string& wish) {
  return "warning email: Specified DovecotPwScheme " + wish + " isn't supported by dovecot.";
}

/// Messages without the line in the debug prefix.
std::vector<std::string> WithoutLines(std::vector<std::string> messages) {
  const std::string prefix = "debug email: email_dovecot:";
  for (std::string& message : messages) {
    if (!message.starts_with(prefix)) continue;
    const std::size_t blank = message.find(' ', prefix.size());
    message.replace(prefix.size(), blank - prefix.size(), "LINE");
  }
  return messages;
}

TEST_F(SchemeChoice, FollowsWhatTheToolPrints) {
  const std::string cram =
      "debug email: email_dovecot:LINE Using CRAM-MD5 as default DovecotPwScheme";
  const std::string clear =
      "debug email: email_dovecot:LINE Using CLEARTEXT as default DovecotPwScheme";
  const struct {
    const char* name;
    const char* listing;
    int status;
    const char* wish;
    const char* scheme;
    std::vector<std::string> messages;
  } cases[] = {
      {"exact match", "PLAIN CRAM-MD5 SHA512-CRYPT \n", 0, "SHA512-CRYPT", "SHA512-CRYPT", {}},
      {"other case",
       "PLAIN CRAM-MD5 SHA512-CRYPT \n",
       0,
       "sha512-crypt",
       "CRAM-MD5",
       {Unsupported("sha512-crypt"), cram}},
      {"empty wish", "PLAIN CRAM-MD5 \n", 0, "", "CRAM-MD5", {Unsupported(""), cram}},
      {"last name before a line feed",
       "PLAIN SHA512-CRYPT\n",
       0,
       "SHA512-CRYPT",
       "SHA512-CRYPT",
       {}},
      {"names parted by a line break only",
       "PLAIN\nCRAM-MD5\nBLF-CRYPT\n",
       0,
       "BLF-CRYPT",
       "CLEARTEXT",
       {Unsupported("BLF-CRYPT"), clear}},
      {"failing tool",
       "CRAM-MD5 ",
       89,
       "CRAM-MD5",
       "CLEARTEXT",
       {"error email: doveadm call failed: CRAM-MD5 ", Unsupported("CRAM-MD5"), clear}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    log_.Clear();
    mgr_cf::SetParam("DovecotPwScheme", c.wish);
    doveadm_.Lists(c.listing, c.status);
    const Passwords passwords;
    EXPECT_THAT(WithoutLines(Messages()), ElementsAreArray(c.messages));
    passwords.CryptPw("a@b", "p");
    EXPECT_EQ(std::string("[pw][-s][") + c.scheme + "][-u][a@b]", doveadm_.Arguments());
    log_.Clear();
  }
}

TEST_F(SchemeChoice, AMissingToolLeavesCleartext) {
  mgr_cf::SetPath("dovecot-doveadm", dir_ / "nothing");
  log_.ExpectError("doveadm call failed: ");
  const Passwords passwords;
  EXPECT_THAT(Messages().back(), HasSubstr("Using CLEARTEXT as default DovecotPwScheme"));
}

class Hashing : public live::LiveTest {
 protected:
  Hashing() : passwords_(NewPasswords()) {}

  std::unique_ptr<Passwords> passwords_;
};

TEST_F(Hashing, TheChildSeesTheArgumentsAndThePasswordTwice) {
  doveadm_.Answers("  {CRAM-MD5}0123 45 \n");
  EXPECT_EQ("{CRAM-MD5}0123 45", passwords_->CryptPw("ann@x.org", "s3cret"));
  EXPECT_EQ("[pw][-s][CRAM-MD5][-u][ann@x.org]", doveadm_.Arguments());
  EXPECT_EQ("s3cret\ns3cret\n", doveadm_.Input());
}

TEST_F(Hashing, EveryByteThatAPasswordMayHoldReachesTheChildAsItIs) {
  std::string password;
  for (int byte = 1; byte < 256; ++byte) {
    const bool control = byte < 0x20 || byte == 0x7f;
    if (!control) password += static_cast<char>(byte);
  }
  passwords_->CryptPw("ann@x.org", password);
  EXPECT_EQ(password + "\n" + password + "\n", doveadm_.Input());
  for (const char byte : password) {
    passwords_->CryptPw("ann@x.org", std::string(1, byte));
    const std::string line{byte, '\n'};
    ASSERT_EQ(line + line, doveadm_.Input());
  }
}

TEST_F(Hashing, NoShellEverSeesAName) {
  const std::string made = dir_ / "made";
  const std::string names[] = {"$(touch${IFS}" + made + ")@x.org",
                               "`touch${IFS}" + made + "`",
                               ";touch " + made,
                               "|touch " + made,
                               ">" + made,
                               "a'b\"c\\d",
                               "*",
                               "~",
                               "$HOME",
                               "a&b",
                               "--help"};
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    passwords_->CryptPw(name, "p");
    std::string arguments = "[pw][-s][CRAM-MD5][-u][" + name + "]";
    // The command line is split at blanks and nothing else is done to it.
    for (std::size_t at = 0; (at = arguments.find(' ', at)) != std::string::npos;) {
      arguments.replace(at, 1, "][");
    }
    EXPECT_EQ(arguments, doveadm_.Arguments());
    EXPECT_NE(0, ::access(made.c_str(), F_OK)) << "a shell has run it";
  }
}

TEST_F(Hashing, AFailingToolIsReportedWithEverythingItPrinted) {
  doveadm_.Answers("on output\n", 75, "Fatal: Unknown scheme: X\n");
  try {
    passwords_->CryptPw("ann@x.org", "s3cret");
    FAIL() << "hashed";
  } catch (const email::Fail& error) {
    EXPECT_EQ("email", error.type());
    EXPECT_EQ("doveadm", error.object());
    EXPECT_EQ("on output\nFatal: Unknown scheme: X\n", error.value());
    EXPECT_TRUE(error.report());
  }
}

TEST_F(Hashing, AMissingToolIsReported) {
  mgr_cf::SetPath("dovecot-doveadm", dir_ / "nothing");
  log_.ExpectError("doveadm call failed: ");
  const Passwords passwords;
  EXPECT_THAT(live::ErrorOf([&] { passwords.CryptPw("a@b", "s3cret"); }),
              testing::AllOf(testing::StartsWith("email: doveadm: "), HasSubstr("nothing"),
                             Not(HasSubstr("s3cret"))));
}

TEST_F(Hashing, EmptyOutputGivesTheEmptyHash) {
  doveadm_.Answers("\n");
  EXPECT_EQ("", passwords_->CryptPw("ann@x.org", "p"));
}

TEST_F(Hashing, AToolThatLeavesItsInputUnreadIsNoFailure) {
  mgr_cf::SetPath("dovecot-doveadm", "/bin/echo");
  const Passwords passwords;
  EXPECT_EQ("pw -s CLEARTEXT -u a@b", passwords.CryptPw("a@b", "p"));
}

TEST_F(Hashing, ThePasswordIsNeitherInArgumentsNorInTheLog) {
  doveadm_.Answers("no\n", 1);
  EXPECT_THROW(passwords_->CryptPw("ann@x.org", "hunter2"), email::Fail);
  EXPECT_THAT(doveadm_.Arguments(), Not(HasSubstr("hunter2")));
  for (const std::string& message : Messages()) EXPECT_THAT(message, Not(HasSubstr("hunter2")));
}

class PasswordBackEnd : public Hashing {
 protected:
  PasswordBackEnd() { WriteFile(kBefore + kAnn + kBehind); }

  const std::string kBefore = "# users\n";
  const std::string kAnn = "ann@x.org:old:1001:1002:i:/home/ann:s:f:maildir:~/.maildir\n";
  const std::string kBehind = "bob@x.org::1:2::/b:::m\r\n";
};

TEST_F(PasswordBackEnd, UpdateChangesTheHashAndNothingElse) {
  doveadm_.Answers("{CRAM-MD5}new\n");
  passwords_->Update("ann@x.org", "p");
  EXPECT_EQ(
      kBefore + "ann@x.org:{CRAM-MD5}new:1001:1002:i:/home/ann:s:f:maildir:~/.maildir\n" + kBehind,
      File());
  EXPECT_EQ(1, reload_.requests);
}

TEST_F(PasswordBackEnd, AFailingToolLeavesTheFile) {
  doveadm_.Answers("", 1, "no\n");
  EXPECT_THROW(passwords_->Update("ann@x.org", "p"), email::Fail);
  EXPECT_EQ(kBefore + kAnn + kBehind, File());
  EXPECT_EQ(0, reload_.requests);
}

TEST_F(PasswordBackEnd, UpdateOfAnUnknownMailboxStartsNoTool) {
  EXPECT_EQ("missed: name: no@x.org", live::ErrorOf([&] { passwords_->Update("no@x.org", "p"); }));
  EXPECT_EQ(0, doveadm_.Calls());
  EXPECT_EQ(kBefore + kAnn + kBehind, File());
}

TEST_F(PasswordBackEnd, AnEmptyPasswordDoesNothing) {
  passwords_->Create("no@x.org", "");
  passwords_->Update("ann@x.org", "");
  EXPECT_EQ(0, doveadm_.Calls());
  EXPECT_EQ(0, reload_.requests);
}

TEST_F(PasswordBackEnd, DeleteRemovesTheLine) {
  passwords_->Delete("ann@x.org");
  EXPECT_EQ(kBefore + kBehind, File());
  EXPECT_EQ(1, reload_.requests);
}

TEST_F(PasswordBackEnd, DeleteOfAnUnknownMailboxDoesNotSave) {
  passwords_->Delete("no@x.org");
  EXPECT_EQ(kBefore + kAnn + kBehind, File());
  EXPECT_EQ(0, reload_.requests);
}

TEST_F(PasswordBackEnd, AHashThatDoesNotFitIntoTheColumnIsRefusedWithoutShowingIt) {
  doveadm_.Answers("{PLAIN}se:cret\n");
  const std::string error = live::ErrorOf([&] { passwords_->Update("ann@x.org", "se:cret"); });
  EXPECT_THAT(error, testing::StartsWith("value: passwd"));
  EXPECT_THAT(error, Not(HasSubstr("cret")));
  EXPECT_EQ(kBefore + kAnn + kBehind, File());
}

}  // namespace
