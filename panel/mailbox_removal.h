#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"
#include "panel/mailboxes.h"
#include "panel/object_state.h"

/// Removing mailboxes and bringing them back. Rules as in mailboxes.h.
namespace brisq_panel {

struct BRISQ_API RemovedMailbox {
  std::string address;
  std::string home;  ///< where its mail stays
};

/// Removes mailboxes, all of them or, when it throws, none: their lines leave the mail server, the
/// rows go to the archive with the password's hash. Their mail stays on disk.
/// @throws mgr_err::Error "value", "missed" with object "mailbox", "plugin"; whatever the back-ends
/// throw
BRISQ_API std::vector<RemovedMailbox> DeleteMailboxes(const std::vector<std::string>& addresses);

/// A mailbox that was deleted, or swept by a refresh because its line was gone.
struct BRISQ_API ArchivedMailbox {
  std::string address;
  std::string owner;
  std::string home;
  int quota_mb = 0;
  int used_mb = 0;
  std::string reason;           ///< "deleted" or "swept"
  std::string archived;         ///< when, in UTC: "2024-01-31T23:59:59Z"
  bool password_known = false;  ///< a restored mailbox can be logged in to at once
};

/// The archive, latest first.
BRISQ_API std::vector<ArchivedMailbox> ListArchived();

struct BRISQ_API RestoredMailboxes {
  std::vector<MailboxInfo> mailboxes;  ///< as they are now, in the order given
  std::vector<std::string> notes;      ///< says, for example, that one has no password
};

/// Brings the latest archived mailbox of each address back, all of them or, when it throws, none:
/// with its line, and with its password as far as that is known. A line of this name that is in the
/// mail server's file already is taken over with the password that it has.
/// @throws mgr_err::Error "value"; "missed" with object "archived mailbox", or "mailbox ADDRESS: "
/// and "domain" or "owner"; "exists" with object "mailbox"; "plugin"; whatever the back-ends throw
BRISQ_API RestoredMailboxes RestoreMailboxes(const std::vector<std::string>& addresses);

/// As above for one, but brings back the mailbox that was in this state when it was deleted,
/// whichever else had the address since.
/// @param was  all values of StateOf
/// @throws as above; "limit" with object "archived mailbox" when several fit, with other passwords
BRISQ_API void RestoreMailbox(const std::string& address, const ObjectState& was);

}  // namespace brisq_panel
