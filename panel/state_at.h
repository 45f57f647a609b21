#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>

#include "brisq_export.h"

namespace brisq_panel {

enum class Links { kFollow, kStay };

/// What stands at a path; nothing when nothing does, or what is above it is no directory. Any
/// thread.
/// @param links  kStay: of a symbolic link itself
/// @throws mgr_err::Error "file" when the system does not say: neither answer would be the truth
BRISQ_API std::optional<struct stat> StateAt(const std::string& path, Links links);

}  // namespace brisq_panel
