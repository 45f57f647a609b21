#include "panel/instance_places.h"

#include <gtest/gtest.h>

namespace brisq_panel {
namespace {

TEST(InstancePlacesTest, TheLastOnesThatWereSetCount) {
  SetInstancePlaces({"/state", "/state/panel.db", "/log"});
  SetInstancePlaces({"/other", "/other/panel.db", ""});
  EXPECT_EQ("/other", PlacesOfInstance().state);
  EXPECT_EQ("/other/panel.db", PlacesOfInstance().database);
  EXPECT_EQ("", PlacesOfInstance().log);
  SetInstancePlaces({});
}

}  // namespace
}  // namespace brisq_panel
