#include "framework/sql_session.h"

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <unordered_map>
#include <utility>

#include "framework/rehearsal.h"
#include "framework/request.h"
#include "framework/write_turn.h"
#include "mgr_err.h"
#include "str.h"

namespace mgr_db {

namespace {

using Clock = std::chrono::steady_clock;

// Other processes must not wait longer than this for a run that changes many rows.
constexpr auto kLongestGroup = std::chrono::milliseconds(200);
// Texts of statements come from the program and are few; this bounds a mistake.
constexpr std::size_t kMostStatements = 256;

// A run over all mailboxes comes back to most pages; what is not used takes no memory.
constexpr int kCacheKiB = 64 << 10;

// A connection is of one thread at a time, so SQLite need not take a lock in each of its calls. It
// refuses, and goes on taking them, when somebody in this process has used it before.
void UseOneThreadAtATime() {
  [[maybe_unused]] static const int done = sqlite_api::sqlite3_config(SQLITE_CONFIG_MULTITHREAD);
}

// The library's words end in the statement with its values, which may be secrets, and begin with
// the name of its function; what is left is SQLite's own text, which names columns only.
std::string SystemsWords(const soci::soci_error& error) {
  const std::string words = error.get_error_message();
  const std::string marker = "_backend::";
  const std::size_t function = words.find(marker);
  const std::size_t text = function == std::string::npos ? function : words.find(": ", function);
  return text == std::string::npos ? words : words.substr(text + 2);
}

mgr_err::Error TakenError(const std::string& words) {
  return mgr_err::Error("exists", str::RGetWord(words, ": "), "the value is taken");
}

mgr_err::Error Translated(const std::string& file, const soci::soci_error& error) {
  const std::string words = SystemsWords(error);
  const auto* sqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
  const int code = sqlite == nullptr ? SQLITE_ERROR : sqlite->result() & 0xff;
  if (code == SQLITE_BUSY || code == SQLITE_LOCKED) {
    return mgr_err::Error("locked", file, "another process is changing it");
  }
  if (code == SQLITE_READONLY || code == SQLITE_CANTOPEN) {
    return mgr_err::Error("db", file, words + "; " + kMustBeWritable);
  }
  if (code == SQLITE_CONSTRAINT && str::StartsWith(words, "UNIQUE constraint failed")) {
    return TakenError(words);
  }
  return mgr_err::Error("db", file, words);
}

// SQLite takes a lock for held that it could not give back, and then refuses every transaction of
// this connection: only closing it lets go. Nothing was done yet when it says so.
bool IsStuck(const soci::soci_error& error) {
  const auto* sqlite = dynamic_cast<const soci::sqlite3_soci_error*>(&error);
  return sqlite != nullptr && (sqlite->result() & 0xff) == SQLITE_PROTOCOL;
}

// Errors name the file: it is what an administrator looks at, frees or puts back.
template <class Work>
auto Translating(const std::string& file, const Work& work) {
  try {
    return work();
  } catch (const soci::soci_error& error) {
    throw Translated(file, error);
  }
}

std::string ConnectString(const std::string& file) {
  if (file.find('"') != std::string::npos) {
    throw mgr_err::Error("db", file, "its path must not hold a quotation mark");
  }
  return "dbname=\"" + file + "\"";
}

}  // namespace

struct SqlSession::Database {
  Database(const std::string& path, int busy_limit)
      : file(path), session(soci::sqlite3, ConnectString(path)), busy_limit_ms(busy_limit) {}

  const std::string file;
  soci::session session;
  int busy_limit_ms;
  bool in_request = false;
  bool in_group = false;
  bool in_rehearsal = false;
  Clock::time_point group_began;
  std::unique_ptr<WriteTurn> turn;  // of the request's transaction
  // Behind the session, so that they are finalised before it is closed.
  std::unordered_map<std::string, std::unique_ptr<Statement>> statements;
};

struct SqlSession::Statement {
  Statement(soci::session& session, const std::string& sql, std::size_t values, std::size_t columns)
      : in(values), out(columns), indicators(columns), statement(session) {
    for (std::string& value : in) {
      statement.exchange(soci::use(value));
    }
    for (std::size_t i = 0; i < columns; ++i) {
      statement.exchange(soci::into(out[i], indicators[i]));
    }
    statement.alloc();
    statement.prepare(sql);
    statement.define_and_bind();
  }

