#include "mgr_job.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <stdexcept>

#include "brisq_api.h"
#include "framework/journal.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_job.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using mgr_file::Attrs;
using mgr_file::safe::Folder;
using support::Events;
using support::RecordingJob;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "nothing was thrown";
}

class MgrJobTest : public testing::Test {
 protected:
  // Fails at the commit, behind all jobs made before.
  void FailCommit(Request& request) {
    new RecordingJob(events, "last", {.in_do = true});
    EXPECT_EQ("file: last: do refused", ErrorOf([&] { request.Commit(); }));
  }
  std::size_t EntryCount() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory.path()), {}));
  }

  support::TempDir directory;
  support::LogCapture log;
  Events events;
  const std::string path = directory / "example.org.conf";
  const Attrs attrs{0600, ::geteuid(), ::getegid()};
};

TEST_F(MgrJobTest, JobsOutsideOfARequestAreRefused) {
  const std::string refusal = "internal: job: made outside of a request";
  EXPECT_EQ(refusal, ErrorOf([&] { new RecordingJob(events, "a"); }));
  EXPECT_EQ(refusal, ErrorOf([&] { new mgr_job::CreateFile(path, "new", attrs); }));
  EXPECT_EQ(refusal, ErrorOf([] { new mgr_job::CallOnCommit("dovecot.reload", ""); }));
  EXPECT_EQ(refusal,
            ErrorOf([&] { new mgr_job::safe::CreateDir(Folder("/", "/", 0, 0), "cur", attrs); }));
  EXPECT_THAT(events, IsEmpty());
  EXPECT_EQ(0U, EntryCount());
}

class UnfinishedJob : public RecordingJob {
 public:
  explicit UnfinishedJob(Events& events) : RecordingJob(events, "unfinished") {
    throw std::runtime_error("no more");
  }
};

TEST_F(MgrJobTest, AJobWhoseConstructionFailsLeavesTheList) {
  Request request("test");
  new RecordingJob(events, "a");
  EXPECT_EQ("no more", ErrorOf([&] { new UnfinishedJob(events); }));
  new RecordingJob(events, "b");
  request.Commit();
  EXPECT_THAT(events, ElementsAre("delete unfinished", "do a", "do b", "forget a", "forget b",
                                  "delete b", "delete a"));
}

// A job that has made another one when its construction fails.
class UnfinishedMaker : public mgr_job::Job {
 public:
  explicit UnfinishedMaker(Events& events) {
    new RecordingJob(events, "made");
    throw std::runtime_error("no more");
  }
  void Do() override {}
  void Undo() override {}
};

TEST_F(MgrJobTest, AJobThatLeavesTheListLeavesThoseBehindItThere) {
  Request request("test");
  EXPECT_EQ("no more", ErrorOf([&] { new UnfinishedMaker(events); }));
  request.Commit();
  EXPECT_THAT(events, ElementsAre("do made", "forget made", "delete made"));
}

TEST_F(MgrJobTest, AFileIsThereAfterTheCommitAndNotBefore) {
  Request request("test");
  new mgr_job::CreateFile(path, "content\n", attrs);
  EXPECT_FALSE(fs::exists(path));
  request.Commit();
  EXPECT_EQ("content\n", directory.Read("example.org.conf"));
  EXPECT_EQ(1U, EntryCount());
}

TEST_F(MgrJobTest, AFileHasExactlyItsMode) {
  const mode_t old = ::umask(0777);
  Request request("test");
  new mgr_job::CreateFile(path, "content\n", Attrs(0642, ::geteuid(), ::getegid()));
  request.Commit();
  ::umask(old);
  struct stat state = {};
  ASSERT_EQ(0, ::stat(path.c_str(), &state));
  EXPECT_EQ(0642U, state.st_mode & 07777U);
}

TEST_F(MgrJobTest, AFileWhoseRequestFailsLeavesNothing) {
  struct Case {
    const char* name;
    bool commits;
  };
  for (const Case& c : {Case{"never committed", false}, Case{"failed at a later job", true}}) {
    SCOPED_TRACE(c.name);
    {
      Request request("test");
      new mgr_job::CreateFile(path, "content\n", attrs);
      if (c.commits) {
        FailCommit(request);
      }
    }
    EXPECT_EQ(0U, EntryCount());
  }
}

