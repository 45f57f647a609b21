#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "panel/hash_ahead.h"
#include "panel/names.h"

/// Mailboxes. Addresses are taken in any form that names.h admits and given in their stored form.
/// Each function that changes something is one request of the calling thread: when it throws, row,
/// passwd-file line and directories are as they were. Any thread.
namespace brisq_panel {

struct BRISQ_API MailboxInfo {
  std::string address;
  std::string owner;
  std::string home;
  int quota_mb = 0;  ///< 0: no limit
  int used_mb = 0;   ///< as of the last refresh
  bool active = false;
};

struct BRISQ_API NewMailbox {
  std::string address;
  std::string password;
  std::optional<std::string> quota = {};  ///< as for ParseQuota; not given: no limit
  std::optional<std::string> home = {};   ///< not given: OWNERHOME/mail/DOMAIN/LOCALPART
};

/// Adds an active mailbox, owned by its domain's owner: the row, the mail back-end's part, and the
/// password, which a registered password back-end keeps, else the table, sealed.
/// @throws mgr_err::Error "value" from the rules of names.h and homes.h; "missed" with object
/// "domain"; "limit" for a domain that is switched off; "exists" with object "mailbox", also when
/// the mail server has one of this name already; "plugin" when no mail back-end is at work;
/// whatever the back-ends throw
BRISQ_API MailboxInfo AddMailbox(const NewMailbox& mailbox);

/// Begins to make the hash for AddMailbox, which is about to be called with the same; null when a
/// value is wrong, and as BeginHash (hash_ahead.h) tells.
BRISQ_API std::unique_ptr<BegunHash> BeginToAdd(const NewMailbox& mailbox);

/// Home of a mailbox for which none was given.
BRISQ_API std::string DefaultHome(const std::string& owner_home, const Address& address);

/// All mailboxes, by domain and local part.
BRISQ_API std::vector<MailboxInfo> ListMailboxes();

/// @throws mgr_err::Error "value", "missed" with object "mailbox"
BRISQ_API MailboxInfo ShowMailbox(const std::string& address);

}  // namespace brisq_panel
