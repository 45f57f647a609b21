#pragma once

#include "brisq_export.h"
#include "panel/drift.h"

namespace brisq_panel {

/// The passwd-file: what CheckPasswdFile finds, of which modes and owners can be mended, and
///
/// | code | severity | |
/// |---|---|---|
/// | LINE-DIFFERS | warning | a mailbox's line has other values than the panel's table |
///
/// @throws mgr_err::Error as CheckPasswdFile and PlanSync
BRISQ_API void CheckLines(Drifts& drifts);

}  // namespace brisq_panel
