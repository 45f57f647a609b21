// What an administrator is told when the passwd-file can't be changed, with the real obstacles.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fs.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "framework/conf_lock.h"
#include "framework/descriptor.h"
#include "framework/safe_replace.h"
#include "tests/support/places.h"
#include "tests/unit/brisq/program_fixture.h"

namespace brisq {
namespace {

using testing::AllOf;
using testing::HasSubstr;

/// An instance whose passwd-file stands in a folder of its own.
class PasswdFileAnswers : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    // Mounts of the tests are the process's own and go with it.
    mounts_ = ::unshare(CLONE_NEWNS) == 0 &&
              ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    dir_.MakeFolder("etc");
    UsePath(path_);
    AddDomain();
    AddMailbox("ann@example.org");
    doveadm_.Answers("{CRAM-MD5}another\n");
    before_ = support::ReadFile(path_);
  }
  void TearDown() override {
    Immutable(false);
    ::umount2(path_.c_str(), MNT_DETACH);
    ::umount2(etc_.c_str(), MNT_DETACH);
    ::chmod(etc_.c_str(), 0700);
  }

  void UsePath(const std::string& path) {
    std::string settings = dir_.Read("brisq.toml");
    const std::size_t at = settings.find("dovecot-passwd = \"") + 18;
    settings.replace(at, settings.find('"', at) - at, path);
    dir_.Write("brisq.toml", settings);
  }
  bool Immutable(bool on) const {
    const Descriptor file(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    int flags = 0;
    if (!file || ::ioctl(file.get(), FS_IOC_GETFLAGS, &flags) != 0) return false;
    flags = on ? flags | FS_IMMUTABLE_FL : flags & ~FS_IMMUTABLE_FL;
    return ::ioctl(file.get(), FS_IOC_SETFLAGS, &flags) == 0;
  }
  bool Mount(const char* what, const char* type, unsigned long flags, const char* options) {
    const std::string& where = flags == MS_BIND ? path_ : etc_;
    return mounts_ && ::mount(what, where.c_str(), type, flags, options) == 0;
  }
  std::string Entries() const {
    std::string names;
    for (const auto& entry : std::filesystem::directory_iterator(etc_)) {
      const std::string name = entry.path().filename();
      if (name != ".users.brisq-lock") names += name + " ";
    }
    return names;
  }

  Ran Change() { return Run("mailbox passwd ann@example.org --password-stdin", "word\n"); }

  /// One line that holds all of `parts`, an exit code that is not 0, and nothing changed.
  void ExpectRefusal(const Ran& ran, int status, const std::vector<std::string>& parts) {
    EXPECT_EQ(status, ran.status) << ran.err;
    EXPECT_EQ("", ran.out);
    EXPECT_EQ(1, std::count(ran.err.begin(), ran.err.end(), '\n')) << ran.err;
    for (const std::string& part : parts) EXPECT_THAT(ran.err, HasSubstr(part));
    std::printf("answer: %s", ran.err.c_str());
  }
  void ExpectUnchanged() const { EXPECT_EQ(before_, support::ReadFile(path_)); }

  bool mounts_ = false;
  const std::string etc_ = dir_ / "etc";
  const std::string path_ = dir_ / "etc/users";
  std::string before_;
};

TEST_F(PasswdFileAnswers, ALinkIsFollowedAndKept) {
  ASSERT_EQ(0, ::symlink("users", (etc_ + "/link").c_str()));
  UsePath(etc_ + "/link");
  const Ran ran = Change();
  EXPECT_EQ(0, ran.status) << ran.err;
  EXPECT_TRUE(std::filesystem::is_symlink(etc_ + "/link"));
  EXPECT_THAT(support::ReadFile(path_), HasSubstr("another"));
}

TEST_F(PasswdFileAnswers, ALinkIntoNowhereIsNamed) {
  ASSERT_EQ(0, ::symlink("/nowhere/users", (etc_ + "/link").c_str()));
  UsePath(etc_ + "/link");
  const Ran ran = Run("mailbox add ben@example.org --password-stdin", "word\n");
  ExpectRefusal(ran, 1, {"/nowhere", "No such file", etc_ + "/link is a link that leads there"});
  EXPECT_EQ(4, Run("mailbox show ben@example.org").status);
  ExpectUnchanged();
}

TEST_F(PasswdFileAnswers, WhatIsNoFileIsNamedAndHoldsNobodyUp) {
  std::filesystem::rename(path_, etc_ + "/aside");
  ASSERT_EQ(0, ::mkfifo(path_.c_str(), 0600));
  ExpectRefusal(Change(), 1, {path_, "not a regular file but a FIFO", "set another path"});
  std::filesystem::remove(path_);
  std::filesystem::create_directory(path_);
  ExpectRefusal(Change(), 1, {path_, "not a regular file but a directory"});
  EXPECT_EQ(before_, support::ReadFile(etc_ + "/aside"));
  EXPECT_THAT(Entries(), AllOf(HasSubstr("users "), HasSubstr("aside "), testing::SizeIs(12)));
}

TEST_F(PasswdFileAnswers, AnImmutableFileIsNamedWithTheCommandThatEndsIt) {
  if (!Immutable(true)) GTEST_SKIP() << "no file flags here";
  ExpectRefusal(Change(), 1, {path_, "immutable", "chattr -i"});
  ExpectUnchanged();
  EXPECT_EQ("users ", Entries());
}

TEST_F(PasswdFileAnswers, AFileThatIsMountedByItselfIsNamed) {
  if (!Mount(path_.c_str(), nullptr, MS_BIND, nullptr)) GTEST_SKIP() << "mounting is refused here";
  ExpectRefusal(Change(), 1, {path_, "mounted by itself", "mount its directory instead"});
  ExpectUnchanged();
  EXPECT_EQ("users ", Entries());
}

TEST_F(PasswdFileAnswers, AReadOnlyFileSystemIsNamed) {
  if (!Mount("none", "tmpfs", 0, "size=64k,mode=0700")) GTEST_SKIP() << "mounting is refused here";
  dir_.Write("etc/users", before_);
  ASSERT_EQ(0, ::mount(nullptr, etc_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr));
  ExpectRefusal(Change(), 1, {path_, "Read-only file system", "mount it writable", "unchanged"});
  ExpectUnchanged();
}

TEST_F(PasswdFileAnswers, AFullDiskIsNamed) {
  if (!Mount("none", "tmpfs", 0, "size=64k,mode=0700")) GTEST_SKIP() << "mounting is refused here";
  dir_.Write("etc/users", before_);
  const Descriptor ballast(
      ::open((etc_ + "/ballast").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  const std::string block(4096, 'x');
  while (::write(ballast.get(), block.data(), block.size()) > 0) {
  }
  ExpectRefusal(Change(), 1, {path_, "No space left", "the disk is full", "unchanged"});
  ExpectUnchanged();
  EXPECT_THAT(Entries(), AllOf(HasSubstr("users "), HasSubstr("ballast "), testing::SizeIs(14)));
}

TEST_F(PasswdFileAnswers, ADiskWithoutRoomForFilesIsNamed) {
  if (!Mount("none", "tmpfs", 0, "nr_inodes=3,mode=0700")) {
    GTEST_SKIP() << "mounting is refused here";
  }
  dir_.Write("etc/users", before_);
  dir_.Write("etc/other", "");
  ExpectRefusal(Change(), 1, {etc_, "No space left", "unchanged"});
  ExpectUnchanged();
}

TEST_F(PasswdFileAnswers, FurtherNamesOfTheFileAreNamed) {
  ASSERT_EQ(0, ::link(path_.c_str(), (etc_ + "/second").c_str()));
  ExpectRefusal(Change(), 1, {path_, "hard links", "find -samefile"});
  ExpectUnchanged();
}

TEST_F(PasswdFileAnswers, ADirectoryThatIsOpenToEverybodyIsNamed) {
  ASSERT_EQ(0, ::chmod(etc_.c_str(), 0777));
  ExpectRefusal(Change(), 1, {etc_, "unsafe permissions", "chmod o-w"});
  ExpectUnchanged();
}

TEST_F(PasswdFileAnswers, TheProcesssLimitOfFileSizeIsNamed) {
  dir_.Write("etc/users", before_ + "# " + std::string(std::size_t{4} << 20, 'x') + "\n");
  before_ = support::ReadFile(path_);
  struct rlimit limit {};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &limit));
  const struct rlimit small = {std::size_t{2} << 20, limit.rlim_max};
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &small));
  const Ran ran = Change();
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
  ExpectRefusal(ran, 1, {path_, "File too large", "ulimit -f", "unchanged"});
  ExpectUnchanged();
}

