#include "panel/job_history.h"

#include <algorithm>

#include "framework/job_table.h"
#include "framework/seal.h"
#include "mgr_err.h"
#include "panel/domain_changes.h"
#include "panel/domains.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
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
  if (job.sealed.empty()) {
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
  for (const auto& [name, value] : change.after) {
    if (now.at(name) != value) {
      throw InTheWay(id, object + ": its " + name + " was changed since");
    }
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
    StoreHash(change.name, change.before.at(kHash));
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
    RestoreMailbox(change.name);
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

void Undo(int id, const ObjectChange& change) {
  if (change.kind == kMailbox) {
    UndoMailbox(change);
  } else if (change.kind == kDomain) {
    UndoDomain(change);
  } else {
    throw InTheWay(id, "owners are not removed");
  }
}

// Domains come before their mailboxes, but for one that goes.
int TurnOf(const ObjectChange& change) {
  if (change.kind != kDomain) {
    return 1;
  }
  return change.Made() ? 2 : 0;
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
  return RunRequest("job undo", [&](Request&) {
    const job_table::Job job = Find(id);
    RequireUndoable(job);
    std::vector<ObjectChange> changes = FromText(mgr_seal::Open(job.sealed));
    std::stable_sort(changes.begin(), changes.end(), [](const auto& left, const auto& right) {
      return TurnOf(left) < TurnOf(right);
    });
    for (const ObjectChange& change : changes) {
      RequireAsLeft(id, change);
      JobLog::Watch(change.kind, change.name);
    }
    JobLog::Undoes(id);
    for (const ObjectChange& change : changes) {
      Undo(id, change);
    }
  });
}

}  // namespace brisq_panel
