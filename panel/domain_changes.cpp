#include "panel/domain_changes.h"

#include "email.h"
#include "panel/address_list.h"
#include "panel/certificate_cleanup.h"
#include "panel/email_module.h"
#include "panel/held_signals.h"
#include "panel/job_log.h"
#include "panel/line_saves.h"
#include "panel/mailbox_steps.h"
#include "panel/names.h"
#include "panel/records.h"
#include "panel/run_request.h"

namespace brisq_panel {

namespace {

using Domain = std::shared_ptr<brisq_db::EmailDomainTable>;

// The walk is over a copy of the rows, so each may be changed on the way. Until the lines are saved
// all of it is easily given up.
template <class Work>
void ForEachMailbox(const Domain& domain, const Work& work) {
  const auto walk = Table<brisq_db::EmailTable>();
  for (walk->DbSelect({{"domain", domain->id.AsString()}}, "name"); !walk->Eof(); walk->Next()) {
    HeldSignals::GiveUpIfOneWaits(std::string(domain->name));
    Mailbox mailbox = Table<brisq_db::EmailTable>();
    mailbox->Assert(walk->id);
    work(mailbox);
  }
}

void CheckLinesOf(const Domain& domain) {
  std::vector<Address> addresses;
  ForEachMailbox(domain, [&](const Mailbox& mailbox) {
    addresses.push_back({std::string(mailbox->name), std::string(domain->name)});
  });
  CheckLinesThatLeave(addresses);
}

void SwitchMailboxesOff(const Domain& domain, Request& request) {
  ForEachMailbox(domain, [&](Mailbox& mailbox) {
    if (mailbox->active) {
      SwitchMailbox(mailbox, false, request);
    }
  });
}

void BringMailboxesBack(const Domain& domain, Request& request) {
  ForEachMailbox(domain, [&](Mailbox& mailbox) {
    if (ComesBackWithDomain(mailbox)) {
      SwitchMailbox(mailbox, true, request);
    } else if (!mailbox->active) {
      request.AddNote(email::GetEmailName(mailbox) + " stays switched off, as it was by itself");
    }
  });
}

void SwitchDomain(const Domain& domain, bool active, Request& request) {
  if (domain->active == active) {
    return;
  }
  if (!active) {
    CheckLinesOf(domain);
  }
  // Before its mailboxes: what one went off with is seen by its domain's row.
  domain->active = active;
  domain->Post();
  if (active) {
    BringMailboxesBack(domain, request);
  } else {
    SwitchMailboxesOff(domain, request);
  }
}

void GiveTo(const Domain& domain, const std::string& owner) {
  const int id = FindOwner(owner)->id;
  if (id == domain->owner) {
    return;
  }
  ForEachMailbox(domain, [](Mailbox&) {
    throw mgr_err::Error("limit", "owner", "can't be changed while the domain has mailboxes");
  });
  domain->owner = id;
}

}  // namespace

DomainInfo SetDomain(const std::string& text, const DomainChange& change) {
  const std::string name = CheckDomain(text);
  std::string owner;
  if (change.owner) {
    InNameOf("domain", name, [&] { owner = CheckOwnerName(*change.owner); });
  }
  email::Pop3Interface& backend = MailBackend();
  LineSaves saves;
  DoRequest("domain set", [&](Request& request) {
    JobLog::Watch(kDomain, name);
    Domain domain = FindDomain(name);
    if (change.owner) {
      InNameOf("domain", name, [&] { GiveTo(domain, owner); });
    }
    if (change.active) {
      SwitchDomain(domain, *change.active, request);
    }
    domain->Post();
    backend.OnUpdateDomain(domain);
    saves.Save();
  });
  return ShowDomain(name);
}

std::vector<RemovedMailbox> DeleteDomain(const std::string& text) {
  const std::string name = CheckDomain(text);
  email::Pop3Interface& backend = MailBackend();
  std::vector<RemovedMailbox> removed;
  LineSaves saves;
  DoRequest("domain delete", [&](Request&) {
    JobLog::Watch(kDomain, name);
    Domain domain = FindDomain(name);
    CheckLinesOf(domain);
    ForEachMailbox(domain,
                   [&](const Mailbox& mailbox) { removed.push_back(RemoveMailbox(mailbox)); });
    backend.OnDeleteDomain(domain);
    if (!std::string(domain->cert).empty()) {
      PruneAfterCommit(name);
    }
    domain->DbDelete();
    saves.Save();
  });
  return removed;
}

}  // namespace brisq_panel
