#include "framework/reload_queue.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/request.h"
#include "framework/sql_reload_store.h"
#include "mgr_err.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace {

using reloader::GroupStatus;
using reloader::Milliseconds;
using reloader::Queue;
using reloader::ReloadOutcome;
using reloader::ReloadRun;
using std::chrono::milliseconds;

// A queue whose clock and commands belong to the test.
class ReloadQueue : public ::testing::Test {
 protected:
  ReloadQueue() { queue_.Enter({"g", "a", "Delay", "reload a", "restart a"}); }
  ~ReloadQueue() override { mgr_cf::Reset(); }

  void Ask(bool hard = false) { queue_.Ask("g", "a", hard); }
  std::vector<std::string> Commands() { return std::exchange(commands_, {}); }
  GroupStatus Status() { return queue_.Status().at(0); }

  support::LogCapture logs_;
  Milliseconds now_ = 1'000'000'000;
  ReloadOutcome outcome_;
  std::function<void()> meanwhile_ = [] {};  // happens while a command runs
  std::vector<std::string> commands_;
  Queue queue_{[this](const std::string& command) {
                 commands_.push_back(command);
                 std::exchange(meanwhile_, [] {})();
                 return command == "reload b" ? ReloadOutcome() : outcome_;
               },
               [this] { return now_; }};
};

using Words = std::vector<std::string>;

TEST_F(ReloadQueue, NothingAskedMeansNothingRuns) {
  EXPECT_TRUE(queue_.RunDue().empty());
  EXPECT_EQ(milliseconds(1000), queue_.RunByClock());
  EXPECT_EQ(Words(), Commands());
}

TEST_F(ReloadQueue, RequestsWithinTheDelayAreOneRunAndARestartWins) {
  Ask();
  EXPECT_EQ(milliseconds(1000), queue_.RunByClock());
  now_ += 1900;
  Ask(true);
  Ask();
  EXPECT_EQ(milliseconds(100), queue_.RunByClock());
  EXPECT_EQ(Words(), Commands());
  now_ += 100;
  queue_.RunByClock();
  EXPECT_EQ(Words{"restart a"}, Commands());
  EXPECT_EQ(0u, Status().requests);
  now_ += 100000;
  queue_.RunByClock();
  EXPECT_EQ(Words(), Commands());
}

TEST_F(ReloadQueue, ProcessThatEndsDoesNotWaitForTheDelay) {
  Ask();
  Ask();
  const std::vector<ReloadRun> runs = queue_.RunDue();
  ASSERT_EQ(1u, runs.size());
  EXPECT_EQ(0, runs[0].result);
  EXPECT_FALSE(runs[0].hard);
  EXPECT_EQ(Words{"reload a"}, Commands());
  EXPECT_TRUE(queue_.RunDue().empty());
  EXPECT_EQ("info reload: reload of g done for 2 requests", logs_.Messages("brisq").at(0));
}

TEST_F(ReloadQueue, RequestDuringARunIsFollowedByAnother) {
  Ask();
  meanwhile_ = [this] { Ask(true); };
  queue_.RunDue();
  EXPECT_EQ(Words{"reload a"}, Commands());
  EXPECT_EQ(1u, Status().requests);
  queue_.RunDue();
  EXPECT_EQ(Words{"restart a"}, Commands());
  EXPECT_EQ(0u, Status().requests);
}

TEST_F(ReloadQueue, FailureIsLoggedKeptAndTriedAgainWithGrowingPauses) {
  logs_.ExpectError("reload of g failed (75): not running");
  outcome_ = {75, "not running\n"};
  Ask();
  const std::vector<ReloadRun> runs = queue_.RunDue();
  EXPECT_EQ(75, runs.at(0).result);
  GroupStatus status = Status();
  EXPECT_EQ(GroupStatus::State::kFailed, status.state);
  EXPECT_EQ("not running", status.last->error);
  EXPECT_EQ(now_ + 5000, status.next_try);
  for (const Milliseconds pause : {5000, 10000, 20000}) {
    SCOPED_TRACE(pause);
    Commands();
    now_ += pause - 1;
    EXPECT_TRUE(queue_.RunDue().empty());
    queue_.RunByClock();
    EXPECT_EQ(Words(), Commands());
    now_ += 1;
    logs_.ExpectError("failed (75)");
    queue_.RunByClock();
    EXPECT_EQ(Words{"reload a"}, Commands());
  }
  outcome_ = {};
  now_ += 40000;
  queue_.RunByClock();
  status = Status();
  EXPECT_EQ(GroupStatus::State::kIdle, status.state);
  EXPECT_EQ(0u, status.requests);
  EXPECT_EQ(0, status.last->failures);
}

