#include "framework/scheduler.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <optional>

#include "brisq_api.h"
#include "framework/due.h"
#include "framework/number.h"
#include "mgr_cf.h"
#include "mgr_log.h"

namespace periodic {

namespace {

mgr_log::Module log_channel("periodic", "brisq");

constexpr std::chrono::minutes kLook{1};
constexpr double kLongestPeriod = 366.0 * 24 * 60;

// The current period; nothing while the action is not to run.
std::optional<std::chrono::milliseconds> PeriodOf(const Entry& entry) {
  const std::optional<double> minutes = ReadNumber(mgr_cf::GetParam(entry.period_param));
  if (!minutes || *minutes <= 0) {
    return std::nullopt;
  }
  return std::chrono::ceil<std::chrono::milliseconds>(
      std::chrono::duration<double, std::ratio<60>>(std::min(*minutes, kLongestPeriod)));
}

void LogFailure(const Entry& entry, const char* reason) {
  if (log_channel.Check(mgr_log::kError)) {
    log_channel.Write(mgr_log::kError, "action %s failed: %s", entry.action.c_str(), reason);
  }
}

void RunAction(const Entry& entry) {
  if (log_channel.Check(mgr_log::kDebug)) {
    log_channel.Write(mgr_log::kDebug, "run action %s", entry.action.c_str());
  }
  try {
    brisq_api::InternalCall(entry.action, entry.params);
    due::RunQueuedCommands();
  } catch (const std::exception& error) {
    LogFailure(entry, error.what());
  } catch (...) {
    LogFailure(entry, "unknown exception");
  }
}

// Waits for `stop`; rounded up, so that nothing is looked at just before its time.
bool WaitUnless(int stop, Scheduler::Time until) {
  using std::chrono::milliseconds;
  while (true) {
    const auto left = std::chrono::ceil<milliseconds>(until - std::chrono::steady_clock::now());
    const milliseconds wait = std::clamp<milliseconds>(left, milliseconds(0), kLook);
    pollfd watched = {stop, POLLIN, 0};
    const int ready = ::poll(&watched, 1, static_cast<int>(wait.count()));
    if (ready >= 0 || errno != EINTR) {
      return ready == 0;
    }
  }
}

}  // namespace

Scheduler::Scheduler(int stop, std::function<void()> look, std::chrono::milliseconds every)
    : Scheduler([] { return std::chrono::steady_clock::now(); },
                [stop, look = std::move(look), every](Time until) {
                  if (!WaitUnless(stop, std::min(until, std::chrono::steady_clock::now() + every)))
                    return false;
                  look();
                  return true;
                }) {}

Scheduler::Scheduler(Clock clock, Waiter waiter)
    : clock_(std::move(clock)), waiter_(std::move(waiter)) {}

void Scheduler::Run() {
  while (waiter_(RunDue())) {
  }
}

// Runs the first action that is due, if any, and returns when to look again.
Scheduler::Time Scheduler::RunDue() {
  const std::vector<Entry> entries = Registered();
  Meet(entries);
  Time next = clock_() + kLook;
  for (const Entry& entry : entries) {
    const std::optional<std::chrono::milliseconds> period = PeriodOf(entry);
    if (!period) {
      continue;
    }
    Time& since = since_[{entry.action, entry.params}];
    if (since + *period <= clock_()) {
      since = clock_();
      RunAction(entry);
      // The others are looked at after the one who waits has seen whether to stop.
      return clock_();
    }
    next = std::min(next, since + *period);
  }
  return next;
}

// Begins the first periods of new entries and forgets those that are gone.
void Scheduler::Meet(const std::vector<Entry>& entries) {
  std::map<Key, Time> since;
  for (const Entry& entry : entries) {
    const Key key(entry.action, entry.params);
    const auto known = since_.find(key);
    since[key] = known == since_.end() ? clock_() : known->second;
  }
  since_ = std::move(since);
}

}  // namespace periodic
