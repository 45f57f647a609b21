#include "panel/check_homes.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <set>

#include "email.h"
#include "framework/sys.h"
#include "framework/user_dir.h"
#include "mgr_err.h"
#include "panel/home_job.h"
#include "panel/homes.h"
#include "panel/job_log.h"
#include "panel/mail_line.h"
#include "panel/mailboxes.h"
#include "panel/maildir.h"
#include "panel/mend_jobs.h"
#include "panel/names.h"
#include "panel/records.h"
#include "panel/shell_word.h"
#include "panel/state_at.h"

namespace brisq_panel {

namespace {

using Owner = std::shared_ptr<brisq_db::User>;

void DeclareMissing(const std::string& home, const file_access::Access& access) {
  JobLog::Declare({kDirectory, home, {}, AccessValues(access)});
}

// Of the owner as he is when it is mended.
void MakeHomeOf(const std::string& name) {
  const Owner owner = FindOwner(name);
  const std::string home = owner->home;
  if (!mgr_file::Exists(home)) {
    DeclareMissing(home, {0750, owner->OwnerUid(), owner->OwnerGid()});
    new MakeHome(home, owner->OwnerUid(), owner->OwnerGid());
  }
}

void MakeMaildirOf(const std::string& address) {
  const Mailbox mailbox = FindMailbox(ParseAddress(address));
  if (mailbox->active) {
    MakeMaildir(email::GetEmailOwner(mailbox), mailbox->home);
  }
}

mode_t ModeOf(const mgr_file::safe::Folder& folder) {
  const Descriptor fd = user_dir::Open(folder);
  struct stat state {};
  if (sys::FStat(fd.get(), &state) != 0) {
    sys::Fail("stat", folder.path());
  }
  return state.st_mode & 07777;
}

void CheckOwner(const Owner& owner, Drifts& drifts) {
  const std::string home = owner->home;
  const uid_t uid = owner->OwnerUid();
  const gid_t gid = owner->OwnerGid();
  const auto state = StateAt(home, Links::kStay);
  if (!state) {
    drifts.Error("OWNER-HOME", home, "the home of " + std::string(owner->name) + " is missing",
                 "brisq check --fix", [name = std::string(owner->name)] { MakeHomeOf(name); });
  } else if (!S_ISDIR(state->st_mode)) {
    drifts.Error("OWNER-HOME", home, "the home of " + std::string(owner->name) + " is no directory",
                 "put a directory there");
  } else if (state->st_uid != uid && state->st_uid != 0) {
    drifts.Error("OWNER-ACCESS", home,
                 "belongs to uid " + std::to_string(state->st_uid) + " instead of " +
                     std::to_string(uid) + ", so no mailbox can be made in it",
                 "chown " + std::to_string(uid) + " " + ShellWord(home));
  } else if ((state->st_mode & S_IWOTH) != 0) {
    // As in a user's tree: the owner may have put a second name of another's file there since.
    const mgr_file::safe::Folder folder(home, home, uid, gid);
    drifts.Error("OWNER-ACCESS", home, "everybody may write to it", "chmod o-w " + ShellWord(home),
                 [=] { new SetAccess(folder, ModeOf(folder) & 07775); });
  }
}

// What stands in the way at a path that was refused.
void AddRefusal(const mgr_err::Error& error, Drifts& drifts) {
  struct stat state {};
  const bool seen = ::lstat(error.object().c_str(), &state) == 0;
  const char* code = seen && S_ISLNK(state.st_mode)   ? "MAILDIR-LINK"
                     : seen && S_ISDIR(state.st_mode) ? "MAILDIR-OWNER"
                                                      : "MAILDIR-KIND";
  drifts.Error(code, error.object(), error.value(),
               "see what it is and who made it; then remove it or chown it to the owner");
}

/// The checks of one mailbox.
class MailboxChecks {
 public:
  MailboxChecks(const Owner& owner, std::string home, std::string address, Drifts& drifts)
      : owner_(owner), home_(std::move(home)), address_(std::move(address)), drifts_(drifts) {}

  void CheckMaildir() {
    try {
      const mgr_file::safe::Folder maildir = MaildirOf(*owner_, home_);
      if (user_dir::CheckMakePath(maildir)) {
        return AddMissing(maildir.path());
      }
      CheckFolder(maildir);
      for (const char* name : kMaildirFolders) {
        CheckPart(maildir, name);
      }
    } catch (const mgr_err::Error& error) {
      AddRefusal(error, drifts_);
    }
  }

 private:
  void AddMissing(const std::string& path) {
    drifts_.Error("MAILDIR-MISSING", path, "is missing", "brisq check --fix",
                  [address = address_] { MakeMaildirOf(address); });
  }

