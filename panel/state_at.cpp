#include "panel/state_at.h"

#include <fcntl.h>

#include <cerrno>

#include "framework/sys.h"

namespace brisq_panel {

std::optional<struct stat> StateAt(const std::string& path, Links links) {
  struct stat state {};
  const int flags = links == Links::kStay ? AT_SYMLINK_NOFOLLOW : 0;
  if (sys::Stat(AT_FDCWD, path.c_str(), &state, flags) == 0) {
    return state;
  }
  if (errno != ENOENT && errno != ENOTDIR) {
    sys::Fail("stat", path);
  }
  return std::nullopt;
}

}  // namespace brisq_panel
