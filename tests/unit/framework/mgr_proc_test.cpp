#include "mgr_proc.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "mgr_err.h"
#include "tests/support/log_capture.h"
#include "tests/unit/framework/mgr_proc_fixture.h"

namespace {

std::string EveryByte() {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) {
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

std::string Repeated(std::string_view text, std::size_t size) {
  std::string repeated;
  while (repeated.size() < size) {
    repeated += text;
  }
  repeated.resize(size);
  return repeated;
}

struct StandIn {
  std::string name;
  std::string body;  // of a shell script
  std::string input;
  int result;
  std::string output;
};

std::vector<StandIn> StandIns() {
  const std::string huge = Repeated("0123456789abcde\n", std::size_t{3} << 20);
  return {
      {"answers with its input", "cat", "hello\n", 0, "hello\n"},
      {"gets no input", "cat; echo end", "", 0, "end\n"},
      {"prints nothing", ":", "", 0, ""},
      {"prints blanks that stay", "printf ' x \\n\\n'", "", 0, " x \n\n"},
      {"fails without a word", "exit 1", "", 1, "ended with exit status 1 without a word"},
      {"fails with the highest status", "exit 255", "", 255,
       "ended with exit status 255 without a word"},
      {"fails with nothing that can be read", "printf ' \\n\\t\\000\\033\\177'; exit 1", "", 1,
       "ended with exit status 1 without a word"},
      {"fails with both outputs", "echo no >&2; echo out; exit 75", "", 75, "out\nno\n"},
      {"warns and goes well", "echo warning >&2; echo hash", "", 0, "hash\n"},
      {"reads one line of two", "read -r line; echo \"$line\"", "a\nb\n", 0, "a\n"},
      {"leaves its input unread", "echo done", "secret\nsecret\n", 0, "done\n"},
      {"leaves a full pipe unread", "echo done", Repeated("x", 65536), 0, "done\n"},
      {"leaves a huge input unread", "echo done", huge, 0, "done\n"},
      {"closes its input at once", "exec <&-; echo done", huge, 0, "done\n"},
      {"closes a huge input while it is read", "head -c 100000 | wc -c", huge, 0, "100000\n"},
      {"counts one byte more than a pipe holds", "wc -c", Repeated("x", 65537), 0, "65537\n"},
      {"counts what a pipe holds", "wc -c", Repeated("x", 65536), 0, "65536\n"},
      {"writes much before it reads", "head -c 250000 /dev/zero | tr '\\0' a; wc -c", huge, 0,
       Repeated("a", 250000) + std::to_string(huge.size()) + "\n"},
      {"reads all and floods standard error", "head -c 4000000 /dev/zero >&2; wc -c", huge, 0,
       std::to_string(huge.size()) + "\n"},
      {"floods both outputs",
       "head -c 3000000 /dev/zero >&2 & head -c 250000 /dev/zero | tr '\\0' b; wait", "", 0,
       Repeated("b", 250000)},
      {"takes and gives NUL bytes", "cat", std::string("a\0b\0\0c", 6), 0,
       std::string("a\0b\0\0c", 6)},
      {"takes and gives every byte", "cat", EveryByte(), 0, EveryByte()},
      {"ends by SIGTERM", "kill -TERM $$", "", 128 + SIGTERM,
       "ended with exit status 143 (signal 15, Terminated) without a word"},
      {"ends by SIGKILL", "echo half; kill -KILL $$", "", 128 + SIGKILL,
       "half\nended with exit status 137 (signal 9, Killed)"},
      {"ends by SIGSEGV", "ulimit -c 0; kill -SEGV $$", "", 128 + SIGSEGV,
       "ended with exit status 139 (signal 11, Segmentation fault) without a word"},
      {"ends by SIGPIPE as it does outside", "kill -PIPE $$", "", 128 + SIGPIPE,
       "ended with exit status 141 (signal 13, Broken pipe) without a word"},
      {"gives a status that looks like a signal", "exit 137", "", 137,
       "ended with exit status 137 (signal 9, Killed) without a word"},
      {"closes both outputs and goes well", "exec >&- 2>&-; sleep 0.05", "", 0, ""},
      {"closes its outputs and fails", "exec >&- 2>&-; sleep 0.05; exit 9", huge, 9,
       "ended with exit status 9 without a word"},
      {"writes without an end of line", "printf x", "", 0, "x"},
      {"writes one byte at a time", "for i in 1 2 3 4 5 6 7 8 9; do printf $i; done", "", 0,
       "123456789"},
  };
}

std::vector<StandIn> StandInsWithMuchToSay() {
  const std::string large = Repeated("0123456789abcde\n", std::size_t{256} << 10);
  return {
      {"gives more than is kept", "cat; echo", large, 124,
       large.substr(0, 1200) + " [260144 bytes left out] " + large.substr(large.size() - 800) +
           "unexpected output of more than 256 KiB, ended"},
      {"gives more than is kept and fails", "cat; echo; exit 3", large, 124,
       large.substr(0, 1200) + " [260144 bytes left out] " + large.substr(large.size() - 800) +
           "unexpected output of more than 256 KiB, ended"},
      {"gives NUL bytes for ever", "exec cat /dev/zero", "", 124,
       "unexpected output of more than 256 KiB, ended"},
      {"fails with 2,000 bytes", "head -c 2000; exit 1", large, 1, large.substr(0, 2000)},
      {"fails with 2,001 bytes", "head -c 2001; exit 1", large, 1,
       large.substr(0, 1200) + " [1 bytes left out] " + large.substr(1201, 800)},
      {"echoes a large input", "cat", large, 0, large},
  };
}

TEST_F(MgrProc, EveryStandInGivesItsOwnResultAndOutput) {
  SetLimit("30");
  std::vector<StandIn> all = StandIns();
  std::ranges::copy(StandInsWithMuchToSay(), std::back_inserter(all));
  for (const StandIn& child : all) {
    SCOPED_TRACE(child.name);
    mgr_proc::Execute run(Stub(child.body), 3);
    run.In() << child.input;
    EXPECT_EQ(child.result, run.Result());
    const std::string output = run.Str();
    // Comparing first keeps megabytes out of a failure's text.
    EXPECT_TRUE(child.output == output)
        << "got " << output.size() << " bytes: " << output.substr(0, 200);
  }
}

// A failure's text is shown to people and logged.
TEST_F(MgrProc, InputThatAFailingChildPrintsIsBlanked) {
  const struct {
    const char* name;
    const char* body;
    const char* text;
  } cases[] = {
      {"on its output", "cat; exit 1", "***\n***\n"},
      {"on its errors", "cat >&2; exit 1", "***\n***\n"},
      {"in a sentence", "read -r a; echo \"password '$a' is bad\"; exit 7",
       "password '***' is bad\n"},
      {"over both outputs", "printf S3cr; printf 'et word' >&2; exit 1", "***"},
      {"by a signal", "cat; kill -KILL $$",
       "***\n***\nended with exit status 137 (signal 9, Killed)"},
      {"a child that goes well may print it", "cat", "S3cret word\nS3cret word\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    mgr_proc::Execute run(Stub(c.body), 3);
    run.In() << "S3cret word\nS3cret word\n";
    EXPECT_EQ(c.text, run.Str());
  }
}

TEST_F(MgrProc, NoPartOfAnInputIsLeftWhereAnOutputWasCut) {
  for (const char* const body :
       {"read -r a; yes \"$a\"", "read -r a; yes \"$a\" | head -c 300000 >&2; exit 1",
        "read -r a; yes \"$a\" | head -c 3000 | tr -d '\\n'; exit 1"}) {
    for (const char* const secret : {"S3cret word", "S3cret words", "S3cret, long word"}) {
      SCOPED_TRACE(std::string(body) + " told " + secret);
      mgr_proc::Execute run(Stub(body), 3);
      run.In() << secret << "\n" << secret << "\n";
      const std::string text = run.Str();
      EXPECT_EQ(std::string::npos, text.find("S3cr")) << text;
      EXPECT_NE(std::string::npos, text.find("***"));
      EXPECT_LT(text.size(), 2200U);
    }
  }
}

TEST_F(MgrProc, EveryExitStatusIsGivenAndNamed) {
  const std::string stub = Stub("exit $1");
  for (int status = 0; status < 256; ++status) {
    mgr_proc::Execute run(stub + " " + std::to_string(status), 3);
    EXPECT_EQ(status, run.Result());
    const std::string end = "ended with exit status " + std::to_string(status);
    EXPECT_EQ(status == 0 ? "" : end, run.Str().substr(0, end.size()));
  }
}

TEST_F(MgrProc, EverySignalThatEndsAChildIsGivenAndNamed) {
  const std::string stub = Stub("ulimit -c 0; kill -$1 $$");
  for (int signal = 1; signal <= 64; ++signal) {
    const bool ends = signal != SIGCHLD && signal != SIGCONT && signal != SIGURG &&
                      signal != SIGWINCH && signal != SIGSTOP && signal != SIGTSTP &&
                      signal != SIGTTIN && signal != SIGTTOU;
    if (!ends || signal == 32 || signal == 33) {  // those two are the C library's
      continue;
    }
    SCOPED_TRACE(signal);
    mgr_proc::Execute run(stub + " " + std::to_string(signal), 3);
    EXPECT_EQ(128 + signal, run.Result());
    EXPECT_NE(std::string::npos, run.Str().find("(signal " + std::to_string(signal) + ", "));
  }
}

// Number of the process that started the one whose line of /proc this is.
int ParentIn(const std::string& stat) {
  std::istringstream words(stat.substr(stat.rfind(')') + 1));
  std::string state;
  int parent = 0;
  words >> state >> parent;
  return parent;
}

TEST_F(MgrProc, ShellIsStartedOnlyWhenItHasSomethingToDo) {
  const std::string script = directory_.Write("script", "cat /proc/self/stat\n");
  ASSERT_EQ(0, ::chmod(script.c_str(), 0755));
  struct Case {
    std::string name;
    std::string command;
    bool direct;
  };
  const Case cases[] = {{"a program by its path", "/bin/cat /proc/self/stat", true},
                        {"blanks around words", "/bin/cat   /proc/self/stat ", true},
                        {"a program by its name", "cat /proc/self/stat", false},
                        {"a pipe", "/bin/cat /proc/self/stat | cat", false},
                        {"a variable", "/bin/cat /proc/${NONE}self/stat", false},
                        {"a quotation mark", "/bin/cat '/proc/self/stat'", false},
                        {"a pattern", "/bin/cat /proc/self/sta?", false},
                        {"two commands", "/bin/cat /proc/self/stat; true", false},
                        {"a script that only a shell can run", script, false}};
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    mgr_proc::Execute run(test.command, 2);
    EXPECT_EQ(0, run.Result());
    EXPECT_EQ(test.direct, ParentIn(run.Str()) == ::getpid()) << run.Str();
  }
}

struct Unstartable {
  std::string name;
  std::string command;
  std::string text;
};

TEST_F(MgrProc, ProgramThatCannotBeStartedGives127AndSaysWhy) {
  const std::string plain = directory_.Write("plain", "#!/bin/sh\necho ran\n");
  const std::string headless = directory_.Write("headless", "echo ran\n");
  const std::string orphan = directory_.Write("orphan", "#!/no/such/interpreter\n");
  const std::string empty = directory_.Write("empty", "");
  for (const std::string& file : {headless, orphan, empty}) {
    ASSERT_EQ(0, ::chmod(file.c_str(), 0755));
  }
  const std::string loop = directory_ / "loop";
  ASSERT_EQ(0, ::symlink(loop.c_str(), loop.c_str()));
  const std::vector<Unstartable> cases = {
      {"missing", "/no/such/doveadm pw -l",
       "can't start /no/such/doveadm: No such file or directory"},
      {"missing in every folder", "no-such-program x",
       "can't start no-such-program: No such file or directory"},
      {"no right to execute", plain, "can't start " + plain + ": Permission denied"},
      {"a folder", directory_.path(),
       "can't start " + directory_.path() + ", a folder: Permission denied"},
      {"script without its first line", headless,
       "can't start " + headless + ": Exec format error"},
      {"interpreter is missing", orphan,
       "can't start " + orphan + ", whose interpreter is missing: No such file or directory"},
      {"empty file", empty, "can't start " + empty + ": Exec format error"},
      {"below a file", plain + "/x", "can't start " + plain + "/x: Not a directory"},
      {"links in a circle", loop, "can't start " + loop + ": Too many levels of symbolic links"},
      {"longer than an argument may be", "/bin/true " + Repeated("x", 300000),
       "can't start /bin/true: Argument list too long"},
      {"no word", "", "can't start an empty command: No such file or directory"},
      {"blanks only", "   ", "can't start an empty command: No such file or directory"},
      {"NUL inside", std::string("/bin/echo a\0b", 13),
       "can't start a command with a NUL: Invalid argument"},
  };
  for (const Unstartable& child : cases) {
    SCOPED_TRACE(child.name);
    mgr_proc::Execute run(child.command, 3);
    run.In() << "input";
    EXPECT_EQ(127, run.Result());
    EXPECT_EQ(child.text, run.Str());
  }
}

TEST_F(MgrProc, CommandOfModeThreeIsNeverReadByAShell) {
  const std::string stub = Stub("printf '%s\\n' \"$@\"");
  const std::string mark = directory_ / "mark";
  const std::vector<std::string> words = {
      "$(touch",      mark + ")", "`touch", mark + "`", ";",  "|",     "&",  ">" + mark,
      "<x",           "*",        "?",      "[a-z]*",   "~",  "$HOME", "'",  "\"",
      "\\",           "#",        "!",      "{a,b}",    "--", "-s",    "%s", "a\tb",
      "\x01\x7f\xff", "x=y"};
  std::string command = stub;
  std::string expected;
  for (const std::string& word : words) {
    command += " " + word;
    expected += word + "\n";
  }
  mgr_proc::Execute run(command, 3);
  EXPECT_EQ(0, run.Result());
  EXPECT_EQ(expected, run.Str());
  EXPECT_FALSE(std::filesystem::exists(mark));
}

TEST_F(MgrProc, RunsOfBlanksPartWordsOnce) {
  mgr_proc::Execute run("  " + Stub("echo $#: $1 $2") + "   a  b ", 3);
  EXPECT_EQ("2: a b\n", run.Str());
}

struct Line {
  std::string name;
  std::string command;
  int result;
  std::string output;
};

TEST_F(MgrProc, ModeTwoIsACommandLineOfTheShell) {
  const std::vector<Line> lines = {
      {"pipe and quotes", "printf 'a STORAGE 1\\nb\\n' | awk '/STORAGE/ {print($1, $3)}'", 0,
       "a 1\n"},
      {"status of the last of a pipe", "false | true", 0, ""},
      {"error output into the pipe", "echo x 2>&1 >&2 | cat", 0, "x\n"},
      {"no input", "cat; echo end", 0, "end\n"},
      {"failure", "echo out; exit 3", 3, "out\n"},
      {"leading blank", " echo x", 0, "x\n"},
      {"missing program", "/no/such/program 2>/dev/null", 127, ""},
      {"empty", "", 0, ""},
      {"own name is no option", "-c 2>/dev/null", 127, ""},
      {"signal", "kill -9 $$", 137, ""},
  };
  for (const Line& line : lines) {
    SCOPED_TRACE(line.name);
    support::LogCapture logs(4);
    mgr_proc::Execute run(line.command, 2);
    EXPECT_EQ(line.result, run.Result());
    EXPECT_EQ(line.output, run.Str());
  }
}

TEST_F(MgrProc, OtherModesAndInputOfModeTwoAreRefused) {
  for (const int mode : {-1, 0, 1, 4}) {
    EXPECT_THROW(mgr_proc::Execute("true", mode), mgr_err::Error) << mode;
  }
  mgr_proc::Execute run("true", 2);
  EXPECT_THROW(run.In(), mgr_err::Error);
}

TEST_F(MgrProc, StartsOnceAndOnlyWhenAsked) {
  const std::string stub = Stub("echo ran >> " + directory_ / "runs");
  {
    mgr_proc::Execute unasked(stub, 3);
    unasked.In() << "input";
  }
  EXPECT_FALSE(std::filesystem::exists(directory_ / "runs"));
  mgr_proc::Execute run(stub, 3);
  run.Str();
  run.Result();
  run.Str();
  EXPECT_EQ("ran\n", directory_.Read("runs"));
}

TEST_F(MgrProc, InputAfterTheStartIsRefused) {
  mgr_proc::Execute run("cat", 3);
  run.In() << "before";
  EXPECT_EQ(0, run.Result());
  run.In() << "after" << std::flush;
  EXPECT_FALSE(run.In().good());
  EXPECT_EQ("before", run.Str());
}

// A tool that asks how much there is must find the whole input and its end, not a part of it.
TEST_F(MgrProc, ShortInputLiesWholeAndClosedInThePipeBeforeTheChildStarts) {
  const std::string stub = directory_.Write("peek",
                                            "#!/usr/bin/python3 -IS\n"
                                            "import array, fcntl, select, termios\n"
                                            "size = array.array('i', [0])\n"
                                            "fcntl.ioctl(0, termios.FIONREAD, size)\n"
                                            "poll = select.poll()\n"
                                            "poll.register(0, select.POLLIN)\n"
                                            "closed = poll.poll(0)[0][1] & select.POLLHUP != 0\n"
                                            "print(size[0], closed)\n");
  ASSERT_EQ(0, ::chmod(stub.c_str(), 0755));
  for (const std::size_t size : {std::size_t{1}, std::size_t{20}, std::size_t{65536}}) {
    mgr_proc::Execute run(stub, 3);
    run.In() << std::string(size, 'x');
    EXPECT_EQ(std::to_string(size) + " True\n", run.Str());
  }
}

TEST_F(MgrProc, ChildHasAFixedEnvironmentWhateverTheHostHas) {
  directory_.MakeFolder("evil");
  const std::string evil = Stub("echo evil", "evil/env");
  ::setenv("BRISQ_TEST_MARK", "1", 1);
  ::setenv("LD_PRELOAD", "", 1);
  ::setenv("LC_MESSAGES", "de_DE.UTF-8", 1);
  const std::string old_path = ::getenv("PATH");
  ::setenv("PATH", (directory_ / "evil").c_str(), 1);
  mgr_proc::Execute direct("env", 3);
  const std::string seen = direct.Str();
  mgr_proc::Execute shell("env", 2);
  const std::string seen_by_shell = shell.Str();
  ::setenv("PATH", old_path.c_str(), 1);
  for (const char* name : {"BRISQ_TEST_MARK", "LD_PRELOAD", "LC_MESSAGES"}) {
    ::unsetenv(name);
  }
  EXPECT_EQ("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\nHOME=/\nLC_ALL=C\n",
            seen);
  EXPECT_EQ(std::string::npos, seen_by_shell.find("BRISQ_TEST_MARK"));
  EXPECT_NE(std::string::npos, seen_by_shell.find("LC_ALL=C\n"));
}

TEST_F(MgrProc, ChildWorksInTheRootWhereverTheHostIs) {
  const std::string before = std::filesystem::current_path();
  const std::string gone = directory_.MakeFolder("gone");
  ASSERT_EQ(0, ::chdir(gone.c_str()));
  std::filesystem::remove(gone);
  for (const int mode : {2, 3}) {
    EXPECT_EQ("/\n", mgr_proc::Execute("pwd", mode).Str());
  }
  ASSERT_EQ(0, ::chdir(before.c_str()));
}

TEST_F(MgrProc, StandardErrorOfModeTwoGoesEscapedToTheLog) {
  support::LogCapture logs(4);
  mgr_proc::Execute run("printf 'one\\ntwo\\033[31m\\n' >&2; echo out; exit 1", 2);
  EXPECT_EQ("out\n", run.Str());
  const std::vector<support::LogLine> lines = logs.Lines();
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ("warning", lines[0].level);
  EXPECT_EQ("proc", lines[0].module);
  EXPECT_EQ(": one", lines[0].text.substr(lines[0].text.find(": ")));
  EXPECT_EQ(std::string::npos, lines[1].text.find('\033'));
  EXPECT_NE(std::string::npos, lines[1].text.find("two"));
}

// Its caller has no more than an empty text to tell of.
TEST_F(MgrProc, AChildOfModeTwoThatFailsWithoutAWordIsLoggedWithItsEnd) {
  const struct {
    const char* name;
    const char* body;
    const char* end;  // none for no line
  } cases[] = {
      {"status", "exit 3", "ended with exit status 3 without a word"},
      {"blanks", "echo; exit 3", "ended with exit status 3 without a word"},
      {"well", "exit 0", nullptr},
      {"output", "echo no; exit 3", nullptr},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.name);
    support::LogCapture logs(4);
    const std::string stub = Stub(item.body);
    mgr_proc::Execute(stub + " canary-word", 2).Result();
    const std::vector<support::LogLine> lines = logs.Lines();
    ASSERT_EQ(item.end == nullptr ? 0u : 1u, lines.size());
    if (item.end == nullptr) continue;
    EXPECT_EQ("warning", lines[0].level);
    EXPECT_EQ(": " + stub + ": " + item.end, lines[0].text.substr(lines[0].text.find(": ")));
  }
}

TEST_F(MgrProc, NothingOfInputOrOutputIsLoggedAndTheCommandAtLevelNineAlone) {
  for (const int level : {9, 6}) {
    SCOPED_TRACE(level);
    support::LogCapture logs(level);
    mgr_proc::Execute run(Stub("cat; echo canary-error >&2; exit 1") + " canary-word", 3);
    run.In() << "canary-input";
    EXPECT_EQ("***canary-error\n", run.Str());
    std::string all;
    for (const support::LogLine& line : logs.Lines()) {
      all += line.Short() + "\n";
    }
    EXPECT_EQ(level == 9, all.find("canary-word") != std::string::npos);
    EXPECT_EQ(std::string::npos, all.find("canary-input"));
    EXPECT_EQ(std::string::npos, all.find("canary-error"));
  }
}

TEST_F(MgrProc, OutputIsKeptUpToItsLimitAndTheLossIsLogged) {
  support::LogCapture logs(4);
  mgr_proc::Execute run("head -c 70000000 /dev/zero", 2);
  EXPECT_EQ(0, run.Result());
  EXPECT_EQ(std::size_t{64} << 20, run.Str().size());
  ASSERT_EQ(1u, logs.Lines().size());
  EXPECT_NE(std::string::npos,
            logs.Lines()[0].text.find("2891136 bytes of standard output dropped"));
}

}  // namespace
