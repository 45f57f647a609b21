#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "email.h"
#include "framework/config_file.h"

namespace {

class EmailBox : public testing::Test {
 protected:
  EmailBox() { mgr_cf::Reset(); }
  ~EmailBox() override { mgr_cf::Reset(); }

  email::box::DelayedStart gate_;
};

TEST_F(EmailBox, WithoutADelayWorkMayAlwaysRun) {
  EXPECT_TRUE(gate_.EmailDelay());
  EXPECT_TRUE(gate_.EmailDelay());
}

TEST_F(EmailBox, TheFirstRunNeverWaits) {
  mgr_cf::SetParam("EmailPasswordDelay", "3600");
  EXPECT_TRUE(gate_.EmailDelay());
  EXPECT_FALSE(gate_.EmailDelay());
  EXPECT_FALSE(gate_.EmailDelay());
}

TEST_F(EmailBox, TheDelayIsReadAtEachCall) {
  mgr_cf::SetParam("EmailPasswordDelay", "3600");
  EXPECT_TRUE(gate_.EmailDelay());
  EXPECT_FALSE(gate_.EmailDelay());
  mgr_cf::SetParam("EmailPasswordDelay", "0");
  EXPECT_TRUE(gate_.EmailDelay());
}

TEST_F(EmailBox, ALargeDelayDoesNotOverflow) {
  mgr_cf::SetParam("EmailPasswordDelay", "2147483647");
  EXPECT_TRUE(gate_.EmailDelay());
  EXPECT_FALSE(gate_.EmailDelay());
}

TEST_F(EmailBox, OneOfManyThreadsMayRun) {
  mgr_cf::SetParam("EmailPasswordDelay", "3600");
  std::atomic<int> admitted{0};
  {
    std::vector<std::jthread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back([&] { admitted += gate_.EmailDelay() ? 1 : 0; });
    }
  }
  EXPECT_EQ(1, admitted);
}

TEST_F(EmailBox, TheGateIsOneForTheProcess) {
  EXPECT_EQ(&Singleton<email::box::DelayedStart>::Instance(),
            &Singleton<email::box::DelayedStart>::Instance());
}

}  // namespace
