#include "framework/conf_save.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/magic.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "framework/descriptor.h"
#include "framework/request.h"
#include "tests/support/log_capture.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;

class ConfSaveTest : public ::testing::Test {
 protected:
  ConfSaveTest() { folder_.Write("users", "old"); }
  ~ConfSaveTest() override { SetConfWaitLimit(std::chrono::seconds(10)); }

  static ConfSnapshot Snapshot(std::string_view text) {
    const auto bytes = std::make_shared<ConfBytes>(text);
    return {bytes, nullptr, {bytes->View()}};
  }
  /// Does `act` between the last look at the file and the exchange.
  void JustBeforeTheExchange(support::SysFault& fault, std::function<void()> act) {
    fault.OnCall([act, done = false](std::string_view call, std::size_t) mutable {
      if (call != "rename" || done) return;
      done = true;
      act();
    });
  }
  /// Waits until an open of the file is held up by a watch on it; false when that takes a minute.
  static bool SomebodyWaitsToOpen(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return false;
    const std::string file = ":" + std::to_string(info.st_ino) + " ";
    const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (std::chrono::steady_clock::now() < end) {
      std::ifstream locks("/proc/locks");
      for (std::string line; std::getline(locks, line);) {
        if (line.find("BREAKING") != line.npos && line.find(file) != line.npos) return true;
      }
    }
    return false;
  }
  std::string Content() const { return support::ReadFile(path_); }
  bool HasTemporaries() const {
    return std::filesystem::exists(folder_ / ".users.brisq-new") ||
           std::filesystem::exists(folder_ / ".users.brisq-next");
  }

  support::TempDir folder_;
  const std::string path_ = folder_ / "users";
};

TEST_F(ConfSaveTest, LooksAtWhatIsNotKnown) {
  ConfSave save(path_);
  const auto found = save.Look({});
  ASSERT_TRUE(found);
  EXPECT_EQ(found->bytes->View(), "old");
  EXPECT_FALSE(save.Look(found->stamp));
}

TEST_F(ConfSaveTest, ReplacesWhatIsKnownAndLeavesNothingBehind) {
  ConfSave save(path_);
  EXPECT_FALSE(save.Replace(Snapshot("new"), StampAt(path_)));
  save.Finish();
  EXPECT_EQ(save.stamp(), StampAt(path_));
  EXPECT_EQ(Content(), "new");
  EXPECT_FALSE(HasTemporaries());
}

TEST_F(ConfSaveTest, WhatMustComeFirstComesBetweenTheNewFileAndItsPlace) {
  std::string seen;
  ConfSave save(path_);
  EXPECT_FALSE(save.Replace(Snapshot("new"), StampAt(path_), [&] {
    seen = Content() + ", " + support::ReadFile(folder_ / ".users.brisq-new");
  }));
  save.Finish();
  EXPECT_EQ(seen, "old, new");
  EXPECT_EQ(Content(), "new");
}

TEST_F(ConfSaveTest, WhenWhatMustComeFirstFailsNothingIsPutInPlace) {
  {
    ConfSave save(path_);
    const auto refuse = [] { throw mgr_err::Error("file", "first", "refused"); };
    EXPECT_EQ("file: first: refused",
              ErrorOf([&] { save.Replace(Snapshot("new"), StampAt(path_), refuse); }));
    EXPECT_EQ(save.Placements(), 0U);
    EXPECT_TRUE(save.Abandon());
  }
  EXPECT_EQ(Content(), "old");
  EXPECT_FALSE(HasTemporaries());
}

// How many replaced files this process has open: they have no name any more.
std::size_t OldFilesOpen() {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code closed;
    const std::string path = std::filesystem::read_symlink(entry.path(), closed);
    const bool replaced = path.find(".users.brisq-n") != path.npos;
    if (replaced && path.ends_with(" (deleted)")) ++count;
  }
  return count;
}

TEST_F(ConfSaveTest, OfTheFilesThatARequestHasReplacedTheLastIsClosedAtItsEnd) {
  const auto save = [this](const char* text) {
    ConfSave one(path_);
    EXPECT_FALSE(one.Replace(Snapshot(text), StampAt(path_)));
    one.Finish();
  };
  save("outside of a request");
  EXPECT_EQ(OldFilesOpen(), 0U);
  for (const bool commits : {true, false}) {
    SCOPED_TRACE(commits);
    Request request("test");
    save("first");
    save("second");
    EXPECT_EQ(OldFilesOpen(), 1U);
    {
      const ConfSave next(path_);
      EXPECT_EQ(OldFilesOpen(), 0U) << "its bytes may be needed";
    }
    save("third");
    commits ? request.Commit() : request.Rollback();
    EXPECT_EQ(OldFilesOpen(), 0U);
  }
}

