#pragma once

#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// Value of a path key that must be an absolute path.
/// @throws mgr_err::Error "config" with the key as object when it is empty or relative
BRISQ_API std::string AbsolutePath(const std::string& key);

/// Refuses a path key whose program somebody else could replace, for one that is handed passwords:
/// the shell, which runs it as well, would not look.
/// @throws mgr_err::Error "config" with the key as object and the reason (safe_program.h)
BRISQ_API void RefuseUnsafeProgram(const std::string& key);

/// False for a program that RefuseUnsafeProgram refuses.
BRISQ_API bool IsSafeProgram(const std::string& key);

}  // namespace brisq_panel
