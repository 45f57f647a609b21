#pragma once

#include <optional>
#include <string>
#include <vector>

#include "brisq_export.h"
#include "panel/domains.h"
#include "panel/mailbox_removal.h"

/// Changing and removing domains. Rules as in domains.h.
namespace brisq_panel {

struct BRISQ_API DomainChange {
  std::optional<std::string> owner = {};
  std::optional<bool> active = {};
};

/// Changes a domain. Switching it off or on switches all of its mailboxes. The owner of a domain
/// that has mailboxes can't be changed, as their homes lie in the old one's.
/// @throws mgr_err::Error "value", "missed" with object "domain" or "owner", "limit" with object
/// "owner" for a domain with mailboxes, "plugin"; whatever the back-ends throw
BRISQ_API DomainInfo SetDomain(const std::string& name, const DomainChange& change);

/// Removes a domain with its mailboxes, as DeleteMailboxes does, and with the links to its
/// certificate. Returns the mailboxes.
/// @throws mgr_err::Error "value", "missed" with object "domain", "plugin"; whatever the back-ends
/// throw
BRISQ_API std::vector<RemovedMailbox> DeleteDomain(const std::string& name);

}  // namespace brisq_panel
