#pragma once

#include <ctime>
#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// A time as text in UTC: "2024-01-31T23:59:59Z". Texts order as their times do.
BRISQ_API std::string UtcText(std::time_t time);
BRISQ_API std::string UtcNow();

}  // namespace brisq_panel
