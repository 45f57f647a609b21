// Every command, run as the built program on an instance of its own with a stand-in for doveadm.

#include <filesystem>

#include "tests/support/places.h"
#include "tests/unit/brisq/commands_fixture.h"

namespace brisq {
namespace {

using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

// A certificate and a key for example.org, as words for tls set.
std::string MakeCertificate(const support::TempDir& dir) {
  EXPECT_EQ(0, std::system(("cd '" + dir.path() +
                            "' && openssl req -x509 -newkey rsa:2048 -nodes -keyout k.pem "
                            "-out c.pem -days 90 -subj /CN=example.org -addext "
                            "subjectAltName=DNS:example.org >/dev/null 2>&1 && chmod 600 k.pem")
                               .c_str()));
  return " --cert '" + (dir / "c.pem") + "' --key '" + (dir / "k.pem") + "'";
}

TEST_F(CommandsTest, AMailboxIsAddedAndShown) {
  AddDomain();
  AddMailbox("Bob@example.org");
  const std::string home = dir_ / "home/mail/example.org/bob";
  const json mailbox = {{"address", "bob@example.org"},
                        {"owner", "demo"},
                        {"home", home},
                        {"quota_mb", 2048},
                        {"used_mb", 0},
                        {"active", true}};
  EXPECT_EQ(json::array({mailbox}), Data("mailbox list"));
  EXPECT_EQ(json::array({mailbox}), Data("mailbox show bob@example.org"));
  EXPECT_EQ("bob@example.org:{CRAM-MD5}hash:5000:5000::" + home +
                ":::maildir:~/.maildir userdb_quota_rule=*:bytes=2048M\n",
            dir_.Read("passwd"));
}

TEST_F(CommandsTest, OwnersAndDomainsAreShown) {
  AddDomain();
  EXPECT_EQ("demo", Data("owner show demo")[0]["name"]);
  EXPECT_EQ(5000, Data("owner list")[0]["uid"]);
  EXPECT_EQ("demo", Data("domain show EXAMPLE.org")[0]["owner"]);
  EXPECT_EQ("example.org", Data("domain list")[0]["domain"]);
}

TEST_F(CommandsTest, AGeneratedPasswordIsTheOnlyData) {
  AddDomain();
  const Ran ran = Run("mailbox add bob@example.org --generate");
  EXPECT_EQ(0, ran.status);
  EXPECT_THAT(ran.out, testing::MatchesRegex("[A-Za-z0-9]{20,}\n"));
  EXPECT_THAT(ran.err, HasSubstr("mailbox bob@example.org added"));
  EXPECT_EQ(ran.out + ran.out, doveadm_.Input());
}

TEST_F(CommandsTest, AMailboxIsChanged) {
  AddDomain();
  AddMailbox("bob@example.org");
  EXPECT_EQ(0, Run("mailbox set bob@example.org --quota 5").status);
  EXPECT_EQ(5, Data("mailbox show bob@example.org")[0]["quota_mb"]);
  EXPECT_EQ(0, Run("mailbox set bob@example.org --active off").status);
  EXPECT_EQ("", dir_.Read("passwd"));
  EXPECT_EQ(0, Run("mailbox set bob@example.org --active on").status);
  EXPECT_THAT(dir_.Read("passwd"), StartsWith("bob@example.org:{CRAM-MD5}hash:"));
  EXPECT_EQ(2, Run("mailbox set bob@example.org").status);
  EXPECT_EQ(10, Run("mailbox set bob@example.org --active maybe").status);
}

TEST_F(CommandsTest, APasswordIsChanged) {
  AddDomain();
  AddMailbox("bob@example.org");
  doveadm_.Answers("{CRAM-MD5}other\n");
  EXPECT_EQ(0, Run("mailbox passwd bob@example.org --password-stdin", "new one\n").status);
  EXPECT_EQ("new one\nnew one\n", doveadm_.Input());
  EXPECT_THAT(dir_.Read("passwd"), StartsWith("bob@example.org:{CRAM-MD5}other:"));
}

// The database refuses requests of reloads, but not the change itself.
TEST_F(CommandsTest, WhatIsStillOwedBehindAChangeIsSaidAndMadeByTheNextCommand) {
  Reconfigure("dovecot-restart = \"true\"",
              "dovecot-restart = \"echo restart >>'" + (dir_ / "restarts") + "'\"");
  AddDomain();
  AddMailbox("al@example.org");  // which makes the table of the requests
  const std::string sql = "sqlite3 '" + (dir_ / "state/panel.db") + "' \"";
  ASSERT_EQ(0, std::system((sql + "CREATE TRIGGER refuse BEFORE INSERT ON reload_request BEGIN"
                                  " SELECT RAISE(ABORT, 'no room'); END\"")
                               .c_str()));
  const Ran set = Run("tls set example.org" + MakeCertificate(dir_));
  EXPECT_EQ(12, set.status) << set.err;
  EXPECT_THAT(set.err,
              HasSubstr("brisq: warning: after the commit: action dovecot.reload failed: "
                        "later: request of dovecot.reload: can't be stored; the change is "
                        "stored, and this is still to be done: the next command tries it"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "restarts"));
  EXPECT_THAT(Run("check").out, HasSubstr("JOURNAL-OPEN error"));
  const Ran refused = Run("domain list");
  EXPECT_EQ(0, refused.status) << "it was not its change";
  EXPECT_THAT(refused.err, HasSubstr("did not finish all of job"));

  ASSERT_EQ(0, std::system((sql + "DROP TRIGGER refuse\"").c_str()));
  EXPECT_THAT(Run("mailbox list").err, HasSubstr("finished job"));
  const Ran due = Run("check --fix --only tls");  // runs what is due
  EXPECT_EQ(0, due.status) << due.out;
  EXPECT_EQ("restart\n", dir_.Read("restarts"));
}

TEST_F(CommandsTest, ADatabaseOfALaterProgramIsRefused) {
  AddDomain();
  const std::string database = dir_ / "state/panel.db";
  ASSERT_EQ(0, std::system(("sqlite3 '" + database + "' 'PRAGMA user_version = 900'").c_str()));
  for (const char* words : {"mailbox list", "check", "mailbox add bob@example.org --generate"}) {
    SCOPED_TRACE(words);
    const Ran ran = Run(words);
    EXPECT_EQ(1, ran.status);
    EXPECT_EQ("", ran.out);
    EXPECT_THAT(ran.err, StartsWith("brisq: failed: " + database + ": its data is of version 900"));
  }
  EXPECT_FALSE(std::filesystem::exists(dir_ / "passwd"));
}

TEST_F(CommandsTest, AMendedModeIsAJobAndComesBack) {
  AddDomain();
  AddMailbox("bob@example.org");
  ASSERT_EQ(0, std::system(("chmod 644 '" + (dir_ / "passwd") + "'").c_str()));
  const Ran mended = Run("check --fix --only passwd --json");
  EXPECT_EQ("PASSWD-READABLE", json::parse(mended.out)["mended"][0]["code"]) << mended.out;
  const json job = Data("job list --last 1")[0];
  EXPECT_EQ("check --fix", job["command"]);
  const std::string number = std::to_string(job["job"].get<int>());
  const json change = Data("job show " + number)[0];
  EXPECT_EQ("access " + (dir_ / "passwd"), change["object"]);
  EXPECT_EQ("0644", change["before"]);
  EXPECT_EQ("0640", change["after"]);
  EXPECT_EQ(0, Run("job undo " + number).status);
  EXPECT_EQ(5, Run("check --only passwd").status);
}

TEST_F(CommandsTest, AJobOfManyObjectsNamesTheFirst) {
  AddDomain();
  for (const char* local : {"a", "b", "c", "d", "e"})
    AddMailbox(std::string(local) + "@example.org");
  std::remove((dir_ / "passwd").c_str());
  EXPECT_EQ(0, Run("sync").status);
  EXPECT_EQ("a@example.org, b@example.org, c@example.org and 2 more",
            Data("job list --last 1")[0]["objects"]);
}

TEST_F(CommandsTest, AJobIsListedShownAndUndone) {
  AddDomain();
  AddMailbox("bob@example.org");
  const std::string before = dir_.Read("passwd");
  EXPECT_EQ(0, Run("mailbox set bob@example.org --quota 7").status);
  const json latest = Data("job list --last 1")[0];
  EXPECT_EQ("mailbox set", latest["command"]);
  EXPECT_EQ("bob@example.org", latest["objects"]);
  EXPECT_EQ("done", latest["state"]);
  const std::string number = std::to_string(latest["job"].get<int>());
  const json change = Data("job show " + number)[0];
  EXPECT_EQ("mailbox bob@example.org", change["object"]);
  EXPECT_EQ("quota", change["value"]);
  EXPECT_EQ("7", change["after"]);
  EXPECT_EQ(0, Run("job undo " + number).status);
  EXPECT_EQ(before, dir_.Read("passwd"));
  EXPECT_THAT(Run("job undo " + number).err, HasSubstr("is undone by job"));
  EXPECT_EQ(8, Run("job undo " + number).status);
  EXPECT_EQ(4, Run("job undo 4711").status);
  EXPECT_EQ(10, Run("job show one").status);
  EXPECT_GT(Data("job list").size(), 3u);
}

TEST_F(CommandsTest, ADomainIsChangedAndDeletedWithItsMailboxes) {
  AddDomain();
  AddMailbox("bob@example.org");
  EXPECT_EQ(2, Run("domain set example.org").status);
  EXPECT_EQ(4, Run("domain set example.org --owner nobody").status);
  EXPECT_EQ(0, Run("domain set example.org --active off").status);
  EXPECT_EQ(false, Data("domain show example.org")[0]["active"]);
  EXPECT_EQ(2, Run("domain delete example.org").status);
  EXPECT_EQ(0, Run("domain delete example.org --yes").status);
  EXPECT_EQ(json::array(), Data("domain list"));
  EXPECT_EQ(json::array(), Data("mailbox list"));
}

TEST_F(CommandsTest, ARefreshTellsWhatItDidAndUsageItsFigures) {
  AddDomain();
  AddMailbox("bob@example.org");
  doveadm_.Reports("bob@example.org User quota STORAGE 3072 2097152 0\n");
  const json report = Data("refresh")[0];
  EXPECT_EQ(1, report["lines"]);
  EXPECT_EQ(1, report["figures_changed"]);
  EXPECT_EQ(3, Data("usage bob@example.org")[0]["used_mb"]);
  EXPECT_EQ(1u, Data("usage 'b*'").size());
  EXPECT_EQ(4, Run("usage nobody@example.org").status);
}

TEST_F(CommandsTest, WithoutFiguresRefreshEndsWithTheDovecotCode) {
  AddDomain();
  AddMailbox("bob@example.org");
  doveadm_.Reports("");
  const Ran ran = Run("refresh");
  EXPECT_EQ(9, ran.status);
  EXPECT_THAT(ran.err, HasSubstr("Dovecot reports no used space"));
}

TEST_F(CommandsTest, ReloadsAreRunAndShown) {
  AddDomain();
  AddMailbox("bob@example.org");
  EXPECT_EQ(0, Run("reload now").status);
  EXPECT_EQ(0, Run("reload now --restart").status);
  const json status = Data("reload status")[0];
  EXPECT_EQ("email.reload", status["group"]);
  EXPECT_EQ("idle", status["state"]);
  EXPECT_EQ("restart", status["kind"]);
}

TEST_F(CommandsTest, ACertificateIsSetCheckedAndUnset) {
  AddDomain();
  EXPECT_EQ(0, Run("tls set example.org" + MakeCertificate(dir_)).status);
  EXPECT_THAT(dir_.Read("certs/example.org.conf"), StartsWith("local_name example.org {\n"));
  EXPECT_EQ("example.org", Data("tls list")[0]["domain"]);
  EXPECT_EQ("", Data("tls check")[0]["findings"]);
  dir_.Write("k.pem", "no key any more");
  EXPECT_EQ(5, Run("tls check").status);
  EXPECT_EQ(0, Run("tls unset example.org").status);
  EXPECT_EQ(json::array(), Data("tls list"));
  EXPECT_EQ(0, Run("tls prune").status);
}

TEST_F(CommandsTest, AServerEndsCleanlyOnTermAndIsAlone) {
  AddDomain();
  const std::string brisq =
      support::BuildFolder() + "/bin/brisq --config '" + (dir_ / "brisq.toml") + "'";
  const std::string script = brisq + " serve 2>'" + (dir_ / "serve.err") + "' & server=$!\n" +
                             "until grep -q serving '" + (dir_ / "serve.err") +
                             "'; do sleep 0.05; done\n" + brisq +
                             " serve 2>/dev/null; second=$?\nkill -TERM $server; wait $server\n" +
                             "[ $? = 0 ] && [ $second = 7 ]\n";
  EXPECT_EQ(0, std::system(script.c_str()));
  EXPECT_THAT(dir_.Read("serve.err"), HasSubstr("email.refresh every 15 min"));
  EXPECT_THAT(dir_.Read("serve.err"), HasSubstr("ended"));
}

TEST_F(CommandsTest, AnErrorIsOneLineWithItsCode) {
  AddDomain();
  AddMailbox("bob@example.org");
  struct Case {
    const char* words;
    int status;
    const char* line;
  };
  const Case cases[] = {
      {"mailbox add bob@example.org --generate", 6, "brisq: exists: mailbox: bob@example.org\n"},
      {"mailbox show al@example.org", 4, "brisq: not-found: mailbox: al@example.org\n"},
      {"owner show nobody", 4, "brisq: not-found: owner: nobody\n"},
      {"owner add zero --uid 0 --gid 1 --home /srv/zero", 10,
       "brisq: invalid-input: uid: 0 not allowed\n"},
      {"domain add two.org --owner nobody", 4, "brisq: not-found: owner: nobody\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.words);
    const Ran ran = Run(c.words);
    EXPECT_EQ(c.status, ran.status);
    EXPECT_EQ(c.line, ran.err);
    EXPECT_EQ("", ran.out);
  }
}

TEST_F(CommandsTest, AFailingDoveadmLeavesNothing) {
  AddDomain();
  doveadm_.Answers("no luck", 75);
  const Ran ran = Run("mailbox add bob@example.org --password-stdin", "secret\n");
  EXPECT_EQ(9, ran.status);
  EXPECT_THAT(ran.err, StartsWith("brisq: dovecot: doveadm: no luck"));
  EXPECT_EQ(json::array(), Data("mailbox list"));
  EXPECT_EQ("", dir_.Read("passwd"));
}

TEST_F(CommandsTest, APasswdFileThatIsNoAbsolutePathIsRefusedByItsKey) {
  std::string before = dir_ / "passwd";
  for (const char* value : {"", "passwd", "./passwd"}) {
    SCOPED_TRACE(value);
    Reconfigure("dovecot-passwd = \"" + before + "\"",
                std::string("dovecot-passwd = \"") + value + "\"");
    before = value;
    const Ran ran = Run("owner list");
    EXPECT_EQ(10, ran.status);
    EXPECT_EQ("brisq: config: dovecot-passwd: must be set to an absolute path in [path]\n",
              ran.err);
  }
}

TEST_F(CommandsTest, ALostKeyStopsWhatNeedsItAndIsNotReplaced) {
  Reconfigure("EmailAuth = \"dovecot\"", "EmailAuth = \"\"");
  AddDomain();
  AddMailbox("bob@example.org");
  std::filesystem::remove(dir_ / "state/seal.key");
  const Ran ran = Run("mailbox add eve@example.org --password-stdin", "secret\n");
  EXPECT_EQ(1, ran.status);
  EXPECT_THAT(ran.err, StartsWith("brisq: failed: " + (dir_ / "state/seal.key") + ": is missing"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "state/seal.key"));
  EXPECT_EQ(1u, Data("mailbox list").size());
}

TEST_F(CommandsTest, ADamagedDatabaseIsNamed) {
  AddDomain();
  dir_.Write("state/panel.db", std::string(8192, 'g'));
  const Ran ran = Run("owner list");
  EXPECT_EQ(1, ran.status);
  EXPECT_THAT(ran.err, StartsWith("brisq: failed: " + (dir_ / "state/panel.db") + ": "));
}

// The mailbox is made by then, so the one thing that is left is to say what to do.
TEST_F(CommandsTest, APasswordThatCantBeShownIsSaidToBeLost) {
  AddDomain();
  for (const char* command : {"add bob@example.org", "passwd bob@example.org"}) {
    SCOPED_TRACE(command);
    const std::string line = support::BuildFolder() + "/bin/brisq --config '" +
                             (dir_ / "brisq.toml") + "' mailbox " + command +
                             " --generate >/dev/full 2>'" + (dir_ / "err") + "'";
    EXPECT_EQ(1, WEXITSTATUS(std::system(line.c_str())));
    EXPECT_THAT(dir_.Read("err"),
                HasSubstr("brisq: failed: standard output: can't be written; the new password of "
                          "bob@example.org is lost: set another one with \"brisq mailbox passwd "
                          "bob@example.org --generate\"\n"));
  }
  EXPECT_EQ(1u, Data("mailbox list").size());
}

TEST_F(CommandsTest, ANumberThatIsNoneIsRefusedWithItsLine) {
  for (const char* value : {"0", "abc", "", "-1", "60s"}) {
    SCOPED_TRACE(value);
    const std::string settings = dir_.Read("brisq.toml");
    dir_.Write("brisq.toml", "[param]\nExecTimeout = \"" + std::string(value) + "\"\n");
    const Ran ran = Run("owner list");
    EXPECT_EQ(10, ran.status);
    EXPECT_EQ("brisq: config: " + (dir_ / "brisq.toml") +
                  ":2: \"ExecTimeout\" must be a number of seconds above 0, at most a year\n",
              ran.err);
    dir_.Write("brisq.toml", settings);
  }
}

// A retry may take as long as the time limit of a child.
TEST_F(CommandsTest, CommandsThatOnlyLookDoNotWaitForReloads) {
  AddDomain();
  AddMailbox("bob@example.org");
  // As a process that was killed before its reload leaves it.
  ASSERT_EQ(0, std::system(("python3 -c \"import sqlite3; "
                            "c = sqlite3.connect('" +
                            (dir_ / "state/panel.db") +
                            "'); c.execute(\\\"INSERT INTO reload_request (grp, action, hard, at) "
                            "VALUES ('email.reload', 'dovecot.reload', 0, 0)\\\"); c.commit()\"")
                               .c_str()));
  for (const char* words :
       {"mailbox list", "mailbox show bob@example.org", "mailbox list --archived", "owner list",
        "owner show demo", "domain list", "domain show example.org", "usage", "tls list",
        "action list", "reload status", "job list", "job show 1", "plan", "passwd-file check",
        "check", "check --fix --dry-run"}) {
    SCOPED_TRACE(words);
    const int status = Run(words).status;
    EXPECT_TRUE(status == 0 || status == 5) << status;
    EXPECT_EQ(1, Data("reload status")[0]["requests"]);
  }
  EXPECT_EQ(0, Run("mailbox set bob@example.org --quota 3").status);
  EXPECT_EQ(0, Data("reload status")[0]["requests"]);
}

TEST_F(CommandsTest, AFullStandardOutputIsAnError) {
  AddDomain();
  const std::string line = support::BuildFolder() + "/bin/brisq --config '" +
                           (dir_ / "brisq.toml") + "' owner list >/dev/full 2>'" + (dir_ / "err") +
                           "'";
  EXPECT_EQ(1, WEXITSTATUS(std::system(line.c_str())));
  EXPECT_EQ("brisq: failed: standard output: can't be written\n", dir_.Read("err"));
}

}  // namespace
}  // namespace brisq
