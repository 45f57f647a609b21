#include "panel/link_jobs.h"

#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include "framework/rehearsal.h"
#include "framework/request.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

namespace fs = std::filesystem;
using brisq_panel::PlaceLink;
using brisq_panel::RemoveLink;
using panel_test::ErrorOf;

struct Failing : mgr_job::Job {
  explicit Failing(std::function<void()> before = [] {}) : before_(std::move(before)) {}
  void Do() override {
    before_();
    throw mgr_err::Error("file", "later", "failed");
  }
  void Undo() override {}
  std::function<void()> before_;
};

class LinkJobs : public testing::Test {
 protected:
  LinkJobs() { dir_.MakeFolder("certs"); }

  // Runs a request with one job and, after it, one that fails.
  void Fail(
      const std::function<void()>& make, std::function<void()> before = [] {}) {
    Request request("test");
    make();
    new Failing(std::move(before));
    EXPECT_EQ("file: later: failed", panel_test::TextOf([&] { request.Commit(); }));
  }
  void Succeed(const std::function<void()>& make) {
    Request request("test");
    make();
    request.Commit();
  }
  std::size_t Entries() const {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir_ / "certs"), fs::directory_iterator()));
  }

  support::LogCapture log_;
  support::TempDir dir_;
  const std::string link_ = dir_ / "certs/example.org.crt";
};

TEST_F(LinkJobs, ALinkIsPlacedAtCommitAndNothingElse) {
  Request request("test");
  new PlaceLink("/target", link_);
  EXPECT_EQ(0u, Entries());
  request.Commit();
  EXPECT_EQ("/target", fs::read_symlink(link_));
  EXPECT_EQ(1u, Entries());
}

TEST_F(LinkJobs, AnOlderLinkIsReplacedAndLeavesNoSecondName) {
  fs::create_symlink("/old", link_);
  Succeed([&] { new PlaceLink("/target", link_); });
  EXPECT_EQ("/target", fs::read_symlink(link_));
  EXPECT_EQ(1u, Entries());
}

TEST_F(LinkJobs, TheSameLinkCanBePlacedAgain) {
  fs::create_symlink("/target", link_);
  Succeed([&] { new PlaceLink("/target", link_); });
  EXPECT_EQ("/target", fs::read_symlink(link_));
  Fail([&] { new PlaceLink("/target", link_); });
  EXPECT_EQ("/target", fs::read_symlink(link_));
  EXPECT_EQ(1u, Entries());
}

TEST_F(LinkJobs, AFailedRequestLeavesNoLink) {
  Fail([&] { new PlaceLink("/target", link_); });
  EXPECT_EQ(0u, Entries());
}

TEST_F(LinkJobs, AFailedRequestBringsTheOlderLinkBack) {
  fs::create_symlink("/old", link_);
  Fail([&] { new PlaceLink("/target", link_); });
  EXPECT_EQ("/old", fs::read_symlink(link_));
  EXPECT_EQ(1u, Entries());
}

TEST_F(LinkJobs, AFileInThePlaceIsRefusedAndStays) {
  dir_.Write("certs/example.org.crt", "by hand");
  for (const bool dry : {false, true}) {
    SCOPED_TRACE(dry);
    std::optional<Rehearsal> rehearsal;
    if (dry) {
      rehearsal.emplace();
    }
    Request request("test");
    new PlaceLink("/target", link_);
    EXPECT_EQ("file: " + link_ + ": is no link: move it away, a link belongs there",
              panel_test::TextOf([&] { request.Commit(); }));
    EXPECT_EQ("by hand", dir_.Read("certs/example.org.crt"));
    EXPECT_EQ(1u, Entries());
  }
}

TEST_F(LinkJobs, WhatSomebodyHasChangedMeanwhileStays) {
  fs::create_symlink("/old", link_);
  Fail([&] { new PlaceLink("/target", link_); },
       [&] {
         fs::remove(link_);
         fs::create_symlink("/by hand", link_);
       });
  EXPECT_EQ("/by hand", fs::read_symlink(link_));
  EXPECT_EQ(1u, Entries());
  log_.ExpectError("changed since");
}

TEST_F(LinkJobs, ADirectoryInThePlaceIsRefused) {
  dir_.MakeFolder("certs/example.org.crt");
  Request request("test");
  new PlaceLink("/target", link_);
  EXPECT_EQ("file", ErrorOf([&] { request.Commit(); }).type());
  EXPECT_TRUE(fs::is_directory(link_));
  EXPECT_EQ(1u, Entries());
}

TEST_F(LinkJobs, MissingDirectoriesAreMadeAndTakenBack) {
  const std::string deep = dir_ / "new/ssl/example.org.crt";
  Fail([&] { new PlaceLink("/target", deep); });
  EXPECT_FALSE(fs::exists(dir_ / "new"));
  Succeed([&] { new PlaceLink("/target", deep); });
  EXPECT_EQ("/target", fs::read_symlink(deep));
  struct stat state {};
  ASSERT_EQ(0, ::stat((dir_ / "new/ssl").c_str(), &state));
  EXPECT_EQ(0755u, state.st_mode & 07777u);
}

TEST_F(LinkJobs, ALinkThatCantBePlacedLeavesNeitherItselfNorDirectories) {
  const std::string deep = dir_ / "new/ssl/" + std::string(300, 'n');
  Request request("test");
  new PlaceLink("/target", deep);
  EXPECT_EQ("file", ErrorOf([&] { request.Commit(); }).type());
  EXPECT_FALSE(fs::exists(dir_ / "new"));
}

TEST_F(LinkJobs, TwoJobsForOnePathEndWithTheSecond) {
  const auto both = [&] {
    new PlaceLink("/first", link_);
    new PlaceLink("/second", link_);
  };
  Fail(both);
  EXPECT_EQ(0u, Entries());
  Succeed(both);
  EXPECT_EQ("/second", fs::read_symlink(link_));
  EXPECT_EQ(1u, Entries());
}

TEST_F(LinkJobs, ALinkIsRemovedAtCommit) {
  fs::create_symlink("/old", link_);
  {
    Request request("test");
    new RemoveLink(link_);
    EXPECT_EQ(1u, Entries());
    request.Commit();
  }
  EXPECT_EQ(0u, Entries());
  Succeed([&] { new RemoveLink(link_); });  // one that is missing is no error
}

TEST_F(LinkJobs, AFailedRequestBringsTheRemovedLinkBack) {
  fs::create_symlink("/old", link_);
  Fail([&] { new RemoveLink(link_); });
  EXPECT_EQ("/old", fs::read_symlink(link_));
  EXPECT_EQ(1u, Entries());
  fs::remove(link_);
  Fail([&] { new RemoveLink(link_); });
  EXPECT_EQ(0u, Entries());
}

TEST_F(LinkJobs, OnlyLinksAreRemoved) {
  dir_.Write("certs/example.org.crt", "by hand");
  Succeed([&] { new RemoveLink(link_); });
  EXPECT_EQ("by hand", dir_.Read("certs/example.org.crt"));
}

TEST_F(LinkJobs, ALinkMadeMeanwhileIsNotOverwrittenByTheUndo) {
  fs::create_symlink("/old", link_);
  Fail([&] { new RemoveLink(link_); }, [&] { fs::create_symlink("/by hand", link_); });
  EXPECT_EQ("/by hand", fs::read_symlink(link_));
  EXPECT_EQ(1u, Entries());
  log_.ExpectError("changed since");
}

}  // namespace