TEST_F(ReloadQueue, FreshRequestDoesNotWaitForThePauseAndTakesTheFailedOnesAlong) {
  logs_.ExpectError("failed (1)");
  outcome_ = {1, ""};
  Ask(true);
  queue_.RunDue();
  Commands();
  outcome_ = {};
  Ask();
  EXPECT_EQ(1u, queue_.RunDue().size());
  EXPECT_EQ(Words{"restart a"}, Commands());
  EXPECT_EQ(0u, Status().requests);
}

TEST_F(ReloadQueue, RunThatWasCutOffIsDoneAgain) {
  const auto store = std::make_shared<reloader::MemoryReloadStore>();
  queue_.SetStore(store);
  Ask();
  meanwhile_ = [] { throw std::runtime_error("killed"); };
  EXPECT_THROW(queue_.RunDue(), std::runtime_error);
  Commands();
  EXPECT_EQ(0, store->Runs("g").at(0).ended);
  EXPECT_EQ(1u, queue_.RunDue().size());
  EXPECT_EQ(Words{"reload a"}, Commands());
}

TEST_F(ReloadQueue, UnknownActionWaitsUntilItIsKnown) {
  queue_.Ask("g", "b", false);
  Ask();
  EXPECT_EQ(1u, queue_.RunDue().size());
  EXPECT_EQ(Words{"reload a"}, Commands());
  EXPECT_EQ(1u, Status().requests);
  queue_.Enter({"g", "b", "", "reload b", "restart b"});
  EXPECT_EQ(1u, queue_.RunDue().size());
  EXPECT_EQ(Words{"reload b"}, Commands());
  queue_.Leave("b");
  queue_.Ask("g", "b", false);
  EXPECT_TRUE(queue_.RunDue().empty());
}

TEST_F(ReloadQueue, GroupsAreServedOnTheirOwn) {
  logs_.ExpectError("reload of g failed (1)");
  queue_.Enter({"h", "b", "", "reload b", ""});
  Ask();
  queue_.Ask("h", "b", false);
  outcome_ = {1, "no"};
  queue_.RunDue();
  const std::vector<GroupStatus> status = queue_.Status();
  ASSERT_EQ(2u, status.size());
  EXPECT_EQ(GroupStatus::State::kFailed, status[0].state);
  EXPECT_EQ(GroupStatus::State::kIdle, status[1].state);
}

TEST_F(ReloadQueue, ConfigurationTestGuardsEachRunWhileItsPathIsSet) {
  queue_.SetConfigTest("g", "config-test");
  Ask();
  queue_.RunDue();
  EXPECT_EQ(Words{"reload a"}, Commands());
  mgr_cf::SetPath("config-test", "doveconf -nx");
  Ask();
  queue_.RunDue();
  ASSERT_EQ(2u, commands_.size());
  EXPECT_NE(std::string::npos, commands_[0].find("doveconf -nx"));
  Commands();
  logs_.ExpectError("reload of g failed (89): configuration refused: /d.conf line 4: wrong");
  outcome_ = {89, "/d.conf line 4: wrong"};
  Ask();
  queue_.RunDue();
  EXPECT_EQ(1u, Commands().size());
  EXPECT_EQ("configuration refused: /d.conf line 4: wrong", Status().last->error);
  EXPECT_EQ(1u, Status().requests);
}

