#include "framework/file_swap.h"

#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "framework/aside.h"
#include "framework/descriptor.h"
#include "framework/file_steps.h"
#include "framework/fingerprint.h"
#include "framework/request.h"
#include "framework/sys.h"
#include "mgr_err.h"

namespace {

// Second name of what is replaced, where entries can't be exchanged.
std::string NameOfOld(const std::string& path) { return path + aside::kOldEnd; }

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

// Where a dead process has put what it replaced; empty when it is nowhere any more.
std::string WhereKept(const journal::Step& step) {
  const std::string aside = step.Value("aside");
  for (const std::string& name : {aside, NameOfOld(aside)}) {
    if (fingerprint::At(name) == step.Value("old")) {
      return name;
    }
  }
  return {};
}

void PutBack(const std::string& path, const std::string& kept) {
  if (kept.empty()) {
    throw mgr_err::Error("missed", path, "not undone: what was there before is gone");
  }
  if (Rename(kept, path, 0) != 0) {
    sys::Fail("undo", path, "the old one is " + kept);
  }
}

// The flags of renameat2 are unknown to this kernel or file system.
bool Unsupported(int error) noexcept { return error == EINVAL || error == ENOSYS; }

}  // namespace

bool FileSwap::Stamp::operator==(const Stamp& other) const noexcept {
  return device == other.device && inode == other.inode && size == other.size &&
         modified.tv_sec == other.modified.tv_sec && modified.tv_nsec == other.modified.tv_nsec;
}

FileSwap::FileSwap(const std::string& path)
    : path_(path), directory_(file_steps::DirectoryOf(path)), aside_(aside::PathBeside(path)) {}

// From the delegation on the destructor cleans up after an exception.
FileSwap::FileSwap(const std::string& path, std::string_view content, const mgr_file::Attrs& attrs)
    : FileSwap(path) {
  Note(fingerprint::OfContent(content));
  const Descriptor fd(
      sys::Open(AT_FDCWD, aside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
  if (!fd) {
    sys::Fail("open", path_);
  }
  file_steps::WriteAll(fd.get(), content, path_);
  file_steps::SetAttrs(fd.get(), attrs, path_);
  if (sys::FSync(fd.get()) != 0) {
    sys::Fail("fsync", path_);
  }
  stamp_ = StampOf(aside_);
}

FileSwap::FileSwap(const std::string& path, const LinkTo& link) : FileSwap(path) {
  Note(fingerprint::OfLink(link.target));
  if (sys::SymLink(link.target.c_str(), AT_FDCWD, aside_.c_str()) != 0) {
    sys::Fail("symlink", path_);
  }
  stamp_ = StampOf(aside_);
}

void FileSwap::Note(const std::string& fresh) {
  aside::Note(path_, aside_, fresh, path_ + " replaced", noted_);
  fresh_ = fresh;
}

FileSwap::~FileSwap() {
  // What was replaced and could not be put back must stay.
  if (!published_) {
    aside::Remove(aside_);
  }
}

void FileSwap::RefuseUnfit(const std::string& path) {
  struct stat directory = {};
  if (sys::Stat(AT_FDCWD, file_steps::DirectoryOf(path).c_str(), &directory, 0) != 0) {
    sys::Fail("open", path);
  }
  RefuseDirectory(path);
}

void FileSwap::Publish() {
  RefuseDirectory(path_);
  Note(fresh_);  // another swap of the same request may have replaced it since
  PutInPlace();
  published_ = true;
  aside::MakeDurable(directory_, [this] { Restore(); });
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
  file_steps::SyncDirectoryAt(directory_, directory_);
}

void FileSwap::Discard() noexcept { aside::Remove(aside_); }

bool FileSwap::Undo(const journal::Step& step) {
  const std::string path = step.Value("path");
  const std::string old = step.Value("old");
  const std::string fresh = step.Value("new");
  const std::string there = fingerprint::At(path);
  const bool still_aside = fingerprint::At(step.Value("aside")) == fresh;
  const bool published = there == fresh && fresh != old && !still_aside;
  if (published && old == fingerprint::kNone) {
    if (Unlink(path) != 0) {
      sys::Fail("undo", path);
    }
  } else if (published) {
    PutBack(path, WhereKept(step));
  }
  Finish(step);
  return published || there == old || still_aside;
}

void FileSwap::Finish(const journal::Step& step) {
  const std::string aside = step.Value("aside");
  for (const std::string& name : {aside, NameOfOld(aside)}) {
    if (Unlink(name) != 0 && errno != ENOENT) {
      sys::Fail("unlink", name);
    }
  }
  const std::string directory = file_steps::DirectoryOf(aside);
  file_steps::SyncDirectoryAt(directory, directory);
}

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

void FileSwap::PutInPlace() {
  // Each refusal means that the other case has just come about: a few rounds settle it.
  for (int round = 0; round < 100; ++round) {
    if (TryRename(RENAME_EXCHANGE, ENOENT) || TryRename(RENAME_NOREPLACE, EEXIST)) {
      return;
    }
  }
  throw mgr_err::Error("file", path_,
                       "another program makes and removes it again and again; try again");
}

// False when the system refuses by `refusal`, since something, or nothing, is at the path.
bool FileSwap::TryRename(unsigned flags, int refusal) {
  if (Rename(aside_, path_, flags) == 0) {
    if (flags == RENAME_NOREPLACE) {
      aside_.clear();
    }
    return true;
  }
  if (errno == refusal) {
    return false;
  }
  if (!Unsupported(errno)) {
    sys::Fail("rename", path_);
  }
  ReplaceByRename();
  return true;
}

void FileSwap::ReplaceByRename() {
  std::string old = NameOfOld(aside_);
  if (sys::Link(AT_FDCWD, path_.c_str(), old.c_str()) != 0) {
    if (errno != ENOENT) {
      sys::Fail("link", path_);
    }
    old.clear();
  }
  if (Rename(aside_, path_, 0) != 0) {
    const int error = errno;
    if (!old.empty() && Unlink(old) != 0) {
      Request::KeepCurrentEntry();
    }
    errno = error;
    sys::Fail("rename", path_);
  }
  aside_ = std::move(old);
}