// Pages of an open file that the system has in memory.
std::size_t PagesInMemory(int fd, std::size_t bytes) {
  const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
  std::vector<unsigned char> pages((bytes + page - 1) / page);
  void* const block = ::mmap(nullptr, bytes, PROT_READ, MAP_SHARED, fd, 0);
  EXPECT_NE(block, MAP_FAILED);
  EXPECT_EQ(::mincore(block, bytes, pages.data()), 0);
  ::munmap(block, bytes);
  return static_cast<std::size_t>(
      std::count_if(pages.begin(), pages.end(), [](unsigned char state) { return state & 1; }));
}

TEST_F(ConfSaveTest, OfAFileThatIsReplacedNothingStaysInMemory) {
  struct statfs system {};
  ASSERT_EQ(::statfs(folder_.path().c_str(), &system), 0);
  if (system.f_type == TMPFS_MAGIC) GTEST_SKIP() << "a file that is in memory only stays there";
  struct {
    const char* name;
    std::size_t bytes;
    bool first;  // before anything is written
  } const cases[] = {
      {"by the thread that writes", std::size_t{1} << 20, true},
      {"by a thread of its own", std::size_t{9} << 20, false},
  };
  for (const auto& [name, bytes, first] : cases) {
    SCOPED_TRACE(name);
    const std::string content(bytes, 'x');
    folder_.Write("users", content);
    const Descriptor old(::open(path_.c_str(), O_RDONLY));
    ASSERT_EQ(::fsync(old.get()), 0);
    ASSERT_GT(PagesInMemory(old.get(), bytes), 0U);
    std::size_t left = bytes;
    support::SysFault watch;
    watch.OnCall([&, size = bytes](std::string_view call, std::size_t) {
      if (call == "write") left = std::min(left, PagesInMemory(old.get(), size));
    });
    ConfSave save(path_);
    EXPECT_FALSE(save.Replace(Snapshot(content + "new"), StampAt(path_)));
    save.Finish();
    EXPECT_EQ(PagesInMemory(old.get(), bytes), 0U);
    if (first) {
      EXPECT_EQ(left, 0U) << "what is written could have had its memory";
    }
    EXPECT_EQ(Content(), content + "new");
  }
}

TEST_F(ConfSaveTest, FindsAnEditThatRenamesAnotherFileIntoPlace) {
  support::SysFault fault;
  JustBeforeTheExchange(fault, [this] {
    folder_.Write("edit", "theirs");
    ASSERT_EQ(::rename((folder_ / "edit").c_str(), path_.c_str()), 0);
  });
  ConfSave save(path_);
  const auto found = save.Replace(Snapshot("new"), StampAt(path_));
  ASSERT_TRUE(found);
  EXPECT_EQ(found->bytes->View(), "theirs");
  EXPECT_EQ(save.Placements(), 1U);
  EXPECT_FALSE(save.Replace(Snapshot("both"), found->stamp));
  save.Finish();
  EXPECT_EQ(Content(), "both");
  EXPECT_FALSE(HasTemporaries());
}

TEST_F(ConfSaveTest, GoesOnThroughOneEditAfterTheOther) {
  support::SysFault fault;
  int edits = 0;
  fault.OnCall([&](std::string_view call, std::size_t) {
    if (call != "rename" || edits == 4) return;
    folder_.Write("edit", "edit " + std::to_string(++edits));
    ASSERT_EQ(::rename((folder_ / "edit").c_str(), path_.c_str()), 0);
  });
  ConfSave save(path_);
  ConfStamp known = StampAt(path_);
  std::string seen;
  while (const auto found = save.Replace(Snapshot("new"), known)) {
    seen += std::string(found->bytes->View()) + ";";
    known = found->stamp;
  }
  save.Finish();
  EXPECT_EQ(seen, "edit 1;edit 2;edit 3;edit 4;");
  EXPECT_EQ(Content(), "new");
  EXPECT_FALSE(HasTemporaries());
}

TEST_F(ConfSaveTest, WaitsForWhoHasTheFileOpenForWriting) {
  const int file = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
  support::SysFault fault;
  std::atomic<int> looks = 0;
  fault.OnCall([&](std::string_view call, std::size_t) { looks += call == "fcntl" ? 1 : 0; });
  std::thread editor([&] {
    while (looks < 6) std::this_thread::yield();
    EXPECT_EQ(::write(file, " and more", 9), 9);
    ::close(file);
  });
  ConfSave save(path_);
  const auto found = save.Replace(Snapshot("new"), StampAt(path_));
  editor.join();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->bytes->View(), "old and more");
  EXPECT_EQ(save.Placements(), 0U);
}

