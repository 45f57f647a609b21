#pragma once

#include <sys/types.h>

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
  Racer(const Racer&) = delete;
  Racer& operator=(const Racer&) = delete;

 private:
  pid_t child_;
};

}  // namespace support
