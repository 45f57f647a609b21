#include "panel/refresh_lock.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::RefreshLock;

class RefreshLockTest : public testing::Test {
 protected:
  RefreshLockTest() { RefreshLock::SetFolder(dir_.path()); }
  static std::string Try() {
    return panel_test::TextOf([] { RefreshLock lock; });
  }
  support::TempDir dir_;
};

TEST_F(RefreshLockTest, OneHoldsItAtATime) {
  {
    const RefreshLock lock;
    EXPECT_EQ("locked: refresh: another refresh is running", Try());
  }
  EXPECT_EQ("none", Try());
}

TEST_F(RefreshLockTest, AnotherProcessIsKeptOut) {
  const RefreshLock lock;
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::_exit(Try() == "locked: refresh: another refresh is running" ? 0 : 1);
  }
  int status = -1;
  ASSERT_EQ(child, ::waitpid(child, &status, 0));
  EXPECT_EQ(0, status);
}

TEST_F(RefreshLockTest, AFolderThatIsMissingIsAFileError) {
  RefreshLock::SetFolder(dir_ / "missing");
  EXPECT_EQ("file", panel_test::ErrorOf([] { RefreshLock lock; }).type());
}

}  // namespace
