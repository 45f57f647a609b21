#pragma once

#include <exception>
#include <memory>
#include <string>
#include <unordered_map>

#include "framework/database.h"
#include "framework/known_rows.h"
#include "framework/mark_run.h"
#include "framework/sql_session.h"

namespace mgr_db {

/// The connection to a SQLite file.
///
/// When a lock could not be given back once, so that SQLite refuses every transaction, the file is
/// opened anew. That helps when no other connection of this process has it open.
class SqliteSession : public SqlSession {
 public:
  /// @throws mgr_err::Error "db" or "locked" when the file can't be opened
  SqliteSession(const std::string& file, int busy_limit_ms);
  ~SqliteSession() override;

  std::vector<Row> Query(const std::string& sql, const Row& values, std::size_t columns) override;
  std::vector<Row> Select(const CustomTable& table, const CustomTable::Match& match,
                          const std::string& order) override;
  const Row* Find(const CustomTable& table, const CustomTable::Match& match) override;
  void Update(const CustomTable& table, const std::string& id,
              const CustomTable::Match& changes) override;
  long Change(const std::string& sql, const Row& values) override;
  int Insert(const std::string& sql, const Row& values) override;
  void LockForWriting() override;

  void BeginTransaction() override;
  void CommitTransaction() override;
  void RollbackTransaction() override;
  void EndRehearsal() override;
  void EnterGroup() noexcept override { ++groups_; }
  void LeaveGroup() noexcept override { --groups_; }
  void CommitGroup() override;
  bool Busy() const noexcept override;

 private:
  struct Database;
  struct Statement;

  void SetUp();
  void UseWriteAheadLog();
  void Reopen();
  template <class Work>
  auto Unstuck(const Work& work);
  Statement& Prepared(const std::string& sql, std::size_t values, std::size_t columns);
  std::vector<Row> Fetch(const std::string& sql, const Row& values, std::size_t columns);
  std::vector<Row> FetchOf(const CustomTable& table, const std::string& sql, const Row& values);
  long Execute(const std::string& sql, const Row& values);
  void BeforeChange();

  bool HoldsWriteLock() const noexcept;
  KnownRows* Known(const CustomTable& table, const CustomTable::Match& match);
  void ReadAhead(const CustomTable& table, KnownRows& known);
  bool MarkLater(const CustomTable& table, long long id, const CustomTable::Match& changes);
  void ForgetRow(const CustomTable& table, long long id, const CustomTable::Match& changes);
  void WriteMarks();
  std::exception_ptr WriteOrDropMarks() noexcept;
  void Settle();

  bool InRehearsal();
  void Rollback(const char* sql);
  void Run(const char* sql);
  void EndGroupWhenOld();

  std::unique_ptr<Database> database_;
  int groups_ = 0;
  std::vector<Row> found_;
  // While the transaction holds the write lock nobody else changes them.
  std::unordered_map<std::string, KnownRows> known_;  // by the name of their table
  MarkRun owed_;
};

}  // namespace mgr_db
