#include "mgr_thread.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

TEST(MgrThread, OneThreadAtATimeIsInASection) {
  mgr_thread::SafeLock lock;
  int inside = 0;
  int most = 0;
  long count = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int n = 0; n < 10000; ++n) {
        const mgr_thread::SafeSection section(lock);
        most = std::max(most, ++inside);
        ++count;
        --inside;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(1, most);
  EXPECT_EQ(40000, count);
}

TEST(MgrThread, ExceptionLeavesTheLockFree) {
  mgr_thread::SafeLock lock;
  try {
    const mgr_thread::SafeSection section(lock);
    throw std::runtime_error("in the section");
  } catch (const std::runtime_error&) {
  }

  std::thread other([&] { const mgr_thread::SafeSection section(lock); });
  other.join();
}

TEST(MgrThread, LocksAndSectionsAreNotCopied) {
  EXPECT_FALSE(std::is_copy_constructible_v<mgr_thread::SafeLock>);
  EXPECT_FALSE(std::is_copy_constructible_v<mgr_thread::SafeSection>);
  EXPECT_FALSE(std::is_move_constructible_v<mgr_thread::SafeSection>);
}

}  // namespace
