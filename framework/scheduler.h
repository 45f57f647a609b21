#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "brisq_export.h"

namespace periodic {

/// One registration of periodic::RegisterAction.
struct Entry {
  std::string action;
  std::string params;
  std::string period_param;
};

/// All registrations, in the order of action and parameters. Any thread.
BRISQ_API std::vector<Entry> Registered();

/// Forgets all registrations.
BRISQ_API void Reset();

/// Runs the registered actions at their periods, one by one, on the thread that calls Run.
///
/// An entry's first turn comes one period after the scheduler has met it, each further one a period
/// after the last has begun; turns that passed while something else ran are made up for by one. A
/// period, or a registration, that changes meanwhile is taken up within a minute.
class BRISQ_API Scheduler {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Clock = std::function<Time()>;
  /// Waits until that time, or less; false when the scheduler is to stop.
  using Waiter = std::function<bool(Time until)>;

  /// Stops when `stop` is readable: a signalfd, an eventfd, a pipe. It is not read.
  /// @param look   called on the thread of Run before it looks at registrations and periods again
  /// @param every  the longest time between two such looks
  Scheduler(int stop, std::function<void()> look, std::chrono::milliseconds every);
  Scheduler(Clock clock, Waiter waiter);
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  /// Returns when it is to stop, after the action that goes on and the commands that it queued by
  /// brisq_api::ExecuteLater. What an action throws is logged.
  void Run();

 private:
  using Key = std::pair<std::string, std::string>;  // action and parameters

  Time RunDue();
  void Meet(const std::vector<Entry>& entries);

  Clock clock_;
  Waiter waiter_;
  std::map<Key, Time> since_;  // the last turn's beginning, or when the entry was met
};

}  // namespace periodic
