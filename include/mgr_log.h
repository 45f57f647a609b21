#pragma once

#include <memory>

#include "brisq_export.h"

/// Logs: one file for each log name, a level for each module.
namespace mgr_log {

/// Levels in use. A message is written when its level is not above the level configured for its
/// module.
enum Level : int { kError = 3, kWarning = 4, kInfo = 6, kDebug = 9 };

/// A channel: messages of one module into one log.
///
/// Meant for objects at file scope: construction and destruction touch no file and may happen while
/// a library is loaded or unloaded. The file "LOG.log" in the configured directory is opened by the
/// first message that is written; before logging is configured messages of level 4 and below go to
/// standard error, others are dropped. All operations may be called from any thread; messages of
/// several threads and processes are not mixed within a line.
class BRISQ_API Module {
 public:
  /// @param module  name under which the level is configured, for example "email"
  /// @param log     name of the log, for example "dormel"
  Module(const char* module, const char* log);
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  /// True when a message of `level` would be written. Cheap: one load of an atomic.
  bool Check(int level) const noexcept;

  /// Writes one message, formed as by printf, as one line with time, process, level and module in
  /// front. Control characters are escaped, so that a message never makes a second line. Does not
  /// test the level: guard each call by Check(level). A log that can't be written never fails the
  /// caller: the line goes to standard error instead.
  void Write(int level, const char* format, ...) __attribute__((format(printf, 3, 4)));

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace mgr_log
