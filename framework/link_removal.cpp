#include "framework/link_removal.h"

#include <fcntl.h>
#include <stdio.h>

#include <cerrno>

#include "framework/aside.h"
#include "framework/file_steps.h"
#include "framework/fingerprint.h"
#include "framework/sys.h"
#include "mgr_err.h"

namespace {

bool IsLinkAt(const std::string& path) { return fingerprint::IsLink(fingerprint::At(path)); }

void SyncDirectoryOf(const std::string& path) {
  const std::string directory = file_steps::DirectoryOf(path);
  file_steps::SyncDirectoryAt(directory, directory);
}

}  // namespace

LinkRemoval::LinkRemoval(const std::string& path) : path_(path), aside_(aside::PathBeside(path)) {
  if (IsLinkAt(path_)) {
    std::string noted;
    aside::Note(path_, aside_, fingerprint::kNone, path_ + " removed", noted);
  }
}

void LinkRemoval::Publish() {
  if (!IsLinkAt(path_)) {
    return;
  }
  if (sys::Rename(AT_FDCWD, path_.c_str(), aside_.c_str(), 0) != 0) {
    sys::Fail("rename", path_);
  }
  moved_ = aside_;
  aside::MakeDurable(file_steps::DirectoryOf(path_), [this] { Restore(); });
}

void LinkRemoval::Restore() {
  if (moved_.empty()) {
    return;
  }
  if (sys::Rename(AT_FDCWD, moved_.c_str(), path_.c_str(), RENAME_NOREPLACE) != 0) {
    if (errno != EEXIST) {
      sys::Fail("undo", path_, "the old one is " + moved_);
    }
    Discard();
    throw mgr_err::Error("file", path_, "not undone: changed since");
  }
  moved_.clear();
  SyncDirectoryOf(path_);
}

void LinkRemoval::Discard() noexcept { aside::Remove(moved_); }
