#include "framework/conf_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "mgr_err.h"

namespace {

using Clock = std::chrono::steady_clock;

std::atomic<std::chrono::milliseconds> wait_limit{std::chrono::seconds(10)};

// Access mode of a descriptor as /proc tells it, in octal under "flags:".
bool OpenForWriting(const std::filesystem::path& process, const std::string& descriptor) {
  std::ifstream info(process / "fdinfo" / descriptor);
  for (std::string word; info >> word;) {
    if (word != "flags:") continue;
    info >> word;
    return (std::strtol(word.c_str(), nullptr, 8) & O_ACCMODE) != O_RDONLY;
  }
  return false;
}

bool Writes(const std::filesystem::path& process, const struct stat& file) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(process / "fd", error)) {
    struct stat info {};
    if (::stat(entry.path().c_str(), &info) != 0) continue;
    const bool same = info.st_dev == file.st_dev && info.st_ino == file.st_ino;
    if (same && OpenForWriting(process, entry.path().filename())) return true;
  }
  return false;
}

// The first line of a note, so long whatever the process's number is.
constexpr std::size_t kPidLine = 12;

std::string PidLine() {
  std::string line = std::to_string(::getpid());
  line.resize(kPidLine - 1, ' ');
  return line + "\n";
}

bool IsStopped(long pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("State:")) return line.find("\tT") != std::string::npos;
  }
  return false;
}

// Its holder notes something when it takes the lock and at each exchange.
std::chrono::seconds SinceLastNote(int fd) {
  struct stat info {};
  if (::fstat(fd, &info) != 0) return {};
  return std::chrono::seconds(std::time(nullptr) - info.st_mtim.tv_sec);
}

std::string ReadNote(int fd) {
  std::array<char, 256> text{};
  const ssize_t size = ::pread(fd, text.data(), text.size(), 0);
  return std::string(text.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
}

}  // namespace

std::chrono::milliseconds ConfWaitLimit() noexcept { return wait_limit; }

void SetConfWaitLimit(std::chrono::milliseconds limit) noexcept { wait_limit = limit; }

std::string DescribeProcess(long pid) {
  if (pid <= 0) return "an unknown process";
  std::ifstream info("/proc/" + std::to_string(pid) + "/comm");
  std::string command;
  std::getline(info, command);
  const std::string text = "PID " + std::to_string(pid);
  return command.empty() ? text + ", which has ended," : text + " (" + command + ")";
}

std::string DescribeWriters(const struct stat& file) {
  std::string text;
  std::error_code error;
  for (const auto& process : std::filesystem::directory_iterator("/proc", error)) {
    const long pid = std::strtol(process.path().filename().c_str(), nullptr, 10);
    if (pid <= 0 || !Writes(process.path(), file)) continue;
    text += (text.empty() ? "" : ", ") + DescribeProcess(pid);
  }
  return text.empty() ? DescribeProcess(0) : text;
}

std::string BeingEdited(const struct stat& file) {
  return "is being edited: " + DescribeWriters(file) +
         " has it open for writing; try again when that has ended";
}

ConfLock::ConfLock(const safe_replace::Target& target) {
  const std::string name = "." + target.name + ".brisq-lock";
  constexpr int kFlags = O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK;
  file_ = Descriptor(sys::Open(target.directory.get(), name.c_str(), kFlags, 0600));
  if (!file_) {
    const std::string folder = target.path.substr(0, target.path.rfind('/') + 1);
    sys::Fail("open", folder + name, target.path + " can't be locked and is unchanged");
  }
  Take(target.path);
}

void ConfLock::Take(const std::string& path) {
  const auto limit = ConfWaitLimit();
  const Clock::time_point end = Clock::now() + limit;
  auto pause = std::chrono::microseconds(100);
  while (sys::FLock(file_.get(), LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK) sys::Fail("flock", path, "it can't be locked and is unchanged");
    if (Clock::now() >= end) {
      throw mgr_err::Error("locked", path, Busy(limit));
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::microseconds(5000));
  }
  left_ = ReadNote(file_.get());
  // The rest of the note stays until what it tells of has been dealt with.
  Put(PidLine(), 0);
}

void ConfLock::Put(const std::string& text, std::size_t at) noexcept {
  // Only for messages and for clearing up: a note that can't be written fails no save.
  sys::PWrite(file_.get(), text.data(), text.size(), static_cast<off_t>(at));
}

void ConfLock::NoteExchange(const ConfStamp& old, const ConfStamp& fresh) noexcept {
  // In one write over the former note, whose end may stay behind: at no moment is there none.
  Put(std::to_string(old.inode) + " " + std::to_string(old.size) + " " +
          std::to_string(old.modified) + " " + std::to_string(fresh.inode) + "\n",
      kPidLine);
}

void ConfLock::NoteDone() noexcept { sys::FTruncate(file_.get(), off_t{kPidLine}); }

bool ConfLock::LeftAnEdit(const ConfStamp& left) const {
  std::istringstream note(left_);
  long pid = 0;
  ino_t fresh = 0;
  ConfStamp old = left;
  if (!(note >> pid >> old.inode >> old.size >> old.modified >> fresh)) return false;
  return left.inode != fresh && left != old;
}

std::string ConfLock::Busy(std::chrono::milliseconds waited) const {
  const long holder = std::strtol(ReadNote(file_.get()).c_str(), nullptr, 10);
  const auto seconds = std::max(std::chrono::duration_cast<std::chrono::seconds>(waited),
                                SinceLastNote(file_.get()));
  std::string text = "busy: " + DescribeProcess(holder) + " holds the lock for " +
                     std::to_string(seconds.count()) + " s";
  if (IsStopped(holder)) {
    text += "; it is stopped, kill -CONT " + std::to_string(holder) + " lets it go on";
  }
  return text + "; unchanged";
}
