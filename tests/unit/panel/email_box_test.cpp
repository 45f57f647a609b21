#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "email.h"
#include "framework/config_file.h"
#include "panel/panel_state.h"
#include "panel/refresh_watch.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::KeepValue;
using brisq_panel::kPasswordRunMs;

class EmailBox : public panel_test::PanelTest {
 protected:
  /// Has the last run lie so many milliseconds ago.
  static void LastRun(long long ms_ago) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    KeepValue(kPasswordRunMs,
              std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(now).count() -
                             ms_ago));
  }

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

TEST_F(EmailBox, TheTimeOfTheLastRunDecides) {
  const struct {
    const char* name;
    const char* delay;
    long long ms_ago;
    bool may_run;
  } cases[] = {
      {"a moment ago", "60", 0, false},
      {"nearly long enough ago", "60", 50'000, false},
      {"long enough ago", "60", 60'000, true},
      {"long ago", "60", 86'400'000, true},
      {"less than a second too early", "1", 500, false},
      {"part of a second", "0.2", 300, true},
      {"in the future, after the clock was set back", "60", -100'000, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    mgr_cf::SetParam("EmailPasswordDelay", c.delay);
    LastRun(c.ms_ago);
    EXPECT_EQ(c.may_run, gate_.EmailDelay());
  }
}

TEST_F(EmailBox, AnotherProcessKnowsOfTheLastRun) {
  mgr_cf::SetParam("EmailPasswordDelay", "3600");
  EXPECT_TRUE(gate_.EmailDelay());
  email::box::DelayedStart of_another;
  EXPECT_FALSE(of_another.EmailDelay());
}

TEST_F(EmailBox, WorkThatIsPutOffDoesNotCountAsARun) {
  mgr_cf::SetParam("EmailPasswordDelay", "60");
  LastRun(50'000);
  const std::string last = brisq_panel::KeptValue(kPasswordRunMs);
  EXPECT_FALSE(gate_.EmailDelay());
  EXPECT_EQ(last, brisq_panel::KeptValue(kPasswordRunMs));
}

TEST_F(EmailBox, ARefreshIsToldOfWorkThatIsPutOff) {
  mgr_cf::SetParam("EmailPasswordDelay", "3600");
  const brisq_panel::RefreshWatch watch(9);
  EXPECT_TRUE(gate_.EmailDelay());
  EXPECT_FALSE(watch.put_off());
  EXPECT_FALSE(gate_.EmailDelay());
  EXPECT_TRUE(watch.put_off());
}

TEST_F(EmailBox, AKeptTimeThatIsNoneCountsForNone) {
  mgr_cf::SetParam("EmailPasswordDelay", "3600");
  KeepValue(kPasswordRunMs, "yesterday");
  EXPECT_TRUE(gate_.EmailDelay());
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
