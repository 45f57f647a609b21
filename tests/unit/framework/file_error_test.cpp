#include "framework/file_error.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(FileError, NamesPathCallAndReason) {
  const mgr_err::Error error = mgr_file::FileError("/etc/shadow", "open", EACCES);

  EXPECT_EQ("file", error.type());
  EXPECT_EQ("/etc/shadow", error.object());
  EXPECT_EQ("open: Permission denied", error.value());
}

TEST(FileError, NamesTheUsualWayOut) {
  EXPECT_EQ("write: No space left on device (the disk is full)",
            mgr_file::FileError("/a", "write", ENOSPC).value());
}

TEST(FileError, TakesTheReasonOfTheLastCallByDefault) {
  ASSERT_EQ(-1, ::open("/nowhere/at/all", O_RDONLY | O_CLOEXEC));

  const mgr_err::Error error = mgr_file::FileError("/nowhere/at/all", "open");

  EXPECT_STREQ("file: /nowhere/at/all: open: No such file or directory", error.what());
}

}  // namespace
