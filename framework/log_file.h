#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "brisq_export.h"
#include "framework/descriptor.h"

namespace mgr_log {

/// A file that several processes append lines to and that is put aside when it is full: FILE
/// becomes FILE.1, FILE.1 becomes FILE.2, and the last one is dropped.
///
/// A writer holds a shared flock on the file while it appends, a process that renames it an
/// exclusive one; both look, with the lock held, whether the file still is the one at the path. So
/// no line goes into a file that has been put aside, also when an administrator's tool renames or
/// removes it, and a process that was stopped in the middle never makes others wait for long:
/// nobody waits for the exclusive lock, a file that can't be put aside now just grows a little
/// further.
///
/// For one thread at a time.
class BRISQ_API LogFile {
 public:
  /// Touches no file.
  /// @param limit  size in bytes beyond which a line goes to a new file, 0 for none; what others
  /// append at that very moment may still come on top
  /// @param keep   number of files kept beside the current one
  LogFile(std::string path, std::size_t limit, unsigned keep);

  /// Appends `line`, which ends in its line feed, as it stands. The file is opened and made (0640)
  /// when needed.
  /// @throws mgr_err::Error "file"; a part of the line may have been written, the next one then
  /// begins on a line of its own
  void Append(std::string_view line);

 private:
  void Open();
  bool IsCurrent() const;
  bool IsFull(std::size_t more) const;
  void PutAsideWhenFull(std::size_t more);
  void Shift() const;
  std::string Aside(unsigned number) const;
  void WriteAll(std::string_view line);

  std::string path_;
  std::size_t limit_;
  unsigned keep_;
  Descriptor file_;
  bool torn_ = false;  ///< the file ends, or may end, in a part of a line
};

}  // namespace mgr_log
