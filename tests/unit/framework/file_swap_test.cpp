#include "framework/file_swap.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using mgr_file::Attrs;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
  return "nothing was thrown";
}

class FileSwapTest : public testing::Test {
 protected:
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  void RemoveAll() const {
    for (const std::string& name : Names()) {
      fs::remove(directory / name);
    }
  }
  struct stat State() const {
    struct stat state = {};
    EXPECT_EQ(0, ::lstat(path.c_str(), &state));
    return state;
  }

  support::TempDir directory;
  const std::string path = directory / "example.org.conf";
  const Attrs attrs{0600, ::geteuid(), ::getegid()};
};

TEST_F(FileSwapTest, APreparedFileStandsBesideItsPlaceWithoutAnExtension) {
  directory.Write("example.org.conf", "old");
  const FileSwap swap(path, "new", attrs);
  EXPECT_EQ("old", directory.Read("example.org.conf"));
  const auto names = Names();
  ASSERT_EQ(2U, names.size());
  EXPECT_THAT(names[0], testing::MatchesRegex("\\.brisq-job-[0-9a-f]{16}"));
}

TEST_F(FileSwapTest, WhatWasPreparedGoesWithItsObject) {
  {
    const FileSwap file(path, "new", attrs);
    const FileSwap link(path, FileSwap::LinkTo{"target"});
    EXPECT_EQ(2U, Names().size());
  }
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(FileSwapTest, APublishedFileHasItsContentAndExactlyItsAttributes) {
  for (const mode_t mask : {0U, 022U, 0777U}) {
    for (const mode_t mode : {0600U, 0640U, 0666U, 0U, 04755U}) {
      SCOPED_TRACE(testing::Message() << std::oct << "umask " << mask << " mode " << mode);
      const mode_t old_mask = ::umask(mask);
      FileSwap swap(path, std::string("a\0b\n", 4), Attrs(mode, ::geteuid(), ::getegid()));
      ::umask(old_mask);
      swap.Publish();
      swap.Discard();
      EXPECT_EQ(mode, State().st_mode & 07777U);
      if (::geteuid() == 0) {
        EXPECT_EQ(std::string("a\0b\n", 4), directory.Read("example.org.conf"));
      }
      EXPECT_THAT(Names(), ElementsAre("example.org.conf"));
    }
  }
}

TEST_F(FileSwapTest, TheOwnerIsSet) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "gives files to other users: needs root";
  }
  FileSwap swap(path, "new", Attrs(0640, 54321, 54322));
  swap.Publish();
  EXPECT_EQ(54321U, State().st_uid);
  EXPECT_EQ(54322U, State().st_gid);
}

TEST_F(FileSwapTest, ALargeContentIsWrittenWhole) {
  std::string content;
  for (int i = 0; i < 500000; ++i) {
    content += std::to_string(i);
  }
  FileSwap swap(path, content, attrs);
  swap.Publish();
  EXPECT_EQ(content, directory.Read("example.org.conf"));
}

// What may stand at the place, and how to tell that it is there again.
struct Occupant {
  const char* name;
  std::function<void(const std::string& path)> set;
};

const Occupant kOccupants[] = {
    {"nothing", [](auto&) {}},
    {"file", [](auto& path) { fs::copy_file("/proc/self/status", path); }},
    {"empty file", [](auto& path) { ::close(::creat(path.c_str(), 0604)); }},
    {"dangling link", [](auto& path) { fs::create_symlink("none", path); }},
    {"pipe", [](auto& path) { ::mkfifo(path.c_str(), 0600); }},
};

struct Snapshot {
  ino_t inode = 0;
  mode_t mode = 0;
  off_t size = 0;
  bool operator==(const Snapshot&) const = default;
};

Snapshot SnapshotOf(const std::string& path) {
  struct stat state = {};
  return ::lstat(path.c_str(), &state) == 0 ? Snapshot{state.st_ino, state.st_mode, state.st_size}
                                            : Snapshot{};
}

TEST_F(FileSwapTest, WhatWasReplacedIsPutBackItself) {
  for (const Occupant& occupant : kOccupants) {
    SCOPED_TRACE(occupant.name);
    occupant.set(path);
    const Snapshot before = SnapshotOf(path);
    const auto names_before = Names();
    FileSwap swap(path, "new", attrs);
    swap.Publish();
    EXPECT_EQ("new", directory.Read("example.org.conf"));
    swap.Restore();
    EXPECT_EQ(before, SnapshotOf(path));
    EXPECT_EQ(names_before, Names());
    ::unlink(path.c_str());
  }
}

TEST_F(FileSwapTest, WhatWasReplacedIsGoneAfterDiscard) {
  for (const Occupant& occupant : kOccupants) {
    SCOPED_TRACE(occupant.name);
    occupant.set(path);
    FileSwap swap(path, "new", attrs);
    swap.Publish();
    swap.Discard();
    EXPECT_EQ("new", directory.Read("example.org.conf"));
    EXPECT_THAT(Names(), ElementsAre("example.org.conf"));
    ::unlink(path.c_str());
  }
}

