#include "panel/instance.h"

#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>

#include "framework/config_file.h"
#include "framework/database.h"
#include "framework/log_setup.h"
#include "framework/modules.h"
#include "framework/seal.h"
#include "mgr_cf.h"
#include "panel/archive.h"
#include "panel/domains.h"
#include "panel/email_module.h"
#include "panel/mailboxes.h"
#include "panel/owners.h"
#include "panel/records.h"
#include "tests/support/places.h"
#include "tests/support/stub_program.h"
#include "tests/unit/panel/panel_fixture.h"

namespace {

using brisq_panel::Instance;
using panel_test::ErrorOf;
using testing::ElementsAre;
using testing::HasSubstr;

class InstanceTest : public testing::Test {
 protected:
  InstanceTest() {
    mgr_cf::Reset();
    brisq_panel::ForgetBackends();
    settings_.file = dir_ / "brisq.toml";
    settings_.state = dir_ / "state";
    settings_.database = dir_ / "state/panel.db";
    settings_.log_directory = dir_ / "log";
    settings_.plugins = {dir_.MakeFolder("plugins")};
  }
  ~InstanceTest() override {
    mgr_log::Reset();
    mgr_cf::Reset();
  }
  static unsigned ModeOf(const std::string& path) {
    struct stat state {};
    EXPECT_EQ(0, ::stat(path.c_str(), &state)) << path;
    return state.st_mode & 07777u;
  }

  // As the panel keeps one when no password back-end does.
  static void AddSealedMailbox() {
    const auto mailbox = brisq_panel::Table<brisq_db::EmailTable>();
    mailbox->New();
    mailbox->name = "alice";
    mailbox->domain = 1;
    mailbox->owner = 1;
    mailbox->password = "secret";
    mailbox->Post();
  }

  support::TempDir dir_;
  mgr_cf::Settings settings_;
};

TEST_F(InstanceTest, EverythingIsMadeOnTheFirstStart) {
  const Instance instance(settings_);
  EXPECT_EQ(0700u, ModeOf(dir_ / "state"));
  EXPECT_EQ(0600u, ModeOf(dir_ / "state/panel.db"));
  EXPECT_TRUE(std::filesystem::is_directory(dir_ / "log"));
  EXPECT_TRUE(brisq_panel::ListOwners().empty());
}

TEST_F(InstanceTest, ASecondStartFindsWhatTheFirstHasMade) {
  {
    const Instance instance(settings_);
    brisq_panel::AddOwner({"bob", 1001, 1001, dir_ / "home"});
  }
  const Instance instance(settings_);
  EXPECT_EQ(1u, brisq_panel::ListOwners().size());
}

TEST_F(InstanceTest, ADatabaseElsewhereHasAFolderOfItsOwn) {
  settings_.database = dir_ / "db/deep/panel.db";
  const Instance instance(settings_);
  EXPECT_EQ(0700u, ModeOf(dir_ / "db/deep"));
}

TEST_F(InstanceTest, AFolderInWhichOthersMayWriteIsRefusedAndLeftAsItIs) {
  struct Case {
    const char* name;
    unsigned mode;
    bool refused;
  };
  const Case cases[] = {{"own", 0700, false},         {"others may read", 0755, false},
                        {"group writes", 0720, true}, {"others write", 0702, true},
                        {"open", 0777, true},         {"like /tmp", 01777, true}};
  const std::string state = dir_.MakeFolder("state");
  const std::string database = dir_.MakeFolder("db");
  settings_.database = database + "/panel.db";
  for (const std::string& folder : {state, database}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(folder + ": " + c.name);
      ASSERT_EQ(0, ::chmod(folder.c_str(), c.mode));
      const auto start = [&] { Instance instance(settings_); };
      if (c.refused) {
        EXPECT_EQ("file: " + folder + ": other users may write in it: " +
                      "give it the owner root and the mode 0700",
                  panel_test::TextOf(start));
        EXPECT_EQ(c.mode, ModeOf(folder));
      } else {
        EXPECT_NO_THROW(start());
      }
    }
    ASSERT_EQ(0, ::chmod(folder.c_str(), 0700));
  }
}

TEST_F(InstanceTest, AnotherUsersFolderIsRefused) {
  ASSERT_EQ(0, ::chown(dir_.MakeFolder("state").c_str(), 4711, 0));
  EXPECT_EQ("file", ErrorOf([&] { Instance instance(settings_); }).type());
}

TEST_F(InstanceTest, ALostKeyIsNotReplacedWhileThePanelKeepsPasswords) {
  const std::string key = dir_ / "state/seal.key";
  {
    const Instance instance(settings_);
    brisq_panel::AddOwner({"bob", 1001, 1001, dir_ / "home"});
    brisq_panel::AddDomain("example.org", "bob");
    AddSealedMailbox();
  }
  std::filesystem::remove(key);
  const Instance instance(settings_);
  const auto database = mgr_db::ThreadConnection();
  EXPECT_EQ("file", ErrorOf([] { mgr_seal::Seal("other"); }).type());
  brisq_panel::ArchiveMailboxes("1", brisq_panel::kDeleted);
  database->Change("DELETE FROM mailboxes");
  EXPECT_EQ(key, ErrorOf([] { mgr_seal::Seal("other"); }).object()) << "an archived one";
  EXPECT_FALSE(std::filesystem::exists(key));
  database->Change("DELETE FROM mailbox_archive");
  EXPECT_NE("", mgr_seal::Seal("other"));
}

