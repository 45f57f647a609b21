#include "framework/read_at_most.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "mgr_err.h"
#include "tests/support/temp_dir.h"

namespace {

using mgr_file::ReadAtMost;

std::string TextOf(const std::string& path, std::size_t most) {
  try {
    return ReadAtMost(path, most);
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
}

TEST(ReadAtMost, AFileUpToTheLimitIsReadWhole) {
  const support::TempDir dir;
  const struct {
    const char* name;
    std::string content;
    std::size_t most;
  } cases[] = {{"empty", "", 0},
               {"exact", "12345", 5},
               {"shorter", "12345", 6},
               {"bytes", {"\0\n\xff", 3}, 3}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.content, ReadAtMost(dir.Write(c.name, c.content), c.most));
  }
}

TEST(ReadAtMost, ALongerOneIsRefusedWithoutBeingRead) {
  const support::TempDir dir;
  const std::string path = dir.Write("long", "123456");
  EXPECT_EQ("file: " + path + ": is larger than 5 bytes", TextOf(path, 5));
  ASSERT_EQ(0, ::truncate(path.c_str(), off_t{1} << 40));
  EXPECT_EQ("file: " + path + ": is larger than 1048576 bytes", TextOf(path, 1 << 20));
}

// The size that such a file tells is 0 whatever it holds, as that of one that grows meanwhile.
TEST(ReadAtMost, WhatHoldsMoreThanItSaysIsRefusedToo) {
  const std::string path = "/proc/self/status";
  EXPECT_LT(100u, ReadAtMost(path, 1 << 20).size());
  EXPECT_EQ("file: " + path + ": is larger than 100 bytes", TextOf(path, 100));
}

TEST(ReadAtMost, OnlyRegularFilesAreRead) {
  const support::TempDir dir;
  ASSERT_EQ(0, ::mkfifo((dir / "pipe").c_str(), 0600));
  EXPECT_EQ("file: " + (dir / "pipe") + ": not a regular file", TextOf(dir / "pipe", 9));
  EXPECT_EQ("file: " + (dir / "none") + ": open: No such file or directory",
            TextOf(dir / "none", 9));
}

}  // namespace
