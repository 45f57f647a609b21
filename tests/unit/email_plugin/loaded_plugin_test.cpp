#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/modules.h"
#include "mgr_cf.h"
#include "mgr_err.h"
#include "panel/domains.h"
#include "panel/email_module.h"
#include "panel/instance.h"
#include "panel/mailboxes.h"
#include "panel/owners.h"
#include "tests/support/doveadm_stand_in.h"
#include "tests/support/places.h"
#include "tests/support/temp_dir.h"

using testing::ElementsAre;
using testing::HasSubstr;

namespace fs = std::filesystem;

namespace {

/// The built plug-in in the real host. It is wired once in the life of a process, so each test runs
/// in a child of its own, by InOwnProcess.
class LoadedPlugin : public testing::Test {
 protected:
  LoadedPlugin() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  void Start(const std::string& email_auth = "dovecot", const std::string& pop3 = "dovecot") {
    mgr_cf::Settings settings;
    settings.state = dir_ / "state";
    settings.database = dir_ / "state/panel.db";
    settings.plugins = {support::BuildFolder() + "/lib/brisq/email_dovecot.so"};
    settings.log_directory = dir_ / "log";
    settings.params = {{"POP3", pop3}, {"EmailAuth", email_auth}, {"DovecotPwScheme", "CRAM-MD5"}};
    settings.paths = {{"dovecot-passwd", dir_ / "dovecot.passwd"},
                      {"dovecot-doveadm", doveadm_.path()}};
    panel_ = std::make_unique<brisq_panel::Instance>(settings);
  }

  /// The owner "bob", whose home is made, and his domain x.org.
  void AddDomain() const {
    brisq_panel::AddOwner({"bob", 1001, 1002, Home()});
    brisq_panel::AddDomain("x.org", "bob");
  }

  std::string Home() const { return dir_ / "home"; }
  std::string File() const { return dir_.Read("dovecot.passwd"); }

  static std::string Line(const std::string& local, const std::string& hash,
                          const std::string& home, const std::string& quota) {
    return local + "@x.org:" + hash + ":1001:1002::" + home +
           ":::maildir:~/.maildir userdb_quota_rule=*:bytes=" + quota + "M\n";
  }
  std::string MailHome(const std::string& local) const { return Home() + "/mail/x.org/" + local; }

  static std::vector<std::string> Addresses() {
    std::vector<std::string> addresses;
    for (const auto& mailbox : brisq_panel::ListMailboxes()) addresses.push_back(mailbox.address);
    return addresses;
  }

  support::TempDir dir_;
  support::DoveadmStandIn doveadm_{dir_};
  std::unique_ptr<brisq_panel::Instance> panel_;
};

/// Ends a child, with its failed checks on standard error, where the parent shows them.
[[noreturn]] void EndChild() {
  const testing::TestResult& result =
      *testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int part = 0; part < result.total_part_count(); ++part) {
    const testing::TestPartResult& check = result.GetTestPartResult(part);
    if (check.failed()) std::fprintf(stderr, "%d: %s\n", check.line_number(), check.message());
  }
  std::_Exit(result.Failed() ? 1 : 0);
}

/// Runs `...` in a fresh process and fails when a check in it fails.
#define EXPECT_IN_OWN_PROCESS(...)   \
  EXPECT_EXIT(                       \
      {                              \
        [&]() __VA_ARGS__();         \
        panel_.reset();              \
        fs::remove_all(dir_.path()); \
        EndChild();                  \
      },                             \
      testing::ExitedWithCode(0), "")

TEST_F(LoadedPlugin, LoadsWithEverySymbolAndBuildsItsModule) {
  EXPECT_IN_OWN_PROCESS({
    Start();
    for (const auto& report : panel_->reports()) EXPECT_EQ("", report.error) << report.file;
    EXPECT_THAT(brisq_api::Modules(), ElementsAre("email_pop3"));
    const brisq_api::Action* const reload = brisq_api::FindAction("dovecot.reload");
    const brisq_api::Action* const check = brisq_api::FindAction("dovecot.certs.check");
    ASSERT_NE(nullptr, reload);
    ASSERT_NE(nullptr, check);
    EXPECT_EQ(0xE0000000U, check->access());
    EXPECT_NE(nullptr, brisq_panel::PasswordBackend());
    EXPECT_NO_THROW(brisq_panel::MailBackend());
  });
}

TEST_F(LoadedPlugin, IsInertWhenTheHostHasChosenAnotherServer) {
  EXPECT_IN_OWN_PROCESS({
    Start("dovecot", "Dovecot");
    EXPECT_THAT(brisq_api::Modules(), ElementsAre("email_pop3"));
    EXPECT_EQ(nullptr, brisq_api::FindAction("dovecot.reload"));
    EXPECT_EQ(nullptr, brisq_api::FindAction("dovecot.certs.check"));
    EXPECT_EQ(nullptr, brisq_panel::PasswordBackend());
    EXPECT_THROW(brisq_panel::MailBackend(), mgr_err::Error);
    EXPECT_EQ("", mgr_cf::GetPath("dovecot-restart"));
  });
}

