#pragma once

#include <csignal>

#include "brisq_export.h"

namespace mgr_proc {

/// While it lives, a write to a pipe that nobody reads fails with EPIPE on this thread and does
/// nothing else: the signal is held back and, when it came meanwhile, taken away at the end. The
/// process's dispositions, other threads and a SIGPIPE that was pending before are left alone.
class BRISQ_API SigpipeGuard {
 public:
  SigpipeGuard() noexcept;
  ~SigpipeGuard();
  SigpipeGuard(const SigpipeGuard&) = delete;
  SigpipeGuard& operator=(const SigpipeGuard&) = delete;

 private:
  bool was_pending_;
  sigset_t old_mask_;
};

}  // namespace mgr_proc
