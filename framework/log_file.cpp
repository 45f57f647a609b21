#include "framework/log_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <thread>
#include <utility>

#include "framework/file_error.h"

namespace mgr_log {

namespace {

// The lock ends with the scope; the file may have been closed by then.
class ScopedFlock {
 public:
  ScopedFlock(int file, int operation) : file_(file), held_(TryLock(operation)) {}
  ~ScopedFlock() {
    if (held_) {
      ::flock(file_, LOCK_UN);
    }
  }
  ScopedFlock(const ScopedFlock&) = delete;
  ScopedFlock& operator=(const ScopedFlock&) = delete;

  bool held() const { return held_; }

 private:
  bool TryLock(int operation) const {
    int result = 0;
    do {
      result = ::flock(file_, operation);
    } while (result != 0 && errno == EINTR);
    return result == 0;
  }

  int file_;
  bool held_;
};

}  // namespace

LogFile::LogFile(std::string path, std::size_t limit, unsigned keep)
    : path_(std::move(path)), limit_(limit), keep_(keep) {}

void LogFile::Append(std::string_view line) {
  // Each round begins with the file that was at the path a moment ago; it takes as many processes
  // that rename in between to fail as there are rounds.
  for (int round = 0; round < 100; ++round) {
    if (!file_) {
      Open();
    }
    PutAsideWhenFull(line.size());
    {
      const ScopedFlock lock(file_.get(), LOCK_SH);
      if (IsCurrent()) {
        WriteAll(line);
        return;
      }
    }
    file_.Close();
  }
  throw mgr_err::Error("file", path_, "another program renames it again and again; try again");
}

void LogFile::Open() {
  // Without O_NONBLOCK a pipe at the path would hold the caller up until somebody reads it.
  file_ = Descriptor(
      ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0640));
  if (!file_) {
    throw mgr_file::FileError(path_, "open");
  }
}

bool LogFile::IsCurrent() const {
  struct stat opened {};
  struct stat at_path {};
  return ::fstat(file_.get(), &opened) == 0 && ::stat(path_.c_str(), &at_path) == 0 &&
         opened.st_dev == at_path.st_dev && opened.st_ino == at_path.st_ino;
}

bool LogFile::IsFull(std::size_t more) const {
  struct stat status {};
  if (limit_ == 0 || ::fstat(file_.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return false;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  return size > 0 && size + more > limit_;
}

void LogFile::PutAsideWhenFull(std::size_t more) {
  if (!IsFull(more)) {
    return;
  }
  // Whoever else writes finds the file full as well and comes here with no lock held, so one of all
  // gets it soon; only a process that was stopped while it wrote makes the tries run out.
  for (int attempt = 0; attempt < 100; ++attempt) {
    const ScopedFlock lock(file_.get(), LOCK_EX | LOCK_NB);
    if (!lock.held()) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
      continue;
    }
    if (IsCurrent()) {
      Shift();
    }
    return;
  }
}

// Another process can't be shifting too: what is renamed last is the file on which it would hold
// the lock, and until then there is no new one at the path. A file that can't be moved out of the
// way ends it: the ones before it stay where they are and the log goes on growing.
void LogFile::Shift() const {
  if (keep_ == 0) {
    ::unlink(path_.c_str());
    return;
  }
  for (unsigned number = keep_; number > 0; --number) {
    const std::string from = number == 1 ? path_ : Aside(number - 1);
    if (std::rename(from.c_str(), Aside(number).c_str()) != 0 && errno != ENOENT) {
      return;
    }
  }
}

std::string LogFile::Aside(unsigned number) const { return path_ + "." + std::to_string(number); }

void LogFile::WriteAll(std::string_view line) {
  const std::string separate_line = torn_ ? "\n" + std::string(line) : std::string();
  std::string_view rest = torn_ ? separate_line : line;
  const std::size_t size = rest.size();
  while (!rest.empty()) {
    const ssize_t written = ::write(file_.get(), rest.data(), rest.size());
    if (written < 0 && errno != EINTR) {
      torn_ = torn_ || rest.size() < size;
      throw mgr_file::FileError(path_, "write");
    }
    rest.remove_prefix(written > 0 ? static_cast<std::size_t>(written) : 0);
  }
  torn_ = false;
}

}  // namespace mgr_log
