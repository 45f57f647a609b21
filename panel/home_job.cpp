#include "panel/home_job.h"

#include "framework/request.h"
#include "framework/safe_way.h"
#include "panel/system_dirs.h"

namespace brisq_panel {

MakeHome::MakeHome(const std::string& home, uid_t uid, gid_t gid)
    : home_(home), attrs_(0750, uid, gid) {}

void MakeHome::Do() {
  safe_way::RequireOurs(home_);
  Request::Current()->NoteSteps(StepsOfMaking(home_));
  made_ = MakeDirectories(home_, mgr_file::Attrs(0755, 0, 0), attrs_);
}

std::string MakeHome::Rehearse() {
  safe_way::RequireOurs(home_);
  return "directory " + home_ + " made";
}

void MakeHome::Undo() { RemoveDirectories(made_); }

}  // namespace brisq_panel
