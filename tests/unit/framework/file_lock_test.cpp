#include "framework/file_lock.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace {

using std::chrono::milliseconds;

TEST(FileLock, IsHeldByOneAtATimeAndFreeAfterItsEnd) {
  const support::TempDir directory;
  const std::string path = directory / "lock";
  {
    std::optional<FileLock> first = FileLock::Take(path);
    ASSERT_TRUE(first);
    EXPECT_FALSE(FileLock::Take(path));
    const FileLock moved = std::move(*first);
    first.reset();
    EXPECT_FALSE(FileLock::Take(path));
  }
  EXPECT_TRUE(FileLock::Take(path));
}

TEST(FileLock, FileIsForItsOwnerAlone) {
  const support::TempDir directory;
  FileLock::Take(directory / "lock");
  struct stat status = {};
  ASSERT_EQ(0, ::stat((directory / "lock").c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 07777);
}

TEST(FileLock, WaitsAsLongAsItIsTold) {
  const support::TempDir directory;
  const std::string path = directory / "lock";
  std::optional<FileLock> held = FileLock::Take(path);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(FileLock::Take(path, milliseconds(50)));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(50));
  std::thread waiting([&] { EXPECT_TRUE(FileLock::Take(path, milliseconds(20000))); });
  held.reset();
  waiting.join();
}

TEST(FileLock, HoldsOutOtherProcessesUntilItsHolderDies) {
  const support::TempDir directory;
  const std::string path = directory / "lock";
  int ends[2];
  ASSERT_EQ(0, ::pipe(ends));
  const pid_t holder = ::fork();
  if (holder == 0) {
    const std::optional<FileLock> held = FileLock::Take(path);
    const ssize_t told = ::write(ends[1], held ? "y" : "n", 1);
    ::pause();
    ::_exit(static_cast<int>(told));
  }
  char word = 0;
  ASSERT_EQ(1, ::read(ends[0], &word, 1));
  EXPECT_EQ('y', word);
  EXPECT_FALSE(FileLock::Take(path));
  ::kill(holder, SIGKILL);
  ::waitpid(holder, nullptr, 0);
  EXPECT_TRUE(FileLock::Take(path));
  ::close(ends[0]);
  ::close(ends[1]);
}

TEST(FileLock, FileThatCannotBeOpenedIsAnError) {
  const support::TempDir directory;
  EXPECT_THROW(FileLock::Take(directory / "missing/lock"), mgr_err::Error);
  ASSERT_EQ(0, ::symlink("elsewhere", (directory / "link").c_str()));
  EXPECT_THROW(FileLock::Take(directory / "link"), mgr_err::Error);
}

}  // namespace
