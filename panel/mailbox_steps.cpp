#include "panel/mailbox_steps.h"

#include "email.h"
#include "panel/address_list.h"
#include "panel/archive.h"
#include "panel/job_log.h"
#include "panel/names.h"
#include "panel/password_line.h"
#include "panel/records.h"
#include "panel/short_lines.h"

namespace brisq_panel {

namespace {

// While its domain is off no mailbox is on that could be switched off by itself.
const char* WhyOff(const Mailbox& mailbox) {
  const auto domain = Table<brisq_db::EmailDomainTable>();
  domain->Assert(mailbox->domain);
  return domain->active ? kSwitchedOff : kOffWithDomain;
}

void SwitchOff(Mailbox& mailbox) {
  const std::string hash = TakeLineOut(mailbox);
  ArchiveMailbox(mailbox, WhyOff(mailbox), hash);
  mailbox->active = false;
  mailbox->Post();
}

// A refresh that goes on takes active rows for which it saw no line, but none that is younger than
// itself. So a mailbox that becomes active becomes a young row.
void MakeYoung(const Mailbox& mailbox) {
  std::vector<std::string> values;
  for (const mgr_db::Field* field : mailbox->Fields()) {
    values.push_back(field->Stored());
  }
  mailbox->DbDelete();
  for (std::size_t i = 1; i < values.size(); ++i) {
    mailbox->Fields()[i]->SetStored(values[i]);
  }
  mailbox->Post();
}

// Null when nothing is.
std::shared_ptr<MailboxArchive> KeptOfLine(const Mailbox& mailbox) {
  return FindSwitchedOff(ParseAddress(email::GetEmailName(mailbox)));
}

// Hash of a mailbox that is switched off; empty when none is kept.
std::string ForgetHash(const Mailbox& mailbox) {
  const auto kept = KeptOfLine(mailbox);
  if (!kept) {
    return {};
  }
  std::string hash = kept->hash;
  kept->DbDelete();
  return hash;
}

void SwitchOn(Mailbox& mailbox, Request& request) {
  mailbox->active = true;
  MakeYoung(mailbox);
  if (!BringLineBack(mailbox, ForgetHash(mailbox))) {
    request.AddNote(email::GetEmailName(mailbox) + " has no password: set one");
  }
}

}  // namespace

void RequireSwitchedOn(const brisq_db::EmailDomainTable& domain) {
  if (!domain.active) {
    throw mgr_err::Error("limit", "domain", std::string(domain.name) + " is switched off");
  }
}

void CheckLinesThatLeave(const std::vector<Address>& addresses) {
  ForEachAddress(addresses, [](const Address& address) {
    if (FindMailbox(address)->active && !StoredHash(address.Full())) {
      RefuseShortLine(address.Full());
    }
  });
}

void SwitchMailbox(Mailbox& mailbox, bool on, Request& request) {
  JobLog::Watch(kMailbox, email::GetEmailName(mailbox));
  if (on) {
    SwitchOn(mailbox, request);
  } else {
    SwitchOff(mailbox);
  }
}

bool ComesBackWithDomain(const Mailbox& mailbox) {
  const auto kept = KeptOfLine(mailbox);
  return kept && std::string(kept->reason) == kOffWithDomain;
}

void StayOff(const Mailbox& mailbox) {
  const auto kept = KeptOfLine(mailbox);
  if (kept && std::string(kept->reason) == kOffWithDomain) {
    kept->reason = kSwitchedOff;
    kept->Post();
  }
}

RemovedMailbox RemoveMailbox(Mailbox mailbox) {
  JobLog::Watch(kMailbox, email::GetEmailName(mailbox));
  RemovedMailbox removed{email::GetEmailName(mailbox), mailbox->home};
  const std::string hash = mailbox->active ? TakeLineOut(mailbox) : ForgetHash(mailbox);
  ArchiveMailbox(mailbox, kDeleted, hash);
  mailbox->DbDelete();
  return removed;
}

}  // namespace brisq_panel
