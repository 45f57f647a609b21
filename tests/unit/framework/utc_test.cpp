#include "framework/utc.h"

#include <gtest/gtest.h>

#include "mgr_err.h"

namespace {

TEST(Utc, TextsAreThoseOfIso8601) {
  EXPECT_EQ("1970-01-01T00:00:00Z", UtcText(0));
  EXPECT_EQ("2000-02-29T12:34:56Z", UtcText(951827696));
  EXPECT_EQ("2038-01-19T03:14:08Z", UtcText(2147483648));
}

TEST(Utc, TextsAreTheSameInEveryZoneAndOrderAsTheTimesDo) {
  using std::chrono::system_clock;
  EXPECT_EQ("1970-01-01T00:00:00Z", UtcText(system_clock::from_time_t(0)));
  EXPECT_EQ("2024-02-29T23:59:59Z", UtcText(system_clock::from_time_t(1709251199)));
  EXPECT_LT(UtcText(system_clock::from_time_t(999999999)),
            UtcText(system_clock::from_time_t(1000000000)));
}

TEST(Utc, TextsAreReadBack) {
  for (const std::time_t time : {std::time_t{0}, std::time_t{951827696}, std::time_t{2147483648}}) {
    EXPECT_EQ(time, UtcTime(UtcText(time)));
  }
  for (const char* text : {"", "yesterday", "2000-02-29", "2000-02-29T12:34:56Z "}) {
    EXPECT_THROW(UtcTime(text), mgr_err::Error) << text;
  }
}

TEST(Utc, NowLiesBetweenTwoLooksAtTheClock) {
  const std::string before = UtcText(std::time(nullptr));
  const std::string now = UtcNow();
  const std::string after = UtcText(std::time(nullptr));
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

}  // namespace
