#include "framework/safe_replace.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <ctime>
#include <system_error>

#include "framework/file_metadata.h"
#include "framework/file_steps.h"
#include "mgr_err.h"

namespace safe_replace {
namespace {

constexpr const char* kUnchanged = "the file is unchanged";
constexpr std::size_t kWriteBack = std::size_t{4} << 20;
constexpr std::int64_t kSecond = 1'000'000'000;

// What a symbolic link at the path leads to; empty when there is no link.
std::string LinkAt(const std::string& path) {
  std::array<char, PATH_MAX> target;
  const ssize_t size = sys::ReadLink(AT_FDCWD, path.c_str(), target.data(), target.size());
  if (size < 0 && (errno == EINVAL || errno == ENOENT)) return {};
  if (size < 0) sys::Fail("readlink", path);
  const std::string to(target.data(), static_cast<std::size_t>(size));
  return to.starts_with('/') ? to : file_steps::DirectoryOf(path) + "/" + to;
}

std::string FollowLinks(const std::string& path) {
  constexpr int kMostLinks = 40;  // as the system's own limit
  std::string at = path;
  for (int links = 0; links < kMostLinks; ++links) {
    const std::string next = LinkAt(at);
    if (next.empty()) return at;
    at = next;
  }
  errno = ELOOP;
  sys::Fail("readlink", path);
}

void RequireGuarded(int directory, const std::string& folder) {
  struct stat info {};
  if (sys::FStat(directory, &info) != 0) sys::Fail("fstat", folder);
  if ((info.st_mode & S_IWOTH) == 0 || (info.st_mode & S_ISVTX) != 0) return;
  throw mgr_err::Error("file", folder,
                       "unsafe permissions: everybody may replace files in this directory; "
                       "chmod o-w ends it");
}

// While it lives, a write beyond the process's limit of file size is an error and not the end of
// the process.
class SizeSignalHeld {
 public:
  SizeSignalHeld() {
    sigemptyset(&signal_);
    sigaddset(&signal_, SIGXFSZ);
    ::pthread_sigmask(SIG_BLOCK, &signal_, &before_);
  }
  ~SizeSignalHeld() {
    const struct timespec now {};
    if (sigismember(&before_, SIGXFSZ) == 0) {
      while (::sigtimedwait(&signal_, nullptr, &now) > 0) {
      }
    }
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  SizeSignalHeld(const SizeSignalHeld&) = delete;
  SizeSignalHeld& operator=(const SizeSignalHeld&) = delete;

 private:
  sigset_t signal_;
  sigset_t before_;
};

std::vector<struct iovec> Vectors(const std::vector<std::string_view>& pieces) {
  std::vector<struct iovec> vectors;
  vectors.reserve(pieces.size());
  for (const std::string_view piece : pieces) {
    // Large pieces are cut, so that write-back starts early in them too.
    for (std::size_t at = 0; at < piece.size(); at += kWriteBack) {
      const std::string_view part = piece.substr(at, kWriteBack);
      vectors.push_back({const_cast<char*>(part.data()), part.size()});
    }
  }
  return vectors;
}

}  // namespace

Target Target::Resolve(const std::string& path) {
  Target target;
  target.path = FollowLinks(path);
  const std::string folder = file_steps::DirectoryOf(target.path);
  target.name = target.path.substr(target.path.rfind('/') + 1);
  target.directory = Descriptor(sys::Open(AT_FDCWD, folder.c_str(), O_RDONLY | O_DIRECTORY));
  if (!target.directory) {
    sys::Fail("open", folder, path == target.path ? "" : path + " is a link that leads there");
  }
  RequireGuarded(target.directory.get(), folder);
  return target;
}

Replacement::Replacement(const Target& target, Slot slot, int old, const struct stat& old_info)
    : target_(target), name_(TemporaryName(target.name, slot)), replaces_(old >= 0) {
  if (replaces_ && old_info.st_nlink > 1) {
    throw mgr_err::Error("file", target_.path,
                         "has more than one name (hard links), of which only one would be changed; "
                         "find them with find -samefile and keep one");
  }
  Create();
  try {
    if (replaces_) {
      file_metadata::Copy(old, old_info, file_.get(), target_.path);
    } else {
      file_metadata::SetFresh(file_.get(), target_.path);
    }
  } catch (...) {
    sys::Unlink(target_.directory.get(), name_.c_str());
    throw;
  }
}

Replacement::~Replacement() {
  if (exists_) sys::Unlink(target_.directory.get(), name_.c_str());
}

void Replacement::Create() {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  file_ = Descriptor(sys::Open(target_.directory.get(), name_.c_str(), kFlags, 0600));
  if (!file_) sys::Fail("open", file_steps::DirectoryOf(target_.path) + "/" + name_, kUnchanged);
  exists_ = true;
}

void Replacement::Write(const std::vector<std::string_view>& pieces,
                        const std::function<void(std::size_t)>& written) {
  const SizeSignalHeld held;
  std::vector<struct iovec> vectors = Vectors(pieces);
  std::size_t bytes = 0;
  for (std::size_t first = 0; first < vectors.size();) {
    bytes += WriteSome(vectors, first);
    if (written) written(bytes);
  }
}

std::size_t Replacement::WriteSome(std::vector<struct iovec>& pieces, std::size_t& first) {
  std::size_t count = 0;
  std::size_t bytes = 0;
  while (first + count < pieces.size() && count < IOV_MAX && bytes < kWriteBack) {
    bytes += pieces[first + count++].iov_len;
  }
  const ssize_t result = sys::WriteV(file_.get(), &pieces[first], static_cast<int>(count));
  if (result < 0) sys::Fail("write", target_.path, kUnchanged);
  auto written = static_cast<std::size_t>(result);
  for (; first < pieces.size() && written >= pieces[first].iov_len; ++first) {
    written -= pieces[first].iov_len;
  }
  if (written > 0) {
    pieces[first].iov_base = static_cast<char*>(pieces[first].iov_base) + written;
    pieces[first].iov_len -= written;
  }
  // Writing back now rather than at the sync lets the disk work while we write on.
  if (bytes >= kWriteBack) StartWriteBack();
  return static_cast<std::size_t>(result);
}

void Replacement::StartWriteBack() noexcept {
  ::sync_file_range(file_.get(), 0, 0, SYNC_FILE_RANGE_WRITE);
}

void Replacement::Seal(const ConfStamp& old) {
  // Set rather than left to the system, whose clock steps by milliseconds: nobody else's change
  // within the same step can have this time.
  struct timespec now {};
  ::clock_gettime(CLOCK_REALTIME, &now);
  if (old.exists) now.tv_sec = std::max<time_t>(now.tv_sec, old.modified / kSecond + 1);
  const struct timespec times[2] = {{0, UTIME_OMIT}, now};
  if (sys::FUTimeNS(file_.get(), times) != 0) sys::Fail("futimens", target_.path, kUnchanged);
  struct stat info {};
  if (sys::FStat(file_.get(), &info) != 0) sys::Fail("fstat", target_.path, kUnchanged);
  stamp_ = ConfStamp::Of(info);
  // After a failure the kernel may count the pages as written: the file is given up, not synced
  // again.
  if (sys::FSync(file_.get()) != 0) sys::Fail("fsync", target_.path, kUnchanged);
  // Open for writing it would look like somebody's edit.
  file_ = Descriptor();
}

bool Replacement::TargetIs(const ConfStamp& old) const {
  struct stat info {};
  if (sys::Stat(target_.directory.get(), target_.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0) {
    return ConfStamp::Of(info).SameContentAs(old);
  }
  if (errno != ENOENT) sys::Fail("stat", target_.path, kUnchanged);
  return !old.exists;
}

Replacement::Outcome Replacement::Publish(const ConfStamp& old) {
  const unsigned int flags = replaces_ ? RENAME_EXCHANGE : RENAME_NOREPLACE;
  const int directory = target_.directory.get();
  if (sys::Rename(directory, name_.c_str(), target_.name.c_str(), flags) == 0) {
    exists_ = replaces_;
    return replaces_ ? Outcome::kExchanged : Outcome::kDone;
  }
  if (errno == (replaces_ ? ENOENT : EEXIST)) return Outcome::kChanged;
  if (errno == EINVAL || errno == ENOSYS || errno == ENOTSUP) return PublishByName(old);
  sys::Fail("rename", target_.path, kUnchanged);
}

Replacement::Outcome Replacement::PublishByName(const ConfStamp& old) {
  // The file system knows no exchange. What somebody does between this look and the renaming is
  // lost; it is as short as it can be.
  if (!TargetIs(old)) return Outcome::kChanged;
  if (sys::Rename(target_.directory.get(), name_.c_str(), target_.name.c_str(), 0) != 0) {
    sys::Fail("rename", target_.path, kUnchanged);
  }
  exists_ = false;
  return Outcome::kDone;
}

bool Replacement::TakeBack() noexcept {
  if (!exists_) return false;
  const int directory = target_.directory.get();
  if (sys::Rename(directory, name_.c_str(), target_.name.c_str(), RENAME_EXCHANGE) == 0)
    return true;
  exists_ = false;
  return false;
}

std::string TemporaryName(const std::string& name, Replacement::Slot slot) {
  return "." + name + (slot == Replacement::Slot::kFirst ? ".brisq-new" : ".brisq-next");
}

std::string KeepAside(const Target& target, Replacement::Slot slot) {
  const std::string from = TemporaryName(target.name, slot);
  for (int number = 1;; ++number) {
    const std::string to = target.name + ".edited-" + std::to_string(number);
    if (sys::Rename(target.directory.get(), from.c_str(), to.c_str(), RENAME_NOREPLACE) == 0) {
      return file_steps::DirectoryOf(target.path) + "/" + to;
    }
    if (errno != EEXIST) sys::Fail("rename", file_steps::DirectoryOf(target.path) + "/" + from);
  }
}

void Sweep(const Target& target, Replacement::Slot slot) {
  const std::string name = TemporaryName(target.name, slot);
  if (sys::Unlink(target.directory.get(), name.c_str()) == 0 || errno == ENOENT) return;
  sys::Fail("unlink", file_steps::DirectoryOf(target.path) + "/" + name, kUnchanged);
}

void SyncDirectory(const Target& target) {
  // A file system that can't sync directories (EINVAL) has nothing to sync.
  if (sys::FSync(target.directory.get()) == 0 || errno == EINVAL) return;
  const std::string reason = std::generic_category().message(errno);
  throw mgr_err::Error("doubt", target.path,
                       "was changed, but the change may be lost on a power failure: fsync of " +
                           file_steps::DirectoryOf(target.path) + ": " + reason);
}

}  // namespace safe_replace
