#pragma once

#include <string>
#include <vector>

#include "brisq/output.h"
#include "panel/mailboxes.h"

namespace brisq {

Record RecordOf(const brisq_panel::MailboxInfo& mailbox);

/// Addresses joined by commas, for questions and messages.
std::string Joined(const std::vector<std::string>& addresses);

}  // namespace brisq
