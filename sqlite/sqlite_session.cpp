#include "sqlite/sqlite_session.h"

#include <soci/soci.h>
#include <soci/sqlite3/soci-sqlite3.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <unordered_map>
#include <utility>

#include "framework/rehearsal.h"
#include "framework/request.h"
#include "framework/table_sql.h"
#include "framework/write_turn.h"
#include "mgr_err.h"
#include "sqlite/sqlite_error.h"
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

// A connection is of one thread at a time, so SQLite need not take a lock in each of its calls, nor
// in each of its allocations to count them. It refuses, and goes on taking them, when somebody in
// this process has used it before.
void UseOneThreadAtATime() {
  [[maybe_unused]] static const int done = sqlite_api::sqlite3_config(SQLITE_CONFIG_MULTITHREAD) |
                                           sqlite_api::sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
}

sqlite_api::sqlite3* Handle(soci::session& session) {
  return static_cast<soci::sqlite3_session_backend*>(session.get_backend())->conn_;
}

// SQLite does not keep it of a refusal that ends a commit; other calls may have failed since then.
int SystemError(int last, soci::session* session) {
  const bool keeps = last == 0 && session != nullptr && session->is_connected();
  return keeps ? sqlite_api::sqlite3_system_errno(Handle(*session)) : last;
}

// Errors name the file: it is what an administrator looks at, frees or puts back.
template <class Work>
auto Translating(const std::string& file, soci::session* session, const Work& work) {
  errno = 0;
  try {
    return work();
  } catch (const soci::soci_error& error) {
    throw Translated(file, error, SystemError(errno, session));
  }
}

// A SELECT of many rows without values, which gives its columns away without a copy in between.
class Reading {
 public:
  Reading(sqlite_api::sqlite3* database, const std::string& sql) : database_(database) {
    Check(sqlite3_prepare_v2(database, sql.c_str(), -1, &handle_, nullptr));
  }
  ~Reading() { sqlite_api::sqlite3_finalize(handle_); }
  Reading(const Reading&) = delete;
  Reading& operator=(const Reading&) = delete;

  bool Step() {
    const int code = sqlite_api::sqlite3_step(handle_);
    Check(code == SQLITE_ROW || code == SQLITE_DONE ? SQLITE_OK : code);
    return code == SQLITE_ROW;
  }
  void Read(std::vector<std::string>& columns) {
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const int column = static_cast<int>(i);
      const auto* text =
          reinterpret_cast<const char*>(sqlite_api::sqlite3_column_text(handle_, column));
      const int length = sqlite_api::sqlite3_column_bytes(handle_, column);
      columns[i].assign(text == nullptr ? "" : text, static_cast<std::size_t>(length));
    }
  }

 private:
  void Check(int code) {
    if (code != SQLITE_OK) {
      throw soci::sqlite3_soci_error(sqlite_api::sqlite3_errmsg(database_), code);
    }
  }

  sqlite_api::sqlite3* database_;
  sqlite_api::sqlite3_stmt* handle_ = nullptr;
};

std::string ConnectString(const std::string& file) {
  if (file.find('"') != std::string::npos) {
    throw mgr_err::Error("db", file, "its path must not hold a quotation mark");
  }
  return "dbname=\"" + file + "\"";
}

}  // namespace

