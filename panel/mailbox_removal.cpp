#include "panel/mailbox_removal.h"

#include "email.h"
#include "panel/address_list.h"
#include "panel/archive.h"
#include "panel/email_module.h"
#include "panel/held_signals.h"
#include "panel/homes.h"
#include "panel/job_log.h"
#include "panel/line_saves.h"
#include "panel/mail_line.h"
#include "panel/mailbox_steps.h"
#include "panel/names.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "str.h"

namespace brisq_panel {

namespace {

ArchivedMailbox Info(const MailboxArchive& archive) {
  ArchivedMailbox info;
  info.address = std::string(archive.name) + "@" + std::string(archive.domain);
  info.owner = archive.owner;
  info.home = archive.home;
  info.quota_mb = str::Int(archive.quota);
  info.used_mb = archive.used;
  info.reason = archive.reason;
  info.archived = archive.archived;
  info.password_known = !archive.hash.Stored().empty() ||
                        (PasswordBackend() == nullptr && !archive.password.Stored().empty());
  return info;
}

void RequireFree(const Address& address, const brisq_db::EmailDomainTable& domain) {
  const auto mailbox = Table<brisq_db::EmailTable>();
  if (mailbox->DbFind({{"domain", domain.id.AsString()}, {"name", address.local}})) {
    throw mgr_err::Error("exists", "mailbox", address.Full());
  }
}

// The mail lies in the home of the owner that the mailbox had.
void RequireSameOwner(const brisq_db::EmailDomainTable& domain, const brisq_db::User& owner) {
  if (static_cast<int>(domain.owner) != static_cast<int>(owner.id)) {
    throw mgr_err::Error("limit", "domain",
                         std::string(domain.name) + " has another owner than " +
                             std::string(owner.name) + ", whose mailbox it was");
  }
}

std::string HomeOf(const MailboxArchive& archive, const Address& address,
                   const std::string& owner_home) {
  const std::string home = archive.home;
  return home.empty() ? DefaultHome(owner_home, address) : home;
}

Mailbox InsertRow(const MailboxArchive& archive, const Address& address) {
  const auto domain = FindDomain(address.domain);
  RequireFree(address, *domain);
  const auto owner = FindOwner(archive.owner);
  RequireSameOwner(*domain, *owner);
  if (archive.active) {
    RequireSwitchedOn(*domain);
  }
  auto mailbox = Table<brisq_db::EmailTable>();
  mailbox->New();
  mailbox->name = address.local;
  mailbox->domain = static_cast<int>(domain->id);
  mailbox->owner = static_cast<int>(owner->id);
  mailbox->home = HomeOf(archive, address, owner->home);
  CheckHomeIsFree(mailbox->home, 0);
  mailbox->quota = std::string(archive.quota);
  mailbox->used = static_cast<int>(archive.used);
  mailbox->active = static_cast<bool>(archive.active);
  if (PasswordBackend() == nullptr) {
    mailbox->password.SetStored(archive.password.Stored());
  }
  mailbox->Post();
  return mailbox;
}

using Archived = std::shared_ptr<MailboxArchive>;

Archived FindLatest(const Address& address) { return FindArchived(address, {kSwept, kDeleted}); }

bool WasIn(const MailboxArchive& archive, const ObjectState& state) {
  return archive.owner.Stored() == state.at("owner") && archive.home.Stored() == state.at("home") &&
         archive.quota.Stored() == state.at("quota") &&
         archive.active.AsString() == state.at("active") &&
         archive.password.Stored() == state.at(kKeptPassword) &&
         // One that was switched off had no line to tell its hash.
         (!archive.active || std::string(archive.hash) == state.at(kHash));
}

// Those that were switched off may differ in their hashes alone.
Archived FindThatWas(const Address& address, const ObjectState& state) {
  Archived found;
  for (const Archived& archive : AllArchived(address, {kSwept, kDeleted})) {
    if (!WasIn(*archive, state)) {
      continue;
    }
    if (found && std::string(found->hash) != std::string(archive->hash)) {
      throw mgr_err::Error("limit", "archived mailbox",
                           address.Full() + " was deleted several times, with other passwords");
    }
    found = found ? found : archive;
  }
  return found;
}

void Restore(const Address& address, const Archived& archive, Request& request) {
  JobLog::Watch(kMailbox, address.Full());
  if (!archive) {
    throw mgr_err::Error("missed", "archived mailbox", address.Full());
  }
  Mailbox mailbox;
  InNameOf("mailbox", address.Full(), [&] { mailbox = InsertRow(*archive, address); });
  if (!mailbox->active) {
    request.AddNote(address.Full() + " is switched off, as it was");
    archive->reason = kSwitchedOff;  // the hash waits for its being switched on
    archive->Post();
    return;
  }
  if (!BringLineBack(mailbox, archive->hash)) {
    request.AddNote(address.Full() + " has no password: set one");
  }
  archive->DbDelete();
}

}  // namespace

std::vector<RemovedMailbox> DeleteMailboxes(const std::vector<std::string>& texts) {
  const std::vector<Address> addresses = ParseAddresses(texts);
  MailBackend();
  std::vector<RemovedMailbox> removed;
  LineSaves saves;
  DoRequest("mailbox delete", [&](Request&) {
    if (addresses.size() > 1) {
      CheckLinesThatLeave(addresses);
    }
    ForEachAddress(addresses, [&](const Address& address) {
      HeldSignals::GiveUpIfOneWaits(address.Full());
      removed.push_back(RemoveMailbox(FindMailbox(address)));
    });
    saves.Save();
  });
  return removed;
}

std::vector<ArchivedMailbox> ListArchived() {
  std::vector<ArchivedMailbox> mailboxes;
  const auto archive = Table<MailboxArchive>();
  for (archive->DbSelect(); !archive->Eof(); archive->Next()) {
    const std::string reason = archive->reason;
    if (reason != kSwitchedOff && reason != kOffWithDomain) {
      mailboxes.insert(mailboxes.begin(), Info(*archive));
    }
  }
  return mailboxes;
}

RestoredMailboxes RestoreMailboxes(const std::vector<std::string>& texts) {
  const std::vector<Address> addresses = ParseAddresses(texts);
  MailBackend();
  RestoredMailboxes restored;
  LineSaves saves;
  restored.notes = RunRequest("mailbox restore", [&](Request& request) {
    ForEachAddress(addresses, [&](const Address& address) {
      HeldSignals::GiveUpIfOneWaits(address.Full());
      Restore(address, FindLatest(address), request);
    });
    saves.Save();
  });
  for (const Address& address : addresses) {
    restored.mailboxes.push_back(ShowMailbox(address.Full()));
  }
  return restored;
}

void RestoreMailbox(const std::string& text, const ObjectState& was) {
  const Address address = ParseAddress(text);
  MailBackend();
  DoRequest("mailbox restore",
            [&](Request& request) { Restore(address, FindThatWas(address, was), request); });
}

}  // namespace brisq_panel
