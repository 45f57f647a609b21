#pragma once

#include <functional>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/journal.h"

/// What becomes of requests whose process has died.
///
/// A request that was committed is brought to its end: what only an undo needed is removed, and the
/// calls and commands that were to follow the commit are made (again, when the process died behind
/// one of them, or failed at another). A call that fails stays owed, and is made by the next
/// recovery, unless it can never work (framework/owed_call.h). Any other is undone, step by step
/// from the last to the first; each step looks whether things are as the step has left them, so
/// what somebody else has changed since stays. A step that was dealt with is noted in the entry and
/// never taken back again; one that is refused is tried again by the next recovery, unless a later
/// job has touched the same thing by then. A recovery that is itself killed goes on where it was.
namespace journal {

struct BRISQ_API Recovered {
  std::string entry;  ///< its id
  int job = 0;        ///< number in the table of jobs
  std::string request;
  std::string who;
  std::string started;
  bool committed = false;            ///< finished rather than undone
  bool lines_undone = false;         ///< lines of files may have been taken back, and nobody told
  bool files_undone = false;         ///< the same of files or links
  std::vector<std::string> left;     ///< what stays because somebody else has changed it since
  std::vector<std::string> lost;     ///< what stays because it can't be undone any more, and why
  std::vector<std::string> dropped;  ///< owed calls that can never work, and why
  std::vector<std::string> failed;   ///< what was refused: the entry stays for the next recovery
};

/// Recovers every entry that no process holds, with the database's write lock, so that no other
/// request goes on meanwhile. The calling thread has no request.
/// @param before_removal  called when an entry has been dealt with and its outcome is committed,
/// before the entry goes; when it throws the entry stays and the error is one of `failed`
/// @throws mgr_err::Error "db", "locked", "file": not all entries were dealt with, and no request
/// must change anything before that has been done
BRISQ_API std::vector<Recovered> RecoverDead(
    const std::function<void(const Recovered&)>& before_removal);

/// One sentence on it, for the log and the user.
BRISQ_API std::string Words(const Recovered& recovered);

}  // namespace journal
