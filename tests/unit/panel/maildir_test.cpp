#include "panel/maildir.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "panel/records.h"
#include "panel/run_request.h"
#include "tests/support/sys_fault.h"
#include "tests/unit/panel/panel_fixture.h"

namespace brisq_panel {
namespace {

namespace fs = std::filesystem;

class MaildirTest : public panel_test::PanelTest {
 protected:
  MaildirTest() {
    AddBob();
    owner_ = FindOwner("bob");
  }

  void Make() {
    RunRequest("test", [&](Request&) { MakeMaildir(owner_, home_); });
  }
  bool Missing() const { return IsMaildirMissing(*owner_, home_); }
  std::string Path(const std::string& name) const { return home_ + "/.maildir" + name; }

  std::string home_ = Home() + "/mail/x/al";
  std::shared_ptr<brisq_db::User> owner_;
};

TEST_F(MaildirTest, WhatIsMissingIsMadeAndBelongsToTheOwner) {
  EXPECT_TRUE(Missing());
  Make();
  EXPECT_FALSE(Missing());
  for (const char* name : {"", "/new", "/cur", "/tmp"}) {
    SCOPED_TRACE(name);
    struct stat state {};
    ASSERT_EQ(0, ::stat(Path(name).c_str(), &state));
    EXPECT_EQ(0700u, state.st_mode & 07777);
    EXPECT_EQ(1001u, state.st_uid);
    EXPECT_EQ(1001u, state.st_gid);
  }
}

TEST_F(MaildirTest, MailIsSeenInItWithoutAWayOut) {
  EXPECT_FALSE(HoldsMail(*owner_, home_)) << "there is none";
  Make();
  EXPECT_FALSE(HoldsMail(*owner_, home_)) << "empty";
  std::ofstream(Path("/tmp/half"));
  std::ofstream(Path("/new/.hidden"));
  EXPECT_FALSE(HoldsMail(*owner_, home_)) << "no message";
  for (const char* name : {"/new/1.x", "/cur/1.x:2,S"}) {
    SCOPED_TRACE(name);
    std::ofstream(Path(name)) << "mail";
    EXPECT_TRUE(HoldsMail(*owner_, home_));
    fs::remove(Path(name));
  }
  fs::remove_all(Path("/cur"));
  fs::create_directory_symlink("/etc", Path("/cur"));
  EXPECT_FALSE(HoldsMail(*owner_, home_)) << "no link is followed";
}

TEST_F(MaildirTest, WhatIsThereStaysAsItIs) {
  Make();
  ASSERT_EQ(0, ::chmod(Path("/new").c_str(), 0750));
  fs::remove(Path("/cur"));
  EXPECT_TRUE(Missing());
  Make();
  EXPECT_FALSE(Missing());
  struct stat state {};
  ::stat(Path("/new").c_str(), &state);
  EXPECT_EQ(0750u, state.st_mode & 07777);
}

TEST_F(MaildirTest, AWayThatIsNotSafeIsRefused) {
  fs::create_directories(Home() + "/mail/x");
  ASSERT_EQ(0, ::chown((Home() + "/mail").c_str(), 1001, 1001));
  ASSERT_EQ(0, ::chown((Home() + "/mail/x").c_str(), 1001, 1001));
  fs::create_directory_symlink("/tmp", home_);
  const auto error = panel_test::ErrorOf([&] { Missing(); });
  EXPECT_EQ(home_, error.object());
  EXPECT_EQ("not safe: is a symbolic link", error.value());
  EXPECT_EQ("file", panel_test::ErrorOf([&] { Make(); }).type());
  home_ = "/elsewhere";
  EXPECT_EQ("value", panel_test::ErrorOf([&] { Missing(); }).type());
}

// A folder that can't be looked at is neither there nor missing.
TEST_F(MaildirTest, AnErrorAtAnyCallIsThrownOrHidesNothing) {
  Make();
  for (const bool missing : {false, true}) {
    SCOPED_TRACE(missing ? "one is missing" : "all are there");
    if (missing) {
      fs::remove(Path("/cur"));
    }
    int thrown = 0;
    bool failed = true;
    for (std::size_t call = 1; failed; ++call) {
      support::SysFault fault;
      fault.FailNumber(call, EIO, false);
      try {
        EXPECT_EQ(missing, Missing()) << "call " << call;
      } catch (const mgr_err::Error& error) {
        EXPECT_EQ("file", error.type());
        ++thrown;
      }
      failed = fault.Failed();
    }
    EXPECT_GT(thrown, 10);
  }
}

}  // namespace
}  // namespace brisq_panel
