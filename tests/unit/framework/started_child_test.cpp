#include "framework/started_child.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <ostream>
#include <stdexcept>

#include "tests/support/stub_program.h"
#include "tests/support/temp_dir.h"

namespace {

using mgr_proc::SecretBuffer;
using mgr_proc::Shell;
using mgr_proc::StartedChild;

// Everything up to the end of the file.
std::string ReadAll(const Descriptor& from) {
  std::string text;
  std::array<char, 4096> chunk;
  for (ssize_t got = 1; got > 0;) {
    got = ::read(from.get(), chunk.data(), chunk.size());
    text.append(chunk.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  }
  return text;
}

struct Outcome {
  std::string out;
  std::string err;
  int status;
};

Outcome RunToEnd(StartedChild& started) {
  const std::string out = ReadAll(started.out);
  const std::string err = ReadAll(started.err);
  pollfd end = {started.child.pidfd(), POLLIN, 0};
  EXPECT_EQ(1, ::poll(&end, 1, 10000));
  return {out, err, started.child.Collect()};
}

Outcome OutcomeOf(const std::string& command, Shell shell, const std::string& input = {}) {
  SecretBuffer buffer;
  std::ostream(&buffer) << input;
  buffer.Close();
  StartedChild started(command, shell, buffer);
  EXPECT_FALSE(started.in) << "a short input is sent before the child starts";
  return RunToEnd(started);
}

class StartedChildTest : public testing::Test {
 protected:
  support::TempDir dir_;
  // Prints its arguments in brackets and its input.
  const std::string stub_ =
      support::WriteStub(dir_ / "stub", "printf '[%s]' \"$@\"; /bin/cat; echo trouble >&2; exit 3");
};

TEST_F(StartedChildTest, OutputErrorsInputAndStatusGoThroughItsPipes) {
  const Outcome outcome = OutcomeOf(stub_ + " a", Shell::kNone, "secret\n");
  EXPECT_EQ("[a]secret\n", outcome.out);
  EXPECT_EQ("trouble\n", outcome.err);
  EXPECT_EQ(3, outcome.status);
}

TEST_F(StartedChildTest, ACommandLineIsTakenApartAsToldByTheShell) {
  struct Case {
    const char* name;
    std::string words;
    Shell shell;
    const char* arguments;
  };
  const Case cases[] = {
      {"words", " a b", Shell::kNone, "[a][b]"},
      {"blanks in a row", "  a   b ", Shell::kNone, "[a][b]"},
      {"quotes without a shell", " 'a b'", Shell::kNone, "['a][b']"},
      {"quotes with a shell", " 'a b'", Shell::kIfNeeded, "[a b]"},
      {"a variable with a shell", " $LC_ALL", Shell::kIfNeeded, "[C]"},
      {"a variable without a shell", " $LC_ALL", Shell::kNone, "[$LC_ALL]"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.arguments, OutcomeOf(stub_ + c.words, c.shell).out);
  }
}

// A shell that is saved can't be seen, but for its being the parent.
TEST_F(StartedChildTest, AProgramByItsPathNeedsNoShell) {
  const std::string own = std::to_string(::getpid());
  const Outcome direct = OutcomeOf("/bin/grep PPid /proc/self/status", Shell::kIfNeeded);
  EXPECT_EQ("PPid:\t" + own + "\n", direct.out);
  const Outcome shell = OutcomeOf("/bin/grep PPid /proc/self/status; true", Shell::kIfNeeded);
  EXPECT_NE("PPid:\t" + own + "\n", shell.out);
}

TEST_F(StartedChildTest, WhatCantBeStartedIsThrown) {
  for (const std::string& command : {std::string(), std::string("  "), dir_ / "none",
                                     std::string("/bin/true\0x", 11), dir_.path()}) {
    SCOPED_TRACE(command);
    SecretBuffer empty;
    empty.Close();
    EXPECT_THROW(StartedChild(command, Shell::kNone, empty), std::runtime_error);
  }
}

}  // namespace
