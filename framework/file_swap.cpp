#include "framework/file_swap.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/uio.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>

#include "framework/descriptor.h"
#include "framework/file_steps.h"
#include "framework/sys.h"
#include "mgr_err.h"

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
    sys::Fail("getrandom", directory);
  }
  std::array<char, 17> digits{};
  std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
  return mgr_file::ConcatPath(directory, std::string(".brisq-job-") + digits.data());
}

void WriteAll(int fd, std::string_view content, const std::string& path) {
  std::string buffer(content);
  for (std::size_t at = 0; at < buffer.size();) {
    const iovec piece = {buffer.data() + at, buffer.size() - at};
    const ssize_t written = sys::WriteV(fd, &piece, 1);
    if (written < 0) {
      sys::Fail("write", path);
    }
    at += static_cast<std::size_t>(written);
  }
}

void SyncDirectory(const std::string& directory) {
  const Descriptor fd(sys::Open(AT_FDCWD, directory.c_str(), O_RDONLY | O_DIRECTORY));
  if (!fd) {
    sys::Fail("open", directory);
  }
  file_steps::SyncDirectory(fd.get(), directory);
}

int Rename(const std::string& from, const std::string& to, unsigned flags) {
  return sys::Rename(AT_FDCWD, from.c_str(), to.c_str(), flags);
}

// An exchange would take a directory's place as well.
void RefuseDirectory(const std::string& path) {
  struct stat there = {};
  if (sys::Stat(AT_FDCWD, path.c_str(), &there, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) {
      sys::Fail("stat", path);
    }
  } else if (S_ISDIR(there.st_mode)) {
    errno = EISDIR;
    sys::Fail("rename", path);
  }
}

int Unlink(const std::string& path) { return sys::Unlink(AT_FDCWD, path.c_str()); }

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
      sys::Open(AT_FDCWD, aside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (!fd) {
    sys::Fail("open", path_);
  }
  WriteAll(fd.get(), content, path_);
  file_steps::SetAttrs(fd.get(), attrs, path_);
  if (sys::FSync(fd.get()) != 0) {
    sys::Fail("fsync", path_);
  }
  stamp_ = StampOf(aside_);
}

FileSwap::FileSwap(const std::string& path, const LinkTo& link) : FileSwap(path) {
  if (sys::SymLink(link.target.c_str(), AT_FDCWD, aside_.c_str()) != 0) {
    sys::Fail("symlink", path_);
  }
  stamp_ = StampOf(aside_);
}

FileSwap::~FileSwap() {
  // What was replaced and could not be put back must stay.
  if (!published_) {
    RemoveAside();
  }
}

void FileSwap::RefuseUnfit(const std::string& path) {
  struct stat directory = {};
  if (sys::Stat(AT_FDCWD, DirectoryOf(path).c_str(), &directory, 0) != 0) {
    sys::Fail("open", path);
  }
  RefuseDirectory(path);
}

void FileSwap::Publish() {
  RefuseDirectory(path_);
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
  if (aside_.empty() ? Unlink(path_) != 0 : Rename(aside_, path_, 0) != 0) {
    sys::Fail("undo", path_, WhereOldIs());
  }
  aside_.clear();
  SyncDirectory(directory_);
}

void FileSwap::Discard() noexcept { RemoveAside(); }

FileSwap::Stamp FileSwap::StampOf(const std::string& path) const {
  struct stat state = {};
  if (sys::Stat(AT_FDCWD, path.c_str(), &state, AT_SYMLINK_NOFOLLOW) == 0) {
    return {state.st_dev, state.st_ino, state.st_size, state.st_mtim};
  }
  if (errno != ENOENT) {
    sys::Fail("stat", path_, WhereOldIs());
  }
  return {};
}

std::string FileSwap::WhereOldIs() const {
  return published_ && !aside_.empty() ? "the old one is " + aside_ : "";
}

void FileSwap::RemoveAside() noexcept {
  if (!aside_.empty()) {
    Unlink(aside_);
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
  if (Rename(aside_, path_, RENAME_EXCHANGE) == 0) {
    return true;
  }
  if (Unsupported(errno)) {
    ReplaceByRename();
    return true;
  }
  if (errno != ENOENT) {
    sys::Fail("rename", path_);
  }
  return false;
}

bool FileSwap::PlaceIfNone() {
  if (Rename(aside_, path_, RENAME_NOREPLACE) == 0) {
    aside_.clear();
    return true;
  }
  if (Unsupported(errno)) {
    ReplaceByRename();
    return true;
  }
  if (errno != EEXIST) {
    sys::Fail("rename", path_);
  }
  return false;
}

void FileSwap::ReplaceByRename() {
  std::string old = RandomName(directory_);
  if (sys::Link(AT_FDCWD, path_.c_str(), old.c_str()) != 0) {
    if (errno != ENOENT) {
      sys::Fail("link", path_);
    }
    old.clear();
  }
  if (Rename(aside_, path_, 0) != 0) {
    const int error = errno;
    if (!old.empty()) {
      Unlink(old);
    }
    errno = error;
    sys::Fail("rename", path_);
  }
  aside_ = std::move(old);
}
