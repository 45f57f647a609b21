#include "panel/maildir.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

#include "framework/sys.h"
#include "framework/user_dir.h"
#include "mgr_job.h"
#include "panel/job_log.h"
#include "safe_file.h"

namespace brisq_panel {

namespace {

std::string PathOf(const std::string& home) { return mgr_file::ConcatPath(home, ".maildir"); }

// Whatever stands at the name counts as there.
bool IsMissing(const mgr_file::safe::Folder& maildir, const char* name) {
  struct stat state {};
  const Descriptor at = user_dir::Open(maildir);
  if (sys::Stat(at.get(), name, &state, AT_SYMLINK_NOFOLLOW) == 0) {
    return false;
  }
  if (errno != ENOENT) {
    sys::Fail("stat", mgr_file::ConcatPath(maildir.path(), name));
  }
  return true;
}

std::vector<const char*> MissingFolders(const mgr_file::safe::Folder& maildir, bool all) {
  std::vector<const char*> missing;
  for (const char* name : kMaildirFolders) {
    if (all || IsMissing(maildir, name)) {
      missing.push_back(name);
    }
  }
  return missing;
}

}  // namespace

mgr_file::safe::Folder MaildirOf(const brisq_db::User& owner, const std::string& home) {
  return user_dir::Below(owner, PathOf(home));
}

bool IsMaildirMissing(const brisq_db::User& owner, const std::string& home) {
  const mgr_file::safe::Folder maildir = MaildirOf(owner, home);
  return user_dir::CheckMakePath(maildir) || !MissingFolders(maildir, false).empty();
}

void DeclareMaildir(const brisq_db::User& owner, const std::string& home) {
  const mgr_file::safe::Folder maildir = MaildirOf(owner, home);
  std::vector<journal::Step> missing;  // all of them, before the first is told
  for (const char* name : kMaildirFolders) {
    const mgr_file::safe::Folder part(maildir.root(), mgr_file::ConcatPath(maildir.path(), name),
                                      maildir.uid(), maildir.gid());
    const std::vector<journal::Step> steps = user_dir::StepsOfMaking(part);
    missing.insert(missing.end(), steps.begin(), steps.end());
  }
  for (const journal::Step& step : missing) {
    JobLog::Declare({kDirectory,
                     step.Value("path"),
                     {},
                     AccessValues({0700, owner.OwnerUid(), owner.OwnerGid()})});
  }
}

void MakeMaildir(const std::shared_ptr<brisq_db::User>& owner, const std::string& home) {
  const mgr_file::Attrs attrs(0700, owner->OwnerUid(), owner->OwnerGid());
  const mgr_file::safe::Folder maildir = MaildirOf(*owner, home);
  const bool all = user_dir::CheckMakePath(maildir);
  const std::vector<const char*> missing = MissingFolders(maildir, all);
  DeclareMaildir(*owner, home);
  if (all) {
    safe_file::JobCreateOddDirAbs(owner, maildir.path(), attrs);
  }
  for (const char* name : missing) {
    new mgr_job::safe::CreateDir(maildir, name, attrs);
  }
}

}  // namespace brisq_panel
