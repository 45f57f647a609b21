#pragma once

#include <string>

#include "brisq_export.h"
#include "framework/file_lock.h"

namespace brisq_panel {

/// Holds the right to refresh, which one thread of one process has at a time: two refreshes would
/// sweep the rows that the other one has marked.
class BRISQ_API RefreshLock {
 public:
  /// @throws mgr_err::Error "locked" when it is held, "file" when the lock file can't be made
  RefreshLock();

  /// Folder of the lock file, set when the panel is opened.
  static void SetFolder(const std::string& folder);

 private:
  FileLock lock_;
};

}  // namespace brisq_panel
