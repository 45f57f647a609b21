#include "panel/instance_places.h"

#include <mutex>

namespace brisq_panel {

namespace {

std::mutex g_mutex;

InstancePlaces& Kept() {
  static InstancePlaces& places = *new InstancePlaces;
  return places;
}

}  // namespace

void SetInstancePlaces(const InstancePlaces& places) {
  const std::lock_guard lock(g_mutex);
  Kept() = places;
}

InstancePlaces PlacesOfInstance() {
  const std::lock_guard lock(g_mutex);
  return Kept();
}

}  // namespace brisq_panel
