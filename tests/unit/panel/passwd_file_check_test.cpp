#include "panel/passwd_file_check.h"

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <pwd.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <set>

#include "framework/config_file.h"
#include "framework/descriptor.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::CheckFileItself;
using brisq_panel::CheckPasswdFile;
using brisq_panel::FileKeepsDovecotOut;
using brisq_panel::Finding;
using brisq_panel::FindingLine;

std::string Codes(const std::vector<Finding>& findings) {
  std::string codes;
  for (const Finding& finding : findings) codes += (codes.empty() ? "" : " ") + finding.code;
  return codes;
}

void SetImmutable(const std::string& path, bool on) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  int flags = 0;
  ASSERT_EQ(0, ::ioctl(file.get(), FS_IOC_GETFLAGS, &flags));
  flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
  ASSERT_EQ(0, ::ioctl(file.get(), FS_IOC_SETFLAGS, &flags));
}

class PasswdFileItself : public testing::Test {
 protected:
  PasswdFileItself() {
    // Who reads the file as another user must be able to get there.
    EXPECT_EQ(0, ::chmod(dir_.path().c_str(), 0711));
    dir_.Write("users", "");
    Own(0, Dovecot());
    Mode(0640);
  }
  ~PasswdFileItself() override {
    ::umount2(path_.c_str(), MNT_DETACH);
    ::chmod(dir_.path().c_str(), 0700);
  }

  static gid_t Dovecot() {
    const struct group* group = ::getgrnam("dovecot");
    return group == nullptr ? 0 : group->gr_gid;
  }
  void Own(uid_t uid, gid_t gid) const { ASSERT_EQ(0, ::chown(path_.c_str(), uid, gid)); }
  void Mode(mode_t mode) const { ASSERT_EQ(0, ::chmod(path_.c_str(), mode)); }
  std::string CodesNow() const { return Codes(CheckFileItself(path_)); }

  support::TempDir dir_;
  const std::string path_ = dir_ / "users";
};

TEST_F(PasswdFileItself, AFileAsItShouldBeIsNoFinding) { EXPECT_EQ("", CodesNow()); }

TEST_F(PasswdFileItself, AMissingFileIsNotJudged) {
  ASSERT_EQ(0, ::unlink(path_.c_str()));
  EXPECT_EQ("", CodesNow());
}

TEST_F(PasswdFileItself, ModesAndOwnersThatOpenTheFileOrCloseItToDovecotAreFound) {
  const bool has_reader = ::getpwnam("dovecot") != nullptr;
  const std::string unreadable = has_reader ? "PASSWD-UNREADABLE" : "";
  const gid_t dovecot = Dovecot();
  const struct {
    const char* name;
    mode_t mode;
    uid_t uid;
    gid_t gid;
    std::string codes;
  } cases[] = {
      {"for root alone", 0600, 0, 0, unreadable},
      {"the group lost by mv", 0640, 0, 0, unreadable},
      {"not for the group", 0600, 0, dovecot, unreadable},
      {"for everybody to read", 0644, 0, 0, "PASSWD-READABLE"},
      {"for everybody to write", 0646, 0, 0, "PASSWD-WRITABLE"},
      {"another owner", 0640, 4321, dovecot, "PASSWD-OWNER"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    Own(item.uid, item.gid);
    Mode(item.mode);
    EXPECT_EQ(item.codes, CodesNow());
  }
}

TEST_F(PasswdFileItself, ADirectoryThatKeepsDovecotOutIsFound) {
  if (::getpwnam("dovecot") == nullptr) GTEST_SKIP() << "no user dovecot here";
  ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0700));
  const auto findings = CheckFileItself(path_);
  ASSERT_EQ("PASSWD-UNREADABLE", Codes(findings));
  EXPECT_NE(std::string::npos, findings[0].fix.find("namei -l " + path_)) << findings[0].fix;
  EXPECT_FALSE(FileKeepsDovecotOut(path_));
}

TEST_F(PasswdFileItself, AFileThatItselfKeepsDovecotOutIsToldFromItsDirectories) {
  if (::getpwnam("dovecot") == nullptr) GTEST_SKIP() << "no user dovecot here";
  EXPECT_FALSE(FileKeepsDovecotOut(path_));
  Own(0, 0);
  Mode(0600);
  EXPECT_TRUE(FileKeepsDovecotOut(path_));
}

TEST_F(PasswdFileItself, TheCheckLeavesTheRightsOfItsCallerAlone) {
  Own(0, 0);
  Mode(0600);
  CheckFileItself(path_);
  EXPECT_EQ(0, ::access(path_.c_str(), R_OK));
  EXPECT_TRUE(Descriptor(::open(path_.c_str(), O_RDWR | O_CLOEXEC)));
}

