#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>

#include "brisq_export.h"
#include "framework/conf_bytes.h"
#include "framework/descriptor.h"
#include "framework/sys.h"

/// By what a file is known to be the one that was read: it is another one, or has been changed,
/// when any of these differs.
struct BRISQ_API ConfStamp {
  bool exists = false;
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modified = 0;  // nanoseconds since 1970
  std::int64_t changed = 0;

  static ConfStamp Of(const struct stat& info) noexcept;
  bool operator==(const ConfStamp&) const = default;
  /// Equality that survives a renaming, which the system counts as a change of status.
  bool SameContentAs(const ConfStamp& other) const noexcept;
};

/// Stamp of the file at a path, links followed; `exists` is false when there is none.
/// @throws mgr_err::Error "file" when that can't be told
BRISQ_API ConfStamp StampAt(const std::string& path);

/// The clock that the system marks changes of files by, in nanoseconds since 1970. It steps by 1 to
/// 10 ms.
BRISQ_API std::int64_t FileClock() noexcept;

/// By so many nanoseconds clocks of other machines, or of file systems of their own, may be behind
/// FileClock().
constexpr std::int64_t kClockAside = 20'000'000;

/// True when whatever is done to a file after FileClock() gave `clock` shows in its stamp. A time
/// that is ahead of the clock by more than two seconds counts as rested: the clock was set back.
/// @param clock  for files that are not local (IsLocalFile) less kClockAside
BRISQ_API bool IsSettled(const ConfStamp& stamp, std::int64_t clock) noexcept;

/// A file as it was read, with the stamp that it had.
struct ConfContent {
  ConfStamp stamp;
  std::shared_ptr<const ConfBytes> bytes;
  /// False when the file was changed so shortly before it was read that a further change could have
  /// the same stamp.
  bool settled = true;
};

/// Opens a regular file for reading without waiting for anything, and tells its state. A file that
/// does not exist gives no descriptor.
/// @throws mgr_err::Error "file", also for what is no regular file
BRISQ_API Descriptor OpenRegular(int directory, const std::string& name, const std::string& path,
                                 struct stat& info);

/// Reads all of an open file.
/// @return content whose stamp held while it was read; without bytes when it did not, because
/// somebody is changing the file at this moment
/// @throws mgr_err::Error "file"
BRISQ_API ConfContent ReadContent(int fd, const std::string& path);

/// The file at a path, empty when it does not exist; without bytes when somebody is, or may be,
/// changing it at this moment.
/// @throws mgr_err::Error "file"
BRISQ_API ConfContent ReadAt(int directory, const std::string& name, const std::string& path);
