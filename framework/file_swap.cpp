#include "framework/file_swap.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "framework/descriptor.h"
#include "framework/file_error.h"

using mgr_file::FileError;

namespace {

std::string DirectoryOf(const std::string& path) {
  const std::string directory = mgr_file::SplitPath(path).first;
  if (directory.empty()) {
    return path.starts_with('/') ? "/" : ".";
  }
  return directory;
}

std::string RandomName(const std::string& directory) {
  std::uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != ssize_t{sizeof number}) {
    throw FileError(directory, "getrandom");
  }
  std::array<char, 17> digits{};
  std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
  return mgr_file::ConcatPath(directory, std::string(".brisq-job-") + digits.data());
}

void WriteAll(int fd, std::string_view content, const std::string& path) {
  while (!content.empty()) {
    const ssize_t written = ::write(fd, content.data(), content.size());
    if (written < 0 && errno != EINTR) {
      throw FileError(path, "write");
    }
    content.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
}

void SetAttrs(int fd, const mgr_file::Attrs& attrs, const std::string& path) {
  // Owner before mode: chown(2) may clear bits that chmod(2) has set.
  if (::fchown(fd, attrs.uid, attrs.gid) != 0) {
    throw FileError(path, "chown");
  }
  if (::fchmod(fd, attrs.mode) != 0) {
    throw FileError(path, "chmod");
  }
}

void SyncDirectory(const std::string& directory) {
  const Descriptor fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // A file system that can't sync directories says EINVAL and has nothing to sync.
  if (!fd || (::fsync(fd.get()) != 0 && errno != EINVAL)) {
    throw FileError(directory, "fsync");
  }
}

int Rename2(const std::string& from, const std::string& to, unsigned flags) noexcept {
  return ::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), flags);
}

// The flags of renameat2 are unknown to this kernel or file system.
bool Unsupported(int error) noexcept { return error == EINVAL || error == ENOSYS; }

}  // namespace

bool FileSwap::Stamp::operator==(const Stamp& other) const noexcept {
  return device == other.device && inode == other.inode && size == other.size &&
         modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
}

FileSwap::FileSwap(const std::string& path)
    : path_(path), directory_(DirectoryOf(path)), aside_(RandomName(directory_)) {}

// From the delegation on the destructor cleans up after an exception.
FileSwap::FileSwap(const std::string& path, std::string_view content, const mgr_file::Attrs& attrs)
    : FileSwap(path) {
  const Descriptor fd(
      ::open(aside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (!fd) {
    throw FileError(path_, "open");
  }
  WriteAll(fd.get(), content, path_);
  SetAttrs(fd.get(), attrs, path_);
  if (::fsync(fd.get()) != 0) {
    throw FileError(path_, "fsync");
  }
  stamp_ = StampOf(aside_);
}

FileSwap::FileSwap(const std::string& path, const LinkTo& link) : FileSwap(path) {
  if (::symlink(link.target.c_str(), aside_.c_str()) != 0) {
    throw FileError(path_, "symlink");
  }
  stamp_ = StampOf(aside_);
}

FileSwap::~FileSwap() {
  // What was replaced and could not be put back must stay.
  if (!published_) {
    RemoveAside();
  }
}

void FileSwap::Publish() {
  struct stat there = {};
  if (::lstat(path_.c_str(), &there) == 0 && S_ISDIR(there.st_mode)) {
    throw FileError(path_, "rename", EISDIR);
  }
  PutInPlace();
  published_ = true;
  try {
    SyncDirectory(directory_);
  } catch (...) {
    Restore();
    throw;
  }
}

void FileSwap::Restore() {
  if (!(StampOf(path_) == stamp_)) {
    Discard();
    throw mgr_err::Error("file", path_, "not undone: changed since");
  }
  const int result =
      aside_.empty() ? ::unlink(path_.c_str()) : ::rename(aside_.c_str(), path_.c_str());
  if (result != 0) {
    throw FileError(path_, aside_.empty() ? "unlink" : "rename of " + aside_);
  }
  aside_.clear();
  SyncDirectory(directory_);
}

void FileSwap::Discard() noexcept { RemoveAside(); }

FileSwap::Stamp FileSwap::StampOf(const std::string& path) const {
  struct stat state = {};
  if (::lstat(path.c_str(), &state) == 0) {
    return {state.st_dev, state.st_ino, state.st_size, state.st_mtim};
  }
  if (errno != ENOENT) {
    throw FileError(path_, "stat");
  }
  return {};
}

void FileSwap::RemoveAside() noexcept {
  if (!aside_.empty()) {
    ::unlink(aside_.c_str());
    aside_.clear();
  }
}

void FileSwap::PutInPlace() {
  // Each refusal means that the other case has just come about: a few rounds settle it.
  for (int round = 0; round < 100; ++round) {
    if (ExchangeWithOld() || PlaceIfNone()) {
      return;
    }
  }
  throw mgr_err::Error("file", path_, "rename: comes and goes all the time");
}

bool FileSwap::ExchangeWithOld() {
  if (Rename2(aside_, path_, RENAME_EXCHANGE) == 0) {
    return true;
  }
  if (Unsupported(errno)) {
    ReplaceByRename();
    return true;
  }
  if (errno != ENOENT) {
    throw FileError(path_, "rename");
  }
  return false;
}

bool FileSwap::PlaceIfNone() {
  if (Rename2(aside_, path_, RENAME_NOREPLACE) == 0) {
    aside_.clear();
    return true;
  }
  if (Unsupported(errno)) {
    ReplaceByRename();
    return true;
  }
  if (errno != EEXIST) {
    throw FileError(path_, "rename");
  }
  return false;
}

void FileSwap::ReplaceByRename() {
  std::string old = RandomName(directory_);
  if (::link(path_.c_str(), old.c_str()) != 0) {
    if (errno != ENOENT) {
      throw FileError(path_, "link");
    }
    old.clear();
  }
  if (::rename(aside_.c_str(), path_.c_str()) != 0) {
    const int error = errno;
    if (!old.empty()) {
      ::unlink(old.c_str());
    }
    throw FileError(path_, "rename", error);
  }
  aside_ = std::move(old);
}
