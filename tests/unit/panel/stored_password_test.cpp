#include "panel/stored_password.h"

#include "framework/conf_defer.h"
#include "framework/config_file.h"
#include "panel/line_saves.h"
#include "panel/password_line.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::HashProblem;
using panel_test::TextOf;

// Of "secret", as doveadm 2.3.19 made them.
constexpr const char* kSha512 =
    "{SHA512-CRYPT}$6$ZRFZeGcpmzjGADaX$VJB59cezWlhoO9cyVvYtkWR0TW2BwjbiEqKlTvFp/YrtLDKM/n9J5UkC/"
    "5WmTJ.8lyz6jAXsnnv4RXe2kBhkK.";
constexpr const char* kBcrypt =
    "{BLF-CRYPT}$2y$05$C9OZP0LDZpDvjxv88ttnyej6D830Z5BvHJcMIbDod3Qy1FVUigOzi";
constexpr const char* kMd5 = "{MD5-CRYPT}$1$4Li7Ht6j$euP9VK6wLvwyFExgx.tx01";
constexpr const char* kCramMd5 =
    "{CRAM-MD5}cd3ba7deaad6e5ca23448ba42e379747a9e0f7f1fbc00c8a81bbaac395731b56";
constexpr const char* kArgon2 =
    "{ARGON2ID}$argon2id$v=19$m=65536,t=3,p=1$bkvmtP/"
    "bfwUz4OTJCY0llQ$vqTQW3r3+gSheB8Q20MU4yxApPirLAEbjkaxXtS/Kjg";
// Of the empty password, which the tool hashes when it gets none.
constexpr const char* kSha512OfNothing =
    "{SHA512-CRYPT}$6$XCi21fvKnnic.b03$CfCemBtqLn/or2zz3OGPNZU8Z9C0/"
    "Dy6TjJ4ia0.SCgNleysK2XZsw1b83PNyljmuLjj3godt/xSmpeVq/ysE0";

TEST(StoredPassword, HashesOfThePasswordAreTaken) {
  for (const char* hash : {kSha512, kBcrypt, kMd5, kCramMd5, kArgon2}) {
    SCOPED_TRACE(hash);
    EXPECT_EQ("", HashProblem(hash, "secret", "SHA512-CRYPT"));
    EXPECT_EQ("", HashProblem(hash, "secret", ""));
  }
}

TEST(StoredPassword, HashesOfAnotherPasswordAreRefused) {
  const std::string problem = "its answer is the hash of another password";
  EXPECT_EQ(problem, HashProblem(kSha512OfNothing, "secret", "SHA512-CRYPT"));
  for (const char* hash : {kSha512, kBcrypt, kMd5}) {
    SCOPED_TRACE(hash);
    EXPECT_EQ(problem, HashProblem(hash, "Secret", "SHA512-CRYPT"));
    std::string cut = hash;
    cut.pop_back();
    EXPECT_NE("", HashProblem(cut, "secret", "SHA512-CRYPT"));
  }
}

TEST(StoredPassword, WhatIsNoHashIsRefused) {
  const std::string no_hash = "its answer is no hash";
  const struct {
    const char* name;
    const char* hash;
    std::string problem;
  } cases[] = {
      {"nothing", "", "it gave no hash of the password"},
      {"a failure of crypt", "{SHA512-CRYPT}*0", no_hash},
      {"another failure of crypt", "{SHA512-CRYPT}*1", no_hash},
      {"no scheme", "*0", no_hash},
      {"words", "Fatal: something", no_hash},
      {"a scheme alone", "{SHA512-CRYPT}", no_hash},
      {"an empty scheme", "{}hash", no_hash},
      {"an open scheme", "{SHA512-CRYPT", no_hash},
      {"a scheme of odd characters", "{SHA 512}hash", no_hash},
      {"something before", "x{CRAM-MD5}hash", no_hash},
      {"a blank inside", "{CRAM-MD5}ha sh", no_hash},
      {"an escape", "{CRAM-MD5}ha\x1b[1m", no_hash},
      {"DEL", "{CRAM-MD5}ha\x7f", no_hash},
      {"no ASCII", "{CRAM-MD5}h\xc3\xa4sh", no_hash},
      {"a colon", "{CRAM-MD5}ha:sh", no_hash},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.problem, HashProblem(c.hash, "secret", "SHA512-CRYPT"));
  }
}

