#include "framework/rehearsal.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>

#include "brisq_api.h"
#include "framework/conf_defer.h"
#include "framework/database.h"
#include "framework/due.h"
#include "framework/reload_queue.h"
#include "framework/request.h"
#include "mgr_file.h"
#include "mgr_job.h"
#include "safe_file.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_job.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::AddUser;
using conf_fixture::ConfTest;
using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Names;
using conf_fixture::SetPassword;
using conf_fixture::UsersConfig;
using support::Events;
using support::RecordingJob;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// The same file by another configuration, as the panel and a plug-in have it.
class OtherConfig : public MgrCachedConfig<OtherConfig> {
 public:
  OtherConfig() {
    RegisterSyntax(UnixConfParams());
    RegisterDataSet<conf_fixture::Users>();
  }
};

class RehearsalTest : public ConfTest {
 protected:
  RehearsalTest() {
    mgr_db::OpenDatabase(folder_ / "panel.db");
    mgr_db::ThreadConnection()->Change("CREATE TABLE t (x TEXT)");
  }
  ~RehearsalTest() override { mgr_db::CloseDatabase(); }

  static void Insert(const std::string& text) {
    mgr_db::ThreadConnection()->Change("INSERT INTO t VALUES (:v1)", {text});
  }
  static std::vector<std::string> Rows() {
    std::vector<std::string> rows;
    for (const auto& row : mgr_db::ThreadConnection()->Query("SELECT x FROM t", {}, 1)) {
      rows.push_back(row.front());
    }
    return rows;
  }
};

TEST_F(RehearsalTest, ThereIsOneAtATimeOnAThreadAndNoneInARequest) {
  EXPECT_EQ(nullptr, Rehearsal::Current());
  {
    const Rehearsal rehearsal;
    EXPECT_EQ(&rehearsal, Rehearsal::Current());
    std::thread([] { EXPECT_EQ(nullptr, Rehearsal::Current()); }).join();
    EXPECT_THAT(ErrorOf([] { const Rehearsal second; }), HasSubstr("internal"));
  }
  EXPECT_EQ(nullptr, Rehearsal::Current());
  const Request request("test");
  EXPECT_THAT(ErrorOf([] { const Rehearsal inside; }), HasSubstr("internal"));
}

TEST_F(RehearsalTest, AFileIsChangedForTheThreadAloneAndForAllWhoOpenIt) {
  Write(Line("old") + "\n");
  const std::string before = Content();
  struct stat then {};
  ::stat(path_.c_str(), &then);
  {
    const Rehearsal rehearsal;
    AddUser(Open(), "new");
    SetPassword(Open(), "new", "hash");
    EXPECT_THAT(Names(Open()), ElementsAre("old", "new"));
    const auto other = OtherConfig::Get<conf_fixture::Users>(path_, true);
    ASSERT_TRUE(other->Find("new")) << "opened by another configuration";
    EXPECT_EQ("hash", other->passwd.Str());
    std::thread([&] { EXPECT_THAT(Names(Open()), ElementsAre("old")); }).join();
    EXPECT_THAT(rehearsal.effects(),
                ElementsAre("line of new added in " + path_, "line of new changed in " + path_));
  }
  struct stat now {};
  ::stat(path_.c_str(), &now);
  EXPECT_EQ(before, Content());
  EXPECT_EQ(then.st_ino, now.st_ino);
  EXPECT_EQ(then.st_mtim.tv_nsec, now.st_mtim.tv_nsec);
  EXPECT_THAT(Names(Open()), ElementsAre("old"));
  EXPECT_FALSE(std::filesystem::exists(folder_ / ".users.brisq-lock"));
  EXPECT_THAT(UsersConfig::TakeReasons(), IsEmpty());
}

// Another thread's save takes along whatever waits in the file that it shares.
TEST_F(RehearsalTest, AnotherThreadsSaveTakesNothingAlong) {
  Write(Line("old") + "\n");
  {
    const Rehearsal rehearsal;
    const DeferSaves defer;
    AddUser(Open(), "rehearsed");
    std::thread([&] { AddUser(Open(), "real"); }).join();
  }
  EXPECT_EQ(Line("old") + "\n" + Line("real", "") + "\n", Content());
  UsersConfig::TakeReasons();
}

