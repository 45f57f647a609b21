#include "framework/link_removal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <vector>

#include "mgr_err.h"
#include "tests/support/sys_fault.h"
#include "tests/support/temp_dir.h"

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

std::string ErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const mgr_err::Error& error) {
    return error.what();
  }
  return "nothing was thrown";
}

class LinkRemovalTest : public testing::Test {
 protected:
  void MakeLink() { fs::create_symlink("/certs/example.org.pem", path_); }
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(directory_.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }
  std::string Target() const {
    return fs::is_symlink(path_) ? fs::read_symlink(path_).string() : "no link";
  }

  const support::TempDir directory_;
  const std::string path_ = directory_ / "example.org.crt";
};

TEST_F(LinkRemovalTest, NothingHappensBeforePublish) {
  MakeLink();
  { const LinkRemoval removal(path_); }
  EXPECT_EQ("/certs/example.org.pem", Target());
  EXPECT_THAT(Names(), ElementsAre("example.org.crt"));
}

TEST_F(LinkRemovalTest, TheLinkStandsAsideUntilItIsDiscarded) {
  MakeLink();
  LinkRemoval removal(path_);
  removal.Publish();
  EXPECT_THAT(Names(), ElementsAre(StartsWith(".brisq-job-")));
  removal.Discard();
  EXPECT_THAT(Names(), IsEmpty());
}

TEST_F(LinkRemovalTest, ARestoredLinkIsTheOneThatWasThere) {
  MakeLink();
  LinkRemoval removal(path_);
  removal.Publish();
  removal.Restore();
  EXPECT_EQ("/certs/example.org.pem", Target());
  EXPECT_THAT(Names(), ElementsAre("example.org.crt"));
}

TEST_F(LinkRemovalTest, WhatIsNoLinkStays) {
  directory_.Write("example.org.crt", "a certificate");
  LinkRemoval file(path_);
  file.Publish();
  file.Restore();
  file.Discard();
  EXPECT_EQ("a certificate", directory_.Read("example.org.crt"));
  LinkRemoval none(directory_ / "none");
  none.Publish();
  none.Restore();
  none.Discard();
  EXPECT_THAT(Names(), ElementsAre("example.org.crt"));
}

TEST_F(LinkRemovalTest, WhatSomebodyHasPutInItsPlaceStaysAndTheLinkIsGivenUp) {
  MakeLink();
  LinkRemoval removal(path_);
  removal.Publish();
  directory_.Write("example.org.crt", "theirs");
  EXPECT_EQ("file: " + path_ + ": not undone: changed since", ErrorOf([&] { removal.Restore(); }));
  EXPECT_EQ("theirs", directory_.Read("example.org.crt"));
  EXPECT_THAT(Names(), ElementsAre("example.org.crt"));
}

// With an error at any call the link is there afterwards, or the error says where it is.
TEST_F(LinkRemovalTest, AnErrorAtAnyCallLosesNothing) {
  for (std::size_t number = 1; number < 30; ++number) {
    SCOPED_TRACE(number);
    MakeLink();
    support::SysFault fault;
    std::string error;
    {
      fault.FailNumber(number, EIO, false);
      error = ErrorOf([&] {
        LinkRemoval removal(path_);
        removal.Publish();
        removal.Restore();
      });
    }
    if (!fault.Failed()) {
      EXPECT_GT(number, 5U) << "too few calls have failed";
      return;
    }
    fault.FailCall("", 0);
    EXPECT_NE("nothing was thrown", error);
    const auto names = Names();
    ASSERT_EQ(1U, names.size());
    if (names[0] != "example.org.crt") {
      EXPECT_THAT(error, testing::HasSubstr("the old one is " + (directory_ / names[0])));
    }
    fs::remove(directory_ / names[0]);
  }
  FAIL() << "there is no end";
}

}  // namespace
