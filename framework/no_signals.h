#pragma once

#include <csignal>

/// While it lives the calling thread takes no signals, nor do the threads that it starts, for all
/// of their life: signals are for the process's own threads.
class NoSignals {
 public:
  NoSignals() noexcept {
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~NoSignals() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  NoSignals(const NoSignals&) = delete;
  NoSignals& operator=(const NoSignals&) = delete;

 private:
  sigset_t before_;
};
