#pragma once

#include <ctime>
#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// A time as text in UTC: "2024-01-31T23:59:59Z". Texts order as their times do.
BRISQ_API std::string UtcText(std::time_t time);
BRISQ_API std::string UtcNow();

/// The time that such a text names.
/// @throws mgr_err::Error "internal" for any other text
BRISQ_API std::time_t UtcTime(const std::string& text);

}  // namespace brisq_panel
