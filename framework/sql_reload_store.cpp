#include "framework/sql_reload_store.h"

#include "framework/database.h"

namespace reloader {

namespace {

using Row = mgr_db::Connection::Row;

std::string Text(std::int64_t number) { return std::to_string(number); }

ReloadRequest RequestOf(const Row& row) {
  return {std::stoll(row[0]), row[1], row[2], row[3] == "1", std::stoll(row[4])};
}

ReloadRun RunOf(const Row& row) {
  ReloadRun run;
  run.id = std::stoll(row[0]);
  run.group = row[1];
  run.hard = row[2] == "1";
  run.through = std::stoll(row[3]);
  run.began = std::stoll(row[4]);
  run.ended = std::stoll(row[5]);
  run.failures = std::stoi(row[6]);
  run.result = std::stoi(row[7]);
  run.error = row[8];
  return run;
}

}  // namespace

SqlReloadStore::SqlReloadStore() {
  const auto connection = mgr_db::ThreadConnection();
  // AUTOINCREMENT: an id must never come again, or a request could be taken for one that is served.
  connection->Change(
      "CREATE TABLE IF NOT EXISTS reload_request (id INTEGER PRIMARY KEY AUTOINCREMENT, "
      "grp TEXT NOT NULL, action TEXT NOT NULL, hard INTEGER NOT NULL, at INTEGER NOT NULL)");
  connection->Change(
      "CREATE TABLE IF NOT EXISTS reload_run (id INTEGER PRIMARY KEY AUTOINCREMENT, "
      "grp TEXT NOT NULL, hard INTEGER NOT NULL, through INTEGER NOT NULL, "
      "began INTEGER NOT NULL, ended INTEGER NOT NULL, failures INTEGER NOT NULL, "
      "result INTEGER NOT NULL, error TEXT NOT NULL)");
}

void SqlReloadStore::Add(const ReloadRequest& request) {
  mgr_db::ThreadConnection()->Change(
      "INSERT INTO reload_request (grp, action, hard, at) VALUES (:v1, :v2, CAST(:v3 AS INTEGER), "
      "CAST(:v4 AS INTEGER))",
      {request.group, request.action, Text(request.hard ? 1 : 0), Text(request.at)});
}

std::vector<ReloadRequest> SqlReloadStore::Requests() {
  std::vector<ReloadRequest> requests;
  for (const Row& row : mgr_db::ThreadConnection()->Query(
           "SELECT id, grp, action, hard, at FROM reload_request ORDER BY id", {}, 5)) {
    requests.push_back(RequestOf(row));
  }
  return requests;
}

void SqlReloadStore::Drop(const std::string& action, std::int64_t through) {
  mgr_db::ThreadConnection()->Change(
      "DELETE FROM reload_request WHERE action = :v1 AND id <= CAST(:v2 AS INTEGER)",
      {action, Text(through)});
}

std::int64_t SqlReloadStore::Begin(const ReloadRun& run) {
  return mgr_db::ThreadConnection()->Insert(
      "INSERT INTO reload_run (grp, hard, through, began, ended, failures, result, error) "
      "VALUES (:v1, CAST(:v2 AS INTEGER), CAST(:v3 AS INTEGER), CAST(:v4 AS INTEGER), 0, "
      "CAST(:v5 AS INTEGER), 0, '') RETURNING id",
      {run.group, Text(run.hard ? 1 : 0), Text(run.through), Text(run.began), Text(run.failures)});
}

void SqlReloadStore::End(const ReloadRun& run) {
  const auto connection = mgr_db::ThreadConnection();
  connection->Change(
      "UPDATE reload_run SET ended = CAST(:v1 AS INTEGER), failures = CAST(:v2 AS INTEGER), "
      "result = CAST(:v3 AS INTEGER), error = :v4 WHERE id = CAST(:v5 AS INTEGER)",
      {Text(run.ended), Text(run.failures), Text(run.result), run.error, Text(run.id)});
  connection->Change(
      "DELETE FROM reload_run WHERE grp = :v1 AND id NOT IN (SELECT id FROM reload_run "
      "WHERE grp = :v2 ORDER BY id DESC LIMIT CAST(:v3 AS INTEGER))",
      {run.group, run.group, Text(kKeptRuns)});
}

std::vector<ReloadRun> SqlReloadStore::Runs(const std::string& group) {
  std::vector<ReloadRun> runs;
  for (const Row& row : mgr_db::ThreadConnection()->Query(
           "SELECT id, grp, hard, through, began, ended, failures, result, error FROM reload_run "
           "WHERE :v1 = '' OR grp = :v2 ORDER BY id DESC",
           {group, group}, 9)) {
    runs.push_back(RunOf(row));
  }
  return runs;
}

}  // namespace reloader
