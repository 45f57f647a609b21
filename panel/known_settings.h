#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"
#include "framework/config_file.h"

namespace brisq_panel {

/// The keys of [param], [path] and [log] that nothing reads, which are slips as a rule: one line
/// for each, "FILE:LINE: "KEY" is not known in [param] and changes nothing", with the key that may
/// have been meant. In the order of the tables, each by name.
///
/// Known are the keys of docs/operate/settings.md, those that plug-ins have declared, and the
/// modules that have a log in this process; so it is to be asked once the plug-ins are loaded. Any
/// thread.
BRISQ_API std::vector<std::string> UnknownSettings(const mgr_cf::Settings& settings);

}  // namespace brisq_panel
