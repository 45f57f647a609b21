#include "panel/maildir.h"

#include <fcntl.h>
#include <sys/stat.h>

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
  return ::fstatat(at.get(), name, &state, AT_SYMLINK_NOFOLLOW) != 0;
}

}  // namespace

mgr_file::safe::Folder MaildirOf(const brisq_db::User& owner, const std::string& home) {
  return user_dir::Below(owner, PathOf(home));
}

bool IsMaildirMissing(const brisq_db::User& owner, const std::string& home) {
  const mgr_file::safe::Folder maildir = MaildirOf(owner, home);
  bool missing = user_dir::CheckMakePath(maildir);
  for (const char* name : kMaildirFolders) {
    missing = missing || IsMissing(maildir, name);
  }
  return missing;
}

void DeclareMaildir(const brisq_db::User& owner, const std::string& home) {
  const mgr_file::safe::Folder maildir = MaildirOf(owner, home);
  for (const char* name : kMaildirFolders) {
    const mgr_file::safe::Folder part(maildir.root(), mgr_file::ConcatPath(maildir.path(), name),
                                      maildir.uid(), maildir.gid());
    for (const journal::Step& missing : user_dir::StepsOfMaking(part)) {
      JobLog::Declare({kDirectory,
                       missing.Value("path"),
                       {},
                       AccessValues({0700, owner.OwnerUid(), owner.OwnerGid()})});
    }
  }
}

void MakeMaildir(const std::shared_ptr<brisq_db::User>& owner, const std::string& home) {
  DeclareMaildir(*owner, home);
  const mgr_file::Attrs attrs(0700, owner->OwnerUid(), owner->OwnerGid());
  const mgr_file::safe::Folder maildir = MaildirOf(*owner, home);
  const bool all = user_dir::CheckMakePath(maildir);
  if (all) {
    safe_file::JobCreateOddDirAbs(owner, maildir.path(), attrs);
  }
  for (const char* name : kMaildirFolders) {
    if (all || IsMissing(maildir, name)) {
      new mgr_job::safe::CreateDir(maildir, name, attrs);
    }
  }
}

}  // namespace brisq_panel
