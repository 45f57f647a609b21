#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"
#include "panel/job_log.h"

/// What requests have changed, and taking it back. Any thread.
namespace brisq_panel {

struct BRISQ_API JobInfo {
  int id = 0;
  std::string name;                   ///< "mailbox add", for example
  std::string who;                    ///< user who asked for it
  std::string started;                ///< in UTC, "2024-01-31T23:59:59Z"
  std::string state;                  ///< "done", "undone by job N", or "undone" by a recovery
  std::vector<ObjectChange> changes;  ///< values that may not be shown are "(hidden)"
};

/// Latest first.
/// @param most  how many; 0 for all
BRISQ_API std::vector<JobInfo> ListJobs(int most);

/// @throws mgr_err::Error "missed" with object "job"
BRISQ_API JobInfo ShowJob(int id);

/// Takes a job back by the opposite request, which becomes a job itself: what was made is deleted,
/// what was deleted is restored, what was changed gets its former values, a password its former
/// hash. All of it or, when it throws, nothing.
/// @return what the user should know, in plain words
/// @throws mgr_err::Error "missed" with object "job"; "limit" for a job that was undone already,
/// holds nothing that can be undone, or left something that was changed since; whatever the
/// opposite requests throw
BRISQ_API std::vector<std::string> UndoJob(int id);

}  // namespace brisq_panel
