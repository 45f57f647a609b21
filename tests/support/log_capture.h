#pragma once

#include <string>
#include <vector>

#include "tests/support/temp_dir.h"

namespace support {

/// One line of a log, taken apart.
struct LogLine {
  std::string log;     ///< name of the log, "dormel" for dormel.log
  std::string level;   ///< "error", "warning", "info" or "debug"
  std::string module;  ///< the module that wrote it
  std::string text;    ///< the message

  /// "LEVEL MODULE: TEXT", for comparing whole messages and for failures.
  std::string Short() const { return level + " " + module + ": " + text; }
};

/// Sends the logs of this process to a private directory while it lives, every module at `level`.
///
/// At its end each error line that no ExpectError took fails the running test, and so does each
/// ExpectError that no line met: an error that nobody expected is a fault even when the test's own
/// checks pass.
class LogCapture {
 public:
  explicit LogCapture(int level = 9);
  ~LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;

  /// Takes exactly one error line, written before or after, that contains `part`.
  void ExpectError(const std::string& part) { expected_.push_back(part); }

  /// What has been written so far to one log, oldest line first.
  std::vector<LogLine> Lines(const std::string& log = "dormel") const;
  /// The same as Short() texts.
  std::vector<std::string> Messages(const std::string& log = "dormel") const;
  /// Lines of all logs, log by log in name order.
  std::vector<LogLine> AllLines() const;
  /// Forgets what has been written so far, error lines included.
  void Clear();

  const std::string& directory() const { return directory_.path(); }

 private:
  TempDir directory_;
  std::vector<std::string> expected_;
};

}  // namespace support