TEST_F(PasswdFileItself, WhatIsNoFileIsFoundAndNotOpened) {
  const struct {
    const char* name;
    std::function<void()> make;
    std::string text;
  } cases[] = {
      {"a directory", [this] { ::mkdir(path_.c_str(), 0700); }, "a directory, not a regular file"},
      {"a FIFO that nobody writes to", [this] { ::mkfifo(path_.c_str(), 0600); },
       "a FIFO, not a regular file"},
      {"a link to a device", [this] { ::symlink("/dev/null", path_.c_str()); },
       "a device, not a regular file"},
      {"a link to nothing", [this] { ::symlink("/nowhere/users", path_.c_str()); },
       "a symbolic link to /nowhere/users, which does not exist"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    ::unlink(path_.c_str());
    item.make();
    const auto findings = CheckFileItself(path_);
    ASSERT_EQ(1U, findings.size());
    EXPECT_EQ(item.text, findings[0].text);
    EXPECT_EQ(path_, findings[0].object);
    ::remove(path_.c_str());
  }
}

TEST_F(PasswdFileItself, ALinkIsFollowedToWhatItIsAbout) {
  Mode(0666);
  ASSERT_EQ(0, ::symlink("users", (dir_ / "link").c_str()));
  const auto findings = CheckFileItself(dir_ / "link");
  ASSERT_EQ("PASSWD-WRITABLE", Codes(findings));
  EXPECT_EQ(path_, findings[0].object);
}

TEST_F(PasswdFileItself, WhatKeepsTheFileFromBeingReplacedIsFound) {
  ASSERT_EQ(0, ::link(path_.c_str(), (dir_ / "second").c_str()));
  EXPECT_EQ("PASSWD-LINKS", CodesNow());
  ASSERT_EQ(0, ::unlink((dir_ / "second").c_str()));
  ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0777));
  EXPECT_EQ("PASSWD-DIRECTORY", CodesNow());
  ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 01777));
  EXPECT_EQ("", CodesNow()) << "nobody but its owner may replace a file there";
}

TEST_F(PasswdFileItself, AnImmutableFileIsFound) {
  const Descriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  int flags = 0;
  if (::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0) GTEST_SKIP() << "no flags here";
  SetImmutable(path_, true);
  const std::string codes = CodesNow();
  SetImmutable(path_, false);
  EXPECT_EQ("PASSWD-IMMUTABLE", codes);
}

TEST_F(PasswdFileItself, AFileThatIsMountedByItselfIsFound) {
  if (::mount(path_.c_str(), path_.c_str(), nullptr, MS_BIND, nullptr) != 0) {
    GTEST_SKIP() << "mounting is refused here";
  }
  EXPECT_EQ("PASSWD-MOUNT", CodesNow());
}

class PasswdFileCheck : public panel_test::FilePanelTest {
 protected:
  PasswdFileCheck() {
    EXPECT_EQ(0, ::chmod(dir_.path().c_str(), 0711));
    Use(true);
  }
  // The stand-in makes lines without numbers in a file for all; names are what is looked at here.
  static std::string NameCodes() {
    static const std::set<std::string> kOthers = {"PASSWD-ID", "PASSWD-HOME", "PASSWD-READABLE"};
    std::vector<Finding> findings = CheckPasswdFile();
    std::erase_if(findings,
                  [](const Finding& finding) { return kOthers.count(finding.code) != 0; });
    return Codes(findings);
  }
};

TEST_F(PasswdFileCheck, NamesOfTheFileAndOfThePanelAreCompared) {
  Add("ann");
  Add("ben");
  EXPECT_EQ("", NameCodes());
  RemoveLine("ann@example.org");
  EXPECT_EQ("PASSWD-NO-LINE", NameCodes());
  dir_.Write("passwd", Lines() + "odd@example.org:{X}h:1:1::/h:::m\n");
  EXPECT_EQ("PASSWD-STRANGER PASSWD-NO-LINE", NameCodes());
}

TEST_F(PasswdFileCheck, AMissingFileCountsWhenThereAreMailboxes) {
  EXPECT_EQ("", NameCodes());
  Add("ann");
  ASSERT_EQ(0, ::unlink(path_.c_str()));
  EXPECT_EQ("PASSWD-MISSING", NameCodes());
}

TEST_F(PasswdFileCheck, WhatIsNoFileIsTheOnlyFinding) {
  Add("ann");
  ASSERT_EQ(0, ::unlink(path_.c_str()));
  ASSERT_EQ(0, ::mkfifo(path_.c_str(), 0600));
  EXPECT_EQ("PASSWD-KIND", NameCodes());
  ASSERT_EQ(0, ::unlink(path_.c_str()));
}

TEST_F(PasswdFileCheck, WithoutAPathThereIsNothingToCheck) {
  mgr_cf::SetPath("dovecot-passwd", "");
  EXPECT_EQ("", NameCodes());
}

}  // namespace
