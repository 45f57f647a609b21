#include "framework/later_jobs.h"

#include <gtest/gtest.h>

#include "framework/database.h"
#include "framework/job_table.h"
#include "tests/support/temp_dir.h"

namespace {

using journal::Step;

class LaterJobsTest : public testing::Test {
 protected:
  LaterJobsTest() { mgr_db::OpenDatabase(dir_ / "panel.db"); }
  ~LaterJobsTest() override { mgr_db::CloseDatabase(); }

  static int Add(const std::string& entry, const std::string& state, const std::string& changes) {
    return job_table::Add({0, entry, "command", "alice", "then", state, changes, "", 0});
  }
  static std::string Mailbox(const std::string& name, const std::string& home) {
    return journal::Text({"mailbox", {{"name", name}, {"after.home", home}}}) + "\n";
  }

  support::TempDir dir_;
};

TEST_F(LaterJobsTest, AStepIsTouchedByItsLineItsNameOrItsPath) {
  Add("e1", job_table::kDone, Mailbox("early@example.org", "/home/early"));
  const int killed = Add("e2", job_table::kUndone, Mailbox("killed@example.org", "/home/killed"));
  Add("e3", job_table::kUndone, Mailbox("undone@example.org", "/home/undone"));
  Add("e4", job_table::kDone, "");
  const int later = Add("e5", job_table::kDone,
                        Mailbox("u@example.org", "/home/mail box") +
                            journal::Text({"domain", {{"name", "example.net"}}}) + "\n");
  struct Case {
    const char* name;
    Step step;
    bool touched;
  };
  const std::vector<Case> cases = {
      {"line of the same name", {"line", {{"name", "u@example.org"}}}, true},
      {"line of a longer name", {"line", {{"name", "mu@example.org"}}}, false},
      {"line of an earlier job", {"line", {{"name", "early@example.org"}}}, false},
      {"line of an undone job", {"line", {{"name", "undone@example.org"}}}, false},
      {"file named by an object", {"swap", {{"path", "/etc/certs/example.net.crt"}}}, true},
      {"file of another object", {"swap", {{"path", "/etc/certs/example.com.crt"}}}, false},
      {"an object's home", {"dir", {{"path", "/home/mail box"}}}, true},
      {"below an object's home", {"dir", {{"path", "/home/mail box/.maildir/new"}}}, true},
      {"above an object's home", {"dir", {{"path", "/home"}}}, false},
      {"beside an object's home", {"dir", {{"path", "/home/mail box 2"}}}, false},
  };
  const LaterJobs jobs(killed);
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    EXPECT_EQ(one.touched ? later : 0, jobs.Touching(one.step));
  }
}

TEST_F(LaterJobsTest, WithoutALaterJobNothingIsTouched) {
  const int killed = Add("e1", job_table::kUndone, Mailbox("u@example.org", "/home/u"));
  EXPECT_EQ(0, LaterJobs(killed).Touching({"line", {{"name", "u@example.org"}}}));
}

}  // namespace
