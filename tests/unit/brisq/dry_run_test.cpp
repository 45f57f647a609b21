// The option --dry-run of every command that changes something, on the built program.

#include <set>

#include "brisq/command.h"
#include "tests/unit/brisq/instance_fixture.h"

namespace brisq {
namespace {

using testing::HasSubstr;
using testing::Not;

struct Change {
  const char* words;  // HOME and FILES stand for a folder and the certificate's options
  const char* named;  // what the output says of it
  const char* input = "";
};

// At least one row for each command that changes something.
const Change kChanges[] = {
    {"owner add other --uid 6000 --gid 6000 --home HOME-other", "HOME-other made"},
    {"domain add example.net --owner demo", "domain example.net added"},
    {"domain set example.org --active off", "line of bob@example.org removed"},
    {"domain delete example.org", "domain example.org deleted"},
    {"mailbox add al@example.org --generate", "line of al@example.org added"},
    {"mailbox add al@example.org --password-stdin", "mail/example.org/al/.maildir made", "word\n"},
    {"mailbox set bob@example.org --quota 7", "line of bob@example.org changed"},
    {"mailbox passwd bob@example.org --password-stdin", "line of bob@example.org changed",
     "word\n"},
    {"mailbox delete bob@example.org", "line of bob@example.org removed"},
    {"mailbox restore old@example.org", "line of old@example.org added"},
    {"refresh", "nothing was changed"},
    {"tls set example.org FILES", "certs/example.org.conf written"},
    {"tls unset secure.org", "ssl/secure.org.crt removed"},
    {"tls prune", "certs/gone.org.conf removed"},
    {"job undo 3", "line of bob@example.org removed"},
    {"sync", "-bob@example.org:{CRAM-MD5}***:5000:5000"},
    {"sync --generate", "line of bob@example.org changed"},
    {"reload now", "reload of the mail server"},
    {"reload now --restart", "restart of the mail server"},
    {"passwd-file edit", "passwd edited"},
    {"action run dovecot.certs.check", "certs/gone.org.conf removed"},
};

std::string Replaced(std::string text, const std::string& what, const std::string& by) {
  const std::size_t at = text.find(what);
  return at == std::string::npos ? text : text.replace(at, what.size(), by);
}

class DryRunTest : public InstanceTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    AddDomain();
    AddMailbox("bob@example.org");
    AddMailbox("old@example.org");
    Expect(0, "mailbox delete old@example.org --yes");
    Expect(0, "domain add secure.org --owner demo");
    files_ = MakeCertificate("example.org");
    Expect(0, "tls set secure.org " + MakeCertificate("secure.org"));
    // As an edit by hand leaves it.
    dir_.Write("passwd", Replaced(Passwd(), "=2048M", "=9M"));
    dir_.Write("certs/gone.org.conf", "local_name gone.org {\n\tssl_cert = </nowhere\n}\n");
    doveadm_.Answers("{CRAM-MD5}another\n");
    // The editor of passwd-file edit.
    setenv("EDITOR", "sed -i s/5000:5000/5000:5001/", 1);
    doveadm_.Reports("bob@example.org User quota STORAGE 3072 - 0\n");
  }

  void TearDown() override {
    unsetenv("EDITOR");
    ProgramTest::TearDown();
  }

  std::string Words(const std::string& words) const {
    return Replaced(Replaced(words, "HOME", dir_ / "home"), "FILES", files_);
  }

  std::string files_;
};

TEST_F(DryRunTest, NoCommandChangesAnythingAndEachNamesItsChanges) {
  const auto before = Everything();
  for (const Change& change : kChanges) {
    SCOPED_TRACE(change.words);
    const Ran ran = Expect(0, Words(change.words) + " --dry-run", change.input);
    EXPECT_THAT(ran.err, HasSubstr(Replaced(change.named, "HOME", dir_ / "home")));
    EXPECT_THAT(ran.err, HasSubstr("dry run: nothing was changed\n"));
    EXPECT_EQ("", ChangedSince(before));
  }
}

TEST_F(DryRunTest, ALogTellsNothingThatDidNotHappen) {
  Expect(0, "tls prune --dry-run");
  EXPECT_THAT(dir_.Read("log/dormel.log"), HasSubstr("dry run: Remove config "));
  Expect(0, "tls prune");
  EXPECT_THAT(dir_.Read("log/dormel.log"), HasSubstr(" Remove config "));
  const std::string log = dir_.Read("log/dormel.log");
  const std::string last = log.substr(log.rfind('\n', log.size() - 2) + 1);
  EXPECT_THAT(last, Not(HasSubstr("dry run"))) << log;
}

TEST_F(DryRunTest, TheSameCommandsDoChangeSomethingWithoutIt) {
  for (const char* words : {"mailbox set bob@example.org --quota 7", "tls prune", "refresh"}) {
    SCOPED_TRACE(words);
    const auto before = Everything();
    Expect(0, words);
    EXPECT_NE("", ChangedSince(before));
  }
}

TEST(DryRunTableTest, EveryCommandThatChangesSomethingHasARow) {
  std::set<std::string> rows;
  for (const Change& change : kChanges) rows.insert(change.words);
  for (const Command& command : Commands()) {
    const std::string name = command.noun + (command.verb.empty() ? "" : " " + command.verb);
    const auto row = rows.lower_bound(name);
    const bool has_row = row != rows.end() && row->starts_with(name);
    EXPECT_EQ(command.changes, has_row) << name;
  }
}

TEST_F(DryRunTest, AFailureHasTheExitCodeOfTheRealRun) {
  struct Case {
    const char* words;
    int status;
    const char* error;
  };
  const Case cases[] = {
      {"mailbox add bob@example.org --generate", 6, "brisq: exists: mailbox"},
      {"mailbox delete nobody@example.org --yes", 4, "brisq: not-found: mailbox"},
      {"mailbox set bob@example.org --quota x", 10, "brisq: invalid-input: quota"},
      {"mailbox add linked@example.org --generate", 1, "not safe: is a symbolic link"},
      {"mailbox set bob@example.org", 2, "brisq: usage"},
  };
  dir_.Write("home/mail/example.org/other/x", "");
  ASSERT_EQ(0, std::system(("cd '" + (dir_ / "home/mail/example.org") +
                            "' && ln -s other linked && chown -h 5000:5000 linked other")
                               .c_str()));
  for (const Case& c : cases) {
    SCOPED_TRACE(c.words);
    const auto before = Everything();
    EXPECT_THAT(Expect(c.status, std::string(c.words) + " --dry-run").err, HasSubstr(c.error));
    EXPECT_EQ("", ChangedSince(before));
    EXPECT_THAT(Expect(c.status, c.words).err, HasSubstr(c.error));
  }
}

TEST_F(DryRunTest, AFailingDoveadmShows) {
  doveadm_.Answers("no luck", 75);
  const auto before = Everything();
  EXPECT_THAT(Expect(9, "mailbox passwd bob@example.org --generate --dry-run").err,
              HasSubstr("no luck"));
  EXPECT_EQ("", ChangedSince(before));
}

TEST_F(DryRunTest, APasswordThatIsNotSetIsNotPrinted) {
  EXPECT_EQ("", Expect(0, "mailbox passwd bob@example.org --generate --dry-run").out);
  const Ran json = Expect(0, "mailbox passwd bob@example.org --generate --dry-run --json");
  EXPECT_THAT(json.out, Not(HasSubstr("password")));
  EXPECT_THAT(json.out, HasSubstr("\"dry_run\":[\"line of bob@example.org changed"));
}

}  // namespace
}  // namespace brisq
