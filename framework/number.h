#pragma once

#include <optional>
#include <string>

#include "brisq_export.h"

/// The decimal number, with or without a fraction, that is the whole of `text`; nothing when it is
/// anything else, not a finite number, or out of range. The locale plays no part.
BRISQ_API std::optional<double> ReadNumber(const std::string& text);
