#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "tests/support/places.h"
#include "tests/unit/brisq/program_fixture.h"

namespace brisq {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

class PasswdFileCommands : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    // As on a server, Dovecot's user gets to the file.
    ASSERT_EQ(0, ::chmod(dir_.path().c_str(), 0711));
    AddDomain();
    AddMailbox("ann@example.org");
    AddMailbox("ben@example.org");
  }
  std::string Users() const { return dir_.Read("passwd"); }
};

TEST_F(PasswdFileCommands, AFileThatIsInOrderHasNoFindings) {
  const Ran ran = Run("passwd-file check");
  EXPECT_EQ(0, ran.status) << ran.out;
  EXPECT_EQ("", ran.out + ran.err);
}

TEST_F(PasswdFileCommands, FindingsAreLinesAndGiveExitCodeFive) {
  const std::string file = dir_ / "passwd";
  dir_.Write("passwd", Users() + "ann@example.org:{X}h\nodd@example.org:{X}h:0:1::/h:::m\n");
  ASSERT_EQ(0, ::chmod(file.c_str(), 0646));
  const Ran ran = Run("passwd-file check");
  EXPECT_EQ(5, ran.status);
  EXPECT_EQ("", ran.err);
  for (const std::string& line :
       {"PASSWD-WRITABLE error " + file + ": everybody may change it (fix: chmod 0640 " + file +
            ")",
        "PASSWD-DUPLICATE error " + file + ", line 3: ann@example.org appears in lines 1 and 3",
        "PASSWD-SHORT error " + file + ", line 3: ann@example.org has 2 of 9 columns",
        "PASSWD-ROOT error " + file + ", line 4: odd@example.org has the uid 0",
        "PASSWD-STRANGER warning " + file + ", line 4: odd@example.org is no mailbox"}) {
    EXPECT_THAT("\n" + ran.out, HasSubstr("\n" + line));
  }
  EXPECT_EQ(5, std::count(ran.out.begin(), ran.out.end(), '\n')) << ran.out;
}

TEST_F(PasswdFileCommands, FindingsAreObjectsInJson) {
  dir_.Write("passwd", "");
  const Ran ran = Run("passwd-file check --json");
  EXPECT_EQ(5, ran.status);
  const auto data = nlohmann::json::parse(ran.out)["data"];
  ASSERT_EQ(2U, data.size());
  EXPECT_EQ("PASSWD-NO-LINE", data[0]["code"]);
  EXPECT_EQ("ann@example.org", data[0]["object"]);
}

TEST_F(PasswdFileCommands, AFifoInThePlaceOfTheFileHoldsNobodyUp) {
  ASSERT_EQ(0, ::unlink((dir_ / "passwd").c_str()));
  ASSERT_EQ(0, ::mkfifo((dir_ / "passwd").c_str(), 0600));
  const Ran ran = Run("passwd-file check");
  EXPECT_EQ(5, ran.status);
  EXPECT_THAT(ran.out, StartsWith("PASSWD-KIND error "));
}

class PasswdFileEditCommand : public PasswdFileCommands {
 protected:
  void SetUp() override {
    PasswdFileCommands::SetUp();
    unsetenv("VISUAL");
    unsetenv("EDITOR");
  }
  void TearDown() override { unsetenv("EDITOR"); }

  /// Has the file edited by a shell script that is given the copy as $1.
  void EditBy(const std::string& script) {
    const std::string path = beside_.Write("editor", "#!/bin/sh\n" + script + "\n");
    ASSERT_EQ(0, ::chmod(path.c_str(), 0700));
    ASSERT_EQ(0, setenv("EDITOR", path.c_str(), 1));
  }
  /// Runs the command on a terminal, on which `typed` is typed; what it shows is the output.
  Ran RunOnTerminal(const std::string& typed) {
    const std::string command = support::BuildFolder() + "/bin/brisq --config " +
                                (dir_ / "brisq.toml") + " passwd-file edit";
    beside_.Write("typed", typed);
    const std::string line = "script -qec '" + command + "' /dev/null <'" + (beside_ / "typed") +
                             "' >'" + (beside_ / "shown") + "' 2>&1";
    const int status = std::system(line.c_str());
    return {WEXITSTATUS(status), beside_.Read("shown"), ""};
  }
  bool StateIsClean() const {
    return ::access((dir_ / "state/passwd-file-edit").c_str(), F_OK) != 0;
  }
};

TEST_F(PasswdFileEditCommand, AGoodEditIsSaved) {
  EditBy("sed -i -e '1i # by hand' -e '/^ann@/d' \"$1\"");
  const Ran ran = Run("passwd-file edit");
  EXPECT_EQ(0, ran.status) << ran.err;
  EXPECT_EQ("the passwd-file was changed\n", ran.err);
  EXPECT_THAT(Users(), StartsWith("# by hand\nben@example.org:"));
  EXPECT_TRUE(StateIsClean());
}

TEST_F(PasswdFileEditCommand, NothingChangedIsSaidAndWritesNothing) {
  struct stat before {
  }, after{};
  ASSERT_EQ(0, ::stat((dir_ / "passwd").c_str(), &before));
  EditBy("true");
  const Ran ran = Run("passwd-file edit");
  EXPECT_EQ(0, ran.status);
  EXPECT_EQ("nothing was changed\n", ran.err);
  ASSERT_EQ(0, ::stat((dir_ / "passwd").c_str(), &after));
  EXPECT_EQ(before.st_ino, after.st_ino);
}

