#include "framework/reload_worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "framework/config_file.h"
#include "mgr_err.h"
#include "tests/support/log_capture.h"

namespace {

using reloader::Queue;
using reloader::ReloadOutcome;
using reloader::ReloadRequest;
using reloader::Worker;
using std::chrono::milliseconds;

// A slow command that counts how often it runs, and how often at once.
class SlowCommand {
 public:
  explicit SlowCommand(milliseconds pause) : pause_(pause) {}

  ReloadOutcome operator()(const std::string&) {
    {
      const std::lock_guard<std::mutex> hold(mutex_);
      began_.push_back(++tick_);
      most_ = std::max(most_, ++inside_);
    }
    std::this_thread::sleep_for(pause_);
    const std::lock_guard<std::mutex> hold(mutex_);
    --inside_;
    ended_.notify_all();
    ++runs_;
    return {};
  }

  // A moment in the order of all moments.
  int Tick() {
    const std::lock_guard<std::mutex> hold(mutex_);
    return ++tick_;
  }
  // Waits until a run that began after `tick` has ended.
  bool WaitForRunAfter(int tick) {
    std::unique_lock<std::mutex> hold(mutex_);
    return ended_.wait_for(hold, std::chrono::seconds(60),
                           [&] { return inside_ == 0 && !began_.empty() && began_.back() > tick; });
  }
  int most() const { return most_; }
  int runs() const { return runs_; }

 private:
  milliseconds pause_;
  std::mutex mutex_;
  std::condition_variable ended_;
  int tick_ = 0;
  int inside_ = 0;
  int most_ = 0;
  int runs_ = 0;
  std::vector<int> began_;
};

class ReloadWorker : public ::testing::Test {
 protected:
  ReloadWorker() { mgr_cf::SetParam("Delay", "0.02"); }
  ~ReloadWorker() override { mgr_cf::Reset(); }

  support::LogCapture logs_;
};

TEST_F(ReloadWorker, TenThousandRequestsOfEightThreadsAreFewRunsOneAtATimeAndNoneIsLost) {
  SlowCommand command(milliseconds(30));
  Queue queue([&](const std::string& line) { return command(line); });
  queue.Enter({"g", "a", "Delay", "reload", "restart"});
  const auto store = std::make_shared<reloader::MemoryReloadStore>();
  queue.SetStore(store);
  const auto start = std::chrono::steady_clock::now();
  std::atomic<int> last_tick = 0;
  const Worker worker(queue);
  std::vector<std::thread> threads;
  for (int number = 0; number < 8; ++number) {
    threads.emplace_back([&] {
      for (int count = 0; count < 1250; ++count) {
        queue.Ask("g", "a", count % 100 == 0);
        last_tick = command.Tick();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_TRUE(command.WaitForRunAfter(last_tick));
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(1, command.most());
  EXPECT_LE(command.runs(), took / milliseconds(30) + 1);
  EXPECT_LT(command.runs(), 200);
}

TEST_F(ReloadWorker, EachRequestIsFollowedByARunThatBeganAfterIt) {
  SlowCommand command(milliseconds(3));
  Queue queue([&](const std::string& line) { return command(line); });
  queue.Enter({"g", "a", "Delay", "reload", "restart"});
  const Worker worker(queue);
  for (int count = 0; count < 30; ++count) {
    const int tick = command.Tick();
    queue.Ask("g", "a", false);
    ASSERT_TRUE(command.WaitForRunAfter(tick));
    // The next one comes while the last run goes on, ends, or has ended.
    std::this_thread::sleep_for(milliseconds(count % 5));
  }
}

TEST_F(ReloadWorker, EndsAtOnceWhenItHasNothingToDo) {
  SlowCommand command(milliseconds(0));
  Queue queue([&](const std::string& line) { return command(line); });
  queue.Enter({"g", "a", "Delay", "reload", "restart"});
  milliseconds spent{0};
  for (int count = 0; count < 5; ++count) {
    auto worker = std::make_unique<Worker>(queue);
    const int tick = command.Tick();
    queue.Ask("g", "a", false);
    ASSERT_TRUE(command.WaitForRunAfter(tick));
    // Now it is about to wait for a second, since nothing is left.
    std::this_thread::sleep_for(milliseconds(20));
    const auto start = std::chrono::steady_clock::now();
    worker.reset();
    spent += std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
  }
  EXPECT_LT(spent, milliseconds(2500));
}

TEST_F(ReloadWorker, WaitsForItsRunAtTheEnd) {
  SlowCommand command(milliseconds(100));
  std::atomic<bool> began = false;
  Queue queue([&](const std::string& line) {
    began = true;
    began.notify_all();
    return command(line);
  });
  queue.Enter({"g", "a", "Delay", "reload", "restart"});
  {
    const Worker worker(queue);
    queue.Ask("g", "a", false);
    began.wait(false);
  }
  EXPECT_EQ(1, command.runs());
}

// A store that fails the first time.
class WeakStore : public reloader::MemoryReloadStore {
 public:
  std::vector<ReloadRequest> Requests() override {
    if (!failed.exchange(true)) {
      throw mgr_err::Error("locked", "database");
    }
    return MemoryReloadStore::Requests();
  }
  std::atomic<bool> failed = false;
};

TEST_F(ReloadWorker, StoreThatFailsIsLoggedAndUsedAgain) {
  logs_.ExpectError("reloads are stuck: locked: database");
  SlowCommand command(milliseconds(0));
  Queue queue([&](const std::string& line) { return command(line); });
  queue.Enter({"g", "a", "Delay", "reload", "restart"});
  const auto store = std::make_shared<WeakStore>();
  queue.SetStore(store);
  const Worker worker(queue);
  while (!store->failed) {
    std::this_thread::yield();
  }
  const int tick = command.Tick();
  queue.Ask("g", "a", false);
  EXPECT_TRUE(command.WaitForRunAfter(tick));
}

std::atomic<bool> g_caught_elsewhere = false;
pthread_t g_main;

void NoteThread(int) {
  g_caught_elsewhere = g_caught_elsewhere || !pthread_equal(g_main, pthread_self());
}

TEST_F(ReloadWorker, SignalsGoToOtherThreads) {
  g_main = pthread_self();
  struct sigaction action = {};
  struct sigaction old = {};
  action.sa_handler = &NoteThread;
  ::sigaction(SIGUSR1, &action, &old);
  Queue queue;
  {
    const Worker worker(queue);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGUSR1);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    for (int count = 0; count < 20; ++count) {
      ::kill(::getpid(), SIGUSR1);
      std::this_thread::sleep_for(milliseconds(1));
    }
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  }
  ::sigaction(SIGUSR1, &old, nullptr);
  EXPECT_FALSE(g_caught_elsewhere);
}

}  // namespace