TEST_F(RehearsalTest, AMissingFileIsNotMade) {
  std::filesystem::remove(path_);
  {
    const Rehearsal rehearsal;
    AddUser(Open(), "new");
    EXPECT_THAT(Names(Open()), ElementsAre("new"));
  }
  EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(RehearsalTest, WhatASaveWouldRefuseIsRefused) {
  Write(Line("old") + "\n");
  ::chmod(folder_.path().c_str(), 0777);
  {
    const Rehearsal rehearsal;
    EXPECT_THAT(ErrorOf([&] { AddUser(Open(), "new"); }), HasSubstr("file"));
    EXPECT_THAT(Names(Open()), ElementsAre("old"));
  }
  ::chmod(folder_.path().c_str(), 0700);
}

TEST_F(RehearsalTest, RowsAreReadAndThenGone) {
  Insert("before");
  {
    const Rehearsal rehearsal;
    Insert("alone");
    Request request("test");
    Insert("in a request");
    request.Commit();
    EXPECT_THAT(Rows(), ElementsAre("before", "alone", "in a request"));
    std::thread([] { EXPECT_THAT(Rows(), ElementsAre("before")); }).join();
  }
  EXPECT_THAT(Rows(), ElementsAre("before"));
  Insert("after");
  EXPECT_THAT(Rows(), ElementsAre("before", "after"));
}

TEST_F(RehearsalTest, ARequestThatFailsTakesBackItsOwnPartOnly) {
  Write(Line("old") + "\n");
  const Rehearsal rehearsal;
  for (const bool commits : {true, false, true, false}) {
    Request request("test");
    Insert(commits ? "kept" : "lost");
    AddUser(Open(), commits ? "kept" + std::to_string(Rows().size()) : "lost");
    if (commits) request.Commit();
  }
  EXPECT_THAT(Rows(), ElementsAre("kept", "kept"));
  EXPECT_THAT(Names(Open()), ElementsAre("old", "kept1", "kept2"));
}

TEST_F(RehearsalTest, GroupedChangesAreTakenBackToo) {
  mgr_db::GroupedChanges group;
  Insert("before");
  {
    const Rehearsal rehearsal;
    Insert("rehearsed");
    group.Commit();
  }
  group.Commit();
  EXPECT_THAT(Rows(), ElementsAre("before"));
}

// A job that offers no check of its own.
TEST_F(RehearsalTest, JobsAreAskedAndNotDone) {
  Events events;
  const Rehearsal rehearsal;
  Request request("test");
  new RecordingJob(events, "a");
  request.AfterCommit("call", [&events] { events.push_back("call"); });
  brisq_api::ExecuteLater("touch /nowhere");
  request.Commit();
  EXPECT_THAT(events, ElementsAre("delete a"));
  EXPECT_THAT(rehearsal.effects(), ElementsAre("support::RecordingJob", "after the commit: call",
                                               "command touch /nowhere run"));
  EXPECT_EQ(0u, due::QueuedCommands());
}

struct JobCase {
  const char* name;
  std::function<void(const std::string& folder)> construct;
  const char* effect;  // what a run tells, or a part of its error; FOLDER stands for the folder
};

class TreeOwner : public mgr_file::safe::Owner {
 public:
  explicit TreeOwner(std::string home) : home_(std::move(home)) {}
  uid_t OwnerUid() const override { return ::geteuid(); }
  gid_t OwnerGid() const override { return ::getegid(); }
  std::string OwnerHome() const override { return home_; }

 private:
  std::string home_;
};

const mgr_file::Attrs kAttrs(0700, ::geteuid(), ::getegid());

void MakeIn(const std::string& home, const std::string& path, const std::string& name) {
  const auto folder =
      safe_file::JobCreateOddDirAbs(std::make_shared<TreeOwner>(home), path, kAttrs);
  new mgr_job::safe::CreateDir(folder, name, kAttrs);
}

std::string Outcome(const JobCase& test, const std::string& folder) {
  const Rehearsal rehearsal;
  std::string outcome = ErrorOf([&] {
    Request request("test");
    test.construct(folder);
    request.Commit();
  });
  for (const std::string& effect : rehearsal.effects()) outcome += "; " + effect;
  return outcome;
}

std::string WithFolder(std::string text, const std::string& folder) {
  for (std::size_t at = 0; (at = text.find("FOLDER")) != std::string::npos;) {
    text.replace(at, 6, folder);
  }
  return text;
}

std::vector<std::string> Tree(const std::string& folder) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  return paths;
}

