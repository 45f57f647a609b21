#pragma once

#include <optional>
#include <string>
#include <vector>

#include "brisq_export.h"

class Request;

/// What requests have done, in the database: a row each, written in the transaction of its request.
/// So the row is also what tells, after a crash, that the request was committed. Works on the
/// calling thread's connection, inside of its request if there is one; every operation may throw
/// mgr_err::Error "db" or "locked".
namespace job_table {

/// States of a job.
constexpr const char* kDone = "done";
/// Its process died before the commit, and what it had done was taken back.
constexpr const char* kUndone = "undone";

struct BRISQ_API Job {
  int id = 0;           ///< given by the table
  std::string entry;    ///< the request's id, unique
  std::string name;     ///< "mailbox add", for example
  std::string who;      ///< user who asked for it
  std::string started;  ///< in UTC, "2024-01-31T23:59:59Z"
  std::string state;
  /// A journal::Text a line, each an object: a kind, "name" and words of the panel, secrets masked.
  std::string changes;
  std::string sealed;  ///< the same with its secrets, sealed; empty when there are none
  int undoes = 0;      ///< id of the job that this one has taken back; 0 for none
};

/// Makes the table when it is missing.
BRISQ_API void Create();

/// Adds a row and returns its id. Makes the table when it is missing.
BRISQ_API int Add(const Job& job);

/// Makes sure that there is a row for the request: adds one that says no more than that it is done.
BRISQ_API void Mark(const Request& request);

/// The row of a request; nothing when there is none.
BRISQ_API std::optional<Job> OfEntry(const std::string& entry);
/// The job of this number; nothing when there is none, also when it was forgotten.
BRISQ_API std::optional<Job> Find(int id);
/// The job that has taken this one back; nothing when none has.
BRISQ_API std::optional<Job> UndoneBy(int id);
/// The latest jobs, latest first.
/// @param most  how many; 0 for all
BRISQ_API std::vector<Job> Latest(int most);

/// The jobs with higher numbers that were done, oldest first.
BRISQ_API std::vector<Job> DoneAfter(int id);

/// Gives a job other words on what it has changed, as in Job::changes.
BRISQ_API void SetChanges(int id, const std::string& changes);

/// Forgets jobs that were begun before a time, as in Job::started, but for those that have an entry
/// in the journal: their rows tell a recovery what has become of them.
/// @throws also mgr_err::Error "file" when the journal can't be read
BRISQ_API void ForgetBefore(const std::string& time);

}  // namespace job_table
