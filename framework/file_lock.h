#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "brisq_export.h"
#include "framework/descriptor.h"

/// A lock between processes, and threads, on a file that is there for this alone. The system gives
/// it free when its holder dies. Movable.
class BRISQ_API FileLock {
 public:
  /// Takes the lock, making the file (0600) when it is missing; nothing when somebody else still
  /// has it after `patience`.
  /// @throws mgr_err::Error "file" when the file can't be opened or locked
  static std::optional<FileLock> Take(const std::string& path,
                                      std::chrono::milliseconds patience = {});

 private:
  explicit FileLock(Descriptor file) noexcept : file_(std::move(file)) {}

  Descriptor file_;
};
