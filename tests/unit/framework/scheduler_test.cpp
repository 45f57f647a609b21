#include "framework/scheduler.h"

#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <chrono>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "brisq_api.h"
#include "framework/config_file.h"
#include "framework/descriptor.h"
#include "mgr_err.h"
#include "periodic.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using periodic::Scheduler;
using std::chrono::minutes;
using std::chrono::seconds;

class TestAction : public brisq_api::Action {
 public:
  TestAction(const std::string& name, std::function<void(brisq_api::Session&)> work)
      : Action(name, 0xE0000000, nullptr), work_(std::move(work)) {}
  void Execute(brisq_api::Session& session) const override { work_(session); }

 private:
  std::function<void(brisq_api::Session&)> work_;
};

// A scheduler in a time of its own: waiting moves the clock to where it is told, never past an
// event of the test.
class SchedulerTest : public ::testing::Test {
 protected:
  SchedulerTest() { periodic::Reset(); }
  ~SchedulerTest() override {
    periodic::Reset();
    mgr_cf::Reset();
  }

  // Lets `period` pass and gives back the minutes at which actions ran since the last call.
  std::vector<double> Pass(std::chrono::seconds period) {
    end_ = now_ + period;
    scheduler_.Run();
    return std::exchange(ran_, {});
  }
  void Ran() {
    ran_.push_back(std::chrono::duration<double, std::ratio<60>>(now_ - begin_).count());
  }

  bool Wait(Scheduler::Time until) {
    if (until > end_) {
      now_ = end_;
      return false;
    }
    if (until > change_at_) {
      std::exchange(change_, [] {})();
    }
    now_ = std::max(now_, until);
    ++looks_;
    return true;
  }

  support::LogCapture logs_;
  Scheduler::Time begin_{};
  Scheduler::Time now_{};
  Scheduler::Time end_{};
  Scheduler::Time change_at_ = Scheduler::Time::max();
  std::function<void()> change_ = [] {};  // happens while the scheduler waits for a later time
  int looks_ = 0;
  std::vector<double> ran_;
  Scheduler scheduler_{[this] { return now_; },
                       [this](Scheduler::Time until) { return Wait(until); }};
};

using Minutes = std::vector<double>;

TEST_F(SchedulerTest, RunsAnActionEveryPeriodWithItsParameters) {
  const TestAction action("t.check", [this](brisq_api::Session& session) {
    EXPECT_EQ("1", session.Param("x"));
    Ran();
  });
  mgr_cf::SetParam("Period", "5");
  periodic::RegisterAction("t.check", "x=1", "Period");
  EXPECT_EQ((Minutes{5, 10, 15}), Pass(minutes(19)));
  EXPECT_EQ((Minutes{20}), Pass(minutes(1)));
}

TEST_F(SchedulerTest, ChangedPeriodIsTakenUpWithinAMinute) {
  const TestAction action("t.check", [this](brisq_api::Session&) { Ran(); });
  mgr_cf::SetParam("Period", "60");
  periodic::RegisterAction("t.check", "", "Period");
  change_at_ = begin_ + seconds(630);
  change_ = [] { mgr_cf::SetParam("Period", "2"); };
  EXPECT_EQ((Minutes{11, 13, 15}), Pass(minutes(16)));
  mgr_cf::SetParam("Period", "60");
  EXPECT_EQ((Minutes{75}), Pass(minutes(60)));
}

TEST_F(SchedulerTest, PeriodThatIsNoPositiveNumberStopsTheActionUntilItIsOneAgain) {
  const TestAction action("t.check", [this](brisq_api::Session&) { Ran(); });
  periodic::RegisterAction("t.check", "", "Period");
  for (const char* const period : {"", "0", "-5", "often", "5 minutes"}) {
    SCOPED_TRACE(period);
    mgr_cf::SetParam("Period", period);
    EXPECT_EQ(Minutes(), Pass(minutes(30)));
  }
  mgr_cf::SetParam("Period", "100");
  EXPECT_EQ((Minutes{150, 250}), Pass(minutes(101)));
  mgr_cf::SetParam("Period", "1e300");
  EXPECT_EQ(Minutes(), Pass(minutes(1000)));
  mgr_cf::SetParam("Period", "0.5");
  EXPECT_EQ((Minutes{1251, 1251.5}), Pass(seconds(59)));
}

TEST_F(SchedulerTest, ActionThatThrowsIsLoggedAndRunsAgain) {
  logs_.ExpectError("action t.check failed: file: /x: gone");
  logs_.ExpectError("action t.check failed: plain");
  logs_.ExpectError("action t.check failed: unknown exception");
  int turn = 0;
  const TestAction action("t.check", [&](brisq_api::Session&) {
    Ran();
    switch (++turn) {
      case 1:
        throw mgr_err::Error("file", "/x", "gone");
      case 2:
        throw std::runtime_error("plain");
      case 3:
        throw 7;
    }
  });
  mgr_cf::SetParam("Period", "1");
  periodic::RegisterAction("t.check", "", "Period");
  EXPECT_EQ((Minutes{1, 2, 3, 4}), Pass(seconds(270)));
}

