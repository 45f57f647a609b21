#include "panel/job_history.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/job_table.h"
#include "mgr_cf.h"
#include "panel/domain_changes.h"
#include "panel/mailbox_changes.h"
#include "panel/mailbox_removal.h"
#include "panel/mend_jobs.h"
#include "panel/object_state.h"
#include "panel/run_request.h"
#include "panel/sync.h"
#include "panel/tls.h"
#include "str.h"
#include "tests/support/sys_fault.h"
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

TEST_P(JobHistoryTest, AnOlderDeletionBringsItsOwnMailboxBack) {
  brisq_panel::SetMailboxes({kAlice}, {.quota = "100"});
  const std::string before = Everything();
  brisq_panel::DeleteMailboxes({kAlice});
  const int first = LastJob();
  Add("alice");
  brisq_panel::SetMailboxes({kAlice}, {.quota = "5"});
  brisq_panel::SetPassword(kAlice, "another");
  brisq_panel::DeleteMailboxes({kAlice});
  UndoJob(first);
  EXPECT_EQ(before, Everything());
}

// Its row may have gone with a "mailbox restore" and a second deletion.
TEST_P(JobHistoryTest, ADeletionWhoseMailboxIsNotArchivedIsRefused) {
  brisq_panel::DeleteMailboxes({kAlice});
  const int first = LastJob();
  brisq_panel::RestoreMailboxes({kAlice});
  brisq_panel::SetMailboxes({kAlice}, {.quota = "5"});
  brisq_panel::DeleteMailboxes({kAlice});
  const std::string before = Everything();
  EXPECT_EQ("missed: archived mailbox: alice@example.org", TextOf([&] { UndoJob(first); }));
  EXPECT_EQ(before, Everything());
}

TEST_P(JobHistoryTest, OneOfSeveralThatWereSwitchedOffIsNotGuessed) {
  brisq_panel::SetMailboxes({kAlice}, {.active = false});
  brisq_panel::DeleteMailboxes({kAlice});
  const int first = LastJob();
  mgr_db::ThreadConnection()->Change(
      "INSERT INTO mailbox_archive (name, domain, owner, password, hash, home, quota, used, active,"
      " reason, archived) SELECT name, domain, owner, password, '', home, quota, used, active,"
      " reason, archived FROM mailbox_archive");
  EXPECT_EQ(
      "limit: archived mailbox: alice@example.org was deleted several times, with other passwords",
      TextOf([&] { UndoJob(first); }));
}

TEST_P(JobHistoryTest, ASyncIsTakenBackLineByLine) {
  brisq_panel::Sync(false);  // the stand-in makes no Maildirs
  brisq_panel::SetMailboxes({kCarol}, {.active = false});
  Add("dave");
  brisq_panel::Sync(false);
  const std::string dave = LineOf("dave@example.org");
  RemoveLine(kAlice);
  dir_.Write("passwd", Lines() + kCarol + ":{CLEAR}by hand::::/x:::\n");
  std::string changed = Lines();
  changed.replace(changed.find(dave), dave.size(), "dave@example.org:{CLEAR}d:1:2:i:/else:s:f:m:n");
  dir_.Write("passwd", changed);
  const std::string archived = Column("SELECT COUNT(*) FROM mailbox_archive");
  const auto sorted = [this] {
    std::string text = Lines();
    std::vector<std::string> lines;
    while (!text.empty()) lines.push_back(str::GetWord(text, '\n'));
    std::sort(lines.begin(), lines.end());
    return lines;
  };
  const auto before = sorted();

  brisq_panel::Sync(true);
  const auto after = sorted();
  const auto job = brisq_panel::ShowJob(LastJob());
  EXPECT_EQ("sync", job.name);
  std::map<std::string, const brisq_panel::ObjectChange*> lines;
  for (const auto& change : job.changes) {
    if (change.kind == "line") lines[change.name] = &change;
  }
  ASSERT_EQ(3u, lines.size());
  EXPECT_TRUE(lines[kAlice]->Made());
  EXPECT_EQ("(hidden)", lines[kAlice]->after.at("hash"));
  EXPECT_TRUE(lines[kCarol]->Removed());
  EXPECT_EQ("/else", lines["dave@example.org"]->before.at("home"));
  EXPECT_EQ(0u, lines["dave@example.org"]->after.count("hash")) << "it was kept";

  UndoJob(job.id);
  EXPECT_EQ(before, sorted());
  EXPECT_EQ(archived, Column("SELECT COUNT(*) FROM mailbox_archive"));
  if (!GetParam()) {
    brisq_panel::SetMailboxes({kCarol}, {.active = true});
    return;
  }
  UndoJob(LastJob());
  EXPECT_EQ(after, sorted()) << "done again";
}

