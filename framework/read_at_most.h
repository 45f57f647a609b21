#pragma once

#include <cstddef>
#include <string>

#include "brisq_export.h"

namespace mgr_file {

/// Content of a regular file, links followed; for files that others may fill as they like. A file
/// that grows meanwhile is refused as well as one that was too large from the beginning.
/// @param most  bytes
/// @throws mgr_err::Error "file" with the path when it can't be opened or read, is no regular file,
/// or holds more than `most` bytes
BRISQ_API std::string ReadAtMost(const std::string& path, std::size_t most);

}  // namespace mgr_file