TEST_F(SchedulerTest, CommandsThatAnActionQueuesRunBehindIt) {
  const support::TempDir directory;
  const TestAction action("t.check", [&](brisq_api::Session&) {
    brisq_api::ExecuteLater("echo ran >> " + (directory / "ran"));
  });
  mgr_cf::SetParam("Period", "1");
  periodic::RegisterAction("t.check", "", "Period");
  Pass(seconds(130));
  EXPECT_EQ("ran\nran\n", directory.Read("ran"));
}

TEST_F(SchedulerTest, ActionThatIsMissingIsLoggedAndFoundLater) {
  logs_.ExpectError("action t.late failed: missed: action: t.late");
  mgr_cf::SetParam("Period", "1");
  periodic::RegisterAction("t.late", "", "Period");
  Pass(seconds(70));
  const TestAction action("t.late", [this](brisq_api::Session&) { Ran(); });
  EXPECT_EQ((Minutes{2}), Pass(minutes(1)));
}

TEST_F(SchedulerTest, MissedTurnsAreMadeUpForByOne) {
  const TestAction slow("t.slow", [this](brisq_api::Session&) { now_ += minutes(10); });
  const TestAction quick("t.quick", [this](brisq_api::Session&) { Ran(); });
  mgr_cf::SetParam("Slow", "60");
  mgr_cf::SetParam("Quick", "3");
  periodic::RegisterAction("t.slow", "", "Slow");
  periodic::RegisterAction("t.quick", "", "Quick");
  const Minutes ran = Pass(minutes(75));
  // The turns of 63, 66 and 69 passed while the slow one ran.
  EXPECT_EQ((Minutes{60, 70, 73}), Minutes(ran.end() - 3, ran.end()));
}

TEST_F(SchedulerTest, NewRegistrationIsMetWithinAMinute) {
  const TestAction action("t.check", [this](brisq_api::Session&) { Ran(); });
  mgr_cf::SetParam("Period", "2");
  change_at_ = begin_ + seconds(390);
  change_ = [] { periodic::RegisterAction("t.check", "", "Period"); };
  EXPECT_EQ((Minutes{9, 11}), Pass(minutes(12)));
}

TEST_F(SchedulerTest, LooksOnceAMinuteWhenNothingIsDue) {
  Pass(minutes(60));
  EXPECT_LE(looks_, 61);
}

TEST_F(SchedulerTest, StopsBetweenTwoActionsThatAreDue) {
  const TestAction first("t.a", [this](brisq_api::Session&) {
    Ran();
    end_ = now_ - seconds(1);
  });
  const TestAction second("t.b", [this](brisq_api::Session&) { Ran(); });
  mgr_cf::SetParam("Period", "1");
  periodic::RegisterAction("t.a", "", "Period");
  periodic::RegisterAction("t.b", "", "Period");
  EXPECT_EQ(1u, Pass(minutes(5)).size());
}

TEST(Scheduler, EndsPromptlyWhenItsDescriptorSaysSo) {
  periodic::Reset();
  const Descriptor stop(::eventfd(0, EFD_CLOEXEC));
  Scheduler scheduler(
      stop.get(), [] {}, std::chrono::minutes(1));
  const auto start = std::chrono::steady_clock::now();
  std::thread stopper([&] { EXPECT_EQ(0, ::eventfd_write(stop.get(), 1)); });
  scheduler.Run();
  stopper.join();
  scheduler.Run();
  EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(10));
}

// Nothing is due for a day, and yet what has changed is looked at.
TEST(Scheduler, LooksAsOftenAsAskedWhileItWaits) {
  periodic::Reset();
  const Descriptor stop(::eventfd(0, EFD_CLOEXEC));
  int turns = 0;
  int looks = 0;
  const TestAction action("t.look", [&](brisq_api::Session&) {
    ++turns;
    ::eventfd_write(stop.get(), 1);
  });
  mgr_cf::SetParam("Period", "1440");
  periodic::RegisterAction("t.look", "", "Period");
  const auto look = [&] {
    if (++looks == 3) {
      mgr_cf::SetParam("Period", "0.0001");
    }
  };
  Scheduler(stop.get(), look, std::chrono::milliseconds(5)).Run();
  EXPECT_EQ(1, turns);
  EXPECT_GE(looks, 3);
  periodic::Reset();
  mgr_cf::Reset();
}

TEST(Scheduler, RunsByTheRealClock) {
  periodic::Reset();
  const Descriptor stop(::eventfd(0, EFD_CLOEXEC));
  int turns = 0;
  const TestAction action("t.real", [&](brisq_api::Session&) {
    if (++turns == 3) {
      ::eventfd_write(stop.get(), 1);
    }
  });
  mgr_cf::SetParam("Period", "0.0005");
  periodic::RegisterAction("t.real", "", "Period");
  Scheduler(
      stop.get(), [] {}, std::chrono::minutes(1))
      .Run();
  EXPECT_EQ(3, turns);
  periodic::Reset();
  mgr_cf::Reset();
}

}  // namespace
