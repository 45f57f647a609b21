#include "framework/fingerprint.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

TEST(Fingerprint, TellsApartWhatIsAtAPath) {
  const support::TempDir dir;
  const std::string file = dir.Write("file", "content");
  const std::string link = dir / "link";
  ASSERT_EQ(0, ::symlink(file.c_str(), link.c_str()));
  EXPECT_EQ(fingerprint::OfContent("content"), fingerprint::At(file));
  EXPECT_NE(fingerprint::OfContent("content."), fingerprint::At(file));
  EXPECT_EQ(fingerprint::OfLink(file), fingerprint::At(link)) << "a link is not followed";
  EXPECT_EQ(fingerprint::kNone, fingerprint::At(dir / "nothing"));
  EXPECT_EQ(fingerprint::kNone, fingerprint::At(file + "/below a file"));
  EXPECT_EQ("other", fingerprint::At(dir.path()));
}

TEST(Fingerprint, KnowsALink) {
  EXPECT_TRUE(fingerprint::IsLink(fingerprint::OfLink("")));
  EXPECT_FALSE(fingerprint::IsLink(fingerprint::OfContent("link ")));
  EXPECT_FALSE(fingerprint::IsLink(fingerprint::kNone));
}

TEST(Fingerprint, APrintShowsNothingOfTheContent) {
  EXPECT_EQ(std::string::npos, fingerprint::OfContent("canary").find("canary"));
  EXPECT_EQ(fingerprint::OfContent(""), fingerprint::OfContent(std::string_view()));
}

TEST(Fingerprint, WhatCantBeSeenIsAnErrorAndNotNothing) {
  const support::TempDir dir;
  const std::string link = dir / "link";
  ASSERT_EQ(0, ::symlink("x", link.c_str()));
  for (const char* call : {"stat", "readlink"}) {
    SCOPED_TRACE(call);
    support::SysFault fault;
    fault.FailCall(call, EIO);
    EXPECT_THROW(fingerprint::At(link), mgr_err::Error);
  }
}

}  // namespace
