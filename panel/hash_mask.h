#pragma once

#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// `text` with "***" in place of each password hash, known by the scheme in braces that stands
/// before it: "{SCHEME}***". A hash of some schemes is as good as the password.
BRISQ_API std::string WithoutHashes(const std::string& text);

/// What a tool that failed has printed, as people are told of it: without hashes, and in words when
/// it printed nothing else.
BRISQ_API std::string FailureOfTool(const std::string& printed);

}  // namespace brisq_panel
