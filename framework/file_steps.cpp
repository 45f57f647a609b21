#include "framework/file_steps.h"

#include <fcntl.h>

#include <cerrno>

#include "framework/descriptor.h"
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

void WriteAll(int fd, std::string_view content, const std::string& path, const std::string& state) {
  while (!content.empty()) {
    // What writev(2) is given it only reads.
    const iovec piece = {const_cast<char*>(content.data()), content.size()};
    const ssize_t written = sys::WriteV(fd, &piece, 1);
    if (written < 0) {
      sys::Fail("write", path, state);
    }
    content.remove_prefix(static_cast<std::size_t>(written));
  }
}

void SyncDirectory(int fd, const std::string& path) {
  if (sys::FSync(fd) != 0 && errno != EINVAL) {
    sys::Fail("fsync", path);
  }
}

void SyncDirectoryAt(const std::string& directory, const std::string& path) {
  const Descriptor fd(sys::Open(AT_FDCWD, directory.c_str(), O_RDONLY | O_DIRECTORY));
  if (!fd) {
    sys::Fail("open", path);
  }
  SyncDirectory(fd.get(), path);
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) {
    return ".";
  }
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace file_steps
