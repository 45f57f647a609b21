#pragma once

#include <memory>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "mgr_db.h"

/// The database behind the table objects: opening it, and SQL for what tables can't express.
namespace mgr_db {

/// One connection to the database, of one thread at a time. Statements are prepared once and kept.
///
/// Values are always bound, never part of the SQL: `sql` marks them ":v1", ":v2", ... in order.
/// They travel as text both ways; numbers are converted by the database, NULL is read as an empty
/// text. Inside a request the first change begins its transaction and takes the database's write
/// lock; without one each change is a transaction of its own.
///
/// Every operation may throw mgr_err::Error "db" (never with a value of a row in its text),
/// "exists" when a unique column's value is taken, or "locked" when another process held the
/// database for longer than the busy limit.
///
/// Runs over many rows of a table are cheap while a transaction holds the write lock: rows that are
/// found one after the other are read ahead, and marks of rows that follow each other are written
/// together. Nobody sees that: whatever else goes through the connection, the end of the
/// transaction included, first writes what is owed and forgets what is known. Marks that can't be
/// written stay owed, so that the transaction can't be committed without them.
class BRISQ_API Connection {
 public:
  using Row = std::vector<std::string>;

  Connection() = default;
  virtual ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Rows of a SELECT.
  /// @param columns  how many columns it yields
  virtual std::vector<Row> Query(const std::string& sql, const Row& values,
                                 std::size_t columns) = 0;
  /// Rows of a table that match all pairs, ordered by a column.
  /// @throws mgr_err::Error "internal" for a column that the table has not
  virtual std::vector<Row> Select(const CustomTable& table, const CustomTable::Match& match,
                                  const std::string& order) = 0;
  /// The one with the lowest number of the rows that match all pairs; null when there is none.
  /// Valid until the next operation.
  /// @throws as Select
  virtual const Row* Find(const CustomTable& table, const CustomTable::Match& match) = 0;
  /// Sets columns of the row with this number. A mark alone may be written later.
  /// @throws mgr_err::Error "missed" when there is no such row; as Select
  virtual void Update(const CustomTable& table, const std::string& id,
                      const CustomTable::Match& changes) = 0;
  /// Runs a statement that changes rows and returns how many.
  virtual long Change(const std::string& sql, const Row& values = {}) = 0;
  /// Runs an INSERT that ends in "RETURNING id" and returns that.
  virtual int Insert(const std::string& sql, const Row& values) = 0;
  /// Begins the transaction of the current request now, with the write lock, so that what is read
  /// from here on is still so when it is changed. Does nothing when it has begun, or outside of a
  /// request.
  virtual void LockForWriting() = 0;
};

/// Opens the database file and makes it (0600) when it is missing; one open before is closed.
/// Requests are transactions of it from then on. Every change is durable when its transaction has
/// ended; readers never wait.
/// @param file            absolute path; its directory exists
/// @param busy_limit_ms   how long an operation waits for another process's write lock
/// @throws mgr_err::Error "db" when the file is no database, can't be read or written; "file", also
/// when the library that works on it can't be loaded
BRISQ_API void OpenDatabase(const std::string& file, int busy_limit_ms = 10000);

/// Closes every connection that is idle, the calling thread's among them; others are closed when
/// their thread next uses the database or ends. Does nothing when none is open.
BRISQ_API void CloseDatabase();

/// The calling thread's connection, the same for as long as the thread lives and the database is
/// open. Given back for other threads when the thread ends.
/// @throws mgr_err::Error "db" when no database is open
BRISQ_API std::shared_ptr<Connection> ThreadConnection();

/// Makes the tables of these classes, in order, as far as they do not exist.
/// @param names  run-time type names as Cache::Add got them
BRISQ_API void CreateTables(Cache& cache, const std::vector<std::string>& names);

/// Groups the changes that the calling thread makes outside of requests, for runs that change many
/// rows: they share transactions, which end after at most about a quarter of a second of work and
/// when the scope does. A failure leaves the changes made before it in the database.
class BRISQ_API GroupedChanges {
 public:
  GroupedChanges();
  /// Ends the last transaction; a failure of that is logged.
  ~GroupedChanges();
  GroupedChanges(const GroupedChanges&) = delete;
  GroupedChanges& operator=(const GroupedChanges&) = delete;

  /// Ends the last transaction and reports its failure.
  void Commit();

 private:
  std::shared_ptr<Connection> connection_;
};

}  // namespace mgr_db
