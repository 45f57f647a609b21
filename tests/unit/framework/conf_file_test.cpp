#include "framework/conf_file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "framework/conf_lock.h"
#include "framework/descriptor.h"
#include "framework/journal.h"
#include "framework/request.h"
#include "framework/seal.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::AddUser;
using conf_fixture::ConfTest;
using conf_fixture::ErrorOf;
using conf_fixture::Line;
using conf_fixture::Names;
using conf_fixture::SetPassword;
using conf_fixture::UsersConfig;
using Reasons = std::vector<ConfCache::SaveReason>;

class ConfFileTest : public ConfTest {
 protected:
  ~ConfFileTest() override { SetConfWaitLimit(std::chrono::seconds(10)); }

  /// Runs a shell command in the file's folder.
  void Shell(const std::string& command) const {
    ASSERT_EQ(std::system(("cd '" + folder_.path() + "' && " + command).c_str()), 0) << command;
  }
};

TEST_F(ConfFileTest, ReadersSeeWhatOthersWriteInEveryStyle) {
  const std::string a = Line("a");
  const std::string b = Line("b");
  const struct {
    const char* name;
    std::string command;
    std::vector<std::string> names;
  } cases[] = {
      {"append", "echo '" + Line("c") + "' >> users", {"a", "b", "c"}},
      {"in place", "echo '" + Line("z") + "' > users", {"z"}},
      {"sed -i", "sed -i s/^a/y/ users", {"y", "b"}},
      {"mv", "echo '" + Line("m") + "' > users.new && mv users.new users", {"m"}},
      {"cp -p of an old copy", "cp -p old users", {"o", "p"}},
      {"removal", "rm users", {}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Shell("echo '" + Line("o") + "' > old; echo '" + Line("p") + "' >> old");
    Write(a + "\n" + b + "\n");
    const auto users = Open();
    ASSERT_EQ(Names(users), (std::vector<std::string>{"a", "b"}));
    Shell(test.command);
    EXPECT_EQ(Names(users), test.names);
  }
}

// Such a file is mapped, and who writes into it waits until it is copied.
TEST_F(ConfFileTest, ALargeFileMayBeEditedInPlaceAsWell) {
  const std::string filling = "# " + std::string(98, 'x') + "\n";
  std::string large = Line("a") + "\n";
  while (large.size() < (std::size_t{9} << 20)) large += filling;
  Write(large + Line("b") + "\n");
  const auto users = Open();
  ASSERT_EQ(Names(users), (std::vector<std::string>{"a", "b"}));
  Shell("echo '" + Line("c") + "' >> users");
  SetPassword(users, "b", "new");
  EXPECT_TRUE(Content().starts_with(large));
  EXPECT_EQ(Content().substr(large.size()), Line("b", "new") + "\n" + Line("c") + "\n");
  Shell("sed -n '1p' users > short && cat short > users");
  SetPassword(users, "a", "new");
  EXPECT_EQ(Names(users), (std::vector<std::string>{"a"}));
  EXPECT_LT(Content().size(), 100U);
}

TEST_F(ConfFileTest, PostsAreMergedWithWhatOthersWroteInEveryStyle) {
  const struct {
    const char* name;
    std::string command;
    std::string want;
  } cases[] = {
      {"append", "echo '" + Line("c") + "' >> users",
       Line("a") + "\n" + Line("b", "new") + "\n" + Line("c") + "\n"},
      {"in place", "{ echo '# x'; echo '" + Line("b") + "'; } > users",
       "# x\n" + Line("b", "new") + "\n"},
      {"sed -i", "sed -i -e s/^a/y/ -e s,/home/b,/home/z, users",
       "y:{X}h:1000:1000::/home/a:::maildir:~/.maildir userdb_quota_rule=*:bytes=0M\n"
       "b:new:1000:1000::/home/z:::maildir:~/.maildir userdb_quota_rule=*:bytes=0M\n"},
      {"mv", "echo '" + Line("b") + "' > users.new && mv users.new users", Line("b", "new") + "\n"},
      {"cp -p of an old copy", "cp -p old users", Line("b", "new") + "\n" + Line("p") + "\n"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    Shell("echo '" + Line("b", "oldest") + "' > old; echo '" + Line("p") + "' >> old");
    Write(Line("a") + "\n" + Line("b") + "\n");
    const auto users = Open();
    users->Assert("b");
    users->passwd.Set("new");
    Shell(test.command);
    users->Post("");
    EXPECT_EQ(Content(), test.want);
  }
}

// The edit comes between the last look and the exchange.
TEST_F(ConfFileTest, AnEditInTheLastMomentIsMergedToo) {
  Write(Line("a") + "\n" + Line("b") + "\n");
  const auto users = Open();
  users->Assert("b");
  users->passwd.Set("new");
  support::SysFault fault;
  fault.OnCall([&, edits = 0](std::string_view call, std::size_t) mutable {
    if (call != "rename" || edits == 3) return;
    ++edits;
    Shell("sed -i -e 's/^a:[^:]*/a:by hand " + std::to_string(edits) + "/' users; cp users mine; " +
          "echo '" + Line("c" + std::to_string(edits)) + "' >> mine; mv mine users");
  });
  users->Post("");
  EXPECT_EQ(Content(), Line("a", "by hand 3") + "\n" + Line("b", "new") + "\n" + Line("c1") + "\n" +
                           Line("c2") + "\n" + Line("c3") + "\n");
  EXPECT_EQ(UsersConfig::TakeReasons(), Reasons{ConfCache::srWritten});
  EXPECT_EQ(Names(users), (std::vector<std::string>{"a", "b", "c1", "c2", "c3"}));
}

TEST_F(ConfFileTest, ALineAddedTwiceByUsAndByHandIsRefused) {
  Write(Line("a") + "\n");
  const auto users = Open();
  support::SysFault fault;
  fault.OnCall([&, done = false](std::string_view call, std::size_t) mutable {
    if (call != "rename" || std::exchange(done, true)) return;
    Shell("cp users mine; echo '" + Line("n") + "' >> mine; mv mine users");
  });
  EXPECT_EQ(ErrorOf([&] { AddUser(users, "n"); }), "exists: name: n");
  EXPECT_EQ(Content(), Line("a") + "\n" + Line("n") + "\n");
}

TEST_F(ConfFileTest, EverySaveIsToldOnceWithItsReason) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  SetPassword(users, "a", "new");
  EXPECT_EQ(UsersConfig::TakeReasons(), Reasons{ConfCache::srWritten});
  SetPassword(users, "a", "new");
  EXPECT_EQ(UsersConfig::TakeReasons(), Reasons{ConfCache::srNothing});
  users->Assert("a");
  users->passwd.Set("other");
  users->Post("");
  users->passwd.Set("by hand");
  support::SysFault fault;
  fault.OnCall([&, done = false](std::string_view call, std::size_t) mutable {
    if (call == "flock" && !std::exchange(done, true)) Shell("sed -i s/other/by\\ hand/ users");
  });
  users->Post("");
  EXPECT_EQ(UsersConfig::TakeReasons(), (Reasons{ConfCache::srWritten, ConfCache::srTakenOver}));
}

TEST_F(ConfFileTest, TheHookMayUseTheFileItIsToldOf) {
  Write(Line("a", "old") + "\n" + Line("b", "old") + "\n");
  const auto users = Open();
  const auto poster = std::this_thread::get_id();
  UsersConfig::Also([&](ConfRef& ref) {
    EXPECT_EQ(std::this_thread::get_id(), poster);
    EXPECT_EQ(ref.path(), path_);
    UsersConfig::Also({});
    SetPassword(UsersConfig::Open(ref.path()), "b", "by hook");
  });
  SetPassword(users, "a", "new");
  EXPECT_EQ(Content(), Line("a", "new") + "\n" + Line("b", "by hook") + "\n");
  EXPECT_EQ(UsersConfig::TakeReasons(), (Reasons{ConfCache::srWritten, ConfCache::srWritten}));
}

TEST_F(ConfFileTest, WhatTheHookThrowsReachesThePostAndTheFileStaysSaved) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  UsersConfig::Also([](ConfRef&) { throw mgr_err::Error("later", "hook"); });
  EXPECT_EQ(ErrorOf([&] { SetPassword(users, "a", "new"); }), "later: hook");
  UsersConfig::Also({});
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
  SetPassword(users, "a", "newer");
  EXPECT_EQ(Content(), Line("a", "newer") + "\n");
}

