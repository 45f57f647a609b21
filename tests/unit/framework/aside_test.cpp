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

TEST(Aside, NamesOfItsEntriesAreTold) {
  const struct {
    const char* name;
    bool is_one;
  } cases[] = {
      {".brisq-job-0123456789abcdef", true},
      {".brisq-job-0123456789abcdef-old", true},
      {".brisq-job-0123456789abcdef-new", false},
      {".brisq-job--old", false},
      {".brisq-job-0123456789abcdef-old2", false},
      {"x.brisq-job-0123456789abcdef", false},
      {".brisq-job-x", false},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    EXPECT_EQ(item.is_one, aside::IsName(item.name));
  }
  const std::string path = aside::PathBeside("/etc/target");
  EXPECT_TRUE(aside::IsName(path.substr(path.rfind('/') + 1)));
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
