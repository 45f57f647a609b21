#pragma once

#include <mutex>

#include "brisq_export.h"

/// Locks between threads of one process.
namespace mgr_thread {

/// A mutual exclusion lock that is held through SafeSection only. Not recursive.
class BRISQ_API SafeLock {
 public:
  SafeLock() = default;
  SafeLock(const SafeLock&) = delete;
  SafeLock& operator=(const SafeLock&) = delete;

 private:
  friend class SafeSection;
  std::mutex mutex_;
};

/// Holds a SafeLock from construction to destruction; construction waits until the lock is free.
class BRISQ_API SafeSection {
 public:
  explicit SafeSection(SafeLock& lock) : guard_(lock.mutex_) {}
  SafeSection(const SafeSection&) = delete;
  SafeSection& operator=(const SafeSection&) = delete;

 private:
  std::lock_guard<std::mutex> guard_;
};

}  // namespace mgr_thread
