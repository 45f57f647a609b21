#pragma once

#include "brisq_export.h"
#include "panel/drift.h"

namespace brisq_panel {

/// Homes of owners and mailboxes, and Maildirs:
///
/// | code | severity | |
/// |---|---|---|
/// | OWNER-HOME | error | an owner's home is missing or no directory |
/// | OWNER-ACCESS | error | somebody else owns it, or everybody may write to it |
/// | HOME-SHARED | error | two mailboxes' homes coincide, or one lies in the other |
/// | HOME-OUTSIDE | error | a mailbox's home does not lie below its owner's |
/// | MAILDIR-MISSING | error | a Maildir or one of its folders is missing |
/// | MAILDIR-LINK | error | a symbolic link stands in the way |
/// | MAILDIR-OWNER | error | a folder of it, or on the way to it, belongs to somebody else |
/// | MAILDIR-KIND | error | something else than a folder stands in the way |
/// | MAILDIR-MODE | warning | everybody may enter it, or its owner may not |
BRISQ_API void CheckHomes(Drifts& drifts);

}  // namespace brisq_panel
