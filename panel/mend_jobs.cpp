#include "panel/mend_jobs.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "framework/descriptor.h"
#include "framework/file_error.h"
#include "framework/user_dir.h"
#include "mgr_err.h"

namespace brisq_panel {

namespace {

constexpr mode_t kBits = 07777;

mgr_err::Error Changed(const std::string& path) {
  return mgr_err::Error("file", path, "not undone: changed since");
}

std::string Octal(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode));
  return text;
}

struct stat StateOf(const Descriptor& file, const std::string& path) {
  struct stat state {};
  if (!file) {
    throw mgr_file::FileError(path, "open");
  }
  if (::fstat(file.get(), &state) != 0) {
    throw mgr_file::FileError(path, "stat");
  }
  return state;
}

void ChangeMode(const Descriptor& file, mode_t mode, const std::string& path) {
  if (::fchmod(file.get(), mode) != 0) {
    throw mgr_file::FileError(path, "chmod");
  }
}

}  // namespace

SetAccess::SetAccess(const std::string& path, mode_t mode, uid_t uid, gid_t gid)
    : path_(path), wanted_{mode, uid, gid} {}

void SetAccess::Set(const Access& access, const Access* expected, Access* before) const {
  // Without O_NONBLOCK a pipe at the path would hold us up.
  const Descriptor file(::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  const struct stat state = StateOf(file, path_);
  if (expected != nullptr && (state.st_mode & kBits) != expected->mode) {
    throw Changed(path_);
  }
  if (before != nullptr) {
    *before = {state.st_mode & kBits, state.st_uid, state.st_gid};
  }
  // Owner before mode: chown may clear bits that chmod has set.
  if ((access.uid != kSame || access.gid != kSame) &&
      ::fchown(file.get(), access.uid, access.gid) != 0) {
    throw mgr_file::FileError(path_, "chown");
  }
  ChangeMode(file, access.mode, path_);
}

void SetAccess::Do() { Set(wanted_, nullptr, &before_); }

void SetAccess::Undo() { Set(before_, &wanted_, nullptr); }

std::string SetAccess::Rehearse() { return "mode of " + path_ + " set to " + Octal(wanted_.mode); }

SetFolderMode::SetFolderMode(const mgr_file::safe::Folder& folder, mode_t mode)
    : folder_(folder), wanted_(mode) {}

mode_t SetFolderMode::Change(mode_t mode, mode_t expected) const {
  const Descriptor folder = user_dir::Open(folder_);
  const mode_t before = StateOf(folder, folder_.path()).st_mode & kBits;
  if (expected != 0 && before != expected) {
    throw Changed(folder_.path());
  }
  ChangeMode(folder, mode, folder_.path());
  return before;
}

void SetFolderMode::Do() { before_ = Change(wanted_, 0); }

void SetFolderMode::Undo() { Change(before_, wanted_); }

std::string SetFolderMode::Rehearse() {
  return "mode of " + folder_.path() + " set to " + Octal(wanted_);
}

ClearAway::ClearAway(const std::string& what, const std::function<void()>& remove)
    : what_(what), remove_(remove) {}

void ClearAway::Do() { remove_(); }

void ClearAway::Undo() {}

std::string ClearAway::Rehearse() { return what_; }

}  // namespace brisq_panel
