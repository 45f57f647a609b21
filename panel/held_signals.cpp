#include "panel/held_signals.h"

#include <algorithm>
#include <array>
#include <csignal>

#include "mgr_err.h"

namespace brisq_panel {

namespace {

constexpr std::array kHeld = {SIGINT, SIGTERM, SIGHUP};

struct Holding {
  int holders = 0;
  sigset_t before{};  ///< the mask without any holder
};
thread_local Holding holding;

// A blocked signal waits even when nobody wants to know of it, as under nohup.
bool IsIgnored(int signal) {
  struct sigaction action {};
  return ::sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

HeldSignals::HeldSignals() noexcept {
  if (holding.holders++ > 0) {
    return;
  }
  sigset_t held;
  sigemptyset(&held);
  for (const int signal : kHeld) {
    sigaddset(&held, signal);
  }
  pthread_sigmask(SIG_BLOCK, &held, &holding.before);
}

HeldSignals::~HeldSignals() {
  if (--holding.holders == 0) {
    pthread_sigmask(SIG_SETMASK, &holding.before, nullptr);
  }
}

bool HeldSignals::IsOneWaiting() noexcept {
  sigset_t waiting;
  sigemptyset(&waiting);
  sigpending(&waiting);
  return holding.holders > 0 && std::any_of(kHeld.begin(), kHeld.end(), [&](int signal) {
           return sigismember(&waiting, signal) == 1 && !IsIgnored(signal);
         });
}

void HeldSignals::GiveUpIfOneWaits(const std::string& what) {
  if (IsOneWaiting()) {
    throw mgr_err::Error("later", what, "interrupted, nothing was changed");
  }
}

}  // namespace brisq_panel
