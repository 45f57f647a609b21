#include "framework/safe_replace.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "framework/descriptor.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"
#include "tests/unit/framework/conf_fixture.h"

namespace {

using conf_fixture::ErrorOf;
using safe_replace::Replacement;
using safe_replace::Target;
using Outcome = Replacement::Outcome;

std::vector<std::string> FilesIn(const std::string& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename());
  }
  std::sort(names.begin(), names.end());
  return names;
}

class SafeReplaceTest : public ::testing::Test {
 protected:
  /// Replaces the file by `content`, from what it is now.
  Outcome Replace(const std::vector<std::string_view>& content) {
    const Target target = Target::Resolve(path_);
    struct stat info {};
    const Descriptor old = OpenRegular(target.directory.get(), target.name, path_, info);
    const ConfStamp stamp = old ? ConfStamp::Of(info) : ConfStamp{};
    Replacement fresh(target, Replacement::Slot::kFirst, old.get(), info);
    fresh.Write(content);
    fresh.Seal(stamp);
    if (before_publish_) before_publish_();
    return fresh.Publish(stamp);
  }
  std::string Content() const { return support::ReadFile(path_); }

  support::TempDir folder_;
  const std::string path_ = folder_ / "users";
  std::function<void()> before_publish_;
};

TEST_F(SafeReplaceTest, TheFileIsReplacedAsAWholeAndNothingElseIsLeft) {
  folder_.Write("users", "old");
  const ConfStamp before = StampAt(path_);
  EXPECT_EQ(Replace({"new ", "", "content"}), Outcome::kExchanged);
  EXPECT_EQ(Content(), "new content");
  EXPECT_NE(StampAt(path_).inode, before.inode);
  EXPECT_EQ(FilesIn(folder_.path()), std::vector<std::string>{"users"});
}

TEST_F(SafeReplaceTest, AFileThatWasNotThereIsMade) {
  EXPECT_EQ(Replace({"new"}), Outcome::kDone);
  EXPECT_EQ(Content(), "new");
  EXPECT_EQ(FilesIn(folder_.path()), std::vector<std::string>{"users"});
}

TEST_F(SafeReplaceTest, ManyPiecesAndShortWritesGiveTheSameContent) {
  std::vector<std::string_view> pieces(5000, "0123456789");
  std::string want;
  for (const std::string_view piece : pieces) want += piece;
  const std::string large(std::size_t{9} << 20, 'x');
  pieces.emplace_back(large);
  want += large;
  EXPECT_EQ(Replace(pieces), Outcome::kDone);
  EXPECT_EQ(Content(), want);
  support::SysFault fault;
  fault.CutWrites(7);
  EXPECT_EQ(Replace({"some content, and more", "of it"}), Outcome::kExchanged);
  EXPECT_EQ(Content(), "some content, and moreof it");
}

TEST_F(SafeReplaceTest, EachReplacementMovesTheTimeOnByAWholeSecond) {
  folder_.Write("users", "old");
  std::int64_t last = StampAt(path_).modified / 1'000'000'000;
  for (const char* content : {"new", "old", "longer", "new"}) {
    SCOPED_TRACE(content);
    ASSERT_EQ(Replace({content}), Outcome::kExchanged);
    const std::int64_t now = StampAt(path_).modified / 1'000'000'000;
    EXPECT_GT(now, last);
    last = now;
  }
}

TEST_F(SafeReplaceTest, TheTimeMovesOnFromAFileOfTheFutureToo) {
  folder_.Write("users", "old");
  const struct timespec times[2] = {{4'000'000'000, 0}, {4'000'000'000, 999'999'999}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path_.c_str(), times, 0), 0);
  ASSERT_EQ(Replace({"new"}), Outcome::kExchanged);
  EXPECT_EQ(StampAt(path_).modified / 1'000'000'000, 4'000'000'001);
}

TEST_F(SafeReplaceTest, LinksAreFollowedAndKept) {
  folder_.MakeFolder("real");
  folder_.Write("real/file", "old");
  ASSERT_EQ(::symlink("real/next", path_.c_str()), 0);
  ASSERT_EQ(::symlink("file", (folder_ / "real/next").c_str()), 0);
  EXPECT_EQ(Replace({"new"}), Outcome::kExchanged);
  EXPECT_EQ(folder_.Read("real/file"), "new");
  EXPECT_EQ(std::filesystem::read_symlink(path_), "real/next");
  EXPECT_EQ(FilesIn(folder_ / "real"), (std::vector<std::string>{"file", "next"}));
}

TEST_F(SafeReplaceTest, ALinkThatLeadsNowhereGetsItsFile) {
  ASSERT_EQ(::symlink((folder_ / "real").c_str(), path_.c_str()), 0);
  EXPECT_EQ(Replace({"new"}), Outcome::kDone);
  EXPECT_EQ(folder_.Read("real"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
}

TEST_F(SafeReplaceTest, LinksInACircleAreRefused) {
  ASSERT_EQ(::symlink("users", path_.c_str()), 0);
  EXPECT_EQ(ErrorOf([this] { Target::Resolve(path_); }),
            "file: " + path_ + ": readlink: Too many levels of symbolic links");
}

TEST_F(SafeReplaceTest, PlacesThatAreNotSafeAreRefused) {
  folder_.Write("users", "old");
  ASSERT_EQ(::link(path_.c_str(), (folder_ / "second").c_str()), 0);
  EXPECT_NE(ErrorOf([this] { Replace({"new"}); }).find("hard links"), std::string::npos);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0777), 0);
  EXPECT_NE(ErrorOf([this] { Replace({"new"}); }).find("unsafe permissions"), std::string::npos);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 01777), 0);
  ASSERT_EQ(::unlink((folder_ / "second").c_str()), 0);
  EXPECT_EQ(Replace({"new"}), Outcome::kExchanged);
  ASSERT_EQ(::chmod(folder_.path().c_str(), 0700), 0);
}

