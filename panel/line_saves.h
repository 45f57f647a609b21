#pragma once

#include <functional>
#include <vector>

#include "brisq_export.h"
#include "framework/conf_defer.h"
#include "panel/held_signals.h"

namespace brisq_panel {

/// While it lives, all lines of the mail server's file that this thread posts are saved together by
/// Save, as in a scope of DeferSaves, and what needs them in the file waits for that. An inner
/// scope does nothing of its own. To be begun before the request, so that lines which one that
/// fails takes back cost one save at the most; signals are held for that long.
class BRISQ_API LineSaves {
 public:
  LineSaves();
  /// Saves what is not saved yet, and drops the calls that waited.
  ~LineSaves();
  LineSaves(const LineSaves&) = delete;
  LineSaves& operator=(const LineSaves&) = delete;

  /// Saves, makes the calls that waited, and saves what they have posted. In a request it is
  /// only noted that a save may not outlive a power failure.
  /// @throws as DeferSaves::Save, and what the calls throw
  void Save();

  static bool Active() noexcept;

  /// Calls `work` when everything that this thread has posted is in the file: by Save, or at once
  /// outside of a scope.
  static void WhenSaved(std::function<void()> work);

 private:
  const bool outermost_;
  const HeldSignals held_;
  DeferSaves saves_{DeferSaves::Between::kNever};
  std::vector<std::function<void()>> waiting_;
};

}  // namespace brisq_panel
