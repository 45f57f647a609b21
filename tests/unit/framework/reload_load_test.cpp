// Reload requests of several processes with several threads each, over one database.

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/reload_queue.h"
#include "framework/reload_worker.h"
#include "framework/sql_reload_store.h"
#include "tests/support/temp_dir.h"

namespace {

using reloader::Queue;

constexpr int kProcesses = 3;
constexpr int kThreads = 4;
constexpr int kChanges = 25;  // of each thread

/// Changes are empty files. A run, slow as it is, notes which of them it found when it began, and
/// whether another one went on.
class ReloadLoad : public ::testing::Test {
 protected:
  ReloadLoad() { std::filesystem::create_directory(dir_ / "changes"); }

  std::string Command() const {
    return "cd '" + dir_.path() +
           "' && { mkdir running || echo overlap >> faults; } && "
           "{ ls changes | tr '\\n' ' '; echo; } >> runs && sleep 0.02 && rmdir running";
  }

  /// A process's own queue on the common database.
  std::unique_ptr<Queue> OpenQueue() const {
    mgr_cf::SetParam("Delay", "0.05");
    mgr_db::OpenDatabase(dir_ / "panel.db");
    auto queue = std::make_unique<Queue>();
    queue->SetStore(std::make_shared<reloader::SqlReloadStore>());
    queue->SetStateFolder(dir_.path());
    queue->Enter({"g", "a", "Delay", Command(), Command()});
    return queue;
  }

  /// Makes changes on several threads, each followed by its request.
  void MakeChanges(Queue& queue, int process) const {
    std::vector<std::jthread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([this, &queue, process, thread] {
        for (int change = 0; change < kChanges; ++change) {
          const std::string name =
              std::to_string(process) + "-" + std::to_string(thread) + "-" + std::to_string(change);
          std::ofstream(dir_ / ("changes/" + name));
          queue.Ask("g", "a", change % 10 == 0);
        }
      });
    }
  }

  /// Runs `work` in a process of its own, which ends with its result.
  static pid_t Fork(const std::function<int()>& work) {
    const pid_t child = ::fork();
    if (child == 0) {
      int result = 99;
      try {
        result = work();
      } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
      }
      ::_exit(result);
    }
    return child;
  }

  static int ResultOf(pid_t child) {
    int status = -1;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  /// Every change was found by a run that began after it, and no run met another one.
  void ExpectAllServed() const {
    std::set<std::string> served;
    std::ifstream runs(dir_ / "runs");
    for (std::string name; runs >> name;) {
      served.insert(name);
    }
    EXPECT_EQ(static_cast<std::size_t>(kProcesses * kThreads * kChanges), served.size());
    EXPECT_FALSE(std::filesystem::exists(dir_ / "faults")) << "two runs at once";
    mgr_db::OpenDatabase(dir_ / "panel.db");
    EXPECT_TRUE(reloader::SqlReloadStore().Requests().empty());
    mgr_db::CloseDatabase();
  }

  int Runs() const {
    const std::string runs = dir_.Read("runs");
    return static_cast<int>(std::count(runs.begin(), runs.end(), '\n'));
  }

  support::TempDir dir_;
};

TEST_F(ReloadLoad, ProcessesWithoutAServerServeEachOthersRequests) {
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(Fork([this, process] {
      const auto queue = OpenQueue();
      MakeChanges(*queue, process);
      queue->RunDue();
      return 0;
    }));
  }
  for (const pid_t child : children) {
    EXPECT_EQ(0, ResultOf(child));
  }
  ExpectAllServed();
  EXPECT_LE(Runs(), kProcesses) << "each process runs at most once, at its end";
}

TEST_F(ReloadLoad, ProcessesLeaveAllToAServerWhichMergesThem) {
  int ready[2];
  int stop[2];
  ASSERT_EQ(0, ::pipe(ready));
  ASSERT_EQ(0, ::pipe(stop));
  const auto start = std::chrono::steady_clock::now();
  const pid_t server = Fork([&] {
    const auto queue = OpenQueue();
    const auto lock = queue->TakeServeLock();
    const reloader::Worker worker(*queue);
    char word = lock ? 'y' : 'n';
    if (::write(ready[1], &word, 1) != 1 || ::read(stop[0], &word, 1) != 1) return 1;
    while (queue->Status().at(0).requests > 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return 0;
  });
  char word = 0;
  ASSERT_EQ(1, ::read(ready[0], &word, 1));
  ASSERT_EQ('y', word);
  std::vector<pid_t> children;
  for (int process = 0; process < kProcesses; ++process) {
    children.push_back(Fork([this, process] {
      const auto queue = OpenQueue();
      MakeChanges(*queue, process);
      return queue->RunDue().empty() ? 0 : 1;
    }));
  }
  for (const pid_t child : children) {
    EXPECT_EQ(0, ResultOf(child)) << "it ran something itself";
  }
  ASSERT_EQ(1, ::write(stop[1], &word, 1));
  EXPECT_EQ(0, ResultOf(server));
  const auto took = std::chrono::steady_clock::now() - start;
  ExpectAllServed();
  // Each run waits for the delay and takes 20 ms.
  EXPECT_LE(Runs(), took / std::chrono::milliseconds(70) + 1);
  for (const int end : {ready[0], ready[1], stop[0], stop[1]}) {
    ::close(end);
  }
}

}  // namespace