TEST_F(ConfFileTest, ThreadsThatPostAtTheSameTimeShareSaves) {
  constexpr int kThreads = 16;
  std::string content;
  for (int user = 0; user < kThreads; ++user) content += Line("u" + std::to_string(user)) + "\n";
  Write(content);
  const auto keep = Open();
  support::SysFault fault;
  std::atomic<int> posting = 0;
  fault.OnCall([&](std::string_view call, std::size_t) {
    // Nobody's file is in place before everybody has come to post.
    while (call == "rename" && posting < kThreads) std::this_thread::yield();
  });
  std::vector<std::thread> threads;
  for (int user = 0; user < kThreads; ++user) {
    threads.emplace_back([&, user] {
      const auto users = Open();
      users->Assert("u" + std::to_string(user));
      users->passwd.Set("new" + std::to_string(user));
      ++posting;
      users->Post("");
      EXPECT_NE(Content().find("new" + std::to_string(user) + ":"), std::string::npos)
          << "not in the file when the post returned";
    });
  }
  for (std::thread& thread : threads) thread.join();
  const std::size_t saves = UsersConfig::TakeReasons().size();
  EXPECT_GE(saves, 1U);
  EXPECT_LE(saves, 4U);
}

TEST_F(ConfFileTest, APostThatFailsLeavesFileAndDocumentAsTheyWere) {
  const std::string before = Line("a", "old") + "\r\n# x\n" + Line("b");
  Write(before);
  const auto users = Open();
  const struct {
    const char* name;
    std::function<void()> act;
  } cases[] = {
      {"add", [&] { AddUser(users, "n"); }},
      {"set", [&] { SetPassword(users, "a", "new"); }},
      {"remove", [&] { users->Assert("b"), users->_Delete(true); }},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    support::SysFault fault;
    fault.FailCall("fsync", EIO);
    const std::string error = ErrorOf(test.act);
    EXPECT_EQ(error, "file: " + path_ + ": fsync: Input/output error; the file is unchanged");
    EXPECT_EQ(Content(), before);
    EXPECT_EQ(Names(users), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(UsersConfig::TakeReasons(), Reasons{});
    users->Assert("a");
    EXPECT_EQ(users->passwd.Str(), "old");
  }
  SetPassword(users, "b", "new");
  EXPECT_EQ(Content(), Line("a", "old") + "\r\n# x\n" + Line("b", "new"));
}

/// A journal for requests, which seals the lines that it notes.
class JournalledConfFileTest : public ConfFileTest {
 protected:
  JournalledConfFileTest() {
    mgr_seal::SetKeyFile(folder_ / "seal.key");
    mgr_seal::Seal("makes the key");
    std::filesystem::create_directory(folder_ / "journal");
    journal::SetFolder(folder_ / "journal");
  }
  ~JournalledConfFileTest() override { journal::SetFolder(""); }
};

TEST_F(JournalledConfFileTest, HowToTakeAChangeBackIsDurableBeforeTheChangeIsInPlace) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  Request request("test");
  support::SysFault calls;
  int syncs = 0;
  int before_the_change = 0;
  calls.OnCall([&](std::string_view call, std::size_t) {
    syncs += call == "fsync" ? 1 : 0;
    if (call == "rename") before_the_change = syncs;
  });
  SetPassword(users, "a", "new");
  EXPECT_EQ(before_the_change, 3) << "of the entry, of its folder, of the new file";
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
}

