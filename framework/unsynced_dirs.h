#pragma once

#include <sys/types.h>

#include <map>
#include <string>
#include <utility>

#include "brisq_export.h"
#include "framework/descriptor.h"

/// Directories whose names are to be made durable together: after the first one the others cost the
/// disk next to nothing. For one thread.
class BRISQ_API UnsyncedDirs {
 public:
  /// How many are waited with; then they are synced at once, as each holds a descriptor.
  static constexpr std::size_t kMost = 64;

  /// Takes note of a directory; nothing happens to one that is noted already.
  /// @param directory  open; it need not stay so
  /// @param path  names it in an error
  /// @throws mgr_err::Error "file" when the system has no descriptors left; as Sync
  void Add(int directory, const std::string& path);
  /// Makes them durable. None is noted afterwards, on errors neither.
  /// @throws mgr_err::Error "file" for the first one that can't be synced
  void Sync();
  /// Forgets them.
  void Clear() noexcept { directories_.clear(); }

 private:
  struct Directory {
    Descriptor fd;
    std::string path;
  };
  std::map<std::pair<dev_t, ino_t>, Directory> directories_;
};
