#include "framework/utc.h"

#include <gtest/gtest.h>

namespace {

TEST(Utc, TextsAreTheSameInEveryZoneAndOrderAsTheTimesDo) {
  using std::chrono::system_clock;
  EXPECT_EQ("1970-01-01T00:00:00Z", UtcText(system_clock::from_time_t(0)));
  EXPECT_EQ("2024-02-29T23:59:59Z", UtcText(system_clock::from_time_t(1709251199)));
  EXPECT_LT(UtcText(system_clock::from_time_t(999999999)),
            UtcText(system_clock::from_time_t(1000000000)));
}

}  // namespace
