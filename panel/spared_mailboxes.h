#pragma once

#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// What is to be added to the condition of a sweep, " AND id NOT IN (...)", so that it leaves the
/// mailboxes whose names stand in short lines (short_lines.h) of the files that the thread's
/// refresh has asked about: their lines are there, only nobody can read them. Tells RefreshWatch of
/// each. Empty when there is none, and on a thread without a refresh. Reads these files whole.
/// @param condition  SQL condition on the mailboxes that would be swept
/// @throws mgr_err::Error "file", "locked" when a file can't be read; "db"
BRISQ_API std::string SparedMailboxes(const std::string& condition);

}  // namespace brisq_panel
