#include "safe_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <string_view>
#include <vector>

#include "framework/journal.h"
#include "framework/request.h"
#include "mgr_err.h"
#include "mgr_job.h"
#include "tests/support/log_capture.h"
#include "tests/support/recording_job.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using mgr_file::Attrs;
using mgr_file::safe::Folder;
using support::RecordingJob;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class TestOwner : public mgr_file::safe::Owner {
 public:
  explicit TestOwner(std::string home) : home_(std::move(home)) {}
  uid_t OwnerUid() const override { return ::geteuid(); }
  gid_t OwnerGid() const override { return ::getegid(); }
  std::string OwnerHome() const override { return home_; }

 private:
  std::string home_;
};

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::exception& error) {
    return error.what();
  }
  return "nothing was thrown";
}

class SafeFileTest : public testing::Test {
 protected:
  Folder Queue(const std::string& path) const {
    return safe_file::JobCreateOddDirAbs(owner, home.path() + path, attrs);
  }
  void QueueMaildir(const std::string& path) const {
    const Folder folder = Queue(path);
    for (const char* name : {"new", "cur", "tmp"}) {
      new mgr_job::safe::CreateDir(folder, name, attrs);
    }
  }
  void FailCommit(Request& request) {
    new RecordingJob(events, "last", {.in_do = true});
    EXPECT_EQ("file: last: do refused", ErrorOf([&] { request.Commit(); }));
  }

  support::TempDir home;
  support::LogCapture log;
  support::Events events;
  const std::shared_ptr<TestOwner> owner = std::make_shared<TestOwner>(home.path());
  const Attrs attrs{0700, ::geteuid(), ::getegid()};
};

TEST_F(SafeFileTest, AMaildirIsMadeAtTheCommit) {
  Request request("mailbox add");
  QueueMaildir("/mail/example.org/u/.maildir");
  EXPECT_TRUE(fs::is_empty(home.path()));
  request.Commit();
  for (const char* name : {"", "/new", "/cur", "/tmp"}) {
    SCOPED_TRACE(name);
    struct stat state = {};
    const std::string path = home / "mail/example.org/u/.maildir" + name;
    ASSERT_EQ(0, ::stat(path.c_str(), &state));
    EXPECT_EQ(S_IFDIR | 0700U, state.st_mode);
  }
}

// As a plug-in's may be: it tells no steps.
class OtherJob : public mgr_job::Job {
 public:
  explicit OtherJob(std::function<void()> what) : what_(std::move(what)) {}
  void Do() override { what_(); }
  void Undo() override {}

 private:
  const std::function<void()> what_;
};

TEST_F(SafeFileTest, FoldersAreLookedAtAnewBehindAnotherJob) {
  Request request("mailbox add");
  Queue("/a");
  new OtherJob([this] { fs::rename(home / "a", home / "a.old"); });
  Queue("/a/b");
  Queue("/c");
  new OtherJob([this] { fs::remove(home / "c"); });
  Queue("/c");
  request.Commit();
  EXPECT_TRUE(fs::exists(home / "a/b"));
  EXPECT_TRUE(fs::is_empty(home / "a.old"));
  EXPECT_TRUE(fs::exists(home / "c"));
}

TEST_F(SafeFileTest, TwoSlashesInARowCountAsOne) {
  Request request("mailbox add");
  const Folder folder = Queue("/u//.maildir");
  EXPECT_EQ(home / "u/.maildir", folder.path());
  EXPECT_EQ(home.path(), folder.root());
  request.Commit();
  EXPECT_TRUE(fs::is_directory(home / "u/.maildir"));
}

TEST_F(SafeFileTest, WhatTheJobsMadeIsRemovedWhenTheRequestFails) {
  home.MakeFolder("mail");
  Request request("mailbox add");
  QueueMaildir("/mail/example.org/u/.maildir");
  FailCommit(request);
  EXPECT_TRUE(fs::is_empty(home / "mail")) << "and what was there before stays";
  EXPECT_THAT(request.Notes(), IsEmpty());
}

