#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

#include "brisq_export.h"
#include "framework/conf_stamp.h"
#include "framework/descriptor.h"
#include "framework/writer_watch.h"

/// A large file's content where the system keeps it: nothing is copied until somebody is about to
/// write into the file, or a second has passed, whichever comes first. Whoever opens the file for
/// writing waits meanwhile. Afterwards it is a copy in memory at the same place: who reads notices
/// nothing. So a short process is spared fresh memory as large as the file, and a long one is in
/// nobody's way. docs/decisions/0008 tells what it rests on. Any thread; a forked child may do
/// nothing but destroy it.
class BRISQ_API ConfMapping {
 public:
  /// Bytes from which on mapping pays.
  static constexpr std::size_t kLeast = std::size_t{8} << 20;
  using Duration = std::chrono::milliseconds;
  /// How long the file is kept from being written when nobody waits to; the copy takes its time
  /// after that.
  static constexpr Duration kLongest{1000};

  /// Maps an open file as it is at this moment.
  /// @param file  open for reading; stays the caller's, who makes no WriterWatch for it from now
  /// on: both share one lease
  /// @return null where that can't be done: an empty file, one that somebody writes into, a file
  /// system that holds no writers off, a file that can't be read whole, no thread left
  static std::unique_ptr<ConfMapping> Of(int file, Duration longest = kLongest);
  /// Nobody reads by now.
  ~ConfMapping();
  ConfMapping(const ConfMapping&) = delete;
  ConfMapping& operator=(const ConfMapping&) = delete;

  /// The same as long as the object lives.
  std::string_view View() const noexcept { return {place_, size_}; }
  /// Of the file that was mapped.
  const ConfStamp& stamp() const noexcept { return stamp_; }
  /// True when the file is no longer needed.
  bool IsCopied() const;

  /// Gives memory back from the beginning up to `end`, in large pages; who reads there all the same
  /// waits for the disk. Does nothing to a copy.
  void Forget(std::size_t end) noexcept;

 private:
  ConfMapping(Descriptor file, Duration longest);
  bool Map();
  bool TouchAll();
  bool IsAsItWas() const noexcept;
  void StartKeeper();
  void EndKeeper() noexcept;
  void Keep() noexcept;
  bool IsDone() noexcept;
  bool TakeCopy() noexcept;
  bool ReadInto(char* copy) const noexcept;

  using Clock = std::chrono::steady_clock;

  const pid_t owner_;
  const Clock::time_point end_;
  Descriptor file_;
  std::unique_ptr<WriterWatch> watch_;  // null for a copy
  ConfStamp stamp_;
  char* place_ = nullptr;
  char* copy_ = nullptr;  // space for the copy until it is made
  std::size_t size_ = 0;
  std::size_t forgotten_ = 0;
  bool failed_ = false;  // the last try at a copy, in the keeper

  mutable std::mutex mutex_;
  std::atomic<bool> ended_{false};
  Descriptor end_of_keeper_;  // an event, as a condition can't be destroyed in a forked child
  std::unique_ptr<std::thread> keeper_;
};
