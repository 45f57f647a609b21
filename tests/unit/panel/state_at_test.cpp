#include "panel/state_at.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace brisq_panel {
namespace {

class StateAtTest : public testing::Test {
 protected:
  support::TempDir dir_;
  const std::string file_ = dir_.Write("file", "12345");
};

TEST_F(StateAtTest, ALinkIsFollowedOrStays) {
  const std::string link = dir_ / "link";
  ASSERT_EQ(0, ::symlink("file", link.c_str()));
  EXPECT_EQ(5, StateAt(link, Links::kFollow)->st_size);
  EXPECT_TRUE(S_ISLNK(StateAt(link, Links::kStay)->st_mode));
  ASSERT_EQ(0, ::unlink(file_.c_str()));
  EXPECT_FALSE(StateAt(link, Links::kFollow));
  EXPECT_TRUE(StateAt(link, Links::kStay));
}

TEST_F(StateAtTest, WhatIsNotThereIsNothing) {
  EXPECT_FALSE(StateAt(dir_ / "none", Links::kStay));
  EXPECT_FALSE(StateAt(file_ + "/below a file", Links::kStay));
}

TEST_F(StateAtTest, WhatCantBeLookedAtIsNamed) {
  for (const int error : {EIO, EACCES, ELOOP}) {
    SCOPED_TRACE(error);
    support::SysFault fault;
    fault.FailCall("stat", error);
    try {
      StateAt(file_, Links::kStay);
      ADD_FAILURE() << "an answer";
    } catch (const mgr_err::Error& refusal) {
      EXPECT_EQ("file", refusal.type());
      EXPECT_EQ(file_, refusal.object());
    }
  }
}

}  // namespace
}  // namespace brisq_panel
