#include "framework/local_file.h"

#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <iterator>

bool IsLocalFile(int fd) noexcept {
  struct statfs info {};
  if (::fstatfs(fd, &info) != 0) return false;
  const long kinds[] = {EXT4_SUPER_MAGIC, XFS_SUPER_MAGIC, BTRFS_SUPER_MAGIC, TMPFS_MAGIC,
                        F2FS_SUPER_MAGIC};
  return std::find(std::begin(kinds), std::end(kinds), info.f_type) != std::end(kinds);
}
