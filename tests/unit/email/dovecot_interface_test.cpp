#include "email/dovecot_interface.h"

#include "mgr_err.h"
#include "tests/unit/email/plugin_fixture.h"

using recording::Calls;
using recording::Line;
using recording::Outcome;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;

namespace {

/// A mailbox joe@x.org of the owner 1001:1002, and a file in which bob@x.org has a line.
class Mailbox : public recording::PluginTest {
 protected:
  Mailbox() {
    host.owner = std::make_shared<brisq_db::User>();
    host.owner->uid.SetStored("1001");
    host.owner->gid.SetStored("1002");
    host.owner->home.SetStored("/home/joe");
    host.lines = {{"bob@x.org", "old", "5", "6", "info", "/b", "shell", "flags", "where"}};
    mailbox_ = Named("joe");
  }

  std::shared_ptr<brisq_db::EmailTable> Named(const std::string& local) {
    return host.NewMailbox({{"name", local},
                            {"domain", "x.org"},
                            {"home", "/home/joe/mail"},
                            {"quota", "500"},
                            {"password", "secret"}});
  }

  void UseHash(const std::string& hash) {
    host.tool = [hash](const std::string&, const std::string&) { return Outcome{hash + "\n"}; };
  }

  /// The writes of uid, gid, home and mail location, and the post.
  static Calls Writing(const std::string& quota = "500") {
    return {"Set uid '1001'", "Set gid '1002'", "Set home '/home/joe/mail'",
            "Set maildir 'maildir:~/.maildir userdb_quota_rule=*:bytes=" + quota + "M'",
            "Post line ''"};
  }
  static Calls Pushing(const std::string& name) {
    return Join({{"open password"},
                 Opening(),
                 {"Assert " + name},
                 Hashing(name),
                 {"Set passwd 'h'", "Post line ''"},
                 Reload()});
  }
  static Calls Maildir() {
    const std::string path = "/home/joe/mail/.maildir";
    return {"Exists " + path, "JobCreateOddDirAbs for /home/joe " + path + " 0700 1001:1002",
            "job CreateDir " + path + " new 0700 1001:1002",
            "job CreateDir " + path + " cur 0700 1001:1002",
            "job CreateDir " + path + " tmp 0700 1001:1002"};
  }

