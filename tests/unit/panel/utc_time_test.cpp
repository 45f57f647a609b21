#include "panel/utc_time.h"

#include <gtest/gtest.h>

#include "mgr_err.h"

namespace {

TEST(UtcTime, TextsAreThoseOfIso8601) {
  EXPECT_EQ("1970-01-01T00:00:00Z", brisq_panel::UtcText(0));
  EXPECT_EQ("2000-02-29T12:34:56Z", brisq_panel::UtcText(951827696));
  EXPECT_EQ("2038-01-19T03:14:08Z", brisq_panel::UtcText(2147483648));
}

TEST(UtcTime, TextsAreReadBack) {
  for (const std::time_t time : {std::time_t{0}, std::time_t{951827696}, std::time_t{2147483648}}) {
    EXPECT_EQ(time, brisq_panel::UtcTime(brisq_panel::UtcText(time)));
  }
  for (const char* text : {"", "yesterday", "2000-02-29", "2000-02-29T12:34:56Z "}) {
    EXPECT_THROW(brisq_panel::UtcTime(text), mgr_err::Error) << text;
  }
}

TEST(UtcTime, NowLiesBetweenTwoLooksAtTheClock) {
  const std::string before = brisq_panel::UtcText(std::time(nullptr));
  const std::string now = brisq_panel::UtcNow();
  const std::string after = brisq_panel::UtcText(std::time(nullptr));
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

}  // namespace
