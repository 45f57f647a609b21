#include "panel/check_leftovers.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <set>

#include "framework/aside.h"
#include "framework/conf_save.h"
#include "framework/descriptor.h"
#include "framework/file_error.h"
#include "framework/journal.h"
#include "framework/safe_replace.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "mgr_file.h"
#include "panel/mend_jobs.h"
#include "panel/shell_word.h"

namespace brisq_panel {

namespace {

using Slot = safe_replace::Replacement::Slot;

// True while a save goes on: its temporary is none that was left. The lock's holders note in it
// what they do, so it is only looked at.
bool IsBeingSaved(const safe_replace::Target& target) {
  const std::string name = "." + target.name + ".brisq-lock";
  const Descriptor lock(::openat(target.directory.get(), name.c_str(), O_RDONLY | O_CLOEXEC));
  return lock && ::flock(lock.get(), LOCK_SH | LOCK_NB) != 0;
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// A save of its own clears away what others have left, with the file's lock.
void SweepSaves(const std::string& path, const std::string& left) {
  new ClearAway(left, "leftovers of saves beside " + path + " cleared away",
                [path] { const ConfSave sweep(path); });
}

void CheckPasswdFolder(Drifts& drifts) {
  const std::string path = mgr_cf::GetPath("dovecot-passwd");
  if (path.empty() || !mgr_file::Exists(path)) {
    return;
  }
  const safe_replace::Target target = safe_replace::Target::Resolve(path);
  const std::set<std::string> temporaries{safe_replace::TemporaryName(target.name, Slot::kFirst),
                                          safe_replace::TemporaryName(target.name, Slot::kSecond)};
  const std::string edited = target.name + ".edited-";
  for (mgr_file::Dir folder(mgr_file::SplitPath(target.path).first); folder.Read();) {
    if (temporaries.count(folder.name()) != 0) {
      if (IsBeingSaved(target)) {
        continue;
      }
      drifts.Warning("LEFTOVER-SAVE", folder.FullName(),
                     "was left by a save that was killed, and holds password hashes",
                     "brisq check --fix",
                     [path, left = folder.FullName()] { SweepSaves(path, left); });
    } else if (folder.name().starts_with(edited) && IsNumber(folder.name().substr(edited.size()))) {
      drifts.Warning("LEFTOVER-EDIT", folder.FullName(),
                     "is an edit by hand that a killed save had not taken over",
                     "diff " + ShellWord(folder.FullName()) + " " + ShellWord(target.path) +
                         ", take over what is missing, then remove it");
    }
  }
}

// The entry of the journal that may still put back, or remove, what is there; empty for none.
std::string EntryNeeding(const std::string& path) {
  const std::string end = aside::kOldEnd;
  const std::string first = path.ends_with(end) ? path.substr(0, path.size() - end.size()) : path;
  for (const journal::OpenEntry& entry : journal::OpenEntries()) {
    if (entry.asides.contains(first)) {
      return mgr_file::ConcatPath(journal::Folder(), entry.id);
    }
  }
  return {};
}

std::string Needed(const std::string& entry) {
  return "is needed yet by the request of " + entry + ", which is not finished";
}

// Requests hold the database's write lock while their jobs are done, and so does the mend: another
// may have been killed since the check.
void Remove(const std::string& path) {
  if (const std::string entry = EntryNeeding(path); !entry.empty()) {
    throw mgr_err::Error("later", path, Needed(entry));
  }
  new ClearAway(path, "file " + path + " removed", [path] {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
      throw mgr_file::FileError(path, "unlink");
    }
  });
}

void CheckJobs(const std::string& folder, Drifts& drifts) {
  for (mgr_file::Dir entries(folder); entries.Read();) {
    if (!aside::IsName(entries.name())) {
      continue;
    }
    const std::string path = entries.FullName();
    if (const std::string entry = EntryNeeding(path); !entry.empty()) {
      drifts.Warning("LEFTOVER-JOB", path, Needed(entry),
                     "leave it until the journal's entry is dealt with (JOURNAL-OPEN)");
    } else {
      drifts.Warning("LEFTOVER-JOB", path, "was left by a request that was killed",
                     "brisq check --fix", [path] { Remove(path); });
    }
  }
}

}  // namespace

void CheckLeftovers(Drifts& drifts) {
  CheckPasswdFolder(drifts);
  for (const char* key : {"dovecot-certconf", "dovecot-ssl-certs"}) {
    if (const std::string folder = mgr_cf::GetPath(key); !folder.empty()) {
      CheckJobs(folder, drifts);
    }
  }
}

}  // namespace brisq_panel
