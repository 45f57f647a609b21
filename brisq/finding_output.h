#pragma once

#include <vector>

#include "brisq/output.h"
#include "panel/findings.h"

namespace brisq {

/// A finding as JSON has it.
Record RecordOf(const brisq_panel::Finding& finding);

/// Shows what a check has found, one line each, or one object each in JSON, and has the program end
/// with kExitFindings unless there is nothing.
void ShowFindings(Call& call, const std::vector<brisq_panel::Finding>& findings);

}  // namespace brisq
