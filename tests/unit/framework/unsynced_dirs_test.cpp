#include "framework/unsynced_dirs.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

class UnsyncedDirsTest : public testing::Test {
 protected:
  UnsyncedDirsTest() {
    watch_.OnCall(
        [this](std::string_view call, std::size_t) { syncs_ += call == "fsync" ? 1 : 0; });
  }

  void Add(const std::string& path) {
    const Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(directory);
    dirs_.Add(directory.get(), path);
  }

  static std::size_t OpenDescriptors() {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(entries, {}));
  }

  support::TempDir dir_;
  int syncs_ = 0;
  support::SysFault watch_;
  UnsyncedDirs dirs_;
};

TEST_F(UnsyncedDirsTest, EachIsSyncedOnceHoweverOftenItIsAdded) {
  const std::string a = dir_.MakeFolder("a");
  const std::string b = dir_.MakeFolder("b");
  for (const std::string& path : {a, b, a, dir_ / "b/../a"}) Add(path);
  EXPECT_EQ(0, syncs_);
  dirs_.Sync();
  EXPECT_EQ(2, syncs_);
  dirs_.Sync();
  EXPECT_EQ(2, syncs_);
}

TEST_F(UnsyncedDirsTest, ClearedOnesAreNotSynced) {
  Add(dir_.MakeFolder("a"));
  dirs_.Clear();
  dirs_.Sync();
  EXPECT_EQ(0, syncs_);
}

TEST_F(UnsyncedDirsTest, ManyDoNotTakeAllDescriptors) {
  const std::size_t before = OpenDescriptors();
  for (std::size_t i = 0; i < UnsyncedDirs::kMost; ++i) {
    EXPECT_EQ(0, syncs_);
    Add(dir_.MakeFolder(std::to_string(i)));
  }
  EXPECT_EQ(static_cast<int>(UnsyncedDirs::kMost), syncs_);
  EXPECT_EQ(before, OpenDescriptors());
}

TEST_F(UnsyncedDirsTest, AFailureNamesTheDirectoryAndLeavesNothingOpen) {
  const std::size_t before = OpenDescriptors();
  const std::string path = dir_.MakeFolder("a");
  Add(path);
  watch_.FailCall("fsync", EIO);
  try {
    dirs_.Sync();
    FAIL();
  } catch (const mgr_err::Error& error) {
    EXPECT_EQ("file", error.type());
    EXPECT_EQ(path, error.object());
  }
  EXPECT_EQ(before, OpenDescriptors());
  watch_.FailCall("fsync", 0);
  const int syncs = syncs_;
  dirs_.Sync();
  EXPECT_EQ(syncs, syncs_);
}

TEST_F(UnsyncedDirsTest, WithoutADescriptorForItItIsRefused) {
  for (const char* call : {"fstat", "fcntl"}) {
    SCOPED_TRACE(call);
    watch_.FailCall(call, EMFILE);
    EXPECT_THROW(Add(dir_.path()), mgr_err::Error);
    EXPECT_TRUE(watch_.Failed());
  }
}

}  // namespace