TEST_F(JournalledConfFileTest, AChangeThatCouldNotBeTakenBackIsNotMade) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  for (int refused = 1; refused <= 3; ++refused) {
    SCOPED_TRACE(refused);
    Request request("test");
    {
      support::SysFault fault;
      fault.OnCall([&, syncs = 0](std::string_view call, std::size_t) mutable {
        if (call == "fsync") fault.FailCall("fsync", ++syncs == refused ? EIO : 0);
      });
      EXPECT_NE(ErrorOf([&] { SetPassword(users, "a", "new"); }), "");
    }
    EXPECT_EQ(Content(), Line("a", "old") + "\n");
    EXPECT_FALSE(std::filesystem::exists(folder_ / ".users.brisq-new"));
    request.Rollback();
    EXPECT_EQ(Content(), Line("a", "old") + "\n");
  }
  SetPassword(users, "a", "new");
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
}

TEST_F(ConfFileTest, AFailingSaveFailsThoseWhoShareItAndNobodyElse) {
  Write(Line("a", "old") + "\n" + Line("b", "old") + "\n");
  const auto first = Open();
  const auto second = Open();
  first->Assert("a");
  first->passwd.Set("new");
  second->Assert("b");
  second->passwd.Set("new");
  const auto watch = Open();
  watch->Assert("b");
  support::SysFault fault;
  std::thread other;
  std::atomic<int> syncs = 0;
  fault.OnCall([&](std::string_view call, std::size_t) {
    if (call != "fsync") return;
    // The first save alone fails; the other thread's may follow at any moment.
    const bool first_sync = syncs++ == 0;
    fault.FailCall("fsync", first_sync ? EIO : 0);
    if (!first_sync) return;
    // Comes after the content of the failing save was taken.
    other = std::thread([&] { second->Post(""); });
    while (watch->passwd.Str() != "new") std::this_thread::yield();
  });
  EXPECT_NE(ErrorOf([&] { first->Post(""); }), "");
  other.join();
  EXPECT_EQ(Content(), Line("a", "old") + "\n" + Line("b", "new") + "\n");
}

TEST_F(ConfFileTest, AChangeInDoubtIsToldAndStays) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  support::SysFault fault;
  fault.OnCall([&, syncs = 0](std::string_view call, std::size_t) mutable {
    if (call == "fsync") fault.FailCall("fsync", ++syncs == 2 ? EIO : 0);
  });
  EXPECT_NE(
      ErrorOf([&] { SetPassword(users, "a", "new"); }).find("was changed, but the change may"),
      std::string::npos);
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
  users->Assert("a");
  EXPECT_EQ(users->passwd.Str(), "new");
  EXPECT_EQ(UsersConfig::TakeReasons(), Reasons{ConfCache::srWritten});
}

