#include "panel/held_signals.h"

#include <initializer_list>

namespace brisq_panel {

HeldSignals::HeldSignals() noexcept : before_() {
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&held, signal);
  }
  pthread_sigmask(SIG_BLOCK, &held, &before_);
}

HeldSignals::~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace brisq_panel
