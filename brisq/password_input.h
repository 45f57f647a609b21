#pragma once

#include <string>

#include "brisq/command.h"

namespace brisq {

/// A password from the console's input: asked for twice without echo when that is a terminal, else
/// everything up to the end of input, one line feed at its end left out. What it may hold is
/// checked by the panel.
/// @throws mgr_err::Error "value" when the two differ, nothing came or more than 4096 bytes did
std::string ReadPassword(const Console& console);

}  // namespace brisq
