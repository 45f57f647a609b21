#include "framework/sigpipe_guard.h"

#include <cerrno>
#include <ctime>

namespace mgr_proc {

namespace {

sigset_t Sigpipe() noexcept {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGPIPE);
  return set;
}

bool IsPending() noexcept {
  sigset_t pending;
  sigemptyset(&pending);
  sigpending(&pending);
  return sigismember(&pending, SIGPIPE) == 1;
}

}  // namespace

SigpipeGuard::SigpipeGuard() noexcept : was_pending_(IsPending()), old_mask_() {
  const sigset_t set = Sigpipe();
  pthread_sigmask(SIG_BLOCK, &set, &old_mask_);
}

SigpipeGuard::~SigpipeGuard() {
  if (!was_pending_) {
    const sigset_t set = Sigpipe();
    const timespec at_once = {};
    while (sigtimedwait(&set, nullptr, &at_once) < 0 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
}

}  // namespace mgr_proc
