#include "framework/job_table.h"

#include "framework/database.h"
#include "framework/journal.h"
#include "framework/request.h"
#include "framework/utc.h"
#include "str.h"

namespace job_table {

namespace {

using Row = mgr_db::Connection::Row;

constexpr const char* kColumns =
    "id, entry, name, who, started, state, changes, sealed, undoes FROM job ";
constexpr std::size_t kCount = 9;

Job JobOf(const Row& row) {
  return {str::Int(row[0]), row[1], row[2], row[3],          row[4],
          row[5],           row[6], row[7], str::Int(row[8])};
}

std::vector<Job> Select(const std::string& rest, const Row& values) {
  std::vector<Job> jobs;
  for (const Row& row : mgr_db::ThreadConnection()->Query(std::string("SELECT ") + kColumns + rest,
                                                          values, kCount)) {
    jobs.push_back(JobOf(row));
  }
  return jobs;
}

std::optional<Job> First(const std::string& rest, const Row& values) {
  const std::vector<Job> jobs = Select(rest, values);
  return jobs.empty() ? std::nullopt : std::optional(jobs.front());
}

}  // namespace

void Create() {
  const auto connection = mgr_db::ThreadConnection();
  // AUTOINCREMENT: a number that was told to somebody must never mean another job.
  connection->Change(
      "CREATE TABLE IF NOT EXISTS job (id INTEGER PRIMARY KEY AUTOINCREMENT, "
      "entry TEXT NOT NULL UNIQUE, name TEXT NOT NULL, who TEXT NOT NULL, started TEXT NOT NULL, "
      "state TEXT NOT NULL, changes TEXT NOT NULL, sealed TEXT NOT NULL, undoes INTEGER NOT NULL)");
  // Each request looks for what is old enough to be forgotten.
  connection->Change("CREATE INDEX IF NOT EXISTS job_started ON job (started)");
}

int Add(const Job& job) {
  Create();
  return mgr_db::ThreadConnection()->Insert(
      "INSERT INTO job (entry, name, who, started, state, changes, sealed, undoes) VALUES "
      "(:v1, :v2, :v3, :v4, :v5, :v6, :v7, CAST(:v8 AS INTEGER)) RETURNING id",
      {job.entry, job.name, job.who, job.started, job.state, job.changes, job.sealed,
       std::to_string(job.undoes)});
}

void Mark(const Request& request) {
  Create();
  if (!OfEntry(request.id())) {
    Add({0,
         request.id(),
         request.name(),
         request.who(),
         UtcText(request.started()),
         kDone,
         {},
         {},
         0});
  }
}

std::optional<Job> OfEntry(const std::string& entry) { return First("WHERE entry = :v1", {entry}); }

std::optional<Job> Find(int id) {
  return First("WHERE id = CAST(:v1 AS INTEGER)", {std::to_string(id)});
}

std::optional<Job> UndoneBy(int id) {
  return First("WHERE undoes = CAST(:v1 AS INTEGER) ORDER BY id DESC", {std::to_string(id)});
}

std::vector<Job> Latest(int most) {
  return Select("ORDER BY id DESC LIMIT CAST(:v1 AS INTEGER)",
                {std::to_string(most == 0 ? -1 : most)});
}

std::vector<Job> DoneAfter(int id) {
  return Select("WHERE id > CAST(:v1 AS INTEGER) AND state = :v2 ORDER BY id",
                {std::to_string(id), kDone});
}

void SetChanges(int id, const std::string& changes) {
  mgr_db::ThreadConnection()->Change("UPDATE job SET changes = :v1 WHERE id = CAST(:v2 AS INTEGER)",
                                     {changes, std::to_string(id)});
}

void ForgetBefore(const std::string& time) {
  // Each request asks, and hardly ever is there anything: the journal need not be read for that.
  if (mgr_db::ThreadConnection()
          ->Query("SELECT 1 FROM job WHERE started < :v1 LIMIT 1", {time}, 1)
          .empty()) {
    return;
  }
  Row values = {time};
  std::string kept;
  for (const std::string& entry : journal::Ids()) {
    values.push_back(entry);
    kept += (kept.empty() ? ":v" : ", :v") + std::to_string(values.size());
  }
  mgr_db::ThreadConnection()->Change(
      "DELETE FROM job WHERE started < :v1 AND entry NOT IN (" + kept + ")", values);
}

}  // namespace job_table