// A store that refuses everything while `broken` is set.
class BreakableStore : public reloader::MemoryReloadStore {
 public:
  void Add(const reloader::ReloadRequest& request) override {
    if (broken) {
      throw mgr_err::Error("locked", "database");
    }
    MemoryReloadStore::Add(request);
  }
  bool broken = true;
};

TEST_F(ReloadQueue, RequestThatCannotBeStoredIsKeptUntilItCan) {
  const auto store = std::make_shared<BreakableStore>();
  queue_.SetStore(store);
  for (int count = 0; count < 4; ++count) {
    logs_.ExpectError("request of a not stored yet: locked: database");
  }
  Ask();
  Ask(true);
  Ask();
  EXPECT_TRUE(queue_.RunDue().empty());
  EXPECT_EQ(Words(), Commands());
  store->broken = false;
  queue_.RunDue();
  EXPECT_EQ(Words{"restart a"}, Commands());
}

TEST_F(ReloadQueue, WhatCannotBeStoredIsToldToWhoRequiresIt) {
  const auto store = std::make_shared<BreakableStore>();
  queue_.SetStore(store);
  for (int count = 0; count < 2; ++count) {
    logs_.ExpectError("request of a not stored yet: locked: database");
  }
  queue_.RequireStored();
  Ask();
  try {
    queue_.RequireStored();
    ADD_FAILURE() << "it is in this process only";
  } catch (const mgr_err::Error& error) {
    EXPECT_STREQ("later: request of a: can't be stored", error.what());
  }
  store->broken = false;
  queue_.RequireStored();
  EXPECT_EQ(1u, Status().requests);
  EXPECT_EQ(Words(), Commands()) << "nothing runs by that";
}

// The first thread that stores what was kept is held up in it for a while, and refused.
class SlowStore : public reloader::MemoryReloadStore {
 public:
  void Add(const reloader::ReloadRequest&) override {
    std::unique_lock<std::mutex> hold(mutex_);
    if (++calls_ == 2) {
      changed_.notify_all();
      changed_.wait_for(hold, milliseconds(300), [this] { return let_go_; });
    }
    throw mgr_err::Error("locked", "database");
  }
  void WaitUntilHeldUp() {
    std::unique_lock<std::mutex> hold(mutex_);
    changed_.wait(hold, [this] { return calls_ >= 2; });
  }
  void LetGo() {
    const std::lock_guard<std::mutex> hold(mutex_);
    let_go_ = true;
    changed_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int calls_ = 0;
  bool let_go_ = false;
};

TEST_F(ReloadQueue, WhatAnotherThreadIsStoringIsNotTakenForStored) {
  const auto store = std::make_shared<SlowStore>();
  queue_.SetStore(store);
  for (int count = 0; count < 3; ++count) {
    logs_.ExpectError("request of a not stored yet: locked: database");
  }
  Ask();
  std::thread other([this] { queue_.RunByClock(); });
  store->WaitUntilHeldUp();
  EXPECT_THROW(queue_.RequireStored(), mgr_err::Error);
  store->LetGo();
  other.join();
}

TEST_F(ReloadQueue, StatusSeesARunThatGoesOn) {
  Ask();
  std::vector<GroupStatus> seen;
  meanwhile_ = [&] { seen = queue_.Status(); };
  queue_.RunDue();
  ASSERT_EQ(1u, seen.size());
  EXPECT_EQ(GroupStatus::State::kRunning, seen[0].state);
  EXPECT_EQ(1u, seen[0].requests);
  EXPECT_EQ(GroupStatus::State::kIdle, Status().state);
}

TEST_F(ReloadQueue, WaitEndsByAskOrWakeAlsoWhenThatCameBefore) {
  Ask();
  queue_.Wait(milliseconds(600000));
  std::thread waker([this] { queue_.Wake(); });
  queue_.Wait(milliseconds(600000));
  waker.join();
  const auto start = std::chrono::steady_clock::now();
  queue_.Wait(milliseconds(20));
  EXPECT_GE(std::chrono::steady_clock::now() - start, milliseconds(20));
}

TEST_F(ReloadQueue, ServeLockNeedsAFolder) { EXPECT_THROW(queue_.TakeServeLock(), mgr_err::Error); }

// The queue over a database and a state folder, as processes share it.
class SharedReloadQueue : public ReloadQueue {
 protected:
  SharedReloadQueue() { OpenIn(queue_); }
  ~SharedReloadQueue() override { mgr_db::CloseDatabase(); }

