#include "framework/reload_group.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "framework/config_file.h"

namespace {

using reloader::Group;
using reloader::GroupStatus;
using reloader::MemoryReloadStore;
using reloader::Milliseconds;
using reloader::ReloadCommands;
using reloader::ReloadRequest;
using reloader::ReloadRun;
using State = reloader::GroupStatus::State;

constexpr Milliseconds kNow = 1'000'000'000;

const std::vector<ReloadCommands> kActions = {{"g", "a", "Delay", "reload", "restart"}};

ReloadRun RunThrough(std::int64_t through, int failures, Milliseconds ended) {
  ReloadRun run;
  run.group = "g";
  run.through = through;
  run.failures = failures;
  run.ended = ended;
  return run;
}

struct DueCase {
  const char* name;
  const char* delay;
  Milliseconds at;  // of request 5, before now
  std::optional<ReloadRun> last;
  Milliseconds due;
};

TEST(ReloadGroup, DelayPauseAndClockDecideWhenARunIsDue) {
  const DueCase cases[] = {
      {"fresh, default delay", "", 0, {}, 2000},
      {"half way", "", 1500, {}, 500},
      {"delay is over", "", 2000, {}, 0},
      {"long ago", "", 90000, {}, 0},
      {"no delay", "0", 0, {}, 0},
      {"fraction", "0.25", 0, {}, 250},
      {"no number", "soon", 0, {}, 2000},
      {"negative", "-1", 0, {}, 2000},
      {"endless", "1e30", 0, {}, 24 * 3600 * 1000},
      {"clock was set back", "", -5000, {}, 0},
      {"fresh after a good run", "", 0, RunThrough(4, 0, kNow), 2000},
      {"fresh after a failed run", "", 0, RunThrough(4, 3, kNow), 2000},
      {"failed once", "", 0, RunThrough(5, 1, kNow - 1000), 4000},
      {"failed twice", "", 0, RunThrough(5, 2, kNow - 1000), 9000},
      {"pause is over", "", 0, RunThrough(5, 1, kNow - 5000), 0},
      {"failed in the future", "", 0, RunThrough(5, 1, kNow + 1), 0},
      {"cut off", "", 0, RunThrough(5, 1, 0), 0},
      {"good, but not served", "", 0, RunThrough(5, 0, kNow), 0},
  };
  for (const DueCase& one : cases) {
    SCOPED_TRACE(one.name);
    mgr_cf::SetParam("Delay", one.delay);
    const Group group = {"g", {{5, "g", "a", false, kNow - one.at}}, one.last};
    EXPECT_EQ(one.due, group.DueIn(kNow, kActions));
  }
  mgr_cf::Reset();
}

TEST(ReloadGroup, DelayCountsFromTheOldestFreshRequest) {
  const Group group = {"g",
                       {{4, "g", "a", false, kNow - 9000},
                        {5, "g", "a", false, kNow - 1500},
                        {6, "g", "a", false, kNow}},
                       RunThrough(4, 1, kNow)};
  EXPECT_EQ(5, group.Fresh()->id);
  EXPECT_EQ(500, group.DueIn(kNow, kActions));
}

TEST(ReloadGroup, NextRunServesAllRequestsAndCountsAsFailedUntilItEnds) {
  const Group group = {
      "g", {{4, "g", "a", true, 0}, {9, "g", "a", false, 0}}, RunThrough(3, 2, kNow - 1)};
  const ReloadRun run = group.NextRun(kNow);
  EXPECT_EQ("g", run.group);
  EXPECT_TRUE(run.hard);
  EXPECT_EQ(9, run.through);
  EXPECT_EQ(kNow, run.began);
  EXPECT_EQ(0, run.ended);
  EXPECT_EQ(3, run.failures);
}

TEST(ReloadGroup, PausesGrowToFiveMinutes) {
  const Milliseconds pauses[] = {5000, 10000, 20000, 40000, 80000, 160000, 300000, 300000};
  for (int failures = 1; failures <= 8; ++failures) {
    EXPECT_EQ(pauses[failures - 1], reloader::PauseAfter(failures));
  }
  EXPECT_EQ(300000, reloader::PauseAfter(2000000000));
}

TEST(ReloadGroup, WaitingLeavesUnknownActionsOut) {
  MemoryReloadStore store;
  store.Add({0, "g", "unknown", false, 0});
  EXPECT_TRUE(Group::Waiting(store, kActions).empty());
  store.Add({0, "g", "a", false, 0});
  store.Add({0, "b", "a", false, 0});
  store.Begin(RunThrough(1, 1, 0));
  const std::vector<Group> groups = Group::Waiting(store, kActions);
  ASSERT_EQ(2u, groups.size());
  EXPECT_EQ("b", groups[0].name);
  EXPECT_FALSE(groups[0].last);
  EXPECT_EQ("g", groups[1].name);
  ASSERT_EQ(1u, groups[1].requests.size());
  EXPECT_EQ("a", groups[1].requests[0].action);
  EXPECT_EQ(1, groups[1].last->through);
}

struct StatusCase {
  const char* name;
  int requests;
  std::vector<ReloadRun> runs;  // oldest first; ended 0 is left open
  bool running;
  State state;
  int last_failures;  // -1: no last run
  Milliseconds next_try;
};

TEST(ReloadGroup, StatusTellsWhatGoesOn) {
  const StatusCase cases[] = {
      {"never asked", 0, {}, false, State::kIdle, -1, 0},
      {"asked", 2, {}, false, State::kWaiting, -1, 0},
      {"served", 0, {RunThrough(1, 0, 50)}, false, State::kIdle, 0, 0},
      {"asked again", 1, {RunThrough(1, 0, 50)}, false, State::kWaiting, 0, 0},
      {"first run goes on", 1, {RunThrough(1, 1, 0)}, true, State::kRunning, -1, 0},
      {"run goes on", 1, {RunThrough(1, 2, 50), RunThrough(1, 3, 0)}, true, State::kRunning, 2, 0},
      {"run was cut off", 1, {RunThrough(1, 1, 0)}, false, State::kWaiting, -1, 0},
      {"another group's run", 1, {RunThrough(1, 0, 50)}, true, State::kWaiting, 0, 0},
      {"failed", 1, {RunThrough(1, 0, 50), RunThrough(1, 2, 70)}, false, State::kFailed, 2, 10070},
      {"old failure", 0, {RunThrough(1, 2, 50), RunThrough(1, 0, 70)}, false, State::kIdle, 0, 0},
  };
  for (const StatusCase& one : cases) {
    SCOPED_TRACE(one.name);
    MemoryReloadStore store;
    for (int count = 0; count < one.requests; ++count) {
      store.Add({0, "g", "a", false, 0});
    }
    for (ReloadRun run : one.runs) {
      run.id = store.Begin(run);
      store.End(run);
    }
    const std::vector<GroupStatus> all = reloader::StatusOfGroups(store, kActions, one.running);
    ASSERT_EQ(1u, all.size());
    EXPECT_EQ("g", all[0].group);
    EXPECT_EQ(one.state, all[0].state);
    EXPECT_EQ(static_cast<std::size_t>(one.requests), all[0].requests);
    EXPECT_EQ(one.last_failures, all[0].last ? all[0].last->failures : -1);
    EXPECT_EQ(one.next_try, all[0].next_try);
  }
}

}  // namespace
