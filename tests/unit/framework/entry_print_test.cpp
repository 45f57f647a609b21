#include "framework/entry_print.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(EntryPrint, TellsApartWhatIsAtAPath) {
  const support::TempDir dir;
  const std::string file = dir.Write("file", "content");
  const std::string link = dir / "link";
  ASSERT_EQ(0, ::symlink(file.c_str(), link.c_str()));
  EXPECT_EQ(entry_print::OfContent("content"), entry_print::At(file));
  EXPECT_NE(entry_print::OfContent("content."), entry_print::At(file));
  EXPECT_EQ(entry_print::OfLink(file), entry_print::At(link)) << "a link is not followed";
  EXPECT_EQ(entry_print::kNone, entry_print::At(dir / "nothing"));
  EXPECT_EQ(entry_print::kNone, entry_print::At(file + "/below a file"));
  EXPECT_EQ("other", entry_print::At(dir.path()));
}

TEST(EntryPrint, KnowsALink) {
  EXPECT_TRUE(entry_print::IsLink(entry_print::OfLink("")));
  EXPECT_FALSE(entry_print::IsLink(entry_print::OfContent("link ")));
  EXPECT_FALSE(entry_print::IsLink(entry_print::kNone));
}

TEST(EntryPrint, APrintShowsNothingOfTheContent) {
  EXPECT_EQ(std::string::npos, entry_print::OfContent("canary").find("canary"));
  EXPECT_EQ(entry_print::OfContent(""), entry_print::OfContent(std::string_view()));
}

TEST(EntryPrint, WhatCantBeSeenIsAnErrorAndNotNothing) {
  const support::TempDir dir;
  const std::string link = dir / "link";
  ASSERT_EQ(0, ::symlink("x", link.c_str()));
  for (const char* call : {"stat", "readlink"}) {
    SCOPED_TRACE(call);
    support::SysFault fault;
    fault.FailCall(call, EIO);
    EXPECT_THROW(entry_print::At(link), mgr_err::Error);
  }
}

}  // namespace