TEST_F(ConfFileTest, AnotherProcesssLockIsWaitedForWithinLimits) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  SetConfWaitLimit(std::chrono::milliseconds(20));
  {
    const ConfLock other(safe_replace::Target::Resolve(path_));
    EXPECT_NE(ErrorOf([&] { SetPassword(users, "a", "new"); }).find("locked: " + path_ + ": busy"),
              std::string::npos);
  }
  EXPECT_EQ(Content(), Line("a", "old") + "\n");
  SetPassword(users, "a", "new");
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
}

TEST_F(ConfFileTest, AnEditInProgressIsNeitherReadNorOverwritten) {
  Write(Line("a", "old") + "\n");
  const auto users = Open();
  const Descriptor editor(::open(path_.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  EXPECT_EQ(Names(users), std::vector<std::string>{"a"}) << "a file cut short was taken";
  SetConfWaitLimit(std::chrono::milliseconds(20));
  EXPECT_NE(ErrorOf([&] { SetPassword(users, "a", "new"); }).find("is being edited: PID"),
            std::string::npos);
  EXPECT_EQ(Content(), "");
}

TEST_F(ConfFileTest, AFirstReadingWaitsForAnEditInProgress) {
  Write("");
  SetConfWaitLimit(std::chrono::milliseconds(20));
  const Descriptor editor(::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ(ErrorOf([this] { Open(); }),
            "locked: " + path_ + ": is being edited: " + DescribeProcess(::getpid()) +
                " has it open for writing; try again when that has ended");
}

/// Makes the file what it was, with its time, as `cp -p` does with a backup.
void Restore(const std::string& path, const std::string& content, const struct stat& info) {
  const Descriptor file(::open(path.c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC));
  ASSERT_EQ(::write(file.get(), content.data(), content.size()),
            static_cast<ssize_t>(content.size()));
  const struct timespec times[2] = {info.st_atim, info.st_mtim};
  ASSERT_EQ(::futimens(file.get(), times), 0);
}

TEST_F(ConfFileTest, ARestoredBackupOfEqualSizeIsSomebodysEdit) {
  const std::string backup = Line("a", "old") + "\n" + Line("b", "old") + "\n";
  Write(backup);
  struct stat info {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  const auto users = Open();
  SetPassword(users, "a", "new");
  Restore(path_, backup, info);
  users->Assert("a");
  EXPECT_EQ(users->passwd.Str(), "old");
  SetPassword(users, "b", "new");
  EXPECT_EQ(Content(), Line("a", "old") + "\n" + Line("b", "new") + "\n");
}

// Between our look and our exchange, with size and time of modification as they were.
TEST_F(ConfFileTest, AnEditThatSetsItsTimeBackWhileWeSaveIsKept) {
  Write(Line("a", "old") + "\n" + Line("b", "old") + "\n");
  const auto users = Open();
  struct stat info {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  support::SysFault calls;
  bool done = false;
  calls.OnCall([&](std::string_view call, std::size_t) {
    if (call != "futimens" || std::exchange(done, true)) return;
    Restore(path_, Line("a", "old") + "\n" + Line("b", "OLD") + "\n", info);
  });
  SetPassword(users, "a", "new");
  EXPECT_TRUE(done);
  EXPECT_EQ(Content(), Line("a", "new") + "\n" + Line("b", "OLD") + "\n");
}

TEST_F(ConfFileTest, ManyChangesOfOneLineDoNotFillTheMemory) {
  Write(Line("a") + "\n");
  const auto users = Open();
  const std::string large(std::size_t{300} << 10, 'x');
  for (int round = 0; round < 12; ++round) {
    SetPassword(users, "a", std::to_string(round) + large);
    users->Assert("a");
    ASSERT_EQ(users->passwd.Str(), std::to_string(round) + large);
  }
}

TEST_F(ConfFileTest, OwnerModeAndLinksOutliveAPost) {
  folder_.Write("real", Line("a") + "\n");
  ASSERT_EQ(::symlink("real", path_.c_str()), 0);
  ASSERT_EQ(::chown(path_.c_str(), 1234, 2345), 0);
  ASSERT_EQ(::chmod(path_.c_str(), 0640), 0);
  SetPassword(Open(), "a", "new");
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  struct stat info {};
  ASSERT_EQ(::stat(path_.c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, 1234U);
  EXPECT_EQ(info.st_gid, 2345U);
  EXPECT_EQ(info.st_mode & 07777U, 0640U);
  EXPECT_EQ(Content(), Line("a", "new") + "\n");
}

}  // namespace
