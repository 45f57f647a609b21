#pragma once

#include <string>

namespace support {

/// Absolute paths without a slash at the end, fixed when the tests are built. They are functions,
/// so that no other object file depends on where it was built and compiler caches serve all copies.

/// Folder that the programs and libraries under test were built in.
std::string BuildFolder();
/// Root of the sources.
std::string SourceFolder();
/// Folder of the plug-ins that exist for tests only.
std::string TestPluginFolder();

}  // namespace support
