#include "panel/mend_jobs.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <filesystem>

#include "framework/journal.h"
#include "framework/rehearsal.h"
#include "framework/request.h"
#include "tests/unit/panel/panel_fixture.h"

namespace brisq_panel {
namespace {

using panel_test::ErrorOf;
using testing::ElementsAre;

class MendJobsTest : public panel_test::PanelTest {
 protected:
  static struct stat StateOf(const std::string& path) {
    struct stat state {};
    EXPECT_EQ(0, ::lstat(path.c_str(), &state)) << path;
    return state;
  }
  static mode_t ModeOf(const std::string& path) { return StateOf(path).st_mode & 07777; }

  // Does the jobs that `queue` makes; with `fails` the request fails behind them.
  static void Do(const std::function<void()>& queue, const std::function<void()>& fails = {}) {
    Request request("test");
    queue();
    if (fails) {
      new ClearAway("x", "", fails);
    }
    request.Commit();
  }
};

TEST_F(MendJobsTest, AccessIsSetAndTakenBack) {
  const std::string path = dir_.Write("file", "");
  ASSERT_EQ(0, ::chmod(path.c_str(), 0644));
  Do([&] { new SetAccess(path, 0600, 5, 6); });
  EXPECT_EQ(0600u, ModeOf(path));
  EXPECT_EQ(5u, StateOf(path).st_uid);
  EXPECT_EQ(6u, StateOf(path).st_gid);
  ErrorOf([&] {
    Do([&] { new SetAccess(path, 0640, 7); },
       [] { throw mgr_err::Error("db", "database", "full"); });
  });
  EXPECT_EQ(0600u, ModeOf(path));
  EXPECT_EQ(5u, StateOf(path).st_uid);
}

TEST_F(MendJobsTest, TheStepIsNotedBeforeItIsTaken) {
  const std::string path = dir_.Write("file", "");
  ASSERT_EQ(0, ::chmod(path.c_str(), 0644));
  journal::SetFolder(dir_ / "journal");
  std::vector<std::string> steps;
  Do([&] {
    new SetAccess(path, 0600);
    new ClearAway("x", "", [&] { steps = journal::OpenEntries().at(0).steps; });
  });
  journal::SetFolder("");
  EXPECT_THAT(steps, ElementsAre("mode of " + path + " set to 0600"));
}

TEST_F(MendJobsTest, WhatSomebodyChangedMeanwhileIsLeftAlone) {
  const std::string path = dir_.Write("file", "");
  ErrorOf([&] {
    Do([&] { new SetAccess(path, 0600); },
       [&] {
         ::chmod(path.c_str(), 0440);
         throw mgr_err::Error("db", "database", "full");
       });
  });
  EXPECT_EQ(0440u, ModeOf(path));
  log_.ExpectError("not undone: changed since");
}

TEST_F(MendJobsTest, ALinkIsNotFollowed) {
  const std::string path = dir_.Write("file", "");
  ASSERT_EQ(0, ::chmod(path.c_str(), 0644));
  std::filesystem::create_symlink(path, dir_ / "link");
  EXPECT_EQ("file", ErrorOf([&] { Do([&] { new SetAccess(dir_ / "link", 0600); }); }).type());
  EXPECT_EQ(0644u, ModeOf(path));
}

TEST_F(MendJobsTest, AUsersFolderGetsItsModeOnASafeWay) {
  const std::string folder = dir_.MakeFolder("home/mail");
  ASSERT_EQ(0, ::chown(folder.c_str(), 1001, 1001));
  ASSERT_EQ(0, ::chmod(folder.c_str(), 0755));
  const mgr_file::safe::Folder safe(dir_ / "home", folder, 1001, 1001);
  ErrorOf([&] {
    Do([&] { new SetAccess(safe, 0700); }, [] { throw mgr_err::Error("db", "database", "full"); });
  });
  EXPECT_EQ(0755u, ModeOf(folder)) << "taken back";
  Do([&] { new SetAccess(safe, 0700); });
  EXPECT_EQ(0700u, ModeOf(folder));

  std::filesystem::rename(folder, dir_ / "home/moved");
  std::filesystem::create_symlink("moved", folder);
  EXPECT_EQ("file", ErrorOf([&] { Do([&] { new SetAccess(safe, 0777); }); }).type());
  EXPECT_EQ(0700u, ModeOf(dir_ / "home/moved"));
}

TEST_F(MendJobsTest, ADryRunTellsWhatTheyWouldDo) {
  const std::string path = dir_.Write("file", "");
  const mode_t before = ModeOf(path);
  const Rehearsal rehearsal;
  Do([&] {
    new SetAccess(path, 0600);
    new SetAccess(mgr_file::safe::Folder(dir_.path(), dir_.path(), 0, 0), 0700);
    new ClearAway(path, "garbage removed", [&] { std::filesystem::remove(path); });
  });
  EXPECT_EQ(before, ModeOf(path));
  EXPECT_THAT(rehearsal.effects(),
              ElementsAre("mode of " + path + " set to 0600",
                          "mode of " + dir_.path() + " set to 0700", "garbage removed"));
}

}  // namespace
}  // namespace brisq_panel