  Row Current() const {
    Row row = out;
    for (std::size_t i = 0; i < row.size(); ++i) {
      if (indicators[i] == soci::i_null) {
        row[i].clear();
      }
    }
    return row;
  }

  Row in;
  Row out;
  std::vector<soci::indicator> indicators;
  soci::statement statement;
};

SqlSession::SqlSession(const std::string& file, int busy_limit_ms) {
  UseOneThreadAtATime();
  Translating(file, [&] { database_ = std::make_unique<Database>(file, busy_limit_ms); });
  SetUp();
}

void SqlSession::SetUp() {
  Translating(database_->file, [this] {
    soci::session& session = database_->session;
    session << "PRAGMA busy_timeout = " + std::to_string(database_->busy_limit_ms);
    session << "PRAGMA foreign_keys = ON";
    session << "PRAGMA synchronous = FULL";
    session << "PRAGMA cache_size = -" + std::to_string(kCacheKiB);
  });
  UseWriteAheadLog();
}

void SqlSession::Reopen() {
  database_->statements.clear();
  database_->session.close();
  database_->session.open(soci::sqlite3, ConnectString(database_->file));
  try {
    SetUp();
  } catch (...) {
    database_->session.close();  // half set up it must not be used
    throw;
  }
}

// Outside of a transaction what a stuck connection has refused is done by a fresh one. When that
// can't be opened either, the next operation tries it.
template <class Work>
auto SqlSession::Unstuck(const Work& work) {
  return Translating(database_->file, [&] {
    if (!database_->session.is_connected()) {
      Reopen();
    }
    try {
      return work();
    } catch (const soci::soci_error& error) {
      if (!IsStuck(error) || Busy()) {
        throw;
      }
    }
    Reopen();
    return work();
  });
}

// Two processes that open a new file at once exclude each other here without waiting.
void SqlSession::UseWriteAheadLog() {
  const auto limit = Clock::now() + std::chrono::milliseconds(database_->busy_limit_ms);
  for (;;) {
    try {
      std::string mode;
      Translating(database_->file,
                  [&] { database_->session << "PRAGMA journal_mode = WAL", soci::into(mode); });
      if (mode != "wal") {
        throw mgr_err::Error("db", database_->file, "its file system can't hold a write-ahead log");
      }
      return;
    } catch (const mgr_err::Error& error) {
      if (error.type() != "locked" || Clock::now() >= limit) {
        throw;
      }
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

SqlSession::~SqlSession() = default;

SqlSession::Statement& SqlSession::Prepared(const std::string& sql, std::size_t values,
                                            std::size_t columns) {
  auto& statements = database_->statements;
  auto found = statements.find(sql);
  if (found == statements.end()) {
    if (statements.size() >= kMostStatements) {
      statements.clear();
    }
    auto fresh = std::make_unique<Statement>(database_->session, sql, values, columns);
    found = statements.emplace(sql, std::move(fresh)).first;
  }
  if (found->second->in.size() != values || found->second->out.size() != columns) {
    throw mgr_err::Error("internal", "database", "one statement with two numbers of values");
  }
  return *found->second;
}

std::vector<Connection::Row> SqlSession::Fetch(const std::string& sql, const Row& values,
                                               std::size_t columns) {
  return Unstuck([&] {
    Statement& statement = Prepared(sql, values.size(), columns);
    std::copy(values.begin(), values.end(), statement.in.begin());
    std::vector<Row> rows;
    // To the end, as a statement that is left half-way keeps its lock.
    for (bool got = statement.statement.execute(true); got; got = statement.statement.fetch()) {
      rows.push_back(statement.Current());
    }
    return rows;
  });
}

std::vector<Connection::Row> SqlSession::Query(const std::string& sql, const Row& values,
                                               std::size_t columns) {
  EndGroupWhenOld();
  return Fetch(sql, values, columns);
}

long SqlSession::Change(const std::string& sql, const Row& values) {
  BeforeChange();
  return Unstuck([&] {
    Statement& statement = Prepared(sql, values.size(), 0);
    std::copy(values.begin(), values.end(), statement.in.begin());
    statement.statement.execute(true);
    return static_cast<long>(statement.statement.get_affected_rows());
  });
}

int SqlSession::Insert(const std::string& sql, const Row& values) {
  BeforeChange();
  const std::vector<Row> rows = Fetch(sql, values, 1);
  if (rows.size() != 1) {
    throw mgr_err::Error("internal", "database", "an insert that returns no id");
  }
  return str::Int(rows.front().front());
}

void SqlSession::LockForWriting() {
  if (Request* request = Request::Current()) {
    CommitGroup();
    request->BeginDatabase();
  }
}

void SqlSession::BeforeChange() {
  if (Request::Current() != nullptr) {
    LockForWriting();
    return;
  }
  if (InRehearsal()) {
    return;
  }
  EndGroupWhenOld();
  if (groups_ > 0 && !database_->in_group) {
    // At once with the write lock: a transaction that read first could not get it any more.
    Run("BEGIN IMMEDIATE");
    database_->in_group = true;
    database_->group_began = Clock::now();
  }
}

// True in a dry run, whose transaction it begins.
bool SqlSession::InRehearsal() {
  Rehearsal* const rehearsal = Rehearsal::Current();
  if (rehearsal != nullptr && !database_->in_rehearsal) {
    CommitGroup();
    Run("BEGIN IMMEDIATE");
    database_->in_rehearsal = true;
    rehearsal->OnEnd([this] { EndRehearsal(); });
  }
  return rehearsal != nullptr;
}

void SqlSession::EndRehearsal() {
  if (std::exchange(database_->in_rehearsal, false)) {
    Rollback("ROLLBACK");
  }
}

void SqlSession::BeginTransaction() {
  if (InRehearsal()) {
    Run("SAVEPOINT request");
  } else {
    auto turn = std::make_unique<WriteTurn>(database_->file,
                                            std::chrono::milliseconds(database_->busy_limit_ms));
    Run("BEGIN IMMEDIATE");
    database_->turn = std::move(turn);
  }
  database_->in_request = true;
}

void SqlSession::CommitTransaction() {
  Run(database_->in_rehearsal ? "RELEASE request" : "COMMIT");
  database_->in_request = false;
  database_->turn.reset();
}

void SqlSession::RollbackTransaction() {
  database_->in_request = false;
  const std::unique_ptr<WriteTurn> ending = std::move(database_->turn);
  Rollback(database_->in_rehearsal ? "ROLLBACK TO request" : "ROLLBACK");
}

void SqlSession::Rollback(const char* sql) {
  try {
    Run(sql);
  } catch (const mgr_err::Error& error) {
    // After a full disk, for example, the database has rolled back by itself.
    if (error.value().find("no transaction is active") == std::string::npos) {
      throw;
    }
  }
}

void SqlSession::CommitGroup() {
  if (!database_->in_group) {
    return;
  }
  database_->in_group = false;
  try {
    Run("COMMIT");
  } catch (...) {
    RollbackTransaction();
    throw;
  }
}

void SqlSession::EndGroupWhenOld() {
  if (database_->in_group && Clock::now() - database_->group_began > kLongestGroup) {
    CommitGroup();
  }
}

void SqlSession::Run(const char* sql) {
  Unstuck([&] { database_->session << sql; });
}

bool SqlSession::Busy() const noexcept {
  return database_->in_request || database_->in_group || database_->in_rehearsal;
}

}  // namespace mgr_db