TEST_F(FileSwapTest, ALinkAtThePlaceIsReplacedAndNotFollowed) {
  const std::string target = directory.Write("target", "untouched");
  fs::create_symlink(target, path);
  FileSwap swap(path, "new", attrs);
  swap.Publish();
  EXPECT_FALSE(fs::is_symlink(path));
  EXPECT_EQ("untouched", directory.Read("target"));
  swap.Restore();
  EXPECT_EQ(target, fs::read_symlink(path));
}

TEST_F(FileSwapTest, ALinkIsSwappedLikeAFile) {
  fs::create_symlink("/etc/old.crt", path);
  FileSwap swap(path, FileSwap::LinkTo{"/etc/new.crt"});
  EXPECT_EQ("/etc/old.crt", fs::read_symlink(path));
  swap.Publish();
  EXPECT_EQ("/etc/new.crt", fs::read_symlink(path));
  swap.Restore();
  EXPECT_EQ("/etc/old.crt", fs::read_symlink(path));
}

TEST_F(FileSwapTest, ADirectoryAtThePlaceIsRefused) {
  directory.Write("example.org.conf/inside", "x");
  {
    FileSwap swap(path, "new", attrs);
    EXPECT_EQ("file: " + path + ": rename: Is a directory", ErrorOf([&] { swap.Publish(); }));
  }
  EXPECT_EQ("x", directory.Read("example.org.conf/inside"));
  EXPECT_THAT(Names(), ElementsAre("example.org.conf"));
}

TEST_F(FileSwapTest, AMissingDirectoryIsNamedAtConstruction) {
  const std::string missing = directory / "none/example.org.conf";
  EXPECT_EQ("file: " + missing + ": open: No such file or directory",
            ErrorOf([&] { FileSwap(missing, "new", attrs); }));
  EXPECT_EQ("file: " + missing + ": symlink: No such file or directory",
            ErrorOf([&] { FileSwap(missing, FileSwap::LinkTo{"target"}); }));
}

TEST_F(FileSwapTest, WhatSomebodyElseChangedIsLeftAlone) {
  struct Case {
    const char* name;
    std::function<void()> change;
    std::optional<std::string> content;
  };
  const Case cases[] = {
      {"edited in place", [this] { directory.Write("example.org.conf", "theirs"); }, "theirs"},
      {"edited, with its old time",
       [this] {
         const auto time = fs::last_write_time(path);
         directory.Write("example.org.conf", "theirs");
         fs::last_write_time(path, time);
       },
       "theirs"},
      {"replaced", [this] { fs::rename(directory.Write("t", "theirs"), path); }, "theirs"},
      {"removed", [this] { fs::remove(path); }, std::nullopt},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    directory.Write("example.org.conf", "old");
    FileSwap swap(path, "ours", attrs);
    swap.Publish();
    c.change();
    EXPECT_EQ("file: " + path + ": not undone: changed since", ErrorOf([&] { swap.Restore(); }));
    if (c.content) {
      EXPECT_EQ(*c.content, directory.Read("example.org.conf"));
    }
    EXPECT_EQ(c.content.has_value(), fs::exists(path));
    EXPECT_EQ(c.content.has_value() ? 1U : 0U, Names().size()) << "the replaced one is given up";
  }
}

TEST_F(FileSwapTest, SwapsOfOnePathAreTakenBackOneByOne) {
  directory.Write("example.org.conf", "old");
  FileSwap first(path, "first", attrs);
  FileSwap second(path, "second", attrs);
  first.Publish();
  second.Publish();
  EXPECT_EQ("second", directory.Read("example.org.conf"));
  second.Restore();
  EXPECT_EQ("first", directory.Read("example.org.conf"));
  first.Restore();
  EXPECT_EQ("old", directory.Read("example.org.conf"));
  EXPECT_THAT(Names(), ElementsAre("example.org.conf"));
}

TEST_F(FileSwapTest, AReaderSeesTheOldFileOrTheNewOneWhole) {
  const std::string old(200000, 'o');
  const std::string fresh(100000, 'n');
  directory.Write("example.org.conf", old);
  std::atomic<bool> stop = false;
  std::atomic<int> torn = 0;
  std::thread reader([&] {
    while (!stop) {
      const std::string seen = support::ReadFile(path);
      torn += seen != old && seen != fresh ? 1 : 0;
    }
  });
  for (int i = 0; i < 200; ++i) {
    FileSwap swap(path, fresh, attrs);
    swap.Publish();
    swap.Restore();
  }
  stop = true;
  reader.join();
  EXPECT_EQ(0, torn);
}

TEST_F(FileSwapTest, APathWithoutDirectoryLiesInTheWorkingDirectory) {
  const fs::path before = fs::current_path();
  fs::current_path(directory.path());
  {
    FileSwap swap("plain", "new", attrs);
    swap.Publish();
  }
  fs::current_path(before);
  EXPECT_EQ("new", directory.Read("plain"));
}