TEST(StoredPassword, ClearTextIsTakenOnlyWhereItIsWished) {
  const struct {
    const char* hash;
    const char* scheme;
    std::string problem;
  } cases[] = {
      {"{PLAIN}se cret", "PLAIN", ""},
      {"{CLEARTEXT}se cret", "CLEARTEXT", ""},
      {"{CLEARTEXT}se cret", "plain", ""},
      {"{PLAIN}other", "PLAIN", "its answer is not the password"},
      {"{PLAIN}se cret ", "PLAIN", "its answer is not the password"},
      {"{CLEARTEXT}se cret", "SHA512-CRYPT",
       "the password would be kept in the clear, as the scheme SHA512-CRYPT is not to be had from "
       "it"},
      {"{plain}se cret", "BLF-CRYPT",
       "the password would be kept in the clear, as the scheme BLF-CRYPT is not to be had from it"},
      {"{CLEARTEXT}se cret", "",
       "the password would be kept in the clear, as the scheme CRAM-MD5 is not to be had from it"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.hash) + " for " + c.scheme);
    EXPECT_EQ(c.problem, HashProblem(c.hash, "se cret", c.scheme));
  }
}

TEST(StoredPassword, AnAnswerThatFitsNoLineIsToldFromOtherErrors) {
  using mgr_err::Error;
  EXPECT_EQ("its answer can't stand in a line: must not contain ':'",
            brisq_panel::UnfitAnswer(Error("value", "passwd", "must not contain ':'")));
  EXPECT_EQ("", brisq_panel::UnfitAnswer(Error("value", "home", "must not contain ':'")));
  EXPECT_EQ("", brisq_panel::UnfitAnswer(Error("file", "passwd", "denied")));
}

class StoredPasswordFile : public panel_test::PanelTest {
 protected:
  static std::string Problem(const std::string& address) {
    return TextOf([&] { brisq_panel::CheckStoredPassword(address, "secret"); });
  }
};

TEST_F(StoredPasswordFile, TheLineOfTheAddressIsLookedAt) {
  dir_.Write("passwd", std::string("a@x.org:") + kSha512 + ":1:1::/h:::\n" +
                           "b@x.org:{SHA512-CRYPT}*0:1:1::/h:::\nc@x.org::1:1::/h:::\n");
  EXPECT_EQ("none", Problem("a@x.org").substr(0, 4)) << "no path is set";
  mgr_cf::SetPath("dovecot-passwd", dir_ / "passwd");
  EXPECT_EQ("none", Problem("a@x.org").substr(0, 4));
  EXPECT_EQ("email: doveadm: its answer is no hash", Problem("b@x.org"));
  EXPECT_EQ("email: doveadm: it gave no hash of the password", Problem("c@x.org"));
  EXPECT_EQ("email: doveadm: it gave no hash of the password", Problem("d@x.org"));
}

TEST_F(StoredPasswordFile, WhatIsNotSavedYetIsLookedAtAsWell) {
  dir_.Write("passwd", std::string("b@x.org:") + kSha512 + ":1:1::/h:::\n");
  mgr_cf::SetPath("dovecot-passwd", dir_ / "passwd");
  const DeferSaves scope(DeferSaves::Between::kNever);
  EXPECT_EQ("none", Problem("b@x.org").substr(0, 4));
  brisq_panel::StoreHash("b@x.org", "{SHA512-CRYPT}*0");
  EXPECT_EQ("email: doveadm: its answer is no hash", Problem("b@x.org"));
}

TEST_F(StoredPasswordFile, WhatIsNotSavedYetIsLookedAtOnceItIs) {
  dir_.Write("passwd", "a@x.org::1:1::/h:::\nb@x.org::1:1::/h:::\n");
  mgr_cf::SetPath("dovecot-passwd", dir_ / "passwd");
  brisq_panel::LineSaves saves;
  brisq_panel::StoreHash("a@x.org", kSha512);
  EXPECT_EQ("none", Problem("a@x.org").substr(0, 4));
  EXPECT_EQ("none", TextOf([&] { saves.Save(); }).substr(0, 4));
  brisq_panel::StoreHash("b@x.org", "{SHA512-CRYPT}*0");
  EXPECT_EQ("none", Problem("b@x.org").substr(0, 4));
  EXPECT_EQ("email: doveadm: b@x.org: its answer is no hash", TextOf([&] { saves.Save(); }));
}

TEST_F(StoredPasswordFile, TheWishedSchemeIsThatOfTheConfiguration) {
  dir_.Write("passwd", "a@x.org:{PLAIN}secret:1:1::/h:::\n");
  mgr_cf::SetPath("dovecot-passwd", dir_ / "passwd");
  mgr_cf::SetParam("DovecotPwScheme", "PLAIN");
  EXPECT_EQ("none", Problem("a@x.org").substr(0, 4));
  mgr_cf::SetParam("DovecotPwScheme", "SHA512-CRYPT");
  EXPECT_EQ("email", Problem("a@x.org").substr(0, 5));
}

}  // namespace
