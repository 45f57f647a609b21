#include "framework/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <mutex>
#include <new>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "framework/safe_program.h"

// This header of glibc 2.36 declares functions of C without saying so.
extern "C" {
#include <sys/pidfd.h>
}

namespace mgr_proc {

namespace {

constexpr int kSignalBase = 128;
constexpr int kLeavingMilliseconds = 100;
constexpr int kLeavingStep = 5;

void Check(int error, const std::string& what) {
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), what);
  }
}

// A descriptor that was 0, 1 or 2 would be overwritten while the child's own are put in place.
Descriptor AboveStandard(int fd) {
  Descriptor given(fd);
  if (fd > STDERR_FILENO) {
    return given;
  }
  Descriptor moved(::fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
  Check(moved ? 0 : errno, "can't make a pipe");
  return moved;
}

class FileActions {
 public:
  FileActions() { Check(posix_spawn_file_actions_init(&actions_), "file actions"); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  void Put(int from, int to) {
    Check(posix_spawn_file_actions_adddup2(&actions_, from, to), "file actions");
  }
  void EnterRoot() { Check(posix_spawn_file_actions_addchdir_np(&actions_, "/"), "file actions"); }
  void CloseFrom(int first) {
    Check(posix_spawn_file_actions_addclosefrom_np(&actions_, first), "file actions");
  }
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// A group of its own, and nothing of how the host handles signals.
class Attributes {
 public:
  Attributes() {
    Check(posix_spawnattr_init(&attributes_), "spawn attributes");
    sigset_t set;
    sigfillset(&set);
    posix_spawnattr_setsigdefault(&attributes_, &set);
    sigemptyset(&set);
    posix_spawnattr_setsigmask(&attributes_, &set);
    posix_spawnattr_setpgroup(&attributes_, 0);
    posix_spawnattr_setflags(
        &attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  ~Attributes() { posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;

  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

bool IsProgram(const std::string& path) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         ::faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

// posix_spawnp(3) would look along the host's own PATH.
std::string FindProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) {
    return name;
  }
  std::istringstream folders(kProgramFolders);
  for (std::string folder; std::getline(folders, folder, ':');) {
    std::string path = folder + "/" + name;
    if (IsProgram(path)) {
      return path;
    }
  }
  throw std::system_error(ENOENT, std::generic_category(), "can't start " + name);
}

void RefuseUnsafe(const std::string& program) {
  const std::string why = WhyUnsafe(program);
  if (!why.empty()) {
    throw std::runtime_error("can't start " + program + ": not safe: " + why);
  }
}

// Pointers into `words`, ended as execve(2) wants it.
std::vector<char*> Pointers(std::vector<std::string>& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) {
    pointers.push_back(word.data());
  }
  pointers.push_back(nullptr);
  return pointers;
}

// What the system's own words leave open.
std::string Peculiarity(const std::string& program, int error) {
  struct stat status = {};
  if (::stat(program.c_str(), &status) != 0) {
    return {};
  }
  if (S_ISDIR(status.st_mode)) {
    return ", a folder";
  }
  return error == ENOENT ? ", whose interpreter is missing" : std::string();
}

pid_t Spawn(std::vector<std::string>& words, int in, int out, int err) {
  const std::string program = FindProgram(words.front());
  RefuseUnsafe(program);
  FileActions files;
  files.Put(in, STDIN_FILENO);
  files.Put(out, STDOUT_FILENO);
  files.Put(err, STDERR_FILENO);
  files.CloseFrom(STDERR_FILENO + 1);
  // The caller's folder may be gone, closed or full of somebody's files.
  files.EnterRoot();
  const Attributes attributes;
  std::vector<std::string> variables = {std::string("PATH=") + kProgramFolders, "HOME=/",
                                        "LC_ALL=C"};
  pid_t pid = -1;
  const int error = ::posix_spawn(&pid, program.c_str(), files.get(), attributes.get(),
                                  Pointers(words).data(), Pointers(variables).data());
  Check(error, "can't start " + program + Peculiarity(program, error));
  return pid;
}

// Waits for the end of a process; false when it goes on after `milliseconds`.
bool HasEnded(int pidfd, int milliseconds) noexcept {
  pollfd watched = {pidfd, POLLIN, 0};
  int ready = -1;
  do {
    ready = ::poll(&watched, 1, milliseconds);
  } while (ready < 0 && errno == EINTR);
  return ready > 0;
}

// waitid(2) on one process, begun again after a signal; true when it has given a status.
bool TakeStatus(int pidfd, int options, siginfo_t& status) noexcept {
  status = {};
  int result = -1;
  do {
    result = ::waitid(P_PIDFD, static_cast<id_t>(pidfd), &status, options);
  } while (result < 0 && errno == EINTR);
  return result == 0;
}

// Killed children that the kernel has not let go of yet.
class Dying {
 public:
  void Add(Descriptor pidfd) noexcept {
    const std::lock_guard<std::mutex> hold(mutex_);
    try {
      pidfds_.push_back(std::move(pidfd));
    } catch (const std::bad_alloc&) {
      // The dead child then keeps its number until this process ends.
    }
  }

  void CollectEnded() {
    const std::lock_guard<std::mutex> hold(mutex_);
    std::erase_if(pidfds_, [](const Descriptor& pidfd) {
      siginfo_t status;
      return !TakeStatus(pidfd.get(), WEXITED | WNOHANG, status) || status.si_pid != 0;
    });
  }

 private:
  std::mutex mutex_;
  std::vector<Descriptor> pidfds_;
};

Dying& TheDying() {
  static Dying dying;
  return dying;
}

}  // namespace

Pipe Pipe::Make() {
  int ends[2];
  Check(::pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno, "can't make a pipe");
  Descriptor write(ends[1]);  // held while moving the other end may throw
  Pipe pipe;
  pipe.read = AboveStandard(ends[0]);
  pipe.write = write.get() > STDERR_FILENO ? std::move(write) : AboveStandard(::dup(write.get()));
  return pipe;
}

Child::Child(std::vector<std::string> words, int in, int out, int err) {
  TheDying().CollectEnded();
  pid_ = Spawn(words, in, out, err);
  pidfd_ = Descriptor(::pidfd_open(pid_, 0));
  if (pidfd_) {
    return;
  }
  const int error = errno;
  collected_ = true;
  if (error == ESRCH) {
    return;
  }
  // Without a descriptor it can't be watched, and a child that can't be watched must not run.
  ::kill(-pid_, SIGKILL);
  while (::waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
  Check(error, "can't watch " + words.front());
}

Child::~Child() {
  if (!collected_) {
    Kill();
  }
}

int Child::Collect() noexcept {
  collected_ = true;
  siginfo_t status;
  if (!pidfd_ || !TakeStatus(pidfd(), WEXITED, status)) {
    return kStatusTaken;
  }
  return status.si_code == CLD_EXITED ? status.si_status : kSignalBase + status.si_status;
}

void Child::EndGroup() noexcept {
  // The number of a group stays taken while it has a member, so this can't meet another group.
  for (int waited = 0; waited < kLeavingMilliseconds; waited += kLeavingStep) {
    if (::kill(-pid_, 0) != 0) {
      return;
    }
    const timespec pause = {0, kLeavingStep * 1000000L};
    ::nanosleep(&pause, nullptr);
  }
  Kill();
}

void Child::Kill(int patience) noexcept {
  ::kill(-pid_, SIGKILL);
  if (collected_) {
    return;
  }
  // It may have left its group.
  ::pidfd_send_signal(pidfd(), SIGKILL, nullptr, 0);
  if (HasEnded(pidfd(), patience)) {
    Collect();
    return;
  }
  collected_ = true;
  TheDying().Add(std::move(pidfd_));
}

}  // namespace mgr_proc
