#pragma once

#include <csignal>

#include "brisq_export.h"

namespace brisq_panel {

/// While it lives, INT, TERM and HUP wait: they reach this thread when it ends, so that Ctrl-C
/// never leaves half of a change behind. QUIT still ends the process at once. Threads that are
/// started meanwhile inherit the mask; children do not.
class BRISQ_API HeldSignals {
 public:
  HeldSignals() noexcept;
  ~HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;

 private:
  sigset_t before_;
};

}  // namespace brisq_panel
