#include "panel/mend_jobs.h"

#include "framework/request.h"
#include "panel/job_log.h"

namespace brisq_panel {

namespace {

file_access::Access With(file_access::Access access, mode_t mode, uid_t uid, gid_t gid) {
  access.mode = mode;
  access.uid = uid == SetAccess::kSame ? access.uid : uid;
  access.gid = gid == SetAccess::kSame ? access.gid : gid;
  return access;
}

}  // namespace

SetAccess::SetAccess(const file_access::Place& place, const file_access::Access& wanted)
    : place_(place), before_(file_access::Of(place)), wanted_(wanted) {
  JobLog::Declare({kAccess, place_.path, AccessValues(before_), AccessValues(wanted_)});
}

SetAccess::SetAccess(const std::string& path, mode_t mode, uid_t uid, gid_t gid)
    : SetAccess(file_access::Place{path}, With(file_access::Of({path}), mode, uid, gid)) {}

SetAccess::SetAccess(const mgr_file::safe::Folder& folder, mode_t mode)
    : SetAccess({folder.path(), folder},
                With(file_access::Of({folder.path(), folder}), mode, kSame, kSame)) {}

void SetAccess::Do() {
  Request::Current()->NoteSteps({file_access::ToStep(place_, before_, wanted_)});
  file_access::Change(place_, before_, wanted_);
}

void SetAccess::Undo() { file_access::Change(place_, wanted_, before_); }

std::string SetAccess::Rehearse() {
  return "mode of " + place_.path + " set to " + AccessValues(wanted_).at("mode");
}

ClearAway::ClearAway(const std::string& path, const std::string& what,
                     const std::function<void()>& remove)
    : what_(what), remove_(remove) {
  JobLog::Declare({kFile, path, {{"state", "left over"}}, {}});
}

void ClearAway::Do() { remove_(); }

void ClearAway::Undo() {}

std::string ClearAway::Rehearse() { return what_; }

}  // namespace brisq_panel
