#pragma once

#include <string>

#include "brisq_export.h"

/// Configuration: parameters and paths, both texts under a key. What the administrator's file sets
/// wins over a default that was declared. All operations may be called from any thread; a value
/// read is a copy.
namespace mgr_cf {

/// Value of a parameter; empty when it is neither set nor declared.
BRISQ_API std::string GetParam(const std::string& name);

/// Value of a path key, as it stands (no expansion); empty when it is neither set nor declared.
/// Parameters and paths are two name spaces.
BRISQ_API std::string GetPath(const std::string& name);

/// Declares a path key's default. A later declaration replaces an earlier one; a value that was set
/// is left alone.
BRISQ_API void SetPathDefault(const std::string& name, const std::string& value);

/// Declares a parameter and its default, as SetPathDefault does for a path.
BRISQ_API void AddParam(const std::string& name, const std::string& value);

}  // namespace mgr_cf
