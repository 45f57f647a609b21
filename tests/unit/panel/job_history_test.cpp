#include "panel/job_history.h"

#include "framework/config_file.h"
#include "framework/job_table.h"
#include "mgr_cf.h"
#include "panel/domain_changes.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/object_state.h"
#include "panel/tls.h"
#include "tests/unit/panel/certificate_files.h"
#include "tests/unit/panel/passwd_file_backend.h"

namespace {

using brisq_panel::ListJobs;
using brisq_panel::StateOf;
using brisq_panel::UndoJob;
using panel_test::TextOf;
using testing::HasSubstr;

// Both places in which passwords may be kept.
class JobHistoryTest : public panel_test::FilePanelTest, public testing::WithParamInterface<bool> {
 protected:
  JobHistoryTest() {
    Use(GetParam());
    Add("alice");
    Add("carol");
  }
  static int LastJob() { return ListJobs(1).at(0).id; }
  // Everything that the panel knows of its objects, and the lines in any order.
  std::string Everything() const {
    std::string all;
    for (const auto& [kind, name] : {std::pair{"mailbox", "alice@example.org"},
                                     {"mailbox", "carol@example.org"},
                                     {"domain", "example.org"}}) {
      all += std::string(kind) + " " + name;
      for (const auto& [value, text] : StateOf(kind, name)) {
        all += " " + value + "=" + text;
      }
      all += "\n" + LineOf(name) + "\n";
    }
    return all;
  }

  const std::string kAlice = "alice@example.org";
  const std::string kCarol = "carol@example.org";
};

TEST_P(JobHistoryTest, EachKindOfJobIsTakenBackAndDoneAgain) {
  const auto files = panel_test::MakeCertificate(dir_, "cert", "DNS:example.org");
  mgr_cf::SetPath("dovecot-ssl-certs", dir_ / "certs");
  mgr_cf::SetPath("dovecot-certconf", dir_ / "snippets");
  const std::vector<std::pair<const char*, std::function<void()>>> changes = {
      {"set",
       [&] {
         brisq_panel::SetMailboxes({kAlice, kCarol}, {.quota = "7"});
       }},
      {"off",
       [&] {
         brisq_panel::SetMailboxes({kAlice, kCarol}, {.active = false});
       }},
      {"home", [&] { brisq_panel::SetMailboxes({kAlice}, {.home = Home() + "/else"}); }},
      {"passwd", [&] { brisq_panel::SetPassword(kAlice, "another"); }},
      {"delete",
       [&] {
         brisq_panel::DeleteMailboxes({kAlice, kCarol});
       }},
      {"domain off", [&] { brisq_panel::SetDomain("example.org", {.active = false}); }},
      {"tls set",
       [&] { brisq_panel::SetCertificate("example.org", files.cert, files.key, false); }},
      {"tls unset", [&] { brisq_panel::UnsetCertificate("example.org"); }},
      {"domain delete", [&] { brisq_panel::DeleteDomain("example.org"); }},
  };
  for (const auto& [name, change] : changes) {
    SCOPED_TRACE(name);
    const std::string before = Everything();
    change();
    const int job = LastJob();
    const std::string after = Everything();
    ASSERT_NE(before, after);
    UndoJob(job);
    EXPECT_EQ(before, Everything());
    const int undo = LastJob();
    EXPECT_EQ("undone by job " + std::to_string(undo), brisq_panel::ShowJob(job).state);
    UndoJob(undo);
    EXPECT_EQ(after, Everything());
    EXPECT_EQ("done", brisq_panel::ShowJob(job).state) << "done again";
    if (std::string(name) != "tls set") {
      UndoJob(LastJob());
      EXPECT_EQ(before, Everything());
    }
  }
}

TEST_P(JobHistoryTest, AnAddedMailboxIsDeleted) {
  UndoJob(LastJob());
  EXPECT_EQ("none", LineOf(kCarol));
  EXPECT_EQ("missed", panel_test::ErrorOf([&] { brisq_panel::ShowMailbox(kCarol); }).type());
}

TEST_P(JobHistoryTest, SomethingNewerStandsInTheWay) {
  brisq_panel::SetMailboxes({kAlice}, {.quota = "7"});
  const int set = LastJob();
  brisq_panel::SetMailboxes({kAlice}, {.quota = "8"});
  const std::string before = Everything();
  EXPECT_EQ("limit: job " + std::to_string(set) +
                ": mailbox alice@example.org: its quota was changed since",
            TextOf([&] { UndoJob(set); }));
  EXPECT_EQ(before, Everything());
  brisq_panel::DeleteMailboxes({kAlice});
  const int removal = LastJob();
  EXPECT_THAT(TextOf([&] { UndoJob(set); }), HasSubstr("is gone since"));
  Add("alice");
  EXPECT_THAT(TextOf([&] { UndoJob(removal); }), HasSubstr("exists again"));
}

TEST_P(JobHistoryTest, WhatAJobHasNotTouchedMayHaveChanged) {
  brisq_panel::SetMailboxes({kAlice}, {.quota = "7"});
  const int set = LastJob();
  brisq_panel::SetPassword(kAlice, "another");
  UndoJob(set);
  EXPECT_EQ("", StateOf("mailbox", kAlice).at("quota"));
  EXPECT_THAT(LineOf(kAlice), HasSubstr("{CLEAR}another"));
}

TEST_P(JobHistoryTest, IsAllOrNothing) {
  brisq_panel::DeleteMailboxes({kAlice, kCarol});
  const int job = LastJob();
  const std::string before = Everything();
  calls_.failing = "mail.Create";
  EXPECT_EQ("email", panel_test::ErrorOf([&] { UndoJob(job); }).type());
  EXPECT_EQ(before, Everything());
  EXPECT_EQ("done", brisq_panel::ShowJob(job).state);
}

TEST_P(JobHistoryTest, WhatCantBeUndoneIsSaid) {
  EXPECT_EQ("missed: job: 4711", TextOf([] { UndoJob(4711); }));
  EXPECT_EQ("missed: job: 4711", TextOf([] { brisq_panel::ShowJob(4711); }));
  const auto first = ListJobs(0).back();
  EXPECT_EQ("owner add", first.name);
  EXPECT_THAT(TextOf([&] { UndoJob(first.id); }), HasSubstr("owners are not removed"));
  const int empty = job_table::Add({0, "e", "sync", "x", "2999", "done", "", "", 0});
  EXPECT_THAT(TextOf([&] { UndoJob(empty); }), HasSubstr("holds nothing that can be undone"));
  const int dead = job_table::Add({0, "d", "mailbox add", "x", "2999", "undone", "", "", 0});
  EXPECT_THAT(TextOf([&] { UndoJob(dead); }), HasSubstr("is undone already"));
}

TEST_P(JobHistoryTest, ListsTheLatestFirst) {
  EXPECT_EQ(4u, ListJobs(0).size());
  const auto jobs = ListJobs(2);
  ASSERT_EQ(2u, jobs.size());
  EXPECT_GT(jobs[0].id, jobs[1].id);
  EXPECT_EQ("mailbox add", jobs[0].name);
  EXPECT_FALSE(jobs[0].who.empty());
  EXPECT_EQ(kCarol, jobs[0].changes.at(0).name);
}

INSTANTIATE_TEST_SUITE_P(Backends, JobHistoryTest, testing::Bool());

}  // namespace
