#pragma once

#include <optional>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "panel/mailboxes.h"

/// Changing mailboxes that are there. Rules as in mailboxes.h.
namespace brisq_panel {

/// What is to be changed; what is not set stays.
struct BRISQ_API MailboxChange {
  std::optional<std::string> quota = {};  ///< as for ParseQuota
  std::optional<std::string> home = {};   ///< no mail is moved
  std::optional<bool> active = {};
};

struct BRISQ_API ChangedMailboxes {
  std::vector<MailboxInfo> mailboxes;  ///< as they are now, in the order given
  std::vector<std::string> notes;      ///< what else the user should know, in plain words
};

/// Changes mailboxes, all of them or, when it throws, none. A mailbox that is switched off can't be
/// logged in to and gets no mail: its line leaves the mail server, and comes back with its password
/// when it is switched on.
/// @throws mgr_err::Error "value", "missed" with object "mailbox", "plugin"; whatever the back-ends
/// throw
BRISQ_API ChangedMailboxes SetMailboxes(const std::vector<std::string>& addresses,
                                        const MailboxChange& change);

/// Sets a mailbox's password.
/// @throws as SetMailboxes; "value" for one that is switched off while a password back-end keeps
/// the passwords, as there is no line to keep it in
BRISQ_API void SetPassword(const std::string& address, const std::string& password);

}  // namespace brisq_panel
