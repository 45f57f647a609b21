#pragma once

#include <map>
#include <string>

#include "brisq_export.h"

/// Statistics on who serves what.
namespace apistat {

/// Records that `interface` is served by `implementation`; a later call for the same interface
/// replaces it. Any thread.
BRISQ_API void ModuleInterface(const std::string& interface, const std::string& implementation);

/// What has been recorded so far, as a copy. Any thread.
BRISQ_API std::map<std::string, std::string> Interfaces();

}  // namespace apistat
