#include "panel/maildir.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "framework/sys.h"
#include "framework/user_dir.h"
#include "mgr_err.h"
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

bool HasEntry(const mgr_file::safe::Folder& folder) {
  const Descriptor opened = user_dir::Open(folder);
  const int own = ::fcntl(opened.get(), F_DUPFD_CLOEXEC, 0);  // closedir(3) closes it
  DIR* const stream = own < 0 ? nullptr : ::fdopendir(own);
  if (stream == nullptr) {
    if (own >= 0) {
      ::close(own);
    }
    return false;
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(stream, ::closedir);
  for (const dirent* entry = ::readdir(entries.get()); entry != nullptr;
       entry = ::readdir(entries.get())) {
    if (entry->d_name[0] != '.') {
      return true;
    }
  }
  return false;
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

bool HoldsMail(const brisq_db::User& owner, const std::string& home) {
  if (!mgr_file::Exists(PathOf(home))) {
    return false;  // nearly always, for one look
  }
  try {
    const mgr_file::safe::Folder maildir = MaildirOf(owner, home);
    for (const char* name : {"new", "cur"}) {
      const mgr_file::safe::Folder part(maildir.root(), mgr_file::ConcatPath(maildir.path(), name),
                                        maildir.uid(), maildir.gid());
      if (!IsMissing(maildir, name) && HasEntry(part)) {
        return true;
      }
    }
  } catch (const mgr_err::Error&) {
    // What is in the way is told by a check.
  }
  return false;
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
