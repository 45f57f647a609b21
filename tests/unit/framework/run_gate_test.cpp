#include "framework/run_gate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace {

using reloader::RunGate;
using std::chrono::milliseconds;

TEST(RunGate, LetsOneInUntilItLeaves) {
  RunGate gate;
  {
    std::optional<RunGate::Pass> first = gate.Enter("", milliseconds(0));
    ASSERT_TRUE(first);
    EXPECT_FALSE(gate.Enter("", milliseconds(0)));
    const RunGate::Pass moved = std::move(*first);
    first.reset();
    EXPECT_FALSE(gate.Enter("", milliseconds(10)));
  }
  EXPECT_TRUE(gate.Enter("", milliseconds(0)));
}

TEST(RunGate, TwoGatesWithOneFileAreOne) {
  const support::TempDir directory;
  const std::string file = directory / "lock";
  RunGate here;
  RunGate there;
  {
    const std::optional<RunGate::Pass> first = here.Enter(file, milliseconds(0));
    ASSERT_TRUE(first);
    EXPECT_FALSE(there.Enter(file, milliseconds(0)));
  }
  EXPECT_TRUE(there.Enter(file, milliseconds(0)));
  EXPECT_TRUE(here.Enter(file, milliseconds(0)));
}

TEST(RunGate, StaysOpenWhenTheFileFails) {
  const support::TempDir directory;
  RunGate gate;
  EXPECT_THROW(gate.Enter(directory / "missing/lock", milliseconds(0)), mgr_err::Error);
  EXPECT_TRUE(gate.Enter("", milliseconds(0)));
}

TEST(RunGate, ManyThreadsPassOneByOne) {
  const support::TempDir directory;
  for (const std::string& file : {std::string(), directory / "lock"}) {
    RunGate gate;
    std::atomic<int> inside = 0;
    std::atomic<int> passed = 0;
    std::vector<std::thread> threads;
    for (int number = 0; number < 8; ++number) {
      threads.emplace_back([&] {
        for (int count = 0; count < 50; ++count) {
          const auto pass = gate.Enter(file, milliseconds(60000));
          EXPECT_EQ(0, inside++);
          ++passed;
          --inside;
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    EXPECT_EQ(400, passed);
  }
}

}  // namespace
