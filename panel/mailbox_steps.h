#pragma once

#include <vector>

#include "brisq_export.h"
#include "framework/request.h"
#include "panel/mail_line.h"
#include "panel/mailbox_removal.h"
#include "panel/names.h"

/// Steps of a request on one mailbox, shared by the commands for mailboxes and for domains. Each
/// throws what the back-ends throw.
namespace brisq_panel {

/// Refuses to have mailboxes served in a domain that is switched off.
/// @throws mgr_err::Error "limit" with object "domain"
BRISQ_API void RequireSwitchedOn(const brisq_db::EmailDomainTable& domain);

/// Refuses when a line of these mailboxes, which are about to leave one by one, can't be read:
/// before the first is gone and the others have other numbers.
/// @throws mgr_err::Error as RefuseShortLine (short_lines.h); "missed" with object "mailbox"
BRISQ_API void CheckLinesThatLeave(const std::vector<Address>& addresses);

/// Switches a mailbox off or on: its line leaves the mail server or comes back. The password's hash
/// is kept meanwhile, and whether it went off by itself or, its domain being off, with that. A note
/// says when a mailbox that was switched on has no password. The record stands on the mailbox
/// afterwards; switched on, it has a new number.
BRISQ_API void SwitchMailbox(Mailbox& mailbox, bool on, Request& request);

/// True for one that went off with its domain: it comes back with it.
BRISQ_API bool ComesBackWithDomain(const Mailbox& mailbox);

/// Has a mailbox that went off with its domain stay off when that comes back. Nothing for others.
BRISQ_API void StayOff(const Mailbox& mailbox);

/// Removes a mailbox: its line leaves the mail server, its row goes to the archive. The record is
/// in the state of a new row afterwards.
BRISQ_API RemovedMailbox RemoveMailbox(Mailbox mailbox);

}  // namespace brisq_panel
