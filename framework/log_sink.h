#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "brisq_export.h"
#include "framework/log_setup.h"

namespace mgr_log {

/// Where the messages of one log go. Any thread.
class BRISQ_API Sink {
 public:
  virtual ~Sink();
  /// Writes one line with time, process, level and module in front. Neither text holds a
  /// line break.
  virtual void Write(std::string_view module, int level, std::string_view text) = 0;
};

/// The file NAME.log of `setup`. What can't be written there goes to standard error; so does, once
/// until a line has been written again, the reason.
BRISQ_API std::unique_ptr<Sink> FileSink(const Setup& setup, const std::string& log);

/// Standard error, for messages of level 4 and below; others are dropped.
BRISQ_API std::unique_ptr<Sink> StandardErrorSink();

}  // namespace mgr_log