TEST_F(MgrJobTest, AnOldFileIsBackWhenTheRequestFails) {
  directory.Write("example.org.conf", "old");
  struct stat before = {};
  ASSERT_EQ(0, ::stat(path.c_str(), &before));
  Request request("test");
  new mgr_job::CreateFile(path, "new", attrs);
  FailCommit(request);
  struct stat after = {};
  ASSERT_EQ(0, ::stat(path.c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino);
  EXPECT_EQ("old", directory.Read("example.org.conf"));
  EXPECT_EQ(1U, EntryCount());
}

TEST_F(MgrJobTest, OfTwoFilesOfOnePathTheSecondWins) {
  for (const char* old : {"", "old"}) {
    SCOPED_TRACE(std::string("old file: ") + old);
    if (*old != '\0') {
      directory.Write("example.org.conf", old);
    }
    Request request("test");
    new mgr_job::CreateFile(path, "first", attrs);
    new mgr_job::CreateFile(path, "second", attrs);
    request.Commit();
    EXPECT_EQ("second", directory.Read("example.org.conf"));
    EXPECT_EQ(1U, EntryCount());
    fs::remove(path);
  }
}

TEST_F(MgrJobTest, TwoFilesOfOnePathGiveWayToTheOriginal) {
  for (const bool existed : {false, true}) {
    SCOPED_TRACE(existed ? "existed" : "did not exist");
    if (existed) {
      directory.Write("example.org.conf", "old");
    }
    Request request("test");
    new mgr_job::CreateFile(path, "first", attrs);
    new mgr_job::CreateFile(path, "second", attrs);
    FailCommit(request);
    EXPECT_EQ(existed ? 1U : 0U, EntryCount());
    if (existed) {
      EXPECT_EQ("old", directory.Read("example.org.conf"));
    }
  }
}

TEST_F(MgrJobTest, AFileThatCantBePreparedIsNoJob) {
  const std::string missing = directory / "none/example.org.conf";
  Request request("test");
  EXPECT_EQ("file: " + missing + ": open: No such file or directory",
            ErrorOf([&] { new mgr_job::CreateFile(missing, "new", attrs); }));
  request.Commit();
  EXPECT_EQ(0U, EntryCount());
}

// Somebody edits the new file before the request fails.
class EditingJob : public RecordingJob {
 public:
  EditingJob(Events& events, std::function<void()> edit)
      : RecordingJob(events, "edit", {.in_do = true}), edit_(std::move(edit)) {}
  void Do() override {
    edit_();
    RecordingJob::Do();
  }

 private:
  std::function<void()> edit_;
};

TEST_F(MgrJobTest, AnUndoDoesNotOverwriteAForeignEdit) {
  directory.Write("example.org.conf", "old");
  Request request("test");
  new mgr_job::CreateFile(path, "ours", attrs);
  new EditingJob(events, [this] { directory.Write("example.org.conf", "theirs"); });
  EXPECT_ANY_THROW(request.Commit());
  EXPECT_EQ("theirs", directory.Read("example.org.conf"));
  const std::string note =
      "undo of step 1 (mgr_job::CreateFile) failed: file: " + path + ": not undone: changed since";
  EXPECT_THAT(request.Notes(), ElementsAre(note));
  log.ExpectError(note);
}

class RecordingAction : public brisq_api::Action {
 public:
  explicit RecordingAction(Events& events)
      : Action("test.record", 0xE0000000, nullptr), events_(events) {}
  void Execute(brisq_api::Session& session) const override {
    EXPECT_EQ(nullptr, Request::Current());
    events_.push_back("call hard=" + session.Param("hard"));
    if (session.Param("fail") == "on") {
      throw mgr_err::Error("email", "reload", "refused");
    }
  }

 private:
  Events& events_;
};

TEST_F(MgrJobTest, EachCallIsMadeAfterTheCommit) {
  const RecordingAction action(events);
  Request request("test");
  new mgr_job::CallOnCommit("test.record", "hard=on");
  new RecordingJob(events, "file");
  new mgr_job::CallOnCommit("test.record", "hard=on");
  new mgr_job::CallOnCommit("test.record", "");
  request.Commit();
  EXPECT_THAT(events, ElementsAre("do file", "forget file", "delete file", "call hard=on",
                                  "call hard=on", "call hard="));
}

TEST_F(MgrJobTest, ACallIsNeverMadeWhenTheRequestFails) {
  const RecordingAction action(events);
  {
    Request request("test");
    new mgr_job::CallOnCommit("test.record", "");
  }
  {
    Request request("test");
    new mgr_job::CallOnCommit("test.record", "");
    FailCommit(request);
  }
  EXPECT_THAT(events, ElementsAre("do last", "delete last"));
}

TEST_F(MgrJobTest, ACallThatFailsLeavesTheRequestCommitted) {
  const RecordingAction action(events);
  Request request("tls set");
  new mgr_job::CreateFile(path, "content\n", attrs);
  new mgr_job::CallOnCommit("test.record", "fail=on");
  new mgr_job::CallOnCommit("none", "");
  new mgr_job::CallOnCommit("test.record", "hard=on");
  request.Commit();
  EXPECT_THAT(events, ElementsAre("call hard=", "call hard=on"));
  EXPECT_EQ("content\n", directory.Read("example.org.conf"));
  EXPECT_THAT(request.Notes(),
              ElementsAre("after the commit: action test.record failed: email: reload: refused",
                          "after the commit: action none failed: missed: action: none"));
  log.ExpectError("action test.record failed: email: reload: refused");
  log.ExpectError("action none failed: missed: action: none");
}

class OwedCallsTest : public MgrJobTest {
 protected:
  OwedCallsTest() { journal::SetFolder(directory / "journal"); }
  ~OwedCallsTest() override { journal::SetFolder(""); }
};

// As a kill in its place would leave it.
TEST_F(OwedCallsTest, ACallThatFailsStaysInTheJournalUnlessItCanNeverWork) {
  struct Case {
    const char* name;
    const char* action;
    const char* params;
    bool owed;
  };
  const RecordingAction action(events);
  for (const Case& c : {Case{"it is made", "test.record", "", false},
                        Case{"it fails", "test.record", "fail=on", true},
                        Case{"nobody offers it", "none", "", false}}) {
    SCOPED_TRACE(c.name);
    fs::remove_all(directory / "journal");
    Request request("tls set");
    new mgr_job::CreateFile(path, "content\n", attrs);
    new mgr_job::CallOnCommit(c.action, c.params);
    new mgr_job::CallOnCommit("test.record", "");
    request.Commit();
    EXPECT_EQ(c.owed, request.Owes());
    const auto left = journal::OpenEntries();
    ASSERT_EQ(c.owed ? 1u : 0u, left.size());
    if (c.owed) {
      EXPECT_FALSE(left[0].alive) << "a recovery of this process may take it";
      EXPECT_EQ(request.id(), left[0].id);
      EXPECT_THAT(left[0].steps, testing::Contains("action test.record called"));
      EXPECT_THAT(request.Notes(),
                  ElementsAre("after the commit: action test.record failed: email: reload: refused;"
                              " the change is stored, and this is still to be done: the next"
                              " command tries it"));
    }
  }
  EXPECT_EQ("call hard=", events.back()) << "the calls behind it are made all the same";
  log.ExpectError("action test.record failed: email: reload: refused");
  log.ExpectError("action none failed: missed: action: none");
}

TEST_F(OwedCallsTest, ARequestThatFailsOwesNothing) {
  const RecordingAction action(events);
  Request request("test");
  new mgr_job::CallOnCommit("test.record", "fail=on");
  FailCommit(request);
  EXPECT_FALSE(request.Owes());
  EXPECT_THAT(journal::OpenEntries(), IsEmpty());
}

class CreateDirTest : public MgrJobTest {
 protected:
  Folder Home() const { return {directory.path(), directory.path(), ::geteuid(), ::getegid()}; }
};

TEST_F(CreateDirTest, ADirectoryIsThereAfterTheCommitAndNotBefore) {
  Request request("test");
  for (const char* name : {"new", "cur", "tmp"}) {
    new mgr_job::safe::CreateDir(Home(), name, Attrs(0700, ::geteuid(), ::getegid()));
  }
  EXPECT_EQ(0U, EntryCount());
  request.Commit();
  for (const char* name : {"new", "cur", "tmp"}) {
    EXPECT_EQ(fs::perms::owner_all, fs::status(directory / name).permissions()) << name;
  }
}

TEST_F(CreateDirTest, TheDirectoryIsRemovedWhenTheRequestFailsAndItIsEmpty) {
  {
    Request request("test");
    new mgr_job::safe::CreateDir(Home(), "cur", attrs);
    FailCommit(request);
  }
  EXPECT_EQ(0U, EntryCount());
  Request request("test");
  new mgr_job::safe::CreateDir(Home(), "cur", Attrs(0700, ::geteuid(), ::getegid()));
  new EditingJob(events, [this] { directory.Write("cur/mail", "x"); });
  EXPECT_ANY_THROW(request.Commit());
  EXPECT_EQ("x", directory.Read("cur/mail"));
  EXPECT_THAT(request.Notes(), IsEmpty());
}

TEST_F(CreateDirTest, AnExistingEntryIsAnErrorAndStays) {
  directory.Write("cur", "a file");
  Request request("test");
  new mgr_job::safe::CreateDir(Home(), "new", attrs);
  new mgr_job::safe::CreateDir(Home(), "cur", attrs);
  EXPECT_EQ("file: " + directory / "cur" + ": exists already as a regular file",
            ErrorOf([&] { request.Commit(); }));
  EXPECT_EQ("a file", directory.Read("cur"));
  EXPECT_EQ(1U, EntryCount());
}

TEST_F(CreateDirTest, ANameThatIsNoSingleNameIsRefused) {
  const std::string names[] = {"", ".", "..", "a/b", "/a", "a/", std::string("a\0b", 3)};
  Request request("test");
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    EXPECT_EQ("value: directory name: must be a single name",
              ErrorOf([&] { new mgr_job::safe::CreateDir(Home(), name, attrs); }));
  }
  EXPECT_THAT(ErrorOf([&] { new mgr_job::safe::CreateDir(Folder(), "cur", attrs); }),
              HasSubstr("needs a folder"));
  request.Commit();
  EXPECT_EQ(0U, EntryCount());
}

}  // namespace
