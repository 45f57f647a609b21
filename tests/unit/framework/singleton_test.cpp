#include "singleton.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

TEST(Singleton, ThreadsThatComeFirstTogetherGetOneObject) {
  struct Slow {
    Slow() {
      std::this_thread::yield();
      ++made();
    }
    static std::atomic<int>& made() {
      static std::atomic<int> count{0};
      return count;
    }
  };
  std::vector<Slow*> seen(8);
  std::vector<std::thread> threads;
  for (Slow*& slot : seen) {
    threads.emplace_back([&slot] { slot = &Singleton<Slow>::Instance(); });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(1, Slow::made());
  EXPECT_EQ(1U, std::set<Slow*>(seen.begin(), seen.end()).size());
}

TEST(Singleton, ClassesHaveObjectsOfTheirOwn) {
  struct First {
    int value = 1;
  };
  struct Second {
    int value = 2;
  };
  Singleton<First>::Instance().value = 10;

  EXPECT_EQ(10, Singleton<First>::Instance().value);
  EXPECT_EQ(2, Singleton<Second>::Instance().value);
}

}  // namespace
