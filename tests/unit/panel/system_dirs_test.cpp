#include "panel/system_dirs.h"

#include <sys/stat.h>

#include <cerrno>
#include <filesystem>

#include "framework/journal.h"
#include "framework/request.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::MakeDirectories;
using testing::ElementsAre;
using testing::IsEmpty;

class SystemDirs : public testing::Test {
 protected:
  std::vector<std::string> Make(const std::string& path) {
    return MakeDirectories(path, mgr_file::Attrs(0755, 0, 0), mgr_file::Attrs(0700, 7, 8));
  }
  static mode_t ModeOf(const std::string& path) {
    struct stat state {};
    EXPECT_EQ(0, ::stat(path.c_str(), &state)) << path;
    return state.st_mode & 07777u;
  }

  support::TempDir dir_;
};

TEST_F(SystemDirs, MissingDirectoriesAreMadeAndListedOutermostFirst) {
  EXPECT_THAT(Make(dir_ / "a/b/c"), ElementsAre(dir_ / "a", dir_ / "a/b", dir_ / "a/b/c"));
  EXPECT_EQ(0755u, ModeOf(dir_ / "a"));
  EXPECT_EQ(0755u, ModeOf(dir_ / "a/b"));
  EXPECT_EQ(0700u, ModeOf(dir_ / "a/b/c"));
}

TEST_F(SystemDirs, WhatIsThereIsLeftAsItIs) {
  dir_.MakeFolder("a");
  ::chmod((dir_ / "a").c_str(), 0711);
  EXPECT_THAT(Make(dir_ / "a"), IsEmpty());
  EXPECT_EQ(0711u, ModeOf(dir_ / "a"));
}

TEST_F(SystemDirs, AFailureLeavesNothing) {
  dir_.MakeFolder("a");
  // The last name is longer than a file system takes; its parents are made first.
  const auto error = panel_test::ErrorOf([&] { Make(dir_ / ("a/b/c/" + std::string(300, 'x'))); });
  EXPECT_EQ("file", error.type());
  EXPECT_FALSE(std::filesystem::exists(dir_ / "a/b"));
  EXPECT_TRUE(std::filesystem::exists(dir_ / "a"));
}

TEST_F(SystemDirs, RemovingStopsAtWhatIsNotEmpty) {
  const auto made = Make(dir_ / "a/b/c");
  dir_.Write("a/kept", "");
  brisq_panel::RemoveDirectories(made);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "a/b"));
  EXPECT_TRUE(std::filesystem::exists(dir_ / "a/kept"));
}

TEST_F(SystemDirs, WhatCantBeRemovedIsLeftToARecovery) {
  journal::SetFolder(dir_ / "journal");
  for (const int error : {0, EIO}) {
    SCOPED_TRACE(error);
    {
      Request request("fails");
      request.NoteSteps(brisq_panel::StepsOfMaking(dir_ / "a"));
      const auto made = Make(dir_ / "a");
      support::SysFault fault;
      fault.FailCall("rmdir", error);
      brisq_panel::RemoveDirectories(made);
    }
    EXPECT_EQ(error != 0, journal::HasDead());
  }
  journal::SetFolder("");
}

}  // namespace
