#pragma once

#include "brisq_export.h"
#include "panel/drift.h"

namespace brisq_panel {

/// What killed processes have left:
///
/// | code | severity | |
/// |---|---|---|
/// | LEFTOVER-SAVE | warning | the temporary of a save of the passwd-file; it holds hashes |
/// | LEFTOVER-EDIT | warning | an edit of the passwd-file by hand that was not taken over |
/// | LEFTOVER-JOB | warning | the temporary of a request in the folder of snippets or links |
///
/// No mend removes what an entry of the journal may still put back.
BRISQ_API void CheckLeftovers(Drifts& drifts);

}  // namespace brisq_panel