  void OpenIn(Queue& queue) {
    mgr_db::OpenDatabase(directory_ / "panel.db");
    queue.SetStore(std::make_shared<reloader::SqlReloadStore>());
    queue.SetStateFolder(directory_.path());
  }

  support::TempDir directory_;
};

TEST_F(SharedReloadQueue, RequestsAreLeftToAServerWhileThereIsOne) {
  auto server = queue_.TakeServeLock();
  ASSERT_TRUE(server);
  Ask();
  EXPECT_TRUE(queue_.RunDue().empty());
  EXPECT_EQ(Words(), Commands());
  now_ += 2000;
  queue_.RunByClock();
  EXPECT_EQ(Words{"reload a"}, Commands());
  Ask();
  server.reset();
  EXPECT_EQ(1u, queue_.RunDue().size());
}

TEST_F(SharedReloadQueue, SecondServerGetsNoLock) {
  const auto first = queue_.TakeServeLock();
  EXPECT_FALSE(queue_.TakeServeLock());
}

TEST_F(SharedReloadQueue, ServerServesWhatAnotherProcessAskedFor) {
  const pid_t other = ::fork();
  if (other == 0) {
    Queue queue;
    OpenIn(queue);
    queue.Ask("g", "a", true);
    ::_exit(0);
  }
  int status = -1;
  ASSERT_EQ(other, ::waitpid(other, &status, 0));
  ASSERT_EQ(0, status);
  now_ = Queue::SystemClock() + 3000;
  queue_.RunByClock();
  EXPECT_EQ(Words{"restart a"}, Commands());
}

TEST_F(SharedReloadQueue, RequestOfARequestThatFailsIsServedAllTheSame) {
  {
    Request request("rolled back");
    Ask();
    EXPECT_EQ(1u, Status().requests);
  }
  EXPECT_EQ(1u, queue_.RunDue().size());
  EXPECT_EQ(Words{"reload a"}, Commands());
  Request request("committed");
  Ask();
  request.Commit();
  EXPECT_EQ(1u, Status().requests);
}

// Many processes, each of which asks and then runs what is due, with a command that notices another
// run beside it.
TEST_F(SharedReloadQueue, ProcessesNeverRunAtTheSameTimeAndServeEveryRequest) {
  mgr_db::CloseDatabase();
  const std::string command = "cd " + directory_.path() +
                              " && { mkdir running || echo overlap >> faults; } && "
                              "date +%s%N >> began && sleep 0.02 && rmdir running";
  std::vector<pid_t> processes;
  for (int number = 0; number < 12; ++number) {
    processes.push_back(::fork());
    if (processes.back() == 0) {
      Queue queue;
      OpenIn(queue);
      queue.Enter({"g", "a", "", command, command});
      queue.Ask("g", "a", false);
      std::ofstream(directory_ / ("asked" + std::to_string(number))) << Queue::SystemClock();
      queue.RunDue();
      ::_exit(0);
    }
  }
  Milliseconds asked = 0;
  for (std::size_t number = 0; number < processes.size(); ++number) {
    int status = -1;
    ASSERT_EQ(processes[number], ::waitpid(processes[number], &status, 0));
    EXPECT_EQ(0, status);
    asked = std::max<Milliseconds>(asked,
                                   std::stoll(directory_.Read("asked" + std::to_string(number))));
  }
  EXPECT_FALSE(std::ifstream(directory_ / "faults").good());
  std::ifstream began(directory_ / "began");
  Milliseconds last = 0;
  std::size_t runs = 0;
  for (std::string line; std::getline(began, line); ++runs) {
    last = std::stoll(line) / 1000000;
  }
  EXPECT_GE(last, asked);
  EXPECT_LE(runs, processes.size());
  OpenIn(queue_);
  EXPECT_EQ(0u, Status().requests);
}

}  // namespace