TEST_F(PasswdFileEditCommand, WithoutATerminalFindingsEndItAndNothingIsChanged) {
  const std::string before = Users();
  EditBy("echo 'x@example.org:{PLAIN}SECRET:0:1::/h:::m' >>\"$1\"");
  const Ran ran = Run("passwd-file edit");
  EXPECT_EQ(5, ran.status);
  EXPECT_THAT(ran.out, HasSubstr("passwd-file, line 3: x@example.org has the uid 0"));
  EXPECT_EQ(1, std::count(ran.out.begin(), ran.out.end(), '\n'));
  EXPECT_EQ("nothing was changed\n", ran.err);
  EXPECT_EQ(before, Users());
  EXPECT_TRUE(StateIsClean());
}

TEST_F(PasswdFileEditCommand, WarningsAreShownAndSaved) {
  EditBy("echo 'X@example.org:{X}h:1:1::/h:::m' >>\"$1\"");
  const Ran ran = Run("passwd-file edit");
  EXPECT_EQ(0, ran.status);
  EXPECT_THAT(ran.err, HasSubstr("brisq: warning: PASSWD-NAME warning "));
  EXPECT_THAT(Users(), HasSubstr("\nX@example.org:"));
}

TEST_F(PasswdFileEditCommand, OnATerminalItCanBeEditedAgain) {
  // Breaks the file, and mends it the next time.
  EditBy(
      "if grep -q broken \"$1\"; then sed -i '/broken/d; s/^ben/bea/' \"$1\";"
      " else echo broken >>\"$1\"; fi");
  const Ran ran = RunOnTerminal("e\n");
  EXPECT_EQ(0, ran.status) << ran.out;
  EXPECT_THAT(ran.out, HasSubstr("line 3: broken has 1 of 9 columns"));
  EXPECT_THAT(ran.out, HasSubstr("Edit again or abandon? [e/a]"));
  EXPECT_THAT(Users(), HasSubstr("\nbea@example.org:"));
  EXPECT_THAT(Users(), testing::Not(HasSubstr("broken")));
}

TEST_F(PasswdFileEditCommand, OnATerminalItCanBeAbandoned) {
  const std::string before = Users();
  EditBy("echo broken >>\"$1\"");
  const Ran ran = RunOnTerminal("x\na\n");
  EXPECT_EQ(8, ran.status) << ran.out;
  EXPECT_THAT(ran.out, HasSubstr("abandoned, nothing was changed"));
  EXPECT_EQ(before, Users());
}

TEST_F(PasswdFileEditCommand, WithoutATerminalAndWithoutAnEditorItIsRefused) {
  const Ran ran = Run("passwd-file edit");
  EXPECT_EQ(2, ran.status);
  EXPECT_EQ("brisq: usage: without a terminal this needs VISUAL or EDITOR to be set\n", ran.err);
}

// Another process changes a password while the editor is open.
TEST_F(PasswdFileEditCommand, AnotherProcesssChangeMeanwhileIsKeptOrTheEditIsRefused) {
  const std::string brisq =
      support::BuildFolder() + "/bin/brisq --config '" + (dir_ / "brisq.toml") + "' ";
  doveadm_.Answers("{CRAM-MD5}another\n");
  const std::string change =
      "echo word | " + brisq + "mailbox passwd ann@example.org --password-stdin 2>/dev/null; ";
  EditBy(change + "sed -i 's/^ben/bea/' \"$1\"");
  EXPECT_EQ(0, Run("passwd-file edit").status);
  EXPECT_THAT(Users(), StartsWith("ann@example.org:{CRAM-MD5}another:"));
  EXPECT_THAT(Users(), HasSubstr("\nbea@example.org:"));
  doveadm_.Answers("{CRAM-MD5}third\n");
  EditBy(change + "sed -i '/^ann/s/another/mine/' \"$1\"");
  const Ran ran = Run("passwd-file edit");
  EXPECT_EQ(75, ran.status);
  EXPECT_THAT(ran.err, HasSubstr("unchanged: ann@example.org changed by somebody else meanwhile"));
  EXPECT_THAT(Users(), StartsWith("ann@example.org:{CRAM-MD5}third:"));
}

TEST_F(PasswdFileEditCommand, NoHashReachesALogOrTheScreen) {
  EditBy("echo 'x@example.org:{PLAIN}SECRET:0:x::h:::% nopassword' >>\"$1\"; exit 0");
  const Ran ran = Run("passwd-file edit");
  EditBy("echo 'x@example.org:{PLAIN}SECRET:1:1::/h:::m' >>\"$1\"");
  const Ran saved = Run("passwd-file edit");
  EXPECT_EQ(0, saved.status);
  EXPECT_THAT(ran.out + ran.err + saved.out + saved.err, testing::Not(HasSubstr("SECRET")));
  const std::string search = "grep -r SECRET '" + (dir_ / "log") + "' '" + (dir_ / "state") + "'";
  EXPECT_NE(0, std::system((search + " >/dev/null").c_str()));
}

}  // namespace
}  // namespace brisq
