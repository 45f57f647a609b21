#include "framework/write_turn.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <thread>
#include <vector>

#include "mgr_err.h"

namespace {

using mgr_db::WriteTurn;
using std::chrono::milliseconds;

constexpr milliseconds kLong = std::chrono::minutes(1);

TEST(WriteTurn, IsOneThreadsAtATime) {
  std::atomic<int> inside{0};
  std::atomic<int> most{0};
  int turns = 0;
  std::vector<std::thread> threads;
  for (int thread = 0; thread < 8; ++thread) {
    threads.emplace_back([&] {
      for (int round = 0; round < 200; ++round) {
        const WriteTurn turn("file", kLong);
        if (++inside > most) most = inside.load();
        ++turns;
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(1, most);
  EXPECT_EQ(1600, turns);
}

TEST(WriteTurn, IsRefusedWhenItDoesNotComeInTime) {
  std::optional<WriteTurn> first(std::in_place, "file", kLong);
  try {
    const WriteTurn second("file", milliseconds(1));
    FAIL() << "two have the turn";
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("locked", error.type());
  }
  first.reset();
  EXPECT_NO_THROW(WriteTurn("file", milliseconds(1)));
}

TEST(WriteTurn, WhoGivesUpHoldsUpNobodyBehind) {
  constexpr milliseconds kShort{50};
  std::optional<WriteTurn> first(std::in_place, "file", kLong);
  std::thread second([&] { EXPECT_THROW(WriteTurn("file", kShort), mgr_err::Error); });
  // The third should wait behind the second, which nothing tells.
  std::this_thread::sleep_for(kShort / 5);
  std::thread third([&] { EXPECT_NO_THROW(WriteTurn("file", std::chrono::seconds(20))); });
  second.join();
  first.reset();
  third.join();
}

TEST(WriteTurn, OfOneFileHoldsUpNoOther) {
  const WriteTurn one("one", kLong);
  EXPECT_NO_THROW(WriteTurn("other", milliseconds(1)));
}

}  // namespace
