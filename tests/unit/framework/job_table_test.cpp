#include "framework/job_table.h"

#include <gtest/gtest.h>

#include "framework/acting_user.h"
#include "framework/database.h"
#include "framework/journal.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace {

class JobTableTest : public testing::Test {
 protected:
  JobTableTest() { mgr_db::OpenDatabase(dir_ / "panel.db"); }
  ~JobTableTest() override { mgr_db::CloseDatabase(); }

  static job_table::Job Job(const std::string& entry, const std::string& started) {
    return {0, entry, "mailbox add", "alice", started, job_table::kDone, "changes", "sealed", 3};
  }

  support::TempDir dir_;
};

TEST_F(JobTableTest, KeepsEverythingOfAJob) {
  const int id = job_table::Add(Job("e1", "2024-01-01T00:00:00Z"));
  const auto job = job_table::Find(id);
  ASSERT_TRUE(job);
  EXPECT_EQ(id, job->id);
  EXPECT_EQ("e1", job->entry);
  EXPECT_EQ("mailbox add", job->name);
  EXPECT_EQ("alice", job->who);
  EXPECT_EQ("2024-01-01T00:00:00Z", job->started);
  EXPECT_EQ(job_table::kDone, job->state);
  EXPECT_EQ("changes", job->changes);
  EXPECT_EQ("sealed", job->sealed);
  EXPECT_EQ(3, job->undoes);
  EXPECT_FALSE(job_table::Find(id + 1));
  EXPECT_EQ(id, job_table::OfEntry("e1")->id);
  EXPECT_FALSE(job_table::OfEntry("e2"));
  EXPECT_EQ(id, job_table::UndoneBy(3)->id);
  EXPECT_FALSE(job_table::UndoneBy(id));
}

TEST_F(JobTableTest, ARequestHasOneRow) {
  job_table::Add(Job("e1", "t"));
  EXPECT_THROW(job_table::Add(Job("e1", "t")), mgr_err::Error);
}

TEST_F(JobTableTest, ListsTheLatestFirst) {
  for (const char* entry : {"e1", "e2", "e3"}) {
    job_table::Add(Job(entry, "t"));
  }
  EXPECT_EQ(3u, job_table::Latest(0).size());
  const auto latest = job_table::Latest(2);
  ASSERT_EQ(2u, latest.size());
  EXPECT_EQ("e3", latest[0].entry);
  EXPECT_EQ("e2", latest[1].entry);
}

TEST_F(JobTableTest, ForgetsOldJobsAndNeverGivesTheirNumbersAgain) {
  job_table::Add(Job("e1", "2024-01-01T00:00:00Z"));
  const int last = job_table::Add(Job("e2", "2024-01-02T00:00:00Z"));
  job_table::ForgetBefore("2024-01-02T00:00:00Z");
  EXPECT_EQ(1u, job_table::Latest(0).size());
  job_table::ForgetBefore("2025");
  EXPECT_EQ(last + 1, job_table::Add(Job("e3", "2025-01-01T00:00:00Z")));
}

TEST_F(JobTableTest, AMarkIsAPartOfItsRequest) {
  std::string lost;
  {
    Request request("lost");
    request.BeginDatabase();
    job_table::Mark(request);
    lost = request.id();
    EXPECT_TRUE(job_table::OfEntry(lost));
  }
  job_table::Create();
  EXPECT_FALSE(job_table::OfEntry(lost));

  Request request("kept");
  request.BeginDatabase();
  job_table::Mark(request);
  job_table::Mark(request);
  request.Commit();
  const auto job = job_table::OfEntry(request.id());
  ASSERT_TRUE(job);
  EXPECT_EQ("kept", job->name);
  EXPECT_EQ(ActingUser(), job->who);
  EXPECT_EQ(job_table::kDone, job->state);
}

TEST_F(JobTableTest, TheJournalIsReadOnlyWhenThereIsAnOldJob) {
  support::TempDir dir;
  dir.Write("journal", "no folder");
  journal::SetFolder(dir / "journal");
  job_table::Add(Job("e1", "2024-01-01T00:00:00Z"));
  EXPECT_NO_THROW(job_table::ForgetBefore("2024-01-01T00:00:00Z"));
  EXPECT_THROW(job_table::ForgetBefore("2025"), mgr_err::Error);
  journal::SetFolder("");
  EXPECT_TRUE(job_table::OfEntry("e1"));
}

// Its row is what tells a recovery that the request was committed.
TEST_F(JobTableTest, AJobWithAnOpenEntryIsNotForgotten) {
  support::TempDir dir;
  journal::SetFolder(dir / "journal");
  const std::vector<std::string> open = {"00000000000000e1", "00000000000000e3"};
  for (const std::string& entry : open) {
    journal::Entry(entry, {"request", {}}).Write({{"a", {}}}, true);
  }
  for (const char* entry : {"00000000000000e1", "00000000000000e2", "00000000000000e3"}) {
    job_table::Add(Job(entry, "2024-01-01T00:00:00Z"));
  }
  job_table::ForgetBefore("2025");
  journal::SetFolder("");
  EXPECT_TRUE(job_table::OfEntry(open[0]));
  EXPECT_FALSE(job_table::OfEntry("00000000000000e2"));
  EXPECT_TRUE(job_table::OfEntry(open[1]));
}

TEST_F(JobTableTest, TellsWhatWasDoneAfterAJob) {
  const int first = job_table::Add(Job("e1", "t"));
  job_table::Job undone = Job("e2", "t");
  undone.state = job_table::kUndone;
  job_table::Add(undone);
  job_table::Add(Job("e3", "t"));
  job_table::Add(Job("e4", "t"));
  const auto later = job_table::DoneAfter(first);
  ASSERT_EQ(2u, later.size());
  EXPECT_EQ("e3", later[0].entry);
  EXPECT_EQ("e4", later[1].entry);
}

TEST_F(JobTableTest, WordsOnAJobCanBeReplaced) {
  const int first = job_table::Add(Job("e1", "t"));
  const int second = job_table::Add(Job("e2", "t"));
  job_table::SetChanges(first, "other words");
  EXPECT_EQ("other words", job_table::Find(first)->changes);
  EXPECT_NE("other words", job_table::Find(second)->changes);
}

// Each request asks for it, however long the history is.
TEST_F(JobTableTest, WhatIsOldIsFoundWithoutLookingAtAllJobs) {
  job_table::Create();
  const auto plan = mgr_db::ThreadConnection()->Query(
      "EXPLAIN QUERY PLAN DELETE FROM job WHERE started < :v1 AND entry NOT IN (:v2)", {"t", "e"},
      4);
  ASSERT_FALSE(plan.empty());
  EXPECT_EQ("SEARCH job USING INDEX job_started (started<?)", plan.front().back());
}

}  // namespace
