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
/// one of them). Any other is undone, step by step from the last to the first; each step looks
/// whether things are as the step has left them, so what somebody else has changed since stays, and
/// a recovery that is itself killed is done again from its beginning.
namespace journal {

struct BRISQ_API Recovered {
  int job = 0;  ///< number in the table of jobs; 0 when that could not be written
  std::string request;
  std::string who;
  std::string started;
  bool committed = false;           ///< finished rather than undone
  bool lines_undone = false;        ///< lines of configuration files were taken back
  bool files_undone = false;        ///< files or links may have been taken back
  std::vector<std::string> left;    ///< what stays because somebody else has changed it since
  std::vector<std::string> failed;  ///< what was refused: the entry stays for the next recovery
};

/// Recovers every entry that no process holds, with the database's write lock, so that no other
/// request goes on meanwhile. The calling thread has no request.
/// @param before_removal  called when an entry has been dealt with and its outcome is committed,
/// before the entry goes; may throw, then it stays
/// @throws mgr_err::Error "db", "locked", "file"; what `before_removal` throws
BRISQ_API std::vector<Recovered> RecoverDead(
    const std::function<void(const Recovered&)>& before_removal);

/// One sentence on it, for the log and the user.
BRISQ_API std::string Words(const Recovered& recovered);

}  // namespace journal