  void CheckPart(const mgr_file::safe::Folder& maildir, const char* name) {
    const mgr_file::safe::Folder part(maildir.root(), mgr_file::ConcatPath(maildir.path(), name),
                                      maildir.uid(), maildir.gid());
    try {
      if (user_dir::CheckMakePath(part)) {
        return AddMissing(part.path());
      }
      CheckFolder(part);
    } catch (const mgr_err::Error& error) {
      AddRefusal(error, drifts_);
    }
  }

  void CheckFolder(const mgr_file::safe::Folder& folder) {
    const mode_t mode = ModeOf(folder);
    const bool open = (mode & S_IRWXO) != 0;
    if (!open && (mode & S_IRWXU) == S_IRWXU) {
      return;
    }
    drifts_.Warning("MAILDIR-MODE", folder.path(),
                    open ? "everybody may enter it" : "its owner may not use it",
                    "chmod u+rwx,o= " + ShellWord(folder.path()),
                    [=] { new SetAccess(folder, (ModeOf(folder) & 07770) | S_IRWXU); });
  }

  const Owner owner_;
  const std::string home_;
  const std::string address_;
  Drifts& drifts_;
};

bool LiesIn(const std::string& inner, const std::string& outer) {
  return inner == outer || inner.starts_with(outer + "/");
}

struct Home {
  std::string path;
  std::string address;

  // "/" before every other character, so that what lies in a home follows it.
  bool operator<(const Home& other) const {
    const auto before = [](char left, char right) {
      return left != right && (left == '/' || (right != '/' && left < right));
    };
    if (path == other.path) {
      return address < other.address;
    }
    return std::lexicographical_compare(path.begin(), path.end(), other.path.begin(),
                                        other.path.end(), before);
  }
};

bool IsFree(const std::string& home, int mailbox) {
  try {
    CheckHomeIsFree(CheckHome(home), mailbox);
    return true;
  } catch (const mgr_err::Error& error) {
    if (error.type() != "value") {
      throw;
    }
    return false;
  }
}

// The command that gives a mailbox a home of its own: the one that a new mailbox would have, or one
// beside it.
std::string SetFreeHome(const std::string& address) {
  const Address parsed = ParseAddress(address);
  const Mailbox mailbox = FindMailbox(parsed);
  const std::string usual = DefaultHome(email::GetEmailOwner(mailbox)->home, parsed);
  constexpr int kMostTries = 100;
  std::string home = usual;
  for (int n = 2; n < kMostTries && !IsFree(home, mailbox->id); ++n) {
    home = usual + "-" + std::to_string(n);
  }
  return "brisq mailbox set " + address + " --home " + ShellWord(home);
}

// Tells the addresses whose homes are shared.
std::set<std::string> CheckShared(const std::set<Home>& homes, Drifts& drifts) {
  std::set<std::string> shared;
  const Home* outer = nullptr;
  for (const Home& home : homes) {
    if (outer != nullptr && LiesIn(home.path, outer->path)) {
      const bool same = home.path == outer->path;
      drifts.Error("HOME-SHARED", home.address,
                   (same ? "has the home of " : "has its home in that of ") + outer->address,
                   SetFreeHome(home.address) + ", and move its mail there");
      shared.insert(home.address);
    } else {
      outer = &home;
    }
  }
  return shared;
}

template <class Work>
void ForEachMailbox(const Work& work) {
  const Mailbox mailbox = Table<brisq_db::EmailTable>();
  for (mailbox->DbSelect(); !mailbox->Eof(); mailbox->Next()) {
    // A refresh fills a home that is empty.
    if (!std::string(mailbox->home).empty()) {
      work(mailbox, email::GetEmailName(mailbox));
    }
  }
}

void CheckMailbox(const Mailbox& mailbox, const std::string& address, Drifts& drifts) {
  const Owner owner = email::GetEmailOwner(mailbox);
  const std::string home = mailbox->home;
  if (!LiesIn(home, owner->home)) {
    drifts.Error("HOME-OUTSIDE", address,
                 "has its home " + home + " outside of its owner's, " + std::string(owner->home),
                 SetFreeHome(address) + ", and move its mail there");
  } else if (mailbox->active && mgr_file::Exists(owner->home)) {
    MailboxChecks(owner, home, address, drifts).CheckMaildir();
  }
}

}  // namespace

void CheckHomes(Drifts& drifts) {
  const Owner owner = Table<brisq_db::User>();
  for (owner->DbSelect({}, "name"); !owner->Eof(); owner->Next()) {
    CheckOwner(FindOwner(owner->name), drifts);
  }
  std::set<Home> homes;
  ForEachMailbox([&](const Mailbox& mailbox, const std::string& address) {
    homes.insert({mailbox->home, address});
  });
  const std::set<std::string> shared = CheckShared(homes, drifts);
  ForEachMailbox([&](const Mailbox& mailbox, const std::string& address) {
    // Nothing is made in a home that is about to become another one.
    if (shared.count(address) == 0) {
      CheckMailbox(mailbox, address, drifts);
    }
  });
}

}  // namespace brisq_panel
