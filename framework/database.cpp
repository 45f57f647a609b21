#include "framework/database.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdint>
#include <mutex>

#include "framework/descriptor.h"
#include "framework/file_error.h"
#include "framework/job_table.h"
#include "framework/request.h"
#include "framework/sql_session.h"
#include "mgr_err.h"
#include "mgr_log.h"
#include "str.h"

namespace mgr_db {

namespace {

mgr_log::Module g_log("database", "brisq");

// Connections that no thread has at present, all to the file that is open.
struct Pool {
  std::mutex mutex;
  std::string file;
  int busy_limit_ms = 0;
  // Number of the opening; 0 while none is open. Leases of an earlier one are void.
  std::uint64_t generation = 0;
  std::uint64_t openings = 0;
  std::vector<std::shared_ptr<SqlSession>> idle;
};

Pool& ThePool() {
  static Pool& pool = *new Pool;  // outlives the threads that give connections back
  return pool;
}

// A thread's hold on its connection.
class Lease {
 public:
  Lease() = default;
  ~Lease() { GiveBack(); }
  Lease(const Lease&) = delete;
  Lease& operator=(const Lease&) = delete;

  const std::shared_ptr<SqlSession>& Session() {
    Pool& pool = ThePool();
    const std::unique_lock lock(pool.mutex);
    if (session_ && generation_ == pool.generation) {
      return session_;
    }
    session_.reset();
    if (pool.generation == 0) {
      throw mgr_err::Error("db", "database", "none is open");
    }
    session_ = Take(pool);
    generation_ = pool.generation;
    return session_;
  }

  void GiveBack() noexcept {
    Pool& pool = ThePool();
    const std::lock_guard lock(pool.mutex);
    if (session_ && generation_ == pool.generation && session_.use_count() == 1 &&
        !session_->Busy()) {
      pool.idle.push_back(std::move(session_));
    }
    session_.reset();
  }

 private:
  static std::shared_ptr<SqlSession> Take(Pool& pool) {
    if (pool.idle.empty()) {
      return SqlSession::Open(pool.file, pool.busy_limit_ms);
    }
    std::shared_ptr<SqlSession> session = std::move(pool.idle.back());
    pool.idle.pop_back();
    return session;
  }

  std::shared_ptr<SqlSession> session_;
  std::uint64_t generation_ = 0;
};

Lease& ThreadLease() {
  thread_local Lease lease;
  return lease;
}

// The side files of the database take over its mode. An existing file is not opened here: closing
// it would drop the locks that other connections of this process hold on it.
void MakePrivate(const std::string& file) {
  const auto refused = [&file](const char* call) {
    const bool read_only = errno == EROFS || errno == EACCES || errno == EPERM;
    const mgr_err::Error error = mgr_file::FileError(file, call);
    return read_only ? mgr_err::Error("db", file, error.value() + "; " + kMustBeWritable) : error;
  };
  {
    const Descriptor fresh(
        ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!fresh && errno != EEXIST) {
      throw refused("open");
    }
  }
  if (::chmod(file.c_str(), 0600) != 0) {
    throw refused("chmod");
  }
}

void SetHooks() {
  Request::SetDatabaseHooks({[] { ThreadLease().Session()->BeginTransaction(); },
                             [] { ThreadLease().Session()->CommitTransaction(); },
                             [] { ThreadLease().Session()->RollbackTransaction(); },
                             job_table::Mark});
}

SqlSession& Session(const std::shared_ptr<Connection>& connection) {
  return static_cast<SqlSession&>(*connection);
}

}  // namespace

Connection::~Connection() = default;

void OpenDatabase(const std::string& file, int busy_limit_ms) {
  CloseDatabase();
  SqlSession::Load();
  MakePrivate(file);
  Pool& pool = ThePool();
  {
    const std::lock_guard lock(pool.mutex);
    // The first connection shows whether the file can be used.
    pool.idle.push_back(SqlSession::Open(file, busy_limit_ms));
    pool.file = file;
    pool.busy_limit_ms = busy_limit_ms;
    pool.generation = ++pool.openings;
  }
  SetHooks();
}

void CloseDatabase() {
  ThreadLease().GiveBack();
  std::vector<std::shared_ptr<SqlSession>> closing;
  Pool& pool = ThePool();
  {
    const std::lock_guard lock(pool.mutex);
    pool.generation = 0;
    closing.swap(pool.idle);
  }
  Request::SetDatabaseHooks({});
}

std::shared_ptr<Connection> ThreadConnection() { return ThreadLease().Session(); }

void CreateTables(Cache& cache, const std::vector<std::string>& names) {
  const std::shared_ptr<Connection> connection = ThreadConnection();
  for (const std::string& name : names) {
    CustomTable* table = cache.Get(name);
    const std::string schema = table->Schema();
    cache.Put(table);
    std::list<std::string> statements;
    str::Split(schema, ";", statements);
    for (const std::string& statement : statements) {
      connection->Change(statement);
    }
  }
}

GroupedChanges::GroupedChanges() : connection_(ThreadConnection()) {
  Session(connection_).EnterGroup();
}

GroupedChanges::~GroupedChanges() {
  Session(connection_).LeaveGroup();
  try {
    Commit();
  } catch (const mgr_err::Error& error) {
    if (g_log.Check(mgr_log::kError)) {
      g_log.Write(mgr_log::kError, "Grouped changes were lost: %s", error.what());
    }
  }
}

void GroupedChanges::Commit() { Session(connection_).CommitGroup(); }

}  // namespace mgr_db
