#include "framework/file_steps.h"

#include <cerrno>

#include "framework/sys.h"

namespace file_steps {

void SetAttrs(int fd, const mgr_file::Attrs& attrs, const std::string& path) {
  // Owner before mode: chown(2) may clear bits that chmod(2) has set.
  if (sys::FChOwn(fd, attrs.uid, attrs.gid) != 0) {
    sys::Fail("chown", path);
  }
  if (sys::FChMod(fd, attrs.mode) != 0) {
    sys::Fail("chmod", path);
  }
}

void SyncDirectory(int fd, const std::string& path) {
  if (sys::FSync(fd) != 0 && errno != EINVAL) {
    sys::Fail("fsync", path);
  }
}

}  // namespace file_steps
