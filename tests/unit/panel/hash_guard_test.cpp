#include "panel/hash_guard.h"

#include "framework/config_file.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::HashGuard;

class HashGuardTest : public panel_test::FilePanelTest {
 protected:
  HashGuardTest() {
    mgr_cf::SetParam("DovecotPwScheme", "SHA512-CRYPT");
    dir_.Write("passwd", kBefore);
  }
  const std::string kBefore =
      "# users\na@x.org:{X}one:1:1::/a:::\nb@x.org::1:1::/b:::\nc@x.org:odd:1:1::/c:::\n";
};

TEST_F(HashGuardTest, WhatIsNoHashIsPutBackAndTheFirstProblemSaid) {
  const struct {
    const char* name;
    const char* after;  // lines of the same mailboxes
    const char* problem;
    std::string file;
  } cases[] = {
      {"unchanged", "a@x.org:{X}one:1:1::/a:::\nb@x.org::1:1::/b:::\nc@x.org:odd:1:1::/c:::\n", "",
       "a@x.org:{X}one:1:1::/a:::\nb@x.org::1:1::/b:::\nc@x.org:odd:1:1::/c:::\n"},
      {"new hashes", "a@x.org:{X}two:1:1::/a:::\nb@x.org:{X}two:1:1::/b:::\n", "",
       "a@x.org:{X}two:1:1::/a:::\nb@x.org:{X}two:1:1::/b:::\n"},
      {"nothing", "a@x.org::1:1::/a:::\nc@x.org::1:1::/c:::\n", "it gave no hash of the password",
       "a@x.org:{X}one:1:1::/a:::\nc@x.org:odd:1:1::/c:::\n"},
      {"one of two", "a@x.org:*0:1:1::/a:::\nb@x.org:{X}new:1:1::/b:::\n", "its answer is no hash",
       "a@x.org:{X}one:1:1::/a:::\nb@x.org:{X}new:1:1::/b:::\n"},
      {"clear text", "a@x.org:{CLEARTEXT}secret:1:1::/new:::\n",
       "the password would be kept in the clear, as the scheme SHA512-CRYPT is not to be had from "
       "it",
       "a@x.org:{X}one:1:1::/new:::\n"},
      {"a mailbox that is new", "d@x.org::1:1::/d:::\n", "", "d@x.org::1:1::/d:::\n"},
      {"a mailbox that is gone", "b@x.org::1:1::/b:::\n", "", "b@x.org::1:1::/b:::\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    dir_.Write("passwd", kBefore);
    const HashGuard guard;
    dir_.Write("passwd", c.after);
    EXPECT_EQ(c.problem, guard.PutBack());
    EXPECT_EQ(c.file, Lines());
  }
}

TEST_F(HashGuardTest, WhereABackendKeepsThePasswordsNothingIsTouched) {
  Use(true);
  const HashGuard guard;
  dir_.Write("passwd", "a@x.org::1:1::/a:::\n");
  EXPECT_EQ("", guard.PutBack());
  EXPECT_EQ("a@x.org::1:1::/a:::\n", Lines());
}

TEST_F(HashGuardTest, WithoutAPathNothingIsTouched) {
  mgr_cf::SetPath("dovecot-passwd", "");
  EXPECT_EQ("", HashGuard().PutBack());
}

}  // namespace
