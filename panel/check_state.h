#pragma once

#include "brisq_export.h"
#include "panel/drift.h"

namespace brisq_panel {

/// What the instance keeps for itself:
///
/// | code | severity | |
/// |---|---|---|
/// | STATE-ACCESS | error | a file in the state folder is open to others, or not root's |
/// | DATABASE-DAMAGED | error | the database does not pass SQLite's own check |
/// | KEY-LOST | error | kept passwords can't be opened |
/// | LOG-ACCESS | warning | everybody may read or change a log, or put files beside it |
BRISQ_API void CheckState(Drifts& drifts);

}  // namespace brisq_panel
