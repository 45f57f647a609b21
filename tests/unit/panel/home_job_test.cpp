#include "panel/home_job.h"

#include <filesystem>

#include "framework/request.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

class HomeJob : public testing::Test {
 protected:
  support::TempDir dir_;
  const std::string home_ = dir_ / "home/bob";
};

TEST_F(HomeJob, TheHomeIsMadeAtCommit) {
  Request request("test");
  new brisq_panel::MakeHome(home_, 1001, 1001);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "home"));
  request.Commit();
  EXPECT_TRUE(std::filesystem::is_directory(home_));
}

TEST_F(HomeJob, AFailureLaterOnTakesItBack) {
  struct Failing : mgr_job::Job {
    void Do() override { throw mgr_err::Error("file", "later", "failed"); }
    void Undo() override {}
  };
  Request request("test");
  new brisq_panel::MakeHome(home_, 1001, 1001);
  new Failing;
  EXPECT_EQ("file: later: failed", panel_test::TextOf([&] { request.Commit(); }));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "home"));
}

TEST_F(HomeJob, WhatSomebodyHasPutInStays) {
  struct Failing : mgr_job::Job {
    explicit Failing(std::function<void()> before) : before_(std::move(before)) {}
    void Do() override {
      before_();
      throw mgr_err::Error("file", "later", "failed");
    }
    void Undo() override {}
    std::function<void()> before_;
  };
  Request request("test");
  new brisq_panel::MakeHome(home_, 1001, 1001);
  new Failing([&] { dir_.Write("home/bob/file", "x"); });
  EXPECT_THROW(request.Commit(), mgr_err::Error);
  EXPECT_EQ("x", dir_.Read("home/bob/file"));
}

TEST_F(HomeJob, OutsideOfARequestItCantBeMade) {
  EXPECT_EQ("internal",
            panel_test::ErrorOf([&] { new brisq_panel::MakeHome(home_, 1, 1); }).type());
}

}  // namespace
