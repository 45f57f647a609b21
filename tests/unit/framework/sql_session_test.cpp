#include "framework/sql_session.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cerrno>
#include <cstdlib>
#include <functional>

#include "framework/request.h"
#include "mgr_err.h"
#include "tests/support/log_capture.h"
#include "tests/support/places.h"
#include "tests/support/temp_dir.h"

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

// What Connection promises, on the SQLite connection behind it.
class SqlSessionTest : public testing::Test {
 protected:
  SqlSessionTest() {
    mgr_db::OpenDatabase(dir_ / "panel.db", 50);
    db_ = mgr_db::ThreadConnection();
    db_->Change(
        "CREATE TABLE parent (id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT UNIQUE, n INTEGER)");
    db_->Change("CREATE TABLE child (id INTEGER PRIMARY KEY, p INTEGER REFERENCES parent (id))");
  }
  ~SqlSessionTest() override {
    db_.reset();
    mgr_db::CloseDatabase();
  }

  mgr_err::Error ErrorOf(const std::string& sql, const mgr_db::Connection::Row& values = {}) {
    try {
      db_->Change(sql, values);
    } catch (const mgr_err::Error& error) {
      return error;
    }
    return mgr_err::Error("none");
  }

  support::LogCapture log_;  // a rollback that fails is logged
  support::TempDir dir_;
  std::shared_ptr<mgr_db::Connection> db_;
};

constexpr const char* kInsert = "INSERT INTO parent (name, n) VALUES (:v1, :v2) RETURNING id";

// Else each start of a program that opens no database would pay for it.
TEST(SqlSessionLoading, TheFrameworkIsNotLinkedWithSqlite) {
  const support::TempDir dir;
  const std::string library = support::BuildFolder() + "/lib/libbrisqapi.so";
  ASSERT_EQ(0, std::system(("ldd '" + library + "' > '" + (dir / "needed") + "'").c_str()));
  EXPECT_THAT(dir.Read("needed"), HasSubstr("libsodium"));
  EXPECT_THAT(dir.Read("needed"), Not(AnyOf(HasSubstr("sqlite"), HasSubstr("soci"))));
}

TEST(SqlSessionLoading, ALibraryThatIsMissingIsNamed) {
  const support::TempDir dir;
  try {
    mgr_db::SqlSession::Open(dir / "panel.db", 50, "libbrisqother.so");
    FAIL() << "was opened";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("file", error.type());
    EXPECT_EQ("libbrisqother.so", error.object());
    EXPECT_THAT(error.value(), HasSubstr("cannot open shared object file"));
  }
}

TEST_F(SqlSessionTest, InsertGivesTheNewNumber) {
  EXPECT_EQ(1, db_->Insert(kInsert, {"a", "5"}));
  EXPECT_EQ(2, db_->Insert(kInsert, {"b", "6"}));
}

TEST_F(SqlSessionTest, ChangeGivesTheNumberOfRows) {
  db_->Insert(kInsert, {"a", "1"});
  db_->Insert(kInsert, {"b", "2"});
  EXPECT_EQ(2, db_->Change("UPDATE parent SET n = n + 1"));
  EXPECT_EQ(1, db_->Change("DELETE FROM parent WHERE n = :v1", {"3"}));
  EXPECT_EQ(0, db_->Change("DELETE FROM parent WHERE n = :v1", {"99"}));
}

TEST_F(SqlSessionTest, QueryGivesAllRowsAsText) {
  db_->Insert(kInsert, {"a", "1"});
  db_->Insert(kInsert, {"b", "2"});
  EXPECT_THAT(db_->Query("SELECT name, n, n + 0.5 FROM parent ORDER BY id", {}, 3),
              ElementsAre(ElementsAre("a", "1", "1.5"), ElementsAre("b", "2", "2.5")));
}

TEST_F(SqlSessionTest, NullIsReadAsAnEmptyText) {
  db_->Change("INSERT INTO parent (n) VALUES (7)");
  EXPECT_THAT(db_->Query("SELECT name, n FROM parent", {}, 2), ElementsAre(ElementsAre("", "7")));
}

TEST_F(SqlSessionTest, AStatementIsUsedAgainAfterItFailed) {
  db_->Insert(kInsert, {"a", "1"});
  EXPECT_THROW(db_->Insert(kInsert, {"a", "2"}), mgr_err::Error);
  db_->Insert(kInsert, {"b", "3"});
  EXPECT_THAT(db_->Query("SELECT name FROM parent ORDER BY id", {}, 1),
              ElementsAre(ElementsAre("a"), ElementsAre("b")));
}

TEST_F(SqlSessionTest, PreparedStatementsSurviveAChangeOfTheTable) {
  const std::string select = "SELECT name FROM parent";
  db_->Insert(kInsert, {"a", "1"});
  db_->Query(select, {}, 1);
  db_->Change("ALTER TABLE parent ADD COLUMN more TEXT");
  EXPECT_THAT(db_->Query(select, {}, 1), ElementsAre(ElementsAre("a")));
}