class AddMailbox : public LoadedPlugin, public testing::WithParamInterface<const char*> {};

TEST_P(AddMailbox, MakesRowLineAndMaildir) {
  EXPECT_IN_OWN_PROCESS({
    Start(GetParam());
    AddDomain();
    brisq_panel::AddMailbox({"joe@x.org", "s3cret", "500"});
    EXPECT_EQ(Line("joe", "{CRAM-MD5}hash", MailHome("joe"), "500"), File());
    EXPECT_EQ("s3cret\ns3cret\n", doveadm_.Input());
    EXPECT_EQ("[pw][-s][CRAM-MD5][-u][joe@x.org]", doveadm_.Arguments());
    EXPECT_EQ(1, doveadm_.Calls());
    for (const char* name : {"", "/new", "/cur", "/tmp"}) {
      struct stat status {};
      ASSERT_EQ(0, ::stat((MailHome("joe") + "/.maildir" + name).c_str(), &status)) << name;
      EXPECT_EQ(0700U, status.st_mode & 07777);
      EXPECT_EQ(1001U, status.st_uid);
      EXPECT_EQ(1002U, status.st_gid);
    }
  });
}

TEST_P(AddMailbox, LeavesNothingWhenHashingFails) {
  EXPECT_IN_OWN_PROCESS({
    Start(GetParam());
    AddDomain();
    brisq_panel::AddMailbox({"joe@x.org", "s3cret", "500"});
    const std::string before = File();
    doveadm_.Answers("", 75, "no such scheme\n");
    try {
      brisq_panel::AddMailbox({"ann@x.org", "s3cret", "500"});
      ADD_FAILURE() << "added";
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ("email", error.type());
      EXPECT_THAT(error.value(), HasSubstr("no such scheme"));
    }
    EXPECT_EQ(before, File());
    EXPECT_THAT(Addresses(), ElementsAre("joe@x.org"));
    EXPECT_FALSE(fs::exists(MailHome("ann")));
  });
}

INSTANTIATE_TEST_SUITE_P(Modes, AddMailbox, testing::Values("dovecot", "panel"),
                         [](const auto& mode) { return std::string(mode.param); });

/// A refresh of the panel's tables from the file.
class Refresh : public LoadedPlugin {
 protected:
  void Cache() const { brisq_panel::MailBackend().Cache(); }

  void AddTwo() const {
    AddDomain();
    brisq_panel::AddMailbox({"ann@x.org", "pa"});
    brisq_panel::AddMailbox({"joe@x.org", "pj"});
  }
};

TEST_F(Refresh, FillsFiguresAndSweepsMailboxesWithoutALine) {
  EXPECT_IN_OWN_PROCESS({
    Start();
    AddTwo();
    doveadm_.Reports(
        "Username Quota name Type Value Limit %\n"
        "ann@x.org User quota STORAGE 5119 - 0\n"
        "ann@x.org User quota MESSAGE 1 - 0\n");
    dir_.Write("dovecot.passwd", Line("ann", "h", MailHome("ann"), "0"));
    Cache();
    EXPECT_THAT(Addresses(), ElementsAre("ann@x.org"));
    EXPECT_EQ(4, brisq_panel::ShowMailbox("ann@x.org").used_mb);
  });
}

TEST_F(Refresh, PutsAHashEditedByHandBackWhenThePanelKeepsThePasswords) {
  EXPECT_IN_OWN_PROCESS({
    Start("panel");
    AddTwo();
    doveadm_.Answers("{CRAM-MD5}fresh\n");
    dir_.Write("dovecot.passwd", Line("ann", "by hand", MailHome("ann"), "0") +
                                     Line("joe", "{CRAM-MD5}fresh", MailHome("joe"), "0"));
    Cache();
    EXPECT_EQ(2, doveadm_.Calls());
    EXPECT_EQ("pj\npj\n", doveadm_.Input());
    EXPECT_EQ(Line("ann", "{CRAM-MD5}fresh", MailHome("ann"), "0") +
                  Line("joe", "{CRAM-MD5}fresh", MailHome("joe"), "0"),
              File());
  });
}

TEST_F(Refresh, LeavesAHashEditedByHandAloneWhenDovecotKeepsThePasswords) {
  EXPECT_IN_OWN_PROCESS({
    Start();
    AddTwo();
    doveadm_.Answers("{CRAM-MD5}fresh\n");
    const std::string edited = Line("ann", "by hand", MailHome("ann"), "0") +
                               Line("joe", "{CRAM-MD5}hash", MailHome("joe"), "0");
    dir_.Write("dovecot.passwd", edited);
    Cache();
    EXPECT_EQ(0, doveadm_.Calls());
    EXPECT_EQ(edited, File());
  });
}

}  // namespace
