#include "framework/safe_way.h"

#include <fcntl.h>

#include <thread>

#include "tests/unit/framework/user_dir_fixture.h"

namespace {

using user_dir_test::ErrorOf;
using user_dir_test::kOther;
using user_dir_test::kUser;
using user_dir_test::MakeForeign;
using user_dir_test::MakeLink;

class SafeWay : public user_dir_test::UserDirTest {
 protected:
  // "opened", or why not, with paths below the temporary directory.
  std::string Opened(const std::string& path) const {
    return Short(ErrorOf([&] {
      const Descriptor fd = safe_way::Open(tree / path, kUser);
      struct stat is = {};
      EXPECT_EQ(0, ::fstat(fd.get(), &is));
      EXPECT_TRUE(S_ISDIR(is.st_mode));
    }));
  }
  std::string Ours(const std::string& path) const {
    return Short(ErrorOf([&] { safe_way::RequireOurs(tree / path); }));
  }
  std::string Short(std::string text) const {
    const std::size_t at = text.find(tree.path() + "/");
    return at == std::string::npos ? text : text.erase(at, tree.path().size() + 1);
  }
  static constexpr const char* kFine = "nothing was thrown";
};

TEST_F(SafeWay, RootsDirectoriesAndLinksAreGoneThrough) {
  tree.MakeFolder("a/b/c");
  ASSERT_EQ(0, ::symlink("b/../b", (tree / "a/relative").c_str()));
  ASSERT_EQ(0, ::symlink((tree / "a").c_str(), (tree / "absolute").c_str()));
  for (const char* path : {"a", "a/b/c", "a/relative/c", "absolute/relative/c", "a/./b", "home"}) {
    SCOPED_TRACE(path);
    EXPECT_EQ(kFine, Opened(path));
  }
}

TEST_F(SafeWay, WhatAnotherUserCouldBendIsRefused) {
  tree.MakeFolder("plain/x");
  MakeForeign(tree / "other", kOther);
  MakeForeign(tree / "other/theirs", kUser);
  MakeForeign(tree / "open", 0);
  ::chmod((tree / "open").c_str(), 0777);
  tree.MakeFolder("open/x");
  MakeForeign(home + "/own", kUser);
  MakeForeign(home + "/own/foreign", kOther);
  tree.MakeFolder("home/own/system/x");
  MakeLink(outside, tree / "theirlink");
  tree.MakeFolder("outside/x");
  MakeLink("own", home + "/link");
  ASSERT_EQ(0, ::symlink("plain", (tree / "last").c_str()));
  tree.Write("file", "");
  const struct {
    const char* path;
    const char* error;
  } cases[] = {
      {"other/theirs", "file: other: not safe: belongs to uid 54322 instead of 54321"},
      {"open/x", "file: open: not safe: everybody may write to it"},
      {"home/own/foreign",
       "file: home/own/foreign: not safe: belongs to uid 54322 instead of 54321"},
      {"home/own/system", "file: home/own/system: not safe: belongs to uid 0 instead of 54321"},
      {"home/link", "file: home/link: not safe: is a symbolic link"},
      {"home/link/", "file: home/link: not safe: is a symbolic link"},
      {"theirlink/x", "file: theirlink: not safe: is a symbolic link"},
      {"last", "file: last: not safe: is a symbolic link"},
      {"file", "file: file: not safe: is a regular file"},
      {"none", "file: none: open: No such file or directory"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(c.error, Opened(c.path));
  }
}

TEST_F(SafeWay, ASharedDirectoryWithTheStickyBitIsGoneThrough) {
  tree.MakeFolder("common/x");
  ::chmod((tree / "common").c_str(), 01777);
  EXPECT_EQ(kFine, Opened("common/x"));
  EXPECT_EQ(kFine, Ours("common/new"));
}

TEST_F(SafeWay, LinksInACircleAreTheSystemsRefusal) {
  ASSERT_EQ(0, ::symlink("circle", (tree / "circle").c_str()));
  EXPECT_EQ("file: circle: open: Too many levels of symbolic links", Opened("circle/x"));
}

TEST_F(SafeWay, OnlyOurOwnPlacesAreFitForWhatIsMissing) {
  tree.MakeFolder("a");
  ASSERT_EQ(0, ::symlink("a", (tree / "link").c_str()));
  MakeForeign(home + "/own", kUser);
  MakeLink(outside, home + "/link");
  const struct {
    const char* path;
    const char* error;
  } cases[] = {
      {"a", kFine},
      {"a/b/c", kFine},
      {"link/b", kFine},
      {"link", kFine},
      {"home", "file: home: not safe: belongs to uid 54321 instead of 0"},
      {"home/b", "file: home: not safe: belongs to uid 54321 instead of 0"},
      {"home/link/b", "file: home: not safe: belongs to uid 54321 instead of 0"},
      {"home/own/b/c", "file: home: not safe: belongs to uid 54321 instead of 0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(c.error, Ours(c.path));
  }
}

// The user has the way and changes it all the time; a directory of root's that lies beside must
// never be what was opened.
TEST_F(SafeWay, AUserWhoSwapsTheWayNeverLeadsOutOfHisOwnDirectories) {
  MakeForeign(home + "/own", kUser);
  MakeForeign(home + "/own/x", kUser);
  tree.MakeFolder("outside/x");
  std::jthread swapper([&](const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      ::rename((home + "/own").c_str(), (home + "/put").c_str());
      MakeLink(outside, home + "/own");
      ::unlink((home + "/own").c_str());
      ::rename((home + "/put").c_str(), (home + "/own").c_str());
    }
  });
  int opened = 0;
  for (int round = 0; round < 20000 && opened < 2000; ++round) {
    try {
      const Descriptor fd = safe_way::Open(home + "/own/x", kUser);
      struct stat is = {};
      ASSERT_EQ(0, ::fstat(fd.get(), &is));
      ASSERT_EQ(kUser, is.st_uid);
      ++opened;
    } catch (const mgr_err::Error&) {
    }
  }
  EXPECT_LT(0, opened);
}

}  // namespace
