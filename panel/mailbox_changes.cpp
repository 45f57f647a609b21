#include "panel/mailbox_changes.h"

#include "email.h"
#include "mgr_cf.h"
#include "panel/address_list.h"
#include "panel/archive.h"
#include "panel/email_module.h"
#include "panel/hash_ahead.h"
#include "panel/held_signals.h"
#include "panel/homes.h"
#include "panel/job_log.h"
#include "panel/line_saves.h"
#include "panel/mail_line.h"
#include "panel/mailbox_steps.h"
#include "panel/names.h"
#include "panel/records.h"
#include "panel/run_request.h"
#include "panel/text_rules.h"

namespace brisq_panel {

namespace {

// A change in its stored form.
struct Checked {
  std::optional<std::string> quota;
  std::optional<std::string> home;
  std::optional<bool> active;
};

Checked Check(const MailboxChange& change, std::size_t mailboxes) {
  Checked checked;
  checked.active = change.active;
  if (change.quota) {
    checked.quota = QuotaText(ParseQuota(*change.quota));
  }
  if (change.home) {
    checked.home = CheckHome(*change.home);
    if (mailboxes > 1) {
      throw Refused("home", "can be set for one mailbox at a time");
    }
  }
  return checked;
}

void Move(const Mailbox& mailbox, const std::string& home, Request& request) {
  CheckHomeBelow(home, email::GetEmailOwner(mailbox)->home);
  const std::string old = mailbox->home;
  if (home != old) {
    CheckHomeIsFree(home, mailbox->id);
    request.AddNote("the mail of " + email::GetEmailName(mailbox) + " stays in " + old);
    mailbox->home = home;
  }
}

void Change(const Address& address, const Checked& change, Request& request) {
  JobLog::Watch(kMailbox, address.Full());
  Mailbox mailbox = FindMailbox(address);
  if (change.quota) {
    mailbox->quota = *change.quota;
  }
  if (change.home) {
    Move(mailbox, *change.home, request);
  }
  mailbox->Post();
  if (change.active && *change.active != mailbox->active) {
    if (*change.active) {
      RequireSwitchedOn(*FindDomain(address.domain));
    }
    SwitchMailbox(mailbox, *change.active, request);
  } else if (mailbox->active) {
    ChangeLine(mailbox);
  } else if (change.active) {
    StayOff(mailbox);
  }
}

}  // namespace

ChangedMailboxes SetMailboxes(const std::vector<std::string>& texts, const MailboxChange& change) {
  const std::vector<Address> addresses = ParseAddresses(texts);
  const Checked checked = Check(change, addresses.size());
  MailBackend();
  ChangedMailboxes changed;
  LineSaves saves;
  changed.notes = RunRequest("mailbox set", [&](Request& request) {
    if (addresses.size() > 1 && !checked.active.value_or(true)) {
      CheckLinesThatLeave(addresses);
    }
    ForEachAddress(addresses, [&](const Address& address) {
      HeldSignals::GiveUpIfOneWaits(address.Full());
      Change(address, checked, request);
    });
    saves.Save();
  });
  for (const Address& address : addresses) {
    changed.mailboxes.push_back(ShowMailbox(address.Full()));
  }
  return changed;
}

void SetPassword(const std::string& text, const std::string& password) {
  const Address address = ParseAddress(text);
  CheckPassword(password, mgr_cf::GetParam("DovecotPwScheme"));
  MailBackend();
  const auto hash = BeginHash(text, password, HashFor::kOtherPassword);
  DoRequest("mailbox passwd", [&](Request&) {
    JobLog::Watch(kMailbox, address.Full());
    Mailbox mailbox = FindMailbox(address);
    if (mailbox->active) {
      SetLinePassword(mailbox, password);
      return;
    }
    if (PasswordBackend() != nullptr) {
      throw Refused("mailbox",
                    address.Full() + " is switched off: switch it on to set its password");
    }
    mailbox->password = password;
    mailbox->Post();
  });
}

}  // namespace brisq_panel
