#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "framework/reload_store.h"

/// What every store of reload requests must do. `Fixture` has a member `store`.
template <class Fixture>
class ReloadStoreContract : public ::testing::Test {
 protected:
  reloader::ReloadStore& store() { return *fixture_.store; }

  static reloader::ReloadRequest Request(const std::string& action, bool hard = false) {
    return {0, "group of " + action, action, hard, 1767225600123};
  }
  static reloader::ReloadRun Run(const std::string& group, std::int64_t through) {
    reloader::ReloadRun run;
    run.group = group;
    run.through = through;
    run.began = 1767225600123;
    run.failures = 1;
    return run;
  }

 private:
  Fixture fixture_;
};

TYPED_TEST_SUITE_P(ReloadStoreContract);

TYPED_TEST_P(ReloadStoreContract, StartsEmpty) {
  EXPECT_TRUE(this->store().Requests().empty());
  EXPECT_TRUE(this->store().Runs("").empty());
}

TYPED_TEST_P(ReloadStoreContract, GivesRequestsBackInTheirOrderWithRisingIds) {
  this->store().Add(this->Request("b", true));
  this->store().Add(this->Request("a"));
  this->store().Add(this->Request("'; --\n"));
  const std::vector<reloader::ReloadRequest> requests = this->store().Requests();
  ASSERT_EQ(3u, requests.size());
  EXPECT_EQ("b", requests[0].action);
  EXPECT_EQ("group of b", requests[0].group);
  EXPECT_TRUE(requests[0].hard);
  EXPECT_EQ(1767225600123, requests[0].at);
  EXPECT_FALSE(requests[1].hard);
  EXPECT_EQ("'; --\n", requests[2].action);
  EXPECT_LT(0, requests[0].id);
  EXPECT_LT(requests[0].id, requests[1].id);
  EXPECT_LT(requests[1].id, requests[2].id);
}

TYPED_TEST_P(ReloadStoreContract, DropsOneActionsRequestsUpToAnId) {
  for (const char* const action : {"a", "b", "a", "a"}) {
    this->store().Add(this->Request(action));
  }
  const std::vector<reloader::ReloadRequest> before = this->store().Requests();
  this->store().Drop("a", before[2].id);
  const std::vector<reloader::ReloadRequest> after = this->store().Requests();
  ASSERT_EQ(2u, after.size());
  EXPECT_EQ(before[1].id, after[0].id);
  EXPECT_EQ(before[3].id, after[1].id);
}

TYPED_TEST_P(ReloadStoreContract, NeverGivesAnIdTwice) {
  this->store().Add(this->Request("a"));
  const std::int64_t first = this->store().Requests()[0].id;
  this->store().Drop("a", first);
  this->store().Add(this->Request("a"));
  EXPECT_LT(first, this->store().Requests()[0].id);
}

TYPED_TEST_P(ReloadStoreContract, RemembersHowARunEnded) {
  reloader::ReloadRun run = this->Run("g", 7);
  run.hard = true;
  run.id = this->store().Begin(run);
  ASSERT_EQ(1u, this->store().Runs("g").size());
  EXPECT_EQ(0, this->store().Runs("g")[0].ended);
  EXPECT_EQ(1, this->store().Runs("g")[0].failures);
  run.ended = 1767225600999;
  run.failures = 3;
  run.result = 75;
  run.error = "not 'running'";
  this->store().End(run);
  const std::vector<reloader::ReloadRun> runs = this->store().Runs("g");
  ASSERT_EQ(1u, runs.size());
  EXPECT_EQ(run.id, runs[0].id);
  EXPECT_EQ("g", runs[0].group);
  EXPECT_TRUE(runs[0].hard);
  EXPECT_EQ(7, runs[0].through);
  EXPECT_EQ(1767225600123, runs[0].began);
  EXPECT_EQ(1767225600999, runs[0].ended);
  EXPECT_EQ(3, runs[0].failures);
  EXPECT_EQ(75, runs[0].result);
  EXPECT_EQ("not 'running'", runs[0].error);
}

TYPED_TEST_P(ReloadStoreContract, GivesRunsNewestFirstByGroupOrAll) {
  for (const char* const group : {"g", "h", "g"}) {
    this->store().Begin(this->Run(group, 1));
  }
  EXPECT_EQ(2u, this->store().Runs("g").size());
  EXPECT_GT(this->store().Runs("g")[0].id, this->store().Runs("g")[1].id);
  EXPECT_EQ(1u, this->store().Runs("h").size());
  EXPECT_EQ(3u, this->store().Runs("").size());
  EXPECT_EQ(0u, this->store().Runs("x").size());
}

TYPED_TEST_P(ReloadStoreContract, ForgetsTheOldestRunsOfAGroup) {
  this->store().Begin(this->Run("other", 1));
  for (int count = 1; count <= 25; ++count) {
    reloader::ReloadRun run = this->Run("g", count);
    run.id = this->store().Begin(run);
    run.ended = 1;
    this->store().End(run);
  }
  const std::vector<reloader::ReloadRun> runs = this->store().Runs("g");
  ASSERT_EQ(reloader::ReloadStore::kKeptRuns, runs.size());
  EXPECT_EQ(25, runs.front().through);
  EXPECT_EQ(6, runs.back().through);
  EXPECT_EQ(1u, this->store().Runs("other").size());
}

REGISTER_TYPED_TEST_SUITE_P(ReloadStoreContract, StartsEmpty,
                            GivesRequestsBackInTheirOrderWithRisingIds,
                            DropsOneActionsRequestsUpToAnId, NeverGivesAnIdTwice,
                            RemembersHowARunEnded, GivesRunsNewestFirstByGroupOrAll,
                            ForgetsTheOldestRunsOfAGroup);
