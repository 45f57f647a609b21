#pragma once

#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <ctime>
#include <string>

#include "brisq_export.h"

/// The system calls by which files and users' directories are made and replaced, behind one seam,
/// so that each of them can be made to fail.
///
/// Every call behaves as the system call of the same name, except that one which a signal has
/// interrupted is made again. Without a hook the seam costs one load of an atomic.
namespace sys {

/// Looks on at every call and may make it fail. Calls come from any thread.
class BRISQ_API Hook {
 public:
  virtual ~Hook();
  /// Called before each call. 0 lets it happen; any other number is the errno it fails with.
  virtual int Before(const char* call) = 0;
  /// Number of bytes, at least 1, that a write of `bytes` bytes may take.
  virtual std::size_t Cut(std::size_t bytes);
};

/// Sets the process's hook (null for none) and returns the one that was set. The caller keeps it
/// alive until it is replaced and no call that might use it goes on.
BRISQ_API Hook* SetHook(Hook* hook) noexcept;

BRISQ_API int Open(int directory, const char* path, int flags, mode_t mode = 0);
BRISQ_API int Stat(int directory, const char* path, struct stat* info, int flags);
BRISQ_API int FStat(int fd, struct stat* info);
BRISQ_API ssize_t Read(int fd, void* buffer, std::size_t bytes);
BRISQ_API ssize_t WriteV(int fd, const struct iovec* pieces, int count);
BRISQ_API ssize_t PWrite(int fd, const void* buffer, std::size_t bytes, off_t offset);
BRISQ_API int FChOwn(int fd, uid_t uid, gid_t gid);
BRISQ_API int FChMod(int fd, mode_t mode);
BRISQ_API ssize_t FListXAttr(int fd, char* names, std::size_t bytes);
BRISQ_API ssize_t FGetXAttr(int fd, const char* name, void* value, std::size_t bytes);
BRISQ_API int FSetXAttr(int fd, const char* name, const void* value, std::size_t bytes);
BRISQ_API int FRemoveXAttr(int fd, const char* name);
BRISQ_API int FUTimeNS(int fd, const struct timespec times[2]);
BRISQ_API int FTruncate(int fd, off_t length);
BRISQ_API int FSync(int fd);
/// renameat2(2) within one directory.
BRISQ_API int Rename(int directory, const char* from, const char* to, unsigned int flags);
BRISQ_API int Unlink(int directory, const char* path);
BRISQ_API int MkDir(int directory, const char* path, mode_t mode);
BRISQ_API int RmDir(int directory, const char* path);
/// linkat(2) within one directory; a symbolic link gets a second name itself.
BRISQ_API int Link(int directory, const char* from, const char* to);
BRISQ_API int SymLink(const char* target, int directory, const char* path);
BRISQ_API int FLock(int fd, int operation);
/// fcntl(2) with an integer argument.
BRISQ_API int FCntl(int fd, int command, int argument);
BRISQ_API ssize_t ReadLink(int directory, const char* path, char* target, std::size_t bytes);

/// The usual way out of an error of the system, " (...)"; empty where there is none.
BRISQ_API const char* Remedy(int error);

/// Throws mgr_err::Error "file" for a call that has just set errno: object the path, value the
/// call, the reason in words and, where there is a usual one, the way out.
/// @param state  what became of the file, for example "the file is unchanged"; may be empty
[[noreturn]] BRISQ_API void Fail(const char* call, const std::string& path,
                                 const std::string& state = {});

}  // namespace sys
