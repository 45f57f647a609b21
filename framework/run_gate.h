#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

#include "brisq_export.h"
#include "framework/file_lock.h"

namespace reloader {

/// Lets one holder in at a time, among the threads of this process and, by a lock file, among
/// processes. Any thread.
class BRISQ_API RunGate {
 public:
  /// Being inside, for the object's life; must not outlive the gate.
  class BRISQ_API Pass {
   public:
    Pass(Pass&& other) noexcept;
    Pass& operator=(Pass&&) = delete;
    ~Pass();

   private:
    friend class RunGate;
    explicit Pass(RunGate& gate) noexcept : gate_(&gate) {}

    RunGate* gate_;
    std::optional<FileLock> file_;
  };

  /// Lets the caller in, or gives nothing when others are inside for longer than `patience`.
  /// @param lock_file  empty when there are no other processes
  /// @throws mgr_err::Error "file" for the lock file
  std::optional<Pass> Enter(const std::string& lock_file, std::chrono::milliseconds patience);

 private:
  void Leave() noexcept;

  std::mutex mutex_;
  std::condition_variable left_;
  bool inside_ = false;
};

}  // namespace reloader
