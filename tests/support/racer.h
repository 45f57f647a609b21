#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>

namespace support {

/// A child process that repeats one step as fast as it can, as an ordinary user, until the object
/// dies: what a user does who works against the administrator.
///
/// For tests that run as root. `step` must make system calls only: the child is forked.
class Racer {
 public:
  Racer(uid_t uid, const std::function<void()>& step);
  ~Racer();
  /// Returns when the user has made a whole step since the call, on however busy a machine. For
  /// controls: between the look and the change of code that trusts what it saw.
  /// \throws std::runtime_error  the user made none within a minute
  void WaitForStep() const;

  Racer(const Racer&) = delete;
  Racer& operator=(const Racer&) = delete;

 private:
  std::atomic<unsigned>* steps_;  // in memory that is shared with the child
  pid_t child_;
};

}  // namespace support