  std::shared_ptr<brisq_db::EmailTable> mailbox_;
};

class Create : public Mailbox {};

TEST_F(Create, PostsTheLineThenPushesThePasswordThenMakesTheMaildir) {
  const auto back_end = NewBackEnd();
  UseHash("h");
  (*back_end)->Create(mailbox_);
  EXPECT_THAT(
      host.Calls(),
      ElementsAreArray(Join({Opening(),
                             {"New", "GetEmailName", "Set name 'joe@x.org'", "GetEmailOwner"},
                             Writing(),
                             Reload(),
                             Pushing("joe@x.org"),
                             Maildir()})));
  EXPECT_EQ((Line{"joe@x.org", "h", "1001", "1002", "", "/home/joe/mail", "", "",
                  "maildir:~/.maildir userdb_quota_rule=*:bytes=500M"}),
            host.lines.at(1));
}

TEST_F(Create, WithDovecotKeepingThePasswordsLeavesTheHashEmptyAndPushesNone) {
  const auto back_end = NewBackEnd("dovecot");
  (*back_end)->Create(mailbox_);
  EXPECT_THAT(
      host.Calls(),
      ElementsAreArray(Join({Opening(),
                             {"New", "GetEmailName", "Set name 'joe@x.org'", "GetEmailOwner"},
                             Writing(),
                             Reload(),
                             Maildir()})));
  EXPECT_EQ((Line{"joe@x.org", "", "1001", "1002", "", "/home/joe/mail", "", "",
                  "maildir:~/.maildir userdb_quota_rule=*:bytes=500M"}),
            host.lines.at(1));
  EXPECT_THAT(host.runs, IsEmpty());
}

TEST_F(Create, InfoShellAndFlagsStayEmpty) {
  const auto back_end = NewBackEnd("dovecot");
  (*back_end)->Create(mailbox_);
  for (const unsigned long column : {5UL, 7UL, 8UL}) {
    EXPECT_EQ("", host.Column("joe@x.org", column)) << column;
  }
}

const struct QuotaCase {
  const char* name;
  const char* quota;
  const char* rule;
} kQuotaCases[] = {
    {"no limit", "", "0M"},
    {"zero", "0", "0M"},
    {"a number", "250", "250M"},
    {"two zeros are copied", "00", "00M"},
    {"a blank is copied", " 0", " 0M"},
    {"no arithmetic", "5x", "5xM"},
};

TEST_F(Create, TheQuotaRuleCopiesTheQuota) {
  const auto back_end = NewBackEnd("dovecot");
  for (const auto& c : kQuotaCases) {
    SCOPED_TRACE(c.name);
    mailbox_->quota.SetStored(c.quota);
    host.lines.clear();
    (*back_end)->Create(mailbox_);
    EXPECT_EQ(std::string("maildir:~/.maildir userdb_quota_rule=*:bytes=") + c.rule,
              host.Column("joe@x.org", 9));
  }
}

TEST_F(Create, WithAnExistingMaildirStillPostsTheLine) {
  const auto back_end = NewBackEnd("dovecot");
  host.existing = {"/home/joe/mail/.maildir"};
  (*back_end)->Create(mailbox_);
  EXPECT_EQ("joe@x.org", host.Column("joe@x.org", 1));
  EXPECT_THAT(host.jobs, IsEmpty());
  EXPECT_THAT(host.Calls("JobCreate"), IsEmpty());
}

TEST_F(Create, AHomeThatEndsInASlashKeepsIt) {
  const auto back_end = NewBackEnd("dovecot");
  mailbox_->home.SetStored("/home/joe/");
  (*back_end)->Create(mailbox_);
  EXPECT_EQ("/home/joe/", host.Column("joe@x.org", 6));
  EXPECT_THAT(host.Calls("Exists"), ElementsAre("Exists /home/joe//.maildir"));
  EXPECT_THAT(host.Calls("JobCreate"),
              ElementsAre("JobCreateOddDirAbs for /home/joe /home/joe//.maildir 0700 1001:1002"));
}

TEST_F(Create, WhenHashingFailsTheLineStaysWithoutAPasswordAndNoDirectoryIsMade) {
  const auto back_end = NewBackEnd();
  host.tool = [](const std::string&, const std::string&) { return Outcome{"no\n", 75}; };
  EXPECT_THROW((*back_end)->Create(mailbox_), email::Fail);
  EXPECT_EQ("", host.Column("joe@x.org", 2));
  EXPECT_EQ("1001", host.Column("joe@x.org", 3));
  EXPECT_THAT(host.Calls("Exists"), IsEmpty());
  EXPECT_THAT(host.jobs, IsEmpty());
}

TEST_F(Create, LogsNothing) {
  const auto back_end = NewBackEnd();
  host.log_level = 9;
  host.save_reason = 1;
  (*back_end)->Create(mailbox_);
  EXPECT_THAT(host.Calls("log"), IsEmpty());
}

// Whatever fails, the error passes on and nothing behind it is done.
TEST_F(Create, AnExceptionAtEachStepStopsThereAndReleasesTheCursor) {
  const auto back_end = NewBackEnd();
  UseHash("h");
  (*back_end)->Create(mailbox_);
  Calls steps = host.Calls();
  std::erase(steps, "~Execute");
  const std::vector<Line> before = {host.lines[0]};
  for (std::size_t step = 0; step < steps.size(); ++step) {
    SCOPED_TRACE(steps[step]);
    host.lines = before;
    host.ForgetCalls();
    host.fail_at = static_cast<int>(step);
    EXPECT_THROW((*back_end)->Create(mailbox_), mgr_err::Error);
    Calls done = host.Calls();
    std::erase(done, "~Execute");
    EXPECT_THAT(done, ElementsAreArray(steps.begin(),
                                       steps.begin() + static_cast<std::ptrdiff_t>(step) + 1));
    EXPECT_EQ(0, host.cursors_out);
    EXPECT_EQ(before[0], host.lines.at(0));
  }
}

class Update : public Mailbox {
 protected:
  Update() { mailbox_ = Named("bob"); }

