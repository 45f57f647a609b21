// What checks must not touch and must not tell, by the built program.

#include <grp.h>
#include <sys/stat.h>

#include <filesystem>

#include "tests/unit/brisq/instance_fixture.h"

namespace brisq {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class DriftLimitsTest : public InstanceTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    // As on a server, Dovecot's user gets to the file.
    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0711));
  }

  // Has the configuration say something else.
  void Replace(const std::string& old, const std::string& fresh) {
    std::string text = dir_.Read("brisq.toml");
    const auto at = text.find(old);
    ASSERT_NE(std::string::npos, at) << old;
    dir_.Write("brisq.toml", text.replace(at, old.size(), fresh));
  }

  mode_t Mode(const std::string& path) const {
    struct stat state {};
    EXPECT_EQ(0, ::stat((dir_ / path).c_str(), &state)) << path;
    return state.st_mode & 07777;
  }

  void Chmod(const std::string& path, mode_t mode) {
    ASSERT_EQ(0, ::chmod((dir_ / path).c_str(), mode)) << path;
  }
};

TEST_F(DriftLimitsTest, NothingBesideTheDatabaseIsTakenForTheInstances) {
  Replace("state/panel.db", "panel.db");
  AddDomain();
  AddMailbox("al@example.org");
  dir_.MakeFolder("mail of others");
  Chmod("mail of others", 0755);
  Chmod("brisq.toml", 0644);
  EXPECT_EQ("", Expect(0, "check").out);
  EXPECT_EQ("", Expect(0, "check --fix").out);
  EXPECT_EQ(0755u, Mode("mail of others"));
  EXPECT_EQ(0644u, Mode("brisq.toml"));
}

// Its group is there to read it.
TEST_F(DriftLimitsTest, ThePasswdFileThatWasOpenedGetsTheModeOfAFreshOne) {
  if (::getgrnam("dovecot") == nullptr) GTEST_SKIP() << "no group dovecot here";
  AddDomain();
  AddMailbox("al@example.org");
  EXPECT_EQ(0640u, Mode("passwd"));
  struct Case {
    const char* name;
    mode_t opened;
    mode_t mended;
  };
  const Case cases[] = {
      {"open to all", 0666, 0640},
      {"open to all, as a program", 0777, 0640},
      {"for all to read, for the group to write", 0664, 0640},
      {"open to others, closed to the group of Dovecot", 0604, 0640},
      {"read-only for its owner", 0446, 0440},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Chmod("passwd", c.opened);
    Expect(0, "check --fix --only passwd");
    EXPECT_EQ(c.mended, Mode("passwd"));
  }
}

TEST_F(DriftLimitsTest, ADatabaseOfAnotherIsFoundWhereverItLies) {
  Replace("state/panel.db", "panel.db");
  AddDomain();
  ASSERT_EQ(0, ::chown((dir_ / "panel.db").c_str(), 5000, 5000));
  EXPECT_THAT(Expect(5, "check").out, HasSubstr("STATE-ACCESS error " + (dir_ / "panel.db")));
  Expect(0, "check --fix");
  EXPECT_EQ("", Expect(0, "check").out);
}

TEST_F(DriftLimitsTest, WhatOthersKeepInTheStateFolderIsTheirs) {
  AddDomain();
  dir_.Write("state/README", "");
  Chmod("state/README", 0644);
  EXPECT_EQ("", Expect(0, "check").out);
}

TEST_F(DriftLimitsTest, AnEditedSnippetStaysWhenItsPathHoldsABlank) {
  Replace(dir_ / "certs", dir_ / "my certs");
  AddDomain();
  Expect(0, "tls set example.org " + MakeCertificate("example.org"));
  const std::string mine = dir_.Read("my certs/example.org.conf") + "# mine\n";
  dir_.Write("my certs/example.org.conf", mine);
  fs::remove(dir_ / "ssl/example.org.crt");
  const Ran found = Expect(5, "check --fix");
  EXPECT_THAT(found.out, HasSubstr("TLS-EDITED warning " + (dir_ / "my certs/example.org.conf")));
  EXPECT_EQ(mine, dir_.Read("my certs/example.org.conf"));
}

}  // namespace
}  // namespace brisq
