#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "framework/sys.h"

namespace support {

/// Watches the system calls of the configuration files' engine while it lives, and makes them fail
/// as told. One at a time.
class SysFault : public sys::Hook {
 public:
  SysFault() : before_(sys::SetHook(this)) {}
  ~SysFault() override { sys::SetHook(before_); }
  SysFault(const SysFault&) = delete;
  SysFault& operator=(const SysFault&) = delete;

  /// Every call named `call` fails with this errno; 0 lets them happen again.
  void FailCall(std::string call, int error);
  /// The call with this number fails, counted from 1 at this moment on; with `onwards` all later
  /// ones too.
  void FailNumber(std::size_t number, int error, bool onwards);
  /// Called before each call, with its name and its number. To be set before calls are made.
  void OnCall(std::function<void(std::string_view, std::size_t)> look) { look_ = std::move(look); }
  /// Writes take this many bytes at most.
  void CutWrites(std::size_t bytes) { cut_ = bytes; }

  /// Calls since the object was made or FailNumber was called.
  std::size_t Calls() const { return calls_; }
  /// True when a call has been made to fail.
  bool Failed() const { return failed_; }

  int Before(const char* call) override;
  std::size_t Cut(std::size_t bytes) override { return std::min(bytes, cut_.load()); }

 private:
  bool Refuses(const char* call, std::size_t number) const;

  sys::Hook* before_;
  std::atomic<std::size_t> calls_ = 0;
  std::atomic<bool> failed_ = false;
  std::atomic<std::size_t> cut_ = static_cast<std::size_t>(-1);
  std::function<void(std::string_view, std::size_t)> look_;
  mutable std::mutex mutex_;  // for what follows
  std::string failing_;
  std::size_t from_ = 0;
  bool onwards_ = false;
  int error_ = 0;
};

}  // namespace support
