#include "framework/database.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <latch>
#include <thread>

#include "framework/request.h"
#include "mgr_err.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

class DatabaseTest : public testing::Test {
 protected:
  DatabaseTest() {
    mgr_db::OpenDatabase(file_, 100);
    Run("CREATE TABLE t (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT UNIQUE, n INTEGER)");
  }
  ~DatabaseTest() override { mgr_db::CloseDatabase(); }

  static long Run(const std::string& sql) { return mgr_db::ThreadConnection()->Change(sql); }
  static int Add(const std::string& name) {
    return mgr_db::ThreadConnection()->Insert("INSERT INTO t (name) VALUES (:v1) RETURNING id",
                                              {name});
  }
  static std::string Names() {
    std::string names;
    for (const auto& row :
         mgr_db::ThreadConnection()->Query("SELECT name FROM t ORDER BY id", {}, 1)) {
      names += row.front();
    }
    return names;
  }
  // What another thread, and so another connection, reads.
  static std::string NamesSeenByOthers() {
    std::string names;
    std::jthread([&] { names = Names(); }).join();
    return names;
  }

  support::TempDir dir_;
  const std::string file_ = dir_ / "panel.db";
};

mgr_err::Error ErrorOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const mgr_err::Error& error) {
    return error;
  }
  return mgr_err::Error("none");
}

TEST_F(DatabaseTest, FilesAreForTheirOwnerOnly) {
  Add("a");
  for (const auto& entry : std::filesystem::directory_iterator(dir_.path())) {
    EXPECT_EQ(0600u, static_cast<unsigned>(entry.status().permissions())) << entry.path();
  }
}

TEST_F(DatabaseTest, AnOpenFileIsMadePrivate) {
  mgr_db::CloseDatabase();
  ASSERT_EQ(0, ::chmod(file_.c_str(), 0644));
  mgr_db::OpenDatabase(file_);
  struct stat state {};
  ASSERT_EQ(0, ::stat(file_.c_str(), &state));
  EXPECT_EQ(0600u, state.st_mode & 07777u);
}

TEST_F(DatabaseTest, EveryConnectionIsDurableAndKeepsReferences) {
  const std::function<void()> check = [] {
    const auto connection = mgr_db::ThreadConnection();
    EXPECT_EQ("wal", connection->Query("PRAGMA journal_mode", {}, 1).front().front());
    EXPECT_EQ("2", connection->Query("PRAGMA synchronous", {}, 1).front().front());
    EXPECT_EQ("1", connection->Query("PRAGMA foreign_keys", {}, 1).front().front());
    EXPECT_EQ("100", connection->Query("PRAGMA busy_timeout", {}, 1).front().front());
  };
  check();
  std::jthread{check};
}

TEST_F(DatabaseTest, AThreadKeepsItsConnectionAndNoOtherHasIt) {
  const auto mine = mgr_db::ThreadConnection();
  EXPECT_EQ(mine.get(), mgr_db::ThreadConnection().get());
  std::jthread([&] { EXPECT_NE(mine.get(), mgr_db::ThreadConnection().get()); }).join();
}

TEST_F(DatabaseTest, ConnectionsOfEndedThreadsAreUsedAgain) {
  // A temporary table lives as long as its connection.
  std::jthread([] { Run("CREATE TEMP TABLE mine (x)"); }).join();
  std::jthread(
      [] { EXPECT_EQ("none", ErrorOf([] { Run("INSERT INTO mine VALUES (1)"); }).type()); });
}

TEST_F(DatabaseTest, WithoutADatabaseThereIsNoConnection) {
  mgr_db::CloseDatabase();
  EXPECT_EQ("db", ErrorOf([] { mgr_db::ThreadConnection(); }).type());
  mgr_db::CloseDatabase();  // twice is fine
}

TEST_F(DatabaseTest, AConnectionOfAnEarlierOpeningIsNotUsedAgain) {
  std::latch opened(1), reopened(1);
  std::string seen;
  std::jthread other([&] {
    Names();
    opened.count_down();
    reopened.wait();
    seen = Names();
  });
  opened.wait();
  mgr_db::OpenDatabase(dir_ / "other.db");
  Run("CREATE TABLE t (id INTEGER PRIMARY KEY, name TEXT)");
  Add("other");
  reopened.count_down();
  other.join();
  EXPECT_EQ("other", seen);
}

TEST_F(DatabaseTest, FilesThatAreNoDatabaseAreRefused) {
  const std::string garbage = dir_.Write("garbage.db", std::string(8192, 'g'));
  EXPECT_THAT(ErrorOf([&] { mgr_db::OpenDatabase(garbage); }).what(),
              testing::AllOf(HasSubstr("db"), HasSubstr("not a database")));
  EXPECT_EQ(std::string(8192, 'g'), dir_.Read("garbage.db"));
  EXPECT_EQ("file", ErrorOf([&] { mgr_db::OpenDatabase(dir_ / "no/such.db"); }).type());
  EXPECT_EQ("db", ErrorOf([&] { mgr_db::OpenDatabase(dir_.MakeFolder("folder")); }).type());
  EXPECT_EQ("db", ErrorOf([&] { mgr_db::OpenDatabase(dir_ / "a\"b.db"); }).type());
}

// Root may write everywhere but where the system itself says no.
TEST_F(DatabaseTest, AFileOrFolderThatCanOnlyBeReadIsNamedWithTheRule) {
  for (const char* file : {"/proc/version", "/sys/panel.db"}) {
    SCOPED_TRACE(file);
    const mgr_err::Error error = ErrorOf([&] { mgr_db::OpenDatabase(file); });
    EXPECT_EQ("db", error.type());
    EXPECT_EQ(file, error.object());
    EXPECT_THAT(error.value(), HasSubstr("its folder and their file system must be writable"));
  }
}

