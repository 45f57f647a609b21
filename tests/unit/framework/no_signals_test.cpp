#include "framework/no_signals.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

bool Takes(int signal) {
  sigset_t held;
  EXPECT_EQ(0, ::pthread_sigmask(SIG_BLOCK, nullptr, &held));
  return sigismember(&held, signal) == 0;
}

TEST(NoSignals, AreTakenByTheThreadMeanwhileAndByThoseThatItStarts) {
  ASSERT_TRUE(Takes(SIGTERM));
  bool other_takes = true;
  {
    const NoSignals held;
    EXPECT_FALSE(Takes(SIGTERM));
    EXPECT_FALSE(Takes(SIGURG));
    std::thread([&] { other_takes = Takes(SIGTERM); }).join();
  }
  EXPECT_FALSE(other_takes);
  EXPECT_TRUE(Takes(SIGTERM));
}

}  // namespace
