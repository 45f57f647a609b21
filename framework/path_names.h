#pragma once

#include <string>

#include "brisq_export.h"

namespace path_names {

/// Takes the first component of a path off its front; slashes in front of it go as well.
/// @param name  gets the component; left as it is when there is none
/// @return false when nothing but slashes is left
BRISQ_API bool Take(std::string& path, std::string& name);

}  // namespace path_names
