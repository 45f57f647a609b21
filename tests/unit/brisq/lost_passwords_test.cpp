// A password that the program makes is told by its output alone: nothing may come between the
// change and that, or else its loss is said.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>

#include "tests/support/stub_program.h"
#include "tests/unit/brisq/program_fixture.h"

namespace brisq {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char* kAdd = "mailbox add new@example.org --generate";
constexpr const char* kPasswd = "mailbox passwd al@example.org --generate";
constexpr const char* kSync = "sync --generate";

class LostPasswords : public ProgramTest {
 protected:
  void SetUp() override {
    ProgramTest::SetUp();
    AddDomain();
    AddMailbox("al@example.org");
    AddMailbox("bo@example.org");
    // The program's process is that of the shell that has noted its number.
    in_front_ = "sh -c 'echo $$ >" + (beside_ / "pid") + "; exec \"$0\" \"$@\"' ";
  }

  // The tool sends the signal to the program as it is asked for this, then does as ever.
  void SendWhen(const std::string& asked, const std::string& signal) {
    const std::string stand_in = support::WriteStub(
        beside_ / "sender", "case \"$1 $2\" in\n'" + asked + "') kill -" + signal + " $(cat '" +
                                (beside_ / "pid") + "');;\nesac\nexec '" + doveadm_.path() +
                                "' \"$@\"\n");
    std::string settings = dir_.Read("brisq.toml");
    const std::size_t at = settings.find("dovecot-doveadm = \"") + 19;
    settings.replace(at, settings.find('"', at) - at, stand_in);
    dir_.Write("brisq.toml", settings);
  }

  // As after a restore from a backup of the table alone.
  void ForgetPasswords() {
    std::string lines = dir_.Read("passwd");
    for (std::size_t at = 0; (at = lines.find("{CRAM-MD5}hash", at)) != std::string::npos;)
      lines.erase(at, 14);
    dir_.Write("passwd", lines);
  }

  // Its exit code, with standard output as the shell's words have it; 9 is a pipe without a reader.
  int RunTo(const std::string& to, const std::string& words) {
    int ends[2];
    EXPECT_EQ(0, ::pipe2(ends, O_CLOEXEC));
    ::dup2(ends[1], 9);
    for (const int end : ends) ::close(end);
    const std::string line = Program() + " " + words + " " + to + " 2>'" + (beside_ / "err") + "'";
    const int status = std::system(line.c_str());
    ::close(9);
    return StatusOf(status);
  }

