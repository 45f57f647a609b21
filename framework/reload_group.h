#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/reload_run.h"
#include "framework/reload_store.h"

namespace reloader {

/// What is going on with one group.
struct GroupStatus {
  enum class State {
    kIdle,     ///< nothing to do
    kWaiting,  ///< requests wait for the delay to end, or for a process that serves them
    kRunning,  ///< a run goes on
    kFailed    ///< the last run failed and will be tried again
  };

  std::string group;
  State state = State::kIdle;
  std::size_t requests = 0;       ///< that no good run has served yet
  std::optional<ReloadRun> last;  ///< the last run that has ended
  Milliseconds next_try = 0;      ///< when a failed run is due again; 0 when none is
};

/// The requests of one group that wait, and what was done for them last. A value.
struct BRISQ_API Group {
  std::string name;
  std::vector<ReloadRequest> requests;  ///< oldest first; not empty
  std::optional<ReloadRun> last;        ///< the newest run, ended or cut off

  /// The groups of which requests of these actions wait, in the order of their names.
  static std::vector<Group> Waiting(ReloadStore& store, const std::vector<ReloadCommands>& actions);

  /// The oldest request that no run has tried to serve; null when there is none.
  const ReloadRequest* Fresh() const;

  /// Milliseconds until a run is due, 0 for now: a fresh request waits for the delay of its action,
  /// a failed run for its pause, one that was cut off for nothing. A clock that was set back makes
  /// it due at once.
  Milliseconds DueIn(Milliseconds now, const std::vector<ReloadCommands>& actions) const;

  /// A run for all of its requests, as it is to be noted before it begins.
  ReloadRun NextRun(Milliseconds now) const;
};

/// Pause before a failed run is tried again: 5 seconds, doubled by each further failure in a row up
/// to 5 minutes.
BRISQ_API Milliseconds PauseAfter(int failures);

/// Status of the groups that these actions or the store know, in the order of their names.
/// @param running  a run of any group goes on
BRISQ_API std::vector<GroupStatus> StatusOfGroups(ReloadStore& store,
                                                  const std::vector<ReloadCommands>& actions,
                                                  bool running);

}  // namespace reloader
