// stop_at_call PROGRAM ARGUMENT...: runs a program, counts the system calls by which it works on
// files, and kills it before the n-th of them or has that one fail. Told by the environment:
//
//   COUNT_FROM=PATH       counting begins when the program opens this file
//   STOP_AT=n             SIGKILL before call n, counted from 1
//   FAIL_AT=n FAIL_WITH=e call n fails with errno e, a number
//   COUNT_READS=1         calls that change nothing are counted too
//   CALLS_FILE=PATH       at the end the number of calls is written there, and the one that failed
//
// The kernel asks here about each of the calls (seccomp(2), user notification), so none is missed,
// whichever library makes it and however. Only the program's own process counts, all of its
// threads, not what it starts. Calls on standard streams do not count, nor does close(2).
//
// Ends as the program has ended, when nothing that it started runs any more.

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern char** environ;

namespace {

constexpr int kNoDescriptor = -1;
constexpr int kNotStarted = 127;

enum class Kind { kChange, kRead, kOpen };

struct Call {
  int number;
  const char* name;
  Kind kind;
  int descriptor;  // which argument it is
};

#define CALL(name, kind, descriptor) {SYS_##name, #name, Kind::kind, descriptor},

const Call kCalls[] = {
    // clang-format off
    CALL(openat, kOpen, kNoDescriptor)
    CALL(write, kChange, 0) CALL(writev, kChange, 0) CALL(pwrite64, kChange, 0)
    CALL(pwritev, kChange, 0) CALL(pwritev2, kChange, 0) CALL(copy_file_range, kChange, 2)
    CALL(sendfile, kChange, 0) CALL(fallocate, kChange, 0) CALL(truncate, kChange, kNoDescriptor)
    CALL(ftruncate, kChange, 0) CALL(fsync, kChange, 0) CALL(fdatasync, kChange, 0)
    CALL(sync_file_range, kChange, 0) CALL(msync, kChange, kNoDescriptor)
    CALL(fchmod, kChange, 0) CALL(fchmodat, kChange, kNoDescriptor)
    CALL(fchown, kChange, 0) CALL(fchownat, kChange, kNoDescriptor)
    CALL(utimensat, kChange, kNoDescriptor) CALL(flock, kChange, 0)
    CALL(unlinkat, kChange, kNoDescriptor) CALL(renameat2, kChange, kNoDescriptor)
    CALL(mkdirat, kChange, kNoDescriptor) CALL(linkat, kChange, kNoDescriptor)
    CALL(symlinkat, kChange, kNoDescriptor)
    CALL(setxattr, kChange, kNoDescriptor) CALL(fsetxattr, kChange, 0)
    CALL(removexattr, kChange, kNoDescriptor) CALL(fremovexattr, kChange, 0)
    CALL(clone, kChange, kNoDescriptor) CALL(clone3, kChange, kNoDescriptor)
    CALL(read, kRead, 0) CALL(readv, kRead, 0) CALL(pread64, kRead, 0) CALL(preadv, kRead, 0)
    CALL(preadv2, kRead, 0) CALL(lseek, kRead, 0) CALL(fcntl, kRead, 0) CALL(mmap, kRead, 4)
    CALL(fstat, kRead, 0) CALL(newfstatat, kRead, 0) CALL(statx, kRead, 0) CALL(fstatfs, kRead, 0)
    CALL(statfs, kRead, kNoDescriptor) CALL(readlinkat, kRead, kNoDescriptor)
    CALL(faccessat, kRead, kNoDescriptor) CALL(faccessat2, kRead, kNoDescriptor)
    CALL(getdents64, kRead, 0) CALL(getxattr, kRead, kNoDescriptor) CALL(fgetxattr, kRead, 0)
    CALL(listxattr, kRead, kNoDescriptor) CALL(flistxattr, kRead, 0)
#ifdef __x86_64__
    // What newer machines know under the names above only.
    CALL(open, kOpen, kNoDescriptor) CALL(creat, kChange, kNoDescriptor)
    CALL(unlink, kChange, kNoDescriptor) CALL(rename, kChange, kNoDescriptor)
    CALL(renameat, kChange, kNoDescriptor) CALL(mkdir, kChange, kNoDescriptor)
    CALL(rmdir, kChange, kNoDescriptor) CALL(link, kChange, kNoDescriptor)
    CALL(symlink, kChange, kNoDescriptor) CALL(chmod, kChange, kNoDescriptor)
    CALL(chown, kChange, kNoDescriptor) CALL(lchown, kChange, kNoDescriptor)
    CALL(fork, kChange, kNoDescriptor) CALL(vfork, kChange, kNoDescriptor)
    CALL(stat, kRead, kNoDescriptor) CALL(lstat, kRead, kNoDescriptor)
    CALL(readlink, kRead, kNoDescriptor) CALL(access, kRead, kNoDescriptor)
#endif
    // clang-format on
};

long Number(const char* name) {
  const char* text = std::getenv(name);
  return text == nullptr ? 0 : std::strtol(text, nullptr, 10);
}

std::string Text(const char* name) {
  const char* text = std::getenv(name);
  return text == nullptr ? "" : text;
}

struct Orders {
  std::string count_from = Text("COUNT_FROM");
  long stop_at = Number("STOP_AT");
  long fail_at = Number("FAIL_AT");
  int fail_with = static_cast<int>(Number("FAIL_WITH"));
  bool reads = Number("COUNT_READS") != 0;
  std::string calls_file = Text("CALLS_FILE");
};

[[noreturn]] void Give(const char* what) {
  std::fprintf(stderr, "stop_at_call: %s: %s\n", what, std::strerror(errno));
  std::exit(kNotStarted);
}

// Asks about each call of the table that may count; all others happen.
std::vector<sock_filter> Filter(bool reads) {
  std::vector<sock_filter> filter{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(struct seccomp_data, nr))};
  for (const Call& call : kCalls) {
    if (call.kind != Kind::kRead || reads) {
      filter.push_back(
          BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call.number), 0, 1));
      filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_USER_NOTIF));
    }
  }
  filter.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
  return filter;
}

