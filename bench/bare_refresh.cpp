#include "bench/bare_refresh.h"

#include <sqlite3.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace bench {
namespace {

class Database {
 public:
  explicit Database(const std::string& file) {
    Check(sqlite3_open(file.c_str(), &handle_));
    Run("PRAGMA busy_timeout = 10000");
    Run("PRAGMA synchronous = FULL");
  }
  ~Database() { sqlite3_close(handle_); }
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  void Run(const char* sql) { Check(sqlite3_exec(handle_, sql, nullptr, nullptr, nullptr)); }
  sqlite3_stmt* Prepare(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    Check(sqlite3_prepare_v2(handle_, sql, -1, &statement, nullptr));
    return statement;
  }
  void Check(int code) {
    if (code == SQLITE_OK || code == SQLITE_ROW || code == SQLITE_DONE) return;
    std::fprintf(stderr, "sqlite: %s\n", sqlite3_errmsg(handle_));
    std::exit(1);
  }

 private:
  sqlite3* handle_ = nullptr;
};

class Statement {
 public:
  Statement(Database& database, const char* sql)
      : database_(database), handle_(database.Prepare(sql)) {}
  ~Statement() { sqlite3_finalize(handle_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  void Bind(int at, const std::string& text) {
    sqlite3_bind_text(handle_, at, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }
  void Bind(int at, sqlite3_int64 number) { sqlite3_bind_int64(handle_, at, number); }
  // True on a row. Columns are fetched as a caller would use them.
  bool Step() {
    const int code = sqlite3_step(handle_);
    database_.Check(code);
    for (int at = 0; code == SQLITE_ROW && at < sqlite3_column_count(handle_); ++at) {
      fetched_ += static_cast<std::size_t>(sqlite3_column_bytes(handle_, at));
    }
    return code == SQLITE_ROW;
  }
  sqlite3_int64 First() { return sqlite3_column_int64(handle_, 0); }
  void Reset() { sqlite3_reset(handle_); }

 private:
  Database& database_;
  sqlite3_stmt* handle_;
  std::size_t fetched_ = 0;
};

// Number of the row that the statement finds; 0 when it finds none.
sqlite3_int64 Id(Statement& statement) {
  const sqlite3_int64 id = statement.Step() ? statement.First() : 0;
  statement.Reset();
  return id;
}

}  // namespace

void RefreshBare(const std::string& file_of_database, const std::string& file, int tag) {
  Database database(file_of_database);
  Statement domain(database,
                   "SELECT id, name, owner, active, cert, key FROM domains WHERE name = ?1");
  Statement mailbox(database,
                    "SELECT id, name, domain, owner, password, pwupdate, home, quota, used, active,"
                    " tag FROM mailboxes WHERE domain = ?1 AND name = ?2");
  Statement update(database, "UPDATE mailboxes SET tag = ?1 WHERE id = ?2");
  std::ifstream lines(file);
  database.Run("BEGIN IMMEDIATE");
  for (std::string line; std::getline(lines, line);) {
    const std::size_t at = line.find('@');
    const std::string local = line.substr(0, at);
    const std::string name = line.substr(at + 1, line.find(':') - at - 1);
    domain.Bind(1, name);
    mailbox.Bind(1, Id(domain));
    mailbox.Bind(2, local);
    update.Bind(1, tag);
    update.Bind(2, Id(mailbox));
    update.Step();
    update.Reset();
  }
  const std::string sweep =
      "DELETE FROM mailboxes WHERE tag != " + std::to_string(tag) + " AND active = 'on'";
  database.Run(sweep.c_str());
  database.Run("COMMIT");
}

}  // namespace bench