const JobCase kJobs[] = {
    {"a file", [](auto& d) { new mgr_job::CreateFile(d + "/f", "x", kAttrs); },
     "file FOLDER/f written"},
    {"a file in a folder that is missing",
     [](auto& d) { new mgr_job::CreateFile(d + "/no/f", "x", kAttrs); }, "FOLDER/no/f"},
    {"a file in a folder that would be made",
     [](auto& d) {
       mgr_file::MkDir(d + "/no", kAttrs);
       new mgr_job::CreateFile(d + "/no/f", "x", kAttrs);
     },
     "directory FOLDER/no made; file FOLDER/no/f written"},
    {"a file where a folder stands",
     [](auto& d) { new mgr_job::CreateFile(d + "/there", "x", kAttrs); }, "FOLDER/there"},
    {"a folder in a folder that is missing", [](auto& d) { mgr_file::MkDir(d + "/a/b", kAttrs); },
     "mkdir"},
    {"a folder that is there", [](auto& d) { mgr_file::MkDir(d + "/there", kAttrs); }, "mkdir"},
    {"a user's folders", [](auto& d) { MakeIn(d, d + "/a/b", "c"); },
     "directory FOLDER/a/b made; directory FOLDER/a/b/c made"},
    {"a user's folder that is there", [](auto& d) { MakeIn(d, d + "/there", "c"); },
     "directory FOLDER/there/c made"},
    {"a user's folder behind a link", [](auto& d) { MakeIn(d, d + "/link/b", "c"); },
     "FOLDER/link: not safe: is a symbolic link"},
    {"a user's folder whose name is taken", [](auto& d) { MakeIn(d, d + "/there", "file"); },
     "FOLDER/there/file: exists already as a regular file"},
    {"a file that is removed at once", [](auto& d) { mgr_file::RemoveFile(d + "/there/file"); },
     "file FOLDER/there/file removed"},
    {"an action for after the commit",
     [](auto&) { new mgr_job::CallOnCommit("some.action", "hard=on"); },
     "action some.action with hard=on called"},
};

TEST_F(RehearsalTest, EachKindOfJobTellsWhatItWouldDoOrRefuse) {
  const std::string folder = folder_.MakeFolder("tree");
  folder_.Write("tree/there/file", "content");
  std::filesystem::create_symlink("there", folder + "/link");
  const auto before = Tree(folder);
  for (const JobCase& test : kJobs) {
    SCOPED_TRACE(test.name);
    EXPECT_THAT(Outcome(test, folder), HasSubstr(WithFolder(test.effect, folder)));
    EXPECT_EQ(before, Tree(folder));
  }
}

TEST_F(RehearsalTest, AReloadIsOnlyNoted) {
  reloader::Queue queue;
  queue.Enter({"group", "action", "", "false", "false"});
  const Rehearsal rehearsal;
  queue.Ask("group", "action", false);
  queue.Ask("group", "action", true);
  EXPECT_THAT(queue.RunDue(), IsEmpty());
  EXPECT_EQ(0u, queue.Status().front().requests);
  EXPECT_THAT(rehearsal.effects(),
              ElementsAre("reload of the mail server", "restart of the mail server"));
}

TEST_F(RehearsalTest, TheEndsCallsAreMadeInReverseAndTheirErrorsAreLogged) {
  support::LogCapture log;
  Events events;
  {
    Rehearsal rehearsal;
    rehearsal.OnEnd([&] { events.push_back("first"); });
    rehearsal.OnEnd([] { throw mgr_err::Error("db", "database", "gone"); });
    rehearsal.OnEnd([&] { events.push_back("last"); });
  }
  EXPECT_THAT(events, ElementsAre("last", "first"));
  log.ExpectError("gone");
}

}  // namespace
