#pragma once

#include <string>
#include <vector>

#include "mgr_job.h"

namespace brisq_panel {

/// Makes an owner's home directory (0750, the owner's) with its missing parents (0755, root's).
/// Undone, what it made is removed as far as it is empty. Fails with mgr_err::Error "file" when
/// another user could bend the way to it, as one whose own home lies on it.
class BRISQ_API MakeHome : public mgr_job::Job {
 public:
  MakeHome(const std::string& home, uid_t uid, gid_t gid);
  void Do() override;
  void Undo() override;
  std::string Rehearse() override;

 private:
  std::string home_;
  mgr_file::Attrs attrs_;
  std::vector<std::string> made_;
};

}  // namespace brisq_panel
