// Counts the calls by which a program changes files, and kills the program before the n-th of them,
// or has that one fail. For LD_PRELOAD; told by the environment:
//
//   STOP_AT=n             SIGKILL before call n, counted from 1
//   FAIL_AT=n FAIL_WITH=e call n fails with errno e
//   COUNT_READS=1         calls that only read are counted too
//   CALLS_FILE=PATH       at the program's end its number of calls is written there, and which call
//                         was made to fail
//
// Only the program's own process counts, not what it forks. Calls on standard streams do not count.

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

struct Orders {
  long stop_at = 0;
  long fail_at = 0;
  int fail_with = 0;
  bool reads = false;
  const char* calls_file = nullptr;
  pid_t pid = 0;
};

Orders orders;
std::atomic<long> calls{0};
const char* failed_call = "";

long Number(const char* name) {
  const char* text = std::getenv(name);
  return text == nullptr ? 0 : std::strtol(text, nullptr, 10);
}

__attribute__((constructor)) void ReadOrders() {
  orders.stop_at = Number("STOP_AT");
  orders.fail_at = Number("FAIL_AT");
  orders.fail_with = static_cast<int>(Number("FAIL_WITH"));
  orders.reads = Number("COUNT_READS") != 0;
  orders.calls_file = std::getenv("CALLS_FILE");
  orders.pid = static_cast<pid_t>(syscall(SYS_getpid));
}

__attribute__((destructor)) void TellCalls() {
  if (orders.calls_file == nullptr || syscall(SYS_getpid) != orders.pid) return;
  char text[64];
  const int size = std::snprintf(text, sizeof text, "%ld %s\n", calls.load(), failed_call);
  const long fd =
      syscall(SYS_openat, AT_FDCWD, orders.calls_file, O_WRONLY | O_CREAT | O_TRUNC, 0600);
  syscall(SYS_write, fd, text, size);
  syscall(SYS_close, fd);
}

// True when the call must fail; errno is set then.
bool Refused(const char* call) {
  if (orders.pid == 0 || syscall(SYS_getpid) != orders.pid) return false;
  const long number = ++calls;
  if (number == orders.stop_at) syscall(SYS_kill, orders.pid, SIGKILL);
  if (number != orders.fail_at) return false;
  failed_call = call;
  errno = orders.fail_with;
  return true;
}

bool RefusedRead(const char* call) { return orders.reads && Refused(call); }
bool Standard(int fd) { return fd >= 0 && fd <= 2; }

template <class F>
F Next(F, const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// What stands for a call of this name with the same parameters; `condition` makes it count.
#define CALL(result, name, parameters, arguments) \
  extern "C" result name parameters {             \
    static const auto next = Next(&name, #name);  \
    if (Refused(#name)) return -1;                \
    return next arguments;                        \
  }
#define CALL_FD(result, name, parameters, arguments) \
  extern "C" result name parameters {                \
    static const auto next = Next(&name, #name);     \
    if (!Standard(fd) && Refused(#name)) return -1;  \
    return next arguments;                           \
  }
#define READ_FD(result, name, parameters, arguments)    \
  extern "C" result name parameters {                   \
    static const auto next = Next(&name, #name);        \
    if (!Standard(fd) && RefusedRead(#name)) return -1; \
    return next arguments;                              \
  }
#define OPEN(name, first, passed)                                          \
  extern "C" int name(first const char* path, int flags, ...) {            \
    static const auto next = Next(&name, #name);                           \
    va_list rest;                                                          \
    va_start(rest, flags);                                                 \
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0; \
    va_end(rest);                                                          \
    const bool changes = (flags & (O_CREAT | O_TRUNC)) != 0;               \
    if (changes ? Refused(#name) : RefusedRead(#name)) return -1;          \
    return next(passed path, flags, mode);                                 \
  }
#define COMMA ,

OPEN(open, , )
OPEN(open64, , )
OPEN(openat, int directory COMMA, directory COMMA)
OPEN(openat64, int directory COMMA, directory COMMA)

CALL_FD(ssize_t, write, (int fd, const void* buffer, size_t size), (fd, buffer, size))
CALL_FD(ssize_t, writev, (int fd, const struct iovec* pieces, int count), (fd, pieces, count))
CALL_FD(ssize_t, pwrite, (int fd, const void* buffer, size_t size, off_t at),
        (fd, buffer, size, at))
CALL_FD(ssize_t, pwrite64, (int fd, const void* buffer, size_t size, off64_t at),
        (fd, buffer, size, at))
CALL_FD(int, ftruncate, (int fd, off_t size) noexcept, (fd, size))
CALL_FD(int, ftruncate64, (int fd, off64_t size) noexcept, (fd, size))
CALL_FD(int, fsync, (int fd), (fd))
CALL_FD(int, fdatasync, (int fd), (fd))
CALL_FD(int, fchmod, (int fd, mode_t mode) noexcept, (fd, mode))
CALL_FD(int, fchown, (int fd, uid_t uid, gid_t gid) noexcept, (fd, uid, gid))
CALL_FD(int, futimens, (int fd, const struct timespec times[2]) noexcept, (fd, times))
CALL_FD(int, flock, (int fd, int operation) noexcept, (fd, operation))
CALL(int, unlink, (const char* path) noexcept, (path))
CALL(int, unlinkat, (int directory, const char* path, int flags) noexcept, (directory, path, flags))
CALL(int, rename, (const char* from, const char* to) noexcept, (from, to))
CALL(int, renameat, (int a, const char* from, int b, const char* to) noexcept, (a, from, b, to))
CALL(int, renameat2, (int a, const char* from, int b, const char* to, unsigned flags) noexcept,
     (a, from, b, to, flags))
CALL(int, mkdir, (const char* path, mode_t mode) noexcept, (path, mode))
CALL(int, mkdirat, (int directory, const char* path, mode_t mode) noexcept, (directory, path, mode))
CALL(int, rmdir, (const char* path) noexcept, (path))
CALL(int, link, (const char* from, const char* to) noexcept, (from, to))
CALL(int, linkat, (int a, const char* from, int b, const char* to, int flags) noexcept,
     (a, from, b, to, flags))
CALL(int, symlink, (const char* target, const char* path) noexcept, (target, path))
CALL(int, symlinkat, (const char* target, int directory, const char* path) noexcept,
     (target, directory, path))
CALL(int, chmod, (const char* path, mode_t mode) noexcept, (path, mode))
CALL(int, chown, (const char* path, uid_t uid, gid_t gid) noexcept, (path, uid, gid))

READ_FD(ssize_t, read, (int fd, void* buffer, size_t size), (fd, buffer, size))
READ_FD(ssize_t, pread, (int fd, void* buffer, size_t size, off_t at), (fd, buffer, size, at))
READ_FD(ssize_t, pread64, (int fd, void* buffer, size_t size, off64_t at), (fd, buffer, size, at))
READ_FD(int, fstat, (int fd, struct stat* state) noexcept, (fd, state))

// Answers with an error number instead of setting errno.
extern "C" int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                           const posix_spawnattr_t* attributes, char* const arguments[],
                           char* const environment[]) {
  static const auto next = Next(&posix_spawn, "posix_spawn");
  if (Refused("posix_spawn")) return errno;
  return next(pid, path, actions, attributes, arguments, environment);
}
