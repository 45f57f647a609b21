#pragma once

#include <chrono>
#include <string>

#include "brisq_export.h"
#include "framework/descriptor.h"
#include "framework/safe_replace.h"
#include "framework/sys.h"

/// Longest time that a save waits for others: another process's save, or somebody who is writing
/// into the file. 10 seconds unless set.
BRISQ_API std::chrono::milliseconds ConfWaitLimit() noexcept;
BRISQ_API void SetConfWaitLimit(std::chrono::milliseconds limit) noexcept;

/// Name and number of a process, as "PID n (command)"; "PID n, which has ended," for one that has,
/// "an unknown process" for 0.
BRISQ_API std::string DescribeProcess(long pid);

/// Why a file that somebody writes into can't be used, naming who does.
BRISQ_API std::string BeingEdited(const struct stat& file);

/// The processes that have a file open for writing, in words.
BRISQ_API std::string DescribeWriters(const struct stat& file);

/// Excludes all other savers of a file, threads and processes, while it lives.
///
/// The lock is on a file beside the target, ".NAME.brisq-lock", which is never removed. Its first
/// line holds the number of the process that had the lock last; while a file is exchanged a second
/// line tells by what stamp the old one is known. The system gives the lock free when its holder
/// dies.
class BRISQ_API ConfLock {
 public:
  /// @throws mgr_err::Error "locked" after the time limit, naming the holder; "file"
  explicit ConfLock(const safe_replace::Target& target);

  /// Notes, ahead of an exchange, which file is meant to go and which one comes, for the case that
  /// we are killed.
  void NoteExchange(const ConfStamp& old, const ConfStamp& fresh) noexcept;
  /// Notes that nothing is left of an exchange, the one of a killed holder included.
  void NoteDone() noexcept;
  /// True when the last holder was killed during an exchange, and a file that it left, known by
  /// this stamp, holds somebody's edit: it is neither the old file nor the new one.
  bool LeftAnEdit(const ConfStamp& left) const;

 private:
  void Take(const std::string& path);
  std::string Busy(std::chrono::milliseconds waited) const;
  void Put(const std::string& text, std::size_t at) noexcept;

  Descriptor file_;
  std::string left_;  // what the last holder had noted
};
