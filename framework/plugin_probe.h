#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

#include "brisq_export.h"
#include "framework/descriptor.h"

/// An attempt that is made in a child process, forked for it with its standard streams on
/// "/dev/null", while the caller goes on. The child is gone when the object is. For one thread.
class BRISQ_API TrialRun {
 public:
  /// Starts the child.
  /// @param limit_seconds  how long it may take from now on
  /// @throws mgr_err::Error "plugin" when no child can be made
  TrialRun(const std::function<std::string()>& attempt, int limit_seconds);
  ~TrialRun();
  TrialRun(const TrialRun&) = delete;
  TrialRun& operator=(const TrialRun&) = delete;

  /// Waits for the text that `attempt` returns. When the child ends before that, or has not come to
  /// an end in time (it is killed then), the text says so. An exception that leaves `attempt`, or
  /// that ends the child, is told with its words. To be asked once.
  std::string Answer();

 private:
  int End() noexcept;

  const int limit_seconds_;
  const std::chrono::steady_clock::time_point deadline_;
  Descriptor in_;
  pid_t child_ = -1;  // -1 when it is gone
};