// With a journal: what a crash leaves depends on the order of the calls.
class CallsTest : public SafeFileTest {
 protected:
  CallsTest() {
    journal::SetFolder(home / "journal");
    Request::SetDatabaseHooks({.begin = [] {},
                               .commit = [this] { calls.push_back("commit"); },
                               .rollback = [] {},
                               .mark = [](const Request&) {}});
  }
  ~CallsTest() override {
    Request::SetDatabaseHooks({});
    journal::SetFolder("");
  }

  // What a process that dies now leaves behind.
  static std::vector<std::string> Noted() {
    const auto entries = journal::OpenEntries();
    return entries.empty() ? std::vector<std::string>() : entries.front().steps;
  }

  std::vector<std::string> calls;
  support::SysFault watch;
};

TEST_F(CallsTest, AllDirectoriesAreNotedBeforeTheFirstIsMadeAndSyncedBehindTheLast) {
  home.MakeFolder("journal");
  home.MakeFolder("mail");
  Request request("mailbox add");
  request.BeginDatabase();
  QueueMaildir("/mail/u/.maildir");
  std::vector<std::string> noted;
  watch.OnCall([&](std::string_view call, std::size_t) {
    if (call == "mkdir" && noted.empty()) noted = Noted();
    if (call == "mkdir" || call == "fsync") calls.emplace_back(call);
  });
  request.Commit();
  EXPECT_THAT(noted, ElementsAre("directory " + home / "mail/u" + " made",
                                 "directory " + home / "mail/u/.maildir" + " made",
                                 "directory " + home / "mail/u/.maildir/new" + " made",
                                 "directory " + home / "mail/u/.maildir/cur" + " made",
                                 "directory " + home / "mail/u/.maildir/tmp" + " made"));
  const std::vector<std::string> expected = {
      "mkdir",                                               // the journal's folder, there already
      "fsync", "fsync",                                      // the entry and its name
      "mkdir", "mkdir", "mkdir", "mkdir", "mkdir", "mkdir",  // mail is there, the others are made
      "fsync", "fsync", "fsync", "fsync", "fsync", "fsync",  // mail and the others
      "commit"};
  EXPECT_EQ(expected, calls);
}

TEST_F(CallsTest, DirectoriesThatCantBeSyncedAreTakenBack) {
  home.MakeFolder("mail");
  Request request("mailbox add");
  request.BeginDatabase();
  QueueMaildir("/mail/u/.maildir");
  int syncs = 0;
  watch.OnCall([&](std::string_view call, std::size_t) {
    const bool made = syncs > 0 || fs::exists(home / "mail/u/.maildir/tmp");
    if (made && call == "fsync") watch.FailCall("fsync", syncs++ == 0 ? EIO : 0);
  });
  EXPECT_THAT(ErrorOf([&] { request.Commit(); }), HasSubstr("fsync: Input/output error"));
  EXPECT_GT(syncs, 1) << "taking back is made durable";
  EXPECT_TRUE(fs::is_empty(home / "mail"));
  EXPECT_THAT(journal::Ids(), IsEmpty());
}

// The user's mail reader puts something into the new Maildir before the request fails.
class FillingJob : public RecordingJob {
 public:
  FillingJob(support::Events& events, const support::TempDir& home)
      : RecordingJob(events, "fill", {.in_do = true}), home_(home) {}
  void Do() override {
    home_.Write("mail/u/.maildir/subscriptions", "INBOX");
    RecordingJob::Do();
  }

 private:
  const support::TempDir& home_;
};

TEST_F(SafeFileTest, ADirectoryThatIsNoLongerEmptyStaysWithItsParents) {
  Request request("mailbox add");
  QueueMaildir("/mail/u/.maildir");
  new FillingJob(events, home);
  EXPECT_ANY_THROW(request.Commit());
  EXPECT_EQ("INBOX", home.Read("mail/u/.maildir/subscriptions"));
  EXPECT_FALSE(fs::exists(home / "mail/u/.maildir/new"));
  EXPECT_THAT(request.Notes(), IsEmpty());
}

