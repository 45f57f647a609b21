#include "panel/link_jobs.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>

#include "framework/file_error.h"
#include "framework/file_swap.h"
#include "mgr_file.h"
#include "panel/names.h"
#include "panel/system_dirs.h"

namespace brisq_panel {

namespace {

// Hidden, beside the path, and not to be guessed.
std::string NameBeside(const std::string& path) {
  const auto [directory, name] = mgr_file::SplitPath(path);
  return mgr_file::ConcatPath(directory, "." + name + "." + GeneratePassword());
}

// Empty when the path is no symbolic link.
std::string LinkTarget(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
  return length < 0 ? std::string() : std::string(target, static_cast<std::size_t>(length));
}

void Rename(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) {
    throw mgr_file::FileError(to, "rename");
  }
}

}  // namespace

PlaceLink::PlaceLink(const std::string& target, const std::string& path)
    : target_(target), path_(path) {}

PlaceLink::~PlaceLink() = default;

void PlaceLink::Do() {
  const mgr_file::Attrs attrs(0755, 0, 0);
  made_ = MakeDirectories(mgr_file::SplitPath(path_).first, attrs, attrs);
  try {
    swap_ = std::make_unique<FileSwap>(path_, FileSwap::LinkTo{target_});
    swap_->Publish();
  } catch (...) {
    swap_.reset();
    RemoveDirectories(made_);
    throw;
  }
}

void PlaceLink::Undo() {
  swap_->Restore();
  RemoveDirectories(made_);
}

void PlaceLink::Forget() noexcept { swap_->Discard(); }

std::string PlaceLink::Rehearse() {
  struct stat there {};
  if (::lstat(path_.c_str(), &there) == 0 && S_ISDIR(there.st_mode)) {
    throw mgr_file::FileError(path_, "link", EISDIR);
  }
  return LinkTarget(path_) == target_ ? "" : "link " + path_ + " to " + target_ + " placed";
}

RemoveLink::RemoveLink(const std::string& path) : path_(path) {}

void RemoveLink::Do() {
  if (LinkTarget(path_).empty()) {
    return;
  }
  const std::string aside = NameBeside(path_);
  Rename(path_, aside);
  old_ = aside;
}

void RemoveLink::Undo() {
  if (old_.empty()) {
    return;
  }
  if (::renameat2(AT_FDCWD, old_.c_str(), AT_FDCWD, path_.c_str(), RENAME_NOREPLACE) != 0) {
    Forget();
    throw mgr_err::Error("file", path_, "not undone: changed since");
  }
}

void RemoveLink::Forget() noexcept {
  if (!old_.empty()) {
    ::unlink(old_.c_str());
  }
}

std::string RemoveLink::Rehearse() {
  return LinkTarget(path_).empty() ? "" : "link " + path_ + " removed";
}

}  // namespace brisq_panel