struct Start {
  char** arguments;
  sock_fprog filter;
  int listener;
};

// In the child, which has the memory and the descriptors of the parent until it is the program.
int Become(void* given) {
  Start& start = *static_cast<Start*>(given);
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  start.listener = static_cast<int>(::syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER,
                                              SECCOMP_FILTER_FLAG_NEW_LISTENER, &start.filter));
  if (start.listener >= 0) {
    ::execve(start.arguments[0], start.arguments, environ);
  }
  ::_exit(kNotStarted);
}

/// Answers what the kernel asks about the calls of one program.
class Supervisor {
 public:
  Supervisor(pid_t program, int listener) : program_(program), listener_(listener) {}

  // Until nothing runs any more that was started.
  void Serve() {
    while (true) {
      pollfd poll{listener_, POLLIN, 0};
      if (::poll(&poll, 1, -1) < 0 && errno != EINTR) Give("poll");
      if ((poll.revents & POLLIN) != 0) {
        Answer();
      } else if ((poll.revents & POLLHUP) != 0) {
        return;
      }
    }
  }

  void TellCalls() const {
    if (orders_.calls_file.empty()) return;
    std::FILE* file = std::fopen(orders_.calls_file.c_str(), "w");
    if (file == nullptr) Give(orders_.calls_file.c_str());
    std::fprintf(file, "%ld %s\n", calls_, failed_);
    std::fclose(file);
  }