  static constexpr const char* kRewritten = "maildir:~/.maildir userdb_quota_rule=*:bytes=500M";
};

TEST_F(Update, RewritesTheLineAndPostsOnce) {
  const auto back_end = NewBackEnd();
  (*back_end)->Update(mailbox_);
  EXPECT_THAT(host.Calls(),
              ElementsAreArray(Join({Opening(),
                                     {"GetEmailName", "Assert bob@x.org", "GetEmailOwner"},
                                     Writing(),
                                     Reload()})));
  EXPECT_EQ((Line{"bob@x.org", "old", "1001", "1002", "info", "/home/joe/mail", "shell", "flags",
                  kRewritten}),
            host.lines[0]);
}

TEST_F(Update, PushesThePasswordAfterThePostWhenTheRecordAsksForIt) {
  const auto back_end = NewBackEnd();
  UseHash("h");
  mailbox_->pwupdate.SetStored("on");
  (*back_end)->Update(mailbox_);
  EXPECT_THAT(host.Calls(),
              ElementsAreArray(Join({Opening(),
                                     {"GetEmailName", "Assert bob@x.org", "GetEmailOwner"},
                                     Writing(),
                                     Reload(),
                                     Pushing("bob@x.org")})));
  EXPECT_EQ("h", host.Column("bob@x.org", 2));
}

TEST_F(Update, LeavesThePasswordUnlessAskedForAndOurs) {
  const struct {
    const char* name;
    const char* email_auth;
    const char* flag;
  } cases[] = {{"not asked for", "", "off"},
               {"not asked for, kept by Dovecot", "dovecot", "off"},
               {"kept by Dovecot", "dovecot", "on"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto back_end = NewBackEnd(c.email_auth);
    mailbox_->pwupdate.SetStored(c.flag);
    (*back_end)->Update(mailbox_);
    EXPECT_EQ("old", host.Column("bob@x.org", 2));
    EXPECT_THAT(host.runs, IsEmpty());
  }
}

TEST_F(Update, OfAMissingLineFailsChangesNothingAndLogsNothing) {
  const auto back_end = NewBackEnd();
  host.log_level = 9;
  mailbox_ = Named("nobody");
  const auto before = host.lines;
  EXPECT_THROW((*back_end)->Update(mailbox_), mgr_err::Error);
  EXPECT_EQ(before, host.lines);
  EXPECT_THAT(host.Calls(),
              ElementsAreArray(Join({Opening(), {"GetEmailName", "Assert nobody@x.org"}})));
}

TEST_F(Update, SaysTheQuotaRuleAtLevelNineBeforeTheWrites) {
  const auto back_end = NewBackEnd();
  host.log_level = 9;
  host.save_reason = 1;
  mailbox_->quota.SetStored("200");
  (*back_end)->Update(mailbox_);
  const Calls calls = host.Calls();
  const std::string& message = calls.at(4);
  EXPECT_THAT(message, testing::MatchesRegex("log 9: email_dovecot:[0-9]+ post quota  "
                                             "userdb_quota_rule=\\*:bytes=200M"));
  EXPECT_TRUE(recording::IsLoggedAt(message, "dovecot_interface.cpp", "%s:%d post quota %s"));
  EXPECT_EQ("GetEmailOwner", calls.at(5));
  EXPECT_THAT(host.Calls("log"), ElementsAre(message));
  EXPECT_EQ("maildir:~/.maildir userdb_quota_rule=*:bytes=200M", host.Column("bob@x.org", 9));
}

TEST_F(Update, BelowLevelNineSaysNothing) {
  const auto back_end = NewBackEnd();
  host.log_level = 8;
  (*back_end)->Update(mailbox_);
  EXPECT_THAT(host.Calls("log"), IsEmpty());
}

TEST_F(Update, TheQuotaRuleIsFormedAsAtCreation) {
  const auto back_end = NewBackEnd();
  for (const auto& c : kQuotaCases) {
    SCOPED_TRACE(c.name);
    mailbox_->quota.SetStored(c.quota);
    (*back_end)->Update(mailbox_);
    EXPECT_EQ(std::string("maildir:~/.maildir userdb_quota_rule=*:bytes=") + c.rule,
              host.Column("bob@x.org", 9));
  }
}

TEST_F(Update, OfTheHomeMakesNoMaildir) {
  const auto back_end = NewBackEnd();
  mailbox_->home.SetStored("/elsewhere");
  (*back_end)->Update(mailbox_);
  EXPECT_EQ("/elsewhere", host.Column("bob@x.org", 6));
  EXPECT_THAT(host.Calls("Exists"), IsEmpty());
  EXPECT_THAT(host.jobs, IsEmpty());
}

TEST_F(Update, WhenHashingFailsTheOtherColumnsAreStoredAndTheOldPasswordStays) {
  const auto back_end = NewBackEnd();
  mailbox_->pwupdate.SetStored("on");
  host.tool = [](const std::string&, const std::string&) { return Outcome{"no\n", 75}; };
  EXPECT_THROW((*back_end)->Update(mailbox_), email::Fail);
  EXPECT_EQ((Line{"bob@x.org", "old", "1001", "1002", "info", "/home/joe/mail", "shell", "flags",
                  kRewritten}),
            host.lines[0]);
}

TEST_F(Update, AnExceptionAtEachStepReleasesTheCursor) {
  const auto back_end = NewBackEnd();
  UseHash("h");
  mailbox_->pwupdate.SetStored("on");
  (*back_end)->Update(mailbox_);
  Calls steps = host.Calls();
  std::erase(steps, "~Execute");
  const std::ptrdiff_t first_post =
      std::find(steps.begin(), steps.end(), "Post line ''") - steps.begin();
  const Line before = {"bob@x.org", "old", "5", "6", "info", "/b", "shell", "flags", "where"};
  for (std::size_t step = 0; step < steps.size(); ++step) {
    SCOPED_TRACE(steps[step]);
    host.lines = {before};
    host.ForgetCalls();
    host.fail_at = static_cast<int>(step);
    EXPECT_THROW((*back_end)->Update(mailbox_), mgr_err::Error);
    EXPECT_EQ(0, host.cursors_out);
    EXPECT_EQ(static_cast<std::ptrdiff_t>(step) <= first_post ? "where" : kRewritten,
              host.Column("bob@x.org", 9));
  }
}

class Delete : public Mailbox {
 protected:
  Delete() { mailbox_ = Named("bob"); }
};

TEST_F(Delete, RemovesTheLineAndLeavesTheDirectories) {
  const auto back_end = NewBackEnd();
  (*back_end)->Delete(mailbox_);
  EXPECT_THAT(host.Calls(),
              ElementsAreArray(Join(
                  {{"GetEmailName"}, Opening(), {"Find bob@x.org", "_Delete true"}, Reload()})));
  EXPECT_THAT(host.lines, IsEmpty());
}

TEST_F(Delete, WithDovecotKeepingThePasswordsDoesNothingAtAll) {
  const auto back_end = NewBackEnd("dovecot");
  (*back_end)->Delete(mailbox_);
  EXPECT_THAT(host.Calls(), IsEmpty());
  EXPECT_EQ("bob@x.org", host.Column("bob@x.org", 1));
}

TEST_F(Delete, OfAMailboxWithoutALineIsNoError) {
  const auto back_end = NewBackEnd();
  mailbox_ = Named("nobody");
  (*back_end)->Delete(mailbox_);
  EXPECT_THAT(host.Calls("InternalCall"), IsEmpty());
  EXPECT_EQ(1U, host.lines.size());
}

TEST_F(Delete, AFailureInsideThePasswordBackEndPassesOn) {
  const auto back_end = NewBackEnd();
  for (int step = 0; step < 6; ++step) {
    SCOPED_TRACE(step);
    host.lines = {{"bob@x.org"}};
    host.ForgetCalls();
    host.fail_at = step;
    EXPECT_THROW((*back_end)->Delete(mailbox_), mgr_err::Error);
    EXPECT_EQ(0, host.cursors_out);
  }
}

class ReloadConfig : public recording::PluginTest {};

TEST_F(ReloadConfig, QueuesTheReloadCommandOnce) {
  const auto back_end = NewBackEnd();
  host.paths["dovecot-doveadm"] = "/usr/bin/doveadm";
  (*back_end)->ReloadConfig();
  EXPECT_THAT(host.Calls(),
              ElementsAre("GetPath dovecot-doveadm", "ExecuteLater '/usr/bin/doveadm reload'"));
}

TEST_F(ReloadConfig, UsesAPathChangedAfterStartUpWhileTheQuotaQueryKeepsTheOldOne) {
  const auto back_end = NewBackEnd();
  host.paths["dovecot-doveadm"] = "/new";
  (*back_end)->ReloadConfig();
  std::map<std::string, int> used;
  (*back_end)->CacheQuota(used);
  EXPECT_THAT(host.Calls("ExecuteLater"), ElementsAre("ExecuteLater '/new reload'"));
  EXPECT_TRUE(host.runs.at(0).command.starts_with("/d quota get"));
}

TEST_F(ReloadConfig, TwoCallsQueueTwoCommands) {
  const auto back_end = NewBackEnd();
  (*back_end)->ReloadConfig();
  (*back_end)->ReloadConfig();
  EXPECT_EQ(2U, host.Calls("ExecuteLater '/d reload'").size());
}

TEST_F(ReloadConfig, AnEmptyPathIsNotCaught) {
  const auto back_end = NewBackEnd();
  host.paths["dovecot-doveadm"] = "";
  (*back_end)->ReloadConfig();
  EXPECT_THAT(host.Calls("ExecuteLater"), ElementsAre("ExecuteLater ' reload'"));
}

TEST_F(ReloadConfig, NeitherRunsTheReloadActionNorReadsTheRestartCommand) {
  const auto back_end = NewBackEnd();
  host.log_level = 9;
  (*back_end)->ReloadConfig();
  EXPECT_THAT(host.Calls("InternalCall"), IsEmpty());
  EXPECT_THAT(host.Calls("GetPath dovecot-restart"), IsEmpty());
  EXPECT_THAT(host.Calls("log"), IsEmpty());
}

}  // namespace
