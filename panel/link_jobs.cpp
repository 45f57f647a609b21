#include "panel/link_jobs.h"

#include <sys/stat.h>

#include "framework/file_swap.h"
#include "framework/fingerprint.h"
#include "framework/link_removal.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "panel/system_dirs.h"

namespace brisq_panel {

namespace {

// Certificates and keys that somebody has put there himself have no other copy that we know of.
void RefuseOther(const std::string& path) {
  struct stat there {};
  if (::lstat(path.c_str(), &there) == 0 && !S_ISLNK(there.st_mode)) {
    throw mgr_err::Error("file", path, "is no link: move it away, a link belongs there");
  }
}

}  // namespace

PlaceLink::PlaceLink(const std::string& target, const std::string& path)
    : target_(target), path_(path) {}

PlaceLink::~PlaceLink() = default;

void PlaceLink::Do() {
  RefuseOther(path_);
  const mgr_file::Attrs attrs(0755, 0, 0);
  const std::string directory = mgr_file::SplitPath(path_).first;
  Request::Current()->NoteSteps(StepsOfMaking(directory));
  made_ = MakeDirectories(directory, attrs, attrs);
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
  RefuseOther(path_);
  return fingerprint::At(path_) == fingerprint::OfLink(target_)
             ? ""
             : "link " + path_ + " to " + target_ + " placed";
}

RemoveLink::RemoveLink(const std::string& path) : path_(path) {}

RemoveLink::~RemoveLink() = default;

void RemoveLink::Do() {
  removal_ = std::make_unique<LinkRemoval>(path_);
  removal_->Publish();
}

void RemoveLink::Undo() { removal_->Restore(); }

void RemoveLink::Forget() noexcept { removal_->Discard(); }

std::string RemoveLink::Rehearse() {
  return fingerprint::IsLink(fingerprint::At(path_)) ? "link " + path_ + " removed" : "";
}

}  // namespace brisq_panel