 private:
  void Answer() {
    seccomp_notif asked{};
    // Nobody is left to be answered when the program was killed meanwhile.
    if (::ioctl(listener_, SECCOMP_IOCTL_NOTIF_RECV, &asked) != 0) return;
    seccomp_notif_resp answer{};
    answer.id = asked.id;
    if (const Call* call = Counted(asked); call != nullptr && Fails(*call)) {
      answer.error = -orders_.fail_with;
    } else {
      answer.flags = SECCOMP_USER_NOTIF_FLAG_CONTINUE;
    }
    ::ioctl(listener_, SECCOMP_IOCTL_NOTIF_SEND, &answer);
  }

  // True when the call must fail. The program may not outlive this when it is to be killed.
  bool Fails(const Call& call) {
    const long number = ++calls_;
    if (number == orders_.stop_at) ::kill(program_, SIGKILL);
    if (number != orders_.fail_at) return false;
    failed_ = call.name;
    return true;
  }

  // Null when the call does not count.
  const Call* Counted(const seccomp_notif& asked) {
    if (!IsOwn(asked.pid)) return nullptr;
    for (const Call& call : kCalls) {
      if (call.number == asked.data.nr) return Counts(call, asked) ? &call : nullptr;
    }
    return nullptr;
  }

  bool Counts(const Call& call, const seccomp_notif& asked) {
    if (!counting_) {
      counting_ = orders_.count_from.empty() || Opens(call, asked);
      if (!counting_) return false;
    }
    if (call.kind == Kind::kOpen) {
      const auto flags = asked.data.args[call.number == SYS_openat ? 2 : 1];
      return orders_.reads || (flags & (O_CREAT | O_TRUNC)) != 0;
    }
    if (call.descriptor == kNoDescriptor) return true;
    const int fd = static_cast<int>(asked.data.args[call.descriptor]);
    return fd > STDERR_FILENO || fd == AT_FDCWD;
  }

  bool Opens(const Call& call, const seccomp_notif& asked) const {
    if (call.kind != Kind::kOpen) return false;
    std::string path(orders_.count_from.size() + 1, 'x');
    const auto from = asked.data.args[call.number == SYS_openat ? 1 : 0];
    const iovec here{path.data(), path.size()};
    const iovec there{reinterpret_cast<void*>(from), path.size()};
    return ::process_vm_readv(program_, &here, 1, &there, 1, 0) ==
               static_cast<ssize_t>(path.size()) &&
           path.compare(0, path.npos, orders_.count_from.c_str(), path.size()) == 0;
  }

  bool IsOwn(unsigned thread) const {
    const std::string task =
        "/proc/" + std::to_string(program_) + "/task/" + std::to_string(thread);
    return static_cast<pid_t>(thread) == program_ || ::access(task.c_str(), F_OK) == 0;
  }

  const Orders orders_;
  const pid_t program_;
  const int listener_;
  bool counting_ = false;
  long calls_ = 0;
  const char* failed_ = "";
};

// Ends in the same way.
[[noreturn]] void EndAs(int status) {
  if (WIFSIGNALED(status)) {
    std::signal(WTERMSIG(status), SIG_DFL);
    ::raise(WTERMSIG(status));
  }
  std::exit(WEXITSTATUS(status));
}

}  // namespace

int main(int count, char** arguments) {
  if (count < 2) {
    std::fputs("usage: stop_at_call PROGRAM ARGUMENT...\n", stderr);
    return 2;
  }
  std::vector<sock_filter> filter = Filter(Orders().reads);
  Start start{arguments + 1, {static_cast<unsigned short>(filter.size()), filter.data()}, -1};
  std::vector<char> stack(65536);
  const pid_t program = ::clone(&Become, stack.data() + stack.size(),
                                CLONE_VM | CLONE_VFORK | CLONE_FILES | SIGCHLD, &start);
  if (program < 0) Give("clone");
  if (start.listener < 0) Give("seccomp");
  Supervisor supervisor(program, start.listener);
  supervisor.Serve();
  int status = 0;
  ::waitpid(program, &status, 0);
  supervisor.TellCalls();
  EndAs(status);
}