TEST_F(SafeFileTest, AnExistingDirectoryIsLeftAsItIsAlsoWhenTheRequestFails) {
  home.MakeFolder("mail/u");
  ::chmod((home / "mail/u").c_str(), 0711);
  {
    Request request("mailbox add");
    Queue("/mail/u");
    FailCommit(request);
  }
  Request request("mailbox add");
  Queue("/mail/u");
  request.Commit();
  EXPECT_EQ(fs::perms(0711), fs::status(home / "mail/u").permissions());
}

TEST_F(SafeFileTest, AFileInTheWayIsNamedAndNothingStays) {
  home.MakeFolder("mail/u");
  Request request("mailbox add");
  Queue("/mail/u/.maildir");
  home.Write("mail/u/.maildir", "a file");
  EXPECT_EQ("file: " + home / "mail/u/.maildir" + ": not safe: is a regular file",
            ErrorOf([&] { request.Commit(); }));
  EXPECT_EQ("a file", home.Read("mail/u/.maildir"));
}

TEST_F(SafeFileTest, AFileNamedCurIsNamedAndTheOthersAreTakenBack) {
  home.MakeFolder("mail/u/.maildir");
  home.Write("mail/u/.maildir/cur", "a file");
  Request request("mailbox add");
  QueueMaildir("/mail/u/.maildir");
  EXPECT_EQ("file: " + home / "mail/u/.maildir/cur" + ": exists already as a regular file",
            ErrorOf([&] { request.Commit(); }));
  EXPECT_FALSE(fs::exists(home / "mail/u/.maildir/new"));
  EXPECT_EQ("a file", home.Read("mail/u/.maildir/cur"));
}

TEST_F(SafeFileTest, ALinkIsRefusedWhenTheJobRuns) {
  const support::TempDir outside;
  fs::create_directory_symlink(outside.path(), home / "mail");
  Request request("mailbox add");
  Queue("/mail/u");
  EXPECT_EQ("file: " + home / "mail" + ": not safe: is a symbolic link",
            ErrorOf([&] { request.Commit(); }));
  EXPECT_TRUE(fs::is_empty(outside.path()));
}

TEST_F(SafeFileTest, APathThatIsNotBelowTheHomeIsRefusedAtOnce) {
  struct Case {
    const char* name;
    std::string path;
    std::string rule;
  };
  const Case cases[] = {
      {"the home itself", home.path(), ": does not lie below " + home.path()},
      {"beside", home.path() + "2/mail", ": does not lie below " + home.path()},
      {"above", "/etc", ": does not lie below " + home.path()},
      {"up", home.path() + "/../x", ": must not contain \"..\""},
      {"relative", "mail", ": must be an absolute path"},
  };
  Request request("mailbox add");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ("value: " + c.path + c.rule,
              ErrorOf([&] { safe_file::JobCreateOddDirAbs(owner, c.path, attrs); }));
  }
  request.Commit();
  EXPECT_TRUE(fs::is_empty(home.path()));
}

TEST_F(SafeFileTest, OutsideOfARequestNothingIsQueued) {
  EXPECT_EQ("internal: job: made outside of a request", ErrorOf([&] { Queue("/mail"); }));
}

TEST_F(SafeFileTest, AMissingHomeIsNamed) {
  const auto missing = std::make_shared<TestOwner>(home / "none");
  Request request("mailbox add");
  safe_file::JobCreateOddDirAbs(missing, home / "none/mail", attrs);
  EXPECT_EQ("file: " + home / "none" + ": open: No such file or directory",
            ErrorOf([&] { request.Commit(); }));
  EXPECT_TRUE(fs::is_empty(home.path()));
}

}  // namespace
