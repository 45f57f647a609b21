#pragma once

#include <string>

#include "brisq/command.h"

namespace brisq {

/// The option that answers the question beforehand.
inline const Option kYes = {"--yes", "", "do not ask"};

/// Lets a command that removes something go on: because of --yes, because it is a dry run,
/// or because the person at the terminal says so.
/// @throws mgr_err::Error "usage" without a terminal and without --yes, "limit" when the answer is
/// no
void Confirm(const Call& call, const std::string& question);

}  // namespace brisq
