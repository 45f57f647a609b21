#include "framework/conf_lock.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <optional>
#include <string>
#include <thread>

#include "framework/descriptor.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;
using safe_replace::Target;

class ConfLockTest : public ::testing::Test {
 protected:
  ~ConfLockTest() override { SetConfWaitLimit(std::chrono::seconds(10)); }

  support::TempDir folder_;
  const std::string path_ = folder_ / "users";
  const std::string lock_file_ = folder_ / ".users.brisq-lock";
};

TEST_F(ConfLockTest, ExcludesOtherThreadsAndNamesTheHolder) {
  const Target target = Target::Resolve(path_);
  const ConfLock lock(target);
  SetConfWaitLimit(std::chrono::milliseconds(20));
  std::string error;
  std::thread([&] { error = ErrorOf([&] { const ConfLock other(target); }); }).join();
  EXPECT_THAT(error, testing::StartsWith("locked: " + path_ + ": busy: " +
                                         DescribeProcess(::getpid()) + " holds the lock for "));
  EXPECT_THAT(error, testing::EndsWith(" s; unchanged"));
}

TEST_F(ConfLockTest, IsFreeAgainAtTheEndOfItsLife) {
  const Target target = Target::Resolve(path_);
  for (int round = 0; round < 3; ++round) const ConfLock lock(target);
}

TEST_F(ConfLockTest, IsFreeWhenItsHolderIsKilled) {
  const pid_t child = ::fork();
  if (child == 0) {
    const Target target = Target::Resolve(path_);
    const ConfLock lock(target);
    ::raise(SIGKILL);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_EQ(std::stol(support::ReadFile(lock_file_)), child);
  const Target target = Target::Resolve(path_);
  const ConfLock lock(target);
  EXPECT_EQ(std::stol(support::ReadFile(lock_file_)), ::getpid());
}

TEST_F(ConfLockTest, ALockFileIsForItsOwnerAlone) {
  const mode_t before = ::umask(0);
  const ConfLock lock(Target::Resolve(path_));
  ::umask(before);
  struct stat info {};
  ASSERT_EQ(::stat(lock_file_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777U, 0600U);
}

TEST_F(ConfLockTest, ALinkInThePlaceOfTheLockFileIsNotFollowed) {
  ASSERT_EQ(::symlink("/etc/passwd", lock_file_.c_str()), 0);
  EXPECT_NE(ErrorOf([&] { const ConfLock lock(Target::Resolve(path_)); }).find("open: Too many"),
            std::string::npos);
}

TEST_F(ConfLockTest, KnowsAnEditThatAKilledHolderLeft) {
  const Target target = Target::Resolve(path_);
  ConfStamp old;
  old.exists = true;
  old.inode = 11;
  old.size = 5;
  old.modified = 77;
  ConfStamp fresh = old;
  fresh.inode = 12;
  {
    ConfLock lock(target);
    lock.NoteExchange(old, fresh);
  }
  {
    // Killed before it could deal with what the first one left.
    const ConfLock lock(target);
  }
  {
    ConfLock lock(target);
    EXPECT_FALSE(lock.LeftAnEdit(old));
    EXPECT_FALSE(lock.LeftAnEdit(fresh));
    ConfStamp edit = old;
    edit.modified = 78;
    EXPECT_TRUE(lock.LeftAnEdit(edit));
    edit.inode = 13;
    EXPECT_TRUE(lock.LeftAnEdit(edit));
    lock.NoteDone();
  }
  const ConfLock lock(target);
  EXPECT_FALSE(lock.LeftAnEdit(ConfStamp{})) << "the note of an exchange that is over";
}

TEST_F(ConfLockTest, ProcessesThatWriteIntoAFileAreNamed) {
  folder_.Write("users", "");
  struct stat info {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_EQ(DescribeWriters(info), "an unknown process");
  const Descriptor reader(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_EQ(DescribeWriters(info), "an unknown process");
  const Descriptor writer(::open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  EXPECT_EQ(DescribeWriters(info), DescribeProcess(::getpid()));
}

}  // namespace
