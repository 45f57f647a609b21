#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "brisq_export.h"

/// Setting up the logs that mgr_log::Module writes to.
namespace mgr_log {

/// Where logs go and how much of them is written and kept.
struct Setup {
  /// Absolute path of the folder in which log NAME has its file NAME.log.
  std::string directory;
  /// Level of every module that `levels` does not name: messages above it are not written.
  int level = 4;
  /// Level by module name.
  std::map<std::string, int> levels = {};
  /// Size in bytes beyond which a message goes to a new file, 0 for none: NAME.log becomes
  /// NAME.log.1, NAME.log.1 becomes NAME.log.2, and so on.
  std::size_t rotate_bytes = std::size_t{16} << 20;
  /// Number of full files kept beside NAME.log.
  unsigned keep = 5;
};

/// Makes every module, present or yet to come, write by `setup`, which replaces any earlier one.
/// Makes the directory (0750) and its missing parents. Log files are opened by the first message,
/// with mode 0640, and shared with other processes: each message is appended whole, and whichever
/// process finds the file full renames it. Any thread.
///
/// A message longer than 64 KiB is cut there and says so.
///
/// @throws mgr_err::Error "file" when the directory can't be made; the earlier setup stays
BRISQ_API void Configure(const Setup& setup);

/// Names of the modules that exist at present, for which a level can be set. Any thread.
BRISQ_API std::vector<std::string> ModuleNames();

/// Back to the state before the first Configure: errors and warnings go to standard error.
BRISQ_API void Reset();

}  // namespace mgr_log