TEST_P(JobHistoryTest, ANewPasswordOfASyncIsTakenBackWhereverItIsKept) {
  brisq_panel::Sync(false);
  mgr_db::ThreadConnection()->Change("UPDATE mailboxes SET password = ''");
  RemoveLine(kAlice);
  const std::string before = Everything();
  ASSERT_EQ(1u, brisq_panel::Sync(true).passwords.size());
  ASSERT_NE(before, Everything());
  UndoJob(LastJob());
  EXPECT_EQ(before, Everything());
}

TEST_P(JobHistoryTest, SomethingNewerStandsInTheWayOfTakingASyncBack) {
  brisq_panel::Sync(false);
  RemoveLine(kAlice);
  brisq_panel::Sync(false);
  const int made = LastJob();
  brisq_panel::SetMailboxes({kAlice}, {.quota = "8"});
  EXPECT_THAT(TextOf([&] { UndoJob(made); }), HasSubstr("was changed since"));
  RemoveLine(kAlice);
  EXPECT_THAT(TextOf([&] { UndoJob(made); }), HasSubstr("line alice@example.org is gone since"));

  brisq_panel::SetMailboxes({kCarol}, {.active = false});
  dir_.Write("passwd", Lines() + kCarol + ":{CLEAR}by hand::::/x:::\n");
  brisq_panel::Sync(false);
  const int removed = LastJob();
  brisq_panel::DeleteMailboxes({kCarol});
  EXPECT_THAT(TextOf([&] { UndoJob(removed); }), HasSubstr("mailbox carol@example.org is gone"));
  EXPECT_EQ("none", LineOf(kCarol));
}

TEST_P(JobHistoryTest, DirectoriesStayAndAreSaid) {
  const std::string maildir = Home() + "/mail/example.org/alice/.maildir";
  RemoveLine(kAlice);
  std::filesystem::remove_all(maildir);
  brisq_panel::Sync(false);
  EXPECT_THAT(UndoJob(LastJob()),
              testing::Contains("directory " + maildir + " stays: it may hold something by now"));
  EXPECT_EQ("none", LineOf(kAlice));
  RemoveLine(kCarol);
  brisq_panel::Sync(false);
  std::filesystem::remove_all(maildir);
  brisq_panel::Sync(false);
  EXPECT_THAT(TextOf([] { UndoJob(LastJob()); }), HasSubstr("made directories alone"));
}

TEST_P(JobHistoryTest, AMendedModeIsTakenBackOnTheWayThatIsSafe) {
  const auto mode = [](const std::string& path) { return StateOf("access", path).at("mode"); };
  const std::string file = dir_.Write("file", "");
  ASSERT_EQ(0, ::chmod(file.c_str(), 0644));
  const auto mend = [&] {
    brisq_panel::RunRequest("check --fix",
                            [&](Request&) { new brisq_panel::SetAccess(file, 0600, 5, 6); });
  };
  mend();
  UndoJob(LastJob());
  EXPECT_EQ("0644", mode(file));
  EXPECT_EQ("0", StateOf("access", file).at("uid"));
  UndoJob(LastJob());
  EXPECT_EQ("0600", mode(file)) << "done again";
  const int again = LastJob();
  ASSERT_EQ(0, ::chmod(file.c_str(), 0640));
  EXPECT_THAT(TextOf([&] { UndoJob(again); }), HasSubstr("its mode was changed since"));

  const std::string folder = dir_.MakeFolder("home/bob/mail");
  ASSERT_EQ(0, ::chown(folder.c_str(), 1001, 1001));
  ASSERT_EQ(0, ::chmod(folder.c_str(), 0755));
  brisq_panel::RunRequest("check --fix", [&](Request&) {
    new brisq_panel::SetAccess(mgr_file::safe::Folder(Home(), folder, 1001, 1001), 0700);
  });
  std::filesystem::rename(folder, dir_ / "home/bob/moved");
  std::filesystem::create_symlink("moved", folder);
  EXPECT_NE("none", TextOf([] { UndoJob(LastJob()); }));
  EXPECT_EQ("0700", mode(dir_ / "home/bob/moved"));
  std::filesystem::remove(folder);
  std::filesystem::rename(dir_ / "home/bob/moved", folder);
  UndoJob(LastJob());
  EXPECT_EQ("0755", mode(folder));
}

// Of n lines that come back none costs a save of its own.
TEST_P(JobHistoryTest, ManyLinesAreTakenBackByFewSaves) {
  std::vector<std::string> all;
  for (int i = 0; i < 20; ++i) {
    Add("m" + std::to_string(i));
    all.push_back("m" + std::to_string(i) + "@example.org");
  }
  brisq_panel::DeleteMailboxes(all);
  std::size_t saves = 0;
  {
    support::SysFault watch;
    watch.OnCall([&](std::string_view call, std::size_t) { saves += call == "rename" ? 1u : 0u; });
    UndoJob(LastJob());
  }
  EXPECT_LE(saves, 2u);
  EXPECT_THAT(LineOf("m19@example.org"), HasSubstr("{CLEAR}secret"));
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