TEST_F(DatabaseTest, PathsMayHoldBlanksAndEqualSigns) {
  mgr_db::OpenDatabase(dir_ / "a b=c.db");
  Run("CREATE TABLE t (name TEXT)");
  EXPECT_TRUE(std::filesystem::exists(dir_ / "a b=c.db"));
}

TEST_F(DatabaseTest, ARequestCommitsItsChangesTogether) {
  Request request("test");
  Add("a");
  Add("b");
  EXPECT_EQ("ab", Names());
  EXPECT_EQ("", NamesSeenByOthers());
  request.Commit();
  EXPECT_EQ("ab", NamesSeenByOthers());
}

TEST_F(DatabaseTest, ARequestThatFailsLeavesNothing) {
  {
    Request request("test");
    Add("a");
  }
  EXPECT_EQ("", Names());
  Add("b");
  EXPECT_EQ("b", NamesSeenByOthers()) << "the connection is usable again";
}

TEST_F(DatabaseTest, ARequestThatOnlyReadsHoldsNoLock) {
  Request request("test");
  Names();
  std::jthread([] { Add("a"); }).join();
  EXPECT_EQ("a", Names());
  request.Commit();
}

TEST_F(DatabaseTest, TheFirstChangeTakesTheWriteLock) {
  Request request("test");
  Add("a");
  std::jthread([] { EXPECT_EQ("locked", ErrorOf([] { Add("b"); }).type()); }).join();
  request.Commit();
  EXPECT_EQ("a", Names());
}

TEST_F(DatabaseTest, LockForWritingKeepsOthersFromChanging) {
  Request request("test");
  mgr_db::ThreadConnection()->LockForWriting();
  mgr_db::ThreadConnection()->LockForWriting();
  std::jthread([] { EXPECT_EQ("locked", ErrorOf([] { Add("b"); }).type()); }).join();
}

TEST_F(DatabaseTest, LockForWritingOutsideOfARequestDoesNothing) {
  mgr_db::ThreadConnection()->LockForWriting();
  std::jthread([] { Add("b"); }).join();
  EXPECT_EQ("b", Names());
}

TEST_F(DatabaseTest, ReadersNeverWait) {
  Add("a");
  Request request("test");
  Run("DELETE FROM t");
  EXPECT_EQ("a", NamesSeenByOthers());
}

TEST_F(DatabaseTest, ALockedDatabaseLeavesTheRequestAsItWas) {
  std::latch locked(1), tried(1);
  std::jthread other([&] {
    Request request("other");
    Add("other");
    locked.count_down();
    tried.wait();
  });
  locked.wait();
  Request request("mine");
  EXPECT_EQ("locked", ErrorOf([] { Add("a"); }).type());
  tried.count_down();
  other.join();
  Add("b");
  request.Commit();
  EXPECT_EQ("b", Names());
}

TEST_F(DatabaseTest, GroupedChangesShareATransaction) {
  {
    mgr_db::GroupedChanges group;
    Add("a");
    Add("b");
    EXPECT_EQ("", NamesSeenByOthers());
  }
  EXPECT_EQ("ab", NamesSeenByOthers());
}

TEST_F(DatabaseTest, GroupedChangesStayWhenSomethingFails) {
  const auto error = ErrorOf([] {
    mgr_db::GroupedChanges group;
    Add("a");
    Add("a");
  });
  EXPECT_EQ("exists", error.type());
  EXPECT_EQ("a", NamesSeenByOthers());
}

TEST_F(DatabaseTest, AGroupIsCommittedAfterAWhile) {
  mgr_db::GroupedChanges group;
  Add("a");
  // Whatever is done after a while ends the transaction, reading too.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (NamesSeenByOthers().empty() && std::chrono::steady_clock::now() < limit) {
    Names();
  }
  EXPECT_EQ("a", NamesSeenByOthers());
}

TEST_F(DatabaseTest, ARequestInsideAGroupIsItsOwn) {
  mgr_db::GroupedChanges group;
  Add("a");
  {
    Request request("test");
    Add("b");
  }
  EXPECT_EQ("a", NamesSeenByOthers());
  Add("c");
  group.Commit();
  EXPECT_EQ("ac", NamesSeenByOthers());
}

TEST_F(DatabaseTest, ProcessesShareTheFile) {
  constexpr int kProcesses = 3, kRows = 20;
  mgr_db::CloseDatabase();  // nothing of a connection may be carried into a child
  std::vector<pid_t> children;
  for (int p = 0; p < kProcesses; ++p) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      mgr_db::OpenDatabase(file_, 20000);
      for (int i = 0; i < kRows; ++i) {
        Request request("child");
        Add(std::to_string(p) + "-" + std::to_string(i));
        Add(std::to_string(p) + "+" + std::to_string(i));
        request.Commit();
      }
      ::_exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
  }
  mgr_db::OpenDatabase(file_);
  const auto rows = mgr_db::ThreadConnection()->Query("SELECT name FROM t", {}, 1);
  EXPECT_EQ(std::size_t{2} * kProcesses * kRows, rows.size());
}

TEST_F(DatabaseTest, ANewFileOpenedByManyAtOnceServesAll) {
  mgr_db::CloseDatabase();
  const std::string fresh = dir_ / "fresh.db";
  std::vector<pid_t> children;
  for (int p = 0; p < 6; ++p) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const auto error = ErrorOf([&] {
        mgr_db::OpenDatabase(fresh, 20000);
        Run("CREATE TABLE IF NOT EXISTS t (id INTEGER PRIMARY KEY, name TEXT)");
        Add("x");
      });
      ::_exit(error.type() == "none" ? 0 : 1);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
  }
}

}  // namespace
