#include "framework/aside.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "framework/request.h"
#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(Aside, EachPathIsAnotherOneInTheTargetsDirectory) {
  const std::string one = aside::PathBeside("/etc/ssl/example.org.crt");
  EXPECT_THAT(one, testing::MatchesRegex("/etc/ssl/\\.brisq-job-[0-9a-f]{16}"));
  EXPECT_NE(one, aside::PathBeside("/etc/ssl/example.org.crt"));
  EXPECT_THAT(aside::PathBeside("/file"), testing::MatchesRegex("/\\.brisq-job-[0-9a-f]{16}"));
}

TEST(Aside, WhatIsRemovedIsForgotten) {
  const support::TempDir dir;
  std::string path = dir.Write("aside", "old");
  aside::Remove(path);
  EXPECT_EQ("", path);
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
  aside::Remove(path);
}

TEST(Aside, WhatCannotBeRemovedStaysAndHoldsNobodyUp) {
  const support::TempDir dir;
  const std::string path = dir.Write("aside", "old");
  std::string name = path;
  support::SysFault fault;
  fault.FailCall("unlink", EIO);
  aside::Remove(name);
  EXPECT_TRUE(std::filesystem::exists(path));
}

TEST(Aside, OutsideOfARequestNobodyNeedsToBeTold) {
  std::string noted;
  aside::Note("/nowhere", "/nowhere.aside", "none", "/nowhere removed", noted);
  EXPECT_EQ("", noted);
}

}  // namespace
