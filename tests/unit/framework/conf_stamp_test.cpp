#include "framework/conf_stamp.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>

#include "framework/descriptor.h"
#include "framework/local_file.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;

class ConfStampTest : public ::testing::Test {
 protected:
  ConfContent Read() const { return ReadAt(AT_FDCWD, path_, path_); }

  support::TempDir folder_;
  const std::string path_ = folder_ / "file";
};

TEST_F(ConfStampTest, ChangesWithEveryKindOfChange) {
  folder_.Write("file", "abc");
  const ConfStamp before = StampAt(path_);
  EXPECT_EQ(before, StampAt(path_));
  EXPECT_TRUE(before.exists);
  EXPECT_EQ(before.size, 3);
  folder_.Write("other", "abc");
  ASSERT_EQ(::rename((folder_ / "other").c_str(), path_.c_str()), 0);
  const ConfStamp replaced = StampAt(path_);
  EXPECT_NE(replaced, before);
  ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
  const struct timespec times[2] = {{1, 0}, {1, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
  EXPECT_NE(StampAt(path_), replaced);
  ASSERT_EQ(::unlink(path_.c_str()), 0);
  EXPECT_EQ(StampAt(path_), ConfStamp{});
}

TEST_F(ConfStampTest, ARenamingIsNoChangeOfContent) {
  folder_.Write("file", "abc");
  const ConfStamp before = StampAt(path_);
  ASSERT_EQ(::rename(path_.c_str(), (folder_ / "other").c_str()), 0);
  ConfStamp after = StampAt(folder_ / "other");
  after.changed += 1;
  EXPECT_NE(after, before);
  EXPECT_TRUE(after.SameContentAs(before));
  after.modified += 1;
  EXPECT_FALSE(after.SameContentAs(before));
}

TEST_F(ConfStampTest, ReadsTheWholeFileWithItsStamp) {
  for (const std::size_t size : {1UL, 4096UL, 100000UL}) {
    SCOPED_TRACE(size);
    folder_.Write("file", std::string(size, 'x'));
    const ConfContent content = Read();
    ASSERT_TRUE(content.bytes);
    EXPECT_EQ(content.bytes->View(), std::string(size, 'x'));
    EXPECT_EQ(content.stamp, StampAt(path_));
  }
}

TEST(ConfStampIsSettled, WhenALaterChangeMustShow) {
  constexpr std::int64_t kMs = 1'000'000;
  constexpr std::int64_t kSecond = 1000 * kMs;
  constexpr std::int64_t kNow = 1'795'312'447 * kSecond + 572 * kMs + 744'123;
  struct {
    const char* name;
    std::int64_t changed;
    bool settled;
  } const cases[] = {
      {"long ago", kNow - 5 * kSecond, true},
      {"one step of the clock ago", kNow - kMs, true},
      {"within this step", kNow, false},
      {"by a finer clock, within this step", kNow + 3 * kMs + 1, false},
      {"by a clock that is ahead", kNow + kSecond + 1, false},
      {"a clock that was set back since", kNow + 2 * kSecond + 1, true},
      {"microseconds kept, within this step", kNow / 1000 * 1000, false},
      {"microseconds kept, a step ago", (kNow - kMs) / 1000 * 1000, true},
      {"milliseconds kept, within this step", kNow / kMs * kMs, false},
      {"milliseconds kept, the one before", kNow / kMs * kMs - kMs, true},
      {"seconds kept, this one", kNow / kSecond * kSecond, false},
      {"even seconds kept, this one", kNow / (2 * kSecond) * 2 * kSecond, false},
      {"even seconds kept, the one before", (kNow / (2 * kSecond) - 1) * 2 * kSecond, true},
  };
  for (const auto& [name, changed, settled] : cases) {
    SCOPED_TRACE(name);
    ConfStamp stamp;
    stamp.changed = changed;
    EXPECT_EQ(IsSettled(stamp, kNow), settled);
  }
}

TEST_F(ConfStampTest, AFileThatWasChangedAtThisMomentIsNotSettled) {
  // Both may lie on different sides of a step of the clock, but not every time.
  bool settled = true;
  for (int tries = 0; tries < 1000 && settled; ++tries) {
    folder_.Write("file", std::to_string(tries));
    settled = Read().settled;
  }
  EXPECT_FALSE(settled);
}

TEST_F(ConfStampTest, AnEmptyFileCountsOnceItHasRested) {
  folder_.Write("file", "");
  // What is waited for is the file's age itself.
  std::this_thread::sleep_for(std::chrono::milliseconds(120));
  const ConfContent content = Read();
  ASSERT_TRUE(content.bytes);
  EXPECT_EQ(content.bytes->size(), 0U);
}

class LargeFileTest : public ConfStampTest, public ::testing::WithParamInterface<bool> {};

INSTANTIATE_TEST_SUITE_P(MappedOrRead, LargeFileTest, ::testing::Bool());

// It is mapped; where that can't be done two threads read.
TEST_P(LargeFileTest, IsHadWhole) {
  std::string text;
  for (int line = 0; text.size() < (std::size_t{9} << 20); ++line) {
    text += std::to_string(line) + ":text\n";
  }
  folder_.Write("file", text);
  support::SysFault fault;
  if (!GetParam()) fault.FailCall("fcntl", EINVAL);
  ConfContent content = Read();
  while (!content.bytes) content = Read();
  const bool mapped = GetParam() && !conf_fixture::IsNeverMapped(folder_.path());
  EXPECT_EQ(content.bytes->mapping() != nullptr, mapped);
  EXPECT_TRUE(content.bytes->View() == text);
  EXPECT_EQ(content.stamp, StampAt(path_));
}

TEST_F(ConfStampTest, AFileThatHasRestedIsSettled) {
  folder_.Write("file", "abc");
  // Of file systems of this machine; what is waited for is the file's age itself.
  while (!IsSettled(StampAt(path_), FileClock())) std::this_thread::yield();
  const Descriptor file(::open(path_.c_str(), O_RDONLY));
  if (!IsLocalFile(file.get())) std::this_thread::sleep_for(std::chrono::milliseconds(30));
  EXPECT_TRUE(Read().settled);
}

TEST_F(ConfStampTest, AMissingFileIsEmpty) {
  const ConfContent content = Read();
  ASSERT_TRUE(content.bytes);
  EXPECT_EQ(content.bytes->size(), 0U);
  EXPECT_FALSE(content.stamp.exists);
}

TEST_F(ConfStampTest, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
  ASSERT_EQ(::mkfifo((folder_ / "fifo").c_str(), 0600), 0);
  folder_.MakeFolder("folder");
  const struct {
    std::string path;
    const char* kind;
  } cases[] = {
      {folder_ / "fifo", "a FIFO"}, {folder_ / "folder", "a directory"}, {"/dev/null", "a device"}};
  for (const auto& item : cases) {
    EXPECT_EQ(ErrorOf([&] { ReadAt(AT_FDCWD, item.path, item.path); }),
              "file: " + item.path + ": not a regular file but " + item.kind +
                  "; put the file there or set another path");
  }
}

TEST_F(ConfStampTest, AFileThatIsOpenForWritingIsNotRead) {
  folder_.Write("file", "abc");
  {
    const Descriptor writer(::open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_FALSE(Read().bytes);
  }
  EXPECT_TRUE(Read().bytes);
}

// A write has its time when it begins, and may end long after.
TEST_F(ConfStampTest, NobodyBeginsToWriteWhileItIsReadUnnoticed) {
  folder_.Write("file", "abc");
  while (!Read().settled) std::this_thread::yield();
  support::SysFault watch;
  int opened = 0;
  watch.OnCall([&](std::string_view call, std::size_t) {
    if (call == "read") opened = ::open(path_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  });
  const ConfContent content = Read();
  EXPECT_EQ(opened, -1) << "a writer was let in";
  ASSERT_TRUE(content.bytes);
  EXPECT_FALSE(content.settled);
}

TEST_F(ConfStampTest, WithoutLeasesAFreshlyChangedFileMayBeBeingWritten) {
  folder_.Write("file", "abc");
  support::SysFault fault;
  fault.FailCall("fcntl", EINVAL);
  EXPECT_FALSE(Read().bytes);
  while (!Read().bytes) std::this_thread::yield();
  EXPECT_EQ(Read().bytes->View(), "abc");
}

TEST_F(ConfStampTest, AFileThatChangesWhileItIsReadIsNotTaken) {
  folder_.Write("file", "abc");
  support::SysFault fault;
  fault.FailCall("fcntl", EINVAL);
  fault.OnCall([&](std::string_view call, std::size_t) {
    if (call == "read") folder_.Write("file", "abcdef");
  });
  const Descriptor file(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  EXPECT_FALSE(ReadContent(file.get(), path_).bytes);
}

TEST_F(ConfStampTest, ErrorsNameTheCallAndThePath) {
  folder_.Write("file", "abc");
  for (const char* call : {"stat", "open", "fstat", "read"}) {
    SCOPED_TRACE(call);
    support::SysFault fault;
    fault.FailCall(call, EIO);
    EXPECT_EQ(ErrorOf([&] { Read(); }), "file: " + path_ + ": " + call + ": Input/output error");
  }
}

}  // namespace
