#include "framework/file_swap.h"

#include <fcntl.h>
#include <sys/uio.h>

#include <cerrno>
#include <utility>

#include "framework/descriptor.h"
#include "framework/entry_print.h"
#include "framework/file_steps.h"
#include "framework/random_hex.h"
#include "framework/request.h"
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

std::string NameBeside(const std::string& directory) {
  return mgr_file::ConcatPath(directory, ".brisq-job-" + RandomHex());
}

// Second name of what is replaced, where entries can't be exchanged.
std::string NameOfOld(const std::string& aside) { return aside + "-old"; }

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

// Where a dead process has put what it replaced; empty when it is nowhere any more.
std::string WhereKept(const journal::Step& step) {
  const std::string aside = step.Value("aside");
  for (const std::string& name : {aside, NameOfOld(aside)}) {
    if (entry_print::At(name) == step.Value("old")) {
      return name;
    }
  }
  return {};
}

void PutBack(const std::string& path, const std::string& kept) {
  if (kept.empty()) {
    throw mgr_err::Error("file", path, "not undone: what was there before is gone");
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
    : path_(path), directory_(DirectoryOf(path)), aside_(NameBeside(directory_)) {}

// From the delegation on the destructor cleans up after an exception.
FileSwap::FileSwap(const std::string& path, std::string_view content, const mgr_file::Attrs& attrs)
    : FileSwap(path) {
  Note(entry_print::OfContent(content));
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
  Note(entry_print::OfLink(link.target));
  if (sys::SymLink(link.target.c_str(), AT_FDCWD, aside_.c_str()) != 0) {
    sys::Fail("symlink", path_);
  }
  stamp_ = StampOf(aside_);
}

FileSwap::FileSwap(const std::string& path, const Nothing&) : FileSwap(path) {
  removal_ = true;
  if (entry_print::IsLink(entry_print::At(path_))) {
    Note(entry_print::kNone);
  }
}

void FileSwap::Note(const std::string& fresh) const {
  if (Request* request = Request::Current()) {
    request->NoteSteps({{"swap",
                         {{"path", path_},
                          {"aside", aside_},
                          {"old", entry_print::At(path_)},
                          {"new", fresh},
                          {"what", path_ + (removal_ ? " removed" : " replaced")}}}});
  }
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
  if (removal_) {
    return PublishRemoval();
  }
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

void FileSwap::PublishRemoval() {
  if (!entry_print::IsLink(entry_print::At(path_))) {
    aside_.clear();
    return;
  }
  if (Rename(path_, aside_, 0) != 0) {
    sys::Fail("rename", path_);
  }
  published_ = true;
  try {
    SyncDirectory(directory_);
  } catch (...) {
    Restore();
    throw;
  }
}

void FileSwap::RestoreRemoved() {
  if (aside_.empty()) {
    return;
  }
  if (Rename(aside_, path_, RENAME_NOREPLACE) != 0) {
    if (errno != EEXIST) {
      sys::Fail("undo", path_, WhereOldIs());
    }
    Discard();
    throw mgr_err::Error("file", path_, "not undone: changed since");
  }
  aside_.clear();
  SyncDirectory(directory_);
}

void FileSwap::Restore() {
  if (removal_) {
    return RestoreRemoved();
  }
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

bool FileSwap::Undo(const journal::Step& step) {
  const std::string path = step.Value("path");
  const std::string old = step.Value("old");
  const std::string fresh = step.Value("new");
  const std::string there = entry_print::At(path);
  const bool still_aside = entry_print::At(step.Value("aside")) == fresh;
  const bool published = there == fresh && fresh != old && !still_aside;
  if (published && old == entry_print::kNone) {
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
  SyncDirectory(DirectoryOf(aside));
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

void FileSwap::RemoveAside() noexcept {
  if (aside_.empty()) {
    return;
  }
  if (Unlink(aside_) != 0 && errno != ENOENT && Request::Current() != nullptr) {
    Request::Current()->KeepEntry();
  }
  aside_.clear();
}

void FileSwap::PutInPlace() {
  // Each refusal means that the other case has just come about: a few rounds settle it.
  for (int round = 0; round < 100; ++round) {
    if (ExchangeWithOld() || PlaceIfNone()) {
      return;
    }
  }
  throw mgr_err::Error("file", path_,
                       "another program makes and removes it again and again; try again");
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
  std::string old = NameOfOld(aside_);
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
