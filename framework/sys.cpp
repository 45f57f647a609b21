#include "framework/sys.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <system_error>
#include <utility>

#include "mgr_err.h"

namespace sys {
namespace {

std::atomic<Hook*> the_hook{nullptr};

// Signals that come this often in a row are no accident; the call fails then rather than hang.
constexpr int kInterruptions = 1000;

bool Refused(const char* call) {
  Hook* hook = the_hook.load(std::memory_order_acquire);
  const int error = hook == nullptr ? 0 : hook->Before(call);
  if (error != 0) errno = error;
  return error != 0;
}

// Makes a call, again as long as a signal interrupts it.
template <class Call>
auto Retry(const char* name, Call call) -> decltype(call()) {
  for (int tries = 1;; ++tries) {
    const auto result = Refused(name) ? -1 : call();
    if (result >= 0 || errno != EINTR || tries == kInterruptions) return result;
  }
}

std::size_t Allowed(std::size_t bytes) {
  Hook* hook = the_hook.load(std::memory_order_acquire);
  return hook == nullptr ? bytes : hook->Cut(bytes);
}

}  // namespace

const char* Remedy(int error) {
  switch (error) {
    case EPERM:
      return " (if you are root: is the file immutable? lsattr shows it, chattr -i ends it)";
    case EBUSY:
      return " (a file that is mounted by itself can't be replaced; mount its directory instead)";
    case ENOSPC:
      return " (the disk is full)";
    case EDQUOT:
      return " (the disk quota is used up)";
    case EFBIG:
      return " (larger than this process may write; ulimit -f shows the limit)";
    case EROFS:
      return " (mount it writable)";
    default:
      return "";
  }
}

Hook::~Hook() = default;

std::size_t Hook::Cut(std::size_t bytes) { return bytes; }

Hook* SetHook(Hook* hook) noexcept { return the_hook.exchange(hook); }

int Open(int directory, const char* path, int flags, mode_t mode) {
  return Retry("open", [&] { return ::openat(directory, path, flags | O_CLOEXEC, mode); });
}

int Stat(int directory, const char* path, struct stat* info, int flags) {
  return Retry("stat", [&] { return ::fstatat(directory, path, info, flags); });
}

int FStat(int fd, struct stat* info) {
  return Retry("fstat", [&] { return ::fstat(fd, info); });
}

ssize_t Read(int fd, void* buffer, std::size_t bytes) {
  return Retry("read", [&] { return ::read(fd, buffer, bytes); });
}

ssize_t WriteV(int fd, const struct iovec* pieces, int count) {
  return Retry("write", [&]() -> ssize_t {
    const std::size_t first = Allowed(pieces->iov_len);
    if (first < pieces->iov_len) return ::write(fd, pieces->iov_base, first);
    return ::writev(fd, pieces, count);
  });
}

ssize_t PWrite(int fd, const void* buffer, std::size_t bytes, off_t offset) {
  return Retry("pwrite", [&] { return ::pwrite(fd, buffer, bytes, offset); });
}

int FChOwn(int fd, uid_t uid, gid_t gid) {
  return Retry("fchown", [&] { return ::fchown(fd, uid, gid); });
}

int FChMod(int fd, mode_t mode) {
  return Retry("fchmod", [&] { return ::fchmod(fd, mode); });
}

ssize_t FListXAttr(int fd, char* names, std::size_t bytes) {
  return Retry("flistxattr", [&] { return ::flistxattr(fd, names, bytes); });
}

ssize_t FGetXAttr(int fd, const char* name, void* value, std::size_t bytes) {
  return Retry("fgetxattr", [&] { return ::fgetxattr(fd, name, value, bytes); });
}

int FSetXAttr(int fd, const char* name, const void* value, std::size_t bytes) {
  return Retry("fsetxattr", [&] { return ::fsetxattr(fd, name, value, bytes, 0); });
}

int FRemoveXAttr(int fd, const char* name) {
  return Retry("fremovexattr", [&] { return ::fremovexattr(fd, name); });
}

int FUTimeNS(int fd, const struct timespec times[2]) {
  return Retry("futimens", [&] { return ::futimens(fd, times); });
}

int FTruncate(int fd, off_t length) {
  return Retry("ftruncate", [&] { return ::ftruncate(fd, length); });
}

int FSync(int fd) {
  return Retry("fsync", [&] { return ::fsync(fd); });
}

int Rename(int directory, const char* from, const char* to, unsigned int flags) {
  return Retry("rename", [&] { return ::renameat2(directory, from, directory, to, flags); });
}

int Unlink(int directory, const char* path) {
  return Retry("unlink", [&] { return ::unlinkat(directory, path, 0); });
}

int MkDir(int directory, const char* path, mode_t mode) {
  return Retry("mkdir", [&] { return ::mkdirat(directory, path, mode); });
}

int RmDir(int directory, const char* path) {
  return Retry("rmdir", [&] { return ::unlinkat(directory, path, AT_REMOVEDIR); });
}

int Link(int directory, const char* from, const char* to) {
  return Retry("link", [&] { return ::linkat(directory, from, directory, to, 0); });
}

int SymLink(const char* target, int directory, const char* path) {
  return Retry("symlink", [&] { return ::symlinkat(target, directory, path); });
}

int FLock(int fd, int operation) {
  return Retry("flock", [&] { return ::flock(fd, operation); });
}

int FCntl(int fd, int command, int argument) {
  return Retry("fcntl", [&] { return ::fcntl(fd, command, argument); });
}

ssize_t ReadLink(int directory, const char* path, char* target, std::size_t bytes) {
  return Retry("readlink", [&] { return ::readlinkat(directory, path, target, bytes); });
}

void Fail(const char* call, const std::string& path, const std::string& state) {
  const int error = errno;
  std::string text = call;
  text += ": " + std::generic_category().message(error) + Remedy(error);
  if (!state.empty()) text += "; " + state;
  throw mgr_err::Error("file", path, text);
}

}  // namespace sys