// One change from its preparation to its end, as a job makes it.
void Replace(const std::string& path, const Attrs& attrs) {
  FileSwap swap(path, "new", attrs);
  swap.Publish();
  swap.Discard();
}

TEST_F(FileSwapTest, AnErrorAtAnyCallLeavesTheOldFileAndNothingElse) {
  for (const Occupant& occupant : kOccupants) {
    occupant.set(path);
    Snapshot before = SnapshotOf(path);
    const auto names_before = Names();
    std::size_t number = 1;
    for (bool finished = false; !finished; ++number) {
      SCOPED_TRACE(std::string(occupant.name) + ", call " + std::to_string(number));
      support::SysFault fault;
      fault.FailNumber(number, EIO, false);
      const std::string error = ErrorOf([&] { Replace(path, attrs); });
      finished = !fault.Failed();
      if (error != "nothing was thrown") {
        EXPECT_THAT(error, StartsWith("file: " + directory.path()));
        EXPECT_THAT(error, testing::HasSubstr("Input/output error"));
        EXPECT_EQ(before, SnapshotOf(path));
        EXPECT_EQ(names_before, Names());
      } else {
        EXPECT_EQ("new", directory.Read("example.org.conf"));
        RemoveAll();
        occupant.set(path);
        before = SnapshotOf(path);
      }
    }
    EXPECT_GT(number, 9U) << "too few calls have failed";
    RemoveAll();
  }
}

// An error at each call of the way back: the error tells where the old file is, if not in its
// place.
TEST_F(FileSwapTest, AnErrorOnTheWayBackLosesNothing) {
  std::size_t number = 1;
  for (bool finished = false; !finished; ++number) {
    SCOPED_TRACE(number);
    directory.Write("example.org.conf", "old");
    FileSwap swap(path, "new", attrs);
    swap.Publish();
    support::SysFault fault;
    fault.FailNumber(number, EIO, true);
    const std::string error = ErrorOf([&] { swap.Restore(); });
    finished = error == "nothing was thrown";
    if (directory.Read("example.org.conf") != "old") {
      const auto names = Names();
      ASSERT_EQ(2U, names.size());
      EXPECT_EQ("old", directory.Read(names[0]));
      EXPECT_THAT(error, testing::HasSubstr("the old one is " + directory / names[0]));
      fs::remove(directory / names[0]);
    }
  }
  EXPECT_EQ(6U, number) << "stat, rename, open and fsync have failed, then nothing";
}

// File systems without the flags of renameat2.
TEST_F(FileSwapTest, AFileSystemThatCantExchangeIsServedByLinkAndRename) {
  for (const Occupant& occupant : kOccupants) {
    SCOPED_TRACE(occupant.name);
    occupant.set(path);
    const Snapshot before = SnapshotOf(path);
    const auto names_before = Names();
    FileSwap swap(path, "new", attrs);
    {
      support::SysFault fault;
      // The call after the one that looks what is there.
      fault.FailNumber(2, EINVAL, false);
      swap.Publish();
      EXPECT_TRUE(fault.Failed());
    }
    EXPECT_EQ("new", directory.Read("example.org.conf"));
    swap.Restore();
    EXPECT_EQ(before, SnapshotOf(path));
    EXPECT_EQ(names_before, Names());
    ::unlink(path.c_str());
  }
}

TEST_F(FileSwapTest, ARenameThatFailsThereLeavesNothing) {
  directory.Write("example.org.conf", "old");
  {
    FileSwap swap(path, "new", attrs);
    support::SysFault fault;
    fault.FailCall("rename", EINVAL);
    EXPECT_EQ("file: " + path + ": rename: Invalid argument", ErrorOf([&] { swap.Publish(); }));
  }
  EXPECT_EQ("old", directory.Read("example.org.conf"));
  EXPECT_THAT(Names(), ElementsAre("example.org.conf"));
}

TEST_F(FileSwapTest, WhatIsPutInPlaceIsDurableBeforeAndAfter) {
  std::vector<std::string> calls;
  support::SysFault fault;
  fault.OnCall([&calls](std::string_view call, std::size_t) {
    if (call == "write" || call == "fsync" || call == "rename") {
      calls.emplace_back(call);
    }
  });
  FileSwap swap(path, "new", attrs);
  swap.Publish();
  EXPECT_THAT(calls, ElementsAre("write", "fsync", "rename", "rename", "fsync"));
  calls.clear();
  directory.Write("example.org.conf", "old");
  FileSwap second(path, "newer", attrs);
  second.Publish();
  second.Restore();
  EXPECT_THAT(calls, ElementsAre("write", "fsync", "rename", "fsync", "rename", "fsync"));
}

TEST_F(FileSwapTest, ShortWritesAreContinued) {
  support::SysFault fault;
  fault.CutWrites(3);
  FileSwap swap(path, "0123456789", attrs);
  swap.Publish();
  EXPECT_EQ("0123456789", directory.Read("example.org.conf"));
}

}  // namespace