TEST_F(SafeReplaceTest, AFileThatCameOrWentIsNotReplaced) {
  before_publish_ = [this] { folder_.Write("users", "theirs"); };
  EXPECT_EQ(Replace({"new"}), Outcome::kChanged);
  EXPECT_EQ(Content(), "theirs");
  before_publish_ = [this] { ::unlink(path_.c_str()); };
  EXPECT_EQ(Replace({"new"}), Outcome::kChanged);
  EXPECT_EQ(FilesIn(folder_.path()), std::vector<std::string>{});
}

TEST_F(SafeReplaceTest, WhereNothingCanBeExchangedTheFileIsRenamed) {
  folder_.Write("users", "old");
  const auto without_exchange = [](support::SysFault& fault) {
    fault.OnCall([&fault, renames = 0](std::string_view call, std::size_t) mutable {
      if (call == "rename") fault.FailCall("rename", renames++ == 0 ? EINVAL : 0);
    });
  };
  {
    support::SysFault fault;
    without_exchange(fault);
    EXPECT_EQ(Replace({"new"}), Outcome::kDone);
    EXPECT_TRUE(fault.Failed());
  }
  EXPECT_EQ(Content(), "new");
  support::SysFault fault;
  without_exchange(fault);
  before_publish_ = [this] { folder_.Write("users", "theirs"); };
  EXPECT_EQ(Replace({"newer"}), Outcome::kChanged);
  EXPECT_EQ(Content(), "theirs");
  EXPECT_EQ(FilesIn(folder_.path()), std::vector<std::string>{"users"});
}

TEST_F(SafeReplaceTest, AnErrorLeavesTheOldFileAndNoTemporary) {
  folder_.Write("users", "old");
  for (const char* call : {"open", "fstat", "write", "futimens", "fsync", "rename", "fchmod"}) {
    SCOPED_TRACE(call);
    support::SysFault fault;
    fault.FailCall(call, EIO);
    const std::string error = ErrorOf([this] { Replace({"new"}); });
    EXPECT_NE(error.find(std::string(call) + ": Input/output error"), std::string::npos) << error;
    EXPECT_EQ(Content(), "old");
    EXPECT_EQ(FilesIn(folder_.path()), std::vector<std::string>{"users"});
  }
}

TEST_F(SafeReplaceTest, TheLimitOfFileSizesIsAnErrorAndNotTheEnd) {
  folder_.Write("users", "old");
  struct rlimit before {};
  ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &before), 0);
  const struct rlimit small = {100, before.rlim_max};
  const std::string large(1000, 'x');
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &small), 0);
  const std::string error = ErrorOf([&] { Replace({large}); });
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &before), 0);
  EXPECT_NE(error.find("write: File too large"), std::string::npos) << error;
  EXPECT_EQ(Content(), "old");
}

TEST_F(SafeReplaceTest, AnExchangeCanBeTakenBack) {
  folder_.Write("users", "old");
  const Target target = Target::Resolve(path_);
  {
    struct stat info {};
    const Descriptor old = OpenRegular(target.directory.get(), "users", path_, info);
    Replacement fresh(target, Replacement::Slot::kSecond, old.get(), info);
    fresh.Write({"new"});
    ASSERT_EQ(fresh.Publish(ConfStamp::Of(info)), Outcome::kExchanged);
    EXPECT_EQ(Content(), "new");
    EXPECT_EQ(folder_.Read(fresh.name()), "old");
    fresh.TakeBack();
  }
  EXPECT_EQ(Content(), "old");
  EXPECT_EQ(FilesIn(folder_.path()), std::vector<std::string>{"users"});
}

TEST_F(SafeReplaceTest, LeftoversAreRemovedOrKeptAside) {
  const Target target = Target::Resolve(path_);
  safe_replace::Sweep(target, Replacement::Slot::kFirst);
  folder_.Write(safe_replace::TemporaryName("users", Replacement::Slot::kFirst), "left");
  folder_.Write(safe_replace::TemporaryName("users", Replacement::Slot::kSecond), "edit");
  folder_.Write("users.edited-1", "older");
  safe_replace::Sweep(target, Replacement::Slot::kFirst);
  EXPECT_EQ(safe_replace::KeepAside(target, Replacement::Slot::kSecond),
            folder_ / "users.edited-2");
  EXPECT_EQ(FilesIn(folder_.path()),
            (std::vector<std::string>{"users.edited-1", "users.edited-2"}));
  EXPECT_EQ(folder_.Read("users.edited-2"), "edit");
}

TEST_F(SafeReplaceTest, ADirectoryThatCannotBeSyncedLeavesTheChangeInDoubt) {
  const Target target = Target::Resolve(path_);
  support::SysFault fault;
  fault.FailCall("fsync", EIO);
  EXPECT_EQ(ErrorOf([&] { safe_replace::SyncDirectory(target); }),
            "doubt: " + path_ +
                ": was changed, but the change may be lost on a power failure: fsync of " +
                folder_.path() + ": Input/output error");
  fault.FailCall("fsync", EINVAL);
  safe_replace::SyncDirectory(target);
}

}  // namespace
