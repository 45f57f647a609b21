#pragma once

#include <string>

#include "brisq_export.h"

/// Homes of mailboxes keep apart: two that coincide, or of which one lies in the other, would mix
/// the mail of two people.
namespace brisq_panel {

/// Refuses a home that coincides with another mailbox's, lies in it or holds it.
/// @param home     in checked form
/// @param mailbox  number of the mailbox that it is for, whose own home does not count; 0 for a new
///                 one
/// @throws mgr_err::Error "value" with object "home", naming the other mailbox
BRISQ_API void CheckHomeIsFree(const std::string& home, int mailbox);

}  // namespace brisq_panel
