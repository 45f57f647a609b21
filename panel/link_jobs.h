#pragma once

#include <memory>
#include <string>
#include <vector>

#include "mgr_job.h"

class FileSwap;
class LinkRemoval;

/// Jobs on symbolic links in directories of the system.
namespace brisq_panel {

/// Makes `path` a symbolic link to `target`; a link that is there is replaced in one step and comes
/// back when the request fails. Missing directories on the way are made (0755, root).
///
/// Fails with mgr_err::Error "file" when anything else than a link is at the path: it may be the
/// only copy of a key.
class BRISQ_API PlaceLink : public mgr_job::Job {
 public:
  PlaceLink(const std::string& target, const std::string& path);
  ~PlaceLink() override;
  void Do() override;
  /// Leaves the path alone when it is not this link any more.
  void Undo() override;
  void Forget() noexcept override;
  std::string Rehearse() override;

 private:
  std::string target_;
  std::string path_;
  std::unique_ptr<FileSwap> swap_;  // null before Do
  std::vector<std::string> made_;
};

/// Removes a symbolic link; anything else at the path is left alone.
class BRISQ_API RemoveLink : public mgr_job::Job {
 public:
  explicit RemoveLink(const std::string& path);
  ~RemoveLink() override;
  void Do() override;
  /// Leaves the path alone when something else is there by now.
  void Undo() override;
  void Forget() noexcept override;
  std::string Rehearse() override;

 private:
  std::string path_;
  std::unique_ptr<LinkRemoval> removal_;
};

}  // namespace brisq_panel
