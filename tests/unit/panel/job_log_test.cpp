#include "panel/job_log.h"

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/job_table.h"
#include "framework/rehearsal.h"
#include "framework/seal.h"
#include "mgr_cf.h"
#include "panel/mailbox_changes.h"
#include "panel/run_request.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::JobLog;
using brisq_panel::ObjectChange;
using brisq_panel::Secrets;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::UnorderedElementsAre;

class JobLogTest : public panel_test::FilePanelTest {
 protected:
  static std::vector<ObjectChange> Last() {
    return brisq_panel::FromText(job_table::Latest(1).at(0).changes);
  }
};

TEST_F(JobLogTest, AJobHoldsWhatWasMade) {
  Use(true);
  Add("alice");
  const auto changes = Last();
  ASSERT_EQ(1u, changes.size());
  EXPECT_EQ("alice@example.org", changes[0].name);
  EXPECT_TRUE(changes[0].Made());
  EXPECT_EQ("bob", changes[0].after.at("owner"));
}

TEST_F(JobLogTest, OfAChangeOnlyWhatDiffersIsKept) {
  Use(true);
  Add("alice");
  brisq_panel::SetMailboxes({"alice@example.org"}, {.quota = "7"});
  const auto changes = Last();
  ASSERT_EQ(1u, changes.size());
  EXPECT_THAT(changes[0].before, UnorderedElementsAre(Pair("quota", "")));
  EXPECT_THAT(changes[0].after, UnorderedElementsAre(Pair("quota", "7")));
}

TEST_F(JobLogTest, PasswordsAndHashesAreNowhereInTheClear) {
  for (const bool passwords : {true, false}) {
    Use(passwords);
    const std::string local = passwords ? "alice" : "carol";
    Add(local);
    brisq_panel::SetPassword(local + "@example.org", "canary-4711");
    const job_table::Job job = job_table::Latest(1).at(0);
    EXPECT_THAT(job.changes, HasSubstr("(hidden)"));
    EXPECT_THAT(job.changes, Not(HasSubstr("{CLEAR}")));
    EXPECT_THAT(job.sealed, Not(HasSubstr("{CLEAR}")));
    EXPECT_THAT(mgr_seal::Open(job.sealed), HasSubstr("before.hash={CLEAR}secret"));
    EXPECT_THAT(DatabaseBytes(), Not(HasSubstr("canary-4711")));
  }
}

TEST_F(JobLogTest, NothingChangedIsNoJob) {
  Use(true);
  Add("alice");
  const int last = job_table::Latest(1).at(0).id;
  brisq_panel::SetMailboxes({"alice@example.org"}, {.quota = "0"});
  EXPECT_EQ(last, job_table::Latest(1).at(0).id);
}

TEST_F(JobLogTest, WhatIsDeclaredIsKeptOnceAndOnlyWhereItDiffers) {
  brisq_panel::RunRequest("test", [](Request&) {
    JobLog::Declare(
        {"access", "/x", {{"mode", "0644"}, {"uid", "0"}}, {{"mode", "0600"}, {"uid", "0"}}});
    JobLog::Declare({"access", "/x", {{"mode", "0600"}}, {{"mode", "0400"}}});
    JobLog::Declare({"access", "/same", {{"mode", "0600"}}, {{"mode", "0600"}}});
    JobLog::Declare({"line", "a@b", {{"hash", "{X}canary"}, {"former hash", "{X}canary"}}, {}});
  });
  const auto changes = Last();
  ASSERT_EQ(2u, changes.size());
  EXPECT_THAT(changes[0].before, UnorderedElementsAre(Pair("mode", "0644")));
  EXPECT_THAT(changes[0].after, UnorderedElementsAre(Pair("mode", "0600")));
  EXPECT_THAT(changes[1].before,
              UnorderedElementsAre(Pair("hash", "(hidden)"), Pair("former hash", "(hidden)")));
  EXPECT_THAT(DatabaseBytes(), Not(HasSubstr("canary")));
}

TEST_F(JobLogTest, AFailedRequestIsNoJob) {
  Use(true);
  const std::size_t jobs = job_table::Latest(0).size();
  calls_.failing = "passwords.Create";
  EXPECT_EQ("email", panel_test::ErrorOf([&] { Add("alice"); }).type());
  EXPECT_EQ(jobs, job_table::Latest(0).size());
}

TEST_F(JobLogTest, OldJobsAreForgottenAfterTheDaysThatAreSet) {
  Use(true);
  job_table::Add({0, "old", "mailbox add", "x", "2001-01-01T00:00:00Z", "done", "", "", 0});
  mgr_cf::SetParam("JobHistoryDays", "0");
  Add("alice");
  EXPECT_TRUE(job_table::OfEntry("old")) << "0 keeps them for ever";
  mgr_cf::SetParam("JobHistoryDays", "7");
  Add("carol");
  EXPECT_FALSE(job_table::OfEntry("old"));
  EXPECT_EQ("carol@example.org", Last().at(0).name);
}

// A count of hours that ran over would put the time in the future, and all jobs lie before that.
TEST_F(JobLogTest, MoreDaysThanATimeCanHoldForgetNothing) {
  Use(true);
  job_table::Add({0, "old", "mailbox add", "x", "2001-01-01T00:00:00Z", "done", "", "", 0});
  for (const char* days : {"150000", "2147483647", "99999999999999999999"}) {
    SCOPED_TRACE(days);
    mgr_cf::SetParam("JobHistoryDays", days);
    Add("days" + std::string(days));
    EXPECT_TRUE(job_table::OfEntry("old"));
  }
}

TEST_F(JobLogTest, WithoutALogNothingIsWatched) {
  const std::size_t jobs = job_table::Latest(0).size();
  JobLog::Watch("mailbox", "no address at all");
  JobLog::Declare({"access", "/x", {}, {{"mode", "0600"}}});
  JobLog::Undoes(3);
  EXPECT_EQ(jobs, job_table::Latest(0).size());
}

TEST_F(JobLogTest, TextsBearEveryValue) {
  const std::vector<ObjectChange> changes = {
      {"mailbox", "a@b", {{"kept password", "p =%\n"}, {"home", "/h ome"}}, {{"home", ""}}},
      {"domain", "b", {}, {{"owner", "o"}}}};
  const auto same = brisq_panel::FromText(brisq_panel::ToText(changes, Secrets::kKept));
  ASSERT_EQ(2u, same.size());
  for (std::size_t i = 0; i < 2; ++i) {
    EXPECT_EQ(changes[i].kind, same[i].kind);
    EXPECT_EQ(changes[i].name, same[i].name);
    EXPECT_EQ(changes[i].before, same[i].before);
    EXPECT_EQ(changes[i].after, same[i].after);
  }
  EXPECT_THAT(brisq_panel::FromText(""), IsEmpty());
}

}  // namespace
