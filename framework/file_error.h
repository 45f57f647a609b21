#pragma once

#include <cerrno>
#include <string>

#include "brisq_export.h"
#include "mgr_err.h"

namespace mgr_file {

/// The error for a system call that failed on a path: type "file", object the path, value "CALL:
/// REASON" with the system's words for `error` and, where there is a usual one, the way out.
BRISQ_API mgr_err::Error FileError(const std::string& path, const std::string& call,
                                   int error = errno);

}  // namespace mgr_file
