#include "panel/utc_time.h"

#include <gtest/gtest.h>

namespace {

TEST(UtcTime, TextsAreThoseOfIso8601) {
  EXPECT_EQ("1970-01-01T00:00:00Z", brisq_panel::UtcText(0));
  EXPECT_EQ("2000-02-29T12:34:56Z", brisq_panel::UtcText(951827696));
  EXPECT_EQ("2038-01-19T03:14:08Z", brisq_panel::UtcText(2147483648));
}

TEST(UtcTime, NowLiesBetweenTwoLooksAtTheClock) {
  const std::string before = brisq_panel::UtcText(std::time(nullptr));
  const std::string now = brisq_panel::UtcNow();
  const std::string after = brisq_panel::UtcText(std::time(nullptr));
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

}  // namespace
