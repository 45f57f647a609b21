#pragma once

#include <atomic>
#include <cstdint>
#include <ctime>

/// Tells whether a look at a file is so recent that, for who can do with it, it need not be
/// repeated. Cheap enough to be asked for each line. Any thread.
class RecentLook {
 public:
  /// True before the first look, and when the last one is 5 ms ago (to a step of the system's
  /// coarse clock, 10 ms at most).
  bool IsOld() const noexcept { return Now() - at_.load(std::memory_order_relaxed) >= kRecent; }
  /// The time of a look that begins, for who does not know yet whether it will succeed.
  static std::int64_t Now() noexcept {
    struct timespec now {};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
  }
  void Renew(std::int64_t at = Now()) noexcept { at_.store(at, std::memory_order_relaxed); }

 private:
  static constexpr std::int64_t kRecent = 5'000'000;  // nanoseconds

  std::atomic<std::int64_t> at_{-kRecent};
};
