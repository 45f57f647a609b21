#include "framework/file_access.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

using file_access::Access;
using file_access::Place;

class FileAccess : public testing::Test {
 protected:
  FileAccess() { Plant({0644, 0, 0}); }

  void Plant(const Access& access) const {
    EXPECT_EQ(0, ::chown(file_.c_str(), access.uid, access.gid));
    EXPECT_EQ(0, ::chmod(file_.c_str(), access.mode));
  }
  static std::string ErrorOf(const std::function<void()>& work) {
    try {
      work();
    } catch (const mgr_err::Error& error) {
      return error.object() + ": " + error.value();
    }
    return "none";
  }

  support::TempDir dir_;
  const std::string file_ = dir_.Write("file", "");
  const Place place_{file_};
  const Access from_{0644, 0, 0};
  const Access to_{0600, 5000, 5001};
};

TEST_F(FileAccess, IsChangedWholeAndTakenBack) {
  file_access::Change(place_, from_, to_);
  EXPECT_EQ(to_, file_access::Of(place_));
  EXPECT_TRUE(file_access::Undo(file_access::ToStep(place_, from_, to_)));
  EXPECT_EQ(from_, file_access::Of(place_));
  EXPECT_TRUE(file_access::Undo(file_access::ToStep(place_, from_, to_))) << "as it was";
}

// A process may die between the calls, and somebody else may come before the recovery.
TEST_F(FileAccess, WhatADeadProcessLeftIsTakenBackAndWhatOthersDidIsNot) {
  const struct {
    const char* name;
    Access from, to, found;
    bool undone;
  } cases[] = {
      {"nothing", from_, to_, from_, true},
      {"the owner alone", from_, to_, {0644, 5000, 5001}, true},
      {"all", from_, to_, to_, true},
      {"bits that went with the owner", {06755, 0, 0}, {0700, 1, 1}, {0755, 1, 1}, true},
      {"another mode", from_, to_, {0640, 5000, 5001}, false},
      {"another owner", from_, to_, {0600, 6000, 5001}, false},
      {"another group", from_, to_, {0600, 5000, 6000}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Plant(c.found);
    EXPECT_EQ(c.undone, file_access::Undo(file_access::ToStep(place_, c.from, c.to)));
    EXPECT_EQ(c.undone ? c.from : c.found, file_access::Of(place_));
  }
}

TEST_F(FileAccess, WhatSomebodyHasChangedMeanwhileIsNotChanged) {
  Plant({0440, 0, 0});
  EXPECT_EQ(file_ + ": not undone: changed since",
            ErrorOf([&] { file_access::Change(place_, from_, to_); }));
  EXPECT_EQ((Access{0440, 0, 0}), file_access::Of(place_));
}

TEST_F(FileAccess, WhatIsGoneStaysGone) {
  std::filesystem::remove(file_);
  EXPECT_FALSE(file_access::Undo(file_access::ToStep(place_, from_, to_)));
  EXPECT_FALSE(std::filesystem::exists(file_));
}

TEST_F(FileAccess, ALinkIsNotFollowed) {
  std::filesystem::create_symlink(file_, dir_ / "link");
  const Place link{dir_ / "link"};
  EXPECT_NE("none", ErrorOf([&] { file_access::Change(link, from_, to_); }));
  EXPECT_NE("none", ErrorOf([&] { file_access::Undo(file_access::ToStep(link, to_, from_)); }));
  EXPECT_EQ(from_, file_access::Of(place_));
}

TEST_F(FileAccess, AUsersFolderIsReachedOnTheSafeWayByItsStepToo) {
  const std::string folder = dir_.MakeFolder("home/mail");
  ASSERT_EQ(0, ::chown(folder.c_str(), 1001, 1001));
  const Place place{folder, mgr_file::safe::Folder(dir_ / "home", folder, 1001, 1001)};
  const Access before = file_access::Of(place);
  const Access shut{0700, 1001, 1001};
  const journal::Step step = file_access::ToStep(place, before, shut);
  file_access::Change(place, before, shut);
  std::filesystem::rename(folder, dir_ / "home/moved");
  std::filesystem::create_symlink("moved", folder);
  EXPECT_EQ(folder + ": not safe: is a symbolic link", ErrorOf([&] { file_access::Undo(step); }));
  std::filesystem::remove(folder);
  std::filesystem::rename(dir_ / "home/moved", folder);
  EXPECT_TRUE(file_access::Undo(step));
  EXPECT_EQ(before, file_access::Of(place));
}

TEST_F(FileAccess, ARefusalAtAnyCallLeavesItAsItWas) {
  std::size_t refused = 0;
  for (std::size_t number = 1; number < 100; ++number) {
    SCOPED_TRACE(number);
    Plant(from_);
    std::string error;
    {
      support::SysFault fault;
      fault.FailNumber(number, EIO, false);
      error = ErrorOf([&] { file_access::Change(place_, from_, to_); });
      if (!fault.Failed()) {
        break;
      }
    }
    ++refused;
    EXPECT_EQ(0u, error.find(file_)) << error;
    EXPECT_EQ(from_, file_access::Of(place_));
  }
  EXPECT_EQ(5u, refused) << "open, stat, chown, chmod and fsync";
}

}  // namespace
