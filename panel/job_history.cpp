#include "panel/job_history.h"

#include <algorithm>

#include "framework/job_table.h"
#include "framework/seal.h"
#include "mgr_err.h"
#include "panel/archive.h"
#include "panel/domain_changes.h"
#include "panel/domains.h"
#include "panel/line_saves.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/mend_jobs.h"
#include "panel/names.h"
#include "panel/password_line.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "panel/tls.h"

namespace brisq_panel {

namespace {

std::string WordsOf(int id) { return "job " + std::to_string(id); }

mgr_err::Error InTheWay(int id, const std::string& reason) {
  return mgr_err::Error("limit", WordsOf(id), reason);
}

job_table::Job Find(int id) {
  const auto job = job_table::Find(id);
  if (!job) {
    throw mgr_err::Error("missed", "job", std::to_string(id));
  }
  return *job;
}

// A job whose undoing was itself undone is done again.
std::string StateOfJob(const job_table::Job& job) {
  const auto undone = job_table::UndoneBy(job.id);
  const bool stands = undone && StateOfJob(*undone) == job_table::kDone;
  return stands ? "undone by " + WordsOf(undone->id) : job.state;
}

JobInfo Info(const job_table::Job& job) {
  return {job.id, job.name, job.who, job.started, StateOfJob(job), FromText(job.changes)};
}

void RequireUndoable(const job_table::Job& job) {
  if (const std::string state = StateOfJob(job); state != job_table::kDone) {
    throw InTheWay(job.id, "is " + state + " already");
  }
  if (job.changes.empty()) {
    throw InTheWay(job.id, "holds nothing that can be undone");
  }
}

// The object must be as the job has left it, as far as the job has touched it.
void RequireAsLeft(int id, const ObjectChange& change) {
  const ObjectState now = StateOf(change.kind, change.name);
  const std::string object = change.kind + " " + change.name;
  if (change.Removed() != now.empty()) {
    throw InTheWay(id, object + (now.empty() ? " is gone since" : " exists again"));
  }
  if (change.kind == kLine && StateOf(kMailbox, change.name).empty()) {
    throw InTheWay(id, "mailbox " + change.name + " is gone since");
  }
  for (const auto& [name, value] : change.after) {
    if (now.at(name) != value) {
      throw InTheWay(id, object + ": its " + name + " was changed since");
    }
  }
}

// A job on a file's mode tells what it changes by itself, as it is done at the commit.
void Watch(const ObjectChange& change) {
  if (change.kind != kAccess) {
    JobLog::Watch(change.kind, change.name);
  }
}

bool Differs(const ObjectChange& change, const char* name) {
  return change.before.count(name) != 0;
}

// The password as it was, in the line and where the panel keeps it.
void SetFormerPassword(const ObjectChange& change) {
  if (Differs(change, kKeptPassword)) {
    const auto mailbox = FindMailbox(ParseAddress(change.name));
    mailbox->password.SetStored(change.before.at(kKeptPassword));
    mailbox->Post();
  }
  // One that is switched off or on loses its line or brings its own hash back.
  if (Differs(change, kHash) && !Differs(change, "active")) {
    LineSaves::WhenSaved([name = change.name, hash = change.before.at(kHash)] {
      // The line itself may leave by the same undo.
      if (StoredHash(name)) {
        StoreHash(name, hash);
      }
    });
  }
}

void SetFormerMailbox(const ObjectChange& change) {
  MailboxChange former;
  if (Differs(change, "quota")) {
    former.quota = change.before.at("quota").empty() ? "0" : change.before.at("quota");
  }
  if (Differs(change, "home")) {
    former.home = change.before.at("home");
  }
  if (Differs(change, "active")) {
    former.active = change.before.at("active") == "on";
  }
  SetMailboxes({change.name}, former);
  SetFormerPassword(change);
}

void SetFormerCertificate(const ObjectChange& change) {
  const auto cert = change.before.find("cert");
  const auto key = change.before.find("key");
  if (cert == change.before.end() && key == change.before.end()) {
    return;
  }
  const ObjectState now = StateOf(kDomain, change.name);
  const std::string former_cert = cert == change.before.end() ? now.at("cert") : cert->second;
  const std::string former_key = key == change.before.end() ? now.at("key") : key->second;
  if (!former_cert.empty()) {
    SetCertificate(change.name, former_cert, former_key, true);
  } else if (!now.at("cert").empty()) {
    UnsetCertificate(change.name);
  }
}

// The flag alone: each mailbox that was switched with the domain is a change of its own.
void SetFormerFlag(const ObjectChange& change) {
  if (Differs(change, "active")) {
    const auto domain = FindDomain(change.name);
    domain->active = change.before.at("active") == "on";
    domain->Post();
  }
}

void SetFormerDomain(const ObjectChange& change) {
  if (Differs(change, "owner")) {
    SetDomain(change.name, {.owner = change.before.at("owner")});
  }
  SetFormerFlag(change);
  SetFormerCertificate(change);
}

void UndoMailbox(const ObjectChange& change) {
  if (change.Made()) {
    DeleteMailboxes({change.name});
  } else if (change.Removed()) {
    RestoreMailbox(change.name, change.before);
  } else {
    SetFormerMailbox(change);
  }
}

void UndoDomain(const ObjectChange& change) {
  if (change.Made()) {
    DeleteDomain(change.name);
    return;
  }
  if (change.Removed()) {
    AddDomain(change.name, change.before.at("owner"));
  }
  SetFormerDomain(change);
}

// The hash that was set aside while the mailbox is switched off, as it was before the line left.
void SetFormerHash(const ObjectChange& change) {
  const auto kept = FindSwitchedOff(ParseAddress(change.name));
  if (!kept) {
    return;
  }
  if (change.before.count(kFormerHash) == 0) {
    kept->DbDelete();
    return;
  }
  kept->hash = change.before.at(kFormerHash);
  kept->Post();
}

void UndoLine(const ObjectChange& change) {
  if (change.Made()) {
    RemoveLine(change.name);
    return;
  }
  LineValues former = change.before;
  if (change.Removed()) {
    SetFormerHash(change);
    former.erase(kFormerHash);
  } else {
    former.merge(StoredLine(change.name));
  }
  StoreLine(change.name, former);
}

// The owner in whose tree, or at whose home, a path lies; null for none. A home in a home is
// nearer.
std::shared_ptr<brisq_db::User> OwnerAround(const std::string& path) {
  std::shared_ptr<brisq_db::User> nearest;
  const auto owner = Table<brisq_db::User>();
  for (owner->DbSelect(); !owner->Eof(); owner->Next()) {
    const std::string home = owner->home;
    if ((path == home || path.starts_with(home + "/")) &&
        (!nearest || home.size() > std::string(nearest->home).size())) {
      nearest = FindOwner(owner->name);
    }
  }
  return nearest;
}

mgr_file::safe::Folder InTreeOf(const brisq_db::User& owner, const std::string& path) {
  return mgr_file::safe::Folder(owner.home, path, owner.OwnerUid(), owner.OwnerGid());
}

void UndoAccess(const ObjectChange& change) {
  ObjectState former = change.before;
  former.merge(StateOf(kAccess, change.name));
  const auto owner = OwnerAround(change.name);
  const file_access::Place place{change.name,
                                 owner ? InTreeOf(*owner, change.name) : mgr_file::safe::Folder()};
  new SetAccess(place, AccessIn(former));
}

std::string Named(const ObjectChange& change) { return change.kind + " " + change.name; }

void Undo(int id, const ObjectChange& change, Request& request) {
  if (change.kind == kMailbox) {
    UndoMailbox(change);
  } else if (change.kind == kDomain) {
    UndoDomain(change);
  } else if (change.kind == kLine) {
    UndoLine(change);
  } else if (change.kind == kAccess) {
    UndoAccess(change);
  } else if (change.kind == kDirectory) {
    request.AddNote(Named(change) + " stays: it may hold something by now");
  } else if (change.kind == kOwner) {
    throw InTheWay(id, "owners are not removed");
  } else {
    throw InTheWay(id, Named(change) + " was mended, and has no former state to go back to");
  }
}

// Domains come before their mailboxes, but for one that goes; lines as they were come last.
int TurnOf(const ObjectChange& change) {
  if (change.kind == kDomain) {
    return change.Made() ? 2 : 0;
  }
  return change.kind == kMailbox ? 1 : 3;
}

// Objects that an undo leaves alone have no state to compare.
bool HasState(const std::string& kind) {
  return kind == kMailbox || kind == kDomain || kind == kOwner || kind == kLine || kind == kAccess;
}

void RequireSomething(int id, const std::vector<ObjectChange>& changes) {
  if (std::all_of(changes.begin(), changes.end(),
                  [](const ObjectChange& change) { return change.kind == kDirectory; })) {
    throw InTheWay(id, "made directories alone, which stay; remove them by hand");
  }
}

}  // namespace

std::vector<JobInfo> ListJobs(int most) {
  std::vector<JobInfo> jobs;
  for (const job_table::Job& job : job_table::Latest(most)) {
    jobs.push_back(Info(job));
  }
  return jobs;
}

JobInfo ShowJob(int id) { return Info(Find(id)); }

std::vector<std::string> UndoJob(int id) {
  LineSaves saves;
  return RunRequest("job undo", [&](Request& request) {
    const job_table::Job job = Find(id);
    RequireUndoable(job);
    std::vector<ObjectChange> changes =
        FromText(job.sealed.empty() ? job.changes : mgr_seal::Open(job.sealed));
    std::stable_sort(changes.begin(), changes.end(), [](const auto& left, const auto& right) {
      return TurnOf(left) < TurnOf(right);
    });
    RequireSomething(id, changes);
    for (const ObjectChange& change : changes) {
      if (HasState(change.kind)) {
        RequireAsLeft(id, change);
        Watch(change);
      }
    }
    JobLog::Undoes(id);
    for (const ObjectChange& change : changes) {
      Undo(id, change, request);
    }
    saves.Save();
  });
}

}  // namespace brisq_panel
