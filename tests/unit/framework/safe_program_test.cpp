#include "framework/safe_program.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>

#include "mgr_err.h"
#include "mgr_proc.h"
#include "tests/support/stub_program.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using mgr_proc::WhyUnsafe;

constexpr uid_t kOther = 54322;

class SafeProgram : public testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "gives files to other users: needs root";
    }
    folder_ = dir_.MakeFolder("tools");
    program_ = support::WriteStub(folder_ + "/tool", "echo ran");
  }

  support::TempDir dir_;
  std::string folder_, program_;
};

TEST_F(SafeProgram, WhatOnlyTheAdministratorCanReplaceIsSafe) {
  fs::create_symlink(program_, dir_ / "link");
  for (const std::string& program :
       {program_, dir_ / "link", std::string("/bin/sh"), std::string("/usr/bin/env"),
        std::string("doveadm"), std::string("/no/such/program")}) {
    SCOPED_TRACE(program);
    EXPECT_EQ("", WhyUnsafe(program));
  }
}

TEST_F(SafeProgram, ARelativePathIsNot) {
  for (const char* program : {"./tool", "bin/tool", "../tool"}) {
    EXPECT_EQ(std::string(program) + " is no absolute path", WhyUnsafe(program));
  }
}

TEST_F(SafeProgram, WhatAnotherUserCanReplaceIsNamedAndNeverStarted) {
  struct Case {
    const char* name;
    std::function<void()> spoil;
    std::string why;
  };
  const Case cases[] = {
      {"file of another", [this] { ::chown(program_.c_str(), kOther, 0); },
       program_ + " belongs to another user"},
      {"file open to all", [this] { ::chmod(program_.c_str(), 0777); },
       program_ + " is writable by other users"},
      {"file open to a group",
       [this] {
         ::chown(program_.c_str(), 0, kOther);
         ::chmod(program_.c_str(), 0775);
       },
       program_ + " is writable by the group 54322"},
      {"folder of another", [this] { ::chown(folder_.c_str(), kOther, 0); },
       folder_ + " belongs to another user"},
      {"folder open to all", [this] { ::chmod(folder_.c_str(), 0777); },
       folder_ + " is writable by other users"},
  };
  fs::create_symlink(program_, dir_ / "link");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    c.spoil();
    for (const std::string& path : {program_, dir_ / "link"}) {
      EXPECT_EQ(c.why, WhyUnsafe(path));
      mgr_proc::Execute run(path, 3);
      EXPECT_EQ(127, run.Result());
      EXPECT_EQ("can't start " + path + ": not safe: " + c.why, run.Str());
    }
    ::chown(folder_.c_str(), 0, 0);
    ::chmod(folder_.c_str(), 0755);
    ::chown(program_.c_str(), 0, 0);
    ::chmod(program_.c_str(), 0755);
  }
  EXPECT_EQ("", WhyUnsafe(program_));
}

TEST_F(SafeProgram, EachLinkOnTheWayCounts) {
  const std::string open = dir_.MakeFolder("open");
  fs::create_symlink("../tools/tool", open + "/second");
  fs::create_symlink("./open/../open//second", dir_ / "first");
  ::chmod(open.c_str(), 0777);
  EXPECT_EQ(open + " is writable by other users", WhyUnsafe(dir_ / "first"));
  EXPECT_EQ(open + " is writable by other users", WhyUnsafe(open + "/../tools/tool"));
  ::chmod(open.c_str(), 01777);
  EXPECT_EQ("", WhyUnsafe(dir_ / "first"));
  ::lchown((open + "/second").c_str(), kOther, kOther);
  EXPECT_EQ(open + "/second belongs to another user", WhyUnsafe(dir_ / "first"));
}

TEST_F(SafeProgram, LinksThatLeadNowhereEnd) {
  fs::create_symlink(dir_ / "circle", dir_ / "circle");
  fs::create_symlink("/no/such/program", dir_ / "dangling");
  EXPECT_EQ("", WhyUnsafe(dir_ / "circle"));
  EXPECT_EQ("", WhyUnsafe(dir_ / "dangling"));
}

// Somebody else could put it there between the look and the start.
TEST_F(SafeProgram, WhatIsMissingWhereEverybodyAddsIsNotSafe) {
  ::chmod(folder_.c_str(), 01777);
  EXPECT_EQ("", WhyUnsafe(program_));
  const std::string why =
      folder_ + "/missing does not exist, and " + folder_ + " is writable by other users";
  EXPECT_EQ(why, WhyUnsafe(folder_ + "/missing"));
  EXPECT_EQ(why, WhyUnsafe(folder_ + "/missing/tool"));
}

// Debian's /usr/local is open to a group.
TEST_F(SafeProgram, WhichGroupMayWriteToAFolderIsTheAdministratorsChoice) {
  ::chown(folder_.c_str(), 0, kOther);
  ::chmod(folder_.c_str(), 02775);
  EXPECT_EQ("", WhyUnsafe(program_));
}

TEST_F(SafeProgram, TheGroupOfRootOrOfThisProcessMayWriteToAFile) {
  ::chmod(program_.c_str(), 0775);
  EXPECT_EQ("", WhyUnsafe(program_));
  ::chown(program_.c_str(), 0, kOther);
  EXPECT_EQ(program_ + " is writable by the group 54322", WhyUnsafe(program_));
  const gid_t before = ::getegid();
  ASSERT_EQ(0, ::setegid(kOther));
  EXPECT_EQ("", WhyUnsafe(program_));
  ASSERT_EQ(0, ::setegid(before));
}

TEST_F(SafeProgram, ARefusalNamesTheFileTheRuleAndTheWayOut) {
  EXPECT_NO_THROW(mgr_proc::RefuseUnsafe(program_));
  ::chmod(program_.c_str(), 0777);
  try {
    mgr_proc::RefuseUnsafe(program_);
    ADD_FAILURE() << "not refused";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("config: " + program_ + ": not safe: " + program_ +
                  " is writable by other users; only root may be able to change it: chown root and "
                  "chmod go-w",
              error.what());
  }
}

// Who is not root trusts himself and root.
TEST_F(SafeProgram, AnOrdinaryUserMayStartHisOwnProgramsAndRoots) {
  ::chmod(dir_.path().c_str(), 0755);
  ::chown(program_.c_str(), kOther, 0);
  const std::string seen_by_root = WhyUnsafe(program_);
  ASSERT_EQ(0, ::seteuid(kOther));
  const std::string own = WhyUnsafe(program_);
  const std::string roots = WhyUnsafe("/bin/sh");
  ASSERT_EQ(0, ::seteuid(0));
  EXPECT_EQ(program_ + " belongs to another user", seen_by_root);
  EXPECT_EQ("", own);
  EXPECT_EQ("", roots);
}

}  // namespace
