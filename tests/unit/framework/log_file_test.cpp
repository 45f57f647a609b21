#include "framework/log_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace {

using mgr_log::LogFile;
using support::TempDir;

constexpr std::size_t kNoLimit = 0;

TEST(LogFile, IsMadeByTheFirstLineOnly) {
  const TempDir dir;
  LogFile log(dir / "a.log", kNoLimit, 5);
  EXPECT_FALSE(std::filesystem::exists(dir / "a.log"));

  log.Append("one\n");

  EXPECT_EQ("one\n", dir.Read("a.log"));
}

TEST(LogFile, CanBeReadByItsGroupOnly) {
  const TempDir dir;
  const mode_t old_mask = ::umask(0);
  LogFile(dir / "a.log", kNoLimit, 5).Append("one\n");
  ::umask(old_mask);

  struct stat status {};
  ASSERT_EQ(0, ::stat((dir / "a.log").c_str(), &status));
  EXPECT_EQ(0640U, status.st_mode & 07777);
}

TEST(LogFile, GoesOnWithWhatIsThere) {
  const TempDir dir;
  dir.Write("a.log", "before\n");
  LogFile log(dir / "a.log", kNoLimit, 5);
  log.Append("one\n");
  log.Append("two\n");
  EXPECT_EQ("before\none\ntwo\n", dir.Read("a.log"));
}

TEST(LogFile, IsPutAsideBeforeItOutgrowsItsLimit) {
  const TempDir dir;
  LogFile log(dir / "a.log", 8, 2);
  struct Step {
    std::string line;
    std::string current;
    std::string first;
    std::string second;
  };
  const std::vector<Step> steps = {
      {"111\n", "111\n", "", ""},
      {"222\n", "111\n222\n", "", ""},
      {"3\n", "3\n", "111\n222\n", ""},
      {"longer than the limit\n", "longer than the limit\n", "3\n", "111\n222\n"},
      {"4\n", "4\n", "longer than the limit\n", "3\n"},
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.line);
    log.Append(step.line);
    EXPECT_EQ(step.current, dir.Read("a.log"));
    EXPECT_EQ(step.first, step.first.empty() ? "" : dir.Read("a.log.1"));
    EXPECT_EQ(step.second, step.second.empty() ? "" : dir.Read("a.log.2"));
  }
  EXPECT_FALSE(std::filesystem::exists(dir / "a.log.3"));
}

TEST(LogFile, KeepsNoneWhenNoneAreWanted) {
  const TempDir dir;
  LogFile log(dir / "a.log", 4, 0);
  log.Append("111\n");
  log.Append("222\n");
  EXPECT_EQ("222\n", dir.Read("a.log"));
  EXPECT_FALSE(std::filesystem::exists(dir / "a.log.1"));
}

TEST(LogFile, FillsGapsAmongTheOldFiles) {
  const TempDir dir;
  dir.Write("a.log", "full\n");
  dir.Write("a.log.2", "older\n");
  LogFile(dir / "a.log", 5, 3).Append("new\n");
  EXPECT_EQ("new\n", dir.Read("a.log"));
  EXPECT_EQ("full\n", dir.Read("a.log.1"));
  EXPECT_EQ("older\n", dir.Read("a.log.3"));
}

// A folder with something in it can't be replaced by a file.
TEST(LogFile, GrowsOnWhenItCannotBePutAside) {
  const TempDir dir;
  dir.Write("a.log", "full\n");
  dir.Write("a.log.1", "older\n");
  dir.Write("a.log.2/inside", "x");
  LogFile(dir / "a.log", 5, 2).Append("new\n");
  EXPECT_EQ("full\nnew\n", dir.Read("a.log"));
  EXPECT_EQ("older\n", dir.Read("a.log.1")) << "must not be overwritten";
}

TEST(LogFile, FollowsAnAdministratorWhoRenamesOrRemovesIt) {
  const TempDir dir;
  LogFile log(dir / "a.log", kNoLimit, 5);
  log.Append("one\n");
  std::filesystem::rename(dir / "a.log", dir / "moved");
  log.Append("two\n");
  EXPECT_EQ("one\n", dir.Read("moved"));
  EXPECT_EQ("two\n", dir.Read("a.log"));

  std::filesystem::remove(dir / "a.log");
  log.Append("three\n");
  EXPECT_EQ("three\n", dir.Read("a.log"));
}