TEST_F(SqlSessionTest, ManyDifferentStatementsAreServed) {
  for (int i = 0; i < 600; ++i) {
    EXPECT_EQ(std::to_string(i), db_->Query("SELECT " + std::to_string(i), {}, 1).front().front());
  }
}

TEST_F(SqlSessionTest, FailuresNameColumnsAndNoValues) {
  db_->Insert(kInsert, {"canary", "1"});
  struct Case {
    const char* name;
    std::string sql;
    mgr_db::Connection::Row values;
    const char* type;
    const char* words;
  };
  const Case cases[] = {
      {"unique", "INSERT INTO parent (name) VALUES (:v1)", {"canary"}, "exists", "parent.name"},
      {"reference", "INSERT INTO child (p) VALUES (:v1)", {"424242"}, "db", "FOREIGN KEY"},
      {"syntax", "SELEC :v1", {"canary"}, "db", "syntax error"},
      {"no table", "DELETE FROM nowhere WHERE x = :v1", {"canary"}, "db", "no such table"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const mgr_err::Error error = ErrorOf(c.sql, c.values);
    EXPECT_EQ(c.type, error.type());
    EXPECT_THAT(error.what(), HasSubstr(c.words));
    EXPECT_THAT(error.what(), Not(HasSubstr("canary")));
    EXPECT_THAT(error.what(), Not(HasSubstr("424242")));
    EXPECT_THAT(error.what(), Not(HasSubstr("backend")));
  }
}

TEST_F(SqlSessionTest, ADamagedFileIsADatabaseError) {
  for (int i = 0; i < 200; ++i) {
    db_->Insert(kInsert, {std::string(100, 'x') + std::to_string(i), "1"});
  }
  db_.reset();
  mgr_db::CloseDatabase();
  std::string bytes = dir_.Read("panel.db");
  ASSERT_GT(bytes.size(), 20000u);
  std::fill(bytes.begin() + 4096, bytes.end(), '\xff');
  dir_.Write("panel.db", bytes);
  mgr_db::OpenDatabase(dir_ / "panel.db");
  try {
    mgr_db::ThreadConnection()->Query("SELECT name FROM parent", {}, 1);
    FAIL() << "read";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("db: " + (dir_ / "panel.db") + ": database disk image is malformed", error.what());
  }
}

TEST_F(SqlSessionTest, AFullDatabaseFailsTheWholeRequest) {
  db_->Query("PRAGMA max_page_count = 6", {}, 1);
  {
    Request request("test");
    db_->Insert(kInsert, {"small", "1"});
    const mgr_err::Error error = [&] {
      try {
        db_->Insert(kInsert, {std::string(100000, 'x'), "1"});
      } catch (const mgr_err::Error& caught) {
        return caught;
      }
      return mgr_err::Error("none");
    }();
    EXPECT_EQ("db: " + (dir_ / "panel.db") + ": No space left on device (the disk is full)",
              error.what());
  }
  EXPECT_TRUE(db_->Query("SELECT name FROM parent", {}, 1).empty());
  db_->Insert(kInsert, {"later", "1"});
}

TEST_F(SqlSessionTest, OneStatementHasOneNumberOfValues) {
  const std::string sql = "SELECT name FROM parent WHERE name = :v1";
  db_->Query(sql, {"a"}, 1);
  EXPECT_THROW(db_->Query(sql, {"a", "b"}, 1), mgr_err::Error);
  EXPECT_THROW(db_->Query(sql, {"a"}, 2), mgr_err::Error);
}

// Has one of SQLite's calls that take or give back a lock fail, and SQLite not sleep in between.
class LockFault {
 public:
  explicit LockFault(int number) {
    left = number;
    vfs_->xSetSystemCall(vfs_, "fcntl", reinterpret_cast<sqlite3_syscall_ptr>(&FCntl));
    vfs_->xSleep = [](sqlite3_vfs*, int) { return 0; };
  }
  ~LockFault() {
    vfs_->xSetSystemCall(vfs_, "fcntl", nullptr);
    vfs_->xSleep = sleep_;
  }
  LockFault(const LockFault&) = delete;
  LockFault& operator=(const LockFault&) = delete;

  static bool happened() { return left <= 0; }

 private:
  static int FCntl(int fd, int command, void* argument) {
    if (command == F_SETLK && --left == 0) {
      errno = EIO;
      return -1;
    }
    return ::fcntl(fd, command, argument);
  }

  static int left;
  sqlite3_vfs* const vfs_ = sqlite3_vfs_find(nullptr);
  decltype(vfs_->xSleep) const sleep_ = vfs_->xSleep;
};

int LockFault::left = 0;

// Has files opened for reading only, as on a file system that is mounted so.
class ReadOnlyFiles {
 public:
  ReadOnlyFiles() {
    vfs_->xSetSystemCall(vfs_, "open", reinterpret_cast<sqlite3_syscall_ptr>(&Open));
  }
  ~ReadOnlyFiles() { vfs_->xSetSystemCall(vfs_, "open", nullptr); }
  ReadOnlyFiles(const ReadOnlyFiles&) = delete;
  ReadOnlyFiles& operator=(const ReadOnlyFiles&) = delete;

 private:
  static int Open(const char* path, int flags, int mode) {
    if ((flags & (O_RDWR | O_CREAT)) != 0) {
      errno = EROFS;
      return -1;
    }
    return ::open(path, flags, mode);
  }

  sqlite3_vfs* const vfs_ = sqlite3_vfs_find(nullptr);
};

TEST_F(SqlSessionTest, ADatabaseThatCanOnlyBeReadIsNamedWithTheRule) {
  db_.reset();
  mgr_db::CloseDatabase();
  const ReadOnlyFiles files;
  for (const char* name : {"panel.db", "none.db"}) {
    SCOPED_TRACE(name);
    try {
      mgr_db::OpenDatabase(dir_ / name);
      mgr_db::ThreadConnection()->Change("CREATE TABLE other (id INTEGER)");
      ADD_FAILURE() << "changed";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ("db", error.type());
      EXPECT_EQ(dir_ / name, error.object());
      EXPECT_THAT(error.value(), HasSubstr("must be writable"));
    }
  }
}

// Has SQLite's writes to files refused.
class RefusedWrites {
 public:
  explicit RefusedWrites(int error) {
    error_ = error;
    for (const char* call : kCalls) {
      vfs_->xSetSystemCall(vfs_, call, reinterpret_cast<sqlite3_syscall_ptr>(&Refuse));
    }
  }
  ~RefusedWrites() {
    for (const char* call : kCalls) {
      vfs_->xSetSystemCall(vfs_, call, nullptr);
    }
  }
  RefusedWrites(const RefusedWrites&) = delete;
  RefusedWrites& operator=(const RefusedWrites&) = delete;

 private:
  static ssize_t Refuse(int, const void*, std::size_t, off_t) {
    errno = error_;
    return -1;
  }

  static constexpr const char* kCalls[] = {"pwrite", "pwrite64", "write"};
  static int error_;
  sqlite3_vfs* const vfs_ = sqlite3_vfs_find(nullptr);
};

int RefusedWrites::error_ = 0;

struct Refusal {
  const char* name;
  int error;
  const char* words;
};

constexpr Refusal kRefusals[] = {
    {"full disk", ENOSPC, "No space left on device (the disk is full)"},
    {"no quota left", EDQUOT, "Disk quota exceeded (the disk quota is used up)"},
    {"bad disk", EIO, "disk I/O error: Input/output error"},
};

TEST_F(SqlSessionTest, WhatTheSystemRefusesIsToldInItsWords) {
  for (const Refusal& c : kRefusals) {
    SCOPED_TRACE(c.name);
    mgr_err::Error error("none");
    {
      const RefusedWrites refused(c.error);
      error = ErrorOf("INSERT INTO parent (name) VALUES ('x')");
    }
    EXPECT_EQ("db: " + (dir_ / "panel.db") + ": " + c.words, std::string(error.what()));
    EXPECT_EQ("exists", (ErrorOf("INSERT INTO parent (name) VALUES ('y')"),
                         ErrorOf("INSERT INTO parent (name) VALUES ('y')"))
                            .type())
        << "no word of an older refusal";
    EXPECT_EQ("none", ErrorOf("DELETE FROM parent").type());
  }
}

// What is shared between processes is made then.
TEST_F(SqlSessionTest, ADiskThatIsFullWhenTheDatabaseIsOpenedIsNamed) {
  db_.reset();
  mgr_db::CloseDatabase();
  const RefusedWrites refused(ENOSPC);
  try {
    mgr_db::OpenDatabase(dir_ / "panel.db");
    mgr_db::ThreadConnection()->Query("SELECT name FROM parent", {}, 1);
    ADD_FAILURE() << "opened";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("db: " + (dir_ / "panel.db") + ": No space left on device (the disk is full)",
              std::string(error.what()));
  }
}

TEST_F(SqlSessionTest, ALockThatIsRefusedOnceIsForgottenAfterTheOperation) {
  db_->Insert(kInsert, {"a", "0"});
  int number = 0;
  for (bool happened = true; happened;) {
    SCOPED_TRACE("lock call " + std::to_string(++number));
    const LockFault fault(number);
    ErrorOf("UPDATE parent SET n = n + 1");
    happened = LockFault::happened();
    EXPECT_EQ("none", ErrorOf("UPDATE parent SET n = n + 1").type());
    EXPECT_NO_THROW(db_->Query("SELECT name FROM parent", {}, 1));
    mgr_db::GroupedChanges group;
    EXPECT_EQ("none", ErrorOf("UPDATE parent SET n = n + 1").type());
  }
  EXPECT_GT(number, 5);
}

}  // namespace
