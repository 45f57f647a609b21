#pragma once

#include <optional>
#include <string>

#include "brisq/command.h"

namespace brisq {

/// Value of an option that is "on" or "off"; nothing when it was not given.
/// @throws mgr_err::Error "value" for anything else
std::optional<bool> OnOff(const Call& call, const std::string& option);

}  // namespace brisq
