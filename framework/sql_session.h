#pragma once

#include <memory>
#include <string>

#include "brisq_export.h"
#include "framework/database.h"

namespace mgr_db {

/// The rule that a database breaks which can only be read: readers leave marks beside it too.
constexpr const char* kMustBeWritable =
    "the database's file, its folder and their file system must be writable";

/// One open connection to the database's file, and the transaction that goes on on it.
///
/// There are three ways to work. Outside of everything each change is a transaction of its own.
/// While the thread has a current request, that one's transaction is begun by the first change.
/// Inside GroupedChanges changes share transactions of limited length; a request ends the one that
/// goes on. In a dry run all of this happens inside of one transaction, in which requests are save
/// points.
///
/// What works on the file is a library of its own, which is loaded with the first connection and
/// never let go: who opens no database does not pay for the start of its libraries.
class BRISQ_API SqlSession : public Connection {
 public:
  ~SqlSession() override;

  /// Finds out whether there can be connections at all, before a file is made for them.
  /// @throws mgr_err::Error "file" with the library as object when it can't be loaded
  static void Load();

  /// @param library  as for SharedLibrary
  /// @throws mgr_err::Error "db" or "locked" when the file can't be opened, or as Load
  static std::shared_ptr<SqlSession> Open(const std::string& file, int busy_limit_ms,
                                          const std::string& library = kLibrary);

  /// The transaction of a request, as the hooks call them.
  virtual void BeginTransaction() = 0;
  virtual void CommitTransaction() = 0;
  /// @throws mgr_err::Error "db": the connection is not usable any more
  virtual void RollbackTransaction() = 0;

  /// Rolls back all that a dry run has changed; does nothing when there is none.
  virtual void EndRehearsal() = 0;

  virtual void EnterGroup() noexcept = 0;
  virtual void LeaveGroup() noexcept = 0;
  /// Ends the transaction that a group has begun; does nothing when there is none.
  virtual void CommitGroup() = 0;

  /// True when a transaction goes on: not fit for another thread.
  virtual bool Busy() const noexcept = 0;

 private:
  static constexpr const char* kLibrary = "libbrisqsqlite.so";
};

/// What the library offers by the name kOpenSession: a new connection, the caller's. Throws as
/// SqlSession::Open.
using OpenSessionFunction = SqlSession*(const std::string& file, int busy_limit_ms);
constexpr const char* kOpenSession = "brisq_open_session";

}  // namespace mgr_db