TEST_F(InstanceTest, ParametersArePutInForce) {
  settings_.params["POP3"] = "other";
  settings_.paths["dovecot-passwd"] = "/x";
  const Instance instance(settings_);
  EXPECT_EQ("other", mgr_cf::GetParam("POP3"));
  EXPECT_EQ("/x", mgr_cf::GetPath("dovecot-passwd"));
  EXPECT_EQ("30", mgr_cf::GetParam("EmailSweepLimit"));
}

TEST_F(InstanceTest, ThereIsOneAtATime) {
  {
    const Instance instance(settings_);
    EXPECT_EQ("internal", ErrorOf([&] { Instance second(settings_); }).type());
    EXPECT_TRUE(brisq_panel::ListOwners().empty()) << "the first one goes on";
  }
  const Instance again(settings_);
}

TEST_F(InstanceTest, AFailedStartLeavesNothingOpen) {
  struct Case {
    const char* name;
    std::function<void()> spoil;
    const char* type;
  };
  dir_.Write("garbage", std::string(8192, 'g'));
  dir_.Write("file", "");
  const mgr_cf::Settings good = settings_;
  const Case cases[] = {
      {"no state folder given", [&] { settings_.state = ""; }, "config"},
      {"no database given", [&] { settings_.database = ""; }, "config"},
      {"no database", [&] { settings_.database = dir_ / "garbage"; }, "db"},
      {"state below a file", [&] { settings_.state = dir_ / "file/state"; }, "file"},
      {"log below a file", [&] { settings_.log_directory = dir_ / "file/log"; }, "file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    settings_ = good;
    c.spoil();
    EXPECT_EQ(c.type, ErrorOf([&] { Instance instance(settings_); }).type());
    EXPECT_EQ("db", ErrorOf([] { mgr_db::ThreadConnection(); }).type());
  }
  settings_ = good;
  const Instance instance(settings_);
}

TEST_F(InstanceTest, PluginsThatCantBeLoadedAreReportedAndTheHostLives) {
  settings_.plugins = {dir_.Write("broken.so", "no library"), dir_ / "missing.so"};
  settings_.params["POP3"] = "dovecot";
  const Instance instance(settings_);
  ASSERT_LE(2u, instance.reports().size());
  EXPECT_EQ(dir_ / "broken.so", instance.reports()[0].file);
  EXPECT_NE("", instance.reports()[0].error);
  EXPECT_NE("", instance.reports()[1].error);
  EXPECT_THAT(panel_test::TextOf([] { brisq_panel::MailBackend(); }),
              testing::AllOf(HasSubstr("no plug-in serves the parameter POP3 = \"dovecot\""),
                             HasSubstr("broken.so: "), HasSubstr("missing.so: ")));
}

TEST_F(InstanceTest, WithoutTheParameterTheReasonIsThat) {
  const Instance instance(settings_);
  EXPECT_EQ("plugin: mail back-end: the parameter POP3 is not set",
            panel_test::TextOf([] { brisq_panel::MailBackend(); }));
}

// What is begun while the rest is opened must not outlive an opening that fails, or that has no
// back-end which asks for it.
TEST_F(InstanceTest, NothingThatWasBegunEarlyStays) {
  settings_.params["POP3"] = "dovecot";
  settings_.paths["dovecot-doveadm"] = support::WriteStub(dir_ / "doveadm", "exec sleep 60");
  dir_.Write("garbage", std::string(8192, 'g'));
  for (const std::string& database : {dir_ / "garbage", dir_ / "state/panel.db"}) {
    SCOPED_TRACE(database);
    settings_.database = database;
    try {
      const Instance instance(settings_);
    } catch (const mgr_err::Error& error) {
      EXPECT_EQ("db", error.type());
    }
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG)) << "a child was left behind";
  }
}

TEST_F(InstanceTest, WhatGoesOnMeanwhileCanReadTheTablesAndIsCalledOnce) {
  int calls = 0;
  const Instance instance(settings_, [&] {
    ++calls;
    EXPECT_TRUE(brisq_panel::ListOwners().empty());
  });
  EXPECT_EQ(1, calls);
}

TEST_F(InstanceTest, WhatFailsMeanwhileFailsTheOpening) {
  const auto fail = [] { throw mgr_err::Error("later", "tool", "is busy"); };
  EXPECT_EQ("later", ErrorOf([&] { Instance instance(settings_, fail); }).type());
  EXPECT_EQ("db", ErrorOf([] { mgr_db::ThreadConnection(); }).type());
  const Instance instance(settings_);
}

TEST_F(InstanceTest, PluginsAreLookedForBesideTheLibrary) {
  EXPECT_EQ(support::BuildFolder() + "/lib/brisq", Instance::DefaultPluginFolder());
}

}  // namespace