// The holder of the lock stops: who waits is told who it is and how it goes on.
TEST_F(PasswdFileAnswers, AStoppedHolderOfTheLockIsNamed) {
  const pid_t holder = ::fork();
  if (holder == 0) {
    const ConfLock lock(safe_replace::Target::Resolve(path_));
    ::raise(SIGSTOP);
    ::_exit(0);
  }
  int status = 0;
  ASSERT_EQ(holder, ::waitpid(holder, &status, WUNTRACED));
  const Ran ran = Change();
  const std::string pid = std::to_string(holder);
  ExpectRefusal(ran, 7,
                {path_, "busy: PID " + pid + " (test_brisq) holds the lock for 1",
                 " s; it is stopped, kill -CONT " + pid + " lets it go on"});
  ExpectUnchanged();
  ::kill(holder, SIGCONT);
  ASSERT_EQ(holder, ::waitpid(holder, &status, 0));
  EXPECT_EQ(0, Change().status);
}

/// Runs the program with a failing system call on one path.
class PasswdFileFaults : public PasswdFileAnswers {
 protected:
  Ran RunFailing(const std::string& call, const std::string& error, const std::string& path,
                 const std::string& words) {
    beside_.Write("in", "word\n");
    const std::string line = "strace -f -qq -o /dev/null -P '" + path + "' -e trace=" + call +
                             " -e inject=" + call + ":error=" + error + " " +
                             support::BuildFolder() + "/bin/brisq --config '" +
                             (dir_ / "brisq.toml") + "' " + words + " <'" + (beside_ / "in") +
                             "' >'" + (beside_ / "out") + "' 2>'" + (beside_ / "err") + "'";
    const int status = std::system(line.c_str());
    Ran ran{WEXITSTATUS(status), beside_.Read("out"), beside_.Read("err")};
    can_trace_ = ran.err.find("ptrace") == std::string::npos && ran.status != 127;
    return ran;
  }
  bool can_trace_ = true;
};

