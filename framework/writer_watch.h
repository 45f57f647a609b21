#pragma once

#include "brisq_export.h"

/// Tells who writes into a file, and holds off who begins to while it lives: opening the file for
/// writing waits until then. Needs the file's owner or root, and a file system with leases.
class BRISQ_API WriterWatch {
 public:
  enum class State { kFree, kWritten, kUnknown };

  /// @param fd  open for reading, and for longer than this object lives
  explicit WriterWatch(int fd) noexcept;
  ~WriterWatch();
  WriterWatch(const WriterWatch&) = delete;
  WriterWatch& operator=(const WriterWatch&) = delete;

  /// Whether somebody had the file open for writing at construction.
  State state() const noexcept { return state_; }
  /// True when somebody waits to open the file for writing.
  bool Disturbed() const noexcept;

 private:
  int fd_;
  State state_;
};
