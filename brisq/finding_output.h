#pragma once

#include <vector>

#include "brisq/command.h"
#include "panel/findings.h"

namespace brisq {

/// Shows what a check has found, one line each, or one object each in JSON, and has the program end
/// with kExitFindings unless there is nothing.
void ShowFindings(Call& call, const std::vector<brisq_panel::Finding>& findings);

}  // namespace brisq
