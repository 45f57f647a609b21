#pragma once

#include <string>

#include "brisq_export.h"

namespace brisq_panel {

/// Where the instance that is open keeps what is its own; absolute paths, empty when none is open.
struct BRISQ_API InstancePlaces {
  std::string state;     ///< folder
  std::string database;  ///< file
  std::string log;       ///< folder
};

/// Set while an instance opens; any thread.
BRISQ_API void SetInstancePlaces(const InstancePlaces& places);
BRISQ_API InstancePlaces PlacesOfInstance();

}  // namespace brisq_panel
