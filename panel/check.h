#pragma once

#include <string>
#include <vector>

#include "brisq_export.h"
#include "panel/drift.h"

/// Everything that can be found out about an instance: what has drifted apart, and what ends it.
namespace brisq_panel {

/// One part of an instance that is looked at by itself.
struct BRISQ_API CheckArea {
  std::string name;
  std::string about;
  void (*look)(Drifts&);
};

BRISQ_API const std::vector<CheckArea>& CheckAreas();

/// Looks at the areas; nothing changes. An area that can't be looked at is found (CHECK-FAILED).
/// @param only  name of the one area to look at; empty for all
/// @throws mgr_err::Error "value" with object "area" for a name that is none
BRISQ_API std::vector<Drift> CheckInstance(const std::string& only);

/// Mends one drift as a request of its own.
/// @throws what the request throws: nothing has changed
BRISQ_API void MendDrift(const Drift& drift);

}  // namespace brisq_panel