struct SqliteSession::Database {
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

struct SqliteSession::Statement {
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

SqliteSession::SqliteSession(const std::string& file, int busy_limit_ms) {
  UseOneThreadAtATime();
  Translating(file, nullptr, [&] { database_ = std::make_unique<Database>(file, busy_limit_ms); });
  SetUp();
}

void SqliteSession::SetUp() {
  Translating(database_->file, &database_->session, [this] {
    soci::session& session = database_->session;
    session << "PRAGMA busy_timeout = " + std::to_string(database_->busy_limit_ms);
    session << "PRAGMA foreign_keys = ON";
    session << "PRAGMA synchronous = FULL";
    session << "PRAGMA cache_size = -" + std::to_string(kCacheKiB);
  });
  UseWriteAheadLog();
}

void SqliteSession::Reopen() {
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
auto SqliteSession::Unstuck(const Work& work) {
  return Translating(database_->file, &database_->session, [&] {
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
void SqliteSession::UseWriteAheadLog() {
  const auto limit = Clock::now() + std::chrono::milliseconds(database_->busy_limit_ms);
  for (;;) {
    try {
      std::string mode;
      Translating(database_->file, &database_->session,
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

SqliteSession::~SqliteSession() = default;

SqliteSession::Statement& SqliteSession::Prepared(const std::string& sql, std::size_t values,
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

std::vector<Connection::Row> SqliteSession::Fetch(const std::string& sql, const Row& values,
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

std::vector<Connection::Row> SqliteSession::Query(const std::string& sql, const Row& values,
                                                  std::size_t columns) {
  EndGroupWhenOld();
  Settle();
  return Fetch(sql, values, columns);
}

std::vector<Connection::Row> SqliteSession::Select(const CustomTable& table,
                                                   const CustomTable::Match& match,
                                                   const std::string& order) {
  EndGroupWhenOld();
  return FetchOf(table, table_sql::Select(table, match, order), table_sql::ValuesOf(match));
}

std::vector<Connection::Row> SqliteSession::FetchOf(const CustomTable& table,
                                                    const std::string& sql, const Row& values) {
  if (owed_.IsOf(table.TableName())) {
    WriteMarks();
  }
  return Fetch(sql, values, table.Fields().size());
}

const Connection::Row* SqliteSession::Find(const CustomTable& table,
                                           const CustomTable::Match& match) {
  EndGroupWhenOld();
  KnownRows* const known = Known(table, match);
  if (known != nullptr) {
    if (const KnownRow* row = known->Find(match)) {
      return &row->columns;
    }
  }
  found_ = FetchOf(table, table_sql::Select(table, match, "id") + " LIMIT 1",
                   table_sql::ValuesOf(match));
  if (found_.empty()) {
    return nullptr;
  }
  if (known != nullptr) {
    known->Add(found_.front());
    ReadAhead(table, *known);
  }
  return &found_.front();
}

// Null when nothing may be known: others may change the rows, or some other row may match too.
KnownRows* SqliteSession::Known(const CustomTable& table, const CustomTable::Match& match) {
  if (!HoldsWriteLock() || !KnownRows::IsKey(table, match)) {
    return nullptr;
  }
  const auto known = known_.find(table.TableName());
  if (known != known_.end()) {
    if (known->second.Fits(table)) {
      return &known->second;
    }
    known_.erase(known);
  }
  return &known_.emplace(table.TableName(), table).first->second;
}

void SqliteSession::ReadAhead(const CustomTable& table, KnownRows& known) {
  const std::size_t wanted = known.Wanted();
  if (wanted == 0) {
    return;
  }
  Unstuck([&] {
    Reading rows(Handle(database_->session),
                 table_sql::SelectAfter(table, KnownRows::Number(found_.front().front()), wanted));
    known.BeginAhead();
    while (rows.Step()) {
      rows.Read(known.Next());
      known.EnterNext();
    }
  });
}

void SqliteSession::Update(const CustomTable& table, const std::string& id,
                           const CustomTable::Match& changes) {
  BeforeChange();
  const long long number = KnownRows::Number(id);
  if (MarkLater(table, number, changes)) {
    return;
  }
  WriteMarks();
  ForgetRow(table, number, changes);
  Row values = table_sql::ValuesOf(changes);
  values.push_back(id);
  if (Execute(table_sql::Update(table, changes), values) == 0) {
    throw mgr_err::Error("missed", table.TableName(), id);
  }
}

bool SqliteSession::MarkLater(const CustomTable& table, long long id,
                              const CustomTable::Match& changes) {
  const auto known = known_.find(table.TableName());
  if (known == known_.end() || changes.size() != 1 || !table.IsMark(changes.front().first)) {
    return false;
  }
  const KnownRow* const row = known->second.Current(id);
  if (row == nullptr) {
    return false;
  }
  if (!owed_.Add(table.TableName(), *row, changes.front())) {
    const KnownRow kept = *row;
    WriteMarks();
    owed_.Add(table.TableName(), kept, changes.front());
  }
  known->second.ForgetCurrent();
  return true;
}

// Of a row that is not the current one nothing is known of its place, and a new number moves it.
void SqliteSession::ForgetRow(const CustomTable& table, long long id,
                              const CustomTable::Match& changes) {
  const auto known = known_.find(table.TableName());
  if (known == known_.end()) {
    return;
  }
  if (known->second.Current(id) == nullptr || changes.front().first == "id") {
    known_.erase(known);
  } else {
    known->second.ForgetCurrent();
  }
}

// SQLite ends a transaction by itself when the disk is full, for example.
bool SqliteSession::HoldsWriteLock() const noexcept {
  return Busy() && sqlite_api::sqlite3_get_autocommit(Handle(database_->session)) == 0;
}

void SqliteSession::WriteMarks() {
  if (owed_.IsEmpty()) {
    return;
  }
  if (sqlite_api::sqlite3_get_autocommit(Handle(database_->session)) != 0) {
    throw mgr_err::Error("db", database_->file, "the transaction has been rolled back");
  }
  Execute(owed_.Sql(), owed_.Values());
  owed_.Clear();
}

// Before what may read or change any table, or end the transaction.
void SqliteSession::Settle() {
  WriteMarks();
  known_.clear();
}

long SqliteSession::Change(const std::string& sql, const Row& values) {
  BeforeChange();
  Settle();
  return Execute(sql, values);
}

long SqliteSession::Execute(const std::string& sql, const Row& values) {
  return Unstuck([&] {
    Statement& statement = Prepared(sql, values.size(), 0);
    std::copy(values.begin(), values.end(), statement.in.begin());
    statement.statement.execute(true);
    return static_cast<long>(statement.statement.get_affected_rows());
  });
}

int SqliteSession::Insert(const std::string& sql, const Row& values) {
  BeforeChange();
  Settle();
  const std::vector<Row> rows = Fetch(sql, values, 1);
  if (rows.size() != 1) {
    throw mgr_err::Error("internal", "database", "an insert that returns no id");
  }
  return str::Int(rows.front().front());
}

void SqliteSession::LockForWriting() {
  if (Request* request = Request::Current()) {
    CommitGroup();
    request->BeginDatabase();
  }
}

void SqliteSession::BeforeChange() {
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
bool SqliteSession::InRehearsal() {
  Rehearsal* const rehearsal = Rehearsal::Current();
  if (rehearsal != nullptr && !database_->in_rehearsal) {
    CommitGroup();
    Run("BEGIN IMMEDIATE");
    database_->in_rehearsal = true;
    rehearsal->OnEnd([this] { EndRehearsal(); });
  }
  return rehearsal != nullptr;
}

void SqliteSession::EndRehearsal() {
  if (std::exchange(database_->in_rehearsal, false)) {
    Rollback("ROLLBACK");
  }
}

void SqliteSession::BeginTransaction() {
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

void SqliteSession::CommitTransaction() {
  Run(database_->in_rehearsal ? "RELEASE request" : "COMMIT");
  database_->in_request = false;
  database_->turn.reset();
}

void SqliteSession::RollbackTransaction() {
  database_->in_request = false;
  const std::unique_ptr<WriteTurn> ending = std::move(database_->turn);
  Rollback(database_->in_rehearsal ? "ROLLBACK TO request" : "ROLLBACK");
}

void SqliteSession::Rollback(const char* sql) {
  owed_.Clear();
  try {
    Run(sql);
  } catch (const mgr_err::Error& error) {
    // After a full disk, for example, the database has rolled back by itself.
    if (error.value().find("no transaction is active") == std::string::npos) {
      throw;
    }
  }
}

void SqliteSession::CommitGroup() {
  if (!database_->in_group) {
    return;
  }
  database_->in_group = false;
  const std::exception_ptr lost_marks = WriteOrDropMarks();
  try {
    Run("COMMIT");
  } catch (...) {
    RollbackTransaction();
    throw;
  }
  if (lost_marks) {
    std::rethrow_exception(lost_marks);
  }
}

// Marks that can't be written must not take with them what else the group has changed.
std::exception_ptr SqliteSession::WriteOrDropMarks() noexcept {
  try {
    WriteMarks();
  } catch (...) {
    owed_.Clear();
    return std::current_exception();
  }
  return nullptr;
}

void SqliteSession::EndGroupWhenOld() {
  if (database_->in_group && Clock::now() - database_->group_began > kLongestGroup) {
    CommitGroup();
  }
}

void SqliteSession::Run(const char* sql) {
  Settle();
  Unstuck([&] { database_->session << sql; });
}

bool SqliteSession::Busy() const noexcept {
  return database_->in_request || database_->in_group || database_->in_rehearsal;
}

}  // namespace mgr_db

extern "C" BRISQ_API mgr_db::SqlSession* brisq_open_session(const std::string& file,
                                                            int busy_limit_ms) {
  return std::make_unique<mgr_db::SqliteSession>(file, busy_limit_ms).release();
}

namespace {

// The name is what the framework asks for.
static_assert(std::string_view(mgr_db::kOpenSession) == "brisq_open_session");
static_assert(std::is_same_v<decltype(brisq_open_session), mgr_db::OpenSessionFunction>);

}  // namespace