  // The password of the last hashing.
  std::string Made() const {
    const std::string input = doveadm_.Input();
    return input.substr(0, input.find('\n'));
  }
};

// Behind the commit, before the output: Dovecot is reloaded.
TEST_F(LostPasswords, ASignalBehindTheChangeIsObeyedOnceTheyAreTold) {
  struct Case {
    const char* name;
    const char* command;
    const char* signal;
    int number;
  };
  const Case cases[] = {
      {"a new mailbox", kAdd, "INT", SIGINT},
      {"another password", kPasswd, "TERM", SIGTERM},
      {"lines without one", kSync, "HUP", SIGHUP},
      {"for a program to read", "--json mailbox passwd al@example.org --generate", "INT", SIGINT},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ForgetPasswords();  // a hash that does not change asks for no reload
    SendWhen("reload ", c.signal);
    const Ran ran = Run(c.command);
    EXPECT_EQ(128 + c.number, ran.status) << ran.err;
    EXPECT_THAT(ran.out, HasSubstr(Made()));
  }
}

TEST_F(LostPasswords, ASignalWhileTheHashIsMadeLosesNothing) {
  for (const char* command : {kAdd, kPasswd}) {
    SCOPED_TRACE(command);
    SendWhen("pw -s", "TERM");
    const Ran ran = Run(command);
    EXPECT_EQ(128 + SIGTERM, ran.status) << ran.err;
    EXPECT_EQ(Made() + "\n", ran.out);
  }
}

// Hashing thousands takes minutes, and until all is done nothing of it counts.
TEST_F(LostPasswords, ALongSyncEndsEarlyAndWithoutAChange) {
  ForgetPasswords();
  const std::string before = dir_.Read("passwd");
  doveadm_.Answers("{CRAM-MD5}hash\n");  // counts from here
  SendWhen("pw -s", "INT");
  const Ran ran = Run(kSync);
  EXPECT_EQ(128 + SIGINT, ran.status);
  EXPECT_EQ("brisq: try-later: sync: interrupted, nothing was changed\n", ran.err);
  EXPECT_THAT(ran.out, IsEmpty());
  EXPECT_EQ(1, doveadm_.Calls());
  EXPECT_EQ(before, dir_.Read("passwd"));
  SendWhen("nothing", "INT");
  const Ran again = Run(kSync);
  EXPECT_THAT(again.out, HasSubstr("bo@example.org " + Made()));
}

TEST_F(LostPasswords, WhenTheyCantBeWrittenTheAddressesAreNamed) {
  struct Case {
    const char* name;
    const char* command;
    const char* to;
    bool interrupted;
    std::string lost;
  };
  const auto one = [](const std::string& address) {
    return "password of " + address + " is lost: set another one with \"brisq mailbox passwd " +
           address + " --generate\"\n";
  };
  const std::string all =
      "passwords of these are lost; set others with \"brisq mailbox passwd ADDRESS --generate\": "
      "al@example.org bo@example.org new@example.org\n";
  const Case cases[] = {
      {"a full disk", kAdd, ">/dev/full", false, one("new@example.org")},
      {"a full disk, interrupted", kPasswd, ">/dev/full", true, one("al@example.org")},
      {"no output", kPasswd, ">&-", false, one("al@example.org")},
      {"a reader that is gone, interrupted", kPasswd, ">&9", true, one("al@example.org")},
      {"several, a reader that is gone", kSync, ">&9", false, all},
      {"several, a full disk, interrupted", kSync, ">/dev/full", true, all},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ForgetPasswords();
    SendWhen(c.interrupted ? "reload " : "nothing", "INT");
    EXPECT_EQ(c.interrupted ? 128 + SIGINT : 1, RunTo(c.to, c.command));
    const std::string err = beside_.Read("err");
    EXPECT_THAT(err,
                EndsWith("brisq: failed: standard output: can't be written; the new " + c.lost));
    EXPECT_THAT(err, Not(HasSubstr(Made())));
  }
}

// What a terminal's other end has written, up to the end of `text`.
std::string ReadUntil(int terminal, const std::string& text) {
  std::string seen;
  char c = 0;
  while (seen.find(text) == std::string::npos && ::read(terminal, &c, 1) == 1) seen += c;
  return seen;
}

bool Echoes(int terminal) {
  termios state{};
  EXPECT_EQ(0, ::tcgetattr(terminal, &state));
  return (state.c_lflag & ECHO) != 0;
}

TEST_F(LostPasswords, ASignalAtAQuestionEndsTheProgramAtOnceAndGivesTheEchoBack) {
  doveadm_.Answers("{CRAM-MD5}hash\n");  // counts from here
  const std::string config = dir_ / "brisq.toml";
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    SCOPED_TRACE(signal);
    int terminal = -1;
    int kept = -1;  // else the terminal is gone with the program
    char name[64];
    const pid_t program = ::forkpty(&terminal, name, nullptr, nullptr);
    ASSERT_NE(-1, program);
    if (program == 0) {
      ::execl(program_.c_str(), "brisq", "--config", config.c_str(), "mailbox", "passwd",
              "al@example.org", "--password-stdin", nullptr);
      ::_exit(127);
    }
    kept = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_THAT(ReadUntil(terminal, "Password: "), HasSubstr("Password: "));
    EXPECT_FALSE(Echoes(terminal));
    // Behind Ctrl-C for who does not obey it.
    const std::string typed = signal == SIGINT ? "\003other\nother\n" : "";
    EXPECT_EQ(static_cast<ssize_t>(typed.size()), ::write(terminal, typed.data(), typed.size()));
    if (typed.empty()) ::kill(program, signal);
    int status = 0;
    EXPECT_EQ(program, ::waitpid(program, &status, 0));
    EXPECT_EQ(128 + signal, StatusOf(status));
    EXPECT_TRUE(Echoes(terminal));
    ::close(kept);
    ::close(terminal);
  }
  EXPECT_EQ(0, doveadm_.Calls());
}

}  // namespace
}  // namespace brisq
