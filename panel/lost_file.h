#pragma once

#include "brisq_export.h"

/// A passwd-file, the one under the path key "dovecot-passwd", that somebody has removed or emptied
/// while there are mailboxes. Nothing is looked at when no path is set. Any thread.
namespace brisq_panel {

/// Refuses to make the line of a mailbox in a file that is missing or holds no mailbox's line,
/// while other mailboxes are active: it would become the file's only one, and the next refresh
/// would take it for a file from which the others were removed. Names the file and what ends it.
/// @param mailbox  number of the mailbox whose line is to be made
/// @throws mgr_err::Error "limit"; "file" and "locked" when the file can't be read; "db"
BRISQ_API void RefuseFirstLine(int mailbox);

/// Refuses to refresh from a file that is missing while there are active mailboxes. One that is
/// there and empty is believed (docs/decisions/0006).
/// @throws mgr_err::Error "limit"; "file" when the system does not say; "db"
BRISQ_API void RefuseMissingFile();

}  // namespace brisq_panel
