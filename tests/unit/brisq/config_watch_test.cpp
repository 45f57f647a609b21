#include "brisq/config_watch.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "framework/config_file.h"
#include "mgr_cf.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_dir.h"

namespace brisq {
namespace {

class ConfigWatchTest : public testing::Test {
 protected:
  ConfigWatchTest() { mgr_cf::Apply(mgr_cf::ReadSettings(file_)); }
  ~ConfigWatchTest() override { mgr_cf::Reset(); }

  /// Writes it anew, as an editor that renames does.
  void Write(const std::string& content) {
    dir_.Write("next", content);
    ASSERT_EQ(0, std::rename((dir_ / "next").c_str(), file_.c_str()));
  }
  static std::string Period() { return mgr_cf::GetParam("EmailRefreshPeriod"); }

  support::LogCapture log_;
  support::TempDir dir_;
  const std::string file_ = [this] {
    dir_.Write("b.toml", "[param]\nEmailRefreshPeriod = \"15\"\n");
    return dir_ / "b.toml";
  }();
  ConfigWatch watch_{file_};
};

TEST_F(ConfigWatchTest, AChangedFileIsTakenUpOnce) {
  Write("[param]\nEmailRefreshPeriod = \"1\"\n[path]\ndovecot-restart = \"again\"\n");
  EXPECT_EQ("15", Period());
  watch_.TakeUpChanges();
  EXPECT_EQ("1", Period());
  EXPECT_EQ("again", mgr_cf::GetPath("dovecot-restart"));
  mgr_cf::SetParam("EmailRefreshPeriod", "2");
  watch_.TakeUpChanges();
  EXPECT_EQ("2", Period()) << "the file has not changed since";
}

// The server reads its settings long before it looks for changes.
TEST_F(ConfigWatchTest, AFileThatChangedBeforeTheFirstLookIsTakenUp) {
  Write("[param]\nEmailRefreshPeriod = \"7\"\n");
  ConfigWatch late(file_);
  late.TakeUpChanges();
  EXPECT_EQ("7", Period());
}

TEST_F(ConfigWatchTest, WhatIsTakenOutOfTheFileIsUnset) {
  Write("[param]\n");
  watch_.TakeUpChanges();
  EXPECT_EQ("", Period());
}

TEST_F(ConfigWatchTest, AFileThatBreaksARuleIsLoggedOnceAndChangesNothing) {
  const struct {
    const char* name;
    const char* content;
    const char* log;
  } cases[] = {
      {"no TOML", "[param\n", "changed settings not taken up"},
      {"no number", "[param]\nEmailRefreshPeriod = \"often\"\n",
       "b.toml:2: \"EmailRefreshPeriod\" must be a number of minutes"},
      {"an unknown table", "[other]\n", "[other] is not known"},
  };
  std::size_t logged = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    log_.ExpectError(c.log);
    Write(c.content);
    watch_.TakeUpChanges();
    watch_.TakeUpChanges();
    EXPECT_EQ("15", Period());
    EXPECT_EQ(++logged, log_.Lines("brisq").size());
  }
  Write("[param]\nEmailRefreshPeriod = \"3\"\n");
  watch_.TakeUpChanges();
  EXPECT_EQ("3", Period());
}

TEST_F(ConfigWatchTest, AKeyThatNothingReadsIsLoggedOnceAndTheRestIsTakenUp) {
  Write("[param]\nEmailRefreshPeriod = \"5\"\nEmailRefreshPeriode = \"6\"\n");
  watch_.TakeUpChanges();
  watch_.TakeUpChanges();
  EXPECT_EQ("5", Period());
  int warnings = 0;
  for (const std::string& line : log_.Messages("brisq")) {
    warnings += line == "warning config: " + file_ +
                            ":3: \"EmailRefreshPeriode\" is not known in [param] and changes "
                            "nothing: did you mean \"EmailRefreshPeriod\"?";
  }
  EXPECT_EQ(1, warnings);
}

TEST_F(ConfigWatchTest, AFileThatIsGoneForAMomentIsTakenUpWhenItIsBack) {
  ASSERT_EQ(0, std::remove(file_.c_str()));
  log_.ExpectError("changed settings not taken up");
  watch_.TakeUpChanges();
  EXPECT_EQ("15", Period());
  Write("[param]\nEmailRefreshPeriod = \"4\"\n");
  watch_.TakeUpChanges();
  EXPECT_EQ("4", Period());
}

}  // namespace
}  // namespace brisq