TEST_F(PasswdFileFaults, AnExhaustedQuotaIsNamed) {
  const Ran ran = RunFailing("writev", "EDQUOT", etc_ + "/.users.brisq-new",
                             "mailbox passwd ann@example.org --password-stdin");
  if (!can_trace_) GTEST_SKIP() << "tracing is refused here";
  ExpectRefusal(ran, 1, {path_, "Disk quota exceeded", "the disk quota is used up", "unchanged"});
  ExpectUnchanged();
  EXPECT_EQ("users ", Entries());
}

TEST_F(PasswdFileFaults, AFileThatCannotBeSyncedIsGivenUp) {
  const Ran ran = RunFailing("fsync", "EIO", etc_ + "/.users.brisq-new",
                             "mailbox passwd ann@example.org --password-stdin");
  if (!can_trace_) GTEST_SKIP() << "tracing is refused here";
  ExpectRefusal(ran, 1, {path_, "fsync: Input/output error", "the file is unchanged"});
  ExpectUnchanged();
  EXPECT_EQ("users ", Entries());
}

// Neither success nor "unchanged": everything is done, and the exit code and a warning say that it
// may be lost.
TEST_F(PasswdFileFaults, ADirectoryThatCannotBeSyncedLeavesTheChangeInDoubt) {
  const Ran ran = RunFailing("fsync", "EIO", etc_, "mailbox add ben@example.org --password-stdin");
  if (!can_trace_) GTEST_SKIP() << "tracing is refused here";
  EXPECT_EQ(11, ran.status) << ran.err;
  EXPECT_THAT(ran.err, HasSubstr("mailbox ben@example.org added"));
  EXPECT_THAT(ran.err, HasSubstr("\nbrisq: warning: " + path_ +
                                 " was changed, but the change may be lost on a power failure: "
                                 "fsync of " +
                                 etc_ + ": Input/output error\n"));
  EXPECT_EQ(2, std::count(ran.err.begin(), ran.err.end(), '\n')) << ran.err;
  EXPECT_EQ(0, Run("mailbox show ben@example.org").status);
  EXPECT_THAT(support::ReadFile(path_), HasSubstr("\nben@example.org:{CRAM-MD5}another:"));
  EXPECT_TRUE(std::filesystem::exists(dir_ / "home/mail/example.org/ben/.maildir/new"));
  EXPECT_EQ("users ", Entries());
}

// The same when a command that has changed the file fails and takes its change back.
TEST_F(PasswdFileFaults, ATakenBackChangeInDoubtIsToldToo) {
  doveadm_.Answers("", 1, "no luck");
  const Ran ran = RunFailing("fsync", "EIO", etc_, "mailbox add ben@example.org --password-stdin");
  if (!can_trace_) GTEST_SKIP() << "tracing is refused here";
  EXPECT_EQ(9, ran.status) << ran.err;
  EXPECT_THAT(ran.err, HasSubstr("no luck"));
  EXPECT_THAT(ran.err, HasSubstr("may be lost on a power failure"));
  EXPECT_EQ(4, Run("mailbox show ben@example.org").status);
  ExpectUnchanged();
}

}  // namespace
}  // namespace brisq
