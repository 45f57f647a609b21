#pragma once

#include "brisq_export.h"
#include "panel/drift.h"

namespace brisq_panel {

/// The journal of requests:
///
/// | code | severity | |
/// |---|---|---|
/// | JOURNAL-OPEN | error | a request was killed and could not be brought to an end or undone yet |
///
/// Each start of the program recovers what it can, so this shows the rest.
BRISQ_API void CheckJournal(Drifts& drifts);

}  // namespace brisq_panel