TEST_F(ConfSaveTest, WaitsForAnEditThatOpenedTheOldFileDuringTheExchange) {
  std::thread editor;
  support::SysFault fault;
  JustBeforeTheExchange(fault, [&] {
    editor = std::thread([this] { folder_.Write("users", "theirs"); });
    // The editor's opening is waiting on the watch now; what it opens is the old file.
    ASSERT_TRUE(SomebodyWaitsToOpen(path_));
  });
  ConfSave save(path_);
  const auto found = save.Replace(Snapshot("new"), StampAt(path_));
  editor.join();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->bytes->View(), "theirs");
}

TEST_F(ConfSaveTest, AFileThatCameMeanwhileIsFound) {
  ASSERT_EQ(::unlink(path_.c_str()), 0);
  support::SysFault fault;
  JustBeforeTheExchange(fault, [this] { folder_.Write("users", "theirs"); });
  ConfSave save(path_);
  const auto found = save.Replace(Snapshot("new"), {});
  ASSERT_TRUE(found);
  EXPECT_EQ(found->bytes->View(), "theirs");
  EXPECT_EQ(save.Placements(), 0U);
}

TEST_F(ConfSaveTest, AFileThatIsAwayForAMomentIsWaitedFor) {
  const ConfStamp known = StampAt(path_);
  ASSERT_EQ(::rename(path_.c_str(), (folder_ / "users~").c_str()), 0);
  std::thread editor([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    folder_.Write("edit", "theirs");
    ::rename((folder_ / "edit").c_str(), path_.c_str());
  });
  ConfSave save(path_);
  const auto found = save.Look(known);
  editor.join();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->bytes->View(), "theirs");
}

TEST_F(ConfSaveTest, ASaveThatFailsAfterItsExchangePutsTheEditBack) {
  support::SysFault fault;
  JustBeforeTheExchange(fault, [this] {
    folder_.Write("edit", "theirs");
    ASSERT_EQ(::rename((folder_ / "edit").c_str(), path_.c_str()), 0);
  });
  {
    ConfSave save(path_);
    const auto found = save.Replace(Snapshot("new"), StampAt(path_));
    ASSERT_TRUE(found);
    fault.FailCall("write", ENOSPC);
    EXPECT_NE(ErrorOf([&] { save.Replace(Snapshot("both"), found->stamp); }), "");
  }
  EXPECT_EQ(Content(), "theirs");
  EXPECT_FALSE(HasTemporaries());
}

TEST_F(ConfSaveTest, DoubtAboutTheDirectoryIsToldAtTheEnd) {
  support::SysFault fault;
  fault.OnCall([&, syncs = 0](std::string_view call, std::size_t) mutable {
    if (call == "fsync") fault.FailCall("fsync", ++syncs == 2 ? EIO : 0);
  });
  ConfSave save(path_);
  EXPECT_FALSE(save.Replace(Snapshot("new"), StampAt(path_)));
  EXPECT_NE(ErrorOf([&] { save.Finish(); }).find("may be lost on a power failure"),
            std::string::npos);
  EXPECT_EQ(Content(), "new");
  EXPECT_FALSE(HasTemporaries());
}

TEST_F(ConfSaveTest, WhatKilledSavesLeaveIsClearedAway) {
  folder_.Write(".users.brisq-new", "half");
  folder_.Write(".users.brisq-next", "old hashes");
  const ConfSave save(path_);
  EXPECT_FALSE(HasTemporaries());
  EXPECT_EQ(Content(), "old");
}

TEST_F(ConfSaveTest, AnEditThatAKilledSaveHeldIsKeptAside) {
  support::LogCapture log;
  {
    ConfLock lock(safe_replace::Target::Resolve(path_));
    ConfStamp fresh;
    fresh.inode = 1;
    lock.NoteExchange(StampAt(path_), fresh);
  }
  folder_.Write(".users.brisq-new", "somebody's edit");
  const ConfSave save(path_);
  EXPECT_EQ(folder_.Read("users.edited-1"), "somebody's edit");
  EXPECT_EQ(log.Messages("brisq"),
            std::vector<std::string>{"warning conf: an edit of " + path_ +
                                     " that a killed save had not taken over is kept as " + path_ +
                                     ".edited-1"});
}

}  // namespace
