#include "framework/recent_look.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

TEST(RecentLook, IsOldAtFirst) { EXPECT_TRUE(RecentLook().IsOld()); }

// The thread may be held up for longer than a look is recent; not again and again for a minute.
TEST(RecentLook, IsNotOldAtOnce) {
  RecentLook look;
  const auto end = Clock::now() + std::chrono::minutes(1);
  bool recent = false;
  while (!recent && Clock::now() < end) {
    look.Renew();
    recent = !look.IsOld();
  }
  EXPECT_TRUE(recent);
}

TEST(RecentLook, GrowsOld) {
  RecentLook look;
  look.Renew();
  const auto end = Clock::now() + std::chrono::minutes(1);
  while (!look.IsOld() && Clock::now() < end) std::this_thread::yield();
  EXPECT_TRUE(look.IsOld());
}

}  // namespace