TEST(LogFile, WritesOnWhileSomebodyElseHoldsTheLock) {
  const TempDir dir;
  dir.Write("a.log", "full\n");
  const int other = ::open((dir / "a.log").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(0, ::flock(other, LOCK_SH));

  LogFile(dir / "a.log", 5, 5).Append("new\n");

  ::close(other);
  EXPECT_EQ("full\nnew\n", dir.Read("a.log"));
  EXPECT_FALSE(std::filesystem::exists(dir / "a.log.1"));
}

// The file that it still has open is full, the one at the path is not.
TEST(LogFile, DoesNotPutAsideWhatAnotherProcessHasJustBegun) {
  const TempDir dir;
  LogFile first(dir / "a.log", 5, 5);
  LogFile second(dir / "a.log", 5, 5);
  first.Append("1111\n");
  second.Append("2\n");

  first.Append("3\n");

  EXPECT_EQ("1111\n", dir.Read("a.log.1"));
  EXPECT_EQ("2\n3\n", dir.Read("a.log"));
}

// True when somebody waits for a lock on the file, as the kernel's list of locks tells.
bool IsAwaited(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(0, ::stat(path.c_str(), &status));
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    if (line.find("-> FLOCK") != std::string::npos &&
        line.find(":" + std::to_string(status.st_ino) + " ") != std::string::npos) {
      return true;
    }
  }
  return false;
}

TEST(LogFile, WaitsWhileAnotherProcessRenamesIt) {
  const TempDir dir;
  dir.Write("a.log", "old\n");
  const int renamer = ::open((dir / "a.log").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(0, ::flock(renamer, LOCK_EX));
  std::thread writer([&] { LogFile(dir / "a.log", kNoLimit, 5).Append("new\n"); });
  while (!IsAwaited(dir / "a.log") && std::filesystem::file_size(dir / "a.log") == 4) {
    std::this_thread::yield();
  }
  std::filesystem::rename(dir / "a.log", dir / "a.log.1");
  ::close(renamer);
  writer.join();

  EXPECT_EQ("old\n", dir.Read("a.log.1"));
  EXPECT_EQ("new\n", dir.Read("a.log"));
}

TEST(LogFile, SaysWhyItCannotBeWritten) {
  const TempDir dir;
  dir.MakeFolder("folder.log");
  ASSERT_EQ(0, ::mkfifo((dir / "pipe.log").c_str(), 0600));
  struct Case {
    const char* name;
    std::string path;
    std::string text;
  };
  const std::vector<Case> cases = {
      {"no folder", dir / "none/a.log",
       "file: " + dir / "none/a.log" + ": open: No such file or directory"},
      {"a folder", dir / "folder.log", "file: " + dir / "folder.log" + ": open: Is a directory"},
      {"a pipe that nobody reads", dir / "pipe.log",
       "file: " + dir / "pipe.log" + ": open: No such device or address"},
      {"a full disk", "/dev/full",
       "file: /dev/full: write: No space left on device (the disk is full)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    try {
      LogFile(c.path, kNoLimit, 5).Append("one\n");
      ADD_FAILURE() << "no error";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ(c.text, error.what());
    }
  }
}

// A limit on the file's size stands for a disk that is full in the middle of a line.
TEST(LogFile, BeginsANewLineAfterOneThatWasCut) {
  const TempDir dir;
  LogFile log(dir / "a.log", kNoLimit, 5);
  log.Append("one\n");
  rlimit old_limit{};
  ASSERT_EQ(0, ::getrlimit(RLIMIT_FSIZE, &old_limit));
  const auto old_handler = std::signal(SIGXFSZ, SIG_IGN);
  const rlimit limit{6, old_limit.rlim_max};
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &limit));
  EXPECT_THROW(log.Append("two\n"), mgr_err::Error);
  ASSERT_EQ(0, ::setrlimit(RLIMIT_FSIZE, &old_limit));
  std::signal(SIGXFSZ, old_handler);

  log.Append("three\n");
  log.Append("four\n");

  EXPECT_EQ("one\ntw\nthree\nfour\n", dir.Read("a.log"));
}

// Appends the lines "WRITER NUMBER" and ends the process.
[[noreturn]] void WriteAndExit(const std::string& path, int writer, int lines) {
  LogFile log(path, 2000, 1000);
  for (int i = 0; i < lines; ++i) {
    log.Append(std::to_string(writer) + " " + std::to_string(i) + "\n");
  }
  ::_exit(0);
}

TEST(LogFile, SeveralProcessesThatRotateLoseNoLine) {
  constexpr int kWriters = 4;
  constexpr int kLines = 3000;
  const TempDir dir;
  std::vector<pid_t> children;
  for (int writer = 0; writer < kWriters; ++writer) {
    const pid_t child = ::fork();
    ASSERT_LE(0, child);
    if (child == 0) {
      WriteAndExit(dir / "a.log", writer, kLines);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
  }

  std::map<std::string, int> seen;
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir.path())) {
    ++files;
    // Each of the others may have been about to append one line of at most 7 bytes, and who finds
    // the lock taken for 10 ms, on a busy machine, appends without putting the file aside.
    EXPECT_GE(2U * 2000U, entry.file_size()) << entry.path();
    std::istringstream text(support::ReadFile(entry.path()));
    for (std::string line; std::getline(text, line);) {
      ++seen[line];
    }
  }
  EXPECT_LT(30, files);
  EXPECT_EQ(std::size_t{kWriters * kLines}, seen.size());
  for (const auto& [line, count] : seen) {
    EXPECT_EQ(1, count) << line;
  }
}

}  // namespace
