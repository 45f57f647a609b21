#pragma once

#include "brisq_export.h"
#include "framework/config_file.h"

namespace brisq_panel {

/// Refuses parameters that must be numbers and are none or out of their range, which would silently
/// be something else: "ExecTimeout" and the delays, periods and limits of docs/operate/settings.md.
/// What the file does not set is right.
/// @throws mgr_err::Error "config" with object "FILE:LINE" and the rule
BRISQ_API void CheckNumericSettings(const mgr_cf::Settings& settings);

}  // namespace brisq_panel
