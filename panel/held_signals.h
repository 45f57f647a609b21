#pragma once

#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// While one lives on a thread, INT, TERM and HUP wait: they reach the thread when the last of them
/// ends, in whatever order they do, so that Ctrl-C never leaves half of a change behind. QUIT still
/// ends the process at once. Threads that are started meanwhile inherit the mask; children do not.
/// Ends on the thread that began it.
class BRISQ_API HeldSignals {
 public:
  HeldSignals() noexcept;
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

  /// True when one that would be obeyed has come and waits for this thread: what can still be taken
  /// back may be given up. False for those that the process ignores, and when none is held.
  static bool IsOneWaiting() noexcept;
  /// @throws mgr_err::Error "later" for `what`, of which nothing was changed, when one is waiting
  static void GiveUpIfOneWaits(const std::string& what);
};

}  // namespace brisq_panel
